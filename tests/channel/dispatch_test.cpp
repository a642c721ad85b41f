#include "foundation/StaticLogger.h"
#include "simhost/core/host.h"
#include "simhost/ws2_32/winsock.h"
#include "support/SenderAdmission.h"
#include "support/ServiceHarness.h"
#include "support/ServiceTestAccess.h"
#include "support/TestClient.h"

#include <gtest/gtest.h>

#include <json/json.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using testsupport::LogLine;
using testsupport::ServiceHarness;
using testsupport::TestClient;

namespace {

std::string request(int id, const std::string& verb) {
    return "{\"msg\":\"" + verb + "\",\"_msgUniqueId\":" + std::to_string(id) + "}" + std::string(1, '\0');
}

int replyId(const std::string& reply) {
    Json::Value value;
    Json::CharReaderBuilder builder;
    std::string errors;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string text = reply.substr(0, reply.find('\0'));
    if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors)) return -1;
    return value["_msgUniqueId"].asInt();
}

class Dispatch : public ::testing::Test {
protected:
    void SetUp() override {
        testsupport::admitLoopbackClientsAs(testsupport::kLoaderPid);
        harness_.start();
        ASSERT_TRUE(client_.connect());
    }
    void TearDown() override {
        simhost::Host::get().faults().clearAll();
        client_.close();
    }

    // Holds the worker in the send of the reply to request 0, so that the
    // requests sent meanwhile all wait in the queue together.
    void holdTheWorker() {
        simhost::Host::get().faults().blockCall("send");
        ASSERT_TRUE(client_.send(request(0, "hold")));
        ASSERT_TRUE(simhost::Host::get().faults().waitUntilBlocked("send"));
    }
    void queueAndRelease(const std::vector<std::pair<int, std::string>>& requests) {
        std::string bytes;
        for (const auto& entry : requests) bytes += request(entry.first, entry.second);
        ASSERT_TRUE(client_.send(bytes));
        ASSERT_TRUE(harness_.log().waitFor("enqueued new msg. Queue size now:" + std::to_string(requests.size())));
        simhost::Host::get().faults().releaseCall("send");
    }
    std::vector<int> replyOrder(size_t count) {
        std::vector<int> ids;
        for (size_t i = 0; i < count; ++i) ids.push_back(replyId(client_.receiveReply()));
        return ids;
    }

    ServiceHarness harness_;
    TestClient client_;
};

TEST_F(Dispatch, FourEqualRequestsAreHandledACBD) {
    holdTheWorker();
    queueAndRelease({{1, "a"}, {2, "b"}, {3, "c"}, {4, "d"}});
    EXPECT_EQ(replyOrder(5), (std::vector<int>{0, 1, 3, 2, 4}));
}

TEST_F(Dispatch, FiveEqualRequestsAreHandledACEBD) {
    holdTheWorker();
    queueAndRelease({{1, "a"}, {2, "b"}, {3, "c"}, {4, "d"}, {5, "e"}});
    EXPECT_EQ(replyOrder(6), (std::vector<int>{0, 1, 3, 5, 2, 4}));
}

TEST_F(Dispatch, RemovalsAndUnknownVerbsGoAheadOfCreationAndReapAndInformationWait) {
    holdTheWorker();
    queueAndRelease({{1, "getTcpProcessInfo"}, {2, "reap"}, {3, "createPPort"}, {4, "createPrinter"}, {5, "nonsense"}});
    EXPECT_EQ(replyOrder(6), (std::vector<int>{0, 5, 4, 3, 2, 1}));
}

TEST_F(Dispatch, DeleteReceivedAfterAQueuedCreateOvertakesIt) {
    holdTheWorker();
    queueAndRelease({{1, "createPrinter"}, {2, "deletePrinter"}});
    EXPECT_EQ(replyOrder(3), (std::vector<int>{0, 2, 1}));
}

