// A peer outside the simulated host: a plain Linux socket, to see from the
// far end what the host does to its connections. Its own file, because the
// Linux socket headers cannot meet the Winsock declarations.
#pragma once

#include <cstdint>

namespace ws2_32_test {
namespace linux_peer {

// A connected descriptor, or -1. Address and port in network byte order.
int connectTo(uint32_t address, uint16_t port);
// What one recv of up to 16 bytes gives: the byte count, 0 for the orderly
// end, or the negated errno; -ETIMEDOUT when nothing came within ten
// seconds.
int receiveOnce(int descriptor);
void close(int descriptor);

}  // namespace linux_peer
}  // namespace ws2_32_test
