// The Linux side of the simulated Winsock: the BSD socket calls on IPv4 TCP
// that serve it. Every call answers 0 or the WSA error code that Windows
// gives for the same situation, so errno never leaves native.cpp. This
// header names no type of either platform's socket headers, because the two
// declare the same names (sockaddr, select) differently and cannot meet in
// one file.
#pragma once

#include <cstddef>
#include <cstdint>

namespace simhost {
namespace ws2_32 {
namespace native {

// An IPv4 endpoint, address and port in network byte order as sockaddr_in
// carries them.
struct Endpoint {
    uint32_t address = 0;
    uint16_t port = 0;
};

// Winsock's values of the recv and send flags and the shutdown directions,
// which the Windows side passes through unchanged.
constexpr int kOutOfBand = 0x1;
constexpr int kPeek = 0x2;
constexpr int kDontRoute = 0x4;
constexpr int kWaitAll = 0x8;
constexpr int kReceiveSide = 0;
constexpr int kSendSide = 1;
constexpr int kBothSides = 2;

int openStreamSocket(int& descriptor);
int bindTo(int descriptor, const Endpoint& local);
int listenOn(int descriptor, int backlog);
int acceptFrom(int descriptor, int& accepted, Endpoint& peer);
// WSAEWOULDBLOCK when the socket does not block and the connection is on
// its way.
int connectTo(int descriptor, const Endpoint& remote);
// send never raises SIGPIPE: a peer that left gives an error.
int receiveBytes(int descriptor, char* buffer, size_t length, int flags, size_t& received);
int sendBytes(int descriptor, const char* data, size_t length, int flags, size_t& sent);
int shutdownSide(int descriptor, int how);
int localEndpoint(int descriptor, Endpoint& local);
int peerEndpoint(int descriptor, Endpoint& peer);

int setReuseAddress(int descriptor, bool reuse);
int setLinger(int descriptor, bool on, int seconds);
int setNonBlocking(int descriptor, bool nonBlocking);
// The socket's pending error as a WSA code, 0 if none; reading clears it.
int takePendingError(int descriptor, int& pending);
int bytesAvailable(int descriptor, size_t& available);

// Wakes every call blocked on the socket in another thread.
void wakeBlockedCalls(int descriptor);
void closeGracefully(int descriptor);
// Closes with a reset instead of the orderly end of the connection.
void closeAbortively(int descriptor);

// What a wait looks for and what it saw, as bits.
constexpr unsigned kReadable = 1u;
constexpr unsigned kWritable = 2u;
constexpr unsigned kUrgent = 4u;
constexpr unsigned kHangUp = 8u;
constexpr unsigned kFailed = 16u;

struct Watch {
    int descriptor;     // negative: not watched
    unsigned wanted;    // kReadable, kWritable, kUrgent
    unsigned observed;  // set by waitForReadiness
};

// Waits until a watched socket shows something or `milliseconds` pass
// (negative: no limit).
int waitForReadiness(Watch* watches, size_t count, int64_t milliseconds);

}  // namespace native
}  // namespace ws2_32
}  // namespace simhost
