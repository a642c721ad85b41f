// Shows the service's logger at work on the simulated host: drive C: maps to
// a directory of this machine, the service's log settings are applied, a few
// lines of each kind are written, and the log file is printed.
#include "foundation/ServiceLogging.h"
#include "foundation/StaticLogger.h"
#include "platform/win32.h"
#include "simhost/core/host.h"

#include <filesystem>
#include <fstream>
#include <iostream>

namespace {

void showStartUp() {
    VX_LOG(kLogNormal, kNoLastError, 4, "Service version:25.6.0.51414, Short Hash = 57230ca0d");
    VX_LOG(kLogNormal, kNoLastError, 3, "listen returned success\n");
}

void showFailure() {
    SetLastError(ERROR_ACCESS_DENIED);
    VX_LOG(kLogError, kWithLastError, 4, "CreateEvent failed");
}

}  // namespace

int main(int argc, char** argv) {
    std::filesystem::path root = argc > 1 ? argv[1] : std::filesystem::current_path() / "build" / "demo-drive-c";
    std::filesystem::path logs = root / "ProgramData" / "Quillion" / "VexorAgent" / "logs";
    std::filesystem::create_directories(logs);
    simhost::Host::get().mapDrive(L'C', root.string());

    applyServiceLogSettings();
    std::wstring path;
    if (!StaticLogger::OpenLogFile(path)) {
        std::cerr << "could not open a log file under " << logs << "\n";
        return 1;
    }
    showStartUp();
    showFailure();
    VX_LOG_MEMORY();

    std::cout << "Simulated drive C: is " << root << "\n";
    std::filesystem::path newest;
    for (const auto& entry : std::filesystem::directory_iterator(logs))
        if (newest.empty() || entry.last_write_time() > std::filesystem::last_write_time(newest)) newest = entry.path();
    std::cout << "\n== " << newest.filename().string() << "\n";
    std::ifstream in(newest);
    std::cout << in.rdbuf();
    return 0;
}
