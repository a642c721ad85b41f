// SIDs and security descriptors in SDDL, both ways, and the process's
// access token. The running account differs from machine to machine, so
// the token is told by its shape, never by its SIDs.
#include "Probe.h"

namespace probe {
namespace {

constexpr SECURITY_INFORMATION kOwnerGroupDacl =
    OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;

// The descriptor as text again, with the parts the mask names.
std::string descriptorText(PSECURITY_DESCRIPTOR descriptor, SECURITY_INFORMATION parts) {
    LPWSTR sddl = nullptr;
    ULONG length = 0;
    primeLastError();
    BOOL ok = ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1, parts, &sddl, &length);
    std::string told = ok ? "length=" + number(length) + " " + text(sddl) : outcome(false);
    if (sddl) LocalFree(sddl);
    return told;
}

void probeDescriptor(const wchar_t* sddl, DWORD revision = SDDL_REVISION_1) {
    const std::string topic = "SDDL " + text(sddl) + (revision == SDDL_REVISION_1 ? "" : " revision " + number(revision));
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ULONG size = 0;
    primeLastError();
    BOOL ok = ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl, revision, &descriptor, &size);
    observe(topic + " to-descriptor", outcome(ok) + (ok ? " valid=" + number(IsValidSecurityDescriptor(descriptor)) : ""));
    if (!ok) return;
    observe(topic + " to-text", descriptorText(descriptor, kOwnerGroupDacl));
    observe(topic + " to-text dacl", descriptorText(descriptor, DACL_SECURITY_INFORMATION));
    LocalFree(descriptor);
}

void probeSid(const wchar_t* sidText) {
    const std::string topic = "SID " + (sidText ? text(sidText) : std::string("null"));
    PSID sid = nullptr;
    primeLastError();
    BOOL ok = ConvertStringSidToSidW(sidText, &sid);
    if (!ok) {
        observe(topic, outcome(false));
        return;
    }
    LPWSTR back = nullptr;
    BOOL written = ConvertSidToStringSidW(sid, &back);
    observe(topic, outcome(true) + " length=" + number(GetLengthSid(sid)) + " text=" + (written ? text(back) : "none"));
    if (back) LocalFree(back);
    LocalFree(sid);
}

DWORD sidBytes(const SID_AND_ATTRIBUTES& group) { return GetLengthSid(group.Sid); }

void probeTokenUser(HANDLE token) {
    DWORD needed = 0;
    primeLastError();
    BOOL ok = GetTokenInformation(token, TokenUser, nullptr, 0, &needed);
    observe("GetTokenInformation(TokenUser) size-query", outcome(ok) + " needed=" + (needed ? "positive" : "0"));
    std::vector<BYTE> buffer(needed);
    DWORD written = 0;
    primeLastError();
    ok = GetTokenInformation(token, TokenUser, buffer.data(), needed, &written);
    if (!ok) {
        observe("GetTokenInformation(TokenUser) fetch", outcome(false));
        return;
    }
    const TOKEN_USER& user = *reinterpret_cast<const TOKEN_USER*>(buffer.data());
    const bool exact = needed == sizeof(TOKEN_USER) + GetLengthSid(user.User.Sid);
    observe("GetTokenInformation(TokenUser) fetch",
            outcome(true) + std::string(" written=") + (written == needed ? "same" : "other") +
                " needed=" + (exact ? "record+sid" : "other") + " valid=" + number(IsValidSid(user.User.Sid)) +
                " attributes=" + number(user.User.Attributes));
}

