// OpenProcess, the image names of a process and its session, over the
// host's process table.
//
// Process ids: 0 (the System Idle Process), an id no running process has,
// and the id of a process that has exited are all ERROR_INVALID_PARAMETER,
// as Windows answers for an id it cannot open. Successful calls leave the
// last error as it was.
#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/kernel32/process_table.h"
#include "simhost/kernel32/toolhelp.h"

#include <algorithm>

using simhost::kernel32::Process;
using simhost::kernel32::ProcessHandle;
using simhost::kernel32::ProcessProtection;

namespace {

template <class Result>
Result failWith(DWORD error, Result result) {
    SetLastError(error);
    return result;
}

// The running process of an id a caller may name, or the error for it.
std::shared_ptr<Process> runningProcess(DWORD processId, DWORD& error) {
    std::shared_ptr<Process> process = processId == 0 ? nullptr : simhost::kernel32::findRunningProcess(processId);
    error = process ? 0 : ERROR_INVALID_PARAMETER;
    return process;
}

// Why the process's image name cannot be read through this handle, or 0.
// Both calls need one of the query rights; with a null module,
// GetModuleFileNameEx needs no more since Windows 10.
DWORD nameRefusal(const ProcessHandle& handle) {
    if (!(handle.access() & simhost::kernel32::kProcessQueryRights)) return ERROR_ACCESS_DENIED;
    const simhost::kernel32::ProcessRecord& record = handle.process().record();
    if (record.protection == ProcessProtection::CannotName || !simhost::kernel32::hasImageFile(record))
        return ERROR_ACCESS_DENIED;
    return 0;
}

// The entry checks both name calls share: the fault, the handle, the rights.
std::shared_ptr<ProcessHandle> enterNameCall(const char* call, HANDLE process, DWORD& error) {
    error = simhost::injectedFailure(call);
    if (error) return nullptr;
    std::shared_ptr<ProcessHandle> handle = simhost::kernel32::processHandleOf(process);
    error = handle ? nameRefusal(*handle) : ERROR_INVALID_HANDLE;
    return error ? nullptr : handle;
}

DWORD copyName(const std::wstring& name, LPWSTR buffer, size_t characters) {
    std::copy_n(name.begin(), characters, buffer);
    buffer[characters] = L'\0';
    return static_cast<DWORD>(characters);
}

}  // namespace

// Access rights are granted as asked, except to a process that cannot be
// opened (as System and the client-server runtime processes refuse every
// caller): ERROR_ACCESS_DENIED. MAXIMUM_ALLOWED gives every right, which the
// local system account holds on every process it may open. Generic rights
// and inheritance are not modelled.
HANDLE WINAPI OpenProcess(DWORD desiredAccess, BOOL inheritHandle, DWORD processId) {
    (void)inheritHandle;
    if (DWORD injected = simhost::injectedFailure("OpenProcess")) return failWith<HANDLE>(injected, nullptr);
    DWORD error = 0;
    std::shared_ptr<Process> process = runningProcess(processId, error);
    if (!process) return failWith<HANDLE>(error, nullptr);
    if (process->record().protection == ProcessProtection::CannotOpen)
        return failWith<HANDLE>(ERROR_ACCESS_DENIED, nullptr);
    DWORD granted = desiredAccess & MAXIMUM_ALLOWED ? (desiredAccess & ~MAXIMUM_ALLOWED) | PROCESS_ALL_ACCESS
                                                    : desiredAccess;
    auto handle = std::make_shared<ProcessHandle>(process, granted);
    process->attach(handle);
    return simhost::registerHandle(handle);
}

// Only the main module (a null module) is modelled; another is
// ERROR_INVALID_HANDLE. A name longer than the buffer is cut to size - 1
// characters and a NUL, and that count is the answer: the call succeeds and
// leaves the last error alone. A size of 0 is ERROR_INSUFFICIENT_BUFFER. The
// name is read from the process's memory, which has gone once it exits:
// ERROR_PARTIAL_COPY through a handle opened before.
DWORD WINAPI K32GetModuleFileNameExW(HANDLE process, HMODULE module, LPWSTR fileName, DWORD size) {
    DWORD error = 0;
    std::shared_ptr<ProcessHandle> handle = enterNameCall("K32GetModuleFileNameExW", process, error);
    if (!handle) return failWith<DWORD>(error, 0);
    if (module) return failWith<DWORD>(ERROR_INVALID_HANDLE, 0);
    if (handle->process().exited()) return failWith<DWORD>(ERROR_PARTIAL_COPY, 0);
    if (size == 0) return failWith<DWORD>(ERROR_INSUFFICIENT_BUFFER, 0);
    if (!fileName) return failWith<DWORD>(ERROR_INVALID_PARAMETER, 0);
    const std::wstring& path = handle->process().record().imagePath;
    return copyName(path, fileName, std::min<size_t>(path.size(), size - 1));
}

// The kernel keeps the image name with the process object, so it stays
// readable through a handle after the process exits. A buffer that cannot
// take the name and its NUL: 0, ERROR_INSUFFICIENT_BUFFER, nothing written.
DWORD WINAPI K32GetProcessImageFileNameW(HANDLE process, LPWSTR imageFileName, DWORD size) {
    DWORD error = 0;
    std::shared_ptr<ProcessHandle> handle = enterNameCall("K32GetProcessImageFileNameW", process, error);
    if (!handle) return failWith<DWORD>(error, 0);
    std::wstring path = simhost::kernel32::deviceFormPath(handle->process().record().imagePath);
    if (size < path.size() + 1) return failWith<DWORD>(ERROR_INSUFFICIENT_BUFFER, 0);
    if (!imageFileName) return failWith<DWORD>(ERROR_INVALID_PARAMETER, 0);
    return copyName(path, imageFileName, path.size());
}

// The service runs as the local system account, which may query every
// running process, those that cannot be opened included.
BOOL WINAPI ProcessIdToSessionId(DWORD processId, DWORD* sessionId) {
    if (DWORD injected = simhost::injectedFailure("ProcessIdToSessionId")) return failWith<BOOL>(injected, FALSE);
    if (!sessionId) return failWith<BOOL>(ERROR_INVALID_PARAMETER, FALSE);
    DWORD error = 0;
    std::shared_ptr<Process> process = runningProcess(processId, error);
    if (!process) return failWith<BOOL>(error, FALSE);
    *sessionId = process->record().sessionId;
    return TRUE;
}
