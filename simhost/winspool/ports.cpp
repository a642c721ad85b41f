// Ports: EnumPortsW, and the host API that adds and lists them. Every port
// belongs to a monitor: the TCP/IP port monitor, whose ports carry their
// configuration, or the local port monitor of LPT1:, COM1:, FILE: and the
// like, which every machine has.
#include "simhost/core/text.h"
#include "simhost/winspool/record_block.h"
#include "simhost/winspool/spooler_state.h"

#include <stdexcept>

namespace simhost {
namespace winspool {
namespace {

void fillPort1(PORT_INFO_1W& record, RecordBlock& block, const PortPtr& port) { record.pName = block.text(port->name); }

void fillPort2(PORT_INFO_2W& record, RecordBlock& block, const PortPtr& port) {
    record.pPortName = block.text(port->name);
    record.pMonitorName = block.text(port->monitorName);
    record.pDescription = block.text(port->description);
    record.fPortType = port->portType;
    record.Reserved = 0;
}

}  // namespace

PortPtr makeMonitorPort(PrinterPort port, const PortMonitor& monitor) {
    port.monitorName = monitor.reportedName;
    if (port.description.empty()) port.description = monitor.portDescription;
    if (!port.portType) port.portType = monitor.portType;
    if (&monitor == &kTcpMonitor && !port.tcp) port.tcp = TcpPortConfiguration{};
    if (&monitor != &kTcpMonitor) port.tcp.reset();
    return std::make_shared<PrinterPort>(std::move(port));
}

void addPort(PrinterPort port) {
    if (port.name.empty()) throw std::invalid_argument("a port needs a name");
    const PortMonitor* monitor = monitorNamed(port.monitorName);
    if (!monitor)
        throw std::invalid_argument("port \"" + narrow(port.name) + "\": no monitor \"" + narrow(port.monitorName) +
                                    "\" (the machine has \"TCPMON.DLL\" and \"Local Port\")");
    if (monitor != &kTcpMonitor && port.tcp)
        throw std::invalid_argument("port \"" + narrow(port.name) + "\": only TCP/IP ports have a host address, "
                                    "port number and protocol");
    withSpooler([&](SpoolerState& state) {
        if (state.findPort(port.name)) throw std::invalid_argument("port \"" + narrow(port.name) + "\" exists");
        state.insertPort(makeMonitorPort(std::move(port), *monitor));
    });
}

std::vector<PrinterPort> ports() {
    return withSpooler([](SpoolerState& state) {
        std::vector<PrinterPort> listed;
        listed.reserve(state.ports.size());
        for (const PortPtr& port : state.ports) listed.push_back(*port);
        return listed;
    });
}

std::optional<PrinterPort> findPort(const std::wstring& name) {
    return withSpooler([&](SpoolerState& state) -> std::optional<PrinterPort> {
        PortPtr port = state.findPort(name);
        if (!port) return std::nullopt;
        return *port;
    });
}

}  // namespace winspool
}  // namespace simhost

using namespace simhost::winspool;

// Levels 1 and 2 (PORT_INFO_1W, PORT_INFO_2W) of every port, in the order
// of ports(); another level is ERROR_INVALID_LEVEL, a server other than this
// machine ERROR_INVALID_NAME. The size protocol of the other Enum calls: a
// first call without a buffer fails with ERROR_INSUFFICIENT_BUFFER and the
// size, as documented. TCP/IP ports report the monitor "TCPMON.DLL" and
// PORT_TYPE_NET_ATTACHED among their type bits; local ports "Local Port".
BOOL WINAPI EnumPortsW(LPWSTR serverName, DWORD level, LPBYTE buffer, DWORD bufferSize, LPDWORD needed,
                       LPDWORD returned) {
    if (DWORD e = simhost::injectedFailure("EnumPortsW")) return succeedOrFail(e);
    if (DWORD e = checkBlockArguments(buffer, bufferSize, needed, returned)) return succeedOrFail(e);
    if (level != 1 && level != 2) return succeedOrFail(ERROR_INVALID_LEVEL);
    if (serverName && *serverName) return succeedOrFail(ERROR_INVALID_NAME);
    return withSpooler([&](SpoolerState& state) {
        BlockAnswer answer = level == 1 ? answerRecords<PORT_INFO_1W>(state.ports, buffer, bufferSize, fillPort1)
                                        : answerRecords<PORT_INFO_2W>(state.ports, buffer, bufferSize, fillPort2);
        return finishEnum(answer, needed, returned);
    });
}
