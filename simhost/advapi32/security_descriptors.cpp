// Security descriptors in memory: reading either form into a record,
// writing a record as one self-relative block, and the descriptor calls of
// advapi32 that read a descriptor's parts.
//
// Self-relative layout: a 20-byte head (revision 1, a padding byte, the
// control, then the byte offsets of owner, group, SACL and DACL, 0 for none),
// followed here by the SACL, the DACL, the owner and the group. An ACL is an
// 8-byte head (revision, padding, size in bytes, count of entries, padding)
// followed by its entries, each a 4-byte header (type, flags, size), a mask
// and a SID, 4-byte aligned since SIDs are.
#include "simhost/advapi32/advapi32_internal.h"
#include "simhost/advapi32/security_internal.h"
#include "simhost/core/host.h"

namespace simhost {
namespace advapi32 {
namespace {

constexpr size_t kRelativeHeadSize = sizeof(SECURITY_DESCRIPTOR_RELATIVE);
constexpr size_t kAbsoluteHeadSize = sizeof(SECURITY_DESCRIPTOR);
constexpr size_t kAclHeadSize = sizeof(ACL);
constexpr size_t kAceHeadSize = offsetof(ACCESS_ALLOWED_ACE, SidStart);
constexpr size_t kSmallestSid = 8;

size_t roundedUp(size_t size) { return (size + 3) & ~size_t{3}; }

const BYTE* partAtOffset(const BYTE* descriptor, size_t fieldOffset) {
    DWORD offset = readDword(descriptor + fieldOffset);
    return offset ? descriptor + offset : nullptr;
}

const BYTE* partAtPointer(const BYTE* descriptor, size_t fieldOffset) {
    const BYTE* part;
    std::memcpy(&part, descriptor + fieldOffset, sizeof part);
    return part;
}

// One entry at `ace`, with `room` bytes left in its list.
DWORD decodeAce(const BYTE* ace, size_t room, AceRecord& record, size_t& aceSize) {
    if (room < kAceHeadSize) return ERROR_INVALID_ACL;
    aceSize = readWord(ace + 2);
    if (aceSize < kAceHeadSize + kSmallestSid || aceSize % 4 || aceSize > room) return ERROR_INVALID_ACL;
    if (!aceHasMaskAndSid(ace[0])) return ERROR_INVALID_ACL;
    const BYTE* sid = ace + kAceHeadSize;
    if (!sidIsValid(sid) || kAceHeadSize + sidLength(sid) > aceSize) return ERROR_INVALID_ACL;
    record = {ace[0], ace[1], readDword(ace + 4), sidCopy(sid)};
    return ERROR_SUCCESS;
}

DWORD decodeAcl(const BYTE* acl, AceList& aces) {
    size_t size = readWord(acl + 2);
    WORD count = readWord(acl + 4);
    if (acl[0] < ACL_REVISION || acl[0] > ACL_REVISION_DS || size < kAclHeadSize) return ERROR_INVALID_ACL;
    size_t offset = kAclHeadSize;
    for (WORD index = 0; index < count; ++index) {
        AceRecord ace;
        size_t aceSize = 0;
        if (DWORD error = decodeAce(acl + offset, size - offset, ace, aceSize)) return error;
        aces.push_back(std::move(ace));
        offset += aceSize;
    }
    return ERROR_SUCCESS;
}

// A list the control says is present: its entries, or nothing for a null list.
DWORD decodePresentAcl(const BYTE* acl, std::optional<AceList>& list) {
    if (!acl) return ERROR_SUCCESS;
    list.emplace();
    return decodeAcl(acl, *list);
}

DWORD decodeSid(const BYTE* sid, SidBytes& bytes) {
    if (!sid) return ERROR_SUCCESS;
    if (!sidIsValid(sid)) return ERROR_INVALID_SID;
    bytes = sidCopy(sid);
    return ERROR_SUCCESS;
}

std::vector<BYTE> encodeAcl(const AceList& aces) {
    std::vector<BYTE> acl(kAclHeadSize);
    acl[0] = ACL_REVISION;
    writeWord(&acl[2], static_cast<WORD>(aclSize(aces)));
    writeWord(&acl[4], static_cast<WORD>(aces.size()));
    for (const AceRecord& ace : aces) {
        size_t start = acl.size();
        acl.resize(start + kAceHeadSize);
        acl[start] = ace.type;
        acl[start + 1] = ace.flags;
        writeWord(&acl[start + 2], static_cast<WORD>(kAceHeadSize + ace.sid.size()));
        writeDword(&acl[start + 4], ace.mask);
        acl.insert(acl.end(), ace.sid.begin(), ace.sid.end());
    }
    return acl;
}

// Appends a part and records its offset in the head's field; an absent part
// keeps offset 0.
void appendPart(std::vector<BYTE>& descriptor, size_t fieldOffset, const std::vector<BYTE>& part) {
    if (part.empty()) return;
    writeDword(&descriptor[fieldOffset], static_cast<DWORD>(descriptor.size()));
    descriptor.insert(descriptor.end(), part.begin(), part.end());
}

std::vector<BYTE> encodedList(const std::optional<AceList>& list, bool present) {
    return present && list ? encodeAcl(*list) : std::vector<BYTE>();
}

DWORD partLength(const BYTE* owner, const BYTE* group, const BYTE* sacl, const BYTE* dacl) {
    size_t length = 0;
    if (owner) length += roundedUp(sidLength(owner));
    if (group) length += roundedUp(sidLength(group));
    if (sacl) length += roundedUp(readWord(sacl + 2));
    if (dacl) length += roundedUp(readWord(dacl + 2));
    return static_cast<DWORD>(length);
}

}  // namespace

bool aceHasMaskAndSid(BYTE type) {
    return type == ACCESS_ALLOWED_ACE_TYPE || type == ACCESS_DENIED_ACE_TYPE || type == SYSTEM_AUDIT_ACE_TYPE ||
           type == SYSTEM_ALARM_ACE_TYPE || type == SYSTEM_MANDATORY_LABEL_ACE_TYPE;
}

DWORD viewDescriptor(const void* descriptor, DescriptorView& view) {
    const BYTE* bytes = static_cast<const BYTE*>(descriptor);
    if (!bytes) return ERROR_INVALID_SECURITY_DESCR;
    if (bytes[0] != SECURITY_DESCRIPTOR_REVISION) return ERROR_UNKNOWN_REVISION;
    view.control = readWord(bytes + 2);
    view.selfRelative = (view.control & SE_SELF_RELATIVE) != 0;
    auto part = view.selfRelative ? partAtOffset : partAtPointer;
    size_t fieldSize = view.selfRelative ? sizeof(DWORD) : sizeof(void*);
    size_t firstField = view.selfRelative ? offsetof(SECURITY_DESCRIPTOR_RELATIVE, Owner)
                                          : offsetof(SECURITY_DESCRIPTOR, Owner);
    view.owner = part(bytes, firstField);
    view.group = part(bytes, firstField + fieldSize);
    view.sacl = part(bytes, firstField + 2 * fieldSize);
    view.dacl = part(bytes, firstField + 3 * fieldSize);
    return ERROR_SUCCESS;
}

DWORD decodeDescriptor(const void* descriptor, DescriptorRecord& record) {
    DescriptorView view;
    DWORD error = viewDescriptor(descriptor, view);
    record.control = view.control;
    if (!error) error = decodeSid(view.owner, record.owner);
    if (!error) error = decodeSid(view.group, record.group);
    if (!error && (view.control & SE_SACL_PRESENT)) error = decodePresentAcl(view.sacl, record.sacl);
    if (!error && (view.control & SE_DACL_PRESENT)) error = decodePresentAcl(view.dacl, record.dacl);
    return error;
}

size_t aclSize(const AceList& aces) {
    size_t size = kAclHeadSize;
    for (const AceRecord& ace : aces) size += kAceHeadSize + ace.sid.size();
    return size;
}

std::vector<BYTE> encodeSelfRelative(const DescriptorRecord& record) {
    std::vector<BYTE> descriptor(kRelativeHeadSize);
    descriptor[0] = SECURITY_DESCRIPTOR_REVISION;
    writeWord(&descriptor[2], static_cast<WORD>(record.control | SE_SELF_RELATIVE));
    appendPart(descriptor, offsetof(SECURITY_DESCRIPTOR_RELATIVE, Sacl),
               encodedList(record.sacl, record.control & SE_SACL_PRESENT));
    appendPart(descriptor, offsetof(SECURITY_DESCRIPTOR_RELATIVE, Dacl),
               encodedList(record.dacl, record.control & SE_DACL_PRESENT));
    appendPart(descriptor, offsetof(SECURITY_DESCRIPTOR_RELATIVE, Owner), record.owner);
    appendPart(descriptor, offsetof(SECURITY_DESCRIPTOR_RELATIVE, Group), record.group);
    return descriptor;
}

DWORD descriptorLength(const DescriptorView& view) {
    size_t head = view.selfRelative ? kRelativeHeadSize : kAbsoluteHeadSize;
    return static_cast<DWORD>(head) + partLength(view.owner, view.group, view.sacl, view.dacl);
}

}  // namespace advapi32
}  // namespace simhost

