#include "simhost/ws2_32/native.h"

#include "simhost/ws2_32/wsa_errors.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace simhost {
namespace ws2_32 {
namespace native {
namespace {

// The code Windows gives for the situation the Linux error describes.
int wsaCodeFor(int error) {
    switch (error) {
    case 0: return 0;
    case EINTR: return WSAEINTR;
    case EBADF:
    case ENOTSOCK: return WSAENOTSOCK;
    case EACCES:
    case EPERM: return WSAEACCES;
    case EFAULT: return WSAEFAULT;
    case EINVAL: return WSAEINVAL;
    case EMFILE:
    case ENFILE: return WSAEMFILE;
    case EAGAIN:
    case EINPROGRESS: return WSAEWOULDBLOCK;
    case EALREADY: return WSAEALREADY;
    case EDESTADDRREQ: return WSAEDESTADDRREQ;
    case EMSGSIZE: return WSAEMSGSIZE;
    case EPROTOTYPE: return WSAEPROTOTYPE;
    case ENOPROTOOPT: return WSAENOPROTOOPT;
    case EPROTONOSUPPORT: return WSAEPROTONOSUPPORT;
    case ESOCKTNOSUPPORT: return WSAESOCKTNOSUPPORT;
    case EOPNOTSUPP: return WSAEOPNOTSUPP;
    case EPFNOSUPPORT: return WSAEPFNOSUPPORT;
    case EAFNOSUPPORT: return WSAEAFNOSUPPORT;
    case EADDRINUSE: return WSAEADDRINUSE;
    case EADDRNOTAVAIL: return WSAEADDRNOTAVAIL;
    case ENETDOWN: return WSAENETDOWN;
    case ENETUNREACH: return WSAENETUNREACH;
    case ENETRESET: return WSAENETRESET;
    case ECONNABORTED: return WSAECONNABORTED;
    // Linux answers EPIPE where the peer's reset ended the connection.
    case ECONNRESET:
    case EPIPE: return WSAECONNRESET;
    case ENOBUFS:
    case ENOMEM: return WSAENOBUFS;
    case EISCONN: return WSAEISCONN;
    case ENOTCONN: return WSAENOTCONN;
    case ESHUTDOWN: return WSAESHUTDOWN;
    case ETIMEDOUT: return WSAETIMEDOUT;
    case ECONNREFUSED: return WSAECONNREFUSED;
    case EHOSTDOWN: return WSAEHOSTDOWN;
    case EHOSTUNREACH: return WSAEHOSTUNREACH;
    default: return WSAENETDOWN;
    }
}

int lastWsaError() { return wsaCodeFor(errno); }

// Winsock's calls block through signals; Linux's return EINTR.
template <class Call>
auto retryInterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) result = call();
    return result;
}

int outcome(long result) { return result < 0 ? lastWsaError() : 0; }

sockaddr_in toSockaddr(const Endpoint& endpoint) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = endpoint.port;
    address.sin_addr.s_addr = endpoint.address;
    return address;
}

Endpoint fromSockaddr(const sockaddr_in& address) { return {address.sin_addr.s_addr, address.sin_port}; }

// Linux's flags for Winsock's; false if a flag outside `allowed` is set.
bool translateFlags(int flags, int allowed, int& linuxFlags) {
    if (flags & ~allowed) return false;
    linuxFlags = 0;
    if (flags & kOutOfBand) linuxFlags |= MSG_OOB;
    if (flags & kPeek) linuxFlags |= MSG_PEEK;
    if (flags & kDontRoute) linuxFlags |= MSG_DONTROUTE;
    if (flags & kWaitAll) linuxFlags |= MSG_WAITALL;
    return true;
}

int endpointOf(int (*query)(int, sockaddr*, socklen_t*), int descriptor, Endpoint& endpoint) {
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    if (query(descriptor, reinterpret_cast<sockaddr*>(&address), &length) != 0) return lastWsaError();
    endpoint = fromSockaddr(address);
    return 0;
}

short pollEventsFor(unsigned wanted) {
    short events = 0;
    if (wanted & kReadable) events |= POLLIN;
    if (wanted & kWritable) events |= POLLOUT;
    if (wanted & kUrgent) events |= POLLPRI;
    return events;
}

unsigned readinessOf(short revents) {
    unsigned seen = 0;
    if (revents & POLLIN) seen |= kReadable;
    if (revents & POLLOUT) seen |= kWritable;
    if (revents & POLLPRI) seen |= kUrgent;
    if (revents & POLLHUP) seen |= kHangUp;
    if (revents & (POLLERR | POLLNVAL)) seen |= kFailed;
    return seen;
}

int pollTimeout(const std::chrono::steady_clock::time_point* deadline) {
    if (!deadline) return -1;
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp<int64_t>(left.count(), 0, INT_MAX));
}

}  // namespace

int openStreamSocket(int& descriptor) {
    descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
    return descriptor < 0 ? lastWsaError() : 0;
}

