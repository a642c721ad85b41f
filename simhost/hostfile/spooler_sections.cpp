// The print spooler's sections of host files and state files: "drivers",
// "ports", "printers" and "defaultPrinters". Each entry is checked key by
// key, so a misspelt key is named rather than silently ignored.
#include "simhost/core/text.h"
#include "simhost/hostfile/host_file.h"
#include "simhost/hostfile/host_sections.h"
#include "simhost/winspool/devmode_members.h"
#include "simhost/winspool/spooler.h"

#include <cstdio>
#include <stdexcept>

namespace simhost {
namespace {

using winspool::DevModeMember;
using winspool::DevModeMemberKind;

// A call of the spooler's host API, its refusal as the host file's error.
template <class Work>
void arrange(Work work) {
    try {
        work();
    } catch (const std::invalid_argument& e) {
        throw HostFileError(e.what());
    }
}

// ---- Device modes ----

std::string hexOf(const std::vector<BYTE>& bytes) {
    std::string text;
    char pair[3];
    for (BYTE byte : bytes) {
        std::snprintf(pair, sizeof pair, "%02x", byte);
        text += pair;
    }
    return text;
}

std::vector<BYTE> bytesOfHex(const std::string& text, const std::string& what) {
    if (text.size() % 2 || text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        throw HostFileError(what + " must be hexadecimal digits, two per byte");
    std::vector<BYTE> bytes;
    for (size_t at = 0; at < text.size(); at += 2) bytes.push_back(static_cast<BYTE>(std::stoul(text.substr(at, 2), nullptr, 16)));
    return bytes;
}

void setDevModeMember(DEVMODEW& mode, const DevModeMember& member, const Json::Value& value, const std::string& what) {
    if (member.kind == DevModeMemberKind::Text) {
        winspool::setMemberText(mode, member, requireWideString(value, what));
        return;
    }
    if (!value.isIntegral() || value.asLargestInt() < winspool::smallestValue(member) ||
        value.asLargestInt() > winspool::largestValue(member))
        throw HostFileError(what + " must be a whole number from " + std::to_string(winspool::smallestValue(member)) +
                            " to " + std::to_string(winspool::largestValue(member)));
    winspool::setMemberNumber(mode, member, value.asLargestInt());
}

// {"dmOrientation": 2, ..., "privateData": "0a0b"} over a device mode block
// (the typical one of a driver, the driver's of a printer). dmSize and
// dmDriverExtra follow from the record and the private bytes.
std::vector<BYTE> devModeOf(const Json::Value& entry, const std::vector<BYTE>& base, const std::string& what) {
    requireObject(entry, what);
    DEVMODEW mode = winspool::devModeRecord(base);
    std::vector<BYTE> privateBytes = winspool::devModePrivateBytes(base);
    for (const std::string& key : entry.getMemberNames()) {
        if (key == "privateData") {
            privateBytes = bytesOfHex(requireString(entry[key], what + " \"privateData\""), what + " \"privateData\"");
            continue;
        }
        const DevModeMember* member = winspool::devModeMember(key);
        if (!member || key == "dmSize" || key == "dmDriverExtra")
            throw HostFileError("unknown key \"" + key + "\" in " + what);
        setDevModeMember(mode, *member, entry[key], what + " \"" + key + "\"");
    }
    return winspool::devModeBlock(mode, privateBytes);
}

Json::Value describeDevMode(const std::vector<BYTE>& block) {
    if (block.empty()) return Json::Value();
    DEVMODEW mode = winspool::devModeRecord(block);
    Json::Value entry(Json::objectValue);
    for (const DevModeMember& member : winspool::devModeMembers()) {
        if (member.kind == DevModeMemberKind::Text)
            entry[member.name] = narrow(winspool::memberText(mode, member));
        else
            entry[member.name] = static_cast<Json::Int64>(winspool::memberNumber(mode, member));
    }
    std::vector<BYTE> privateBytes = winspool::devModePrivateBytes(block);
    if (!privateBytes.empty()) entry["privateData"] = hexOf(privateBytes);
    return entry;
}

// ---- Drivers ----

winspool::PrinterDriver driverOf(const Json::Value& entry) {
    requireObject(entry, "a driver");
    requireKnownKeys(entry, {"name", "environment", "hardwareId", "monitor", "devMode"}, "a driver");
    winspool::PrinterDriver driver;
    driver.name = requireWideString(entry["name"], "driver \"name\"");
    driver.environment = requireWideString(entry.get("environment", narrow(winspool::kLocalEnvironment)),
                                           "driver \"environment\"");
    driver.hardwareId = requireWideString(entry.get("hardwareId", ""), "driver \"hardwareId\"");
    driver.monitorName = requireWideString(entry.get("monitor", ""), "driver \"monitor\"");
    if (entry.isMember("devMode"))
        driver.devMode = devModeOf(entry["devMode"], winspool::devModeBlock(winspool::typicalDevMode(driver.name)),
                                   "driver \"devMode\"");
    return driver;
}

// ---- Ports ----

// A port with any of the TCP/IP keys gets a configuration, the rest of it
// defaulted (port 9100, RAW); the spooler gives a TCP/IP port without one
// the same defaults, and refuses a configuration for a local port.
winspool::PrinterPort portOf(const Json::Value& entry) {
    requireObject(entry, "a port");
    requireKnownKeys(entry, {"name", "monitor", "type", "hostAddress", "portNumber", "protocol"}, "a port");
    winspool::PrinterPort port;
    port.name = requireWideString(entry["name"], "port \"name\"");
    port.monitorName = requireWideString(entry.get("monitor", narrow(winspool::kTcpMonitorName)), "port \"monitor\"");
    port.portType = requireDword(entry.get("type", 0), "port \"type\"");
    if (!entry.isMember("hostAddress") && !entry.isMember("portNumber") && !entry.isMember("protocol")) return port;
    winspool::TcpPortConfiguration tcp;
    tcp.hostAddress = requireWideString(entry.get("hostAddress", ""), "port \"hostAddress\"");
    tcp.ipAddress = tcp.hostAddress;
    tcp.portNumber = requireDword(entry.get("portNumber", tcp.portNumber), "port \"portNumber\"");
    tcp.protocol = requireDword(entry.get("protocol", tcp.protocol), "port \"protocol\"");
    port.tcp = tcp;
    return port;
}

Json::Value describePort(const winspool::PrinterPort& port) {
    Json::Value entry;
    entry["name"] = narrow(port.name);
    entry["monitor"] = narrow(port.monitorName);
    entry["description"] = narrow(port.description);
    entry["type"] = port.portType;
    if (!port.tcp) return entry;
    entry["hostAddress"] = narrow(port.tcp->hostAddress);
    entry["ipAddress"] = narrow(port.tcp->ipAddress);
    entry["portNumber"] = port.tcp->portNumber;
    entry["protocol"] = port.tcp->protocol;
    entry["queue"] = narrow(port.tcp->queue);
    entry["snmpCommunity"] = narrow(port.tcp->snmpCommunity);
    entry["snmpEnabled"] = port.tcp->snmpEnabled;
    entry["snmpDeviceIndex"] = port.tcp->snmpDeviceIndex;
    entry["doubleSpool"] = port.tcp->doubleSpool;
    return entry;
}

// ---- Printers ----

winspool::PrintJob jobOf(const Json::Value& entry) {
    requireObject(entry, "a job");
    requireKnownKeys(entry, {"name", "document", "bytes"}, "a job");
    winspool::PrintJob job;
    job.name = requireWideString(entry.get("name", ""), "job \"name\"");
    job.document = requireWideString(entry.get("document", ""), "job \"document\"");
    std::string content = requireString(entry.get("bytes", ""), "job \"bytes\"");
    job.data.assign(content.begin(), content.end());
    return job;
}

std::vector<BYTE> descriptorOfSddl(const Json::Value& value) {
    std::wstring sddl = requireWideString(value, "printer \"sddl\"");
    try {
        return winspool::descriptorFromSddl(sddl);
    } catch (const std::invalid_argument& e) {
        throw HostFileError(std::string("printer \"sddl\": ") + e.what());
    }
}

// The members given over the device mode the printer would start with: its
// driver's, named after it. A driver the machine lacks leaves the typical
// one; adding the printer then refuses the driver.
std::vector<BYTE> printerDevModeOf(const Json::Value& entry, const winspool::SpoolerPrinter& printer) {
    std::vector<BYTE> base = winspool::startingDevMode(printer.driverName, printer.name);
    if (base.empty()) base = winspool::devModeBlock(winspool::typicalDevMode(printer.name));
    return devModeOf(entry, base, "printer \"devMode\"");
}

winspool::SpoolerPrinter printerOf(const Json::Value& entry) {
    requireObject(entry, "a printer");
    requireKnownKeys(entry,
                     {"name", "port", "driver", "comment", "location", "attributes", "status", "sddl", "jobs",
                      "devMode"},
                     "a printer");
    winspool::SpoolerPrinter printer;
    printer.name = requireWideString(entry["name"], "printer \"name\"");
    printer.portName = requireWideString(entry["port"], "printer \"port\"");
    printer.driverName = requireWideString(entry["driver"], "printer \"driver\"");
    printer.comment = requireWideString(entry.get("comment", ""), "printer \"comment\"");
    printer.location = requireWideString(entry.get("location", ""), "printer \"location\"");
    printer.attributes = requireDword(entry.get("attributes", PRINTER_ATTRIBUTE_LOCAL), "printer \"attributes\"");
    printer.status = requireDword(entry.get("status", 0), "printer \"status\"");
    if (entry.isMember("sddl")) printer.securityDescriptor = descriptorOfSddl(entry["sddl"]);
    if (entry.isMember("devMode")) printer.devMode = printerDevModeOf(entry["devMode"], printer);
    if (entry.isMember("jobs")) {
        requireArray(entry["jobs"], "printer \"jobs\"");
        for (const Json::Value& job : entry["jobs"]) printer.jobs.push_back(jobOf(job));
    }
    return printer;
}

Json::Value describeJob(const winspool::PrintJob& job) {
    Json::Value entry;
    entry["id"] = job.id;
    entry["name"] = narrow(job.name);
    entry["document"] = narrow(job.document);
    entry["size"] = static_cast<Json::UInt64>(job.data.size());
    return entry;
}

// Every member of PRINTER_INFO_2 by its name, as GetPrinterW reports it,
// but the descriptor and the device mode, which are `securityDescriptor`
// (SDDL of owner, group and DACL) and `devMode` (its members).
Json::Value describePrinter(const winspool::SpoolerPrinter& printer) {
    Json::Value entry;
    entry["pServerName"] = Json::Value();
    entry["pPrinterName"] = narrow(printer.name);
    entry["pShareName"] = narrow(printer.shareName);
    entry["pPortName"] = narrow(printer.portName);
    entry["pDriverName"] = narrow(printer.driverName);
    entry["pComment"] = narrow(printer.comment);
    entry["pLocation"] = narrow(printer.location);
    entry["devMode"] = describeDevMode(printer.devMode);
    entry["pSepFile"] = narrow(printer.separatorFile);
    entry["pPrintProcessor"] = narrow(printer.printProcessor);
    entry["pDatatype"] = narrow(printer.datatype);
    entry["pParameters"] = narrow(printer.parameters);
    entry["securityDescriptor"] = narrow(winspool::sddlOfDescriptor(printer.securityDescriptor));
    entry["Attributes"] = printer.attributes;
    entry["Priority"] = printer.priority;
    entry["DefaultPriority"] = printer.defaultPriority;
    entry["StartTime"] = printer.startTime;
    entry["UntilTime"] = printer.untilTime;
    entry["Status"] = printer.status | (printer.pendingDeletion ? PRINTER_STATUS_PENDING_DELETION : 0);
    entry["cJobs"] = static_cast<Json::UInt>(printer.jobs.size());
    entry["AveragePPM"] = 0;
    entry["pendingDeletion"] = printer.pendingDeletion;
    entry["jobs"] = Json::Value(Json::arrayValue);
    for (const winspool::PrintJob& job : printer.jobs) entry["jobs"].append(describeJob(job));
    return entry;
}

}  // namespace

// "drivers": [{"name", "environment", "hardwareId", "monitor", "devMode"}]
void applyDrivers(const Json::Value& drivers, const std::string&) {
    requireArray(drivers, "\"drivers\"");
    for (const Json::Value& entry : drivers) {
        winspool::PrinterDriver driver = driverOf(entry);
        arrange([&] { winspool::addDriver(driver); });
    }
}

Json::Value describeDrivers() {
    Json::Value list(Json::arrayValue);
    for (const winspool::PrinterDriver& driver : winspool::drivers()) {
        Json::Value entry;
        entry["name"] = narrow(driver.name);
        entry["environment"] = narrow(driver.environment);
        entry["hardwareId"] = narrow(driver.hardwareId);
        entry["monitor"] = narrow(driver.monitorName);
        entry["devMode"] = describeDevMode(driver.devMode);
        list.append(entry);
    }
    return list;
}

// "ports": [{"name", "monitor", "type", "hostAddress", "portNumber", "protocol"}]
void applyPorts(const Json::Value& ports, const std::string&) {
    requireArray(ports, "\"ports\"");
    for (const Json::Value& entry : ports) {
        winspool::PrinterPort port = portOf(entry);
        arrange([&] { winspool::addPort(port); });
    }
}

Json::Value describePorts() {
    Json::Value list(Json::arrayValue);
    for (const winspool::PrinterPort& port : winspool::ports()) list.append(describePort(port));
    return list;
}

// "printers": [{"name", "port", "driver", "comment", "location", "attributes",
// "status", "sddl", "devMode", "jobs": [{"name", "document", "bytes"}]}]
void applyPrinters(const Json::Value& printers, const std::string&) {
    requireArray(printers, "\"printers\"");
    for (const Json::Value& entry : printers) {
        winspool::SpoolerPrinter printer = printerOf(entry);
        arrange([&] { winspool::addPrinter(printer); });
    }
}

Json::Value describePrinters() {
    Json::Value list(Json::arrayValue);
    for (const winspool::SpoolerPrinter& printer : winspool::printers()) list.append(describePrinter(printer));
    return list;
}

// "defaultPrinters": {"S-1-5-18": "printer name"}
void applyDefaultPrinters(const Json::Value& defaults, const std::string&) {
    requireObject(defaults, "\"defaultPrinters\"");
    for (const std::string& sid : defaults.getMemberNames()) {
        std::wstring name = requireWideString(defaults[sid], "the default printer of " + sid);
        arrange([&] { winspool::setDefaultPrinterOf(widen(sid), name); });
    }
}

Json::Value describeDefaultPrinters() {
    Json::Value defaults(Json::objectValue);
    for (const auto& [sid, printer] : winspool::defaultPrinters()) defaults[narrow(sid)] = narrow(printer);
    return defaults;
}

}  // namespace simhost
