// The event log of the simulated advapi32: event sources, entries with their
// type, category, id, user SID, insertion strings and raw data, and the
// refusals of ReportEventW.
#include "simhost/advapi32/advapi32.h"
#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace simhost::advapi32;

namespace {

constexpr DWORD kUntouched = 0xDEADBEEF;

class Advapi32EventLog : public ::testing::Test {
protected:
    void SetUp() override { simhost::Host::get().reset(); }
    void TearDown() override { EXPECT_EQ(openEventSourceCount(), 0u); }
};

TEST_F(Advapi32EventLog, EntryKeepsItsSourceTypeCategoryIdAndStrings) {
    HANDLE source = RegisterEventSourceW(nullptr, L"Vexor_PrintingService");
    ASSERT_NE(source, nullptr);
    LPCWSTR strings[] = {L"Vexor_PrintingService", L"5"};
    SetLastError(kUntouched);
    EXPECT_TRUE(ReportEventW(source, EVENTLOG_ERROR_TYPE, 0, 0xC0000070, nullptr, 2, 0, strings, nullptr));
    EXPECT_EQ(GetLastError(), kUntouched);
    EXPECT_TRUE(ReportEventW(source, EVENTLOG_SUCCESS, 0, 111, nullptr, 1, 0, strings, nullptr));
    EXPECT_TRUE(DeregisterEventSource(source));

    std::vector<EventLogEntry> entries = eventLogEntries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].source, L"Vexor_PrintingService");
    EXPECT_EQ(entries[0].type, EVENTLOG_ERROR_TYPE);
    EXPECT_EQ(entries[0].category, 0);
    EXPECT_EQ(entries[0].eventId, 0xC0000070u);
    EXPECT_EQ(entries[0].strings, (std::vector<std::wstring>{L"Vexor_PrintingService", L"5"}));
    EXPECT_TRUE(entries[0].userSid.empty());
    EXPECT_TRUE(entries[0].rawData.empty());
    EXPECT_EQ(entries[1].type, EVENTLOG_SUCCESS);
    EXPECT_EQ(entries[1].eventId, 111u);
    EXPECT_EQ(entries[1].strings, std::vector<std::wstring>{L"Vexor_PrintingService"});
}

TEST_F(Advapi32EventLog, UserSidAndRawDataAreKept) {
    HANDLE source = RegisterEventSourceW(L"", L"Source");
    // S-1-5-18: revision 1, one sub-authority, authority 5, sub-authority 18.
    BYTE localSystem[] = {1, 1, 0, 0, 0, 0, 0, 5, 18, 0, 0, 0};
    BYTE data[] = {0xCA, 0xFE};
    EXPECT_TRUE(ReportEventW(source, EVENTLOG_WARNING_TYPE, 7, 42, localSystem, 0, sizeof data, nullptr, data));
    std::vector<EventLogEntry> entries = eventLogEntries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].category, 7);
    EXPECT_EQ(entries[0].userSid, std::vector<BYTE>(localSystem, localSystem + sizeof localSystem));
    EXPECT_EQ(entries[0].rawData, (std::vector<BYTE>{0xCA, 0xFE}));
    EXPECT_TRUE(entries[0].strings.empty());
    EXPECT_TRUE(DeregisterEventSource(source));
}

TEST_F(Advapi32EventLog, DeregisteredSourceIsInvalidHandle) {
    HANDLE source = RegisterEventSourceW(nullptr, L"Source");
    EXPECT_TRUE(DeregisterEventSource(source));
    EXPECT_FALSE(ReportEventW(source, EVENTLOG_SUCCESS, 0, 1, nullptr, 0, 0, nullptr, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_FALSE(DeregisterEventSource(source));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_TRUE(eventLogEntries().empty());
}

TEST_F(Advapi32EventLog, BadArgumentsAreRefused) {
    HANDLE source = RegisterEventSourceW(nullptr, L"Source");
    EXPECT_FALSE(ReportEventW(source, EVENTLOG_SUCCESS, 0, 1, nullptr, 1, 0, nullptr, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    std::wstring tooLong(31840, L'x');
    LPCWSTR strings[] = {tooLong.c_str()};
    EXPECT_FALSE(ReportEventW(source, EVENTLOG_SUCCESS, 0, 1, nullptr, 1, 0, strings, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(RPC_S_INVALID_BOUND));
    std::vector<BYTE> data(0xF001);
    EXPECT_FALSE(ReportEventW(source, EVENTLOG_SUCCESS, 0, 1, nullptr, 0, 0xF001, nullptr, data.data()));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(RPC_S_INVALID_BOUND));
    EXPECT_TRUE(eventLogEntries().empty());
    EXPECT_TRUE(DeregisterEventSource(source));
}

TEST_F(Advapi32EventLog, OnlyTheLocalLogIsReached) {
    EXPECT_EQ(RegisterEventSourceW(L"\\\\elsewhere", L"Source"), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(RPC_S_SERVER_UNAVAILABLE));
}

TEST_F(Advapi32EventLog, InjectedFailureFailsReportEvent) {
    HANDLE source = RegisterEventSourceW(nullptr, L"Source");
    simhost::Host::get().faults().failCall("ReportEventW", ERROR_NOT_ENOUGH_MEMORY, 1);
    EXPECT_FALSE(ReportEventW(source, EVENTLOG_SUCCESS, 0, 1, nullptr, 0, 0, nullptr, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_TRUE(eventLogEntries().empty());
    EXPECT_TRUE(ReportEventW(source, EVENTLOG_SUCCESS, 0, 1, nullptr, 0, 0, nullptr, nullptr));
    EXPECT_EQ(eventLogEntries().size(), 1u);
    EXPECT_TRUE(DeregisterEventSource(source));
}

}  // namespace
