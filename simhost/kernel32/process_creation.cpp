// CreateProcessW and GetExitCodeProcess. A started process is a child of the
// service process in its session, with its token's account; it runs one of
// the programs the host knows (program_run.h) on a thread of its own.
// Inheritance, creation flags, the environment, the new process's current
// directory and the start-up record's members change nothing. The
// documentation names no failure for STARTUPINFOW's cb, so any value is
// taken.
#include "simhost/core/host.h"
#include "simhost/kernel32/program_run.h"
#include "simhost/kernel32/threads.h"

namespace {

constexpr DWORD kErrorNoAccess = 998;  // ERROR_NOACCESS

BOOL failWith(DWORD error) {
    SetLastError(error);
    return FALSE;
}

// The record of a process the service starts: its child, in its session,
// under its token's account.
simhost::kernel32::ProcessRecord childRecord(const std::wstring& imagePath) {
    DWORD parent = GetCurrentProcessId();
    std::shared_ptr<simhost::kernel32::Process> caller = simhost::kernel32::findRunningProcess(parent);
    simhost::kernel32::ProcessRecord record = caller ? caller->record() : simhost::kernel32::ProcessRecord{};
    record.parentProcessId = parent;
    record.imagePath = imagePath;
    record.protection = simhost::kernel32::ProcessProtection::None;
    record.exited = false;
    return record;
}

template <class Handle>
HANDLE openHandle(const std::shared_ptr<simhost::kernel32::Process>& process, std::shared_ptr<Handle> handle) {
    process->attach(handle);
    return simhost::registerHandle(std::move(handle));
}

}  // namespace

// Null start-up or process records (which Windows would fault on) and a call
// with neither a name nor a command line: ERROR_INVALID_PARAMETER. A program
// the host does not know: ERROR_FILE_NOT_FOUND.
BOOL WINAPI CreateProcessW(LPCWSTR applicationName, LPWSTR commandLine, LPSECURITY_ATTRIBUTES processAttributes,
                           LPSECURITY_ATTRIBUTES threadAttributes, BOOL inheritHandles, DWORD creationFlags,
                           LPVOID environment, LPCWSTR currentDirectory, LPSTARTUPINFOW startupInfo,
                           LPPROCESS_INFORMATION processInformation) {
    (void)processAttributes, (void)threadAttributes, (void)inheritHandles, (void)creationFlags;
    (void)environment, (void)currentDirectory;
    using namespace simhost::kernel32;
    if (DWORD injected = simhost::injectedFailure("CreateProcessW")) return failWith(injected);
    if (!startupInfo || !processInformation || (!applicationName && !commandLine))
        return failWith(ERROR_INVALID_PARAMETER);
    std::wstring line = commandLine ? commandLine : applicationName;
    std::optional<ProgramStart> start = resolveProgram(applicationName, line);
    if (!start) return failWith(ERROR_FILE_NOT_FOUND);
    std::shared_ptr<Process> process = startProcess(childRecord(start->imagePath));
    processInformation->hProcess = openHandle(process, std::make_shared<ProcessHandle>(process, PROCESS_ALL_ACCESS));
    processInformation->hThread = openHandle(process, std::make_shared<ThreadHandle>(process));
    processInformation->dwProcessId = process->record().processId;
    processInformation->dwThreadId = simhost::newThreadId();
    launchProgram(process, line, std::move(*start));
    return TRUE;
}

// Needs one of the query rights. STILL_ACTIVE while the process runs, then
// its exit code (0 for a process the host ended with markExited). A null
// output: ERROR_NOACCESS, the fault Windows reports as that error.
BOOL WINAPI GetExitCodeProcess(HANDLE process, LPDWORD exitCode) {
    using namespace simhost::kernel32;
    if (DWORD injected = simhost::injectedFailure("GetExitCodeProcess")) return failWith(injected);
    std::shared_ptr<ProcessHandle> handle = processHandleOf(process);
    if (!handle) return failWith(ERROR_INVALID_HANDLE);
    if (!(handle->access() & kProcessQueryRights)) return failWith(ERROR_ACCESS_DENIED);
    if (!exitCode) return failWith(kErrorNoAccess);
    *exitCode = handle->process().exitCode();
    return TRUE;
}
