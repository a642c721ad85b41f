// Printer creation: one client printer, described by a request, becomes a
// spooler printer on the plugin's port, with the driver selection chose,
// an access list tied to the sender's logon session, and, applied as the
// sender's user, the client's preferences and default printer.
//
// Every line belongs to _addPrinter, whichever step logs it.
#include "drivers/InstalledDrivers.h"
#include "foundation/JsonGetters.h"
#include "foundation/PolicySettings.h"
#include "foundation/StaticLogger.h"
#include "preferences/PrinterPreferences.h"
#include "preferences/WmiPrinterProperties.h"
#include "printers/PrinterRemoval.h"
#include "printers/PrinterSecurity.h"
#include "service/VexorPrintingService.h"

#include <cstdint>
#include <exception>

#define CREATION_LOG(channel, withLastError, level, ...) \
    VX_LOG_AS(self_, (channel), (withLastError), (level), __VA_ARGS__)

namespace {

constexpr DWORD kDefaultAttributes = PRINTER_ATTRIBUTE_NETWORK | PRINTER_ATTRIBUTE_RAW_ONLY;
// Read control; assign primary, duplicate, query, adjust privileges, adjust
// groups, adjust default, adjust session id.
constexpr DWORD kSenderTokenAccess = 0x201EB;
constexpr DWORD kDuplicateTokenAccess = MAXIMUM_ALLOWED | TOKEN_DUPLICATE | TOKEN_QUERY;

bool isBadHandle(HANDLE handle) { return handle == nullptr || handle == INVALID_HANDLE_VALUE; }

unsigned handleNumber(HANDLE handle) { return static_cast<unsigned>(reinterpret_cast<uintptr_t>(handle)); }

}  // namespace

// The state of one creation: the request, the reply, and the strings behind
// the printer record, which live until the creation returns.
class VexorPrintingService::PrinterCreation {
public:
    PrinterCreation(VexorPrintingService& service, const char* self, Json::Value& request)
        : service_(service), self_(self), request_(request) {}

    Json::Value run();

private:
    bool choosePrinterAndDriver();
    void composeRecord();
    std::wstring languageMonitorOfDriver();
    HANDLE addPrinter();
    HANDLE replaceStalePrinter();
    void logNewHandle(HANDLE printer);
    void applyAsSender(HANDLE printer, DWORD defaultPrinterPolicy);
    void applyPreferencesAndDefault(HANDLE printer, DWORD defaultPrinterPolicy);

    VexorPrintingService& service_;
    const char* self_;
    Json::Value& request_;
    Json::Value response_{Json::objectValue};
    Json::Value detail_{Json::objectValue};
    DWORD senderPid_ = 0;
    PRINTER_INFO_2W printerInfo_ = {};
    std::wstring clientPCName_, clientUserName_;
    std::wstring printerName_, driverName_, comment_, location_, parameters_, portName_;
    std::wstring printProcessor_ = L"winprint", datatype_ = L"RAW";
};

