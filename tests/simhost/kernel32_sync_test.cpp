// Events, mutexes, WaitForSingleObject and Sleep of the simulated kernel32.
#include "kernel32_test_helpers.h"
#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/kernel32/objects.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

using kernel32_test::elapsedSince;
using kernel32_test::eventually;
using kernel32_test::kBoundedWait;
using kernel32_test::onNewThread;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

constexpr DWORD kStaleError = 4711;

class Kernel32Sync : public ::testing::Test {
protected:
    void SetUp() override { simhost::Host::get().reset(); }
    simhost::Faults& faults() { return simhost::Host::get().faults(); }
};

DWORD waitNowOnNewThread(HANDLE object) {
    return onNewThread([object] { return WaitForSingleObject(object, 0); });
}

// ---- Events ----

TEST_F(Kernel32Sync, ManualResetEventStaysSignalledUntilReset) {
    HANDLE event = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
    EXPECT_EQ(ResetEvent(event), TRUE);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
    EXPECT_EQ(SetEvent(event), TRUE);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
    EXPECT_EQ(CloseHandle(event), TRUE);
}

TEST_F(Kernel32Sync, AutoResetEventLetsOneWaitThroughPerSignal) {
    HANDLE event = CreateEventW(nullptr, FALSE, TRUE, nullptr);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
    EXPECT_EQ(SetEvent(event), TRUE);
    EXPECT_EQ(SetEvent(event), TRUE);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
}

TEST_F(Kernel32Sync, EventStartsUnsignalledWhenAsked) {
    HANDLE manual = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE automatic = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    EXPECT_EQ(WaitForSingleObject(manual, 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(automatic, 0), WAIT_TIMEOUT);
}

TEST_F(Kernel32Sync, AutoResetEventReleasesExactlyOneBlockedWaiter) {
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    std::atomic<int> released{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i)
        waiters.emplace_back([&] {
            if (WaitForSingleObject(event, kBoundedWait) == WAIT_OBJECT_0) ++released;
        });
    EXPECT_TRUE(simhost::waitUntilWaiting(event, 3));
    EXPECT_EQ(SetEvent(event), TRUE);
    EXPECT_TRUE(eventually([&] { return released == 1; }));
    // A second waiter let through would show within this time; a short one
    // can only miss it, never fail a correct event.
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_EQ(released.load(), 1);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
    // A signal nobody has taken yet is not counted twice, so each waits
    // for its waiter.
    EXPECT_EQ(SetEvent(event), TRUE);
    EXPECT_TRUE(eventually([&] { return released == 2; }));
    EXPECT_EQ(SetEvent(event), TRUE);
    for (std::thread& waiter : waiters) waiter.join();
    EXPECT_EQ(released.load(), 3);
}

TEST_F(Kernel32Sync, ManualResetEventReleasesEveryBlockedWaiter) {
    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::atomic<int> released{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i)
        waiters.emplace_back([&] {
            if (WaitForSingleObject(event, kBoundedWait) == WAIT_OBJECT_0) ++released;
        });
    EXPECT_TRUE(simhost::waitUntilWaiting(event, 3));
    EXPECT_EQ(SetEvent(event), TRUE);
    for (std::thread& waiter : waiters) waiter.join();
    EXPECT_EQ(released.load(), 3);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
}

// Sets the event once this thread waits on it: the wait is then ended by
// the signal, not already satisfied when it begins. Sets it anyway when no
// wait came, so that a failing test does not hang.
std::thread setOnceWaitedOn(HANDLE event) {
    return std::thread([event] {
        EXPECT_TRUE(simhost::waitUntilWaiting(event));
        SetEvent(event);
    });
}

TEST_F(Kernel32Sync, InfiniteWaitEndsWhenAnotherThreadSetsTheEvent) {
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    std::thread setter = setOnceWaitedOn(event);
    EXPECT_EQ(WaitForSingleObject(event, INFINITE), WAIT_OBJECT_0);
    setter.join();
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
}

TEST_F(Kernel32Sync, FiniteWaitEndsWhenAnotherThreadSetsTheEvent) {
    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::thread setter = setOnceWaitedOn(event);
    auto start = steady_clock::now();
    EXPECT_EQ(WaitForSingleObject(event, 10000), WAIT_OBJECT_0);
    EXPECT_LT(elapsedSince(start), milliseconds(5000));
    setter.join();
}

TEST_F(Kernel32Sync, FiniteWaitTimesOutAfterItsTime) {
    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    auto start = steady_clock::now();
    EXPECT_EQ(WaitForSingleObject(event, 100), WAIT_TIMEOUT);
    EXPECT_GE(elapsedSince(start), milliseconds(100));
}

TEST_F(Kernel32Sync, WaitRunsOnTheHostTimeScale) {
    simhost::Host::get().setTimeScale(0.001);
    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    auto start = steady_clock::now();
    EXPECT_EQ(WaitForSingleObject(event, 10000), WAIT_TIMEOUT);
    EXPECT_GE(elapsedSince(start), milliseconds(10));
    EXPECT_LT(elapsedSince(start), milliseconds(2000));
}

TEST_F(Kernel32Sync, UnnamedCreateAndSuccessfulCallsLeaveTheLastErrorAlone) {
    SetLastError(kStaleError);
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    HANDLE mutex = CreateMutexW(nullptr, FALSE, nullptr);
    ASSERT_NE(event, nullptr);
    ASSERT_NE(mutex, nullptr);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
    EXPECT_EQ(SetEvent(event), TRUE);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
    EXPECT_EQ(ResetEvent(event), TRUE);
    EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_OBJECT_0);
    EXPECT_EQ(ReleaseMutex(mutex), TRUE);
    EXPECT_EQ(CloseHandle(event), TRUE);
    EXPECT_EQ(CloseHandle(mutex), TRUE);
    EXPECT_EQ(GetLastError(), kStaleError);
}

