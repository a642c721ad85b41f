// The entries of the process table and the handles that name them, shared
// by the calls that open, name and list processes.
#pragma once

#include "simhost/kernel32/kernel32.h"
#include "simhost/kernel32/objects.h"
#include "simhost/kernel32/processes.h"
#include "simhost/kernel32/toolhelp.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace simhost {
namespace kernel32 {

class ProcessHandle;

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
    // The record as the test API shows it: the id resolved, the exit noted.
    ProcessRecord describe(DWORD currentProcessId) const;

    // Ends the process and lets the waits on its handles end.
    void exit();
    void attach(const std::shared_ptr<ProcessHandle>& handle);

private:
    const ProcessRecord record_;
    const bool isServiceProcess_;
    std::atomic<bool> exited_;
    std::mutex handlesMutex_;
    std::vector<std::weak_ptr<ProcessHandle>> handles_;
};

// A handle of OpenProcess: the process and the rights it was opened with.
// It is signalled once the process has exited.
class ProcessHandle : public WaitableObject {
public:
    ProcessHandle(std::shared_ptr<Process> process, DWORD access)
        : process_(std::move(process)), access_(access) {}
    const char* typeName() const override { return "Process"; }

    const Process& process() const { return *process_; }
    DWORD access() const { return access_; }
    // Called when the process exits, so that waiters look again.
    void wake() {
        changeState([] {});
    }

protected:
    DWORD tryAcquireLocked() override { return process_->exited() ? WAIT_OBJECT_0 : WAIT_TIMEOUT; }

private:
    const std::shared_ptr<Process> process_;
    const DWORD access_;
};

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
