// The reaper's pass against the simulated spooler, with real loopback
// listeners on 127.0.1.20 standing for plugins that are alive: which ports
// and printers go, which stay, and every line that says why.
#include "cleanup/PrinterReaper.h"
#include "simhost/core/host.h"
#include "simhost/winspool/spooler.h"
#include "simhost/ws2_32/winsock.h"
#include "support/LogCapture.h"
#include "support/PluginRequests.h"
#include "support/SpoolerArrangement.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using testsupport::LogCapture;
using testsupport::LogLine;

namespace {

namespace spooler = simhost::winspool;
namespace ws2_32 = simhost::ws2_32;

const int kError = static_cast<int>(kLogError);
const int kNormal = static_cast<int>(kLogNormal);
constexpr const char* kPass = "PrinterReaper::reapPrinterPorts";
constexpr const char* kNumber = "PrinterReaper::getVexorPrinterPortTcpPortNumber";
constexpr const char* kReapPrinter = "PrinterReaper::reapPrinter";
constexpr const char* kIsVexor = "PrinterReaper::isPrinterVexor";
constexpr const char* kDestroy = "PrinterReaper::DestroyPrinter";
constexpr const char* kDeletePort = "PrinterReaper::deletePrinterPort";
constexpr const char* kBound = "PrinterReaper::isAddrBound";

// A port number of 127.0.1.20 that a live plugin listens on.
DWORD liveListener() { return ws2_32::holdListener("127.0.1.20", 0); }
// A port number of 127.0.1.20 that nobody holds: one the system gave out
// and that was given back.
DWORD departedListener() {
    u_short port = ws2_32::holdListener("127.0.1.20", 0);
    ws2_32::releaseListener("127.0.1.20", port);
    return port;
}

bool hasPrinter(const std::wstring& name) { return spooler::findPrinter(name).has_value(); }
bool hasPort(const std::wstring& name) { return spooler::findPort(name).has_value(); }

class Reaper : public ::testing::Test {
protected:
    void SetUp() override { testsupport::addTestDriver(); }
    void TearDown() override { simhost::Host::get().faults().clearAll(); }

    void expectLine(const std::string& message, uint32_t level, int channel, const std::string& function) {
        testsupport::expectOneLine(log_, message, level, channel, function);
    }
    bool logged(const std::string& message) const { return log_.contains(message); }
    std::vector<LogLine> containing(const std::string& part) const {
        std::vector<LogLine> found;
        for (const LogLine& line : log_.lines())
            if (line.message.find(part) != std::string::npos) found.push_back(line);
        return found;
    }

