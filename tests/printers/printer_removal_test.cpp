// Printer removal and status end to end: plugins of two logon sessions ask
// over the command socket, and each may remove only its own session's
// printers. Replies byte for byte, the spooler afterwards, and the log.
#include "printers/PrinterRemoval.h"
#include "printers/PrinterSecurity.h"
#include "printers/SessionIdentity.h"
#include "simhost/core/host.h"
#include "simhost/iphlpapi/tcp_connections.h"
#include "simhost/kernel32/processes.h"
#include "simhost/winspool/spooler.h"
#include "support/PluginRequests.h"
#include "support/SenderAdmission.h"
#include "support/SpoolerArrangement.h"
#include "support/ServiceHarness.h"
#include "support/TestClient.h"

#include <gtest/gtest.h>

#include <json/json.h>

#include <string>
#include <vector>

using testsupport::failureReply;
using testsupport::LogLine;
using testsupport::ServiceHarness;
using testsupport::successReply;
using testsupport::TestClient;

namespace {

namespace spooler = simhost::winspool;

const int kError = static_cast<int>(kLogError);
const int kNormal = static_cast<int>(kLogNormal);
constexpr const char* kDispatch = "VexorPrintingService::_handleRequest";
constexpr const char* kOwner = "VexorPrintingService::doesSenderOwnPrinter";
constexpr const char* kDelete = "VexorPrintingService::_deletePrinter";
constexpr const char* kDeleteWithPort = "VexorPrintingService::_deletePrinterAndPort";
constexpr const char* kStatus = "VexorPrintingService::_setPrinterStatus";
constexpr const char* kUtilStatus = "PrinterUtil::setPrinterStatus";
constexpr const wchar_t* kUser = L"S-1-5-21-1111111111-2222222222-3333333333-1001";
constexpr DWORD kOtherLoaderPid = 5100;
constexpr DWORD kOtherSession = 3;
const std::string kNotOwned = "Printer not owned by sender";

// A printer on its own port; with a session, bound to that session as the
// service binds the printers it makes, else with the spooler's default
// descriptor, which names no session.
void addPrinter(const std::wstring& name, const std::wstring& port, const std::wstring& sessionSid) {
    testsupport::addTestPrinter(name, port, sessionSid.empty() ? L"" : PrinterUtil::printerSddlForSession(sessionSid));
}

void addJobs(const std::wstring& printer, int count) {
    for (int i = 0; i < count; ++i) spooler::addJob(printer, spooler::PrintJob{0, L"user", L"page", {'x'}});
}

Json::Value request(const char* verb, const std::string& printerName) {
    Json::Value value(Json::objectValue);
    value["msg"] = verb;
    if (!printerName.empty()) value["printerName"] = printerName;
    return value;
}

bool printerExists(const std::wstring& name) { return spooler::findPrinter(name).has_value(); }

class PrinterRemoval : public ::testing::Test {
protected:
    // Loader 5000 runs in session 2, loader 5100 in session 3; by default as
    // the same user, logged on twice.
    void SetUp() override {
        testsupport::admitLoopbackClientsAs(testsupport::kLoaderPid);
        simhost::kernel32::ProcessRecord other{kOtherLoaderPid, testsupport::kSessionZeroAncestorPid, kOtherSession,
                                               testsupport::kLoaderPath};
        other.userSid = kUser;
        simhost::kernel32::addProcess(other);
        testsupport::addTestDriver();
        testsupport::addRawTcpPort(L"VEXOR_A", 9101);
        testsupport::addRawTcpPort(L"VEXOR_B", 9102);
        testsupport::addRawTcpPort(L"LEFT_OVER", 9103);
        addPrinter(L"Printer A", L"VEXOR_A", simhost::sessionLogonSid(testsupport::kUserSession));
        addPrinter(L"Printer B", L"VEXOR_B", simhost::sessionLogonSid(kOtherSession));
        addPrinter(L"Left-over printer", L"LEFT_OVER", L"");
    }
    void TearDown() override { simhost::Host::get().faults().clearAll(); }

