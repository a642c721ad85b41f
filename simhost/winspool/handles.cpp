// Printer and Xcv handles: OpenPrinterW, OpenPrinter2W and ClosePrinter.
// A name opens a printer, ",XcvMonitor <monitor>" the transceive interface
// of a port monitor, ",XcvPort <port>" that of the monitor of one port (the
// name forms of OpenPrinter and of the Print System Remote Protocol's
// printer names, MS-RPRN 2.2.4.14). Handles are values of the host's handle
// sequence, never null nor all ones, and refused once closed.
#include "simhost/winspool/access.h"
#include "simhost/winspool/spooler_state.h"

#include <optional>

namespace simhost {
namespace winspool {
namespace {

struct XcvName {
    HandleKind kind;
    std::wstring name;
};

// ",XcvMonitor <name>" or ",XcvPort <name>", blanks allowed after the comma.
std::optional<XcvName> parseXcvName(const std::wstring& text) {
    if (text.empty() || text[0] != L',') return std::nullopt;
    size_t at = text.find_first_not_of(L' ', 1);
    if (at == std::wstring::npos) return std::nullopt;
    const std::wstring rest = text.substr(at);
    const std::wstring monitor = L"XcvMonitor ";
    const std::wstring port = L"XcvPort ";
    if (rest.compare(0, monitor.size(), monitor) == 0) return XcvName{HandleKind::Monitor, rest.substr(monitor.size())};
    if (rest.compare(0, port.size(), port) == 0) return XcvName{HandleKind::Port, rest.substr(port.size())};
    return std::nullopt;
}

struct Opened {
    DWORD error = 0;
    HANDLE handle = nullptr;
};

Opened openPrinterNamed(SpoolerState& state, const std::wstring& name, const PRINTER_DEFAULTSW* defaults) {
    PrinterPtr printer = state.findVisiblePrinter(name);
    if (!printer) return {ERROR_INVALID_PRINTER_NAME};
    if (defaults && defaults->pDatatype && !isProcessorDatatype(defaults->pDatatype)) return {ERROR_INVALID_DATATYPE};
    ACCESS_MASK desired = defaults ? mapPrinterAccess(defaults->DesiredAccess) : PRINTER_ACCESS_USE;
    AccessDecision decision = decidePrinterAccess(*printer, desired);
    if (decision.error) return {decision.error};
    return {0, state.openHandle({HandleKind::Printer, printer, nullptr, {}, decision.granted})};
}

Opened openXcv(SpoolerState& state, const XcvName& target, const PRINTER_DEFAULTSW* defaults) {
    SpoolerHandle handle{target.kind, nullptr, nullptr, {}, 0};
    if (target.kind == HandleKind::Monitor) {
        handle.monitor = monitorByXcvName(target.name);
    } else if (PortPtr port = state.findPort(target.name)) {
        handle.monitor = monitorNamed(port->monitorName);
        handle.portName = port->name;
    }
    if (!handle.monitor) return {ERROR_INVALID_PRINTER_NAME};
    AccessDecision decision = decideMonitorAccess(state, defaults ? mapServerAccess(defaults->DesiredAccess) : 0);
    if (decision.error) return {decision.error};
    handle.granted = decision.granted;
    return {0, state.openHandle(std::move(handle))};
}

// A null or empty name would open the print server itself, which the host
// does not model; a name with a server part ("\\server\...") names another
// machine. Both are refused as unknown names.
BOOL openByName(LPCWSTR printerName, LPHANDLE printer, const PRINTER_DEFAULTSW* defaults) {
    if (!printer) return succeedOrFail(ERROR_INVALID_PARAMETER);
    const std::wstring name = textOf(printerName);
    Opened opened = withSpooler([&](SpoolerState& state) -> Opened {
        if (name.empty()) return {ERROR_INVALID_PRINTER_NAME};
        if (std::optional<XcvName> xcv = parseXcvName(name)) return openXcv(state, *xcv, defaults);
        return openPrinterNamed(state, name, defaults);
    });
    if (opened.error) return succeedOrFail(opened.error);
    *printer = opened.handle;
    return TRUE;
}

}  // namespace

}  // namespace winspool
}  // namespace simhost

using simhost::winspool::SpoolerHandle;
using simhost::winspool::SpoolerState;
using simhost::winspool::succeedOrFail;
using simhost::winspool::withSpooler;

// TRUE with a new handle in *printer; the handle holds the rights asked for
// in the defaults' DesiredAccess (generic rights mapped as for printers, or
// as for print servers on an Xcv name), PRINTER_ACCESS_USE for a printer
// opened without defaults and no right for an Xcv name without defaults.
// Failures leave *printer as it was: an unknown printer, port or monitor,
// or a printer pending deletion (MS-RPRN 3.1.4.2.4 hides it from opens):
// ERROR_INVALID_PRINTER_NAME; rights the caller lacks: ERROR_ACCESS_DENIED;
// a datatype the print processor lacks: ERROR_INVALID_DATATYPE; no place for
// the handle: ERROR_INVALID_PARAMETER.
BOOL WINAPI OpenPrinterW(LPWSTR printerName, LPHANDLE printer, LPPRINTER_DEFAULTSW defaults) {
    if (DWORD e = simhost::injectedFailure("OpenPrinterW")) return succeedOrFail(e);
    return simhost::winspool::openByName(printerName, printer, defaults);
}

// As OpenPrinterW. For a local printer every option is ignored but
// PRINTER_OPTION_CLIENT_CHANGE, which fails with ERROR_ACCESS_DENIED, as
// documented.
BOOL WINAPI OpenPrinter2W(LPCWSTR printerName, LPHANDLE printer, LPPRINTER_DEFAULTSW defaults,
                          PPRINTER_OPTIONSW options) {
    if (DWORD e = simhost::injectedFailure("OpenPrinter2W")) return succeedOrFail(e);
    if (options && (options->dwFlags & PRINTER_OPTION_CLIENT_CHANGE)) return succeedOrFail(ERROR_ACCESS_DENIED);
    return simhost::winspool::openByName(printerName, printer, defaults);
}

// Closes any handle of the spooler. A printer marked for deletion goes with
// its last handle, once its queue is empty. A closed or unknown handle:
// ERROR_INVALID_HANDLE.
BOOL WINAPI ClosePrinter(HANDLE printer) {
    if (DWORD e = simhost::injectedFailure("ClosePrinter")) return succeedOrFail(e);
    return withSpooler([&](SpoolerState& state) {
        SpoolerHandle* handle = state.findHandle(printer);
        if (!handle) return succeedOrFail(ERROR_INVALID_HANDLE);
        simhost::winspool::PrinterPtr held = handle->printer;
        state.handles.erase(printer);
        if (held) {
            --held->openHandles;
            state.retireIfFinished(held);
        }
        return TRUE;
    });
}
