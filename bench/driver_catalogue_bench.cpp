// Cost of building the driver catalogue for a driver store of the size real
// hosts have: at scale 1, 300 INF files and about 5,000 driver entries, one
// of them a UTF-16 file of 2,736 models in 76 manufacturer sections with two
// or three ids per model; scales 2 and 4 repeat the store two and four times.
//
// Each iteration starts from a host whose cache of parsed INF files is empty
// (as after a reboot, before Windows has precompiled anything), and the same
// iteration times one plain parse of the same files (SetupOpenInfFileW and
// SetupCloseInfFile of each file, also from an empty cache), so that
// `build_over_parse` says what the catalogue costs beyond reading the files.
#include "drivers/DriverCatalogue.h"
#include "simhost/core/host.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

// The store of one scale. `--smoke` shrinks it so that the suite's run of
// this program stays short; the figures come from the full store.
struct StoreShape {
    int smallInfs = 299;
    int largeManufacturers = 76;
    int largeModelsPerManufacturer = 36;
};
StoreShape shape;

std::string toUtf16LeWithMark(const std::string& ascii) {
    std::string bytes = "\xFF\xFE";
    for (char c : ascii) {
        bytes += c;
        bytes += '\0';
    }
    return bytes;
}

// A model's ids as printer makers write them: the bus form, the bare form,
// and for every third model a parallel-port form.
std::string modelIds(const std::string& id, int model) {
    std::string ids = "USBPRINT\\" + id + "," + id;
    if (model % 3 == 0) ids += ",LPTENUM\\" + id;
    return ids;
}

// The UTF-16 file of one vendor's whole range: 76 manufacturer lines with
// their amd64 decoration, 36 models each, install sections shared by
// several models, names through [Strings].
std::string largeInf(int copy) {
    std::string text = "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=Printer\r\n"
                       "ClassGuid={4D36E979-E325-11CE-BFC1-08002BE10318}\r\nProvider=%Vendor%\r\n\r\n"
                       "[Manufacturer]\r\n";
    for (int m = 0; m < shape.largeManufacturers; ++m)
        text += "%Mfr" + std::to_string(m) + "%=Mfr" + std::to_string(m) + ",NTamd64\r\n";
    for (int m = 0; m < shape.largeManufacturers; ++m) {
        text += "\r\n[Mfr" + std::to_string(m) + ".NTamd64]\r\n";
        for (int k = 0; k < shape.largeModelsPerManufacturer; ++k) {
            const std::string id = "Brand" + std::to_string(copy) + "M" + std::to_string(m) + "K" + std::to_string(k) +
                                   "C" + std::to_string((m * 37 + k * 11) % 9973);
            text += "\"Brand" + std::to_string(copy) + " Line " + std::to_string(m) + " Model " + std::to_string(k) +
                    (k % 4 == 0 ? " (PCL 6)" : "") + "\" = INSTALL_" + std::to_string((m * shape.largeModelsPerManufacturer + k) % 50) +
                    "," + modelIds(id, k) + "\r\n";
        }
    }
    text += "\r\n[Strings]\r\nVendor=\"Brand" + std::to_string(copy) + "\"\r\n";
    for (int m = 0; m < shape.largeManufacturers; ++m)
        text += "Mfr" + std::to_string(m) + "=\"Brand" + std::to_string(copy) + " Line " + std::to_string(m) + "\"\r\n";
    return toUtf16LeWithMark(text);
}

// One of the ANSI files of the other makers: 4 to 11 models under one or two
// manufacturers, decorated and undecorated models sections in turn.
std::string smallInf(int copy, int index) {
    const std::string maker = "Maker" + std::to_string(copy) + "x" + std::to_string(index);
    const bool decorated = index % 2 == 0;
    const int manufacturers = index % 5 == 0 ? 2 : 1;
    const int models = 4 + index % 8;
    std::string text = "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=Printer\r\nProvider=%Maker%\r\n\r\n"
                       "[Manufacturer]\r\n";
    for (int m = 0; m < manufacturers; ++m)
        text += "%Maker%=Models" + std::to_string(m) + (decorated ? ",NTamd64" : "") + "\r\n";
    for (int m = 0; m < manufacturers; ++m) {
        text += "\r\n[Models" + std::to_string(m) + (decorated ? ".NTamd64" : "") + "]\r\n";
        for (int k = m; k < models; k += manufacturers)
            text += "\"" + maker + " Model " + std::to_string(k) + "\" = Install" + std::to_string(k % 3) + "," +
                    modelIds(maker + "M" + std::to_string(k), k) + "\r\n";
    }
    return text + "\r\n[Strings]\r\nMaker=\"" + maker + "\"\r\n";
}

void writeFile(const fs::path& path, const std::string& bytes) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

// A drive C: of this machine with `scale` copies of the store, half of the
// small files published in the INF directory, the rest and the large files
// in packages of the driver store. Returns the Windows paths of the files.
struct Store {
    std::string root;
    std::vector<std::wstring> infPaths;
};

