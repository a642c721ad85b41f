#include "foundation/SpoolerAccess.h"

#include "foundation/StaticLogger.h"

#include <cstdlib>
#include <string>

namespace {

constexpr DWORD kEnumLocalAndConnections = PRINTER_ENUM_LOCAL | PRINTER_ENUM_CONNECTIONS;
constexpr DWORD kPrintersLevel = 2;
constexpr DWORD kPortsLevel = 2;
constexpr DWORD kConfigInfoVersion = 1;

}  // namespace

namespace PrinterUtil {

BYTE* getPrinter(HANDLE printer, DWORD level) {
    DWORD needed = 0;
    GetPrinterW(printer, level, nullptr, 0, &needed);
    if (needed == 0) {
        VX_LOG(kLogError, kWithLastError, 4, "GetPrinter for size failed error:");
        return nullptr;
    }
    BYTE* block = static_cast<BYTE*>(GlobalAlloc(GPTR, needed));
    if (!block) {
        VX_LOG(kLogError, kWithLastError, 5, "GlobalAlloc");
        return nullptr;
    }
    // No second try: a record that grew since the size query is a failure.
    if (!GetPrinterW(printer, level, block, needed, &needed)) {
        VX_LOG(kLogError, kWithLastError, 5, "GetPrinter failed to get printer data:%u", static_cast<unsigned>(level));
        GlobalFree(block);
        return nullptr;
    }
    return block;
}

PRINTER_INFO_2W* getPrinter(const wchar_t* printerName) {
    VX_LOG(kLogNormal, kNoLastError, 3, "getPrinter():%ls", printerName ? printerName : L"");
    if (!printerName || !*printerName) {
        VX_LOG(kLogError, kNoLastError, 5, "getPrinter() called with no printerName");
        return nullptr;
    }
    HANDLE printer = nullptr;
    PRINTER_DEFAULTSW defaults = {nullptr, nullptr, PRINTER_ACCESS_USE};
    if (!OpenPrinter2W(printerName, &printer, &defaults, nullptr)) {
        VX_LOG(kLogError, kWithLastError, 4, "Failed to open printer %ls", printerName);
        return nullptr;
    }
    BYTE* block = getPrinter(printer, kPrintersLevel);
    if (!ClosePrinter(printer)) VX_LOG(kLogError, kWithLastError, 4, "Failed to close printer");
    return reinterpret_cast<PRINTER_INFO_2W*>(block);
}

int getPrintersInfo(PRINTER_INFO_2W** printers) {
    *printers = nullptr;
    VX_LOG(kLogNormal, kNoLastError, 2, "getPrintersInfo() level:%u", static_cast<unsigned>(kPrintersLevel));
    DWORD needed = 0, returned = 0;
    auto enumerate = [&](BYTE* block, DWORD size) {
        return EnumPrintersW(kEnumLocalAndConnections, nullptr, kPrintersLevel, block, size, &needed, &returned);
    };
    auto succeeded = [&](BYTE* block) {
        *printers = reinterpret_cast<PRINTER_INFO_2W*>(block);
        VX_LOG(kLogNormal, kNoLastError, 2, "getPrintersInfo() level:%u returning:%u results",
               static_cast<unsigned>(kPrintersLevel), static_cast<unsigned>(returned));
        return static_cast<int>(returned);
    };
    if (!enumerate(nullptr, 0) && GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
        VX_LOG(kLogError, kWithLastError, 4, "EnumPrinters unexpectedly failed with:");
        return -1;
    }
    if (needed == 0) {
        VX_LOG(kLogNormal, kNoLastError, 3, "getPrintersInfo found no printers");
        return 0;
    }
    BYTE* block = static_cast<BYTE*>(GlobalAlloc(GPTR, needed));
    if (!block) {
        VX_LOG(kLogError, kWithLastError, 5, "GlobalAlloc");
        return -1;
    }
    if (enumerate(block, needed)) return succeeded(block);
    if (GetLastError() == ERROR_INSUFFICIENT_BUFFER) {
        VX_LOG(kLogError, kNoLastError, 3,
               "getPrintersInfo() trying for second EnumPrinters call. This happens some times. Weird timing.");
        // The byte count and the flags stand in each other's places, as the
        // service has always called it: the block does not grow to the size.
        BYTE* resized = static_cast<BYTE*>(GlobalReAlloc(block, GPTR, needed));
        if (!resized) {
            VX_LOG(kLogError, kWithLastError, 5, "GlobalAlloc");
            return -1;
        }
        block = resized;
    }
    if (enumerate(block, needed)) return succeeded(block);
    VX_LOG(kLogError, kWithLastError, 5, "getPrintersInfo failed to get printer driver data:%u",
           static_cast<unsigned>(kPrintersLevel));
    GlobalFree(block);
    return -1;
}

int getPrinterPortInfo2(PORT_INFO_2W** ports) {
    *ports = nullptr;
    DWORD needed = 0, returned = 0;
    if (!EnumPortsW(nullptr, kPortsLevel, nullptr, 0, &needed, &returned)) {
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
            VX_LOG(kLogNormal, kNoLastError, 2, "EnumPorts returned an error, 0x%lx",
                   static_cast<unsigned long>(GetLastError()));
            return 0;
        }
        VX_LOG(kLogNormal, kNoLastError, 2, "EnumPorts requested:%u bytes", static_cast<unsigned>(needed));
    }
    if (needed == 0) {
        VX_LOG(kLogNormal, kNoLastError, 3, "Found no PRINTER_PORTs");
        return 0;
    }
    BYTE* block = static_cast<BYTE*>(std::malloc(needed));
    if (!block) {
        VX_LOG(kLogError, kWithLastError, 5, "PORT_INFO_2 malloc %u bytes", static_cast<unsigned>(needed));
        return -1;
    }
    if (EnumPortsW(nullptr, kPortsLevel, block, needed, &needed, &returned)) {
        *ports = reinterpret_cast<PORT_INFO_2W*>(block);
        VX_LOG(kLogNormal, kNoLastError, 2, "found:%u PRINTER_PORTs", static_cast<unsigned>(returned));
        return static_cast<int>(returned);
    }
    VX_LOG(kLogError, kNoLastError, 4, "EnumPorts failed with error code:%u", static_cast<unsigned>(GetLastError()));
    std::free(block);
    return -static_cast<int>(GetLastError());
}

