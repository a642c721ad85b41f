// Plain Linux TCP sockets over loopback for the programs that stand outside
// the simulated host, as a plugin stands outside the service: the plugin
// stand-in and the soak.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace vexor_tools {

class SocketError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// An owned descriptor, closed when it goes.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int value) : value_(value) {}
    Descriptor(Descriptor&& other) noexcept : value_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { close(); }

    int get() const { return value_; }
    bool valid() const { return value_ >= 0; }
    int release();
    void close();

private:
    int value_ = -1;
};

// A listening socket at `address`:`port` (0: the system picks); the port it
// got is written to `boundPort`.
Descriptor listenAt(const std::string& address, uint16_t port, uint16_t& boundPort);
// A connection to `address`:`port`, made from `fromAddress` when it is not
// empty.
Descriptor connectTo(const std::string& address, uint16_t port, const std::string& fromAddress);
// Sends every byte; throws SocketError when the peer has gone.
void sendAll(int descriptor, const std::string& bytes);

// What a wait for several descriptors saw.
struct Readiness {
    bool first = false;
    bool second = false;
    bool third = false;
};
// Waits until one of the descriptors (-1: none) is readable or closed, or
// `timeoutMilliseconds` (-1: no limit) has passed; a signal ends the wait
// with nothing ready.
Readiness waitReadable(int first, int second, int third, int timeoutMilliseconds);

// Reads from a connection until it ends. Throws SocketError on a reset.
std::string readUntilEnd(int descriptor);

}  // namespace vexor_tools
