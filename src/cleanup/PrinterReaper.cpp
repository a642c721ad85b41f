// The reaper's pass over the spooler's ports and the printers on them.
#include "cleanup/PrinterReaper.h"

#include "foundation/SpoolerAccess.h"
#include "foundation/StaticLogger.h"
#include "printers/PrinterPorts.h"
#include "printers/PrinterRemoval.h"
#include "service/VexorPrintingService.h"

#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

namespace {

// Every port of the service points at this loopback address.
constexpr const char* kPortAddress = "127.0.1.20";
constexpr const wchar_t* kPortAddressWide = L"127.0.1.20";
constexpr size_t kPortAddressLength = 10;
constexpr const wchar_t* kTcpMonitorFile = L"TCPMON.DLL";
constexpr DWORD kRawTcpProtocol = 1;
constexpr DWORD kDeletePortVersion = 1;
constexpr size_t kPortNameCapacity = 64;
// Both words stand in the names the plugin sends; the service adds neither.
constexpr const wchar_t* kProductWord = L"Vexor";
constexpr const wchar_t* kPrinterWord = L"Local";

// The word's first occurrence lands on the name's first character.
bool namedAsVexor(const wchar_t* name) { return name && std::wcsstr(name, kProductWord) == name; }

bool contains(const wchar_t* text, const wchar_t* word) { return text && std::wcsstr(text, word); }

const wchar_t* orEmpty(const wchar_t* text) { return text ? text : L""; }

// Whether the port can be the service's by its kind and monitor, with the
// lines of the pass that explain a port that cannot.
bool isTcpNetworkPort(const PORT_INFO_2W& port, const char* pass) {
    if (!(port.fPortType & PORT_TYPE_NET_ATTACHED)) {
        if (namedAsVexor(port.pPortName))
            VX_LOG_AS(pass, kLogError, kNoLastError, 3,
                   "Port name (%ls) indicates it's a Vexor port but not a network port. Suspicious!", port.pPortName);
        return false;
    }
    if (!port.pMonitorName || std::wcscmp(port.pMonitorName, kTcpMonitorFile) != 0) {
        VX_LOG_AS(pass, kLogNormal, kNoLastError, 3, "Port not Vexor, Monitor not TCPMON");
        if (namedAsVexor(port.pPortName))
            VX_LOG_AS(pass, kLogError, kNoLastError, 3,
                   "Port name (%ls) indicates it's a Vexor port but it's Port Monitor not TCPMON. Suspicious!",
                   port.pPortName);
        return false;
    }
    return true;
}

}  // namespace

