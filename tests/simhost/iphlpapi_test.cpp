// The TCP connection table of the simulated host: GetExtendedTcpTable's size
// protocol, order and errors, the rows of the host's own loopback
// connections, and the far end of a connection made from outside the host
// with a plain Linux socket.
#include "simhost/core/host.h"
#include "simhost/iphlpapi/iphlpapi.h"
#include "simhost/iphlpapi/tcp_connections.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/kernel32/threads.h"
#include "simhost/ws2_32/winsock.h"

#include "host_file_test_helpers.h"
#include "kernel32_test_helpers.h"
#include "support/TestClient.h"
#include "ws2_32_test_helpers.h"

#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

using simhost::iphlpapi::TcpConnection;
using ws2_32_test::ipv4Address;
using ws2_32_test::localAddressOf;

namespace {

constexpr DWORD kUntouched = 0xDEADBEEF;
constexpr DWORD kLoaderId = 5000;
constexpr DWORD kServiceId = 4242;
constexpr DWORD kRowsOffset = 4;

// The service's own id is fixed, so that no row's owner can be mistaken for
// another whatever the real process id is.
class TcpTable : public ws2_32_test::StartedWinsock {
protected:
    void SetUp() override {
        StartedWinsock::SetUp();
        simhost::setCurrentProcessId(kServiceId);
    }
};

DWORD askSize(DWORD& size, BOOL order = TRUE, TCP_TABLE_CLASS tableClass = TCP_TABLE_OWNER_PID_CONNECTIONS) {
    size = 0;
    return GetExtendedTcpTable(nullptr, &size, order, AF_INET, tableClass, 0);
}

// The table read as the service reads it: the size first, then the rows.
std::vector<MIB_TCPROW_OWNER_PID> readTable(BOOL order = TRUE,
                                            TCP_TABLE_CLASS tableClass = TCP_TABLE_OWNER_PID_CONNECTIONS) {
    DWORD size = 0;
    EXPECT_EQ(askSize(size, order, tableClass), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    std::vector<DWORD> buffer(size / sizeof(DWORD) + 1);
    EXPECT_EQ(GetExtendedTcpTable(buffer.data(), &size, order, AF_INET, tableClass, 0), static_cast<DWORD>(NO_ERROR));
    std::vector<MIB_TCPROW_OWNER_PID> rows(buffer[0]);
    if (!rows.empty())
        std::memcpy(rows.data(), reinterpret_cast<const char*>(buffer.data()) + kRowsOffset,
                    rows.size() * sizeof(MIB_TCPROW_OWNER_PID));
    return rows;
}

TcpConnection connection(const char* local, u_short localPort, const char* remote, u_short remotePort,
                         DWORD owner) {
    return {MIB_TCP_STATE_ESTAB, static_cast<DWORD>(inet_addr(local)), localPort, static_cast<DWORD>(inet_addr(remote)),
            remotePort, owner};
}

// The row whose local end is this address, as the service looks up a peer.
const MIB_TCPROW_OWNER_PID* rowWithLocalEnd(const std::vector<MIB_TCPROW_OWNER_PID>& rows, const sockaddr_in& end) {
    for (const MIB_TCPROW_OWNER_PID& row : rows)
        if (row.dwLocalAddr == end.sin_addr.s_addr && row.dwLocalPort == end.sin_port) return &row;
    return nullptr;
}

// A host listener and a connection to it from a plain Linux socket, accepted
// by the host.
struct OutsideConnection {
    SOCKET listener = INVALID_SOCKET;
    SOCKET accepted = INVALID_SOCKET;
    sockaddr_in listening = {};
    sockaddr_in peer = {};
    testsupport::TestClient client;

    void open(const char* fromAddress = nullptr) {
        listener = ws2_32_test::newListener();
        listening = localAddressOf(listener);
        ASSERT_TRUE(client.connect(2000, ws2_32_test::kCommandAddress, ntohs(listening.sin_port), fromAddress));
        int length = sizeof peer;
        accepted = accept(listener, reinterpret_cast<sockaddr*>(&peer), &length);
        ASSERT_NE(accepted, INVALID_SOCKET);
        ASSERT_EQ(ntohs(peer.sin_port), client.localPort());
    }
};

bool eventuallyRows(size_t count) {
    return kernel32_test::eventually([&] { return readTable().size() == count; });
}

// ---- The size protocol and the layout ----

TEST_F(TcpTable, AnEmptyTableNeedsRoomForItsCountAlone) {
    DWORD size = 0;
    EXPECT_EQ(askSize(size), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(size, kRowsOffset);
    MIB_TCPTABLE_OWNER_PID table;
    table.dwNumEntries = kUntouched;
    EXPECT_EQ(GetExtendedTcpTable(&table, &size, TRUE, AF_INET, TCP_TABLE_OWNER_PID_CONNECTIONS, 0),
              static_cast<DWORD>(NO_ERROR));
    EXPECT_EQ(table.dwNumEntries, 0u);
}

TEST_F(TcpTable, TooSmallABufferGetsTheSizeNeeded) {
    simhost::iphlpapi::addTcpConnection(connection("127.0.0.1", 50000, "127.0.3.1", 5555, kLoaderId));
    simhost::iphlpapi::addTcpConnection(connection("127.0.3.1", 5555, "127.0.0.1", 50000, kServiceId));
    MIB_TCPTABLE_OWNER_PID buffer[3];
    DWORD size = 4 + 2 * 24 - 1;
    SetLastError(kUntouched);
    EXPECT_EQ(GetExtendedTcpTable(buffer, &size, TRUE, AF_INET, TCP_TABLE_OWNER_PID_CONNECTIONS, 0),
              static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(size, 4u + 2 * 24);
    EXPECT_EQ(GetExtendedTcpTable(buffer, &size, TRUE, AF_INET, TCP_TABLE_OWNER_PID_CONNECTIONS, 0),
              static_cast<DWORD>(NO_ERROR));
    EXPECT_EQ(size, 4u + 2 * 24);
    EXPECT_EQ(buffer[0].dwNumEntries, 2u);
    EXPECT_EQ(GetLastError(), kUntouched);
}

TEST_F(TcpTable, PortsAreInNetworkOrderInTheLowHalfOfTheirField) {
    simhost::iphlpapi::addTcpConnection(connection("127.0.0.1", 50000, "127.0.3.1", 5555, kLoaderId));
    std::vector<MIB_TCPROW_OWNER_PID> rows = readTable();
    ASSERT_EQ(rows.size(), 1u);
    const auto* localPort = reinterpret_cast<const unsigned char*>(&rows[0].dwLocalPort);
    EXPECT_EQ(localPort[0], 0xC3);  // 50000 is 0xC350
    EXPECT_EQ(localPort[1], 0x50);
    EXPECT_EQ(rows[0].dwLocalPort, htons(50000));
    EXPECT_EQ(rows[0].dwRemotePort, htons(5555));
    EXPECT_EQ(rows[0].dwLocalAddr, inet_addr("127.0.0.1"));
    EXPECT_EQ(rows[0].dwRemoteAddr, inet_addr("127.0.3.1"));
    EXPECT_EQ(rows[0].dwState, static_cast<DWORD>(MIB_TCP_STATE_ESTAB));
    EXPECT_EQ(rows[0].dwOwningPid, kLoaderId);
}

TEST_F(TcpTable, ASortedTableGoesByAddressThenPortAsNumbers) {
    simhost::iphlpapi::addTcpConnection(connection("128.0.0.1", 2, "127.0.0.1", 1, 11));
    simhost::iphlpapi::addTcpConnection(connection("127.0.0.2", 256, "127.0.0.1", 1, 12));
    simhost::iphlpapi::addTcpConnection(connection("127.0.0.2", 2, "127.0.0.9", 1, 13));
    simhost::iphlpapi::addTcpConnection(connection("127.0.0.2", 2, "127.0.0.1", 7, 14));
    std::vector<DWORD> sortedOwners, retrievedOwners;
    for (const MIB_TCPROW_OWNER_PID& row : readTable(TRUE)) sortedOwners.push_back(row.dwOwningPid);
    for (const MIB_TCPROW_OWNER_PID& row : readTable(FALSE)) retrievedOwners.push_back(row.dwOwningPid);
    EXPECT_EQ(sortedOwners, (std::vector<DWORD>{14, 13, 12, 11}));
    EXPECT_EQ(retrievedOwners, (std::vector<DWORD>{11, 12, 13, 14}));
}

TEST_F(TcpTable, ArgumentsOutsideTheModelAreRefused) {
    DWORD size = 0;
    SetLastError(kUntouched);
    EXPECT_EQ(GetExtendedTcpTable(nullptr, nullptr, TRUE, AF_INET, TCP_TABLE_OWNER_PID_CONNECTIONS, 0),
              static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(GetExtendedTcpTable(nullptr, &size, TRUE, AF_INET, TCP_TABLE_OWNER_PID_CONNECTIONS, 1),
              static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(GetExtendedTcpTable(nullptr, &size, TRUE, 99, TCP_TABLE_OWNER_PID_CONNECTIONS, 0),
              static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(GetExtendedTcpTable(nullptr, &size, TRUE, AF_INET, static_cast<TCP_TABLE_CLASS>(9), 0),
              static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(GetExtendedTcpTable(nullptr, &size, TRUE, AF_INET6, TCP_TABLE_OWNER_PID_CONNECTIONS, 0),
              static_cast<DWORD>(ERROR_NOT_SUPPORTED));
    EXPECT_EQ(GetExtendedTcpTable(nullptr, &size, TRUE, AF_INET, TCP_TABLE_BASIC_CONNECTIONS, 0),
              static_cast<DWORD>(ERROR_NOT_SUPPORTED));
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(GetLastError(), kUntouched);
}

TEST_F(TcpTable, AnInjectedFailureIsTheAnswer) {
    simhost::Host::get().faults().failCall("GetExtendedTcpTable", ERROR_NOT_SUPPORTED, 1);
    DWORD size = 0;
    SetLastError(kUntouched);
    EXPECT_EQ(askSize(size), static_cast<DWORD>(ERROR_NOT_SUPPORTED));
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(GetLastError(), kUntouched);
    EXPECT_EQ(askSize(size), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
}

// ---- The host's own connections ----

TEST_F(TcpTable, BothEndsOfAHostConnectionAreRowsOfTheService) {
    simhost::iphlpapi::setDefaultOutsideEndOwner(kLoaderId);
    SOCKET listener = ws2_32_test::newListener();
    ws2_32_test::Connection ends = ws2_32_test::newConnection(listener);
    sockaddr_in client = localAddressOf(ends.client);
    sockaddr_in server = localAddressOf(ends.server);
    std::vector<MIB_TCPROW_OWNER_PID> rows = readTable();
    ASSERT_EQ(rows.size(), 2u);
    const MIB_TCPROW_OWNER_PID* clientRow = rowWithLocalEnd(rows, client);
    const MIB_TCPROW_OWNER_PID* serverRow = rowWithLocalEnd(rows, server);
    ASSERT_NE(clientRow, nullptr);
    ASSERT_NE(serverRow, nullptr);
    EXPECT_EQ(clientRow->dwRemoteAddr, server.sin_addr.s_addr);
    EXPECT_EQ(clientRow->dwRemotePort, server.sin_port);
    for (const MIB_TCPROW_OWNER_PID& row : rows) {
        EXPECT_EQ(row.dwState, static_cast<DWORD>(MIB_TCP_STATE_ESTAB));
        EXPECT_EQ(row.dwOwningPid, kServiceId);
    }
}

TEST_F(TcpTable, ListenersAreRowsOfTheListenerClassesOnly) {
    SOCKET listener = ws2_32_test::newListener();
    sockaddr_in listening = localAddressOf(listener);
    EXPECT_EQ(readTable(TRUE, TCP_TABLE_OWNER_PID_CONNECTIONS).size(), 0u);
    for (TCP_TABLE_CLASS tableClass : {TCP_TABLE_OWNER_PID_LISTENER, TCP_TABLE_OWNER_PID_ALL}) {
        std::vector<MIB_TCPROW_OWNER_PID> rows = readTable(TRUE, tableClass);
        ASSERT_EQ(rows.size(), 1u);
        EXPECT_EQ(rows[0].dwState, static_cast<DWORD>(MIB_TCP_STATE_LISTEN));
        EXPECT_EQ(rows[0].dwLocalAddr, listening.sin_addr.s_addr);
        EXPECT_EQ(rows[0].dwLocalPort, listening.sin_port);
        EXPECT_EQ(rows[0].dwRemoteAddr, 0u);
        EXPECT_EQ(rows[0].dwRemotePort, 0u);
        EXPECT_EQ(rows[0].dwOwningPid, kServiceId);
    }
}

TEST_F(TcpTable, AClosedHostSocketLeavesNoRow) {
    SOCKET listener = ws2_32_test::newListener();
    ws2_32_test::Connection ends = ws2_32_test::newConnection(listener);
    ASSERT_EQ(readTable().size(), 2u);
    ws2_32_test::closeWithReset(ends.server);
    EXPECT_TRUE(eventuallyRows(0));
}

TEST_F(TcpTable, TheTableCanBeReadWhileSocketsClose) {
    SOCKET listener = ws2_32_test::newListener();
    std::vector<ws2_32_test::Connection> connections;
    for (int i = 0; i < 8; ++i) connections.push_back(ws2_32_test::newConnection(listener));
    ASSERT_EQ(readTable().size(), 16u);
    std::thread closer([&] {
        for (const ws2_32_test::Connection& ends : connections) {
            ws2_32_test::closeWithReset(ends.client);
            ws2_32_test::closeWithReset(ends.server);
        }
    });
    for (int i = 0; i < 20; ++i) EXPECT_LE(readTable().size(), 16u);
    closer.join();
    EXPECT_TRUE(eventuallyRows(0));
}

// ---- Connections from outside the host ----

TEST_F(TcpTable, AnOutsideEndWithoutOwnerHasNoRow) {
    OutsideConnection outside;
    outside.open();
    std::vector<MIB_TCPROW_OWNER_PID> rows = readTable();
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0].dwLocalAddr, outside.listening.sin_addr.s_addr);
    EXPECT_EQ(rows[0].dwLocalPort, outside.listening.sin_port);
    EXPECT_EQ(rows[0].dwRemoteAddr, outside.peer.sin_addr.s_addr);
    EXPECT_EQ(rows[0].dwRemotePort, outside.peer.sin_port);
    EXPECT_EQ(rows[0].dwOwningPid, kServiceId);
    EXPECT_EQ(rowWithLocalEnd(rows, outside.peer), nullptr);
}

TEST_F(TcpTable, TheOutsideEndIsOwnedByTheProcessNamedForItsPort) {
    OutsideConnection outside;
    outside.open();
    simhost::iphlpapi::setDefaultOutsideEndOwner(7);
    simhost::iphlpapi::setOutsideEndOwner(ntohs(outside.peer.sin_port), kLoaderId);
    std::vector<MIB_TCPROW_OWNER_PID> rows = readTable();
    ASSERT_EQ(rows.size(), 2u);
    const MIB_TCPROW_OWNER_PID* clientRow = rowWithLocalEnd(rows, outside.peer);
    ASSERT_NE(clientRow, nullptr);
    EXPECT_EQ(clientRow->dwOwningPid, kLoaderId);
    EXPECT_EQ(clientRow->dwState, static_cast<DWORD>(MIB_TCP_STATE_ESTAB));
    EXPECT_EQ(clientRow->dwRemoteAddr, outside.listening.sin_addr.s_addr);
    EXPECT_EQ(clientRow->dwRemotePort, outside.listening.sin_port);
    simhost::iphlpapi::setOutsideEndOwner(ntohs(outside.peer.sin_port), 0);
    EXPECT_EQ(rowWithLocalEnd(readTable(), outside.peer)->dwOwningPid, 7u);
}

// Plugins of several sessions connect from addresses of their own; a rule
// for the port still goes first.
TEST_F(TcpTable, TheOutsideEndIsOwnedByTheProcessNamedForItsAddressUnlessItsPortIsNamed) {
    OutsideConnection outside;
    outside.open("127.0.2.3");
    ASSERT_EQ(outside.peer.sin_addr.s_addr, inet_addr("127.0.2.3"));
    simhost::iphlpapi::setDefaultOutsideEndOwner(7);
    simhost::iphlpapi::setOutsideEndOwnerByAddress(inet_addr("127.0.2.3"), 5100);
    simhost::iphlpapi::setOutsideEndOwnerByAddress(inet_addr("127.0.2.2"), 5000);
    EXPECT_EQ(rowWithLocalEnd(readTable(), outside.peer)->dwOwningPid, 5100u);
    simhost::iphlpapi::setOutsideEndOwner(ntohs(outside.peer.sin_port), kLoaderId);
    EXPECT_EQ(rowWithLocalEnd(readTable(), outside.peer)->dwOwningPid, kLoaderId);
    simhost::iphlpapi::setOutsideEndOwner(ntohs(outside.peer.sin_port), 0);
    simhost::iphlpapi::setOutsideEndOwnerByAddress(inet_addr("127.0.2.3"), 0);
    EXPECT_EQ(rowWithLocalEnd(readTable(), outside.peer)->dwOwningPid, 7u);
}

TEST_F(TcpTable, AHostFileNamesOwnersByAddress) {
    ASSERT_EQ(hostfiletest::refusal(R"({"tcpOwners": {"default": 7, "addresses": {"127.0.2.3": 5100}}})"), "accepted");
    OutsideConnection fromSessionThree;
    fromSessionThree.open("127.0.2.3");
    OutsideConnection fromElsewhere;
    fromElsewhere.open();
    std::vector<MIB_TCPROW_OWNER_PID> rows = readTable();
    EXPECT_EQ(rowWithLocalEnd(rows, fromSessionThree.peer)->dwOwningPid, 5100u);
    EXPECT_EQ(rowWithLocalEnd(rows, fromElsewhere.peer)->dwOwningPid, 7u);
}

TEST_F(TcpTable, AHostFileWithWrongOwnersIsRefusedByName) {
    using hostfiletest::refusal;
    EXPECT_EQ(refusal(R"({"tcpOwners": {"adresses": {}}})"), "unknown key \"adresses\" in \"tcpOwners\"");
    EXPECT_EQ(refusal(R"({"tcpOwners": {"addresses": []}})"), "\"tcpOwners\" \"addresses\" must be an object");
    for (const char* address : {"10.0.0.1", "127.0.2", "127.0.2.300", "127.0.2.3x", "host"})
        EXPECT_EQ(refusal(std::string(R"({"tcpOwners": {"addresses": {")") + address + R"(": 5100}}})"),
                  std::string("address \"") + address +
                      "\" in \"tcpOwners\" must be a loopback address such as 127.0.2.2");
    EXPECT_NE(refusal(R"({"tcpOwners": {"addresses": {"127.0.2.3": "5100"}}})").find("owner of address 127.0.2.3"),
              std::string::npos);
    EXPECT_EQ(refusal(R"({"tcpOwners": {"ports": {"0": 5100}}})"), "port \"0\" must be from 1 to 65535");
}

TEST_F(TcpTable, AnOutsideEndThatClosedIsGone) {
    OutsideConnection outside;
    outside.open();
    simhost::iphlpapi::setDefaultOutsideEndOwner(kLoaderId);
    ASSERT_EQ(readTable().size(), 2u);
    outside.client.close();
    ASSERT_TRUE(eventuallyRows(1));
    std::vector<MIB_TCPROW_OWNER_PID> rows = readTable();
    EXPECT_EQ(rows[0].dwState, static_cast<DWORD>(MIB_TCP_STATE_CLOSE_WAIT));
    EXPECT_EQ(rowWithLocalEnd(rows, outside.peer), nullptr);
}

TEST_F(TcpTable, AConnectionResetFromOutsideLeavesNoRow) {
    OutsideConnection outside;
    outside.open();
    simhost::iphlpapi::setDefaultOutsideEndOwner(kLoaderId);
    outside.client.resetClose();
    EXPECT_TRUE(eventuallyRows(0));
}

TEST_F(TcpTable, AfterTheHostShutsItsSideTheOutsideEndWaitsToClose) {
    OutsideConnection outside;
    outside.open();
    simhost::iphlpapi::setDefaultOutsideEndOwner(kLoaderId);
    ASSERT_EQ(shutdown(outside.accepted, SD_SEND), 0);
    std::vector<MIB_TCPROW_OWNER_PID> rows;
    ASSERT_TRUE(kernel32_test::eventually([&] {
        rows = readTable();
        const MIB_TCPROW_OWNER_PID* host = rowWithLocalEnd(rows, outside.listening);
        return host && host->dwState == static_cast<DWORD>(MIB_TCP_STATE_FIN_WAIT2);
    }));
    const MIB_TCPROW_OWNER_PID* clientRow = rowWithLocalEnd(rows, outside.peer);
    ASSERT_NE(clientRow, nullptr);
    EXPECT_EQ(clientRow->dwState, static_cast<DWORD>(MIB_TCP_STATE_CLOSE_WAIT));
}

TEST_F(TcpTable, TheHostApiShowsTheRowsUnsortedWithListeners) {
    OutsideConnection outside;
    outside.open();
    simhost::iphlpapi::setDefaultOutsideEndOwner(kLoaderId);
    simhost::iphlpapi::addTcpConnection(connection("127.0.0.5", 1, "127.0.0.6", 2, 99));
    std::vector<TcpConnection> rows = simhost::iphlpapi::tcpConnections();
    ASSERT_EQ(rows.size(), 4u);
    EXPECT_EQ(rows[0].state, static_cast<DWORD>(MIB_TCP_STATE_LISTEN));
    EXPECT_EQ(rows[1].localPort, ntohs(outside.listening.sin_port));
    EXPECT_EQ(rows[2].localPort, ntohs(outside.peer.sin_port));
    EXPECT_EQ(rows[2].owningProcessId, kLoaderId);
    EXPECT_EQ(rows[3].owningProcessId, 99u);
}

}  // namespace
