#include "simhost/core/host.h"
#include "simhost/kernel32/objects.h"
#include "simhost/kernel32/threads.h"
#include "simhost/ws2_32/winsock.h"
#include "support/SenderAdmission.h"
#include "support/ServiceHarness.h"
#include "support/ServiceTestAccess.h"
#include "support/TestClient.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using testsupport::LogCapture;
using testsupport::LogLine;
using testsupport::PortSquatter;
using testsupport::ServiceHarness;
using testsupport::TestClient;

namespace {

// A line's time stamp as milliseconds of its day.
long millisecondOfDay(const LogLine& line) {
    int hours = 0, minutes = 0, seconds = 0, millis = 0;
    std::sscanf(line.timeStamp.c_str() + 11, "%d:%d:%d.%d", &hours, &minutes, &seconds, &millis);
    return ((hours * 60L + minutes) * 60L + seconds) * 1000L + millis;
}

// How long a call took, in real milliseconds.
template <class Call>
long elapsedMs(Call call) {
    auto started = std::chrono::steady_clock::now();
    call();
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started).count());
}

// A limit of the service, scaled, waited out in full and not much longer; the
// upper bound allows for a busy machine.
void expectWaitedOut(long elapsed, long scaledLimitMs) {
    EXPECT_GE(elapsed, scaledLimitMs - 1);
    EXPECT_LT(elapsed, scaledLimitMs + 3000);
}

size_t indexOf(const std::vector<std::string>& messages, const std::string& text) {
    for (size_t i = 0; i < messages.size(); ++i)
        if (messages[i] == text) return i;
    return messages.size();
}

TEST(ServiceLifecycle, ConstructorOpensTheLogAndWritesTheVersion) {
    ServiceHarness harness(0.01);
    std::vector<LogLine> lines = harness.log().lines();
    ASSERT_GE(lines.size(), 1u);
    EXPECT_EQ(lines[0].message, "Service version:25.6.0.51414, Short Hash = 57230ca0d");
    EXPECT_EQ(lines[0].level, 4u);
    EXPECT_EQ(harness.log().find("worker thread stopped").size(), 0u);
    EXPECT_EQ(lines[0].function, "VexorPrintingService::VexorPrintingService");
    harness.stop();
}

TEST(ServiceLifecycle, StartServesAndStopEndsEveryThreadInOrder) {
    ServiceHarness harness;
    testsupport::admitLoopbackClientsAs(testsupport::kLoaderPid);
    harness.start();
    TestClient client;
    ASSERT_TRUE(client.connect());
    ASSERT_TRUE(client.send(std::string("{\"msg\":\"x\",\"_msgUniqueId\":1}") + '\0'));
    EXPECT_FALSE(client.receiveReply().empty());
    // The stop wakes the cleanup thread only once it waits between passes.
    ASSERT_TRUE(simhost::waitUntilWaiting(ServiceTestAccess::cleanupWakeEvent(harness.service())));
    ASSERT_TRUE(harness.stop());
    std::vector<std::string> messages = harness.log().messages();
    size_t start = indexOf(messages, "Vexor_PrintingService in OnStart");
    size_t worker = indexOf(messages, "Service Worker thread started and it is me.");
    size_t listening = indexOf(messages, "listen returned success");
    size_t socketThread = indexOf(messages, "Socket reading thread started and it is me.");
    size_t onStop = indexOf(messages, "Vexor_PrintingService in OnStop()");
    size_t stopped = indexOf(messages, "worker thread stopped");
    size_t wake = indexOf(messages, "Printer clean up thread received wake up event.");
    size_t done = indexOf(messages, "Done OnStop()");
    EXPECT_LT(start, worker);
    EXPECT_LT(worker, listening);
    EXPECT_LT(listening, socketThread);
    EXPECT_LT(socketThread, onStop);
    EXPECT_LT(onStop, stopped);
    EXPECT_LT(stopped, wake);
    EXPECT_LT(wake, done);
    EXPECT_LT(done, messages.size());
    EXPECT_EQ(harness.log().find("Done OnStop()")[0].channel, static_cast<int>(kLogNormal));
    EXPECT_EQ(harness.log().find("Done OnStop()")[0].level, 3u);
    EXPECT_TRUE(harness.waitForThreadsToEnd());
    EXPECT_TRUE(harness.log().contains("Printer cleanup thread exiting."));
    // The listening socket is closed: nothing answers any more.
    TestClient late;
    EXPECT_FALSE(late.connect(200));
}

