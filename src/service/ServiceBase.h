// The base of the service class: it holds the service's name and turns the
// control manager's requests into calls of the virtual operations below.
#pragma once

#include "platform/win32.h"

class CServiceBase {
public:
    explicit CServiceBase(LPCWSTR serviceName) : serviceName(serviceName) {}
    CServiceBase(const CServiceBase&) = delete;
    CServiceBase& operator=(const CServiceBase&) = delete;

    virtual ~CServiceBase() = default;

    LPCWSTR name() const { return serviceName; }

protected:
    virtual void OnStart(DWORD argc, LPWSTR* argv) {
        (void)argc;
        (void)argv;
    }
    virtual void OnStop() {}
    virtual void OnPause() {}
    virtual void OnContinue() {}
    virtual void OnShutdown() {}

    LPCWSTR serviceName;  // kept by reference
};
