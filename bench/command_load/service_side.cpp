#include "bench/command_load/service_side.h"

#include "service/VexorPrintingService.h"
#include "simhost/core/host.h"
#include "simhost/hostfile/host_file.h"
#include "simhost/kernel32/threads.h"

#include <json/json.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace {

std::unique_ptr<VexorPrintingService> service;

// The machine: the installation with its loader, the loader running in a
// user session under a session-zero process, and owning every client end
// made from outside the host, so that the driver's clients are admitted as
// a session's plugin would be.
constexpr const char* kLoadHost = R"({
  "drives": { "C": "." },
  "directories": [ "C:\\ProgramData\\Quillion\\VexorAgent\\logs" ],
  "files": { "C:\\Program Files\\Quillion\\VexorAgent\\vexor_vchan_loader.exe": "" },
  "serviceProcessId": 4242,
  "registry": [
    { "key": "HKLM\\SOFTWARE\\Quillion\\VexorAgent", "name": "VexorServerPath",
      "value": "C:\\Program Files\\Quillion\\VexorAgent\\vexor_server.exe" }
  ],
  "processes": [
    { "id": 700, "parent": 4, "session": 0, "image": "C:\\Windows\\System32\\svchost.exe" },
    { "id": 5000, "parent": 700, "session": 2,
      "image": "C:\\Program Files\\Quillion\\VexorAgent\\vexor_vchan_loader.exe" }
  ],
  "tcpOwners": { "default": 5000 }
})";

}  // namespace

std::string startServiceOnSimulatedHost() {
    std::string pattern = (std::filesystem::temp_directory_path() / "vexor-load-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make a temporary drive");
    Json::Value host;
    std::istringstream text(kLoadHost);
    std::string errors;
    if (!Json::parseFromStream(Json::CharReaderBuilder(), text, &host, &errors))
        throw std::runtime_error("the load host does not parse: " + errors);
    simhost::applyHostDescription(host, pattern);
    service = std::make_unique<VexorPrintingService>();
    service->OnStart(0, nullptr);
    return pattern;
}

void stopService() {
    service->OnStop();
    simhost::waitForIdleWorkItems(10000);
    service.reset();
    // A new machine for the next start.
    simhost::Host::get().reset();
}
