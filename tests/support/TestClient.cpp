#include "support/TestClient.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace testsupport {

namespace {

using Clock = std::chrono::steady_clock;

int millisecondsLeft(Clock::time_point deadline) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

}  // namespace

TestClient::~TestClient() { close(); }

bool TestClient::connect(int timeoutMs, const char* address, int port, const char* fromAddress) {
    close();
    sockaddr_in target = {};
    target.sin_family = AF_INET;
    target.sin_port = htons(static_cast<uint16_t>(port));
    inet_pton(AF_INET, address, &target.sin_addr);
    sockaddr_in source = {};
    source.sin_family = AF_INET;
    if (fromAddress) inet_pton(AF_INET, fromAddress, &source.sin_addr);
    auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    do {
        int fd = ::socket(AF_INET, SOCK_STREAM, 0);
        bool bound = !fromAddress || ::bind(fd, reinterpret_cast<sockaddr*>(&source), sizeof source) == 0;
        if (bound && ::connect(fd, reinterpret_cast<sockaddr*>(&target), sizeof target) == 0) {
            fd_ = fd;
            return true;
        }
        ::close(fd);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    } while (Clock::now() < deadline);
    return false;
}

bool TestClient::send(const std::string& bytes) {
    size_t sent = 0;
    while (sent < bytes.size()) {
        ssize_t n = ::send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) return false;
        sent += static_cast<size_t>(n);
    }
    return true;
}

std::string TestClient::receiveReply(int timeoutMs) {
    auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        size_t nul = pending_.find('\0');
        if (nul != std::string::npos) {
            std::string reply = pending_.substr(0, nul + 1);
            pending_.erase(0, nul + 1);
            return reply;
        }
        pollfd ready = {fd_, POLLIN, 0};
        if (::poll(&ready, 1, millisecondsLeft(deadline)) <= 0) return {};
        char buffer[65536];
        ssize_t n = ::recv(fd_, buffer, sizeof buffer, 0);
        if (n <= 0) return {};
        pending_.append(buffer, static_cast<size_t>(n));
    }
}

bool TestClient::waitForClose(int timeoutMs) {
    pollfd ready = {fd_, POLLIN, 0};
    if (::poll(&ready, 1, timeoutMs) <= 0) return false;
    char byte;
    return ::recv(fd_, &byte, 1, 0) <= 0;
}

void TestClient::shutdownSending() {
    if (fd_ >= 0) ::shutdown(fd_, SHUT_WR);
}

void TestClient::close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
    pending_.clear();
}

void TestClient::resetClose() {
    if (fd_ < 0) return;
    linger abortive = {1, 0};
    setsockopt(fd_, SOL_SOCKET, SO_LINGER, &abortive, sizeof abortive);
    close();
}

int TestClient::localPort() const {
    sockaddr_in local = {};
    socklen_t length = sizeof local;
    getsockname(fd_, reinterpret_cast<sockaddr*>(&local), &length);
    return ntohs(local.sin_port);
}

PortSquatter::PortSquatter() {
    fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(kCommandPort));
    inet_pton(AF_INET, kCommandAddress, &address.sin_addr);
    bound_ = ::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 && ::listen(fd_, 1) == 0;
}

PortSquatter::~PortSquatter() { release(); }

void PortSquatter::release() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
}

}  // namespace testsupport
