// Reading SDDL text into a descriptor record: "O:" and "G:" with a SID,
// "D:" and "S:" with list flags and entries "(type;flags;rights;;;sid)", in
// any order, each at most once. Names are matched as written, upper case.
//
// Errors, as ConvertStringSecurityDescriptorToSecurityDescriptorW reports
// them: text that does not start a component, or a component given twice, is
// ERROR_INVALID_PARAMETER; a DACL or SACL whose flags or entries cannot be
// read (an unknown type, flag or right, a missing parenthesis, a field too
// many or too few) is ERROR_INVALID_ACL; a SID that cannot be read, the empty
// trustee of an entry among them, is ERROR_INVALID_SID, and an abbreviation
// of a Windows domain's group ERROR_NONE_MAPPED.
#include "simhost/advapi32/sddl_names.h"
#include "simhost/core/text.h"
#include "simhost/advapi32/security_internal.h"

#include <cwchar>

namespace simhost {
namespace advapi32 {
namespace {

constexpr size_t kLargestAcl = 0xFFFF;
constexpr size_t kAceFields = 6;

bool isComponentTag(wchar_t c) { return c == L'O' || c == L'G' || c == L'D' || c == L'S'; }

bool componentStartsAt(const std::wstring& text, size_t position) {
    return position + 1 < text.size() && isComponentTag(text[position]) && text[position + 1] == L':';
}

size_t nextComponentFrom(const std::wstring& text, size_t position) {
    while (position < text.size() && !componentStartsAt(text, position)) ++position;
    return position;
}

// The end of a list's flags: its first entry, the next component, or the end.
size_t endOfListFlags(const std::wstring& text, size_t position) {
    while (position < text.size() && text[position] != L'(' && !componentStartsAt(text, position)) ++position;
    return position;
}

// The documented conversion of an allowed object entry without either GUID
// into a plain allowed entry; object entries with GUIDs are not modelled.
std::optional<BYTE> aceTypeOfFields(const std::vector<std::wstring>& fields) {
    std::optional<DWORD> type = valueNamed(aceTypeNames(), fields[0]);
    if (!type || !fields[3].empty() || !fields[4].empty()) return std::nullopt;
    if (*type == ACCESS_ALLOWED_OBJECT_ACE_TYPE) type = ACCESS_ALLOWED_ACE_TYPE;
    if (!aceHasMaskAndSid(static_cast<BYTE>(*type))) return std::nullopt;
    return static_cast<BYTE>(*type);
}

// One entry: the text between its parentheses.
DWORD readAce(const std::wstring& text, AceRecord& ace) {
    std::vector<std::wstring> fields = splitText(text, L';', EmptyPieces::Keep);
    if (fields.size() != kAceFields) return ERROR_INVALID_ACL;
    std::optional<BYTE> type = aceTypeOfFields(fields);
    std::optional<DWORD> flags = valueOfNames(aceFlagNames(), fields[1]);
    std::optional<ACCESS_MASK> mask = rightsOfText(fields[2]);
    if (!type || !flags || !mask) return ERROR_INVALID_ACL;
    ace.type = *type;
    ace.flags = static_cast<BYTE>(*flags);
    ace.mask = *mask;
    return parseSidText(fields[5], ace.sid);
}

// The entries from `position` on, up to the next component or the end.
DWORD readAces(const std::wstring& text, size_t& position, AceList& aces) {
    while (position < text.size() && text[position] == L'(') {
        size_t close = text.find(L')', position);
        if (close == std::wstring::npos) return ERROR_INVALID_ACL;
        AceRecord ace;
        if (DWORD error = readAce(text.substr(position + 1, close - position - 1), ace)) return error;
        aces.push_back(std::move(ace));
        position = close + 1;
    }
    bool endsWell = position == text.size() || componentStartsAt(text, position);
    return endsWell && aclSize(aces) <= kLargestAcl ? ERROR_SUCCESS : ERROR_INVALID_ACL;
}

struct ListFlags {
    DWORD control = 0;
    bool nullList = false;
};

// "P", "AR", "AI" in any order, and NO_ACCESS_CONTROL for a null list.
std::optional<ListFlags> listFlagsOf(std::wstring text, const SddlNames& flagNames) {
    ListFlags flags;
    size_t nullText = text.find(kNullAclText);
    if (nullText != std::wstring::npos) {
        flags.nullList = true;
        text.erase(nullText, std::wcslen(kNullAclText));
    }
    std::optional<DWORD> control = valueOfNames(flagNames, text);
    if (!control) return std::nullopt;
    flags.control = *control;
    return flags;
}

// A "D:" or "S:" component from `position` on.
DWORD readList(const std::wstring& text, size_t& position, const SddlNames& flagNames, WORD presentBit,
               DescriptorRecord& record, std::optional<AceList>& list) {
    size_t flagsEnd = endOfListFlags(text, position);
    std::optional<ListFlags> flags = listFlagsOf(text.substr(position, flagsEnd - position), flagNames);
    if (!flags) return ERROR_INVALID_ACL;
    position = flagsEnd;
    AceList aces;
    if (DWORD error = readAces(text, position, aces)) return error;
    if (flags->nullList && !aces.empty()) return ERROR_INVALID_ACL;
    record.control = static_cast<SECURITY_DESCRIPTOR_CONTROL>(record.control | presentBit | flags->control);
    if (flags->nullList)
        list.reset();
    else
        list = std::move(aces);
    return ERROR_SUCCESS;
}

// An "O:" or "G:" component: the SID runs up to the next component.
DWORD readSidComponent(const std::wstring& text, size_t& position, SidBytes& sid) {
    size_t end = nextComponentFrom(text, position);
    std::wstring sidText = text.substr(position, end - position);
    position = end;
    return parseSidText(sidText, sid);
}

DWORD readComponent(const std::wstring& text, wchar_t tag, size_t& position, DescriptorRecord& record) {
    switch (tag) {
        case L'O':
            return readSidComponent(text, position, record.owner);
        case L'G':
            return readSidComponent(text, position, record.group);
        case L'D':
            return readList(text, position, daclFlagNames(), SE_DACL_PRESENT, record, record.dacl);
        default:
            return readList(text, position, saclFlagNames(), SE_SACL_PRESENT, record, record.sacl);
    }
}

}  // namespace

DWORD readSddl(const std::wstring& text, DescriptorRecord& record) {
    record = DescriptorRecord();
    std::wstring tagsSeen;
    size_t position = 0;
    while (position < text.size()) {
        if (!componentStartsAt(text, position)) return ERROR_INVALID_PARAMETER;
        wchar_t tag = text[position];
        if (tagsSeen.find(tag) != std::wstring::npos) return ERROR_INVALID_PARAMETER;
        tagsSeen += tag;
        position += 2;
        if (DWORD error = readComponent(text, tag, position, record)) return error;
    }
    return ERROR_SUCCESS;
}

}  // namespace advapi32
}  // namespace simhost
