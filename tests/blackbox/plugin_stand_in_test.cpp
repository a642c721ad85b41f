// vexor-plugin beside a running service, as a plugin author uses it: it gets
// its printer, tells the driver and why, receives what is printed to the
// printer through the host's control socket, and when it leaves its
// printer and port are reaped. Each example printer description gets the
// driver its notes promise.
#include "ServiceProcessFixture.h"

#include <gtest/gtest.h>

#include <json/json.h>

#include <signal.h>

#include <memory>
#include <sstream>

#include <string>
#include <vector>

namespace {

using namespace blackbox;
using testsupport::BackgroundProgram;

constexpr const char* kWindowsPrinter = "Office LaserBox (Local)";

class PluginStandIn : public ServiceProcess {
protected:
    void SetUp() override {
        ServiceProcess::SetUp();
        startService();
        ASSERT_TRUE(waitForLog("listen returned success")) << logText();
    }

    static std::string example(const std::string& name) {
        return "'" + std::string(VEXOR_SOURCE_DIR) + "/examples/printers/" + name + "'";
    }

    // vexor-plugin in the background, its output in <name>.log.
    std::unique_ptr<BackgroundProgram> startPlugin(const std::string& name, const std::string& arguments) {
        return std::make_unique<BackgroundProgram>(environment() + " '" VEXOR_PLUGIN_EXE "' " + arguments,
                                                   root_ / (name + ".log"));
    }

    ProgramResult plugin(const std::string& arguments) const {
        return runCommand(environment() + " '" VEXOR_PLUGIN_EXE "' " + arguments + " </dev/null 2>&1");
    }

    // The port the plugin asked for, as its output tells it.
    static std::string portOf(const std::string& output) {
        const std::string marker = "on port ";
        size_t at = output.find(marker);
        if (at == std::string::npos) return {};
        at += marker.size();
        return output.substr(at, output.find('\n', at) - at);
    }

    std::vector<std::string> printersNow() const {
        std::vector<std::string> names;
        const Json::Value state = requestState();
        for (const Json::Value& printer : state["printers"]) names.push_back(printer["pPrinterName"].asString());
        return names;
    }

