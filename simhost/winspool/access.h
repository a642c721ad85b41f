// Who calls the spooler and what that caller may do: the rights a handle
// is opened with, decided in one place.
#pragma once

#include "simhost/winspool/spooler_state.h"

#include <string>
#include <vector>

namespace simhost {
namespace winspool {

// The user the calling thread acts for, and the groups of its token.
struct CallerIdentity {
    std::wstring userSid;
    std::vector<std::wstring> groupSids;
};
CallerIdentity callingThreadIdentity();

// A request's generic rights and MAXIMUM_ALLOWED replaced by the specific
// rights they stand for on printers and on print servers and monitors.
ACCESS_MASK mapPrinterAccess(ACCESS_MASK desired);
ACCESS_MASK mapServerAccess(ACCESS_MASK desired);

inline bool holds(ACCESS_MASK granted, ACCESS_MASK needed) { return (granted & needed) == needed; }

struct AccessDecision {
    DWORD error = 0;           // ERROR_ACCESS_DENIED when refused
    ACCESS_MASK granted = 0;   // the rights the new handle holds
};

// Opening a printer with `desired` (specific rights, already mapped).
AccessDecision decidePrinterAccess(const SpoolerPrinter& printer, ACCESS_MASK desired);
// Opening the monitor or a port's monitor interface with `desired`.
AccessDecision decideMonitorAccess(const SpoolerState& state, ACCESS_MASK desired);

}  // namespace winspool
}  // namespace simhost
