// The print spooler of the simulated machine, as tests and host files arrange
// and inspect it: installed printer drivers, ports with their monitors,
// printers with their security, device mode and job queue, and the default
// printer of each user. The winspool calls of simhost/winspool/winspool.h
// read and change the same model. Printer, port, driver and environment
// names compare regardless of case, as the spooler compares them.
#pragma once

#include "simhost/winspool/winspool.h"

#include <optional>
#include <string>
#include <vector>

namespace simhost {
namespace winspool {

// The processor architecture of this machine's drivers, which
// EnumPrinterDriversW lists for a null environment and AddPrinterW requires.
constexpr const wchar_t* kLocalEnvironment = L"Windows x64";
// The monitor names a port reports in PORT_INFO_2.
constexpr const wchar_t* kTcpMonitorName = L"TCPMON.DLL";
constexpr const wchar_t* kLocalPortMonitorName = L"Local Port";
// What the spooler gives a printer added without a security descriptor.
constexpr const wchar_t* kDefaultPrinterSddl =
    L"O:SYG:SYD:(A;;LCSWSDRCWDWO;;;SY)(A;OIIO;GA;;;CO)(A;;SWRC;;;WD)(A;CIIO;GX;;;WD)(A;;LCSWSDRCWDWO;;;BA)"
    L"(A;OICIIO;GA;;;BA)";

// ---- Drivers ----

struct PrinterDriver {
    std::wstring name;
    std::wstring environment = kLocalEnvironment;
    std::wstring hardwareId;   // empty: none
    std::wstring monitorName;  // the language monitor; empty: none
    // The default device mode: a DEVMODEW whose dmSize and dmDriverExtra
    // say where its private bytes end. Empty: a typical one (typicalDevMode).
    std::vector<BYTE> devMode;
};

// A device mode block: the record, then its private bytes. dmSize and
// dmDriverExtra are set to match.
std::vector<BYTE> devModeBlock(DEVMODEW publicPart, const std::vector<BYTE>& privateBytes = {});
// The public part of a block (zeros where the block is shorter) and the
// private bytes behind it.
DEVMODEW devModeRecord(const std::vector<BYTE>& block);
std::vector<BYTE> devModePrivateBytes(const std::vector<BYTE>& block);
// A driver's device mode when none is given: portrait Letter, one copy,
// colour, simplex, collated, 600 dpi, the device name cut to 31 characters.
DEVMODEW typicalDevMode(const std::wstring& deviceName);

// ---- Ports ----

// What the TCP/IP port monitor keeps of a port: the fields of PORT_DATA_1.
struct TcpPortConfiguration {
    std::wstring hostAddress;
    std::wstring ipAddress;
    DWORD portNumber = 9100;
    DWORD protocol = PROTOCOL_RAWTCP_TYPE;
    std::wstring queue;
    std::wstring snmpCommunity;
    DWORD snmpEnabled = 0;
    DWORD snmpDeviceIndex = 0;
    DWORD doubleSpool = 0;
};

struct PrinterPort {
    std::wstring name;
    std::wstring monitorName = kTcpMonitorName;  // kTcpMonitorName or kLocalPortMonitorName
    std::wstring description;                    // empty: the monitor's
    DWORD portType = 0;                          // PORT_TYPE_* bits; 0: the monitor's
    std::optional<TcpPortConfiguration> tcp;     // a TCP/IP port's configuration
};

// ---- Printers and their jobs ----

struct PrintJob {
    DWORD id = 0;               // given when queued; 0 asks for the next id
    std::wstring name;          // who submitted it, as the queue lists it
    std::wstring document;      // the document's title
    std::vector<BYTE> data;     // what goes to the port
};

struct SpoolerPrinter {
    std::wstring name;
    std::wstring shareName;
    std::wstring portName;
    std::wstring driverName;
    std::wstring comment;
    std::wstring location;
    std::wstring separatorFile;
    std::wstring printProcessor = L"winprint";
    std::wstring datatype = L"RAW";
    std::wstring parameters;
    DWORD attributes = PRINTER_ATTRIBUTE_LOCAL;
    DWORD priority = 1;
    DWORD defaultPriority = 0;
    DWORD startTime = 0;
    DWORD untilTime = 0;
    DWORD status = 0;
    // Self-relative; empty on adding: the spooler's default descriptor.
    std::vector<BYTE> securityDescriptor;
    // A device mode block (devModeBlock); empty on adding: the driver's,
    // named after the printer.
    std::vector<BYTE> devMode;
    std::vector<PrintJob> jobs;
    // Inspection only: deleted while still open or printing.
    bool pendingDeletion = false;
    size_t openHandles = 0;
};

// ---- Arranging the spooler ----
// Each throws std::invalid_argument, with the reason, for what the spooler
// would refuse: an empty or duplicate name, an unknown monitor, port,
// driver, print processor or datatype.

void addDriver(PrinterDriver driver);
void addPort(PrinterPort port);
void addPrinter(SpoolerPrinter printer);
// Queues a job and answers its id.
DWORD addJob(const std::wstring& printerName, PrintJob job);
// Makes a printer the default of a user, as SetDefaultPrinterW does for the
// user of the calling thread.
void setDefaultPrinterOf(const std::wstring& userSid, const std::wstring& printerName);
// Sets the `set` bits and clears the `clear` bits of a visible printer's
// attributes as the user of the calling thread, as a management provider
// changes them for its caller: ERROR_INVALID_PRINTER_NAME for no such
// printer, ERROR_ACCESS_DENIED for a user who may not administer it, else 0.
DWORD changePrinterAttributes(const std::wstring& printerName, DWORD set, DWORD clear);
// When set, the service's account may not administer the port monitors:
// opening ",XcvMonitor ..." or ",XcvPort ..." with SERVER_ACCESS_ADMINISTER
// fails with ERROR_ACCESS_DENIED. Until Host::reset.
void denyMonitorAdministration(bool denied = true);

// ---- Inspecting it ----

// The device mode a new printer of the driver starts with: the driver's,
// named after the printer. Empty when the driver is not installed for this
// machine's environment.
std::vector<BYTE> startingDevMode(const std::wstring& driverName, const std::wstring& printerName);

std::vector<PrinterDriver> drivers();
// The local ports every machine has come first, then the others in the
// order they were added.
std::vector<PrinterPort> ports();
std::optional<PrinterPort> findPort(const std::wstring& name);
// Printers pending deletion included.
std::vector<SpoolerPrinter> printers();
std::optional<SpoolerPrinter> findPrinter(const std::wstring& name);
// The default printer of each user, by the user's SID text.
std::vector<std::pair<std::wstring, std::wstring>> defaultPrinters();
std::optional<std::wstring> defaultPrinterOf(const std::wstring& userSid);
// Printer and Xcv handles not closed, for leak tests.
size_t openSpoolerHandleCount();

// ---- Printing ----

struct PrintOutcome {
    bool delivered = false;
    DWORD jobId = 0;      // 0 when the job was not queued
    std::string failure;  // why it was not delivered
    std::string endpoint;  // "address:port" the job went or was to go to; empty before
};

// Submits a job to a printer and prints it as the spooler would: to a RAW
// TCP/IP port, over a real TCP connection to the port's host address and
// port number, with the job's bytes as they are. A delivered job leaves the
// queue; one that could not be delivered (printer paused or offline, port
// unreachable, not a RAW TCP/IP port) stays queued, as a real queue keeps it.
PrintOutcome printJob(const std::wstring& printerName, const std::vector<BYTE>& bytes,
                      const std::wstring& document = L"Simulated document");

// ---- Security descriptors ----

// The self-relative descriptor of an SDDL text; throws std::invalid_argument
// for a text the platform refuses.
std::vector<BYTE> descriptorFromSddl(const std::wstring& sddl);
// The owner, group and DACL of a self-relative descriptor as SDDL text.
std::wstring sddlOfDescriptor(const std::vector<BYTE>& descriptor);

}  // namespace winspool
}  // namespace simhost
