// The spooler's tables and the rules that keep them consistent: names
// unique regardless of case, the local ports every machine has, and the end
// of a printer marked for deletion.
#include "simhost/winspool/spooler_state.h"

#include "simhost/core/text.h"
#include "simhost/kernel32/objects.h"

#include <algorithm>

namespace simhost {
namespace winspool {

const PortMonitor kTcpMonitor = {L"Standard TCP/IP Port", kTcpMonitorName, L"Standard TCP/IP Port",
                                 PORT_TYPE_WRITE | PORT_TYPE_READ | PORT_TYPE_NET_ATTACHED};
const PortMonitor kLocalPortMonitor = {L"Local Port", kLocalPortMonitorName, L"Local Port",
                                       PORT_TYPE_WRITE | PORT_TYPE_READ};

namespace {

const PortMonitor* const kMonitors[] = {&kTcpMonitor, &kLocalPortMonitor};

// The ports of the local port monitor that a new machine has.
const wchar_t* const kLocalPorts[] = {L"LPT1:", L"LPT2:", L"LPT3:", L"COM1:", L"COM2:",
                                      L"COM3:", L"COM4:", L"FILE:", L"PORTPROMPT:"};

}  // namespace

const PortMonitor* monitorNamed(const std::wstring& reportedName) {
    for (const PortMonitor* monitor : kMonitors)
        if (sameName(monitor->reportedName, reportedName)) return monitor;
    return nullptr;
}

const PortMonitor* monitorByXcvName(const std::wstring& xcvName) {
    for (const PortMonitor* monitor : kMonitors)
        if (sameName(monitor->xcvName, xcvName)) return monitor;
    return nullptr;
}

SpoolerState::SpoolerState() {
    for (const wchar_t* name : kLocalPorts) {
        PrinterPort port;
        port.name = name;
        insertPort(makeMonitorPort(std::move(port), kLocalPortMonitor));
    }
}

PortPtr SpoolerState::findPort(const std::wstring& name) const {
    auto it = portsByName.find(foldCase(name));
    return it == portsByName.end() ? nullptr : it->second;
}

PrinterPtr SpoolerState::findAnyPrinter(const std::wstring& name) const {
    auto it = printersByName.find(foldCase(name));
    return it == printersByName.end() ? nullptr : it->second;
}

PrinterPtr SpoolerState::findVisiblePrinter(const std::wstring& name) const {
    PrinterPtr printer = findAnyPrinter(name);
    return printer && !printer->pendingDeletion ? printer : nullptr;
}

const PrinterDriver* SpoolerState::findDriver(const std::wstring& name, const std::wstring& environment) const {
    for (const PrinterDriver& driver : drivers)
        if (sameName(driver.name, name) && sameName(driver.environment, environment)) return &driver;
    return nullptr;
}

SpoolerHandle* SpoolerState::findHandle(HANDLE handle) {
    auto it = handles.find(handle);
    return it == handles.end() ? nullptr : &it->second;
}

HANDLE SpoolerState::openHandle(SpoolerHandle handle) {
    HANDLE value = reserveHandleValue();
    if (handle.printer) ++handle.printer->openHandles;
    handles.emplace(value, std::move(handle));
    return value;
}

void SpoolerState::insertPort(PortPtr port) {
    portsByName[foldCase(port->name)] = port;
    ports.push_back(std::move(port));
}

void SpoolerState::erasePort(const std::wstring& name) {
    portsByName.erase(foldCase(name));
    ports.erase(std::remove_if(ports.begin(), ports.end(), [&](const PortPtr& p) { return sameName(p->name, name); }),
                ports.end());
}

void SpoolerState::insertPrinter(PrinterPtr printer) {
    printersByName[foldCase(printer->name)] = printer;
    printers.push_back(std::move(printer));
}

void SpoolerState::renamePrinter(const PrinterPtr& printer, const std::wstring& newName) {
    for (auto& entry : defaultPrinters)
        if (sameName(entry.second, printer->name)) entry.second = newName;
    printersByName.erase(foldCase(printer->name));
    printer->name = newName;
    printersByName[foldCase(newName)] = printer;
}

void SpoolerState::retireIfFinished(const PrinterPtr& printer) {
    if (!printer->pendingDeletion || printer->openHandles > 0 || !printer->jobs.empty()) return;
    printersByName.erase(foldCase(printer->name));
    printers.erase(std::remove(printers.begin(), printers.end(), printer), printers.end());
    for (auto it = defaultPrinters.begin(); it != defaultPrinters.end();)
        it = sameName(it->second, printer->name) ? defaultPrinters.erase(it) : std::next(it);
}

bool SpoolerState::portInUse(const std::wstring& portName) const {
    for (const PrinterPtr& printer : printers)
        for (const std::wstring& name : portNamesOf(printer->portName))
            if (sameName(name, portName)) return true;
    return false;
}

HandleLookup lookupPrinterHandle(SpoolerState& state, HANDLE handle, ACCESS_MASK needed) {
    SpoolerHandle* found = state.findHandle(handle);
    if (!found) return {ERROR_INVALID_HANDLE};
    if (found->kind != HandleKind::Printer) return {ERROR_INVALID_PARAMETER};
    if ((found->granted & needed) != needed) return {ERROR_ACCESS_DENIED};
    return {0, found};
}

HandleLookup lookupXcvHandle(SpoolerState& state, HANDLE handle) {
    SpoolerHandle* found = state.findHandle(handle);
    if (!found) return {ERROR_INVALID_HANDLE};
    if (found->kind == HandleKind::Printer) return {ERROR_INVALID_PARAMETER};
    return {0, found};
}

std::vector<std::wstring> portNamesOf(const std::wstring& portList) {
    return splitText(portList, L',', EmptyPieces::Drop);
}

}  // namespace winspool
}  // namespace simhost
