// Test and host API of the simulated host's threads and process identity.
#pragma once

#include "simhost/wintypes.h"

#include <cstddef>

namespace simhost {

// The id GetCurrentProcessId answers, so a host can say the service runs as
// process N. Until set, after Host::reset, and when set to 0, it is this
// process's real id.
void setCurrentProcessId(DWORD processId);

// A thread id no thread has had: non-zero, a multiple of 4, never reused,
// for threads of the host's own (a started process's main thread).
DWORD newThreadId();

// Waits up to `milliseconds` of real time until no work item of
// QueueUserWorkItem is queued or running; false if some still is. The count
// outlives Host::reset, as the pool's threads do.
bool waitForIdleWorkItems(DWORD milliseconds);
// Work items queued or running now.
size_t unfinishedWorkItems();

}  // namespace simhost
