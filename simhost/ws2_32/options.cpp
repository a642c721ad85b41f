// Socket options at level SOL_SOCKET: the address-sharing pair, linger, and
// the read-only state options.
#include "simhost/ws2_32/native.h"
#include "simhost/ws2_32/socket_table.h"

#include <cstring>
#include <optional>

using namespace simhost::ws2_32;

namespace {

// Other protocol levels are known to Windows but have no option served here.
int levelError(int level) { return level == IPPROTO_TCP || level == IPPROTO_IP ? WSAENOPROTOOPT : WSAEINVAL; }

// SO_REUSEADDR and SO_EXCLUSIVEADDRUSE are recorded and take effect at the
// bind. Windows refuses to turn on the second of the two on one socket.
int setAddressSharing(std::atomic<bool>& option, const std::atomic<bool>& rival, const char* optval, int optlen) {
    BOOL value = FALSE;
    if (optlen < static_cast<int>(sizeof value)) return failWith(WSAEFAULT);
    std::memcpy(&value, optval, sizeof value);
    if (value && rival) return failWith(WSAEINVAL);
    option = value != FALSE;
    return 0;
}

int setLingering(Socket& socket, const char* optval, int optlen) {
    linger value = {};
    if (optlen < static_cast<int>(sizeof value)) return failWith(WSAEFAULT);
    std::memcpy(&value, optval, sizeof value);
    if (int error = native::setLinger(socket.descriptor, value.l_onoff != 0, value.l_linger)) return failWith(error);
    socket.lingerOn = value.l_onoff;
    socket.lingerSeconds = value.l_linger;
    return 0;
}

// The error SO_ERROR answers: a failed non-blocking connect's, else Linux's
// pending one. Reading it clears it.
int takeSocketError(Socket& socket) {
    settleConnect(socket);
    if (int failedConnect = socket.connectError.exchange(0)) return failedConnect;
    int pending = 0;
    native::takePendingError(socket.descriptor, pending);
    return pending;
}

std::optional<int> integerOption(Socket& socket, int optname) {
    switch (optname) {
    case SO_REUSEADDR: return socket.reuseAddress ? TRUE : FALSE;
    case SO_EXCLUSIVEADDRUSE: return socket.exclusiveAddress ? TRUE : FALSE;
    case SO_ACCEPTCONN: return socket.state == SocketState::Listening ? TRUE : FALSE;
    case SO_TYPE: return SOCK_STREAM;
    case SO_ERROR: return takeSocketError(socket);
    default: return std::nullopt;
    }
}

int answerOption(const void* value, int size, char* optval, int* optlen) {
    std::memcpy(optval, value, static_cast<size_t>(size));
    *optlen = size;
    return 0;
}

}  // namespace

int WSAAPI setsockopt(SOCKET s, int level, int optname, const char* optval, int optlen) {
    int error = 0;
    std::shared_ptr<Socket> socket = enterSocketCall("setsockopt", s, error);
    if (!socket) return failWith(error);
    if (level != SOL_SOCKET) return failWith(levelError(level));
    if (!optval) return failWith(WSAEFAULT);
    switch (optname) {
    case SO_REUSEADDR: return setAddressSharing(socket->reuseAddress, socket->exclusiveAddress, optval, optlen);
    case SO_EXCLUSIVEADDRUSE:
        return setAddressSharing(socket->exclusiveAddress, socket->reuseAddress, optval, optlen);
    case SO_LINGER: return setLingering(*socket, optval, optlen);
    default: return failWith(WSAENOPROTOOPT);
    }
}

int WSAAPI getsockopt(SOCKET s, int level, int optname, char* optval, int* optlen) {
    int error = 0;
    std::shared_ptr<Socket> socket = enterSocketCall("getsockopt", s, error);
    if (!socket) return failWith(error);
    if (level != SOL_SOCKET) return failWith(levelError(level));
    if (!optval || !optlen) return failWith(WSAEFAULT);
    if (optname == SO_LINGER) {
        linger value = {socket->lingerOn, socket->lingerSeconds};
        if (*optlen < static_cast<int>(sizeof value)) return failWith(WSAEFAULT);
        return answerOption(&value, sizeof value, optval, optlen);
    }
    // The size is checked first, so that a refused SO_ERROR clears nothing.
    if (*optlen < static_cast<int>(sizeof(int))) return failWith(WSAEFAULT);
    std::optional<int> value = integerOption(*socket, optname);
    if (!value) return failWith(WSAENOPROTOOPT);
    return answerOption(&*value, sizeof(int), optval, optlen);
}