TEST(ServiceLifecycle, SocketCreationIsRetriedEveryFiveSeconds) {
    PortSquatter squatter;
    ASSERT_TRUE(squatter.bound());
    ServiceHarness harness(0.01);
    testsupport::admitLoopbackClientsAs(testsupport::kLoaderPid);
    harness.startWithoutWaiting();
    ASSERT_TRUE(harness.log().waitFor("bind cmd socket failed with error 10048 on 127.0.3.1", 5000, 3));
    std::vector<LogLine> failures = harness.log().find("bind cmd socket failed with error 10048 on 127.0.3.1");
    EXPECT_EQ(failures[0].level, 4u);
    EXPECT_EQ(failures[0].channel, static_cast<int>(kLogError));
    // The socket made by the first attempt is bound again, never made anew.
    const std::string made = "VexorPrintingService::_createCmdSocket made cmd socket:";
    std::vector<std::string> socketsMade;
    for (const LogLine& line : harness.log().lines())
        if (line.message.rfind(made, 0) == 0) socketsMade.push_back(line.message);
    ASSERT_GE(socketsMade.size(), 3u);
    for (const std::string& message : socketsMade) EXPECT_EQ(message, socketsMade[0]);
    // Attempts come one Sleep(5000) apart: 50 ms at this scale.
    for (size_t i = 1; i < 3; ++i) {
        long gap = millisecondOfDay(failures[i]) - millisecondOfDay(failures[i - 1]);
        if (gap < 0) gap += 86400000L;  // across midnight
        expectWaitedOut(gap, 50);
    }
    squatter.release();
    ASSERT_TRUE(harness.log().waitFor("listen returned success"));
    TestClient client;
    EXPECT_TRUE(client.connect());
}

TEST(ServiceLifecycle, StopWhileTheWorkerSleepsInTheSocketRetryLoop) {
    PortSquatter squatter;
    ASSERT_TRUE(squatter.bound());
    ServiceHarness harness(0.01);
    harness.startWithoutWaiting();
    ASSERT_TRUE(harness.log().waitFor("bind cmd socket failed with error 10048 on 127.0.3.1"));
    EXPECT_TRUE(harness.stop());
    // The worker started both threads before it signalled its end. The
    // cleanup thread has run, since the stop waited for it to end; the socket
    // thread's first line may come after the stop, so it is waited for.
    EXPECT_TRUE(harness.log().contains("Printer cleanup thread started."));
    EXPECT_TRUE(harness.log().waitFor("Socket reading thread started and it is me."));
    EXPECT_TRUE(harness.log().contains("Done OnStop()"));
    EXPECT_FALSE(harness.log().contains("listen returned success"));
}

