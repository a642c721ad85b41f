// The port verbs end to end: a plugin's requests over the command socket,
// the replies byte for byte, the TCP/IP port monitor's ports afterwards, and
// the log lines with their levels and channels.
#include "simhost/core/host.h"
#include "simhost/winspool/spooler.h"
#include "support/PluginRequests.h"
#include "support/SenderAdmission.h"
#include "support/ServiceHarness.h"
#include "support/TestClient.h"

#include <gtest/gtest.h>

#include <json/json.h>

#include <optional>
#include <string>
#include <vector>

using testsupport::LogLine;
using testsupport::ServiceHarness;
using testsupport::TestClient;

namespace {

namespace spooler = simhost::winspool;

const int kError = static_cast<int>(kLogError);
const int kNormal = static_cast<int>(kLogNormal);

std::string success(int id) { return testsupport::successReply(id); }
std::string failure(int id, const std::string& err) { return testsupport::failureReply(id, err); }

Json::Value createPortRequest(const std::string& name, const std::string& ip = "127.0.1.20", unsigned port = 9101) {
    Json::Value request(Json::objectValue);
    request["msg"] = "createPPort";
    request["pPortName"] = name;
    request["IP"] = ip;
    request["port"] = port;
    return request;
}

Json::Value deletePortRequest(const std::string& name) {
    Json::Value request(Json::objectValue);
    request["msg"] = "deletePPort";
    request["name"] = name;
    return request;
}

// The TCP/IP ports the service added, by name; the machine's local ports
// are left out.
std::vector<std::wstring> tcpPorts() {
    std::vector<std::wstring> names;
    for (const spooler::PrinterPort& port : spooler::ports())
        if (port.tcp) names.push_back(port.name);
    return names;
}

class PrinterPorts : public ::testing::Test {
protected:
    void SetUp() override {
        testsupport::admitLoopbackClientsAs(testsupport::kLoaderPid);
        harness_.start();
        ASSERT_TRUE(client_.connect());
    }
    void TearDown() override { simhost::Host::get().faults().clearAll(); }

    std::string ask(const Json::Value& request, int id) { return testsupport::ask(client_, request, id); }
    const testsupport::LogCapture& log() const { return harness_.log(); }
    std::vector<LogLine> linesStartingWith(const std::string& start) const {
        std::vector<LogLine> found;
        for (const LogLine& line : log().lines())
            if (line.message.rfind(start, 0) == 0) found.push_back(line);
        return found;
    }
    void expectLine(const std::string& message, uint32_t level, int channel, const std::string& function) {
        testsupport::expectOneLine(log(), message, level, channel, function);
    }

    ServiceHarness harness_;
    TestClient client_;
};

constexpr const char* kAdd = "VexorPrintingService::_addPrinterPort";
constexpr const char* kDelete = "VexorPrintingService::_deletePrinterPort";

TEST_F(PrinterPorts, CreatedPortIsARawPortAtThePluginsListener) {
    EXPECT_EQ(ask(createPortRequest("VEXOR_127.0.1.20:9101"), 1), success(1));
    std::optional<spooler::PrinterPort> port = spooler::findPort(L"VEXOR_127.0.1.20:9101");
    ASSERT_TRUE(port);
    EXPECT_EQ(port->monitorName, spooler::kTcpMonitorName);
    ASSERT_TRUE(port->tcp);
    EXPECT_EQ(port->tcp->hostAddress, L"127.0.1.20");
    EXPECT_EQ(port->tcp->ipAddress, L"127.0.1.20");
    EXPECT_EQ(port->tcp->portNumber, 9101u);
    EXPECT_EQ(port->tcp->protocol, static_cast<DWORD>(PROTOCOL_RAWTCP_TYPE));
    EXPECT_TRUE(port->tcp->queue.empty());
    EXPECT_TRUE(port->tcp->snmpCommunity.empty());
    EXPECT_EQ(port->tcp->snmpEnabled, 0u);
    expectLine("Adding printer port", 2, kNormal, "VexorPrintingService::_handleRequest");
    expectLine("Adding port:VEXOR_127.0.1.20:9101", 2, kNormal, kAdd);
    expectLine("Printer Port created!", 2, kNormal, kAdd);
    EXPECT_EQ(spooler::openSpoolerHandleCount(), 0u);
}

TEST_F(PrinterPorts, DeletedPortIsGone) {
    ASSERT_EQ(ask(createPortRequest("P1"), 1), success(1));
    EXPECT_EQ(ask(deletePortRequest("P1"), 2), success(2));
    EXPECT_TRUE(tcpPorts().empty());
    expectLine("Deleting printer port", 2, kNormal, "VexorPrintingService::_handleRequest");
    expectLine("Deleting PPort:P1", 2, kNormal, kDelete);
    expectLine("Printer Port:P1 destroyed!", 2, kNormal, kDelete);
    EXPECT_EQ(spooler::openSpoolerHandleCount(), 0u);
}

TEST_F(PrinterPorts, PortZeroAbsentOrNotANumberIsMissingAndTestedFirst) {
    const std::string missing = "Socket 'port' parameter missing from request msg";
    Json::Value zero = createPortRequest("P1", "127.0.1.20", 0);
    Json::Value absent = createPortRequest("P1");
    absent.removeMember("port");
    Json::Value text = createPortRequest("P1");
    text["port"] = "ninety";
    Json::Value noIpEither = createPortRequest("P1", "", 0);
    EXPECT_EQ(ask(zero, 1), failure(1, missing));
    EXPECT_EQ(ask(absent, 2), failure(2, missing));
    EXPECT_EQ(ask(text, 3), failure(3, missing));
    EXPECT_EQ(ask(noIpEither, 4), failure(4, missing));
    EXPECT_TRUE(tcpPorts().empty());
    std::vector<LogLine> lines = log().find(missing);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0].level, 4u);
    EXPECT_EQ(lines[0].channel, kError);
    EXPECT_EQ(simhost::Host::get().faults().callCount("OpenPrinter2W"), 0u);
}

