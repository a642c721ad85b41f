// Winsock start-up, sockets, binding, connections and the transfer of bytes
// on real loopback sockets.
#include "ws2_32_linux_peer.h"
#include "ws2_32_test_helpers.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <set>
#include <thread>
#include <vector>

using namespace ws2_32_test;

namespace {

// ---- Start-up and clean-up ----

class Ws2_32Startup : public ::testing::Test {
protected:
    void SetUp() override { simhost::Host::get().reset(); }
    void TearDown() override { simhost::Host::get().reset(); }
};

TEST_F(Ws2_32Startup, StartupDescribesVersionTwoTwo) {
    WSADATA data;
    std::memset(&data, 0x55, sizeof data);
    ASSERT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
    EXPECT_EQ(data.wVersion, 0x0202);
    EXPECT_EQ(data.wHighVersion, 0x0202);
    EXPECT_STREQ(data.szDescription, "WinSock 2.0");
    EXPECT_STREQ(data.szSystemStatus, "Running");
    EXPECT_EQ(data.lpVendorInfo, nullptr);
}

TEST_F(Ws2_32Startup, StartupAnswersTheLowerOfRequestAndTwoTwo) {
    WSADATA data;
    ASSERT_EQ(WSAStartup(MAKEWORD(1, 1), &data), 0);
    EXPECT_EQ(data.wVersion, MAKEWORD(1, 1));
    ASSERT_EQ(WSAStartup(MAKEWORD(2, 1), &data), 0);
    EXPECT_EQ(data.wVersion, MAKEWORD(2, 1));
    ASSERT_EQ(WSAStartup(MAKEWORD(3, 0), &data), 0);
    EXPECT_EQ(data.wVersion, MAKEWORD(2, 2));
    EXPECT_EQ(data.wHighVersion, MAKEWORD(2, 2));
}

TEST_F(Ws2_32Startup, StartupRefusesVersionsBelowOneAndANullRecordWithoutCounting) {
    WSADATA data;
    SetLastError(1234);
    EXPECT_EQ(WSAStartup(MAKEWORD(0, 9), &data), WSAVERNOTSUPPORTED);
    EXPECT_EQ(WSAStartup(MAKEWORD(2, 2), nullptr), WSAEFAULT);
    EXPECT_EQ(GetLastError(), 1234u);
    EXPECT_EQ(socket(AF_INET, SOCK_STREAM, IPPROTO_TCP), INVALID_SOCKET);
    EXPECT_EQ(WSAGetLastError(), WSANOTINITIALISED);
}

TEST_F(Ws2_32Startup, SuccessfulStartupLeavesTheLastErrorAlone) {
    WSADATA data;
    SetLastError(1234);
    ASSERT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
    EXPECT_EQ(GetLastError(), 1234u);
}

TEST_F(Ws2_32Startup, EveryCallButAddressesAndByteOrderNeedsStartup) {
    sockaddr_in address = ipv4Address(kCommandAddress, 5555);
    int length = sizeof address;
    char buffer[4] = {};
    int option = 0;
    u_long mode = 1;
    fd_set set;
    FD_ZERO(&set);
    FD_SET(static_cast<SOCKET>(4), &set);
    timeval poll = {0, 0};
    const SOCKET s = 4;

    EXPECT_EQ(socket(AF_INET, SOCK_STREAM, IPPROTO_TCP), INVALID_SOCKET);
    EXPECT_EQ(WSAGetLastError(), WSANOTINITIALISED);
    EXPECT_EQ(accept(s, nullptr, nullptr), INVALID_SOCKET);
    EXPECT_EQ(WSAGetLastError(), WSANOTINITIALISED);
    const std::vector<std::pair<const char*, int>> results = {
        {"bind", bindTo(s, address)},
        {"listen", listen(s, 3)},
        {"connect", connectTo(s, address)},
        {"getsockname", getsockname(s, reinterpret_cast<sockaddr*>(&address), &length)},
        {"getpeername", getpeername(s, reinterpret_cast<sockaddr*>(&address), &length)},
        {"recv", recv(s, buffer, sizeof buffer, 0)},
        {"send", send(s, buffer, sizeof buffer, 0)},
        {"shutdown", shutdown(s, SD_BOTH)},
        {"closesocket", closesocket(s)},
        {"setsockopt", setsockopt(s, SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<char*>(&option), sizeof option)},
        {"getsockopt", getsockopt(s, SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<char*>(&option), &length)},
        {"ioctlsocket", ioctlsocket(s, FIONBIO, &mode)},
        {"select", select(0, &set, nullptr, nullptr, &poll)},
        {"WSACleanup", WSACleanup()},
    };
    for (const auto& result : results) {
        EXPECT_EQ(result.second, SOCKET_ERROR) << result.first;
    }
    EXPECT_EQ(WSAGetLastError(), WSANOTINITIALISED);

    EXPECT_EQ(inet_addr(kCommandAddress), htonl(0x7f000301));
    EXPECT_STREQ(inet_ntoa(address.sin_addr), kCommandAddress);
    EXPECT_EQ(ntohs(htons(5555)), 5555);
}

TEST_F(Ws2_32Startup, CleanupBalancesStartupsOneByOne) {
    WSADATA data;
    ASSERT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
    ASSERT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
    EXPECT_EQ(WSACleanup(), 0);
    SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    EXPECT_NE(s, INVALID_SOCKET);
    EXPECT_EQ(closesocket(s), 0);
    EXPECT_EQ(WSACleanup(), 0);
    EXPECT_EQ(socket(AF_INET, SOCK_STREAM, IPPROTO_TCP), INVALID_SOCKET);
    EXPECT_EQ(WSAGetLastError(), WSANOTINITIALISED);
    WSASetLastError(0);
    EXPECT_EQ(WSACleanup(), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSANOTINITIALISED);
}

TEST_F(Ws2_32Startup, LastCleanupClosesTheSocketsStillOpen) {
    WSADATA data;
    ASSERT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
    SOCKET listener = newListener();
    EXPECT_EQ(simhost::ws2_32::openSocketCount(), 1u);
    EXPECT_EQ(WSACleanup(), 0);
    EXPECT_EQ(simhost::ws2_32::openSocketCount(), 0u);
    ASSERT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
    EXPECT_EQ(closesocket(listener), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAENOTSOCK);
}

TEST_F(Ws2_32Startup, ResetForgetsStartupAndSockets) {
    WSADATA data;
    ASSERT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
    newListener();
    simhost::Host::get().reset();
    EXPECT_EQ(simhost::ws2_32::openSocketCount(), 0u);
    EXPECT_EQ(socket(AF_INET, SOCK_STREAM, IPPROTO_TCP), INVALID_SOCKET);
    EXPECT_EQ(WSAGetLastError(), WSANOTINITIALISED);
}

TEST_F(Ws2_32Startup, WsaLastErrorIsTheThreadsLastError) {
    WSASetLastError(WSAECONNRESET);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(WSAECONNRESET));
    SetLastError(ERROR_ACCESS_DENIED);
    EXPECT_EQ(WSAGetLastError(), 5);
    std::thread([] { EXPECT_EQ(WSAGetLastError(), 0); }).join();
}

