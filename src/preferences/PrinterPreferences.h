// What a client asks of its new printer's settings: a Windows client's
// device mode, or else a Mac client's paper. Printer creation runs this
// under the identity of the session's user.
#pragma once

#include "platform/win32.h"

#include <json/json.h>

namespace PrinterUtil {

// A `pDevMode` object goes to setPreferences and no media key is read; any
// other request, `pDevMode` absent or not an object, has its paper chosen
// from the media keys (setMacPaper). So a client gets one or the other,
// never both. Lines of the paper choice are those of `handler`. The result
// of either is not reported: a printer without its preferences is still a
// printer.
void applyClientPreferences(const Json::Value& request, HANDLE hPrinter, const char* handler);

}  // namespace PrinterUtil