namespace PrinterReaper {

uint32_t reapPrinterPorts(uint32_t force) {
    VX_DECLARE_FUNCTION_NAME(pass);
    PORT_INFO_2W* ports = nullptr;
    const int portCount = PrinterUtil::getPrinterPortInfo2(&ports);
    if (portCount == 0) {
        VX_LOG(kLogNormal, kNoLastError, 3, "Client found no PRINTER_PORTs");
        return 0;
    }
    sockaddr_in address;
    std::memset(&address, 0, sizeof address);
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = inet_addr(kPortAddress);
    uint32_t reaped = 0;
    // A negative count (a failed enumeration) walks no port.
    for (int i = 0; i < portCount; ++i) {
        const PORT_INFO_2W& port = ports[i];
        if (!isTcpNetworkPort(port, pass.c_str())) continue;
        address.sin_port = htons(static_cast<u_short>(getVexorPrinterPortTcpPortNumber(port.pPortName) & 0xFFFF));
        if (address.sin_port == 0) continue;
        uint32_t destroy = 1;
        if (isAddrBound(address) == 1) {
            destroy = force;
            VX_LOG(kLogNormal, kNoLastError, 3, "Vexor Printer Port socket listener in place - %s",
                   force ? "proceeding with destroy" : "ignoring");
        } else {
            VX_LOG(kLogNormal, kNoLastError, 3, "Vexor Printer Port socket listener *not* in place");
        }
        if (!reapPrinter(port.pPortName, destroy)) {
            VX_LOG(kLogError, kNoLastError, 4,
                   "We thought PPort (%ls) was a Vexor port but the printer using it is not VEXOR!", port.pPortName);
            continue;
        }
        if (!destroy) {
            VX_LOG(kLogNormal, kNoLastError, 3, "Ignoring abandoned Vexor Printer Port");
            continue;
        }
        if (deletePrinterPort(port.pPortName)) {
            VX_LOG(kLogError, kNoLastError, 5, "Reaped abandoned Printer Port:%ls", port.pPortName);
            ++reaped;
        }
    }
    free(ports);
    return reaped;
}

uint32_t getVexorPrinterPortTcpPortNumber(const wchar_t* portName) {
    PORT_DATA_1 data;
    std::memset(&data, 0, sizeof data);
    if (!PrinterUtil::getPrinterPortData1(portName, &data)) {
        VX_LOG(kLogNormal, kNoLastError, 3, "Couldn't get config info assuming not Vexor");
        return 0;
    }
    // Only the address's own ten characters are compared: 127.0.1.201 passes.
    if (std::wcsncmp(data.sztHostAddress, kPortAddressWide, kPortAddressLength) != 0) {
        VX_LOG(kLogNormal, kNoLastError, 3, "Port not Vexor, IP not 127.0.1.20 rather:%ls", data.sztHostAddress);
        if (namedAsVexor(portName))
            VX_LOG(kLogError, kNoLastError, 3,
                   "Port name (%ls) indicates it's a Vexor port but it's IP is not 127.0.1.20. Suspicious!", portName);
        return 0;
    }
    if (data.dwProtocol != kRawTcpProtocol) {
        VX_LOG(kLogNormal, kNoLastError, 3, "Port not Vexor, protocol RAW TCP, rather:%u",
               static_cast<unsigned>(data.dwProtocol));
        if (namedAsVexor(portName))
            VX_LOG(kLogError, kNoLastError, 3,
                   "Port name (%ls) indicates it's a Vexor port but it's protocol not RAW TCP. Suspicious!", portName);
        return 0;
    }
    return data.dwPortNumber;
}

// The socket is bound and closed, never listened on or connected, so the
// test disturbs nothing. Any failed bind counts as a held address.
int isAddrBound(const sockaddr_in& address) {
    SOCKET probe = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    if (probe == INVALID_SOCKET) {
        const int error = WSAGetLastError();
        if (error != WSANOTINITIALISED) {
            VX_LOG(kLogError, kNoLastError, 5, "Failed to create socket with error: %u", static_cast<unsigned>(error));
            return 1;
        }
        // Started here and never stopped again.
        WSADATA data;
        if (WSAStartup(MAKEWORD(2, 2), &data) != 0)
            VX_LOG(kLogError, kNoLastError, 5, "Error at WSAStartup() Error Code : %d", WSAGetLastError());
        probe = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
        if (probe == INVALID_SOCKET) {
            VX_LOG(kLogError, kNoLastError, 5, "Failed to create socket with error: %u",
                   static_cast<unsigned>(WSAGetLastError()));
            return 1;
        }
    }
    const int result = bind(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    closesocket(probe);
    return result == SOCKET_ERROR ? 1 : 0;
}

// A port that a foreign printer uses is not the service's to remove; the
// walk goes on so that the service's printers on it still go.
int reapPrinter(const wchar_t* portName, uint32_t destroy) {
    PRINTER_INFO_2W* printers = nullptr;
    const int printerCount = PrinterUtil::getPrintersInfo(&printers);
    if (printerCount <= 0) {
        if (printerCount == 0)
            VX_LOG(kLogNormal, kNoLastError, 3, "Found no printers");
        else
            VX_LOG(kLogError, kNoLastError, 4, "Failed to find printers");
        if (printers) GlobalFree(printers);
        return 1;
    }
    int result = 1;
    for (int i = 0; i < printerCount; ++i) {
        const PRINTER_INFO_2W& printer = printers[i];
        if (!printer.pPortName || std::wcscmp(printer.pPortName, portName) != 0) continue;
        if (isPrinterVexor(printer)) {
            VX_LOG(kLogNormal, kNoLastError, 3, "Found Vexor printer:%ls\n", orEmpty(printer.pPrinterName));
            if (destroy) DestroyPrinter(std::wstring(orEmpty(printer.pPrinterName)).c_str());
        } else {
            VX_LOG(kLogNormal, kNoLastError, 3, "Non-Vexor printer:%ls\n", orEmpty(printer.pPrinterName));
            result = 0;
        }
    }
    GlobalFree(printers);
    return result;
}

int isPrinterVexor(const PRINTER_INFO_2W& printer) {
    if (!contains(printer.pPrinterName, kPrinterWord)) {
        VX_LOG(kLogNormal, kNoLastError, 2, "Printer not 'Local': no 'Local' in name:%ls", orEmpty(printer.pPrinterName));
        return 0;
    }
    if (!contains(printer.pPortName, kProductWord)) {
        VX_LOG(kLogNormal, kNoLastError, 2, "Printer port not 'Vexor': no 'Local' in name:%ls",
               orEmpty(printer.pPrinterName));
        return 0;
    }
    return 1;
}

int DestroyPrinter(const wchar_t* printerName) {
    // OpenPrinterW takes a writable name.
    std::vector<wchar_t> name(printerName, printerName + std::wcslen(printerName) + 1);
    HANDLE printer = nullptr;
    PRINTER_DEFAULTSW defaults = {nullptr, nullptr, PRINTER_ALL_ACCESS};
    if (!OpenPrinterW(name.data(), &printer, &defaults)) {
        VX_LOG(kLogError, kWithLastError, 4, "Failed to open printer %ls", printerName);
        return 0;
    }
    const int deleted = PrinterUtil::deletePrinter(printer) == 1 ? 1 : 0;
    if (!deleted) VX_LOG(kLogError, kWithLastError, 4, "Failed to delete printer %ls", printerName);
    if (!ClosePrinter(printer)) VX_LOG(kLogError, kWithLastError, 4, "Failed to close printer %ls", printerName);
    return deleted;
}

int deletePrinterPort(const wchar_t* portName) {
    VX_DECLARE_FUNCTION_NAME(self);
    HANDLE monitor = nullptr;
    if (!PrinterUtil::openPortToAdminister(portName, &monitor, self.c_str(), "Failed to open port monitor (TCPMON) with:"))
        return 0;
    DELETE_PORT_DATA_1 deleteData;
    std::memset(&deleteData, 0, sizeof deleteData);
    deleteData.dwVersion = kDeletePortVersion;
    std::wcsncpy(deleteData.psztPortName, portName, kPortNameCapacity - 1);
    DWORD needed = 0, status = 0;
    int deleted = 0;
    if (!XcvDataW(monitor, L"DeletePort", reinterpret_cast<PBYTE>(&deleteData), sizeof deleteData, nullptr, 0,
                  &needed, &status)) {
        VX_LOG(kLogError, kWithLastError, 4, "XcvData() failed with:");
    } else if (status != 0) {
        VX_LOG(kLogError, kWithLastError, 4, "Printer Port destroy failed with:");
    } else {
        VX_LOG(kLogNormal, kNoLastError, 2, "Printer Port destroyed!");
        deleted = 1;
    }
    PrinterUtil::closePortMonitor(monitor, self.c_str());
    return deleted;
}

}  // namespace PrinterReaper

Json::Value VexorPrintingService::_reapPrinters(const Json::Value&) {
    VX_LOG(kLogNormal, kNoLastError, 3, "_reapPrinters()");
    PrinterReaper::reapPrinterPorts(0);
    Json::Value reply(Json::objectValue);
    reply["status"] = "success";
    return reply;
}
