// The driver catalogue: the service's own index of every printer driver
// staged on the host (the class driver list of the printer class), with the
// hardware ids their INF files name. Built once by the worker before the
// first command is read; read-only afterwards.
#pragma once

#include "drivers/DriverInfoRecord.h"
#include "platform/win32.h"

#include <string>

namespace PrinterUtil {

// Bits of hardwareId2Driver's flags.
constexpr unsigned kHwidWithBus = 1;        // ids compare with their bus part
constexpr unsigned kHwidInstalledOnly = 2;  // only installed drivers can match
constexpr unsigned kHwidAllIds = 4;         // a record's search goes on after a hit

// Fills both maps from the class driver list. With `removeBrackets` a name
// ending in "(...)" also stands under its key without them.
void getDriverInfoDetail(DriverInfoMap& driverInfoMap, DriverHwIdMap& driverHwIdMap, bool removeBrackets);
// Reads the record's INF for the hardware ids of its models; fills the
// record, and the map when one is given.
void getDriverInfoHwIdsDetail(DriverInfoRecord* record, DriverHwIdMap* driverHwIdMap);
// The driver the catalogue offers for a hardware id, or "": a direct match
// on a record's first id first come, else an installed driver last come,
// else a staged driver first come.
std::wstring hardwareId2Driver(const std::wstring& hwid, const DriverHwIdMap& driverHwIdMap, unsigned flags);

// "USBPRINT\AcmeLaserBox" without its bus part: "AcmeLaserBox".
std::wstring stripEnumerator(const std::wstring& hwid);
// The key of driverHwIdMap: the id without its bus part, in lower case.
std::wstring hwidKey(const std::wstring& hwid);
// The key of driverInfoMap: trimmed, lower case, without blanks.
std::wstring normaliseDriverName(const std::wstring& name);
// Ids equal without regard to case, with or without their bus parts.
bool hwidsEqual(const std::wstring& a, const std::wstring& b, bool withBus);

}  // namespace PrinterUtil
