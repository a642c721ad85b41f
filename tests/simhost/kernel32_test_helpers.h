// Helpers of the simulated host's tests for work on other threads. Every
// wait here has a bound of its own, so that a test whose condition never
// comes fails after a few seconds instead of hanging.
#pragma once

#include "simhost/wintypes.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <type_traits>

namespace kernel32_test {

// A Windows time-out for waits that a passing test always ends long before:
// a failing one times out instead of hanging.
constexpr DWORD kBoundedWait = 10000;

// Runs `work` on a new thread to its end, thread-local destructors included,
// and answers its result.
template <class Work>
auto onNewThread(Work work) {
    std::invoke_result_t<Work> result{};
    std::thread([&] { result = work(); }).join();
    return result;
}

// Polls `condition` until it holds or `limit` passes; answers its last value.
template <class Condition>
bool eventually(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(5)) {
    auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

inline std::chrono::milliseconds elapsedSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
}

// A gate that threads of the code under test wait at until the test opens
// it. Made of standard primitives, so it outlives Host::reset. A thread
// that has waited ten seconds fails the test and goes on, so a test that
// never opens the gate still ends.
class Gate {
public:
    explicit Gate(bool open = false) : open_(open) {}

    void pass() {
        std::unique_lock<std::mutex> hold(mutex_);
        ++waiting_;
        if (!opened_.wait_for(hold, std::chrono::seconds(10), [this] { return open_; }))
            ADD_FAILURE() << "a thread waited at a gate that was never opened";
    }
    void open() {
        {
            std::lock_guard<std::mutex> hold(mutex_);
            open_ = true;
        }
        opened_.notify_all();
    }
    void close() {
        std::lock_guard<std::mutex> hold(mutex_);
        open_ = false;
    }
    // How many passes have begun, including those already through.
    int waiting() {
        std::lock_guard<std::mutex> hold(mutex_);
        return waiting_;
    }

private:
    std::mutex mutex_;
    std::condition_variable opened_;
    bool open_;
    int waiting_ = 0;
};

}  // namespace kernel32_test
