// Printer creation end to end: plugins ask over the command socket, and the
// tests read the reply bytes, the spooler afterwards (printer, port, driver,
// access list, device mode, default printer) and the log.
#include "foundation/ClassicJson.h"
#include "printers/PrinterSecurity.h"
#include "simhost/advapi32/advapi32.h"
#include "simhost/core/host.h"
#include "simhost/core/thread_ending.h"
#include "simhost/iphlpapi/tcp_connections.h"
#include "simhost/kernel32/objects.h"
#include "simhost/kernel32/processes.h"
#include "simhost/kernel32/programs.h"
#include "simhost/winspool/spooler.h"
#include "support/PluginRequests.h"
#include "support/SenderAdmission.h"
#include "support/ServiceHarness.h"
#include "support/SpoolerArrangement.h"
#include "support/TestClient.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <thread>

using testsupport::LogLine;
using testsupport::TestClient;

namespace {

namespace spooler = simhost::winspool;

const int kError = static_cast<int>(kLogError);
const int kNormal = static_cast<int>(kLogNormal);
constexpr const char* kAdd = "VexorPrintingService::_addPrinter";
constexpr const char* kDispatch = "VexorPrintingService::_handleRequest";
constexpr const wchar_t* kXpsDriver = L"Quillion Client Render XPS";
constexpr const wchar_t* kAcmeDriver = L"Acme LaserBox 2000";
constexpr const char* kPort = "Vexor_127.0.1.20:9101";
const std::string kComment = "Vexor redirected printer.  Documents printed on this printer will appear locally";

Json::Value json(const std::string& text) {
    Json::Value value;
    EXPECT_TRUE(parseWithClassicReader(text, value)) << text;
    return value;
}

// The bytes the service sends for a reply: the compact writer's text and
// the NUL that ends the message.
std::string replyOf(const Json::Value& reply) { return writeCompact(reply) + std::string(1, '\0'); }

std::wstring sessionSid(DWORD session) { return simhost::sessionLogonSid(session); }

std::wstring wide(const std::string& ascii) { return std::wstring(ascii.begin(), ascii.end()); }

size_t occurrences(const std::wstring& text, const std::wstring& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::wstring::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

class PrinterCreation : public ::testing::Test {
protected:
    void SetUp() override {
        testsupport::admitLoopbackClientsAs(testsupport::kLoaderPid);
        log().drive().makeDirectory("Windows\\INF");
        setPolicy(L"vexor.remote_printing_enabled", 2);
    }
    void TearDown() override { simhost::Host::get().faults().clearAll(); }

    static void setPolicy(const wchar_t* name, DWORD value) {
        simhost::advapi32::setRegistryDword(HKEY_LOCAL_MACHINE, L"Software\\Policies\\Quillion\\Vexor\\vexor_admin",
                                            name, value);
    }
    static void install(const std::wstring& name, const std::wstring& hwid = L"", const std::wstring& monitor = L"") {
        spooler::addDriver({name, spooler::kLocalEnvironment, hwid, monitor, {}});
    }
    void stageInf(const std::string& name, const std::string& text) const {
        std::ofstream(log().drive().native("Windows\\INF\\" + name), std::ios::binary | std::ios::trunc) << text;
    }
    // Starts the service (its catalogue is read now) and connects session
    // 2's plugin.
    void connect() {
        try {
            harness_.start();
        } catch (const std::exception&) {
            FAIL() << log().contents();
        }
        ASSERT_TRUE(client_.connect());
    }
    // The most common host: the driver the Windows client names is
    // installed, and the plugin's port is there.
    void startWithTheAcmeDriver() {
        install(kAcmeDriver);
        connect();
        addPluginPort();
    }
    // The plugin's port, as a createPPort of this plugin left it. Added after
    // the start, whose forced reap would take it.
    static void addPluginPort() { testsupport::addRawTcpPort(L"Vexor_127.0.1.20:9101"); }
    std::string ask(const Json::Value& request, int id) { return testsupport::ask(client_, request, id); }
    // A reply as the service sends it, with `_msgUniqueId` added.
    static std::string expected(Json::Value reply, int id) {
        reply["_msgUniqueId"] = id;
        return replyOf(reply);
    }

    // A Windows client's printer on the plugin's port, by driver name.
    static Json::Value windowsPrinter(const std::string& verb = "createPrinter", const std::string& name = "Office") {
        Json::Value request = json(R"({"OS":"Windows","driverName":"Acme LaserBox 2000"})");
        request["msg"] = verb;
        request["printerName"] = name;
        request["pPortName"] = kPort;
        if (verb == "createPrinterAndPort") {
            request["IP"] = "127.0.1.20";
            request["port"] = 9101;
        }
        return request;
    }
    static Json::Value detailOf(const std::string& name, const std::string& driver, bool preinstalled = true) {
        Json::Value detail = json(R"({"hwid":"","driverNameReq":"Acme LaserBox 2000","from":"DriverName",)"
                                  R"("to":"DriverName"})");
        detail["printerName"] = name;
        detail["driverNamePicked"] = driver;
        detail["preinstalled"] = preinstalled;
        return detail;
    }
    static Json::Value success(const Json::Value& detail) {
        Json::Value reply(Json::objectValue);
        reply["status"] = "success";
        reply["detail"] = detail;
        return reply;
    }

    const testsupport::LogCapture& log() const { return harness_.log(); }
    void expectLine(const std::string& message, uint32_t level, int channel, const std::string& function = kAdd) {
        testsupport::expectOneLine(log(), message, level, channel, function);
    }
    std::vector<LogLine> linesStartingWith(const std::string& start) const {
        std::vector<LogLine> found;
        for (const LogLine& line : log().lines())
            if (line.message.rfind(start, 0) == 0) found.push_back(line);
        return found;
    }

    testsupport::ServiceHarness harness_{0.001};
    TestClient client_;
};

// ---- Comment, location and record ----

TEST_F(PrinterCreation, PrinterWithoutClientNameOrLocationGetsTheBareTexts) {
    startWithTheAcmeDriver();
    EXPECT_EQ(ask(windowsPrinter(), 1), expected(success(detailOf("Office", "Acme LaserBox 2000")), 1));
    std::optional<spooler::SpoolerPrinter> printer = spooler::findPrinter(L"Office");
    ASSERT_TRUE(printer) << log().contents();
    EXPECT_EQ(printer->comment, L"Vexor redirected printer.  Documents printed on this printer will appear locally.");
    EXPECT_EQ(printer->location, L"Vexor >> ");
    EXPECT_EQ(printer->driverName, kAcmeDriver);
    EXPECT_EQ(printer->portName, L"Vexor_127.0.1.20:9101");
    EXPECT_EQ(printer->printProcessor, L"winprint");
    EXPECT_EQ(printer->datatype, L"RAW");
    EXPECT_EQ(printer->parameters, L"");
    EXPECT_EQ(printer->attributes, static_cast<DWORD>(PRINTER_ATTRIBUTE_NETWORK | PRINTER_ATTRIBUTE_RAW_ONLY));
    EXPECT_EQ(occurrences(spooler::sddlOfDescriptor(printer->securityDescriptor), sessionSid(2)), 3u)
        << spooler::sddlOfDescriptor(printer->securityDescriptor);
    EXPECT_EQ(log().find("Adding printer").size(), 2u) << "the dispatch's line and the add thread's";
    expectLine("_addPrinter()", 2, kNormal);
    expectLine("_addPrinter called mapped driver:Acme LaserBox 2000", 2, kNormal);
    expectLine("Lack of Language monitor confirmed for:Acme LaserBox 2000", 3, kNormal);
    expectLine("No language monitor", 2, kNormal);
    expectLine("ImpersonateLoggedOnUser - success", 2, kNormal);
    expectLine("Reverting user", 3, kNormal);
    EXPECT_EQ(linesStartingWith("xxx new Printer handle:").size(), 1u);
    EXPECT_EQ(spooler::openSpoolerHandleCount(), 0u);
    // The session look-up keeps its token open by design; the impersonation
    // closes both of its own.
    EXPECT_EQ(simhost::advapi32::openTokenHandleCount(), 1u);
}

TEST_F(PrinterCreation, ClientNameAndLocationGoIntoCommentAndLocation) {
    startWithTheAcmeDriver();
    Json::Value request = windowsPrinter();
    request["clientPCName"] = "PC-7";
    request["pLocation"] = "Second floor";
    request["printer-location"] = "ignored while pLocation is given";
    request["pParameters"] = "duplex";
    ASSERT_EQ(ask(request, 1), expected(success(detailOf("Office", "Acme LaserBox 2000")), 1));
    std::optional<spooler::SpoolerPrinter> printer = spooler::findPrinter(L"Office");
    ASSERT_TRUE(printer);
    EXPECT_EQ(printer->comment, wide(kComment + " on PC-7"));
    EXPECT_EQ(printer->location, L"Vexor to PC-7 >> Second floor");
    EXPECT_EQ(printer->parameters, L"duplex");
}


TEST_F(PrinterCreation, FallbackDriverMarksTheCommentAsClientRendered) {
    setPolicy(L"vexor.remote_printing_enabled", 1);
    install(kXpsDriver);
    install(kAcmeDriver, L"USBPRINT\\AcmeLaserBox_2000EA13");
    connect();
    addPluginPort();
    Json::Value request = windowsPrinter();
    request["hardwareId"] = "USBPRINT\\AcmeLaserBox_2000EA13";
    Json::Value detail = json(R"({"hwid":"USBPRINT\\AcmeLaserBox_2000EA13","driverNameReq":"Acme LaserBox 2000",)"
                              R"("printerName":"Office","preinstalled":true,"from":"forcedClientRender",)"
                              R"("to":"DriverName","driverNamePicked":"Quillion Client Render XPS"})");
    EXPECT_EQ(ask(request, 1), expected(success(detail), 1));
    EXPECT_EQ(spooler::findPrinter(L"Office")->comment, wide("(Client Rendered) " + kComment + "."));
    EXPECT_EQ(spooler::findPrinter(L"Office")->driverName, kXpsDriver);
}

TEST_F(PrinterCreation, OverrideAttributesReplaceTheDefaultsWhole) {
    startWithTheAcmeDriver();
    Json::Value request = windowsPrinter();
    request["OAttributes"] = 2;
    request["Priority"] = 7;
    request["DefaultPriority"] = 3;
    request["StartTime"] = 60;
    request["UntilTime"] = 120;
    ASSERT_EQ(ask(request, 1), expected(success(detailOf("Office", "Acme LaserBox 2000")), 1));
    std::optional<spooler::SpoolerPrinter> printer = spooler::findPrinter(L"Office");
    EXPECT_EQ(printer->attributes, 2u);
    EXPECT_EQ(printer->priority, 7u);
    EXPECT_EQ(printer->defaultPriority, 3u);
    EXPECT_EQ(printer->startTime, 60u);
    EXPECT_EQ(printer->untilTime, 120u);
    expectLine("Using override attributes:2", 2, kNormal);
}

// The spooler keeps a printer's status itself; the request's value goes into
// the record the spooler is given and shows in the log alone.
TEST_F(PrinterCreation, StatusIsMentionedInTheLogOnly) {
    startWithTheAcmeDriver();
    Json::Value request = windowsPrinter();
    request["Status"] = 1;
    ASSERT_EQ(ask(request, 1), expected(success(detailOf("Office", "Acme LaserBox 2000")), 1));
    expectLine("STATUS", 3, kNormal);
}

// ---- The add and an existing printer ----

TEST_F(PrinterCreation, AddThatTimesOutFailsAndTheHandlingThreadsLastErrorNamesTheCause) {
    install(kAcmeDriver);
    connect();
    simhost::Host::get().faults().blockCall("AddPrinterW");
    Json::Value reply = json(R"({"status":"fail","err":"Failed to add printer on: AddPrinter()."})");
    reply["detail"] = detailOf("Office", "Acme LaserBox 2000");
    EXPECT_EQ(ask(windowsPrinter("createPrinterAndPort"), 1), expected(reply, 1));
    expectLine("Failed to create printer", 5, kError);
    std::vector<LogLine> cause = linesStartingWith(
        "Failed to add printer with AddPrinter()Office. This is probably due to a missing driver. Err:");
    ASSERT_EQ(cause.size(), 1u);
    EXPECT_EQ(cause[0].level, 4u);
    EXPECT_EQ(cause[0].channel, kError);
    EXPECT_TRUE(log().contains("Deleting printer port because printer create failed."));
    EXPECT_FALSE(spooler::findPort(L"Vexor_127.0.1.20:9101")) << "the port made for it goes again";
    simhost::Host::get().faults().releaseCall("AddPrinterW");
    ASSERT_TRUE(simhost::pollUntil([] { return simhost::threadsStillToEnd() == 0; }, 10000));
    EXPECT_TRUE(spooler::printers().empty());
}

TEST_F(PrinterCreation, ExistingPrinterOfTheSameNameStaysWhenTheLastErrorIsNotTheClash) {
    install(kAcmeDriver);
    testsupport::addRawTcpPort(L"OLD_PORT", 9105);
    testsupport::addTestPrinter(L"Office", L"OLD_PORT", PrinterUtil::printerSddlForSession(sessionSid(2)));
    connect();
    addPluginPort();
    Json::Value reply = json(R"({"status":"fail","err":"Failed to add printer on: AddPrinter()."})");
    reply["detail"] = detailOf("Office", "Acme LaserBox 2000");
    EXPECT_EQ(ask(windowsPrinter(), 1), expected(reply, 1));
    EXPECT_EQ(linesStartingWith("Failed to add printer with AddPrinter()Office. This is probably due to a missing "
                                "driver. Err:")
                  .size(),
              1u);
    EXPECT_FALSE(log().contains("Printer still exists from last login Attempting to aquire"));
    ASSERT_TRUE(spooler::findPrinter(L"Office"));
    EXPECT_EQ(spooler::findPrinter(L"Office")->portName, L"OLD_PORT");
    EXPECT_EQ(spooler::openSpoolerHandleCount(), 0u);
}

// The handling thread's last error is the clash when the size query of the
// installed drivers for the language monitor fails with it (the two calls
// before it are those of the requested driver's test). The stale printer is opened with access
// 1, which holds no right to delete it, so it stays; the creation goes on
// with the closed handle, whose calls fail, and still answers success.
TEST_F(PrinterCreation, ClashOnTheHandlingThreadTriesToReplaceTheStalePrinter) {
    install(kAcmeDriver);
    testsupport::addRawTcpPort(L"OLD_PORT", 9105);
    testsupport::addTestPrinter(L"Office", L"OLD_PORT", PrinterUtil::printerSddlForSession(sessionSid(2)));
    connect();
    addPluginPort();
    simhost::Host::get().faults().failCall("EnumPrinterDriversW", ERROR_PRINTER_ALREADY_EXISTS, 1, 2);
    EXPECT_EQ(ask(windowsPrinter(), 1), expected(success(detailOf("Office", "Acme LaserBox 2000")), 1));
    expectLine("Printer still exists from last login Attempting to aquire", 3, kNormal);
    expectLine("Failed to delete printer with: Err:5:Access is denied.", 4, kError);
    expectLine("SetPrinter error when applying settings: Err:6:The handle is invalid.", 4, kError);
    EXPECT_EQ(linesStartingWith("xxx new Printer handle:").size(), 1u);
    ASSERT_TRUE(spooler::findPrinter(L"Office"));
    EXPECT_EQ(spooler::findPrinter(L"Office")->portName, L"OLD_PORT");
    EXPECT_EQ(spooler::openSpoolerHandleCount(), 0u);
}

// ---- Preferences and the default printer ----

TEST_F(PrinterCreation, DeviceModeThatIsNoObjectLeavesThePaperToTheMediaKeys) {
    startWithTheAcmeDriver();
    Json::Value request = windowsPrinter();
    request["pDevMode"] = "not an object";
    request["media"] = "iso_a4_210x297mm";
    ASSERT_EQ(ask(request, 1), expected(success(detailOf("Office", "Acme LaserBox 2000")), 1));
    const DEVMODEW devMode = spooler::devModeRecord(spooler::findPrinter(L"Office")->devMode);
    EXPECT_EQ(devMode.dmPaperSize, DMPAPER_A4);
    expectLine("Got 'media' string:iso_a4_210x297mm", 2, kNormal);
}

TEST_F(PrinterCreation, DeviceModeObjectIsApplied) {
    startWithTheAcmeDriver();
    Json::Value request = windowsPrinter();
    request["pDevMode"] = json(R"({"dmOrientation":2,"dmCopies":3})");
    ASSERT_EQ(ask(request, 1), expected(success(detailOf("Office", "Acme LaserBox 2000")), 1));
    const DEVMODEW devMode = spooler::devModeRecord(spooler::findPrinter(L"Office")->devMode);
    EXPECT_EQ(devMode.dmOrientation, 2);
    EXPECT_EQ(devMode.dmCopies, 3);
}

TEST_F(PrinterCreation, PolicyZeroKeepsTheHostsDefaultPrinter) {
    startWithTheAcmeDriver();
    Json::Value request = windowsPrinter();
    request["is_default"] = 1;
    ASSERT_EQ(ask(request, 1), expected(success(detailOf("Office", "Acme LaserBox 2000")), 1));
    expectLine("Not overriding host side default printer", 3, kNormal);
    EXPECT_TRUE(spooler::defaultPrinters().empty());
}

TEST_F(PrinterCreation, DefaultPrinterIsSetForTheSendersUserOnly) {
    setPolicy(L"vexor.enable_default_printer", 1);
    startWithTheAcmeDriver();
    Json::Value request = windowsPrinter();
    request["is_default"] = 1;
    ASSERT_EQ(ask(request, 1), expected(success(detailOf("Office", "Acme LaserBox 2000")), 1));
    expectLine("Trying to set default printer", 3, kNormal);
    expectLine("Setting this printer as the default printer", 3, kNormal, "VexorPrintingService::setDefaultPrinter");
    EXPECT_EQ(spooler::defaultPrinterOf(simhost::sessionUserSid(testsupport::kUserSession)), L"Office");
    EXPECT_EQ(spooler::defaultPrinters().size(), 1u);
}

TEST_F(PrinterCreation, RefusedDefaultPrinterIsAWarningOfASuccess) {
    setPolicy(L"vexor.enable_default_printer", 1);
    startWithTheAcmeDriver();
    simhost::Host::get().faults().failCall("SetDefaultPrinterW", ERROR_ACCESS_DENIED, 1);
    Json::Value request = windowsPrinter();
    request["is_default"] = 1;
    Json::Value reply = success(detailOf("Office", "Acme LaserBox 2000"));
    reply["warn"] = "Failed to make default printer";
    EXPECT_EQ(ask(request, 1), expected(reply, 1));
    expectLine("SetDefaultPrinter failed Err:5:Access is denied.", 4, kError, "VexorPrintingService::setDefaultPrinter");
}

TEST_F(PrinterCreation, SenderThatEndsBeforeThePreferencesStillGetsItsPrinter) {
    startWithTheAcmeDriver();
    simhost::Host::get().faults().blockCall("AddPrinterW");
    std::string reply;
    std::thread asking([&] { reply = ask(windowsPrinter(), 1); });
    ASSERT_TRUE(simhost::Host::get().faults().waitUntilBlocked("AddPrinterW"));
    simhost::kernel32::removeProcess(testsupport::kLoaderPid);
    simhost::Host::get().faults().releaseCall("AddPrinterW");
    asking.join();
    EXPECT_EQ(reply, expected(success(detailOf("Office", "Acme LaserBox 2000")), 1));
    std::vector<LogLine> lines = linesStartingWith("OpenProcess:5000 failed Err:");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, 4u);
    expectLine("Not attempting to set printer preferences.", 4, kError);
    EXPECT_FALSE(log().contains("Reverting user"));
    EXPECT_TRUE(spooler::findPrinter(L"Office"));
}

TEST_F(PrinterCreation, ExceptionUnderImpersonationFailsTheReplyButKeepsThePrinter) {
    install(kAcmeDriver);
    connect();
    Json::Value request = windowsPrinter("createPrinterAndPort");
    request["media-available"] = json(R"([{"not":"a name"}])");
    Json::Value reply = json(R"({"status":"fail","err":"no _senderPID"})");
    reply["detail"] = detailOf("Office", "Acme LaserBox 2000");
    EXPECT_EQ(ask(request, 1), expected(reply, 1));
    EXPECT_EQ(linesStartingWith("VexorPrintingService::_addPrinter:  Catching exception:  ").size(), 1u);
    expectLine("Reverting user", 3, kNormal);
    EXPECT_TRUE(spooler::findPrinter(L"Office")) << "the printer was made";
    // The port's removal is asked for, and refused while the printer uses it.
    EXPECT_TRUE(log().contains("Deleting printer port because printer create failed."));
    EXPECT_TRUE(spooler::findPort(L"Vexor_127.0.1.20:9101"));
}

// ---- Refusals ----

TEST_F(PrinterCreation, RequestWithoutASenderIsRefusedWithoutDetail) {
    Json::Value request = windowsPrinter();
    const Json::Value reply = harness_.service()._addPrinter(request);
    EXPECT_EQ(reply, json(R"({"status":"fail","err":"no _senderPID"})"));
    expectLine("Required _senderPID member missing from json request.", 6, kError);
}

TEST_F(PrinterCreation, MissingPrinterNameOrPortIsRefusedWithTheDetail) {
    install(kAcmeDriver);
    connect();
    Json::Value noName = windowsPrinter();
    noName.removeMember("printerName");
    Json::Value reply = json(R"({"status":"fail","err":"_addPrinter called with no printerName"})");
    reply["detail"] = json(R"({"hwid":"","driverNameReq":"Acme LaserBox 2000","printerName":""})");
    EXPECT_EQ(ask(noName, 1), expected(reply, 1));
    EXPECT_FALSE(log().contains("driver req by user:Acme LaserBox 2000")) << "no driver is chosen";
    Json::Value noPort = windowsPrinter();
    noPort.removeMember("pPortName");
    reply = json(R"({"status":"fail","err":"_addPrinter called with no pPortName"})");
    reply["detail"] = detailOf("Office", "Acme LaserBox 2000");
    EXPECT_EQ(ask(noPort, 2), expected(reply, 2));
    EXPECT_FALSE(log().contains("_addPrinter called mapped driver:Acme LaserBox 2000"));
    EXPECT_TRUE(spooler::printers().empty());
}

TEST_F(PrinterCreation, NoDriverIsTheSelectionsFailure) {
    connect();
    addPluginPort();
    Json::Value reply = json(R"({"status":"fail","err":"Could not find a driver for the printer",)"
                             R"("warn":"no hardwareId supplied"})");
    reply["detail"] = json(R"({"hwid":"","driverNameReq":"Acme LaserBox 2000","printerName":"Office"})");
    EXPECT_EQ(ask(windowsPrinter(), 1), expected(reply, 1));
    EXPECT_TRUE(spooler::printers().empty());
}

TEST_F(PrinterCreation, SenderWithoutALogonSessionGetsNoPrinter) {
    install(kAcmeDriver);
    simhost::kernel32::removeProcess(testsupport::kLoaderPid);
    simhost::kernel32::ProcessRecord loader{testsupport::kLoaderPid, testsupport::kSessionZeroAncestorPid,
                                            testsupport::kUserSession, testsupport::kLoaderPath};
    loader.noLogonSid = true;
    simhost::kernel32::addProcess(loader);
    connect();
    addPluginPort();
    Json::Value reply = json(R"({"status":"fail","err":"bad SecurityDescriptor"})");
    reply["detail"] = detailOf("Office", "Acme LaserBox 2000");
    EXPECT_EQ(ask(windowsPrinter(), 1), expected(reply, 1));
    expectLine("Couldn't get the session security Id of sender.", 5, kError);
    EXPECT_TRUE(spooler::printers().empty());
}

// An exception outside the work done as the sender leaves the creation: the
// dispatch logs it and the request gets no reply.
TEST_F(PrinterCreation, CompatibleIdThatIsAnObjectCostsTheRequestItsReply) {
    connect();
    addPluginPort();
    Json::Value request = windowsPrinter();
    request.removeMember("driverName");
    request["compatHwids"] = json(R"([{"id":"USBPRINT\\Acme"}])");
    request["_msgUniqueId"] = 1;
    std::string text = writeCompact(request);
    text.back() = '\0';
    ASSERT_TRUE(client_.send(text));
    EXPECT_EQ(client_.receiveReply(1000), "");
    EXPECT_EQ(linesStartingWith("exception processing command. Caught:").size(), 1u);
    EXPECT_TRUE(spooler::printers().empty());
}

// ---- createPrinterAndPort ----

TEST_F(PrinterCreation, PortAndPrinterComeTogetherAndThePrintersReplyIsTheAnswer) {
    install(kAcmeDriver);
    connect();
    EXPECT_EQ(ask(windowsPrinter("createPrinterAndPort"), 1),
              expected(success(detailOf("Office", "Acme LaserBox 2000")), 1));
    ASSERT_TRUE(spooler::findPort(L"Vexor_127.0.1.20:9101"));
    EXPECT_EQ(spooler::findPrinter(L"Office")->portName, L"Vexor_127.0.1.20:9101");
    expectLine("Step1:Adding printer port", 2, kNormal, kDispatch);
    expectLine("Step2:Adding printer", 2, kNormal, kDispatch);
}

TEST_F(PrinterCreation, ExistingPortStopsTheFirstStep) {
    startWithTheAcmeDriver();
    EXPECT_EQ(ask(windowsPrinter("createPrinterAndPort"), 1),
              testsupport::failureReply(1, "Printer Port already exists"));
    EXPECT_FALSE(log().contains("Step2:Adding printer"));
    EXPECT_TRUE(spooler::printers().empty());
    EXPECT_TRUE(spooler::findPort(L"Vexor_127.0.1.20:9101")) << "the existing port stays";
}

TEST_F(PrinterCreation, FailedPrinterTakesThePortJustMadeWithIt) {
    connect();
    Json::Value reply = json(R"({"status":"fail","err":"Could not find a driver for the printer",)"
                             R"("warn":"no hardwareId supplied"})");
    reply["detail"] = json(R"({"hwid":"","driverNameReq":"Acme LaserBox 2000","printerName":"Office"})");
    EXPECT_EQ(ask(windowsPrinter("createPrinterAndPort"), 1), expected(reply, 1));
    expectLine("Deleting printer port because printer create failed.", 2, kNormal, kDispatch);
    EXPECT_FALSE(spooler::findPort(L"Vexor_127.0.1.20:9101"));
}

// ---- Journeys ----

TEST_F(PrinterCreation, WindowsClientUnderTheAdvancedPolicyGetsTheStagedDriverOfItsId) {
    stageInf("oem9.inf",
             "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=Printer\r\nProvider=%Acme%\r\n\r\n"
             "[Manufacturer]\r\n%Acme%=Acme,NTamd64\r\n\r\n[Acme.NTamd64]\r\n"
             "\"Acme LaserBox 2000\" = LB2000, USBPRINT\\AcmeLaserBox_2000EA13, AcmeLaserBox_2000EA13\r\n\r\n"
             "[LB2000]\r\nLanguageMonitor = \"Acme Language Monitor,acmelm.dll\"\r\n\r\n"
             "[Strings]\r\nAcme=\"Acme\"\r\n");
    connect();
    addPluginPort();
    Json::Value request = windowsPrinter();
    request.removeMember("driverName");
    request["hardwareId"] = "USBPRINT\\AcmeLaserBox_2000EA13";
    const Json::Value detail =
        json(R"({"hwid":"USBPRINT\\AcmeLaserBox_2000EA13","driverNameReq":"","printerName":"Office",)"
             R"("preinstalled":false,"to":"hwid","matchedHwid":"USBPRINT\\AcmeLaserBox_2000EA13","matchedBus":true,)"
             R"("driverNamePicked":"Acme LaserBox 2000"})");
    Json::Value reply = success(detail);
    reply["warn"] = "_addPrinter called with no driverName (possibly CUPS printer)";
    EXPECT_EQ(ask(request, 1), expected(reply, 1));
    EXPECT_EQ(simhost::kernel32::processRuns().size(), 1u);
    std::optional<spooler::SpoolerPrinter> printer = spooler::findPrinter(L"Office");
    ASSERT_TRUE(printer);
    EXPECT_EQ(printer->driverName, kAcmeDriver);
    expectLine("Language monitor:Acme Language Monitor found", 3, kNormal);
    expectLine("Enabling BIDI", 2, kNormal);
    EXPECT_NE(printer->attributes & PRINTER_ATTRIBUTE_ENABLE_BIDI, 0u) << "switched on through WMI";
}

TEST_F(PrinterCreation, MacClientGetsItsDriverFromTheDeviceIdAndItsPaperFromTheMediaTable) {
    install(kAcmeDriver, L"USBPRINT\\AcmeLaserBox_2000EA13");
    connect();
    addPluginPort();
    Json::Value request = json(R"({"msg":"createPrinter","printerName":"Mac printer","OS":"OSX",)"
                               R"("HostRenderSupported":1,"device-id":"MFG:Acme;MDL:LaserBox 2000;",)"
                               R"("printer-make-and-model":"Acme LaserBox 2000","media-default":"na_letter_8.5x11in",)"
                               R"("clientPCName":"MacBook"})");
    request["pPortName"] = kPort;
    const std::string reply = ask(request, 1);
    Json::Value parsed;
    ASSERT_TRUE(parseWithClassicReader(reply.substr(0, reply.size() - 1), parsed)) << reply;
    EXPECT_EQ(parsed["status"], "success") << reply;
    EXPECT_EQ(parsed["detail"]["driverNamePicked"], "Acme LaserBox 2000");
    EXPECT_EQ(parsed["detail"]["matchedHwid"], "AcmeLaserBox_2000EA13");
    std::optional<spooler::SpoolerPrinter> printer = spooler::findPrinter(L"Mac printer");
    ASSERT_TRUE(printer);
    EXPECT_EQ(spooler::devModeRecord(printer->devMode).dmPaperSize, DMPAPER_LETTER);
    EXPECT_EQ(printer->comment, wide(kComment + " on MacBook"));
}

TEST_F(PrinterCreation, OverrideSettingsInTheCommentChooseTheDriver) {
    install(kAcmeDriver);
    install(L"Acme Mono");
    connect();
    addPluginPort();
    Json::Value request = windowsPrinter();
    request["pComment"] = "Please use {\\\"driverName\\\":\\\"Acme Mono\\\"} here";
    const std::string reply = ask(request, 1);
    Json::Value parsed;
    ASSERT_TRUE(parseWithClassicReader(reply.substr(0, reply.size() - 1), parsed)) << reply;
    EXPECT_EQ(parsed["detail"]["driverNameReq"], "Acme Mono");
    EXPECT_EQ(parsed["detail"]["driverNamePicked"], "Acme Mono");
    EXPECT_EQ(spooler::findPrinter(L"Office")->driverName, L"Acme Mono");
    EXPECT_EQ(spooler::findPrinter(L"Office")->comment, wide(kComment + ".")) << "the carrier is no comment";
}

TEST_F(PrinterCreation, OverrideSettingsInTheLocationNameThePrinterAndStandInItsLocation) {
    startWithTheAcmeDriver();
    Json::Value request = windowsPrinter();
    request["printer-location"] = "{\"printerName\":\"Hall\"}";
    const std::string reply = ask(request, 1);
    EXPECT_NE(reply.find("\"status\":\"success\""), std::string::npos) << reply;
    std::optional<spooler::SpoolerPrinter> printer = spooler::findPrinter(L"Hall");
    ASSERT_TRUE(printer);
    EXPECT_EQ(printer->location, L"Vexor >>  >> {\"printerName\":\"Hall\"}");
    EXPECT_FALSE(spooler::findPrinter(L"Office"));
}

TEST_F(PrinterCreation, SenderPidOfTheOverridesIsNotTheSenderThatCounts) {
    startWithTheAcmeDriver();
    Json::Value request = windowsPrinter();
    request["pComment"] = "{\"_senderPID\":4}";
    EXPECT_EQ(ask(request, 1), expected(success(detailOf("Office", "Acme LaserBox 2000")), 1));
    EXPECT_EQ(occurrences(spooler::sddlOfDescriptor(spooler::findPrinter(L"Office")->securityDescriptor),
                          sessionSid(testsupport::kUserSession)),
              3u);
}

// Two plugins of two sessions of one user: each printer is bound to its
// session, each plugin removes only its own, and each default printer is
// set for the user of the session that asked.
TEST_F(PrinterCreation, TwoSessionsEachGetAndRemoveOnlyTheirOwnPrinter) {
    constexpr DWORD kOtherLoader = 5100;
    constexpr DWORD kOtherSession = 3;
    setPolicy(L"vexor.enable_default_printer", 1);
    install(kAcmeDriver);
    simhost::kernel32::addProcess(simhost::kernel32::ProcessRecord{
        kOtherLoader, testsupport::kSessionZeroAncestorPid, kOtherSession, testsupport::kLoaderPath});
    connect();
    // Each connection's owner is fixed when the service takes it: a first
    // exchange makes sure it has, before the next owner is arranged.
    const Json::Value hello = json(R"({"msg":"hello"})");
    const std::string unknown = "unknown msg verb. Don't know what you want me to do.";
    ASSERT_EQ(ask(hello, 100), testsupport::failureReply(100, unknown));
    simhost::iphlpapi::setDefaultOutsideEndOwner(kOtherLoader);
    TestClient other;
    ASSERT_TRUE(other.connect());
    ASSERT_EQ(testsupport::ask(other, hello, 101), testsupport::failureReply(101, unknown));
    Json::Value first = windowsPrinter("createPrinterAndPort", "First");
    first["is_default"] = 1;
    Json::Value second = windowsPrinter("createPrinterAndPort", "Second");
    second["pPortName"] = "Vexor_127.0.1.20:9102";
    second["port"] = 9102;
    second["is_default"] = 1;
    std::string firstReply, secondReply;
    std::thread asking([&] { secondReply = testsupport::ask(other, second, 2); });
    firstReply = ask(first, 1);
    asking.join();
    EXPECT_EQ(firstReply, expected(success(detailOf("First", "Acme LaserBox 2000")), 1));
    EXPECT_EQ(secondReply, expected(success(detailOf("Second", "Acme LaserBox 2000")), 2));
    const std::wstring firstSddl = spooler::sddlOfDescriptor(spooler::findPrinter(L"First")->securityDescriptor);
    const std::wstring secondSddl = spooler::sddlOfDescriptor(spooler::findPrinter(L"Second")->securityDescriptor);
    EXPECT_EQ(occurrences(firstSddl, sessionSid(testsupport::kUserSession)), 3u);
    EXPECT_EQ(occurrences(firstSddl, sessionSid(kOtherSession)), 0u);
    EXPECT_EQ(occurrences(secondSddl, sessionSid(kOtherSession)), 3u);
    EXPECT_EQ(spooler::defaultPrinterOf(simhost::sessionUserSid(testsupport::kUserSession)), L"First");
    EXPECT_EQ(spooler::defaultPrinterOf(simhost::sessionUserSid(kOtherSession)), L"Second");
    Json::Value removeSecond = json(R"({"msg":"deletePrinter","printerName":"Second"})");
    EXPECT_EQ(ask(removeSecond, 3), testsupport::failureReply(3, "Printer not owned by sender"));
    EXPECT_EQ(testsupport::ask(other, removeSecond, 4), testsupport::successReply(4));
    Json::Value removeFirst = json(R"({"msg":"deletePrinter","printerName":"First"})");
    EXPECT_EQ(testsupport::ask(other, removeFirst, 5), testsupport::failureReply(5, "Printer not owned by sender"));
    EXPECT_EQ(ask(removeFirst, 6), testsupport::successReply(6));
    EXPECT_TRUE(spooler::printers().empty());
}

}  // namespace
