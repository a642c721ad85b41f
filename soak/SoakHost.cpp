#include "SoakHost.h"

#include "service/VexorPrintingService.h"
#include "simhost/advapi32/advapi32.h"
#include "simhost/advapi32/tokens.h"
#include "simhost/core/host.h"
#include "simhost/core/text.h"
#include "simhost/hostfile/host_file.h"
#include "simhost/kernel32/memory.h"
#include "simhost/kernel32/objects.h"
#include "simhost/kernel32/threads.h"
#include "simhost/setupapi/device_tree.h"
#include "simhost/setupapi/inf_files.h"
#include "simhost/winspool/spooler.h"
#include "simhost/ws2_32/winsock.h"

#include <json/json.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>

#include <unistd.h>

namespace soak {
namespace {

std::unique_ptr<VexorPrintingService> service;

// The installation with one loader per session, each under a session-zero
// process, each owning the connections made from its session's address; the
// advanced printing mode and the soak's driver installed.
Json::Value soakHost() {
    Json::Value host;
    std::istringstream text(R"({
      "drives": { "C": "." },
      "directories": [ "C:\\ProgramData\\Quillion\\VexorAgent\\logs" ],
      "files": { "C:\\Program Files\\Quillion\\VexorAgent\\vexor_vchan_loader.exe": "" },
      "serviceProcessId": 4242,
      "registry": [
        { "key": "HKLM\\SOFTWARE\\Quillion\\VexorAgent", "name": "VexorServerPath",
          "value": "C:\\Program Files\\Quillion\\VexorAgent\\vexor_server.exe" },
        { "key": "HKLM\\Software\\Policies\\Quillion\\Vexor\\vexor_admin",
          "name": "vexor.remote_printing_enabled", "type": "REG_DWORD", "value": 2 }
      ],
      "processes": [ { "id": 700, "parent": 4, "session": 0, "image": "C:\\Windows\\System32\\svchost.exe" } ],
      "tcpOwners": { "addresses": {} },
      "drivers": [ { "name": "Soak LaserBox" }, { "name": "Quillion Client Render XPS" } ]
    })");
    std::string errors;
    if (!Json::parseFromStream(Json::CharReaderBuilder(), text, &host, &errors))
        throw std::runtime_error("the soak host does not parse: " + errors);
    for (int session = kFirstSession; session < kFirstSession + kSessions; ++session) {
        const int loader = 5000 + 100 * session;
        Json::Value process(Json::objectValue);
        process["id"] = loader;
        process["parent"] = 700;
        process["session"] = session;
        process["image"] = "C:\\Program Files\\Quillion\\VexorAgent\\vexor_vchan_loader.exe";
        host["processes"].append(process);
        host["tcpOwners"]["addresses"][sessionAddress(session)] = loader;
    }
    return host;
}

std::string newDrive() {
    std::string pattern = (std::filesystem::temp_directory_path() / "vexor-soak-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make a temporary drive");
    return pattern;
}

}  // namespace

const char* const kDriverName = "Soak LaserBox";

std::string sessionAddress(int session) { return "127.0.2." + std::to_string(session); }

std::string startService() {
    const std::string drive = newDrive();
    simhost::applyHostDescription(soakHost(), drive);
    service = std::make_unique<VexorPrintingService>();
    service->OnStart(0, nullptr);
    return drive;
}

void stopService() {
    service->OnStop();
    simhost::waitForIdleWorkItems(10000);
    service.reset();
}

std::string printDocument(const std::string& printerName, size_t bytes, unsigned seed) {
    std::vector<BYTE> document(bytes);
    for (size_t i = 0; i < bytes; ++i) document[i] = static_cast<BYTE>((seed + i * 31) & 0xff);
    simhost::winspool::PrintOutcome outcome = simhost::winspool::printJob(simhost::widen(printerName), document);
    return outcome.delivered ? std::string() : outcome.failure;
}

SpoolerView spoolerView() {
    SpoolerView view;
    for (const simhost::winspool::SpoolerPrinter& printer : simhost::winspool::printers())
        view.printerPorts[simhost::narrow(printer.name)] = simhost::narrow(printer.portName);
    for (const simhost::winspool::PrinterPort& port : simhost::winspool::ports())
        if (port.tcp) view.ports.insert(simhost::narrow(port.name));
    return view;
}

long residentKiB() {
    std::ifstream statm("/proc/self/statm");
    long pages = 0, resident = 0;
    statm >> pages >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

double bytesPerOpenToken(int samples) {
    HANDLE loader = OpenProcess(MAXIMUM_ALLOWED, FALSE, 5000 + 100 * kFirstSession);
    std::vector<HANDLE> tokens;
    const long before = residentKiB();
    for (int i = 0; i < samples; ++i) {
        HANDLE token = nullptr;
        if (OpenProcessToken(loader, TOKEN_READ, &token)) tokens.push_back(token);
    }
    const long after = residentKiB();
    for (HANDLE token : tokens) CloseHandle(token);
    CloseHandle(loader);
    return tokens.empty() ? 0 : static_cast<double>(after - before) * 1024 / static_cast<double>(tokens.size());
}

size_t openTokenHandles() { return simhost::advapi32::openTokenHandleCount(); }

size_t tokensOpenedForLookups() {
    const simhost::Faults& calls = simhost::Host::get().faults();
    return calls.callCount("OpenProcessToken") - calls.callCount("DuplicateTokenEx");
}

Counters hostCounters() {
    using simhost::kernel32::Allocator;
    using simhost::kernel32::liveBlockCount;
    return {
        {"sockets", simhost::ws2_32::openSocketCount()},
        {"kernel handles", simhost::openHandleCount()},
        {"threads (work items)", simhost::unfinishedWorkItems()},
        {"spooler handles", simhost::winspool::openSpoolerHandleCount()},
        {"registry keys", simhost::advapi32::openRegistryKeyCount()},
        {"token handles", simhost::advapi32::openTokenHandleCount()},
        {"INF handles", simhost::setupapi::openInfHandleCount()},
        {"device info sets", simhost::setupapi::openDeviceInfoSetCount()},
        {"global memory blocks", liveBlockCount(Allocator::Global)},
        {"local memory blocks", liveBlockCount(Allocator::Local)},
        {"heap blocks", liveBlockCount(Allocator::Heap)},
        {"COM task memory blocks", liveBlockCount(Allocator::CoTaskMem)},
        {"BSTRs", liveBlockCount(Allocator::SysString)},
    };
}

}  // namespace soak
