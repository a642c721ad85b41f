// A connected pair of local stream sockets of this machine, for a target that
// feeds bytes to the service's own reading of a connection without any
// network. Kept apart from the Windows façade, whose socket names clash with
// Linux's.
#pragma once

namespace fuzzsupport {

// Two connected, non-blocking ends; false when the system refused.
bool makeLocalSocketPair(int (&ends)[2]);

}  // namespace fuzzsupport
