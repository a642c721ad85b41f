// Access tokens of the simulated host: the token of each process with its
// user, groups and logon SID, the two-call size protocol of
// GetTokenInformation, rights and handles, duplicates, impersonation per
// thread, and the spooler following the thread's identity.
#include "simhost/advapi32/security.h"
#include "simhost/advapi32/tokens.h"
#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/kernel32/objects.h"
#include "simhost/kernel32/processes.h"
#include "simhost/kernel32/threads.h"
#include "simhost/kernel32/toolhelp.h"
#include "simhost/winspool/spooler.h"
#include "simhost/winspool/winspool.h"

#include "winspool_test_helpers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using simhost::kernel32::ProcessRecord;

namespace {

constexpr DWORD kUntouched = 0xDEADBEEF;
constexpr DWORD kEnabled = SE_GROUP_MANDATORY | SE_GROUP_ENABLED_BY_DEFAULT | SE_GROUP_ENABLED;
constexpr DWORD kLoaderId = 5000;       // session 2, default account
constexpr DWORD kHelperId = 5001;       // session 2, default account
constexpr DWORD kSecondSessionId = 6000;  // session 3, the user of session 2
constexpr DWORD kNoLogonId = 7000;      // session 2, a token without logon SID
constexpr const wchar_t* kPrinter = L"Session Desk";

const std::wstring kSessionTwoUser = std::wstring(simhost::kMachineDomainSid) + L"-1002";

class Tokens : public ::testing::Test {
protected:
    void SetUp() override {
        simhost::Host::get().reset();
        simhost::setCurrentProcessId(4242);
        addProcess(kLoaderId, 2);
        addProcess(kHelperId, 2);
        ProcessRecord second{kSecondSessionId, 4, 3, L"C:\\Windows\\explorer.exe"};
        second.userSid = kSessionTwoUser;
        simhost::kernel32::addProcess(second);
        ProcessRecord bare{kNoLogonId, 4, 2, L"C:\\Windows\\bare.exe"};
        bare.noLogonSid = true;
        simhost::kernel32::addProcess(bare);
    }
    void TearDown() override { simhost::Host::get().reset(); }

    static void addProcess(DWORD id, DWORD session) {
        simhost::kernel32::addProcess({id, 4, session, L"C:\\Windows\\app.exe"});
    }
};

HANDLE openToken(DWORD processId, DWORD access = TOKEN_QUERY) {
    HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId);
    EXPECT_NE(process, nullptr);
    HANDLE token = nullptr;
    EXPECT_TRUE(OpenProcessToken(process, access, &token)) << GetLastError();
    CloseHandle(process);
    return token;
}

// The size query, then the answer in a block of exactly that size.
std::vector<BYTE> information(HANDLE token, TOKEN_INFORMATION_CLASS kind) {
    DWORD needed = kUntouched;
    EXPECT_FALSE(GetTokenInformation(token, kind, nullptr, 0, &needed));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    std::vector<BYTE> block(needed);
    DWORD used = 0;
    EXPECT_TRUE(GetTokenInformation(token, kind, block.data(), needed, &used)) << GetLastError();
    EXPECT_EQ(used, needed);
    return block;
}

bool inside(const void* pointer, const std::vector<BYTE>& block) { return winspool_test::inside(pointer, block); }

std::wstring textOf(PSID sid) { return simhost::sidToText(static_cast<const BYTE*>(sid)); }

struct Group {
    std::wstring sid;
    DWORD attributes;
    bool operator==(const Group& other) const { return sid == other.sid && attributes == other.attributes; }
};

// Walks a TOKEN_GROUPS block as callers do, checking that every SID lies in
// the block behind the array, one after the other.
std::vector<Group> groupsOf(const std::vector<BYTE>& block) {
    const auto* groups = reinterpret_cast<const TOKEN_GROUPS*>(block.data());
    const BYTE* next = block.data() + offsetof(TOKEN_GROUPS, Groups) + groups->GroupCount * sizeof(SID_AND_ATTRIBUTES);
    std::vector<Group> listed;
    for (DWORD index = 0; index < groups->GroupCount; ++index) {
        const SID_AND_ATTRIBUTES& entry = groups->Groups[index];
        EXPECT_EQ(entry.Sid, next) << "group " << index;
        EXPECT_TRUE(inside(entry.Sid, block));
        listed.push_back({textOf(entry.Sid), entry.Attributes});
        next += GetLengthSid(entry.Sid);
    }
    EXPECT_EQ(next, block.data() + block.size());
    return listed;
}

