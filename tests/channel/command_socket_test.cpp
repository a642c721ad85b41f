#include "simhost/core/host.h"
#include "support/SenderAdmission.h"
#include "support/ServiceHarness.h"
#include "support/TestClient.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using testsupport::LogLine;
using testsupport::ServiceHarness;
using testsupport::TestClient;

namespace {

const std::string kUnknownVerb = "unknown msg verb. Don't know what you want me to do.";

// The reply to an unknown verb with this id, byte for byte.
std::string unknownVerbReply(int id) {
    return "{\"_msgUniqueId\":" + std::to_string(id) + ",\"err\":\"" + kUnknownVerb + "\",\"status\":\"fail\"}\n" +
           std::string(1, '\0');
}

std::string request(int id, const std::string& verb = "hello") {
    return "{\"msg\":\"" + verb + "\",\"_msgUniqueId\":" + std::to_string(id) + "}" + std::string(1, '\0');
}

class CommandSocket : public ::testing::Test {
protected:
    void SetUp() override {
        harness_ = std::make_unique<ServiceHarness>();
        testsupport::admitLoopbackClientsAs(testsupport::kLoaderPid);
        harness_->start();
        ASSERT_TRUE(client_.connect());
        const std::string peer = ", addr:127.0.0.1:" + std::to_string(client_.localPort());
        ASSERT_TRUE(log().waitUntil([&](const LogLine& line) {
            return line.message.rfind("[WT]New connection, socket fd is ", 0) == 0 &&
                   line.message.size() > peer.size() &&
                   line.message.compare(line.message.size() - peer.size(), peer.size(), peer) == 0;
        })) << log().contents();
    }
    void TearDown() override {
        client_.close();
        harness_.reset();
    }

    const testsupport::LogCapture& log() { return harness_->log(); }
    size_t count(const std::string& message) { return log().find(message).size(); }
    // Lines of "<n>th command segment received"; the counter is process-wide,
    // so tests count the lines, not the number in them.
    size_t segmentsRead() {
        size_t segments = 0;
        for (const LogLine& line : log().lines())
            if (isSegmentLine(line)) ++segments;
        return segments;
    }
    static bool isSegmentLine(const LogLine& line) {
        const std::string suffix = "th command segment received";
        return line.message.size() > suffix.size() &&
               line.message.compare(line.message.size() - suffix.size(), suffix.size(), suffix) == 0;
    }
    bool waitForSegments(size_t segments) {
        for (int i = 0; i < 500 && segmentsRead() < segments; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return segmentsRead() == segments;
    }

    std::unique_ptr<ServiceHarness> harness_;
    TestClient client_;
};

TEST_F(CommandSocket, UnknownVerbIsAnsweredByteForByte) {
    ASSERT_TRUE(client_.send(request(7)));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(7));
    EXPECT_TRUE(log().waitFor("responded to cmd"));
    EXPECT_TRUE(log().contains("got peer msg:hello"));
    std::vector<LogLine> refusal = log().find(kUnknownVerb);
    ASSERT_EQ(refusal.size(), 1u);
    EXPECT_EQ(refusal[0].level, 4u);
    EXPECT_EQ(refusal[0].channel, static_cast<int>(kLogError));
    EXPECT_EQ(log().find("responded to cmd")[0].channel, static_cast<int>(kLogNormal));
    EXPECT_TRUE(log().contains("Got request id:7"));
    EXPECT_TRUE(log().contains("Sending json response for id:7"));
    EXPECT_TRUE(log().contains("JSON:{\"_msgUniqueId\":7,\"err\":\"" + kUnknownVerb + "\",\"status\":\"fail\"}"));
}

TEST_F(CommandSocket, VerbsAreMatchedExactly) {
    ASSERT_TRUE(client_.send(request(1, "Reap") + request(2, "REAP") + request(3, "")));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(1));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(2));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(3));
}

TEST_F(CommandSocket, RequestWithoutVerbOrWithANumberAsVerbIsAnUnknownVerb) {
    ASSERT_TRUE(client_.send(std::string("{\"_msgUniqueId\":4}") + '\0'));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(4));
    ASSERT_TRUE(client_.send(std::string("{\"msg\":12,\"_msgUniqueId\":5}") + '\0'));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(5));
}

TEST_F(CommandSocket, MissingOrUnreadableIdIsAnsweredWithZero) {
    ASSERT_TRUE(client_.send(std::string("{\"msg\":\"x\"}") + '\0'));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(0));
    ASSERT_TRUE(client_.send(std::string("{\"msg\":\"x\",\"_msgUniqueId\":\"seven\"}") + '\0'));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(0));
    ASSERT_TRUE(client_.send(std::string("{\"msg\":\"x\",\"_msgUniqueId\":-3}") + '\0'));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(-3));
}

