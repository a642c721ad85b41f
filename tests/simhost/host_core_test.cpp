#include "simhost/core/host.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

using simhost::Faults;
using simhost::Host;

class HostCore : public ::testing::Test {
protected:
    void SetUp() override { Host::get().reset(); }
    void TearDown() override { Host::get().reset(); }
};

TEST_F(HostCore, DrivePathsMapToDirectories) {
    Host::get().mapDrive(L'c', "/srv/machine/c/");
    EXPECT_EQ(Host::get().driveDirectory(L'C'), "/srv/machine/c");
    EXPECT_EQ(Host::get().toNativePath(L"C:\\ProgramData\\Quillion\\x.txt"), "/srv/machine/c/ProgramData/Quillion/x.txt");
    EXPECT_EQ(Host::get().toNativePath(L"c:/Windows/Temp"), "/srv/machine/c/Windows/Temp");
    EXPECT_EQ(Host::get().toNativePath(L"C:"), "/srv/machine/c");
    EXPECT_EQ(Host::get().toNativePath(L"C:\\caf\u00e9"), "/srv/machine/c/caf\xc3\xa9");
}

TEST_F(HostCore, UnmappedDrivesAndRelativePathsHaveNoNativePath) {
    Host::get().mapDrive(L'C', "/srv/c");
    EXPECT_EQ(Host::get().toNativePath(L"D:\\data"), "");
    EXPECT_EQ(Host::get().toNativePath(L"relative\\path"), "");
    EXPECT_EQ(Host::get().toNativePath(L"\\\\server\\share"), "");
    EXPECT_EQ(Host::get().toNativePath(L""), "");
}

TEST_F(HostCore, ResetDropsDrivesStateAndTimeScale) {
    struct Counter {
        int value = 0;
    };
    Host::get().mapDrive(L'C', "/srv/c");
    Host::get().setTimeScale(0.5);
    Host::get().state<Counter>().value = 7;
    Host::get().reset();
    EXPECT_EQ(Host::get().driveDirectory(L'C'), "");
    EXPECT_EQ(Host::get().timeScale(), 1.0);
    EXPECT_EQ(Host::get().state<Counter>().value, 0);
}

TEST_F(HostCore, TimeScaleShortensWaitsButNotInfinite) {
    EXPECT_EQ(Host::get().scaledMilliseconds(10000), 10000u);
    Host::get().setTimeScale(0.001);
    EXPECT_EQ(Host::get().scaledMilliseconds(10000), 10u);
    EXPECT_EQ(Host::get().scaledMilliseconds(INFINITE), static_cast<uint64_t>(INFINITE));
    Host::get().setTimeScale(0);
    EXPECT_EQ(Host::get().timeScale(), 1.0);
}

TEST_F(HostCore, FailCallFailsTheNextCallsThenPasses) {
    Faults& faults = Host::get().faults();
    faults.failCall("CreateEventW", ERROR_NOT_ENOUGH_MEMORY, 2);
    EXPECT_EQ(simhost::injectedFailure("CreateEventW"), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(simhost::injectedFailure("CreateEventW"), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(simhost::injectedFailure("CreateEventW"), 0u);
    EXPECT_EQ(simhost::injectedFailure("SetEvent"), 0u);
    EXPECT_EQ(faults.callCount("CreateEventW"), 3u);
}

TEST_F(HostCore, FailCallCanLetCallsPassFirst) {
    Faults& faults = Host::get().faults();
    faults.failCall("CreateEventW", ERROR_ACCESS_DENIED, 1, 2);
    EXPECT_EQ(simhost::injectedFailure("CreateEventW"), 0u);
    EXPECT_EQ(simhost::injectedFailure("CreateEventW"), 0u);
    EXPECT_EQ(simhost::injectedFailure("CreateEventW"), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(simhost::injectedFailure("CreateEventW"), 0u);
}

TEST_F(HostCore, FailCallAlwaysUntilCleared) {
    Faults& faults = Host::get().faults();
    faults.failCall("socket", 10093);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(simhost::injectedFailure("socket"), 10093u);
    faults.clear("socket");
    EXPECT_EQ(simhost::injectedFailure("socket"), 0u);
}

TEST_F(HostCore, BlockedCallWaitsUntilReleased) {
    Faults& faults = Host::get().faults();
    faults.blockCall("send");
    std::atomic<bool> returned{false};
    std::thread caller([&] {
        simhost::injectedFailure("send");
        returned = true;
    });
    ASSERT_TRUE(faults.waitUntilBlocked("send"));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(returned);
    faults.releaseCall("send");
    caller.join();
    EXPECT_TRUE(returned);
    EXPECT_EQ(faults.blockedCount("send"), 0u);
}

TEST_F(HostCore, ClearAllReleasesBlockedCalls) {
    Faults& faults = Host::get().faults();
    faults.blockCall("recv");
    std::thread caller([] { simhost::injectedFailure("recv"); });
    ASSERT_TRUE(faults.waitUntilBlocked("recv"));
    faults.clearAll();
    caller.join();
    EXPECT_EQ(faults.blockedCount("recv"), 0u);
}

TEST_F(HostCore, DelayedCallTakesItsTime) {
    Host::get().faults().delayCall("accept", 50);
    auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(simhost::injectedFailure("accept"), 0u);
    EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(50));
}

}  // namespace

#include "simhost/core/text.h"

namespace {

TEST(HostText, WidenAndNarrowRoundTrip) {
    EXPECT_EQ(simhost::widen("caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x96\xa8"), L"caf\u00e9 \u20ac \U0001F5A8");
    EXPECT_EQ(simhost::narrow(L"caf\u00e9 \u20ac \U0001F5A8"), "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x96\xa8");
    EXPECT_EQ(simhost::widen(""), L"");
}

TEST(HostText, MalformedUtf8BecomesReplacementCharacters) {
    EXPECT_EQ(simhost::widen("a\xff" "b"), L"a\uFFFDb");
    EXPECT_EQ(simhost::widen("\xc3"), L"\uFFFD");
    EXPECT_EQ(simhost::widen("\xe2\x28\xa1"), L"\uFFFD(\uFFFD");
}

}  // namespace
