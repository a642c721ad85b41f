// The spooler's sections of host files and state files, and the host file's
// faults: what a host file arranges, what the state file reports, and each
// key of the wrong kind or unknown refused by name.
#include "simhost/core/text.h"
#include "simhost/hostfile/host_file.h"
#include "host_file_test_helpers.h"
#include "winspool_test_helpers.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <thread>

using namespace winspool_test;

namespace {

class SpoolerHostFile : public Spooler {};

using hostfiletest::apply;
using hostfiletest::parse;
using hostfiletest::refusal;

const char* const kMachine = R"json({
  "drivers": [
    { "name": "Acme LaserBox 2000", "hardwareId": "USBPRINT\\AcmeLaserBox2000", "monitor": "PJL Language Monitor",
      "devMode": { "dmOrientation": 2, "dmPaperSize": 9, "dmFormName": "A4", "dmFields": 3, "privateData": "0a0b0c" } },
    { "name": "Old Driver", "environment": "Windows NT x86" }
  ],
  "ports": [
    { "name": "VexorPort_50123", "hostAddress": "127.0.1.20", "portNumber": 50123 },
    { "name": "VexorPort_Lpr", "hostAddress": "127.0.1.20", "protocol": 2 },
    { "name": "Spare", "monitor": "Local Port", "type": 1 }
  ],
  "printers": [
    { "name": "Local Desk", "port": "VexorPort_50123", "driver": "Acme LaserBox 2000", "comment": "a comment",
      "location": "Vexor >> here", "attributes": 4112, "status": 128,
      "sddl": "D:(A;;LCSWSDRCWDWO;;;SY)(A;;SWRC;;;S-1-5-5-0-1234)",
      "jobs": [ { "name": "alice", "document": "report.pdf", "bytes": "%PDF-" } ] },
    { "name": "Local Plain", "port": "LPT1:", "driver": "Acme LaserBox 2000" }
  ],
  "defaultPrinters": { "S-1-5-21-1-2-3-1001": "Local Desk" }
})json";

}  // namespace

TEST_F(SpoolerHostFile, AHostFileArrangesDriversPortsPrintersAndDefaults) {
    apply(kMachine);
    std::vector<simhost::winspool::PrinterDriver> drivers = simhost::winspool::drivers();
    ASSERT_EQ(drivers.size(), 2u);
    EXPECT_EQ(drivers[0].hardwareId, L"USBPRINT\\AcmeLaserBox2000");
    EXPECT_EQ(drivers[0].monitorName, L"PJL Language Monitor");
    EXPECT_EQ(drivers[1].environment, L"Windows NT x86");
    DEVMODEW mode = simhost::winspool::devModeRecord(drivers[0].devMode);
    EXPECT_EQ(mode.dmOrientation, DMORIENT_LANDSCAPE);
    EXPECT_EQ(mode.dmPaperSize, DMPAPER_A4);
    EXPECT_EQ(mode.dmFields, 3u);
    EXPECT_STREQ(mode.dmFormName, L"A4");
    EXPECT_EQ(mode.dmDriverExtra, 3u);
    EXPECT_EQ(simhost::winspool::devModePrivateBytes(drivers[0].devMode), (std::vector<BYTE>{10, 11, 12}));

    auto tcp = simhost::winspool::findPort(L"VexorPort_50123");
    ASSERT_TRUE(tcp && tcp->tcp);
    EXPECT_EQ(tcp->tcp->portNumber, 50123u);
    EXPECT_EQ(tcp->tcp->protocol, static_cast<DWORD>(PROTOCOL_RAWTCP_TYPE));
    EXPECT_EQ(simhost::winspool::findPort(L"VexorPort_Lpr")->tcp->protocol, static_cast<DWORD>(PROTOCOL_LPR_TYPE));
    auto spare = simhost::winspool::findPort(L"Spare");
    EXPECT_EQ(spare->monitorName, L"Local Port");
    EXPECT_EQ(spare->portType, 1u);
    EXPECT_FALSE(spare->tcp);

    auto desk = simhost::winspool::findPrinter(L"Local Desk");
    ASSERT_TRUE(desk);
    EXPECT_EQ(desk->attributes, 4112u);
    EXPECT_EQ(desk->status, PRINTER_STATUS_OFFLINE);
    EXPECT_EQ(simhost::winspool::sddlOfDescriptor(desk->securityDescriptor),
              L"D:(A;;LCSWSDRCWDWO;;;SY)(A;;SWRC;;;S-1-5-5-0-1234)");
    ASSERT_EQ(desk->jobs.size(), 1u);
    EXPECT_EQ(desk->jobs[0].data, (std::vector<BYTE>{'%', 'P', 'D', 'F', '-'}));
    EXPECT_STREQ(simhost::winspool::devModeRecord(desk->devMode).dmDeviceName, L"Local Desk");
    EXPECT_EQ(simhost::winspool::defaultPrinterOf(L"S-1-5-21-1-2-3-1001"), std::wstring(L"Local Desk"));

    // The service's calls see the same machine.
    HANDLE printer = openPrinter(L"Local Desk", PRINTER_ACCESS_USE);
    EXPECT_EQ(recordsOf<PRINTER_INFO_2W>(getPrinter(printer, 2))->cJobs, 1u);
    ClosePrinter(printer);
}

