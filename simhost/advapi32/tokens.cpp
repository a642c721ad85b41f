// The token model: what the token of each process holds, the token each
// thread impersonates, and the host API over them.
#include "simhost/advapi32/tokens_internal.h"

#include "simhost/advapi32/advapi32_internal.h"
#include "simhost/advapi32/security.h"
#include "simhost/core/host.h"
#include "simhost/kernel32/process_table.h"

#include <map>
#include <mutex>

namespace simhost {
namespace {

// Session n's default user and logon SID end in 1000 + n.
constexpr DWORD kFirstSessionRid = 1000;
constexpr DWORD kGroupEnabled = SE_GROUP_MANDATORY | SE_GROUP_ENABLED_BY_DEFAULT | SE_GROUP_ENABLED;

constexpr const wchar_t* kEveryoneSid = L"S-1-1-0";
constexpr const wchar_t* kUsersSid = L"S-1-5-32-545";
constexpr const wchar_t* kInteractiveSid = L"S-1-5-4";
constexpr const wchar_t* kAuthenticatedUsersSid = L"S-1-5-11";
constexpr const wchar_t* kAdministratorsSid = L"S-1-5-32-544";

// The token mapping of generic rights, as Windows maps them for tokens.
constexpr advapi32::GenericMapping kTokenMapping = {TOKEN_READ, TOKEN_WRITE, TOKEN_EXECUTE, TOKEN_ALL_ACCESS};

std::wstring sessionRid(DWORD sessionId) { return std::to_wstring(kFirstSessionRid + sessionId); }

// The tokens threads impersonate, by thread id. Kept in the host's state
// rather than thread-local, so that Host::reset ends the impersonation of
// every thread, the pool's long-lived threads included. Thread ids are never
// reused, so an entry left by an ended thread is never taken for another's.
struct Impersonations {
    std::mutex mutex;
    std::map<DWORD, advapi32::TokenPtr> byThread;
};

Impersonations& impersonations() { return Host::get().state<Impersonations>(); }

// The token of the process the service runs in; the default system token
// if a test has taken that process out of the table.
advapi32::TokenIdentity serviceProcessIdentity() {
    std::shared_ptr<kernel32::Process> self = kernel32::findRunningProcess(GetCurrentProcessId());
    return advapi32::processTokenIdentity(self ? self->record() : kernel32::ProcessRecord{});
}

}  // namespace

std::wstring sessionUserSid(DWORD sessionId) {
    if (sessionId == 0) return kLocalSystemSid;
    return std::wstring(kMachineDomainSid) + L"-" + sessionRid(sessionId);
}

std::wstring sessionLogonSid(DWORD sessionId) { return L"S-1-5-5-0-" + sessionRid(sessionId); }

namespace advapi32 {

std::vector<std::wstring> TokenIdentity::enabledGroupSids() const {
    std::vector<std::wstring> enabled;
    for (const TokenGroup& group : groups)
        if (group.attributes & SE_GROUP_ENABLED) enabled.push_back(group.sid);
    return enabled;
}

std::wstring processUserSid(const kernel32::ProcessRecord& process) {
    return process.userSid.empty() ? sessionUserSid(process.sessionId) : process.userSid;
}

std::wstring processLogonSid(const kernel32::ProcessRecord& process) {
    if (process.noLogonSid) return {};
    return process.logonSid.empty() ? sessionLogonSid(process.sessionId) : process.logonSid;
}

// The logon SID is not first: Windows does not promise an order, and
// callers find it by its attributes.
TokenIdentity processTokenIdentity(const kernel32::ProcessRecord& process) {
    TokenIdentity identity;
    identity.userSid = processUserSid(process);
    identity.sessionId = process.sessionId;
    const bool system = identity.userSid == kLocalSystemSid;
    const std::wstring logonSid = processLogonSid(process);
    auto add = [&](const std::wstring& sid, DWORD attributes) { identity.groups.push_back({sid, attributes}); };
    add(kEveryoneSid, kGroupEnabled);
    add(kUsersSid, kGroupEnabled);
    if (!system) add(kInteractiveSid, kGroupEnabled);
    if (!logonSid.empty()) add(logonSid, SE_GROUP_LOGON_ID | kGroupEnabled);
    add(kAuthenticatedUsersSid, kGroupEnabled);
    if (system) add(kAdministratorsSid, SE_GROUP_OWNER | kGroupEnabled);
    return identity;
}

TokenIdentity callingThreadIdentity() {
    TokenPtr token = impersonationToken();
    return token ? token->identity : serviceProcessIdentity();
}

bool callingThreadImpersonates() { return impersonationToken() != nullptr; }

size_t openTokenHandleCount() { return openHandleCount("Token"); }

HANDLE registerToken(TokenPtr token, ACCESS_MASK access) {
    return registerHandle(std::make_shared<TokenHandle>(std::move(token), access));
}

ACCESS_MASK mapTokenAccess(ACCESS_MASK desired) { return mapGenericAccess(desired, kTokenMapping); }

TokenPtr primaryTokenOf(const kernel32::ProcessRecord& process) {
    return std::make_shared<AccessToken>(AccessToken{processTokenIdentity(process), TokenPrimary, SecurityAnonymous});
}

TokenPtr impersonationToken() {
    Impersonations& state = impersonations();
    std::lock_guard<std::mutex> hold(state.mutex);
    auto found = state.byThread.find(GetCurrentThreadId());
    return found == state.byThread.end() ? nullptr : found->second;
}

void setImpersonationToken(TokenPtr token) {
    Impersonations& state = impersonations();
    std::lock_guard<std::mutex> hold(state.mutex);
    if (token)
        state.byThread[GetCurrentThreadId()] = std::move(token);
    else
        state.byThread.erase(GetCurrentThreadId());
}

}  // namespace advapi32
}  // namespace simhost
