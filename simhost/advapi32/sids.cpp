// Security identifiers: their bytes, their S-1-... text and the SDDL
// abbreviations of well-known ones, and the SID calls of advapi32.
//
// A SID is a revision byte (1), a count of sub-authorities (at most 15), a
// 6-byte identifier authority with its most significant byte first, then the
// sub-authorities as little-endian DWORDs.
#include "simhost/advapi32/advapi32_internal.h"
#include "simhost/advapi32/sddl_names.h"
#include "simhost/advapi32/security_internal.h"
#include "simhost/core/host.h"
#include "simhost/core/text.h"

#include <algorithm>

namespace simhost {
namespace advapi32 {
namespace {

constexpr size_t kSidHeadSize = 8;
constexpr size_t kAuthorityOffset = 2;
constexpr size_t kAuthoritySize = 6;
constexpr unsigned long long kLargestAuthority = 0xFFFFFFFFFFFFull;

struct SidParts {
    unsigned long long authority = 0;
    std::vector<DWORD> subAuthorities;
};

SidBytes sidOfParts(const SidParts& parts) {
    SidBytes sid(kSidHeadSize + parts.subAuthorities.size() * sizeof(DWORD));
    sid[0] = SID_REVISION;
    sid[1] = static_cast<BYTE>(parts.subAuthorities.size());
    for (size_t index = 0; index < kAuthoritySize; ++index)
        sid[kAuthorityOffset + index] = static_cast<BYTE>(parts.authority >> (8 * (kAuthoritySize - 1 - index)));
    for (size_t index = 0; index < parts.subAuthorities.size(); ++index)
        writeDword(&sid[kSidHeadSize + index * sizeof(DWORD)], parts.subAuthorities[index]);
    return sid;
}

unsigned long long authorityOf(const BYTE* sid) {
    unsigned long long authority = 0;
    for (size_t index = 0; index < kAuthoritySize; ++index)
        authority = (authority << 8) | sid[kAuthorityOffset + index];
    return authority;
}

int digitValue(wchar_t c) {
    if (c >= L'0' && c <= L'9') return c - L'0';
    if (c >= L'a' && c <= L'f') return c - L'a' + 10;
    if (c >= L'A' && c <= L'F') return c - L'A' + 10;
    return -1;
}

// A number of at most `largest` in decimal, or after "0x" in hexadecimal
// where `hexAllowed`.
std::optional<unsigned long long> numberOfText(const std::wstring& text, unsigned long long largest,
                                               bool hexAllowed) {
    if (hexAllowed && hasHexPrefix(text)) return numberOfDigits(text.substr(2), 16, largest);
    return numberOfDigits(text, 10, largest);
}


// "S-1-<authority>-<sub-authority>...", with up to 15 sub-authorities.
std::optional<SidParts> partsOfStandardText(const std::wstring& text) {
    std::vector<std::wstring> fields = splitText(text, L'-', EmptyPieces::Keep);
    if (fields.size() < 3 || fields[0] != L"S" || fields[1] != L"1") return std::nullopt;
    if (fields.size() - 3 > SID_MAX_SUB_AUTHORITIES) return std::nullopt;
    SidParts parts;
    std::optional<unsigned long long> authority = numberOfText(fields[2], kLargestAuthority, true);
    if (!authority) return std::nullopt;
    parts.authority = *authority;
    for (size_t index = 3; index < fields.size(); ++index) {
        std::optional<unsigned long long> subAuthority = numberOfText(fields[index], 0xFFFFFFFFull, false);
        if (!subAuthority) return std::nullopt;
        parts.subAuthorities.push_back(static_cast<DWORD>(*subAuthority));
    }
    return parts;
}

const SidAbbreviation* abbreviationNamed(const std::wstring& text) {
    const auto& table = sidAbbreviations();
    auto it = std::find_if(table.begin(), table.end(),
                           [&](const SidAbbreviation& entry) { return text == entry.abbreviation; });
    return it == table.end() ? nullptr : &*it;
}

const SidAbbreviation* abbreviationOfStandardText(const std::wstring& text) {
    const auto& table = sidAbbreviations();
    auto it = std::find_if(table.begin(), table.end(), [&](const SidAbbreviation& entry) { return text == entry.sid; });
    return it == table.end() ? nullptr : &*it;
}

DWORD parseStandardText(const std::wstring& text, SidBytes& sid) {
    std::optional<SidParts> parts = partsOfStandardText(text);
    if (!parts) return ERROR_INVALID_SID;
    sid = sidOfParts(*parts);
    return ERROR_SUCCESS;
}

std::wstring hexAuthorityText(unsigned long long authority) {
    static const wchar_t kDigits[] = L"0123456789ABCDEF";
    std::wstring text = L"0x";
    for (int shift = 44; shift >= 0; shift -= 4) text += kDigits[(authority >> shift) & 0xF];
    return text;
}

}  // namespace

bool hasHexPrefix(const std::wstring& text) {
    return text.size() > 2 && text[0] == L'0' && (text[1] == L'x' || text[1] == L'X');
}

std::optional<unsigned long long> numberOfDigits(const std::wstring& digits, unsigned base,
                                                 unsigned long long largest) {
    if (digits.empty()) return std::nullopt;
    unsigned long long value = 0;
    for (wchar_t c : digits) {
        int digit = digitValue(c);
        if (digit < 0 || static_cast<unsigned>(digit) >= base) return std::nullopt;
        value = value * base + static_cast<unsigned>(digit);
        if (value > largest) return std::nullopt;
    }
    return value;
}

bool sidIsValid(const void* sid) {
    const BYTE* bytes = static_cast<const BYTE*>(sid);
    return bytes && bytes[0] == SID_REVISION && bytes[1] <= SID_MAX_SUB_AUTHORITIES;
}

DWORD sidLength(const void* sid) {
    return static_cast<DWORD>(kSidHeadSize + sizeof(DWORD) * static_cast<const BYTE*>(sid)[1]);
}

SidBytes sidCopy(const void* sid) {
    const BYTE* bytes = static_cast<const BYTE*>(sid);
    return SidBytes(bytes, bytes + sidLength(sid));
}

DWORD parseSidText(const std::wstring& text, SidBytes& sid) {
    if (const SidAbbreviation* abbreviation = abbreviationNamed(text)) {
        if (abbreviation->sid.empty()) return ERROR_NONE_MAPPED;
        return parseStandardText(abbreviation->sid, sid);
    }
    return parseStandardText(text, sid);
}

std::wstring standardSidText(const BYTE* sid) {
    unsigned long long authority = authorityOf(sid);
    std::wstring text = L"S-1-";
    text += authority <= 0xFFFFFFFFull ? std::to_wstring(authority) : hexAuthorityText(authority);
    for (BYTE index = 0; index < sid[1]; ++index)
        text += L"-" + std::to_wstring(readDword(sid + kSidHeadSize + index * sizeof(DWORD)));
    return text;
}

std::wstring sddlSidText(const BYTE* sid) {
    std::wstring text = standardSidText(sid);
    const SidAbbreviation* abbreviation = abbreviationOfStandardText(text);
    return abbreviation ? std::wstring(abbreviation->abbreviation) : text;
}

}  // namespace advapi32

std::vector<BYTE> sidFromText(const std::wstring& text) {
    advapi32::SidBytes sid;
    if (DWORD error = advapi32::parseSidText(text, sid))
        throw SecurityTextError("not a SID: \"" + narrow(text) + "\"", error);
    return sid;
}

std::wstring sidToText(const BYTE* sid) {
    if (!advapi32::sidIsValid(sid)) throw SecurityTextError("not a valid SID", ERROR_INVALID_SID);
    return advapi32::standardSidText(sid);
}

}  // namespace simhost

