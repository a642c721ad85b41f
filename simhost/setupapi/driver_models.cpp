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

// A FILETIME of midnight UTC of a civil date of 1601 or later (days from
// the civil calendar, counted from 1 January 1601).
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

// A run of `minDigits` to `maxDigits` decimal digits at `text[at]`, whose end
// `at` is moved to; nothing when the run is shorter or longer.
std::optional<unsigned long> readDigits(const std::wstring& text, size_t& at, size_t minDigits, size_t maxDigits) {
    size_t end = at;
    while (end < text.size() && text[end] >= L'0' && text[end] <= L'9') ++end;
    if (end - at < minDigits || end - at > maxDigits) return std::nullopt;
    unsigned long value = std::wcstoul(text.substr(at, end - at).c_str(), nullptr, 10);
    at = end;
    return value;
}

bool isLeapYear(unsigned long year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

unsigned daysInMonth(unsigned long year, unsigned long month) {
    static const unsigned kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && isLeapYear(year) ? 29 : kDays[month - 1];
}

// mm/dd/yyyy (or with hyphens), a day of the calendar from 1601 on; any
// other text is no date, which Setup treats as 00/00/0000 (a zero FILETIME).
FILETIME readDriverDate(const std::wstring& text) {
    size_t at = 0;
    std::optional<unsigned long> month = readDigits(text, at, 1, 2);
    if (!month || at >= text.size() || (text[at] != L'/' && text[at] != L'-')) return FILETIME{};
    const wchar_t separator = text[at++];
    std::optional<unsigned long> day = readDigits(text, at, 1, 2);
    if (!day || at >= text.size() || text[at++] != separator) return FILETIME{};
    std::optional<unsigned long> year = readDigits(text, at, 4, 4);
    if (!year || at != text.size() || *year < 1601 || *month < 1 || *month > 12) return FILETIME{};
    if (*day < 1 || *day > daysInMonth(*year, *month)) return FILETIME{};
    return dateToFileTime(static_cast<long>(*year), static_cast<unsigned>(*month), static_cast<unsigned>(*day));
}

// w[.x[.y[.z]]], each word 0 to 65535, missing words 0; any other text is no
// version (0).
DWORDLONG readDriverVersion(const std::wstring& text) {
    DWORDLONG version = 0;
    size_t at = 0;
    for (int word = 0; word < 4; ++word) {
        std::optional<unsigned long> value = at < text.size() ? readDigits(text, at, 1, 5) : 0UL;
        if (!value || *value > 0xFFFF) return 0;
        version = (version << 16) | *value;
        if (at < text.size() && (text[at] != L'.' || ++at == text.size())) return 0;
    }
    return at == text.size() ? version : 0;
}

// DriverVer = mm/dd/yyyy[,w.x.y.z]: the date and the version's four words.
void readDriverVer(const InfFile& file, DriverInfo& driver) {
    long index = file.findSection(L"Version");
    if (index < 0) return;
    for (const InfLine& line : file.sections[size_t(index)].lines) {
        if (!line.hasKey || !sameIgnoringCase(line.key, L"DriverVer") || line.fields.empty()) continue;
        driver.driverDate = readDriverDate(line.fields[0]);
        if (line.fields.size() > 1) driver.driverVersion = readDriverVersion(line.fields[1]);
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
