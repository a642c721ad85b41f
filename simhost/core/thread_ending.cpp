#include "simhost/core/thread_ending.h"

#include "simhost/core/host.h"

#include <map>
#include <mutex>

namespace simhost {
namespace {

struct ThreadEntry {
    bool endRequested = false;
    bool waitingInHost = false;
};

// Threads known to the host by their thread id. A thread enters on its first
// faultable call and leaves when it ends, so a reused id starts afresh.
class ThreadRegistry {
public:
    ThreadEnding requestEnd(pthread_t thread) {
        std::lock_guard<std::mutex> lock(mutex_);
        ThreadEntry& entry = threads_[thread];
        entry.endRequested = true;
        return entry.waitingInHost ? ThreadEnding::EndsNow : ThreadEnding::EndsAtNextCall;
    }
    bool endRequested(pthread_t thread) {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = threads_.find(thread);
        return it != threads_.end() && it->second.endRequested;
    }
    void noteWaiting(pthread_t thread, bool waiting) {
        std::lock_guard<std::mutex> lock(mutex_);
        threads_[thread].waitingInHost = waiting;
    }
    size_t stillToEnd() {
        std::lock_guard<std::mutex> lock(mutex_);
        size_t count = 0;
        for (const auto& entry : threads_) count += entry.second.endRequested ? 1 : 0;
        return count;
    }
    void forget(pthread_t thread) {
        std::lock_guard<std::mutex> lock(mutex_);
        threads_.erase(thread);
    }

private:
    std::mutex mutex_;
    std::map<pthread_t, ThreadEntry> threads_;
};

// Outlives every thread: threads still leave it while the process ends.
ThreadRegistry& registry() {
    static ThreadRegistry* instance = new ThreadRegistry;
    return *instance;
}

// Takes the calling thread's entry out of the registry when the thread ends,
// however it ends.
struct RegisteredThread {
    RegisteredThread() : self(pthread_self()) {}
    ~RegisteredThread() { registry().forget(self); }
    const pthread_t self;
};

void registerCallingThread() { thread_local RegisteredThread registered; }

}  // namespace

ThreadEnding requestThreadEnd(pthread_t thread) {
    ThreadEnding ending = registry().requestEnd(thread);
    Host::get().faults().wakeWaiters();
    return ending;
}

size_t threadsStillToEnd() { return registry().stillToEnd(); }

bool callingThreadEndRequested() {
    registerCallingThread();
    return registry().endRequested(pthread_self());
}

void noteCallingThreadWaits(bool waiting) { registry().noteWaiting(pthread_self(), waiting); }

void endCallingThread() { pthread_exit(nullptr); }

}  // namespace simhost
