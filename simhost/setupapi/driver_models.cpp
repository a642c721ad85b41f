// The drivers one INF file offers: each [Manufacturer] line names a models
// section, decorated for the platforms and versions of Windows it serves;
// the host picks the decoration that best fits an amd64 machine running
// Windows 10.0, and each line of that section is a driver.
#include "simhost/core/text.h"
#include "simhost/setupapi/driver_catalog.h"
#include "simhost/setupapi/setupapi_state.h"

#include <cwchar>
#include <optional>

namespace simhost {
namespace setupapi {
namespace {

constexpr unsigned long kHostMajorVersion = 10;
constexpr unsigned long kHostMinorVersion = 0;

// What a TargetOSVersion decoration says that the host looks at:
// nt[Architecture][.OSMajorVersion[.OSMinorVersion[...]]]. Product type,
// suite mask and build number are not compared.
struct Decoration {
    bool forAnyArchitecture = false;
    unsigned long major = 0;
    unsigned long minor = 0;
};

// The decoration when it serves this host, else nothing.
std::optional<Decoration> servingDecoration(const std::wstring& text) {
    std::vector<std::wstring> parts = splitText(text, L'.', EmptyPieces::Keep);
    if (!sameIgnoringCase(parts[0].substr(0, 2), L"NT")) return std::nullopt;
    std::wstring architecture = parts[0].substr(2);
    if (!architecture.empty() && !sameIgnoringCase(architecture, L"amd64")) return std::nullopt;
    Decoration decoration{architecture.empty(), 0, 0};
    if (parts.size() > 1) decoration.major = std::wcstoul(parts[1].c_str(), nullptr, 10);
    if (parts.size() > 2) decoration.minor = std::wcstoul(parts[2].c_str(), nullptr, 10);
    bool tooNew = decoration.major > kHostMajorVersion ||
                  (decoration.major == kHostMajorVersion && decoration.minor > kHostMinorVersion);
    if (tooNew) return std::nullopt;
    return decoration;
}

// The closer fit: the later version, then the one for this architecture.
bool fitsBetter(const Decoration& a, const Decoration& b) {
    if (a.major != b.major) return a.major > b.major;
    if (a.minor != b.minor) return a.minor > b.minor;
    return !a.forAnyArchitecture && b.forAnyArchitecture;
}

// The models section a manufacturer line names for this host: the plain name
// when the line gives no decoration, else the name with the best serving
// decoration; nothing when none serves.
std::optional<std::wstring> modelsSectionFor(const InfLine& line) {
    const std::wstring& base = line.fields[0];
    if (line.fields.size() < 2) return base;
    std::optional<Decoration> best;
    std::wstring bestText;
    for (size_t i = 1; i < line.fields.size(); ++i) {
        std::optional<Decoration> candidate = servingDecoration(line.fields[i]);
        if (candidate && (!best || fitsBetter(*candidate, *best))) {
            best = candidate;
            bestText = line.fields[i];
        }
    }
    if (!best) return std::nullopt;
    return base + L"." + bestText;
}

// A FILETIME of midnight UTC of a civil date (days from the civil
// calendar, counted from 1 January 1601).
FILETIME dateToFileTime(long year, unsigned month, unsigned day) {
    year -= month <= 2;
    long era = (year >= 0 ? year : year - 399) / 400;
    long yearOfEra = year - era * 400;
    long dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    long dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    long long daysSince1970 = era * 146097LL + dayOfEra - 719468;
    unsigned long long ticks = static_cast<unsigned long long>(daysSince1970 + 134774) * 864000000000ULL;
    return FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

// DriverVer = mm/dd/yyyy[,w.x.y.z]: the date and the version's four words.
void readDriverVer(const InfFile& file, DriverInfo& driver) {
    long index = file.findSection(L"Version");
    if (index < 0) return;
    for (const InfLine& line : file.sections[size_t(index)].lines) {
        if (!line.hasKey || !sameIgnoringCase(line.key, L"DriverVer") || line.fields.empty()) continue;
        unsigned month = 0, day = 0;
        long year = 0;
        if (std::swscanf(line.fields[0].c_str(), L"%u/%u/%ld", &month, &day, &year) == 3)
            driver.driverDate = dateToFileTime(year, month, day);
        unsigned words[4] = {0, 0, 0, 0};
        if (line.fields.size() > 1)
            std::swscanf(line.fields[1].c_str(), L"%u.%u.%u.%u", &words[0], &words[1], &words[2], &words[3]);
        for (unsigned word : words) driver.driverVersion = (driver.driverVersion << 16) | (word & 0xFFFF);
        return;
    }
}

// A model line: %ModelName% = InstallSection, HardwareId[, CompatibleId...].
void addModel(const InfLine& line, const DriverInfo& common, std::vector<DriverInfo>& drivers) {
    if (!line.hasKey || line.fields.empty() || line.fields[0].empty()) return;
    DriverInfo driver = common;
    driver.description = line.key;
    driver.sectionName = line.fields[0];
    driver.ids.push_back(line.fields.size() > 1 ? line.fields[1] : L"");
    for (size_t i = 2; i < line.fields.size(); ++i)
        if (!line.fields[i].empty()) driver.ids.push_back(line.fields[i]);
    drivers.push_back(std::move(driver));
}

}  // namespace

std::vector<DriverInfo> infDrivers(const InfFile& file, const std::wstring& windowsPath, const FILETIME& infDate) {
    DriverInfo common;
    common.providerName = file.value(L"Version", L"Provider");
    common.infFileName = windowsPath;
    common.infDate = infDate;
    readDriverVer(file, common);
    std::vector<DriverInfo> drivers;
    long manufacturers = file.findSection(L"Manufacturer");
    if (manufacturers < 0) return drivers;
    for (const InfLine& line : file.sections[size_t(manufacturers)].lines) {
        if (line.fields.empty() || line.fields[0].empty()) continue;
        std::optional<std::wstring> models = modelsSectionFor(line);
        long section = models ? file.findSection(*models) : -1;
        if (section < 0) continue;
        common.mfgName = line.hasKey ? line.key : line.fields[0];
        for (const InfLine& model : file.sections[size_t(section)].lines) addModel(model, common, drivers);
    }
    return drivers;
}

}  // namespace setupapi
}  // namespace simhost
