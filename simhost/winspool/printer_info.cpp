// Reading printers: GetPrinterW and EnumPrintersW, both through the one
// two-call size protocol of record_block.h.
#include "simhost/winspool/printer_security.h"
#include "simhost/winspool/record_block.h"

namespace simhost {
namespace winspool {
namespace {

// A printer as one caller may see it: the descriptor parts it may read.
struct PrinterView {
    const SpoolerPrinter* printer;
    std::vector<BYTE> descriptor;
};

DWORD reportedStatus(const SpoolerPrinter& printer) {
    return printer.status | (printer.pendingDeletion ? PRINTER_STATUS_PENDING_DELETION : 0);
}

void fillInfo2(PRINTER_INFO_2W& record, RecordBlock& block, const PrinterView& view) {
    const SpoolerPrinter& printer = *view.printer;
    record.pServerName = nullptr;  // a printer of this machine
    record.pPrinterName = block.text(printer.name);
    record.pShareName = block.text(printer.shareName);
    record.pPortName = block.text(printer.portName);
    record.pDriverName = block.text(printer.driverName);
    record.pComment = block.text(printer.comment);
    record.pLocation = block.text(printer.location);
    record.pDevMode = reinterpret_cast<LPDEVMODEW>(block.bytes(printer.devMode));
    record.pSepFile = block.text(printer.separatorFile);
    record.pPrintProcessor = block.text(printer.printProcessor);
    record.pDatatype = block.text(printer.datatype);
    record.pParameters = block.text(printer.parameters);
    record.pSecurityDescriptor = block.bytes(view.descriptor);
    record.Attributes = printer.attributes;
    record.Priority = printer.priority;
    record.DefaultPriority = printer.defaultPriority;
    record.StartTime = printer.startTime;
    record.UntilTime = printer.untilTime;
    record.Status = reportedStatus(printer);
    record.cJobs = static_cast<DWORD>(printer.jobs.size());
    record.AveragePPM = 0;
}

void fillInfo3(PRINTER_INFO_3& record, RecordBlock& block, const PrinterView& view) {
    record.pSecurityDescriptor = block.bytes(view.descriptor);
}

void fillInfo4(PRINTER_INFO_4W& record, RecordBlock& block, const PrinterView& view) {
    record.pPrinterName = block.text(view.printer->name);
    record.pServerName = nullptr;
    record.Attributes = view.printer->attributes;
}

void fillInfo6(PRINTER_INFO_6& record, RecordBlock&, const PrinterView& view) {
    record.dwStatus = reportedStatus(*view.printer);
}

template <class Record, class Fill>
BlockAnswer answerViews(const std::vector<PrinterView>& views, LPBYTE buffer, DWORD size, Fill fill) {
    return answerRecords<Record>(views, buffer, size, fill);
}

BlockAnswer answerGet(const SpoolerHandle& handle, DWORD level, LPBYTE buffer, DWORD size) {
    const SpoolerPrinter& printer = *handle.printer;
    switch (level) {
    case 2:
        return answerViews<PRINTER_INFO_2W>({{&printer, readableParts(printer.securityDescriptor, handle.granted)}},
                                            buffer, size, fillInfo2);
    case 3:
        if (!(handle.granted & READ_CONTROL)) return {ERROR_ACCESS_DENIED};
        return answerViews<PRINTER_INFO_3>({{&printer, readableParts(printer.securityDescriptor, handle.granted)}},
                                           buffer, size, fillInfo3);
    case 4: return answerViews<PRINTER_INFO_4W>({{&printer, {}}}, buffer, size, fillInfo4);
    case 6: return answerViews<PRINTER_INFO_6>({{&printer, {}}}, buffer, size, fillInfo6);
    default: return {ERROR_INVALID_LEVEL};
    }
}

// The printers an enumeration lists: those of this machine for
// PRINTER_ENUM_LOCAL or PRINTER_ENUM_NAME (its name being this machine's),
// none for PRINTER_ENUM_CONNECTIONS alone (the machine has no connections
// to other servers' printers), only shared ones with PRINTER_ENUM_SHARED.
// Printers pending deletion are not listed (MS-RPRN 3.1.4.2.4).
std::vector<PrinterView> listedPrinters(const SpoolerState& state, DWORD flags) {
    std::vector<PrinterView> views;
    if (!(flags & (PRINTER_ENUM_LOCAL | PRINTER_ENUM_NAME))) return views;
    views.reserve(state.printers.size());
    for (const PrinterPtr& printer : state.printers) {
        if (printer->pendingDeletion) continue;
        if ((flags & PRINTER_ENUM_SHARED) && !(printer->attributes & PRINTER_ATTRIBUTE_SHARED)) continue;
        views.push_back({printer.get(), {}});
    }
    return views;
}

}  // namespace

}  // namespace winspool
}  // namespace simhost