    LogCapture log_;
};

// ---- The pass ----

TEST_F(Reaper, EmptyPortListEndsThePass) {
    simhost::Host::get().faults().failCall("EnumPortsW", ERROR_ACCESS_DENIED, 1);
    EXPECT_EQ(PrinterReaper::reapPrinterPorts(1), 0u);
    expectLine("Client found no PRINTER_PORTs", 3, kNormal, kPass);
}

TEST_F(Reaper, LiveListenerWithoutForceKeepsPrinterAndPort) {
    testsupport::addRawTcpPort(L"Vexor_A", liveListener());
    testsupport::addTestPrinter(L"Local printer A", L"Vexor_A");
    EXPECT_EQ(PrinterReaper::reapPrinterPorts(0), 0u);
    EXPECT_TRUE(hasPrinter(L"Local printer A"));
    EXPECT_TRUE(hasPort(L"Vexor_A"));
    expectLine("Vexor Printer Port socket listener in place - ignoring", 3, kNormal, kPass);
    expectLine("Found Vexor printer:Local printer A", 3, kNormal, kReapPrinter);
    expectLine("Ignoring abandoned Vexor Printer Port", 3, kNormal, kPass);
}

TEST_F(Reaper, LiveListenerWithForceIsRemovedAllTheSame) {
    testsupport::addRawTcpPort(L"Vexor_A", liveListener());
    testsupport::addTestPrinter(L"Local printer A", L"Vexor_A");
    spooler::addJob(L"Local printer A", spooler::PrintJob{0, L"user", L"page", {'x'}});
    EXPECT_EQ(PrinterReaper::reapPrinterPorts(1), 1u);
    EXPECT_FALSE(hasPrinter(L"Local printer A"));
    EXPECT_FALSE(hasPort(L"Vexor_A"));
    expectLine("Vexor Printer Port socket listener in place - proceeding with destroy", 3, kNormal, kPass);
    expectLine("Printer Port destroyed!", 2, kNormal, kDeletePort);
    expectLine("Reaped abandoned Printer Port:Vexor_A", 5, kError, kPass);
    EXPECT_EQ(spooler::openSpoolerHandleCount(), 0u);
}

TEST_F(Reaper, DepartedListenerIsRemovedWithoutForce) {
    testsupport::addRawTcpPort(L"Vexor_A", departedListener());
    testsupport::addTestPrinter(L"Local printer A", L"Vexor_A");
    EXPECT_EQ(PrinterReaper::reapPrinterPorts(0), 1u);
    EXPECT_FALSE(hasPrinter(L"Local printer A"));
    EXPECT_FALSE(hasPort(L"Vexor_A"));
    expectLine("Vexor Printer Port socket listener *not* in place", 3, kNormal, kPass);
}

TEST_F(Reaper, OnlyTheDepartedOfTwoPluginsIsRemoved) {
    testsupport::addRawTcpPort(L"Vexor_live", liveListener());
    testsupport::addRawTcpPort(L"Vexor_gone", departedListener());
    testsupport::addTestPrinter(L"Local live", L"Vexor_live");
    testsupport::addTestPrinter(L"Local gone", L"Vexor_gone");
    EXPECT_EQ(PrinterReaper::reapPrinterPorts(0), 1u);
    EXPECT_TRUE(hasPrinter(L"Local live"));
    EXPECT_TRUE(hasPort(L"Vexor_live"));
    EXPECT_FALSE(hasPrinter(L"Local gone"));
    EXPECT_FALSE(hasPort(L"Vexor_gone"));
}

TEST_F(Reaper, PortWithoutAPrinterIsDeleted) {
    testsupport::addRawTcpPort(L"Vexor_A", departedListener());
    testsupport::addTestPrinter(L"Office printer", L"LPT1:");
    EXPECT_EQ(PrinterReaper::reapPrinterPorts(0), 1u);
    EXPECT_FALSE(hasPort(L"Vexor_A"));
}

TEST_F(Reaper, SpoolerWithoutPrintersStillLosesThePort) {
    testsupport::addRawTcpPort(L"Vexor_A", departedListener());
    EXPECT_EQ(PrinterReaper::reapPrinterPorts(0), 1u);
    expectLine("Found no printers", 3, kNormal, kReapPrinter);
    EXPECT_FALSE(hasPort(L"Vexor_A"));
}

TEST_F(Reaper, PortOfTheServiceNotNamedVexorIsReapedWhenNoPrinterUsesIt) {
    testsupport::addRawTcpPort(L"IP_127.0.1.20", departedListener());
    EXPECT_EQ(PrinterReaper::reapPrinterPorts(0), 1u);
    EXPECT_FALSE(hasPort(L"IP_127.0.1.20"));
}

TEST_F(Reaper, PortNotNamedVexorKeepsItsPrinterAndStays) {
    testsupport::addRawTcpPort(L"IP_127.0.1.20", departedListener());
    testsupport::addTestPrinter(L"Local printer", L"IP_127.0.1.20");
    EXPECT_EQ(PrinterReaper::reapPrinterPorts(1), 0u);
    EXPECT_TRUE(hasPrinter(L"Local printer"));
    EXPECT_TRUE(hasPort(L"IP_127.0.1.20"));
    expectLine("Printer port not 'Vexor': no 'Local' in name:Local printer", 2, kNormal, kIsVexor);
    expectLine("Non-Vexor printer:Local printer", 3, kNormal, kReapPrinter);
    expectLine("We thought PPort (IP_127.0.1.20) was a Vexor port but the printer using it is not VEXOR!", 4, kError,
               kPass);
}

TEST_F(Reaper, ForeignPrinterKeepsThePortWhileTheServicesPrintersOnItGo) {
    testsupport::addRawTcpPort(L"Vexor_A", departedListener());
    testsupport::addTestPrinter(L"Local first", L"Vexor_A");
    testsupport::addTestPrinter(L"Office printer", L"Vexor_A");
    testsupport::addTestPrinter(L"Local last", L"Vexor_A");
    EXPECT_EQ(PrinterReaper::reapPrinterPorts(0), 0u);
    EXPECT_FALSE(hasPrinter(L"Local first"));
    EXPECT_FALSE(hasPrinter(L"Local last"));
    EXPECT_TRUE(hasPrinter(L"Office printer"));
    EXPECT_TRUE(hasPort(L"Vexor_A"));
    expectLine("Printer not 'Local': no 'Local' in name:Office printer", 2, kNormal, kIsVexor);
    expectLine("We thought PPort (Vexor_A) was a Vexor port but the printer using it is not VEXOR!", 4, kError, kPass);
}

TEST_F(Reaper, PrintersOfOtherSoftwareOnOtherPortsAreNeverTouched) {
    testsupport::addRawTcpPort(L"Office_10.0.0.5", 9100, L"10.0.0.5");
    testsupport::addTestPrinter(L"Local office", L"Office_10.0.0.5");
    testsupport::addTestPrinter(L"Printer on LPT1", L"LPT1:");
    EXPECT_EQ(PrinterReaper::reapPrinterPorts(1), 0u);
    EXPECT_TRUE(hasPrinter(L"Local office"));
    EXPECT_TRUE(hasPrinter(L"Printer on LPT1"));
    EXPECT_TRUE(hasPort(L"Office_10.0.0.5"));
    expectLine("Port not Vexor, IP not 127.0.1.20 rather:10.0.0.5", 3, kNormal, kNumber);
    EXPECT_TRUE(containing("Suspicious!").empty()) << log_.contents();
}

// ---- Recognition ----

TEST_F(Reaper, LocalPortsPassWithoutALineUnlessNamedVexor) {
    spooler::PrinterPort local;
    local.name = L"VexorLocal";
    local.monitorName = spooler::kLocalPortMonitorName;
    spooler::addPort(local);
    PrinterReaper::reapPrinterPorts(1);
    std::vector<LogLine> suspicious = containing("Suspicious!");
    ASSERT_EQ(suspicious.size(), 1u) << log_.contents();
    EXPECT_EQ(suspicious[0].message,
              "Port name (VexorLocal) indicates it's a Vexor port but not a network port. Suspicious!");
    EXPECT_EQ(suspicious[0].level, 3u);
    EXPECT_EQ(suspicious[0].channel, kError);
    EXPECT_EQ(suspicious[0].function, kPass);
    EXPECT_TRUE(hasPort(L"VexorLocal"));
    EXPECT_FALSE(logged("Port not Vexor, Monitor not TCPMON"));
}

TEST_F(Reaper, NetworkPortOfAnotherMonitorIsNamedAndSuspiciousWhenNamedVexor) {
    spooler::PrinterPort other;
    other.name = L"Vexor_other";
    other.monitorName = spooler::kLocalPortMonitorName;
    other.portType = PORT_TYPE_WRITE | PORT_TYPE_NET_ATTACHED;
    spooler::addPort(other);
    PrinterReaper::reapPrinterPorts(1);
    expectLine("Port not Vexor, Monitor not TCPMON", 3, kNormal, kPass);
    expectLine("Port name (Vexor_other) indicates it's a Vexor port but it's Port Monitor not TCPMON. Suspicious!", 3,
               kError, kPass);
    EXPECT_TRUE(hasPort(L"Vexor_other"));
}

TEST_F(Reaper, VexorNamedPortElsewhereOrOfAnotherProtocolIsSuspicious) {
    testsupport::addRawTcpPort(L"Vexor_far", 9100, L"10.0.0.5");
    testsupport::addRawTcpPort(L"Vexor_lpr", departedListener(), L"127.0.1.20", 2);
    EXPECT_EQ(PrinterReaper::reapPrinterPorts(1), 0u);
    expectLine("Port name (Vexor_far) indicates it's a Vexor port but it's IP is not 127.0.1.20. Suspicious!", 3,
               kError, kNumber);
    expectLine("Port not Vexor, protocol RAW TCP, rather:2", 3, kNormal, kNumber);
    expectLine("Port name (Vexor_lpr) indicates it's a Vexor port but it's protocol not RAW TCP. Suspicious!", 3,
               kError, kNumber);
    EXPECT_TRUE(hasPort(L"Vexor_far"));
    EXPECT_TRUE(hasPort(L"Vexor_lpr"));
}

TEST_F(Reaper, AddressThatOnlyStartsWithTheServicesCountsAsIt) {
    testsupport::addRawTcpPort(L"Vexor_201", departedListener(), L"127.0.1.201");
    EXPECT_EQ(PrinterReaper::getVexorPrinterPortTcpPortNumber(L"Vexor_201"), spooler::findPort(L"Vexor_201")->tcp->portNumber);
}

TEST_F(Reaper, PortNumberZeroOrWithLowBitsZeroIsPassedOverSilently) {
    testsupport::addRawTcpPort(L"Vexor_zero", 0);
    testsupport::addRawTcpPort(L"Vexor_65536", 65536);
    EXPECT_EQ(PrinterReaper::reapPrinterPorts(1), 0u);
    EXPECT_TRUE(hasPort(L"Vexor_zero"));
    EXPECT_TRUE(hasPort(L"Vexor_65536"));
    EXPECT_TRUE(containing("listener").empty()) << log_.contents();
}

TEST_F(Reaper, UnreadableConfigurationIsNotTheServices) {
    testsupport::addRawTcpPort(L"Vexor_A", departedListener());
    simhost::Host::get().faults().failCall("XcvDataW", ERROR_ACCESS_DENIED, 1);
    EXPECT_EQ(PrinterReaper::reapPrinterPorts(0), 0u);
    expectLine("Couldn't get config info assuming not Vexor", 3, kNormal, kNumber);
    EXPECT_TRUE(hasPort(L"Vexor_A"));
}

// ---- The listener test ----

TEST_F(Reaper, AddressHeldOrFreeIsToldByABind) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = inet_addr("127.0.1.20");
    address.sin_port = htons(static_cast<u_short>(liveListener()));
    EXPECT_EQ(PrinterReaper::isAddrBound(address), 1);
    address.sin_port = htons(static_cast<u_short>(departedListener()));
    EXPECT_EQ(PrinterReaper::isAddrBound(address), 0);
}

