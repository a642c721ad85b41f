// Writing a descriptor record as SDDL text, in the canonical form Windows
// writes: components in the order O, G, D, S, each only when asked for and
// present; well-known SIDs as their abbreviations; list flags in the order
// P, AR, AI; entry flags in the order of their bits; rights as described by
// textOfRights. A present null list is written NO_ACCESS_CONTROL, the form
// the reader takes back; an empty list is its tag alone ("D:").
#include "simhost/advapi32/sddl_names.h"
#include "simhost/advapi32/security_internal.h"

namespace simhost {
namespace advapi32 {
namespace {

std::wstring aceText(const AceRecord& ace) {
    bool label = ace.type == SYSTEM_MANDATORY_LABEL_ACE_TYPE;
    return L"(" + std::wstring(nameOf(aceTypeNames(), ace.type)) + L";" + namesOfValue(aceFlagNames(), ace.flags) +
           L";" + textOfRights(ace.mask, label) + L";;;" + sddlSidText(ace.sid.data()) + L")";
}

// The entries of a list, all or only its mandatory labels.
std::wstring acesText(const AceList& aces, bool labelsOnly) {
    std::wstring text;
    for (const AceRecord& ace : aces)
        if (!labelsOnly || ace.type == SYSTEM_MANDATORY_LABEL_ACE_TYPE) text += aceText(ace);
    return text;
}

std::wstring listText(const wchar_t* tag, const SddlNames& flagNames, WORD control,
                      const std::optional<AceList>& list) {
    std::wstring text = tag + namesOfValue(flagNames, control);
    return text + (list ? acesText(*list, false) : std::wstring(kNullAclText));
}

bool hasLabel(const std::optional<AceList>& list) {
    if (!list) return false;
    for (const AceRecord& ace : *list)
        if (ace.type == SYSTEM_MANDATORY_LABEL_ACE_TYPE) return true;
    return false;
}

// The SACL when asked for; else, when only the label is asked for, the
// mandatory label entries alone.
std::wstring saclText(const DescriptorRecord& record, SECURITY_INFORMATION parts) {
    if (!(record.control & SE_SACL_PRESENT)) return L"";
    if (parts & SACL_SECURITY_INFORMATION) return listText(L"S:", saclFlagNames(), record.control, record.sacl);
    if ((parts & LABEL_SECURITY_INFORMATION) && hasLabel(record.sacl)) return L"S:" + acesText(*record.sacl, true);
    return L"";
}

}  // namespace

std::wstring writeSddl(const DescriptorRecord& record, SECURITY_INFORMATION parts) {
    std::wstring text;
    if ((parts & OWNER_SECURITY_INFORMATION) && !record.owner.empty())
        text += L"O:" + sddlSidText(record.owner.data());
    if ((parts & GROUP_SECURITY_INFORMATION) && !record.group.empty())
        text += L"G:" + sddlSidText(record.group.data());
    if ((parts & DACL_SECURITY_INFORMATION) && (record.control & SE_DACL_PRESENT))
        text += listText(L"D:", daclFlagNames(), record.control, record.dacl);
    return text + saclText(record, parts);
}

}  // namespace advapi32
}  // namespace simhost