using namespace simhost::advapi32;

// The SID of an S-1-... text or of an SDDL abbreviation ("BA"), in a block
// the caller frees with LocalFree. A null argument is
// ERROR_INVALID_PARAMETER, a text that is no SID ERROR_INVALID_SID.
BOOL WINAPI ConvertStringSidToSidW(LPCWSTR stringSid, PSID* sid) {
    DWORD error = simhost::injectedFailure("ConvertStringSidToSidW");
    if (!error && (!stringSid || !sid)) error = ERROR_INVALID_PARAMETER;
    SidBytes bytes;
    if (!error) error = parseSidText(stringSid, bytes);
    if (error) return succeedOrFail(error);
    void* block = localCopy(bytes.data(), bytes.size());
    if (!block) return FALSE;
    *sid = block;
    return TRUE;
}

// The S-1-... text of a SID, never an abbreviation, in a block the caller
// frees with LocalFree. A SID that is not valid is ERROR_INVALID_SID, a null
// argument ERROR_INVALID_PARAMETER.
BOOL WINAPI ConvertSidToStringSidW(PSID sid, LPWSTR* stringSid) {
    DWORD error = simhost::injectedFailure("ConvertSidToStringSidW");
    if (!error && (!sid || !stringSid)) error = ERROR_INVALID_PARAMETER;
    if (!error && !sidIsValid(sid)) error = ERROR_INVALID_SID;
    if (error) return succeedOrFail(error);
    std::wstring text = standardSidText(static_cast<const BYTE*>(sid));
    void* block = localCopy(text.c_str(), (text.size() + 1) * sizeof(WCHAR));
    if (!block) return FALSE;
    *stringSid = static_cast<LPWSTR>(block);
    return TRUE;
}

// Checks the revision and the count of sub-authorities. Documented to give
// no extended error: the last error stays as it was.
BOOL WINAPI IsValidSid(PSID sid) { return sidIsValid(sid) ? TRUE : FALSE; }

// The length of a valid SID; for one that is not valid the documented answer
// is undefined, and null answers 0 here.
DWORD WINAPI GetLengthSid(PSID sid) { return sid ? sidLength(sid) : 0; }

// Copies a valid SID into a buffer of `destinationLength` bytes. A buffer too
// small is ERROR_INSUFFICIENT_BUFFER with nothing written; the caller learns
// the size needed from GetLengthSid.
BOOL WINAPI CopySid(DWORD destinationLength, PSID destination, PSID source) {
    DWORD error = simhost::injectedFailure("CopySid");
    if (!error && !sidIsValid(source)) error = ERROR_INVALID_SID;
    if (!error && (!destination || destinationLength < sidLength(source))) error = ERROR_INSUFFICIENT_BUFFER;
    if (error) return succeedOrFail(error);
    std::memcpy(destination, source, sidLength(source));
    return TRUE;
}

// Nonzero when both SIDs have the same bytes. Unequal SIDs answer zero and,
// as the documentation sends the caller to GetLastError for that answer, set
// the last error to ERROR_SUCCESS: the comparison itself did not fail.
BOOL WINAPI EqualSid(PSID sid1, PSID sid2) {
    bool equal = sidIsValid(sid1) && sidIsValid(sid2) && sidLength(sid1) == sidLength(sid2) &&
                 std::memcmp(sid1, sid2, sidLength(sid1)) == 0;
    if (equal) return TRUE;
    SetLastError(ERROR_SUCCESS);
    return FALSE;
}
