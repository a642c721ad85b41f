// Helpers of the Winsock tests: a fixture with Winsock started on a fresh
// host, and listeners and connections on real loopback sockets.
#pragma once

#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/ws2_32/winsock.h"

#include <gtest/gtest.h>

#include <chrono>

namespace ws2_32_test {

// The command endpoint's address: a loopback address other than 127.0.0.1.
constexpr const char* kCommandAddress = "127.0.3.1";

class StartedWinsock : public ::testing::Test {
protected:
    void SetUp() override {
        simhost::Host::get().reset();
        WSADATA data;
        ASSERT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
    }
    void TearDown() override { simhost::Host::get().reset(); }
};

inline sockaddr_in ipv4Address(const char* address, u_short port) {
    sockaddr_in result = {};
    result.sin_family = AF_INET;
    result.sin_addr.s_addr = inet_addr(address);
    result.sin_port = htons(port);
    return result;
}

inline int bindTo(SOCKET s, const sockaddr_in& address) {
    return bind(s, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

inline sockaddr_in localAddressOf(SOCKET s) {
    sockaddr_in address = {};
    int length = sizeof address;
    EXPECT_EQ(getsockname(s, reinterpret_cast<sockaddr*>(&address), &length), 0);
    return address;
}

// A socket bound to a free port of `address` and listening.
inline SOCKET newListener(const char* address = kCommandAddress, int backlog = SOMAXCONN) {
    SOCKET listener = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    EXPECT_NE(listener, INVALID_SOCKET);
    EXPECT_EQ(bindTo(listener, ipv4Address(address, 0)), 0);
    EXPECT_EQ(listen(listener, backlog), 0);
    return listener;
}

inline int connectTo(SOCKET s, const sockaddr_in& address) {
    return connect(s, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

inline SOCKET newClientOf(SOCKET listener) {
    SOCKET client = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    EXPECT_EQ(connectTo(client, localAddressOf(listener)), 0);
    return client;
}

// Both ends of one loopback connection.
struct Connection {
    SOCKET client;
    SOCKET server;
};

inline Connection newConnection(SOCKET listener) {
    SOCKET client = newClientOf(listener);
    SOCKET server = accept(listener, nullptr, nullptr);
    EXPECT_NE(server, INVALID_SOCKET);
    return {client, server};
}

// Closes with a reset: linger on, with no time.
inline void closeWithReset(SOCKET s) {
    linger abortive = {1, 0};
    EXPECT_EQ(setsockopt(s, SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&abortive), sizeof abortive), 0);
    EXPECT_EQ(closesocket(s), 0);
}

inline std::chrono::milliseconds elapsedSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
}

}  // namespace ws2_32_test