TEST_F(Reaper, SocketThatCannotBeMadeCountsAsAListener) {
    testsupport::addRawTcpPort(L"Vexor_A", departedListener());
    simhost::Host::get().faults().failCall("socket", WSAEMFILE, 1);
    EXPECT_EQ(PrinterReaper::reapPrinterPorts(0), 0u);
    expectLine("Failed to create socket with error: 10024", 5, kError, kBound);
    expectLine("Vexor Printer Port socket listener in place - ignoring", 3, kNormal, kPass);
    EXPECT_TRUE(hasPort(L"Vexor_A"));
}

TEST_F(Reaper, SocketLayerNotStartedIsStartedAndTheTestGoesOn) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = inet_addr("127.0.1.20");
    address.sin_port = htons(static_cast<u_short>(departedListener()));
    simhost::Host::get().faults().failCall("socket", WSANOTINITIALISED, 1);
    EXPECT_EQ(PrinterReaper::isAddrBound(address), 0);
    EXPECT_FALSE(logged("Failed to create socket with error: 10093"));
    simhost::Host::get().faults().failCall("socket", WSANOTINITIALISED, 1);
    simhost::Host::get().faults().failCall("WSAStartup", WSASYSNOTREADY, 1);
    EXPECT_EQ(PrinterReaper::isAddrBound(address), 0);
    EXPECT_EQ(containing("Error at WSAStartup() Error Code : ").size(), 1u) << log_.contents();
    simhost::Host::get().faults().failCall("socket", WSANOTINITIALISED, 2);
    EXPECT_EQ(PrinterReaper::isAddrBound(address), 1);
    expectLine("Failed to create socket with error: 10093", 5, kError, kBound);
}

