// Changing printers: SetPrinterW's level-0 commands and levels 2, 3 and 6,
// and the host API's change of attribute bits.
#include "simhost/winspool/access.h"
#include "simhost/winspool/printer_security.h"
#include "simhost/winspool/printer_settings.h"

namespace simhost {
namespace winspool {
namespace {

// The statuses SetPrinter's PRINTER_CONTROL_SET_STATUS may not set, as
// documented.
constexpr DWORD kUnsettableStatus = PRINTER_STATUS_PAUSED | PRINTER_STATUS_PENDING_DELETION;

DWORD runCommand(SpoolerState& state, const PrinterPtr& printer, const BYTE* info, DWORD command) {
    if (command != PRINTER_CONTROL_SET_STATUS && info) return ERROR_INVALID_PARAMETER;
    switch (command) {
    case PRINTER_CONTROL_PAUSE: printer->status |= PRINTER_STATUS_PAUSED; return 0;
    case PRINTER_CONTROL_RESUME: printer->status &= ~PRINTER_STATUS_PAUSED; return 0;
    case PRINTER_CONTROL_PURGE:
        printer->jobs.clear();
        state.retireIfFinished(printer);
        return 0;
    case PRINTER_CONTROL_SET_STATUS: {
        if (!info) return ERROR_INVALID_PARAMETER;
        DWORD status = *reinterpret_cast<const DWORD*>(info);
        if (status & kUnsettableStatus) return ERROR_INVALID_PARAMETER;
        printer->status = (printer->status & PRINTER_STATUS_PAUSED) | status;
        return 0;
    }
    default: return ERROR_INVALID_PRINTER_COMMAND;
    }
}

// The descriptor a record carries, merged into the printer's when the
// handle holds the rights for each part it sets.
DWORD changeDescriptor(SpoolerPrinter& printer, ACCESS_MASK granted, PSECURITY_DESCRIPTOR descriptor) {
    CallerDescriptor incoming = readCallerDescriptor(descriptor);
    if (incoming.error) return incoming.error;
    if ((granted & rightsToSet(incoming.bytes)) != rightsToSet(incoming.bytes)) return ERROR_ACCESS_DENIED;
    printer.securityDescriptor = mergeDescriptor(printer.securityDescriptor, incoming.bytes);
    return 0;
}

DWORD setInfo2(SpoolerState& state, const SpoolerHandle& handle, const PRINTER_INFO_2W& info) {
    if (!(handle.granted & PRINTER_ACCESS_ADMINISTER)) return ERROR_ACCESS_DENIED;
    if (DWORD error = checkRequiredMembers(info)) return error;
    const SpoolerPrinter settings = settingsOf(info);
    if (DWORD error = checkSettings(state, settings, handle.printer.get())) return error;
    if (info.pSecurityDescriptor)
        if (DWORD error = changeDescriptor(*handle.printer, handle.granted, info.pSecurityDescriptor)) return error;
    applySettings(state, handle.printer, settings);
    if (info.pDevMode) handle.printer->devMode = devModeOf(info.pDevMode);
    return 0;
}

DWORD setInfo3(const SpoolerHandle& handle, const PRINTER_INFO_3& info) {
    if (!info.pSecurityDescriptor) return ERROR_INVALID_PARAMETER;
    return changeDescriptor(*handle.printer, handle.granted, info.pSecurityDescriptor);
}

DWORD setInfo6(const SpoolerHandle& handle, const PRINTER_INFO_6& info) {
    if (!(handle.granted & PRINTER_ACCESS_ADMINISTER)) return ERROR_ACCESS_DENIED;
    handle.printer->status = info.dwStatus & ~PRINTER_STATUS_PENDING_DELETION;
    return 0;
}

DWORD setPrinter(SpoolerState& state, const SpoolerHandle& handle, DWORD level, const BYTE* info, DWORD command) {
    if (command && level) return ERROR_INVALID_PARAMETER;
    if (level == 0) {
        if (!(handle.granted & PRINTER_ACCESS_ADMINISTER)) return ERROR_ACCESS_DENIED;
        return runCommand(state, handle.printer, info, command);
    }
    if (level != 2 && level != 3 && level != 6) return ERROR_INVALID_LEVEL;
    if (!info) return ERROR_INVALID_PARAMETER;
    if (level == 2) return setInfo2(state, handle, *reinterpret_cast<const PRINTER_INFO_2W*>(info));
    if (level == 3) return setInfo3(handle, *reinterpret_cast<const PRINTER_INFO_3*>(info));
    return setInfo6(handle, *reinterpret_cast<const PRINTER_INFO_6*>(info));
}

}  // namespace

// Administering the printer is what SetPrinterW needs to change attributes.
DWORD changePrinterAttributes(const std::wstring& printerName, DWORD set, DWORD clear) {
    return withSpooler([&](SpoolerState& state) -> DWORD {
        PrinterPtr printer = state.findVisiblePrinter(printerName);
        if (!printer) return ERROR_INVALID_PRINTER_NAME;
        if (decidePrinterAccess(*printer, PRINTER_ACCESS_ADMINISTER).error) return ERROR_ACCESS_DENIED;
        printer->attributes = (printer->attributes & ~clear) | set;
        return 0;
    });
}

}  // namespace winspool
}  // namespace simhost

using namespace simhost::winspool;

// Level 0 runs a command: PRINTER_CONTROL_PAUSE, _RESUME, _PURGE (drops
// every job; the printer goes if it was marked for deletion and no handle
// holds it) and _SET_STATUS (the DWORD *info points to, PAUSED and
// PENDING_DELETION refused with ERROR_INVALID_PARAMETER, as documented); a
// record with another command is ERROR_INVALID_PARAMETER, an unknown
// command ERROR_INVALID_PRINTER_COMMAND. A command with a level is
// ERROR_INVALID_PARAMETER. Level 2 sets what AddPrinterW takes, checked the
// same way; a null pSecurityDescriptor keeps the security and a null
// pDevMode the device mode; pServerName, Status, cJobs and AveragePPM are
// ignored. Level 3 sets the descriptor parts it holds; level 6 the status.
// Commands and levels 2 and 6 need PRINTER_ACCESS_ADMINISTER; a descriptor
// needs WRITE_OWNER for owner and group and WRITE_DAC for the DACL
// (SetPrinter's table); lacking them is ERROR_ACCESS_DENIED. Other levels:
// ERROR_INVALID_LEVEL.
BOOL WINAPI SetPrinterW(HANDLE printer, DWORD level, LPBYTE info, DWORD command) {
    if (DWORD e = simhost::injectedFailure("SetPrinterW")) return succeedOrFail(e);
    return withSpooler([&](SpoolerState& state) {
        HandleLookup lookup = lookupPrinterHandle(state, printer, 0);
        if (lookup.error) return succeedOrFail(lookup.error);
        return succeedOrFail(setPrinter(state, *lookup.handle, level, info, command));
    });
}
