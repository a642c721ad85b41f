#include "preferences/WmiPrinterProperties.h"

#include "foundation/StaticLogger.h"

#include <cwchar>

namespace {

// Process security as the platform chooses it: -1 lets COM pick the
// authentication services.
constexpr LONG kPlatformChosenServices = -1;
constexpr LONG kQueryFlags = WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY;
// The value word of every boolean this function stores: 1, not the
// platform's usual -1 for true. The instrumentation takes any non-zero word
// as true, and the word stays 1.
constexpr VARIANT_BOOL kStoredTrue = 1;

// A BSTR for the length of one call, as the compiler's COM support makes
// its strings: a failed allocation raises _com_error with E_OUTOFMEMORY.
class ComString {
public:
    explicit ComString(const wchar_t* text) : text_(SysAllocString(text)) {
        if (!text_) _com_issue_error(E_OUTOFMEMORY);
    }
    ~ComString() { SysFreeString(text_); }
    ComString(const ComString&) = delete;
    ComString& operator=(const ComString&) = delete;
    operator BSTR() const { return text_; }

private:
    BSTR text_;
};

bool isNamed(const VARIANT& name, const std::wstring& printerName) {
    return std::wcslen(name.bstrVal) == printerName.size() &&
           std::wmemcmp(name.bstrVal, printerName.c_str(), printerName.size()) == 0;
}

// The connection of one call, released in the order it is taken down.
struct WmiSession {
    IWbemLocator* locator = nullptr;
    IWbemServices* services = nullptr;
    IEnumWbemClassObject* enumerator = nullptr;
};

}  // namespace

