// The TCP/IP port monitor's records that XcvData exchanges (the SDK's
// tcpxcv.h), with their published fields, for the platforms whose headers
// lack them: MinGW-w64's, and the simulated host's. WCHAR, DWORD and BYTE
// come from the platform's own base types.
#pragma once

#define MAX_PORTNAME_LEN 64
#define MAX_NETWORKNAME_LEN 49
#define MAX_SNMP_COMMUNITY_STR_LEN 33
#define MAX_QUEUENAME_LEN 33
#define MAX_IPADDR_STR_LEN 16
#define MAX_ADDRESS_STR_LEN 13
#define MAX_DEVICEDESCRIPTION_STR_LEN 257
#define PROTOCOL_RAWTCP_TYPE 1
#define PROTOCOL_LPR_TYPE 2

// PORT_DATA_1: the port that XcvData's "AddPort" and "ConfigPort" create or
// change, and that "GetConfigInfo" fills in.
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

// DELETE_PORT_DATA_1: the port that XcvData's "DeletePort" removes.
typedef struct _DELETE_PORT_DATA_1 {
    WCHAR psztPortName[MAX_PORTNAME_LEN];
    BYTE Reserved[98];
    DWORD dwVersion;
    DWORD dwReserved;
} DELETE_PORT_DATA_1, *PDELETE_PORT_DATA_1;

// CONFIG_INFO_DATA_1: the input of XcvData's "GetConfigInfo".
typedef struct _CONFIG_INFO_DATA_1 {
    BYTE Reserved[128];
    DWORD dwVersion;
} CONFIG_INFO_DATA_1, *PCONFIG_INFO_DATA_1;