TEST_F(PrinterPorts, MissingAddressThenMissingNameAreRefused) {
    EXPECT_EQ(ask(createPortRequest("P1", ""), 1), failure(1, "Socket 'IP' parameter missing from request msg"));
    EXPECT_EQ(ask(createPortRequest(""), 2), failure(2, "PPort 'name' parameter missing from request msg"));
    expectLine("Socket 'IP' parameter missing from request msg", 4, kError, kAdd);
    expectLine("PPort 'name' parameter missing from request msg", 4, kError, kAdd);
    EXPECT_TRUE(tcpPorts().empty());
}

TEST_F(PrinterPorts, PortNumberAbove65535IsPassedOnAsItIs) {
    EXPECT_EQ(ask(createPortRequest("P1", "127.0.1.20", 70000), 1), success(1));
    ASSERT_TRUE(spooler::findPort(L"P1"));
    EXPECT_EQ(spooler::findPort(L"P1")->tcp->portNumber, 70000u);
}

TEST_F(PrinterPorts, AddressOf15CharactersFitsAndOf16DoesNot) {
    EXPECT_EQ(ask(createPortRequest("P1", "127.100.100.100"), 1), success(1));
    EXPECT_EQ(spooler::findPort(L"P1")->tcp->ipAddress, L"127.100.100.100");
    // A host name has room in the host address but not in the IP address.
    EXPECT_EQ(ask(createPortRequest("P2", "plugin.localhost"), 2), failure(2, "Failed string conversion"));
    EXPECT_FALSE(spooler::findPort(L"P2"));
    expectLine("Failed string conversion", 4, kError, kAdd);
    EXPECT_EQ(spooler::openSpoolerHandleCount(), 0u);
}

TEST_F(PrinterPorts, NameOf63BytesFitsAndOf64DoesNot) {
    const std::string fits(63, 'n');
    EXPECT_EQ(ask(createPortRequest(fits), 1), success(1));
    EXPECT_TRUE(spooler::findPort(std::wstring(63, L'n')));
    EXPECT_EQ(ask(createPortRequest(std::string(64, 'm')), 2), failure(2, "Failed string conversion"));
    EXPECT_EQ(tcpPorts(), std::vector<std::wstring>{std::wstring(63, L'n')});
    EXPECT_EQ(ask(deletePortRequest(std::string(64, 'n')), 3), failure(3, "Invalid port name"));
    expectLine("Invalid port name", 4, kError, kDelete);
    EXPECT_EQ(tcpPorts().size(), 1u);
    EXPECT_EQ(spooler::openSpoolerHandleCount(), 0u);
}

// The records take text through the system's ANSI code page, not as UTF-8:
// the two bytes of an "é" become two characters of the port's name.
TEST_F(PrinterPorts, NamesGoThroughTheAnsiCodePage) {
    EXPECT_EQ(ask(createPortRequest("Acm\xc3\xa9"), 1), success(1));
    EXPECT_EQ(tcpPorts(), std::vector<std::wstring>{L"Acm\u00c3\u00a9"});
    EXPECT_EQ(ask(deletePortRequest("Acm\xc3\xa9"), 2), success(2));
    EXPECT_TRUE(tcpPorts().empty());
}

TEST_F(PrinterPorts, SamePortTwiceIsRefusedTheSecondTime) {
    ASSERT_EQ(ask(createPortRequest("P1"), 1), success(1));
    EXPECT_EQ(ask(createPortRequest("P1", "127.0.1.20", 9200), 2), failure(2, "Printer Port already exists"));
    EXPECT_EQ(spooler::findPort(L"P1")->tcp->portNumber, 9101u);
    // The line carries whatever the worker thread's last error is then.
    std::vector<LogLine> lines = linesStartingWith("Printer Port already exists Err:");
    ASSERT_EQ(lines.size(), 1u) << log().contents();
    EXPECT_EQ(lines[0].level, 4u);
    EXPECT_EQ(lines[0].channel, kError);
}