TEST_F(CommandSocket, DuplicateIdsAreAccepted) {
    ASSERT_TRUE(client_.send(request(9) + request(9)));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(9));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(9));
}

TEST_F(CommandSocket, TwoMessagesInOneSegmentAreBothEnqueuedFromOneRead) {
    ASSERT_TRUE(client_.send(request(1) + request(2)));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(1));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(2));
    EXPECT_EQ(segmentsRead(), 1u);
    EXPECT_EQ(count("Parsing " + std::to_string(request(1).size() - 1) + " byte msg."), 2u);
    EXPECT_EQ(count("parsed msg"), 2u);
}

TEST_F(CommandSocket, MessageOverThreeSegmentsIsParsedOnceWhenItsNulArrives) {
    std::string whole = request(11);
    ASSERT_TRUE(client_.send(whole.substr(0, 10)));
    ASSERT_TRUE(waitForSegments(1));
    ASSERT_TRUE(client_.send(whole.substr(10, 10)));
    ASSERT_TRUE(waitForSegments(2));
    EXPECT_EQ(count("parsed msg"), 0u);
    ASSERT_TRUE(client_.send(whole.substr(20)));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(11));
    EXPECT_EQ(segmentsRead(), 3u);
    EXPECT_EQ(count("parsed msg"), 1u);
    EXPECT_EQ(count("Parsing " + std::to_string(whole.size() - 1) + " byte msg."), 1u);
}

// A request whose JSON text has exactly `length` bytes.
std::string requestOfLength(size_t length, int id) {
    std::string head = "{\"msg\":\"pad\",\"_msgUniqueId\":" + std::to_string(id) + ",\"p\":\"";
    std::string tail = "\"}";
    return head + std::string(length - head.size() - tail.size(), 'x') + tail;
}

TEST_F(CommandSocket, MessagesOf5000And5001BytesAreFramedAlike) {
    for (size_t length : {size_t(5000), size_t(5001)}) {
        std::string text = requestOfLength(length, static_cast<int>(length));
        ASSERT_EQ(text.size(), length);
        ASSERT_TRUE(client_.send(text + '\0'));
        EXPECT_EQ(client_.receiveReply(), unknownVerbReply(static_cast<int>(length)));
        EXPECT_EQ(count("Parsing " + std::to_string(length) + " byte msg."), 1u);
    }
}

TEST_F(CommandSocket, LoneNulAndTwoByteMessagesAreImpossiblyShort) {
    ASSERT_TRUE(client_.send(std::string(1, '\0')));
    ASSERT_TRUE(log().waitFor("Impossibly short message ignoring"));
    ASSERT_TRUE(client_.send(std::string("{}") + '\0'));
    ASSERT_TRUE(log().waitFor("Impossibly short message ignoring", 5000, 2));
    // Nothing was answered: the next reply is the one of the next request.
    ASSERT_TRUE(client_.send(request(3)));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(3));
    std::vector<LogLine> lines = log().find("Impossibly short message ignoring");
    EXPECT_EQ(lines[0].level, 5u);
    EXPECT_EQ(lines[0].channel, static_cast<int>(kLogError));
    EXPECT_EQ(count("parsed msg"), 1u);
    EXPECT_EQ(count("Parsing 0 byte msg."), 1u);
    EXPECT_EQ(count("Parsing 2 byte msg."), 1u);
}

TEST_F(CommandSocket, EmptyObjectWithABlankIsAcceptedAndFails) {
    ASSERT_TRUE(client_.send(std::string("{ }") + '\0'));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(0));
}

TEST_F(CommandSocket, LeadingBlankIsNotAJsonObject) {
    ASSERT_TRUE(client_.send(std::string(" {\"msg\":\"x\"}") + '\0'));
    ASSERT_TRUE(log().waitFor("message not JSON Obj. ignoring"));
    EXPECT_EQ(log().find("message not JSON Obj. ignoring")[0].level, 5u);
    EXPECT_EQ(log().find("message not JSON Obj. ignoring")[0].channel, static_cast<int>(kLogError));
    ASSERT_TRUE(client_.send(request(4)));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(4));
    EXPECT_EQ(count("parsed msg"), 1u);
}

TEST_F(CommandSocket, TextThatDoesNotParseIsRejected) {
    ASSERT_TRUE(client_.send(std::string("{\"msg\":") + '\0'));
    ASSERT_TRUE(log().waitFor("Failed to parse json rejecting message"));
    EXPECT_EQ(log().find("Failed to parse json rejecting message")[0].channel, static_cast<int>(kLogError));
    EXPECT_TRUE(log().waitFor("parsed msg"));
    ASSERT_TRUE(client_.send(request(5)));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(5));
}

