// Admission of the peers of the command socket: loopback address, an owner
// that runs the installation's loader or server, and an ancestor of that
// owner in session zero. Unit tests of each function over arranged TCP rows
// and processes, then the service refusing and admitting real connections.
#include "channel/SenderVetting.h"
#include "printers/TcpProcessInfo.h"

#include "simhost/advapi32/advapi32.h"
#include "simhost/core/host.h"
#include "simhost/iphlpapi/tcp_connections.h"
#include "simhost/kernel32/objects.h"
#include "simhost/kernel32/processes.h"
#include "simhost/kernel32/threads.h"
#include "support/ChannelRecorder.h"
#include "support/LogCapture.h"
#include "support/SenderAdmission.h"
#include "support/ServiceHarness.h"
#include "support/ServiceTestAccess.h"
#include "support/TestClient.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using simhost::kernel32::ProcessProtection;
using testsupport::ChannelRecorder;
using testsupport::LogCapture;
using testsupport::LogLine;
using testsupport::kLoaderPid;
using testsupport::ServiceHarness;
using testsupport::TestClient;

using testsupport::addClientRow;
using testsupport::addProcess;

namespace {

constexpr u_short kClientPort = 50200;
const std::string kLoaderPathText = "C:\\Program Files\\Quillion\\VexorAgent\\vexor_vchan_loader.exe";
const std::string kLoader32PathText = "C:\\Program Files\\Quillion\\VexorAgent\\x86\\vexor_vchan_loader.exe";
const std::string kServerPathText = "C:\\Program Files\\Quillion\\VexorAgent\\vexor_server.exe";
const std::string kNotFoundValue =
    "Could not find registry value HKLM\\SOFTWARE\\Quillion\\VexorAgent\\VexorServerPath (err=2)";
const std::string kParameterIncorrect = " Err:87:The parameter is incorrect.";
const std::string kAccessDenied = " Err:5:Access is denied.";

sockaddr_in endpoint(const char* address, u_short port) {
    sockaddr_in peer = {};
    peer.sin_family = AF_INET;
    peer.sin_addr.s_addr = static_cast<ULONG>(inet_addr(address));
    peer.sin_port = htons(port);
    return peer;
}

class SenderVetting : public ::testing::Test {
protected:
    // The service's own process id is fixed, so that it never falls among
    // the ids a test adds.
    void SetUp() override {
        simhost::setCurrentProcessId(testsupport::kServiceProcessId);
        recorder_.attach();
    }

    // The loader's installation, its session-zero ancestor, and a client row
    // at 127.0.0.1:50200 owned by the loader.
    void arrangeLoader(const std::wstring& image = testsupport::kLoaderPath) {
        testsupport::installLoader();
        addProcess(testsupport::kSessionZeroAncestorPid, 4, 0, testsupport::kSessionZeroAncestorPath);
        addProcess(kLoaderPid, testsupport::kSessionZeroAncestorPid, 2, image);
        addClientRow("127.0.0.1", kClientPort, kLoaderPid);
    }
    int vett(const char* address = "127.0.0.1", u_short port = kClientPort) {
        return vettSenderIP(endpoint(address, port));
    }

    size_t count(const std::string& message) const { return log_.find(message).size(); }
    // The one line with this message; a failure when there is not exactly one.
    LogLine only(const std::string& message) const {
        std::vector<LogLine> lines = log_.find(message);
        EXPECT_EQ(lines.size(), 1u) << message << "\n" << log_.contents();
        return lines.empty() ? LogLine{} : lines[0];
    }
    void expectLine(const std::string& message, uint32_t level, const std::string& function, uint32_t channel) {
        LogLine line = only(message);
        EXPECT_EQ(line.level, level) << message;
        EXPECT_EQ(line.function, function) << message;
        EXPECT_EQ(recorder_.channelOf(message), static_cast<int>(channel)) << message;
    }

