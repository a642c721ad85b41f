// The Linux side of the TCP connection table: the state Linux keeps for a
// socket's connection. This header names no type of either platform's socket
// headers, which cannot meet in one file.
#pragma once

namespace simhost {
namespace iphlpapi {
namespace native {

// The TCP states both platforms share, in the names of RFC 793.
enum class ConnectionState {
    Closed,
    Listen,
    SynSent,
    SynReceived,
    Established,
    FinWait1,
    FinWait2,
    CloseWait,
    Closing,
    LastAck,
    TimeWait,
};

// The state of the socket's connection; Closed when Linux cannot tell.
ConnectionState connectionState(int descriptor);

}  // namespace native
}  // namespace iphlpapi
}  // namespace simhost
