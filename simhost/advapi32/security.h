// Security identifiers, access control lists and security descriptors of the
// simulated host's advapi32, with the security descriptor definition
// language (SDDL) in both directions. Records have the published Windows
// layout: little-endian, ACEs 4-byte aligned inside their ACL, the SID's
// identifier authority big-endian. Below the Windows declarations, in
// namespace simhost, the C++ API through which the rest of the host (the
// spooler's printers and its state file above all) keeps descriptors as
// bytes and describes them as text.
#pragma once

#include "simhost/advapi32/advapi32.h"
#include "simhost/wintypes.h"

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

// ---- Error codes of these calls (winerror.h) ----
#ifndef ERROR_UNKNOWN_REVISION
#define ERROR_UNKNOWN_REVISION 1305L
#endif

// ---- Security identifiers (winnt.h) ----
#define SID_REVISION 1
#define SID_MAX_SUB_AUTHORITIES 15
#define SECURITY_MAX_SID_SIZE (8 + SID_MAX_SUB_AUTHORITIES * sizeof(DWORD))

typedef struct _SID_IDENTIFIER_AUTHORITY {
    BYTE Value[6];  // most significant byte first
} SID_IDENTIFIER_AUTHORITY, *PSID_IDENTIFIER_AUTHORITY;

typedef struct _SID {
    BYTE Revision;
    BYTE SubAuthorityCount;
    SID_IDENTIFIER_AUTHORITY IdentifierAuthority;
    DWORD SubAuthority[1];  // SubAuthorityCount of them
} SID, *PISID;

// ---- Access control lists and entries ----
#define ACL_REVISION 2
#define ACL_REVISION_DS 4

typedef struct _ACL {
    BYTE AclRevision;
    BYTE Sbz1;
    WORD AclSize;  // the list and its entries, in bytes
    WORD AceCount;
    WORD Sbz2;
} ACL, *PACL;

#define ACCESS_ALLOWED_ACE_TYPE 0x0
#define ACCESS_DENIED_ACE_TYPE 0x1
#define SYSTEM_AUDIT_ACE_TYPE 0x2
#define SYSTEM_ALARM_ACE_TYPE 0x3
#define ACCESS_ALLOWED_OBJECT_ACE_TYPE 0x5
#define ACCESS_DENIED_OBJECT_ACE_TYPE 0x6
#define SYSTEM_AUDIT_OBJECT_ACE_TYPE 0x7
#define SYSTEM_ALARM_OBJECT_ACE_TYPE 0x8
#define SYSTEM_MANDATORY_LABEL_ACE_TYPE 0x11

#define OBJECT_INHERIT_ACE 0x01
#define CONTAINER_INHERIT_ACE 0x02
#define NO_PROPAGATE_INHERIT_ACE 0x04
#define INHERIT_ONLY_ACE 0x08
#define INHERITED_ACE 0x10
#define VALID_INHERIT_FLAGS 0x1F
#define SUCCESSFUL_ACCESS_ACE_FLAG 0x40
#define FAILED_ACCESS_ACE_FLAG 0x80

typedef struct _ACE_HEADER {
    BYTE AceType;
    BYTE AceFlags;
    WORD AceSize;  // header, mask and SID, in bytes
} ACE_HEADER, *PACE_HEADER;

// The entries that hold a mask and a SID; the SID starts at SidStart.
typedef struct _ACCESS_ALLOWED_ACE {
    ACE_HEADER Header;
    ACCESS_MASK Mask;
    DWORD SidStart;
} ACCESS_ALLOWED_ACE, *PACCESS_ALLOWED_ACE;
typedef struct _ACCESS_DENIED_ACE {
    ACE_HEADER Header;
    ACCESS_MASK Mask;
    DWORD SidStart;
} ACCESS_DENIED_ACE, *PACCESS_DENIED_ACE;
typedef struct _SYSTEM_AUDIT_ACE {
    ACE_HEADER Header;
    ACCESS_MASK Mask;
    DWORD SidStart;
} SYSTEM_AUDIT_ACE, *PSYSTEM_AUDIT_ACE;
typedef struct _SYSTEM_MANDATORY_LABEL_ACE {
    ACE_HEADER Header;
    ACCESS_MASK Mask;
    DWORD SidStart;
} SYSTEM_MANDATORY_LABEL_ACE, *PSYSTEM_MANDATORY_LABEL_ACE;

// Rights of a mandatory label entry.
#define SYSTEM_MANDATORY_LABEL_NO_WRITE_UP 0x1
#define SYSTEM_MANDATORY_LABEL_NO_READ_UP 0x2
#define SYSTEM_MANDATORY_LABEL_NO_EXECUTE_UP 0x4

// ---- Security descriptors ----
#define SECURITY_DESCRIPTOR_REVISION 1
#define SECURITY_DESCRIPTOR_REVISION1 1

