// Access tokens of the simulated host's advapi32: the token of each process,
// duplicates of it, and threads that impersonate a token's user. Records
// have the published 64-bit Windows layout. Below the Windows declarations,
// in namespace simhost, the identities processes get by default and the test
// API that tells who a thread acts for.
#pragma once

#include "simhost/advapi32/advapi32.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/kernel32/processes.h"
#include "simhost/wintypes.h"

#include <cstddef>
#include <string>
#include <vector>

#ifndef ANYSIZE_ARRAY
#define ANYSIZE_ARRAY 1
#endif

// ---- Access rights of tokens (winnt.h) ----
#define TOKEN_ASSIGN_PRIMARY 0x0001u
#define TOKEN_DUPLICATE 0x0002u
#define TOKEN_IMPERSONATE 0x0004u
#define TOKEN_QUERY 0x0008u
#define TOKEN_QUERY_SOURCE 0x0010u
#define TOKEN_ADJUST_PRIVILEGES 0x0020u
#define TOKEN_ADJUST_GROUPS 0x0040u
#define TOKEN_ADJUST_DEFAULT 0x0080u
#define TOKEN_ADJUST_SESSIONID 0x0100u
#define TOKEN_ALL_ACCESS_P                                                                                 \
    (STANDARD_RIGHTS_REQUIRED | TOKEN_ASSIGN_PRIMARY | TOKEN_DUPLICATE | TOKEN_IMPERSONATE | TOKEN_QUERY | \
     TOKEN_QUERY_SOURCE | TOKEN_ADJUST_PRIVILEGES | TOKEN_ADJUST_GROUPS | TOKEN_ADJUST_DEFAULT)
#define TOKEN_ALL_ACCESS (TOKEN_ALL_ACCESS_P | TOKEN_ADJUST_SESSIONID)
#define TOKEN_READ (STANDARD_RIGHTS_READ | TOKEN_QUERY)
#define TOKEN_WRITE (STANDARD_RIGHTS_WRITE | TOKEN_ADJUST_PRIVILEGES | TOKEN_ADJUST_GROUPS | TOKEN_ADJUST_DEFAULT)
#define TOKEN_EXECUTE (STANDARD_RIGHTS_EXECUTE)

// ---- Attributes of a token's groups ----
#define SE_GROUP_MANDATORY 0x00000001u
#define SE_GROUP_ENABLED_BY_DEFAULT 0x00000002u
#define SE_GROUP_ENABLED 0x00000004u
#define SE_GROUP_OWNER 0x00000008u
#define SE_GROUP_USE_FOR_DENY_ONLY 0x00000010u
#define SE_GROUP_INTEGRITY 0x00000020u
#define SE_GROUP_INTEGRITY_ENABLED 0x00000040u
#define SE_GROUP_RESOURCE 0x20000000u
// Both bits mark the logon SID: callers look for (attributes & SE_GROUP_LOGON_ID) == SE_GROUP_LOGON_ID.
#define SE_GROUP_LOGON_ID 0xC0000000u

// ---- Kinds of tokens ----
typedef enum _SECURITY_IMPERSONATION_LEVEL {
    SecurityAnonymous,
    SecurityIdentification,
    SecurityImpersonation,
    SecurityDelegation
} SECURITY_IMPERSONATION_LEVEL, *PSECURITY_IMPERSONATION_LEVEL;
#define SECURITY_MAX_IMPERSONATION_LEVEL SecurityDelegation
#define SECURITY_MIN_IMPERSONATION_LEVEL SecurityAnonymous
#define DEFAULT_IMPERSONATION_LEVEL SecurityImpersonation

typedef enum _TOKEN_TYPE { TokenPrimary = 1, TokenImpersonation } TOKEN_TYPE, *PTOKEN_TYPE;

typedef enum _TOKEN_INFORMATION_CLASS {
    TokenUser = 1,
    TokenGroups,
    TokenPrivileges,
    TokenOwner,
    TokenPrimaryGroup,
    TokenDefaultDacl,
    TokenSource,
    TokenType,
    TokenImpersonationLevel,
    TokenStatistics,
    TokenRestrictedSids,
    TokenSessionId,
    TokenGroupsAndPrivileges,
    TokenSessionReference,
    TokenSandBoxInert,
    TokenAuditPolicy,
    TokenOrigin,
    TokenElevationType,
    TokenLinkedToken,
    TokenElevation,
    TokenHasRestrictions,
    TokenAccessInformation,
    TokenVirtualizationAllowed,
    TokenVirtualizationEnabled,
    TokenIntegrityLevel,
    TokenUIAccess,
    TokenMandatoryPolicy,
    TokenLogonSid,
} TOKEN_INFORMATION_CLASS, *PTOKEN_INFORMATION_CLASS;

