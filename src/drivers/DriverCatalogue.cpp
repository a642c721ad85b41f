// Building the driver catalogue from the class driver list and the INF files
// behind it, and looking hardware ids up in it.
#include "drivers/DriverCatalogue.h"

#include "drivers/InstalledDrivers.h"
#include "foundation/StaticLogger.h"
#include "foundation/TextConversion.h"

#include <algorithm>
#include <cstdlib>
#include <cwctype>
#include <regex>
#include <vector>

namespace {

constexpr DWORD kInfFieldCapacity = 512;
constexpr const wchar_t* kPhantomDeviceName = L"Printer";
constexpr const wchar_t* kPhantomDeviceDescription = L"Quillion Client Render XPS";

// The C locale's case mapping, unit by unit.
wchar_t lowerUnit(wchar_t c) { return static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c))); }
wchar_t upperUnit(wchar_t c) { return static_cast<wchar_t>(std::towupper(static_cast<wint_t>(c))); }

// The models section a Manufacturer line names: its first field, a dot and
// its first decoration ("Acme.NTamd64"; "Acme." without one). Empty when the
// line has no field.
std::wstring modelsSectionOf(INFCONTEXT& line) {
    wchar_t fields[kInfFieldCapacity] = {};
    DWORD required = 0;
    if (!SetupGetMultiSzFieldW(&line, 1, fields, kInfFieldCapacity, &required) || !fields[0]) return L"";
    fields[std::wcslen(fields)] = L'.';
    return fields;
}

std::wstring stringField(INFCONTEXT& line, DWORD field, bool& present) {
    wchar_t text[kInfFieldCapacity];  // written with its NUL whenever the call succeeds
    DWORD required = 0;
    present = SetupGetStringFieldW(&line, field, text, kInfFieldCapacity, &required) != FALSE;
    return present ? text : L"";
}

// The hardware ids of one model line, fields 2 onward: field 2 at the front
// of the record's ids, later fields at the back. True if field 2 was there.
bool takeIds(INFCONTEXT& line, DriverInfoRecord* record, DriverHwIdMap* driverHwIdMap) {
    bool present = true;
    DWORD field = 2;
    for (;; ++field) {
        const std::wstring id = trimmed(stringField(line, field, present));
        if (!present) break;
        if (id.empty()) continue;
        if (field == 2)
            record->hardwareIds.insert(record->hardwareIds.begin(), id);
        else
            record->hardwareIds.push_back(id);
        if (driverHwIdMap) driverHwIdMap->insert({PrinterUtil::hwidKey(id), record});
    }
    return field > 2;
}

}  // namespace