Json::Value VexorPrintingService::PrinterCreation::run() {
    CREATION_LOG(kLogNormal, kNoLastError, 2, "_addPrinter()");
    senderPid_ = getJsonUInt("_senderPID", request_, 0);
    if (senderPid_ == 0) {
        CREATION_LOG(kLogError, kNoLastError, 6, "Required _senderPID member missing from json request.");
        response_["status"] = "fail";
        response_["err"] = "no _senderPID";
        return response_;
    }
    service_.applyOverrideSettings(request_);
    response_["status"] = "fail";
    if (!choosePrinterAndDriver()) return response_;
    composeRecord();
    portName_ = getJsonWString("pPortName", request_, L"");
    if (portName_.empty()) {
        response_["err"] = "_addPrinter called with no pPortName";
        return response_;
    }
    printerInfo_.pPortName = &portName_[0];
    CREATION_LOG(kLogNormal, kNoLastError, 2, "_addPrinter called mapped driver:%ls", driverName_.c_str());
    printerInfo_.pPrintProcessor = &printProcessor_[0];
    printerInfo_.pDatatype = &datatype_[0];
    printerInfo_.pSecurityDescriptor = PrinterUtil::createSessionPrinterDescriptor(senderPid_, response_, self_);
    if (!printerInfo_.pSecurityDescriptor) return response_;
    const std::wstring languageMonitor = languageMonitorOfDriver();
    HANDLE printer = addPrinter();
    if (isBadHandle(printer)) {
        CREATION_LOG(kLogError, kNoLastError, 5, "Failed to create printer");
        response_["err"] = "Failed to add printer on: AddPrinter().";
        return response_;
    }
    if (!SetPrinterW(printer, 2, reinterpret_cast<LPBYTE>(&printerInfo_), 0))
        CREATION_LOG(kLogError, kWithLastError, 4, "SetPrinter error when applying settings:");
    if (!languageMonitor.empty()) {
        CREATION_LOG(kLogNormal, kNoLastError, 2, "Enabling BIDI");
        PrinterUtil::WMIPrinterRequest(printerName_, L"EnableBIDI", L"-1");
    }
    // Read as the service, before the work done as the sender.
    const DWORD defaultPrinterPolicy = getGPOValue(kEnableDefaultPrinter, kEnableDefaultPrinterDefault);
    applyAsSender(printer, defaultPrinterPolicy);
    if (!ClosePrinter(printer)) CREATION_LOG(kLogError, kWithLastError, 4, "Failed to close printer with:");
    if (request_.isMember("Status")) CREATION_LOG(kLogNormal, kNoLastError, 3, "STATUS");
    if (!response_.isMember("err")) {
        response_["status"] = "success";
        service_.portCreatedMark.store(0, std::memory_order_relaxed);
    }
    return response_;
}

// The printer's name and its driver; false with the reply complete when
// either is missing.
bool VexorPrintingService::PrinterCreation::choosePrinterAndDriver() {
    clientPCName_ = getJsonWString("clientPCName", request_, L"");
    clientUserName_ = getJsonWString("clientUserName", request_, L"");
    detail_["hwid"] = request_.get("hardwareId", "");
    detail_["driverNameReq"] = request_.get("driverName", "");
    detail_["printerName"] = request_.get("printerName", "");
    printerName_ = getJsonWString("printerName", request_, L"");
    if (printerName_.empty()) {
        response_["err"] = "_addPrinter called with no printerName";
        response_["detail"] = detail_;
        return false;
    }
    printerInfo_.pPrinterName = &printerName_[0];
    driverName_ = service_.selectDriver(request_, response_, detail_, comment_);
    if (driverName_.empty()) return false;
    printerInfo_.pDriverName = &driverName_[0];
    return true;
}

// Comment, location, parameters, attributes and the numbers the client
// gives, unchecked.
void VexorPrintingService::PrinterCreation::composeRecord() {
    comment_ += L"Vexor redirected printer.  Documents printed on this printer will appear locally";
    comment_ += clientPCName_.empty() ? L"." : L" on " + clientPCName_;
    printerInfo_.pComment = &comment_[0];
    // Without a client name the separator comes twice: "Vexor >>  >> text".
    location_ = clientPCName_.empty() ? L"Vexor >> " : L"Vexor to " + clientPCName_;
    std::wstring clientLocation = getJsonWString("pLocation", request_, L"");
    if (clientLocation.empty()) clientLocation = getJsonWString("printer-location", request_, L"");
    if (!clientLocation.empty()) location_ += L" >> " + clientLocation;
    printerInfo_.pLocation = &location_[0];
    parameters_ = getJsonWString("pParameters", request_, L"");
    if (!parameters_.empty()) printerInfo_.pParameters = &parameters_[0];
    printerInfo_.Attributes = getJsonUInt("OAttributes", request_, 0);
    if (printerInfo_.Attributes != 0)
        CREATION_LOG(kLogNormal, kNoLastError, 2, "Using override attributes:%u",
                     static_cast<unsigned>(printerInfo_.Attributes));
    else
        printerInfo_.Attributes = kDefaultAttributes;
    printerInfo_.Priority = getJsonUInt("Priority", request_, 0);
    printerInfo_.DefaultPriority = getJsonUInt("DefaultPriority", request_, 0);
    printerInfo_.StartTime = getJsonUInt("StartTime", request_, 0);
    printerInfo_.UntilTime = getJsonUInt("UntilTime", request_, 0);
    printerInfo_.Status = getJsonUInt("Status", request_, 0);
}

