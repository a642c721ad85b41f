// Helpers of the kernel32 tests for work on other threads.
#pragma once

#include <chrono>
#include <thread>
#include <type_traits>

namespace kernel32_test {

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

}  // namespace kernel32_test