using namespace simhost::advapi32;

namespace {

// The entry of the three calls that read one part of a descriptor: the
// injected failure, then the descriptor's revision.
DWORD viewForPartCall(const char* call, PSECURITY_DESCRIPTOR descriptor, DescriptorView& view) {
    DWORD error = simhost::injectedFailure(call);
    return error ? error : viewDescriptor(descriptor, view);
}

}  // namespace

// Whether the revision, the SIDs and the lists of a descriptor in either form
// are well formed. Documented to give no extended error: the last error stays.
BOOL WINAPI IsValidSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor) {
    DescriptorRecord record;
    return decodeDescriptor(descriptor, record) == ERROR_SUCCESS ? TRUE : FALSE;
}

// The length of a descriptor with the parts it points to: its head (20 bytes
// self-relative, 40 absolute) and each part, rounded up to 4 bytes. For a
// descriptor that is not valid the documented answer is undefined; 0 here.
DWORD WINAPI GetSecurityDescriptorLength(PSECURITY_DESCRIPTOR descriptor) {
    DescriptorView view;
    return viewDescriptor(descriptor, view) ? 0 : descriptorLength(view);
}

// The owner inside the descriptor (null when it has none) and whether it was
// defaulted. A descriptor whose revision is not 1 is ERROR_UNKNOWN_REVISION.
BOOL WINAPI GetSecurityDescriptorOwner(PSECURITY_DESCRIPTOR descriptor, PSID* owner, LPBOOL ownerDefaulted) {
    DescriptorView view;
    DWORD error = viewForPartCall("GetSecurityDescriptorOwner", descriptor, view);
    if (!error && (!owner || !ownerDefaulted)) error = ERROR_INVALID_PARAMETER;
    if (error) return succeedOrFail(error);
    *owner = const_cast<BYTE*>(view.owner);
    *ownerDefaulted = (view.control & SE_OWNER_DEFAULTED) ? TRUE : FALSE;
    return TRUE;
}

