// The spooler's installed printer drivers, read afresh for every question.
#pragma once

#include "drivers/DriverInfoRecord.h"
#include "platform/win32.h"

#include <string>

namespace PrinterUtil {

// Every installed driver, of every processor architecture, at `level` (1, 3
// or 8) in one GlobalAlloc block for the caller to GlobalFree: the count, or
// 0 with a null block on failure and when there are none.
DWORD getPrinterDrivers(DWORD level, BYTE** buffer);
// Whether a driver of that name (any case) is installed.
bool printerDriverInstalled(const std::wstring& name);
// The first installed driver whose stored hardware id is `hwid`, with or
// without the bus parts; "" when none is.
std::wstring hardwareIdToInstalledPrinterDriverName(const std::wstring& hwid, bool withBus);
// Installs a driver the catalogue offers under that name, with the
// platform's printer installation tool, trying each INF that offers it in
// turn: true if a driver of exactly that name is installed afterwards.
bool installDriverByName(const std::wstring& name, const DriverInfoMap& driverInfoMap);

}  // namespace PrinterUtil
