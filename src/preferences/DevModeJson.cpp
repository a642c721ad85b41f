#include "preferences/DevModeJson.h"

#include "foundation/JsonGetters.h"
#include "foundation/SpoolerAccess.h"
#include "foundation/StaticLogger.h"

#include <cstddef>
#include <cwchar>
#include <exception>
#include <string>

namespace {

constexpr WORD kSpecVersion = 0x401;
constexpr DWORD kPrinterInfoLevel = 2;

// A member the table names: its key, the member, and the dmFields bit its
// key adds.
template <class Value>
struct Member {
    const char* key;
    Value& (*member)(DEVMODEW&);
    DWORD field;
};
using ShortMember = Member<short>;
using LongMember = Member<DWORD>;

#define VX_SHORT(name, bit) \
    ShortMember { #name, [](DEVMODEW& mode) -> short& { return mode.name; }, bit }
#define VX_LONG(name, bit) \
    LongMember { #name, [](DEVMODEW& mode) -> DWORD& { return mode.name; }, bit }

// The signed 16-bit members in the order their keys are read, then the
// 32-bit ones, which are read after the form name.
const ShortMember kShortMembers[] = {
    VX_SHORT(dmOrientation, 0x1),
    VX_SHORT(dmPaperSize, 0x2),
    VX_SHORT(dmPaperLength, 0x4),
    VX_SHORT(dmPaperWidth, 0x8),
    VX_SHORT(dmScale, 0x10),
    VX_SHORT(dmCopies, 0x100),
    VX_SHORT(dmDefaultSource, 0x200),
    VX_SHORT(dmPrintQuality, 0x400),
    VX_SHORT(dmColor, 0x800),
    VX_SHORT(dmDuplex, 0x1000),
    VX_SHORT(dmYResolution, 0x2000),
    VX_SHORT(dmTTOption, 0x4000),
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
// and the member kept its value; an absent key changes neither.
template <class Row, size_t Count, class Read>
void readMembers(const Json::Value& json, DEVMODEW& mode, const Row (&rows)[Count], Read read) {
    for (const Row& row : rows) {
        if (!json.isMember(row.key)) continue;
        auto& member = row.member(mode);
        member = read(row.key, member);
        mode.dmFields |= row.field;
    }
}

// The signed members keep the low 16 bits of what the client sent.
void readShortMembers(const Json::Value& json, DEVMODEW& mode) {
    readMembers(json, mode, kShortMembers, [&](const char* key, short current) {
        return static_cast<short>(getJsonInt(key, json, current) & 0xFFFF);
    });
}

void readLongMembers(const Json::Value& json, DEVMODEW& mode) {
    readMembers(json, mode, kLongMembers,
                [&](const char* key, DWORD current) { return getJsonUInt(key, json, current); });
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
    readShortMembers(json, *devMode);
    if (copyName(getJsonWString("dmFormName", json, L""), devMode->dmFormName)) devMode->dmFields |= kFormNameField;
    readLongMembers(json, *devMode);
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