TEST_F(PrinterPorts, AccountWithoutAdministratorRightsCanNeitherAddNorRemove) {
    spooler::addPort({L"P0", spooler::kTcpMonitorName, L"", 0, spooler::TcpPortConfiguration{}});
    spooler::denyMonitorAdministration();
    const std::string refused = "Account without permissions to create Printer Ports.";
    EXPECT_EQ(ask(createPortRequest("P1"), 1), failure(1, refused));
    EXPECT_EQ(ask(deletePortRequest("P0"), 2), failure(2, refused));
    EXPECT_EQ(tcpPorts(), std::vector<std::wstring>{L"P0"});
    std::vector<LogLine> open = log().find("Failed to open port monitor (TCPMON) with: Err:5:Access is denied.");
    ASSERT_EQ(open.size(), 2u);
    EXPECT_EQ(open[0].function, kAdd);
    EXPECT_EQ(open[1].function, kDelete);
    EXPECT_EQ(open[0].channel, kError);
    EXPECT_EQ(log().find(refused).size(), 2u);
    EXPECT_EQ(log().find(refused)[1].channel, kError);
}

TEST_F(PrinterPorts, MonitorThatCannotBeOpenedOtherwiseIsNamed) {
    simhost::Host::get().faults().failCall("OpenPrinter2W", ERROR_INVALID_PRINTER_NAME, 1);
    EXPECT_EQ(ask(createPortRequest("P1"), 1), failure(1, "Failed to open port monitor (TCPMON)"));
    EXPECT_FALSE(log().contains("Account without permissions to create Printer Ports."));
}

TEST_F(PrinterPorts, FailedMonitorCallIsReportedAndNothingIsLeftBehind) {
    simhost::Host::get().faults().failCall("XcvDataW", ERROR_INVALID_HANDLE, 1);
    EXPECT_EQ(ask(createPortRequest("P1"), 1), failure(1, "XcvData() failed"));
    expectLine("XcvData() failed Err:6:The handle is invalid.", 4, kError, kAdd);
    EXPECT_TRUE(tcpPorts().empty());
    ASSERT_EQ(ask(createPortRequest("P1"), 2), success(2));
    simhost::Host::get().faults().failCall("XcvDataW", ERROR_INVALID_HANDLE, 1);
    EXPECT_EQ(ask(deletePortRequest("P1"), 3), failure(3, "XcvData() failed."));
    expectLine("XcvData() failed with: Err:6:The handle is invalid.", 4, kError, kDelete);
    EXPECT_EQ(tcpPorts(), std::vector<std::wstring>{L"P1"});
    EXPECT_EQ(spooler::openSpoolerHandleCount(), 0u);
}

// The monitor answers the call but refuses the removal: a printer still
// prints to the port, or the port is not the monitor's.
TEST_F(PrinterPorts, RemovalTheMonitorRefusesIsADestroyFailure) {
    ASSERT_EQ(ask(createPortRequest("P1"), 1), success(1));
    spooler::addDriver({L"Acme LaserBox 2000", spooler::kLocalEnvironment, L"", L"", {}});
    spooler::SpoolerPrinter printer;
    printer.name = L"Client printer";
    printer.portName = L"P1";
    printer.driverName = L"Acme LaserBox 2000";
    spooler::addPrinter(printer);
    EXPECT_EQ(ask(deletePortRequest("P1"), 2), failure(2, "Printer Port destroy failed."));
    EXPECT_EQ(ask(deletePortRequest("NoSuchPort"), 3), failure(3, "Printer Port destroy failed."));
    std::vector<LogLine> lines = linesStartingWith("Printer Port destroy failed with: Err:");
    ASSERT_EQ(lines.size(), 2u) << log().contents();
    EXPECT_EQ(lines[0].channel, kError);
    EXPECT_EQ(tcpPorts(), std::vector<std::wstring>{L"P1"});
}

TEST_F(PrinterPorts, MissingNameOnRemovalIsRefusedBeforeTheMonitor) {
    Json::Value request = deletePortRequest("");
    EXPECT_EQ(ask(request, 1), failure(1, "PrinterPort 'name' parameter missing from request msg"));
    expectLine("PrinterPort 'name' parameter missing from request msg", 4, kError, kDelete);
    EXPECT_EQ(simhost::Host::get().faults().callCount("OpenPrinter2W"), 0u);
}

TEST_F(PrinterPorts, MonitorThatCannotBeClosedIsLoggedAndTheReplyStands) {
    simhost::Host::get().faults().failCall("ClosePrinter", ERROR_INVALID_HANDLE, 1);
    EXPECT_EQ(ask(createPortRequest("P1"), 1), success(1));
    expectLine("Failed to close TCP/IP port monitor with: Err:6:The handle is invalid.", 4, kError, kAdd);
}

}  // namespace
