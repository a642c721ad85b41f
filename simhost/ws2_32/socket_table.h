// The sockets of the simulated Winsock: what the host knows of each SOCKET
// beyond its Linux descriptor, the table that maps SOCKET values to them,
// and the checks every call makes on entry.
#pragma once

#include "simhost/ws2_32/winsock.h"

#include <atomic>
#include <functional>
#include <memory>

namespace simhost {
namespace ws2_32 {

enum class SocketState { Open, Listening, Connecting, Connected };

// Linux keeps less state than Windows answers from (it binds on listen, has
// no shut-down error, forgets a reset), so the host keeps it here. The
// descriptor is closed with the last reference, which may be held by a call
// still blocked in another thread when closesocket runs.
struct Socket {
    explicit Socket(int descriptor) : descriptor(descriptor) {}
    ~Socket();
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    const int descriptor;
    std::atomic<SocketState> state{SocketState::Open};
    std::atomic<bool> bound{false};
    std::atomic<bool> nonBlocking{false};
    std::atomic<bool> reuseAddress{false};
    std::atomic<bool> exclusiveAddress{false};
    std::atomic<u_short> lingerOn{0};
    std::atomic<u_short> lingerSeconds{0};
    std::atomic<bool> receiveShutDown{false};
    std::atomic<bool> sendShutDown{false};
    // Windows keeps failing a connection that was reset; Linux reports the
    // reset once and then an orderly end.
    std::atomic<bool> connectionReset{false};
    // The error of a non-blocking connect that failed, for SO_ERROR.
    std::atomic<int> connectError{0};
    // Set by closesocket; the descriptor then goes with a reset, not an
    // orderly close, when `abortOnRelease` says so.
    std::atomic<bool> closed{false};
    std::atomic<bool> abortOnRelease{false};
};

// Registers a new socket and answers its SOCKET value: distinct, never 0,
// never INVALID_SOCKET, never given out twice in a process.
SOCKET registerSocket(std::shared_ptr<Socket> socket);
// Removes a socket from the table; null if it was not there.
std::shared_ptr<Socket> unregisterSocket(SOCKET value);
// Marks a socket closed, wakes the calls blocked on it in other threads and
// drops this reference to it.
void retire(std::shared_ptr<Socket> socket);
// The socket behind an open SOCKET; null for a closed or unknown one.
std::shared_ptr<Socket> findSocket(SOCKET value);

// The first checks of every fallible call: an injected failure, then a
// started Winsock. The error to fail with, or 0.
int enterCall(const char* call);
// The same, then the socket behind `value`: null, with `error` set, when
// the call must fail.
std::shared_ptr<Socket> enterSocketCall(const char* call, SOCKET value, int& error);

// Sets the thread's last error and answers SOCKET_ERROR.
int failWith(int error);
SOCKET failSocketWith(int error);

// A blocking call on a socket that another thread closed meanwhile fails
// with WSAEINTR, as Windows cancels it.
int interruptedOr(const Socket& socket, int error);

// A non-blocking connect has ended once Linux reports a peer or an error;
// moves a connecting socket to its new state.
void settleConnect(Socket& socket);

// ---- For the TCP connection table (iphlpapi) ----

// Shows `visit` each open socket, in the order they were made. It runs under
// the table's lock, so no socket can be closed meanwhile; it must not call
// back into Winsock.
void forEachOpenSocket(const std::function<void(const Socket&)>& visit);

}  // namespace ws2_32
}  // namespace simhost
