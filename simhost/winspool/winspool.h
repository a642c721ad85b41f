// winspool of the simulated host. For now the records of the TCP/IP port
// monitor that XcvData exchanges (tcpxcv.h), with their published fields.
#pragma once

#include "simhost/wintypes.h"

#include <cstddef>

#define MAX_PORTNAME_LEN 64
#define MAX_NETWORKNAME_LEN 49
#define MAX_SNMP_COMMUNITY_STR_LEN 33
#define MAX_QUEUENAME_LEN 33
#define MAX_IPADDR_STR_LEN 16
#define MAX_ADDRESS_STR_LEN 13
#define MAX_DEVICEDESCRIPTION_STR_LEN 257
#define PROTOCOL_RAWTCP_TYPE 1
#define PROTOCOL_LPR_TYPE 2

// The port that XcvData's "AddPort" and "ConfigPort" create or change, and
// that "GetConfigInfo" fills in.
typedef struct _PORT_DATA_1 {
    WCHAR sztPortName[MAX_PORTNAME_LEN];
    DWORD dwVersion;
    DWORD dwProtocol;
    DWORD cbSize;
    DWORD dwReserved;
    WCHAR sztHostAddress[MAX_NETWORKNAME_LEN];
    WCHAR sztSNMPCommunity[MAX_SNMP_COMMUNITY_STR_LEN];
    DWORD dwDoubleSpool;
    WCHAR sztQueue[MAX_QUEUENAME_LEN];
    WCHAR sztIPAddress[MAX_IPADDR_STR_LEN];
    BYTE Reserved[540];
    DWORD dwPortNumber;
    DWORD dwSNMPEnabled;
    DWORD dwSNMPDevIndex;
} PORT_DATA_1, *PPORT_DATA_1;

// The port that XcvData's "DeletePort" removes.
typedef struct _DELETE_PORT_DATA_1 {
    WCHAR psztPortName[MAX_PORTNAME_LEN];
    BYTE Reserved[98];
    DWORD dwVersion;
    DWORD dwReserved;
} DELETE_PORT_DATA_1, *PDELETE_PORT_DATA_1;

// The input of XcvData's "GetConfigInfo".
typedef struct _CONFIG_INFO_DATA_1 {
    BYTE Reserved[128];
    DWORD dwVersion;
} CONFIG_INFO_DATA_1, *PCONFIG_INFO_DATA_1;

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
