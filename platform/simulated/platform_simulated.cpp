#include "platform/platform.h"

#include "foundation/TextConversion.h"
#include "simhost/core/host.h"
#include "simhost/core/thread_ending.h"
#include "simhost/hostfile/host_file.h"

namespace platform {

// The simulated host keeps Windows paths; its drive letters map to
// directories of this machine.
bool openLogStream(std::ofstream& stream, const std::string& utf8WindowsPath) {
    std::string native = simhost::Host::get().toNativePath(utf8ToWide(utf8WindowsPath));
    if (native.empty()) return false;
    stream.open(native, std::ios::out | std::ios::trunc);
    return stream.is_open();
}

// Arguments of this platform are UTF-8.
std::vector<std::wstring> wideArguments(int argc, char** argv) {
    std::vector<std::wstring> arguments;
    for (int i = 0; i < argc; ++i) arguments.push_back(utf8ToWide(argv[i]));
    return arguments;
}

void prepareHost() { simhost::prepareProcessFromEnvironment(); }

std::chrono::milliseconds hostDuration(std::chrono::milliseconds duration) {
    DWORD milliseconds = static_cast<DWORD>(duration.count());
    return std::chrono::milliseconds(simhost::Host::get().scaledMilliseconds(milliseconds));
}

// A thread id of this platform is an address: distinct, and never null for a
// thread that was started.
HANDLE threadHandle(std::thread& thread) { return reinterpret_cast<HANDLE>(thread.native_handle()); }

BOOL endAbandonedThread(std::thread& thread) {
    if (!thread.joinable()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (simhost::requestThreadEnd(thread.native_handle()) == simhost::ThreadEnding::EndsAtNextCall) thread.detach();
    return TRUE;
}

}  // namespace platform
