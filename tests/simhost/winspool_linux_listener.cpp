#include "winspool_linux_listener.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace winspool_test {
namespace linux_listener {
namespace {

bool readable(int descriptor, int timeoutMilliseconds) {
    pollfd wait{descriptor, POLLIN, 0};
    return ::poll(&wait, 1, timeoutMilliseconds) == 1;
}

}  // namespace

Listener listenOn(const char* address) {
    Listener listener;
    int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = 0;
    socklen_t length = sizeof local;
    if (descriptor < 0 || ::inet_pton(AF_INET, address, &local.sin_addr) != 1 ||
        ::bind(descriptor, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0 || ::listen(descriptor, 4) != 0 ||
        ::getsockname(descriptor, reinterpret_cast<sockaddr*>(&local), &length) != 0) {
        if (descriptor >= 0) ::close(descriptor);
        return listener;
    }
    listener.descriptor = descriptor;
    listener.port = ntohs(local.sin_port);
    return listener;
}

std::vector<unsigned char> receiveOneConnection(const Listener& listener, int timeoutMilliseconds) {
    std::vector<unsigned char> received;
    if (!readable(listener.descriptor, timeoutMilliseconds)) return received;
    int connection = ::accept4(listener.descriptor, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0) return received;
    unsigned char chunk[4096];
    while (readable(connection, timeoutMilliseconds)) {
        ssize_t count = ::recv(connection, chunk, sizeof chunk, 0);
        if (count <= 0) break;
        received.insert(received.end(), chunk, chunk + count);
    }
    ::close(connection);
    return received;
}

void close(const Listener& listener) {
    if (listener.descriptor >= 0) ::close(listener.descriptor);
}

}  // namespace linux_listener
}  // namespace winspool_test
