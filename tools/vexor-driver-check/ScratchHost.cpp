#include "ScratchHost.h"

#include "foundation/PolicySettings.h"
#include "foundation/StaticLogger.h"
#include "foundation/TextConversion.h"
#include "simhost/core/host.h"
#include "simhost/hostfile/host_file.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>

namespace fs = std::filesystem;

namespace driver_check {

namespace {

constexpr const char* kInfDirectory = "C:\\Windows\\INF";
constexpr const char* kPolicyKey = "HKLM\\Software\\Policies\\Quillion\\Vexor\\vexor_admin";

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

Json::Value hostFileContent(const std::string& path) {
    try {
        return simhost::readHostFile(path);
    } catch (const simhost::HostFileError& e) {
        throw UsageError(e.what());
    }
}

// Appends to a list of the description. A key of another kind is left as
// it is, for the host file's own checks to refuse.
void appendTo(Json::Value& host, const char* key, const Json::Value& item) {
    Json::Value& list = host[key];
    if (list.isNull() || list.isArray()) list.append(item);
}

// Each drive the host file maps, and C:, becomes a folder of the base
// directory, whatever directory the file named.
void moveDrivesIntoBase(Json::Value& host) {
    Json::Value drives(Json::objectValue);
    drives["C"] = "drive-c";
    if (host["drives"].isObject())
        for (const std::string& letter : host["drives"].getMemberNames()) drives[letter] = "drive-" + lowered(letter);
    host["drives"] = drives;
}

bool isInfFile(const fs::directory_entry& entry) {
    return entry.is_regular_file() && lowered(entry.path().extension().string()) == ".inf";
}

void stageInfFolder(Json::Value& host, const std::string& folder) {
    if (!fs::is_directory(folder)) throw UsageError("--inf-dir " + folder + " is not a folder");
    Json::Value& copies = host["copyFiles"];
    if (!copies.isNull() && !copies.isObject()) return;
    size_t staged = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        if (!isInfFile(entry)) continue;
        copies[std::string(kInfDirectory) + "\\" + entry.path().filename().string()] =
            fs::absolute(entry.path()).string();
        ++staged;
    }
    if (staged == 0) throw UsageError("--inf-dir " + folder + " holds no .inf file");
}

// An installed driver of the options stands in for the host file's driver
// of the same name, so that it can give that driver a hardware id.
void addInstalledDriver(Json::Value& host, const InstalledDriver& driver) {
    Json::Value& drivers = host["drivers"];
    if (drivers.isArray()) {
        Json::Value kept(Json::arrayValue);
        for (const Json::Value& entry : drivers)
            if (lowered(entry.get("name", "").asString()) != lowered(driver.name)) kept.append(entry);
        drivers = kept;
    }
    Json::Value entry(Json::objectValue);
    entry["name"] = driver.name;
    if (!driver.hardwareId.empty()) entry["hardwareId"] = driver.hardwareId;
    appendTo(host, "drivers", entry);
}

void setPrintingMode(Json::Value& host, uint32_t mode) {
    Json::Value entry(Json::objectValue);
    entry["key"] = kPolicyKey;
    entry["name"] = wideToUtf8(kRemotePrintingEnabled);
    entry["type"] = "REG_DWORD";
    entry["value"] = mode;
    appendTo(host, "registry", entry);
}

std::string hostFolderOf(const CheckOptions& options, const std::string& folder) {
    return options.hostFile.empty() ? folder : fs::absolute(options.hostFile).parent_path().string();
}

std::string hostNameOf(const CheckOptions& options) {
    return options.hostFile.empty() ? "--inf-dir " + options.infDirectory : "the host file " + options.hostFile;
}

void makeLogDirectory() { fs::create_directories(simhost::Host::get().toNativePath(StaticLogger::logDirectory())); }

}  // namespace

TemporaryFolder::TemporaryFolder() {
    std::string pattern = (fs::temp_directory_path() / "vexor-driver-check-XXXXXX").string();
    if (!mkdtemp(pattern.data()))
        throw UsageError("cannot make a temporary folder in " + fs::temp_directory_path().string());
    path_ = pattern;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

Json::Value checkHostDescription(const CheckOptions& options) {
    Json::Value host =
        options.hostFile.empty() ? Json::Value(Json::objectValue) : hostFileContent(options.hostFile);
    // The check opens no socket.
    host.removeMember("listeners");
    moveDrivesIntoBase(host);
    appendTo(host, "directories", kInfDirectory);
    if (!options.infDirectory.empty()) stageInfFolder(host, options.infDirectory);
    for (const InstalledDriver& driver : options.installed) addInstalledDriver(host, driver);
    if (options.printingMode) setPrintingMode(host, *options.printingMode);
    return host;
}

void arrangeHost(const CheckOptions& options, const std::string& folder) {
    const Json::Value host = checkHostDescription(options);
    try {
        simhost::applyHostDescription(host, folder, hostFolderOf(options, folder));
        makeLogDirectory();
    } catch (const std::exception& e) {
        throw UsageError(hostNameOf(options) + ": " + e.what());
    }
}

}  // namespace driver_check
