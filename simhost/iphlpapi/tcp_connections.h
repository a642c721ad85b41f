// The TCP connection table of the simulated host, and what tests and host
// files arrange of it.
//
// The table is read afresh at each call from the host's own sockets:
// - every socket of the host's Winsock that holds a connection is a row with
//   the state Linux reports for it, owned by the service process
//   (GetCurrentProcessId); a listening socket is a row in the listener
//   classes;
// - the far end of such a connection, when it is on the loopback network and
//   is not itself a socket of the host (a plugin connects with sockets of its
//   own), is a row too, seen from that end: its address and port are the
//   peer address of the host's socket. It is there while the host's end is
//   established or has only shut down its own side; once the far end has
//   closed or reset, it is gone. Its owner is the process a test or host
//   file names for its local port, else the one named for its local
//   address, else the one named for every such end; with none, the end has
//   no owner and no row;
// - rows added with addTcpConnection follow.
// Closed host sockets leave no TIME_WAIT rows behind.
#pragma once

#include "simhost/iphlpapi/iphlpapi.h"

#include <vector>

namespace simhost {
namespace iphlpapi {

struct TcpConnection {
    DWORD state = MIB_TCP_STATE_ESTAB;
    // Addresses in network byte order, as inet_addr gives them; ports in
    // host byte order.
    DWORD localAddress = 0;
    u_short localPort = 0;
    DWORD remoteAddress = 0;
    u_short remotePort = 0;
    DWORD owningProcessId = 0;
};

// The process that owns the far end of a loopback connection whose local
// port is `localPort` (host byte order); 0 takes the rule away.
void setOutsideEndOwner(u_short localPort, DWORD processId);
// The process that owns the far ends whose local address is `localAddress`
// (network byte order) and whose port no rule names; 0 takes the rule away.
// Plugins of several sessions connect from addresses of their own.
void setOutsideEndOwnerByAddress(DWORD localAddress, DWORD processId);
// The process that owns every far end no rule above names; 0 for none.
void setDefaultOutsideEndOwner(DWORD processId);
// A row of the table that no socket of the host stands for.
void addTcpConnection(const TcpConnection& connection);
// The rows of the table now, listeners included, in the order
// GetExtendedTcpTable gives them unsorted.
std::vector<TcpConnection> tcpConnections();

}  // namespace iphlpapi
}  // namespace simhost
