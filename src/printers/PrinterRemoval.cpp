// Removal of a client's printers, guarded by the ownership of its logon
// session, and the setting of a printer's status.
#include "printers/PrinterRemoval.h"

#include "foundation/JsonGetters.h"
#include "foundation/SpoolerAccess.h"
#include "foundation/StaticLogger.h"
#include "foundation/TextConversion.h"
#include "printers/SessionIdentity.h"
#include "service/VexorPrintingService.h"

namespace {

// A missing `Status` reads as this value, which therefore cannot be set.
constexpr unsigned kNoStatus = 0xFFFFFFFF;

bool isUsableHandle(HANDLE handle) { return handle && handle != INVALID_HANDLE_VALUE; }

bool openPrinterForRemoval(const std::wstring& name, HANDLE& printer) {
    PRINTER_DEFAULTSW defaults = {nullptr, nullptr, PrinterUtil::kPrinterAllAccess};
    return OpenPrinter2W(name.c_str(), &printer, &defaults, nullptr) != FALSE;
}

}  // namespace

namespace PrinterUtil {

int setPrinterStatus(const wchar_t* printerName, DWORD status) {
    VX_LOG(kLogNormal, kNoLastError, 3, "setPrinterStatus(%u):%ls", static_cast<unsigned>(status),
           printerName ? printerName : L"");
    if (!printerName || !*printerName) {
        VX_LOG(kLogError, kNoLastError, 5, "setPrinterStatus() called with no printerName");
        return 0;
    }
    HANDLE printer = nullptr;
    if (!openPrinterForRemoval(printerName, printer)) {
        VX_LOG(kLogError, kWithLastError, 5, "Failed to open printer %ls", printerName);
        return 0;
    }
    PRINTER_INFO_6 info;
    info.dwStatus = status;
    int result = 1;
    if (!SetPrinterW(printer, 6, reinterpret_cast<LPBYTE>(&info), 0)) {
        VX_LOG(kLogError, kWithLastError, 5, "SetPrinter failed to set the status of printer");
        result = 0;
    }
    if (!ClosePrinter(printer)) VX_LOG(kLogError, kWithLastError, 4, "Failed to close printer");
    return result;
}

BOOL deletePrinter(HANDLE printer) {
    if (!isUsableHandle(printer)) {
        VX_LOG(kLogNormal, kNoLastError, 2, "Invalid handle");
        return 0;
    }
    // The deletion goes ahead even when the purge failed.
    removeJobsFromQueue(printer);
    return DeletePrinter(printer);
}

void removeJobsFromQueue(HANDLE printer) {
    if (!isUsableHandle(printer)) {
        VX_LOG(kLogNormal, kNoLastError, 2, "Invalid handle");
        return;
    }
    if (!SetPrinterW(printer, 0, nullptr, PRINTER_CONTROL_PURGE))
        VX_LOG(kLogError, kWithLastError, 2, "Failed to remove jobs from queue");
}

}  // namespace PrinterUtil

// Every doubt counts against the sender: a sender, printer or descriptor
// that cannot be known owns nothing.
bool VexorPrintingService::doesSenderOwnPrinter(const Json::Value& request) {
    const unsigned senderPid = getJsonUInt("_senderPID", request, 0);
    if (senderPid == 0) {
        VX_LOG(kLogError, kNoLastError, 6, "Required _senderPID member missing from json request.");
        return false;
    }
    const std::string senderSid = PrinterUtil::processIdToSessionSecurityId(senderPid);
    if (senderSid.empty()) {
        VX_LOG(kLogError, kNoLastError, 4, "Unable to verify printer ownership because we don't know senders id.");
        return false;
    }
    const std::wstring name = getJsonWString("printerName", request, L"");
    if (name.empty()) {
        VX_LOG(kLogError, kNoLastError, 4, "'printerName' parameter missing from request msg");
        return false;
    }
    const std::string descriptor = PrinterUtil::GetPrinterSecurityDescriptorString(name.c_str());
    if (descriptor.empty()) {
        VX_LOG(kLogError, kNoLastError, 4, "Unable to verify printer ownership because we don't know printers security");
        return false;
    }
    VX_LOG(kLogNormal, kNoLastError, 2, "Sender SID:%s Printer security descriptor:%s", senderSid.c_str(),
           descriptor.c_str());
    // A plain substring test: any entry naming the session, whatever its
    // kind, rights or position, makes the sender the owner.
    if (descriptor.find(senderSid) != std::string::npos) {
        VX_LOG(kLogNormal, kNoLastError, 2, "All good - Requester owns printer");
        return true;
    }
    VX_LOG(kLogError, kNoLastError, 5, "Request on printer from sender (pid:%u) that NOT own the printer", senderPid);
    return false;
}