TEST_F(SpoolerHostFile, TheStateFileReportsPrintersPortsDriversAndDefaults) {
    apply(kMachine);
    ASSERT_TRUE(SetDefaultPrinterW(L"Local Plain"));
    Json::Value state = simhost::describeHostState();

    const Json::Value& desk = state["printers"][0];
    EXPECT_EQ(desk["pPrinterName"].asString(), "Local Desk");
    EXPECT_TRUE(desk["pServerName"].isNull());
    EXPECT_EQ(desk["pPortName"].asString(), "VexorPort_50123");
    EXPECT_EQ(desk["pDriverName"].asString(), "Acme LaserBox 2000");
    EXPECT_EQ(desk["pComment"].asString(), "a comment");
    EXPECT_EQ(desk["pLocation"].asString(), "Vexor >> here");
    EXPECT_EQ(desk["pPrintProcessor"].asString(), "winprint");
    EXPECT_EQ(desk["pDatatype"].asString(), "RAW");
    EXPECT_EQ(desk["Attributes"].asUInt(), 4112u);
    EXPECT_EQ(desk["Status"].asUInt(), PRINTER_STATUS_OFFLINE);
    EXPECT_EQ(desk["cJobs"].asUInt(), 1u);
    EXPECT_EQ(desk["securityDescriptor"].asString(), "D:(A;;LCSWSDRCWDWO;;;SY)(A;;SWRC;;;S-1-5-5-0-1234)");
    EXPECT_EQ(desk["devMode"]["dmDeviceName"].asString(), "Local Desk");
    EXPECT_EQ(desk["devMode"]["dmOrientation"].asInt(), DMORIENT_LANDSCAPE);
    EXPECT_EQ(desk["devMode"]["privateData"].asString(), "0a0b0c");
    EXPECT_EQ(desk["jobs"][0]["document"].asString(), "report.pdf");
    EXPECT_EQ(desk["jobs"][0]["name"].asString(), "alice");
    EXPECT_EQ(desk["jobs"][0]["size"].asUInt(), 5u);
    EXPECT_FALSE(desk["pendingDeletion"].asBool());
    EXPECT_EQ(state["printers"][1]["securityDescriptor"].asString(),
              simhost::narrow(simhost::winspool::kDefaultPrinterSddl));

    bool sawPort = false;
    for (const Json::Value& port : state["ports"]) {
        if (port["name"].asString() != "VexorPort_50123") continue;
        sawPort = true;
        EXPECT_EQ(port["monitor"].asString(), "TCPMON.DLL");
        EXPECT_EQ(port["hostAddress"].asString(), "127.0.1.20");
        EXPECT_EQ(port["portNumber"].asUInt(), 50123u);
        EXPECT_EQ(port["protocol"].asUInt(), 1u);
        EXPECT_TRUE(port["type"].asUInt() & PORT_TYPE_NET_ATTACHED);
    }
    EXPECT_TRUE(sawPort);
    EXPECT_EQ(state["drivers"][1]["environment"].asString(), "Windows NT x86");
    EXPECT_EQ(state["drivers"][0]["devMode"]["dmPaperSize"].asInt(), DMPAPER_A4);
    EXPECT_EQ(state["defaultPrinters"]["S-1-5-18"].asString(), "Local Plain");
    EXPECT_EQ(state["defaultPrinters"]["S-1-5-21-1-2-3-1001"].asString(), "Local Desk");
}