TEST_F(CommandSocket, BadMessageCostsOnlyItselfAndLaterOnesInTheBufferAreRead) {
    ASSERT_TRUE(client_.send(std::string("x{}") + '\0' + request(6) + "{]" + '\0' + request(7)));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(6));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(7));
    EXPECT_EQ(count("message not JSON Obj. ignoring"), 1u);
    EXPECT_EQ(count("Impossibly short message ignoring"), 1u);
}

TEST_F(CommandSocket, BytesAfterTheLastNulWaitForTheNextSegment) {
    std::string second = request(13);
    ASSERT_TRUE(client_.send(request(12) + second.substr(0, 5)));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(12));
    EXPECT_TRUE(client_.receiveReply(200).empty());
    ASSERT_TRUE(client_.send(second.substr(5)));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(13));
}

TEST_F(CommandSocket, ReplyTextIsPassedThroughAsUtf8) {
    ASSERT_TRUE(client_.send(std::string("{\"msg\":\"caf\xc3\xa9\",\"_msgUniqueId\":1}") + '\0'));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(1));
    EXPECT_TRUE(log().contains("got peer msg:caf\xc3\xa9"));
}

TEST_F(CommandSocket, CleanDisconnectFlagsAReapAtTheNextEmptyQueue) {
    client_.close();
    ASSERT_TRUE(log().waitFor("Client disconnected nicely"));
    ASSERT_TRUE(log().waitFor("Finished Reaping"));
    std::vector<std::string> messages = log().messages();
    auto at = [&](const std::string& text) {
        for (size_t i = 0; i < messages.size(); ++i)
            if (messages[i] == text) return i;
        return messages.size();
    };
    EXPECT_LT(at("Client disconnected nicely"), at("Dealing with pending reap"));
    EXPECT_LT(at("Dealing with pending reap"), at("Reaping"));
    EXPECT_LT(at("Reaping"), at("Finished Reaping"));
    EXPECT_EQ(count("Dealing with pending reap"), 1u);
}

TEST_F(CommandSocket, ResetConnectionIsAnUnexpectedDisconnect) {
    client_.resetClose();
    ASSERT_TRUE(log().waitFor("Client disconnected unexpectedly flagging a reap"));
    EXPECT_EQ(log().find("Client disconnected unexpectedly flagging a reap")[0].level, 3u);
    EXPECT_EQ(log().find("Client disconnected unexpectedly flagging a reap")[0].channel, static_cast<int>(kLogError));
    EXPECT_TRUE(log().waitFor("Finished Reaping"));
}

TEST_F(CommandSocket, ConnectionsAreLoggedWithPeerAddress) {
    std::vector<LogLine> lines = log().lines();
    bool found = false;
    for (const LogLine& line : lines)
        if (line.message.rfind("Got new connection:", 0) == 0) {
            found = true;
            EXPECT_EQ(line.level, 4u);
            EXPECT_EQ(line.channel, static_cast<int>(kLogNormal));
            EXPECT_NE(line.message.find(" from: 127.0.0.1:" + std::to_string(client_.localPort())), std::string::npos);
        }
    EXPECT_TRUE(found);
    EXPECT_TRUE(log().contains("New TCP connection received"));
}

TEST_F(CommandSocket, ReplyOfAnySizeGoesOutInOneSend) {
    // The reply echoes nothing of the request, so size comes from the verb
    // text in the log only; what matters is one send per reply.
    ASSERT_TRUE(client_.send(request(21) + request(22)));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(21));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(22));
    EXPECT_EQ(simhost::Host::get().faults().callCount("send"), 2u);
}

}  // namespace

