#include "service/ServiceEntry.h"
#include "service/VexorPrintingService.h"
#include "simhost/advapi32/advapi32.h"
#include "simhost/core/host.h"
#include "simhost/kernel32/module.h"
#include "simhost/kernel32/objects.h"
#include "simhost/kernel32/threads.h"
#include "support/LogCapture.h"
#include "support/ServiceTestAccess.h"
#include "support/TestClient.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

using simhost::advapi32::EventLogEntry;
using testsupport::LogCapture;
using testsupport::PortSquatter;

namespace {

const std::wstring kName = L"Vexor_PrintingService";

std::string narrowText(const std::wstring& text) { return std::string(text.begin(), text.end()); }

// Runs the entry point with these arguments (the program name is added).
int callEntry(std::vector<std::wstring> arguments) {
    arguments.insert(arguments.begin(), L"VexorPrintingService.exe");
    std::vector<wchar_t*> pointers;
    for (std::wstring& argument : arguments) pointers.push_back(&argument[0]);
    pointers.push_back(nullptr);
    return serviceEntry(static_cast<int>(arguments.size()), pointers.data());
}

// The same, answering what it printed.
std::string runEntry(std::vector<std::wstring> arguments) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(callEntry(arguments), 0);
    return testing::internal::GetCapturedStdout();
}

std::vector<DWORD> statesReported() {
    std::vector<DWORD> states;
    for (const SERVICE_STATUS& status : simhost::advapi32::serviceStatusHistory()) states.push_back(status.dwCurrentState);
    return states;
}

bool waitForState(DWORD state, int timeoutMs = 10000) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (std::chrono::steady_clock::now() < deadline) {
        for (DWORD reported : statesReported())
            if (reported == state) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
}

class ServiceEntry : public ::testing::Test {
protected:
    LogCapture log_{false};
};

TEST_F(ServiceEntry, InstallRegistersTheServiceWithEveryValue) {
    EXPECT_EQ(runEntry({L"-install"}), "Vexor_PrintingService is installed.\n");
    auto registration = simhost::advapi32::serviceRegistration(kName);
    ASSERT_TRUE(registration.has_value());
    EXPECT_EQ(registration->displayName.value_or(L"?"), L"Vexor_Printing");
    EXPECT_EQ(registration->desiredAccess, static_cast<DWORD>(SERVICE_QUERY_STATUS));
    EXPECT_EQ(registration->serviceType, static_cast<DWORD>(SERVICE_WIN32_OWN_PROCESS));
    EXPECT_EQ(registration->startType, static_cast<DWORD>(SERVICE_DEMAND_START));
    EXPECT_EQ(registration->errorControl, static_cast<DWORD>(SERVICE_ERROR_NORMAL));
    EXPECT_EQ(registration->binaryPathName, simhost::kernel32::moduleFileName());
    EXPECT_FALSE(registration->loadOrderGroup.has_value());
    EXPECT_FALSE(registration->tagRequested);
    ASSERT_TRUE(registration->dependencies.has_value());
    EXPECT_TRUE(registration->dependencies->empty());
    EXPECT_EQ(registration->serviceStartName.value_or(L"?"), L"NT AUTHORITY\\LocalSystem");
    EXPECT_FALSE(registration->password.has_value());
    EXPECT_EQ(simhost::advapi32::openServiceHandleCount(), 0u);
    // Installation leaves no log: the service object is never built.
    EXPECT_TRUE(log_.logFiles().empty());
}

TEST_F(ServiceEntry, SwitchesAreCaseInsensitiveAndTakeASlash) {
    EXPECT_EQ(runEntry({L"/INSTALL"}), "Vexor_PrintingService is installed.\n");
    EXPECT_EQ(runEntry({L"/remove"}), "Vexor_PrintingService is removed.\n");
    EXPECT_EQ(runEntry({L"-Install"}), "Vexor_PrintingService is installed.\n");
    EXPECT_EQ(runEntry({L"-REMOVE"}), "Vexor_PrintingService is removed.\n");
}

TEST_F(ServiceEntry, InstallTwicePrintsTheCreateServiceError) {
    runEntry({L"-install"});
    EXPECT_EQ(runEntry({L"-install"}), "CreateService failed w/err 0x00000431\n");
}

TEST_F(ServiceEntry, InstallFailuresArePrinted) {
    simhost::Host::get().faults().failCall("GetModuleFileNameW", ERROR_ACCESS_DENIED, 1);
    EXPECT_EQ(runEntry({L"-install"}), "GetModuleFileName failed w/err 0x00000005\n");
    simhost::Host::get().faults().failCall("OpenSCManagerW", ERROR_ACCESS_DENIED, 1);
    EXPECT_EQ(runEntry({L"-install"}), "OpenSCManager failed w/err 0x00000005\n");
    EXPECT_FALSE(simhost::advapi32::serviceRegistration(kName).has_value());
}

