#include "simhost/iphlpapi/linux_tcp.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace simhost {
namespace iphlpapi {
namespace native {

ConnectionState connectionState(int descriptor) {
    tcp_info info = {};
    socklen_t length = sizeof info;
    if (::getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &length) != 0) return ConnectionState::Closed;
    switch (info.tcpi_state) {
    case TCP_ESTABLISHED: return ConnectionState::Established;
    case TCP_SYN_SENT: return ConnectionState::SynSent;
    case TCP_SYN_RECV: return ConnectionState::SynReceived;
    case TCP_FIN_WAIT1: return ConnectionState::FinWait1;
    case TCP_FIN_WAIT2: return ConnectionState::FinWait2;
    case TCP_TIME_WAIT: return ConnectionState::TimeWait;
    case TCP_CLOSE_WAIT: return ConnectionState::CloseWait;
    case TCP_LAST_ACK: return ConnectionState::LastAck;
    case TCP_LISTEN: return ConnectionState::Listen;
    case TCP_CLOSING: return ConnectionState::Closing;
    default: return ConnectionState::Closed;
    }
}

}  // namespace native
}  // namespace iphlpapi
}  // namespace simhost
