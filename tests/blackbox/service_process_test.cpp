// The built programs as a user runs them: the service executable started on
// the demonstration host under the simulated control manager, vexorctl
// talking to it, SIGTERM stopping it, and the state and log files it leaves.
#include "ServiceProcessFixture.h"

#include <gtest/gtest.h>

#include <json/json.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace blackbox;

TEST_F(ServiceProcess, RunsUnderTheControlManagerAnswersAndStopsOnSigterm) {
    startService();
    ASSERT_TRUE(waitForLog("listen returned success")) << logText();

    ProgramResult reply = vexorctl("--raw '{\"msg\":\"hello\",\"_msgUniqueId\":5}'");
    EXPECT_EQ(reply.exitCode, 0);
    EXPECT_EQ(reply.output,
              "{\"_msgUniqueId\":5,\"err\":\"unknown msg verb. Don't know what you want me to do.\",\"status\":\"fail\"}\n");

    ProgramResult pretty = vexorctl("'{\"msg\":\"hello\"}'");
    EXPECT_EQ(pretty.exitCode, 0);
    EXPECT_NE(pretty.output.find("\"_msgUniqueId\" : 0"), std::string::npos) << pretty.output;

    EXPECT_EQ(stopService(), 0);

    Json::Value state;
    std::ifstream stateFile(statePath());
    Json::CharReaderBuilder builder;
    std::string errors;
    ASSERT_TRUE(Json::parseFromStream(builder, stateFile, &state, &errors)) << errors;
    std::vector<unsigned> states;
    for (const Json::Value& status : state["serviceStatusHistory"]) states.push_back(status["currentState"].asUInt());
    EXPECT_EQ(states, (std::vector<unsigned>{2, 4, 3, 1}));
    ASSERT_EQ(state["eventLog"].size(), 2u);
    EXPECT_EQ(state["eventLog"][0]["eventId"].asUInt(), 111u);
    EXPECT_EQ(state["eventLog"][1]["eventId"].asUInt(), 113u);
    EXPECT_EQ(state["eventLog"][0]["source"].asString(), "Vexor_PrintingService");

    std::string log = logText();
    EXPECT_NE(log.find("|VexorPrintingService::OnStart()|"), std::string::npos);
    EXPECT_NE(log.find("Done OnStop()"), std::string::npos);
    EXPECT_NE(log.find("Number of stale printers removed [1]."), std::string::npos);
    EXPECT_EQ(log.find("Destructor called but not stopped"), std::string::npos);
}

// The state file on request (SIGUSR1) shows the service's ports as they come
// and go: what an earlier run left is gone at the start; a port whose plugin
// listens survives vexorctl's departure, one whose plugin is gone is reaped;
// the stop clears the rest.
TEST_F(ServiceProcess, PortsComeAndGoInTheStateFileOnRequest) {
    hostAdditions_["listeners"].append("127.0.1.20:9101");
    hostAdditions_["listeners"].append("127.0.1.20:9103");
    startService();
    ASSERT_TRUE(waitForLog("listen returned success")) << logText();
    auto tcpPorts = [](const Json::Value& state) {
        std::vector<std::string> ports;
        for (const Json::Value& port : state["ports"])
            if (port["monitor"].asString() == "TCPMON.DLL")
                ports.push_back(port["name"].asString() + "->" + port["hostAddress"].asString() + ":" +
                                port["portNumber"].asString());
        return ports;
    };
    Json::Value started = requestState();
    EXPECT_TRUE(tcpPorts(started).empty());
    EXPECT_TRUE(started["printers"].empty()) << started["printers"].toStyledString();
    ASSERT_EQ(started["listeners"].size(), 2u);
    EXPECT_EQ(started["listeners"][0].asString(), "127.0.1.20:9101");
    EXPECT_EQ(started["listeners"][1].asString(), "127.0.1.20:9103");

    ProgramResult live = vexorctl(
        "--raw '{\"msg\":\"createPPort\",\"_msgUniqueId\":1,\"pPortName\":\"Vexor_127.0.1.20:9101\","
        "\"IP\":\"127.0.1.20\",\"port\":9101}'");
    EXPECT_EQ(live.output, "{\"_msgUniqueId\":1,\"status\":\"success\"}\n");
    ProgramResult gone = vexorctl(
        "--raw '{\"msg\":\"createPPort\",\"_msgUniqueId\":2,\"pPortName\":\"Vexor_127.0.1.20:9102\","
        "\"IP\":\"127.0.1.20\",\"port\":9102}'");
    EXPECT_EQ(gone.output, "{\"_msgUniqueId\":2,\"status\":\"success\"}\n");
    ASSERT_TRUE(waitForLog("Reaped abandoned Printer Port:Vexor_127.0.1.20:9102")) << logText();
    EXPECT_EQ(tcpPorts(requestState()), std::vector<std::string>{"Vexor_127.0.1.20:9101->127.0.1.20:9101"});

    EXPECT_EQ(stopService(), 0);
    EXPECT_TRUE(tcpPorts(readState()).empty());
    EXPECT_NE(logText().find("Reaped abandoned Printer Port:Vexor_127.0.1.20:9101"), std::string::npos);
}

