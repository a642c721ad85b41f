// The spooler access layer against the simulated spooler: the two-call
// fetches, their owners, their one retry, and every failure line.
#include "foundation/SpoolerAccess.h"
#include "simhost/core/host.h"
#include "simhost/kernel32/memory.h"
#include "simhost/winspool/spooler.h"
#include "support/LogCapture.h"
#include "support/PluginRequests.h"
#include "support/SpoolerArrangement.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

using testsupport::LogCapture;
using testsupport::LogLine;

namespace {

namespace spooler = simhost::winspool;
using simhost::kernel32::Allocator;

const int kError = static_cast<int>(kLogError);
const int kNormal = static_cast<int>(kLogNormal);
constexpr const wchar_t* kDriver = L"Acme LaserBox 2000";

void addPrinter(const std::wstring& name, const std::wstring& comment = L"") {
    spooler::SpoolerPrinter printer;
    printer.name = name;
    printer.portName = L"P1";
    printer.driverName = kDriver;
    printer.comment = comment;
    spooler::addPrinter(printer);
}

class SpoolerAccess : public ::testing::Test {
protected:
    void SetUp() override {
        spooler::addDriver({kDriver, spooler::kLocalEnvironment, L"", L"", {}});
        testsupport::addRawTcpPort(L"P1");
    }
    void TearDown() override { simhost::Host::get().faults().clearAll(); }

    void expectLine(const std::string& message, uint32_t level, int channel, const std::string& function) {
        testsupport::expectOneLine(log_, message, level, channel, function);
    }
    size_t calls(const char* call) const { return simhost::Host::get().faults().callCount(call); }

    LogCapture log_;
};

// ---- getPrinter ----

TEST_F(SpoolerAccess, PrinterByNameIsItsLevelTwoRecordInAGlobalBlock) {
    addPrinter(L"Client printer", L"A comment");
    PRINTER_INFO_2W* info = PrinterUtil::getPrinter(L"Client printer");
    ASSERT_NE(info, nullptr);
    EXPECT_STREQ(info->pPrinterName, L"Client printer");
    EXPECT_STREQ(info->pPortName, L"P1");
    EXPECT_STREQ(info->pComment, L"A comment");
    EXPECT_EQ(simhost::kernel32::liveBlockCount(Allocator::Global), 1u);
    EXPECT_EQ(GlobalFree(info), nullptr);
    EXPECT_EQ(spooler::openSpoolerHandleCount(), 0u);
    expectLine("getPrinter():Client printer", 3, kNormal, "PrinterUtil::getPrinter");
}

TEST_F(SpoolerAccess, NullOrEmptyNameIsRefusedWithoutTouchingTheSpooler) {
    EXPECT_EQ(PrinterUtil::getPrinter(static_cast<const wchar_t*>(nullptr)), nullptr);
    EXPECT_EQ(PrinterUtil::getPrinter(L""), nullptr);
    EXPECT_EQ(calls("OpenPrinter2W"), 0u);
    std::vector<LogLine> lines = log_.find("getPrinter() called with no printerName");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].level, 5u);
    EXPECT_EQ(lines[0].channel, kError);
}

TEST_F(SpoolerAccess, UnknownPrinterCannotBeOpened) {
    EXPECT_EQ(PrinterUtil::getPrinter(L"Nobody"), nullptr);
    expectLine("Failed to open printer Nobody Err:1801:The printer name is invalid.", 4, kError,
               "PrinterUtil::getPrinter");
}

TEST_F(SpoolerAccess, PrinterThatCannotBeClosedIsStillAnswered) {
    addPrinter(L"Client printer");
    simhost::Host::get().faults().failCall("ClosePrinter", ERROR_INVALID_HANDLE, 1);
    PRINTER_INFO_2W* info = PrinterUtil::getPrinter(L"Client printer");
    ASSERT_NE(info, nullptr);
    GlobalFree(info);
    expectLine("Failed to close printer Err:6:The handle is invalid.", 4, kError, "PrinterUtil::getPrinter");
}

TEST_F(SpoolerAccess, HandleFormAnswersTheLevelAskedFor) {
    addPrinter(L"Client printer");
    HANDLE printer = nullptr;
    PRINTER_DEFAULTSW defaults = {nullptr, nullptr, PRINTER_ALL_ACCESS};
    ASSERT_TRUE(OpenPrinter2W(L"Client printer", &printer, &defaults, nullptr));
    BYTE* block = PrinterUtil::getPrinter(printer, 3);
    ASSERT_NE(block, nullptr);
    auto* info = reinterpret_cast<PRINTER_INFO_3*>(block);
    EXPECT_TRUE(IsValidSecurityDescriptor(info->pSecurityDescriptor));
    GlobalFree(block);
    ClosePrinter(printer);
}

