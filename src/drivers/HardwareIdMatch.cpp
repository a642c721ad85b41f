// The service's driver catalogue, and the ladder that finds the driver for
// one hardware id: the ids the spooler stores with its installed drivers
// first, then the catalogue's ids of installed drivers, then those of staged
// drivers, which are installed on a hit. Each rung compares with the bus part
// first and without it second.
#include "drivers/DriverCatalogue.h"
#include "drivers/InstalledDrivers.h"
#include "foundation/StaticLogger.h"
#include "foundation/TextConversion.h"
#include "service/VexorPrintingService.h"

#include <iterator>

namespace {

using PrinterUtil::kHwidInstalledOnly;
using PrinterUtil::kHwidWithBus;

// One rung of the ladder. The first two search the ids the spooler stores
// with its drivers, the others the catalogue with hardwareId2Driver's flags;
// kHwidWithBus says in both whether the bus part takes part.
struct HwidStage {
    const char* announce;
    bool catalogue;
    unsigned flags;
    const char* installedLine;  // a staged driver's hit is installed first; null for installed drivers
    const char* hitLine;        // takes the id and the driver
    const char* to;
};

const HwidStage kHwidStages[] = {
    {"Matching {hwid with bus} to {installed driver}", false, kHwidWithBus, nullptr,
     "DRV_MATCH_DETAIL:Matched hardwareId:%ls to installed driverName:%ls", "hwid"},
    {"Matching {hwid without bus} to {installed driver}", false, 0, nullptr,
     "DRV_MATCH_DETAIL:Matched hardwareId:%ls to installed driverName:%ls minus the bus part (e.g. USB)", "hwid"},
    // The one stage whose `to` names the compatible id.
    {"Matching {compatible hwid with bus} to {installed driver}", true, kHwidWithBus | kHwidInstalledOnly, nullptr,
     "DRV_MATCH_DETAIL:Matched hardwareId:%ls to compatible hwid installed driverName:%ls", "compatHwid"},
    {"Matching {compatible hwid without bus} to {installed driver}", true, kHwidInstalledOnly, nullptr,
     "DRV_MATCH_DETAIL:Matched hardwareId:%ls to compatible hwid installed driverName:%ls minus the bus part (e.g. "
     "USB)",
     "hwid"},
    {"Matching {compatible hwid with bus} to {staged driver}", true, kHwidWithBus, "Installed printer driver:%ls",
     "DRV_MATCH_DETAIL:Matched hardwareId:%ls to compatible hwid staged driverName:%ls", "hwid"},
    {"Matching {compatible hwid without bus} to {staged driver}", true, 0, "Installed driver:%ls",
     "DRV_MATCH_DETAIL:Matched hardwareId:%ls to bussless compatible hwid staged driverName:%ls", "hwid"},
};

// Stages past these two search the catalogue, which the caller may forbid.
constexpr size_t kInstalledIdStages = 2;

}  // namespace

void VexorPrintingService::loadDriverCatalogue() {
    PrinterUtil::getDriverInfoDetail(driverInfoMap, driverHwIdMap, removeTrailingBracketsEnabled());
}

std::wstring VexorPrintingService::_matchDriverByHwid(const std::wstring& hwid, bool useCompatibleIds,
                                                      Json::Value& detail) {
    VX_LOG(kLogNormal, kNoLastError, 2, "Checking for driver for hardwareId:%ls", hwid.c_str());
    for (size_t index = 0; index < std::size(kHwidStages); ++index) {
        if (index == kInstalledIdStages && !useCompatibleIds) return L"";
        const HwidStage& stage = kHwidStages[index];
        const bool withBus = (stage.flags & kHwidWithBus) != 0;
        VX_LOG(kLogNormal, kNoLastError, 2, "%s", stage.announce);
        const std::wstring name = stage.catalogue
                                      ? PrinterUtil::hardwareId2Driver(hwid, driverHwIdMap, stage.flags)
                                      : PrinterUtil::hardwareIdToInstalledPrinterDriverName(hwid, withBus);
        if (name.empty()) continue;
        if (stage.installedLine) {
            VX_LOG(kLogNormal, kNoLastError, 2, "Attempting to install driver:%ls", name.c_str());
            if (!PrinterUtil::installDriverByName(name, driverInfoMap)) {
                VX_LOG(kLogError, kNoLastError, 4, "Failed to install driver:%ls", name.c_str());
                continue;
            }
            VX_LOG(kLogNormal, kNoLastError, 4, stage.installedLine, name.c_str());
        }
        VX_LOG(kLogNormal, kNoLastError, 4, stage.hitLine, hwid.c_str(), name.c_str());
        detail["preinstalled"] = stage.installedLine == nullptr;
        detail["to"] = stage.to;
        detail["matchedHwid"] = wideToUtf8(hwid);
        detail["matchedBus"] = withBus;
        return name;
    }
    VX_LOG(kLogError, kNoLastError, 3, "No driver found for hardwareId:%ls", hwid.c_str());
    return L"";
}
