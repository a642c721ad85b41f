// The spooler: its enumerations with their size protocol, the port
// monitors behind XcvDataW, and a printer the probe makes, reads, opens
// with the access right 1 and deletes.
#include "Probe.h"

#include <algorithm>
#include <cstring>

namespace probe {
namespace {

constexpr DWORD kPrinterEnumFlags = PRINTER_ENUM_LOCAL | PRINTER_ENUM_CONNECTIONS;
// The right the service once asked for on a printer: SERVER_ACCESS_ADMINISTER's
// bit, which means nothing for a printer.
constexpr DWORD kAccessOne = 1;

// A null buffer with a size is asked only while there is no printer: with
// one, Wine 8 writes its level 4 record through the null pointer and crashes.
void probePrinterEnumeration(const char* when, bool withNullBuffer) {
    for (DWORD level : {2u, 4u}) {
        const std::string topic = std::string("EnumPrintersW(") + number(level) + ") " + when;
        Block block = probeSizeProtocol(
            topic,
            [level](BYTE* buffer, DWORD size, DWORD* needed, DWORD* count) {
                return EnumPrintersW(kPrinterEnumFlags, nullptr, level, buffer, size, needed, count);
            },
            withNullBuffer);
        if (!block.fetched) continue;
        if (level == 2) {
            observe(topic + " layout",
                    layoutOf<PRINTER_INFO_2W>(block, {&PRINTER_INFO_2W::pPrinterName, &PRINTER_INFO_2W::pPortName,
                                                      &PRINTER_INFO_2W::pDriverName, &PRINTER_INFO_2W::pPrintProcessor,
                                                      &PRINTER_INFO_2W::pDatatype}));
            for (DWORD i = 0; i < block.count; ++i) {
                const PRINTER_INFO_2W& printer = recordsOf<PRINTER_INFO_2W>(block)[i];
                observe(topic + " printer",
                        field(printer.pPrinterName) + " server=" + presence(printer.pServerName) +
                            " port=" + field(printer.pPortName) + " driver=" + field(printer.pDriverName) +
                            " processor=" + field(printer.pPrintProcessor) + " datatype=" + field(printer.pDatatype) +
                            " attributes=" + number(printer.Attributes) + " status=" + number(printer.Status) +
                            " jobs=" + number(printer.cJobs) +
                            " descriptor=" + (printer.pSecurityDescriptor ? "set" : "null") +
                            " devmode=" + (printer.pDevMode ? "set" : "null"));
            }
        } else {
            observe(topic + " layout", layoutOf<PRINTER_INFO_4W>(block, {&PRINTER_INFO_4W::pPrinterName}));
            for (DWORD i = 0; i < block.count; ++i) {
                const PRINTER_INFO_4W& printer = recordsOf<PRINTER_INFO_4W>(block)[i];
                observe(topic + " printer", field(printer.pPrinterName) + " server=" + presence(printer.pServerName) +
                                                " attributes=" + number(printer.Attributes));
            }
        }
    }
}

// Ports are told in the order of their names: the order of the enumeration
// is not documented.
void probePorts() {
    for (DWORD level : {1u, 2u}) {
        const std::string topic = std::string("EnumPortsW(") + number(level) + ")";
        Block block = probeSizeProtocol(topic, [level](BYTE* buffer, DWORD size, DWORD* needed, DWORD* count) {
            return EnumPortsW(nullptr, level, buffer, size, needed, count);
        });
        if (!block.fetched) continue;
        std::vector<std::string> ports;
        if (level == 1) {
            observe(topic + " layout", layoutOf<PORT_INFO_1W>(block, {&PORT_INFO_1W::pName}));
            for (DWORD i = 0; i < block.count; ++i) ports.push_back(field(recordsOf<PORT_INFO_1W>(block)[i].pName));
        } else {
            observe(topic + " layout", layoutOf<PORT_INFO_2W>(block, {&PORT_INFO_2W::pPortName,
                                                                      &PORT_INFO_2W::pMonitorName,
                                                                      &PORT_INFO_2W::pDescription}));
            for (DWORD i = 0; i < block.count; ++i) {
                const PORT_INFO_2W& port = recordsOf<PORT_INFO_2W>(block)[i];
                ports.push_back(field(port.pPortName) + " monitor=" + field(port.pMonitorName) +
                                " description=" + field(port.pDescription) + " type=" + number(port.fPortType));
            }
        }
        std::sort(ports.begin(), ports.end());
        for (const std::string& port : ports) observe(topic + " port", port);
    }
}

// The null buffer with a size is asked of an environment without drivers:
// with one, Wine 8 writes the driver's record through the null pointer and
// crashes.
void probeDrivers() {
    for (DWORD level : {1u, 3u, 8u}) {
        const std::string empty = std::string("EnumPrinterDriversW(") + number(level) + ", Windows NT x86)";
        probeSizeProtocol(empty, [level](BYTE* buffer, DWORD size, DWORD* needed, DWORD* count) {
            return EnumPrinterDriversW(nullptr, const_cast<LPWSTR>(L"Windows NT x86"), level, buffer, size, needed,
                                       count);
        });
        const std::string topic = std::string("EnumPrinterDriversW(") + number(level) + ")";
        Block block = probeSizeProtocol(
            topic,
            [level](BYTE* buffer, DWORD size, DWORD* needed, DWORD* count) {
                return EnumPrinterDriversW(nullptr, nullptr, level, buffer, size, needed, count);
            },
            false);
        if (!block.fetched) continue;
        for (DWORD i = 0; i < block.count; ++i) {
            if (level == 1) {
                observe(topic + " driver", field(recordsOf<DRIVER_INFO_1W>(block)[i].pName));
            } else if (level == 3) {
                const DRIVER_INFO_3W& driver = recordsOf<DRIVER_INFO_3W>(block)[i];
                observe(topic + " driver", field(driver.pName) + " version=" + number(driver.cVersion) +
                                               " environment=" + field(driver.pEnvironment) +
                                               " driverPath=" + presence(driver.pDriverPath) +
                                               " dataFile=" + presence(driver.pDataFile) +
                                               " configFile=" + presence(driver.pConfigFile) +
                                               " monitor=" + field(driver.pMonitorName));
            } else {
                const DRIVER_INFO_8W& driver = recordsOf<DRIVER_INFO_8W>(block)[i];
                observe(topic + " driver", field(driver.pName) + " environment=" + field(driver.pEnvironment) +
                                               " hardwareId=" + field(driver.pszHardwareID) +
                                               " manufacturer=" + presence(driver.pszMfgName));
            }
        }
    }
    DWORD needed = 0, count = 0;
    primeLastError();
    BOOL ok = EnumPrinterDriversW(nullptr, const_cast<LPWSTR>(L"Windows Nowhere"), 1, nullptr, 0, &needed, &count);
    observe("EnumPrinterDriversW(1) unknown-environment", outcome(ok));
}

// Opens a spooler name with the access given; answers the handle or null.
HANDLE openAndTell(const std::string& topic, const wchar_t* name, DWORD access) {
    std::wstring writable(name);
    PRINTER_DEFAULTSW defaults = {nullptr, nullptr, access};
    HANDLE handle = nullptr;
    primeLastError();
    BOOL ok = OpenPrinterW(&writable[0], &handle, &defaults);
    observe(topic, outcome(ok) + " handle=" + (handle ? "set" : "null"));
    return ok ? handle : nullptr;
}

void closeAndTell(const std::string& topic, HANDLE handle) {
    primeLastError();
    observe(topic + " ClosePrinter", outcome(ClosePrinter(handle)));
}

void probeGetConfigInfo(const std::string& topic, HANDLE port) {
    CONFIG_INFO_DATA_1 configInfo;
    std::memset(&configInfo, 0, sizeof configInfo);
    configInfo.dwVersion = 1;
    PORT_DATA_1 data;
    std::memset(&data, 0, sizeof data);
    DWORD needed = 0, status = 0x7777;
    primeLastError();
    BOOL ok = XcvDataW(port, L"GetConfigInfo", reinterpret_cast<PBYTE>(&configInfo), sizeof configInfo,
                       reinterpret_cast<PBYTE>(&data), sizeof data, &needed, &status);
    observe(topic + " XcvDataW(GetConfigInfo)", outcome(ok) + " status=" + number(status));
}

void probeMonitors() {
    const wchar_t* tcpMonitor = L",XcvMonitor Standard TCP/IP Port";
    HANDLE monitor = openAndTell("OpenPrinterW(,XcvMonitor Standard TCP/IP Port, SERVER_ACCESS_ADMINISTER)",
                                 tcpMonitor, SERVER_ACCESS_ADMINISTER);
    if (monitor) closeAndTell("XcvMonitor Standard TCP/IP Port", monitor);
    HANDLE local = openAndTell("OpenPrinterW(,XcvMonitor Local Port, SERVER_ACCESS_ADMINISTER)",
                               L",XcvMonitor Local Port", SERVER_ACCESS_ADMINISTER);
    if (local) closeAndTell("XcvMonitor Local Port", local);
    for (const wchar_t* name : {L",XcvPort LPT1:", L",XcvPort FILE:"}) {
        const std::string topic = "XcvPort " + text(name + 9);
        HANDLE port = openAndTell("OpenPrinterW(" + text(name) + ", SERVER_ACCESS_ADMINISTER)", name,
                                  SERVER_ACCESS_ADMINISTER);
        if (!port) continue;
        probeGetConfigInfo(topic, port);
        closeAndTell(topic, port);
    }
    openAndTell("OpenPrinterW(,XcvPort NOPORT:, SERVER_ACCESS_ADMINISTER)", L",XcvPort NOPORT:",
                SERVER_ACCESS_ADMINISTER);
    openAndTell("OpenPrinterW(unknown printer, PRINTER_ACCESS_USE)", L"Vexor Probe No Such Printer",
                PRINTER_ACCESS_USE);
}

void probePrinterRecords(HANDLE printer) {
    for (DWORD level : {2u, 3u}) {
        const std::string topic = std::string("GetPrinterW(") + number(level) + ")";
        Block block = probeSizeProtocol(topic, [printer, level](BYTE* buffer, DWORD size, DWORD* needed, DWORD*) {
            return GetPrinterW(printer, level, buffer, size, needed);
        });
        if (!block.fetched) continue;
        if (level == 2) {
            const PRINTER_INFO_2W& info = *recordsOf<PRINTER_INFO_2W>(block);
            observe(topic + " record", "port=" + field(info.pPortName) + " driver=" + field(info.pDriverName) +
                                           " processor=" + field(info.pPrintProcessor) +
                                           " datatype=" + field(info.pDatatype) +
                                           " attributes=" + number(info.Attributes) +
                                           " descriptor=" + (info.pSecurityDescriptor ? "set" : "null") +
                                           " devmode=" + (info.pDevMode ? "set" : "null"));
            continue;
        }
        const PRINTER_INFO_3& info = *recordsOf<PRINTER_INFO_3>(block);
        LPWSTR sddl = nullptr;
        primeLastError();
        BOOL ok = info.pSecurityDescriptor &&
                  ConvertSecurityDescriptorToStringSecurityDescriptorW(
                      info.pSecurityDescriptor, SDDL_REVISION_1,
                      OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, &sddl,
                      nullptr);
        observe(topic + " descriptor", ok ? text(sddl) : "none " + lastErrorText());
        if (sddl) LocalFree(sddl);
    }
}

void probeOwnPrinter(const Setup& setup) {
    std::wstring name = setup.printerName, port = setup.portName, driver = setup.driverName;
    std::wstring processor = L"winprint", datatype = L"RAW";
    PRINTER_INFO_2W info;
    std::memset(&info, 0, sizeof info);
    info.pPrinterName = &name[0];
    info.pPortName = &port[0];
    info.pDriverName = &driver[0];
    info.pPrintProcessor = &processor[0];
    info.pDatatype = &datatype[0];
    info.Attributes = PRINTER_ATTRIBUTE_LOCAL;
    primeLastError();
    HANDLE added = AddPrinterW(nullptr, 2, reinterpret_cast<LPBYTE>(&info));
    observe("AddPrinterW(2) probe printer", outcome(added != nullptr));
    if (!added) return;
    probePrinterRecords(added);
    closeAndTell("added printer", added);
    probePrinterEnumeration("with-probe-printer", false);
}

}  // namespace

void probeSpooler(const Setup& setup) {
    probePrinterEnumeration("before", true);
    probePorts();
    probeDrivers();
    probeMonitors();
    probeOwnPrinter(setup);
}

void probePrinterRemoval(const Setup& setup) {
    const std::wstring& name = setup.printerName;
    HANDLE one = openAndTell("OpenPrinterW(probe printer, 1)", name.c_str(), kAccessOne);
    bool deleted = false;
    if (one) {
        primeLastError();
        deleted = DeletePrinter(one);
        observe("DeletePrinter(handle opened with 1)", outcome(deleted));
        closeAndTell("handle opened with 1", one);
    }
    if (!deleted) {
        HANDLE all = openAndTell("OpenPrinterW(probe printer, PRINTER_ALL_ACCESS)", name.c_str(), PRINTER_ALL_ACCESS);
        if (all) {
            primeLastError();
            observe("DeletePrinter(handle opened with PRINTER_ALL_ACCESS)", outcome(DeletePrinter(all)));
            closeAndTell("handle opened with PRINTER_ALL_ACCESS", all);
        }
    }
    openAndTell("OpenPrinterW(deleted probe printer, PRINTER_ACCESS_USE)", name.c_str(), PRINTER_ACCESS_USE);
    probePrinterEnumeration("after", true);
}

}  // namespace probe
