// Events, mutexes, WaitForSingleObject and Sleep.
//
// Last error: the Create calls set it on success only for a named object, to
// ERROR_ALREADY_EXISTS when the name was taken and to 0 when the object is
// new, which is what their documentation tells callers to test; for an
// unnamed object they leave it alone. The other calls change it only on
// failure, and a wait that ends in WAIT_OBJECT_0, WAIT_ABANDONED or
// WAIT_TIMEOUT has not failed. A handle of the wrong type is refused like an
// unknown one (ERROR_INVALID_HANDLE).
#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/kernel32/objects.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

namespace {

class EventObject : public simhost::WaitableObject {
public:
    EventObject(bool manualReset, bool signalled) : manualReset_(manualReset), signalled_(signalled) {}
    const char* typeName() const override { return "Event"; }

    void set() {
        changeState([this] { signalled_ = true; });
    }
    void reset() {
        changeState([this] { signalled_ = false; });
    }

private:
    // An auto-reset event lets exactly one waiter through per signal.
    DWORD tryAcquireLocked() override {
        if (!signalled_) return WAIT_TIMEOUT;
        if (!manualReset_) signalled_ = false;
        return WAIT_OBJECT_0;
    }

    const bool manualReset_;
    bool signalled_;
};

class MutexObject;

// The mutexes the calling thread owns. Its destructor runs when the thread
// ends and abandons those still owned, as Windows does for a thread that
// ends without releasing them.
class OwnedMutexes {
public:
    ~OwnedMutexes();
    void add(const std::shared_ptr<MutexObject>& mutex) { owned_.push_back(mutex); }
    void remove(const MutexObject* mutex) {
        owned_.erase(std::remove_if(owned_.begin(), owned_.end(),
                                    [mutex](const std::weak_ptr<MutexObject>& entry) {
                                        std::shared_ptr<MutexObject> living = entry.lock();
                                        return !living || living.get() == mutex;
                                    }),
                     owned_.end());
    }

private:
    std::vector<std::weak_ptr<MutexObject>> owned_;
};

thread_local OwnedMutexes ownedByThisThread;

// A mutex belongs to one thread at a time, which may acquire it again and
// must release it as often. Threads are told by their GetCurrentThreadId,
// which is never reused.
class MutexObject : public simhost::WaitableObject, public std::enable_shared_from_this<MutexObject> {
public:
    const char* typeName() const override { return "Mutex"; }

    // False when the calling thread does not own it.
    bool release() {
        return changeState([this] {
            if (owner_ != GetCurrentThreadId()) return false;
            if (--recursion_ == 0) {
                owner_ = 0;
                ownedByThisThread.remove(this);
            }
            return true;
        });
    }

    // The owner ended: the next thread to wait gets it with WAIT_ABANDONED.
    void abandonBy(DWORD thread) {
        changeState([this, thread] {
            if (owner_ != thread) return;
            owner_ = 0;
            recursion_ = 0;
            abandoned_ = true;
        });
    }

private:
    DWORD tryAcquireLocked() override {
        DWORD self = GetCurrentThreadId();
        if (owner_ == self) {
            ++recursion_;
            return WAIT_OBJECT_0;
        }
        if (owner_ != 0) return WAIT_TIMEOUT;
        owner_ = self;
        recursion_ = 1;
        ownedByThisThread.add(shared_from_this());
        if (!abandoned_) return WAIT_OBJECT_0;
        abandoned_ = false;
        return WAIT_ABANDONED;
    }