TEST_F(SpoolerHostFile, EveryWrongOrUnknownKeyIsRefusedByName) {
    const std::pair<const char*, const char*> cases[] = {
        {R"json({"drivers": {}})json", "\"drivers\" must be a list"},
        {R"json({"drivers": [{"name": "D", "vendor": "x"}]})json", "unknown key \"vendor\" in a driver"},
        {R"json({"drivers": [{"name": 5}]})json", "driver \"name\" must be a string"},
        {R"json({"drivers": [{"name": "D", "environment": "Windows Mars"}]})json",
         "driver \"D\": unknown environment \"Windows Mars\""},
        {R"json({"drivers": [{"name": "D", "devMode": {"dmCopies": 70000}}]})json",
         "driver \"devMode\" \"dmCopies\" must be a whole number from -32768 to 32767"},
        {R"json({"drivers": [{"name": "D", "devMode": {"dmPelsWide": 1}}]})json", "unknown key \"dmPelsWide\" in driver \"devMode\""},
        {R"json({"drivers": [{"name": "D", "devMode": {"dmSize": 1}}]})json", "unknown key \"dmSize\" in driver \"devMode\""},
        {R"json({"drivers": [{"name": "D", "devMode": {"privateData": "xyz"}}]})json",
         "driver \"devMode\" \"privateData\" must be hexadecimal digits, two per byte"},
        {R"json({"drivers": [{"name": "D"}, {"name": "d"}]})json", "driver \"d\" is installed for this environment"},
        {R"json({"ports": [{"name": "P", "address": "x"}]})json", "unknown key \"address\" in a port"},
        {R"json({"ports": [{"name": "P", "portNumber": "9100"}]})json",
         "port \"portNumber\" must be a whole number from 0 to 4294967295"},
        {R"json({"ports": [{"name": "P", "monitor": "Fax Monitor"}]})json",
         "port \"P\": no monitor \"Fax Monitor\" (the machine has \"TCPMON.DLL\" and \"Local Port\")"},
        {R"json({"ports": [{"name": "P", "monitor": "Local Port", "hostAddress": "127.0.0.1"}]})json",
         "port \"P\": only TCP/IP ports have a host address, port number and protocol"},
        {R"json({"ports": [{"name": "LPT1:"}]})json", "port \"LPT1:\" exists"},
        {R"json({"printers": [{"name": "P", "port": "LPT1:", "driver": "D", "colour": true}]})json",
         "unknown key \"colour\" in a printer"},
        {R"json({"printers": [{"name": "P", "port": "LPT1:", "driver": "D"}]})json",
         "printer \"P\": no such driver is installed for this machine's environment"},
        {R"json({"printers": [{"name": "P", "driver": "D"}]})json", "printer \"port\" must be a string"},
        {R"json({"printers": [{"name": "P", "port": "LPT1:", "driver": "D", "attributes": -1}]})json",
         "printer \"attributes\" must be a whole number from 0 to 4294967295"},
        {R"json({"printers": [{"name": "P", "port": "LPT1:", "driver": "D", "jobs": [{"pages": 2}]}]})json",
         "unknown key \"pages\" in a job"},
        {R"json({"defaultPrinters": {"S-1-5-18": "Nobody"}})json", "no printer \"Nobody\" to make the default"},
        {R"json({"defaultPrinters": []})json", "\"defaultPrinters\" must be an object"},
        {R"json({"faults": [{"call": "AddPrinterW", "eror": 5}]})json", "unknown key \"eror\" in a fault"},
        {R"json({"faults": [{"call": "AddPrinterW"}]})json", "fault of AddPrinterW needs \"error\", \"block\" or \"delayMs\""},
        {R"json({"faults": [{"call": "AddPrinterW", "times": 1, "delayMs": 5}]})json",
         "fault of AddPrinterW: \"times\" and \"passing\" need \"error\""},
        {R"json({"faults": [{"call": "AddPrinterW", "error": 5, "times": 0}]})json",
         "fault \"times\" must be a whole number from 1"},
        {R"json({"faults": [{"call": "AddPrinterW", "block": "yes"}]})json", "fault \"block\" must be true or false"},
    };
    for (const auto& [text, message] : cases) {
        simhost::Host::get().reset();
        EXPECT_EQ(refusal(text), message) << text;
    }
}

