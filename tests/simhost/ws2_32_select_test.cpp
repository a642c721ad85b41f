// The Windows socket set and select over real loopback sockets.
#include "ws2_32_test_helpers.h"

#include <atomic>
#include <thread>
#include <vector>

using namespace ws2_32_test;

namespace {

using Ws2_32Select = StartedWinsock;

bool contains(fd_set& set, SOCKET s) { return FD_ISSET(s, &set) != 0; }

// ---- The set ----

TEST_F(Ws2_32Select, FdSetHoldsSixtyFourSocketsAndIgnoresTheSixtyFifth) {
    fd_set set;
    FD_ZERO(&set);
    for (SOCKET s = 1; s <= 65; ++s) FD_SET(s * 4, &set);
    EXPECT_EQ(set.fd_count, 64u);
    EXPECT_TRUE(contains(set, 64 * 4));
    EXPECT_FALSE(contains(set, 65 * 4));
    EXPECT_EQ(set.fd_array[63], 64u * 4);
}

TEST_F(Ws2_32Select, FdSetAddsNoDuplicateAndFdClrKeepsTheOrder) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(8, &set);
    FD_SET(12, &set);
    FD_SET(8, &set);
    FD_SET(16, &set);
    ASSERT_EQ(set.fd_count, 3u);
    FD_CLR(12, &set);
    ASSERT_EQ(set.fd_count, 2u);
    EXPECT_EQ(set.fd_array[0], 8u);
    EXPECT_EQ(set.fd_array[1], 16u);
    FD_CLR(99, &set);
    EXPECT_EQ(set.fd_count, 2u);
    EXPECT_FALSE(contains(set, 12));
    FD_ZERO(&set);
    EXPECT_EQ(set.fd_count, 0u);
    EXPECT_FALSE(contains(set, 8));
}

// ---- Arguments ----

TEST_F(Ws2_32Select, ThreeNullOrEmptySetsAreInvalid) {
    timeval poll = {0, 0};
    fd_set* none = nullptr;
    EXPECT_EQ(select(0, none, none, none, &poll), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEINVAL);
    fd_set read, write, except;
    FD_ZERO(&read);
    FD_ZERO(&write);
    FD_ZERO(&except);
    WSASetLastError(0);
    EXPECT_EQ(select(0, &read, &write, &except, &poll), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEINVAL);
}

TEST_F(Ws2_32Select, ANegativeTimeOutIsInvalid) {
    SOCKET listener = newListener();
    fd_set read;
    FD_ZERO(&read);
    FD_SET(listener, &read);
    timeval negative = {-1, 0};
    EXPECT_EQ(select(0, &read, nullptr, nullptr, &negative), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEINVAL);
}

TEST_F(Ws2_32Select, ASetWithAClosedSocketIsNotASocket) {
    SOCKET listener = newListener();
    SOCKET closed = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    ASSERT_EQ(closesocket(closed), 0);
    fd_set read;
    FD_ZERO(&read);
    FD_SET(listener, &read);
    FD_SET(closed, &read);
    timeval poll = {0, 0};
    EXPECT_EQ(select(0, &read, nullptr, nullptr, &poll), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAENOTSOCK);
    EXPECT_EQ(read.fd_count, 2u);
}

// ---- Time-outs ----

TEST_F(Ws2_32Select, ZeroTimeOutLooksAndEmptiesTheSet) {
    SOCKET listener = newListener();
    fd_set read;
    FD_ZERO(&read);
    FD_SET(listener, &read);
    timeval poll = {0, 0};
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(select(0, &read, nullptr, nullptr, &poll), 0);
    EXPECT_LT(elapsedSince(start).count(), 2000);
    EXPECT_EQ(read.fd_count, 0u);
}

TEST_F(Ws2_32Select, OneSecondTimeOutWaitsASecondAndAnswersZero) {
    SOCKET listener = newListener();
    fd_set read;
    FD_ZERO(&read);
    FD_SET(listener, &read);
    timeval second = {1, 0};
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(select(0, &read, nullptr, nullptr, &second), 0);
    auto elapsed = elapsedSince(start).count();
    EXPECT_GE(elapsed, 990);
    EXPECT_LT(elapsed, 3000);
    EXPECT_EQ(read.fd_count, 0u);
}