TEST_F(Dispatch, ClientThatLeavesWhileItsRequestsWaitIsReapedAfterTheQueueDrains) {
    holdTheWorker();
    TestClient leaving;
    ASSERT_TRUE(leaving.connect());
    ASSERT_TRUE(leaving.send(request(1, "a") + request(2, "b")));
    ASSERT_TRUE(harness_.log().waitFor("enqueued new msg. Queue size now:2"));
    leaving.close();
    ASSERT_TRUE(harness_.log().waitFor("Client disconnected nicely"));
    EXPECT_FALSE(harness_.log().contains("Dealing with pending reap"));
    simhost::Host::get().faults().releaseCall("send");
    EXPECT_EQ(replyId(client_.receiveReply()), 0);
    ASSERT_TRUE(harness_.log().waitFor("Finished Reaping"));
    // Both requests of the departed client still ran before the reap.
    std::vector<std::string> messages = harness_.log().messages();
    size_t lastAnswer = 0, reap = 0;
    for (size_t i = 0; i < messages.size(); ++i) {
        if (messages[i] == "Sending json response for id:2") lastAnswer = i;
        if (messages[i] == "Dealing with pending reap") reap = i;
    }
    EXPECT_GT(lastAnswer, 0u);
    EXPECT_GT(reap, lastAnswer);
    EXPECT_EQ(harness_.log().find("Sending json response for id:1").size(), 1u);
}

TEST_F(Dispatch, ReapWaitsWhileRequestsKeepArriving) {
    holdTheWorker();
    TestClient leaving;
    ASSERT_TRUE(leaving.connect());
    // Admitted first: a client gone before it is vetted is refused, not reaped.
    ASSERT_TRUE(harness_.log().waitUntil([&](const LogLine& line) {
        return line.message.rfind("[WT]New connection", 0) == 0 &&
               line.message.find(":" + std::to_string(leaving.localPort())) != std::string::npos;
    }));
    leaving.close();
    ASSERT_TRUE(harness_.log().waitFor("Client disconnected nicely"));
    queueAndRelease({{1, "a"}, {2, "b"}, {3, "c"}});
    EXPECT_EQ(replyOrder(4).size(), 4u);
    ASSERT_TRUE(harness_.log().waitFor("Finished Reaping"));
    std::vector<std::string> messages = harness_.log().messages();
    size_t lastAnswer = 0, reap = 0;
    for (size_t i = 0; i < messages.size(); ++i) {
        if (messages[i].rfind("Sending json response for id:", 0) == 0) lastAnswer = i;
        if (messages[i] == "Dealing with pending reap") reap = i;
    }
    EXPECT_GT(reap, lastAnswer);
}

TEST_F(Dispatch, FailedSendIsLoggedAndTheNextRequestIsServed) {
    simhost::Host::get().faults().failCall("send", WSAECONNRESET, 1);
    ASSERT_TRUE(client_.send(request(1, "a")));
    ASSERT_TRUE(harness_.log().waitFor("send failed with error:10054"));
    EXPECT_EQ(harness_.log().find("send failed with error:10054")[0].level, 4u);
    EXPECT_EQ(harness_.log().find("send failed with error:10054")[0].channel, static_cast<int>(kLogError));
    ASSERT_TRUE(client_.send(request(2, "b")));
    EXPECT_EQ(replyId(client_.receiveReply()), 2);
    ASSERT_TRUE(harness_.log().waitFor("Sending json response for id:2"));
    EXPECT_EQ(harness_.log().find("Sending json response for id:2")[0].channel, static_cast<int>(kLogNormal));
}

TEST_F(Dispatch, EachRequestIsFollowedByAMemoryLine) {
    ASSERT_TRUE(client_.send(request(1, "a")));
    EXPECT_EQ(replyId(client_.receiveReply()), 1);
    ASSERT_TRUE(harness_.log().waitUntil([](const LogLine& line) {
        return line.function == "VexorPrintingService::_checkMsgQueue" && line.message.rfind("MEMORY:", 0) == 0;
    }));
}