// ---- Vanished printers and ports, failed removals ----

TEST_F(Reaper, PrinterThatVanishedIsLoggedAndThePassGoesOn) {
    testsupport::addRawTcpPort(L"Vexor_A", departedListener());
    testsupport::addRawTcpPort(L"Vexor_B", departedListener());
    testsupport::addTestPrinter(L"Local A", L"Vexor_A");
    testsupport::addTestPrinter(L"Local B", L"Vexor_B");
    // Port A's configuration is the first open, its printer the second.
    simhost::Host::get().faults().failCall("OpenPrinterW", ERROR_INVALID_PRINTER_NAME, 1, 1);
    EXPECT_EQ(PrinterReaper::reapPrinterPorts(0), 1u);
    expectLine("Failed to open printer Local A Err:1801:The printer name is invalid.", 4, kError, kDestroy);
    EXPECT_EQ(containing("Printer Port destroy failed with:").size(), 1u) << log_.contents();
    EXPECT_TRUE(hasPort(L"Vexor_A"));
    EXPECT_FALSE(hasPrinter(L"Local B"));
    EXPECT_FALSE(hasPort(L"Vexor_B"));
}

TEST_F(Reaper, PortThatVanishedIsPassedOver) {
    testsupport::addRawTcpPort(L"Vexor_A", departedListener());
    simhost::Host::get().faults().failCall("OpenPrinterW", ERROR_UNKNOWN_PORT, 1);
    EXPECT_EQ(PrinterReaper::reapPrinterPorts(0), 0u);
    expectLine("Couldn't get config info assuming not Vexor", 3, kNormal, kNumber);
}

