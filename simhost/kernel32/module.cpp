// The path of this program as the host says it, behind GetModuleFileNameW.
#include "simhost/kernel32/module.h"

#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"

#include <algorithm>
#include <mutex>

namespace simhost {
namespace kernel32 {
namespace {

struct ModuleState {
    std::mutex mutex;
    std::wstring fileName = L"C:\\Program Files\\Quillion\\VexorAgent\\VexorPrintingService.exe";
};

ModuleState& moduleState() { return Host::get().state<ModuleState>(); }

}  // namespace

void setModuleFileName(const std::wstring& path) {
    ModuleState& state = moduleState();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.fileName = path;
}

std::wstring moduleFileName() {
    ModuleState& state = moduleState();
    std::lock_guard<std::mutex> lock(state.mutex);
    return state.fileName;
}

}  // namespace kernel32
}  // namespace simhost

// The program's path for a null module; the process loads no other module
// the host knows of (ERROR_MOD_NOT_FOUND). A buffer that cannot take the
// path and its NUL gets the path cut to size - 1 characters and a NUL; the
// call then answers size with ERROR_INSUFFICIENT_BUFFER, as documented since
// Windows Vista. On success it answers the length without the NUL and leaves
// the last error alone.
DWORD WINAPI GetModuleFileNameW(HMODULE module, LPWSTR fileName, DWORD size) {
    DWORD error = simhost::injectedFailure("GetModuleFileNameW");
    if (!error && module) error = ERROR_MOD_NOT_FOUND;
    if (error) {
        SetLastError(error);
        return 0;
    }
    std::wstring path = simhost::kernel32::moduleFileName();
    if (path.size() < size) {
        std::copy(path.begin(), path.end(), fileName);
        fileName[path.size()] = L'\0';
        return static_cast<DWORD>(path.size());
    }
    if (size) {
        std::copy(path.begin(), path.begin() + (size - 1), fileName);
        fileName[size - 1] = L'\0';
    }
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return size;
}