typedef WORD SECURITY_DESCRIPTOR_CONTROL, *PSECURITY_DESCRIPTOR_CONTROL;
#define SE_OWNER_DEFAULTED 0x0001
#define SE_GROUP_DEFAULTED 0x0002
#define SE_DACL_PRESENT 0x0004
#define SE_DACL_DEFAULTED 0x0008
#define SE_SACL_PRESENT 0x0010
#define SE_SACL_DEFAULTED 0x0020
#define SE_DACL_AUTO_INHERIT_REQ 0x0100
#define SE_SACL_AUTO_INHERIT_REQ 0x0200
#define SE_DACL_AUTO_INHERITED 0x0400
#define SE_SACL_AUTO_INHERITED 0x0800
#define SE_DACL_PROTECTED 0x1000
#define SE_SACL_PROTECTED 0x2000
#define SE_RM_CONTROL_VALID 0x4000
#define SE_SELF_RELATIVE 0x8000

typedef PVOID PSECURITY_DESCRIPTOR;

// A descriptor in one block: its parts at byte offsets from its start, 0 for
// a part that is absent.
typedef struct _SECURITY_DESCRIPTOR_RELATIVE {
    BYTE Revision;
    BYTE Sbz1;
    SECURITY_DESCRIPTOR_CONTROL Control;
    DWORD Owner;
    DWORD Group;
    DWORD Sacl;
    DWORD Dacl;
} SECURITY_DESCRIPTOR_RELATIVE, *PISECURITY_DESCRIPTOR_RELATIVE;

// A descriptor whose parts are reached through pointers.
typedef struct _SECURITY_DESCRIPTOR {
    BYTE Revision;
    BYTE Sbz1;
    SECURITY_DESCRIPTOR_CONTROL Control;
    PSID Owner;
    PSID Group;
    PACL Sacl;
    PACL Dacl;
} SECURITY_DESCRIPTOR, *PISECURITY_DESCRIPTOR;

typedef DWORD SECURITY_INFORMATION, *PSECURITY_INFORMATION;
#define OWNER_SECURITY_INFORMATION 0x00000001u
#define GROUP_SECURITY_INFORMATION 0x00000002u
#define DACL_SECURITY_INFORMATION 0x00000004u
#define SACL_SECURITY_INFORMATION 0x00000008u
#define LABEL_SECURITY_INFORMATION 0x00000010u
#define BACKUP_SECURITY_INFORMATION 0x00010000u

#define SDDL_REVISION_1 1
#define SDDL_REVISION SDDL_REVISION_1

// ---- Access rights of print jobs (winspool.h) ----
// Those of printers and print servers are declared with the spooler, which
// declares the two job rights as well: each is defined once, by whichever
// header comes first.
#ifndef JOB_ACCESS_ADMINISTER
#define JOB_ACCESS_ADMINISTER 0x00000010
#endif
#ifndef JOB_ACCESS_READ
#define JOB_ACCESS_READ 0x00000020
#endif
#ifndef JOB_ALL_ACCESS
#define JOB_ALL_ACCESS (STANDARD_RIGHTS_REQUIRED | JOB_ACCESS_ADMINISTER | JOB_ACCESS_READ)
#endif
#ifndef JOB_READ
#define JOB_READ (STANDARD_RIGHTS_READ | JOB_ACCESS_READ)
#endif
#ifndef JOB_WRITE
#define JOB_WRITE (STANDARD_RIGHTS_WRITE | JOB_ACCESS_ADMINISTER)
#endif
#ifndef JOB_EXECUTE
#define JOB_EXECUTE (STANDARD_RIGHTS_EXECUTE | JOB_ACCESS_ADMINISTER)
#endif

// ---- SIDs ----
BOOL WINAPI ConvertStringSidToSidW(LPCWSTR stringSid, PSID* sid);
BOOL WINAPI ConvertSidToStringSidW(PSID sid, LPWSTR* stringSid);
BOOL WINAPI IsValidSid(PSID sid);
DWORD WINAPI GetLengthSid(PSID sid);
BOOL WINAPI CopySid(DWORD destinationLength, PSID destination, PSID source);
BOOL WINAPI EqualSid(PSID sid1, PSID sid2);

// ---- Security descriptors ----
BOOL WINAPI IsValidSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor);
DWORD WINAPI GetSecurityDescriptorLength(PSECURITY_DESCRIPTOR descriptor);
BOOL WINAPI GetSecurityDescriptorOwner(PSECURITY_DESCRIPTOR descriptor, PSID* owner, LPBOOL ownerDefaulted);
BOOL WINAPI GetSecurityDescriptorGroup(PSECURITY_DESCRIPTOR descriptor, PSID* group, LPBOOL groupDefaulted);
BOOL WINAPI GetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR descriptor, LPBOOL daclPresent, PACL* dacl,
                                      LPBOOL daclDefaulted);