namespace PrinterUtil {

std::wstring stripEnumerator(const std::wstring& hwid) {
    const size_t slash = hwid.rfind(L'\\');
    return slash == std::wstring::npos ? hwid : hwid.substr(slash + 1);
}

std::wstring hwidKey(const std::wstring& hwid) {
    std::wstring key = stripEnumerator(hwid);
    for (wchar_t& c : key) c = lowerUnit(c);
    return key;
}

std::wstring normaliseDriverName(const std::wstring& name) {
    std::wstring key;
    for (wchar_t c : trimmed(name))
        if (c != L' ') key.push_back(lowerUnit(c));
    return key;
}

bool hwidsEqual(const std::wstring& a, const std::wstring& b, bool withBus) {
    const std::wstring left = withBus ? a : stripEnumerator(a);
    const std::wstring right = withBus ? b : stripEnumerator(b);
    if (left.size() != right.size()) return false;
    for (size_t i = 0; i < left.size(); ++i)
        if (upperUnit(left[i]) != upperUnit(right[i])) return false;
    return true;
}

void getDriverInfoHwIdsDetail(DriverInfoRecord* record, DriverHwIdMap* driverHwIdMap) {
    HINF inf = SetupOpenInfFileW(record->infFile.c_str(), nullptr, INF_STYLE_WIN4, nullptr);
    if (inf == INVALID_HANDLE_VALUE) {
        VX_LOG(kLogError, kWithLastError, 4, "SetupOpenInfFile on:%ls", record->infFile.c_str());
        return;
    }
    bool found = false;
    INFCONTEXT manufacturer;
    std::wstring models;
    if (SetupFindFirstLineW(inf, L"Manufacturer", nullptr, &manufacturer)) models = modelsSectionOf(manufacturer);
    while (!models.empty()) {
        std::vector<std::wstring> seen;
        INFCONTEXT line;
        if (!SetupFindFirstLineW(inf, models.c_str(), nullptr, &line)) {
            VX_LOG(kLogError, kNoLastError, 4, "Failed to find models section in INF file:%ls", record->infFile.c_str());
            break;
        }
        // Lines of the driver's display name, then lines of other names that
        // share one of its install sections.
        do {
            bool present = false;
            if (_wcsicmp(stringField(line, 0, present).c_str(), record->driverName.c_str()) != 0) continue;
            const std::wstring section = stringField(line, 1, present);
            if (std::find(seen.begin(), seen.end(), section) == seen.end()) seen.push_back(section);
            found = takeIds(line, record, driverHwIdMap) || found;
        } while (SetupFindNextLine(&line, &line));
        if (!SetupFindFirstLineW(inf, models.c_str(), nullptr, &line)) {
            VX_LOG(kLogError, kNoLastError, 4, "Failed to find models section in INF file:%ls", record->infFile.c_str());
            break;
        }
        if (!seen.empty()) {
            do {
                bool present = false;
                if (_wcsicmp(stringField(line, 0, present).c_str(), record->driverName.c_str()) == 0) continue;
                const std::wstring section = stringField(line, 1, present);
                if (std::find(seen.begin(), seen.end(), section) == seen.end()) continue;
                found = takeIds(line, record, driverHwIdMap) || found;
            } while (SetupFindNextLine(&line, &line));
        }
        models = SetupFindNextLine(&manufacturer, &manufacturer) ? modelsSectionOf(manufacturer) : L"";
    }
    SetupCloseInfFile(inf);
    if (!found) VX_LOG(kLogError, kNoLastError, 3, "Failed to find driver INF info:%ls", record->driverName.c_str());
}

void getDriverInfoDetail(DriverInfoMap& driverInfoMap, DriverHwIdMap& driverHwIdMap, bool removeBrackets) {
    VX_LOG(kLogNormal, kNoLastError, 2, "getDriverInfoDetail()");
    HDEVINFO set = SetupDiCreateDeviceInfoList(&GUID_DEVCLASS_PRINTER, nullptr);
    if (set == INVALID_HANDLE_VALUE) {
        VX_LOG(kLogError, kWithLastError, 4, "SetupDiCreateDeviceInfoList failed");
        return;
    }
    // A phantom device of the printer class, only so that a class driver
    // list has a device to be built for.
    SP_DEVINFO_DATA device = {};
    device.cbSize = sizeof device;
    if (!SetupDiCreateDeviceInfoW(set, kPhantomDeviceName, &GUID_DEVCLASS_PRINTER, kPhantomDeviceDescription, nullptr,
                                  DICD_GENERATE_ID, &device)) {
        VX_LOG(kLogError, kWithLastError, 4, "SetupDiCreateDeviceInfo failed");
        SetupDiDestroyDeviceInfoList(set);
        return;
    }
    SP_DEVINSTALL_PARAMS_W params = {};
    params.cbSize = sizeof params;
    params.Flags = DI_QUIETINSTALL | DI_NOBROWSE;
    params.FlagsEx = DI_FLAGSEX_ALWAYSWRITEIDS;
    if (!SetupDiSetDeviceInstallParamsW(set, &device, &params))
        VX_LOG(kLogError, kWithLastError, 4, "SetupDiSetDeviceInstallParams failed");
    if (!SetupDiBuildDriverInfoList(set, &device, SPDIT_CLASSDRIVER)) {
        VX_LOG(kLogError, kWithLastError, 4, "SetupDiBuildDriverInfoList failed");
        SetupDiDestroyDeviceInfoList(set);
        return;
    }
    // Brackets at the very end of a normalised name, with something inside.
    const std::wregex trailingBrackets(L"\\(([^)]+)\\)$", std::regex::ECMAScript);
    auto newRecord = [&](const SP_DRVINFO_DETAIL_DATA_W& detail) {
        auto* record = new DriverInfoRecord{detail.InfFileName, detail.SectionName, detail.DrvDescription, L"", {}};
        getDriverInfoHwIdsDetail(record, &driverHwIdMap);
        return record;
    };
    auto addEntry = [&](const SP_DRVINFO_DETAIL_DATA_W& detail) {
        const std::wstring key = normaliseDriverName(detail.DrvDescription);
        driverInfoMap.insert({key, newRecord(detail)});
        if (!removeBrackets) return;
        const std::wstring alt = normaliseDriverName(std::regex_replace(key, trailingBrackets, L""));
        if (alt == key) return;
        VX_LOG(kLogNormal, kNoLastError, 2, "Removing trailing brackets from:%lsto make alt driver name:%ls",
               key.c_str(), alt.c_str());
        if (driverInfoMap.find(alt) == driverInfoMap.end())
            driverInfoMap.insert({alt, newRecord(detail)});
        else
            VX_LOG(kLogNormal, kNoLastError, 2, "There's already an unbracketed driver name so we will not use this.");
    };
    DWORD size = 2 * sizeof(SP_DRVINFO_DETAIL_DATA_W);
    auto* detail = static_cast<SP_DRVINFO_DETAIL_DATA_W*>(std::malloc(size));
    SP_DRVINFO_DATA_W driverInfo = {};
    driverInfo.cbSize = sizeof driverInfo;
    DWORD index = 0;
    while (detail && SetupDiEnumDriverInfoW(set, &device, SPDIT_CLASSDRIVER, index, &driverInfo)) {
        detail->cbSize = sizeof(SP_DRVINFO_DETAIL_DATA_W);
        DWORD required = 0;
        if (SetupDiGetDriverInfoDetailW(set, &device, &driverInfo, detail, size, &required)) {
            addEntry(*detail);
        } else if (GetLastError() == ERROR_INSUFFICIENT_BUFFER) {
            // The same index again, with a buffer of the size asked for.
            VX_LOG(kLogNormal, kNoLastError, 2, "Upping size from:%u to:%u", static_cast<unsigned>(size),
                   static_cast<unsigned>(required));
            std::free(detail);
            size = required;
            detail = static_cast<SP_DRVINFO_DETAIL_DATA_W*>(std::malloc(size));
            continue;
        } else {
            VX_LOG(kLogError, kWithLastError, 4, "SetupDiGetDriverInfoDetail ");
        }
        ++index;
    }
    if (detail)
        VX_LOG(kLogNormal, kNoLastError, 2, "getDriverInfoDetail loaded %u driver names", static_cast<unsigned>(index));
    else
        VX_LOG(kLogError, kWithLastError, 5, "psDriverInfoDetail");
    std::free(detail);
    if (!SetupDiDestroyDriverInfoList(set, &device, SPDIT_CLASSDRIVER))
        VX_LOG(kLogError, kWithLastError, 4, "SetupDiDestroyDriverInfoList failed");
    SetupDiDestroyDeviceInfoList(set);
    VX_LOG(kLogNormal, kNoLastError, 2, "done getDriverInfoDetail()");
}

std::wstring hardwareId2Driver(const std::wstring& hwid, const DriverHwIdMap& driverHwIdMap, unsigned flags) {
    std::wstring result;
    const auto range = driverHwIdMap.equal_range(hwidKey(hwid));
    for (auto it = range.first; it != range.second; ++it) {
        const DriverInfoRecord* record = it->second;
        if (!record) {
            VX_LOG(kLogNormal, kNoLastError, 2, "Failed to find any driver info for:%ls", hwid.c_str());
            return result;
        }
        const std::wstring& name = record->driverName;
        const bool installed = printerDriverInstalled(name);
        for (size_t i = 0; i < record->hardwareIds.size(); ++i) {
            if (!hwidsEqual(record->hardwareIds[i], hwid, flags & kHwidWithBus)) continue;
            if ((flags & kHwidInstalledOnly) && !installed) continue;
            if (installed) {
                VX_LOG(kLogNormal, kNoLastError, 3, "Installed driver:%ls found for:%ls", name.c_str(), hwid.c_str());
                result = name;
            } else if (result.empty()) {
                VX_LOG(kLogNormal, kNoLastError, 3, "Driver:%ls found for:%ls", name.c_str(), hwid.c_str());
                result = name;
            } else {
                VX_LOG(kLogNormal, kNoLastError, 3, "Prefering driver:%ls over:%ls", result.c_str(), name.c_str());
            }
            // The record's first id is its direct id.
            if (i == 0) {
                VX_LOG(kLogNormal, kNoLastError, 3, "Direct match driver:%ls found for:%ls", name.c_str(), hwid.c_str());
                return name;
            }
            if (!(flags & kHwidAllIds)) break;
        }
    }
    if (result.empty())
        VX_LOG(kLogNormal, kNoLastError, 2, "hardwareId2Driver no match for:%ls", hwid.c_str());
    else
        VX_LOG(kLogNormal, kNoLastError, 3, "hardwareId2Driver returning Driver:%ls for:%ls", result.c_str(), hwid.c_str());
    return result;
}

}  // namespace PrinterUtil
