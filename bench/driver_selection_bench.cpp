// Latency of choosing one printer's driver (selectDriver), for requests that
// end at four places of the ladder: the driver the client names (step 2),
// the client's hardware id (step 3), the checksummed make-and-model ids
// (pass 2 of step 5) and the fallback driver (step 10, after every other
// step has looked and found nothing). Each runs against a catalogue of 5,000
// staged driver entries and 200 installed drivers, then with the catalogue
// and the installed list each grown and shrunk fourfold.
//
// Beside each latency the same run times one two-call enumeration of the
// installed drivers by name (EnumPrinterDriversW level 1) before every
// selection, the unit the ladder repeats: `per_enum` says how many such
// enumerations one selection costs (medians).
//
// Usage: driver_selection_bench [--smoke]. The service's log is written as
// in production, with its default settings, to a temporary drive.
#include "drivers/MakeAndModelHwids.h"
#include "foundation/ClassicJson.h"
#include "service/VexorPrintingService.h"
#include "simhost/advapi32/advapi32.h"
#include "simhost/core/host.h"
#include "simhost/winspool/spooler.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
namespace spooler = simhost::winspool;
using Clock = std::chrono::steady_clock;

constexpr int kModelsPerInf = 10;

struct Shape {
    int catalogueEntries;
    int installedDrivers;
};

struct RequestKind {
    const char* name;
    const char* text;
};

// The model name of driver i of the store.
std::string modelName(int i) { return "Maker" + std::to_string(i) + " Model " + std::to_string(i); }

std::wstring wide(const std::string& text) { return std::wstring(text.begin(), text.end()); }

// Installed driver i stores the id of its INF line, except driver 0, which
// stores the USB id of the make-and-model "Maker0 Model 0", so that pass 2
// finds it.
const RequestKind kRequests[] = {
    {"step 2 (driver named)", R"({"printerName":"P","OS":"Windows","driverName":"Maker1 Model 1"})"},
    {"step 3 (hardware id)", R"({"printerName":"P","OS":"Windows","hardwareId":"USBPRINT\\Maker2Model2"})"},
    {"pass 2 (make/model)",
     R"({"printerName":"P","OS":"OSX","HostRenderSupported":1,"printer-make-and-model":"Maker0 Model 0"})"},
    {"fallback", R"({"printerName":"P","OS":"Windows","ClientRenderSupported":["XPS"],)"
                 R"("printer-make-and-model":"Unknown Maker Box 9"})"},
};