// 100 seconds last 100 ms: far from both, whatever the load.
TEST_F(Ws2_32Select, TimeOutRunsOnTheHostsTimeScale) {
    simhost::Host::get().setTimeScale(0.001);
    SOCKET listener = newListener();
    fd_set read;
    FD_ZERO(&read);
    FD_SET(listener, &read);
    timeval hundredSeconds = {100, 0};
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(select(0, &read, nullptr, nullptr, &hundredSeconds), 0);
    auto elapsed = elapsedSince(start).count();
    EXPECT_GE(elapsed, 99);
    EXPECT_LT(elapsed, 10000);
}

// ---- Readiness ----

TEST_F(Ws2_32Select, ListenerIsReadableWithAConnectionWaiting) {
    SOCKET listener = newListener(kCommandAddress, 3);
    SOCKET idle = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    SOCKET client = newClientOf(listener);
    fd_set read;
    FD_ZERO(&read);
    FD_SET(idle, &read);
    FD_SET(listener, &read);
    EXPECT_EQ(select(0, &read, nullptr, nullptr, &kReadyWithin), 1);
    ASSERT_EQ(read.fd_count, 1u);
    EXPECT_EQ(read.fd_array[0], listener);
    EXPECT_NE(accept(listener, nullptr, nullptr), INVALID_SOCKET);
    EXPECT_NE(client, INVALID_SOCKET);
}

TEST_F(Ws2_32Select, ServesAListenerAndSixtyThreeClientsInOneSet) {
    SOCKET listener = newListener();
    std::vector<Connection> connections;
    for (int i = 0; i < 63; ++i) connections.push_back(newConnection(listener));
    for (const Connection& connection : connections) ASSERT_EQ(send(connection.client, "x", 2, 0), 2);
    // The bytes may reach the sockets one by one: select reports what is there.
    for (const Connection& connection : connections) ASSERT_TRUE(becomesReadable(connection.server));

    fd_set read;
    FD_ZERO(&read);
    FD_SET(listener, &read);
    for (const Connection& connection : connections) FD_SET(connection.server, &read);
    ASSERT_EQ(read.fd_count, 64u);
    timeval second = {1, 0};
    EXPECT_EQ(select(0, &read, nullptr, nullptr, &second), 63);
    EXPECT_EQ(read.fd_count, 63u);
    EXPECT_FALSE(contains(read, listener));
    for (const Connection& connection : connections) EXPECT_TRUE(contains(read, connection.server));

    SOCKET extra = newClientOf(listener);
    ASSERT_TRUE(becomesReadable(listener));
    FD_ZERO(&read);
    FD_SET(listener, &read);
    for (const Connection& connection : connections) FD_SET(connection.server, &read);
    FD_SET(extra, &read);
    EXPECT_EQ(read.fd_count, 64u);
    EXPECT_EQ(select(0, &read, nullptr, nullptr, &second), 64);
    EXPECT_EQ(simhost::ws2_32::openSocketCount(), 1u + 2 * 63 + 1);
}

TEST_F(Ws2_32Select, OrderlyEndAndResetMakeASocketReadable) {
    SOCKET listener = newListener();
    Connection orderly = newConnection(listener);
    Connection reset = newConnection(listener);
    Connection quiet = newConnection(listener);
    ASSERT_EQ(closesocket(orderly.client), 0);
    closeWithReset(reset.client);
    ASSERT_TRUE(becomesReadable(orderly.server));
    ASSERT_TRUE(becomesReadable(reset.server));
    fd_set read;
    FD_ZERO(&read);
    FD_SET(orderly.server, &read);
    FD_SET(reset.server, &read);
    FD_SET(quiet.server, &read);
    timeval second = {1, 0};
    ASSERT_EQ(select(0, &read, nullptr, nullptr, &second), 2);
    EXPECT_TRUE(contains(read, orderly.server));
    EXPECT_TRUE(contains(read, reset.server));
    EXPECT_FALSE(contains(read, quiet.server));
    char buffer[4];
    EXPECT_EQ(recv(orderly.server, buffer, sizeof buffer, 0), 0);
    EXPECT_EQ(recv(reset.server, buffer, sizeof buffer, 0), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAECONNRESET);
}

