// XcvDataW and the commands of the port monitors behind it. The call's own
// outcome (TRUE, or FALSE with the last error) says whether the monitor was
// reached; what the monitor made of the command is its status, written to
// *status. The TCP/IP port monitor serves the commands of its published Xcv
// interface that the service uses, AddPort, DeletePort and GetConfigInfo,
// and MonitorUI; the local port monitor only MonitorUI.
#include "simhost/winspool/spooler_state.h"

#include <cstring>
#include <cwchar>

namespace simhost {
namespace winspool {
namespace {

struct XcvRequest {
    std::wstring command;
    const BYTE* input;
    DWORD inputSize;
    BYTE* output;
    DWORD outputSize;
};

struct XcvReply {
    DWORD status = 0;
    DWORD needed = 0;
};

// The text of a fixed field, which need not end with a NUL.
template <size_t N>
std::wstring fieldText(const WCHAR (&field)[N]) {
    size_t length = 0;
    while (length < N && field[length]) ++length;
    return std::wstring(field, length);
}

template <size_t N>
void setField(WCHAR (&field)[N], const std::wstring& text) {
    std::wcsncpy(field, text.c_str(), N - 1);
    field[N - 1] = L'\0';
}

// The input record of a command, copied out of the caller's bytes. A
// missing or short record is ERROR_INVALID_DATA and a version other than 1
// ERROR_INVALID_LEVEL, as the monitor's commands document.
template <class Record>
DWORD readInput(const XcvRequest& request, Record& record) {
    if (!request.input || request.inputSize < sizeof(Record)) return ERROR_INVALID_DATA;
    std::memcpy(&record, request.input, sizeof(Record));
    return record.dwVersion == 1 ? 0 : ERROR_INVALID_LEVEL;
}

// Writes a reply of `size` bytes when the output buffer can take it; else
// ERROR_INSUFFICIENT_BUFFER with the size in *pcbOutputNeeded.
XcvReply writeOutput(const XcvRequest& request, const void* data, DWORD size) {
    if (request.outputSize < size) return {ERROR_INSUFFICIENT_BUFFER, size};
    std::memcpy(request.output, data, size);
    return {0, size};
}

XcvReply monitorUi(const XcvRequest& request, const SpoolerHandle& handle, const wchar_t* dll) {
    if (!(handle.granted & SERVER_ACCESS_ADMINISTER)) return {ERROR_ACCESS_DENIED};
    return writeOutput(request, dll, static_cast<DWORD>((std::wcslen(dll) + 1) * sizeof(WCHAR)));
}

TcpPortConfiguration configurationOf(const PORT_DATA_1& data) {
    TcpPortConfiguration tcp;
    tcp.hostAddress = fieldText(data.sztHostAddress);
    tcp.ipAddress = fieldText(data.sztIPAddress);
    tcp.portNumber = data.dwPortNumber;
    tcp.protocol = data.dwProtocol;
    tcp.queue = fieldText(data.sztQueue);
    tcp.snmpCommunity = fieldText(data.sztSNMPCommunity);
    tcp.snmpEnabled = data.dwSNMPEnabled;
    tcp.snmpDeviceIndex = data.dwSNMPDevIndex;
    tcp.doubleSpool = data.dwDoubleSpool;
    return tcp;
}

PORT_DATA_1 portDataOf(const PrinterPort& port) {
    const TcpPortConfiguration& tcp = *port.tcp;
    PORT_DATA_1 data{};
    setField(data.sztPortName, port.name);
    data.dwVersion = 1;
    data.dwProtocol = tcp.protocol;
    data.cbSize = sizeof(PORT_DATA_1);
    setField(data.sztHostAddress, tcp.hostAddress);
    setField(data.sztSNMPCommunity, tcp.snmpCommunity);
    data.dwDoubleSpool = tcp.doubleSpool;
    setField(data.sztQueue, tcp.queue);
    setField(data.sztIPAddress, tcp.ipAddress);
    data.dwPortNumber = tcp.portNumber;
    data.dwSNMPEnabled = tcp.snmpEnabled;
    data.dwSNMPDevIndex = tcp.snmpDeviceIndex;
    return data;
}

// A RAW or LPR port of a name no port of the machine has. An empty name or
// another protocol is ERROR_INVALID_PARAMETER.
XcvReply addPort(SpoolerState& state, const XcvRequest& request) {
    PORT_DATA_1 data;
    if (DWORD error = readInput(request, data)) return {error};
    PrinterPort port;
    port.name = fieldText(data.sztPortName);
    port.tcp = configurationOf(data);
    if (port.name.empty() || (data.dwProtocol != PROTOCOL_RAWTCP_TYPE && data.dwProtocol != PROTOCOL_LPR_TYPE))
        return {ERROR_INVALID_PARAMETER};
    if (state.findPort(port.name)) return {ERROR_ALREADY_EXISTS};
    state.insertPort(makeMonitorPort(std::move(port), kTcpMonitor));
    return {};
}

// Removes one of the monitor's ports: a name it has no port of is
// ERROR_UNKNOWN_PORT, a port a printer prints to ERROR_BUSY.
XcvReply deletePort(SpoolerState& state, const XcvRequest& request) {
    DELETE_PORT_DATA_1 data;
    if (DWORD error = readInput(request, data)) return {error};
    PortPtr port = state.findPort(fieldText(data.psztPortName));
    if (!port || !port->tcp) return {ERROR_UNKNOWN_PORT};
    if (state.portInUse(port->name)) return {ERROR_BUSY};
    state.erasePort(port->name);
    return {};
}

// The PORT_DATA_1 of the port the handle was opened on; a handle of the
// monitor itself names no port (ERROR_INVALID_PARAMETER).
XcvReply getConfigInfo(SpoolerState& state, const SpoolerHandle& handle, const XcvRequest& request) {
    if (handle.kind != HandleKind::Port) return {ERROR_INVALID_PARAMETER};
    CONFIG_INFO_DATA_1 data;
    if (DWORD error = readInput(request, data)) return {error};
    PortPtr port = state.findPort(handle.portName);
    if (!port || !port->tcp) return {ERROR_UNKNOWN_PORT};
    PORT_DATA_1 reply = portDataOf(*port);
    return writeOutput(request, &reply, sizeof reply);
}

XcvReply tcpMonitorCommand(SpoolerState& state, const SpoolerHandle& handle, const XcvRequest& request) {
    if (request.command == L"MonitorUI") return monitorUi(request, handle, L"tcpmonui.dll");
    if (request.command == L"GetConfigInfo") return getConfigInfo(state, handle, request);
    bool administers = request.command == L"AddPort" || request.command == L"DeletePort";
    if (!administers) return {ERROR_INVALID_PARAMETER};
    if (!(handle.granted & SERVER_ACCESS_ADMINISTER)) return {ERROR_ACCESS_DENIED};
    return request.command == L"AddPort" ? addPort(state, request) : deletePort(state, request);
}

XcvReply localMonitorCommand(const SpoolerHandle& handle, const XcvRequest& request) {
    if (request.command == L"MonitorUI") return monitorUi(request, handle, L"localui.dll");
    return {ERROR_INVALID_PARAMETER};
}

}  // namespace
}  // namespace winspool
}  // namespace simhost