// ---- Sockets and addresses ----

using Ws2_32Sockets = StartedWinsock;

TEST_F(Ws2_32Sockets, SocketValuesAreDistinctNeverZeroNorInvalidAndNeverReused) {
    std::set<SOCKET> seen;
    std::vector<SOCKET> open;
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 10; ++i) {
            SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
            ASSERT_NE(s, INVALID_SOCKET);
            EXPECT_NE(s, 0u);
            EXPECT_TRUE(seen.insert(s).second) << s;
            open.push_back(s);
        }
        for (SOCKET s : open) EXPECT_EQ(closesocket(s), 0);
        open.clear();
    }
    EXPECT_EQ(simhost::ws2_32::openSocketCount(), 0u);
}

TEST_F(Ws2_32Sockets, OnlyIpv4StreamSocketsAreMade) {
    EXPECT_EQ(socket(AF_INET6, SOCK_STREAM, IPPROTO_TCP), INVALID_SOCKET);
    EXPECT_EQ(WSAGetLastError(), WSAEAFNOSUPPORT);
    EXPECT_EQ(socket(AF_INET, SOCK_DGRAM, 0), INVALID_SOCKET);
    EXPECT_EQ(WSAGetLastError(), WSAESOCKTNOSUPPORT);
    EXPECT_EQ(socket(AF_INET, SOCK_STREAM, IPPROTO_UDP), INVALID_SOCKET);
    EXPECT_EQ(WSAGetLastError(), WSAEPROTONOSUPPORT);
    SOCKET s = socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_NE(s, INVALID_SOCKET);
    EXPECT_EQ(simhost::ws2_32::openSocketCount(), 1u);
}