// The language monitor of the chosen driver, named exactly, case included;
// empty when it has none or is not listed.
std::wstring VexorPrintingService::PrinterCreation::languageMonitorOfDriver() {
    std::wstring monitor;
    BYTE* block = nullptr;
    const DWORD count = PrinterUtil::getPrinterDrivers(3, &block);
    const auto* drivers = reinterpret_cast<const DRIVER_INFO_3W*>(block);
    for (DWORD i = 0; i < count; ++i) {
        if (!drivers[i].pName || driverName_ != drivers[i].pName) continue;
        if (drivers[i].pMonitorName) {
            monitor = drivers[i].pMonitorName;
            CREATION_LOG(kLogNormal, kNoLastError, 3, "Language monitor:%ls found", monitor.c_str());
        } else {
            CREATION_LOG(kLogNormal, kNoLastError, 3, "Lack of Language monitor confirmed for:%ls", driverName_.c_str());
        }
        break;
    }
    if (block) GlobalFree(block);
    if (monitor.empty()) CREATION_LOG(kLogNormal, kNoLastError, 2, "No language monitor");
    return monitor;
}

void VexorPrintingService::PrinterCreation::logNewHandle(HANDLE printer) {
    CREATION_LOG(kLogNormal, kNoLastError, 3, "xxx new Printer handle:%u for:%ls", handleNumber(printer),
                 printerName_.c_str());
}

// The add under its limit; a printer that could not be added may be one of
// the same name left from an earlier logon.
HANDLE VexorPrintingService::PrinterCreation::addPrinter() {
    HANDLE printer = PrinterUtil::addPrinterNonBlocking(&printerInfo_);
    LocalFree(printerInfo_.pSecurityDescriptor);
    printerInfo_.pSecurityDescriptor = nullptr;
    logNewHandle(printer);
    if (isBadHandle(printer)) printer = replaceStalePrinter();
    return printer;
}

// Decided by this thread's own last error: the add ran on another thread,
// which hands back only the handle.
HANDLE VexorPrintingService::PrinterCreation::replaceStalePrinter() {
    if (GetLastError() != ERROR_PRINTER_ALREADY_EXISTS) {
        CREATION_LOG(kLogError, kWithLastError, 4,
                     "Failed to add printer with AddPrinter()%ls. This is probably due to a missing driver.",
                     printerName_.c_str());
        return nullptr;
    }
    CREATION_LOG(kLogNormal, kNoLastError, 3, "Printer still exists from last login Attempting to aquire");
    PRINTER_DEFAULTSW defaults = {nullptr, nullptr, PRINTER_ACCESS_ADMINISTER};
    HANDLE stale = nullptr;
    if (!OpenPrinterW(&printerName_[0], &stale, &defaults)) {
        CREATION_LOG(kLogError, kWithLastError, 4, "Failed to open printer %ls", printerName_.c_str());
        return nullptr;
    }
    const BOOL deleted = PrinterUtil::deletePrinter(stale);
    if (!deleted) CREATION_LOG(kLogError, kWithLastError, 4, "Failed to delete printer with:");
    if (!ClosePrinter(stale)) CREATION_LOG(kLogError, kWithLastError, 4, "Failed to close printer with:");
    // A stale printer that stays leaves the closed handle in place: the
    // creation goes on with it, and its later spooler calls fail and log.
    if (!deleted) return stale;
    // Directly, without the limit, and with the spooler's default security.
    HANDLE printer = AddPrinterW(nullptr, 2, reinterpret_cast<LPBYTE>(&printerInfo_));
    logNewHandle(printer);
    return printer;
}

