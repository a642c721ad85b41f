// Access to printers and monitors. A handle holds the rights it was opened
// with and nothing more (OpenPrinterW's DesiredAccess, PRINTER_ACCESS_USE
// without defaults); each call checks the rights it needs against them.
// Whether the caller may have those rights is decided here, once, at open.
#include "simhost/winspool/access.h"

#include "simhost/advapi32/advapi32_internal.h"
#include "simhost/advapi32/security.h"
#include "simhost/advapi32/tokens.h"

namespace simhost {
namespace winspool {
namespace {

using advapi32::GenericMapping;

// The generic mappings of printers and print servers (the PRINTER_READ ...
// and SERVER_READ ... values of winspool.h).
constexpr GenericMapping kPrinterMapping = {PRINTER_READ, PRINTER_WRITE, PRINTER_EXECUTE, PRINTER_ALL_ACCESS};
constexpr GenericMapping kServerMapping = {SERVER_READ, SERVER_WRITE, SERVER_EXECUTE, SERVER_ALL_ACCESS};

std::vector<std::vector<BYTE>> tokenSidsOf(const CallerIdentity& caller) {
    std::vector<std::vector<BYTE>> sids{sidFromText(caller.userSid)};
    for (const std::wstring& group : caller.groupSids) sids.push_back(sidFromText(group));
    return sids;
}

// The one decision of what the calling thread may do. The local system
// account, which the service runs as, holds every right on every printer and
// on the print server; any other account gets what the descriptor of the
// object grants its token. Objects without a descriptor of their own (the
// monitors) refuse nobody.
AccessDecision decideForCallingThread(const std::vector<BYTE>* descriptor, ACCESS_MASK desired) {
    CallerIdentity caller = callingThreadIdentity();
    if (caller.userSid == kLocalSystemSid || !descriptor || descriptor->empty()) return {0, desired};
    if (accessGranted(descriptor->data(), tokenSidsOf(caller), desired)) return {0, desired};
    return {ERROR_ACCESS_DENIED, 0};
}

}  // namespace

// The user and the enabled groups of the token the thread impersonates, or
// of the service process's token (the local system account) when it does
// not impersonate.
CallerIdentity callingThreadIdentity() {
    advapi32::TokenIdentity token = advapi32::callingThreadIdentity();
    return {token.userSid, token.enabledGroupSids()};
}

ACCESS_MASK mapPrinterAccess(ACCESS_MASK desired) { return advapi32::mapGenericAccess(desired, kPrinterMapping); }
ACCESS_MASK mapServerAccess(ACCESS_MASK desired) { return advapi32::mapGenericAccess(desired, kServerMapping); }

AccessDecision decidePrinterAccess(const SpoolerPrinter& printer, ACCESS_MASK desired) {
    return decideForCallingThread(&printer.securityDescriptor, desired);
}

// A host can take from the service's account the right to administer the
// monitors, as an account without administrator rights lacks it on Windows.
AccessDecision decideMonitorAccess(const SpoolerState& state, ACCESS_MASK desired) {
    if (state.monitorAdministrationDenied && (desired & SERVER_ACCESS_ADMINISTER)) return {ERROR_ACCESS_DENIED, 0};
    return decideForCallingThread(nullptr, desired);
}

}  // namespace winspool
}  // namespace simhost
