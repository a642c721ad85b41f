// A soak plugin's sockets: its listener for the spooler's jobs and its
// connection to the service's command socket, plain Linux sockets as a real
// plugin's are outside the service's process.
#pragma once

#include "common/Sockets.h"

#include <cstdint>
#include <string>

namespace soak {

class PluginConnection {
public:
    // Listens at 127.0.1.20:`port` and connects to the service from
    // `fromAddress`. False, with nothing left open, when either fails.
    bool join(uint16_t port, const std::string& fromAddress);
    // Closes the listener and the connection, as a plugin that goes away.
    void leave();
    bool joined() const { return connection_.valid(); }
    uint16_t port() const { return port_; }

    // Sends one message with its NUL and reads one reply up to its NUL
    // (within `timeoutMs`); empty when none came.
    std::string exchange(const std::string& message, int timeoutMs);
    // True when the service sent something no request asked for.
    bool unaskedBytesWaiting();
    // Accepts one job connection and reads it to its end; the byte count,
    // or -1 when no job came within `timeoutMs`.
    long receiveJob(int timeoutMs);

private:
    vexor_tools::Descriptor listener_;
    vexor_tools::Descriptor connection_;
    uint16_t port_ = 0;
};

}  // namespace soak
