// The names of SDDL: ACE types, ACE flags, DACL and SACL flags, access
// rights and well-known SIDs. Each table serves both directions, reading
// text and writing it.
#pragma once

#include "simhost/advapi32/security.h"

#include <optional>
#include <string>
#include <vector>

namespace simhost {
namespace advapi32 {

struct SddlName {
    const wchar_t* text;
    DWORD value;
};
using SddlNames = std::vector<SddlName>;

// "A", "D", "AU", "AL", "ML", and the object types "OA", "OD", "OU", "OL".
const SddlNames& aceTypeNames();
// "OI", "CI", "NP", "IO", "ID", "SA", "FA", in the order of their bits.
const SddlNames& aceFlagNames();
// "P", "AR", "AI" as control bits of the DACL or of the SACL.
const SddlNames& daclFlagNames();
const SddlNames& saclFlagNames();
// The SDDL text of a null list among the list flags.
extern const wchar_t* const kNullAclText;

// The value of a name of the table, if it is one.
std::optional<DWORD> valueNamed(const SddlNames& names, const std::wstring& text);
// The name of a value of the table, or null.
const wchar_t* nameOf(const SddlNames& names, DWORD value);
// A run of names of the table with nothing between them ("OICIIO"), as the
// union of their values; nothing if some part is no name of the table.
std::optional<DWORD> valueOfNames(const SddlNames& names, const std::wstring& text);
// The names of the table's values set in `value`, in the table's order.
std::wstring namesOfValue(const SddlNames& names, DWORD value);

// The access mask of a rights field: names ("LCSWRC"), "0x" and hexadecimal
// digits, or a number in decimal (octal with a leading 0); empty is 0.
std::optional<ACCESS_MASK> rightsOfText(const std::wstring& text);
// A mask as Windows writes it: the one name of a composite right equal to the
// whole mask (FA, FR, FW, FX, KA, KR, KW, KX), else the names of its bits in
// rising bit order when every bit has one, else "0x" and lower-case
// hexadecimal. In a mandatory label entry the three low bits are NW, NR, NX.
std::wstring textOfRights(ACCESS_MASK mask, bool labelEntry);

struct SidAbbreviation {
    const wchar_t* abbreviation;
    std::wstring sid;  // the standard text; empty for a Windows domain's SID
};
// Every abbreviation the SDDL knows. Those of a Windows domain (DA, DU, ...)
// have no SID on this machine, which belongs to none.
const std::vector<SidAbbreviation>& sidAbbreviations();

}  // namespace advapi32
}  // namespace simhost
