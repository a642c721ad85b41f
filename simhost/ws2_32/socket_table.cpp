// The socket table, start-up and clean-up of the simulated Winsock, and its
// last error.
#include "simhost/ws2_32/socket_table.h"

#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/kernel32/objects.h"
#include "simhost/ws2_32/native.h"

#include <cstring>
#include <map>
#include <mutex>

namespace simhost {
namespace ws2_32 {
namespace {

// Winsock's start-up count and open sockets; Host::reset drops them.
struct SocketTable {
    std::mutex mutex;
    unsigned startups = 0;
    std::map<SOCKET, std::shared_ptr<Socket>> sockets;

    // A new machine has none of the old one's sockets. They go with a
    // reset, which leaves no TIME_WAIT behind to hold their addresses.
    ~SocketTable() {
        for (auto& entry : sockets) entry.second->abortOnRelease = true;
    }
};

SocketTable& socketTable() { return Host::get().state<SocketTable>(); }

bool isStarted() {
    SocketTable& table = socketTable();
    std::lock_guard<std::mutex> hold(table.mutex);
    return table.startups > 0;
}

constexpr WORD kHighestVersion = MAKEWORD(2, 2);

// The version the caller gets: the lower of its request and 2.2, where the
// highest 1.x version is 1.1.
WORD negotiatedVersion(BYTE major, BYTE minor) {
    if (major == 1) return MAKEWORD(1, minor > 1 ? 1 : minor);
    if (major == 2 && minor < 2) return MAKEWORD(2, minor);
    return kHighestVersion;
}

void describeImplementation(WSADATA& data, WORD version) {
    std::memset(&data, 0, sizeof data);
    data.wVersion = version;
    data.wHighVersion = kHighestVersion;
    std::strcpy(data.szDescription, "WinSock 2.0");
    std::strcpy(data.szSystemStatus, "Running");
}

}  // namespace

Socket::~Socket() {
    if (abortOnRelease)
        native::closeAbortively(descriptor);
    else
        native::closeGracefully(descriptor);
}

SOCKET registerSocket(std::shared_ptr<Socket> socket) {
    // Sockets are kernel handles on Windows: their values come from the
    // same sequence as the host's other handles.
    SOCKET value = reinterpret_cast<SOCKET>(reserveHandleValue());
    SocketTable& table = socketTable();
    std::lock_guard<std::mutex> hold(table.mutex);
    table.sockets.emplace(value, std::move(socket));
    return value;
}

std::shared_ptr<Socket> unregisterSocket(SOCKET value) {
    SocketTable& table = socketTable();
    std::lock_guard<std::mutex> hold(table.mutex);
    auto found = table.sockets.find(value);
    if (found == table.sockets.end()) return nullptr;
    std::shared_ptr<Socket> socket = std::move(found->second);
    table.sockets.erase(found);
    return socket;
}

void retire(std::shared_ptr<Socket> socket) {
    socket->closed = true;
    if (socket.use_count() > 1) native::wakeBlockedCalls(socket->descriptor);
}

std::shared_ptr<Socket> findSocket(SOCKET value) {
    SocketTable& table = socketTable();
    std::lock_guard<std::mutex> hold(table.mutex);
    auto found = table.sockets.find(value);
    return found == table.sockets.end() ? nullptr : found->second;
}

int enterCall(const char* call) {
    if (DWORD injected = injectedFailure(call)) return static_cast<int>(injected);
    return isStarted() ? 0 : WSANOTINITIALISED;
}

std::shared_ptr<Socket> enterSocketCall(const char* call, SOCKET value, int& error) {
    error = enterCall(call);
    if (error) return nullptr;
    std::shared_ptr<Socket> socket = findSocket(value);
    if (!socket) error = WSAENOTSOCK;
    return socket;
}

int failWith(int error) {
    SetLastError(static_cast<DWORD>(error));
    return SOCKET_ERROR;
}

SOCKET failSocketWith(int error) {
    SetLastError(static_cast<DWORD>(error));
    return INVALID_SOCKET;
}

int interruptedOr(const Socket& socket, int error) { return socket.closed ? WSAEINTR : error; }

void settleConnect(Socket& socket) {
    if (socket.state != SocketState::Connecting) return;
    int pending = 0;
    if (native::takePendingError(socket.descriptor, pending) == 0 && pending != 0) {
        socket.connectError = pending;
        socket.state = SocketState::Open;
        return;
    }
    native::Endpoint peer;
    if (native::peerEndpoint(socket.descriptor, peer) == 0) socket.state = SocketState::Connected;
}

size_t openSocketCount() {
    SocketTable& table = socketTable();
    std::lock_guard<std::mutex> hold(table.mutex);
    return table.sockets.size();
}

bool waitUntilInCall(SOCKET s, size_t count, unsigned timeoutMs) {
    std::shared_ptr<Socket> socket = findSocket(s);
    // The table holds one reference and `socket` another; each call one more.
    return socket && pollUntil([&] { return static_cast<size_t>(socket.use_count()) >= count + 2; }, timeoutMs);
}

// ---- For the TCP connection table (iphlpapi) ----

void forEachOpenSocket(const std::function<void(const Socket&)>& visit) {
    SocketTable& table = socketTable();
    std::lock_guard<std::mutex> hold(table.mutex);
    for (const auto& entry : table.sockets) visit(*entry.second);
}

}  // namespace ws2_32
}  // namespace simhost

using namespace simhost::ws2_32;

// Versions 1.0 to 2.2 are served; a request below 1.0 is refused. The
// error is the answer: WSAStartup leaves the last error alone.
int WSAAPI WSAStartup(WORD versionRequested, LPWSADATA data) {
    if (DWORD injected = simhost::injectedFailure("WSAStartup")) return static_cast<int>(injected);
    if (!data) return WSAEFAULT;
    BYTE major = LOBYTE(versionRequested);
    if (major == 0) return WSAVERNOTSUPPORTED;
    describeImplementation(*data, negotiatedVersion(major, HIBYTE(versionRequested)));
    SocketTable& table = socketTable();
    std::lock_guard<std::mutex> hold(table.mutex);
    ++table.startups;
    return 0;
}

// The clean-up that balances the first WSAStartup closes the sockets still
// open, with a reset, as Windows does.
int WSAAPI WSACleanup() {
    if (DWORD injected = simhost::injectedFailure("WSACleanup")) return failWith(static_cast<int>(injected));
    std::map<SOCKET, std::shared_ptr<Socket>> dropped;
    {
        SocketTable& table = socketTable();
        std::lock_guard<std::mutex> hold(table.mutex);
        if (table.startups == 0) return failWith(WSANOTINITIALISED);
        if (--table.startups == 0) dropped.swap(table.sockets);
    }
    for (auto& entry : dropped) {
        entry.second->abortOnRelease = true;
        retire(std::move(entry.second));
    }
    return 0;
}

int WSAAPI WSAGetLastError() { return static_cast<int>(GetLastError()); }

void WSAAPI WSASetLastError(int error) { SetLastError(static_cast<DWORD>(error)); }