using namespace simhost::winspool;

// Levels 2, 3, 4 and 6 (PRINTER_INFO_2W, _3, _4W, _6); another level is
// ERROR_INVALID_LEVEL. The record and everything it points to come in one
// block; a buffer smaller than that block fails with
// ERROR_INSUFFICIENT_BUFFER and *needed set to its size, as documented, and
// a buffer that suffices leaves *needed at the bytes used. The descriptor
// holds only the parts the handle may read (owner, group and DACL need
// READ_CONTROL: level 2 shows none without it, level 3 is refused with
// ERROR_ACCESS_DENIED). Status includes PRINTER_STATUS_PENDING_DELETION for
// a printer marked for deletion. A closed handle: ERROR_INVALID_HANDLE; an
// Xcv handle: ERROR_INVALID_PARAMETER.
BOOL WINAPI GetPrinterW(HANDLE printer, DWORD level, LPBYTE buffer, DWORD bufferSize, LPDWORD needed) {
    if (DWORD e = simhost::injectedFailure("GetPrinterW")) return succeedOrFail(e);
    if (DWORD e = checkBlockArguments(buffer, bufferSize, needed)) return succeedOrFail(e);
    return withSpooler([&](SpoolerState& state) {
        HandleLookup lookup = lookupPrinterHandle(state, printer, 0);
        if (lookup.error) return succeedOrFail(lookup.error);
        BlockAnswer answer = answerGet(*lookup.handle, level, buffer, bufferSize);
        if (answer.error && answer.error != ERROR_INSUFFICIENT_BUFFER) return succeedOrFail(answer.error);
        return finishGet(answer, needed);
    });
}

// Levels 2 and 4, for the printers of this machine (listedPrinters); the
// name, a server name, must be null or empty (this machine), else
// ERROR_INVALID_NAME. The size protocol of GetPrinterW: the size needed is
// taken anew at each call, so a printer added between the size query and
// the fetch makes the fetch fail with ERROR_INSUFFICIENT_BUFFER and the new
// size. PRINTER_INFO_2W's pSecurityDescriptor is null, as documented. No
// printers: TRUE, 0 bytes, 0 records.
BOOL WINAPI EnumPrintersW(DWORD flags, LPWSTR name, DWORD level, LPBYTE buffer, DWORD bufferSize, LPDWORD needed,
                          LPDWORD returned) {
    if (DWORD e = simhost::injectedFailure("EnumPrintersW")) return succeedOrFail(e);
    if (DWORD e = checkBlockArguments(buffer, bufferSize, needed, returned)) return succeedOrFail(e);
    if (level != 2 && level != 4) return succeedOrFail(ERROR_INVALID_LEVEL);
    if (name && *name) return succeedOrFail(ERROR_INVALID_NAME);
    return withSpooler([&](SpoolerState& state) {
        std::vector<PrinterView> views = listedPrinters(state, flags);
        BlockAnswer answer = level == 2 ? answerViews<PRINTER_INFO_2W>(views, buffer, bufferSize, fillInfo2)
                                        : answerViews<PRINTER_INFO_4W>(views, buffer, bufferSize, fillInfo4);
        return finishEnum(answer, needed, returned);
    });
}
