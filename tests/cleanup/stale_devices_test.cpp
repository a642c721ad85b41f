#include "simhost/core/host.h"
#include "simhost/kernel32/objects.h"
#include "simhost/setupapi/device_tree.h"
#include "support/ServiceHarness.h"
#include "support/ServiceTestAccess.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

using simhost::setupapi::Device;
using testsupport::LogCapture;
using testsupport::LogLine;
using testsupport::ServiceHarness;

namespace {

const wchar_t* const kRenderXps = L"Quillion Client Render XPS";
const wchar_t* const kDorvan = L"dorvan description";

void addNode(const std::wstring& instanceId, const std::wstring& description, std::vector<std::wstring> hardwareIds,
             bool present = true) {
    Device device(instanceId, GUID{}, present);
    if (!description.empty()) device.setString(SPDRP_DEVICEDESC, description);
    if (!hardwareIds.empty()) device.setMultiString(SPDRP_HARDWAREID, hardwareIds);
    simhost::setupapi::addDevice(device);
}

std::vector<std::wstring> remainingNodes() {
    std::vector<std::wstring> ids;
    for (const Device& device : simhost::setupapi::devices()) ids.push_back(device.instanceId);
    return ids;
}

class StaleDevices : public ::testing::Test {
protected:
    // The service object is made but not started: each test runs one pass.
    ServiceHarness harness_{0.01};

    const LogCapture& log() { return harness_.log(); }
    void TearDown() override { harness_.stop(); }
};

TEST_F(StaleDevices, RemovesTheServiceNodesWithoutHardwareIdsInTheSetsOrder) {
    addNode(L"ROOT\\PRINTER\\0000", kRenderXps, {});
    addNode(L"ROOT\\PRINTER\\0001", kRenderXps, {L"VEXOR\\Printer_1"});
    addNode(L"ROOT\\PRINTER\\0002", kDorvan, {});
    addNode(L"ROOT\\PRINTER\\0003", L"Quillion Client Render XPS 2", {});
    addNode(L"ROOT\\PRINTER\\0004", L"quillion client render xps", {});
    addNode(L"ROOT\\PRINTER\\0005", L"Some other printer", {});
    addNode(L"ROOT\\PRINTER\\0006", kDorvan, {}, false);
    harness_.service().removeStalePrinters();
    EXPECT_EQ(remainingNodes(), (std::vector<std::wstring>{L"ROOT\\PRINTER\\0001", L"ROOT\\PRINTER\\0003",
                                                            L"ROOT\\PRINTER\\0004", L"ROOT\\PRINTER\\0005",
                                                            L"ROOT\\PRINTER\\0006"}));
    std::vector<LogLine> counted = log().find("Number of stale printers removed [2].");
    ASSERT_EQ(counted.size(), 1u);
    EXPECT_EQ(counted[0].level, 3u);
    EXPECT_EQ(counted[0].channel, static_cast<int>(kLogNormal));
    EXPECT_EQ(counted[0].function, "VexorPrintingService::removeStalePrinters");
    EXPECT_TRUE(log().contains("Done retrieving device info. Last error [259]."));
    EXPECT_EQ(simhost::setupapi::openDeviceInfoSetCount(), 0u);
}

TEST_F(StaleDevices, NodeWithAnEmptyFirstHardwareIdIsStale) {
    // Only the first string of the list is read.
    addNode(L"ROOT\\PRINTER\\0000", kDorvan, {L"", L"VEXOR\\second"});
    harness_.service().removeStalePrinters();
    EXPECT_TRUE(remainingNodes().empty());
}

TEST_F(StaleDevices, LongDescriptionIsReadThroughTheSecondCall) {
    addNode(L"ROOT\\PRINTER\\0000", std::wstring(3000, L'd'), {});
    addNode(L"ROOT\\PRINTER\\0001", kRenderXps, {std::wstring(2000, L'h')});
    harness_.service().removeStalePrinters();
    EXPECT_EQ(remainingNodes().size(), 2u);
    // Two reads for the long description, one for the short one, two for the long id.
    EXPECT_EQ(simhost::Host::get().faults().callCount("SetupDiGetDeviceRegistryPropertyW"), 5u);
    EXPECT_TRUE(log().contains("Number of stale printers removed [0]."));
}

TEST_F(StaleDevices, UnreadableDescriptionIsNotOurs) {
    addNode(L"ROOT\\PRINTER\\0000", L"", {});
    harness_.service().removeStalePrinters();
    EXPECT_EQ(remainingNodes().size(), 1u);
}

TEST_F(StaleDevices, DeviceSetUnavailableIsLoggedAndThePassSkipped) {
    addNode(L"ROOT\\PRINTER\\0000", kRenderXps, {});
    simhost::Host::get().faults().failCall("SetupDiGetClassDevsW", ERROR_ACCESS_DENIED, 1);
    harness_.service().removeStalePrinters();
    std::vector<LogLine> lines = log().find("Failed to get device information set. Err:5:Access is denied.");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, 4u);
    EXPECT_EQ(lines[0].channel, static_cast<int>(kLogError));
    EXPECT_EQ(remainingNodes().size(), 1u);
    EXPECT_FALSE(log().contains("Number of stale printers removed [0]."));
}

TEST_F(StaleDevices, EnumerationErrorEndsThePassLikeTheEnd) {
    addNode(L"ROOT\\PRINTER\\0000", kRenderXps, {});
    addNode(L"ROOT\\PRINTER\\0001", kRenderXps, {});
    simhost::Host::get().faults().failCall("SetupDiEnumDeviceInfo", ERROR_INVALID_DATA, 1, 1);
    harness_.service().removeStalePrinters();
    EXPECT_TRUE(log().contains("Done retrieving device info. Last error [13]."));
    EXPECT_TRUE(log().contains("Number of stale printers removed [1]."));
    EXPECT_EQ(remainingNodes(), (std::vector<std::wstring>{L"ROOT\\PRINTER\\0001"}));
}

