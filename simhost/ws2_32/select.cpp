// select over the Windows socket sets, served by poll. Readiness is judged as
// Windows judges it from the socket's state: a listener is readable with a
// connection waiting; a connected socket is readable with data, an orderly
// end or a reset, writable when send would not block, and in the exception
// set with urgent data; a non-blocking connect shows in the write set when
// it succeeds and in the exception set when it fails. An idle socket that is
// neither listening nor connected never becomes ready.
#include "simhost/core/host.h"
#include "simhost/ws2_32/native.h"
#include "simhost/ws2_32/socket_table.h"

#include <chrono>
#include <vector>

using namespace simhost::ws2_32;

namespace {

using native::kFailed;
using native::kHangUp;
using native::kReadable;
using native::kUrgent;
using native::kWritable;

// One socket of the sets: in which of them it stands (kReadable for the read
// set, kWritable for the write set, kUrgent for the exception set) and in
// which it turned out ready.
struct Entry {
    SOCKET value;
    std::shared_ptr<Socket> socket;
    unsigned wanted = 0;
    unsigned ready = 0;
    bool muted = false;
};

struct Sets {
    fd_set* read;
    fd_set* write;
    fd_set* except;
};

bool isEmpty(const fd_set* set) { return !set || set->fd_count == 0; }
bool isOversized(const fd_set* set) { return set && set->fd_count > FD_SETSIZE; }

// Collects the sockets of one set; false if one of them is not a socket.
bool collect(const fd_set* set, unsigned membership, std::vector<Entry>& entries) {
    if (!set) return true;
    for (u_int i = 0; i < set->fd_count; ++i) {
        SOCKET value = set->fd_array[i];
        Entry* entry = nullptr;
        for (Entry& known : entries)
            if (known.value == value) entry = &known;
        if (!entry) {
            std::shared_ptr<Socket> socket = findSocket(value);
            if (!socket) return false;
            entries.push_back({value, std::move(socket)});
            entry = &entries.back();
        }
        entry->wanted |= membership;
    }
    return true;
}

// What poll watches for an entry, from the socket's state now.
native::Watch watchFor(const Entry& entry) {
    const Socket& socket = *entry.socket;
    switch (socket.state.load()) {
    case SocketState::Listening: return {socket.descriptor, entry.wanted & kReadable, 0};
    case SocketState::Connecting: return {socket.descriptor, kWritable, 0};
    case SocketState::Connected: return {socket.descriptor, entry.wanted, 0};
    case SocketState::Open: break;
    }
    return {-1, 0, 0};
}

// The sets, by Windows's rules, in which a socket is ready after poll saw
// `observed` on it.
unsigned windowsReadiness(Socket& socket, unsigned observed) {
    switch (socket.state.load()) {
    case SocketState::Listening: return (observed & (kReadable | kHangUp | kFailed)) ? kReadable : 0;
    case SocketState::Connecting:
        if (!observed) return 0;
        settleConnect(socket);
        if (socket.state == SocketState::Connected) return kWritable;
        return socket.state == SocketState::Open ? kUrgent : 0;
    case SocketState::Connected: {
        unsigned ready = observed & kUrgent;
        if (observed & (kReadable | kHangUp | kFailed)) ready |= kReadable;
        if (observed & (kWritable | kHangUp | kFailed)) ready |= kWritable;
        return ready;
    }
    case SocketState::Open: break;
    }
    return 0;
}

// The wait a Windows time-out asks for, in milliseconds on the host's time
// scale; negative for no limit.
int64_t waitMilliseconds(const timeval* timeout) {
    if (!timeout) return -1;
    uint64_t milliseconds =
        static_cast<uint64_t>(timeout->tv_sec) * 1000 + (static_cast<uint64_t>(timeout->tv_usec) + 999) / 1000;
    DWORD bounded = milliseconds >= INFINITE ? INFINITE - 1 : static_cast<DWORD>(milliseconds);
    return static_cast<int64_t>(simhost::Host::get().scaledMilliseconds(bounded));
}

using Clock = std::chrono::steady_clock;

int64_t millisecondsLeft(int64_t total, Clock::time_point start) {
    if (total < 0) return -1;
    auto spent = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
    return total > spent ? total - spent : 0;
}

// One poll over the entries. Answers the count of ready (socket, set)
// pairs; an entry that woke poll without being ready in a set it stands in
// is left out of later rounds, so that it cannot keep waking them.
int pollRound(std::vector<Entry>& entries, int64_t milliseconds, int& readyCount) {
    std::vector<native::Watch> watches;
    watches.reserve(entries.size());
    for (const Entry& entry : entries)
        watches.push_back(entry.muted ? native::Watch{-1, 0, 0} : watchFor(entry));
    if (int error = native::waitForReadiness(watches.data(), watches.size(), milliseconds)) return error;
    readyCount = 0;
    for (size_t i = 0; i < entries.size(); ++i) {
        Entry& entry = entries[i];
        if (entry.socket->closed) return WSAEINTR;
        if (watches[i].descriptor < 0 || !watches[i].observed) continue;
        SocketState before = entry.socket->state;
        entry.ready = windowsReadiness(*entry.socket, watches[i].observed) & entry.wanted;
        readyCount += __builtin_popcount(entry.ready);
        if (!entry.ready && entry.socket->state == before) entry.muted = true;
    }
    return 0;
}

// Keeps in a set the sockets ready in it, in their order.
void keepReady(fd_set* set, unsigned membership, const std::vector<Entry>& entries) {
    if (!set) return;
    u_int kept = 0;
    for (u_int i = 0; i < set->fd_count; ++i)
        for (const Entry& entry : entries)
            if (entry.value == set->fd_array[i] && (entry.ready & membership)) {
                set->fd_array[kept++] = set->fd_array[i];
                break;
            }
    set->fd_count = kept;
}

int checkArguments(const Sets& sets, const timeval* timeout) {
    if (isEmpty(sets.read) && isEmpty(sets.write) && isEmpty(sets.except)) return WSAEINVAL;
    if (isOversized(sets.read) || isOversized(sets.write) || isOversized(sets.except)) return WSAEINVAL;
    if (timeout && (timeout->tv_sec < 0 || timeout->tv_usec < 0)) return WSAEINVAL;
    return 0;
}

}  // namespace

int WSAAPI select(int, fd_set* readfds, fd_set* writefds, fd_set* exceptfds, const timeval* timeout) {
    if (int error = enterCall("select")) return failWith(error);
    Sets sets = {readfds, writefds, exceptfds};
    if (int error = checkArguments(sets, timeout)) return failWith(error);
    std::vector<Entry> entries;
    if (!collect(readfds, kReadable, entries) || !collect(writefds, kWritable, entries) ||
        !collect(exceptfds, kUrgent, entries))
        return failWith(WSAENOTSOCK);

    const int64_t total = waitMilliseconds(timeout);
    const Clock::time_point start = Clock::now();
    int readyCount = 0;
    do {
        if (int error = pollRound(entries, millisecondsLeft(total, start), readyCount)) return failWith(error);
    } while (readyCount == 0 && millisecondsLeft(total, start) != 0);

    keepReady(readfds, kReadable, entries);
    keepReady(writefds, kWritable, entries);
    keepReady(exceptfds, kUrgent, entries);
    return readyCount;
}

int WSAAPI __WSAFDIsSet(SOCKET socket, fd_set* set) {
    if (!set) return FALSE;
    for (u_int i = 0; i < set->fd_count && i < FD_SETSIZE; ++i)
        if (set->fd_array[i] == socket) return TRUE;
    return FALSE;
}
