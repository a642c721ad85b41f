#include "simhost/core/faults.h"

#include "simhost/core/thread_ending.h"

#include <chrono>

namespace simhost {

void Faults::failCall(const std::string& call, DWORD error, int times, int passing) {
    std::lock_guard<std::mutex> lock(mutex_);
    Arrangement& a = calls_[call];
    a.error = error;
    a.failuresLeft = times;
    a.passesLeft = passing;
}

void Faults::blockCall(const std::string& call) {
    std::lock_guard<std::mutex> lock(mutex_);
    calls_[call].blocked = true;
}

void Faults::releaseCall(const std::string& call) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        calls_[call].blocked = false;
    }
    released_.notify_all();
}

size_t Faults::blockedCount(const std::string& call) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = calls_.find(call);
    return it == calls_.end() ? 0 : it->second.waiting;
}

bool Faults::waitUntilBlocked(const std::string& call, size_t count, unsigned timeoutMs) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return blocked_.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
        auto it = calls_.find(call);
        return it != calls_.end() && it->second.waiting >= count;
    });
}

void Faults::delayCall(const std::string& call, DWORD milliseconds) {
    std::lock_guard<std::mutex> lock(mutex_);
    calls_[call].delay = milliseconds;
}

void Faults::clear(const std::string& call) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = calls_.find(call);
        if (it == calls_.end()) return;
        size_t calls = it->second.calls;
        size_t waiting = it->second.waiting;
        it->second = Arrangement{};
        it->second.calls = calls;
        it->second.waiting = waiting;
    }
    released_.notify_all();
}

void Faults::clearAll() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (auto& entry : calls_) {
            size_t waiting = entry.second.waiting;
            entry.second = Arrangement{};
            entry.second.waiting = waiting;
        }
    }
    released_.notify_all();
}

size_t Faults::callCount(const std::string& call) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = calls_.find(call);
    return it == calls_.end() ? 0 : it->second.calls;
}

void Faults::wakeWaiters() {
    // Taking the lock orders the wake after any check of a waiter that has
    // not yet gone to sleep.
    { std::lock_guard<std::mutex> lock(mutex_); }
    released_.notify_all();
}

// A thread asked to end (requestThreadEnd) ends here: at the entry of the
// call, or inside its block or delay, without ever returning to its caller.
DWORD Faults::enter(std::string_view call) {
    std::unique_lock<std::mutex> lock(mutex_);
    auto endIfRequested = [&lock] {
        if (!callingThreadEndRequested()) return;
        lock.unlock();
        endCallingThread();
    };
    endIfRequested();
    // Entries are reset but never erased, so the reference outlives the waits.
    auto it = calls_.find(call);
    if (it == calls_.end()) it = calls_.emplace(std::string(call), Arrangement{}).first;
    Arrangement& a = it->second;
    ++a.calls;
    if (a.blocked) {
        noteCallingThreadWaits(true);
        ++a.waiting;
        blocked_.notify_all();
        released_.wait(lock, [&] { return !a.blocked || callingThreadEndRequested(); });
        noteCallingThreadWaits(false);
        --a.waiting;
        endIfRequested();
    }
    if (a.delay) {
        noteCallingThreadWaits(true);
        released_.wait_for(lock, std::chrono::milliseconds(a.delay), [] { return callingThreadEndRequested(); });
        noteCallingThreadWaits(false);
        endIfRequested();
    }
    if (a.failuresLeft == 0) return 0;
    if (a.passesLeft > 0) {
        --a.passesLeft;
        return 0;
    }
    if (a.failuresLeft > 0) --a.failuresLeft;
    return a.error;
}

}  // namespace simhost
