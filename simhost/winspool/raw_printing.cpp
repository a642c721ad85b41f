// Printing through a RAW TCP/IP port, as the standard TCP/IP port monitor
// does: the job's bytes go unchanged over one TCP connection to the port's
// host address and port number. The connection is made without the
// spooler's lock held, so a slow listener delays no other call.
#include "simhost/core/text.h"
#include "simhost/winspool/raw_port_socket.h"
#include "simhost/winspool/spooler_state.h"

#include <algorithm>

namespace simhost {
namespace winspool {
namespace {

constexpr int kSendTimeoutMilliseconds = 10000;

// Where a queued job goes, or why it cannot go now.
struct Destination {
    PrinterPtr printer;
    DWORD jobId = 0;
    std::string address;
    DWORD portNumber = 0;
    std::string failure;
};

std::string whyNotPrinting(const SpoolerPrinter& printer) {
    if (printer.status & PRINTER_STATUS_PAUSED) return "the printer is paused";
    if ((printer.status & PRINTER_STATUS_OFFLINE) || (printer.attributes & PRINTER_ATTRIBUTE_WORK_OFFLINE))
        return "the printer is offline";
    return {};
}

// The RAW TCP/IP port a printer prints to: the first of its ports.
std::string rawEndpoint(const SpoolerState& state, const SpoolerPrinter& printer, Destination& destination) {
    std::vector<std::wstring> names = portNamesOf(printer.portName);
    PortPtr port = names.empty() ? nullptr : state.findPort(names.front());
    if (!port || !port->tcp || port->tcp->protocol != PROTOCOL_RAWTCP_TYPE)
        return "port \"" + narrow(printer.portName) + "\" is not a RAW TCP/IP port";
    const TcpPortConfiguration& tcp = *port->tcp;
    destination.address = narrow(tcp.hostAddress.empty() ? tcp.ipAddress : tcp.hostAddress);
    destination.portNumber = tcp.portNumber;
    if (tcp.portNumber == 0 || tcp.portNumber > 65535) return "port number " + std::to_string(tcp.portNumber);
    return {};
}

Destination queueForPrinting(SpoolerState& state, const std::wstring& printerName, PrintJob job) {
    Destination destination;
    destination.printer = state.findVisiblePrinter(printerName);
    if (!destination.printer) {
        destination.failure = "no printer \"" + narrow(printerName) + "\"";
        return destination;
    }
    destination.jobId = queueJob(state, *destination.printer, std::move(job));
    destination.failure = whyNotPrinting(*destination.printer);
    if (destination.failure.empty()) destination.failure = rawEndpoint(state, *destination.printer, destination);
    return destination;
}

void finishJob(SpoolerState& state, const PrinterPtr& printer, DWORD jobId) {
    auto& jobs = printer->jobs;
    jobs.erase(std::remove_if(jobs.begin(), jobs.end(), [&](const PrintJob& job) { return job.id == jobId; }),
               jobs.end());
    state.retireIfFinished(printer);
}

}  // namespace

PrintOutcome printJob(const std::wstring& printerName, const std::vector<BYTE>& bytes, const std::wstring& document) {
    PrintJob job;
    job.name = L"SYSTEM";
    job.document = document;
    job.data = bytes;
    Destination destination =
        withSpooler([&](SpoolerState& state) { return queueForPrinting(state, printerName, std::move(job)); });
    if (!destination.failure.empty()) return {false, destination.jobId, destination.failure, {}};
    const std::string endpoint = destination.address + ":" + std::to_string(destination.portNumber);
    std::string failure = native::sendToRawPort(destination.address, static_cast<uint16_t>(destination.portNumber),
                                                bytes, kSendTimeoutMilliseconds);
    if (!failure.empty()) return {false, destination.jobId, failure, endpoint};
    withSpooler([&](SpoolerState& state) { finishJob(state, destination.printer, destination.jobId); });
    return {true, destination.jobId, {}, endpoint};
}

}  // namespace winspool
}  // namespace simhost