namespace PrinterUtil {
namespace {

// Whether the object is the named printer. A name that cannot be read, or
// is no text, passes the object by.
bool isPrinter(IWbemClassObject* object, const std::wstring& printerName, const char* fn) {
    VARIANT name{};
    if (FAILED(object->Get(L"Name", 0, &name, nullptr, nullptr))) {
        VX_LOG_AS(fn, kLogError, kWithLastError, 4, "failed to get printer name");
        return false;
    }
    if (name.vt != VT_BSTR) {
        VX_LOG_AS(fn, kLogError, kNoLastError, 6, "printer name type is wrong");
        VariantClear(&name);
        return false;
    }
    const bool found = isNamed(name, printerName);
    VariantClear(&name);
    return found;
}

// The property as text, or an empty string.
std::wstring readProperty(IWbemClassObject* object, const std::wstring& printerName, const std::wstring& property,
                          const char* fn) {
    VARIANT value{};
    if (FAILED(object->Get(property.c_str(), 0, &value, nullptr, nullptr))) {
        VX_LOG_AS(fn, kLogError, kWithLastError, 4, "failed to get printer property for:%ls", property.c_str());
        return L"";
    }
    std::wstring text;
    if (FAILED(VariantChangeType(&value, &value, 0, VT_BSTR))) {
        VX_LOG_AS(fn, kLogError, kWithLastError, 4,
                  "Requested printer property:%ls could not be converted to a string.", property.c_str());
    } else {
        text = value.bstrVal;
        VX_LOG_AS(fn, kLogNormal, kNoLastError, 2, "Found value:%ls for property:%ls of Printer:%ls", text.c_str(),
                  property.c_str(), printerName.c_str());
    }
    VariantClear(&value);
    return text;
}

// Stores true under the property, whatever `newValue` says, and commits
// the instance.
void writeProperty(const WmiSession& session, IWbemClassObject* object, const std::wstring& printerName,
                   const std::wstring& property, const wchar_t* newValue, const char* fn) {
    VARIANT value{};
    value.vt = VT_BOOL;
    value.boolVal = kStoredTrue;
    if (FAILED(object->Put(property.c_str(), 0, &value, 0))) {
        VX_LOG_AS(fn, kLogError, kWithLastError, 4, "failed to set printer property for:%ls", property.c_str());
        return;
    }
    HRESULT committed = session.services->PutInstance(object, WBEM_FLAG_UPDATE_ONLY, nullptr, nullptr);
    if (FAILED(committed)) {
        VX_LOG_AS(fn, kLogError, kWithLastError, 4, "failed to commit printer object with:%u",
                  static_cast<unsigned>(committed));
        return;
    }
    VX_LOG_AS(fn, kLogNormal, kNoLastError, 2, "Set value:%ls for property:%ls of Printer:%ls", newValue,
              property.c_str(), printerName.c_str());
}

// Connects to ROOT\CIMV2 and runs the query; false after the failure is
// logged and what was taken is given back.
bool openSession(WmiSession& session, const char* fn) {
    HRESULT result = CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                                      reinterpret_cast<LPVOID*>(&session.locator));
    if (FAILED(result)) {
        VX_LOG_AS(fn, kLogError, kWithLastError, 4, "Failed to create IWbemLocator object.");
        return false;
    }
    result = session.locator->ConnectServer(ComString(L"ROOT\\CIMV2"), nullptr, nullptr, nullptr, 0, nullptr, nullptr,
                                            &session.services);
    if (FAILED(result)) {
        VX_LOG_AS(fn, kLogError, kWithLastError, 4, "Could not connect");
        session.locator->Release();
        return false;
    }
    VX_LOG_AS(fn, kLogNormal, kNoLastError, 2, "Connected to ROOT\\CIMV2 WMI namespace");
    result = CoSetProxyBlanket(session.services, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                               RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
    if (FAILED(result)) {
        VX_LOG_AS(fn, kLogError, kWithLastError, 4, "Could not set proxy blanket");
        session.services->Release();
        session.locator->Release();
        return false;
    }
    result = session.services->ExecQuery(ComString(L"WQL"), ComString(L"SELECT * FROM Win32_Printer"), kQueryFlags,
                                         nullptr, &session.enumerator);
    if (FAILED(result)) {
        VX_LOG_AS(fn, kLogError, kWithLastError, 4, "Query for Win32_Printer failed.");
        session.services->Release();
        session.locator->Release();
        return false;
    }
    return true;
}

}  // namespace

std::wstring WMIPrinterRequest(const std::wstring& printerName, const std::wstring& propertyName,
                               const wchar_t* newValue) {
    VX_DECLARE_FUNCTION_NAME(self);
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {
        VX_LOG(kLogError, kWithLastError, 4, "Failed to initialize COM library");
        return L"";
    }
    // Only the first call of a process can set its security; from the
    // second printer on this fails as expected, and the settings of the
    // first stand.
    HRESULT security = CoInitializeSecurity(nullptr, kPlatformChosenServices, nullptr, nullptr,
                                            RPC_C_AUTHN_LEVEL_DEFAULT, RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE,
                                            nullptr);
    if (FAILED(security))
        VX_LOG(kLogError, kWithLastError, 4, "Failed to initialize security. Error code %u",
               static_cast<unsigned>(security));
    WmiSession session;
    if (!openSession(session, self.c_str())) {
        CoUninitialize();
        return L"";
    }
    std::wstring result;
    IWbemClassObject* object = nullptr;
    ULONG returned = 0;
    // Only the first printer of the name is dealt with. The objects Next
    // hands out are not released: one reference per row walked stays.
    while (session.enumerator) {
        session.enumerator->Next(WBEM_INFINITE, 1, &object, &returned);
        if (returned == 0) break;
        if (!isPrinter(object, printerName, self.c_str())) continue;
        VX_LOG(kLogNormal, kNoLastError, 2, "Found printer:%ls", printerName.c_str());
        result = readProperty(object, printerName, propertyName, self.c_str());
        if (newValue) writeProperty(session, object, printerName, propertyName, newValue, self.c_str());
        break;
    }
    session.services->Release();
    session.locator->Release();
    session.enumerator->Release();
    // The test is inverted, and stays so: the last object is released only
    // when there is none. The printer asked for exists, so Next has handed
    // out at least one object and nothing is released here. The pointer is
    // read afresh for the call, so that the compiler does not take the
    // branch for a call it can prove to be on null.
    IWbemClassObject* volatile last = object;
    if (!last) last->Release();
    CoUninitialize();
    return result;
}

}  // namespace PrinterUtil
