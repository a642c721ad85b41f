// QueueUserWorkItem of the simulated kernel32.
#include "kernel32_test_helpers.h"
#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/kernel32/threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using kernel32_test::eventually;
using kernel32_test::Gate;

namespace {

struct Recorded {
    std::atomic<int> runs{0};
    std::atomic<DWORD> threadId{0};
};

DWORD WINAPI recordRun(LPVOID context) {
    auto* recorded = static_cast<Recorded*>(context);
    recorded->threadId = GetCurrentThreadId();
    ++recorded->runs;
    return 0;
}

DWORD WINAPI waitAtGate(LPVOID context) {
    static_cast<Gate*>(context)->pass();
    return 0;
}

class Kernel32ThreadPool : public ::testing::Test {
protected:
    void SetUp() override { simhost::Host::get().reset(); }
    // Items may still be leaving the gate when a test ends, or waiting at it
    // when one failed; the members they use outlive this wait.
    void TearDown() override {
        gate.open();
        EXPECT_TRUE(simhost::waitForIdleWorkItems(5000));
    }

    Gate gate;
    Recorded recorded;
};

TEST_F(Kernel32ThreadPool, ItemRunsOnAnotherThreadWithItsContext) {
    SetLastError(ERROR_GEN_FAILURE);
    EXPECT_EQ(QueueUserWorkItem(recordRun, &recorded, WT_EXECUTEDEFAULT), TRUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_GEN_FAILURE));
    ASSERT_TRUE(simhost::waitForIdleWorkItems(5000));
    EXPECT_EQ(recorded.runs.load(), 1);
    EXPECT_NE(recorded.threadId.load(), 0u);
    EXPECT_NE(recorded.threadId.load(), GetCurrentThreadId());
}

TEST_F(Kernel32ThreadPool, LongItemsNeverWaitForABusyThread) {
    constexpr int kItems = 8;
    for (int i = 0; i < kItems; ++i) ASSERT_EQ(QueueUserWorkItem(waitAtGate, &gate, WT_EXECUTELONGFUNCTION), TRUE);
    EXPECT_TRUE(eventually([&] { return gate.waiting() == kItems; }));
    ASSERT_EQ(QueueUserWorkItem(recordRun, &recorded, WT_EXECUTELONGFUNCTION), TRUE);
    EXPECT_TRUE(eventually([&] { return recorded.runs == 1; }));
    gate.open();
}

TEST_F(Kernel32ThreadPool, WaitForIdleCountsQueuedAndRunningItems) {
    EXPECT_TRUE(simhost::waitForIdleWorkItems(0));
    ASSERT_EQ(QueueUserWorkItem(waitAtGate, &gate, WT_EXECUTELONGFUNCTION), TRUE);
    EXPECT_EQ(simhost::unfinishedWorkItems(), 1u);
    EXPECT_FALSE(simhost::waitForIdleWorkItems(50));
    gate.open();
    EXPECT_TRUE(simhost::waitForIdleWorkItems(5000));
    EXPECT_EQ(simhost::unfinishedWorkItems(), 0u);
}

TEST_F(Kernel32ThreadPool, RunningItemsOutliveAReset) {
    ASSERT_EQ(QueueUserWorkItem(waitAtGate, &gate, WT_EXECUTELONGFUNCTION), TRUE);
    ASSERT_TRUE(eventually([&] { return gate.waiting() == 1; }));
    simhost::Host::get().reset();
    EXPECT_EQ(simhost::unfinishedWorkItems(), 1u);
    EXPECT_FALSE(simhost::waitForIdleWorkItems(20));
    gate.open();
    EXPECT_TRUE(simhost::waitForIdleWorkItems(5000));
}

TEST_F(Kernel32ThreadPool, ManyShortItemsAllRun) {
    for (int i = 0; i < 200; ++i) ASSERT_EQ(QueueUserWorkItem(recordRun, &recorded, WT_EXECUTEDEFAULT), TRUE);
    ASSERT_TRUE(simhost::waitForIdleWorkItems(5000));
    EXPECT_EQ(recorded.runs.load(), 200);
}

TEST_F(Kernel32ThreadPool, InjectedFailureQueuesNothing) {
    simhost::Host::get().faults().failCall("QueueUserWorkItem", ERROR_NOT_ENOUGH_MEMORY, 1);
    EXPECT_EQ(QueueUserWorkItem(recordRun, &recorded, WT_EXECUTELONGFUNCTION), FALSE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(simhost::unfinishedWorkItems(), 0u);
    EXPECT_EQ(QueueUserWorkItem(recordRun, &recorded, WT_EXECUTELONGFUNCTION), TRUE);
    ASSERT_TRUE(simhost::waitForIdleWorkItems(5000));
    EXPECT_EQ(recorded.runs.load(), 1);
}

TEST_F(Kernel32ThreadPool, BlockedQueueCallGoesOnWhenReleased) {
    simhost::Faults& faults = simhost::Host::get().faults();
    faults.blockCall("QueueUserWorkItem");
    std::atomic<BOOL> queued{FALSE};
    std::thread caller([&] { queued = QueueUserWorkItem(recordRun, &recorded, WT_EXECUTEDEFAULT); });
    EXPECT_TRUE(faults.waitUntilBlocked("QueueUserWorkItem"));
    EXPECT_EQ(recorded.runs.load(), 0);
    faults.releaseCall("QueueUserWorkItem");
    caller.join();
    EXPECT_EQ(queued.load(), TRUE);
    ASSERT_TRUE(simhost::waitForIdleWorkItems(5000));
    EXPECT_EQ(recorded.runs.load(), 1);
}

}  // namespace
