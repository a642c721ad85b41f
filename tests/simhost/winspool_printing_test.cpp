// Printing for real: a job printed through a printer on a RAW TCP/IP port
// reaches a listener on loopback byte for byte; jobs that cannot go stay
// queued. And the default printer of each user.
#include "winspool_printing_fixture.h"

using namespace winspool_test;
using simhost::winspool::findPrinter;
using simhost::winspool::printJob;

namespace {

std::vector<BYTE> documentBytes(size_t size) {
    std::vector<BYTE> bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<BYTE>((i * 7 + i / 251) & 0xFF);
    return bytes;
}

}  // namespace

TEST_F(SpoolerPrinting, AJobReachesTheListenerByteForByteAndLeavesTheQueue) {
    std::vector<BYTE> document = documentBytes(300 * 1024);  // more than one socket buffer
    document[0] = 0;
    auto received = receive();
    simhost::winspool::PrintOutcome outcome = printJob(L"local redirected", document);
    EXPECT_TRUE(outcome.delivered) << outcome.failure;
    EXPECT_NE(outcome.jobId, 0u);
    EXPECT_EQ(received.get(), document);
    EXPECT_TRUE(findPrinter(L"Local Redirected")->jobs.empty());
}

TEST_F(SpoolerPrinting, AnEmptyJobIsAConnectionWithoutBytes) {
    auto received = receive();
    EXPECT_TRUE(printJob(L"Local Redirected", {}).delivered);
    EXPECT_TRUE(received.get().empty());
}

TEST_F(SpoolerPrinting, AJobWithoutAListenerStaysQueued) {
    linux_listener::close(listener_);
    listener_.descriptor = -1;
    simhost::winspool::PrintOutcome outcome = printJob(L"Local Redirected", {1, 2, 3});
    EXPECT_FALSE(outcome.delivered);
    EXPECT_NE(outcome.failure.find("connect"), std::string::npos) << outcome.failure;
    auto printer = findPrinter(L"Local Redirected");
    ASSERT_EQ(printer->jobs.size(), 1u);
    EXPECT_EQ(printer->jobs[0].id, outcome.jobId);
    EXPECT_EQ(printer->jobs[0].data, (std::vector<BYTE>{1, 2, 3}));
}

TEST_F(SpoolerPrinting, APausedPrinterKeepsItsJobs) {
    HANDLE printer = openPrinter(L"Local Redirected", PRINTER_ALL_ACCESS);
    ASSERT_TRUE(SetPrinterW(printer, 0, nullptr, PRINTER_CONTROL_PAUSE));
    simhost::winspool::PrintOutcome outcome = printJob(L"Local Redirected", {1});
    EXPECT_FALSE(outcome.delivered);
    EXPECT_EQ(outcome.failure, "the printer is paused");
    EXPECT_EQ(recordsOf<PRINTER_INFO_2W>(getPrinter(printer, 2))->cJobs, 1u);
    ClosePrinter(printer);
}

TEST_F(SpoolerPrinting, OnlyRawTcpPortsPrint) {
    addPrinterOn(L"Local Parallel", L"LPT1:");
    simhost::winspool::PrintOutcome outcome = printJob(L"Local Parallel", {1});
    EXPECT_FALSE(outcome.delivered);
    EXPECT_EQ(outcome.failure, "port \"LPT1:\" is not a RAW TCP/IP port");
    EXPECT_FALSE(printJob(L"No Such Printer", {1}).delivered);
}

TEST_F(SpoolerPrinting, AQueuedJobKeepsADeletedPrinterWhichTakesNoNewJobs) {
    linux_listener::Listener second = linux_listener::listenOn("127.0.1.20");
    ASSERT_GE(second.descriptor, 0);
    addRawPort(L"VexorPort_Second", L"127.0.1.20", second.port);
    addPrinterOn(L"Local Last", L"VexorPort_Second");
    HANDLE printer = openPrinter(L"Local Last", PRINTER_ALL_ACCESS);
    ASSERT_TRUE(SetPrinterW(printer, 0, nullptr, PRINTER_CONTROL_PAUSE));
    ASSERT_FALSE(printJob(L"Local Last", {5}).delivered);
    ASSERT_TRUE(SetPrinterW(printer, 0, nullptr, PRINTER_CONTROL_RESUME));  // a paused printer with jobs refuses
    ASSERT_TRUE(DeletePrinter(printer));
    ASSERT_TRUE(ClosePrinter(printer));
    EXPECT_TRUE(findPrinter(L"Local Last"));  // its queued job holds it
    simhost::winspool::PrintOutcome refused = printJob(L"Local Last", {6});  // hidden: no new jobs
    EXPECT_FALSE(refused.delivered);
    EXPECT_EQ(refused.jobId, 0u);
    EXPECT_EQ(findPrinter(L"Local Last")->jobs.size(), 1u);
    linux_listener::close(second);
}

// ---- The default printer of each user ----

TEST_F(SpoolerPrinting, SetDefaultPrinterIsForTheUserOfTheCallingThread) {
    addPrinterOn(L"Other Printer", L"LPT1:");
    simhost::winspool::setDefaultPrinterOf(L"S-1-5-21-1-2-3-1001", L"Other Printer");
    SetLastError(777);
    ASSERT_TRUE(SetDefaultPrinterW(L"local REDIRECTED"));
    EXPECT_EQ(GetLastError(), 777u);
    EXPECT_EQ(simhost::winspool::defaultPrinterOf(L"S-1-5-18"), std::wstring(L"Local Redirected"));
    EXPECT_EQ(simhost::winspool::defaultPrinterOf(L"S-1-5-21-1-2-3-1001"), std::wstring(L"Other Printer"));
    EXPECT_FALSE(SetDefaultPrinterW(L"No Such Printer"));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PRINTER_NAME));
    EXPECT_EQ(simhost::winspool::defaultPrinterOf(L"S-1-5-18"), std::wstring(L"Local Redirected"));
}

TEST_F(SpoolerPrinting, SetDefaultPrinterWithoutANamePicksAPrinter) {
    ASSERT_TRUE(SetDefaultPrinterW(nullptr));
    EXPECT_EQ(simhost::winspool::defaultPrinterOf(L"S-1-5-18"), std::wstring(L"Local Redirected"));
    simhost::Host::get().faults().failCall("SetDefaultPrinterW", ERROR_ACCESS_DENIED, 1);
    EXPECT_FALSE(SetDefaultPrinterW(L"Local Redirected"));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
}
