// Printers' security descriptors: what a caller hands in, what a caller may
// read back, and how a partial descriptor changes a printer's. Descriptors
// are kept self-relative; every conversion goes through the security
// component's SDDL reader and writer.
#pragma once

#include "simhost/winspool/spooler_state.h"

#include <vector>

namespace simhost {
namespace winspool {

// ACCESS_SYSTEM_SECURITY, the right to a descriptor's SACL.
constexpr ACCESS_MASK kAccessSystemSecurity = 0x01000000u;

// The self-relative form of a descriptor a caller passed (either form), or
// ERROR_INVALID_SECURITY_DESCR for one that is not valid.
struct CallerDescriptor {
    DWORD error = 0;
    std::vector<BYTE> bytes;
};
CallerDescriptor readCallerDescriptor(PSECURITY_DESCRIPTOR descriptor);

// The rights a handle needs to set the parts a descriptor holds: WRITE_OWNER
// for owner or group, WRITE_DAC for the DACL, ACCESS_SYSTEM_SECURITY for the
// SACL (SetPrinter's table).
ACCESS_MASK rightsToSet(const std::vector<BYTE>& incoming);
// The printer's descriptor with the parts `incoming` holds replaced.
std::vector<BYTE> mergeDescriptor(const std::vector<BYTE>& current, const std::vector<BYTE>& incoming);
// The parts a handle with `granted` may read (GetPrinter's table): owner,
// group and DACL with READ_CONTROL, the SACL with ACCESS_SYSTEM_SECURITY;
// empty when it may read none.
std::vector<BYTE> readableParts(const std::vector<BYTE>& descriptor, ACCESS_MASK granted);

// What AddPrinterW gives a printer added without a descriptor.
std::vector<BYTE> defaultPrinterDescriptor();

}  // namespace winspool
}  // namespace simhost
