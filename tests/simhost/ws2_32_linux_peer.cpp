#include "ws2_32_linux_peer.h"

#include <cerrno>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace ws2_32_test {
namespace linux_peer {

int connectTo(uint32_t address, uint16_t port) {
    int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) return -1;
    sockaddr_in remote = {};
    remote.sin_family = AF_INET;
    remote.sin_addr.s_addr = address;
    remote.sin_port = port;
    if (::connect(descriptor, reinterpret_cast<sockaddr*>(&remote), sizeof remote) == 0) return descriptor;
    ::close(descriptor);
    return -1;
}

int receiveOnce(int descriptor) {
    pollfd watched = {descriptor, POLLIN, 0};
    int ready = ::poll(&watched, 1, 10000);
    if (ready < 0) return -errno;
    if (ready == 0) return -ETIMEDOUT;
    char buffer[16];
    ssize_t count = ::recv(descriptor, buffer, sizeof buffer, 0);
    return count < 0 ? -errno : static_cast<int>(count);
}

void close(int descriptor) { ::close(descriptor); }

}  // namespace linux_peer
}  // namespace ws2_32_test