TEST_F(SpoolerAccess, FailedSizeQueryAllocationOrFetchGivesNull) {
    addPrinter(L"Client printer");
    HANDLE printer = nullptr;
    ASSERT_TRUE(OpenPrinter2W(L"Client printer", &printer, nullptr, nullptr));
    simhost::Host::get().faults().failCall("GetPrinterW", ERROR_INVALID_HANDLE, 1);
    EXPECT_EQ(PrinterUtil::getPrinter(printer, 2), nullptr);
    expectLine("GetPrinter for size failed error: Err:6:The handle is invalid.", 4, kError, "PrinterUtil::getPrinter");
    simhost::Host::get().faults().failCall("GlobalAlloc", ERROR_NOT_ENOUGH_MEMORY, 1);
    EXPECT_EQ(PrinterUtil::getPrinter(printer, 2), nullptr);
    expectLine("GlobalAlloc Err:8:Not enough memory resources are available to process this command.", 5, kError,
               "PrinterUtil::getPrinter");
    // No second try: the fetch failing after the size query ends in null.
    simhost::Host::get().faults().failCall("GetPrinterW", ERROR_INVALID_HANDLE, 1, 1);
    EXPECT_EQ(PrinterUtil::getPrinter(printer, 2), nullptr);
    expectLine("GetPrinter failed to get printer data:2 Err:6:The handle is invalid.", 5, kError,
               "PrinterUtil::getPrinter");
    EXPECT_EQ(simhost::kernel32::liveBlockCount(Allocator::Global), 0u);
    ClosePrinter(printer);
}

// ---- getPrintersInfo ----

TEST_F(SpoolerAccess, NoPrintersIsZeroWithoutAnAllocation) {
    PRINTER_INFO_2W* printers = reinterpret_cast<PRINTER_INFO_2W*>(this);
    EXPECT_EQ(PrinterUtil::getPrintersInfo(&printers), 0);
    EXPECT_EQ(printers, nullptr);
    EXPECT_EQ(calls("GlobalAlloc"), 0u);
    expectLine("getPrintersInfo() level:2", 2, kNormal, "PrinterUtil::getPrintersInfo");
    expectLine("getPrintersInfo found no printers", 3, kNormal, "PrinterUtil::getPrintersInfo");
}

// A first call that fails with ERROR_INSUFFICIENT_BUFFER and a needed size
// of 0 ends the same way.
TEST_F(SpoolerAccess, NoPrintersAfterAnInsufficientBufferIsZeroToo) {
    simhost::Host::get().faults().failCall("EnumPrintersW", ERROR_INSUFFICIENT_BUFFER, 1);
    PRINTER_INFO_2W* printers = nullptr;
    EXPECT_EQ(PrinterUtil::getPrintersInfo(&printers), 0);
    EXPECT_EQ(calls("GlobalAlloc"), 0u);
    EXPECT_TRUE(log_.contains("getPrintersInfo found no printers"));
}

TEST_F(SpoolerAccess, PrintersAreCountedInOneGlobalBlock) {
    addPrinter(L"First");
    addPrinter(L"Second");
    PRINTER_INFO_2W* printers = nullptr;
    ASSERT_EQ(PrinterUtil::getPrintersInfo(&printers), 2);
    ASSERT_NE(printers, nullptr);
    EXPECT_STREQ(printers[0].pPrinterName, L"First");
    EXPECT_STREQ(printers[1].pPrinterName, L"Second");
    EXPECT_EQ(GlobalFree(printers), nullptr);
    expectLine("getPrintersInfo() level:2 returning:2 results", 2, kNormal, "PrinterUtil::getPrintersInfo");
    EXPECT_EQ(calls("EnumPrintersW"), 2u);
}

TEST_F(SpoolerAccess, UnexpectedFailureOfTheSizeQueryIsMinusOne) {
    simhost::Host::get().faults().failCall("EnumPrintersW", RPC_S_SERVER_UNAVAILABLE, 1);
    PRINTER_INFO_2W* printers = nullptr;
    EXPECT_EQ(PrinterUtil::getPrintersInfo(&printers), -1);
    std::vector<LogLine> lines;
    for (const LogLine& line : log_.lines())
        if (line.message.rfind("EnumPrinters unexpectedly failed with: Err:1722:", 0) == 0) lines.push_back(line);
    ASSERT_EQ(lines.size(), 1u) << log_.contents();
    EXPECT_EQ(lines[0].channel, kError);
}

