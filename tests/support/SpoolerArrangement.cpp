#include "support/SpoolerArrangement.h"

#include "simhost/winspool/spooler.h"

namespace testsupport {

namespace spooler = simhost::winspool;

void addTestDriver() { spooler::addDriver({kTestDriver, spooler::kLocalEnvironment, L"", L"", {}}); }

void addRawTcpPort(const std::wstring& name, DWORD portNumber, const std::wstring& address, DWORD protocol) {
    spooler::PrinterPort port;
    port.name = name;
    spooler::TcpPortConfiguration tcp;
    tcp.hostAddress = address;
    tcp.ipAddress = address;
    tcp.portNumber = portNumber;
    tcp.protocol = protocol;
    port.tcp = tcp;
    spooler::addPort(port);
}

void addTestPrinter(const std::wstring& name, const std::wstring& portName, const std::wstring& sddl) {
    spooler::SpoolerPrinter printer;
    printer.name = name;
    printer.portName = portName;
    printer.driverName = kTestDriver;
    if (!sddl.empty()) printer.securityDescriptor = spooler::descriptorFromSddl(sddl);
    spooler::addPrinter(printer);
}

}  // namespace testsupport