TEST_F(ServiceEntry, RemoveOfAServiceThatDoesNotRunDeletesIt) {
    runEntry({L"-install"});
    EXPECT_EQ(runEntry({L"-remove"}), "Vexor_PrintingService is removed.\n");
    EXPECT_FALSE(simhost::advapi32::serviceRegistration(kName).has_value());
    EXPECT_EQ(simhost::advapi32::openServiceHandleCount(), 0u);
}

TEST_F(ServiceEntry, RemoveOfAServiceThatIsNotInstalled) {
    EXPECT_EQ(runEntry({L"-remove"}), "OpenService failed w/err 0x00000424\n");
    simhost::Host::get().faults().failCall("OpenSCManagerW", ERROR_ACCESS_DENIED, 1);
    EXPECT_EQ(runEntry({L"-remove"}), "OpenSCManager failed w/err 0x00000005\n");
}

TEST_F(ServiceEntry, StartedByHandTheDispatcherFailsAndTheObjectWasNotStopped) {
    EXPECT_EQ(runEntry({}), "Service failed to run w/err 0x00000427\n");
    EXPECT_TRUE(log_.contains("Service version:25.6.0.51414, Short Hash = 57230ca0d"));
    std::vector<testsupport::LogLine> lines = log_.find("Destructor called but not stopped");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, 6u);
    EXPECT_EQ(lines[0].channel, static_cast<int>(kLogError));
}

TEST_F(ServiceEntry, UnknownSwitchPrintsUsageThenTriesToRun) {
    EXPECT_EQ(runEntry({L"-foo"}),
              "Parameters:\n -install to install the service.\n -remove  to remove the service.\n"
              "Service failed to run w/err 0x00000427\n");
}

TEST_F(ServiceEntry, ArgumentWithoutSwitchCharacterIsIgnored) {
    EXPECT_EQ(runEntry({L"install"}), "Service failed to run w/err 0x00000427\n");
    EXPECT_FALSE(simhost::advapi32::serviceRegistration(kName).has_value());
}

TEST_F(ServiceEntry, RunFromCommandLineBehavesAsNoArgument) {
    EXPECT_EQ(runEntry({L"-runFromCommandLine"}), "Service failed to run w/err 0x00000427\n");
    EXPECT_EQ(runEntry({L"/RUNFROMCOMMANDLINE"}), "Service failed to run w/err 0x00000427\n");
}

// The service run by the simulated control manager on a thread of the test.
class DispatchedService : public ::testing::Test {
protected:
    void SetUp() override {
        simhost::advapi32::setStartedByControlManager(true);
        simhost::Host::get().setTimeScale(0.01);
    }
    void TearDown() override {
        if (runner_.joinable()) {
            simhost::advapi32::deliverControl(SERVICE_CONTROL_STOP);
            runner_.join();
        }
        simhost::waitForIdleWorkItems(10000);
    }
    void run(std::vector<std::wstring> arguments = {}) {
        runner_ = std::thread([this, arguments] { result_ = callEntry(arguments); });
    }
    void stopAndWait() {
        ASSERT_TRUE(simhost::advapi32::deliverControl(SERVICE_CONTROL_STOP));
        runner_.join();
    }
    std::vector<EventLogEntry> events() { return simhost::advapi32::eventLogEntries(); }

    LogCapture log_{false};
    std::thread runner_;
    int result_ = -1;
};

