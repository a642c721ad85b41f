// iphlpapi of the simulated host: the IPv4 TCP connection table with the
// process that owns each end, as GetExtendedTcpTable gives it.
#pragma once

#include "simhost/wintypes.h"
#include "simhost/ws2_32/winsock.h"

#define ANY_SIZE 1

typedef enum {
    MIB_TCP_STATE_CLOSED = 1,
    MIB_TCP_STATE_LISTEN = 2,
    MIB_TCP_STATE_SYN_SENT = 3,
    MIB_TCP_STATE_SYN_RCVD = 4,
    MIB_TCP_STATE_ESTAB = 5,
    MIB_TCP_STATE_FIN_WAIT1 = 6,
    MIB_TCP_STATE_FIN_WAIT2 = 7,
    MIB_TCP_STATE_CLOSE_WAIT = 8,
    MIB_TCP_STATE_CLOSING = 9,
    MIB_TCP_STATE_LAST_ACK = 10,
    MIB_TCP_STATE_TIME_WAIT = 11,
    MIB_TCP_STATE_DELETE_TCB = 12,
} MIB_TCP_STATE;

typedef enum _TCP_TABLE_CLASS {
    TCP_TABLE_BASIC_LISTENER,
    TCP_TABLE_BASIC_CONNECTIONS,
    TCP_TABLE_BASIC_ALL,
    TCP_TABLE_OWNER_PID_LISTENER,
    TCP_TABLE_OWNER_PID_CONNECTIONS,
    TCP_TABLE_OWNER_PID_ALL,
    TCP_TABLE_OWNER_MODULE_LISTENER,
    TCP_TABLE_OWNER_MODULE_CONNECTIONS,
    TCP_TABLE_OWNER_MODULE_ALL,
} TCP_TABLE_CLASS, *PTCP_TABLE_CLASS;

// Addresses are in network byte order; each port is in network byte order
// in the low 16 bits of its DWORD, the high 16 bits zero.
typedef struct _MIB_TCPROW_OWNER_PID {
    DWORD dwState;
    DWORD dwLocalAddr;
    DWORD dwLocalPort;
    DWORD dwRemoteAddr;
    DWORD dwRemotePort;
    DWORD dwOwningPid;
} MIB_TCPROW_OWNER_PID, *PMIB_TCPROW_OWNER_PID;

typedef struct _MIB_TCPTABLE_OWNER_PID {
    DWORD dwNumEntries;
    MIB_TCPROW_OWNER_PID table[ANY_SIZE];
} MIB_TCPTABLE_OWNER_PID, *PMIB_TCPTABLE_OWNER_PID;

static_assert(sizeof(MIB_TCPROW_OWNER_PID) == 24, "MIB_TCPROW_OWNER_PID is 24 bytes on Windows");
static_assert(sizeof(MIB_TCPTABLE_OWNER_PID) == 28, "MIB_TCPTABLE_OWNER_PID is 28 bytes on Windows");

// Answers its error (NO_ERROR on success) and leaves the last error alone.
DWORD WINAPI GetExtendedTcpTable(PVOID tcpTable, PDWORD size, BOOL order, ULONG addressFamily,
                                 TCP_TABLE_CLASS tableClass, ULONG reserved);
