// A Mac client's paper: the media names its printer reports, in the
// self-describing form of the PWG media standard ("na_letter_8.5x11in"),
// looked up in a fixed table of sizes and written into the new printer's
// device mode.
#pragma once

#include "platform/win32.h"

#include <json/json.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace PrinterUtil {

// A media size. Width and length are tenths of a millimetre, as the device
// mode's paper members take them. The two other names are kept with the
// size but never consulted: only `pwgName` is looked up.
struct MacPaperEntry {
    const char* pwgName;     // the key; never null
    const char* legacyName;  // the older IPP keyword, or null
    const char* ppdName;     // the page-size name of the PPD form, or null
    int32_t width;
    int32_t length;
    int32_t paperConstant;  // dmPaperSize, or kNoPaperConstant
};

// The platform has no paper constant for the size: it goes by its
// dimensions.
constexpr int32_t kNoPaperConstant = 65535;
constexpr size_t kMacPaperTableSize = 164;
extern const MacPaperEntry macPaperTable[kMacPaperTableSize];

// Sets the paper of the media named exactly `mediaName` (the whole PWG
// name, case-sensitive) in the device mode: its constant, or its width and
// length when the platform has none. 1 if the device mode was changed, 0
// for a name the table lacks. The device mode must not be null.
int UpdateDevmodeWithMacPaper(const char* mediaName, DEVMODEW* devMode);

// The one media name a printer should default to: `media`, else
// `media-default`, else the first of `media-available`, else the first of
// `media-supported`; empty when none gives one. The lines are those of
// `handler`, the printer creation that asks. A list or object where a name
// is wanted throws the JSON library's exception.
std::string chooseMacMediaName(const Json::Value& request, const char* handler);

// Writes the paper of the chosen media name into the printer's device mode
// and stores it with SetPrinterW at level 2. A name the table lacks, or a
// printer whose record cannot be read, leaves the driver's paper.
void setMacPaper(const Json::Value& request, HANDLE hPrinter, const char* handler);

}  // namespace PrinterUtil
