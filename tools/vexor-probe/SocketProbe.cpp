// Winsock binds as the reaper makes them: a loopback address with a port of
// the system's choosing, the same address and port again, and an address
// that is not this machine's. The command port is never touched.
#include "Probe.h"

namespace probe {
namespace {

sockaddr_in addressOf(const char* ip, u_short port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = inet_addr(ip);
    address.sin_port = htons(port);
    return address;
}

std::string bindResult(SOCKET socket, const sockaddr_in& address) {
    WSASetLastError(0);
    int result = bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    return result == 0 ? "0" : "SOCKET_ERROR WSAGetLastError=" + number(static_cast<unsigned long>(WSAGetLastError()));
}

}  // namespace

void probeSockets() {
    WSADATA data;
    int started = WSAStartup(MAKEWORD(2, 2), &data);
    observe("WSAStartup(2.2)", "result=" + std::to_string(started) + " version=" + number(LOBYTE(data.wVersion)) +
                                   "." + number(HIBYTE(data.wVersion)));
    if (started != 0) return;
    SOCKET first = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    observe("bind 127.0.3.1:0", bindResult(first, addressOf("127.0.3.1", 0)));
    sockaddr_in bound = {};
    int length = sizeof bound;
    getsockname(first, reinterpret_cast<sockaddr*>(&bound), &length);
    observe("getsockname", std::string("port=") + (bound.sin_port ? "positive" : "0"));
    observe("listen", std::to_string(listen(first, 1)));

    SOCKET second = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    observe("bind 127.0.3.1:<port of the listener>", bindResult(second, bound));
    closesocket(second);

    SOCKET third = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    observe("bind 192.0.2.1:0", bindResult(third, addressOf("192.0.2.1", 0)));
    closesocket(third);

    SOCKET fourth = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    observe("bind twice, first", bindResult(fourth, addressOf("127.0.3.1", 0)));
    observe("bind twice, second", bindResult(fourth, addressOf("127.0.3.1", 0)));
    closesocket(fourth);

    closesocket(first);
    WSACleanup();
}

}  // namespace probe
