// The process-information verb: which process owns a TCP endpoint, with its
// ancestry nested level by level. The handler is asked directly over
// arranged TCP rows and processes, then over the wire.
#include "foundation/ClassicJson.h"
#include "service/VexorPrintingService.h"

#include "simhost/core/host.h"
#include "simhost/iphlpapi/tcp_connections.h"
#include "simhost/kernel32/processes.h"
#include "simhost/kernel32/threads.h"
#include "support/ChannelRecorder.h"
#include "support/LogCapture.h"
#include "support/SenderAdmission.h"
#include "support/ServiceHarness.h"
#include "support/TestClient.h"

#include <gtest/gtest.h>

#include <json/json.h>

#include <string>
#include <vector>

using simhost::kernel32::ProcessProtection;
using testsupport::ChannelRecorder;
using testsupport::LogCapture;
using testsupport::LogLine;
using testsupport::ServiceHarness;
using testsupport::TestClient;

using testsupport::addClientRow;
using testsupport::addProcess;

namespace {

constexpr u_short kClientPort = 50200;
// 50200 in network byte order, read as a number on this machine.
constexpr Json::UInt kClientPortAsGiven = 6340;
const std::string kLoaderDevicePath =
    "\\\\Device\\\\HarddiskVolume3\\\\Program Files\\\\Quillion\\\\VexorAgent\\\\vexor_vchan_loader.exe";
const std::string kAncestorDevicePath = "\\\\Device\\\\HarddiskVolume3\\\\Windows\\\\System32\\\\svchost.exe";
const std::string kHandlerName = "VexorPrintingService::_getTcpProcessInfo";

// The loader (5000, session 2) under svchost (700, session 0) under System.
void addLoaderChain() {
    addProcess(testsupport::kSessionZeroAncestorPid, 4, 0, testsupport::kSessionZeroAncestorPath);
    addProcess(testsupport::kLoaderPid, testsupport::kSessionZeroAncestorPid, 2, testsupport::kLoaderPath);
}

// The ProcessInfo of the loader chain, as the compact writer puts it.
const std::string kLoaderChainInfo = "{\"ParentInfo\":{\"ParentInfo\":{\"ProcessId\":4,\"SessionId\":0},\"Path\":\"" +
                                     kAncestorDevicePath + "\",\"ProcessId\":700,\"SessionId\":0},\"Path\":\"" +
                                     kLoaderDevicePath + "\",\"ProcessId\":5000,\"SessionId\":2}";

Json::Value requestFor(const char* ip, Json::UInt port) {
    Json::Value request(Json::objectValue);
    request["msg"] = "getTcpProcessInfo";
    request["IP"] = ip;
    request["Port"] = port;
    return request;
}

class TcpProcessInfo : public ::testing::Test {
protected:
    // The service's own process id is fixed, so that it never falls among
    // the ids a test adds.
    void SetUp() override {
        simhost::setCurrentProcessId(testsupport::kServiceProcessId);
        recorder_.attach();
    }

    // The reply as the compact writer gives it, without its line feed.
    std::string ask(const Json::Value& request) {
        std::string text = writeCompact(service_._getTcpProcessInfo(request));
        if (!text.empty() && text.back() == '\n') text.pop_back();
        return text;
    }
    std::string askFor(const char* ip, Json::UInt port) { return ask(requestFor(ip, port)); }

    LogLine only(const std::string& message) const {
        std::vector<LogLine> lines = log_.find(message);
        EXPECT_EQ(lines.size(), 1u) << message << "\n" << log_.contents();
        return lines.empty() ? LogLine{} : lines[0];
    }
    void expectLine(const std::string& message, uint32_t level, uint32_t channel) {
        LogLine line = only(message);
        EXPECT_EQ(line.level, level) << message;
        EXPECT_EQ(line.function, kHandlerName) << message;
        EXPECT_EQ(recorder_.channelOf(message), static_cast<int>(channel)) << message;
    }

