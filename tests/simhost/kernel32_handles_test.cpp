// The handle table, CloseHandle, the last error and thread and process
// identity of the simulated kernel32.
#include "kernel32_test_helpers.h"
#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/kernel32/objects.h"
#include "simhost/kernel32/threads.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <unistd.h>

using kernel32_test::onNewThread;

namespace {

class Widget : public simhost::KernelObject {
public:
    const char* typeName() const override { return "Widget"; }
};

class Gadget : public simhost::KernelObject {
public:
    const char* typeName() const override { return "Gadget"; }
};

class Kernel32Handles : public ::testing::Test {
protected:
    void SetUp() override { simhost::Host::get().reset(); }
};

TEST_F(Kernel32Handles, ValuesAreDistinctMultiplesOfFourNeverNullNorAllOnes) {
    std::set<HANDLE> seen;
    for (int i = 0; i < 100; ++i) {
        HANDLE handle = simhost::registerHandle(std::make_shared<Widget>());
        EXPECT_NE(handle, nullptr);
        EXPECT_NE(handle, INVALID_HANDLE_VALUE);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(handle) % 4, 0u);
        EXPECT_TRUE(seen.insert(handle).second);
    }
}

TEST_F(Kernel32Handles, ClosedValueIsNeverGivenOutAgain) {
    HANDLE first = simhost::registerHandle(std::make_shared<Widget>());
    ASSERT_TRUE(CloseHandle(first));
    for (int i = 0; i < 10; ++i) EXPECT_NE(simhost::registerHandle(std::make_shared<Widget>()), first);
}

TEST_F(Kernel32Handles, LookupAnswersTheObjectOfTheRightTypeOnly) {
    auto widget = std::make_shared<Widget>();
    HANDLE handle = simhost::registerHandle(widget);
    EXPECT_EQ(simhost::lookupHandle<Widget>(handle), widget);
    EXPECT_EQ(simhost::lookupHandle<simhost::KernelObject>(handle), widget);
    EXPECT_EQ(simhost::lookupHandle<Gadget>(handle), nullptr);
    EXPECT_EQ(simhost::lookupHandle<Widget>(nullptr), nullptr);
    EXPECT_EQ(simhost::lookupHandle<Widget>(simhost::reserveHandleValue()), nullptr);
}

TEST_F(Kernel32Handles, TwoHandlesOfOneObjectCloseSeparately) {
    auto widget = std::make_shared<Widget>();
    HANDLE first = simhost::registerHandle(widget);
    HANDLE second = simhost::registerHandle(widget);
    EXPECT_NE(first, second);
    ASSERT_TRUE(CloseHandle(first));
    EXPECT_EQ(simhost::lookupHandle<Widget>(first), nullptr);
    EXPECT_EQ(simhost::lookupHandle<Widget>(second), widget);
}

TEST_F(Kernel32Handles, ObjectIsDestroyedWithItsLastHandle) {
    auto widget = std::make_shared<Widget>();
    std::weak_ptr<Widget> watch = widget;
    HANDLE handle = simhost::registerHandle(std::move(widget));
    EXPECT_FALSE(watch.expired());
    ASSERT_TRUE(CloseHandle(handle));
    EXPECT_TRUE(watch.expired());
}

TEST_F(Kernel32Handles, ReservedValuesFollowTheSameSequence) {
    HANDLE registered = simhost::registerHandle(std::make_shared<Widget>());
    HANDLE reserved = simhost::reserveHandleValue();
    EXPECT_NE(reserved, registered);
    EXPECT_NE(reserved, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(reserved) % 4, 0u);
    EXPECT_EQ(simhost::openHandleCount(), 1u);
}

TEST_F(Kernel32Handles, CloseHandleSucceedsWithoutTouchingTheLastError) {
    HANDLE handle = simhost::registerHandle(std::make_shared<Widget>());
    SetLastError(1234);
    EXPECT_EQ(CloseHandle(handle), TRUE);
    EXPECT_EQ(GetLastError(), 1234u);
}