    bool portExists(const std::string& name) const {
        const Json::Value state = requestState();
        for (const Json::Value& port : state["ports"])
            if (port["name"].asString() == name) return true;
        return false;
    }
};

TEST_F(PluginStandIn, GetsItsPrinterReceivesWhatIsPrintedAndIsReapedWhenItLeaves) {
    fs::create_directories(root_ / "jobs");
    auto windows = startPlugin("windows", example("windows-hwid.json") + " --from 127.0.2.2 --save '" +
                                              (root_ / "jobs").string() + "'");
    ASSERT_TRUE(windows->waitForOutput("waiting for 1 document")) << windows->output();
    const std::string output = windows->output();
    EXPECT_NE(output.find("Printer:     Office LaserBox (Local)\n"
                          "Driver:      Acme LaserBox 2000 (PS)\n"
                          "Chosen by:   step 3: the client's hardware id\n"
                          "Matched id:  USBPRINT\\AcmeLaserBox_2000PS5A1C (bus part compared)\n"
                          "Installed:   now, from the host's driver store\n"),
              std::string::npos)
        << output;
    const std::string port = portOf(output);
    ASSERT_EQ(port.rfind("Vexor_127.0.1.20:", 0), 0u) << output;
    Json::Value state = requestState();
    ASSERT_EQ(state["printers"].size(), 1u);
    EXPECT_EQ(state["printers"][0]["pPrinterName"].asString(), kWindowsPrinter);
    EXPECT_EQ(state["printers"][0]["pPortName"].asString(), port);
    EXPECT_NE(state["printers"][0]["securityDescriptor"].asString().find("S-1-5-5-0-1002"), std::string::npos);

    const std::string document = "%!PS\n(a page) show showpage\n";
    const std::string size = std::to_string(document.size());
    std::ofstream(root_ / "page.ps") << document;
    ProgramResult printed = plugin(std::string("print --printer '") + kWindowsPrinter + "' '" +
                                   (root_ / "page.ps").string() + "'");
    EXPECT_EQ(printed.exitCode, 0) << printed.output;
    EXPECT_NE(printed.output.find("(" + size + " bytes) on \"Office LaserBox (Local)\" as job "), std::string::npos)
        << printed.output;
    EXPECT_NE(printed.output.find("the spooler sent it to 127.0.1.20:" + port.substr(17)), std::string::npos);

    // One document was asked for: the plugin leaves by itself once it came.
    EXPECT_EQ(windows->waitForExit(), 0) << windows->output();
    const std::string saved = "job-" + port.substr(17) + "-1.prn";
    EXPECT_EQ(readFile(root_ / "jobs" / saved), document);
    EXPECT_NE(windows->output().find("Received:    document 1, " + size + " bytes, saved to "), std::string::npos);
    EXPECT_NE(windows->output().find("vexor-plugin: all documents received: listener and connection closed\n"
                                     "vexor-plugin: the service now reaps printer \"Office LaserBox (Local)\" and "
                                     "its port\n"),
              std::string::npos)
        << windows->output();
    ASSERT_TRUE(waitForLog("Reaped abandoned Printer Port:" + port)) << logText();
    EXPECT_TRUE(printersNow().empty());
    EXPECT_FALSE(portExists(port));
}

TEST_F(PluginStandIn, CtrlCLeavesAndTheServiceReapsThePrinter) {
    auto windows = startPlugin("windows", example("windows-hwid.json") + " --from 127.0.2.2 --keep");
    ASSERT_TRUE(windows->waitForOutput("waiting for documents; Ctrl-C to leave")) << windows->output();
    const std::string port = portOf(windows->output());
    windows->signal(SIGINT);
    EXPECT_EQ(windows->waitForExit(), 0);
    EXPECT_NE(windows->output().find("vexor-plugin: asked to leave: listener and connection closed\n"),
              std::string::npos);
    ASSERT_TRUE(waitForLog("Reaped abandoned Printer Port:" + port)) << logText();
    EXPECT_TRUE(printersNow().empty());
}

TEST_F(PluginStandIn, AnotherSessionCannotRemoveThePrinterAndAKeptPluginLeavesWithTheService) {
    auto windows = startPlugin("windows", example("windows-hwid.json") + " --from 127.0.2.2 --keep");
    ASSERT_TRUE(windows->waitForOutput("waiting for documents")) << windows->output();
    ProgramResult refused = runCommand(environment() + " '" VEXORCTL_EXE "' --raw --from 127.0.2.3 " +
                                       "'{\"msg\":\"deletePrinter\",\"_msgUniqueId\":4,\"printerName\":\"" +
                                       kWindowsPrinter + "\"}'");
    EXPECT_EQ(refused.output, "{\"_msgUniqueId\":4,\"err\":\"Printer not owned by sender\",\"status\":\"fail\"}\n");
    EXPECT_EQ(printersNow(), std::vector<std::string>{kWindowsPrinter});
    EXPECT_EQ(stopService(), 0);
    EXPECT_EQ(windows->waitForExit(), 0);
    EXPECT_NE(windows->output().find("vexor-plugin: the service closed the connection: listener and connection "
                                     "closed\n"),
              std::string::npos)
        << windows->output();
    EXPECT_TRUE(readState()["printers"].empty());
}

struct ExampleCase {
    const char* file;
    const char* from;
    const char* printer;
    const char* driver;
    const char* step;
};

TEST_F(PluginStandIn, EachExampleDescriptionGetsItsDriver) {
    const ExampleCase cases[] = {
        {"windows-hwid.json", "127.0.2.2", "Office LaserBox (Local)", "Acme LaserBox 2000 (PS)",
         "step 3: the client's hardware id"},
        {"windows-basic.json", "127.0.2.2", "Front Desk (Local)", "Quillion Client Render XPS",
         "step 10: the fallback driver"},
        {"mac-device-id.json", "127.0.2.3", "Mac PageWriter (Local)", "Brightline PageWriter 7",
         "step 3: the checksummed id of the client's device id"},
        {"override-settings.json", "127.0.2.2", "Lobby colour (Local)", "Acme InkJet 300 Series",
         "step 2: the driver the client asked for by name"},
    };
    for (const ExampleCase& example : cases) {
        SCOPED_TRACE(example.file);
        auto run = startPlugin(example.file, PluginStandIn::example(example.file) + " --from " + example.from +
                                              " --documents 0");
        ASSERT_TRUE(run->waitForOutput("waiting for documents")) << run->output();
        EXPECT_NE(run->output().find(std::string("Printer:     ") + example.printer + "\nDriver:      " +
                                     example.driver + "\nChosen by:   " + example.step + "\n"),
                  std::string::npos)
            << run->output();
        Json::Value state = requestState();
        ASSERT_EQ(state["printers"].size(), 1u);
        EXPECT_EQ(state["printers"][0]["pPrinterName"].asString(), example.printer);
        EXPECT_EQ(state["printers"][0]["pDriverName"].asString(), example.driver);
        run->signal(SIGINT);
        EXPECT_EQ(run->waitForExit(), 0);
        ASSERT_TRUE(waitForLog("Reaped abandoned Printer Port:" + portOf(run->output()))) << logText();
    }
}

TEST_F(PluginStandIn, JsonOutputIsTheReplyAndOneLinePerEvent) {
    auto run = startPlugin("json", example("windows-basic.json") + " --from 127.0.2.2 --json --documents 1 --save '" +
                                       root_.string() + "'");
    ASSERT_TRUE(run->waitForOutput("\"status\":\"success\"")) << run->output();
    ProgramResult printed = plugin("print --json --printer 'Front Desk (Local)' --document memo -");
    EXPECT_EQ(printed.exitCode, 0) << printed.output;
    EXPECT_EQ(printed.output.rfind("{\"bytes\":0,\"job\":", 0), 0u) << printed.output;
    EXPECT_EQ(run->waitForExit(), 0);
    std::vector<std::string> lines;
    std::istringstream output(run->output());
    for (std::string line; std::getline(output, line);) lines.push_back(line);
    ASSERT_EQ(lines.size(), 3u) << run->output();
    EXPECT_EQ(lines[0].rfind("{\"_msgUniqueId\":1,\"detail\":{", 0), 0u) << lines[0];
    EXPECT_EQ(lines[1].rfind("{\"bytes\":0,\"document\":1,\"savedTo\":\"" + root_.string() + "/job-", 0), 0u)
        << lines[1];
    EXPECT_EQ(lines[2], "{\"left\":\"all documents received\"}");
}

TEST_F(PluginStandIn, RefusalsAndMistakesAreToldWithTheirExitStatus) {
    // A Mac client that does not render on the host gets the fallback for
    // Macs, which this host lacks.
    std::ofstream(root_ / "mac.json") << R"J({"printerName":"Old Mac (Local)","OS":"OSX","clientPCName":"iMac"})J";
    ProgramResult refused = plugin("'" + (root_ / "mac.json").string() + "' --from 127.0.2.3");
    EXPECT_EQ(refused.exitCode, 1) << refused.output;
    EXPECT_NE(refused.output.find("Printer:     Old Mac (Local) (not created)\nRefused:     "), std::string::npos)
        << refused.output;

    std::ofstream(root_ / "own-port.json") << R"J({"printerName":"P (Local)","IP":"127.0.0.9"})J";
    ProgramResult ownKey = plugin("'" + (root_ / "own-port.json").string() + "'");
    EXPECT_EQ(ownKey.exitCode, 2);
    EXPECT_NE(ownKey.output.find("vexor-plugin: the description sets \"IP\", which the plugin stand-in sets itself"),
              std::string::npos)
        << ownKey.output;

    std::ofstream(root_ / "unreaped.json") << R"({"printerName":"Desk","OS":"Windows","driverName":"X","ClientRenderSupported":["XPS"]})";
    auto unreaped = startPlugin("unreaped", "'" + (root_ / "unreaped.json").string() + "' --documents 0");
    ASSERT_TRUE(unreaped->waitForOutput("waiting for documents")) << unreaped->output();
    EXPECT_NE(unreaped->output().find("vexor-plugin: note: the service reaps only printers with \"Local\" in their "
                                      "name; this one will stay when the plugin leaves"),
              std::string::npos);
    unreaped->signal(SIGTERM);
    EXPECT_EQ(unreaped->waitForExit(), 0);

    ProgramResult nobody = plugin("print --printer 'Nobody' -");
    EXPECT_EQ(nobody.exitCode, 1);
    EXPECT_EQ(nobody.output, "vexor-plugin: the simulated host did not print: no printer \"Nobody\"\n");
    ProgramResult noHost = runCommand("'" VEXOR_PLUGIN_EXE "' print --control '" + (root_ / "none.sock").string() +
                                      "' --printer P - </dev/null 2>&1");
    EXPECT_EQ(noHost.exitCode, 3);
    EXPECT_NE(noHost.output.find("no simulated host serves a control socket at "), std::string::npos);
    ProgramResult usage = runCommand("env -u VEXOR_SIM_CONTROL '" VEXOR_PLUGIN_EXE "' print --printer P - 2>&1");
    EXPECT_EQ(usage.exitCode, 2);
    EXPECT_EQ(usage.output.rfind("vexor-plugin: no control socket: give --control PATH or set VEXOR_SIM_CONTROL\n", 0),
              0u)
        << usage.output;
    EXPECT_EQ(plugin("--documents x a.json").exitCode, 2);
}

}  // namespace
