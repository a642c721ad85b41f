// The rows of the TCP connection table: the host's own sockets, the far ends
// of their loopback connections, and rows a test or host file adds.
#include "simhost/iphlpapi/tcp_connections.h"

#include "simhost/core/host.h"
#include "simhost/iphlpapi/linux_tcp.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/ws2_32/native.h"
#include "simhost/ws2_32/socket_table.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <optional>

namespace simhost {
namespace iphlpapi {
namespace {

using native::ConnectionState;
using Endpoint = ws2_32::native::Endpoint;

// What tests and host files arranged; Host::reset forgets it.
struct TcpArrangements {
    std::mutex mutex;
    std::map<u_short, DWORD> ownerByPort;
    std::map<DWORD, DWORD> ownerByAddress;
    DWORD defaultOwner = 0;
    std::vector<TcpConnection> added;
};

TcpArrangements& arrangements() { return Host::get().state<TcpArrangements>(); }

DWORD mibState(ConnectionState state) {
    switch (state) {
    case ConnectionState::Closed: return MIB_TCP_STATE_CLOSED;
    case ConnectionState::Listen: return MIB_TCP_STATE_LISTEN;
    case ConnectionState::SynSent: return MIB_TCP_STATE_SYN_SENT;
    case ConnectionState::SynReceived: return MIB_TCP_STATE_SYN_RCVD;
    case ConnectionState::Established: return MIB_TCP_STATE_ESTAB;
    case ConnectionState::FinWait1: return MIB_TCP_STATE_FIN_WAIT1;
    case ConnectionState::FinWait2: return MIB_TCP_STATE_FIN_WAIT2;
    case ConnectionState::CloseWait: return MIB_TCP_STATE_CLOSE_WAIT;
    case ConnectionState::Closing: return MIB_TCP_STATE_CLOSING;
    case ConnectionState::LastAck: return MIB_TCP_STATE_LAST_ACK;
    case ConnectionState::TimeWait: return MIB_TCP_STATE_TIME_WAIT;
    }
    return MIB_TCP_STATE_CLOSED;
}

// The state of the far end while it is still open: the host's end is
// established, or has shut down only its own side, which the far end has
// seen. Nothing once the far end has closed.
std::optional<DWORD> farEndState(ConnectionState hostEnd) {
    switch (hostEnd) {
    case ConnectionState::Established: return MIB_TCP_STATE_ESTAB;
    case ConnectionState::FinWait1:
    case ConnectionState::FinWait2: return MIB_TCP_STATE_CLOSE_WAIT;
    default: return std::nullopt;
    }
}

bool isLoopback(DWORD networkOrderAddress) { return (ntohl(networkOrderAddress) >> 24) == 127; }

TcpConnection rowOf(DWORD state, const Endpoint& local, const Endpoint& remote, DWORD owner) {
    return {state, local.address, ntohs(local.port), remote.address, ntohs(remote.port), owner};
}

// The rows one socket of the host stands for: its own, and its far end's
// when that end may be outside the host.
struct SocketRows {
    std::optional<TcpConnection> own;
    std::optional<TcpConnection> farEnd;
};

SocketRows rowsOf(const ws2_32::Socket& socket, DWORD serviceProcessId) {
    SocketRows rows;
    ConnectionState state = native::connectionState(socket.descriptor);
    Endpoint local, remote;
    if (state == ConnectionState::Closed || ws2_32::native::localEndpoint(socket.descriptor, local) != 0) return rows;
    if (state == ConnectionState::Listen) {
        rows.own = rowOf(MIB_TCP_STATE_LISTEN, local, Endpoint{}, serviceProcessId);
        return rows;
    }
    if (ws2_32::native::peerEndpoint(socket.descriptor, remote) != 0) return rows;
    rows.own = rowOf(mibState(state), local, remote, serviceProcessId);
    std::optional<DWORD> farState = farEndState(state);
    if (farState && isLoopback(remote.address)) rows.farEnd = rowOf(*farState, remote, local, 0);
    return rows;
}

bool sameLocalEnd(const TcpConnection& a, const TcpConnection& b) {
    return a.localAddress == b.localAddress && a.localPort == b.localPort;
}

// The owner of a far end by the arranged rules: its port's, else its
// address's, else the default; 0 for none.
DWORD farEndOwner(const TcpConnection& end) {
    TcpArrangements& arranged = arrangements();
    std::lock_guard<std::mutex> hold(arranged.mutex);
    auto byPort = arranged.ownerByPort.find(end.localPort);
    if (byPort != arranged.ownerByPort.end()) return byPort->second;
    auto byAddress = arranged.ownerByAddress.find(end.localAddress);
    return byAddress == arranged.ownerByAddress.end() ? arranged.defaultOwner : byAddress->second;
}

// Far ends that are sockets of the host already have their own row; the
// others get one if some process owns them.
void addOutsideEnds(std::vector<TcpConnection>& rows, const std::vector<TcpConnection>& farEnds) {
    size_t hostRows = rows.size();
    for (TcpConnection end : farEnds) {
        auto hostEnd = std::find_if(rows.begin(), rows.begin() + hostRows,
                                    [&](const TcpConnection& row) { return sameLocalEnd(row, end); });
        if (hostEnd != rows.begin() + hostRows) continue;
        end.owningProcessId = farEndOwner(end);
        if (end.owningProcessId != 0) rows.push_back(end);
    }
}

// Names the owner of the far ends a rule's key picks; 0 takes the rule away.
template <typename Key>
void setOwnerRule(std::map<Key, DWORD> TcpArrangements::*rules, Key key, DWORD processId) {
    TcpArrangements& arranged = arrangements();
    std::lock_guard<std::mutex> hold(arranged.mutex);
    if (processId == 0)
        (arranged.*rules).erase(key);
    else
        (arranged.*rules)[key] = processId;
}

}  // namespace

void setOutsideEndOwner(u_short localPort, DWORD processId) {
    setOwnerRule(&TcpArrangements::ownerByPort, localPort, processId);
}

void setOutsideEndOwnerByAddress(DWORD localAddress, DWORD processId) {
    setOwnerRule(&TcpArrangements::ownerByAddress, localAddress, processId);
}

void setDefaultOutsideEndOwner(DWORD processId) {
    TcpArrangements& arranged = arrangements();
    std::lock_guard<std::mutex> hold(arranged.mutex);
    arranged.defaultOwner = processId;
}

void addTcpConnection(const TcpConnection& connection) {
    TcpArrangements& arranged = arrangements();
    std::lock_guard<std::mutex> hold(arranged.mutex);
    arranged.added.push_back(connection);
}

std::vector<TcpConnection> tcpConnections() {
    DWORD serviceProcessId = GetCurrentProcessId();
    std::vector<TcpConnection> rows, farEnds;
    ws2_32::forEachOpenSocket([&](const ws2_32::Socket& socket) {
        SocketRows socketRows = rowsOf(socket, serviceProcessId);
        if (socketRows.own) rows.push_back(*socketRows.own);
        if (socketRows.farEnd) farEnds.push_back(*socketRows.farEnd);
    });
    addOutsideEnds(rows, farEnds);
    TcpArrangements& arranged = arrangements();
    std::lock_guard<std::mutex> hold(arranged.mutex);
    rows.insert(rows.end(), arranged.added.begin(), arranged.added.end());
    return rows;
}

}  // namespace iphlpapi
}  // namespace simhost