TEST_F(Kernel32Sync, NamedEventIsOpenedWhenItExists) {
    SetLastError(kStaleError);
    HANDLE first = CreateEventW(nullptr, TRUE, FALSE, L"Vexor.Ready");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SUCCESS));
    // The second call's reset mode and initial state are ignored.
    HANDLE second = CreateEventW(nullptr, FALSE, TRUE, L"Vexor.Ready");
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ALREADY_EXISTS));
    EXPECT_NE(second, first);
    EXPECT_EQ(WaitForSingleObject(first, 0), WAIT_TIMEOUT);
    EXPECT_EQ(SetEvent(second), TRUE);
    EXPECT_EQ(WaitForSingleObject(first, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(first, 0), WAIT_OBJECT_0);
}

TEST_F(Kernel32Sync, NamesAreCaseSensitive) {
    CreateEventW(nullptr, TRUE, FALSE, L"Vexor.Ready");
    ASSERT_NE(CreateEventW(nullptr, TRUE, FALSE, L"vexor.ready"), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SUCCESS));
}

TEST_F(Kernel32Sync, NameIsFreeAgainAfterItsLastHandleCloses) {
    HANDLE first = CreateEventW(nullptr, TRUE, TRUE, L"Vexor.Once");
    ASSERT_EQ(CloseHandle(first), TRUE);
    SetLastError(kStaleError);
    HANDLE second = CreateEventW(nullptr, TRUE, FALSE, L"Vexor.Once");
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SUCCESS));
    EXPECT_EQ(WaitForSingleObject(second, 0), WAIT_TIMEOUT);
}

