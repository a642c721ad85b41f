// Making, naming, connecting and closing sockets. Where Linux and Windows
// answer the same situation differently (listen on an unbound socket,
// getsockname before bind, connect to 0.0.0.0), the host's own state decides
// before Linux is asked.
#include "simhost/ws2_32/native.h"
#include "simhost/ws2_32/socket_table.h"

#include <cstring>

using namespace simhost::ws2_32;

namespace {

constexpr int kAddressSize = static_cast<int>(sizeof(sockaddr_in));

// The endpoint a caller's address names, or the error bind and connect give
// for it.
int endpointFromCaller(const sockaddr* name, int namelen, native::Endpoint& endpoint) {
    if (!name || namelen < kAddressSize) return WSAEFAULT;
    sockaddr_in address;
    std::memcpy(&address, name, sizeof address);
    if (address.sin_family != AF_INET) return WSAEAFNOSUPPORT;
    endpoint.address = address.sin_addr.s_addr;
    endpoint.port = address.sin_port;
    return 0;
}

bool callerBufferFits(const int* namelen) { return namelen && *namelen >= kAddressSize; }

void endpointToCaller(const native::Endpoint& endpoint, sockaddr* name, int* namelen) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = endpoint.port;
    address.sin_addr.s_addr = endpoint.address;
    std::memcpy(name, &address, sizeof address);
    *namelen = kAddressSize;
}

// An address query on a socket, as getsockname and getpeername share it:
// `precondition` is the error while the socket cannot answer, or 0.
int answerEndpoint(int precondition, int (*query)(int, native::Endpoint&), const Socket& socket, sockaddr* name,
                   int* namelen) {
    if (!name || !callerBufferFits(namelen)) return failWith(WSAEFAULT);
    if (precondition) return failWith(precondition);
    native::Endpoint endpoint;
    if (int error = query(socket.descriptor, endpoint)) return failWith(error);
    endpointToCaller(endpoint, name, namelen);
    return 0;
}

// Linux's "aborted before accept" is Windows's "reset by the peer before
// accept".
int acceptError(int error) { return error == WSAECONNABORTED ? WSAECONNRESET : error; }

std::shared_ptr<Socket> acceptedSocket(int descriptor, bool nonBlocking) {
    auto accepted = std::make_shared<Socket>(descriptor);
    accepted->state = SocketState::Connected;
    accepted->bound = true;
    // An accepted socket inherits the listener's mode on Windows, not on Linux.
    if (nonBlocking && native::setNonBlocking(descriptor, true) == 0) accepted->nonBlocking = true;
    return accepted;
}

// Why connect cannot start from the socket's state, or 0.
int connectBlocker(Socket& socket) {
    settleConnect(socket);
    switch (socket.state.load()) {
    case SocketState::Listening: return WSAEINVAL;
    case SocketState::Connecting: return WSAEALREADY;
    case SocketState::Connected: return WSAEISCONN;
    case SocketState::Open: break;
    }
    return 0;
}

}  // namespace

// Only IPv4 TCP sockets are served.
SOCKET WSAAPI socket(int af, int type, int protocol) {
    if (int error = enterCall("socket")) return failSocketWith(error);
    if (af != AF_INET) return failSocketWith(WSAEAFNOSUPPORT);
    if (type != SOCK_STREAM) return failSocketWith(WSAESOCKTNOSUPPORT);
    if (protocol != 0 && protocol != IPPROTO_TCP) return failSocketWith(WSAEPROTONOSUPPORT);
    int descriptor = -1;
    if (int error = native::openStreamSocket(descriptor)) return failSocketWith(error);
    return registerSocket(std::make_shared<Socket>(descriptor));
}

// SO_REUSEADDR counts at the bind only, as on Windows; it is handed to Linux
// here and not when it is set.
int WSAAPI bind(SOCKET s, const sockaddr* name, int namelen) {
    int error = 0;
    std::shared_ptr<Socket> socket = enterSocketCall("bind", s, error);
    if (!socket) return failWith(error);
    native::Endpoint local;
    if ((error = endpointFromCaller(name, namelen, local))) return failWith(error);
    if (socket->bound) return failWith(WSAEINVAL);
    if ((error = native::setReuseAddress(socket->descriptor, socket->reuseAddress))) return failWith(error);
    if ((error = native::bindTo(socket->descriptor, local))) return failWith(error);
    socket->bound = true;
    return 0;
}