// A printer that comes along between the size query and the fetch: the
// level-3 line, the odd resize with byte count and flags in each other's
// places, and a third call whose outcome decides. The needed size is the
// flags of that resize, so each test chooses a printer comment whose length
// gives the needed size the bits it wants.
class PrinterArrivingBetweenTheCalls : public SpoolerAccess {
protected:
    // Holds the fetch until the newcomer is in; answers the needed size the
    // service will see after it.
    DWORD arrangeArrivalWithSizeBits(DWORD wanted, DWORD mask) {
        addPrinter(L"First");
        for (size_t length = 0; length < 64; ++length) {
            std::wstring comment(length, L'c');
            addPrinter(L"Newcomer", comment);
            DWORD needed = 0, returned = 0;
            EnumPrintersW(PRINTER_ENUM_LOCAL | PRINTER_ENUM_CONNECTIONS, nullptr, 2, nullptr, 0, &needed, &returned);
            removeNewcomer();
            if ((needed & mask) == wanted) {
                newcomerComment_ = comment;
                return needed;
            }
        }
        ADD_FAILURE() << "no comment length gives the bits asked for";
        return 0;
    }
    void removeNewcomer() {
        HANDLE printer = nullptr;
        PRINTER_DEFAULTSW defaults = {nullptr, nullptr, PRINTER_ALL_ACCESS};
        ASSERT_TRUE(OpenPrinter2W(L"Newcomer", &printer, &defaults, nullptr));
        ASSERT_TRUE(DeletePrinter(printer));
        ASSERT_TRUE(ClosePrinter(printer));
    }
    // Runs getPrintersInfo with the newcomer added while its allocation waits.
    int fetchWhileAPrinterArrives(PRINTER_INFO_2W** printers) {
        simhost::Faults& faults = simhost::Host::get().faults();
        enumerationsBefore_ = calls("EnumPrintersW");
        faults.blockCall("GlobalAlloc");
        int result = 0;
        std::thread fetch([&] { result = PrinterUtil::getPrintersInfo(printers); });
        EXPECT_TRUE(faults.waitUntilBlocked("GlobalAlloc"));
        addPrinter(L"Newcomer", newcomerComment_);
        faults.releaseCall("GlobalAlloc");
        fetch.join();
        return result;
    }
    const std::string kRetryLine =
        "getPrintersInfo() trying for second EnumPrinters call. This happens some times. Weird timing.";
    size_t enumerations() const { return calls("EnumPrintersW") - enumerationsBefore_; }
    std::wstring newcomerComment_;
    size_t enumerationsBefore_ = 0;
};

// Neither GMEM_MODIFY nor GMEM_MOVEABLE among the flags: the resize fails,
// the old block stays unreleased and the answer is -1.
TEST_F(PrinterArrivingBetweenTheCalls, RefusedResizeIsMinusOneAndLeavesTheBlock) {
    ASSERT_NE(arrangeArrivalWithSizeBits(0, GMEM_MODIFY | GMEM_MOVEABLE), 0u);
    PRINTER_INFO_2W* printers = nullptr;
    EXPECT_EQ(fetchWhileAPrinterArrives(&printers), -1);
    EXPECT_EQ(printers, nullptr);
    expectLine(kRetryLine, 3, kError, "PrinterUtil::getPrintersInfo");
    expectLine("GlobalAlloc Err:8:Not enough memory resources are available to process this command.", 5, kError,
               "PrinterUtil::getPrintersInfo");
    EXPECT_EQ(enumerations(), 2u);
    EXPECT_EQ(simhost::kernel32::liveBlockCount(Allocator::Global), 1u);
    simhost::kernel32::releaseAllBlocks();
}

// GMEM_MODIFY alone: the same block comes back, no larger; the third call
// is told the new size, which the block cannot take, and fails.
TEST_F(PrinterArrivingBetweenTheCalls, UngrownBlockFailsTheThirdCall) {
    ASSERT_NE(arrangeArrivalWithSizeBits(GMEM_MODIFY, GMEM_MODIFY | GMEM_MOVEABLE), 0u);
    PRINTER_INFO_2W* printers = nullptr;
    EXPECT_EQ(fetchWhileAPrinterArrives(&printers), -1);
    EXPECT_EQ(printers, nullptr);
    expectLine(kRetryLine, 3, kError, "PrinterUtil::getPrintersInfo");
    expectLine("getPrintersInfo failed to get printer driver data:2 Err:998:Invalid access to memory location.", 5,
               kError, "PrinterUtil::getPrintersInfo");
    EXPECT_EQ(enumerations(), 3u);
    EXPECT_EQ(simhost::kernel32::liveBlockCount(Allocator::Global), 0u);
}

// ---- getPrinterPortInfo2 ----