void writeFile(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

// INF files of 10 models each, `entries` models in all, in the INF
// directory.
void stageCatalogue(const fs::path& drive, int entries) {
    for (int first = 0; first < entries; first += kModelsPerInf) {
        std::string text = "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=Printer\r\n\r\n"
                           "[Manufacturer]\r\nMaker=Models,NTamd64\r\n\r\n[Models.NTamd64]\r\n";
        for (int i = first; i < std::min(entries, first + kModelsPerInf); ++i)
            text += "\"" + modelName(i) + "\" = Install, USBPRINT\\Maker" + std::to_string(i) + "Model" +
                    std::to_string(i) + "\r\n";
        writeFile(drive / "Windows/INF" / ("oem" + std::to_string(first / kModelsPerInf) + ".inf"), text);
    }
}

void installDrivers(int count) {
    for (int i = 0; i < count; ++i) {
        std::wstring id = L"USBPRINT\\Maker" + std::to_wstring(i) + L"Model" + std::to_wstring(i);
        if (i == 0) id = L"USBPRINT\\" + PrinterUtil::checksummedHwid(L"Maker0", L"Model 0");
        spooler::addDriver({wide(modelName(i)), spooler::kLocalEnvironment, id, L"", {}});
    }
    spooler::addDriver({L"Quillion Client Render XPS", spooler::kLocalEnvironment, L"", L"", {}});
}

double enumerationSeconds() {
    DWORD needed = 0, returned = 0;
    const Clock::time_point start = Clock::now();
    EnumPrinterDriversW(nullptr, nullptr, 1, nullptr, 0, &needed, &returned);
    std::vector<BYTE> block(needed);
    EnumPrinterDriversW(nullptr, nullptr, 1, block.data(), needed, &needed, &returned);
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double percentile(std::vector<double> values, double fraction) {
    std::sort(values.begin(), values.end());
    return values[static_cast<size_t>(fraction * static_cast<double>(values.size() - 1))];
}

struct Machine {
    std::string root;
    std::unique_ptr<VexorPrintingService> service;
    ~Machine() {
        service.reset();
        simhost::Host::get().reset();
        fs::remove_all(root);
    }
};

std::unique_ptr<Machine> arrange(const Shape& shape) {
    simhost::Host::get().reset();
    auto machine = std::make_unique<Machine>();
    std::string pattern = (fs::temp_directory_path() / "vexor-selection-bench-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make a temporary drive");
    machine->root = pattern;
    const fs::path drive(machine->root);
    fs::create_directories(drive / "ProgramData/Quillion/VexorAgent/logs");
    simhost::Host::get().mapDrive(L'C', machine->root);
    simhost::Host::get().setTimeScale(0.001);
    // The advanced mode: Windows clients may have a native driver.
    simhost::advapi32::setRegistryDword(HKEY_LOCAL_MACHINE, L"Software\\Policies\\Quillion\\Vexor\\vexor_admin",
                                        L"vexor.remote_printing_enabled", 2);
    stageCatalogue(drive, shape.catalogueEntries);
    installDrivers(shape.installedDrivers);
    machine->service = std::make_unique<VexorPrintingService>();
    machine->service->loadDriverCatalogue();
    return machine;
}

// Times every kind of request `rounds` times on one machine and prints a
// line per kind.
bool measure(const Shape& shape, int rounds) {
    std::unique_ptr<Machine> machine = arrange(shape);
    std::vector<double> enumerations;
    bool allChosen = true;
    for (const RequestKind& kind : kRequests) {
        Json::Value request;
        parseWithClassicReader(kind.text, request);
        std::vector<double> seconds;
        std::string from;
        for (int round = 0; round < rounds; ++round) {
            Json::Value response(Json::objectValue), detail(Json::objectValue);
            std::wstring comment;
            enumerations.push_back(enumerationSeconds());
            const Clock::time_point start = Clock::now();
            const std::wstring driver = machine->service->selectDriver(request, response, detail, comment);
            seconds.push_back(std::chrono::duration<double>(Clock::now() - start).count());
            allChosen = allChosen && !driver.empty();
            from = detail.get("from", "(none: step 3)").asString();
        }
        const double p50 = percentile(seconds, 0.5), p99 = percentile(seconds, 0.99);
        const double enumeration = percentile(enumerations, 0.5);
        std::printf("catalogue %6d  installed %4d  %-22s p50 %9.1f us  p99 %9.1f us  per_enum %7.1f  from %s\n",
                    shape.catalogueEntries, shape.installedDrivers, kind.name, p50 * 1e6, p99 * 1e6,
                    p50 / enumeration, from.c_str());
    }
    std::printf("catalogue %6d  installed %4d  one enumeration %.1f us (median)\n", shape.catalogueEntries,
                shape.installedDrivers, percentile(enumerations, 0.5) * 1e6);
    return allChosen;
}

}  // namespace

int main(int argc, char** argv) {
    const bool smoke = argc > 1 && std::string(argv[1]) == "--smoke";
    const std::vector<Shape> shapes =
        smoke ? std::vector<Shape>{{100, 10}}
              : std::vector<Shape>{{5000, 200}, {1250, 200}, {20000, 200}, {5000, 50}, {5000, 800}};
    const int rounds = smoke ? 5 : 200;
    bool ok = true;
    for (const Shape& shape : shapes) ok = measure(shape, rounds) && ok;
    if (!ok) std::printf("a request found no driver\n");
    return ok ? 0 : 1;
}