TEST_F(DispatchedService, StartAndStopReportEveryStateAndWriteTheirEvents) {
    run();
    ASSERT_TRUE(waitForState(SERVICE_RUNNING));
    ASSERT_TRUE(log_.waitFor("listen returned success"));
    stopAndWait();
    EXPECT_EQ(result_, 0);
    EXPECT_EQ(statesReported(), (std::vector<DWORD>{SERVICE_START_PENDING, SERVICE_RUNNING, SERVICE_STOP_PENDING,
                                                    SERVICE_STOPPED}));
    std::vector<SERVICE_STATUS> history = simhost::advapi32::serviceStatusHistory();
    EXPECT_EQ(history[1].dwCheckPoint, 0u);
    EXPECT_EQ(history[3].dwCheckPoint, 0u);
    EXPECT_GT(history[0].dwCheckPoint, 0u);
    EXPECT_EQ(history[2].dwCheckPoint, history[0].dwCheckPoint + 1);
    for (const SERVICE_STATUS& status : history) {
        EXPECT_EQ(status.dwServiceType, static_cast<DWORD>(SERVICE_WIN32_OWN_PROCESS));
        EXPECT_EQ(status.dwControlsAccepted, 5u);
        EXPECT_EQ(status.dwWaitHint, 0u);
        EXPECT_EQ(status.dwWin32ExitCode, 0u);
    }
    std::vector<EventLogEntry> written = events();
    ASSERT_EQ(written.size(), 2u);
    EXPECT_EQ(written[0].source, kName);
    EXPECT_EQ(written[0].eventId, 111u);
    EXPECT_EQ(written[0].type, EVENTLOG_SUCCESS);
    EXPECT_EQ(written[0].category, 0);
    EXPECT_EQ(written[0].strings[0], kName);
    EXPECT_EQ(written[1].eventId, 113u);
    EXPECT_EQ(written[1].type, EVENTLOG_SUCCESS);
    // A successful event carries the thread's last error when it is not 0.
    for (const EventLogEntry& entry : written) {
        ASSERT_GE(entry.strings.size(), 1u);
        ASSERT_LE(entry.strings.size(), 2u);
        if (entry.strings.size() == 2) {
            EXPECT_NE(entry.strings[1], L"0");
        }
    }
    EXPECT_TRUE(log_.contains("Done OnStop()"));
}

TEST_F(DispatchedService, StopThatOutlastsTenSecondsIsReportedAsFailedAndRunningAgain) {
    PortSquatter squatter;
    ASSERT_TRUE(squatter.bound());
    simhost::Host::get().faults().blockCall("Sleep");
    run();
    ASSERT_TRUE(waitForState(SERVICE_RUNNING));
    ASSERT_TRUE(simhost::Host::get().faults().waitUntilBlocked("Sleep"));
    log_.recordChannels();  // the service's constructor has set its own thresholds
    SetLastError(0);
    ASSERT_TRUE(simhost::advapi32::deliverControl(SERVICE_CONTROL_STOP));
    EXPECT_EQ(statesReported(), (std::vector<DWORD>{SERVICE_START_PENDING, SERVICE_RUNNING, SERVICE_STOP_PENDING,
                                                    SERVICE_RUNNING}));
    std::vector<EventLogEntry> written = events();
    ASSERT_EQ(written.size(), 2u);
    EXPECT_EQ(written[1].eventId, 0xC0000072u);
    EXPECT_EQ(written[1].type, EVENTLOG_ERROR_TYPE);
    EXPECT_EQ(written[1].strings[0], kName);
    EXPECT_TRUE(log_.waitUntil([](const testsupport::LogLine& line) {
        return line.message.rfind("failed on wait for stop Err:", 0) == 0 && line.level == 4 &&
               line.channel == static_cast<int>(kLogError);
    }));
    // Released, the worker ends and a second stop succeeds.
    simhost::Host::get().faults().releaseCall("Sleep");
    squatter.release();
    stopAndWait();
    EXPECT_EQ(statesReported().back(), static_cast<DWORD>(SERVICE_STOPPED));
}

TEST_F(DispatchedService, ShutdownStopsTheCleanupThreadAndReportsStopped) {
    run();
    ASSERT_TRUE(waitForState(SERVICE_RUNNING));
    auto* service = static_cast<VexorPrintingService*>(theService);
    ASSERT_TRUE(simhost::waitUntilWaiting(ServiceTestAccess::cleanupWakeEvent(*service)));
    // After a shutdown the dispatcher returns and the entry point destroys
    // the object, while the worker and socket threads go on until the
    // process ends. Here the process goes on, so the destruction is held at
    // its first CloseHandle until the test has stopped those threads.
    simhost::Host::get().faults().blockCall("CloseHandle");
    ASSERT_TRUE(simhost::advapi32::deliverControl(SERVICE_CONTROL_SHUTDOWN));
    ASSERT_TRUE(simhost::Host::get().faults().waitUntilBlocked("CloseHandle"));
    EXPECT_EQ(statesReported(), (std::vector<DWORD>{SERVICE_START_PENDING, SERVICE_RUNNING, SERVICE_STOPPED}));
    EXPECT_EQ(events().back().eventId, 113u);
    EXPECT_TRUE(log_.contains("Done OnShutdown()"));
    EXPECT_TRUE(log_.contains("Printer clean up thread received wake up event."));
    EXPECT_FALSE(log_.contains("worker thread stopped"));
    EXPECT_TRUE(log_.contains("Destructor called but not stopped"));
    service->OnStop();
    simhost::waitForIdleWorkItems(10000);
    simhost::Host::get().faults().releaseCall("CloseHandle");
    runner_.join();
}

