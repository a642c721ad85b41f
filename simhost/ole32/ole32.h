// ole32 of the simulated host: the COM runtime the service uses to reach
// management instrumentation. Apartments per thread, the process's one
// security initialisation, in-process object creation, proxy blankets, and
// the IUnknown every interface derives from.
#pragma once

#include "simhost/advapi32/security.h"
#include "simhost/wintypes.h"

typedef WCHAR OLECHAR;
typedef OLECHAR* LPOLESTR;
typedef const OLECHAR* LPCOLESTR;

// Every COM interface starts with these three methods. Objects count their
// references; the last Release destroys them.
struct IUnknown {
    virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) = 0;
    virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
    virtual ULONG STDMETHODCALLTYPE Release() = 0;

protected:
    ~IUnknown() = default;
};
typedef IUnknown* LPUNKNOWN;

// {00000000-0000-0000-C000-000000000046}
extern const IID IID_IUnknown;

// CoInitializeEx's concurrency models and options.
#define COINIT_MULTITHREADED 0x0u
#define COINIT_APARTMENTTHREADED 0x2u
#define COINIT_DISABLE_OLE1DDE 0x4u
#define COINIT_SPEED_OVER_MEMORY 0x8u

// Where CoCreateInstance may run an object.
#define CLSCTX_INPROC_SERVER 0x1u
#define CLSCTX_INPROC_HANDLER 0x2u
#define CLSCTX_LOCAL_SERVER 0x4u
#define CLSCTX_REMOTE_SERVER 0x10u
#define CLSCTX_ALL (CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER)

// Authentication services, levels and impersonation levels of COM security.
#define RPC_C_AUTHN_NONE 0u
#define RPC_C_AUTHN_WINNT 10u
#define RPC_C_AUTHN_DEFAULT 0xFFFFFFFFu
#define RPC_C_AUTHZ_NONE 0u
#define RPC_C_AUTHZ_DEFAULT 0xFFFFFFFFu
#define RPC_C_AUTHN_LEVEL_DEFAULT 0u
#define RPC_C_AUTHN_LEVEL_NONE 1u
#define RPC_C_AUTHN_LEVEL_CONNECT 2u
#define RPC_C_AUTHN_LEVEL_CALL 3u
#define RPC_C_AUTHN_LEVEL_PKT 4u
#define RPC_C_AUTHN_LEVEL_PKT_INTEGRITY 5u
#define RPC_C_AUTHN_LEVEL_PKT_PRIVACY 6u
#define RPC_C_IMP_LEVEL_DEFAULT 0u
#define RPC_C_IMP_LEVEL_ANONYMOUS 1u
#define RPC_C_IMP_LEVEL_IDENTIFY 2u
#define RPC_C_IMP_LEVEL_IMPERSONATE 3u
#define RPC_C_IMP_LEVEL_DELEGATE 4u
#define EOAC_NONE 0u

typedef void* RPC_AUTH_IDENTITY_HANDLE;

typedef struct tagSOLE_AUTHENTICATION_SERVICE {
    DWORD dwAuthnSvc;
    DWORD dwAuthzSvc;
    OLECHAR* pPrincipalName;
    HRESULT hr;
} SOLE_AUTHENTICATION_SERVICE;

// The COM runtime's answers (winerror.h).
#define RPC_E_CHANGED_MODE ((HRESULT)0x80010106L)
#define RPC_E_TOO_LATE ((HRESULT)0x80010119L)
#define CO_E_NOTINITIALIZED ((HRESULT)0x800401F0L)
#define REGDB_E_CLASSNOTREG ((HRESULT)0x80040154L)
#define CLASS_E_NOAGGREGATION ((HRESULT)0x80040110L)

HRESULT WINAPI CoInitializeEx(LPVOID reserved, DWORD coInit);
void WINAPI CoUninitialize();
HRESULT WINAPI CoInitializeSecurity(PSECURITY_DESCRIPTOR securityDescriptor, LONG authenticationServiceCount,
                                    SOLE_AUTHENTICATION_SERVICE* authenticationServices, void* reserved1,
                                    DWORD authenticationLevel, DWORD impersonationLevel, void* authenticationList,
                                    DWORD capabilities, void* reserved3);
HRESULT WINAPI CoCreateInstance(REFCLSID classId, LPUNKNOWN outer, DWORD context, REFIID interfaceId,
                                LPVOID* object);
HRESULT WINAPI CoSetProxyBlanket(IUnknown* proxy, DWORD authenticationService, DWORD authorizationService,
                                 OLECHAR* serverPrincipalName, DWORD authenticationLevel, DWORD impersonationLevel,
                                 RPC_AUTH_IDENTITY_HANDLE authenticationInfo, DWORD capabilities);
