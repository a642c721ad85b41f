// Helpers of the Winsock tests: a fixture with Winsock started on a fresh
// host, and listeners and connections on real loopback sockets.
#pragma once

#include "kernel32_test_helpers.h"
#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/ws2_32/winsock.h"

#include <gtest/gtest.h>

#include <chrono>

namespace ws2_32_test {

using kernel32_test::elapsedSince;
using kernel32_test::eventually;

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

// A select time-out for what must come: select returns as soon as it has,
// and a test whose socket never gets ready fails after it.
constexpr timeval kReadyWithin = {10, 0};

// Whether `s` becomes readable within kReadyWithin: bytes, an end or a
// reset have arrived, or a connection waits to be accepted. Loopback
// delivers them almost at once, but not within the sending call for sure;
// a test that checks several sockets at once waits for each first.
inline bool becomesReadable(SOCKET s) {
    fd_set read;
    FD_ZERO(&read);
    FD_SET(s, &read);
    return select(0, &read, nullptr, nullptr, &kReadyWithin) == 1;
}

}  // namespace ws2_32_test
