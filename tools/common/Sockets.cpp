#include "Sockets.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace vexor_tools {
namespace {

sockaddr_in ipv4(const std::string& address, uint16_t port) {
    sockaddr_in socketAddress = {};
    socketAddress.sin_family = AF_INET;
    socketAddress.sin_port = htons(port);
    if (inet_pton(AF_INET, address.c_str(), &socketAddress.sin_addr) != 1)
        throw SocketError("\"" + address + "\" is not an IPv4 address");
    return socketAddress;
}

std::string systemError(const std::string& what) { return what + ": " + std::strerror(errno); }

Descriptor tcpSocket() {
    Descriptor made(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!made.valid()) throw SocketError(systemError("socket"));
    return made;
}

}  // namespace

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    if (this != &other) {
        close();
        value_ = other.release();
    }
    return *this;
}

int Descriptor::release() {
    int value = value_;
    value_ = -1;
    return value;
}

void Descriptor::close() {
    if (value_ >= 0) ::close(value_);
    value_ = -1;
}

Descriptor listenAt(const std::string& address, uint16_t port, uint16_t& boundPort) {
    sockaddr_in local = ipv4(address, port);
    Descriptor listening = tcpSocket();
    int reuse = 1;
    ::setsockopt(listening.get(), SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
    if (::bind(listening.get(), reinterpret_cast<sockaddr*>(&local), sizeof local) != 0)
        throw SocketError(systemError("cannot listen at " + address + ":" + std::to_string(port)));
    if (::listen(listening.get(), 4) != 0) throw SocketError(systemError("listen"));
    socklen_t size = sizeof local;
    ::getsockname(listening.get(), reinterpret_cast<sockaddr*>(&local), &size);
    boundPort = ntohs(local.sin_port);
    return listening;
}

Descriptor connectTo(const std::string& address, uint16_t port, const std::string& fromAddress) {
    sockaddr_in remote = ipv4(address, port);
    Descriptor connection = tcpSocket();
    if (!fromAddress.empty()) {
        sockaddr_in local = ipv4(fromAddress, 0);
        if (::bind(connection.get(), reinterpret_cast<sockaddr*>(&local), sizeof local) != 0)
            throw SocketError(systemError("cannot connect from " + fromAddress));
    }
    if (::connect(connection.get(), reinterpret_cast<sockaddr*>(&remote), sizeof remote) != 0)
        throw SocketError(systemError("nothing answers at " + address + ":" + std::to_string(port)));
    return connection;
}

void sendAll(int descriptor, const std::string& bytes) {
    size_t sent = 0;
    while (sent < bytes.size()) {
        ssize_t n = ::send(descriptor, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) throw SocketError(systemError("send"));
        sent += static_cast<size_t>(n);
    }
}

Readiness waitReadable(int first, int second, int third, int timeoutMilliseconds) {
    pollfd watched[3] = {{first, POLLIN, 0}, {second, POLLIN, 0}, {third, POLLIN, 0}};
    Readiness readiness;
    if (::poll(watched, 3, timeoutMilliseconds) <= 0) return readiness;
    const short seen = POLLIN | POLLHUP | POLLERR;
    readiness.first = first >= 0 && (watched[0].revents & seen);
    readiness.second = second >= 0 && (watched[1].revents & seen);
    readiness.third = third >= 0 && (watched[2].revents & seen);
    return readiness;
}

std::string readUntilEnd(int descriptor) {
    std::string bytes;
    char buffer[65536];
    for (;;) {
        ssize_t n = ::recv(descriptor, buffer, sizeof buffer, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) throw SocketError(systemError("recv"));
        if (n == 0) return bytes;
        bytes.append(buffer, static_cast<size_t>(n));
    }
}

}  // namespace vexor_tools
