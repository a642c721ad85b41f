// A client of the simulated host's control socket, as vexor-plugin is one:
// a plain Unix socket. Its own file, because the Linux socket headers cannot
// meet the Winsock declarations.
#pragma once

#include <string>

namespace control_test {

// Sends `bytes` to the control socket at `path`, ends its side of the
// connection, and answers the reply line without its '\n' ("" when none
// came within ten seconds or nothing listens).
std::string exchange(const std::string& path, const std::string& bytes);
// Makes a socket file at `path` that no one serves, as a crashed run leaves.
bool leaveStaleSocketFile(const std::string& path);

}  // namespace control_test
