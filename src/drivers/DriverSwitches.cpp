// The host-wide switches that turn parts of driver selection off: DWORD
// values in the service's own registry key, read once per service run. A
// non-zero value disables the feature; zero, a missing value and a failed
// read leave it enabled.
#include "foundation/StaticLogger.h"
#include "service/VexorPrintingService.h"

namespace {

constexpr const wchar_t* kSwitchesKey = L"SYSTEM\\CurrentControlSet\\Services\\Vexor_Printing";

struct SwitchTexts {
    const wchar_t* valueName;
    const char* failedRead;
    const char* disabledWith;  // takes the value
    const char* enabled;
};

constexpr SwitchTexts kBracketCheck = {
    L"DisableBracketCheck",
    "Failed to open registry key for removal of Trailing Brackets. "
    "use:'HKLM\\SYSTEM\\CurrentControlSet\\Services\\Vexor_Printing\\DisableBracketCheck'",
    "Removal of Trailing Brackets explicitly disabled with:%u", "Removal of Trailing Brackets enabled"};
constexpr SwitchTexts kSeriesMatch = {
    L"DisableSeriesMatch",
    "Failed to open registry key for matching 'series'. "
    "use:'HKLM\\SYSTEM\\CurrentControlSet\\Services\\Vexor_Printing\\DisableSeriesMatch'",
    "Addition of 'series' to driver names explicitly disabled with:%u", "Addition of 'series' to driver names enabled"};
constexpr SwitchTexts kJsonOverrides = {
    L"DisableJsonOverrides",
    "Failed to open registry key for disableing JSON overrides. "
    "use:'HKLM\\SYSTEM\\CurrentControlSet\\Services\\Vexor_Printing\\DisableJsonOverrides'",
    "JSON overrides disabled with:%u", "JSON overrides enabled"};

// The first call reads the value and logs the one line that applies, as a
// line of `caller`; later calls answer from what was read.
bool featureEnabled(VexorPrintingService::FeatureSwitch& feature, const SwitchTexts& texts, const char* caller) {
    if (feature.read.exchange(true)) return feature.value.load() == 0;
    DWORD value = 0;
    DWORD size = sizeof value;
    if (RegGetValueW(HKEY_LOCAL_MACHINE, kSwitchesKey, texts.valueName, RRF_RT_REG_DWORD, nullptr, &value, &size) !=
        ERROR_SUCCESS) {
        VX_LOG_AS(caller, kLogNormal, kNoLastError, 3, "%s", texts.failedRead);
        return true;
    }
    feature.value.store(value);
    if (value != 0) {
        VX_LOG_AS(caller, kLogNormal, kNoLastError, 3, texts.disabledWith, static_cast<unsigned>(value));
        return false;
    }
    VX_LOG_AS(caller, kLogNormal, kNoLastError, 3, "%s", texts.enabled);
    return true;
}

}  // namespace

bool VexorPrintingService::removeTrailingBracketsEnabled() {
    VX_DECLARE_FUNCTION_NAME(self);
    return featureEnabled(bracketCheckSwitch, kBracketCheck, self.c_str());
}

bool VexorPrintingService::addSeriesEnabled() {
    VX_DECLARE_FUNCTION_NAME(self);
    return featureEnabled(seriesMatchSwitch, kSeriesMatch, self.c_str());
}

bool VexorPrintingService::jsonOverridesEnabled() {
    VX_DECLARE_FUNCTION_NAME(self);
    return featureEnabled(jsonOverridesSwitch, kJsonOverrides, self.c_str());
}