// Preferences and the default printer belong to the user: they are applied
// while this thread impersonates the sender.
void VexorPrintingService::PrinterCreation::applyAsSender(HANDLE printer, DWORD defaultPrinterPolicy) {
    HANDLE process = OpenProcess(MAXIMUM_ALLOWED, FALSE, senderPid_);
    HANDLE token = nullptr, duplicate = nullptr;
    if (!process) {
        CREATION_LOG(kLogError, kWithLastError, 4, "OpenProcess:%u failed", static_cast<unsigned>(senderPid_));
        CREATION_LOG(kLogError, kNoLastError, 4, "Not attempting to set printer preferences.");
    } else if (!OpenProcessToken(process, kSenderTokenAccess, &token)) {
        CREATION_LOG(kLogError, kWithLastError, 4, "OpenProcessToken 0x%x", handleNumber(process));
    } else if (!DuplicateTokenEx(token, kDuplicateTokenAccess, nullptr, SecurityAnonymous, TokenPrimary, &duplicate)) {
        CREATION_LOG(kLogError, kWithLastError, 4, "DuplicateTokenEx 0x%x", handleNumber(token));
    } else if (!ImpersonateLoggedOnUser(duplicate)) {
        CREATION_LOG(kLogError, kWithLastError, 4, "ImpersonateLoggedOnUser 0x%x", handleNumber(duplicate));
    } else {
        CREATION_LOG(kLogNormal, kNoLastError, 2, "ImpersonateLoggedOnUser - success");
        applyPreferencesAndDefault(printer, defaultPrinterPolicy);
        CREATION_LOG(kLogNormal, kNoLastError, 3, "Reverting user");
        RevertToSelf();
    }
    if (duplicate) CloseHandle(duplicate);
    if (token) CloseHandle(token);
    if (process) CloseHandle(process);
}

// Runs as the sender. An exception here does not leave the creation: the
// printer exists, and the thread must still revert.
void VexorPrintingService::PrinterCreation::applyPreferencesAndDefault(HANDLE printer, DWORD defaultPrinterPolicy) {
    try {
        PrinterUtil::applyClientPreferences(request_, printer, self_);
        if (defaultPrinterPolicy == 0) {
            CREATION_LOG(kLogNormal, kNoLastError, 3, "Not overriding host side default printer");
        } else if (getJsonInt("is_default", request_, 0) != 0) {
            CREATION_LOG(kLogNormal, kNoLastError, 3, "Trying to set default printer");
            if (service_.setDefaultPrinter(printerName_) != 0) response_["warn"] = "Failed to make default printer";
        }
    } catch (const std::exception& e) {
        CREATION_LOG(kLogNormal, kNoLastError, 3, "%s:  Catching exception:  %s", self_, e.what());
        // The fixed text of this case, however little it fits.
        response_["status"] = "fail";
        response_["err"] = "no _senderPID";
    } catch (...) {
        CREATION_LOG(kLogNormal, kNoLastError, 3, "Catching unknown exception");
    }
}

Json::Value VexorPrintingService::_addPrinter(Json::Value& request) {
    VX_DECLARE_FUNCTION_NAME(self);
    return PrinterCreation(*this, self.c_str(), request).run();
}

DWORD VexorPrintingService::setDefaultPrinter(const std::wstring& name) {
    if (SetDefaultPrinterW(name.c_str())) {
        VX_LOG(kLogNormal, kNoLastError, 3, "Setting this printer as the default printer");
        return 0;
    }
    VX_LOG(kLogError, kWithLastError, 4, "SetDefaultPrinter failed");
    return GetLastError();
}
