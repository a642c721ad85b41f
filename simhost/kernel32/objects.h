// Kernel objects and the handle table of the simulated host. Every component
// that hands out kernel handles (events, mutexes, processes, threads, tokens)
// registers its objects here, so that CloseHandle and the wait functions serve
// them all alike and a handle leak shows in one count.
#pragma once

#include "simhost/wintypes.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace simhost {

class KernelObject {
public:
    virtual ~KernelObject() = default;
    // The type's name ("Event", "Mutex"), by which the test API counts handles.
    virtual const char* typeName() const = 0;
};

// An object the wait functions accept. A subclass keeps its state under
// `lock_`, answers in tryAcquireLocked whether a waiter may go on now (taking
// what a satisfied wait takes, such as an auto-reset event's signal), and
// makes every change through changeState, which wakes the waiters to look
// again.
class WaitableObject : public KernelObject {
public:
    // Waits up to a Windows time-out (scaled by the host's time scale;
    // INFINITE for none): WAIT_OBJECT_0, WAIT_ABANDONED or WAIT_TIMEOUT.
    DWORD wait(DWORD milliseconds);
    // The same without waiting.
    DWORD tryAcquire();
    // How many threads wait on the object now.
    size_t waiters() const { return waiters_.load(); }

protected:
    // Called with lock_ held: WAIT_TIMEOUT while the object is not signalled.
    virtual DWORD tryAcquireLocked() = 0;

    // Runs `change` under lock_, then wakes all waiters; answers what
    // `change` answers.
    template <class Change>
    auto changeState(Change change) {
        WakeWaiters wake{changed_};
        std::lock_guard<std::mutex> hold(lock_);
        return change();
    }

    std::mutex lock_;

private:
    // changeState makes it before its lock guard, so it notifies after the
    // unlock and a woken waiter does not stall on the lock.
    struct WakeWaiters {
        std::condition_variable& changed;
        ~WakeWaiters() { changed.notify_all(); }
    };

    std::condition_variable changed_;
    std::atomic<size_t> waiters_{0};
};

// When a wait with this Windows time-out, started now, ends on the host's
// time scale; nothing for INFINITE.
std::optional<std::chrono::steady_clock::time_point> waitDeadline(DWORD milliseconds);

// A new handle to `object`. Handle values are multiples of 4, never null,
// never INVALID_HANDLE_VALUE, and never given out twice in a process, not
// even across Host::reset, so a stale handle is always refused.
HANDLE registerHandle(std::shared_ptr<KernelObject> object);
// A fresh value of the same sequence, for handles that are not kernel
// objects (printers, registry keys), so that no two handles compare equal.
HANDLE reserveHandleValue();
// The object behind an open handle; null for a closed or unknown handle.
std::shared_ptr<KernelObject> lookupObject(HANDLE handle);
// The object behind an open handle if it is a T; null otherwise.
template <class T>
std::shared_ptr<T> lookupHandle(HANDLE handle) {
    return std::dynamic_pointer_cast<T>(lookupObject(handle));
}
// Closes an open handle; false if it was not open. Neither fault injection
// nor the last error: CloseHandle adds those.
bool closeHandle(HANDLE handle);

// Named objects share one namespace whatever their type, as on Windows. The
// object of that name if one lives (existed = true), else the one `make`
// returns, which is then known by the name until its last reference goes.
struct NamedObject {
    std::shared_ptr<KernelObject> object;
    bool existed;
};
NamedObject openOrCreateNamedObject(const std::wstring& name,
                                    const std::function<std::shared_ptr<KernelObject>()>& make);

// Test API: waits until at least `count` threads wait on the object behind
// `handle`, for at most `timeoutMs` real milliseconds; false when they did
// not, or the handle is no waitable object. Lets a test act only once a
// thread is inside its wait.
bool waitUntilWaiting(HANDLE handle, size_t count = 1, unsigned timeoutMs = 10000);

// For the test API's waits on other threads: asks `reached` every real
// millisecond until it answers true (then true) or `timeoutMs` real
// milliseconds have passed (then false).
bool pollUntil(const std::function<bool()>& reached, unsigned timeoutMs);

// Test API: open handles, all or of one type name, to find handle leaks.
size_t openHandleCount();
size_t openHandleCount(const std::string& typeName);

}  // namespace simhost
