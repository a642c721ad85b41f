#include "simhost/winspool/raw_port_socket.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace simhost {
namespace winspool {
namespace native {
namespace {

std::string failure(const char* step) { return std::string(step) + ": " + std::strerror(errno); }

// A socket descriptor closed when it goes out of scope.
class Connection {
public:
    Connection() : descriptor_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {}
    ~Connection() {
        if (descriptor_ >= 0) ::close(descriptor_);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    int descriptor() const { return descriptor_; }

private:
    int descriptor_;
};

void limitWaits(int descriptor, int timeoutMilliseconds) {
    timeval limit{timeoutMilliseconds / 1000, (timeoutMilliseconds % 1000) * 1000};
    ::setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

std::string sendAll(int descriptor, const std::vector<unsigned char>& bytes) {
    size_t sent = 0;
    while (sent < bytes.size()) {
        ssize_t count = ::send(descriptor, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return failure("send");
        sent += static_cast<size_t>(count);
    }
    return {};
}

}  // namespace

std::string sendToRawPort(const std::string& ipv4Address, uint16_t port, const std::vector<unsigned char>& bytes,
                          int timeoutMilliseconds) {
    sockaddr_in remote{};
    remote.sin_family = AF_INET;
    remote.sin_port = htons(port);
    if (::inet_pton(AF_INET, ipv4Address.c_str(), &remote.sin_addr) != 1)
        return "\"" + ipv4Address + "\" is not an IPv4 address (host names are not resolved)";
    Connection connection;
    if (connection.descriptor() < 0) return failure("socket");
    limitWaits(connection.descriptor(), timeoutMilliseconds);
    if (::connect(connection.descriptor(), reinterpret_cast<sockaddr*>(&remote), sizeof remote) != 0)
        return failure("connect");
    std::string sendFailure = sendAll(connection.descriptor(), bytes);
    if (!sendFailure.empty()) return sendFailure;
    ::shutdown(connection.descriptor(), SHUT_WR);
    return {};
}

}  // namespace native
}  // namespace winspool
}  // namespace simhost
