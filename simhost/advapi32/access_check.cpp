// The access check of a DACL for the host's own use (the spooler's printers),
// in the order the Windows documentation describes for how DACLs control
// access to an object.
#include "simhost/advapi32/security_internal.h"

#include <algorithm>

namespace simhost {
namespace advapi32 {
namespace {

const ACCESS_MASK kOwnerImplicitRights = READ_CONTROL | WRITE_DAC;

SidBytes ownerRightsSid() {
    SidBytes sid;
    parseSidText(L"OW", sid);
    return sid;
}

bool tokenHolds(const std::vector<SidBytes>& tokenSids, const SidBytes& sid) {
    return std::find(tokenSids.begin(), tokenSids.end(), sid) != tokenSids.end();
}

bool hasEntryFor(const AceList& aces, const SidBytes& sid) {
    return std::any_of(aces.begin(), aces.end(), [&](const AceRecord& ace) { return ace.sid == sid; });
}

// The owner holds the OWNER RIGHTS SID as well; entries for it then speak
// for the owner, and without any the owner has READ_CONTROL and WRITE_DAC.
struct OwnerView {
    std::vector<SidBytes> tokenSids;
    ACCESS_MASK implicitRights = 0;
};

OwnerView ownerView(const DescriptorRecord& record, std::vector<SidBytes> tokenSids) {
    bool owner = !record.owner.empty() && tokenHolds(tokenSids, record.owner);
    if (!owner) return {std::move(tokenSids), 0};
    SidBytes ownerRights = ownerRightsSid();
    ACCESS_MASK implicitRights = hasEntryFor(*record.dacl, ownerRights) ? 0 : kOwnerImplicitRights;
    tokenSids.push_back(std::move(ownerRights));
    return {std::move(tokenSids), implicitRights};
}

// The entries in order, from the rights already granted: a denied entry
// refusing a right still wanted ends the check, as does the last right
// granted.
bool entriesGrant(const AceList& aces, const std::vector<SidBytes>& tokenSids, ACCESS_MASK desired,
                  ACCESS_MASK granted) {
    for (const AceRecord& ace : aces) {
        if ((granted & desired) == desired) return true;
        if ((ace.flags & INHERIT_ONLY_ACE) || !tokenHolds(tokenSids, ace.sid)) continue;
        if (ace.type == ACCESS_DENIED_ACE_TYPE && (ace.mask & desired & ~granted)) return false;
        if (ace.type == ACCESS_ALLOWED_ACE_TYPE) granted |= ace.mask & desired;
    }
    return (granted & desired) == desired;
}

}  // namespace
}  // namespace advapi32

bool accessGranted(const BYTE* descriptor, const std::vector<std::vector<BYTE>>& tokenSids, DWORD desiredAccess) {
    advapi32::DescriptorRecord record;
    if (!desiredAccess || (desiredAccess & MAXIMUM_ALLOWED)) return false;
    if (advapi32::decodeDescriptor(descriptor, record)) return false;
    if (!(record.control & SE_DACL_PRESENT) || !record.dacl) return true;
    advapi32::OwnerView owner = advapi32::ownerView(record, tokenSids);
    return advapi32::entriesGrant(*record.dacl, owner.tokenSids, desiredAccess, owner.implicitRights);
}

}  // namespace simhost