Store makeStore(int scale) {
    std::string pattern = (fs::temp_directory_path() / "vexor-catalogue-bench-XXXXXX").string();
    Store store;
    if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make a temporary drive");
    store.root = pattern;
    const fs::path drive(store.root);
    const fs::path repository = drive / "Windows/System32/DriverStore/FileRepository";
    const std::wstring repositoryPath = L"C:\\Windows\\System32\\DriverStore\\FileRepository\\";
    for (int copy = 0; copy < scale; ++copy) {
        const std::string package = "prnbrand" + std::to_string(copy) + ".inf_amd64_5c1e";
        writeFile(repository / package / ("prnbrand" + std::to_string(copy) + ".inf"), largeInf(copy));
        store.infPaths.push_back(repositoryPath + std::wstring(package.begin(), package.end()) + L"\\prnbrand" +
                                 std::to_wstring(copy) + L".inf");
        for (int i = 0; i < shape.smallInfs; ++i) {
            const std::string name = "oem" + std::to_string(copy * 1000 + i) + ".inf";
            const std::wstring wideName(name.begin(), name.end());
            if (i % 2 == 0) {
                writeFile(drive / "Windows/INF" / name, smallInf(copy, i));
                store.infPaths.push_back(L"C:\\Windows\\INF\\" + wideName);
            } else {
                const std::string package = name + "_amd64_" + std::to_string(1000 + i);
                writeFile(repository / package / name, smallInf(copy, i));
                store.infPaths.push_back(repositoryPath + std::wstring(package.begin(), package.end()) + L"\\" + wideName);
            }
        }
    }
    return store;
}

std::map<int, Store>& generatedStores() {
    static std::map<int, Store> stores;
    return stores;
}

const Store& storeOfScale(int scale) {
    auto& stores = generatedStores();
    auto it = stores.find(scale);
    if (it == stores.end()) it = stores.emplace(scale, makeStore(scale)).first;
    return it->second;
}

// A host as after a reboot: nothing parsed yet, drive C: the store.
void freshHost(const Store& store) {
    simhost::Host::get().reset();
    simhost::Host::get().mapDrive(L'C', store.root);
}

double plainParseSeconds(const Store& store) {
    const Clock::time_point start = Clock::now();
    for (const std::wstring& path : store.infPaths) {
        HINF inf = SetupOpenInfFileW(path.c_str(), nullptr, INF_STYLE_WIN4, nullptr);
        if (inf != INVALID_HANDLE_VALUE) SetupCloseInfFile(inf);
    }
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void clear(DriverInfoMap& infoMap, DriverHwIdMap& hwIdMap) {
    for (auto& entry : infoMap) delete entry.second;
    infoMap.clear();
    hwIdMap.clear();
}

void BM_CatalogueBuild(benchmark::State& state) {
    const Store& store = storeOfScale(static_cast<int>(state.range(0)));
    DriverInfoMap infoMap;
    DriverHwIdMap hwIdMap;
    double buildSeconds = 0, parseSeconds = 0;
    size_t entries = 0, ids = 0;
    for (auto _ : state) {
        state.PauseTiming();
        clear(infoMap, hwIdMap);
        freshHost(store);
        parseSeconds += plainParseSeconds(store);
        freshHost(store);
        state.ResumeTiming();
        const Clock::time_point start = Clock::now();
        PrinterUtil::getDriverInfoDetail(infoMap, hwIdMap, true);
        buildSeconds += std::chrono::duration<double>(Clock::now() - start).count();
        entries = infoMap.size();
        ids = hwIdMap.size();
    }
    const double iterations = static_cast<double>(state.iterations());
    state.counters["inf_files"] = static_cast<double>(store.infPaths.size());
    state.counters["catalogue_keys"] = static_cast<double>(entries);
    state.counters["id_keys"] = static_cast<double>(ids);
    state.counters["parse_ms"] = parseSeconds * 1e3 / iterations;
    state.counters["build_over_parse"] = buildSeconds / parseSeconds;
    state.counters["us_per_inf"] = buildSeconds * 1e6 / (iterations * static_cast<double>(store.infPaths.size()));
    clear(infoMap, hwIdMap);
    simhost::Host::get().reset();
}

BENCHMARK(BM_CatalogueBuild)->Arg(1)->Arg(2)->Arg(4)->Unit(benchmark::kMillisecond)->Iterations(3);

// The same build when Windows has every file precompiled already (the
// cache of parses is warm), as on any start of the service after the first.
void BM_CatalogueBuildWarm(benchmark::State& state) {
    const Store& store = storeOfScale(static_cast<int>(state.range(0)));
    freshHost(store);
    plainParseSeconds(store);
    DriverInfoMap infoMap;
    DriverHwIdMap hwIdMap;
    for (auto _ : state) {
        state.PauseTiming();
        clear(infoMap, hwIdMap);
        state.ResumeTiming();
        PrinterUtil::getDriverInfoDetail(infoMap, hwIdMap, true);
    }
    clear(infoMap, hwIdMap);
    simhost::Host::get().reset();
}

BENCHMARK(BM_CatalogueBuildWarm)->Arg(1)->Arg(2)->Arg(4)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::string(argv[1]) == "--smoke") {
        shape = StoreShape{20, 76, 2};
        argv[1] = argv[0];
        --argc;
        ++argv;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    // The generated stores are this run's only; leave nothing behind.
    for (const auto& entry : generatedStores()) fs::remove_all(entry.second.root);
    return 0;
}