std::vector<Group> groupsOf(HANDLE token) { return groupsOf(information(token, TokenGroups)); }

std::wstring userOf(HANDLE token) {
    std::vector<BYTE> block = information(token, TokenUser);
    const auto* user = reinterpret_cast<const TOKEN_USER*>(block.data());
    EXPECT_EQ(user->User.Sid, block.data() + sizeof(TOKEN_USER));
    EXPECT_EQ(block.size(), sizeof(TOKEN_USER) + GetLengthSid(user->User.Sid));
    EXPECT_EQ(user->User.Attributes, 0u);
    return textOf(user->User.Sid);
}

// The first group with both bits of SE_GROUP_LOGON_ID, as callers find it.
std::wstring logonSidOf(HANDLE token) {
    for (const Group& group : groupsOf(token))
        if ((group.attributes & SE_GROUP_LOGON_ID) == SE_GROUP_LOGON_ID) return group.sid;
    return L"";
}

template <class Value>
Value valueOf(HANDLE token, TOKEN_INFORMATION_CLASS kind) {
    Value value{};
    DWORD used = 0;
    EXPECT_TRUE(GetTokenInformation(token, kind, &value, sizeof value, &used)) << GetLastError();
    EXPECT_EQ(used, sizeof value);
    return value;
}

// Makes the calling thread act for the process's user.
void impersonate(DWORD processId) {
    HANDLE token = openToken(processId, TOKEN_QUERY | TOKEN_DUPLICATE);
    EXPECT_TRUE(ImpersonateLoggedOnUser(token)) << GetLastError();
    CloseHandle(token);
}

std::wstring callerUser() { return simhost::advapi32::callingThreadIdentity().userSid; }

// A printer whose descriptor lets only the local system account and the
// holders of one logon SID use it.
void addPrinterFor(const std::wstring& logonSid) {
    winspool_test::installDriver();
    simhost::winspool::SpoolerPrinter printer;
    printer.name = kPrinter;
    printer.portName = L"LPT1:";
    printer.driverName = winspool_test::kDriver;
    printer.securityDescriptor =
        simhost::winspool::descriptorFromSddl(L"O:SYG:SYD:(A;;LCSWSDRCWDWO;;;SY)(A;;SWRC;;;" + logonSid + L")");
    simhost::winspool::addPrinter(printer);
}

// What OpenPrinterW answers for the printer on the calling thread.
DWORD openPrinterError() {
    HANDLE printer = nullptr;
    std::wstring name = kPrinter;
    if (!OpenPrinterW(name.data(), &printer, nullptr)) return GetLastError();
    ClosePrinter(printer);
    return 0;
}

DWORD openPrinter2Error() {
    HANDLE printer = nullptr;
    if (!OpenPrinter2W(kPrinter, &printer, nullptr, nullptr)) return GetLastError();
    ClosePrinter(printer);
    return 0;
}

template <class Work>
auto onOwnThread(Work work) {
    std::future<decltype(work())> result = std::async(std::launch::async, work);
    EXPECT_EQ(result.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    return result.get();
}

}  // namespace

// ---- Default identities ----

TEST_F(Tokens, SessionDefaultsAreTheSystemAccountAndOneUserAndLogonSidPerSession) {
    EXPECT_EQ(simhost::sessionUserSid(0), L"S-1-5-18");
    EXPECT_EQ(simhost::sessionUserSid(2), kSessionTwoUser);
    EXPECT_EQ(simhost::sessionLogonSid(0), L"S-1-5-5-0-1000");
    EXPECT_EQ(simhost::sessionLogonSid(2), L"S-1-5-5-0-1002");
}

TEST_F(Tokens, TheServiceProcessRunsAsLocalSystemWithTheSessionZeroLogonSid) {
    HANDLE token = nullptr;
    ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token));
    EXPECT_EQ(userOf(token), L"S-1-5-18");
    std::vector<Group> expected = {{L"S-1-1-0", kEnabled},
                                   {L"S-1-5-32-545", kEnabled},
                                   {L"S-1-5-5-0-1000", SE_GROUP_LOGON_ID | kEnabled},
                                   {L"S-1-5-11", kEnabled},
                                   {L"S-1-5-32-544", SE_GROUP_OWNER | kEnabled}};
    EXPECT_EQ(groupsOf(token), expected);
    EXPECT_EQ(valueOf<TOKEN_TYPE>(token, TokenType), TokenPrimary);
    EXPECT_EQ(valueOf<DWORD>(token, TokenSessionId), 0u);
    EXPECT_TRUE(CloseHandle(token));
}