TEST_F(Ws2_32Select, CountsEachSetASocketIsReadyIn) {
    SOCKET listener = newListener();
    Connection connection = newConnection(listener);
    ASSERT_EQ(send(connection.client, "x", 1, 0), 1);
    ASSERT_TRUE(becomesReadable(connection.server));
    fd_set read, write, except;
    FD_ZERO(&read);
    FD_ZERO(&write);
    FD_ZERO(&except);
    FD_SET(connection.server, &read);
    FD_SET(connection.server, &write);
    FD_SET(connection.server, &except);
    timeval second = {1, 0};
    EXPECT_EQ(select(0, &read, &write, &except, &second), 2);
    EXPECT_TRUE(contains(read, connection.server));
    EXPECT_TRUE(contains(write, connection.server));
    EXPECT_EQ(except.fd_count, 0u);
}

TEST_F(Ws2_32Select, NonBlockingConnectShowsInTheWriteSetWhenDone) {
    SOCKET listener = newListener();
    SOCKET client = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    u_long on = 1;
    ASSERT_EQ(ioctlsocket(client, FIONBIO, &on), 0);
    int result = connectTo(client, localAddressOf(listener));
    if (result == SOCKET_ERROR) {
        EXPECT_EQ(WSAGetLastError(), WSAEWOULDBLOCK);
    }
    fd_set write;
    FD_ZERO(&write);
    FD_SET(client, &write);
    EXPECT_EQ(select(0, nullptr, &write, nullptr, &kReadyWithin), 1);
    EXPECT_TRUE(contains(write, client));
    EXPECT_EQ(connectTo(client, localAddressOf(listener)), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEISCONN);
    EXPECT_EQ(send(client, "x", 1, 0), 1);
}

// The port stays bound to a socket that does not listen, so that no other
// program can take it meanwhile; Linux refuses a connection to it all the same.
TEST_F(Ws2_32Select, FailedNonBlockingConnectShowsInTheExceptionSet) {
    SOCKET probe = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    ASSERT_EQ(bindTo(probe, ipv4Address(kCommandAddress, 0)), 0);
    sockaddr_in unused = localAddressOf(probe);
    SOCKET client = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    u_long on = 1;
    ASSERT_EQ(ioctlsocket(client, FIONBIO, &on), 0);
    int result = connectTo(client, unused);
    ASSERT_EQ(result, SOCKET_ERROR);
    int error = WSAGetLastError();
    if (error == WSAECONNREFUSED) GTEST_SKIP() << "the refusal came at once";
    ASSERT_EQ(error, WSAEWOULDBLOCK);
    fd_set write, except;
    FD_ZERO(&write);
    FD_ZERO(&except);
    FD_SET(client, &write);
    FD_SET(client, &except);
    EXPECT_EQ(select(0, nullptr, &write, &except, &kReadyWithin), 1);
    EXPECT_EQ(write.fd_count, 0u);
    EXPECT_TRUE(contains(except, client));
    int pending = 0;
    int length = sizeof pending;
    ASSERT_EQ(getsockopt(client, SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&pending), &length), 0);
    EXPECT_EQ(pending, WSAECONNREFUSED);
    ASSERT_EQ(getsockopt(client, SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&pending), &length), 0);
    EXPECT_EQ(pending, 0);
}

TEST_F(Ws2_32Select, CloseInAnotherThreadInterruptsASelect) {
    SOCKET listener = newListener();
    std::atomic<int> result{0};
    std::atomic<int> error{0};
    std::thread selecting([&] {
        fd_set read;
        FD_ZERO(&read);
        FD_SET(listener, &read);
        timeval ten = {10, 0};
        result = select(0, &read, nullptr, nullptr, &ten);
        error = WSAGetLastError();
    });
    EXPECT_TRUE(simhost::ws2_32::waitUntilInCall(listener));
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(closesocket(listener), 0);
    selecting.join();
    EXPECT_LT(elapsedSince(start).count(), 2000);
    EXPECT_EQ(result, SOCKET_ERROR);
    EXPECT_EQ(error, WSAEINTR);
}

TEST_F(Ws2_32Select, InjectedFailureAnswersTheChosenError) {
    SOCKET listener = newListener();
    simhost::Host::get().faults().failCall("select", WSAENETDOWN, 1);
    fd_set read;
    FD_ZERO(&read);
    FD_SET(listener, &read);
    timeval poll = {0, 0};
    EXPECT_EQ(select(0, &read, nullptr, nullptr, &poll), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAENETDOWN);
    EXPECT_EQ(select(0, &read, nullptr, nullptr, &poll), 0);
}

}  // namespace
