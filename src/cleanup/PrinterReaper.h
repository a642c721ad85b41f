// The reaper: finds the service's TCP/IP ports on the spooler and removes
// those whose plugin is gone, with the printers on them. A plugin listens on
// its port's loopback address for as long as its session lives, so a port
// whose address the reaper can bind itself is abandoned. Nothing is
// remembered between passes: every decision is made from what the spooler
// reports at that moment, so a pass works the same after a crash or reboot.
#pragma once

#include "platform/win32.h"

#include <cstdint>

namespace PrinterReaper {

// One pass over every port. With `force`, the service's ports and printers
// go even where a listener is still bound (the service's own start and
// stop). The number of ports deleted.
uint32_t reapPrinterPorts(uint32_t force);
// The TCP port number the port points at, or 0 when it is not a port of the
// service: monitor configuration at 127.0.1.20, RAW protocol.
uint32_t getVexorPrinterPortTcpPortNumber(const wchar_t* portName);
// 1 when something holds the address, or when that could not be tested.
int isAddrBound(const sockaddr_in& address);
// Destroys (if `destroy`) the service's printers on the port: 0 when a
// printer that is not the service's uses it, else 1.
int reapPrinter(const wchar_t* portName, uint32_t destroy);
// A printer of the service: "Local" in its name and "Vexor" in its port's.
int isPrinterVexor(const PRINTER_INFO_2W& printer);
// Purges and deletes the printer: 1 if it was deleted.
int DestroyPrinter(const wchar_t* printerName);
// Deletes the port through the TCP/IP monitor: 1 if the monitor deleted it.
int deletePrinterPort(const wchar_t* portName);

}  // namespace PrinterReaper