    // Session 2's plugin, connected and admitted.
    void connectFirstPlugin() {
        harness_.start();
        ASSERT_TRUE(first_.connect());
        ASSERT_EQ(askFirst(request("hello", ""), 999),
                  failureReply(999, "unknown msg verb. Don't know what you want me to do."));
    }
    // Session 3's plugin, admitted after the first.
    void connectSecondPlugin() {
        simhost::iphlpapi::setDefaultOutsideEndOwner(kOtherLoaderPid);
        ASSERT_TRUE(second_.connect());
    }
    std::string askFirst(const Json::Value& value, int id) { return testsupport::ask(first_, value, id); }
    std::string askSecond(const Json::Value& value, int id) { return testsupport::ask(second_, value, id); }

    const testsupport::LogCapture& log() const { return harness_.log(); }
    void expectLine(const std::string& message, uint32_t level, int channel, const std::string& function) {
        testsupport::expectOneLine(log(), message, level, channel, function);
    }

    ServiceHarness harness_;
    TestClient first_;
    TestClient second_;
};

// ---- deletePrinter ----

TEST_F(PrinterRemoval, PluginRemovesItsOwnPrinterWithItsJobs) {
    addJobs(L"Printer A", 3);
    connectFirstPlugin();
    EXPECT_EQ(askFirst(request("deletePrinter", "Printer A"), 1), successReply(1));
    EXPECT_FALSE(printerExists(L"Printer A"));
    EXPECT_TRUE(spooler::findPort(L"VEXOR_A")) << "deletePrinter leaves the port";
    EXPECT_TRUE(printerExists(L"Printer B"));
    const std::string sid = std::string("S-1-5-5-0-") + std::to_string(1000 + testsupport::kUserSession);
    expectLine("Deleting printer", 2, kNormal, kDispatch);
    expectLine("All good - Requester owns printer", 2, kNormal, kOwner);
    expectLine("_deletePrinter():Printer A", 3, kNormal, kDelete);
    std::vector<LogLine> compared;
    for (const LogLine& line : log().lines())
        if (line.message.rfind("Sender SID:", 0) == 0) compared.push_back(line);
    ASSERT_EQ(compared.size(), 1u);
    EXPECT_EQ(compared[0].message.rfind("Sender SID:" + sid + " Printer security descriptor:D:(A;;LCSWSDRCWDWO;;;SY)", 0),
              0u)
        << compared[0].message;
    EXPECT_EQ(spooler::openSpoolerHandleCount(), 0u);
}

TEST_F(PrinterRemoval, PluginCannotRemoveTheOtherSessionsPrinterWhateverNameItSends) {
    addJobs(L"Printer B", 2);
    connectFirstPlugin();
    EXPECT_EQ(askFirst(request("deletePrinter", "Printer B"), 1), failureReply(1, kNotOwned));
    EXPECT_EQ(askFirst(request("deletePrinter", "PRINTER B"), 2), failureReply(2, kNotOwned));
    EXPECT_EQ(askFirst(request("deletePrinterAndPort", "printer b"), 3), failureReply(3, kNotOwned));
    ASSERT_TRUE(printerExists(L"Printer B"));
    EXPECT_EQ(spooler::findPrinter(L"Printer B")->jobs.size(), 2u);
    EXPECT_TRUE(spooler::findPort(L"VEXOR_B"));
    EXPECT_EQ(log().find("Request on printer from sender (pid:5000) that NOT own the printer").size(), 3u);
    EXPECT_EQ(log().find("Refusing printer delete request based on sender").size(), 3u);
    EXPECT_FALSE(log().contains("_deletePrinter():Printer B"));
}

TEST_F(PrinterRemoval, SameUserLoggedOnTwiceOwnsOnlyEachSessionsPrinters) {
    simhost::kernel32::removeProcess(testsupport::kLoaderPid);
    simhost::kernel32::ProcessRecord first{testsupport::kLoaderPid, testsupport::kSessionZeroAncestorPid,
                                           testsupport::kUserSession, testsupport::kLoaderPath};
    first.userSid = kUser;
    simhost::kernel32::addProcess(first);
    connectFirstPlugin();
    connectSecondPlugin();
    EXPECT_EQ(askSecond(request("deletePrinter", "Printer A"), 1), failureReply(1, kNotOwned));
    EXPECT_EQ(askFirst(request("deletePrinter", "Printer B"), 2), failureReply(2, kNotOwned));
    EXPECT_TRUE(printerExists(L"Printer A"));
    EXPECT_TRUE(printerExists(L"Printer B"));
    EXPECT_EQ(askSecond(request("deletePrinter", "Printer B"), 3), successReply(3));
    EXPECT_EQ(askFirst(request("deletePrinter", "Printer A"), 4), successReply(4));
    EXPECT_FALSE(printerExists(L"Printer A"));
    EXPECT_FALSE(printerExists(L"Printer B"));
    EXPECT_TRUE(log().contains("Request on printer from sender (pid:5100) that NOT own the printer"));
}

TEST_F(PrinterRemoval, PrinterWithoutASessionEntryIsOwnedByNobody) {
    connectFirstPlugin();
    connectSecondPlugin();
    EXPECT_EQ(askFirst(request("deletePrinter", "Left-over printer"), 1), failureReply(1, kNotOwned));
    EXPECT_EQ(askSecond(request("deletePrinterAndPort", "Left-over printer"), 2), failureReply(2, kNotOwned));
    EXPECT_TRUE(printerExists(L"Left-over printer"));
    EXPECT_TRUE(spooler::findPort(L"LEFT_OVER"));
}

TEST_F(PrinterRemoval, PrinterThatNoLongerExistsIsRefusedNotRemoved) {
    connectFirstPlugin();
    EXPECT_EQ(askFirst(request("deletePrinter", "Gone printer"), 1), failureReply(1, kNotOwned));
    expectLine("Failed to open printer:Gone printer Err:1801:The printer name is invalid.", 4, kError,
               "PrinterUtil::GetPrinterSecurityDescriptorString");
    expectLine("Unable to verify printer ownership because we don't know printers security", 4, kError, kOwner);
}

TEST_F(PrinterRemoval, RequestWithoutAPrinterNameIsRefused) {
    connectFirstPlugin();
    EXPECT_EQ(askFirst(request("deletePrinter", ""), 1), failureReply(1, kNotOwned));
    expectLine("'printerName' parameter missing from request msg", 4, kError, kOwner);
}

TEST_F(PrinterRemoval, SenderWhoseSessionCannotBeFoundOwnsNothing) {
    connectFirstPlugin();
    simhost::Host::get().faults().failCall("OpenProcessToken", ERROR_ACCESS_DENIED);
    EXPECT_EQ(askFirst(request("deletePrinter", "Printer A"), 1), failureReply(1, kNotOwned));
    expectLine("Unable to verify printer ownership because we don't know senders id.", 4, kError, kOwner);
    EXPECT_TRUE(printerExists(L"Printer A"));
}

TEST_F(PrinterRemoval, DescriptorNamingTheSessionInADenyEntryStillMakesTheOwner) {
    spooler::SpoolerPrinter denied;
    denied.name = L"Denied printer";
    denied.portName = L"LEFT_OVER";
    denied.driverName = testsupport::kTestDriver;
    denied.securityDescriptor = spooler::descriptorFromSddl(
        L"D:(A;;LCSWSDRCWDWO;;;SY)(D;;SWRC;;;" + simhost::sessionLogonSid(testsupport::kUserSession) + L")");
    spooler::addPrinter(denied);
    connectFirstPlugin();
    EXPECT_EQ(askFirst(request("deletePrinter", "Denied printer"), 1), successReply(1));
    EXPECT_FALSE(printerExists(L"Denied printer"));
}

// ---- deletePrinterAndPort ----

TEST_F(PrinterRemoval, PrinterAndPortGoTogetherAndTheJobsFirst) {
    addJobs(L"Printer A", 2);
    connectFirstPlugin();
    EXPECT_EQ(askFirst(request("deletePrinterAndPort", "Printer A"), 1), successReply(1));
    EXPECT_FALSE(printerExists(L"Printer A"));
    EXPECT_FALSE(spooler::findPort(L"VEXOR_A"));
    expectLine("Deleting printer and port", 2, kNormal, kDispatch);
    expectLine("Printer Port:VEXOR_A destroyed!", 2, kNormal, "VexorPrintingService::_deletePrinterPort");
    EXPECT_EQ(spooler::openSpoolerHandleCount(), 0u);
}

// The port's removal is asked for all the same; the monitor, as on Windows,
// refuses to remove a port that a printer still prints to.
TEST_F(PrinterRemoval, FailedDeletionIsReportedAndThePortsRemovalIsAskedAllTheSame) {
    addJobs(L"Printer A", 2);
    connectFirstPlugin();
    simhost::Host::get().faults().failCall("DeletePrinter", ERROR_ACCESS_DENIED);
    EXPECT_EQ(askFirst(request("deletePrinterAndPort", "Printer A"), 1),
              failureReply(1, "DeletePrinter() call failed"));
    ASSERT_TRUE(printerExists(L"Printer A"));
    EXPECT_TRUE(spooler::findPrinter(L"Printer A")->jobs.empty()) << "the queue was purged before the deletion";
    expectLine("Failed to delete printer Err:5:Access is denied.", 5, kError, kDelete);
    expectLine("Deleting PPort:VEXOR_A", 2, kNormal, "VexorPrintingService::_deletePrinterPort");
    EXPECT_TRUE(spooler::findPort(L"VEXOR_A"));
}

// Once the printer is gone, so is its port.
TEST_F(PrinterRemoval, PortOfAPrinterRemovedEarlierGoesWithTheNextRequest) {
    connectFirstPlugin();
    simhost::Host::get().faults().failCall("DeletePrinter", ERROR_ACCESS_DENIED, 1);
    ASSERT_EQ(askFirst(request("deletePrinterAndPort", "Printer A"), 1),
              failureReply(1, "DeletePrinter() call failed"));
    EXPECT_EQ(askFirst(request("deletePrinterAndPort", "Printer A"), 2), successReply(2));
    EXPECT_FALSE(printerExists(L"Printer A"));
    EXPECT_FALSE(spooler::findPort(L"VEXOR_A"));
}

TEST_F(PrinterRemoval, PortNameThatCannotBeReadLeavesThePortAndTheReplyStands) {
    connectFirstPlugin();
    // The ownership test opens the printer first; the look-up of its port
    // is the second open.
    simhost::Host::get().faults().failCall("OpenPrinter2W", ERROR_ACCESS_DENIED, 1, 1);
    EXPECT_EQ(askFirst(request("deletePrinterAndPort", "Printer A"), 1), successReply(1));
    EXPECT_FALSE(printerExists(L"Printer A"));
    EXPECT_TRUE(spooler::findPort(L"VEXOR_A"));
    expectLine("GetPrinter 2 Failed Err:5:Access is denied.", 4, kError, kDeleteWithPort);
    expectLine("PrinterPort 'name' parameter missing from request msg", 4, kError,
               "VexorPrintingService::_deletePrinterPort");
}

// ---- setPrinterStatus ----

TEST_F(PrinterRemoval, StatusZeroIsPassedOn) {
    spooler::SpoolerPrinter paused;
    paused.name = L"Paused printer";
    paused.portName = L"LEFT_OVER";
    paused.driverName = testsupport::kTestDriver;
    paused.status = PRINTER_STATUS_PAUSED;
    spooler::addPrinter(paused);
    connectFirstPlugin();
    Json::Value status = request("setPrinterStatus", "Paused printer");
    status["Status"] = 0;
    EXPECT_EQ(askFirst(status, 1), successReply(1));
    EXPECT_EQ(spooler::findPrinter(L"Paused printer")->status, 0u);
    expectLine("Setting printer Status", 2, kNormal, kDispatch);
    expectLine("_setPrinterStatus(0):Paused printer", 3, kNormal, kStatus);
    expectLine("setPrinterStatus(0):Paused printer", 3, kNormal, kUtilStatus);
    expectLine("_setPrinterStatus(0) success:Paused printer", 3, kNormal, kStatus);
}

TEST_F(PrinterRemoval, StatusMissingOrAllOnesIsNoStatus) {
    connectFirstPlugin();
    const std::string noStatus = "_setPrinterStatus() called with no Status";
    EXPECT_EQ(askFirst(request("setPrinterStatus", "Printer A"), 1), failureReply(1, noStatus));
    Json::Value allOnes = request("setPrinterStatus", "Printer A");
    allOnes["Status"] = 4294967295u;
    EXPECT_EQ(askFirst(allOnes, 2), failureReply(2, noStatus));
    EXPECT_EQ(log().find("_setPrinterStatus(4294967295):Printer A").size(), 2u);
}

TEST_F(PrinterRemoval, StatusOfAnotherSessionsPrinterMayBeSet) {
    connectFirstPlugin();
    Json::Value status = request("setPrinterStatus", "Printer B");
    status["Status"] = PRINTER_STATUS_PAUSED;
    EXPECT_EQ(askFirst(status, 1), successReply(1));
    EXPECT_EQ(spooler::findPrinter(L"Printer B")->status, static_cast<DWORD>(PRINTER_STATUS_PAUSED));
}

TEST_F(PrinterRemoval, StatusOfAnUnknownPrinterFails) {
    connectFirstPlugin();
    Json::Value status = request("setPrinterStatus", "Gone printer");
    status["Status"] = 1;
    EXPECT_EQ(askFirst(status, 1), failureReply(1, "PrinterUtil::setPrinterStatus failed"));
    expectLine("Failed to open printer Gone printer Err:1801:The printer name is invalid.", 5, kError, kUtilStatus);
}

TEST_F(PrinterRemoval, StatusTheSpoolerRefusesFails) {
    connectFirstPlugin();
    simhost::Host::get().faults().failCall("SetPrinterW", ERROR_ACCESS_DENIED);
    Json::Value status = request("setPrinterStatus", "Printer A");
    status["Status"] = 1;
    EXPECT_EQ(askFirst(status, 1), failureReply(1, "PrinterUtil::setPrinterStatus failed"));
    expectLine("SetPrinter failed to set the status of printer Err:5:Access is denied.", 5, kError, kUtilStatus);
    EXPECT_EQ(spooler::openSpoolerHandleCount(), 0u);
}

// ---- The handlers and routines asked directly ----

class PrinterRemovalHandlers : public PrinterRemoval {
protected:
    // The service is not started: its stop, at the end, need not wait long
    // for a worker that never ran.
    void SetUp() override {
        PrinterRemoval::SetUp();
        simhost::Host::get().setTimeScale(0.001);
    }
    VexorPrintingService& service() { return harness_.service(); }
};

TEST_F(PrinterRemovalHandlers, RequestWithoutASenderOwnsNothing) {
    EXPECT_FALSE(service().doesSenderOwnPrinter(request("deletePrinter", "Printer A")));
    expectLine("Required _senderPID member missing from json request.", 6, kError, kOwner);
}

TEST_F(PrinterRemovalHandlers, PrinterThatCannotBeOpenedCountsAsRemoved) {
    Json::Value success(Json::objectValue);
    success["status"] = "success";
    EXPECT_EQ(service()._deletePrinter(request("deletePrinter", "Gone printer")), success);
    expectLine("Failed to open printer Gone printer (This could well be because we didnt create it in the first "
               "place) Err:1801:The printer name is invalid.",
               3, kError, kDelete);
}

TEST_F(PrinterRemovalHandlers, RemovalWithoutANameIsRefused) {
    Json::Value reply = service()._deletePrinter(request("deletePrinter", ""));
    EXPECT_EQ(reply["err"].asString(), "_deletePrinter() called with no printerName");
    EXPECT_FALSE(reply.isMember("status"));
}

TEST_F(PrinterRemovalHandlers, AllOnesOrNullHandleIsRefusedWithoutASpoolerCall) {
    EXPECT_EQ(PrinterUtil::deletePrinter(INVALID_HANDLE_VALUE), 0);
    EXPECT_EQ(PrinterUtil::deletePrinter(nullptr), 0);
    PrinterUtil::removeJobsFromQueue(nullptr);
    EXPECT_EQ(log().find("Invalid handle").size(), 3u);
    EXPECT_EQ(simhost::Host::get().faults().callCount("DeletePrinter"), 0u);
    EXPECT_EQ(simhost::Host::get().faults().callCount("SetPrinterW"), 0u);
}

TEST_F(PrinterRemovalHandlers, PurgeThatFailsIsLoggedAndTheDeletionGoesOn) {
    HANDLE printer = nullptr;
    PRINTER_DEFAULTSW defaults = {nullptr, nullptr, PrinterUtil::kPrinterAllAccess};
    ASSERT_TRUE(OpenPrinter2W(L"Printer A", &printer, &defaults, nullptr));
    simhost::Host::get().faults().failCall("SetPrinterW", ERROR_ACCESS_DENIED);
    EXPECT_NE(PrinterUtil::deletePrinter(printer), 0);
    EXPECT_TRUE(ClosePrinter(printer));
    EXPECT_FALSE(printerExists(L"Printer A"));
    expectLine("Failed to remove jobs from queue Err:5:Access is denied.", 2, kError, "PrinterUtil::removeJobsFromQueue");
}

}  // namespace
