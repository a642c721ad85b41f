// The temporary and current directories of the process, as the host sets
// them, behind GetTempPathW and GetCurrentDirectoryW.
#include "simhost/core/host.h"
#include "simhost/kernel32/host_settings.h"
#include "simhost/kernel32/kernel32.h"

#include <algorithm>
#include <mutex>
#include <string>

namespace simhost {
namespace kernel32 {
namespace {

struct PathState {
    std::mutex mutex;
    std::wstring tempPath = L"C:\\Windows\\Temp\\";
    std::wstring currentDirectory = L"C:\\Windows\\system32";
};

PathState& pathState() { return Host::get().state<PathState>(); }

// The two-call protocol both calls share: on success the length without the
// NUL; when the buffer cannot take the text and its NUL, the size it needs
// with the NUL, and nothing is written.
DWORD deliverPath(const char* call, const std::wstring& path, DWORD bufferLength, LPWSTR buffer) {
    if (DWORD error = injectedFailure(call)) {
        SetLastError(error);
        return 0;
    }
    DWORD needed = static_cast<DWORD>(path.size() + 1);
    if (!buffer || bufferLength < needed) return needed;
    std::copy(path.begin(), path.end(), buffer);
    buffer[path.size()] = L'\0';
    return needed - 1;
}

}  // namespace

void setTempPath(const std::wstring& path) {
    PathState& state = pathState();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.tempPath = path;
}

std::wstring tempPath() {
    PathState& state = pathState();
    std::lock_guard<std::mutex> lock(state.mutex);
    std::wstring path = state.tempPath;
    if (!path.empty() && path.back() != L'\\') path += L'\\';
    return path;
}

void setCurrentDirectory(const std::wstring& path) {
    PathState& state = pathState();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.currentDirectory = path;
}

std::wstring currentDirectory() {
    PathState& state = pathState();
    std::lock_guard<std::mutex> lock(state.mutex);
    return state.currentDirectory;
}

}  // namespace kernel32
}  // namespace simhost

DWORD WINAPI GetTempPathW(DWORD bufferLength, LPWSTR buffer) {
    using namespace simhost::kernel32;
    return deliverPath("GetTempPathW", tempPath(), bufferLength, buffer);
}

DWORD WINAPI GetCurrentDirectoryW(DWORD bufferLength, LPWSTR buffer) {
    using namespace simhost::kernel32;
    return deliverPath("GetCurrentDirectoryW", currentDirectory(), bufferLength, buffer);
}
