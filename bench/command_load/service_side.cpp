#include "bench/command_load/service_side.h"

#include "service/VexorPrintingService.h"
#include "simhost/core/host.h"
#include "simhost/hostfile/host_file.h"
#include "simhost/kernel32/threads.h"

#include "foundation/StaticLogger.h"
#include "printers/PrinterSecurity.h"
#include "simhost/winspool/spooler.h"

#include <json/json.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <functional>

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

Json::Value loadHost() {
    Json::Value host;
    std::istringstream text(kLoadHost);
    std::string errors;
    if (!Json::parseFromStream(Json::CharReaderBuilder(), text, &host, &errors))
        throw std::runtime_error("the load host does not parse: " + errors);
    return host;
}

std::string newDrive() {
    std::string pattern = (std::filesystem::temp_directory_path() / "vexor-load-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make a temporary drive");
    return pattern;
}

void startService() {
    service = std::make_unique<VexorPrintingService>();
    service->OnStart(0, nullptr);
}

std::string modelName(int i) { return "Maker" + std::to_string(i) + " Model " + std::to_string(i); }

void stageDriverStore(const std::string& drive, int entries) {
    const std::filesystem::path infDirectory = std::filesystem::path(drive) / "Windows" / "INF";
    std::filesystem::create_directories(infDirectory);
    for (int first = 0; first < entries; first += 10) {
        std::string text = "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=Printer\r\n\r\n"
                           "[Manufacturer]\r\nMaker=Models,NTamd64\r\n\r\n[Models.NTamd64]\r\n";
        for (int i = first; i < std::min(entries, first + 10); ++i)
            text += "\"" + modelName(i) + "\" = Install, USBPRINT\\Maker" + std::to_string(i) + "Model" +
                    std::to_string(i) + "\r\n";
        std::ofstream(infDirectory / ("oem" + std::to_string(first / 10) + ".inf"), std::ios::binary) << text;
    }
}

}  // namespace

std::string startServiceOnSimulatedHost() {
    const std::string drive = newDrive();
    simhost::applyHostDescription(loadHost(), drive);
    startService();
    return drive;
}

std::string startServiceWithDriverStore(int catalogueEntries, int installedDrivers) {
    const std::string drive = newDrive();
    Json::Value host = loadHost();
    Json::Value mode(Json::objectValue);
    mode["key"] = "HKLM\\Software\\Policies\\Quillion\\Vexor\\vexor_admin";
    mode["name"] = "vexor.remote_printing_enabled";
    mode["type"] = "REG_DWORD";
    mode["value"] = 2;
    host["registry"].append(mode);
    Json::Value fallback(Json::objectValue);
    fallback["name"] = "Quillion Client Render XPS";
    host["drivers"].append(fallback);
    for (int i = 0; i < installedDrivers; ++i) {
        Json::Value driver(Json::objectValue);
        driver["name"] = modelName(i);
        if (i == 0) driver["monitor"] = "Maker Language Monitor";
        host["drivers"].append(driver);
    }
    simhost::applyHostDescription(host, drive);
    stageDriverStore(drive, catalogueEntries);
    startService();
    return drive;
}

size_t serviceLogLines(const std::string& drive) {
    size_t lines = 0;
    const std::filesystem::path logs = std::filesystem::path(drive) / "ProgramData" / "Quillion" / "VexorAgent" / "logs";
    for (const auto& entry : std::filesystem::directory_iterator(logs)) {
        std::ifstream file(entry.path());
        for (std::string line; std::getline(file, line);) ++lines;
    }
    return lines;
}

double logLineMicroseconds(int samples) {
    const auto started = std::chrono::steady_clock::now();
    for (int i = 0; i < samples; ++i)
        VX_LOG(kLogNormal, kNoLastError, 2, "load driver's measure of one line:%d of the service log", i);
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - started).count() / samples;
}

AddCost addPrinterCost(int samples) {
    simhost::Host::get().reset();
    simhost::winspool::addDriver({L"Load Driver", simhost::winspool::kLocalEnvironment, L"", L"", {}});
    // LPT1: is one of the machine's own ports.
    std::wstring name = L"Load printer", portName = L"LPT1:", driver = L"Load Driver", processor = L"winprint";
    PRINTER_INFO_2W info = {};
    info.pPrinterName = &name[0];
    info.pPortName = &portName[0];
    info.pDriverName = &driver[0];
    info.pPrintProcessor = &processor[0];
    auto timeAdds = [&](const std::function<HANDLE()>& add) {
        double total = 0;
        for (int i = 0; i < samples; ++i) {
            const auto started = std::chrono::steady_clock::now();
            HANDLE printer = add();
            total += std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - started).count();
            DeletePrinter(printer);
            ClosePrinter(printer);
        }
        return total / samples;
    };
    AddCost cost;
    cost.directUs = timeAdds([&] { return AddPrinterW(nullptr, 2, reinterpret_cast<LPBYTE>(&info)); });
    cost.guardedUs = timeAdds([&] { return PrinterUtil::addPrinterNonBlocking(&info); });
    simhost::Host::get().reset();
    return cost;
}

void stopService() {
    service->OnStop();
    simhost::waitForIdleWorkItems(10000);
    service.reset();
    // A new machine for the next start.
    simhost::Host::get().reset();
}
