// Toolhelp snapshots of the process list. A snapshot is a copy of the running
// processes taken when it is made: processes added or ended later do not
// change it. Threads, modules and heaps are not modelled; a snapshot without
// TH32CS_SNAPPROCESS lists nothing, and the process id argument is ignored.
#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/kernel32/process_table.h"
#include "simhost/kernel32/toolhelp.h"

#include <algorithm>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

using simhost::kernel32::ProcessRecord;

namespace {

constexpr LONG kNormalPriority = 8;

class Snapshot : public simhost::KernelObject {
public:
    explicit Snapshot(std::vector<ProcessRecord> processes) : processes_(std::move(processes)) {}
    const char* typeName() const override { return "Snapshot"; }

    // The entry at `index` (the next one when absent), moving the cursor
    // past it; false at the end of the list.
    bool take(ProcessRecord& entry, std::optional<size_t> index = std::nullopt) {
        std::lock_guard<std::mutex> hold(mutex_);
        if (index) cursor_ = *index;
        if (cursor_ >= processes_.size()) return false;
        entry = processes_[cursor_++];
        return true;
    }

private:
    std::mutex mutex_;
    const std::vector<ProcessRecord> processes_;
    size_t cursor_ = 0;
};

std::vector<ProcessRecord> runningProcesses() {
    std::vector<ProcessRecord> running = simhost::kernel32::processes();
    running.erase(std::remove_if(running.begin(), running.end(), [](const ProcessRecord& p) { return p.exited; }),
                  running.end());
    return running;
}

// The fields no longer used by Windows are zero; dwSize stays as the caller
// set it.
void describe(const ProcessRecord& process, PROCESSENTRY32W& entry) {
    DWORD size = entry.dwSize;
    entry = PROCESSENTRY32W{};
    entry.dwSize = size;
    entry.th32ProcessID = process.processId;
    entry.cntThreads = 1;
    entry.th32ParentProcessID = process.parentProcessId;
    entry.pcPriClassBase = kNormalPriority;
    std::wstring name = simhost::kernel32::executableName(process);
    size_t length = std::min<size_t>(name.size(), MAX_PATH - 1);
    std::copy_n(name.begin(), length, entry.szExeFile);
}

// The entry Process32FirstW (at index 0) or Process32NextW (at the cursor)
// gives, or the error it fails with.
DWORD nextEntry(const char* call, HANDLE snapshot, LPPROCESSENTRY32W entry, std::optional<size_t> index,
                ProcessRecord& process) {
    if (DWORD injected = simhost::injectedFailure(call)) return injected;
    std::shared_ptr<Snapshot> taken = simhost::lookupHandle<Snapshot>(snapshot);
    if (!taken) return ERROR_INVALID_HANDLE;
    if (!entry) return ERROR_INVALID_PARAMETER;
    // Windows refuses a record whose dwSize is below its own size.
    if (entry->dwSize < sizeof(PROCESSENTRY32W)) return ERROR_BAD_LENGTH;
    return taken->take(process, index) ? 0 : ERROR_NO_MORE_FILES;
}

BOOL walkSnapshot(const char* call, HANDLE snapshot, LPPROCESSENTRY32W entry, std::optional<size_t> index) {
    ProcessRecord process;
    if (DWORD error = nextEntry(call, snapshot, entry, index, process)) {
        SetLastError(error);
        return FALSE;
    }
    describe(process, *entry);
    return TRUE;
}

}  // namespace

HANDLE WINAPI CreateToolhelp32Snapshot(DWORD flags, DWORD processId) {
    (void)processId;
    if (DWORD injected = simhost::injectedFailure("CreateToolhelp32Snapshot")) {
        SetLastError(injected);
        return INVALID_HANDLE_VALUE;
    }
    std::vector<ProcessRecord> listed;
    if (flags & TH32CS_SNAPPROCESS) listed = runningProcesses();
    return simhost::registerHandle(std::make_shared<Snapshot>(std::move(listed)));
}

BOOL WINAPI Process32FirstW(HANDLE snapshot, LPPROCESSENTRY32W entry) {
    return walkSnapshot("Process32FirstW", snapshot, entry, 0);
}

// Without a Process32FirstW before it, the walk starts at the first entry.
BOOL WINAPI Process32NextW(HANDLE snapshot, LPPROCESSENTRY32W entry) {
    return walkSnapshot("Process32NextW", snapshot, entry, std::nullopt);
}