bool openPortToAdminister(const wchar_t* portName, HANDLE* monitor, const char* caller, const char* failureLine) {
    std::wstring xcvPort = std::wstring(L",XcvPort ") + portName;
    PRINTER_DEFAULTSW defaults = {nullptr, nullptr, SERVER_ACCESS_ADMINISTER};
    if (OpenPrinterW(&xcvPort[0], monitor, &defaults)) return true;
    VX_LOG_AS(caller, kLogError, kWithLastError, 4, "%s", failureLine);
    if (GetLastError() == ERROR_ACCESS_DENIED)
        VX_LOG_AS(caller, kLogError, kNoLastError, 5, "Current Account set up without permissions to access Printer Ports.");
    return false;
}

int getPrinterPortData1(const wchar_t* portName, PORT_DATA_1* portData) {
    VX_DECLARE_FUNCTION_NAME(self);
    VX_LOG(kLogNormal, kNoLastError, 3, "getPrinterPortData1:%ls", portName);
    HANDLE monitor = nullptr;
    if (!openPortToAdminister(portName, &monitor, self.c_str(), " Failed to open port monitor (TCPMON) with:")) return 0;
    CONFIG_INFO_DATA_1 configInfo;
    configInfo.dwVersion = kConfigInfoVersion;
    DWORD needed = 0, status = 0;
    int found = 0;
    if (XcvDataW(monitor, L"GetConfigInfo", reinterpret_cast<PBYTE>(&configInfo), sizeof configInfo,
                 reinterpret_cast<PBYTE>(portData), sizeof *portData, &needed, &status)) {
        if (status == 0)
            found = 1;
        else
            VX_LOG(kLogError, kNoLastError, 4, "Printer Port GetConfigInfo failed with:%u", static_cast<unsigned>(status));
    } else {
        VX_LOG(kLogError, kNoLastError, 4, "XcvData() failed bad bStatus");
    }
    if (!ClosePrinter(monitor)) VX_LOG(kLogError, kWithLastError, 4, "Failed to close TCP/IP port monitor with:");
    return found;
}

}  // namespace PrinterUtil
