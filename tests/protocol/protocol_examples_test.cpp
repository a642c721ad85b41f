// Every example of the command socket's reference (docs/protocol.md) is run
// against the service, started in-process on the example host that the
// reference describes, and each reply is compared byte for byte.
#include "printers/PrinterSecurity.h"
#include "protocol/ExchangeBlocks.h"
#include "simhost/advapi32/advapi32.h"
#include "simhost/advapi32/tokens.h"
#include "simhost/core/host.h"
#include "simhost/iphlpapi/tcp_connections.h"
#include "simhost/winspool/spooler.h"
#include "simhost/ws2_32/winsock.h"
#include "support/PluginRequests.h"
#include "support/SenderAdmission.h"
#include "support/ServiceHarness.h"
#include "support/SpoolerArrangement.h"
#include "support/TestClient.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

using protocolexamples::ExampleBlock;
using protocolexamples::ExchangeLine;

namespace {

namespace spooler = simhost::winspool;

// The example host, as the reference describes it.
constexpr DWORD kSessionThreeLoaderPid = 5100;
constexpr DWORD kSessionThree = 3;
constexpr const char* kPluginAddress = "127.0.1.20";
constexpr u_short kSessionTwoListener = 9101;
constexpr u_short kSessionThreeListener = 9102;
// A second connection of session 2's loader to the command socket.
constexpr const char* kOtherConnectionAddress = "127.0.0.1";
constexpr u_short kOtherConnectionPort = 50200;
constexpr const wchar_t* kSessionThreePort = L"Vexor_127.0.1.20:9102";
constexpr const wchar_t* kSessionThreePrinter = L"Reception LaserBox (Local)";
constexpr const wchar_t* kInstalledDrivers[] = {L"Quillion Client Render XPS", L"MS Publisher Imagesetter"};
// A reply comes at once on the simulated host, driver installations
// included; this only bounds a test that goes wrong.
constexpr int kReplyTimeoutMs = 10000;

std::string hexEscape(unsigned char c) {
    char text[8];
    std::snprintf(text, sizeof text, "\\x%02x", c);
    return text;
}

// Control bytes shown as escapes, so that a failure shows where two replies
// differ.
std::string visible(const std::string& bytes) {
    std::string shown;
    for (unsigned char c : bytes) {
        if (c == '\n') shown += "\\n";
        else if (c == '\0') shown += "\\0";
        else if (c < 0x20) shown += hexEscape(c);
        else shown += static_cast<char>(c);
    }
    return shown;
}

// What the host holds before the service starts: the installation, the two
// sessions' loaders, the policy, the installed and staged drivers, the live
// plugins' listeners and one more connection to the command socket.
void arrangeHostBeforeStart(const testsupport::TempDrive& drive) {
    testsupport::admitLoopbackClientsAs(testsupport::kLoaderPid);
    testsupport::addProcess(kSessionThreeLoaderPid, testsupport::kSessionZeroAncestorPid, kSessionThree,
                            testsupport::kLoaderPath);
    simhost::advapi32::setRegistryDword(HKEY_LOCAL_MACHINE, L"Software\\Policies\\Quillion\\Vexor\\vexor_admin",
                                        L"vexor.remote_printing_enabled", 2);
    testsupport::addTestDriver();
    for (const wchar_t* driver : kInstalledDrivers)
        spooler::addDriver({driver, spooler::kLocalEnvironment, L"", L"", {}});
    drive.makeDirectory("Windows\\INF");
    for (const char* inf : {"acme.inf", "brightline.inf"})
        std::filesystem::copy_file(std::string(VEXOR_SOURCE_DIR) + "/examples/hosts/inf/" + inf,
                                   drive.native(std::string("Windows\\INF\\") + inf));
    simhost::ws2_32::holdListener(kPluginAddress, kSessionTwoListener);
    simhost::ws2_32::holdListener(kPluginAddress, kSessionThreeListener);
    testsupport::addClientRow(kOtherConnectionAddress, kOtherConnectionPort, testsupport::kLoaderPid);
}

// What session 3's plugin made earlier. Arranged after the start, whose
// forced reap would take it.
void arrangeHostAfterStart() {
    testsupport::addRawTcpPort(kSessionThreePort, kSessionThreeListener);
    testsupport::addTestPrinter(kSessionThreePrinter, kSessionThreePort,
                                PrinterUtil::printerSddlForSession(simhost::sessionLogonSid(kSessionThree)));
}

std::vector<ExampleBlock> documentedExamples() { return protocolexamples::readProtocolReference().blocks; }

class ProtocolExample : public ::testing::TestWithParam<ExampleBlock> {
protected:
    void SetUp() override {
        arrangeHostBeforeStart(harness_.log().drive());
        harness_.start();
        arrangeHostAfterStart();
        if (GetParam().session == kSessionThree)
            simhost::iphlpapi::setDefaultOutsideEndOwner(kSessionThreeLoaderPid);
        ASSERT_TRUE(client_.connect());
    }
    void TearDown() override {
        client_.close();
        simhost::Host::get().faults().clearAll();
    }

    // The plugin leaves, the service reaps at its next empty queue, and the
    // plugin comes back.
    void reconnect() {
        const size_t reaps = harness_.log().find("Finished Reaping").size();
        client_.close();
        ASSERT_TRUE(harness_.log().waitFor("Finished Reaping", kReplyTimeoutMs, reaps + 1)) << "no reap";
        ASSERT_TRUE(client_.connect());
    }

    testsupport::ServiceHarness harness_{0.001};
    testsupport::TestClient client_;
};

TEST_P(ProtocolExample, RepliesAsDocumented) {
    const ExampleBlock& block = GetParam();
    for (const ExchangeLine& line : block.lines) {
        SCOPED_TRACE(protocolexamples::protocolReferencePath() + ":" + std::to_string(line.lineNumber));
        switch (line.kind) {
            case ExchangeLine::Kind::Request:
                ASSERT_TRUE(client_.send(line.text + std::string(1, '\0')));
                break;
            case ExchangeLine::Kind::Partial:
                ASSERT_TRUE(client_.send(line.text));
                break;
            case ExchangeLine::Kind::Reply: {
                const std::string reply = client_.receiveReply(kReplyTimeoutMs);
                ASSERT_FALSE(reply.empty()) << "no reply came";
                EXPECT_EQ(visible(reply), visible(testsupport::replyBytes(line.text)));
                break;
            }
            case ExchangeLine::Kind::Reconnect:
                reconnect();
                break;
        }
        if (HasFatalFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(Reference, ProtocolExample, ::testing::ValuesIn(documentedExamples()),
                         [](const ::testing::TestParamInfo<ExampleBlock>& info) { return info.param.name; });
// A reference without examples fails in ReferenceHasWellFormedExamples.
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(ProtocolExample);

TEST(ProtocolReference, HasWellFormedExamples) {
    const protocolexamples::ExampleDocument document = protocolexamples::readProtocolReference();
    for (const std::string& problem : document.problems)
        ADD_FAILURE() << protocolexamples::protocolReferencePath() << ": " << problem;
    EXPECT_FALSE(document.blocks.empty());
}

}  // namespace
