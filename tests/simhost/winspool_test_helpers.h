// Shared arrangements of the spooler tests: a driver, TCP/IP ports, printer
// records built from strings the helper owns, and the two-call protocol of
// the Get and Enum calls done the way a careful caller does it.
#pragma once

#include "simhost/core/host.h"
#include "simhost/winspool/spooler.h"
#include "simhost/winspool/winspool.h"
#include "simhost/kernel32/kernel32.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace winspool_test {

constexpr const wchar_t* kDriver = L"Acme LaserBox 2000";
constexpr const wchar_t* kTcpMonitorXcv = L",XcvMonitor Standard TCP/IP Port";

class Spooler : public ::testing::Test {
protected:
    void SetUp() override { simhost::Host::get().reset(); }
    void TearDown() override { simhost::Host::get().reset(); }
};

inline void installDriver(const std::wstring& name = kDriver,
                          const std::wstring& environment = simhost::winspool::kLocalEnvironment,
                          const std::wstring& monitor = L"", const std::wstring& hardwareId = L"") {
    simhost::winspool::PrinterDriver driver;
    driver.name = name;
    driver.environment = environment;
    driver.monitorName = monitor;
    driver.hardwareId = hardwareId;
    simhost::winspool::addDriver(driver);
}

inline void addRawPort(const std::wstring& name, const std::wstring& host = L"127.0.1.20", DWORD portNumber = 9100) {
    simhost::winspool::PrinterPort port;
    port.name = name;
    simhost::winspool::TcpPortConfiguration tcp;
    tcp.hostAddress = host;
    tcp.ipAddress = host;
    tcp.portNumber = portNumber;
    port.tcp = tcp;
    simhost::winspool::addPort(port);
}

// A printer of the host API on an existing port and the test driver.
inline void addPrinterOn(const std::wstring& name, const std::wstring& port,
                         std::vector<simhost::winspool::PrintJob> jobs = {}) {
    simhost::winspool::SpoolerPrinter printer;
    printer.name = name;
    printer.portName = port;
    printer.driverName = kDriver;
    printer.jobs = std::move(jobs);
    simhost::winspool::addPrinter(printer);
}

// A PRINTER_INFO_2W over strings this object keeps alive.
struct PrinterRequest {
    std::wstring name;
    std::wstring port;
    std::wstring driver = kDriver;
    std::wstring processor = L"winprint";
    std::wstring datatype = L"RAW";
    std::wstring comment;
    std::wstring location;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    DEVMODEW* devMode = nullptr;
    DWORD attributes = PRINTER_ATTRIBUTE_NETWORK | PRINTER_ATTRIBUTE_RAW_ONLY;

    PRINTER_INFO_2W info() {
        PRINTER_INFO_2W record{};
        record.pPrinterName = name.data();
        record.pPortName = port.data();
        record.pDriverName = driver.data();
        record.pPrintProcessor = processor.data();
        record.pDatatype = datatype.data();
        record.pComment = comment.data();
        record.pLocation = location.data();
        record.pSecurityDescriptor = descriptor;
        record.pDevMode = devMode;
        record.Attributes = attributes;
        return record;
    }
};

inline HANDLE addPrinter(PrinterRequest request) {
    PRINTER_INFO_2W info = request.info();
    return AddPrinterW(nullptr, 2, reinterpret_cast<LPBYTE>(&info));
}

inline HANDLE openPrinter(const std::wstring& name, ACCESS_MASK access) {
    PRINTER_DEFAULTSW defaults{nullptr, nullptr, access};
    HANDLE handle = INVALID_HANDLE_VALUE;
    std::wstring writable = name;
    EXPECT_TRUE(OpenPrinterW(writable.data(), &handle, &defaults)) << "open " << GetLastError();
    return handle;
}

// The size query, then the fetch into a block of exactly that size.
inline std::vector<BYTE> twoCalls(const std::function<BOOL(LPBYTE, DWORD, LPDWORD)>& call) {
    DWORD needed = 0;
    if (call(nullptr, 0, &needed)) return {};
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    std::vector<BYTE> block(needed);
    DWORD used = 0;
    EXPECT_TRUE(call(block.data(), needed, &used)) << "fetch " << GetLastError();
    EXPECT_EQ(used, needed);
    return block;
}

inline std::vector<BYTE> getPrinter(HANDLE printer, DWORD level) {
    return twoCalls([&](LPBYTE buffer, DWORD size, LPDWORD needed) {
        return GetPrinterW(printer, level, buffer, size, needed);
    });
}

// An enumeration's block and count.
struct Listing {
    std::vector<BYTE> block;
    DWORD count = 0;
};

inline Listing enumerate(const std::function<BOOL(LPBYTE, DWORD, LPDWORD, LPDWORD)>& call) {
    Listing listing;
    listing.block = twoCalls([&](LPBYTE buffer, DWORD size, LPDWORD needed) {
        return call(buffer, size, needed, &listing.count);
    });
    return listing;
}

// Whether a pointer lies inside the block a call filled.
inline bool inside(const void* pointer, const std::vector<BYTE>& block) {
    const BYTE* at = static_cast<const BYTE*>(pointer);
    return at >= block.data() && at < block.data() + block.size();
}

template <class Record>
const Record* recordsOf(const std::vector<BYTE>& block) {
    return reinterpret_cast<const Record*>(block.data());
}

}  // namespace winspool_test