TEST(ServiceLifecycle, StopFailsWhenTheWorkerOutlastsTenSeconds) {
    PortSquatter squatter;
    ASSERT_TRUE(squatter.bound());
    ServiceHarness harness(0.01);
    simhost::Host::get().faults().blockCall("Sleep");
    harness.startWithoutWaiting();
    ASSERT_TRUE(harness.log().waitFor("bind cmd socket failed with error 10048 on 127.0.3.1"));
    ASSERT_TRUE(simhost::Host::get().faults().waitUntilBlocked("Sleep"));
    // The stop waits out its 10 seconds: 100 ms at this scale.
    bool stopped = true;
    expectWaitedOut(elapsedMs([&] { stopped = harness.stop(); }), 100);
    EXPECT_FALSE(stopped);
    // The line carries the thread's last error as the stop's reap left it:
    // the size query of the port enumeration.
    std::vector<LogLine> failed =
        harness.log().find("failed on wait for stop Err:122:The data area passed to a system call is too small.");
    ASSERT_EQ(failed.size(), 1u) << harness.log().contents();
    EXPECT_EQ(failed[0].level, 4u);
    EXPECT_EQ(failed[0].channel, static_cast<int>(kLogError));
    EXPECT_FALSE(harness.log().contains("worker thread stopped"));
    // The flag stays set: once released, the worker still ends.
    simhost::Host::get().faults().releaseCall("Sleep");
    EXPECT_TRUE(harness.log().waitFor("Printer cleanup thread started."));
    harness.service().stopPrinterCleanup();
}

TEST(ServiceLifecycle, ShutdownStopsOnlyTheCleanupThread) {
    ServiceHarness harness;
    testsupport::admitLoopbackClientsAs(testsupport::kLoaderPid);
    harness.start();
    ASSERT_TRUE(simhost::waitUntilWaiting(ServiceTestAccess::cleanupWakeEvent(harness.service())));
    harness.service().OnShutdown();
    std::vector<std::string> messages = harness.log().messages();
    EXPECT_LT(indexOf(messages, "Vexor_PrintingService in OnShutdown()"),
              indexOf(messages, "Printer clean up thread received wake up event."));
    EXPECT_LT(indexOf(messages, "Printer clean up thread received wake up event."), indexOf(messages, "Done OnShutdown()"));
    EXPECT_LT(indexOf(messages, "Done OnShutdown()"), messages.size());
    EXPECT_FALSE(harness.log().contains("worker thread stopped"));
    // The worker still serves.
    TestClient client;
    ASSERT_TRUE(client.connect());
    ASSERT_TRUE(client.send(std::string("{\"msg\":\"x\",\"_msgUniqueId\":2}") + '\0'));
    EXPECT_FALSE(client.receiveReply().empty());
    EXPECT_TRUE(harness.stop());
}

TEST(ServiceLifecycle, ShutdownWhileTheWorkerIsStillRetryingWaitsItsLimitAndThrows) {
    PortSquatter squatter;
    ASSERT_TRUE(squatter.bound());
    ServiceHarness harness(0.01);
    simhost::Host::get().faults().blockCall("Sleep");
    harness.startWithoutWaiting();
    ASSERT_TRUE(harness.log().waitFor("bind cmd socket failed with error 10048 on 127.0.3.1"));
    EXPECT_THROW(harness.service().OnShutdown(), DWORD);
    // The last error is what the start's reap left on this thread.
    EXPECT_EQ(harness.log().find("failed on waiting for printer cleanup thread to stop Err:122:The data area passed to "
                                 "a system call is too small.")
                  .size(),
              1u)
        << harness.log().contents();
    EXPECT_FALSE(harness.log().contains("Done OnShutdown()"));
    simhost::Host::get().faults().releaseCall("Sleep");
}

TEST(ServiceLifecycle, SecondStopOfTheCleanupThreadReturnsAtOnce) {
    ServiceHarness harness;
    harness.start();
    ASSERT_TRUE(harness.log().waitFor("Printer cleanup thread started."));
    harness.service().stopPrinterCleanup();
    auto started = std::chrono::steady_clock::now();
    harness.service().stopPrinterCleanup();
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(500));
    EXPECT_TRUE(harness.stop());
}

