// Listeners the host holds for plugins that are alive: real listening
// sockets of this machine, outside the host's socket table, as a plugin's
// own process would hold them. The service's reaper tells a live plugin from
// a departed one by trying to bind the same address.
#include "simhost/core/host.h"
#include "simhost/ws2_32/native.h"
#include "simhost/ws2_32/winsock.h"

#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace simhost {
namespace ws2_32 {
namespace {

struct HeldListener {
    std::string address;
    u_short port;
    int descriptor;
};

// Made and dropped with the host: Host::reset closes every listener.
struct Listeners {
    std::mutex mutex;
    std::vector<HeldListener> held;
    ~Listeners() {
        for (const HeldListener& listener : held) native::closeAbortively(listener.descriptor);
    }
};

Listeners& listeners() { return Host::get().state<Listeners>(); }

[[noreturn]] void refuse(const std::string& address, u_short port, const std::string& why) {
    throw std::runtime_error("cannot listen on " + address + ":" + std::to_string(port) + ": " + why);
}

// Opens, binds and listens; the port the system gave, or the one asked for.
u_short listenAt(const std::string& address, u_short port, int& descriptor) {
    native::Endpoint local;
    local.address = static_cast<uint32_t>(inet_addr(address.c_str()));
    local.port = htons(port);
    if (local.address == INADDR_NONE) refuse(address, port, "not an IPv4 address");
    if (int error = native::openStreamSocket(descriptor)) refuse(address, port, "WSA error " + std::to_string(error));
    int error = native::bindTo(descriptor, local);
    if (!error) error = native::listenOn(descriptor, SOMAXCONN);
    if (!error) error = native::localEndpoint(descriptor, local);
    if (error) {
        native::closeAbortively(descriptor);
        refuse(address, port, error == WSAEADDRINUSE ? "the address is in use" : "WSA error " + std::to_string(error));
    }
    return ntohs(local.port);
}

}  // namespace

u_short holdListener(const std::string& address, u_short port) {
    int descriptor = -1;
    const u_short listening = listenAt(address, port, descriptor);
    Listeners& state = listeners();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.held.push_back({address, listening, descriptor});
    return listening;
}

bool releaseListener(const std::string& address, u_short port) {
    Listeners& state = listeners();
    std::lock_guard<std::mutex> lock(state.mutex);
    for (auto it = state.held.begin(); it != state.held.end(); ++it) {
        if (it->address != address || it->port != port) continue;
        native::closeAbortively(it->descriptor);
        state.held.erase(it);
        return true;
    }
    return false;
}

std::vector<std::string> heldListeners() {
    Listeners& state = listeners();
    std::lock_guard<std::mutex> lock(state.mutex);
    std::vector<std::string> texts;
    for (const HeldListener& listener : state.held) texts.push_back(listener.address + ":" + std::to_string(listener.port));
    return texts;
}

}  // namespace ws2_32
}  // namespace simhost