using namespace simhost::winspool;

// The TCP/IP monitor's commands, with the statuses its Xcv interface
// documents: AddPort (PORT_DATA_1 in; ERROR_ALREADY_EXISTS for a port name
// the machine has) and DeletePort (DELETE_PORT_DATA_1 in; ERROR_BUSY while
// a printer prints to the port) need SERVER_ACCESS_ADMINISTER on the handle
// (else ERROR_ACCESS_DENIED); GetConfigInfo (CONFIG_INFO_DATA_1 in,
// PORT_DATA_1 out) needs a handle opened on the port. A missing or short
// input record: ERROR_INVALID_DATA; a dwVersion other than 1:
// ERROR_INVALID_LEVEL; an output buffer too small: ERROR_INSUFFICIENT_BUFFER
// with the size in *outputNeeded. Another command: ERROR_INVALID_PARAMETER.
// The call itself fails only when the monitor cannot be reached: a closed
// handle (ERROR_INVALID_HANDLE), a printer's handle (ERROR_INVALID_PARAMETER,
// MS-RPRN 3.1.4.1.11), a null command or needed-size (RPC_X_NULL_REF_POINTER),
// a null buffer with a size (ERROR_INVALID_USER_BUFFER). *status is
// optional; when the call fails it is left as it was.
BOOL WINAPI XcvDataW(HANDLE xcv, PCWSTR dataName, PBYTE inputData, DWORD inputSize, PBYTE outputData,
                     DWORD outputSize, PDWORD outputNeeded, PDWORD status) {
    if (DWORD e = simhost::injectedFailure("XcvDataW")) return succeedOrFail(e);
    if (!dataName || !outputNeeded) return succeedOrFail(RPC_X_NULL_REF_POINTER);
    if ((!inputData && inputSize) || (!outputData && outputSize)) return succeedOrFail(ERROR_INVALID_USER_BUFFER);
    XcvRequest request{dataName, inputData, inputSize, outputData, outputSize};
    return withSpooler([&](SpoolerState& state) {
        HandleLookup lookup = lookupXcvHandle(state, xcv);
        if (lookup.error) return succeedOrFail(lookup.error);
        const SpoolerHandle& handle = *lookup.handle;
        XcvReply reply = handle.monitor == &kTcpMonitor ? tcpMonitorCommand(state, handle, request)
                                                        : localMonitorCommand(handle, request);
        *outputNeeded = reply.needed;
        if (status) *status = reply.status;
        return TRUE;
    });
}