TEST_F(Ws2_32Sockets, BindsTheCommandAddressOnAnEphemeralPort) {
    SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    ASSERT_EQ(bindTo(s, ipv4Address(kCommandAddress, 0)), 0);
    sockaddr_in bound = {};
    int length = 100;
    ASSERT_EQ(getsockname(s, reinterpret_cast<sockaddr*>(&bound), &length), 0);
    EXPECT_EQ(length, 16);
    EXPECT_EQ(bound.sin_family, AF_INET);
    EXPECT_EQ(bound.sin_addr.s_addr, inet_addr(kCommandAddress));
    EXPECT_STREQ(inet_ntoa(bound.sin_addr), kCommandAddress);
    EXPECT_NE(ntohs(bound.sin_port), 0);
}

TEST_F(Ws2_32Sockets, SecondBindToAHeldAddressIsAddressInUse) {
    SOCKET first = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    ASSERT_EQ(bindTo(first, ipv4Address(kCommandAddress, 0)), 0);
    sockaddr_in held = localAddressOf(first);
    SOCKET second = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    EXPECT_EQ(bindTo(second, held), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEADDRINUSE);
    ASSERT_EQ(listen(first, 3), 0);
    EXPECT_EQ(bindTo(second, held), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEADDRINUSE);
    // Once the holder is gone, the address is free: nothing was connected.
    ASSERT_EQ(closesocket(first), 0);
    EXPECT_EQ(bindTo(second, held), 0);
}

TEST_F(Ws2_32Sockets, BindRefusesABoundSocketABadRecordAndAForeignAddress) {
    SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address = ipv4Address(kCommandAddress, 0);
    EXPECT_EQ(bind(s, reinterpret_cast<sockaddr*>(&address), 15), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEFAULT);
    EXPECT_EQ(bind(s, nullptr, sizeof address), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEFAULT);
    sockaddr_in wrongFamily = address;
    wrongFamily.sin_family = AF_INET6;
    EXPECT_EQ(bindTo(s, wrongFamily), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEAFNOSUPPORT);
    EXPECT_EQ(bindTo(s, ipv4Address("192.0.2.1", 0)), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEADDRNOTAVAIL);
    ASSERT_EQ(bindTo(s, address), 0);
    EXPECT_EQ(bindTo(s, address), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEINVAL);
}

TEST_F(Ws2_32Sockets, UnboundSocketHasNoNameAndCannotListen) {
    SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in name = {};
    int length = sizeof name;
    EXPECT_EQ(getsockname(s, reinterpret_cast<sockaddr*>(&name), &length), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEINVAL);
    EXPECT_EQ(listen(s, 3), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEINVAL);
    ASSERT_EQ(bindTo(s, ipv4Address(kCommandAddress, 0)), 0);
    length = 15;
    EXPECT_EQ(getsockname(s, reinterpret_cast<sockaddr*>(&name), &length), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEFAULT);
}

