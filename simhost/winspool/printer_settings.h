// The settings a PRINTER_INFO_2W carries into AddPrinterW and SetPrinterW,
// and the checks both make of them.
#pragma once

#include "simhost/winspool/spooler_state.h"

#include <string>
#include <vector>

namespace simhost {
namespace winspool {

// The longest printer name the spooler keeps, in characters.
constexpr size_t kMaxPrinterNameLength = 220;

// The members AddPrinterW and SetPrinterW level 2 set. Neither takes
// pServerName, Status, cJobs or AveragePPM from the caller (documented as
// reserved for GetPrinter, and ignored by SetPrinter). A null datatype is
// the print processor's default, RAW.
SpoolerPrinter settingsOf(const PRINTER_INFO_2W& info);
// ERROR_INVALID_PARAMETER when a member both calls need is null: the
// printer, port, driver and print processor names.
DWORD checkRequiredMembers(const PRINTER_INFO_2W& info);

// The spooler's checks, in order: the name (ERROR_INVALID_PRINTER_NAME for
// an empty one, one over kMaxPrinterNameLength characters or one with ','
// or '\'), a name another visible printer has (ERROR_PRINTER_ALREADY_EXISTS;
// `self` is the printer being changed, or null), the driver for this
// machine's environment (ERROR_UNKNOWN_PRINTER_DRIVER), each port
// (ERROR_UNKNOWN_PORT), the print processor (ERROR_UNKNOWN_PRINTPROCESSOR),
// the datatype (ERROR_INVALID_DATATYPE).
DWORD checkSettings(const SpoolerState& state, const SpoolerPrinter& settings, const SpoolerPrinter* self);
// The same as a reason, for the host API's exceptions.
std::string refusalText(DWORD error);

// Copies the settable members, renaming the printer in the state's index.
void applySettings(SpoolerState& state, const PrinterPtr& printer, const SpoolerPrinter& settings);

// A caller's device mode as a block: dmSize bytes of record and
// dmDriverExtra bytes behind it.
std::vector<BYTE> devModeOf(const DEVMODEW* devMode);
// The driver's default device mode, named after the printer.
std::vector<BYTE> driverDevModeFor(const SpoolerState& state, const SpoolerPrinter& printer);

}  // namespace winspool
}  // namespace simhost
