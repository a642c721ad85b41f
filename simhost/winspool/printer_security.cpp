// Printers' descriptors through the security component: each part is taken
// as SDDL text and the result made self-relative again, so a descriptor in
// either form, a partial one, or one cut down to what a handle may read all
// come out in the one form the spooler keeps.
#include "simhost/winspool/printer_security.h"

#include "simhost/advapi32/security.h"

#include <cstring>

namespace simhost {
namespace winspool {
namespace {

constexpr SECURITY_INFORMATION kAllParts = OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION |
                                           DACL_SECURITY_INFORMATION | SACL_SECURITY_INFORMATION |
                                           LABEL_SECURITY_INFORMATION;

// The head of a self-relative descriptor: its control bits and where its
// parts are (0 for an absent owner or group).
SECURITY_DESCRIPTOR_RELATIVE headOf(const std::vector<BYTE>& descriptor) {
    SECURITY_DESCRIPTOR_RELATIVE head{};
    std::memcpy(&head, descriptor.data(), sizeof head);
    return head;
}

// The parts of `descriptor` that `parts` names, as a self-relative
// descriptor.
std::vector<BYTE> partsOf(const BYTE* descriptor, SECURITY_INFORMATION parts) {
    return sddlToDescriptor(descriptorToSddl(descriptor, parts));
}

std::wstring partText(const std::vector<BYTE>& descriptor, SECURITY_INFORMATION part) {
    return descriptorToSddl(descriptor.data(), part);
}

}  // namespace

CallerDescriptor readCallerDescriptor(PSECURITY_DESCRIPTOR descriptor) {
    if (!IsValidSecurityDescriptor(descriptor)) return {ERROR_INVALID_SECURITY_DESCR, {}};
    return {0, partsOf(static_cast<const BYTE*>(descriptor), kAllParts)};
}

ACCESS_MASK rightsToSet(const std::vector<BYTE>& incoming) {
    SECURITY_DESCRIPTOR_RELATIVE head = headOf(incoming);
    ACCESS_MASK needed = 0;
    if (head.Owner || head.Group) needed |= WRITE_OWNER;
    if (head.Control & SE_DACL_PRESENT) needed |= WRITE_DAC;
    if (head.Control & SE_SACL_PRESENT) needed |= kAccessSystemSecurity;
    return needed;
}

std::vector<BYTE> mergeDescriptor(const std::vector<BYTE>& current, const std::vector<BYTE>& incoming) {
    SECURITY_DESCRIPTOR_RELATIVE head = headOf(incoming);
    auto from = [&](bool incomingHasIt) -> const std::vector<BYTE>& { return incomingHasIt ? incoming : current; };
    std::wstring text = partText(from(head.Owner != 0), OWNER_SECURITY_INFORMATION) +
                        partText(from(head.Group != 0), GROUP_SECURITY_INFORMATION) +
                        partText(from(head.Control & SE_DACL_PRESENT), DACL_SECURITY_INFORMATION) +
                        partText(from(head.Control & SE_SACL_PRESENT), SACL_SECURITY_INFORMATION);
    return sddlToDescriptor(text);
}

std::vector<BYTE> readableParts(const std::vector<BYTE>& descriptor, ACCESS_MASK granted) {
    SECURITY_INFORMATION parts = 0;
    if (granted & READ_CONTROL) parts |= OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
    if (granted & kAccessSystemSecurity) parts |= SACL_SECURITY_INFORMATION | LABEL_SECURITY_INFORMATION;
    if (!parts || descriptor.empty()) return {};
    return partsOf(descriptor.data(), parts);
}

std::vector<BYTE> defaultPrinterDescriptor() { return sddlToDescriptor(kDefaultPrinterSddl); }

std::vector<BYTE> descriptorFromSddl(const std::wstring& sddl) { return sddlToDescriptor(sddl); }

std::wstring sddlOfDescriptor(const std::vector<BYTE>& descriptor) {
    if (descriptor.empty()) return {};
    return descriptorToSddl(descriptor.data(),
                            OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION);
}

}  // namespace winspool
}  // namespace simhost