TEST_F(Tokens, AUserTokenHoldsInteractiveAndItsLogonSidButNotFirst) {
    HANDLE token = openToken(kLoaderId);
    EXPECT_EQ(userOf(token), kSessionTwoUser);
    std::vector<Group> expected = {{L"S-1-1-0", kEnabled},
                                   {L"S-1-5-32-545", kEnabled},
                                   {L"S-1-5-4", kEnabled},
                                   {L"S-1-5-5-0-1002", 0xC0000007u},
                                   {L"S-1-5-11", kEnabled}};
    EXPECT_EQ(groupsOf(token), expected);
    EXPECT_EQ(valueOf<DWORD>(token, TokenSessionId), 2u);
    CloseHandle(token);
}

TEST_F(Tokens, ProcessesOfOneSessionShareALogonSidAndTwoSessionsOfOneUserDoNot) {
    HANDLE loader = openToken(kLoaderId), helper = openToken(kHelperId), second = openToken(kSecondSessionId);
    EXPECT_EQ(logonSidOf(loader), logonSidOf(helper));
    EXPECT_EQ(userOf(second), userOf(loader));
    EXPECT_EQ(logonSidOf(second), L"S-1-5-5-0-1003");
    EXPECT_NE(logonSidOf(second), logonSidOf(loader));
    for (HANDLE token : {loader, helper, second}) CloseHandle(token);
}

TEST_F(Tokens, ATokenWithoutLogonSidHasNoneToFind) {
    HANDLE bare = openToken(kNoLogonId);
    EXPECT_EQ(logonSidOf(bare), L"");
    EXPECT_EQ(groupsOf(bare).size(), 4u);
    DWORD needed = kUntouched;
    EXPECT_FALSE(GetTokenInformation(bare, TokenLogonSid, nullptr, 0, &needed));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_FOUND));
    EXPECT_EQ(needed, kUntouched);
    CloseHandle(bare);
}

TEST_F(Tokens, TokenLogonSidAnswersTheLogonGroupAlone) {
    HANDLE token = openToken(kLoaderId);
    std::vector<Group> expected = {{L"S-1-5-5-0-1002", SE_GROUP_LOGON_ID | kEnabled}};
    EXPECT_EQ(groupsOf(information(token, TokenLogonSid)), expected);
    CloseHandle(token);
}

TEST_F(Tokens, AccountsGivenToAProcessAreKeptInStandardForm) {
    ProcessRecord named{8000, 4, 1, L"C:\\Windows\\svc.exe"};
    named.userSid = L"SY";
    named.logonSid = L"S-1-5-5-0-77";
    simhost::kernel32::addProcess(named);
    EXPECT_EQ(simhost::kernel32::processes().back().userSid, L"S-1-5-18");
    HANDLE token = openToken(8000);
    EXPECT_EQ(userOf(token), L"S-1-5-18");
    EXPECT_EQ(logonSidOf(token), L"S-1-5-5-0-77");
    CloseHandle(token);
    ProcessRecord wrong{8001, 4, 1, L"C:\\Windows\\svc.exe"};
    wrong.logonSid = L"S-1-x";
    EXPECT_THROW(simhost::kernel32::addProcess(wrong), std::invalid_argument);
}

// ---- GetTokenInformation's sizes ----

TEST_F(Tokens, ASmallBufferGetsTheSizeNeededAndNothingWritten) {
    HANDLE token = openToken(kLoaderId);
    for (TOKEN_INFORMATION_CLASS kind : {TokenUser, TokenGroups, TokenType, TokenSessionId, TokenLogonSid}) {
        DWORD needed = 0;
        EXPECT_FALSE(GetTokenInformation(token, kind, nullptr, 0, &needed));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
        ASSERT_GT(needed, 0u);
        std::vector<BYTE> small(needed - 1, 0xAB);
        DWORD asked = 0;
        EXPECT_FALSE(GetTokenInformation(token, kind, small.data(), needed - 1, &asked));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
        EXPECT_EQ(asked, needed);
        EXPECT_EQ(small, std::vector<BYTE>(needed - 1, 0xAB)) << kind;
    }
    CloseHandle(token);
}