TEST_F(SpoolerAccess, PortsComeInAMallocBlock) {
    PORT_INFO_2W* ports = nullptr;
    int count = PrinterUtil::getPrinterPortInfo2(&ports);
    ASSERT_GT(count, 1);
    ASSERT_NE(ports, nullptr);
    EXPECT_STREQ(ports[count - 1].pPortName, L"P1");
    EXPECT_STREQ(ports[count - 1].pMonitorName, L"TCPMON.DLL");
    EXPECT_NE(ports[count - 1].fPortType & PORT_TYPE_NET_ATTACHED, 0u);
    std::free(ports);
    EXPECT_EQ(simhost::kernel32::liveBlockCount(Allocator::Global), 0u);
    std::vector<LogLine> requested;
    for (const LogLine& line : log_.lines())
        if (line.message.rfind("EnumPorts requested:", 0) == 0) requested.push_back(line);
    ASSERT_EQ(requested.size(), 1u);
    EXPECT_EQ(requested[0].level, 2u);
    expectLine("found:" + std::to_string(count) + " PRINTER_PORTs", 2, kNormal, "PrinterUtil::getPrinterPortInfo2");
}

TEST_F(SpoolerAccess, AccessDeniedAtTheSizeQueryIsZeroAndOneTraceLine) {
    simhost::Host::get().faults().failCall("EnumPortsW", ERROR_ACCESS_DENIED, 1);
    PORT_INFO_2W* ports = nullptr;
    EXPECT_EQ(PrinterUtil::getPrinterPortInfo2(&ports), 0);
    EXPECT_EQ(ports, nullptr);
    std::vector<LogLine> lines = log_.lines();
    ASSERT_EQ(lines.size(), 1u) << log_.contents();
    EXPECT_EQ(lines[0].message, "EnumPorts returned an error, 0x5");
    EXPECT_EQ(lines[0].level, 2u);
}

TEST_F(SpoolerAccess, FailedPortFetchIsTheNegatedLastError) {
    simhost::Host::get().faults().failCall("EnumPortsW", ERROR_INVALID_PARAMETER, 1, 1);
    PORT_INFO_2W* ports = nullptr;
    EXPECT_EQ(PrinterUtil::getPrinterPortInfo2(&ports), -static_cast<int>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(ports, nullptr);
    expectLine("EnumPorts failed with error code:87", 4, kError, "PrinterUtil::getPrinterPortInfo2");
}

// ---- getPrinterPortData1 ----

TEST_F(SpoolerAccess, PortConfigurationIsTheMonitorsPortData) {
    PORT_DATA_1 data = {};
    EXPECT_EQ(PrinterUtil::getPrinterPortData1(L"P1", &data), 1);
    EXPECT_STREQ(data.sztPortName, L"P1");
    EXPECT_STREQ(data.sztHostAddress, L"127.0.1.20");
    EXPECT_EQ(data.dwPortNumber, 9101u);
    EXPECT_EQ(data.dwProtocol, static_cast<DWORD>(PROTOCOL_RAWTCP_TYPE));
    expectLine("getPrinterPortData1:P1", 3, kNormal, "PrinterUtil::getPrinterPortData1");
    EXPECT_EQ(spooler::openSpoolerHandleCount(), 0u);
}

TEST_F(SpoolerAccess, PortOfAnotherMonitorGivesNoConfiguration) {
    PORT_DATA_1 data = {};
    EXPECT_EQ(PrinterUtil::getPrinterPortData1(L"LPT1:", &data), 0);
    std::vector<LogLine> failed;
    for (const LogLine& line : log_.lines())
        if (line.message == "XcvData() failed bad bStatus" ||
            line.message.rfind("Printer Port GetConfigInfo failed with:", 0) == 0 ||
            line.message.rfind(" Failed to open port monitor (TCPMON) with:", 0) == 0)
            failed.push_back(line);
    ASSERT_EQ(failed.size(), 1u) << log_.contents();
    EXPECT_EQ(failed[0].channel, kError);
    EXPECT_EQ(spooler::openSpoolerHandleCount(), 0u);
}

TEST_F(SpoolerAccess, PortMonitorRefusedToTheAccountIsTwoLines) {
    spooler::denyMonitorAdministration();
    PORT_DATA_1 data = {};
    EXPECT_EQ(PrinterUtil::getPrinterPortData1(L"P1", &data), 0);
    expectLine(" Failed to open port monitor (TCPMON) with: Err:5:Access is denied.", 4, kError,
               "PrinterUtil::getPrinterPortData1");
    expectLine("Current Account set up without permissions to access Printer Ports.", 5, kError,
               "PrinterUtil::getPrinterPortData1");
}

TEST_F(SpoolerAccess, MonitorStatusAndCallFailureAreToldApart) {
    simhost::Host::get().faults().failCall("XcvDataW", ERROR_INVALID_HANDLE, 1);
    PORT_DATA_1 data = {};
    EXPECT_EQ(PrinterUtil::getPrinterPortData1(L"P1", &data), 0);
    expectLine("XcvData() failed bad bStatus", 4, kError, "PrinterUtil::getPrinterPortData1");
    EXPECT_EQ(PrinterUtil::getPrinterPortData1(L"NoSuchPort", &data), 0);
    EXPECT_EQ(spooler::openSpoolerHandleCount(), 0u);
}

}  // namespace
