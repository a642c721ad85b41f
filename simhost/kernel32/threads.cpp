// Last error, thread and process identity.
#include "simhost/kernel32/threads.h"

#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"

#include <atomic>
#include <unistd.h>

namespace {

// Both plain values, so they stay readable while the thread's other
// thread-local objects are destroyed at its end.
thread_local DWORD lastError = ERROR_SUCCESS;
thread_local DWORD currentThreadId = 0;

// Thread ids are multiples of 4 like Windows', never 0 and never reused, so
// that an id can stand for its thread after the thread has ended.
std::atomic<DWORD> lastThreadId{1000};

struct ProcessIdentity {
    std::atomic<DWORD> processId{0};
};

}  // namespace

namespace simhost {

void setCurrentProcessId(DWORD processId) { Host::get().state<ProcessIdentity>().processId = processId; }

DWORD newThreadId() { return lastThreadId.fetch_add(4) + 4; }

}  // namespace simhost

DWORD WINAPI GetLastError() { return lastError; }

void WINAPI SetLastError(DWORD error) { lastError = error; }

DWORD WINAPI GetCurrentThreadId() {
    if (currentThreadId == 0) currentThreadId = simhost::newThreadId();
    return currentThreadId;
}

DWORD WINAPI GetCurrentProcessId() {
    DWORD arranged = simhost::Host::get().state<ProcessIdentity>().processId;
    return arranged ? arranged : static_cast<DWORD>(getpid());
}

// The pseudo-handle (HANDLE)-1, as on Windows: it is not in the handle table
// and closing it does nothing.
HANDLE WINAPI GetCurrentProcess() { return reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)); }

// The pseudo-handle (HANDLE)-2, as on Windows: it stands for the calling
// thread wherever it is used, and closing it does nothing.
HANDLE WINAPI GetCurrentThread() { return reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-2)); }
