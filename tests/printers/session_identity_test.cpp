// The logon SID of a process and a printer's descriptor as text, against the
// simulated host's tokens and spooler: the two halves of the ownership test.
#include "printers/PrinterSecurity.h"
#include "printers/SessionIdentity.h"
#include "simhost/advapi32/advapi32.h"
#include "simhost/core/host.h"
#include "simhost/kernel32/processes.h"
#include "simhost/winspool/spooler.h"
#include "support/LogCapture.h"
#include "support/PluginRequests.h"
#include "support/SpoolerArrangement.h"

#include <gtest/gtest.h>

#include <string>

using testsupport::LogCapture;

namespace {

namespace spooler = simhost::winspool;

const int kError = static_cast<int>(kLogError);
const int kNormal = static_cast<int>(kLogNormal);
constexpr const char* kCreate = "PrinterUtil::SessionSIDCreate";
constexpr const char* kByHandle = "PrinterUtil::processHandleToSessionSecurityId";
constexpr const char* kById = "PrinterUtil::processIdToSessionSecurityId";
constexpr const char* kDescriptor = "PrinterUtil::GetPrinterSecurityDescriptorString";
constexpr const wchar_t* kUser = L"S-1-5-21-1111111111-2222222222-3333333333-1001";

std::string narrow(const std::wstring& wide) { return std::string(wide.begin(), wide.end()); }

void addUserProcess(DWORD id, DWORD session, const std::wstring& user = kUser) {
    simhost::kernel32::ProcessRecord record;
    record.processId = id;
    record.parentProcessId = 4;
    record.sessionId = session;
    record.imagePath = L"C:\\Program Files\\Quillion\\VexorAgent\\vexor_vchan_loader.exe";
    record.userSid = user;
    simhost::kernel32::addProcess(record);
}

class SessionIdentity : public ::testing::Test {
protected:
    void SetUp() override {
        testsupport::addTestDriver();
        testsupport::addRawTcpPort(L"P1");
    }
    void TearDown() override { simhost::Host::get().faults().clearAll(); }

    void addPrinter(const std::wstring& name, const std::wstring& sddl) { testsupport::addTestPrinter(name, L"P1", sddl); }
    void expectLine(const std::string& message, uint32_t level, int channel, const std::string& function) {
        testsupport::expectOneLine(log_, message, level, channel, function);
    }
    bool hasLineStartingWith(const std::string& start) const {
        for (const std::string& message : log_.messages())
            if (message.rfind(start, 0) == 0) return true;
        return false;
    }

