// The entries of the process table and the handles that name them, shared
// by the calls that open, name and list processes.
#pragma once

#include "simhost/kernel32/kernel32.h"
#include "simhost/kernel32/objects.h"
#include "simhost/kernel32/process_creation.h"
#include "simhost/kernel32/processes.h"
#include "simhost/kernel32/toolhelp.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace simhost {
namespace kernel32 {

class ExitSignal;

// One process of the machine. Its record stays as it was added, except that
// the process may exit.
class Process {
public:
    Process(ProcessRecord record, bool isServiceProcess);
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    // The service's own entry has the id the service process has now.
    DWORD id(DWORD currentProcessId) const {
        return isServiceProcess_ ? currentProcessId : record_.processId;
    }
    bool isServiceProcess() const { return isServiceProcess_; }
    const ProcessRecord& record() const { return record_; }
    bool exited() const { return exited_; }
    // STILL_ACTIVE while the process runs; then the code it ended with.
    DWORD exitCode() const { return exitCode_; }
    // The record as the test API shows it: the id resolved, the exit noted.
    ProcessRecord describe(DWORD currentProcessId) const;

    // Ends the process with this code and lets the waits on its handles
    // end; a process that has exited keeps its first code.
    void exit(DWORD exitCode = 0);
    void attach(const std::shared_ptr<ExitSignal>& handle);

private:
    const ProcessRecord record_;
    const bool isServiceProcess_;
    std::atomic<bool> exited_;
    std::atomic<DWORD> exitCode_;
    std::mutex handlesMutex_;
    std::vector<std::weak_ptr<ExitSignal>> handles_;
};

// A waitable object signalled once its process has exited: a process
// handle, or the handle of its one thread, which ends with it.
class ExitSignal : public WaitableObject {
public:
    explicit ExitSignal(std::shared_ptr<Process> process) : process_(std::move(process)) {}

    const Process& process() const { return *process_; }
    // Called when the process exits, so that waiters look again.
    void wake() {
        changeState([] {});
    }

protected:
    DWORD tryAcquireLocked() override { return process_->exited() ? WAIT_OBJECT_0 : WAIT_TIMEOUT; }

private:
    const std::shared_ptr<Process> process_;
};

// A handle of OpenProcess or CreateProcessW: the process and the rights it
// was opened with.
class ProcessHandle : public ExitSignal {
public:
    ProcessHandle(std::shared_ptr<Process> process, DWORD access) : ExitSignal(std::move(process)), access_(access) {}
    const char* typeName() const override { return "Process"; }
    DWORD access() const { return access_; }

private:
    const DWORD access_;
};

// The handle of a process's main thread, as CreateProcessW gives it.
class ThreadHandle : public ExitSignal {
public:
    using ExitSignal::ExitSignal;
    const char* typeName() const override { return "Thread"; }
};

// Adds a process started on this machine under a fresh id, multiple of 4,
// that no process of the table has had; the record's own id is ignored.
std::shared_ptr<Process> startProcess(ProcessRecord record);

// The running process of that id; null when no running process has it.
std::shared_ptr<Process> findRunningProcess(DWORD processId);

// Either right lets a handle query a process's name and token.
constexpr DWORD kProcessQueryRights = PROCESS_QUERY_INFORMATION | PROCESS_QUERY_LIMITED_INFORMATION;
// The open process handle behind `process`; null for one that is not. The
// pseudo-handle of GetCurrentProcess() stands for the service's own process
// with every right.
std::shared_ptr<ProcessHandle> processHandleOf(HANDLE process);

// Whether the record names an image file, which its name calls can give.
bool hasImageFile(const ProcessRecord& record);
// The name a snapshot shows: the image path's last element.
std::wstring executableName(const ProcessRecord& record);

}  // namespace kernel32
}  // namespace simhost