// Two logon sessions of one user, each with a printer: vexorctl, speaking
// for the plugin of session 2, cannot remove session 3's printer, and
// removes its own with its jobs.
TEST_F(ServiceProcess, VexorctlRemovesOnlyItsOwnSessionsPrinter) {
    hostName_ = "two-sessions.json";
    startService();
    ASSERT_TRUE(waitForLog("listen returned success")) << logText();
    ProgramResult refused =
        vexorctl("--raw '{\"msg\":\"deletePrinter\",\"_msgUniqueId\":1,\"printerName\":\"Session 3 printer\"}'");
    EXPECT_EQ(refused.output, "{\"_msgUniqueId\":1,\"err\":\"Printer not owned by sender\",\"status\":\"fail\"}\n");
    ProgramResult removed =
        vexorctl("--raw '{\"msg\":\"deletePrinter\",\"_msgUniqueId\":2,\"printerName\":\"Session 2 printer\"}'");
    EXPECT_EQ(removed.output, "{\"_msgUniqueId\":2,\"status\":\"success\"}\n");
    EXPECT_EQ(stopService(), 0);

    Json::Value state = readState();
    std::vector<std::string> printers;
    for (const Json::Value& printer : state["printers"]) {
        printers.push_back(printer["pPrinterName"].asString());
        EXPECT_EQ(printer["jobs"].size(), 1u);
        EXPECT_NE(printer["securityDescriptor"].asString().find("S-1-5-5-0-1003"), std::string::npos);
    }
    EXPECT_EQ(printers, std::vector<std::string>{"Session 3 printer"});
    EXPECT_NE(logText().find("Refusing printer delete request based on sender"), std::string::npos);
}

TEST_F(ServiceProcess, StartedByHandPrintsTheDispatcherFailure) {
    fs::path handHost = root_ / "by-hand.json";
    std::ofstream(handHost) << "{ \"drives\": { \"C\": \"drive-c\" }, "
                               "\"directories\": [\"C:\\\\ProgramData\\\\Quillion\\\\VexorAgent\\\\logs\"] }";
    ProgramResult result =
        runCommand("VEXOR_SIM_HOST='" + handHost.string() + "' '" VEXOR_SERVICE_EXE "' -runFromCommandLine");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output, "Service failed to run w/err 0x00000427\n");
    EXPECT_NE(logText().find("Destructor called but not stopped"), std::string::npos);
}

TEST_F(ServiceProcess, InstallPrintsAndLeavesNoLog) {
    ProgramResult result = runCommand(environment() + " '" VEXOR_SERVICE_EXE "' /Install");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output, "Vexor_PrintingService is installed.\n");
    EXPECT_TRUE(logText().empty());
}

TEST_F(ServiceProcess, BadHostFileIsNamedAndEndsTheProgram) {
    fs::path badHost = root_ / "bad.json";
    std::ofstream(badHost) << "{ \"drivez\": {} }";
    ProgramResult result = runCommand("VEXOR_SIM_HOST='" + badHost.string() + "' '" VEXOR_SERVICE_EXE "' 2>&1");
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.output, "simulated host: unknown key \"drivez\" in the host file\n");
}

TEST_F(ServiceProcess, VexorctlSaysWhenNothingListens) {
    ProgramResult result = vexorctl("--port 5599 '{\"msg\":\"x\"}'");
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.output, "vexorctl: nothing listens on 127.0.3.1:5599\n");
}

TEST_F(ServiceProcess, VexorctlSaysWhenItCannotConnectFromTheAddressGiven) {
    ProgramResult result = vexorctl("--from 192.0.2.1 '{\"msg\":\"x\"}'");
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_EQ(result.output, "vexorctl: cannot connect from 192.0.2.1\n");
}

TEST_F(ServiceProcess, VexorctlRefusesTextThatIsNoJsonObject) {
    ProgramResult result = vexorctl("'[1,2]'");
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.output.find("vexorctl: not a JSON object"), std::string::npos);
    EXPECT_EQ(vexorctl("--timeout").exitCode, 1);
}

TEST_F(ServiceProcess, VexorctlGivesUpWhenNoReplyComes) {
    // A listener that never answers: the service with its worker held is
    // hard to arrange from outside, so a plain socket stands in for it.
    ProgramResult result = runCommand(
        "python3 -c \"import socket,subprocess,sys\n"
        "s=socket.socket(); s.bind(('127.0.0.1',0)); s.listen(1)\n"
        "p=subprocess.run(['" VEXORCTL_EXE "','--address','127.0.0.1','--port',str(s.getsockname()[1]),"
        "'--timeout','300','{\\\"msg\\\":\\\"x\\\"}'],capture_output=True,text=True)\n"
        "sys.stdout.write(p.stderr); sys.exit(p.returncode)\"");
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.output, "vexorctl: no reply within 300 ms\n");
}

}  // namespace
