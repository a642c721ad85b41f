// ws2_32 of the simulated host: Winsock 2 for IPv4 TCP, served by real BSD
// sockets of this machine. SOCKET values are handles of the simulated host;
// each stands for one Linux descriptor that only the host sees.
//
// The C library's headers already declare some of the BSD names that
// Winsock reuses with another shape (fd_set, FD_SET, FD_SETSIZE, select). So
// that Windows code compiles unchanged, this header takes them over: fd_set
// names the Windows set of 64 sockets, the FD_ macros work on it, and
// select is an overload that takes it. The C library's struct timeval is
// used as the time-out record; its fields are named as on Windows. A file
// that includes this header must not include the Linux socket headers.
#pragma once

#include "simhost/wintypes.h"
#include "simhost/ws2_32/wsa_errors.h"

#include <cstddef>
#include <string>
#include <vector>
#include <sys/select.h>
#include <sys/time.h>
#include <sys/types.h>

// ---- Basic types ----
// u_char, u_short, u_int and u_long come from the C library. u_long is
// 64 bits wide here; every value the calls below take or give through it
// fits in 32 bits, as on Windows.
typedef UINT_PTR SOCKET;
typedef u_short ADDRESS_FAMILY;

#define INVALID_SOCKET ((SOCKET)(~0))
#define SOCKET_ERROR (-1)

// ---- Address families, socket types, protocols ----
#define AF_UNSPEC 0
#define AF_INET 2
#define AF_INET6 23
#define PF_INET AF_INET
#define SOCK_STREAM 1
#define SOCK_DGRAM 2
#define SOCK_RAW 3
#define IPPROTO_IP 0
#define IPPROTO_TCP 6
#define IPPROTO_UDP 17

#define INADDR_ANY ((ULONG)0x00000000)
#define INADDR_LOOPBACK 0x7f000001
#define INADDR_BROADCAST ((ULONG)0xffffffff)
#define INADDR_NONE 0xffffffff

// ---- Addresses (Windows layout: 16 bytes for sockaddr and sockaddr_in) ----
typedef struct sockaddr {
    ADDRESS_FAMILY sa_family;
    CHAR sa_data[14];
} SOCKADDR, *PSOCKADDR, *LPSOCKADDR;

typedef struct in_addr {
    union {
        struct {
            u_char s_b1, s_b2, s_b3, s_b4;
        } S_un_b;
        struct {
            u_short s_w1, s_w2;
        } S_un_w;
        ULONG S_addr;
    } S_un;
} IN_ADDR, *PIN_ADDR, *LPIN_ADDR;
#define s_addr S_un.S_addr

typedef struct sockaddr_in {
    ADDRESS_FAMILY sin_family;
    u_short sin_port;
    IN_ADDR sin_addr;
    CHAR sin_zero[8];
} SOCKADDR_IN, *PSOCKADDR_IN, *LPSOCKADDR_IN;

static_assert(sizeof(sockaddr) == 16, "sockaddr is 16 bytes on Windows");
static_assert(sizeof(sockaddr_in) == 16, "sockaddr_in is 16 bytes on Windows");

// ---- Start-up ----
#define WSADESCRIPTION_LEN 256
#define WSASYS_STATUS_LEN 128

// The 64-bit Windows layout: the two counts come before the vendor pointer.
typedef struct WSAData {
    WORD wVersion;
    WORD wHighVersion;
    unsigned short iMaxSockets;
    unsigned short iMaxUdpDg;
    char* lpVendorInfo;
    char szDescription[WSADESCRIPTION_LEN + 1];
    char szSystemStatus[WSASYS_STATUS_LEN + 1];
} WSADATA, *LPWSADATA;
static_assert(sizeof(WSADATA) == 408, "WSADATA is 408 bytes on 64-bit Windows");

// ---- Socket options ----
#define SOL_SOCKET 0xffff
#define SO_REUSEADDR 0x0004
#define SO_EXCLUSIVEADDRUSE ((int)(~SO_REUSEADDR))
#define SO_KEEPALIVE 0x0008
#define SO_LINGER 0x0080
#define SO_ACCEPTCONN 0x0002
#define SO_ERROR 0x1007
#define SO_TYPE 0x1008
#define SOMAXCONN 0x7fffffff

typedef struct linger {
    u_short l_onoff;
    u_short l_linger;
} LINGER, *PLINGER, *LPLINGER;

// ---- Flags of recv and send, directions of shutdown ----
#define MSG_OOB 0x1
#define MSG_PEEK 0x2
#define MSG_DONTROUTE 0x4
#define MSG_WAITALL 0x8

#define SD_RECEIVE 0x00
#define SD_SEND 0x01
#define SD_BOTH 0x02

// ---- ioctlsocket commands ----
#define FIONREAD ((long)0x4004667F)
#define FIONBIO ((long)(int)0x8004667Eu)

// ---- The Windows socket set and select ----
// A list of up to FD_SETSIZE sockets, not a bit mask: FD_SET appends a
// socket that is not yet there while there is room, and ignores it
// otherwise, as the Windows macro does.
#undef FD_SETSIZE
#undef FD_SET
#undef FD_CLR
#undef FD_ZERO
#undef FD_ISSET
#define FD_SETSIZE 64
#define fd_set simhost_ws2_fd_set