TEST_F(Ws2_32Sockets, ListenAcceptAndConnectJoinBothEnds) {
    SOCKET listener = newListener(kCommandAddress, 3);
    SOCKET client = newClientOf(listener);
    sockaddr_in peer = {};
    int length = sizeof peer;
    SOCKET server = accept(listener, reinterpret_cast<sockaddr*>(&peer), &length);
    ASSERT_NE(server, INVALID_SOCKET);
    EXPECT_EQ(length, 16);
    sockaddr_in clientName = localAddressOf(client);
    EXPECT_EQ(peer.sin_family, AF_INET);
    EXPECT_EQ(peer.sin_addr.s_addr, clientName.sin_addr.s_addr);
    EXPECT_EQ(peer.sin_port, clientName.sin_port);

    sockaddr_in serverSide = {};
    length = sizeof serverSide;
    ASSERT_EQ(getpeername(client, reinterpret_cast<sockaddr*>(&serverSide), &length), 0);
    EXPECT_EQ(serverSide.sin_addr.s_addr, inet_addr(kCommandAddress));
    EXPECT_EQ(serverSide.sin_port, localAddressOf(listener).sin_port);

    const char message[] = "{\"cmd\":1}";
    EXPECT_EQ(send(client, message, sizeof message, 0), static_cast<int>(sizeof message));
    char received[64] = {};
    EXPECT_EQ(recv(server, received, sizeof received, 0), static_cast<int>(sizeof message));
    EXPECT_STREQ(received, message);
    EXPECT_EQ(simhost::ws2_32::openSocketCount(), 3u);
}

TEST_F(Ws2_32Sockets, AcceptNeedsAListenerAndRoomForTheAddress) {
    SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    EXPECT_EQ(accept(s, nullptr, nullptr), INVALID_SOCKET);
    EXPECT_EQ(WSAGetLastError(), WSAEINVAL);
    SOCKET listener = newListener();
    sockaddr_in peer = {};
    int length = 8;
    EXPECT_EQ(accept(listener, reinterpret_cast<sockaddr*>(&peer), &length), INVALID_SOCKET);
    EXPECT_EQ(WSAGetLastError(), WSAEFAULT);
}

// The port stays bound to a socket that does not listen, so that no other
// program can take it meanwhile; Linux refuses a connection to it all the same.
TEST_F(Ws2_32Sockets, ConnectToAPortNobodyListensOnIsRefused) {
    SOCKET probe = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    ASSERT_EQ(bindTo(probe, ipv4Address(kCommandAddress, 0)), 0);
    SOCKET client = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    EXPECT_EQ(connectTo(client, localAddressOf(probe)), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAECONNREFUSED);
}

TEST_F(Ws2_32Sockets, ConnectRefusesTheAnyAddressAListenerAndASecondConnect) {
    SOCKET listener = newListener();
    SOCKET client = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in any = localAddressOf(listener);
    any.sin_addr.s_addr = INADDR_ANY;
    EXPECT_EQ(connectTo(client, any), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEADDRNOTAVAIL);
    EXPECT_EQ(connectTo(listener, localAddressOf(listener)), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEINVAL);
    ASSERT_EQ(connectTo(client, localAddressOf(listener)), 0);
    EXPECT_EQ(connectTo(client, localAddressOf(listener)), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEISCONN);
    EXPECT_EQ(listen(client, 3), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEISCONN);
}

TEST_F(Ws2_32Sockets, UnconnectedSocketCannotCarryBytes) {
    SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    char byte = 'x';
    EXPECT_EQ(recv(s, &byte, 1, 0), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAENOTCONN);
    EXPECT_EQ(send(s, &byte, 1, 0), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAENOTCONN);
    EXPECT_EQ(shutdown(s, SD_SEND), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAENOTCONN);
    SOCKET listener = newListener();
    EXPECT_EQ(recv(listener, &byte, 1, 0), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAENOTCONN);
}

TEST_F(Ws2_32Sockets, RecvAnswersZeroWhenThePeerClosesInOrder) {
    SOCKET listener = newListener();
    Connection connection = newConnection(listener);
    ASSERT_EQ(send(connection.client, "ab", 2, 0), 2);
    ASSERT_EQ(closesocket(connection.client), 0);
    char buffer[8];
    EXPECT_EQ(recv(connection.server, buffer, sizeof buffer, 0), 2);
    EXPECT_EQ(recv(connection.server, buffer, sizeof buffer, 0), 0);
    EXPECT_EQ(recv(connection.server, buffer, sizeof buffer, 0), 0);
}

