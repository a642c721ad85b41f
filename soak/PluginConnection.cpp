#include "PluginConnection.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

namespace soak {
namespace {

sockaddr_in ipv4(const std::string& address, uint16_t port) {
    sockaddr_in socketAddress = {};
    socketAddress.sin_family = AF_INET;
    socketAddress.sin_port = htons(port);
    inet_pton(AF_INET, address.c_str(), &socketAddress.sin_addr);
    return socketAddress;
}

bool readable(int descriptor, int timeoutMs) {
    pollfd watched = {descriptor, POLLIN, 0};
    return ::poll(&watched, 1, timeoutMs) > 0;
}

int listenAt(uint16_t port) {
    int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in local = ipv4("127.0.1.20", port);
    if (::bind(listener, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0 || ::listen(listener, 8) != 0) {
        ::close(listener);
        return -1;
    }
    return listener;
}

int connectFrom(const std::string& fromAddress) {
    int connection = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in local = ipv4(fromAddress, 0);
    sockaddr_in service = ipv4("127.0.3.1", 5555);
    if (::bind(connection, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0 ||
        ::connect(connection, reinterpret_cast<sockaddr*>(&service), sizeof service) != 0) {
        ::close(connection);
        return -1;
    }
    return connection;
}

}  // namespace

bool PluginConnection::join(uint16_t port, const std::string& fromAddress) {
    leave();
    listener_ = listenAt(port);
    if (listener_ < 0) return false;
    connection_ = connectFrom(fromAddress);
    if (connection_ < 0) {
        leave();
        return false;
    }
    port_ = port;
    return true;
}

void PluginConnection::leave() {
    if (connection_ >= 0) ::close(connection_);
    if (listener_ >= 0) ::close(listener_);
    connection_ = listener_ = -1;
}

std::string PluginConnection::exchange(const std::string& message, int timeoutMs) {
    std::string bytes = message;
    bytes.push_back('\0');
    size_t sent = 0;
    while (sent < bytes.size()) {
        ssize_t n = ::send(connection_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) return {};
        sent += static_cast<size_t>(n);
    }
    // What is waiting is looked at first and taken only up to the reply's
    // NUL, so that nothing after it is lost to the next exchange.
    std::string reply;
    char buffer[8192];
    while (readable(connection_, timeoutMs)) {
        ssize_t seen = ::recv(connection_, buffer, sizeof buffer, MSG_PEEK);
        if (seen <= 0) return {};
        const char* nul = static_cast<const char*>(std::memchr(buffer, '\0', static_cast<size_t>(seen)));
        const size_t take = nul ? static_cast<size_t>(nul - buffer) + 1 : static_cast<size_t>(seen);
        if (::recv(connection_, buffer, take, 0) != static_cast<ssize_t>(take)) return {};
        reply.append(buffer, nul ? take - 1 : take);
        if (nul) return reply;
    }
    return {};
}

bool PluginConnection::unaskedBytesWaiting() { return joined() && readable(connection_, 0); }

long PluginConnection::receiveJob(int timeoutMs) {
    if (!readable(listener_, timeoutMs)) return -1;
    int job = ::accept(listener_, nullptr, nullptr);
    if (job < 0) return -1;
    long total = 0;
    char buffer[65536];
    for (ssize_t n; readable(job, timeoutMs) && (n = ::recv(job, buffer, sizeof buffer, 0)) > 0;) total += n;
    ::close(job);
    return total;
}

}  // namespace soak
