// A plugin's listener outside the simulated host: a plain Linux socket that
// receives what the spooler prints to a RAW TCP/IP port. Its own file,
// because the Linux socket headers cannot meet the Winsock declarations.
#pragma once

#include <cstdint>
#include <vector>

namespace winspool_test {
namespace linux_listener {

struct Listener {
    int descriptor = -1;
    uint16_t port = 0;  // host byte order, chosen by the system
};

// Listens on an IPv4 loopback address ("127.0.1.20") at a port the system
// picks; descriptor -1 on failure.
Listener listenOn(const char* address);
// Accepts one connection and reads it to its end, waiting at most
// `timeoutMilliseconds` for each step.
std::vector<unsigned char> receiveOneConnection(const Listener& listener, int timeoutMilliseconds);
void close(const Listener& listener);

}  // namespace linux_listener
}  // namespace winspool_test
