// QueueUserWorkItem over a pool of detached threads.
//
// Every item starts at once: on an idle pool thread if there is one, on a new
// thread otherwise. So an item never waits for a busy thread, which is what
// WT_EXECUTELONGFUNCTION asks for, and the service's long-running items (a
// worker loop, a socket reader) each keep a thread of their own. Idle
// threads end after a while without work.
#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/kernel32/threads.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>

namespace {

struct WorkItem {
    LPTHREAD_START_ROUTINE function;
    PVOID context;
};

class WorkItemPool {
public:
    // False when no thread could be started for the item.
    bool submit(WorkItem item) {
        std::lock_guard<std::mutex> hold(mutex_);
        queue_.push_back(item);
        ++unfinished_;
        // Each idle thread takes one queued item when it wakes; an item more
        // than there are idle threads needs a thread of its own.
        if (queue_.size() <= idleThreads_) {
            workQueued_.notify_one();
            return true;
        }
        try {
            std::thread([this] { serve(); }).detach();
            return true;
        } catch (const std::system_error&) {
            queue_.pop_back();
            --unfinished_;
            return false;
        }
    }

    bool waitForIdle(DWORD milliseconds) {
        std::unique_lock<std::mutex> hold(mutex_);
        return allFinished_.wait_for(hold, std::chrono::milliseconds(milliseconds),
                                     [this] { return unfinished_ == 0; });
    }

    size_t unfinished() {
        std::lock_guard<std::mutex> hold(mutex_);
        return unfinished_;
    }

private:
    static constexpr std::chrono::seconds kIdleThreadLifetime{2};

    // A pool thread's life: run queued items, wait idle for more, end when
    // none comes in time.
    void serve() {
        std::unique_lock<std::mutex> hold(mutex_);
        for (;;) {
            if (!queue_.empty()) {
                run(hold);
                continue;
            }
            ++idleThreads_;
            bool woken = workQueued_.wait_for(hold, kIdleThreadLifetime, [this] { return !queue_.empty(); });
            --idleThreads_;
            if (!woken) return;
        }
    }

    void run(std::unique_lock<std::mutex>& hold) {
        WorkItem item = queue_.front();
        queue_.pop_front();
        hold.unlock();
        item.function(item.context);
        hold.lock();
        if (--unfinished_ == 0) allFinished_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable workQueued_;
    std::condition_variable allFinished_;
    std::deque<WorkItem> queue_;
    size_t idleThreads_ = 0;
    size_t unfinished_ = 0;
};

// Never destroyed: its detached threads may outlive main, blocked in an item
// for good, and must not find the pool gone.
WorkItemPool& pool() {
    static WorkItemPool* const instance = new WorkItemPool;
    return *instance;
}

}  // namespace

namespace simhost {

bool waitForIdleWorkItems(DWORD milliseconds) { return pool().waitForIdle(milliseconds); }

size_t unfinishedWorkItems() { return pool().unfinished(); }

}  // namespace simhost

// The flags choose among Windows' kinds of pool threads; here every item gets
// a thread at once whatever they say.
BOOL WINAPI QueueUserWorkItem(LPTHREAD_START_ROUTINE function, PVOID context, ULONG) {
    if (DWORD e = simhost::injectedFailure("QueueUserWorkItem")) {
        SetLastError(e);
        return FALSE;
    }
    if (pool().submit({function, context})) return TRUE;
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return FALSE;
}
