// Management instrumentation (WMI) of the simulated host: the locator, the
// namespace ROOT\CIMV2 and its Win32_Printer instances, which stand for the
// spooler's printers. Only the interface methods the service calls are
// declared.
#pragma once

#include "simhost/ole32/ole32.h"
#include "simhost/oleaut32/oleaut32.h"
#include "simhost/wintypes.h"

typedef LONG CIMTYPE;
enum CIMTYPE_ENUMERATION {
    CIM_SINT32 = 3,
    CIM_STRING = 8,
    CIM_BOOLEAN = 11,
    CIM_UINT32 = 19,
};

enum WBEM_GENERIC_FLAG_TYPE {
    WBEM_FLAG_RETURN_WBEM_COMPLETE = 0x0,
    WBEM_FLAG_RETURN_IMMEDIATELY = 0x10,
    WBEM_FLAG_FORWARD_ONLY = 0x20,
};
enum WBEM_CHANGE_FLAG_TYPE {
    WBEM_FLAG_CREATE_OR_UPDATE = 0x0,
    WBEM_FLAG_UPDATE_ONLY = 0x1,
    WBEM_FLAG_CREATE_ONLY = 0x2,
};
enum WBEM_TIMEOUT_TYPE {
    WBEM_NO_WAIT = 0x0,
    WBEM_INFINITE = 0xFFFFFFFF,
};

// WMI's answers (WBEMSTATUS).
#define WBEM_S_NO_ERROR ((HRESULT)0x0L)
#define WBEM_S_FALSE ((HRESULT)0x1L)
#define WBEM_E_FAILED ((HRESULT)0x80041001L)
#define WBEM_E_NOT_FOUND ((HRESULT)0x80041002L)
#define WBEM_E_ACCESS_DENIED ((HRESULT)0x80041003L)
#define WBEM_E_TYPE_MISMATCH ((HRESULT)0x80041005L)
#define WBEM_E_OUT_OF_MEMORY ((HRESULT)0x80041006L)
#define WBEM_E_INVALID_PARAMETER ((HRESULT)0x80041008L)
#define WBEM_E_NOT_SUPPORTED ((HRESULT)0x8004100CL)
#define WBEM_E_INVALID_NAMESPACE ((HRESULT)0x8004100EL)
#define WBEM_E_INVALID_CLASS ((HRESULT)0x80041010L)
#define WBEM_E_INVALID_QUERY ((HRESULT)0x80041017L)
#define WBEM_E_INVALID_QUERY_TYPE ((HRESULT)0x80041018L)
#define WBEM_E_ALREADY_EXISTS ((HRESULT)0x80041019L)

// Call contexts and call results: the service passes none.
struct IWbemContext;
struct IWbemCallResult;

struct IWbemClassObject : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Get(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE* type, LONG* flavor) = 0;
    virtual HRESULT STDMETHODCALLTYPE Put(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE type) = 0;

protected:
    ~IWbemClassObject() = default;
};

struct IEnumWbemClassObject : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Next(LONG timeout, ULONG count, IWbemClassObject** objects,
                                           ULONG* returned) = 0;

protected:
    ~IEnumWbemClassObject() = default;
};

struct IWbemServices : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE PutInstance(IWbemClassObject* instance, LONG flags, IWbemContext* context,
                                                  IWbemCallResult** callResult) = 0;
    virtual HRESULT STDMETHODCALLTYPE ExecQuery(const BSTR language, const BSTR query, LONG flags,
                                                IWbemContext* context, IEnumWbemClassObject** enumerator) = 0;

protected:
    ~IWbemServices() = default;
};

struct IWbemLocator : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE ConnectServer(const BSTR networkResource, const BSTR user, const BSTR password,
                                                    const BSTR locale, LONG securityFlags, const BSTR authority,
                                                    IWbemContext* context, IWbemServices** services) = 0;

protected:
    ~IWbemLocator() = default;
};

// {4590F811-1D3A-11D0-891F-00AA004B2E24}
extern const CLSID CLSID_WbemLocator;
// {DC12A687-737F-11CF-884D-00AA004B2E24}
extern const IID IID_IWbemLocator;
// {9556DC99-828C-11CF-A37E-00AA003240C7}
extern const IID IID_IWbemServices;
// {027947E1-D731-11CE-A357-000000000001}
extern const IID IID_IEnumWbemClassObject;
// {DC12A681-737F-11CF-884D-00AA004B2E24}
extern const IID IID_IWbemClassObject;