TEST_F(DispatchedService, FailedShutdownWritesItsEventLogsAndLeavesTheStatus) {
    PortSquatter squatter;
    ASSERT_TRUE(squatter.bound());
    simhost::Host::get().faults().blockCall("Sleep");
    run();
    ASSERT_TRUE(waitForState(SERVICE_RUNNING));
    ASSERT_TRUE(simhost::Host::get().faults().waitUntilBlocked("Sleep"));
    log_.recordChannels();  // the service's constructor has set its own thresholds
    ASSERT_TRUE(simhost::advapi32::deliverControl(SERVICE_CONTROL_SHUTDOWN));
    EXPECT_EQ(statesReported(), (std::vector<DWORD>{SERVICE_START_PENDING, SERVICE_RUNNING}));
    EXPECT_EQ(events().back().eventId, 0xC0000072u);
    // The error thrown is the dispatcher thread's last error, as is the one appended.
    std::string thrown = std::to_string(events().back().strings.size() == 2 ? std::stoul(narrowText(events().back().strings[1])) : 0);
    EXPECT_TRUE(log_.waitUntil([&](const testsupport::LogLine& line) {
        return line.message.rfind("Service Shutdown Error:" + thrown + " Err:", 0) == 0 && line.level == 4 &&
               line.function == "CServiceBase::Shutdown" && line.channel == static_cast<int>(kLogError);
    })) << log_.contents();
    squatter.release();
    simhost::Host::get().faults().releaseCall("Sleep");
    // Stopped only once it serves: a stop while the worker is still between
    // its retries would race the stop's own limit (100 ms at this scale).
    ASSERT_TRUE(log_.waitFor("listen returned success"));
    stopAndWait();
}

TEST_F(DispatchedService, InterrogateAndUnknownControlsDoNothing) {
    run();
    ASSERT_TRUE(waitForState(SERVICE_RUNNING));
    size_t reported = statesReported().size();
    simhost::advapi32::deliverControl(SERVICE_CONTROL_INTERROGATE);
    simhost::advapi32::deliverControl(200);
    EXPECT_EQ(statesReported().size(), reported);
    stopAndWait();
}

TEST_F(DispatchedService, PauseAndContinueRunTheirTransitions) {
    run();
    ASSERT_TRUE(waitForState(SERVICE_RUNNING));
    simhost::advapi32::deliverControl(SERVICE_CONTROL_PAUSE);
    simhost::advapi32::deliverControl(SERVICE_CONTROL_CONTINUE);
    EXPECT_EQ(statesReported(), (std::vector<DWORD>{SERVICE_START_PENDING, SERVICE_RUNNING, SERVICE_PAUSE_PENDING,
                                                    SERVICE_PAUSED, SERVICE_CONTINUE_PENDING, SERVICE_RUNNING}));
    std::vector<EventLogEntry> written = events();
    ASSERT_EQ(written.size(), 3u);
    EXPECT_EQ(written[1].eventId, 115u);
    EXPECT_EQ(written[2].eventId, 117u);
    stopAndWait();
}

TEST_F(DispatchedService, StartFailureReportsStoppedWithTheThrownError) {
    simhost::Host::get().faults().failCall("QueueUserWorkItem", ERROR_NOT_ENOUGH_MEMORY, 1);
    run();
    runner_.join();
    std::vector<SERVICE_STATUS> history = simhost::advapi32::serviceStatusHistory();
    ASSERT_EQ(history.size(), 2u);
    EXPECT_EQ(history[1].dwCurrentState, static_cast<DWORD>(SERVICE_STOPPED));
    EXPECT_EQ(history[1].dwWin32ExitCode, static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    std::vector<EventLogEntry> written = events();
    ASSERT_EQ(written.size(), 1u);
    EXPECT_EQ(written[0].eventId, 0xC0000070u);
    EXPECT_EQ(written[0].strings, (std::vector<std::wstring>{kName, L"8"}));
}

}  // namespace

#include <regex>

namespace {

TEST_F(DispatchedService, RemoveStopsARunningServiceWaitsAndDeletesIt) {
    runEntry({L"-install"});
    run();
    ASSERT_TRUE(waitForState(SERVICE_RUNNING));
    ASSERT_TRUE(log_.waitFor("listen returned success"));
    std::string printed = runEntry({L"-remove"});
    EXPECT_TRUE(std::regex_match(printed, std::regex("Stopping Vexor_PrintingService\\.\\.*\n"
                                                     "Vexor_PrintingService is stopped\\.\n"
                                                     "Vexor_PrintingService is removed\\.\n")))
        << printed;
    runner_.join();
    EXPECT_FALSE(simhost::advapi32::serviceRegistration(kName).has_value());
    EXPECT_EQ(statesReported().back(), static_cast<DWORD>(SERVICE_STOPPED));
}

}  // namespace
