#include "foundation/PolicySettings.h"

#include "foundation/StaticLogger.h"

namespace {

const wchar_t* const kPolicyKeys[] = {
    L"Software\\Policies\\Quillion\\Vexor\\vexor_admin",
    L"Software\\Policies\\Quillion\\Vexor\\vexor_admin_defaults",
};

}  // namespace

DWORD getGPOValue(const wchar_t* valueName, DWORD defaultValue) {
    DWORD value = defaultValue;
    for (const wchar_t* key : kPolicyKeys) {
        DWORD size = sizeof value;
        LONG result = RegGetValueW(HKEY_LOCAL_MACHINE, key, valueName, RRF_RT_ANY, nullptr, &value, &size);
        if (result == ERROR_SUCCESS) return value;
        // A missing key or value is the usual case and not worth a line.
        if (result != ERROR_FILE_NOT_FOUND)
            VX_LOG(kLogError, kNoLastError, 4, "Could not read gpo setting '%ls\\%ls', error: %d", key, valueName,
                   static_cast<int>(result));
    }
    return defaultValue;
}

const char* remotePrintingModeText(DWORD mode) {
    switch (mode) {
        case 0:
            return "Remote printing is disabled through GPO setting.";
        case 1:
            return "Basic Remote printing is enabled through GPO setting.";
        case 2:
            return "Basic and Advanced Remote printing for Windows clients is enabled through GPO setting.";
        default:
            return "GPO specifies an unknown printing mode, falling back to default (basic).";
    }
}