// ---- Records of GetTokenInformation ----
typedef struct _SID_AND_ATTRIBUTES {
    PSID Sid;
    DWORD Attributes;
} SID_AND_ATTRIBUTES, *PSID_AND_ATTRIBUTES;

typedef struct _TOKEN_USER {
    SID_AND_ATTRIBUTES User;
} TOKEN_USER, *PTOKEN_USER;

typedef struct _TOKEN_GROUPS {
    DWORD GroupCount;
    SID_AND_ATTRIBUTES Groups[ANYSIZE_ARRAY];  // GroupCount of them
} TOKEN_GROUPS, *PTOKEN_GROUPS;

static_assert(sizeof(SID_AND_ATTRIBUTES) == 16 && sizeof(TOKEN_USER) == 16, "a pointer, a DWORD, padding");
static_assert(offsetof(TOKEN_GROUPS, Groups) == 8 && sizeof(TOKEN_GROUPS) == 24, "the count, padding, the array");

// ---- Calls ----
BOOL WINAPI OpenProcessToken(HANDLE processHandle, DWORD desiredAccess, PHANDLE tokenHandle);
BOOL WINAPI OpenThreadToken(HANDLE threadHandle, DWORD desiredAccess, BOOL openAsSelf, PHANDLE tokenHandle);
BOOL WINAPI GetTokenInformation(HANDLE tokenHandle, TOKEN_INFORMATION_CLASS tokenInformationClass,
                                LPVOID tokenInformation, DWORD tokenInformationLength, PDWORD returnLength);
BOOL WINAPI DuplicateTokenEx(HANDLE existingToken, DWORD desiredAccess, LPSECURITY_ATTRIBUTES tokenAttributes,
                             SECURITY_IMPERSONATION_LEVEL impersonationLevel, TOKEN_TYPE tokenType,
                             PHANDLE newToken);
BOOL WINAPI ImpersonateLoggedOnUser(HANDLE token);
BOOL WINAPI RevertToSelf();

// ======================================================================
// Host API
// ======================================================================
namespace simhost {

// The local system account, which services run as.
constexpr const wchar_t* kLocalSystemSid = L"S-1-5-18";

// The account of a process whose record names none: the local system
// account in session 0, else "<kMachineDomainSid>-<1000 + session>", a user
// of the machine's account domain.
std::wstring sessionUserSid(DWORD sessionId);
// The logon SID of a process whose record names none,
// "S-1-5-5-0-<1000 + session>": the processes of one session share it, and
// two sessions of one user have different ones.
std::wstring sessionLogonSid(DWORD sessionId);

namespace advapi32 {

struct TokenGroup {
    std::wstring sid;
    DWORD attributes = 0;
};

// What a token says of its holder. SIDs are "S-1-..." texts.
struct TokenIdentity {
    std::wstring userSid;
    // In the token's order: Everyone, Users, INTERACTIVE (not for the local
    // system account), the logon SID (SE_GROUP_LOGON_ID) if any,
    // Authenticated Users, Administrators (the local system account only).
    std::vector<TokenGroup> groups;
    DWORD sessionId = 0;

    // The groups an access check counts: the enabled ones.
    std::vector<std::wstring> enabledGroupSids() const;
};

// A process's account and logon SID with the defaults applied; the logon
// SID is empty for a record with noLogonSid.
std::wstring processUserSid(const kernel32::ProcessRecord& process);
std::wstring processLogonSid(const kernel32::ProcessRecord& process);
// The identity OpenProcessToken gives for the process.
TokenIdentity processTokenIdentity(const kernel32::ProcessRecord& process);

// Who the calling thread acts for: the token it impersonates, else the
// token of the service process (the process whose id GetCurrentProcessId
// answers). Host::reset ends every thread's impersonation.
TokenIdentity callingThreadIdentity();
bool callingThreadImpersonates();

// Token handles (of OpenProcessToken, OpenThreadToken, DuplicateTokenEx)
// not yet closed, for leak tests.
size_t openTokenHandleCount();

}  // namespace advapi32
}  // namespace simhost