TEST_F(Kernel32Sync, NameOfAnotherTypeIsRefused) {
    ASSERT_NE(CreateMutexW(nullptr, FALSE, L"Vexor.Shared"), nullptr);
    EXPECT_EQ(CreateEventW(nullptr, TRUE, FALSE, L"Vexor.Shared"), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    ASSERT_NE(CreateEventW(nullptr, TRUE, FALSE, L"Vexor.Other"), nullptr);
    EXPECT_EQ(CreateMutexW(nullptr, FALSE, L"Vexor.Other"), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(simhost::openHandleCount(), 2u);
}

TEST_F(Kernel32Sync, EventCallsRefuseClosedAndForeignHandles) {
    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE mutex = CreateMutexW(nullptr, FALSE, nullptr);
    ASSERT_EQ(CloseHandle(event), TRUE);
    for (HANDLE refused : {event, mutex, static_cast<HANDLE>(nullptr), INVALID_HANDLE_VALUE}) {
        SetLastError(0);
        EXPECT_EQ(SetEvent(refused), FALSE);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
        SetLastError(0);
        EXPECT_EQ(ResetEvent(refused), FALSE);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    }
}

TEST_F(Kernel32Sync, WaitRefusesClosedAndNullHandles) {
    HANDLE event = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    ASSERT_EQ(CloseHandle(event), TRUE);
    for (HANDLE refused : {event, static_cast<HANDLE>(nullptr)}) {
        SetLastError(0);
        EXPECT_EQ(WaitForSingleObject(refused, 0), WAIT_FAILED);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    }
}

TEST_F(Kernel32Sync, WaitOnTheOwnProcessTimesOut) {
    SetLastError(kStaleError);
    EXPECT_EQ(WaitForSingleObject(GetCurrentProcess(), 20), WAIT_TIMEOUT);
    EXPECT_EQ(GetLastError(), kStaleError);
}

TEST_F(Kernel32Sync, WaitGoesOnWhenItsHandleIsClosedMeanwhile) {
    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, L"Vexor.Kept");
    HANDLE other = CreateEventW(nullptr, TRUE, FALSE, L"Vexor.Kept");
    std::atomic<DWORD> result{0};
    std::thread waiter([&] { result = WaitForSingleObject(event, kBoundedWait); });
    EXPECT_TRUE(simhost::waitUntilWaiting(event));
    EXPECT_EQ(CloseHandle(event), TRUE);
    EXPECT_EQ(SetEvent(other), TRUE);
    waiter.join();
    EXPECT_EQ(result.load(), WAIT_OBJECT_0);
}

TEST_F(Kernel32Sync, InjectedFailuresOfEventCalls) {
    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    faults().failCall("CreateEventW", ERROR_NOT_ENOUGH_MEMORY, 1);
    EXPECT_EQ(CreateEventW(nullptr, TRUE, FALSE, nullptr), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_NE(CreateEventW(nullptr, TRUE, FALSE, nullptr), nullptr);

    faults().failCall("SetEvent", ERROR_ACCESS_DENIED, 1);
    EXPECT_EQ(SetEvent(event), FALSE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);

    ASSERT_EQ(SetEvent(event), TRUE);
    faults().failCall("ResetEvent", ERROR_GEN_FAILURE, 1);
    EXPECT_EQ(ResetEvent(event), FALSE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_GEN_FAILURE));
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);

    faults().failCall("WaitForSingleObject", ERROR_INVALID_PARAMETER, 1);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
    EXPECT_EQ(simhost::openHandleCount("Event"), 2u);
}

TEST_F(Kernel32Sync, BlockedWaitGoesOnWhenReleased) {
    HANDLE event = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    faults().blockCall("WaitForSingleObject");
    std::atomic<DWORD> result{WAIT_FAILED};
    std::thread waiter([&] { result = WaitForSingleObject(event, 0); });
    EXPECT_TRUE(faults().waitUntilBlocked("WaitForSingleObject"));
    EXPECT_EQ(result.load(), WAIT_FAILED);
    faults().releaseCall("WaitForSingleObject");
    waiter.join();
    EXPECT_EQ(result.load(), WAIT_OBJECT_0);
}

// ---- Mutexes ----

TEST_F(Kernel32Sync, MutexIsOwnedRecursivelyByOneThread) {
    HANDLE mutex = CreateMutexW(nullptr, FALSE, nullptr);
    ASSERT_NE(mutex, nullptr);
    EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_OBJECT_0);
    EXPECT_EQ(waitNowOnNewThread(mutex), WAIT_TIMEOUT);
    EXPECT_EQ(ReleaseMutex(mutex), TRUE);
    EXPECT_EQ(waitNowOnNewThread(mutex), WAIT_TIMEOUT);
    EXPECT_EQ(ReleaseMutex(mutex), TRUE);
    SetLastError(0);
    EXPECT_EQ(ReleaseMutex(mutex), FALSE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_OWNER));
}

