// The state of the winspool component, held by the host and dropped by
// Host::reset: drivers, ports, printers, open handles and default printers,
// under one lock. Shared by the files of simhost/winspool only.
#pragma once

#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/winspool/spooler.h"

#include <cwctype>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace simhost {
namespace winspool {

// Names compare by their upper-case form, as the spooler compares them.
inline std::wstring foldCase(std::wstring text) {
    for (wchar_t& c : text) c = static_cast<wchar_t>(std::towupper(c));
    return text;
}
inline bool sameName(const std::wstring& a, const std::wstring& b) { return foldCase(a) == foldCase(b); }
inline std::wstring textOf(LPCWSTR text) { return text ? std::wstring(text) : std::wstring(); }

// A port monitor: the name OpenPrinterW reaches it by (",XcvMonitor <name>"),
// the name its ports report, and what its ports are unless told otherwise.
struct PortMonitor {
    const wchar_t* xcvName;
    const wchar_t* reportedName;
    const wchar_t* portDescription;
    DWORD portType;
};
extern const PortMonitor kTcpMonitor;
extern const PortMonitor kLocalPortMonitor;
// The monitor a port reports, or null for one the machine lacks.
const PortMonitor* monitorNamed(const std::wstring& reportedName);
const PortMonitor* monitorByXcvName(const std::wstring& xcvName);

using PrinterPtr = std::shared_ptr<SpoolerPrinter>;
using PortPtr = std::shared_ptr<PrinterPort>;

// A port of the monitor as the machine keeps it: the monitor's name, its
// description and type where the port has none, and a configuration
// exactly when it is a TCP/IP port.
PortPtr makeMonitorPort(PrinterPort port, const PortMonitor& monitor);

enum class HandleKind { Printer, Monitor, Port };

// An open handle: what it reaches and the rights it was granted.
struct SpoolerHandle {
    HandleKind kind = HandleKind::Printer;
    PrinterPtr printer;                 // Printer
    const PortMonitor* monitor = nullptr;  // Monitor and Port
    std::wstring portName;              // Port
    ACCESS_MASK granted = 0;
};

struct SpoolerState {
    std::mutex mutex;
    std::vector<PrinterDriver> drivers;
    std::vector<PortPtr> ports;                      // in order of addition
    std::unordered_map<std::wstring, PortPtr> portsByName;  // by folded name
    std::vector<PrinterPtr> printers;                // in order of addition
    std::unordered_map<std::wstring, PrinterPtr> printersByName;
    std::unordered_map<HANDLE, SpoolerHandle> handles;
    std::map<std::wstring, std::wstring> defaultPrinters;  // user SID to printer name
    bool monitorAdministrationDenied = false;
    DWORD lastJobId = 0;

    SpoolerState();

    PortPtr findPort(const std::wstring& name) const;
    // A printer that OpenPrinterW, EnumPrintersW and SetDefaultPrinterW can
    // see: pending deletion hides it.
    PrinterPtr findVisiblePrinter(const std::wstring& name) const;
    // Any printer of the name, pending deletion or not.
    PrinterPtr findAnyPrinter(const std::wstring& name) const;
    const PrinterDriver* findDriver(const std::wstring& name, const std::wstring& environment) const;
    // The open handle, or null for a closed or unknown one.
    SpoolerHandle* findHandle(HANDLE handle);
    // A new handle of the host's handle sequence, counted on its printer.
    HANDLE openHandle(SpoolerHandle handle);

    void insertPort(PortPtr port);
    void erasePort(const std::wstring& name);
    void insertPrinter(PrinterPtr printer);
    // Renames a printer; users whose default it is keep it as their default.
    void renamePrinter(const PrinterPtr& printer, const std::wstring& newName);
    // Takes a printer marked for deletion out of the machine once no handle
    // holds it and its queue is empty, as the spooler does; it is no longer
    // anyone's default.
    void retireIfFinished(const PrinterPtr& printer);
    // Whether a printer (pending deletion or not) prints to the port.
    bool portInUse(const std::wstring& portName) const;
    DWORD nextJobId() { return ++lastJobId; }
};

// Puts a job at the end of the printer's queue, with the next job id when
// it has none, and answers its id.
DWORD queueJob(SpoolerState& state, SpoolerPrinter& printer, PrintJob job);

// An open handle of the kind a call serves. A closed or unknown handle is
// ERROR_INVALID_HANDLE; a handle of another kind (an Xcv handle given to a
// printer call, a printer handle given to XcvDataW) is
// ERROR_INVALID_PARAMETER, the Print System Remote Protocol's answer to a
// handle of an object the call does not take (MS-RPRN 3.1.4.1.11); a printer
// handle without the rights the call needs is ERROR_ACCESS_DENIED.
struct HandleLookup {
    DWORD error = 0;
    SpoolerHandle* handle = nullptr;
};
HandleLookup lookupPrinterHandle(SpoolerState& state, HANDLE handle, ACCESS_MASK needed);
HandleLookup lookupXcvHandle(SpoolerState& state, HANDLE handle);

// Runs `work` on the spooler's state with its lock held; answers what
// `work` answers.
template <class Work>
auto withSpooler(Work work) {
    SpoolerState& state = Host::get().state<SpoolerState>();
    std::lock_guard<std::mutex> hold(state.mutex);
    return work(state);
}

// The one print processor of the machine and the datatypes it takes
// (EnumPrintProcessorDatatypes of "winprint"); both compare regardless of case.
constexpr const wchar_t* kPrintProcessor = L"winprint";
bool isPrintProcessor(const std::wstring& name);
bool isProcessorDatatype(const std::wstring& datatype);

// The names of a printer's pPortName, which may list several ports
// separated by commas.
std::vector<std::wstring> portNamesOf(const std::wstring& portList);

// The end of a BOOL call: TRUE, or FALSE with the error as the last error.
inline BOOL succeedOrFail(DWORD error) {
    if (!error) return TRUE;
    SetLastError(error);
    return FALSE;
}

}  // namespace winspool
}  // namespace simhost