TEST_F(Tokens, RecordsComeFirstWithTheirSidsBehindThem) {
    HANDLE token = openToken(kLoaderId);
    std::vector<BYTE> groups = information(token, TokenGroups);
    EXPECT_EQ(reinterpret_cast<const TOKEN_GROUPS*>(groups.data())->GroupCount, 5u);
    // 8 bytes of count, 5 entries of 16, then Everyone (12), Users (16),
    // INTERACTIVE (12), the logon SID (20) and Authenticated Users (12).
    EXPECT_EQ(groups.size(), 8u + 5 * 16 + 12 + 16 + 12 + 20 + 12);
    EXPECT_EQ(information(token, TokenUser).size(), 16u + 28);
    DWORD needed = 0;
    EXPECT_FALSE(GetTokenInformation(token, TokenSessionId, nullptr, 0, &needed));
    EXPECT_EQ(needed, sizeof(DWORD));
    CloseHandle(token);
}

TEST_F(Tokens, ASuccessLeavesTheLastErrorAlone) {
    HANDLE token = openToken(kLoaderId, TOKEN_QUERY | TOKEN_DUPLICATE);
    HANDLE copy = nullptr, own = nullptr;
    SetLastError(kUntouched);
    EXPECT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &own));
    EXPECT_EQ(valueOf<DWORD>(token, TokenSessionId), 2u);
    EXPECT_TRUE(DuplicateTokenEx(token, 0, nullptr, SecurityImpersonation, TokenPrimary, &copy));
    EXPECT_TRUE(ImpersonateLoggedOnUser(token));
    EXPECT_TRUE(RevertToSelf());
    EXPECT_EQ(GetLastError(), kUntouched);
    for (HANDLE handle : {token, copy, own}) CloseHandle(handle);
}

TEST_F(Tokens, ClassesNotModelledAndBadPointersAreRefused) {
    HANDLE token = openToken(kLoaderId);
    DWORD needed = 0;
    for (TOKEN_INFORMATION_CLASS kind : {static_cast<TOKEN_INFORMATION_CLASS>(0), TokenPrivileges}) {
        EXPECT_FALSE(GetTokenInformation(token, kind, nullptr, 0, &needed));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    }
    EXPECT_FALSE(GetTokenInformation(token, TokenUser, nullptr, 0, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOACCESS));
    EXPECT_FALSE(GetTokenInformation(token, TokenUser, nullptr, 64, &needed));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOACCESS));
    CloseHandle(token);
}

// ---- Rights and handles ----

TEST_F(Tokens, RightsHaveTheirWindowsValues) {
    EXPECT_EQ(TOKEN_READ, 0x20008u);
    EXPECT_EQ(TOKEN_ALL_ACCESS, 0xF01FFu);
    EXPECT_EQ(SE_GROUP_LOGON_ID | kEnabled, 0xC0000007u);
}

TEST_F(Tokens, QueryingNeedsTokenQuery) {
    HANDLE token = openToken(kLoaderId, TOKEN_DUPLICATE);
    DWORD needed = 0;
    EXPECT_FALSE(GetTokenInformation(token, TokenUser, nullptr, 0, &needed));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    CloseHandle(token);
    for (DWORD access : {static_cast<DWORD>(GENERIC_READ), static_cast<DWORD>(MAXIMUM_ALLOWED)}) {
        token = openToken(kLoaderId, access);
        EXPECT_EQ(userOf(token), kSessionTwoUser);
        CloseHandle(token);
    }
}

TEST_F(Tokens, OpeningATokenNeedsAQueryRightOnTheProcess) {
    HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, kLoaderId);
    HANDLE token = nullptr;
    EXPECT_FALSE(OpenProcessToken(process, TOKEN_QUERY, &token));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(token, nullptr);
    CloseHandle(process);
    process = OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, kLoaderId);
    EXPECT_TRUE(OpenProcessToken(process, TOKEN_QUERY, &token));
    CloseHandle(token);
    CloseHandle(process);
}

TEST_F(Tokens, MaximumAllowedOpensAProcessWithEveryRight) {
    HANDLE process = OpenProcess(MAXIMUM_ALLOWED, FALSE, kLoaderId);
    ASSERT_NE(process, nullptr);
    HANDLE token = nullptr;
    EXPECT_TRUE(OpenProcessToken(process, TOKEN_QUERY, &token));
    WCHAR name[MAX_PATH];
    EXPECT_GT(K32GetModuleFileNameExW(process, nullptr, name, MAX_PATH), 0u);
    CloseHandle(token);
    CloseHandle(process);
}

