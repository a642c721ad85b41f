// The soak: plugins of several sessions create, print to and delete
// printers in random order while others leave and come back, for a set
// number of operations; then what must hold is checked.
#pragma once

#include "SoakHost.h"

#include <string>
#include <vector>

namespace soak {

struct SoakOptions {
    unsigned long operations = 10000;
    int plugins = 63;
    unsigned seed = 1;
};

struct SoakReport {
    unsigned long creations = 0, prints = 0, deletions = 0, departures = 0, joins = 0, requests = 0;
    // Connections the service closed without a reply, each joined again.
    unsigned long refusedJoins = 0;
    // Calls of the session lookup: each leaves one token handle open.
    size_t sessionLookups = 0;
    unsigned long documentBytes = 0;
    double seconds = 0;
    // Resident memory of the process, in KiB, and the token handles open,
    // at each tenth of the run; what one open token holds, in bytes.
    std::vector<long> residentKiB;
    std::vector<size_t> openTokens;
    double bytesPerToken = 0;
    Counters before, after;
    std::vector<std::string> failures;
};

SoakReport runSoak(const SoakOptions& options);

}  // namespace soak
