// The reaper in the running service: after a plugin departs (at the next
// empty queue), on the verb `reap`, and by force at the service's start and
// stop. Plugins that are alive hold real listeners on 127.0.1.20.
#include "simhost/core/host.h"
#include "simhost/winspool/spooler.h"
#include "simhost/ws2_32/winsock.h"
#include "support/PluginRequests.h"
#include "support/SenderAdmission.h"
#include "support/ServiceHarness.h"
#include "support/SpoolerArrangement.h"
#include "support/TestClient.h"

#include <gtest/gtest.h>

#include <json/json.h>

#include <string>
#include <vector>

using testsupport::ServiceHarness;
using testsupport::successReply;
using testsupport::TestClient;

namespace {

namespace spooler = simhost::winspool;
namespace ws2_32 = simhost::ws2_32;

std::wstring wide(const std::string& text) { return std::wstring(text.begin(), text.end()); }
std::string portNameFor(u_short port) { return "Vexor_127.0.1.20:" + std::to_string(port); }
bool hasPrinter(const std::wstring& name) { return spooler::findPrinter(name).has_value(); }
bool hasPort(const std::string& name) { return spooler::findPort(wide(name)).has_value(); }

Json::Value createPortRequest(u_short port) {
    Json::Value request(Json::objectValue);
    request["msg"] = "createPPort";
    request["pPortName"] = portNameFor(port);
    request["IP"] = "127.0.1.20";
    request["port"] = port;
    return request;
}

Json::Value verb(const char* name) {
    Json::Value request(Json::objectValue);
    request["msg"] = name;
    return request;
}

// The service's printer on a port of the service, as printer creation
// names them.
void addServicePrinter(const std::wstring& printer, u_short port) {
    testsupport::addRawTcpPort(wide(portNameFor(port)), port);
    testsupport::addTestPrinter(printer, wide(portNameFor(port)));
}

class ReaperInTheService : public ::testing::Test {
protected:
    void SetUp() override {
        testsupport::admitLoopbackClientsAs(testsupport::kLoaderPid);
        testsupport::addTestDriver();
    }
    void TearDown() override { simhost::Host::get().faults().clearAll(); }

    const testsupport::LogCapture& log() const { return harness_.log(); }
    // Waits for the `count`th reap at an empty queue to finish.
    bool waitForReap(size_t count) const { return log().waitFor("Finished Reaping", 10000, count); }

