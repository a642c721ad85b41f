// Adding and deleting printers: AddPrinterW, DeletePrinter, and the host
// API's addPrinter.
#include "simhost/core/text.h"
#include "simhost/winspool/printer_security.h"
#include "simhost/winspool/printer_settings.h"

#include <stdexcept>

namespace simhost {
namespace winspool {
namespace {

struct Added {
    DWORD error = 0;
    HANDLE handle = nullptr;
};

HANDLE failAdd(DWORD error) {
    SetLastError(error);
    return nullptr;
}

HANDLE openAllAccess(SpoolerState& state, const PrinterPtr& printer) {
    return state.openHandle({HandleKind::Printer, printer, nullptr, {}, PRINTER_ALL_ACCESS});
}

// AddPrinter's documented exception: a printer of the name pending
// deletion is kept and takes the new settings, as if SetPrinter had been
// called, and is no longer to be deleted.
Added revive(SpoolerState& state, const PrinterPtr& printer, const SpoolerPrinter& settings,
             const PRINTER_INFO_2W& info) {
    if (DWORD error = checkSettings(state, settings, printer.get())) return {error};
    CallerDescriptor descriptor;
    if (info.pSecurityDescriptor) descriptor = readCallerDescriptor(info.pSecurityDescriptor);
    if (descriptor.error) return {descriptor.error};
    applySettings(state, printer, settings);
    if (!descriptor.bytes.empty()) printer->securityDescriptor = mergeDescriptor(printer->securityDescriptor, descriptor.bytes);
    if (info.pDevMode) printer->devMode = devModeOf(info.pDevMode);
    printer->pendingDeletion = false;
    return {0, openAllAccess(state, printer)};
}

Added addNew(SpoolerState& state, const SpoolerPrinter& settings, const PRINTER_INFO_2W& info) {
    if (DWORD error = checkSettings(state, settings, nullptr)) return {error};
    CallerDescriptor descriptor{0, defaultPrinterDescriptor()};
    if (info.pSecurityDescriptor) descriptor = readCallerDescriptor(info.pSecurityDescriptor);
    if (descriptor.error) return {descriptor.error};
    auto printer = std::make_shared<SpoolerPrinter>(settings);
    printer->securityDescriptor = std::move(descriptor.bytes);
    printer->devMode = info.pDevMode ? devModeOf(info.pDevMode) : driverDevModeFor(state, *printer);
    state.insertPrinter(printer);
    return {0, openAllAccess(state, printer)};
}

}  // namespace

void addPrinter(SpoolerPrinter printer) {
    withSpooler([&](SpoolerState& state) {
        if (state.findAnyPrinter(printer.name))
            throw std::invalid_argument("printer \"" + narrow(printer.name) + "\": " +
                                        refusalText(ERROR_PRINTER_ALREADY_EXISTS));
        if (DWORD error = checkSettings(state, printer, nullptr))
            throw std::invalid_argument("printer \"" + narrow(printer.name) + "\": " + refusalText(error));
        auto added = std::make_shared<SpoolerPrinter>(std::move(printer));
        added->pendingDeletion = false;
        added->openHandles = 0;
        if (added->securityDescriptor.empty()) added->securityDescriptor = defaultPrinterDescriptor();
        if (added->devMode.empty()) added->devMode = driverDevModeFor(state, *added);
        std::vector<PrintJob> jobs = std::move(added->jobs);
        added->jobs.clear();
        for (PrintJob& job : jobs) queueJob(state, *added, std::move(job));
        state.insertPrinter(added);
    });
}

}  // namespace winspool
}  // namespace simhost

using namespace simhost::winspool;

// The new printer's handle, with PRINTER_ALL_ACCESS, as documented; null
// with the last error on failure. Level 2 only (else ERROR_INVALID_LEVEL);
// a server name other than this machine's (null or empty) is
// ERROR_INVALID_NAME; a null record or a null printer, port, driver or print
// processor name is ERROR_INVALID_PARAMETER; then the checks of
// checkSettings in their order, and a descriptor that is not valid is
// ERROR_INVALID_SECURITY_DESCR. A null pSecurityDescriptor gives the
// spooler's default descriptor, a null pDevMode the driver's device mode.
// Status, cJobs and AveragePPM are not taken (reserved for GetPrinter). A
// printer of the same name pending deletion is not an error: it takes the
// new settings and stays (AddPrinter's remarks).
HANDLE WINAPI AddPrinterW(LPWSTR serverName, DWORD level, LPBYTE printer) {
    if (DWORD e = simhost::injectedFailure("AddPrinterW")) return failAdd(e);
    if (serverName && *serverName) return failAdd(ERROR_INVALID_NAME);
    if (level != 2) return failAdd(ERROR_INVALID_LEVEL);
    if (!printer) return failAdd(ERROR_INVALID_PARAMETER);
    const PRINTER_INFO_2W& info = *reinterpret_cast<const PRINTER_INFO_2W*>(printer);
    if (DWORD error = checkRequiredMembers(info)) return failAdd(error);
    const SpoolerPrinter settings = settingsOf(info);
    Added added = withSpooler([&](SpoolerState& state) {
        PrinterPtr existing = state.findAnyPrinter(settings.name);
        if (existing && existing->pendingDeletion) return revive(state, existing, settings, info);
        return addNew(state, settings, info);
    });
    return added.error ? failAdd(added.error) : added.handle;
}

// Marks the printer for deletion (PRINTER_STATUS_PENDING_DELETION): it
// leaves the machine once its last handle is closed and its queue is empty,
// and meanwhile OpenPrinterW and EnumPrintersW no longer see it (MS-RPRN
// 3.1.4.2.4). The handle stays open. Needs DELETE on the handle; a paused
// printer with jobs is ERROR_ACCESS_DENIED, as documented.
BOOL WINAPI DeletePrinter(HANDLE printer) {
    if (DWORD e = simhost::injectedFailure("DeletePrinter")) return succeedOrFail(e);
    return withSpooler([&](SpoolerState& state) {
        HandleLookup lookup = lookupPrinterHandle(state, printer, DELETE);
        if (lookup.error) return succeedOrFail(lookup.error);
        SpoolerPrinter& target = *lookup.handle->printer;
        if ((target.status & PRINTER_STATUS_PAUSED) && !target.jobs.empty()) return succeedOrFail(ERROR_ACCESS_DENIED);
        target.pendingDeletion = true;
        return TRUE;
    });
}