TEST_F(Ws2_32Sockets, RecvFailsWithConnectionResetAfterAnAbortiveClose) {
    SOCKET listener = newListener();
    Connection connection = newConnection(listener);
    closeWithReset(connection.client);
    char buffer[8];
    EXPECT_EQ(recv(connection.server, buffer, sizeof buffer, 0), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAECONNRESET);
    // Windows keeps answering the reset; Linux alone would report an end.
    WSASetLastError(0);
    EXPECT_EQ(recv(connection.server, buffer, sizeof buffer, 0), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAECONNRESET);
    EXPECT_EQ(send(connection.server, "x", 1, 0), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAECONNRESET);
}

TEST_F(Ws2_32Sockets, SendToAPeerThatLeftFailsWithConnectionResetInsteadOfSignalling) {
    SOCKET listener = newListener();
    Connection connection = newConnection(listener);
    ASSERT_EQ(closesocket(connection.client), 0);
    // The first sends may still go out: the peer's reset answers them.
    EXPECT_TRUE(eventually([&] { return send(connection.server, "reply", 6, 0) == SOCKET_ERROR; }));
    EXPECT_EQ(WSAGetLastError(), WSAECONNRESET);
}

TEST_F(Ws2_32Sockets, ShutDownDirectionsRefuseTheirTransfers) {
    SOCKET listener = newListener();
    Connection connection = newConnection(listener);
    char buffer[4];
    EXPECT_EQ(shutdown(connection.client, 3), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEINVAL);
    ASSERT_EQ(shutdown(connection.client, SD_SEND), 0);
    EXPECT_EQ(send(connection.client, "x", 1, 0), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAESHUTDOWN);
    EXPECT_EQ(recv(connection.server, buffer, sizeof buffer, 0), 0);
    ASSERT_EQ(shutdown(connection.server, SD_RECEIVE), 0);
    EXPECT_EQ(recv(connection.server, buffer, sizeof buffer, 0), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAESHUTDOWN);
    EXPECT_EQ(send(connection.server, "ok", 2, 0), 2);
    EXPECT_EQ(recv(connection.client, buffer, sizeof buffer, 0), 2);
}

TEST_F(Ws2_32Sockets, ClosedOrUnknownSocketIsNotASocket) {
    SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    ASSERT_EQ(closesocket(s), 0);
    EXPECT_EQ(closesocket(s), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAENOTSOCK);
    char byte = 0;
    EXPECT_EQ(recv(s, &byte, 1, 0), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAENOTSOCK);
    EXPECT_EQ(send(INVALID_SOCKET, &byte, 1, 0), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAENOTSOCK);
    EXPECT_EQ(listen(0, 3), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAENOTSOCK);
    EXPECT_EQ(simhost::ws2_32::openSocketCount(), 0u);
}

TEST_F(Ws2_32Sockets, CloseInAnotherThreadInterruptsABlockedRecv) {
    SOCKET listener = newListener();
    Connection connection = newConnection(listener);
    std::atomic<int> result{0};
    std::atomic<int> error{0};
    std::thread reader([&] {
        char buffer[8];
        result = recv(connection.server, buffer, sizeof buffer, 0);
        error = WSAGetLastError();
    });
    EXPECT_TRUE(simhost::ws2_32::waitUntilInCall(connection.server));
    EXPECT_EQ(closesocket(connection.server), 0);
    reader.join();
    EXPECT_EQ(result, SOCKET_ERROR);
    EXPECT_EQ(error, WSAEINTR);
}

TEST_F(Ws2_32Sockets, CloseInAnotherThreadInterruptsABlockedAccept) {
    SOCKET listener = newListener();
    std::atomic<SOCKET> accepted{0};
    std::atomic<int> error{0};
    std::thread acceptor([&] {
        accepted = accept(listener, nullptr, nullptr);
        error = WSAGetLastError();
    });
    EXPECT_TRUE(simhost::ws2_32::waitUntilInCall(listener));
    EXPECT_EQ(closesocket(listener), 0);
    acceptor.join();
    EXPECT_EQ(accepted, INVALID_SOCKET);
    EXPECT_EQ(error, WSAEINTR);
}