    DWORD owner_ = 0;
    unsigned recursion_ = 0;
    bool abandoned_ = false;
};

OwnedMutexes::~OwnedMutexes() {
    DWORD self = GetCurrentThreadId();
    for (const std::weak_ptr<MutexObject>& entry : owned_)
        if (std::shared_ptr<MutexObject> mutex = entry.lock()) mutex->abandonBy(self);
}

// An unnamed object gets a handle and leaves the last error alone; a named
// one is opened if its name is taken by an object of the same type.
template <class T>
HANDLE createSyncObject(LPCWSTR name, const std::function<std::shared_ptr<simhost::KernelObject>()>& make) {
    if (!name || !*name) return simhost::registerHandle(make());
    simhost::NamedObject named = simhost::openOrCreateNamedObject(name, make);
    if (!std::dynamic_pointer_cast<T>(named.object)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    SetLastError(named.existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return simhost::registerHandle(named.object);
}

template <class T>
std::shared_ptr<T> lookupOrFail(HANDLE handle) {
    std::shared_ptr<T> object = simhost::lookupHandle<T>(handle);
    if (!object) SetLastError(ERROR_INVALID_HANDLE);
    return object;
}

void sleepOnTimeScale(DWORD milliseconds) {
    std::optional<std::chrono::steady_clock::time_point> deadline = simhost::waitDeadline(milliseconds);
    if (deadline) {
        std::this_thread::sleep_until(*deadline);
        return;
    }
    for (;;) std::this_thread::sleep_for(std::chrono::hours(24));
}

// The own process runs while its threads wait: a wait on it times out.
DWORD waitOnRunningProcess(DWORD milliseconds) {
    sleepOnTimeScale(milliseconds);
    return WAIT_TIMEOUT;
}

}  // namespace

HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES, BOOL manualReset, BOOL initialState, LPCWSTR name) {
    if (DWORD e = simhost::injectedFailure("CreateEventW")) {
        SetLastError(e);
        return nullptr;
    }
    return createSyncObject<EventObject>(
        name, [&] { return std::make_shared<EventObject>(manualReset != FALSE, initialState != FALSE); });
}

BOOL WINAPI SetEvent(HANDLE event) {
    if (DWORD e = simhost::injectedFailure("SetEvent")) {
        SetLastError(e);
        return FALSE;
    }
    std::shared_ptr<EventObject> object = lookupOrFail<EventObject>(event);
    if (!object) return FALSE;
    object->set();
    return TRUE;
}

BOOL WINAPI ResetEvent(HANDLE event) {
    if (DWORD e = simhost::injectedFailure("ResetEvent")) {
        SetLastError(e);
        return FALSE;
    }
    std::shared_ptr<EventObject> object = lookupOrFail<EventObject>(event);
    if (!object) return FALSE;
    object->reset();
    return TRUE;
}

// An existing named mutex is opened without ownership: initialOwner only
// applies to a mutex this call makes.
HANDLE WINAPI CreateMutexW(LPSECURITY_ATTRIBUTES, BOOL initialOwner, LPCWSTR name) {
    if (DWORD e = simhost::injectedFailure("CreateMutexW")) {
        SetLastError(e);
        return nullptr;
    }
    return createSyncObject<MutexObject>(name, [&] {
        auto mutex = std::make_shared<MutexObject>();
        if (initialOwner) mutex->tryAcquire();
        return mutex;
    });
}

BOOL WINAPI ReleaseMutex(HANDLE mutex) {
    if (DWORD e = simhost::injectedFailure("ReleaseMutex")) {
        SetLastError(e);
        return FALSE;
    }
    std::shared_ptr<MutexObject> object = lookupOrFail<MutexObject>(mutex);
    if (!object) return FALSE;
    if (object->release()) return TRUE;
    SetLastError(ERROR_NOT_OWNER);
    return FALSE;
}

// A handle closed while another thread waits on it leaves that wait running:
// the wait holds the object, as the Windows kernel does.
DWORD WINAPI WaitForSingleObject(HANDLE object, DWORD milliseconds) {
    if (DWORD e = simhost::injectedFailure("WaitForSingleObject")) {
        SetLastError(e);
        return WAIT_FAILED;
    }
    if (object == GetCurrentProcess()) return waitOnRunningProcess(milliseconds);
    std::shared_ptr<simhost::WaitableObject> waitable = lookupOrFail<simhost::WaitableObject>(object);
    if (!waitable) return WAIT_FAILED;
    return waitable->wait(milliseconds);
}

// Sleep cannot fail; its entry check still lets a test block, slow or count
// it.
void WINAPI Sleep(DWORD milliseconds) {
    (void)simhost::injectedFailure("Sleep");
    sleepOnTimeScale(milliseconds);
}
