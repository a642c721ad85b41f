// A Windows client's printer preferences: the input is the JSON text of the
// `pDevMode` member of a request, laid over a printer's device mode as
// setPreferences does it (which catches what the mapping throws).
#include "foundation/ClassicJson.h"
#include "preferences/DevModeJson.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    Json::Value devModeJson;
    try {
        if (!parseWithClassicReader(text, devModeJson)) return 0;
    } catch (const std::exception&) {
        return 0;
    }
    DEVMODEW mode;
    std::memset(&mode, 0, sizeof mode);
    mode.dmSize = sizeof mode;
    try {
        PrinterUtil::jsonToDevMode(devModeJson, &mode);
    } catch (const std::exception&) {
        // A value the mapping cannot read; the caller drops the preferences.
    }
    return 0;
}
