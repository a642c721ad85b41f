#include "channel/MessageQueue.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

// Requests that carry their verb and a name for the order they come out in.
class QueueFixture : public ::testing::Test {
protected:
    ClientMsg* request(const std::string& name, const std::string& verb) {
        auto msg = std::make_unique<ClientMsg>();
        msg->json["name"] = name;
        if (!verb.empty()) msg->json["msg"] = verb;
        owned_.push_back(std::move(msg));
        return owned_.back().get();
    }

    std::vector<std::string> drain() {
        std::vector<std::string> order;
        while (!queue_.empty()) order.push_back(queue_.pop()->json["name"].asString());
        return order;
    }

    MessageQueue queue_;
    std::vector<std::unique_ptr<ClientMsg>> owned_;
};

TEST_F(QueueFixture, PriorityOfEachVerb) {
    EXPECT_EQ(msgPriority(request("a", "getTcpProcessInfo")), 5);
    EXPECT_EQ(msgPriority(request("a", "reap")), 4);
    EXPECT_EQ(msgPriority(request("a", "createPPort")), 3);
    EXPECT_EQ(msgPriority(request("a", "setPrinterStatus")), 3);
    EXPECT_EQ(msgPriority(request("a", "createPrinterAndPort")), 2);
    EXPECT_EQ(msgPriority(request("a", "createPrinter")), 2);
    EXPECT_EQ(msgPriority(request("a", "deletePPort")), 1);
    EXPECT_EQ(msgPriority(request("a", "deletePrinterAndPort")), 1);
    EXPECT_EQ(msgPriority(request("a", "deletePrinter")), 1);
    EXPECT_EQ(msgPriority(request("a", "somethingElse")), 1);
    EXPECT_EQ(msgPriority(request("a", "Reap")), 1);
    EXPECT_EQ(msgPriority(request("a", "")), 1);
}

TEST_F(QueueFixture, VerbThatIsNoStringReadsAsUnknown) {
    ClientMsg* numeric = request("n", "");
    numeric->json["msg"] = 4;
    EXPECT_EQ(msgPriority(numeric), 1);
}

TEST_F(QueueFixture, FourEqualRequestsComeOutACBD) {
    for (const char* name : {"A", "B", "C", "D"}) queue_.push(request(name, "createPrinter"));
    EXPECT_EQ(drain(), (std::vector<std::string>{"A", "C", "B", "D"}));
}

TEST_F(QueueFixture, FiveEqualRequestsComeOutACEBD) {
    for (const char* name : {"A", "B", "C", "D", "E"}) queue_.push(request(name, "reap"));
    EXPECT_EQ(drain(), (std::vector<std::string>{"A", "C", "E", "B", "D"}));
}

TEST_F(QueueFixture, OneAndTwoRequests) {
    queue_.push(request("A", ""));
    EXPECT_EQ(queue_.size(), 1u);
    EXPECT_EQ(drain(), (std::vector<std::string>{"A"}));
    queue_.push(request("A", ""));
    queue_.push(request("B", ""));
    EXPECT_EQ(drain(), (std::vector<std::string>{"A", "B"}));
}

TEST_F(QueueFixture, LowerNumbersGoFirstAcrossPriorities) {
    queue_.push(request("info", "getTcpProcessInfo"));
    queue_.push(request("reap", "reap"));
    queue_.push(request("port", "createPPort"));
    queue_.push(request("printer", "createPrinter"));
    queue_.push(request("delete", "deletePrinter"));
    EXPECT_EQ(drain(), (std::vector<std::string>{"delete", "printer", "port", "reap", "info"}));
}

TEST_F(QueueFixture, DeleteOvertakesAQueuedCreate) {
    queue_.push(request("create", "createPrinter"));
    queue_.push(request("delete", "deletePrinter"));
    EXPECT_EQ(drain(), (std::vector<std::string>{"delete", "create"}));
}

TEST_F(QueueFixture, NewElementNeverPassesAnEqualOne) {
    queue_.push(request("first", "createPPort"));
    queue_.push(request("second", "setPrinterStatus"));
    EXPECT_EQ(queue_.pop()->json["name"].asString(), "first");
}

TEST_F(QueueFixture, MixedSequenceFollowsTheHeapSteps) {
    // Worked through the push and pop steps by hand: pushes of priorities
    // 3,1,3,2,1 named p..t give the heap [q,t,r,p,s].
    queue_.push(request("p", "createPPort"));
    queue_.push(request("q", "deletePPort"));
    queue_.push(request("r", "setPrinterStatus"));
    queue_.push(request("s", "createPrinter"));
    queue_.push(request("t", "unknown"));
    EXPECT_EQ(drain(), (std::vector<std::string>{"q", "t", "s", "p", "r"}));
}

}  // namespace
