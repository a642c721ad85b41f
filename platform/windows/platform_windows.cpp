#include "platform/platform.h"

#include "foundation/TextConversion.h"
#include "platform/win32.h"

#include <pthread.h>
#include <shellapi.h>

#include <filesystem>

namespace platform {

// The path is opened as the wide path it is: a std::filesystem::path holds
// UTF-16 on Windows, and libstdc++ opens it with _wfopen, which lets other
// programs read and write the file while the service has it open.
bool openLogStream(std::ofstream& stream, const std::string& utf8WindowsPath) {
    std::filesystem::path path(utf8ToWide(utf8WindowsPath));
    if (path.empty()) return false;
    stream.open(path, std::ios::out | std::ios::trunc);
    return stream.is_open();
}

// main's narrow arguments are in the ANSI code page and lose what it cannot
// spell, so the arguments are split again from the wide command line. Only
// a failed allocation makes that fail; the list is then empty.
std::vector<std::wstring> wideArguments(int, char**) {
    std::vector<std::wstring> arguments;
    int count = 0;
    LPWSTR* split = CommandLineToArgvW(GetCommandLineW(), &count);
    if (!split) return arguments;
    for (int i = 0; i < count; ++i) arguments.emplace_back(split[i]);
    LocalFree(split);
    return arguments;
}

void prepareHost() {}

std::chrono::milliseconds hostDuration(std::chrono::milliseconds duration) { return duration; }

// The service's threads are those of the POSIX thread library of MinGW-w64,
// each of which runs on a Windows thread whose handle it keeps.
HANDLE threadHandle(std::thread& thread) { return pthread_gethandle(thread.native_handle()); }

BOOL endAbandonedThread(std::thread& thread) { return TerminateThread(threadHandle(thread), 0); }

}  // namespace platform
