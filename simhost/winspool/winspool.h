// winspool of the simulated host. For now the records of the TCP/IP port
// monitor that XcvData exchanges, shared with the Windows build.
#pragma once

#include "platform/tcpxcv_records.h"
#include "simhost/wintypes.h"

#include <cstddef>

// On Windows these records are 964, 236 and 132 bytes, checked where the
// Windows build declares them. Here WCHAR is the 4-byte wchar_t, so the two
// records with text are larger; what must match is their layout: the
// published fields with the published counts of characters, bytes and
// DWORDs. Each size below is built from those counts and this platform's
// WCHAR, so a field added, dropped or resized fails the check.
namespace simhost::winspool {
constexpr size_t dwordAligned(size_t bytes) {
    return (bytes + sizeof(DWORD) - 1) / sizeof(DWORD) * sizeof(DWORD);
}
}  // namespace simhost::winspool

static_assert(sizeof(PORT_DATA_1) ==
                  simhost::winspool::dwordAligned((64 + 49 + 33 + 33 + 16) * sizeof(WCHAR) + 540 + 5 * sizeof(DWORD)) +
                      3 * sizeof(DWORD),
              "PORT_DATA_1: 5 strings of 64, 49, 33, 33 and 16 WCHARs, 540 reserved bytes, 8 DWORDs");
static_assert(sizeof(DELETE_PORT_DATA_1) ==
                  simhost::winspool::dwordAligned(64 * sizeof(WCHAR) + 98) + 2 * sizeof(DWORD),
              "DELETE_PORT_DATA_1: a string of 64 WCHARs, 98 reserved bytes, 2 DWORDs");
static_assert(sizeof(CONFIG_INFO_DATA_1) == 128 + sizeof(DWORD),
              "CONFIG_INFO_DATA_1: 128 reserved bytes and a DWORD");
