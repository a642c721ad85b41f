// Win32_Printer through management instrumentation, as the service reaches
// it: COM, the locator, ROOT\CIMV2, a WQL query and its rows.
#include "Probe.h"

namespace probe {
namespace {

// A BSTR for one call.
class ComText {
public:
    explicit ComText(const wchar_t* text) : text_(SysAllocString(text)) {}
    ~ComText() { SysFreeString(text_); }
    ComText(const ComText&) = delete;
    ComText& operator=(const ComText&) = delete;
    operator BSTR() const { return text_; }

private:
    BSTR text_;
};

std::string property(IWbemClassObject* row, const wchar_t* name) {
    VARIANT value;
    VariantInit(&value);
    HRESULT result = row->Get(name, 0, &value, nullptr, nullptr);
    std::string told = "hr=" + hresult(result);
    if (SUCCEEDED(result)) {
        told = value.vt == VT_BSTR ? "\"" + text(value.bstrVal) + "\"" : "vt=" + number(value.vt);
        if (value.vt == VT_BOOL) told += value.boolVal ? " true" : " false";
    }
    VariantClear(&value);
    return told;
}

void query(IWbemServices* services, const std::string& topic, const wchar_t* wql, const Setup& setup) {
    IEnumWbemClassObject* rows = nullptr;
    HRESULT result = services->ExecQuery(ComText(L"WQL"), ComText(wql),
                                         WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY, nullptr, &rows);
    if (FAILED(result)) {
        observe(topic, "hr=" + hresult(result));
        return;
    }
    unsigned count = 0;
    HRESULT last = S_OK;
    for (;;) {
        IWbemClassObject* row = nullptr;
        ULONG returned = 0;
        last = rows->Next(static_cast<LONG>(WBEM_INFINITE), 1, &row, &returned);
        if (returned == 0) break;
        ++count;
        if (property(row, L"Name") == "\"" + text(setup.printerName) + "\"") {
            observe(topic + " probe printer", "DeviceID=" + property(row, L"DeviceID") +
                                                  " DriverName=" + property(row, L"DriverName") +
                                                  " PortName=" + property(row, L"PortName") +
                                                  " Local=" + property(row, L"Local") +
                                                  " EnableBIDI=" + property(row, L"EnableBIDI") +
                                                  " Missing=" + property(row, L"NoSuchProperty"));
        }
        row->Release();
    }
    rows->Release();
    observe(topic, "hr=" + hresult(result) + " rows=" + std::to_string(count) + " last-next=" + hresult(last));
}

}  // namespace

void probeManagement(const Setup& setup) {
    HRESULT result = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    observe("CoInitializeEx(COINIT_MULTITHREADED)", "hr=" + hresult(result));
    if (FAILED(result)) return;
    IWbemLocator* locator = nullptr;
    result = CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                              reinterpret_cast<LPVOID*>(&locator));
    observe("CoCreateInstance(WbemLocator)", "hr=" + hresult(result));
    if (SUCCEEDED(result)) {
        IWbemServices* elsewhere = nullptr;
        result = locator->ConnectServer(ComText(L"ROOT\\NOSUCHNAMESPACE"), nullptr, nullptr, nullptr, 0, nullptr,
                                        nullptr, &elsewhere);
        observe("ConnectServer(ROOT\\NOSUCHNAMESPACE)", "hr=" + hresult(result));
        if (elsewhere) elsewhere->Release();
        IWbemServices* services = nullptr;
        result = locator->ConnectServer(ComText(L"ROOT\\CIMV2"), nullptr, nullptr, nullptr, 0, nullptr, nullptr,
                                        &services);
        observe("ConnectServer(ROOT\\CIMV2)", "hr=" + hresult(result));
        if (SUCCEEDED(result)) {
            result = CoSetProxyBlanket(services, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                                       RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
            observe("CoSetProxyBlanket", "hr=" + hresult(result));
            query(services, "ExecQuery(SELECT * FROM Win32_Printer)", L"SELECT * FROM Win32_Printer", setup);
            query(services, "ExecQuery(SELECT * FROM Win32_NoSuchClass)", L"SELECT * FROM Win32_NoSuchClass", setup);
            services->Release();
        }
        locator->Release();
    }
    CoUninitialize();
}

}  // namespace probe
