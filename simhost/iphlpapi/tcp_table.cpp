// GetExtendedTcpTable over the host's connection table. The IPv4 tables with
// owning process ids are served; the basic and module tables and IPv6 are
// not modelled (ERROR_NOT_SUPPORTED).
#include "simhost/core/host.h"
#include "simhost/iphlpapi/tcp_connections.h"

#include <algorithm>
#include <cstddef>
#include <tuple>

using simhost::iphlpapi::TcpConnection;

namespace {

constexpr size_t kRowsOffset = offsetof(MIB_TCPTABLE_OWNER_PID, table);

bool isOwnerPidClass(TCP_TABLE_CLASS tableClass) {
    return tableClass == TCP_TABLE_OWNER_PID_LISTENER || tableClass == TCP_TABLE_OWNER_PID_CONNECTIONS ||
           tableClass == TCP_TABLE_OWNER_PID_ALL;
}

bool isInClass(const TcpConnection& row, TCP_TABLE_CLASS tableClass) {
    bool listening = row.state == MIB_TCP_STATE_LISTEN;
    if (tableClass == TCP_TABLE_OWNER_PID_LISTENER) return listening;
    if (tableClass == TCP_TABLE_OWNER_PID_CONNECTIONS) return !listening;
    return true;
}

// Why the arguments are refused, or 0.
DWORD argumentError(PDWORD size, ULONG addressFamily, TCP_TABLE_CLASS tableClass, ULONG reserved) {
    if (!size || reserved != 0) return ERROR_INVALID_PARAMETER;
    if (addressFamily != AF_INET && addressFamily != AF_INET6) return ERROR_INVALID_PARAMETER;
    if (static_cast<unsigned>(tableClass) > TCP_TABLE_OWNER_MODULE_ALL) return ERROR_INVALID_PARAMETER;
    if (addressFamily != AF_INET || !isOwnerPidClass(tableClass)) return ERROR_NOT_SUPPORTED;
    return 0;
}

// The order Windows sorts by: local address, local port, remote address,
// remote port, each as a number.
auto sortKey(const TcpConnection& row) {
    return std::make_tuple(ntohl(row.localAddress), row.localPort, ntohl(row.remoteAddress), row.remotePort);
}

std::vector<TcpConnection> tableRows(TCP_TABLE_CLASS tableClass, BOOL order) {
    std::vector<TcpConnection> rows = simhost::iphlpapi::tcpConnections();
    rows.erase(std::remove_if(rows.begin(), rows.end(),
                              [&](const TcpConnection& row) { return !isInClass(row, tableClass); }),
               rows.end());
    if (order)
        std::stable_sort(rows.begin(), rows.end(),
                         [](const TcpConnection& a, const TcpConnection& b) { return sortKey(a) < sortKey(b); });
    return rows;
}

MIB_TCPROW_OWNER_PID mibRow(const TcpConnection& row) {
    return {row.state, row.localAddress, htons(row.localPort), row.remoteAddress, htons(row.remotePort),
            row.owningProcessId};
}

// The rows follow the count, as many as there are: the declared array of one
// is only the first of them.
void writeTable(const std::vector<TcpConnection>& rows, PVOID tcpTable) {
    auto* table = static_cast<MIB_TCPTABLE_OWNER_PID*>(tcpTable);
    table->dwNumEntries = static_cast<DWORD>(rows.size());
    auto* out = reinterpret_cast<MIB_TCPROW_OWNER_PID*>(static_cast<char*>(tcpTable) + kRowsOffset);
    std::transform(rows.begin(), rows.end(), out, mibRow);
}

}  // namespace

// Too small a size, or no table: ERROR_INSUFFICIENT_BUFFER with the size
// needed, the count and the rows, in *size. On success *size is left as the
// caller gave it.
DWORD WINAPI GetExtendedTcpTable(PVOID tcpTable, PDWORD size, BOOL order, ULONG addressFamily,
                                 TCP_TABLE_CLASS tableClass, ULONG reserved) {
    if (DWORD injected = simhost::injectedFailure("GetExtendedTcpTable")) return injected;
    if (DWORD error = argumentError(size, addressFamily, tableClass, reserved)) return error;
    std::vector<TcpConnection> rows = tableRows(tableClass, order);
    DWORD needed = static_cast<DWORD>(kRowsOffset + rows.size() * sizeof(MIB_TCPROW_OWNER_PID));
    if (!tcpTable || *size < needed) {
        *size = needed;
        return ERROR_INSUFFICIENT_BUFFER;
    }
    writeTable(rows, tcpTable);
    return NO_ERROR;
}