TEST_F(Tokens, AHandleOpenedBeforeTheProcessExitedStillGivesItsToken) {
    HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, kLoaderId);
    ASSERT_TRUE(simhost::kernel32::markExited(kLoaderId));
    HANDLE token = nullptr;
    ASSERT_TRUE(OpenProcessToken(process, TOKEN_QUERY, &token));
    EXPECT_EQ(userOf(token), kSessionTwoUser);
    CloseHandle(token);
    CloseHandle(process);
}

TEST_F(Tokens, BadAndClosedHandlesAreRefused) {
    HANDLE token = nullptr;
    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    // INVALID_HANDLE_VALUE is GetCurrentProcess()'s pseudo-handle, so not
    // among the wrong process handles.
    for (HANDLE wrong : {static_cast<HANDLE>(nullptr), event}) {
        EXPECT_FALSE(OpenProcessToken(wrong, TOKEN_QUERY, &token));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
        DWORD needed = 0;
        EXPECT_FALSE(GetTokenInformation(wrong, TokenUser, nullptr, 0, &needed));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
        EXPECT_FALSE(ImpersonateLoggedOnUser(wrong));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    }
    EXPECT_EQ(token, nullptr);
    EXPECT_FALSE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOACCESS));
    token = openToken(kLoaderId);
    EXPECT_TRUE(CloseHandle(token));
    EXPECT_FALSE(CloseHandle(token));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    DWORD needed = 0;
    EXPECT_FALSE(GetTokenInformation(token, TokenUser, nullptr, 0, &needed));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    CloseHandle(event);
}

TEST_F(Tokens, EachOpenGivesADistinctHandleAndTheCountShowsThoseLeftOpen) {
    EXPECT_EQ(simhost::advapi32::openTokenHandleCount(), 0u);
    HANDLE first = openToken(kLoaderId), second = openToken(kLoaderId);
    EXPECT_NE(first, second);
    for (HANDLE token : {first, second}) {
        EXPECT_NE(token, nullptr);
        EXPECT_NE(token, INVALID_HANDLE_VALUE);
    }
    EXPECT_EQ(simhost::advapi32::openTokenHandleCount(), 2u);
    EXPECT_EQ(simhost::openHandleCount("Token"), 2u);
    CloseHandle(first);
    EXPECT_EQ(simhost::advapi32::openTokenHandleCount(), 1u);
    CloseHandle(second);
    EXPECT_EQ(simhost::advapi32::openTokenHandleCount(), 0u);
}

// ---- Duplicates ----

TEST_F(Tokens, ADuplicateCopiesTheIdentityWithTheTypeAsked) {
    HANDLE source = openToken(kLoaderId, TOKEN_DUPLICATE);
    HANDLE copy = nullptr;
    ASSERT_TRUE(DuplicateTokenEx(source, TOKEN_QUERY, nullptr, SecurityIdentification, TokenImpersonation, &copy));
    EXPECT_EQ(userOf(copy), kSessionTwoUser);
    EXPECT_EQ(logonSidOf(copy), L"S-1-5-5-0-1002");
    EXPECT_EQ(valueOf<TOKEN_TYPE>(copy, TokenType), TokenImpersonation);
    EXPECT_EQ(simhost::advapi32::openTokenHandleCount(), 2u);
    CloseHandle(copy);
    CloseHandle(source);
}

TEST_F(Tokens, DuplicatingNeedsTokenDuplicate) {
    HANDLE source = openToken(kLoaderId, TOKEN_QUERY);
    HANDLE copy = nullptr;
    EXPECT_FALSE(DuplicateTokenEx(source, 0, nullptr, SecurityImpersonation, TokenPrimary, &copy));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(copy, nullptr);
    EXPECT_EQ(simhost::advapi32::openTokenHandleCount(), 1u);
    CloseHandle(source);
}