TEST_F(Reaper, PrinterEnumerationThatFailsLeavesThePortToBeDeleted) {
    testsupport::addRawTcpPort(L"Vexor_A", departedListener());
    simhost::Host::get().faults().failCall("EnumPrintersW", ERROR_NOT_ENOUGH_MEMORY, 1);
    EXPECT_EQ(PrinterReaper::reapPrinterPorts(0), 1u);
    expectLine("Failed to find printers", 4, kError, kReapPrinter);
    EXPECT_FALSE(hasPort(L"Vexor_A"));
}

TEST_F(Reaper, DeletionAndCloseThatFailAreLogged) {
    testsupport::addTestPrinter(L"Local A", L"LPT1:");
    simhost::Host::get().faults().failCall("DeletePrinter", ERROR_ACCESS_DENIED, 1);
    simhost::Host::get().faults().failCall("ClosePrinter", ERROR_INVALID_HANDLE, 1);
    EXPECT_EQ(PrinterReaper::DestroyPrinter(L"Local A"), 0);
    expectLine("Failed to delete printer Local A Err:5:Access is denied.", 4, kError, kDestroy);
    expectLine("Failed to close printer Local A Err:6:The handle is invalid.", 4, kError, kDestroy);
    // The handle whose close failed keeps the deleted printer until it goes.
    EXPECT_EQ(PrinterReaper::DestroyPrinter(L"Local A"), 1);
    ASSERT_TRUE(hasPrinter(L"Local A"));
    EXPECT_TRUE(spooler::findPrinter(L"Local A")->pendingDeletion);
}

TEST_F(Reaper, PortRemovalFailuresAreLogged) {
    testsupport::addRawTcpPort(L"Vexor_A", 9101);
    simhost::Host::get().faults().failCall("OpenPrinterW", ERROR_ACCESS_DENIED, 1);
    EXPECT_EQ(PrinterReaper::deletePrinterPort(L"Vexor_A"), 0);
    expectLine("Failed to open port monitor (TCPMON) with: Err:5:Access is denied.", 4, kError, kDeletePort);
    expectLine("Current Account set up without permissions to access Printer Ports.", 5, kError, kDeletePort);
    simhost::Host::get().faults().failCall("XcvDataW", ERROR_INVALID_HANDLE, 1);
    EXPECT_EQ(PrinterReaper::deletePrinterPort(L"Vexor_A"), 0);
    expectLine("XcvData() failed with: Err:6:The handle is invalid.", 4, kError, kDeletePort);
    testsupport::addRawTcpPort(L"Vexor_busy", 9102);
    testsupport::addTestPrinter(L"Local busy", L"Vexor_busy");
    EXPECT_EQ(PrinterReaper::deletePrinterPort(L"Vexor_busy"), 0);
    EXPECT_EQ(containing("Printer Port destroy failed with:").size(), 1u);
    simhost::Host::get().faults().failCall("ClosePrinter", ERROR_INVALID_HANDLE, 1);
    EXPECT_EQ(PrinterReaper::deletePrinterPort(L"Vexor_A"), 1);
    expectLine("Failed to close TCP/IP port monitor with: Err:6:The handle is invalid.", 4, kError, kDeletePort);
    EXPECT_FALSE(hasPort(L"Vexor_A"));
}

}  // namespace
