#include "simhost/hostfile/host_sections.h"

#include "simhost/core/host.h"
#include "simhost/core/text.h"
#include "simhost/hostfile/host_file.h"
#include "simhost/advapi32/advapi32.h"
#include "simhost/advapi32/security.h"
#include "simhost/advapi32/tokens.h"
#include "simhost/iphlpapi/tcp_connections.h"
#include "simhost/kernel32/host_settings.h"
#include "simhost/kernel32/module.h"
#include "simhost/kernel32/processes.h"
#include "simhost/kernel32/threads.h"
#include "simhost/setupapi/device_tree.h"
#include "simhost/ws2_32/winsock.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <fstream>

namespace simhost {

std::string requireString(const Json::Value& value, const std::string& what) {
    if (!value.isString()) throw HostFileError(what + " must be a string");
    return value.asString();
}

std::wstring requireWideString(const Json::Value& value, const std::string& what) {
    return widen(requireString(value, what));
}

DWORD requireDword(const Json::Value& value, const std::string& what) {
    if (!value.isUInt()) throw HostFileError(what + " must be a whole number from 0 to 4294967295");
    return value.asUInt();
}

std::vector<std::wstring> requireWideStrings(const Json::Value& value, const std::string& what) {
    if (!value.isArray()) throw HostFileError(what + " must be a list of strings");
    std::vector<std::wstring> strings;
    for (const Json::Value& item : value) strings.push_back(requireWideString(item, what + " entries"));
    return strings;
}

void requireObject(const Json::Value& value, const std::string& what) {
    if (!value.isObject()) throw HostFileError(what + " must be an object");
}

void requireArray(const Json::Value& value, const std::string& what) {
    if (!value.isArray()) throw HostFileError(what + " must be a list");
}

void requireKnownKeys(const Json::Value& entry, const std::vector<std::string>& known, const std::string& what) {
    for (const std::string& key : entry.getMemberNames())
        if (std::find(known.begin(), known.end(), key) == known.end())
            throw HostFileError("unknown key \"" + key + "\" in " + what);
}

namespace {

// "drives": {"C": "directory"}; a relative directory is taken from the base.
void applyDrives(const Json::Value& drives, const std::string& base) {
    requireObject(drives, "\"drives\"");
    for (const std::string& letter : drives.getMemberNames()) {
        if (letter.size() != 1 || !std::isalpha(static_cast<unsigned char>(letter[0])))
            throw HostFileError("drive \"" + letter + "\" must be one letter");
        std::filesystem::path directory = requireString(drives[letter], "drive " + letter);
        if (directory.is_relative()) directory = std::filesystem::path(base) / directory;
        std::filesystem::create_directories(directory);
        Host::get().mapDrive(static_cast<wchar_t>(letter[0]), directory.lexically_normal().string());
    }
}

std::string nativePathOf(const std::wstring& windowsPath, const std::string& what) {
    std::string native = Host::get().toNativePath(windowsPath);
    if (native.empty()) throw HostFileError(what + " \"" + narrow(windowsPath) + "\" is on no mapped drive");
    return native;
}

// "directories": ["C:\\ProgramData\\..."], made with their parents.
void applyDirectories(const Json::Value& directories, const std::string&) {
    for (const std::wstring& directory : requireWideStrings(directories, "\"directories\""))
        std::filesystem::create_directories(nativePathOf(directory, "directory"));
}

// "files": {"C:\\dir\\x.exe": "content"}, made with their folders.
void applyFiles(const Json::Value& files, const std::string&) {
    requireObject(files, "\"files\"");
    for (const std::string& name : files.getMemberNames()) {
        std::filesystem::path native = nativePathOf(widen(name), "file");
        std::filesystem::create_directories(native.parent_path());
        std::ofstream(native, std::ios::trunc) << requireString(files[name], "file " + name);
    }
}

// "copyFiles": {"C:\\Windows\\INF\\oem7.inf": "relative/source.inf"}, each
// source, relative to the host file's directory, copied byte for byte with
// its target's folders made.
void applyCopyFiles(const Json::Value& copies, const std::string&) {
    requireObject(copies, "\"copyFiles\"");
    for (const std::string& target : copies.getMemberNames()) {
        std::filesystem::path source = requireString(copies[target], "\"copyFiles\" source of " + target);
        if (source.is_relative()) source = std::filesystem::path(hostFileDirectory()) / source;
        if (!std::filesystem::is_regular_file(source))
            throw HostFileError("\"copyFiles\" source \"" + source.string() + "\" is not a file");
        std::filesystem::path native = nativePathOf(widen(target), "\"copyFiles\" target");
        std::filesystem::create_directories(native.parent_path());
        std::filesystem::copy_file(source, native, std::filesystem::copy_options::overwrite_existing);
    }
}

void applyTimeScale(const Json::Value& scale, const std::string&) {
    if (!scale.isNumeric() || scale.asDouble() <= 0) throw HostFileError("\"timeScale\" must be a positive number");
    Host::get().setTimeScale(scale.asDouble());
}

void applyServiceProcessId(const Json::Value& id, const std::string&) {
    setCurrentProcessId(requireDword(id, "\"serviceProcessId\""));
}

void applyAnsiCodePage(const Json::Value& page, const std::string&) {
    if (!kernel32::setAnsiCodePage(requireDword(page, "\"ansiCodePage\"")))
        throw HostFileError("\"ansiCodePage\" must be 1252 or 65001");
}

void applyTempPath(const Json::Value& path, const std::string&) {
    kernel32::setTempPath(requireWideString(path, "\"tempPath\""));
}

void applyCurrentDirectory(const Json::Value& path, const std::string&) {
    kernel32::setCurrentDirectory(requireWideString(path, "\"currentDirectory\""));
}

kernel32::ProcessProtection protectionNamed(const std::string& name) {
    if (name == "none") return kernel32::ProcessProtection::None;
    if (name == "cannotOpen") return kernel32::ProcessProtection::CannotOpen;
    if (name == "cannotName") return kernel32::ProcessProtection::CannotName;
    throw HostFileError("process \"protection\" must be \"none\", \"cannotOpen\" or \"cannotName\"");
}

bool isSidText(const Json::Value& value) {
    if (!value.isString()) return false;
    try {
        sidFromText(widen(value.asString()));
        return true;
    } catch (const std::invalid_argument&) {
        return false;
    }
}

// "user": a SID text; absent for the session's default account.
void readProcessUser(const Json::Value& entry, kernel32::ProcessRecord& process) {
    if (!entry.isMember("user")) return;
    if (!isSidText(entry["user"])) throw HostFileError("process \"user\" must be a SID text such as \"S-1-5-18\"");
    process.userSid = widen(entry["user"].asString());
}

// "logonSid": a SID text, or null for a token without one; absent for the
// session's default logon SID.
void readProcessLogonSid(const Json::Value& entry, kernel32::ProcessRecord& process) {
    if (!entry.isMember("logonSid")) return;
    const Json::Value& logon = entry["logonSid"];
    process.noLogonSid = logon.isNull();
    if (process.noLogonSid) return;
    if (!isSidText(logon))
        throw HostFileError("process \"logonSid\" must be a SID text such as \"S-1-5-5-0-1002\", or null");
    process.logonSid = widen(logon.asString());
}

kernel32::ProcessRecord processOf(const Json::Value& entry) {
    requireObject(entry, "a process");
    requireKnownKeys(entry, {"id", "parent", "session", "image", "protection", "exited", "user", "logonSid"},
                     "a process");
    kernel32::ProcessRecord process;
    process.processId = requireDword(entry["id"], "process \"id\"");
    process.parentProcessId = requireDword(entry.get("parent", 0), "process \"parent\"");
    process.sessionId = requireDword(entry.get("session", 0), "process \"session\"");
    process.imagePath = requireWideString(entry.get("image", ""), "process \"image\"");
    process.protection = protectionNamed(requireString(entry.get("protection", "none"), "process \"protection\""));
    process.exited = entry.get("exited", false).asBool();
    readProcessUser(entry, process);
    readProcessLogonSid(entry, process);
    return process;
}

// "processes": [{"id", "parent", "session", "image", "protection", "exited",
// "user", "logonSid"}]
void applyProcesses(const Json::Value& processes, const std::string&) {
    requireArray(processes, "\"processes\"");
    for (const Json::Value& entry : processes) {
        kernel32::ProcessRecord process = processOf(entry);
        try {
            kernel32::addProcess(process);
        } catch (const std::invalid_argument& e) {
            throw HostFileError(std::string("process: ") + e.what());
        }
    }
}

// Each process with the account and logon SID of its token, defaults
// resolved; "logonSid" is null for a token without one.
Json::Value describeProcesses() {
    Json::Value list(Json::arrayValue);
    for (const kernel32::ProcessRecord& process : kernel32::processes()) {
        Json::Value entry;
        entry["id"] = process.processId;
        entry["parent"] = process.parentProcessId;
        entry["session"] = process.sessionId;
        entry["image"] = narrow(process.imagePath);
        entry["exited"] = process.exited;
        entry["user"] = narrow(advapi32::processUserSid(process));
        std::wstring logonSid = advapi32::processLogonSid(process);
        entry["logonSid"] = logonSid.empty() ? Json::Value() : Json::Value(narrow(logonSid));
        list.append(entry);
    }
    return list;
}

// A dotted address of the loopback network in network byte order, or none.
std::optional<DWORD> loopbackAddress(const std::string& text) {
    unsigned parts[4];
    char rest = 0;
    if (std::sscanf(text.c_str(), "%3u.%3u.%3u.%3u%c", &parts[0], &parts[1], &parts[2], &parts[3], &rest) != 4)
        return std::nullopt;
    if (parts[0] != 127 || parts[1] > 255 || parts[2] > 255 || parts[3] > 255) return std::nullopt;
    return htonl((parts[0] << 24) | (parts[1] << 16) | (parts[2] << 8) | parts[3]);
}

// "tcpOwners": {"default": pid, "ports": {"50123": pid},
// "addresses": {"127.0.2.2": pid}}: who owns the client end of a loopback
// connection made from outside the host.
void applyTcpOwners(const Json::Value& owners, const std::string&) {
    requireObject(owners, "\"tcpOwners\"");
    requireKnownKeys(owners, {"default", "ports", "addresses"}, "\"tcpOwners\"");
    if (owners.isMember("default"))
        iphlpapi::setDefaultOutsideEndOwner(requireDword(owners["default"], "\"tcpOwners\" \"default\""));
    if (owners.isMember("ports")) {
        requireObject(owners["ports"], "\"tcpOwners\" \"ports\"");
        for (const std::string& port : owners["ports"].getMemberNames()) {
            DWORD number = static_cast<DWORD>(std::strtoul(port.c_str(), nullptr, 10));
            if (number == 0 || number > 65535) throw HostFileError("port \"" + port + "\" must be from 1 to 65535");
            iphlpapi::setOutsideEndOwner(static_cast<u_short>(number),
                                         requireDword(owners["ports"][port], "owner of port " + port));
        }
    }
    if (owners.isMember("addresses")) {
        requireObject(owners["addresses"], "\"tcpOwners\" \"addresses\"");
        for (const std::string& address : owners["addresses"].getMemberNames()) {
            std::optional<DWORD> parsed = loopbackAddress(address);
            if (!parsed)
                throw HostFileError("address \"" + address +
                                    "\" in \"tcpOwners\" must be a loopback address such as 127.0.2.2");
            iphlpapi::setOutsideEndOwnerByAddress(
                *parsed, requireDword(owners["addresses"][address], "owner of address " + address));
        }
    }
}

// "listeners": ["127.0.1.20:9101", ...]: listening sockets the host holds
// for the whole run, standing for plugins that are alive.
void applyListeners(const Json::Value& listeners, const std::string&) {
    if (!listeners.isArray()) throw HostFileError("\"listeners\" must be a list of \"address:port\" texts");
    for (const Json::Value& entry : listeners) {
        const std::string text = entry.isString() ? entry.asString() : "";
        const size_t colon = text.rfind(':');
        char* end = nullptr;
        const unsigned long port = colon == std::string::npos ? 0 : std::strtoul(text.c_str() + colon + 1, &end, 10);
        if (colon == std::string::npos || !end || *end || port == 0 || port > 65535)
            throw HostFileError("listener \"" + text + "\" must be \"address:port\" with a port from 1 to 65535");
        try {
            ws2_32::holdListener(text.substr(0, colon), static_cast<u_short>(port));
        } catch (const std::runtime_error& e) {
            throw HostFileError(std::string("listener ") + e.what());
        }
    }
}

Json::Value describeListeners() {
    Json::Value list(Json::arrayValue);
    for (const std::string& listener : ws2_32::heldListeners()) list.append(listener);
    return list;
}

GUID parseGuid(const std::string& text) {
    GUID guid{};
    unsigned parts[11];
    if (std::sscanf(text.c_str(), "{%8x-%4x-%4x-%2x%2x-%2x%2x%2x%2x%2x%2x}", &parts[0], &parts[1], &parts[2], &parts[3],
                    &parts[4], &parts[5], &parts[6], &parts[7], &parts[8], &parts[9], &parts[10]) != 11)
        throw HostFileError("device \"classGuid\" \"" + text + "\" must look like {4D36E979-E325-11CE-BFC1-08002BE10318}");
    guid.Data1 = parts[0];
    guid.Data2 = static_cast<uint16_t>(parts[1]);
    guid.Data3 = static_cast<uint16_t>(parts[2]);
    for (int i = 0; i < 8; ++i) guid.Data4[i] = static_cast<uint8_t>(parts[3 + i]);
    return guid;
}

// "devices": [{"instanceId", "classGuid", "present", "description", "hardwareIds"}]
void applyDevices(const Json::Value& devices, const std::string&) {
    requireArray(devices, "\"devices\"");
    for (const Json::Value& entry : devices) {
        requireObject(entry, "a device");
        setupapi::Device device(requireWideString(entry["instanceId"], "device \"instanceId\""));
        if (entry.isMember("classGuid")) device.classGuid = parseGuid(requireString(entry["classGuid"], "device \"classGuid\""));
        device.present = entry.get("present", true).asBool();
        if (entry.isMember("description"))
            device.setString(SPDRP_DEVICEDESC, requireWideString(entry["description"], "device \"description\""));
        if (entry.isMember("hardwareIds"))
            device.setMultiString(SPDRP_HARDWAREID, requireWideStrings(entry["hardwareIds"], "device \"hardwareIds\""));
        try {
            setupapi::addDevice(device);
        } catch (const std::invalid_argument& e) {
            throw HostFileError(std::string("device: ") + e.what());
        }
    }
}

Json::Value describeDevices() {
    Json::Value list(Json::arrayValue);
    for (const setupapi::Device& device : setupapi::devices()) {
        Json::Value entry;
        entry["instanceId"] = narrow(device.instanceId);
        entry["present"] = device.present;
        if (auto description = setupapi::readProperty(device, SPDRP_DEVICEDESC))
            entry["description"] = narrow(description->strings.empty() ? L"" : description->strings[0]);
        if (auto ids = setupapi::readProperty(device, SPDRP_HARDWAREID)) {
            entry["hardwareIds"] = Json::Value(Json::arrayValue);
            for (const std::wstring& id : ids->strings) entry["hardwareIds"].append(narrow(id));
        }
        list.append(entry);
    }
    return list;
}

void applyModulePath(const Json::Value& path, const std::string&) {
    kernel32::setModuleFileName(requireWideString(path, "\"modulePath\""));
}

void applyStartedByControlManager(const Json::Value& started, const std::string&) {
    if (!started.isBool()) throw HostFileError("\"startedByControlManager\" must be true or false");
    advapi32::setStartedByControlManager(started.asBool());
}

// "HKLM\\Software\\X" to its root and the path below it.
std::pair<HKEY, std::wstring> splitRegistryKey(const std::string& key) {
    std::wstring path = widen(key);
    size_t slash = path.find(L'\\');
    std::optional<HKEY> root = advapi32::predefinedKeyNamed(path.substr(0, slash));
    if (!root) throw HostFileError("registry key \"" + key + "\" must start with HKLM, HKCU, HKU or HKCR");
    return {*root, slash == std::wstring::npos ? std::wstring() : path.substr(slash + 1)};
}

void setRegistryEntry(const Json::Value& entry) {
    auto [root, keyPath] = splitRegistryKey(requireString(entry["key"], "registry \"key\""));
    if (!entry.isMember("name")) {
        advapi32::createRegistryKey(root, keyPath);
        return;
    }
    std::wstring name = requireWideString(entry["name"], "registry \"name\"");
    std::string type = requireString(entry.get("type", "REG_SZ"), "registry \"type\"");
    const Json::Value& value = entry["value"];
    if (type == "REG_SZ")
        advapi32::setRegistryString(root, keyPath, name, requireWideString(value, "a REG_SZ value"));
    else if (type == "REG_EXPAND_SZ")
        advapi32::setRegistryExpandString(root, keyPath, name, requireWideString(value, "a REG_EXPAND_SZ value"));
    else if (type == "REG_MULTI_SZ")
        advapi32::setRegistryMultiString(root, keyPath, name, requireWideStrings(value, "a REG_MULTI_SZ value"));
    else if (type == "REG_DWORD")
        advapi32::setRegistryDword(root, keyPath, name, requireDword(value, "a REG_DWORD value"));
    else if (type == "REG_QWORD" && value.isUInt64())
        advapi32::setRegistryQword(root, keyPath, name, value.asUInt64());
    else
        throw HostFileError("registry \"type\" " + type + " with this value is not supported");
}

// "registry": [{"key": "HKLM\\...", "name": "...", "type": "REG_DWORD", "value": 1}];
// an entry without "name" only makes the key.
void applyRegistry(const Json::Value& registry, const std::string&) {
    requireArray(registry, "\"registry\"");
    for (const Json::Value& entry : registry) {
        requireObject(entry, "a registry entry");
        setRegistryEntry(entry);
    }
}

Json::Value describeRegistryValue(const advapi32::RegistryValueEntry& value) {
    Json::Value entry;
    entry["name"] = narrow(value.name);
    const wchar_t* text = reinterpret_cast<const wchar_t*>(value.data.data());
    const size_t units = value.data.size() / sizeof(wchar_t);
    switch (value.type) {
        case REG_SZ:
        case REG_EXPAND_SZ:
            entry["type"] = value.type == REG_SZ ? "REG_SZ" : "REG_EXPAND_SZ";
            entry["value"] = narrow(std::wstring(text, units).c_str());
            break;
        case REG_MULTI_SZ: {
            entry["type"] = "REG_MULTI_SZ";
            entry["value"] = Json::Value(Json::arrayValue);
            for (size_t at = 0; at < units && text[at];) {
                std::wstring one(text + at);
                entry["value"].append(narrow(one));
                at += one.size() + 1;
            }
            break;
        }
        case REG_DWORD: {
            DWORD number = 0;
            std::memcpy(&number, value.data.data(), std::min(value.data.size(), sizeof number));
            entry["type"] = "REG_DWORD";
            entry["value"] = number;
            break;
        }
        default:
            entry["type"] = value.type;
            entry["bytes"] = static_cast<Json::UInt64>(value.data.size());
            break;
    }
    return entry;
}

Json::Value describeRegistry() {
    Json::Value keys(Json::arrayValue);
    for (const advapi32::RegistryKeyEntry& key : advapi32::dumpRegistry()) {
        Json::Value entry;
        entry["key"] = narrow(key.path);
        entry["values"] = Json::Value(Json::arrayValue);
        for (const advapi32::RegistryValueEntry& value : key.values) entry["values"].append(describeRegistryValue(value));
        keys.append(entry);
    }
    return keys;
}

Json::Value describeStatus(const SERVICE_STATUS& status) {
    Json::Value entry;
    entry["currentState"] = status.dwCurrentState;
    entry["controlsAccepted"] = status.dwControlsAccepted;
    entry["win32ExitCode"] = status.dwWin32ExitCode;
    entry["serviceSpecificExitCode"] = status.dwServiceSpecificExitCode;
    entry["checkPoint"] = status.dwCheckPoint;
    entry["waitHint"] = status.dwWaitHint;
    return entry;
}

Json::Value optionalText(const std::optional<std::wstring>& text) {
    return text ? Json::Value(narrow(*text)) : Json::Value();
}

Json::Value describeServices() {
    Json::Value list(Json::arrayValue);
    for (const std::wstring& name : advapi32::installedServices()) {
        std::optional<advapi32::ServiceRegistration> registration = advapi32::serviceRegistration(name);
        if (!registration) continue;
        Json::Value entry;
        entry["serviceName"] = narrow(registration->serviceName);
        entry["displayName"] = optionalText(registration->displayName);
        entry["serviceType"] = registration->serviceType;
        entry["startType"] = registration->startType;
        entry["errorControl"] = registration->errorControl;
        entry["binaryPathName"] = narrow(registration->binaryPathName);
        entry["serviceStartName"] = optionalText(registration->serviceStartName);
        entry["markedForDelete"] = advapi32::serviceMarkedForDelete(name);
        if (auto status = advapi32::serviceStatus(name)) entry["status"] = describeStatus(*status);
        list.append(entry);
    }
    return list;
}

Json::Value describeStatusHistory() {
    Json::Value list(Json::arrayValue);
    for (const SERVICE_STATUS& status : advapi32::serviceStatusHistory()) list.append(describeStatus(status));
    return list;
}

Json::Value describeEventLog() {
    Json::Value list(Json::arrayValue);
    for (const advapi32::EventLogEntry& event : advapi32::eventLogEntries()) {
        Json::Value entry;
        entry["source"] = narrow(event.source);
        entry["type"] = event.type;
        entry["category"] = event.category;
        entry["eventId"] = event.eventId;
        entry["strings"] = Json::Value(Json::arrayValue);
        for (const std::wstring& text : event.strings) entry["strings"].append(narrow(text));
        list.append(entry);
    }
    return list;
}

}  // namespace

void reportOnly(const Json::Value&, const std::string&) {
    throw HostFileError("this key is reported in the state file and cannot be arranged");
}

const std::vector<HostSection>& hostSections() {
    static const std::vector<HostSection> sections = {
        {"drives", applyDrives, nullptr},
        {"directories", applyDirectories, nullptr},
        {"files", applyFiles, nullptr},
        {"copyFiles", applyCopyFiles, nullptr},
        {"timeScale", applyTimeScale, nullptr},
        {"serviceProcessId", applyServiceProcessId, nullptr},
        {"ansiCodePage", applyAnsiCodePage, nullptr},
        {"tempPath", applyTempPath, nullptr},
        {"currentDirectory", applyCurrentDirectory, nullptr},
        {"processes", applyProcesses, describeProcesses},
        {"tcpOwners", applyTcpOwners, nullptr},
        {"listeners", applyListeners, describeListeners},
        {"devices", applyDevices, describeDevices},
        {"modulePath", applyModulePath, nullptr},
        {"startedByControlManager", applyStartedByControlManager, nullptr},
        {"registry", applyRegistry, describeRegistry},
        {"services", reportOnly, describeServices},
        {"serviceStatusHistory", reportOnly, describeStatusHistory},
        {"eventLog", reportOnly, describeEventLog},
        {"drivers", applyDrivers, describeDrivers},
        {"ports", applyPorts, describePorts},
        {"printers", applyPrinters, describePrinters},
        {"defaultPrinters", applyDefaultPrinters, describeDefaultPrinters},
        {"faults", applyFaults, nullptr},
        {"installer", applyInstaller, nullptr},
        {"installerRuns", reportOnly, describeInstallerRuns},
        {"comObjects", reportOnly, describeComObjects},
    };
    return sections;
}

bool isHostSection(const std::string& key) {
    for (const HostSection& section : hostSections())
        if (key == section.key) return true;
    return false;
}

}  // namespace simhost