typedef struct fd_set {
    u_int fd_count;
    SOCKET fd_array[FD_SETSIZE];
} fd_set;
typedef fd_set FD_SET, *PFD_SET, *LPFD_SET;
typedef struct timeval TIMEVAL, *PTIMEVAL, *LPTIMEVAL;

int WSAAPI __WSAFDIsSet(SOCKET socket, fd_set* set);

namespace simhost {
namespace ws2_32 {

inline void addToSet(SOCKET socket, fd_set* set) {
    for (u_int i = 0; i < set->fd_count; ++i)
        if (set->fd_array[i] == socket) return;
    if (set->fd_count < FD_SETSIZE) set->fd_array[set->fd_count++] = socket;
}

inline void removeFromSet(SOCKET socket, fd_set* set) {
    for (u_int i = 0; i < set->fd_count; ++i) {
        if (set->fd_array[i] != socket) continue;
        for (u_int j = i + 1; j < set->fd_count; ++j) set->fd_array[j - 1] = set->fd_array[j];
        --set->fd_count;
        return;
    }
}

}  // namespace ws2_32
}  // namespace simhost

#define FD_SET(fd, set) ::simhost::ws2_32::addToSet((SOCKET)(fd), (fd_set*)(set))
#define FD_CLR(fd, set) ::simhost::ws2_32::removeFromSet((SOCKET)(fd), (fd_set*)(set))
#define FD_ZERO(set) (((fd_set*)(set))->fd_count = 0)
#define FD_ISSET(fd, set) __WSAFDIsSet((SOCKET)(fd), (fd_set*)(set))

// nfds is ignored. The sets are rewritten to the sockets that are ready; a
// null time-out waits for ever, a zero one only looks. The wait runs on the
// host's time scale. Pass the sets as fd_set pointers: a call whose three
// sets are untyped null pointers would bind to the C library's select.
int WSAAPI select(int nfds, fd_set* readfds, fd_set* writefds, fd_set* exceptfds, const timeval* timeout);

// ---- Calls ----
// WSAStartup answers its error instead of setting the last error.
int WSAAPI WSAStartup(WORD versionRequested, LPWSADATA data);
int WSAAPI WSACleanup();
// The thread's last error, the same value GetLastError reads.
int WSAAPI WSAGetLastError();
void WSAAPI WSASetLastError(int error);

SOCKET WSAAPI socket(int af, int type, int protocol);
int WSAAPI bind(SOCKET s, const sockaddr* name, int namelen);
int WSAAPI listen(SOCKET s, int backlog);
SOCKET WSAAPI accept(SOCKET s, sockaddr* addr, int* addrlen);
int WSAAPI connect(SOCKET s, const sockaddr* name, int namelen);
int WSAAPI getsockname(SOCKET s, sockaddr* name, int* namelen);
int WSAAPI getpeername(SOCKET s, sockaddr* name, int* namelen);
int WSAAPI recv(SOCKET s, char* buf, int len, int flags);
int WSAAPI send(SOCKET s, const char* buf, int len, int flags);
int WSAAPI shutdown(SOCKET s, int how);
int WSAAPI closesocket(SOCKET s);
int WSAAPI setsockopt(SOCKET s, int level, int optname, const char* optval, int optlen);
int WSAAPI getsockopt(SOCKET s, int level, int optname, char* optval, int* optlen);
int WSAAPI ioctlsocket(SOCKET s, long cmd, u_long* argp);

// Address texts. They need no WSAStartup, as their Windows contracts name no
// error for its absence.
unsigned long WSAAPI inet_addr(const char* cp);
// The text lives in a buffer of the calling thread until its next call.
char* WSAAPI inet_ntoa(in_addr in);

u_short WSAAPI htons(u_short hostshort);
u_short WSAAPI ntohs(u_short netshort);
u_long WSAAPI htonl(u_long hostlong);
u_long WSAAPI ntohl(u_long netlong);

// ---- Test and host API ----
namespace simhost {
namespace ws2_32 {

// Sockets open on the host now: made by socket or accept and not yet closed.
size_t openSocketCount();

// Waits until at least `count` calls of other threads (accept, recv, send,
// connect, select, ...) hold the open socket `s`, for at most `timeoutMs`
// real milliseconds; false when they did not, or `s` is no open socket. A
// call holds its socket from the moment it has found it until it returns,
// so a closesocket after this interrupts those calls (WSAEINTR) even if they
// have not reached Linux's blocking call yet.
bool waitUntilInCall(SOCKET s, size_t count = 1, unsigned timeoutMs = 10000);

// Listening sockets of this machine that the host holds for plugins that are
// alive (a plugin listens on its port's address for as long as its session
// lives), outside the host's socket table, until released or Host::reset.
// Answers the port listened on: the one given, or the one the system chose
// for 0. Throws std::runtime_error when the address cannot be had.
u_short holdListener(const std::string& address, u_short port);
// Closes that listener, as a departing plugin does; false if none is held.
bool releaseListener(const std::string& address, u_short port);
// "127.0.1.20:9101" for each listener held, in the order they were made.
std::vector<std::string> heldListeners();

}  // namespace ws2_32
}  // namespace simhost