TEST_F(Kernel32Sync, InitialOwnerOwnsTheNewMutex) {
    HANDLE mutex = CreateMutexW(nullptr, TRUE, nullptr);
    EXPECT_EQ(waitNowOnNewThread(mutex), WAIT_TIMEOUT);
    EXPECT_EQ(ReleaseMutex(mutex), TRUE);
    SetLastError(0);
    EXPECT_EQ(ReleaseMutex(mutex), FALSE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_OWNER));
}

TEST_F(Kernel32Sync, NonOwnerCannotReleaseTheMutex) {
    HANDLE mutex = CreateMutexW(nullptr, TRUE, nullptr);
    DWORD errorOfNonOwner = onNewThread([mutex] { return ReleaseMutex(mutex) ? 0 : GetLastError(); });
    EXPECT_EQ(errorOfNonOwner, static_cast<DWORD>(ERROR_NOT_OWNER));
    EXPECT_EQ(ReleaseMutex(mutex), TRUE);
}

TEST_F(Kernel32Sync, ReleasedMutexPassesToTheBlockedWaiter) {
    HANDLE mutex = CreateMutexW(nullptr, TRUE, nullptr);
    std::atomic<DWORD> result{WAIT_FAILED};
    std::atomic<DWORD> releasedByWaiter{FALSE};
    std::thread waiter([&] {
        result = WaitForSingleObject(mutex, kBoundedWait);
        releasedByWaiter = ReleaseMutex(mutex);
    });
    EXPECT_TRUE(simhost::waitUntilWaiting(mutex));
    EXPECT_EQ(result.load(), WAIT_FAILED);
    EXPECT_EQ(ReleaseMutex(mutex), TRUE);
    waiter.join();
    EXPECT_EQ(result.load(), WAIT_OBJECT_0);
    EXPECT_EQ(releasedByWaiter.load(), static_cast<DWORD>(TRUE));
}

TEST_F(Kernel32Sync, MutexOfAnEndedThreadIsAbandonedToTheNextWaiter) {
    HANDLE mutex = CreateMutexW(nullptr, FALSE, nullptr);
    ASSERT_EQ(onNewThread([mutex] { return WaitForSingleObject(mutex, 0); }), WAIT_OBJECT_0);
    SetLastError(kStaleError);
    EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_ABANDONED);
    EXPECT_EQ(GetLastError(), kStaleError);
    EXPECT_EQ(waitNowOnNewThread(mutex), WAIT_TIMEOUT);
    EXPECT_EQ(ReleaseMutex(mutex), TRUE);
    EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_OBJECT_0);
}

TEST_F(Kernel32Sync, AbandonedRecursiveOwnershipPassesOnAsASingleOne) {
    HANDLE mutex = CreateMutexW(nullptr, FALSE, nullptr);
    onNewThread([mutex] {
        WaitForSingleObject(mutex, 0);
        return WaitForSingleObject(mutex, 0);
    });
    EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_ABANDONED);
    EXPECT_EQ(ReleaseMutex(mutex), TRUE);
    EXPECT_EQ(ReleaseMutex(mutex), FALSE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_OWNER));
}

TEST_F(Kernel32Sync, BlockedWaiterGetsTheMutexAbandonedByItsEndingOwner) {
    HANDLE mutex = CreateMutexW(nullptr, FALSE, nullptr);
    HANDLE ownerHasIt = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE ownerMayEnd = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::thread owner([&] {
        WaitForSingleObject(mutex, 0);
        SetEvent(ownerHasIt);
        WaitForSingleObject(ownerMayEnd, kBoundedWait);
    });
    EXPECT_EQ(WaitForSingleObject(ownerHasIt, kBoundedWait), WAIT_OBJECT_0);
    // The owner ends only once this thread waits for the mutex.
    std::thread ender([&] {
        EXPECT_TRUE(simhost::waitUntilWaiting(mutex));
        SetEvent(ownerMayEnd);
    });
    EXPECT_EQ(WaitForSingleObject(mutex, kBoundedWait), WAIT_ABANDONED);
    owner.join();
    ender.join();
    EXPECT_EQ(ReleaseMutex(mutex), TRUE);
}

