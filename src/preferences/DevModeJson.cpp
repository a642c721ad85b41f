#include "preferences/DevModeJson.h"

#include "foundation/JsonGetters.h"
#include "foundation/SpoolerAccess.h"
#include "foundation/StaticLogger.h"

#include <cwchar>
#include <exception>
#include <string>

namespace {

constexpr WORD kSpecVersion = 0x401;
constexpr DWORD kPrinterInfoLevel = 2;

// The signed 16-bit members in the order their keys are read, each with
// the dmFields bit its key adds.
struct ShortMember {
    const char* key;
    short& (*member)(DEVMODEW&);
    DWORD field;
};

// The 32-bit members, read after the form name.
struct LongMember {
    const char* key;
    DWORD& (*member)(DEVMODEW&);
    DWORD field;
};

#define VX_SHORT(name, bit) \
    ShortMember { #name, [](DEVMODEW& mode) -> short& { return mode.name; }, bit }
#define VX_LONG(name, bit) \
    LongMember { #name, [](DEVMODEW& mode) -> DWORD& { return mode.name; }, bit }

const ShortMember kShortMembers[] = {
    VX_SHORT(dmOrientation, 0x1),      VX_SHORT(dmPaperSize, 0x2),   VX_SHORT(dmPaperLength, 0x4),
    VX_SHORT(dmPaperWidth, 0x8),       VX_SHORT(dmScale, 0x10),      VX_SHORT(dmCopies, 0x100),
    VX_SHORT(dmDefaultSource, 0x200),  VX_SHORT(dmPrintQuality, 0x400), VX_SHORT(dmColor, 0x800),
    VX_SHORT(dmDuplex, 0x1000),        VX_SHORT(dmYResolution, 0x2000), VX_SHORT(dmTTOption, 0x4000),
    VX_SHORT(dmCollate, 0x8000),
};

const LongMember kLongMembers[] = {
    VX_LONG(dmNup, 0x40),
    VX_LONG(dmICMMethod, 0x800000),
    VX_LONG(dmICMIntent, 0x1000000),
    VX_LONG(dmMediaType, 0x2000000),
    VX_LONG(dmDitherType, 0x4000000),
};

#undef VX_SHORT
#undef VX_LONG

constexpr DWORD kFormNameField = 0x10000;

// A name of 1 to 31 characters is copied with its terminator; an empty one,
// or one that would not fit whole, leaves the member as it is.
bool copyName(const std::wstring& text, WCHAR (&member)[32]) {
    if (text.empty() || text.size() >= 32) return false;
    std::wmemcpy(member, text.c_str(), text.size() + 1);
    return true;
}

// The client's dmDriverVersion replaces the low 16 bits the member holds.
// It is read without a getter's protection, so a value that is no unsigned
// number throws out of the mapping and nothing of it is stored.
void readDriverVersion(const Json::Value& json, DEVMODEW& mode) {
    const Json::Value current(static_cast<Json::UInt>(mode.dmDriverVersion));
    const Json::UInt version = json.get("dmDriverVersion", current).asUInt();
    mode.dmDriverVersion = static_cast<WORD>(version & 0xFFFF);
}

// A key that is present sets its bit even when its value did not convert
// and the member kept its value.
void readNumbers(const Json::Value& json, DEVMODEW& mode, const std::wstring& formName) {
    for (const ShortMember& row : kShortMembers) {
        if (!json.isMember(row.key)) continue;
        short& member = row.member(mode);
        member = static_cast<short>(getJsonInt(row.key, json, member) & 0xFFFF);
        mode.dmFields |= row.field;
    }
    if (copyName(formName, mode.dmFormName)) mode.dmFields |= kFormNameField;
    for (const LongMember& row : kLongMembers) {
        if (!json.isMember(row.key)) continue;
        DWORD& member = row.member(mode);
        member = getJsonUInt(row.key, json, member);
        mode.dmFields |= row.field;
    }
}

}  // namespace

namespace PrinterUtil {

void jsonToDevMode(const Json::Value& json, DEVMODEW* devMode) {
    if (!devMode) {
        // The wording names the other direction; it is kept as it stands.
        VX_LOG(kLogError, kNoLastError, 5, "devModeToJson called with NULL struct");
        return;
    }
    copyName(getJsonWString("dmDeviceName", json, L""), devMode->dmDeviceName);
    devMode->dmSpecVersion = kSpecVersion;
    readDriverVersion(json, *devMode);
    readNumbers(json, *devMode, getJsonWString("dmFormName", json, L""));
    devMode->dmReserved1 = 0;
    devMode->dmReserved2 = 0;
    devMode->dmPanningWidth = 0;
    devMode->dmPanningHeight = 0;
}

int setPreferences(Json::Value pDevMode, HANDLE hPrinter) {
    VX_DECLARE_FUNCTION_NAME(self);
    VX_LOG(kLogNormal, kNoLastError, 2, "Setting printer preferences");
    PRINTER_INFO_2W* info = nullptr;
    BOOL stored = FALSE;
    try {
        info = reinterpret_cast<PRINTER_INFO_2W*>(getPrinter(hPrinter, kPrinterInfoLevel));
        if (!info) {
            VX_LOG(kLogError, kNoLastError, 4, "Failed to get PRINTER_INFO_2");
            return 0;
        }
        if (!info->pDevMode) {
            VX_LOG(kLogError, kNoLastError, 4, "GetPrinter 2 didn't fill in the DEVMODE");
            GlobalFree(info);
            return 0;
        }
        jsonToDevMode(pDevMode, info->pDevMode);
        stored = SetPrinterW(hPrinter, kPrinterInfoLevel, reinterpret_cast<LPBYTE>(info), 0);
        if (stored)
            VX_LOG(kLogNormal, kNoLastError, 2, "setPreferences - success");
        else
            VX_LOG(kLogError, kWithLastError, 4, "SetPrinter 2 error:");
    } catch (const std::exception& e) {
        VX_LOG(kLogNormal, kNoLastError, 3, "%s:  Catching exception:  %s", self.c_str(), e.what());
        stored = FALSE;
    }
    GlobalFree(info);
    return stored;
}

}  // namespace PrinterUtil
