// The locator and the namespace it connects to: IWbemLocator::ConnectServer
// on ROOT\CIMV2, IWbemServices::ExecQuery over Win32_Printer with a
// forward-only enumerator, and IWbemServices::PutInstance.
#include "simhost/core/host.h"
#include "simhost/wbem/wbem_objects.h"

#include <cwctype>
#include <mutex>
#include <sstream>

const CLSID CLSID_WbemLocator = {0x4590F811, 0x1D3A, 0x11D0, {0x89, 0x1F, 0x00, 0xAA, 0x00, 0x4B, 0x2E, 0x24}};
const IID IID_IWbemLocator = {0xDC12A687, 0x737F, 0x11CF, {0x88, 0x4D, 0x00, 0xAA, 0x00, 0x4B, 0x2E, 0x24}};
const IID IID_IWbemServices = {0x9556DC99, 0x828C, 0x11CF, {0xA3, 0x7E, 0x00, 0xAA, 0x00, 0x32, 0x40, 0xC7}};
const IID IID_IEnumWbemClassObject = {0x027947E1, 0xD731, 0x11CE, {0xA3, 0x57, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01}};
const IID IID_IWbemClassObject = {0xDC12A681, 0x737F, 0x11CF, {0x88, 0x4D, 0x00, 0xAA, 0x00, 0x4B, 0x2E, 0x24}};

namespace simhost {
namespace wbem {
namespace {

// ConnectServer's flag to wait at most two minutes for the connection.
constexpr LONG kConnectUseMaxWait = 0x80;
// "User credentials cannot be used for local connections."
constexpr HRESULT kLocalCredentials = static_cast<HRESULT>(0x80041064L);
constexpr LONG kInfinite = static_cast<LONG>(WBEM_INFINITE);
constexpr LONG kKnownPutFlags = WBEM_FLAG_UPDATE_ONLY | WBEM_FLAG_CREATE_ONLY;

std::wstring folded(const std::wstring& text) {
    std::wstring upper = text;
    for (wchar_t& c : upper) c = static_cast<wchar_t>(std::towupper(c));
    return upper;
}

// "ROOT\CIMV2" of this machine, in any case and with either slash, with or
// without the machine part "\\.\".
bool isCimv2(std::wstring path) {
    for (wchar_t& c : path)
        if (c == L'/') c = L'\\';
    path = folded(path);
    if (path.rfind(L"\\\\.\\", 0) == 0) path.erase(0, 4);
    return path == L"ROOT\\CIMV2";
}

// The only query the namespace answers: SELECT * FROM <class>, keywords
// and class in any case. Another class is WBEM_E_INVALID_CLASS; any other
// shape (WHERE clauses included: not modelled) WBEM_E_INVALID_QUERY.
HRESULT checkQuery(const std::wstring& query) {
    std::wistringstream words(folded(query));
    std::wstring select, all, from, className, more;
    words >> select >> all >> from >> className >> more;
    if (select != L"SELECT" || all != L"*" || from != L"FROM" || className.empty() || !more.empty())
        return WBEM_E_INVALID_QUERY;
    return className == L"WIN32_PRINTER" ? WBEM_S_NO_ERROR : WBEM_E_INVALID_CLASS;
}

// The printers the spooler shows (not those pending deletion), as they
// stood when the query ran.
std::vector<std::vector<Property>> printerInstances() {
    std::vector<std::vector<Property>> instances;
    for (const winspool::SpoolerPrinter& printer : winspool::printers())
        if (!printer.pendingDeletion) instances.push_back(printerProperties(printer));
    return instances;
}

class PrinterEnumerator : public ole32::ComObject<IEnumWbemClassObject> {
public:
    explicit PrinterEnumerator(std::vector<std::vector<Property>> instances)
        : ComObject(IID_IEnumWbemClassObject, "IEnumWbemClassObject", L"SELECT * FROM Win32_Printer"),
          instances_(std::move(instances)) {}

    // Up to `count` new objects, each with one reference the caller owes a
    // Release, then *returned; WBEM_S_FALSE when fewer than `count` were
    // left. All results are ready at once, so the time-out (WBEM_INFINITE
    // or a wait of 0 or more milliseconds; another is
    // WBEM_E_INVALID_PARAMETER) never runs out. Slots past *returned are
    // left as they were. On failure *returned is 0.
    HRESULT STDMETHODCALLTYPE Next(LONG timeout, ULONG count, IWbemClassObject** objects, ULONG* returned) override {
        if (!objects || !returned) return WBEM_E_INVALID_PARAMETER;
        *returned = 0;
        if (DWORD error = injectedFailure("IEnumWbemClassObject::Next")) return HRESULT_FROM_WIN32(error);
        if (timeout < 0 && timeout != kInfinite) return WBEM_E_INVALID_PARAMETER;
        std::lock_guard<std::mutex> lock(mutex_);
        while (*returned < count && next_ < instances_.size())
            objects[(*returned)++] = new PrinterObject(instances_[next_++]);
        return *returned == count ? WBEM_S_NO_ERROR : WBEM_S_FALSE;
    }

private:
    std::mutex mutex_;
    std::vector<std::vector<Property>> instances_;
    size_t next_ = 0;
};

class Services : public ole32::ComObject<IWbemServices> {
public:
    Services() : ComObject(IID_IWbemServices, "IWbemServices", L"ROOT\\CIMV2", true) {}