int bindTo(int descriptor, const Endpoint& local) {
    sockaddr_in address = toSockaddr(local);
    return outcome(::bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address));
}

int listenOn(int descriptor, int backlog) { return outcome(::listen(descriptor, std::max(backlog, 0))); }

int acceptFrom(int descriptor, int& accepted, Endpoint& peer) {
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    accepted = retryInterrupted(
        [&] { return ::accept4(descriptor, reinterpret_cast<sockaddr*>(&address), &length, SOCK_CLOEXEC); });
    if (accepted < 0) return lastWsaError();
    peer = fromSockaddr(address);
    return 0;
}

int connectTo(int descriptor, const Endpoint& remote) {
    sockaddr_in address = toSockaddr(remote);
    if (::connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return 0;
    if (errno != EINTR) return lastWsaError();
    // An interrupted connect goes on by itself; wait for its end.
    pollfd watched = {descriptor, POLLOUT, 0};
    if (retryInterrupted([&] { return ::poll(&watched, 1, -1); }) < 0) return lastWsaError();
    int pending = 0;
    int error = takePendingError(descriptor, pending);
    return error ? error : pending;
}

int receiveBytes(int descriptor, char* buffer, size_t length, int flags, size_t& received) {
    int linuxFlags = 0;
    if (!translateFlags(flags, kOutOfBand | kPeek | kWaitAll, linuxFlags)) return WSAEOPNOTSUPP;
    ssize_t count = retryInterrupted([&] { return ::recv(descriptor, buffer, length, linuxFlags); });
    if (count < 0) return lastWsaError();
    received = static_cast<size_t>(count);
    return 0;
}

// A blocking send returns when all is sent, as on Windows; a non-blocking
// one sends what fits.
int sendBytes(int descriptor, const char* data, size_t length, int flags, size_t& sent) {
    int linuxFlags = 0;
    if (!translateFlags(flags, kOutOfBand | kDontRoute, linuxFlags)) return WSAEOPNOTSUPP;
    sent = 0;
    do {
        ssize_t count =
            retryInterrupted([&] { return ::send(descriptor, data + sent, length - sent, linuxFlags | MSG_NOSIGNAL); });
        if (count < 0) return sent > 0 ? 0 : lastWsaError();
        sent += static_cast<size_t>(count);
    } while (sent < length);
    return 0;
}

int shutdownSide(int descriptor, int how) {
    static_assert(SHUT_RD == kReceiveSide && SHUT_WR == kSendSide && SHUT_RDWR == kBothSides,
                  "shutdown directions are numbered alike");
    return outcome(::shutdown(descriptor, how));
}

int localEndpoint(int descriptor, Endpoint& local) { return endpointOf(::getsockname, descriptor, local); }

int peerEndpoint(int descriptor, Endpoint& peer) { return endpointOf(::getpeername, descriptor, peer); }

int setReuseAddress(int descriptor, bool reuse) {
    int value = reuse ? 1 : 0;
    return outcome(::setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &value, sizeof value));
}

int setLinger(int descriptor, bool on, int seconds) {
    ::linger value = {on ? 1 : 0, seconds};
    return outcome(::setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &value, sizeof value));
}

int setNonBlocking(int descriptor, bool nonBlocking) {
    int flags = ::fcntl(descriptor, F_GETFL);
    if (flags < 0) return lastWsaError();
    flags = nonBlocking ? (flags | O_NONBLOCK) : (flags & ~O_NONBLOCK);
    return outcome(::fcntl(descriptor, F_SETFL, flags));
}

int takePendingError(int descriptor, int& pending) {
    int value = 0;
    socklen_t length = sizeof value;
    if (::getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &value, &length) != 0) return lastWsaError();
    pending = wsaCodeFor(value);
    return 0;
}

int bytesAvailable(int descriptor, size_t& available) {
    int count = 0;
    if (::ioctl(descriptor, FIONREAD, &count) != 0) return lastWsaError();
    available = static_cast<size_t>(count);
    return 0;
}

void wakeBlockedCalls(int descriptor) { ::shutdown(descriptor, SHUT_RDWR); }

void closeGracefully(int descriptor) { ::close(descriptor); }

void closeAbortively(int descriptor) {
    setLinger(descriptor, true, 0);
    ::close(descriptor);
}

int waitForReadiness(Watch* watches, size_t count, int64_t milliseconds) {
    std::vector<pollfd> polled(count);
    for (size_t i = 0; i < count; ++i)
        polled[i] = {watches[i].descriptor, pollEventsFor(watches[i].wanted), 0};
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(std::max<int64_t>(milliseconds, 0));
    const auto* limit = milliseconds < 0 ? nullptr : &deadline;
    while (::poll(polled.data(), polled.size(), pollTimeout(limit)) < 0)
        if (errno != EINTR) return lastWsaError();
    for (size_t i = 0; i < count; ++i) watches[i].observed = readinessOf(polled[i].revents);
    return 0;
}

}  // namespace native
}  // namespace ws2_32
}  // namespace simhost
