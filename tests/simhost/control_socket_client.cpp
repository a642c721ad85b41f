#include "control_socket_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

namespace control_test {
namespace {

sockaddr_un unixAddress(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    return address;
}

}  // namespace

std::string exchange(const std::string& path, const std::string& bytes) {
    sockaddr_un address = unixAddress(path);
    int host = ::socket(AF_UNIX, SOCK_STREAM, 0);
    if (::connect(host, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        ::close(host);
        return {};
    }
    size_t sent = 0;
    while (sent < bytes.size()) {
        ssize_t n = ::send(host, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) break;
        sent += static_cast<size_t>(n);
    }
    ::shutdown(host, SHUT_WR);
    std::string reply;
    char buffer[4096];
    pollfd readable = {host, POLLIN, 0};
    while (reply.find('\n') == std::string::npos && ::poll(&readable, 1, 10000) > 0) {
        ssize_t n = ::recv(host, buffer, sizeof buffer, 0);
        if (n <= 0) break;
        reply.append(buffer, static_cast<size_t>(n));
    }
    ::close(host);
    return reply.substr(0, reply.find('\n'));
}

bool leaveStaleSocketFile(const std::string& path) {
    sockaddr_un address = unixAddress(path);
    int made = ::socket(AF_UNIX, SOCK_STREAM, 0);
    bool bound = ::bind(made, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    ::close(made);
    return bound;
}

}  // namespace control_test
