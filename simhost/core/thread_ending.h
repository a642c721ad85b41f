// Ending a thread that somebody has given up on, as TerminateThread does on
// Windows. A thread of this process cannot be stopped wherever it is, so the
// simulated host ends it where it can: inside a call of the host that waits
// in an arranged block or delay, or at the entry of its next faultable call.
// Either way the call never returns to the thread's own code, which
// therefore touches neither its arguments nor its caller's state again. The
// thread unwinds as pthread_exit unwinds it.
#pragma once

#include <pthread.h>

#include <cstddef>

namespace simhost {

// What a request to end a thread found.
enum class ThreadEnding {
    // The thread waits inside a call of the host and ends now: joining it
    // returns promptly.
    EndsNow,
    // The thread runs its own code; it ends at the next faultable call it
    // makes, and may run on until then. A thread that never calls the host
    // again is not ended at all.
    EndsAtNextCall,
};

// Asks the thread to end. A thread that has not yet made its first
// faultable call ends at that call.
ThreadEnding requestThreadEnd(pthread_t thread);

// Threads asked to end that have not ended yet, for tests that wait for a
// thread the caller let go of.
size_t threadsStillToEnd();

// For the fault machinery: whether the calling thread is to end, and the
// bookkeeping of its waits inside the host.
bool callingThreadEndRequested();
void noteCallingThreadWaits(bool waiting);
// Ends the calling thread; it must hold no lock of the host.
[[noreturn]] void endCallingThread();

}  // namespace simhost