TEST_F(SpoolerHostFile, APrintersDeviceModeLaysItsMembersOverTheDriversNamedAfterIt) {
    apply(R"json({
      "drivers": [{ "name": "Acme LaserBox 2000",
                    "devMode": { "dmPaperSize": 9, "dmFields": 3, "privateData": "0a0b0c" } }],
      "printers": [{ "name": "Local Desk", "port": "LPT1:", "driver": "Acme LaserBox 2000",
                     "devMode": { "dmCopies": 3, "dmFields": 259, "privateData": "ff" } },
                   { "name": "Local Plain", "port": "LPT1:", "driver": "Acme LaserBox 2000" }]
    })json");
    std::vector<BYTE> block = simhost::winspool::findPrinter(L"Local Desk")->devMode;
    DEVMODEW mode = simhost::winspool::devModeRecord(block);
    EXPECT_STREQ(mode.dmDeviceName, L"Local Desk");
    EXPECT_EQ(mode.dmPaperSize, DMPAPER_A4) << "the driver's";
    EXPECT_EQ(mode.dmCopies, 3);
    EXPECT_EQ(mode.dmFields, 259u);
    EXPECT_EQ(mode.dmSize, sizeof(DEVMODEW));
    EXPECT_EQ(mode.dmDriverExtra, 1u);
    EXPECT_EQ(simhost::winspool::devModePrivateBytes(block), (std::vector<BYTE>{0xff}));

    Json::Value state = simhost::describeHostState();
    EXPECT_EQ(state["printers"][0]["devMode"]["dmCopies"].asInt(), 3);
    EXPECT_EQ(state["printers"][0]["devMode"]["dmFields"].asUInt(), 259u);
    EXPECT_EQ(state["printers"][0]["devMode"]["privateData"].asString(), "ff");
    EXPECT_EQ(state["printers"][1]["devMode"]["dmCopies"].asInt(), 1) << "the driver's device mode as it stands";
    EXPECT_EQ(state["printers"][1]["devMode"]["privateData"].asString(), "0a0b0c");
}

