// Moving bytes: recv, send, and the ioctlsocket commands that bear on them.
#include "simhost/ws2_32/native.h"
#include "simhost/ws2_32/socket_table.h"

using namespace simhost::ws2_32;

static_assert(MSG_OOB == native::kOutOfBand && MSG_PEEK == native::kPeek && MSG_DONTROUTE == native::kDontRoute &&
                  MSG_WAITALL == native::kWaitAll,
              "recv and send flags pass through unchanged");

namespace {

// Why the socket cannot carry bytes in one direction now, or 0. Windows
// answers a shut-down direction and a reset connection with errors of their
// own where Linux reports an orderly end.
int transferBlocker(Socket& socket, bool directionShutDown) {
    if (directionShutDown) return WSAESHUTDOWN;
    if (socket.connectionReset) return WSAECONNRESET;
    settleConnect(socket);
    return socket.state == SocketState::Connected ? 0 : WSAENOTCONN;
}

// The error a transfer ends with; a reset is remembered for later calls.
int transferFailure(Socket& socket, int error) {
    if (error == WSAECONNRESET) socket.connectionReset = true;
    return interruptedOr(socket, error);
}

bool bufferIsValid(const char* buffer, int length) { return length >= 0 && (buffer || length == 0); }

}  // namespace

// 0 is the peer's orderly end of the connection.
int WSAAPI recv(SOCKET s, char* buf, int len, int flags) {
    int error = 0;
    std::shared_ptr<Socket> socket = enterSocketCall("recv", s, error);
    if (!socket) return failWith(error);
    if ((error = transferBlocker(*socket, socket->receiveShutDown))) return failWith(error);
    if (!bufferIsValid(buf, len)) return failWith(WSAEFAULT);
    size_t received = 0;
    error = native::receiveBytes(socket->descriptor, buf, static_cast<size_t>(len), flags, received);
    if (error || socket->closed) return failWith(transferFailure(*socket, error));
    return static_cast<int>(received);
}

// A blocking send returns once everything is sent. A peer that has gone
// gives WSAECONNRESET, never SIGPIPE.
int WSAAPI send(SOCKET s, const char* buf, int len, int flags) {
    int error = 0;
    std::shared_ptr<Socket> socket = enterSocketCall("send", s, error);
    if (!socket) return failWith(error);
    if ((error = transferBlocker(*socket, socket->sendShutDown))) return failWith(error);
    if (!bufferIsValid(buf, len)) return failWith(WSAEFAULT);
    size_t sent = 0;
    error = native::sendBytes(socket->descriptor, buf, static_cast<size_t>(len), flags, sent);
    if (error || socket->closed) return failWith(transferFailure(*socket, error));
    return static_cast<int>(sent);
}

// FIONBIO sets the blocking mode, FIONREAD answers the bytes waiting (0 on a
// socket without a connection).
int WSAAPI ioctlsocket(SOCKET s, long cmd, u_long* argp) {
    int error = 0;
    std::shared_ptr<Socket> socket = enterSocketCall("ioctlsocket", s, error);
    if (!socket) return failWith(error);
    if (!argp) return failWith(WSAEFAULT);
    if (cmd == FIONBIO) {
        bool nonBlocking = *argp != 0;
        if ((error = native::setNonBlocking(socket->descriptor, nonBlocking))) return failWith(error);
        socket->nonBlocking = nonBlocking;
        return 0;
    }
    if (cmd != FIONREAD) return failWith(WSAEINVAL);
    size_t available = 0;
    settleConnect(*socket);
    if (socket->state == SocketState::Connected &&
        (error = native::bytesAvailable(socket->descriptor, available)))
        return failWith(error);
    *argp = static_cast<u_long>(available);
    return 0;
}