TEST(ServiceLifecycle, StopOfACleanupThreadThatNeverStartedRunsIntoItsLimit) {
    ServiceHarness harness(0.01);
    // The line carries this thread's last error, whatever ran on it before.
    SetLastError(0);
    // The stop waits out its 10 seconds: 100 ms at this scale.
    expectWaitedOut(elapsedMs([&] { EXPECT_THROW(harness.service().stopPrinterCleanup(), DWORD); }), 100);
    std::vector<LogLine> failed = harness.log().find(
        "failed on waiting for printer cleanup thread to stop Err:0:The operation completed successfully.");
    ASSERT_EQ(failed.size(), 1u);
    EXPECT_EQ(failed[0].level, 4u);
    EXPECT_EQ(failed[0].channel, static_cast<int>(kLogError));
}

TEST(ServiceLifecycle, DestructorWithoutAStopLogsIt) {
    auto harness = std::make_unique<ServiceHarness>();
    harness->destroy();
    std::vector<LogLine> lines = harness->log().find("Destructor called but not stopped");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, 6u);
    EXPECT_EQ(lines[0].channel, static_cast<int>(kLogError));
    EXPECT_EQ(lines[0].function, "VexorPrintingService::~VexorPrintingService");
}

// After a shutdown the entry point destroys the object while the socket and
// worker threads still run; the connections and requests they may hold must
// outlive it. Under the address sanitizer a freed record fails this test.
TEST(ServiceLifecycle, DestructorLeavesConnectionsAndQueuedRequestsAlone) {
    auto harness = std::make_unique<ServiceHarness>(0.01);
    ClientObj* client = new ClientObj();
    client->recvBuffer = "half a message";
    ClientMsg* msg = new ClientMsg();
    msg->json["msg"] = "createPPort";
    ServiceTestAccess::addClient(harness->service(), 77, client);
    ServiceTestAccess::queueRequest(harness->service(), msg);
    harness->stop();
    harness->destroy();
    EXPECT_EQ(client->recvBuffer, "half a message");
    EXPECT_EQ(msg->json["msg"].asString(), "createPPort");
    delete client;
    delete msg;
}

TEST(ServiceLifecycle, DestructorClosesEveryHandleItMade) {
    LogCapture log(false);
    size_t before = simhost::openHandleCount();
    {
        VexorPrintingService service;
        EXPECT_EQ(simhost::openHandleCount(), before + 5);
    }
    EXPECT_EQ(simhost::openHandleCount(), before);
}

struct EventFailure {
    int passing;
    const char* message;
};

class ConstructorEventFailure : public ::testing::TestWithParam<EventFailure> {};

TEST_P(ConstructorEventFailure, LogsAndThrowsTheLastError) {
    LogCapture log(false);
    simhost::Host::get().faults().failCall("CreateEventW", ERROR_NOT_ENOUGH_MEMORY, 1, GetParam().passing);
    EXPECT_THROW(
        {
            try {
                testsupport::makeServiceRecordingChannels(log);
            } catch (DWORD error) {
                EXPECT_EQ(error, static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
                throw;
            }
        },
        DWORD);
    std::vector<LogLine> lines = log.find(std::string(GetParam().message) +
                                          " Err:8:Not enough memory resources are available to process this command.");
    ASSERT_EQ(lines.size(), 1u) << log.contents();
    EXPECT_EQ(lines[0].level, 4u);
    EXPECT_EQ(lines[0].channel, static_cast<int>(kLogError));
    EXPECT_EQ(lines[0].function, "VexorPrintingService::VexorPrintingService");
    EXPECT_EQ(simhost::Host::get().faults().callCount("CreateMutexW"), 0u);
}

INSTANTIATE_TEST_SUITE_P(EachEvent, ConstructorEventFailure,
                         ::testing::Values(EventFailure{0, "CreateEvent failed"},
                                           EventFailure{1, "Create printer cleanup stopped event failed"},
                                           EventFailure{2, "Create wake up printer cleanup thread event failed"},
                                           EventFailure{3, "CreateEvent failed"}));

TEST(ServiceConstruction, MutexFailureIsLoggedAndWinsockIsNotStarted) {
    LogCapture log(false);
    simhost::Host::get().faults().failCall("CreateMutexW", ERROR_ACCESS_DENIED, 1);
    {
        std::unique_ptr<VexorPrintingService> service = testsupport::makeServiceRecordingChannels(log);
        std::vector<LogLine> lines = log.find("CreateMutex error Err:5:Access is denied.");
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].level, 4u);
        EXPECT_EQ(lines[0].channel, static_cast<int>(kLogError));
        EXPECT_EQ(simhost::Host::get().faults().callCount("WSAStartup"), 0u);
    }
}

