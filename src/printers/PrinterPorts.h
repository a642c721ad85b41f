// The raw TCP/IP ports of the service, made and removed through the
// spooler's standard TCP/IP port monitor (handlers `_addPrinterPort` and
// `_deletePrinterPort` of the service, and the reaper).
#pragma once

#include "platform/win32.h"

namespace PrinterUtil {

// The monitor's transceive interface, as OpenPrinter2W names it.
constexpr const wchar_t* kTcpPortMonitor = L",XcvMonitor Standard TCP/IP Port";

// Closes a handle of the monitor's transceive interface; a failure is logged
// as a line of `handler`, the function the handle served.
void closePortMonitor(HANDLE monitor, const char* handler);

}  // namespace PrinterUtil
