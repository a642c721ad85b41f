// The model shared by advapi32's security calls: SIDs as bytes, descriptors
// decoded into records and encoded back in the self-relative layout, and
// SDDL text read into and written from those records. The Windows calls and
// the host's C++ API (security.h) are both thin layers over these.
#pragma once

#include "simhost/advapi32/security.h"
#include "simhost/kernel32/kernel32.h"

#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace simhost {
namespace advapi32 {

using SidBytes = std::vector<BYTE>;

// ---- Little-endian fields read and written byte-wise, whatever the alignment ----
inline WORD readWord(const BYTE* at) {
    WORD value;
    std::memcpy(&value, at, sizeof value);
    return value;
}
inline DWORD readDword(const BYTE* at) {
    DWORD value;
    std::memcpy(&value, at, sizeof value);
    return value;
}
inline void writeWord(BYTE* at, WORD value) { std::memcpy(at, &value, sizeof value); }
inline void writeDword(BYTE* at, DWORD value) { std::memcpy(at, &value, sizeof value); }

// A LocalAlloc block holding a copy of `size` bytes, as the conversion calls
// hand out; null, with LocalAlloc's last error, when it cannot be had.
inline void* localCopy(const void* data, size_t size) {
    void* block = LocalAlloc(LMEM_FIXED, size);
    if (block) std::memcpy(block, data, size);
    return block;
}

// ---- Numbers of SID and SDDL text (sids.cpp) ----
// Whether text starts with "0x" or "0X" and has more after it.
bool hasHexPrefix(const std::wstring& text);
// Digits of one base (up to 16, either case) making at most `largest`;
// nothing for no digit, a character of another base, or a larger number.
std::optional<unsigned long long> numberOfDigits(const std::wstring& digits, unsigned base,
                                                 unsigned long long largest);

// ---- SIDs (sids.cpp) ----
// Revision 1 with at most 15 sub-authorities.
bool sidIsValid(const void* sid);
// 8 bytes of head and 4 per sub-authority.
DWORD sidLength(const void* sid);
SidBytes sidCopy(const void* sid);
// A SID from its S-1-... text or an SDDL abbreviation: ERROR_SUCCESS,
// ERROR_INVALID_SID for a text that is neither, ERROR_NONE_MAPPED for an
// abbreviation of a Windows domain the machine does not belong to.
DWORD parseSidText(const std::wstring& text, SidBytes& sid);
// "S-1-5-18": the identifier authority in decimal below 2^32, else as 0x and
// 12 hexadecimal digits; sub-authorities in decimal.
std::wstring standardSidText(const BYTE* sid);
// The SDDL abbreviation of a well-known SID ("SY"), else its standard text.
std::wstring sddlSidText(const BYTE* sid);

// ---- Descriptors (security_descriptors.cpp) ----
struct AceRecord {
    BYTE type = ACCESS_ALLOWED_ACE_TYPE;
    BYTE flags = 0;
    ACCESS_MASK mask = 0;
    SidBytes sid;
};
using AceList = std::vector<AceRecord>;
// The entry types made of a header, a mask and a SID: allowed, denied,
// audit, alarm and mandatory label.
bool aceHasMaskAndSid(BYTE type);

// A descriptor's content. The control's SE_DACL_PRESENT and SE_SACL_PRESENT
// say whether each list is there; a list that is there without entries in
// its optional is a null list.
struct DescriptorRecord {
    SECURITY_DESCRIPTOR_CONTROL control = SE_SELF_RELATIVE;
    SidBytes owner;  // empty when the descriptor has no owner
    SidBytes group;
    std::optional<AceList> sacl;
    std::optional<AceList> dacl;
};

// Where the parts of a descriptor in memory are, in either form.
struct DescriptorView {
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    const BYTE* owner = nullptr;
    const BYTE* group = nullptr;
    const BYTE* sacl = nullptr;
    const BYTE* dacl = nullptr;
    bool selfRelative = false;
};

// ERROR_UNKNOWN_REVISION for a descriptor whose revision is not 1,
// ERROR_INVALID_SECURITY_DESCR for none at all.
DWORD viewDescriptor(const void* descriptor, DescriptorView& view);
// The view's checks, then every SID and list: ERROR_INVALID_SID or
// ERROR_INVALID_ACL for a part that is not well formed. Lists may hold the
// entries made of a mask and a SID (allowed, denied, audit, alarm,
// mandatory label); object entries are not modelled and refused as invalid.
DWORD decodeDescriptor(const void* descriptor, DescriptorRecord& record);
// One self-relative block: the 20-byte head, then SACL, DACL, owner, group.
std::vector<BYTE> encodeSelfRelative(const DescriptorRecord& record);
// Bytes an ACL of these entries takes.
size_t aclSize(const AceList& aces);
// The length GetSecurityDescriptorLength answers: the head of the form the
// descriptor is in and each part present, rounded up to 4 bytes.
DWORD descriptorLength(const DescriptorView& view);

// ---- SDDL (sddl_reader.cpp, sddl_writer.cpp) ----
// ERROR_SUCCESS or the error ConvertStringSecurityDescriptorToSecurityDescriptorW
// gives: ERROR_INVALID_PARAMETER for text outside the four components,
// ERROR_INVALID_ACL for a DACL or SACL it cannot read, ERROR_INVALID_SID or
// ERROR_NONE_MAPPED for a SID.
DWORD readSddl(const std::wstring& text, DescriptorRecord& record);
std::wstring writeSddl(const DescriptorRecord& record, SECURITY_INFORMATION parts);

}  // namespace advapi32
}  // namespace simhost