    LogCapture log_;
};

TEST_F(SessionIdentity, ProcessOfASessionGivesItsLogonSid) {
    addUserProcess(5000, 2);
    const std::string expected = narrow(simhost::sessionLogonSid(2));
    EXPECT_EQ(PrinterUtil::processIdToSessionSecurityId(5000), expected);
    expectLine("Getting Security Id of process:5000", 2, kNormal, kById);
    expectLine("SessionSIDCreate()", 2, kNormal, kCreate);
    expectLine("Found the logon SID; making a copy of it.", 2, kNormal, kCreate);
    expectLine("Session SID: " + expected, 3, kNormal, kCreate);
    expectLine("Got SessionSID:" + expected, 2, kNormal, kByHandle);
    EXPECT_TRUE(hasLineStartingWith("Got process handle:0x"));
}

TEST_F(SessionIdentity, TwoProcessesOfOneSessionShareTheTextAndTwoSessionsOfOneUserDoNot) {
    addUserProcess(5000, 2);
    addUserProcess(5001, 2);
    addUserProcess(5002, 3);
    const std::string first = PrinterUtil::processIdToSessionSecurityId(5000);
    ASSERT_FALSE(first.empty());
    EXPECT_EQ(PrinterUtil::processIdToSessionSecurityId(5001), first);
    const std::string otherSession = PrinterUtil::processIdToSessionSecurityId(5002);
    ASSERT_FALSE(otherSession.empty());
    EXPECT_NE(otherSession, first);
}

TEST_F(SessionIdentity, ArrangedLogonSidIsTheOneGiven) {
    simhost::kernel32::ProcessRecord record{5000, 4, 2, L"C:\\x.exe"};
    record.logonSid = L"S-1-5-5-0-424242";
    simhost::kernel32::addProcess(record);
    EXPECT_EQ(PrinterUtil::processIdToSessionSecurityId(5000), "S-1-5-5-0-424242");
}

TEST_F(SessionIdentity, ProcessThatHasGoneIsUnknown) {
    addUserProcess(5000, 2);
    ASSERT_TRUE(simhost::kernel32::markExited(5000));
    EXPECT_EQ(PrinterUtil::processIdToSessionSecurityId(5000), "");
    expectLine("OpenProcess:5000 failed Err:87:The parameter is incorrect.", 4, kError, kById);
    EXPECT_FALSE(log_.contains("SessionSIDCreate()"));
}

TEST_F(SessionIdentity, TokenWithoutALogonSidIsUnknown) {
    simhost::kernel32::ProcessRecord record{5000, 4, 2, L"C:\\x.exe"};
    record.noLogonSid = true;
    simhost::kernel32::addProcess(record);
    EXPECT_EQ(PrinterUtil::processIdToSessionSecurityId(5000), "");
    expectLine("Couldn't find logon SID", 4, kError, kCreate);
    expectLine("processHandleToSessionSecurityId failed due to GetSessionSID", 4, kError, kByHandle);
    EXPECT_FALSE(log_.contains("Found the logon SID; making a copy of it."));
}

TEST_F(SessionIdentity, EachLookUpLeavesItsTokenHandleOpenAndClosesTheProcess) {
    addUserProcess(5000, 2);
    const size_t before = simhost::advapi32::openTokenHandleCount();
    PrinterUtil::processIdToSessionSecurityId(5000);
    PrinterUtil::processIdToSessionSecurityId(5000);
    EXPECT_EQ(simhost::advapi32::openTokenHandleCount(), before + 2);
}

TEST_F(SessionIdentity, NullOrAllOnesHandleStandsForTheServiceProcess) {
    const std::string own = narrow(simhost::sessionLogonSid(0));
    EXPECT_EQ(PrinterUtil::processHandleToSessionSecurityId(nullptr), own);
    EXPECT_EQ(PrinterUtil::processHandleToSessionSecurityId(INVALID_HANDLE_VALUE), own);
}

TEST_F(SessionIdentity, SizeQueryThatFailsOtherwiseEndsTheLookUp) {
    addUserProcess(5000, 2);
    simhost::Host::get().faults().failCall("GetTokenInformation", ERROR_ACCESS_DENIED, 1);
    EXPECT_EQ(PrinterUtil::processIdToSessionSecurityId(5000), "");
    expectLine("GetTokenInformation1 Err:5:Access is denied.", 4, kError, kCreate);
    expectLine("processHandleToSessionSecurityId failed due to GetSessionSID", 4, kError, kByHandle);
}

TEST_F(SessionIdentity, SecondReadThatFailsEndsTheLookUp) {
    addUserProcess(5000, 2);
    simhost::Host::get().faults().failCall("GetTokenInformation", ERROR_ACCESS_DENIED, 1, 1);
    EXPECT_EQ(PrinterUtil::processIdToSessionSecurityId(5000), "");
    expectLine("GetTokenInformation 2 Err:5:Access is denied.", 4, kError, kCreate);
}

TEST_F(SessionIdentity, CopyThatFailsHandsOutNothing) {
    addUserProcess(5000, 2);
    simhost::Host::get().faults().failCall("CopySid", ERROR_INSUFFICIENT_BUFFER, 1);
    EXPECT_EQ(PrinterUtil::processIdToSessionSecurityId(5000), "");
    expectLine("CopySid Err:122:The data area passed to a system call is too small.", 4, kError, kCreate);
    expectLine("processHandleToSessionSecurityId failed due to GetSessionSID", 4, kError, kByHandle);
}

TEST_F(SessionIdentity, TextThatCannotBeMadeIsLoggedAndUnknown) {
    addUserProcess(5000, 2);
    // The first conversion is the one for the log alone.
    simhost::Host::get().faults().failCall("ConvertSidToStringSidW", ERROR_NOT_ENOUGH_MEMORY, 1, 1);
    EXPECT_EQ(PrinterUtil::processIdToSessionSecurityId(5000), "");
    EXPECT_TRUE(log_.contains("Session SID: " + narrow(simhost::sessionLogonSid(2))));
    expectLine("ConvertSidToStringSid error: Err:8:Not enough memory resources are available to process this command.", 4,
               kError, kByHandle);
}

// ---- The printer's side ----

TEST_F(SessionIdentity, PrinterDescriptorIsItsCanonicalText) {
    const std::wstring session = simhost::sessionLogonSid(2);
    const std::wstring sddl = PrinterUtil::printerSddlForSession(session);
    addPrinter(L"Client printer", sddl);
    EXPECT_EQ(PrinterUtil::GetPrinterSecurityDescriptorString(L"Client printer"), narrow(sddl));
    EXPECT_EQ(spooler::openSpoolerHandleCount(), 0u);
}

TEST_F(SessionIdentity, PrinterOfTheSpoolersDefaultDescriptorNamesNoSession) {
    addPrinter(L"Plain printer", L"");
    const std::string text = PrinterUtil::GetPrinterSecurityDescriptorString(L"Plain printer");
    ASSERT_FALSE(text.empty());
    EXPECT_EQ(text.find("S-1-5-5-"), std::string::npos) << text;
}

TEST_F(SessionIdentity, UnknownPrinterGivesNoText) {
    EXPECT_EQ(PrinterUtil::GetPrinterSecurityDescriptorString(L"Nobody's printer"), "");
    expectLine("Failed to open printer:Nobody's printer Err:1801:The printer name is invalid.", 4, kError, kDescriptor);
}

TEST_F(SessionIdentity, DescriptorThatCannotBeReadGivesNoText) {
    addPrinter(L"Client printer", L"");
    simhost::Host::get().faults().failCall("GetPrinterW", ERROR_ACCESS_DENIED);
    EXPECT_EQ(PrinterUtil::GetPrinterSecurityDescriptorString(L"Client printer"), "");
    expectLine("Failed to get printer info 3 struct", 4, kError, kDescriptor);
    EXPECT_EQ(spooler::openSpoolerHandleCount(), 0u);
}

TEST_F(SessionIdentity, DescriptorThatCannotBeWrittenAsTextGivesNoText) {
    addPrinter(L"Client printer", L"");
    simhost::Host::get().faults().failCall("ConvertSecurityDescriptorToStringSecurityDescriptorW",
                                           ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(PrinterUtil::GetPrinterSecurityDescriptorString(L"Client printer"), "");
    expectLine("ConvertSecurityDescriptorToStringSecurityDescriptor: Err:8:Not enough memory resources are available to "
               "process this command.",
               4, kError, kDescriptor);
}

TEST_F(SessionIdentity, PrinterThatCannotBeClosedIsLoggedAndTheTextStands) {
    addPrinter(L"Client printer", PrinterUtil::printerSddlForSession(simhost::sessionLogonSid(2)));
    simhost::Host::get().faults().failCall("ClosePrinter", ERROR_INVALID_HANDLE, 1);
    EXPECT_FALSE(PrinterUtil::GetPrinterSecurityDescriptorString(L"Client printer").empty());
    expectLine("Failed to close printer Err:6:The handle is invalid.", 4, kError, kDescriptor);
}

}  // namespace