// ---- SDDL ----
BOOL WINAPI ConvertStringSecurityDescriptorToSecurityDescriptorW(LPCWSTR stringSecurityDescriptor,
                                                                 DWORD stringSDRevision,
                                                                 PSECURITY_DESCRIPTOR* securityDescriptor,
                                                                 PULONG securityDescriptorSize);
BOOL WINAPI ConvertSecurityDescriptorToStringSecurityDescriptorW(PSECURITY_DESCRIPTOR securityDescriptor,
                                                                 DWORD requestedStringSDRevision,
                                                                 SECURITY_INFORMATION securityInformation,
                                                                 LPWSTR* stringSecurityDescriptor,
                                                                 PULONG stringSecurityDescriptorLen);

static_assert(sizeof(SID_IDENTIFIER_AUTHORITY) == 6, "SID_IDENTIFIER_AUTHORITY: 6 bytes");
static_assert(offsetof(SID, SubAuthority) == 8 && sizeof(SID) == 12, "SID: an 8-byte head, then DWORDs");
static_assert(sizeof(ACL) == 8, "ACL: an 8-byte head");
static_assert(sizeof(ACE_HEADER) == 4 && sizeof(ACCESS_ALLOWED_ACE) == 12, "ACE: 4-byte header, mask, SID");
static_assert(offsetof(ACCESS_ALLOWED_ACE, SidStart) == 8, "the SID of an ACE follows its mask");
static_assert(sizeof(SECURITY_DESCRIPTOR_RELATIVE) == 20, "self-relative descriptor head: 20 bytes");
static_assert(offsetof(SECURITY_DESCRIPTOR, Owner) == 8 && sizeof(SECURITY_DESCRIPTOR) == 40,
              "absolute descriptor on 64-bit Windows: 4 bytes, padding, four pointers");

// ======================================================================
// Host API
// ======================================================================
namespace simhost {

// Security descriptors for the rest of the simulated host. The spooler keeps
// each printer's descriptor as the self-relative bytes these calls make,
// reads the SDDL text a host file gives, and writes SDDL text into its state
// file; the service's own conversions go through the Windows calls above,
// which run the same parser and writer. None of these functions is subject
// to injected faults.

// What a text could not be converted for, with the error the Windows call
// gives for it (ERROR_INVALID_SID, ERROR_INVALID_ACL, ...).
class SecurityTextError : public std::invalid_argument {
public:
    SecurityTextError(const std::string& what, DWORD error) : std::invalid_argument(what), error_(error) {}
    DWORD error() const { return error_; }

private:
    DWORD error_;
};

// The self-relative descriptor of an SDDL text, as
// ConvertStringSecurityDescriptorToSecurityDescriptorW makes it. Throws
// SecurityTextError for a text that call refuses.
std::vector<BYTE> sddlToDescriptor(const std::wstring& sddl);
// The SDDL text of the parts `securityInformation` names (OWNER_, GROUP_,
// DACL_, SACL_, LABEL_SECURITY_INFORMATION) of a self-relative or absolute
// descriptor, as ConvertSecurityDescriptorToStringSecurityDescriptorW writes
// it. Throws SecurityTextError for a descriptor that is not valid.
std::wstring descriptorToSddl(const BYTE* descriptor, DWORD securityInformation);

// The bytes of a SID given as "S-1-5-18" or as an SDDL abbreviation ("SY").
// Throws SecurityTextError for a text ConvertStringSidToSidW refuses.
std::vector<BYTE> sidFromText(const std::wstring& text);
// The "S-1-..." text of a SID; throws SecurityTextError for one not valid.
std::wstring sidToText(const BYTE* sid);

// Whether a token holding `tokenSids` gets every right of `desiredAccess`
// from the DACL of a self-relative or absolute descriptor, by the documented
// order of evaluation: no DACL or a null DACL grants everything, an empty
// DACL nothing; entries are taken in order, inherit-only entries and entries
// for SIDs the token lacks skipped, a denied entry refusing any right still
// wanted, allowed entries granting until every right is granted. The owner
// also holds OWNER RIGHTS (S-1-3-4), and READ_CONTROL and WRITE_DAC without
// an entry unless the DACL has entries for OWNER RIGHTS. Generic rights are
// compared as they stand: the caller maps those of its request (for a
// printer, onto PRINTER_READ ...) first; entries with generic rights are
// inherit-only in the spooler's descriptors. MAXIMUM_ALLOWED and a request
// of no right are not granted.
bool accessGranted(const BYTE* descriptor, const std::vector<std::vector<BYTE>>& tokenSids, DWORD desiredAccess);

// The account domain of the simulated machine, whose administrator and guest
// the SDDL abbreviations LA and LG name (RIDs 500 and 501). The machine
// belongs to no Windows domain: the domain-wide abbreviations (DA, DU, ...)
// cannot be looked up and fail with ERROR_NONE_MAPPED.
extern const wchar_t* const kMachineDomainSid;

}  // namespace simhost
