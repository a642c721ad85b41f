// The raw TCP/IP ports that point at a plugin's listener, made and removed
// through the spooler's standard TCP/IP port monitor.
#include "printers/PrinterPorts.h"

#include "foundation/JsonGetters.h"
#include "foundation/StaticLogger.h"
#include "service/VexorPrintingService.h"

#include <cstring>
#include <string>

namespace {

constexpr DWORD kPortNameCapacity = 64;
constexpr DWORD kHostAddressCapacity = 49;
constexpr DWORD kIpAddressCapacity = 16;
constexpr DWORD kPortDataVersion = 1;
constexpr DWORD kRawTcpProtocol = 1;

// The monitor's records take text in the system's ANSI code page, the
// terminating NUL counted against the field's capacity. 0 when the text does
// not fit or does not convert.
int toAnsiField(const std::string& text, WCHAR* field, DWORD capacity) {
    return MultiByteToWideChar(CP_ACP, 0, text.c_str(), -1, field, static_cast<int>(capacity));
}

// Opens the monitor's transceive interface to administer it, for both
// handlers; on failure logs why under the handler's name and puts the reason
// in the reply. The texts name creation in removal too.
bool openPortMonitor(HANDLE& monitor, Json::Value& reply, const char* handler) {
    monitor = INVALID_HANDLE_VALUE;
    PRINTER_DEFAULTSW defaults = {nullptr, nullptr, SERVER_ACCESS_ADMINISTER};
    if (OpenPrinter2W(PrinterUtil::kTcpPortMonitor, &monitor, &defaults, nullptr)) return true;
    VX_LOG_AS(handler, kLogError, kWithLastError, 4, "Failed to open port monitor (TCPMON) with:");
    if (GetLastError() == ERROR_ACCESS_DENIED) {
        reply["err"] = "Account without permissions to create Printer Ports.";
        VX_LOG_AS(handler, kLogError, kNoLastError, 4, "%s", reply["err"].asCString());
    } else {
        reply["err"] = "Failed to open port monitor (TCPMON)";
    }
    return false;
}

}  // namespace

void PrinterUtil::closePortMonitor(HANDLE monitor, const char* handler) {
    if (!ClosePrinter(monitor))
        VX_LOG_AS(handler, kLogError, kWithLastError, 4, "Failed to close TCP/IP port monitor with:");
}

Json::Value VexorPrintingService::_addPrinterPort(const Json::Value& request) {
    VX_DECLARE_FUNCTION_NAME(handler);
    Json::Value reply(Json::objectValue);
    auto refuse = [&reply](const char* text) {
        reply["err"] = text;
        VX_LOG(kLogError, kNoLastError, 4, "%s", text);
        return reply;
    };
    const std::string ip = getJsonString("IP", request, "");
    const unsigned port = getJsonUInt("port", request, 0);
    const std::string portName = getJsonString("pPortName", request, "");
    if (port == 0) return refuse("Socket 'port' parameter missing from request msg");
    if (ip.empty()) return refuse("Socket 'IP' parameter missing from request msg");
    if (portName.empty()) return refuse("PPort 'name' parameter missing from request msg");

    HANDLE monitor;
    if (!openPortMonitor(monitor, reply, handler.c_str())) return reply;
    PORT_DATA_1 portData;
    std::memset(&portData, 0, sizeof portData);
    VX_LOG(kLogNormal, kNoLastError, 2, "Adding port:%s", portName.c_str());
    portData.dwVersion = kPortDataVersion;
    portData.dwProtocol = kRawTcpProtocol;
    portData.cbSize = sizeof portData;
    if (!toAnsiField(portName, portData.sztPortName, kPortNameCapacity) ||
        !toAnsiField(ip, portData.sztHostAddress, kHostAddressCapacity) ||
        !toAnsiField(ip, portData.sztIPAddress, kIpAddressCapacity)) {
        refuse("Failed string conversion");
        PrinterUtil::closePortMonitor(monitor, handler.c_str());
        return reply;
    }
    portData.dwPortNumber = port;
    DWORD needed = 0, status = 0;
    if (!XcvDataW(monitor, L"AddPort", reinterpret_cast<PBYTE>(&portData), sizeof portData, nullptr, 0, &needed,
                  &status)) {
        reply["err"] = "XcvData() failed";
        VX_LOG(kLogError, kWithLastError, 4, "%s", reply["err"].asCString());
    } else if (status == 0) {
        VX_LOG(kLogNormal, kNoLastError, 2, "Printer Port created!");
    } else {
        // The monitor's status goes nowhere; the line carries the thread's last error.
        reply["err"] = status == ERROR_ALREADY_EXISTS ? "Printer Port already exists" : "Printer Port add failed";
        VX_LOG(kLogError, kWithLastError, 4, "%s", reply["err"].asCString());
    }
    PrinterUtil::closePortMonitor(monitor, handler.c_str());
    if (!reply.isMember("err")) reply["status"] = "success";
    return reply;
}

Json::Value VexorPrintingService::_deletePrinterPort(const Json::Value& request) {
    VX_DECLARE_FUNCTION_NAME(handler);
    Json::Value reply(Json::objectValue);
    const std::string name = getJsonString("name", request, "");
    if (name.empty()) {
        reply["err"] = "PrinterPort 'name' parameter missing from request msg";
        VX_LOG(kLogError, kNoLastError, 4, "%s", reply["err"].asCString());
        return reply;
    }
    VX_LOG(kLogNormal, kNoLastError, 2, "Deleting PPort:%s", name.c_str());
    HANDLE monitor;
    if (!openPortMonitor(monitor, reply, handler.c_str())) return reply;
    DELETE_PORT_DATA_1 deleteData;
    std::memset(&deleteData, 0, sizeof deleteData);
    deleteData.dwVersion = kPortDataVersion;
    if (!toAnsiField(name, deleteData.psztPortName, kPortNameCapacity)) {
        reply["err"] = "Invalid port name";
        VX_LOG(kLogError, kNoLastError, 4, "%s", reply["err"].asCString());
        PrinterUtil::closePortMonitor(monitor, handler.c_str());
        return reply;
    }
    DWORD needed = 0, status = 0;
    if (!XcvDataW(monitor, L"DeletePort", reinterpret_cast<PBYTE>(&deleteData), sizeof deleteData, nullptr, 0,
                  &needed, &status)) {
        VX_LOG(kLogError, kWithLastError, 4, "XcvData() failed with:");
        reply["err"] = "XcvData() failed.";
    } else if (status != 0) {
        VX_LOG(kLogError, kWithLastError, 4, "Printer Port destroy failed with:");
        reply["err"] = "Printer Port destroy failed.";
    } else {
        VX_LOG(kLogNormal, kNoLastError, 2, "Printer Port:%s destroyed!", name.c_str());
        reply["status"] = "success";
    }
    PrinterUtil::closePortMonitor(monitor, handler.c_str());
    return reply;
}