    ServiceHarness harness_;
};

TEST_F(ReaperInTheService, PluginLeavingWhileItsListenerLivesKeepsItsPrinter) {
    const u_short port = ws2_32::holdListener("127.0.1.20", 0);
    harness_.start();
    TestClient plugin;
    ASSERT_TRUE(plugin.connect());
    ASSERT_EQ(testsupport::ask(plugin, createPortRequest(port), 1), successReply(1));
    testsupport::addTestPrinter(L"Local client printer", wide(portNameFor(port)));
    plugin.close();
    ASSERT_TRUE(waitForReap(1)) << log().contents();
    EXPECT_TRUE(hasPrinter(L"Local client printer"));
    EXPECT_TRUE(hasPort(portNameFor(port)));
    EXPECT_TRUE(log().contains("Vexor Printer Port socket listener in place - ignoring"));

    // The plugin's listener closes, and a connection ends once more.
    ASSERT_TRUE(ws2_32::releaseListener("127.0.1.20", port));
    TestClient other;
    ASSERT_TRUE(other.connect());
    ASSERT_EQ(testsupport::ask(other, verb("hello"), 2),
              testsupport::failureReply(2, "unknown msg verb. Don't know what you want me to do."));
    other.close();
    ASSERT_TRUE(waitForReap(2)) << log().contents();
    EXPECT_FALSE(hasPrinter(L"Local client printer"));
    EXPECT_FALSE(hasPort(portNameFor(port)));
    EXPECT_TRUE(log().contains("Reaped abandoned Printer Port:" + portNameFor(port)));
    std::vector<std::string> messages = log().messages();
    auto at = [&](const std::string& message) {
        for (size_t i = messages.size(); i-- > 0;)
            if (messages[i] == message) return i;
        return messages.size();
    };
    EXPECT_LT(at("Reaping"), at("Reaped abandoned Printer Port:" + portNameFor(port)));
    EXPECT_LT(at("Reaped abandoned Printer Port:" + portNameFor(port)), at("Finished Reaping"));
}

TEST_F(ReaperInTheService, ReapRequestRunsAfterTheQueuedCommandsOfHigherPriority) {
    const u_short departed = ws2_32::holdListener("127.0.1.20", 0);
    ws2_32::releaseListener("127.0.1.20", departed);
    harness_.start();
    TestClient plugin;
    ASSERT_TRUE(plugin.connect());
    // The first request holds the worker while the others are queued.
    simhost::Host::get().faults().blockCall("XcvDataW");
    Json::Value first = createPortRequest(departed);
    first["_msgUniqueId"] = 1;
    Json::Value reap = verb("reap");
    reap["_msgUniqueId"] = 2;
    Json::Value removal = verb("deletePPort");
    removal["name"] = "Nothing";
    removal["_msgUniqueId"] = 3;
    Json::Value status = verb("setPrinterStatus");
    status["_msgUniqueId"] = 4;
    auto bytes = [](const Json::Value& request) {
        std::string text = Json::FastWriter().write(request);
        text.back() = '\0';
        return text;
    };
    ASSERT_TRUE(plugin.send(bytes(first)));
    ASSERT_TRUE(simhost::Host::get().faults().waitUntilBlocked("XcvDataW"));
    ASSERT_TRUE(plugin.send(bytes(reap) + bytes(removal) + bytes(status)));
    ASSERT_TRUE(log().waitFor("enqueued new msg. Queue size now:3"));
    simhost::Host::get().faults().releaseCall("XcvDataW");
    std::vector<std::string> ids;
    for (int i = 0; i < 4; ++i) {
        Json::Value reply;
        ASSERT_TRUE(Json::Reader().parse(plugin.receiveReply().c_str(), reply));
        ids.push_back(reply["_msgUniqueId"].asString());
    }
    EXPECT_EQ(ids, (std::vector<std::string>{"1", "3", "4", "2"}));
    testsupport::expectOneLine(log(), "doing reap", 2, static_cast<int>(kLogNormal),
                               "VexorPrintingService::_handleRequest");
    testsupport::expectOneLine(log(), "_reapPrinters()", 3, static_cast<int>(kLogNormal),
                               "VexorPrintingService::_reapPrinters");
    EXPECT_FALSE(hasPort(portNameFor(departed))) << "the reap found the port's plugin gone";
}

TEST_F(ReaperInTheService, StartClearsWhatAnEarlierRunLeftAndLeavesOtherSoftwareAlone) {
    const u_short live = ws2_32::holdListener("127.0.1.20", 0);
    const u_short departed = ws2_32::holdListener("127.0.1.20", 0);
    ws2_32::releaseListener("127.0.1.20", departed);
    addServicePrinter(L"Local live", live);
    addServicePrinter(L"Local departed", departed);
    testsupport::addRawTcpPort(L"Office_9100", 9100, L"10.0.0.5");
    testsupport::addTestPrinter(L"Office printer", L"Office_9100");
    harness_.start();
    EXPECT_FALSE(hasPrinter(L"Local live"));
    EXPECT_FALSE(hasPrinter(L"Local departed"));
    EXPECT_FALSE(hasPort(portNameFor(live)));
    EXPECT_FALSE(hasPort(portNameFor(departed)));
    EXPECT_TRUE(hasPrinter(L"Office printer"));
    EXPECT_TRUE(hasPort("Office_9100"));
    // The reap is the start's first step, before the worker is queued.
    std::vector<std::string> messages = log().messages();
    auto at = [&](const std::string& message) {
        for (size_t i = 0; i < messages.size(); ++i)
            if (messages[i] == message) return i;
        return messages.size();
    };
    const size_t reaped = at("Reaped abandoned Printer Port:" + portNameFor(live));
    EXPECT_LT(at("Vexor_PrintingService in OnStart"), reaped);
    EXPECT_LT(reaped, at("Service Worker thread started and it is me."));
}

TEST_F(ReaperInTheService, StopClearsTheServicesPrintersWhetherTheirPluginsLiveOrNot) {
    harness_.start();
    const u_short live = ws2_32::holdListener("127.0.1.20", 0);
    addServicePrinter(L"Local live", live);
    testsupport::addTestPrinter(L"Office printer", L"LPT1:");
    ASSERT_TRUE(harness_.stop());
    EXPECT_FALSE(hasPrinter(L"Local live"));
    EXPECT_FALSE(hasPort(portNameFor(live)));
    EXPECT_TRUE(hasPrinter(L"Office printer"));
    EXPECT_TRUE(log().contains("Vexor Printer Port socket listener in place - proceeding with destroy"));
}

}  // namespace
