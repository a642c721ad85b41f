#include "bench/command_load/service_side.h"

#include "service/VexorPrintingService.h"
#include "simhost/core/host.h"
#include "simhost/kernel32/threads.h"

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>

namespace {

std::unique_ptr<VexorPrintingService> service;

}  // namespace

std::string startServiceOnSimulatedHost() {
    std::string pattern = (std::filesystem::temp_directory_path() / "vexor-load-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make a temporary drive");
    std::filesystem::create_directories(pattern + "/ProgramData/Quillion/VexorAgent/logs");
    simhost::Host::get().mapDrive(L'C', pattern);
    service = std::make_unique<VexorPrintingService>();
    service->OnStart(0, nullptr);
    return pattern;
}

void stopService() {
    service->OnStop();
    simhost::waitForIdleWorkItems(10000);
    service.reset();
}
