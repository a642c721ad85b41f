// The "listeners" section of host files: real listening sockets the host
// holds for plugins that are alive, what the state file reports, and wrong
// values refused by name.
#include "simhost/core/host.h"
#include "simhost/hostfile/host_file.h"
#include "simhost/ws2_32/winsock.h"

#include "host_file_test_helpers.h"

#include <gtest/gtest.h>
#include <json/json.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

namespace ws2_32 = simhost::ws2_32;

class ListenersHostFile : public hostfiletest::FreshHost {};

using hostfiletest::apply;
using hostfiletest::parse;
using hostfiletest::refusal;

// A port of 127.0.1.20 that the system just gave out and that is free again.
u_short freePort() {
    u_short port = ws2_32::holdListener("127.0.1.20", 0);
    ws2_32::releaseListener("127.0.1.20", port);
    return port;
}

TEST_F(ListenersHostFile, ListenersAreHeldAndReportedInTheStateFile) {
    const std::string first = "127.0.1.20:" + std::to_string(freePort());
    const std::string second = "127.0.1.20:" + std::to_string(freePort());
    ASSERT_EQ(refusal("{\"listeners\": [\"" + first + "\", \"" + second + "\"]}"), "accepted");
    EXPECT_EQ(ws2_32::heldListeners(), (std::vector<std::string>{first, second}));
    Json::Value state = simhost::describeHostState();
    ASSERT_EQ(state["listeners"].size(), 2u);
    EXPECT_EQ(state["listeners"][0].asString(), first);
    // The address is really held: a second listener there is refused.
    EXPECT_THROW(ws2_32::holdListener("127.0.1.20", static_cast<u_short>(std::stoi(first.substr(11)))),
                 std::runtime_error);
}

TEST_F(ListenersHostFile, ReleaseAndResetFreeTheAddress) {
    const u_short port = ws2_32::holdListener("127.0.1.20", 0);
    EXPECT_TRUE(ws2_32::releaseListener("127.0.1.20", port));
    EXPECT_FALSE(ws2_32::releaseListener("127.0.1.20", port));
    EXPECT_EQ(ws2_32::holdListener("127.0.1.20", port), port);
    simhost::Host::get().reset();
    EXPECT_TRUE(ws2_32::heldListeners().empty());
    EXPECT_EQ(ws2_32::holdListener("127.0.1.20", port), port);
}

TEST_F(ListenersHostFile, WrongValuesAreRefusedByName) {
    const u_short taken = ws2_32::holdListener("127.0.1.20", 0);
    const std::string takenText = "127.0.1.20:" + std::to_string(taken);
    const std::pair<std::string, std::string> cases[] = {
        {R"json({"listeners": "127.0.1.20:9101"})json", "\"listeners\" must be a list of \"address:port\" texts"},
        {R"json({"listeners": [9101]})json", "listener \"\" must be \"address:port\" with a port from 1 to 65535"},
        {R"json({"listeners": ["127.0.1.20"]})json",
         "listener \"127.0.1.20\" must be \"address:port\" with a port from 1 to 65535"},
        {R"json({"listeners": ["127.0.1.20:0"]})json",
         "listener \"127.0.1.20:0\" must be \"address:port\" with a port from 1 to 65535"},
        {R"json({"listeners": ["127.0.1.20:70000"]})json",
         "listener \"127.0.1.20:70000\" must be \"address:port\" with a port from 1 to 65535"},
        {R"json({"listeners": ["127.0.1.20:91x"]})json",
         "listener \"127.0.1.20:91x\" must be \"address:port\" with a port from 1 to 65535"},
        {R"json({"listeners": ["localhost:9101"]})json",
         "listener cannot listen on localhost:9101: not an IPv4 address"},
        {"{\"listeners\": [\"" + takenText + "\"]}", "listener cannot listen on " + takenText + ": the address is in use"},
    };
    for (const auto& [text, message] : cases) EXPECT_EQ(refusal(text), message) << text;
}

}  // namespace
