#include "preferences/PrinterPreferences.h"

#include "preferences/DevModeJson.h"
#include "preferences/MacPaper.h"

namespace PrinterUtil {

void applyClientPreferences(const Json::Value& request, HANDLE hPrinter, const char* handler) {
    if (request.isMember("pDevMode") && request["pDevMode"].isObject())
        setPreferences(request["pDevMode"], hPrinter);
    else
        setMacPaper(request, hPrinter, handler);
}

}  // namespace PrinterUtil