TEST_F(Tokens, NoAccessAskedKeepsTheSourceRightsAndMaximumAllowedGivesAll) {
    HANDLE source = openToken(kLoaderId, TOKEN_DUPLICATE);
    HANDLE same = nullptr, all = nullptr;
    ASSERT_TRUE(DuplicateTokenEx(source, 0, nullptr, SecurityImpersonation, TokenPrimary, &same));
    DWORD needed = 0;
    EXPECT_FALSE(GetTokenInformation(same, TokenUser, nullptr, 0, &needed));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    SECURITY_ATTRIBUTES attributes{sizeof attributes, nullptr, FALSE};
    ASSERT_TRUE(DuplicateTokenEx(same, MAXIMUM_ALLOWED, &attributes, SecurityImpersonation, TokenImpersonation, &all));
    EXPECT_EQ(userOf(all), kSessionTwoUser);
    EXPECT_TRUE(ImpersonateLoggedOnUser(all));
    EXPECT_TRUE(RevertToSelf());
    for (HANDLE token : {source, same, all}) CloseHandle(token);
}

TEST_F(Tokens, AnImpersonationTokenCannotBeRaisedAboveItsLevel) {
    HANDLE source = openToken(kLoaderId, TOKEN_DUPLICATE);
    HANDLE identification = nullptr, copy = nullptr;
    ASSERT_TRUE(DuplicateTokenEx(source, TOKEN_ALL_ACCESS, nullptr, SecurityIdentification, TokenImpersonation,
                                 &identification));
    EXPECT_FALSE(DuplicateTokenEx(identification, 0, nullptr, SecurityImpersonation, TokenImpersonation, &copy));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_BAD_IMPERSONATION_LEVEL));
    EXPECT_FALSE(DuplicateTokenEx(identification, 0, nullptr, SecurityImpersonation, TokenPrimary, &copy));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_BAD_IMPERSONATION_LEVEL));
    EXPECT_FALSE(DuplicateTokenEx(source, 0, nullptr, SecurityImpersonation, static_cast<TOKEN_TYPE>(3), &copy));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_FALSE(DuplicateTokenEx(source, 0, nullptr, SecurityImpersonation, TokenPrimary, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOACCESS));
    EXPECT_EQ(copy, nullptr);
    CloseHandle(identification);
    CloseHandle(source);
}

// ---- Impersonation ----

TEST_F(Tokens, AThreadActsForTheProcessUntilItImpersonatesAndAgainOnceItReverts) {
    EXPECT_EQ(callerUser(), L"S-1-5-18");
    EXPECT_FALSE(simhost::advapi32::callingThreadImpersonates());
    impersonate(kLoaderId);
    EXPECT_TRUE(simhost::advapi32::callingThreadImpersonates());
    EXPECT_EQ(callerUser(), kSessionTwoUser);
    std::vector<std::wstring> groups = simhost::advapi32::callingThreadIdentity().enabledGroupSids();
    EXPECT_NE(std::find(groups.begin(), groups.end(), L"S-1-5-5-0-1002"), groups.end());
    EXPECT_TRUE(RevertToSelf());
    EXPECT_EQ(callerUser(), L"S-1-5-18");
    EXPECT_TRUE(RevertToSelf());
}

TEST_F(Tokens, OneThreadImpersonatingLeavesTheOthersAsTheyAre) {
    std::promise<void> impersonating, checked;
    std::thread worker([&] {
        impersonate(kLoaderId);
        impersonating.set_value();
        EXPECT_EQ(checked.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
        EXPECT_EQ(callerUser(), kSessionTwoUser);
    });
    ASSERT_EQ(impersonating.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(callerUser(), L"S-1-5-18");
    EXPECT_FALSE(simhost::advapi32::callingThreadImpersonates());
    checked.set_value();
    worker.join();
    EXPECT_EQ(onOwnThread([] { return callerUser(); }), L"S-1-5-18");
}

TEST_F(Tokens, ANewMachineEndsEveryImpersonation) {
    impersonate(kLoaderId);
    simhost::Host::get().reset();
    EXPECT_EQ(callerUser(), L"S-1-5-18");
}

TEST_F(Tokens, ImpersonatingNeedsTheRightsOfTheTokensKind) {
    HANDLE queryOnly = openToken(kLoaderId, TOKEN_QUERY);
    EXPECT_FALSE(ImpersonateLoggedOnUser(queryOnly));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    HANDLE source = openToken(kLoaderId, TOKEN_DUPLICATE);
    HANDLE withoutImpersonate = nullptr, withImpersonate = nullptr;
    ASSERT_TRUE(DuplicateTokenEx(source, TOKEN_QUERY | TOKEN_DUPLICATE, nullptr, SecurityImpersonation,
                                 TokenImpersonation, &withoutImpersonate));
    EXPECT_FALSE(ImpersonateLoggedOnUser(withoutImpersonate));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(callerUser(), L"S-1-5-18");
    ASSERT_TRUE(DuplicateTokenEx(source, TOKEN_QUERY | TOKEN_IMPERSONATE, nullptr, SecurityImpersonation,
                                 TokenImpersonation, &withImpersonate));
    EXPECT_TRUE(ImpersonateLoggedOnUser(withImpersonate));
    EXPECT_EQ(callerUser(), kSessionTwoUser);
    EXPECT_TRUE(RevertToSelf());
    for (HANDLE token : {queryOnly, source, withoutImpersonate, withImpersonate}) CloseHandle(token);
}

TEST_F(Tokens, TheThreadTokenIsTheImpersonationTokenWhileThereIsOne) {
    HANDLE token = nullptr;
    EXPECT_FALSE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_TOKEN));
    impersonate(kLoaderId);
    ASSERT_TRUE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, FALSE, &token));
    EXPECT_EQ(userOf(token), kSessionTwoUser);
    EXPECT_EQ(valueOf<TOKEN_TYPE>(token, TokenType), TokenImpersonation);
    CloseHandle(token);
    HANDLE other = nullptr;
    EXPECT_FALSE(OpenThreadToken(GetCurrentProcess(), TOKEN_QUERY, FALSE, &other));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_TRUE(CloseHandle(GetCurrentThread()));
    EXPECT_TRUE(RevertToSelf());
}