TEST_F(Kernel32Handles, ClosedHandleIsRefused) {
    HANDLE handle = simhost::registerHandle(std::make_shared<Widget>());
    ASSERT_TRUE(CloseHandle(handle));
    SetLastError(0);
    EXPECT_EQ(CloseHandle(handle), FALSE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

TEST_F(Kernel32Handles, NullAndUnknownHandlesAreRefused) {
    SetLastError(0);
    EXPECT_EQ(CloseHandle(nullptr), FALSE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    SetLastError(0);
    EXPECT_EQ(CloseHandle(reinterpret_cast<HANDLE>(static_cast<uintptr_t>(0x7777770))), FALSE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

TEST_F(Kernel32Handles, HandleFromBeforeResetIsRefused) {
    HANDLE handle = simhost::registerHandle(std::make_shared<Widget>());
    simhost::Host::get().reset();
    EXPECT_EQ(simhost::openHandleCount(), 0u);
    EXPECT_EQ(simhost::lookupHandle<Widget>(handle), nullptr);
    EXPECT_EQ(CloseHandle(handle), FALSE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_NE(simhost::registerHandle(std::make_shared<Widget>()), handle);
}

TEST_F(Kernel32Handles, InjectedCloseFailureLeavesTheHandleOpen) {
    HANDLE handle = simhost::registerHandle(std::make_shared<Widget>());
    simhost::Host::get().faults().failCall("CloseHandle", ERROR_ACCESS_DENIED, 1);
    EXPECT_EQ(CloseHandle(handle), FALSE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(simhost::openHandleCount(), 1u);
    EXPECT_EQ(CloseHandle(handle), TRUE);
    EXPECT_EQ(simhost::openHandleCount(), 0u);
}

TEST_F(Kernel32Handles, OpenHandlesAreCountedInAllAndByType) {
    HANDLE widget = simhost::registerHandle(std::make_shared<Widget>());
    simhost::registerHandle(std::make_shared<Widget>());
    simhost::registerHandle(std::make_shared<Gadget>());
    EXPECT_EQ(simhost::openHandleCount(), 3u);
    EXPECT_EQ(simhost::openHandleCount("Widget"), 2u);
    EXPECT_EQ(simhost::openHandleCount("Gadget"), 1u);
    EXPECT_EQ(simhost::openHandleCount("Event"), 0u);
    ASSERT_TRUE(CloseHandle(widget));
    EXPECT_EQ(simhost::openHandleCount(), 2u);
    EXPECT_EQ(simhost::openHandleCount("Widget"), 1u);
}

TEST_F(Kernel32Handles, CurrentProcessIsThePseudoHandleAndClosingItDoesNothing) {
    EXPECT_EQ(GetCurrentProcess(), reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)));
    SetLastError(4321);
    EXPECT_EQ(CloseHandle(GetCurrentProcess()), TRUE);
    EXPECT_EQ(GetLastError(), 4321u);
    EXPECT_EQ(GetCurrentProcess(), reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)));
}

class Kernel32Identity : public ::testing::Test {
protected:
    void SetUp() override { simhost::Host::get().reset(); }
};

TEST_F(Kernel32Identity, LastErrorIsKeptPerThread) {
    SetLastError(ERROR_ACCESS_DENIED);
    DWORD seenByNewThread = onNewThread([] { return GetLastError(); });
    DWORD setByNewThread = onNewThread([] {
        SetLastError(ERROR_NOT_OWNER);
        return GetLastError();
    });
    EXPECT_EQ(seenByNewThread, 0u);
    EXPECT_EQ(setByNewThread, static_cast<DWORD>(ERROR_NOT_OWNER));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
}

TEST_F(Kernel32Identity, ThreadIdIsStableNonZeroAndDistinctPerThread) {
    DWORD mine = GetCurrentThreadId();
    EXPECT_NE(mine, 0u);
    EXPECT_EQ(GetCurrentThreadId(), mine);
    std::set<DWORD> ids{mine};
    for (int i = 0; i < 5; ++i) {
        DWORD other = onNewThread([] {
            DWORD first = GetCurrentThreadId();
            return GetCurrentThreadId() == first ? first : 0;
        });
        EXPECT_NE(other, 0u);
        EXPECT_TRUE(ids.insert(other).second);
    }
}

TEST_F(Kernel32Identity, ProcessIdIsTheRealOneUntilSet) {
    EXPECT_EQ(GetCurrentProcessId(), static_cast<DWORD>(getpid()));
    simhost::setCurrentProcessId(4242);
    EXPECT_EQ(GetCurrentProcessId(), 4242u);
    EXPECT_EQ(onNewThread([] { return GetCurrentProcessId(); }), 4242u);
    simhost::Host::get().reset();
    EXPECT_EQ(GetCurrentProcessId(), static_cast<DWORD>(getpid()));
}

TEST_F(Kernel32Identity, IdentityCallsLeaveTheLastErrorAlone) {
    SetLastError(ERROR_GEN_FAILURE);
    GetCurrentThreadId();
    GetCurrentProcessId();
    GetCurrentProcess();
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_GEN_FAILURE));
}

}  // namespace