TEST_F(SpoolerHostFile, AWrongPrinterDeviceModeIsRefusedByName) {
    const std::pair<const char*, const char*> cases[] = {
        {R"json({"drivers": [{"name": "D"}], "printers": [{"name": "P", "port": "LPT1:", "driver": "D",
            "devMode": []}]})json",
         "printer \"devMode\" must be an object"},
        {R"json({"drivers": [{"name": "D"}], "printers": [{"name": "P", "port": "LPT1:", "driver": "D",
            "devMode": {"dmCopies": "3"}}]})json",
         "printer \"devMode\" \"dmCopies\" must be a whole number from -32768 to 32767"},
        {R"json({"drivers": [{"name": "D"}], "printers": [{"name": "P", "port": "LPT1:", "driver": "D",
            "devMode": {"dmDriverExtra": 4}}]})json",
         "unknown key \"dmDriverExtra\" in printer \"devMode\""},
        {R"json({"drivers": [{"name": "D"}], "printers": [{"name": "P", "port": "LPT1:", "driver": "D",
            "devMode": {"dmFormName": 4}}]})json",
         "printer \"devMode\" \"dmFormName\" must be a string"},
        {R"json({"printers": [{"name": "P", "port": "LPT1:", "driver": "D", "devMode": {"dmCopies": 2}}]})json",
         "printer \"P\": no such driver is installed for this machine's environment"},
    };
    for (const auto& [text, message] : cases) {
        simhost::Host::get().reset();
        EXPECT_EQ(refusal(text), message) << text;
    }
}

TEST_F(SpoolerHostFile, ABadSddlIsRefusedWithTheSecurityComponentsReason) {
    std::string message = refusal(R"json({"drivers": [{"name": "D"}],
        "printers": [{"name": "P", "port": "LPT1:", "driver": "D", "sddl": "D:(A;;QQ;;;SY)"}]})json");
    EXPECT_EQ(message.rfind("printer \"sddl\": ", 0), 0u) << message;
}

TEST_F(SpoolerHostFile, FaultsFromAHostFileMakeCallsFail) {
    apply(R"json({"drivers": [{"name": "Acme LaserBox 2000"}],
              "faults": [{"call": "AddPrinterW", "error": 1797, "times": 1, "passing": 1},
                         {"call": "EnumPortsW", "delayMs": 1}]})json");
    PrinterRequest request;
    request.name = L"First";
    request.port = L"LPT1:";
    HANDLE first = addPrinter(request);
    EXPECT_NE(first, nullptr);
    request.name = L"Second";
    EXPECT_EQ(addPrinter(request), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_UNKNOWN_PRINTER_DRIVER));
    request.name = L"Third";
    HANDLE third = addPrinter(request);
    EXPECT_NE(third, nullptr);
    DWORD needed = 0, returned = 0;
    EnumPortsW(nullptr, 1, nullptr, 0, &needed, &returned);
    EXPECT_EQ(simhost::Host::get().faults().callCount("EnumPortsW"), 1u);
    ClosePrinter(first);
    ClosePrinter(third);
}

TEST_F(SpoolerHostFile, AHostFileThatBlocksACallHoldsItUntilReleased) {
    apply(R"json({"drivers": [{"name": "Acme LaserBox 2000"}],
              "faults": [{"call": "AddPrinterW", "block": true}]})json");
    PrinterRequest request;
    request.name = L"Held";
    request.port = L"LPT1:";
    std::thread adder([&] { ClosePrinter(addPrinter(request)); });
    auto& faults = simhost::Host::get().faults();
    for (int i = 0; i < 500 && faults.blockedCount("AddPrinterW") == 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(faults.blockedCount("AddPrinterW"), 1u);
    EXPECT_FALSE(simhost::winspool::findPrinter(L"Held"));
    faults.releaseCall("AddPrinterW");
    adder.join();
    EXPECT_TRUE(simhost::winspool::findPrinter(L"Held"));
}

TEST_F(SpoolerHostFile, ABadKeyEndsTheProgramWithStatus2AndTheKeyNamed) {
    std::string path = ::testing::TempDir() + "spooler_bad_host.json";
    std::ofstream(path) << R"json({"printers": [{"name": "P", "prot": "LPT1:"}]})json";
    EXPECT_EXIT(
        {
            setenv("VEXOR_SIM_HOST", path.c_str(), 1);
            simhost::prepareProcessFromEnvironment();
        },
        ::testing::ExitedWithCode(2), "simulated host: unknown key \"prot\" in a printer");
}