    ChannelRecorder recorder_;
    LogCapture log_{false};
    VexorPrintingService service_;
};

TEST_F(TcpProcessInfo, OwnerAndItsAncestorsAreNestedLevelByLevel) {
    addLoaderChain();
    addClientRow("127.0.0.1", kClientPort, testsupport::kLoaderPid);
    EXPECT_EQ(askFor("127.0.0.1", kClientPortAsGiven), "{\"ProcessInfo\":" + kLoaderChainInfo + "}");
    expectLine("Looking up IP:127.0.0.1:6340", 2, kLogNormal);
    // System cannot be opened: its level has id and session only.
    expectLine("Failed to open process 4 to check name Err:5:Access is denied.", 4, kLogError);
}

TEST_F(TcpProcessInfo, RequestWithoutIpIsRefused) {
    Json::Value request(Json::objectValue);
    request["Port"] = kClientPortAsGiven;
    EXPECT_EQ(ask(request), "{\"err\":\"no/bad IP field given\"}");
    EXPECT_EQ(askFor("", kClientPortAsGiven), "{\"err\":\"no/bad IP field given\"}");
    // The constructor's version line alone.
    EXPECT_EQ(log_.lines().size(), 1u) << log_.contents();
}

TEST_F(TcpProcessInfo, TextThatIsNoAddressIsRefusedWithNothingAfterTheColon) {
    EXPECT_EQ(askFor("localhost", kClientPortAsGiven), "{\"err\":\"Invalid IP field given:\"}");
    EXPECT_EQ(askFor("127.0.0.256", kClientPortAsGiven), "{\"err\":\"Invalid IP field given:\"}");
}

TEST_F(TcpProcessInfo, BroadcastAddressReadsAsAllOnesAndIsRefused) {
    EXPECT_EQ(askFor("255.255.255.255", kClientPortAsGiven), "{\"err\":\"Invalid IP field given:\"}");
}

TEST_F(TcpProcessInfo, PortZeroIsRefused) {
    EXPECT_EQ(askFor("127.0.0.1", 0), "{\"err\":\"no/bad Port field given\"}");
}

TEST_F(TcpProcessInfo, PortAbove65535IsRefused) {
    EXPECT_EQ(askFor("127.0.0.1", 65536), "{\"err\":\"no/bad Port field given\"}");
}

TEST_F(TcpProcessInfo, MissingOrUnreadablePortIsRefused) {
    Json::Value request(Json::objectValue);
    request["IP"] = "127.0.0.1";
    EXPECT_EQ(ask(request), "{\"err\":\"no/bad Port field given\"}");
    request["Port"] = -1;
    EXPECT_EQ(ask(request), "{\"err\":\"no/bad Port field given\"}");
    EXPECT_EQ(log_.lines().size(), 1u) << log_.contents();
}

TEST_F(TcpProcessInfo, Port65535IsAcceptedAndLoggedSignExtended) {
    addLoaderChain();
    addClientRow("127.0.0.1", 65535, testsupport::kLoaderPid);
    EXPECT_EQ(askFor("127.0.0.1", 65535), "{\"ProcessInfo\":" + kLoaderChainInfo + "}");
    expectLine("Looking up IP:127.0.0.1:4294967295", 2, kLogNormal);
}

TEST_F(TcpProcessInfo, PortIsComparedAsGivenInNetworkOrder) {
    addLoaderChain();
    addClientRow("127.0.0.1", kClientPort, testsupport::kLoaderPid);
    // 50200 itself stands for port 6340, which nobody holds.
    EXPECT_EQ(askFor("127.0.0.1", kClientPort), "{\"err\":\"Unable to get pid from IP\"}");
    expectLine("Looking up IP:127.0.0.1:4294951960", 2, kLogNormal);
}

TEST_F(TcpProcessInfo, PortWithoutOwnerIsRefused) {
    addLoaderChain();
    addClientRow("127.0.0.1", kClientPort, testsupport::kLoaderPid);
    EXPECT_EQ(askFor("127.0.0.2", kClientPortAsGiven), "{\"err\":\"Unable to get pid from IP\"}");
    EXPECT_EQ(askFor("127.0.0.1", htons(kClientPort + 1)), "{\"err\":\"Unable to get pid from IP\"}");
}

TEST_F(TcpProcessInfo, ProtectedImageLeavesOutThePathAndTheChainGoesOn) {
    addProcess(testsupport::kSessionZeroAncestorPid, 4, 0, testsupport::kSessionZeroAncestorPath);
    addProcess(800, testsupport::kSessionZeroAncestorPid, 0, L"C:\\Windows\\System32\\guard.exe",
               ProcessProtection::CannotName);
    addClientRow("127.0.0.1", kClientPort, 800);
    EXPECT_EQ(askFor("127.0.0.1", kClientPortAsGiven),
              "{\"ProcessInfo\":{\"ParentInfo\":{\"ParentInfo\":{\"ProcessId\":4,\"SessionId\":0},\"Path\":\"" +
                  kAncestorDevicePath + "\",\"ProcessId\":700,\"SessionId\":0},\"ProcessId\":800,\"SessionId\":0}}");
    expectLine("Failed to get name for process 800 Err:5:Access is denied.", 4, kLogError);
}

TEST_F(TcpProcessInfo, TwoIdLoopEndsWithAnEmptyParentInfo) {
    addProcess(6000, 6001, 2, L"C:\\a.exe");
    addProcess(6001, 6000, 3, L"C:\\b.exe");
    addClientRow("127.0.0.1", kClientPort, 6000);
    EXPECT_EQ(askFor("127.0.0.1", kClientPortAsGiven),
              "{\"ProcessInfo\":{\"ParentInfo\":{\"ParentInfo\":{},\"Path\":\"\\\\Device\\\\HarddiskVolume3\\\\b.exe\","
              "\"ProcessId\":6001,\"SessionId\":3},\"Path\":\"\\\\Device\\\\HarddiskVolume3\\\\a.exe\","
              "\"ProcessId\":6000,\"SessionId\":2}}");
    expectLine("Parent pid loop:6000  Breaking", 5, kLogError);
}

// A chain of `length` processes, 20000 the owner, each the child of the
// next; the last one's parent is `lastParent`.
void addChain(DWORD length, DWORD lastParent) {
    for (DWORD i = 0; i < length; ++i)
        addProcess(20000 + i, i + 1 == length ? lastParent : 20000 + i + 1, 2, L"C:\\x.exe");
    addClientRow("127.0.0.1", kClientPort, 20000);
}

// The ids of the filled levels, from the owner up; whether the last level
// holds a ParentInfo.
std::vector<DWORD> levelIds(const Json::Value& info, bool& endsWithParentInfo) {
    std::vector<DWORD> ids;
    const Json::Value* level = &info;
    while (level->isMember("ProcessId")) {
        ids.push_back(static_cast<DWORD>((*level)["ProcessId"].asUInt()));
        if (!level->isMember("ParentInfo")) break;
        level = &(*level)["ParentInfo"];
    }
    endsWithParentInfo = level->isMember("ParentInfo");
    return ids;
}

TEST_F(TcpProcessInfo, ChainLongerThanTheLimitHasExactly102FilledLevels) {
    addChain(150, 0);
    Json::Value reply = service_._getTcpProcessInfo(requestFor("127.0.0.1", kClientPortAsGiven));
    ASSERT_TRUE(reply.isMember("ProcessInfo"));
    bool endsWithParentInfo = true;
    std::vector<DWORD> ids = levelIds(reply["ProcessInfo"], endsWithParentInfo);
    ASSERT_EQ(ids.size(), 102u);
    EXPECT_FALSE(endsWithParentInfo);
    for (DWORD i = 0; i < ids.size(); ++i) EXPECT_EQ(ids[i], 20000 + i);
    expectLine("Too many ancestors. Potential infinte loop.  Breaking", 5, kLogError);
    EXPECT_FALSE(reply.isMember("err"));
}

TEST_F(TcpProcessInfo, ChainOf102LevelsEndsAtItsTopWithoutTheLimitLine) {
    addChain(102, 0);
    Json::Value reply = service_._getTcpProcessInfo(requestFor("127.0.0.1", kClientPortAsGiven));
    bool endsWithParentInfo = true;
    EXPECT_EQ(levelIds(reply["ProcessInfo"], endsWithParentInfo).size(), 102u);
    EXPECT_FALSE(endsWithParentInfo);
    EXPECT_FALSE(log_.contains("Too many ancestors. Potential infinte loop.  Breaking"));
}

TEST_F(TcpProcessInfo, ChainOf103LevelsIsCutAtTheLimit) {
    addChain(103, 0);
    Json::Value reply = service_._getTcpProcessInfo(requestFor("127.0.0.1", kClientPortAsGiven));
    bool endsWithParentInfo = true;
    EXPECT_EQ(levelIds(reply["ProcessInfo"], endsWithParentInfo).size(), 102u);
    EXPECT_TRUE(log_.contains("Too many ancestors. Potential infinte loop.  Breaking"));
}

TEST_F(TcpProcessInfo, ParentThatHasExitedIsTheLastLevelWithItsIdAlone) {
    addProcess(3000, 700, 2, L"C:\\Windows\\System32\\rdpinit.exe");
    addProcess(testsupport::kLoaderPid, 3000, 2, testsupport::kLoaderPath);
    ASSERT_TRUE(simhost::kernel32::markExited(3000));
    addClientRow("127.0.0.1", kClientPort, testsupport::kLoaderPid);
    EXPECT_EQ(askFor("127.0.0.1", kClientPortAsGiven),
              "{\"ProcessInfo\":{\"ParentInfo\":{\"ProcessId\":3000},\"Path\":\"" + kLoaderDevicePath +
                  "\",\"ProcessId\":5000,\"SessionId\":2}}");
    expectLine("Failed to open process 3000 to check name Err:87:The parameter is incorrect.", 4, kLogError);
}

TEST_F(TcpProcessInfo, UnreadableTableStartsTheChainAtProcessOne) {
    addClientRow("127.0.0.1", kClientPort, testsupport::kLoaderPid);
    simhost::Host::get().faults().failCall("GetExtendedTcpTable", ERROR_NOT_SUPPORTED);
    EXPECT_EQ(askFor("127.0.0.1", kClientPortAsGiven), "{\"ProcessInfo\":{\"ProcessId\":1}}");
    expectLine("Failed to open process 1 to check name Err:87:The parameter is incorrect.", 4, kLogError);
}

TEST_F(TcpProcessInfo, HandleThatCannotBeClosedCostsOnlyALine) {
    addProcess(testsupport::kLoaderPid, 0, 2, testsupport::kLoaderPath);
    addClientRow("127.0.0.1", kClientPort, testsupport::kLoaderPid);
    simhost::Host::get().faults().failCall("CloseHandle", ERROR_INVALID_HANDLE, 1);
    EXPECT_EQ(askFor("127.0.0.1", kClientPortAsGiven),
              "{\"ProcessInfo\":{\"Path\":\"" + kLoaderDevicePath + "\",\"ProcessId\":5000,\"SessionId\":2}}");
    expectLine("Failed to close process handle Err:6:The handle is invalid.", 2, kLogError);
}

TEST_F(TcpProcessInfo, PathIsGivenInUtf8) {
    addProcess(testsupport::kLoaderPid, 0, 2, L"C:\\Program Files\\Q\u00fcillion\\x.exe");
    addClientRow("127.0.0.1", kClientPort, testsupport::kLoaderPid);
    Json::Value reply = service_._getTcpProcessInfo(requestFor("127.0.0.1", kClientPortAsGiven));
    EXPECT_EQ(reply["ProcessInfo"]["Path"].asString(), "\\Device\\HarddiskVolume3\\Program Files\\Q\xc3\xbcillion\\x.exe");
}

// ---- Over the wire ----

std::string wire(const std::string& text) { return text + "\n" + std::string(1, '\0'); }

class TcpProcessInfoOverTheWire : public ::testing::Test {
protected:
    void SetUp() override {
        testsupport::admitLoopbackClientsAs(testsupport::kLoaderPid);
        harness_.start();
        ASSERT_TRUE(client_.connect());
    }
    ServiceHarness harness_;
    TestClient client_;
};

TEST_F(TcpProcessInfoOverTheWire, ClientLearnsWhoOwnsItsOwnConnection) {
    const std::string port = std::to_string(htons(static_cast<u_short>(client_.localPort())));
    ASSERT_TRUE(client_.send("{\"msg\":\"getTcpProcessInfo\",\"_msgUniqueId\":1,\"IP\":\"127.0.0.1\",\"Port\":" + port +
                             "}" + std::string(1, '\0')));
    EXPECT_EQ(client_.receiveReply(),
              wire("{\"ProcessInfo\":" + kLoaderChainInfo + ",\"_msgUniqueId\":1,\"status\":\"success\"}"));
    std::vector<LogLine> lines = harness_.log().find("Getting TCP Process Info");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, 2u);
    EXPECT_EQ(lines[0].function, "VexorPrintingService::_handleRequest");
    EXPECT_TRUE(harness_.log().contains("Looking up IP:127.0.0.1:" +
                                        std::to_string(static_cast<uint32_t>(static_cast<int16_t>(std::stoi(port))))));
}

TEST_F(TcpProcessInfoOverTheWire, RefusalIsAFailedReply) {
    ASSERT_TRUE(client_.send("{\"msg\":\"getTcpProcessInfo\",\"_msgUniqueId\":2,\"IP\":\"nowhere\",\"Port\":1}" +
                             std::string(1, '\0')));
    EXPECT_EQ(client_.receiveReply(), wire("{\"_msgUniqueId\":2,\"err\":\"Invalid IP field given:\",\"status\":\"fail\"}"));
    ASSERT_TRUE(client_.send("{\"msg\":\"getTcpProcessInfo\",\"_msgUniqueId\":3}" + std::string(1, '\0')));
    EXPECT_EQ(client_.receiveReply(), wire("{\"_msgUniqueId\":3,\"err\":\"no/bad IP field given\",\"status\":\"fail\"}"));
}

}  // namespace