// Linux would bind an unbound socket to a free port here; Windows refuses.
int WSAAPI listen(SOCKET s, int backlog) {
    int error = 0;
    std::shared_ptr<Socket> socket = enterSocketCall("listen", s, error);
    if (!socket) return failWith(error);
    SocketState state = socket->state;
    if (state == SocketState::Connected || state == SocketState::Connecting) return failWith(WSAEISCONN);
    if (!socket->bound) return failWith(WSAEINVAL);
    if ((error = native::listenOn(socket->descriptor, backlog))) return failWith(error);
    socket->state = SocketState::Listening;
    return 0;
}

SOCKET WSAAPI accept(SOCKET s, sockaddr* addr, int* addrlen) {
    int error = 0;
    std::shared_ptr<Socket> listener = enterSocketCall("accept", s, error);
    if (!listener) return failSocketWith(error);
    if (addr && !callerBufferFits(addrlen)) return failSocketWith(WSAEFAULT);
    if (listener->state != SocketState::Listening) return failSocketWith(WSAEINVAL);
    int descriptor = -1;
    native::Endpoint peer;
    error = native::acceptFrom(listener->descriptor, descriptor, peer);
    if (error) return failSocketWith(interruptedOr(*listener, acceptError(error)));
    std::shared_ptr<Socket> accepted = acceptedSocket(descriptor, listener->nonBlocking);
    if (listener->closed) {
        accepted->abortOnRelease = true;
        return failSocketWith(WSAEINTR);
    }
    if (addr) endpointToCaller(peer, addr, addrlen);
    return registerSocket(std::move(accepted));
}

int WSAAPI connect(SOCKET s, const sockaddr* name, int namelen) {
    int error = 0;
    std::shared_ptr<Socket> socket = enterSocketCall("connect", s, error);
    if (!socket) return failWith(error);
    native::Endpoint remote;
    if ((error = endpointFromCaller(name, namelen, remote))) return failWith(error);
    if ((error = connectBlocker(*socket))) return failWith(error);
    // Linux takes 0.0.0.0 for this machine; Windows refuses it, and port 0.
    if (remote.address == INADDR_ANY || remote.port == 0) return failWith(WSAEADDRNOTAVAIL);
    error = native::connectTo(socket->descriptor, remote);
    if (error == 0 || error == WSAEWOULDBLOCK) {
        socket->bound = true;
        socket->state = error ? SocketState::Connecting : SocketState::Connected;
    }
    if (error == 0 && !socket->closed) return 0;
    return failWith(interruptedOr(*socket, error));
}

// Linux answers 0.0.0.0:0 for an unbound socket; Windows refuses.
int WSAAPI getsockname(SOCKET s, sockaddr* name, int* namelen) {
    int error = 0;
    std::shared_ptr<Socket> socket = enterSocketCall("getsockname", s, error);
    if (!socket) return failWith(error);
    return answerEndpoint(socket->bound ? 0 : WSAEINVAL, native::localEndpoint, *socket, name, namelen);
}

int WSAAPI getpeername(SOCKET s, sockaddr* name, int* namelen) {
    int error = 0;
    std::shared_ptr<Socket> socket = enterSocketCall("getpeername", s, error);
    if (!socket) return failWith(error);
    settleConnect(*socket);
    int precondition = socket->state == SocketState::Connected ? 0 : WSAENOTCONN;
    return answerEndpoint(precondition, native::peerEndpoint, *socket, name, namelen);
}

int WSAAPI shutdown(SOCKET s, int how) {
    int error = 0;
    std::shared_ptr<Socket> socket = enterSocketCall("shutdown", s, error);
    if (!socket) return failWith(error);
    if (how != SD_RECEIVE && how != SD_SEND && how != SD_BOTH) return failWith(WSAEINVAL);
    settleConnect(*socket);
    if (socket->state != SocketState::Connected) return failWith(WSAENOTCONN);
    static_assert(SD_RECEIVE == native::kReceiveSide && SD_SEND == native::kSendSide &&
                      SD_BOTH == native::kBothSides,
                  "shutdown directions pass through unchanged");
    if ((error = native::shutdownSide(socket->descriptor, how))) return failWith(error);
    if (how != SD_SEND) socket->receiveShutDown = true;
    if (how != SD_RECEIVE) socket->sendShutDown = true;
    return 0;
}

// The value is refused from now on. Calls blocked on the socket in other
// threads fail with WSAEINTR; the descriptor closes when the last of them
// has returned.
int WSAAPI closesocket(SOCKET s) {
    if (int error = enterCall("closesocket")) return failWith(error);
    std::shared_ptr<Socket> socket = unregisterSocket(s);
    if (!socket) return failWith(WSAENOTSOCK);
    retire(std::move(socket));
    return 0;
}
