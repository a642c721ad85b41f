#include "simhost/winspool/devmode_members.h"

#include <cstring>
#include <cwchar>

namespace simhost {
namespace winspool {
namespace {

using Kind = DevModeMemberKind;

#define VX_MEMBER(member, kind) \
    DevModeMember { #member, offsetof(DEVMODEW, member), kind }

const std::vector<DevModeMember> kMembers = {
    VX_MEMBER(dmDeviceName, Kind::Text),     VX_MEMBER(dmSpecVersion, Kind::Word),
    VX_MEMBER(dmDriverVersion, Kind::Word),  VX_MEMBER(dmSize, Kind::Word),
    VX_MEMBER(dmDriverExtra, Kind::Word),    VX_MEMBER(dmFields, Kind::Dword),
    VX_MEMBER(dmOrientation, Kind::Short),   VX_MEMBER(dmPaperSize, Kind::Short),
    VX_MEMBER(dmPaperLength, Kind::Short),   VX_MEMBER(dmPaperWidth, Kind::Short),
    VX_MEMBER(dmScale, Kind::Short),         VX_MEMBER(dmCopies, Kind::Short),
    VX_MEMBER(dmDefaultSource, Kind::Short), VX_MEMBER(dmPrintQuality, Kind::Short),
    VX_MEMBER(dmColor, Kind::Short),         VX_MEMBER(dmDuplex, Kind::Short),
    VX_MEMBER(dmYResolution, Kind::Short),   VX_MEMBER(dmTTOption, Kind::Short),
    VX_MEMBER(dmCollate, Kind::Short),       VX_MEMBER(dmFormName, Kind::Text),
    VX_MEMBER(dmLogPixels, Kind::Word),      VX_MEMBER(dmBitsPerPel, Kind::Dword),
    VX_MEMBER(dmPelsWidth, Kind::Dword),     VX_MEMBER(dmPelsHeight, Kind::Dword),
    VX_MEMBER(dmNup, Kind::Dword),           VX_MEMBER(dmDisplayFrequency, Kind::Dword),
    VX_MEMBER(dmICMMethod, Kind::Dword),     VX_MEMBER(dmICMIntent, Kind::Dword),
    VX_MEMBER(dmMediaType, Kind::Dword),     VX_MEMBER(dmDitherType, Kind::Dword),
    VX_MEMBER(dmReserved1, Kind::Dword),     VX_MEMBER(dmReserved2, Kind::Dword),
    VX_MEMBER(dmPanningWidth, Kind::Dword),  VX_MEMBER(dmPanningHeight, Kind::Dword),
};

#undef VX_MEMBER

const BYTE* at(const DEVMODEW& mode, const DevModeMember& member) {
    return reinterpret_cast<const BYTE*>(&mode) + member.offset;
}
BYTE* at(DEVMODEW& mode, const DevModeMember& member) { return reinterpret_cast<BYTE*>(&mode) + member.offset; }

template <class Value>
long long read(const DEVMODEW& mode, const DevModeMember& member) {
    Value value;
    std::memcpy(&value, at(mode, member), sizeof value);
    return value;
}

template <class Value>
void write(DEVMODEW& mode, const DevModeMember& member, long long number) {
    Value value = static_cast<Value>(number);
    std::memcpy(at(mode, member), &value, sizeof value);
}

}  // namespace

const std::vector<DevModeMember>& devModeMembers() { return kMembers; }

const DevModeMember* devModeMember(const std::string& name) {
    for (const DevModeMember& member : kMembers)
        if (name == member.name) return &member;
    return nullptr;
}

long long smallestValue(const DevModeMember& member) { return member.kind == Kind::Short ? -32768 : 0; }

long long largestValue(const DevModeMember& member) {
    switch (member.kind) {
    case Kind::Short: return 32767;
    case Kind::Word: return 65535;
    default: return 4294967295LL;
    }
}

long long memberNumber(const DEVMODEW& mode, const DevModeMember& member) {
    switch (member.kind) {
    case Kind::Short: return read<short>(mode, member);
    case Kind::Word: return read<WORD>(mode, member);
    default: return read<DWORD>(mode, member);
    }
}

void setMemberNumber(DEVMODEW& mode, const DevModeMember& member, long long value) {
    switch (member.kind) {
    case Kind::Short: write<short>(mode, member, value); break;
    case Kind::Word: write<WORD>(mode, member, value); break;
    default: write<DWORD>(mode, member, value); break;
    }
}

// Both text members hold 32 characters.
std::wstring memberText(const DEVMODEW& mode, const DevModeMember& member) {
    const WCHAR* text = reinterpret_cast<const WCHAR*>(at(mode, member));
    size_t length = 0;
    while (length < CCHDEVICENAME && text[length]) ++length;
    return std::wstring(text, length);
}

void setMemberText(DEVMODEW& mode, const DevModeMember& member, const std::wstring& text) {
    WCHAR* field = reinterpret_cast<WCHAR*>(at(mode, member));
    std::wmemset(field, L'\0', CCHDEVICENAME);
    std::wcsncpy(field, text.c_str(), CCHDEVICENAME - 1);
}

}  // namespace winspool
}  // namespace simhost