void probeTokenGroups(HANDLE token) {
    DWORD needed = 0;
    primeLastError();
    BOOL ok = GetTokenInformation(token, TokenGroups, nullptr, 0, &needed);
    observe("GetTokenInformation(TokenGroups) size-query", outcome(ok) + " needed=" + (needed ? "positive" : "0"));
    std::vector<BYTE> buffer(needed + 1);
    DWORD shortNeeded = 0;
    primeLastError();
    ok = GetTokenInformation(token, TokenGroups, buffer.data(), needed - 1, &shortNeeded);
    observe("GetTokenInformation(TokenGroups) short-buffer",
            outcome(ok) + " needed=" + (shortNeeded == needed ? "same" : "other"));
    primeLastError();
    ok = GetTokenInformation(token, TokenGroups, nullptr, 16, &shortNeeded);
    observe("GetTokenInformation(TokenGroups) null-buffer-with-size", outcome(ok));
    DWORD written = 0;
    primeLastError();
    ok = GetTokenInformation(token, TokenGroups, buffer.data(), needed, &written);
    if (!ok) {
        observe("GetTokenInformation(TokenGroups) fetch", outcome(false));
        return;
    }
    const TOKEN_GROUPS& groups = *reinterpret_cast<const TOKEN_GROUPS*>(buffer.data());
    DWORD sids = 0;
    int logonSids = 0;
    bool allValid = true;
    const BYTE* end = buffer.data() + needed;
    bool inside = true;
    for (DWORD i = 0; i < groups.GroupCount; ++i) {
        sids += sidBytes(groups.Groups[i]);
        allValid = allValid && IsValidSid(groups.Groups[i].Sid);
        const BYTE* at = static_cast<const BYTE*>(groups.Groups[i].Sid);
        inside = inside && at > buffer.data() && at < end;
        if ((groups.Groups[i].Attributes & SE_GROUP_LOGON_ID) == SE_GROUP_LOGON_ID) ++logonSids;
    }
    const size_t records = offsetof(TOKEN_GROUPS, Groups) + groups.GroupCount * sizeof(SID_AND_ATTRIBUTES);
    observe("GetTokenInformation(TokenGroups) fetch",
            outcome(true) + " written=" + (written == needed ? "same" : "other") +
                " count=" + (groups.GroupCount ? "positive" : "0") +
                " needed=" + (needed >= records + sids ? "records+sids" : "other") +
                " sids-in-buffer=" + (inside ? "yes" : "no") + " valid=" + (allValid ? "all" : "not-all") +
                " logon-sids=" + number(static_cast<unsigned long>(logonSids)));
}

}  // namespace

void probeSecurity() {
    probeDescriptor(
        L"O:SYG:SYD:(A;;LCSWSDRCWDWO;;;SY)(A;OIIO;GA;;;CO)(A;;SWRC;;;WD)(A;CIIO;GX;;;WD)(A;;LCSWSDRCWDWO;;;BA)"
        L"(A;OICIIO;GA;;;BA)");
    probeDescriptor(L"O:SYG:SYD:P(A;;LCSWSDRCWDWO;;;SY)(A;;LCSWSDRCWDWO;;;BA)(A;;SWRC;;;S-1-5-5-0-1234)"
                    L"(A;OICIIO;GA;;;S-1-5-5-0-1234)");
    probeDescriptor(L"D:(A;;0x1200a9;;;WD)(D;;GA;;;AN)");
    probeDescriptor(L"D:(A;;FA;;;BA)(A;;KR;;;BU)");
    probeDescriptor(L"D:NO_ACCESS_CONTROL");
    probeDescriptor(L"D:");
    probeDescriptor(L"O:BAG:BU");
    probeDescriptor(L"O:XX");
    probeDescriptor(L"D:(A;;ZZ;;;WD)");
    probeDescriptor(L"D:(A;;GA;;WD)");
    probeDescriptor(L"garbage");
    probeDescriptor(L"O:DA");
    probeDescriptor(L"O:SY", 2);
    PSECURITY_DESCRIPTOR none = nullptr;
    primeLastError();
    observe("SDDL null to-descriptor",
            outcome(ConvertStringSecurityDescriptorToSecurityDescriptorW(nullptr, SDDL_REVISION_1, &none, nullptr)));

    for (const wchar_t* sid : {L"S-1-5-18", L"SY", L"BA", L"WD", L"S-1-5-5-0-1234", L"S-1-5-21-1-2-3-1001",
                               L"S-1-0x123456789ABC-7", L"S-1-", L"bogus", L"DA", L""})
        probeSid(sid);
    probeSid(nullptr);
}

void probeToken() {
    HANDLE token = nullptr;
    primeLastError();
    BOOL ok = OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token);
    observe("OpenProcessToken(TOKEN_QUERY)", outcome(ok));
    if (!ok) return;
    probeTokenUser(token);
    probeTokenGroups(token);
    CloseHandle(token);
}

}  // namespace probe