TEST_F(Kernel32Sync, ReleasedMutexIsNotAbandonedWhenItsThreadEnds) {
    HANDLE mutex = CreateMutexW(nullptr, FALSE, nullptr);
    onNewThread([mutex] {
        WaitForSingleObject(mutex, 0);
        return ReleaseMutex(mutex);
    });
    EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_OBJECT_0);
}

TEST_F(Kernel32Sync, NamedMutexIsOpenedWithoutOwnership) {
    SetLastError(kStaleError);
    HANDLE first = CreateMutexW(nullptr, FALSE, L"Vexor.Queue");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SUCCESS));
    DWORD openerReleaseError = onNewThread([] {
        HANDLE second = CreateMutexW(nullptr, TRUE, L"Vexor.Queue");
        if (!second || GetLastError() != ERROR_ALREADY_EXISTS) return DWORD{0};
        return ReleaseMutex(second) ? DWORD{0} : GetLastError();
    });
    EXPECT_EQ(openerReleaseError, static_cast<DWORD>(ERROR_NOT_OWNER));
    EXPECT_EQ(WaitForSingleObject(first, 0), WAIT_OBJECT_0);
}

TEST_F(Kernel32Sync, ReleaseMutexRefusesClosedAndForeignHandles) {
    HANDLE mutex = CreateMutexW(nullptr, TRUE, nullptr);
    HANDLE event = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    ASSERT_EQ(CloseHandle(mutex), TRUE);
    for (HANDLE refused : {mutex, event, static_cast<HANDLE>(nullptr)}) {
        SetLastError(0);
        EXPECT_EQ(ReleaseMutex(refused), FALSE);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    }
}

TEST_F(Kernel32Sync, InjectedFailuresOfMutexCalls) {
    faults().failCall("CreateMutexW", ERROR_ACCESS_DENIED, 1);
    EXPECT_EQ(CreateMutexW(nullptr, TRUE, nullptr), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(simhost::openHandleCount(), 0u);

    HANDLE mutex = CreateMutexW(nullptr, TRUE, nullptr);
    ASSERT_NE(mutex, nullptr);
    faults().failCall("ReleaseMutex", ERROR_GEN_FAILURE, 1);
    EXPECT_EQ(ReleaseMutex(mutex), FALSE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_GEN_FAILURE));
    EXPECT_EQ(waitNowOnNewThread(mutex), WAIT_TIMEOUT);
    EXPECT_EQ(ReleaseMutex(mutex), TRUE);
    EXPECT_EQ(waitNowOnNewThread(mutex), WAIT_OBJECT_0);
}

// ---- Sleep ----

TEST_F(Kernel32Sync, SleepLastsItsTime) {
    auto start = steady_clock::now();
    Sleep(50);
    EXPECT_GE(elapsedSince(start), milliseconds(50));
}

TEST_F(Kernel32Sync, SleepRunsOnTheHostTimeScale) {
    simhost::Host::get().setTimeScale(0.001);
    auto start = steady_clock::now();
    Sleep(10000);
    EXPECT_GE(elapsedSince(start), milliseconds(10));
    EXPECT_LT(elapsedSince(start), milliseconds(2000));
}

TEST_F(Kernel32Sync, SleepLeavesTheLastErrorAloneAndCanBeBlocked) {
    SetLastError(kStaleError);
    Sleep(0);
    EXPECT_EQ(GetLastError(), kStaleError);
    EXPECT_EQ(faults().callCount("Sleep"), 1u);

    faults().blockCall("Sleep");
    std::atomic<bool> slept{false};
    std::thread sleeper([&] {
        Sleep(0);
        slept = true;
    });
    EXPECT_TRUE(faults().waitUntilBlocked("Sleep"));
    EXPECT_FALSE(slept.load());
    faults().releaseCall("Sleep");
    sleeper.join();
    EXPECT_TRUE(slept.load());
}

}  // namespace
