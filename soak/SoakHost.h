// The simulated host side of the soak: the machine with three user
// sessions, the service started and stopped in this process, printing
// through the spooler, and the host's counters of what is open. Kept apart
// from the plugins' side: the simulated host's Winsock declarations and the
// system's socket headers cannot meet in one file.
#pragma once

#include <cstddef>
#include <map>
#include <set>
#include <string>

namespace soak {

// The sessions the machine has, and the loopback address each session's
// plugins connect from.
constexpr int kFirstSession = 2;
constexpr int kSessions = 3;
std::string sessionAddress(int session);
// The driver every soak printer names; installed on the machine.
extern const char* const kDriverName;

// Maps drive C: to a new temporary directory and starts the service there.
// Answers the directory.
std::string startService();
// Stops the service as the control manager would, waits for its threads
// and destroys it.
void stopService();

// A document printed by a user of the machine to a printer: the spooler
// sends it to the printer's RAW port. Empty when delivered, else why not.
std::string printDocument(const std::string& printerName, size_t bytes, unsigned seed);

// What the spooler holds now: printers by name with their port, and ports.
struct SpoolerView {
    std::map<std::string, std::string> printerPorts;
    std::set<std::string> ports;
};
SpoolerView spoolerView();

// The resident memory of this process, in KiB.
long residentKiB();
// The resident memory one open process token holds, in bytes, measured by
// opening `samples` tokens of a session's loader as the service's session
// lookup does, then closing them.
double bytesPerOpenToken(int samples);
size_t openTokenHandles();

// Open things the host counts, by kind.
using Counters = std::map<std::string, size_t>;
Counters hostCounters();

// Tokens opened so far that were not opened to be duplicated for an
// impersonation: the session lookups' tokens, which the design leaves open.
size_t tokensOpenedForLookups();

}  // namespace soak
