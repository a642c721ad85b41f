// The driver catalogue over one INF file: the input is the file's bytes,
// staged as the only INF file of a new simulated machine. The class driver
// list and the INF reader of the host give the catalogue its records and
// ids, and every id it keeps is looked up again as driver selection does.
#include "drivers/DriverCatalogue.h"
#include "simhost/core/host.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>
#include <string>

namespace {

namespace fs = std::filesystem;

constexpr unsigned kLookUpFlags[] = {0, PrinterUtil::kHwidWithBus, PrinterUtil::kHwidInstalledOnly,
                                     PrinterUtil::kHwidAllIds};

// The folder of this machine that stands for drive C:, made once for the
// process and removed when it ends.
class Drive {
public:
    Drive() {
        std::string pattern = (fs::temp_directory_path() / "vexor-fuzz-drive-XXXXXX").string();
        if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make a temporary drive");
        root_ = pattern;
        fs::create_directories(root_ / "Windows" / "INF");
    }
    ~Drive() {
        std::error_code ignored;
        fs::remove_all(root_, ignored);
    }
    const fs::path& root() const { return root_; }

private:
    fs::path root_;
};

// A new machine for every input: the host keeps parses of INF files by
// their time of change and size, which two inputs written within the same
// clock tick may share.
void stageInf(const uint8_t* data, size_t size) {
    static const Drive drive;
    simhost::Host::get().reset();
    simhost::Host::get().mapDrive(L'C', drive.root().string());
    std::ofstream(drive.root() / "Windows" / "INF" / "fuzz.inf", std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
}

// Each distinct id once: records that share an install section lend each
// other their ids, and a look-up walks every record of its key.
void lookUpEveryId(const DriverInfoMap& infoMap, const DriverHwIdMap& hwIdMap) {
    std::set<std::wstring> ids;
    for (const auto& entry : infoMap) ids.insert(entry.second->hardwareIds.begin(), entry.second->hardwareIds.end());
    for (const std::wstring& id : ids)
        for (unsigned flags : kLookUpFlags) PrinterUtil::hardwareId2Driver(id, hwIdMap, flags);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    stageInf(data, size);
    DriverInfoMap infoMap;
    DriverHwIdMap hwIdMap;
    PrinterUtil::getDriverInfoDetail(infoMap, hwIdMap, true);
    lookUpEveryId(infoMap, hwIdMap);
    for (auto& entry : infoMap) delete entry.second;
    return 0;
}
