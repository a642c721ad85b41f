// Removing printers and changing their status: the spooler routines under
// the handlers `_deletePrinter`, `_deletePrinterAndPort` and
// `_setPrinterStatus`, which the printer creation and the reaper use too.
#pragma once

#include "platform/win32.h"

namespace PrinterUtil {

// Sets the printer's status through PRINTER_INFO_6: 1 on success, else 0.
int setPrinterStatus(const wchar_t* printerName, DWORD status);
// Purges the printer's queue, then marks it for deletion: the result of
// DeletePrinter, or 0 for a null or all-ones handle. The handle stays open.
BOOL deletePrinter(HANDLE printer);
// Drops every job of the printer.
void removeJobsFromQueue(HANDLE printer);

}  // namespace PrinterUtil