namespace {

TEST(CommandSocketCapacity, SixtyThreeClientsAreAllServedAndTheLimitIsLoggedEachPass) {
    ServiceHarness harness;
    testsupport::admitLoopbackClientsAs(testsupport::kLoaderPid);
    harness.start();
    std::vector<std::unique_ptr<TestClient>> clients;
    // One at a time: with its backlog of 3, a burst of connections would
    // wait out the kernel's SYN retransmissions instead of the service.
    for (int i = 0; i < 63; ++i) {
        clients.push_back(std::make_unique<TestClient>());
        ASSERT_TRUE(clients.back()->connect());
        ASSERT_TRUE(harness.log().waitFor("New TCP connection received", 5000, static_cast<size_t>(i + 1)));
    }
    const std::string limit = "VexorPrintingService exceeded maximum number of sockets:64";
    ASSERT_TRUE(harness.log().waitFor(limit));
    for (int i = 0; i < 63; ++i) ASSERT_TRUE(clients[i]->send(request(100 + i)));
    for (int i = 0; i < 63; ++i) EXPECT_EQ(clients[i]->receiveReply(), unknownVerbReply(100 + i)) << i;
    std::vector<LogLine> limits = harness.log().find(limit);
    ASSERT_GE(limits.size(), 2u);
    EXPECT_EQ(limits[0].level, 5u);
    EXPECT_EQ(limits[0].channel, static_cast<int>(kLogError));
}

TEST(CommandSocketCapacity, ClientsBeyondTheSixtyThirdStayConnectedButAreNotRead) {
    ServiceHarness harness;
    testsupport::admitLoopbackClientsAs(testsupport::kLoaderPid);
    harness.start();
    std::vector<std::unique_ptr<TestClient>> clients;
    for (int i = 0; i < 64; ++i) {
        clients.push_back(std::make_unique<TestClient>());
        ASSERT_TRUE(clients.back()->connect());
        // One at a time, so that the 64th is accepted last and has the highest key.
        ASSERT_TRUE(harness.log().waitFor("New TCP connection received", 5000, static_cast<size_t>(i + 1)));
    }
    ASSERT_TRUE(clients[63]->send(request(64)));
    EXPECT_TRUE(clients[63]->receiveReply(1500).empty());
    // Once another client leaves, the 64th fits in the set and is read.
    clients[0]->close();
    EXPECT_EQ(clients[63]->receiveReply(), unknownVerbReply(64));
}

}  // namespace

namespace {

// Each line names the function the service's design gives it, whatever
// helpers the code uses inside that function.
TEST_F(CommandSocket, LinesCarryTheFunctionsTheyBelongTo) {
    ASSERT_TRUE(client_.send(request(1)));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(1));
    ASSERT_TRUE(log().waitUntil([](const LogLine& line) { return line.message.rfind("MEMORY:", 0) == 0; }));
    auto functionOf = [&](const std::string& message) {
        for (const LogLine& line : log().lines())
            if (line.message == message) return line.function;
        return std::string("(missing)");
    };
    const std::string socket = "VexorPrintingService::_processClientObj";
    const std::string worker = "VexorPrintingService::_checkMsgQueue";
    EXPECT_EQ(functionOf("parsed msg"), socket);
    EXPECT_EQ(functionOf("enqueued new msg. Queue size now:1"), socket);
    EXPECT_EQ(functionOf("dequeued new msg. Queue size now:0"), worker);
    EXPECT_EQ(functionOf("Got request id:1"), worker);
    EXPECT_EQ(functionOf("Sending json response for id:1"), worker);
    EXPECT_EQ(functionOf("responded to cmd"), worker);
    EXPECT_EQ(functionOf("got peer msg:hello"), "VexorPrintingService::_handleRequest");
    EXPECT_EQ(functionOf("New TCP connection received"), "VexorPrintingService::_checkCmdSocket");
    EXPECT_EQ(functionOf("listen returned success"), "VexorPrintingService::_createCmdSocket");
    client_.close();
    ASSERT_TRUE(log().waitFor("Finished Reaping"));
    EXPECT_EQ(functionOf("Dealing with pending reap"), worker);
    EXPECT_EQ(functionOf("Client disconnected nicely"), socket);
}

}  // namespace

namespace {

// Hostile input costs only itself: nesting deep enough to exhaust a
// recursive parser is refused by the reader's own limit.
TEST_F(CommandSocket, DeeplyNestedJsonIsRefusedAndTheServiceGoesOn) {
    std::string nested = "{\"a\":" + std::string(100000, '[') + std::string(100000, ']') + "}";
    ASSERT_TRUE(client_.send(nested + '\0'));
    ASSERT_TRUE(log().waitUntil([](const LogLine& line) {
        return (line.message.rfind("exception parsing request. Caught:", 0) == 0 ||
                line.message == "Failed to parse json rejecting message") &&
               line.channel == static_cast<int>(kLogError);
    }, 20000));
    ASSERT_TRUE(client_.send(request(8)));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(8));
}

TEST_F(CommandSocket, BytesWithoutANulAreKeptUntilOneComes) {
    std::string large(60000, ' ');
    ASSERT_TRUE(client_.send("{\"msg\":\"big\",\"_msgUniqueId\":9,\"pad\":\"" + large));
    EXPECT_TRUE(client_.receiveReply(300).empty());
    ASSERT_TRUE(client_.send(std::string("\"}") + '\0'));
    EXPECT_EQ(client_.receiveReply(), unknownVerbReply(9));
}

}  // namespace
