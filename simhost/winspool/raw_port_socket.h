// The Linux side of printing to a RAW TCP/IP port: one TCP connection that
// carries a job's bytes. This header names no type of either platform's
// socket headers, which cannot meet in one file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace simhost {
namespace winspool {
namespace native {

// Connects to an IPv4 address in dotted form and a port, sends every byte,
// and ends the connection in order. Answers an empty text when all was
// sent, else what failed. Connecting and each send wait at most
// `timeoutMilliseconds`.
std::string sendToRawPort(const std::string& ipv4Address, uint16_t port, const std::vector<unsigned char>& bytes,
                          int timeoutMilliseconds);

}  // namespace native
}  // namespace winspool
}  // namespace simhost