    ChannelRecorder recorder_;
    LogCapture log_;
};

TEST_F(SenderVetting, LoaderWithAnAncestorInSessionZeroIsAdmitted) {
    arrangeLoader();
    EXPECT_EQ(vett(), 1);
    EXPECT_EQ(log_.messages(),
              (std::vector<std::string>{
                  "Communication IS from LocalHost",
                  "Communicating Pid:5000",
                  "Sender process:" + kLoaderPathText + " == " + kLoaderPathText,
                  "Found parent pid:700 of child pid:5000",
                  "Pid:5000 parent is:700",
                  "Ancestor Pid:700 is session zero",
              }));
    expectLine("Communication IS from LocalHost", 2, "vettSenderIP", kLogNormal);
    expectLine("Communicating Pid:5000", 2, "PrinterUtil::getTCPOwnerPid", kLogNormal);
    expectLine("Sender process:" + kLoaderPathText + " == " + kLoaderPathText, 2, "isProcessNameMatch", kLogNormal);
    expectLine("Found parent pid:700 of child pid:5000", 2, "getParentProcessId", kLogNormal);
    expectLine("Pid:5000 parent is:700", 2, "vettSenderIP", kLogNormal);
    expectLine("Ancestor Pid:700 is session zero", 3, "vettSenderIP", kLogNormal);
}

TEST_F(SenderVetting, SessionsOnTheWayUpAreLoggedUntilSessionZero) {
    arrangeLoader();
    simhost::kernel32::removeProcess(kLoaderPid);
    addProcess(3000, testsupport::kSessionZeroAncestorPid, 2, L"C:\\Windows\\System32\\rdpinit.exe");
    addProcess(kLoaderPid, 3000, 2, testsupport::kLoaderPath);
    EXPECT_EQ(vett(), 1);
    expectLine("Pid:5000 parent is:3000", 2, "vettSenderIP", kLogNormal);
    expectLine("Ancestor Pid:3000 is session 2", 3, "vettSenderIP", kLogNormal);
    expectLine("Pid:3000 parent is:700", 2, "vettSenderIP", kLogNormal);
    expectLine("Ancestor Pid:700 is session zero", 3, "vettSenderIP", kLogNormal);
}

TEST_F(SenderVetting, AddressOutsideTheLoopbackNetworkIsRefusedBeforeAnyLookUp) {
    arrangeLoader();
    addClientRow("10.1.2.3", kClientPort, kLoaderPid);
    EXPECT_EQ(vett("10.1.2.3"), 0);
    const std::string refusal =
        "Rejecting IP 10.1.2.3 because not LocalHost. This means that some unauthorized process is sending us data. "
        "Security issue.";
    expectLine(refusal, 5, "vettSenderIP", kLogError);
    EXPECT_EQ(log_.messages(), std::vector<std::string>{refusal});
    EXPECT_EQ(simhost::Host::get().faults().callCount("GetExtendedTcpTable"), 0u);
}

TEST_F(SenderVetting, AnyAddressOfTheLoopbackNetworkPasses) {
    arrangeLoader();
    addClientRow("127.0.0.2", 50300, kLoaderPid);
    EXPECT_EQ(vett("127.0.0.2", 50300), 1);
    EXPECT_EQ(count("Communication IS from LocalHost"), 1u);
    addClientRow("127.255.255.254", 50301, kLoaderPid);
    EXPECT_EQ(vett("127.255.255.254", 50301), 1);
}

TEST_F(SenderVetting, ImagePathOutsideAsciiIsLoggedAsUtf8) {
    arrangeLoader(L"C:\\Program Files\\Quillion\\Acm\u00e9 \u6f22\\vexor_vchan_loader.exe");
    EXPECT_EQ(vett(), 0);
    const std::string image = "C:\\Program Files\\Quillion\\Acm\xc3\xa9 \xe6\xbc\xa2\\vexor_vchan_loader.exe";
    expectLine("Sender process:" + image + " == " + kLoaderPathText, 2, "isProcessNameMatch", kLogNormal);
    EXPECT_EQ(count("Sender process:" + image + " is not allowed to send us commands"), 2u);
    EXPECT_NE(log_.contents().find("Sender process:" + image + " is not allowed"), std::string::npos);
}

TEST_F(SenderVetting, LoaderPathThatDiffersOnlyInCaseIsRefused) {
    const std::wstring otherCase = L"C:\\Program Files\\Quillion\\VexorAgent\\Vexor_vchan_loader.exe";
    arrangeLoader(otherCase);
    EXPECT_EQ(vett(), 0);
    const std::string notAllowed =
        "Sender process:C:\\Program Files\\Quillion\\VexorAgent\\Vexor_vchan_loader.exe is not allowed to send us "
        "commands";
    // Once for the native candidate, once for the 32-bit one.
    EXPECT_EQ(count(notAllowed), 2u);
    EXPECT_EQ(log_.find(notAllowed)[0].level, 5u);
    EXPECT_EQ(log_.find(notAllowed)[0].function, "isProcessNameMatch");
    EXPECT_EQ(recorder_.channelOf(notAllowed), static_cast<int>(kLogError));
    expectLine("Could not locate library vexor_server.exe.", 4, "isProcessNameVexorServer", kLogError);
    expectLine("Rejected CMD from 127.0.0.1 based on senders name.", 5, "vettSenderIP", kLogError);
    EXPECT_EQ(count("Pid:5000 parent is:700"), 0u);
}

TEST_F(SenderVetting, LoaderWhoseParentHasExitedIsRefused) {
    arrangeLoader();
    simhost::kernel32::removeProcess(kLoaderPid);
    addProcess(3000, testsupport::kSessionZeroAncestorPid, 2, L"C:\\Windows\\System32\\rdpinit.exe");
    addProcess(kLoaderPid, 3000, 2, testsupport::kLoaderPath);
    ASSERT_TRUE(simhost::kernel32::markExited(3000));
    EXPECT_EQ(vett(), 0);
    expectLine("Pid:5000 parent is:3000", 2, "vettSenderIP", kLogNormal);
    expectLine("Failed to get session num for process num:3000" + kParameterIncorrect, 4, "vettSenderIP", kLogError);
    // The snapshot has no entry for the exited parent: its parent is 0, and
    // nothing is logged for the miss.
    expectLine("Pid:3000 parent is:0", 2, "vettSenderIP", kLogNormal);
    EXPECT_EQ(count("Found parent pid:700 of child pid:3000"), 0u);
    expectLine("Rejected CMD from 127.0.0.1.Couldn't verify ancestor in session zero.", 5, "vettSenderIP", kLogError);
    EXPECT_EQ(count("Parentage too deep. Potential loop.  Breaking"), 0u);
}

TEST_F(SenderVetting, SenderInSessionZeroWhoseAncestorsAreNotIsRefused) {
    testsupport::installLoader();
    addProcess(3000, 0, 2, L"C:\\Windows\\System32\\rdpinit.exe");
    addProcess(kLoaderPid, 3000, 0, testsupport::kLoaderPath);
    addClientRow("127.0.0.1", kClientPort, kLoaderPid);
    EXPECT_EQ(vett(), 0);
    EXPECT_EQ(count("Ancestor Pid:5000 is session zero"), 0u);
    expectLine("Ancestor Pid:3000 is session 2", 3, "vettSenderIP", kLogNormal);
    expectLine("Pid:3000 parent is:0", 2, "vettSenderIP", kLogNormal);
    expectLine("Rejected CMD from 127.0.0.1.Couldn't verify ancestor in session zero.", 5, "vettSenderIP", kLogError);
}

TEST_F(SenderVetting, LoopInTheAncestryStopsAfterOneHundredAndOneAncestors) {
    testsupport::installLoader();
    addProcess(6000, 6001, 2, L"C:\\a.exe");
    addProcess(6001, 6000, 2, L"C:\\b.exe");
    addProcess(kLoaderPid, 6000, 2, testsupport::kLoaderPath);
    addClientRow("127.0.0.1", kClientPort, kLoaderPid);
    EXPECT_EQ(vett(), 0);
    // 101 ancestors: 6000 fifty-one times, 6001 fifty times.
    EXPECT_EQ(count("Ancestor Pid:6000 is session 2"), 51u);
    EXPECT_EQ(count("Ancestor Pid:6001 is session 2"), 50u);
    EXPECT_EQ(count("Pid:6000 parent is:6001") + count("Pid:6001 parent is:6000"), 101u);
    expectLine("Parentage too deep. Potential loop.  Breaking", 5, "vettSenderIP", kLogError);
    expectLine("Rejected CMD from 127.0.0.1.Couldn't verify ancestor in session zero.", 5, "vettSenderIP", kLogError);
    std::vector<std::string> messages = log_.messages();
    ASSERT_GE(messages.size(), 2u);
    EXPECT_EQ(messages[messages.size() - 2], "Parentage too deep. Potential loop.  Breaking");
}

TEST_F(SenderVetting, ChainThatEndsAtTheHundredAndFirstAncestorIsNotALoop) {
    testsupport::installLoader();
    // Ancestors 7001 to 7101, all in session 2; the last one's parent is 0.
    for (DWORD id = 7101; id > 7000; --id) addProcess(id, id == 7101 ? 0 : id + 1, 2, L"C:\\x.exe");
    addProcess(kLoaderPid, 7001, 2, testsupport::kLoaderPath);
    addClientRow("127.0.0.1", kClientPort, kLoaderPid);
    EXPECT_EQ(vett(), 0);
    EXPECT_EQ(count("Ancestor Pid:7101 is session 2"), 1u);
    EXPECT_EQ(count("Pid:7101 parent is:0"), 1u);
    EXPECT_EQ(count("Parentage too deep. Potential loop.  Breaking"), 0u);
    EXPECT_EQ(count("Rejected CMD from 127.0.0.1.Couldn't verify ancestor in session zero."), 1u);
}

TEST_F(SenderVetting, SessionZeroAtTheHundredAndFirstAncestorStillAdmits) {
    testsupport::installLoader();
    for (DWORD id = 7101; id > 7000; --id) addProcess(id, id == 7101 ? 4 : id + 1, id == 7101 ? 0 : 2, L"C:\\x.exe");
    addProcess(kLoaderPid, 7001, 2, testsupport::kLoaderPath);
    addClientRow("127.0.0.1", kClientPort, kLoaderPid);
    EXPECT_EQ(vett(), 1);
    EXPECT_EQ(count("Ancestor Pid:7101 is session zero"), 1u);
}

TEST_F(SenderVetting, PeerWithoutARowInTheTableIsRefused) {
    arrangeLoader();
    EXPECT_EQ(vett("127.0.0.1", kClientPort + 1), 0);
    expectLine("Failed to get owner of socket sending us a CMD from 127.0.0.1", 5, "vettSenderIP", kLogError);
    EXPECT_EQ(count("Rejected CMD from 127.0.0.1 based on senders name."), 0u);
}

TEST_F(SenderVetting, ThirtyTwoBitLoaderIsAdmittedAfterTheNativeCandidateFails) {
    testsupport::setInstallationPath();
    testsupport::makeSimulatedFile(testsupport::kLoader32Path);
    arrangeLoader(testsupport::kLoader32Path);
    EXPECT_EQ(vett(), 1);
    expectLine("Sender process:" + kLoader32PathText + " is not allowed to send us commands", 5, "isProcessNameMatch",
               kLogError);
    expectLine("Sender process:" + kLoader32PathText + " == " + kLoaderPathText, 2, "isProcessNameMatch", kLogNormal);
    expectLine("Sender process:" + kLoader32PathText + " == " + kLoader32PathText, 2, "isProcessNameMatch",
               kLogNormal);
    EXPECT_EQ(count("Ancestor Pid:700 is session zero"), 1u);
}

TEST_F(SenderVetting, ThirtyTwoBitLoaderAloneOnDiskIsEnough) {
    testsupport::setInstallationPath();
    testsupport::makeSimulatedFile(testsupport::kLoader32Path);
    addProcess(testsupport::kSessionZeroAncestorPid, 4, 0, testsupport::kSessionZeroAncestorPath);
    addProcess(kLoaderPid, testsupport::kSessionZeroAncestorPid, 2, testsupport::kLoader32Path);
    addClientRow("127.0.0.1", kClientPort, kLoaderPid);
    EXPECT_EQ(vett(), 1);
    EXPECT_EQ(count("Could not locate library"), 0u);
}

TEST_F(SenderVetting, ServerIsAdmittedAfterBothLoaderCandidatesFail) {
    arrangeLoader(testsupport::kServerPath);
    testsupport::makeSimulatedFile(testsupport::kServerPath);
    EXPECT_EQ(vett(), 1);
    const std::string notAllowed = "Sender process:" + kServerPathText + " is not allowed to send us commands";
    EXPECT_EQ(count(notAllowed), 2u);
    expectLine("Sender process:" + kServerPathText + " == " + kServerPathText, 2, "isProcessNameMatch", kLogNormal);
    EXPECT_EQ(count("Ancestor Pid:700 is session zero"), 1u);
}

TEST_F(SenderVetting, ServerWithoutItsFileIsRefused) {
    arrangeLoader(testsupport::kServerPath);
    EXPECT_EQ(vett(), 0);
    expectLine("Could not locate library vexor_server.exe.", 4, "isProcessNameVexorServer", kLogError);
    EXPECT_EQ(count("Rejected CMD from 127.0.0.1 based on senders name."), 1u);
}

TEST_F(SenderVetting, NoLoaderFileOnDiskIsLoggedAndTheServerStillTried) {
    testsupport::setInstallationPath();
    testsupport::makeSimulatedFile(testsupport::kServerPath);
    addProcess(testsupport::kSessionZeroAncestorPid, 4, 0, testsupport::kSessionZeroAncestorPath);
    addProcess(kLoaderPid, testsupport::kSessionZeroAncestorPid, 2, testsupport::kServerPath);
    addClientRow("127.0.0.1", kClientPort, kLoaderPid);
    EXPECT_EQ(vett(), 1);
    expectLine("Could not locate library", 4, "isProcessNameVchanLoader", kLogError);
    EXPECT_EQ(count("Sender process:" + kServerPathText + " is not allowed to send us commands"), 0u);
}

TEST_F(SenderVetting, MissingInstallationValueShutsEveryoneOut) {
    arrangeLoader();
    ASSERT_TRUE(simhost::advapi32::deleteRegistryValue(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Quillion\\VexorAgent",
                                                       L"VexorServerPath"));
    EXPECT_EQ(vett(), 0);
    // Once for the loader, once for the server.
    EXPECT_EQ(count(kNotFoundValue), 2u);
    EXPECT_EQ(log_.find(kNotFoundValue)[0].level, 4u);
    EXPECT_EQ(log_.find(kNotFoundValue)[0].function, "getBaseInstallationPath");
    EXPECT_EQ(recorder_.channelOf(kNotFoundValue), static_cast<int>(kLogError));
    expectLine("Rejected CMD from 127.0.0.1 based on senders name.", 5, "vettSenderIP", kLogError);
}

TEST_F(SenderVetting, UnreadableTableCountsAsProcessOneWhichFailsTheNameTest) {
    arrangeLoader();
    simhost::Host::get().faults().failCall("GetExtendedTcpTable", ERROR_NOT_SUPPORTED);
    EXPECT_EQ(vett(), 0);
    expectLine("Failed to get size estimation 50", 2, "PrinterUtil::getTCPOwnerPid", kLogNormal);
    EXPECT_EQ(count("Failed to get owner of socket sending us a CMD from 127.0.0.1"), 0u);
    EXPECT_EQ(count("Failed to open process 1 to check name" + kParameterIncorrect), 2u);
    EXPECT_EQ(count("Rejected CMD from 127.0.0.1 based on senders name."), 1u);
}

// ---- getTCPOwnerPid ----

TEST_F(SenderVetting, OwnerIsTheRowWhoseLocalEndIsThePeer) {
    addClientRow("127.0.0.1", kClientPort, 5000);
    addClientRow("127.0.0.1", kClientPort + 1, 5001);
    // The service's end of the same connection names the peer as its remote
    // end; it is not the match.
    simhost::iphlpapi::TcpConnection serviceEnd;
    serviceEnd.localAddress = static_cast<DWORD>(inet_addr("127.0.3.1"));
    serviceEnd.localPort = 5555;
    serviceEnd.remoteAddress = static_cast<DWORD>(inet_addr("127.0.0.2"));
    serviceEnd.remotePort = 50400;
    serviceEnd.owningProcessId = 4242;
    simhost::iphlpapi::addTcpConnection(serviceEnd);
    EXPECT_EQ(PrinterUtil::getTCPOwnerPid(endpoint("127.0.0.1", kClientPort + 1)), 5001u);
    EXPECT_EQ(PrinterUtil::getTCPOwnerPid(endpoint("127.0.0.1", kClientPort)), 5000u);
    EXPECT_EQ(PrinterUtil::getTCPOwnerPid(endpoint("127.0.0.2", 50400)), 0u);
    EXPECT_EQ(PrinterUtil::getTCPOwnerPid(endpoint("127.0.0.2", kClientPort)), 0u);
    EXPECT_EQ(count("Communicating Pid:5001"), 1u);
}

TEST_F(SenderVetting, TableThatCannotBeFetchedAnswersOne) {
    addClientRow("127.0.0.1", kClientPort, 5000);
    simhost::Host::get().faults().failCall("GetExtendedTcpTable", ERROR_INVALID_PARAMETER, 1, 1);
    EXPECT_EQ(PrinterUtil::getTCPOwnerPid(endpoint("127.0.0.1", kClientPort)), 1u);
    expectLine("Failed to get TCP Table 87", 2, "PrinterUtil::getTCPOwnerPid", kLogNormal);
}

// ---- getBaseInstallationPath ----

TEST_F(SenderVetting, InstallationPathIsTheServersDirectory) {
    testsupport::setInstallationPath();
    std::wstring path;
    ASSERT_TRUE(getBaseInstallationPath(path));
    EXPECT_EQ(path, testsupport::kInstallationDirectory);
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(SenderVetting, InstallationValueOfAnotherTypeIsNotFound) {
    simhost::advapi32::setRegistryDword(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Quillion\\VexorAgent", L"VexorServerPath", 1);
    std::wstring path;
    EXPECT_FALSE(getBaseInstallationPath(path));
    expectLine("Could not find registry value HKLM\\SOFTWARE\\Quillion\\VexorAgent\\VexorServerPath (err=1630)", 4,
               "getBaseInstallationPath", kLogError);
}

TEST_F(SenderVetting, InstallationValueThatCannotBeReadIsLogged) {
    testsupport::setInstallationPath();
    simhost::Host::get().faults().failCall("RegGetValueW", ERROR_ACCESS_DENIED, 1, 1);
    std::wstring path;
    EXPECT_FALSE(getBaseInstallationPath(path));
    expectLine("Could not read registry value HKLM\\SOFTWARE\\Quillion\\VexorAgent\\VexorServerPath (err=5)", 4,
               "getBaseInstallationPath", kLogError);
}

TEST_F(SenderVetting, InstallationValueThatIsARootHasNoFileToRemove) {
    simhost::advapi32::setRegistryString(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Quillion\\VexorAgent", L"VexorServerPath",
                                         L"C:\\");
    std::wstring path;
    EXPECT_FALSE(getBaseInstallationPath(path));
    expectLine("PathRemoveFileSpec failed for installation path", 4, "getBaseInstallationPath", kLogError);
}

// ---- Candidates that cannot be built ----

// An installation directory of `length` characters.
std::wstring directoryOfLength(size_t length) {
    std::wstring directory = L"C:\\";
    directory += std::wstring(length - directory.size(), L'd');
    return directory;
}

void setInstallationDirectory(const std::wstring& directory) {
    simhost::advapi32::setRegistryString(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Quillion\\VexorAgent", L"VexorServerPath",
                                         directory + L"\\vexor_server.exe");
}

TEST_F(SenderVetting, NativeLoaderPathTooLongForThePlatform) {
    setInstallationDirectory(directoryOfLength(240));
    EXPECT_EQ(isProcessNameVchanLoader(kLoaderPid), 0);
    expectLine("PathAppend failed for", 4, "isProcessNameVchanLoader", kLogError);
    EXPECT_EQ(isProcessNameVexorServer(kLoaderPid), 0);
    expectLine("Could not locate library vexor_server.exe.", 4, "isProcessNameVexorServer", kLogError);
}

TEST_F(SenderVetting, ThirtyTwoBitLoaderPathTooLongForThePlatform) {
    // The native candidate fits in 259 characters; "\x86" makes it 263.
    setInstallationDirectory(directoryOfLength(236));
    EXPECT_EQ(isProcessNameVchanLoader(kLoaderPid), 0);
    expectLine("PathAppend failed for \\x86", 4, "isProcessNameVchanLoader", kLogError);
    EXPECT_EQ(count("PathAppend failed for"), 0u);
}

// ---- isProcessNameMatch ----

TEST_F(SenderVetting, ProcessThatCannotBeOpenedDoesNotMatch) {
    EXPECT_EQ(isProcessNameMatch(4, L"System"), 0);
    expectLine("Failed to open process 4 to check name" + kAccessDenied, 4, "isProcessNameMatch", kLogError);
}

TEST_F(SenderVetting, ProcessWhoseNameCannotBeReadDoesNotMatch) {
    addProcess(800, 4, 0, L"C:\\Windows\\System32\\guard.exe", ProcessProtection::CannotName);
    size_t handles = simhost::openHandleCount();
    EXPECT_EQ(isProcessNameMatch(800, L"C:\\Windows\\System32\\guard.exe"), 0);
    expectLine("Failed to get name for process 800" + kAccessDenied, 4, "isProcessNameMatch", kLogError);
    EXPECT_EQ(simhost::openHandleCount(), handles);
}

TEST_F(SenderVetting, HandleThatCannotBeClosedIsLoggedAndTheNameStillCompared) {
    addProcess(kLoaderPid, 700, 2, testsupport::kLoaderPath);
    simhost::Host::get().faults().failCall("CloseHandle", ERROR_INVALID_HANDLE, 1);
    EXPECT_NE(isProcessNameMatch(kLoaderPid, testsupport::kLoaderPath), 0);
    expectLine("Failed to close process handle Err:6:The handle is invalid.", 2, "isProcessNameMatch", kLogError);
}

// ---- getParentProcessId ----

TEST_F(SenderVetting, ParentOfAnUnknownProcessIsZeroWithoutALine) {
    EXPECT_EQ(getParentProcessId(9999), 0u);
    EXPECT_TRUE(log_.lines().empty());
    EXPECT_EQ(simhost::openHandleCount("Snapshot"), 0u);
}

TEST_F(SenderVetting, SnapshotThatCannotBeTakenGivesZero) {
    addProcess(kLoaderPid, 700, 2, testsupport::kLoaderPath);
    simhost::Host::get().faults().failCall("CreateToolhelp32Snapshot", ERROR_NOT_ENOUGH_MEMORY, 1);
    EXPECT_EQ(getParentProcessId(kLoaderPid), 0u);
    expectLine("CreateToolhelp32Snapshot failed to get info for process 5000 Err:8:Not enough memory resources are "
               "available to process this command.",
               4, "getParentProcessId", kLogError);
}

TEST_F(SenderVetting, FirstEntryThatCannotBeReadGivesZero) {
    addProcess(kLoaderPid, 700, 2, testsupport::kLoaderPath);
    simhost::Host::get().faults().failCall("Process32FirstW", ERROR_NO_MORE_FILES, 1);
    EXPECT_EQ(getParentProcessId(kLoaderPid), 0u);
    expectLine("Process32First failed to get info for process 5000 Err:18:There are no more files.", 4,
               "getParentProcessId", kLogError);
    EXPECT_EQ(simhost::openHandleCount("Snapshot"), 0u);
}

// The machine starts with three processes; `fillers` more come before the
// one asked for.
void addProcessAfterFillers(DWORD fillers) {
    for (DWORD i = 0; i < fillers; ++i) addProcess(10000 + i, 4, 1, L"C:\\filler.exe");
    addProcess(kLoaderPid, 700, 2, testsupport::kLoaderPath);
}

TEST_F(SenderVetting, SnapshotIsSearchedOverOneThousandAndOneMisses) {
    addProcessAfterFillers(998);
    EXPECT_EQ(getParentProcessId(kLoaderPid), 700u);
    EXPECT_EQ(count("Found parent pid:700 of child pid:5000"), 1u);
}

TEST_F(SenderVetting, SnapshotSearchStopsAtTheThousandAndSecondMiss) {
    addProcessAfterFillers(999);
    EXPECT_EQ(getParentProcessId(kLoaderPid), 0u);
    expectLine("Runaway test failed after:1002 processes", 5, "getParentProcessId", kLogError);
    EXPECT_EQ(simhost::openHandleCount("Snapshot"), 0u);
}

// ---- The service at accept ----

// The client's end as the service logs it.
std::string peerText(const TestClient& client, const char* address = "127.0.0.1") {
    return std::string(address) + ":" + std::to_string(client.localPort());
}

std::string request(int id, const std::string& verb = "hello") {
    return "{\"msg\":\"" + verb + "\",\"_msgUniqueId\":" + std::to_string(id) + "}" + std::string(1, '\0');
}

std::string unknownVerbReply(int id) {
    return "{\"_msgUniqueId\":" + std::to_string(id) +
           ",\"err\":\"unknown msg verb. Don't know what you want me to do.\",\"status\":\"fail\"}\n" +
           std::string(1, '\0');
}

class Admission : public ::testing::Test {
protected:
    void SetUp() override { recorder_.attach(); }
    void TearDown() override { simhost::Host::get().faults().clearAll(); }

    const LogCapture& log() const { return harness_.log(); }

    // Connects and waits for the refusal. The service closes a refused
    // socket first; so that no TIME_WAIT of that connection holds the
    // command port against the next test's bind, its close is held until
    // the client has ended its own sending side, and is then the answer to
    // that end.
    void connectAndBeRefused(TestClient& client) {
        simhost::Faults& faults = simhost::Host::get().faults();
        faults.blockCall("closesocket");
        ASSERT_TRUE(client.connect());
        ASSERT_TRUE(faults.waitUntilBlocked("closesocket"));
        client.shutdownSending();
        ASSERT_TRUE(waitForServiceEnd(client, MIB_TCP_STATE_CLOSE_WAIT));
        faults.releaseCall("closesocket");
    }
    // Whether the service's end of the client's connection reaches `state`.
    static bool waitForServiceEnd(const TestClient& client, DWORD state) {
        const u_short clientPort = static_cast<u_short>(client.localPort());
        for (int i = 0; i < 500; ++i) {
            for (const simhost::iphlpapi::TcpConnection& row : simhost::iphlpapi::tcpConnections())
                if (row.localPort == testsupport::kCommandPort && row.remotePort == clientPort && row.state == state)
                    return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }
    // Whether the client's end at `clientPort` leaves the table.
    static bool waitUntilGone(u_short clientPort) {
        for (int i = 0; i < 500; ++i) {
            bool present = false;
            for (const simhost::iphlpapi::TcpConnection& row : simhost::iphlpapi::tcpConnections())
                present = present || row.localPort == clientPort;
            if (!present) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }
    // Refusal ends with this line: the service's last word on the peer, who
    // reads the end of the stream and nothing before it.
    void expectRefused(TestClient& client, const char* address = "127.0.0.1") {
        const std::string unauthorized = "Unauthorized connection from: " + peerText(client, address);
        ASSERT_TRUE(log().waitFor(unauthorized)) << log().contents();
        std::vector<LogLine> lines = log().find(unauthorized);
        EXPECT_EQ(lines[0].level, 5u);
        EXPECT_EQ(lines[0].function, "VexorPrintingService::_onClientConnect");
        EXPECT_EQ(recorder_.channelOf(unauthorized), static_cast<int>(kLogError));
        EXPECT_TRUE(client.waitForClose());
        for (const LogLine& line : log().lines()) {
            EXPECT_NE(line.message.rfind("Got new connection:", 0), 0u) << line.message;
            EXPECT_NE(line.message.rfind("[WT]New connection", 0), 0u) << line.message;
        }
    }

    ChannelRecorder recorder_;
    ServiceHarness harness_;
};

TEST_F(Admission, PeerOfAnUnknownProgramIsClosedWithNothingSent) {
    testsupport::admitLoopbackClientsAs(kLoaderPid);
    addProcess(5100, testsupport::kSessionZeroAncestorPid, 2, L"C:\\Users\\guest\\tool.exe");
    simhost::iphlpapi::setDefaultOutsideEndOwner(5100);
    harness_.start();
    TestClient client;
    connectAndBeRefused(client);
    expectRefused(client);
    EXPECT_TRUE(log().contains("Rejected CMD from 127.0.0.1 based on senders name."));
    // Only the listening socket is left open on the host.
    EXPECT_EQ(simhost::ws2_32::openSocketCount(), 1u);
}

TEST_F(Admission, WithoutTheInstallationValueEveryoneIsRefused) {
    testsupport::admitLoopbackClientsAs(kLoaderPid);
    ASSERT_TRUE(simhost::advapi32::deleteRegistryValue(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Quillion\\VexorAgent",
                                                       L"VexorServerPath"));
    harness_.start();
    TestClient client;
    connectAndBeRefused(client);
    expectRefused(client);
    EXPECT_EQ(log().find(kNotFoundValue).size(), 2u);
}

TEST_F(Admission, RefusalCostsThatPeerOnlyAndTheNextIsServed) {
    testsupport::admitLoopbackClientsAs(kLoaderPid);
    addProcess(5100, testsupport::kSessionZeroAncestorPid, 2, L"C:\\Users\\guest\\tool.exe");
    simhost::iphlpapi::setDefaultOutsideEndOwner(5100);
    harness_.start();
    TestClient refused;
    connectAndBeRefused(refused);
    expectRefused(refused);
    simhost::iphlpapi::setDefaultOutsideEndOwner(kLoaderPid);
    TestClient admitted;
    ASSERT_TRUE(admitted.connect());
    ASSERT_TRUE(admitted.send(request(3)));
    EXPECT_EQ(admitted.receiveReply(), unknownVerbReply(3));
}

TEST_F(Admission, PeerFromAnotherLoopbackAddressIsAdmittedAndServed) {
    testsupport::admitLoopbackClientsAs(kLoaderPid);
    harness_.start();
    TestClient client;
    ASSERT_TRUE(client.connect(5000, testsupport::kCommandAddress, testsupport::kCommandPort, "127.0.0.2"));
    ASSERT_TRUE(client.send(request(8)));
    EXPECT_EQ(client.receiveReply(), unknownVerbReply(8));
    EXPECT_EQ(log().find("Communicating Pid:5000").size(), 2u);
    EXPECT_TRUE(log().contains("Ancestor Pid:700 is session zero"));
    bool logged = false;
    for (const LogLine& line : log().lines())
        if (line.message.rfind("[WT]New connection, socket fd is ", 0) == 0)
            logged = line.message.find(", addr:" + peerText(client, "127.0.0.2")) != std::string::npos;
    EXPECT_TRUE(logged) << log().contents();
}

TEST_F(Admission, ConnectionGoneBeforeTheTableIsReadIsRefused) {
    testsupport::admitLoopbackClientsAs(kLoaderPid);
    harness_.start();
    simhost::Host::get().faults().blockCall("GetExtendedTcpTable");
    TestClient client;
    ASSERT_TRUE(client.connect());
    const std::string peer = peerText(client);
    ASSERT_TRUE(simhost::Host::get().faults().waitUntilBlocked("GetExtendedTcpTable"));
    const u_short clientPort = static_cast<u_short>(client.localPort());
    client.resetClose();
    ASSERT_TRUE(waitUntilGone(clientPort));
    simhost::Host::get().faults().releaseCall("GetExtendedTcpTable");
    ASSERT_TRUE(log().waitFor("Unauthorized connection from: " + peer)) << log().contents();
    EXPECT_TRUE(log().contains("Failed to get owner of socket sending us a CMD from 127.0.0.1"));
    EXPECT_EQ(log().find("Communicating Pid:5000").size(), 0u);
}

TEST_F(Admission, AdmittedPeersRequestsCarryItsProcessId) {
    testsupport::admitLoopbackClientsAs(kLoaderPid);
    harness_.start();
    TestClient client;
    ASSERT_TRUE(client.connect());
    // The worker is held in the send of the reply to request 0, so request 1
    // waits in the queue, where the test takes it.
    simhost::Host::get().faults().blockCall("send");
    ASSERT_TRUE(client.send(request(0)));
    ASSERT_TRUE(simhost::Host::get().faults().waitUntilBlocked("send"));
    ASSERT_TRUE(client.send(std::string("{\"msg\":\"x\",\"_msgUniqueId\":1,\"_senderPID\":999}") + '\0'));
    // Request 0 went through the queue alone as well.
    ASSERT_TRUE(log().waitFor("enqueued new msg. Queue size now:1", 5000, 2));
    std::unique_ptr<ClientMsg> waiting(ServiceTestAccess::takeQueuedRequest(harness_.service()));
    simhost::Host::get().faults().releaseCall("send");
    ASSERT_NE(waiting, nullptr);
    EXPECT_EQ(waiting->peer.ownerPid, kLoaderPid);
    ServiceTestAccess::stampSender(harness_.service(), waiting.get());
    EXPECT_EQ(waiting->json["_senderPID"], Json::Value(static_cast<Json::UInt>(kLoaderPid)));
    EXPECT_EQ(client.receiveReply(), unknownVerbReply(0));
}

TEST_F(Admission, OwnerIsLookedUpAgainAfterTheVetting) {
    testsupport::admitLoopbackClientsAs(kLoaderPid);
    harness_.start();
    TestClient client;
    ASSERT_TRUE(client.connect());
    ASSERT_TRUE(log().waitUntil(
        [](const LogLine& line) { return line.message.rfind("[WT]New connection, socket fd is ", 0) == 0; }));
    std::vector<LogLine> lookUps = log().find("Communicating Pid:5000");
    ASSERT_EQ(lookUps.size(), 2u);
    EXPECT_EQ(lookUps[1].function, "PrinterUtil::getTCPOwnerPid");
    std::vector<std::string> messages = log().messages();
    size_t admitted = 0, second = 0;
    for (size_t i = 0; i < messages.size(); ++i) {
        if (messages[i] == "Ancestor Pid:700 is session zero") admitted = i;
        if (messages[i] == "Communicating Pid:5000") second = i;
    }
    EXPECT_GT(second, admitted);
}

}  // namespace
