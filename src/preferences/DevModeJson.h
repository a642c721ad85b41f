// A Windows client's printer preferences: its device mode as a JSON object
// whose keys are named after the members of DEVMODEW, laid over the device
// mode the new printer has, and stored for it. The mapping goes one way:
// nothing writes a device mode back to JSON.
#pragma once

#include "platform/win32.h"

#include <json/json.h>

namespace PrinterUtil {

// Lays the client's values over `devMode`. Members and dmFields bits the
// JSON does not name keep the driver's values, and so do the driver's
// private bytes behind the record. Throws the JSON library's exception for
// a dmDriverVersion that is no unsigned number.
void jsonToDevMode(const Json::Value& json, DEVMODEW* devMode);

// Reads the printer's device mode, lays `pDevMode` over it and stores it
// with SetPrinterW at level 2: non-zero when the printer took it, else 0.
int setPreferences(Json::Value pDevMode, HANDLE hPrinter);

}  // namespace PrinterUtil
