// The spooler's variable-size answers, fetched with the platform's two-call
// pattern: ask for the size, allocate, ask again. Each function owns its
// retry and its log lines, and hands out a block with a fixed owner:
//
//   getPrinter (both forms), getPrintersInfo   GlobalAlloc   -> GlobalFree
//   getPrinterPortInfo2                        malloc        -> free
//   getPrinterPortData1                        the caller's PORT_DATA_1
#pragma once

#include "platform/win32.h"

namespace PrinterUtil {

// GetPrinterW at `level` for an open printer; null on failure.
BYTE* getPrinter(HANDLE printer, DWORD level);
// PRINTER_INFO_2 of the printer of that name, opened for use; null on failure.
PRINTER_INFO_2W* getPrinter(const wchar_t* printerName);
// Every local and connected printer at level 2: the count, 0 for none, -1 on
// failure. `printers` is null unless a block is handed out.
int getPrintersInfo(PRINTER_INFO_2W** printers);
// Every port at level 2: the count; 0 for none or when the size query
// failed; -1 when out of memory; the negated last error when the fetch
// failed. `ports` is null unless a block is handed out.
int getPrinterPortInfo2(PORT_INFO_2W** ports);
// Opens the TCP/IP monitor's interface of one port (",XcvPort <name>") to
// administer it. On failure logs `failureLine` with the last error, and for
// an account that may not administer ports a second line, both as lines of
// `caller`.
bool openPortToAdminister(const wchar_t* portName, HANDLE* monitor, const char* caller, const char* failureLine);
// The TCP/IP monitor's configuration of one port into `portData`: 1 or 0.
int getPrinterPortData1(const wchar_t* portName, PORT_DATA_1* portData);

}  // namespace PrinterUtil
