// The command channel from the first byte to the handlers: the input is what
// a plugin writes to its connection. The service's socket-thread step reads
// it in segments, cuts it at each NUL and parses every message; the worker's
// step then takes each request off the queue, handles it by its verb and
// answers it, as the running service does.
//
// No network is used. The connection is a local socket pair entered in the
// simulated Winsock's table as a connected socket, and the service object is
// constructed but never started, so it has no command socket. The host's
// socket, bind and connect fail, so that no handler can open a socket of this
// machine either (the reaper then takes every address for held).
#include "channel/ClientTypes.h"
#include "common/LocalSocketPair.h"
#include "service/VexorPrintingService.h"
#include "simhost/core/host.h"
#include "simhost/kernel32/processes.h"
#include "simhost/winspool/spooler_state.h"
#include "simhost/ws2_32/native.h"
#include "simhost/ws2_32/socket_table.h"
#include "support/ServiceTestAccess.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>

namespace {

// The plugin that sends: a loader process in a user session, whose parent
// runs in session zero, so that handlers find its logon session.
constexpr DWORD kSessionZeroParentPid = 700;
constexpr DWORD kPluginPid = 5000;
constexpr DWORD kUserSession = 2;
constexpr DWORD kSystemPid = 4;

class Channel {
public:
    Channel() {
        simhost::Host::get().setTimeScale(0.01);
        service_ = new VexorPrintingService();  // lives as long as the process
        forbidSockets();
        addPlugin();
        installDrivers();
        connect();
        baselinePorts_ = portNames();
    }

    void deliver(const uint8_t* data, size_t size) {
        client_.recvBuffer.clear();
        size_t written = 0;
        do {
            written += writeSome(data + written, size - written);
            while (bytesWaiting() > 0) service_->_processClientObj(&client_);
        } while (written < size);
    }

    // One pass of the worker per waiting request, the reply read away at once
    // so that the pair's buffer never fills.
    void answer() {
        for (size_t waiting = ServiceTestAccess::queuedCount(*service_); waiting > 0; --waiting) {
            service_->_checkMsgQueue();
            drainReplies();
        }
    }

    // Takes away the printers and ports the requests made, so that every
    // input meets the same machine.
    void forgetPrintersAndPorts() {
        simhost::winspool::withSpooler([&](simhost::winspool::SpoolerState& state) {
            state.printers.clear();
            state.printersByName.clear();
            state.defaultPrinters.clear();
            for (const std::wstring& name : portNamesOf(state))
                if (!baselinePorts_.count(name)) state.erasePort(name);
        });
    }

private:
    static void forbidSockets() {
        for (const char* call : {"socket", "bind", "connect"})
            simhost::Host::get().faults().failCall(call, WSAENETDOWN);
    }

    static void addPlugin() {
        simhost::kernel32::addProcess({kSessionZeroParentPid, kSystemPid, 0, L"C:\\Windows\\System32\\svchost.exe"});
        simhost::kernel32::addProcess(
            {kPluginPid, kSessionZeroParentPid, kUserSession, L"C:\\Program Files\\Quillion\\VexorAgent\\loader.exe"});
    }

    // Drivers the seed requests name, so that their printers get made.
    static void installDrivers() {
        for (const wchar_t* name : {L"Acme LaserBox 2000", L"Brightline PageWriter 7 PCL6"})
            simhost::winspool::addDriver({name, simhost::winspool::kLocalEnvironment, L"", L"", {}});
    }

    // Both ends are non-blocking: a read with nothing waiting, or a reply
    // that does not fit, fails instead of hanging the target.
    void connect() {
        int ends[2];
        if (!fuzzsupport::makeLocalSocketPair(ends)) throw std::runtime_error("no local socket pair");
        auto serviceEnd = std::make_shared<simhost::ws2_32::Socket>(ends[0]);
        serviceEnd->state = simhost::ws2_32::SocketState::Connected;
        serviceEnd->nonBlocking = true;
        serviceEnd_ = ends[0];
        pluginEnd_ = ends[1];
        client_.socket = simhost::ws2_32::registerSocket(serviceEnd);
        client_.peer.socket = client_.socket;
        client_.peer.addr = {};
        client_.peer.addr.sin_family = AF_INET;
        client_.peer.addr.sin_addr.s_addr = inet_addr("127.0.0.1");
        client_.peer.ownerPid = kPluginPid;
    }

    size_t writeSome(const uint8_t* data, size_t size) {
        size_t written = 0;
        simhost::ws2_32::native::sendBytes(pluginEnd_, reinterpret_cast<const char*>(data), size, 0, written);
        return written;
    }

    size_t bytesWaiting() const {
        size_t waiting = 0;
        simhost::ws2_32::native::bytesAvailable(serviceEnd_, waiting);
        return waiting;
    }

    void drainReplies() {
        char reply[4096];
        size_t received = 0;
        while (simhost::ws2_32::native::receiveBytes(pluginEnd_, reply, sizeof reply, 0, received) == 0 && received > 0) {
        }
    }

    static std::set<std::wstring> portNamesOf(const simhost::winspool::SpoolerState& state) {
        std::set<std::wstring> names;
        for (const auto& port : state.ports) names.insert(port->name);
        return names;
    }

    std::set<std::wstring> portNames() {
        return simhost::winspool::withSpooler(
            [](simhost::winspool::SpoolerState& state) { return portNamesOf(state); });
    }

    VexorPrintingService* service_ = nullptr;
    ClientObj client_{};
    int serviceEnd_ = -1;
    int pluginEnd_ = -1;
    std::set<std::wstring> baselinePorts_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Channel channel;
    channel.deliver(data, size);
    channel.answer();
    channel.forgetPrintersAndPorts();
    return 0;
}