// No ownership test of its own: the verbs that reach it have made one.
Json::Value VexorPrintingService::_deletePrinter(const Json::Value& request) {
    Json::Value reply(Json::objectValue);
    VX_LOG(kLogNormal, kNoLastError, 3, "_deletePrinter():%s", getJsonString("printerName", request, "").c_str());
    const std::wstring name = getJsonWString("printerName", request, L"");
    if (name.empty()) {
        reply["err"] = "_deletePrinter() called with no printerName";
        return reply;
    }
    HANDLE printer = nullptr;
    if (!openPrinterForRemoval(name, printer)) {
        // A printer that cannot be opened counts as gone.
        VX_LOG(kLogError, kWithLastError, 3,
               "Failed to open printer %ls (This could well be because we didnt create it in the first place)",
               name.c_str());
    } else {
        if (!PrinterUtil::deletePrinter(printer)) {
            VX_LOG(kLogError, kWithLastError, 5, "Failed to delete printer");
            reply["err"] = "DeletePrinter() call failed";
        }
        if (!ClosePrinter(printer)) VX_LOG(kLogError, kWithLastError, 4, "Failed to close printer");
    }
    if (!reply.isMember("err")) reply["status"] = "success";
    return reply;
}

// The port goes whatever became of the printer; a port that cannot be
// removed is left to the reaper and not reported.
Json::Value VexorPrintingService::_deletePrinterAndPort(const Json::Value& request) {
    Json::Value reply(Json::objectValue);
    reply["status"] = "fail";
    if (!doesSenderOwnPrinter(request)) {
        reply["err"] = "Printer not owned by sender";
        VX_LOG(kLogNormal, kNoLastError, 4, "Refusing printer delete request based on sender");
        return reply;
    }
    const std::wstring name = getJsonWString("printerName", request, L"");
    if (name.empty()) {
        reply["err"] = "Printer 'printerName' parameter missing from request msg";
        VX_LOG(kLogError, kNoLastError, 4, "%s", reply["err"].asCString());
        return reply;
    }
    std::string portName;
    if (PRINTER_INFO_2W* info = PrinterUtil::getPrinter(name.c_str())) {
        portName = wideToUtf8(info->pPortName ? info->pPortName : L"");
        GlobalFree(info);
    } else {
        reply["warn"] = "Couldn't get PPort name for Printer";
        VX_LOG(kLogError, kWithLastError, 4, "GetPrinter 2 Failed");
    }
    reply = _deletePrinter(request);
    Json::Value portRequest(Json::objectValue);
    portRequest["name"] = portName;
    _deletePrinterPort(portRequest);
    if (!reply.isMember("err")) reply["status"] = "success";
    return reply;
}

Json::Value VexorPrintingService::_setPrinterStatus(const Json::Value& request) {
    Json::Value reply(Json::objectValue);
    const unsigned status = getJsonUInt("Status", request, kNoStatus);
    const std::string narrowName = getJsonString("printerName", request, "");
    VX_LOG(kLogNormal, kNoLastError, 3, "_setPrinterStatus(%u):%s", status, narrowName.c_str());
    const std::wstring name = getJsonWString("printerName", request, L"");
    if (name.empty()) {
        reply["err"] = "_setPrinterStatus() called with no printerName";
        return reply;
    }
    if (status == kNoStatus) {
        reply["err"] = "_setPrinterStatus() called with no Status";
        return reply;
    }
    if (!PrinterUtil::setPrinterStatus(name.c_str(), status)) reply["err"] = "PrinterUtil::setPrinterStatus failed";
    if (!reply.isMember("err")) {
        VX_LOG(kLogNormal, kNoLastError, 3, "_setPrinterStatus(%u) success:%s", status, narrowName.c_str());
        reply["status"] = "success";
    }
    return reply;
}
