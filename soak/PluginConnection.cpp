#include "PluginConnection.h"

#include <sys/socket.h>

#include <cstring>

namespace soak {
namespace {

using vexor_tools::waitReadable;

bool readable(int descriptor, int timeoutMs) { return waitReadable(descriptor, -1, -1, timeoutMs).first; }

}  // namespace

bool PluginConnection::join(uint16_t port, const std::string& fromAddress) {
    leave();
    try {
        uint16_t bound = 0;
        listener_ = vexor_tools::listenAt("127.0.1.20", port, bound);
        connection_ = vexor_tools::connectTo("127.0.3.1", 5555, fromAddress);
        port_ = bound;
        return true;
    } catch (const vexor_tools::SocketError&) {
        leave();
        return false;
    }
}

void PluginConnection::leave() {
    connection_.close();
    listener_.close();
}

std::string PluginConnection::exchange(const std::string& message, int timeoutMs) {
    try {
        vexor_tools::sendAll(connection_.get(), message + '\0');
    } catch (const vexor_tools::SocketError&) {
        return {};
    }
    // What is waiting is looked at first and taken only up to the reply's
    // NUL, so that nothing after it is lost to the next exchange.
    std::string reply;
    char buffer[8192];
    while (readable(connection_.get(), timeoutMs)) {
        ssize_t seen = ::recv(connection_.get(), buffer, sizeof buffer, MSG_PEEK);
        if (seen <= 0) return {};
        const char* nul = static_cast<const char*>(std::memchr(buffer, '\0', static_cast<size_t>(seen)));
        const size_t take = nul ? static_cast<size_t>(nul - buffer) + 1 : static_cast<size_t>(seen);
        if (::recv(connection_.get(), buffer, take, 0) != static_cast<ssize_t>(take)) return {};
        reply.append(buffer, nul ? take - 1 : take);
        if (nul) return reply;
    }
    return {};
}

bool PluginConnection::unaskedBytesWaiting() { return joined() && readable(connection_.get(), 0); }

long PluginConnection::receiveJob(int timeoutMs) {
    if (!readable(listener_.get(), timeoutMs)) return -1;
    vexor_tools::Descriptor job(::accept(listener_.get(), nullptr, nullptr));
    if (!job.valid()) return -1;
    try {
        return static_cast<long>(vexor_tools::readUntilEnd(job.get()).size());
    } catch (const vexor_tools::SocketError&) {
        return -1;
    }
}

}  // namespace soak
