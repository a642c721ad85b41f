// The names of SDDL, each kept in one table that both the reader and the
// writer use. They are the names the ACE strings, SID strings and security
// descriptor string format pages of the Windows documentation list.
#include "simhost/advapi32/sddl_names.h"
#include "simhost/advapi32/security_internal.h"

#include <algorithm>
#include <cwchar>

namespace simhost {

const wchar_t* const kMachineDomainSid = L"S-1-5-21-2718281828-3141592653-1618033988";

namespace advapi32 {
namespace {

// What a name of the rights field stands for when a mask is written.
enum class RightKind {
    Bit,        // one bit, written wherever that bit is set
    LabelBit,   // one bit, written for it in a mandatory label entry
    Composite,  // several bits, written only for exactly that mask
};

struct RightName {
    const wchar_t* text;
    ACCESS_MASK mask;
    RightKind kind;
};

// The standard rights plus the object's own rights, as files define them.
constexpr ACCESS_MASK kFileAllAccess = STANDARD_RIGHTS_REQUIRED | SYNCHRONIZE | 0x1FF;
constexpr ACCESS_MASK kFileGenericRead = STANDARD_RIGHTS_READ | SYNCHRONIZE | 0x0089;
constexpr ACCESS_MASK kFileGenericWrite = STANDARD_RIGHTS_WRITE | SYNCHRONIZE | 0x0116;
constexpr ACCESS_MASK kFileGenericExecute = STANDARD_RIGHTS_EXECUTE | SYNCHRONIZE | 0x00A0;

// Composite rights come in the order Windows prefers them when two share a
// mask (KR before KX).
const RightName kRightNames[] = {
    {L"GA", GENERIC_ALL, RightKind::Bit},
    {L"GR", GENERIC_READ, RightKind::Bit},
    {L"GW", GENERIC_WRITE, RightKind::Bit},
    {L"GX", GENERIC_EXECUTE, RightKind::Bit},
    {L"RC", READ_CONTROL, RightKind::Bit},
    {L"SD", DELETE, RightKind::Bit},
    {L"WD", WRITE_DAC, RightKind::Bit},
    {L"WO", WRITE_OWNER, RightKind::Bit},
    {L"RP", 0x00000010, RightKind::Bit},  // read property
    {L"WP", 0x00000020, RightKind::Bit},  // write property
    {L"CC", 0x00000001, RightKind::Bit},  // create child
    {L"DC", 0x00000002, RightKind::Bit},  // delete child
    {L"LC", 0x00000004, RightKind::Bit},  // list children
    {L"SW", 0x00000008, RightKind::Bit},  // self write
    {L"LO", 0x00000080, RightKind::Bit},  // list object
    {L"DT", 0x00000040, RightKind::Bit},  // delete tree
    {L"CR", 0x00000100, RightKind::Bit},  // control access
    {L"FA", kFileAllAccess, RightKind::Composite},
    {L"FR", kFileGenericRead, RightKind::Composite},
    {L"FW", kFileGenericWrite, RightKind::Composite},
    {L"FX", kFileGenericExecute, RightKind::Composite},
    {L"KA", KEY_ALL_ACCESS, RightKind::Composite},
    {L"KR", KEY_READ, RightKind::Composite},
    {L"KW", KEY_WRITE, RightKind::Composite},
    {L"KX", KEY_EXECUTE, RightKind::Composite},
    {L"NR", SYSTEM_MANDATORY_LABEL_NO_READ_UP, RightKind::LabelBit},
    {L"NW", SYSTEM_MANDATORY_LABEL_NO_WRITE_UP, RightKind::LabelBit},
    {L"NX", SYSTEM_MANDATORY_LABEL_NO_EXECUTE_UP, RightKind::LabelBit},
};

const SddlNames& rightNames() {
    static const SddlNames names = [] {
        SddlNames all;
        for (const RightName& right : kRightNames) all.push_back({right.text, right.mask});
        return all;
    }();
    return names;
}

const wchar_t* compositeNamed(ACCESS_MASK mask) {
    for (const RightName& right : kRightNames)
        if (right.kind == RightKind::Composite && right.mask == mask) return right.text;
    return nullptr;
}

const wchar_t* bitNamed(ACCESS_MASK bit, RightKind kind) {
    for (const RightName& right : kRightNames)
        if (right.kind == kind && right.mask == bit) return right.text;
    return nullptr;
}

const wchar_t* nameOfBit(ACCESS_MASK bit, bool labelEntry) {
    const wchar_t* labelName = labelEntry ? bitNamed(bit, RightKind::LabelBit) : nullptr;
    return labelName ? labelName : bitNamed(bit, RightKind::Bit);
}

std::wstring hexText(ACCESS_MASK mask) {
    static const wchar_t kDigits[] = L"0123456789abcdef";
    std::wstring digits;
    do {
        digits.insert(digits.begin(), kDigits[mask & 0xF]);
        mask >>= 4;
    } while (mask);
    return L"0x" + digits;
}

constexpr unsigned long long kLargestMask = 0xFFFFFFFFull;

std::optional<ACCESS_MASK> maskOfDigits(const std::wstring& digits, unsigned base) {
    std::optional<unsigned long long> value = numberOfDigits(digits, base, kLargestMask);
    if (!value) return std::nullopt;
    return static_cast<ACCESS_MASK>(*value);
}

bool startsWithDigit(const std::wstring& text) { return !text.empty() && text[0] >= L'0' && text[0] <= L'9'; }

// The longest name of the table at `position` of `text`, or null.
const SddlName* longestNameAt(const SddlNames& names, const std::wstring& text, size_t position) {
    const SddlName* best = nullptr;
    for (const SddlName& name : names) {
        size_t length = std::wcslen(name.text);
        bool fits = text.compare(position, length, name.text) == 0;
        if (fits && (!best || length > std::wcslen(best->text))) best = &name;
    }
    return best;
}

}  // namespace

const wchar_t* const kNullAclText = L"NO_ACCESS_CONTROL";

const SddlNames& aceTypeNames() {
    static const SddlNames names = {
        {L"A", ACCESS_ALLOWED_ACE_TYPE},         {L"D", ACCESS_DENIED_ACE_TYPE},
        {L"AU", SYSTEM_AUDIT_ACE_TYPE},          {L"AL", SYSTEM_ALARM_ACE_TYPE},
        {L"ML", SYSTEM_MANDATORY_LABEL_ACE_TYPE}, {L"OA", ACCESS_ALLOWED_OBJECT_ACE_TYPE},
        {L"OD", ACCESS_DENIED_OBJECT_ACE_TYPE},  {L"OU", SYSTEM_AUDIT_OBJECT_ACE_TYPE},
        {L"OL", SYSTEM_ALARM_OBJECT_ACE_TYPE},
    };
    return names;
}

const SddlNames& aceFlagNames() {
    static const SddlNames names = {
        {L"OI", OBJECT_INHERIT_ACE},         {L"CI", CONTAINER_INHERIT_ACE}, {L"NP", NO_PROPAGATE_INHERIT_ACE},
        {L"IO", INHERIT_ONLY_ACE},           {L"ID", INHERITED_ACE},         {L"SA", SUCCESSFUL_ACCESS_ACE_FLAG},
        {L"FA", FAILED_ACCESS_ACE_FLAG},
    };
    return names;
}

const SddlNames& daclFlagNames() {
    static const SddlNames names = {
        {L"P", SE_DACL_PROTECTED}, {L"AR", SE_DACL_AUTO_INHERIT_REQ}, {L"AI", SE_DACL_AUTO_INHERITED}};
    return names;
}

const SddlNames& saclFlagNames() {
    static const SddlNames names = {
        {L"P", SE_SACL_PROTECTED}, {L"AR", SE_SACL_AUTO_INHERIT_REQ}, {L"AI", SE_SACL_AUTO_INHERITED}};
    return names;
}

std::optional<DWORD> valueNamed(const SddlNames& names, const std::wstring& text) {
    auto it = std::find_if(names.begin(), names.end(), [&](const SddlName& name) { return text == name.text; });
    if (it == names.end()) return std::nullopt;
    return it->value;
}

const wchar_t* nameOf(const SddlNames& names, DWORD value) {
    auto it = std::find_if(names.begin(), names.end(), [&](const SddlName& name) { return name.value == value; });
    return it == names.end() ? nullptr : it->text;
}

std::optional<DWORD> valueOfNames(const SddlNames& names, const std::wstring& text) {
    DWORD value = 0;
    for (size_t position = 0; position < text.size();) {
        const SddlName* name = longestNameAt(names, text, position);
        if (!name) return std::nullopt;
        value |= name->value;
        position += std::wcslen(name->text);
    }
    return value;
}

std::wstring namesOfValue(const SddlNames& names, DWORD value) {
    std::wstring text;
    for (const SddlName& name : names)
        if (value & name.value) text += name.text;
    return text;
}

std::optional<ACCESS_MASK> rightsOfText(const std::wstring& text) {
    if (hasHexPrefix(text)) return maskOfDigits(text.substr(2), 16);
    if (startsWithDigit(text)) return maskOfDigits(text, text.size() > 1 && text[0] == L'0' ? 8 : 10);
    return valueOfNames(rightNames(), text);
}

std::wstring textOfRights(ACCESS_MASK mask, bool labelEntry) {
    if (const wchar_t* composite = compositeNamed(mask)) return composite;
    std::wstring text;
    for (int shift = 0; shift < 32; ++shift) {
        ACCESS_MASK bit = ACCESS_MASK{1} << shift;
        if (!(mask & bit)) continue;
        const wchar_t* name = nameOfBit(bit, labelEntry);
        if (!name) return hexText(mask);
        text += name;
    }
    return text;
}

const std::vector<SidAbbreviation>& sidAbbreviations() {
    static const std::vector<SidAbbreviation> table = {
        {L"AA", L"S-1-5-32-579"}, {L"AC", L"S-1-15-2-1"},   {L"AN", L"S-1-5-7"},
        {L"AO", L"S-1-5-32-548"}, {L"AU", L"S-1-5-11"},     {L"BA", L"S-1-5-32-544"},
        {L"BG", L"S-1-5-32-546"}, {L"BO", L"S-1-5-32-551"}, {L"BU", L"S-1-5-32-545"},
        {L"CD", L"S-1-5-32-574"}, {L"CG", L"S-1-3-1"},      {L"CO", L"S-1-3-0"},
        {L"CY", L"S-1-5-32-569"}, {L"ED", L"S-1-5-9"},      {L"ER", L"S-1-5-32-573"},
        {L"ES", L"S-1-5-32-576"}, {L"HA", L"S-1-5-32-578"}, {L"HI", L"S-1-16-12288"},
        {L"IS", L"S-1-5-32-568"}, {L"IU", L"S-1-5-4"},      {L"LA", std::wstring(kMachineDomainSid) + L"-500"},
        {L"LG", std::wstring(kMachineDomainSid) + L"-501"}, {L"LS", L"S-1-5-19"},
        {L"LU", L"S-1-5-32-559"}, {L"LW", L"S-1-16-4096"},  {L"ME", L"S-1-16-8192"},
        {L"MP", L"S-1-16-8448"},  {L"MS", L"S-1-5-32-577"}, {L"MU", L"S-1-5-32-558"},
        {L"NO", L"S-1-5-32-556"}, {L"NS", L"S-1-5-20"},     {L"NU", L"S-1-5-2"},
        {L"OW", L"S-1-3-4"},      {L"PO", L"S-1-5-32-550"}, {L"PS", L"S-1-5-10"},
        {L"PU", L"S-1-5-32-547"}, {L"RA", L"S-1-5-32-575"}, {L"RC", L"S-1-5-12"},
        {L"RD", L"S-1-5-32-555"}, {L"RE", L"S-1-5-32-552"}, {L"RM", L"S-1-5-32-580"},
        {L"RU", L"S-1-5-32-554"}, {L"SI", L"S-1-16-16384"}, {L"SO", L"S-1-5-32-549"},
        {L"SU", L"S-1-5-6"},      {L"SY", L"S-1-5-18"},     {L"UD", L"S-1-5-84-0-0-0-0-0"},
        {L"WD", L"S-1-1-0"},      {L"WR", L"S-1-5-33"},
        // Groups of a Windows domain.
        {L"CA", L""}, {L"CN", L""}, {L"DA", L""}, {L"DC", L""}, {L"DD", L""}, {L"DG", L""},
        {L"DU", L""}, {L"EA", L""}, {L"PA", L""}, {L"RO", L""}, {L"RS", L""}, {L"SA", L""},
    };
    return table;
}

}  // namespace advapi32
}  // namespace simhost