// The primary group, as GetSecurityDescriptorOwner answers the owner.
BOOL WINAPI GetSecurityDescriptorGroup(PSECURITY_DESCRIPTOR descriptor, PSID* group, LPBOOL groupDefaulted) {
    DescriptorView view;
    DWORD error = viewForPartCall("GetSecurityDescriptorGroup", descriptor, view);
    if (!error && (!group || !groupDefaulted)) error = ERROR_INVALID_PARAMETER;
    if (error) return succeedOrFail(error);
    *group = const_cast<BYTE*>(view.group);
    *groupDefaulted = (view.control & SE_GROUP_DEFAULTED) ? TRUE : FALSE;
    return TRUE;
}

// Whether the descriptor has a DACL; when it has, the list inside it (null
// for a null DACL) and whether it was defaulted. Without a DACL the other two
// outputs are left as they were, the documentation giving them no value.
BOOL WINAPI GetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR descriptor, LPBOOL daclPresent, PACL* dacl,
                                      LPBOOL daclDefaulted) {
    DescriptorView view;
    DWORD error = viewForPartCall("GetSecurityDescriptorDacl", descriptor, view);
    if (!error && (!daclPresent || !dacl || !daclDefaulted)) error = ERROR_INVALID_PARAMETER;
    if (error) return succeedOrFail(error);
    *daclPresent = (view.control & SE_DACL_PRESENT) ? TRUE : FALSE;
    if (!*daclPresent) return TRUE;
    *dacl = reinterpret_cast<PACL>(const_cast<BYTE*>(view.dacl));
    *daclDefaulted = (view.control & SE_DACL_DEFAULTED) ? TRUE : FALSE;
    return TRUE;
}