    // WQL only (in any case; else WBEM_E_INVALID_QUERY_TYPE), the query of
    // checkQuery. Whatever the flags, the enumerator is forward-only and its
    // results are complete when the call returns.
    HRESULT STDMETHODCALLTYPE ExecQuery(const BSTR language, const BSTR query, LONG, IWbemContext*,
                                        IEnumWbemClassObject** enumerator) override {
        if (!enumerator) return WBEM_E_INVALID_PARAMETER;
        *enumerator = nullptr;
        if (DWORD error = injectedFailure("IWbemServices::ExecQuery")) return HRESULT_FROM_WIN32(error);
        if (!language || !query) return WBEM_E_INVALID_PARAMETER;
        if (folded(language) != L"WQL") return WBEM_E_INVALID_QUERY_TYPE;
        if (HRESULT result = checkQuery(query); FAILED(result)) return result;
        *enumerator = new PrinterEnumerator(printerInstances());
        return WBEM_S_NO_ERROR;
    }

    // Writes an instance of this namespace back to its printer
    // (updatePrinter). WBEM_FLAG_UPDATE_ONLY and WBEM_FLAG_CREATE_OR_UPDATE
    // update a printer that exists; WBEM_FLAG_CREATE_ONLY finds it existing
    // (WBEM_E_ALREADY_EXISTS). Making printers this way is not modelled:
    // WBEM_E_NOT_FOUND for an update only, else WBEM_E_NOT_SUPPORTED. An
    // object not of this namespace, other flags (the asynchronous ones
    // included) or both update and create: WBEM_E_INVALID_PARAMETER. The
    // call is synchronous: *callResult is null.
    HRESULT STDMETHODCALLTYPE PutInstance(IWbemClassObject* instance, LONG flags, IWbemContext*,
                                          IWbemCallResult** callResult) override {
        if (callResult) *callResult = nullptr;
        if (DWORD error = injectedFailure("IWbemServices::PutInstance")) return HRESULT_FROM_WIN32(error);
        auto* printer = dynamic_cast<PrinterObject*>(instance);
        if (!printer || (flags & ~kKnownPutFlags) || flags == kKnownPutFlags) return WBEM_E_INVALID_PARAMETER;
        if (flags == WBEM_FLAG_CREATE_ONLY) return exists(*printer) ? WBEM_E_ALREADY_EXISTS : WBEM_E_NOT_SUPPORTED;
        HRESULT result = updatePrinter(printer->properties());
        return result == WBEM_E_NOT_FOUND && flags != WBEM_FLAG_UPDATE_ONLY ? WBEM_E_NOT_SUPPORTED : result;
    }

private:
    static bool exists(PrinterObject& printer) {
        return winspool::findPrinter(findProperty(printer.properties(), L"DeviceID")->value.text).has_value();
    }
};

class Locator : public ole32::ComObject<IWbemLocator> {
public:
    Locator() : ComObject(IID_IWbemLocator, "IWbemLocator", L"WbemLocator") {}

    // This machine's ROOT\CIMV2 (isCimv2; else WBEM_E_INVALID_NAMESPACE),
    // as a proxy of the management service: the first one sets the
    // process's COM security implicitly, as COM does. A user or password
    // for this machine: WBEM_E_LOCAL_CREDENTIALS (0x80041064). Security
    // flags other than 0 and WBEM_FLAG_CONNECT_USE_MAX_WAIT, a null
    // namespace or output: WBEM_E_INVALID_PARAMETER. Locale and authority
    // are not modelled.
    HRESULT STDMETHODCALLTYPE ConnectServer(const BSTR networkResource, const BSTR user, const BSTR password,
                                            const BSTR, LONG securityFlags, const BSTR, IWbemContext*,
                                            IWbemServices** services) override {
        if (!services) return WBEM_E_INVALID_PARAMETER;
        *services = nullptr;
        if (DWORD error = injectedFailure("IWbemLocator::ConnectServer")) return HRESULT_FROM_WIN32(error);
        if (!networkResource || (securityFlags & ~kConnectUseMaxWait)) return WBEM_E_INVALID_PARAMETER;
        if (!isCimv2(networkResource)) return WBEM_E_INVALID_NAMESPACE;
        if (user || password) return kLocalCredentials;
        ole32::initializeSecurityImplicitly();
        *services = new Services();
        return WBEM_S_NO_ERROR;
    }
};

}  // namespace

HRESULT createLocator(REFIID interfaceId, void** object) {
    auto* locator = new Locator();
    HRESULT result = locator->QueryInterface(interfaceId, object);
    locator->Release();
    return result;
}

}  // namespace wbem
}  // namespace simhost