TEST_F(StaleDevices, FailedRemovalIsCountedAndTriedAgainNextPass) {
    addNode(L"ROOT\\PRINTER\\0000", kRenderXps, {});
    simhost::Host::get().faults().failCall("SetupDiRemoveDevice", ERROR_ACCESS_DENIED, 1);
    harness_.service().removeStalePrinters();
    EXPECT_TRUE(log().contains("Number of stale printers removed [1]."));
    EXPECT_EQ(remainingNodes().size(), 1u);
    harness_.service().removeStalePrinters();
    EXPECT_TRUE(remainingNodes().empty());
}

TEST_F(StaleDevices, FailedReleaseOfTheSetIsLogged) {
    simhost::Host::get().faults().failCall("SetupDiDestroyDeviceInfoList", ERROR_INVALID_HANDLE, 1);
    harness_.service().removeStalePrinters();
    std::vector<LogLine> lines = log().find("Failed to destroy device info list.");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, 4u);
    EXPECT_EQ(lines[0].channel, static_cast<int>(kLogError));
    EXPECT_TRUE(log().contains("Number of stale printers removed [0]."));
}

TEST(PrinterCleanupThread, StopDuringTheLongWaitEndsTheThread) {
    ServiceHarness harness;
    harness.start();
    ASSERT_TRUE(harness.log().waitFor("Number of stale printers removed [0]."));
    // The stop lands once the thread is inside its long wait.
    ASSERT_TRUE(simhost::waitUntilWaiting(ServiceTestAccess::cleanupWakeEvent(harness.service())));
    harness.service().stopPrinterCleanup();
    std::vector<std::string> messages = harness.log().messages();
    EXPECT_TRUE(harness.log().contains("Printer clean up thread received wake up event."));
    EXPECT_TRUE(harness.log().waitFor("Printer cleanup thread exiting."));
    EXPECT_EQ(harness.log().find("Printer cleanup thread started.")[0].level, 4u);
    harness.stop();
}

TEST(PrinterCleanupThread, TimeOutStartsAnotherPass) {
    ServiceHarness harness(0.000001);  // a day passes in about 86 ms
    harness.start();
    ASSERT_TRUE(harness.log().waitFor("Number of stale printers removed [0].", 10000, 3));
    // Back to real time, so that the stop's own 10-second waits hold.
    simhost::Host::get().setTimeScale(1.0);
    EXPECT_TRUE(harness.stop());
}

TEST(PrinterCleanupThread, StopDuringAPassEndsItAfterTheDeviceInHand) {
    ServiceHarness harness;
    addNode(L"ROOT\\PRINTER\\0000", L"other", {});
    addNode(L"ROOT\\PRINTER\\0001", kRenderXps, {});
    simhost::Host::get().faults().blockCall("SetupDiGetDeviceRegistryPropertyW");
    harness.start();
    ASSERT_TRUE(simhost::Host::get().faults().waitUntilBlocked("SetupDiGetDeviceRegistryPropertyW"));
    auto stopped = std::async(std::launch::async, [&] { harness.service().stopPrinterCleanup(); });
    // The stop has asked once it waits for the thread to end.
    EXPECT_TRUE(simhost::waitUntilWaiting(ServiceTestAccess::cleanupStoppedEvent(harness.service())));
    simhost::Host::get().faults().releaseCall("SetupDiGetDeviceRegistryPropertyW");
    stopped.get();
    // The thread writes its last line after it has signalled that it stopped.
    ASSERT_TRUE(harness.log().waitFor("Printer cleanup thread exiting."));
    std::vector<std::string> messages = harness.log().messages();
    std::vector<std::string> tail;
    for (const std::string& message : messages)
        if (message.find("clean") != std::string::npos || message.find("stale") != std::string::npos)
            tail.push_back(message);
    EXPECT_EQ(tail, (std::vector<std::string>{
                        "Printer cleanup thread started.",
                        "Printer clean up in progress but need to stop due to service stop or shutdown.",
                        "Number of stale printers removed [0].",
                        "Printer cleanup thread exiting.",
                    }));
    EXPECT_FALSE(harness.log().contains("Printer clean up thread received wake up event."));
    EXPECT_EQ(remainingNodes().size(), 2u);
    harness.stop();
}

TEST(PrinterCleanupThread, FailedWaitEndsTheThreadWithoutFurtherPasses) {
    ServiceHarness harness(0.000001);
    // The wake event is swapped for a closed handle, so the long wait fails.
    HANDLE& wakeEvent = ServiceTestAccess::cleanupWakeEvent(harness.service());
    HANDLE original = wakeEvent;
    HANDLE closed = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    CloseHandle(closed);
    wakeEvent = closed;
    harness.start();
    ASSERT_TRUE(harness.log().waitFor("Printer cleanup thread exiting."));
    std::vector<LogLine> failed = harness.log().find(
        "WaitForSingleObject() failed on wait for wake up. waitResult [4294967295]. Err:6:The handle is invalid.");
    ASSERT_EQ(failed.size(), 1u) << harness.log().contents();
    EXPECT_EQ(failed[0].level, 4u);
    EXPECT_EQ(failed[0].channel, static_cast<int>(kLogError));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(harness.log().find("Number of stale printers removed [0].").size(), 1u);
    simhost::Host::get().setTimeScale(1.0);
    harness.service().stopPrinterCleanup();
    EXPECT_TRUE(harness.stop());
    wakeEvent = original;
}

}  // namespace