// ---- The spooler follows the thread's identity ----

TEST_F(Tokens, APrinterGrantedToALogonSidOpensForThatSessionOnly) {
    addPrinterFor(simhost::sessionLogonSid(2));
    impersonate(kLoaderId);
    EXPECT_EQ(openPrinterError(), 0u);
    EXPECT_EQ(openPrinter2Error(), 0u);
    impersonate(kSecondSessionId);
    EXPECT_EQ(openPrinterError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(openPrinter2Error(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    impersonate(kNoLogonId);
    EXPECT_EQ(openPrinterError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_TRUE(RevertToSelf());
    EXPECT_EQ(openPrinterError(), 0u);
    EXPECT_EQ(simhost::winspool::openSpoolerHandleCount(), 0u);
}

TEST_F(Tokens, SetDefaultPrinterSetsTheDefaultOfTheUserImpersonated) {
    addPrinterFor(simhost::sessionLogonSid(2));
    impersonate(kLoaderId);
    EXPECT_TRUE(SetDefaultPrinterW(kPrinter));
    EXPECT_TRUE(RevertToSelf());
    EXPECT_EQ(simhost::winspool::defaultPrinterOf(kSessionTwoUser), std::optional<std::wstring>(kPrinter));
    EXPECT_EQ(simhost::winspool::defaultPrinterOf(L"S-1-5-18"), std::nullopt);
}

// ---- Faults ----

TEST_F(Tokens, EveryCallFailsUnderItsOwnNameAndChangesNothing) {
    auto& faults = simhost::Host::get().faults();
    HANDLE token = openToken(kLoaderId, TOKEN_ALL_ACCESS);
    for (const char* call : {"OpenProcessToken", "OpenThreadToken", "GetTokenInformation", "DuplicateTokenEx",
                             "ImpersonateLoggedOnUser", "RevertToSelf"})
        faults.failCall(call, ERROR_NOT_ENOUGH_MEMORY);
    HANDLE made = nullptr;
    DWORD needed = kUntouched;
    EXPECT_FALSE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &made));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_FALSE(GetTokenInformation(token, TokenUser, nullptr, 0, &needed));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_FALSE(DuplicateTokenEx(token, 0, nullptr, SecurityImpersonation, TokenPrimary, &made));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_FALSE(ImpersonateLoggedOnUser(token));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(callerUser(), L"S-1-5-18");
    faults.clear("ImpersonateLoggedOnUser");
    ASSERT_TRUE(ImpersonateLoggedOnUser(token));
    EXPECT_FALSE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, FALSE, &made));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_FALSE(RevertToSelf());
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(callerUser(), kSessionTwoUser);
    EXPECT_EQ(made, nullptr);
    EXPECT_EQ(needed, kUntouched);
    EXPECT_EQ(simhost::advapi32::openTokenHandleCount(), 1u);
    faults.clearAll();
    EXPECT_TRUE(RevertToSelf());
    CloseHandle(token);
}