// The host's sockets go with a reset: the far end learns of it at once, and
// no TIME_WAIT of the accepted socket holds the listener's address.
TEST_F(Ws2_32Sockets, ResetClosesHeldSocketsWithAReset) {
    SOCKET listener = newListener();
    sockaddr_in listening = localAddressOf(listener);
    int peer = linux_peer::connectTo(listening.sin_addr.s_addr, listening.sin_port);
    ASSERT_GE(peer, 0);
    ASSERT_NE(accept(listener, nullptr, nullptr), INVALID_SOCKET);
    simhost::Host::get().reset();
    EXPECT_EQ(simhost::ws2_32::openSocketCount(), 0u);
    EXPECT_EQ(linux_peer::receiveOnce(peer), -ECONNRESET);
    linux_peer::close(peer);

    WSADATA data;
    ASSERT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
    SOCKET again = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    EXPECT_EQ(bindTo(again, listening), 0);
}

// ---- Options and modes ----

TEST_F(Ws2_32Sockets, AddressSharingOptionsAreRecordedAndExcludeEachOther) {
    SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    BOOL on = TRUE;
    BOOL value = -1;
    int length = sizeof value;
    ASSERT_EQ(getsockopt(s, SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<char*>(&value), &length), 0);
    EXPECT_EQ(value, FALSE);
    EXPECT_EQ(length, 4);
    ASSERT_EQ(setsockopt(s, SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<char*>(&on), sizeof on), 0);
    EXPECT_EQ(setsockopt(s, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<char*>(&on), sizeof on), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEINVAL);
    ASSERT_EQ(getsockopt(s, SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<char*>(&value), &length), 0);
    EXPECT_EQ(value, TRUE);

    SOCKET exclusive = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    ASSERT_EQ(setsockopt(exclusive, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<char*>(&on), sizeof on), 0);
    EXPECT_EQ(setsockopt(exclusive, SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<char*>(&on), sizeof on), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEINVAL);
    ASSERT_EQ(bindTo(exclusive, ipv4Address(kCommandAddress, 0)), 0);
    ASSERT_EQ(listen(exclusive, 3), 0);
    EXPECT_EQ(bindTo(s, localAddressOf(exclusive)), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEADDRINUSE);
}

TEST_F(Ws2_32Sockets, OptionCallsCheckLevelNameAndSizes) {
    SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    int value = 1;
    int length = sizeof value;
    EXPECT_EQ(setsockopt(s, SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<char*>(&value), 2), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEFAULT);
    EXPECT_EQ(setsockopt(s, SOL_SOCKET, SO_KEEPALIVE, reinterpret_cast<char*>(&value), length), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAENOPROTOOPT);
    EXPECT_EQ(setsockopt(s, 12345, SO_REUSEADDR, reinterpret_cast<char*>(&value), length), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEINVAL);
    length = 2;
    EXPECT_EQ(getsockopt(s, SOL_SOCKET, SO_TYPE, reinterpret_cast<char*>(&value), &length), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEFAULT);
    length = sizeof value;
    ASSERT_EQ(getsockopt(s, SOL_SOCKET, SO_TYPE, reinterpret_cast<char*>(&value), &length), 0);
    EXPECT_EQ(value, SOCK_STREAM);
    ASSERT_EQ(getsockopt(s, SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&value), &length), 0);
    EXPECT_EQ(value, 0);
    SOCKET listener = newListener();
    ASSERT_EQ(getsockopt(listener, SOL_SOCKET, SO_ACCEPTCONN, reinterpret_cast<char*>(&value), &length), 0);
    EXPECT_EQ(value, TRUE);
}