TEST(QueueMutex, QueueThatCannotBeHadLosesTheRequest) {
    ServiceHarness harness_(0.01);
    testsupport::admitLoopbackClientsAs(testsupport::kLoaderPid);
    harness_.start();
    TestClient client_;
    ASSERT_TRUE(client_.connect());
    HANDLE mutex = ServiceTestAccess::queueMutex(harness_.service());
    // The holder has the queue before the request is sent, and gives it back
    // once the socket thread gave up on it, or after its own limit.
    std::atomic<DWORD> taken{WAIT_FAILED};
    std::atomic<bool> attempted{false};
    std::atomic<bool> lostLine{false};
    std::thread holder([&] {
        taken = WaitForSingleObject(mutex, 5000);
        attempted = true;
        if (taken != WAIT_OBJECT_0) return;
        lostLine = harness_.log().waitFor("Failed to aquire hMsgQueueMutex after 5000MS. Request will be lost!", 10000);
        ReleaseMutex(mutex);
    });
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!attempted && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (taken == WAIT_OBJECT_0) {
        EXPECT_TRUE(client_.send(request(1, "lost")));
    }
    holder.join();
    ASSERT_EQ(taken, static_cast<DWORD>(WAIT_OBJECT_0));
    ASSERT_TRUE(lostLine);
    EXPECT_EQ(harness_.log().find("Failed to aquire hMsgQueueMutex after 5000MS. Request will be lost!")[0].level, 5u);
    EXPECT_EQ(harness_.log().find("Failed to aquire hMsgQueueMutex after 5000MS. Request will be lost!")[0].channel,
              static_cast<int>(kLogError));
    EXPECT_TRUE(harness_.log().waitFor("Failed to aquire hMsgQueueMutex after 666MS"));
    EXPECT_EQ(harness_.log().find("Failed to aquire hMsgQueueMutex after 666MS")[0].channel, static_cast<int>(kLogError));
    // The lost request is not answered; the next one is.
    ASSERT_TRUE(client_.send(request(2, "kept")));
    EXPECT_EQ(replyId(client_.receiveReply()), 2);
    EXPECT_FALSE(harness_.log().contains("Got request id:1"));
}

TEST(SenderStamp, ClientsOwnSenderPidIsReplacedByTheConnectionsOwner) {
    ServiceHarness harness(0.01);
    ClientMsg msg;
    msg.json["msg"] = "deletePrinter";
    msg.json["_senderPID"] = 999;
    msg.peer.ownerPid = 4321;
    ServiceTestAccess::stampSender(harness.service(), &msg);
    EXPECT_EQ(msg.json["_senderPID"].asUInt(), 4321u);
    EXPECT_TRUE(msg.json["_senderPID"].isUInt());
    harness.stop();
}

TEST(LogRotation, NewFileAfterFiveMillionBytesWithTheVersionLine) {
    ServiceHarness harness;
    testsupport::admitLoopbackClientsAs(testsupport::kLoaderPid);
    harness.start();
    std::string filler(4900, 'f');
    while (StaticLogger::logFileSize() <= 5000000) VX_LOG(kLogNormal, kNoLastError, 2, "%s", filler.c_str());
    std::string firstFile = harness.log().logFilePath();
    TestClient client;
    ASSERT_TRUE(client.connect());
    ASSERT_TRUE(client.send(request(1, "after")));
    EXPECT_EQ(replyId(client.receiveReply()), 1);
    EXPECT_LT(StaticLogger::logFileSize(), 100000u);
    std::vector<LogLine> lines = harness.log().lines();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0].message, "Plugin version:25.6.0.51414, Short Hash = 57230ca0d");
    EXPECT_EQ(lines[0].level, 4u);
    harness.stop();
}

}  // namespace