TEST(ServiceConstruction, WinsockFailureIsLoggedAndTheObjectStands) {
    LogCapture log(false);
    simhost::Host::get().faults().failCall("WSAStartup", WSASYSNOTREADY, 1);
    VexorPrintingService service;
    // WSAStartup answers its error directly; the line carries whatever the
    // thread's Winsock error is then.
    std::vector<LogLine> lines = log.find("Error at WSAStartup() Error Code : " + std::to_string(WSAGetLastError()));
    ASSERT_EQ(lines.size(), 1u) << log.contents();
    EXPECT_EQ(lines[0].level, 5u);
    EXPECT_EQ(lines[0].channel, static_cast<int>(kLogNormal));
}

TEST(ServiceLifecycle, WorkItemRefusedAtStartThrowsTheLastError) {
    ServiceHarness harness(0.01);
    simhost::Host::get().faults().failCall("QueueUserWorkItem", ERROR_NOT_ENOUGH_MEMORY, 1);
    EXPECT_THROW(harness.startWithoutWaiting(), DWORD);
    EXPECT_FALSE(harness.log().contains("Service Worker thread started and it is me."));
}

}  // namespace

#include "simhost/advapi32/advapi32.h"

namespace {

struct ModeCase {
    DWORD value;
    const char* line;
};

class WorkerModeLine : public ::testing::TestWithParam<ModeCase> {};

// Every mode starts every thread and opens the socket; only the line differs.
TEST_P(WorkerModeLine, IsLoggedAtStartAndEveryThreadRuns) {
    ServiceHarness harness;
    testsupport::admitLoopbackClientsAs(testsupport::kLoaderPid);
    simhost::advapi32::setRegistryDword(HKEY_LOCAL_MACHINE, L"Software\\Policies\\Quillion\\Vexor\\vexor_admin",
                                        L"vexor.remote_printing_enabled", GetParam().value);
    harness.start();
    std::vector<LogLine> lines = harness.log().find(GetParam().line);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, 3u);
    EXPECT_EQ(lines[0].function, "VexorPrintingService::ServiceWorkerThread");
    EXPECT_TRUE(harness.log().waitFor("Socket reading thread started and it is me."));
    EXPECT_TRUE(harness.log().waitFor("Printer cleanup thread started."));
    TestClient client;
    ASSERT_TRUE(client.connect());
    ASSERT_TRUE(client.send(std::string("{\"msg\":\"x\",\"_msgUniqueId\":3}") + '\0'));
    EXPECT_FALSE(client.receiveReply().empty());
    EXPECT_TRUE(harness.stop());
}

INSTANTIATE_TEST_SUITE_P(
    Modes, WorkerModeLine,
    ::testing::Values(ModeCase{0, "Remote printing is disabled through GPO setting."},
                      ModeCase{1, "Basic Remote printing is enabled through GPO setting."},
                      ModeCase{2, "Basic and Advanced Remote printing for Windows clients is enabled through GPO setting."},
                      ModeCase{3, "GPO specifies an unknown printing mode, falling back to default (basic)."}));

TEST(WorkerModeLineDefault, WithoutPolicyTheModeIsBasic) {
    ServiceHarness harness;
    harness.start();
    EXPECT_TRUE(harness.log().contains("Basic Remote printing is enabled through GPO setting."));
    EXPECT_TRUE(harness.stop());
}

}  // namespace