TEST_F(Ws2_32Sockets, LingerIsKeptAsSet) {
    SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    linger set = {1, 7};
    ASSERT_EQ(setsockopt(s, SOL_SOCKET, SO_LINGER, reinterpret_cast<char*>(&set), sizeof set), 0);
    linger read = {};
    int length = sizeof read;
    ASSERT_EQ(getsockopt(s, SOL_SOCKET, SO_LINGER, reinterpret_cast<char*>(&read), &length), 0);
    EXPECT_EQ(length, 4);
    EXPECT_EQ(read.l_onoff, 1);
    EXPECT_EQ(read.l_linger, 7);
    EXPECT_EQ(setsockopt(s, SOL_SOCKET, SO_LINGER, reinterpret_cast<char*>(&set), 3), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEFAULT);
}

TEST_F(Ws2_32Sockets, NonBlockingCallsAnswerWouldBlockAndFionreadCountsWaitingBytes) {
    SOCKET listener = newListener();
    u_long on = 1;
    ASSERT_EQ(ioctlsocket(listener, FIONBIO, &on), 0);
    EXPECT_EQ(accept(listener, nullptr, nullptr), INVALID_SOCKET);
    EXPECT_EQ(WSAGetLastError(), WSAEWOULDBLOCK);
    SOCKET client = newClientOf(listener);
    ASSERT_TRUE(becomesReadable(listener));
    SOCKET server = accept(listener, nullptr, nullptr);
    ASSERT_NE(server, INVALID_SOCKET);
    // The accepted socket inherits the listener's mode.
    char buffer[8];
    EXPECT_EQ(recv(server, buffer, sizeof buffer, 0), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEWOULDBLOCK);
    u_long waiting = 99;
    ASSERT_EQ(ioctlsocket(server, FIONREAD, &waiting), 0);
    EXPECT_EQ(waiting, 0u);
    ASSERT_EQ(send(client, "abc", 3, 0), 3);
    EXPECT_TRUE(eventually([&] { return ioctlsocket(server, FIONREAD, &waiting) == 0 && waiting == 3; }));
    EXPECT_EQ(ioctlsocket(server, 0x1234, &waiting), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEINVAL);
}

// ---- Injected failures ----

TEST_F(Ws2_32Sockets, InjectedFailuresAnswerTheChosenError) {
    auto& faults = simhost::Host::get().faults();
    faults.failCall("socket", WSAEMFILE, 1);
    EXPECT_EQ(socket(AF_INET, SOCK_STREAM, IPPROTO_TCP), INVALID_SOCKET);
    EXPECT_EQ(WSAGetLastError(), WSAEMFILE);
    SOCKET listener = newListener();
    Connection connection = newConnection(listener);

    faults.failCall("recv", WSAECONNABORTED, 1);
    char buffer[4];
    EXPECT_EQ(recv(connection.server, buffer, sizeof buffer, 0), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAECONNABORTED);
    faults.failCall("bind", WSAEADDRINUSE);
    SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    EXPECT_EQ(bindTo(s, ipv4Address(kCommandAddress, 0)), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEADDRINUSE);
    faults.failCall("closesocket", WSAENETDOWN, 1);
    EXPECT_EQ(closesocket(s), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAENETDOWN);
    EXPECT_EQ(closesocket(s), 0);

    faults.failCall("WSAStartup", WSASYSNOTREADY, 1);
    WSADATA data;
    EXPECT_EQ(WSAStartup(MAKEWORD(2, 2), &data), WSASYSNOTREADY);
    faults.failCall("WSACleanup", WSAENETDOWN, 1);
    EXPECT_EQ(WSACleanup(), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAENETDOWN);
    faults.failCall("inet_ntoa", WSAEINVAL, 1);
    EXPECT_EQ(inet_ntoa(localAddressOf(listener).sin_addr), nullptr);
    EXPECT_EQ(WSAGetLastError(), WSAEINVAL);
    // The connection itself was never touched.
    EXPECT_EQ(send(connection.client, "ok", 2, 0), 2);
    EXPECT_EQ(recv(connection.server, buffer, sizeof buffer, 0), 2);
}

}  // namespace
