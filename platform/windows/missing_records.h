// Published Windows records that MinGW-w64's headers do not declare. Each
// stands for the SDK record of the same name, with the published layout and
// size. A MinGW that ships the SDK header is used as it is; the size checks
// below hold for either definition.
#pragma once

#if __has_include(<tcpxcv.h>)
#include <tcpxcv.h>
#else

// Lengths and protocols of the TCP/IP port monitor's records (tcpxcv.h).
#define MAX_PORTNAME_LEN 64
#define MAX_NETWORKNAME_LEN 49
#define MAX_SNMP_COMMUNITY_STR_LEN 33
#define MAX_QUEUENAME_LEN 33
#define MAX_IPADDR_STR_LEN 16
#define MAX_ADDRESS_STR_LEN 13
#define MAX_DEVICEDESCRIPTION_STR_LEN 257
#define PROTOCOL_RAWTCP_TYPE 1
#define PROTOCOL_LPR_TYPE 2

// tcpxcv.h PORT_DATA_1: the port that XcvData's "AddPort" and "ConfigPort"
// create or change, and that "GetConfigInfo" fills in.
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

// tcpxcv.h DELETE_PORT_DATA_1: the port that XcvData's "DeletePort" removes.
typedef struct _DELETE_PORT_DATA_1 {
    WCHAR psztPortName[MAX_PORTNAME_LEN];
    BYTE Reserved[98];
    DWORD dwVersion;
    DWORD dwReserved;
} DELETE_PORT_DATA_1, *PDELETE_PORT_DATA_1;

// tcpxcv.h CONFIG_INFO_DATA_1: the input of XcvData's "GetConfigInfo".
typedef struct _CONFIG_INFO_DATA_1 {
    BYTE Reserved[128];
    DWORD dwVersion;
} CONFIG_INFO_DATA_1, *PCONFIG_INFO_DATA_1;

#endif

// The port monitor reads these records as raw bytes in their published
// layout, so a record of another size would be misread.
static_assert(sizeof(PORT_DATA_1) == 964, "PORT_DATA_1 must have its published size");
static_assert(sizeof(DELETE_PORT_DATA_1) == 236, "DELETE_PORT_DATA_1 must have its published size");
static_assert(sizeof(CONFIG_INFO_DATA_1) == 132, "CONFIG_INFO_DATA_1 must have its published size");
