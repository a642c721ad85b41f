// The COM objects of the simulated host and their reference counts. Every
// object the host hands out is entered in one table of the machine with one
// reference; AddRef and Release count there, and the last Release takes it
// out and destroys it. An object nobody releases stays in the table with
// its count until Host::reset, so a test (and the state file) can see what a
// caller kept.
#pragma once

#include "simhost/ole32/ole32.h"

#include <string>
#include <vector>

namespace simhost {
namespace ole32 {

// What the table owns: the object behind the interface, destroyed through
// this base.
class TableEntry {
public:
    virtual ~TableEntry() = default;
};

// Enters an object with one reference; `interfaceName` and `description`
// are what liveObjects reports of it. A proxy stands for an object of
// another process: only proxies take a blanket (CoSetProxyBlanket).
void enterObject(const void* identity, TableEntry* owner, const char* interfaceName, const std::wstring& description,
                 bool proxy);
bool isProxy(const void* identity);
// The new count; 0 for an object the table does not hold.
ULONG addReference(const void* identity);
// The new count; at 0 the object is taken out of the table and destroyed.
// 0 as well for an object the table does not hold.
ULONG releaseReference(const void* identity);

// An object of the host that implements one COM interface. QueryInterface
// answers that interface and IUnknown.
template <class Interface>
class ComObject : public Interface, public TableEntry {
public:
    ComObject(const IID& interfaceId, const char* interfaceName, const std::wstring& description, bool proxy = false)
        : interfaceId_(interfaceId) {
        enterObject(this, this, interfaceName, description, proxy);
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override {
        if (!object) return E_POINTER;
        if (riid != IID_IUnknown && riid != interfaceId_) {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        addReference(this);
        *object = static_cast<Interface*>(this);
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return addReference(this); }
    ULONG STDMETHODCALLTYPE Release() override { return releaseReference(this); }

private:
    const IID interfaceId_;
};

// ---- Inspecting the table ----

struct LiveObject {
    std::string interfaceName;  // "IWbemClassObject"
    std::wstring description;   // what the object stands for, such as a WMI path
    ULONG references = 0;
};
// The objects not yet released, in the order they were made.
std::vector<LiveObject> liveObjects();

// ---- Apartments and process security ----

// How often CoInitializeEx succeeded on the calling thread, less the
// CoUninitialize calls that followed; 0 when COM is not initialised there.
int initializationCount();
// Whether the process's COM security is set, by CoInitializeSecurity or
// implicitly by the first proxy.
bool securityInitialized();
// Marks the process's security as set, as COM does when a proxy is first
// unmarshalled without an explicit CoInitializeSecurity.
void initializeSecurityImplicitly();

// The levels the process's security was set with (CoInitializeSecurity),
// and those of the last blanket set on a proxy (CoSetProxyBlanket).
struct SecurityLevels {
    DWORD authenticationService = 0;
    DWORD authorizationService = 0;
    DWORD authenticationLevel = 0;
    DWORD impersonationLevel = 0;
    DWORD capabilities = 0;
};
SecurityLevels processSecurity();
SecurityLevels lastProxyBlanket();

}  // namespace ole32
}  // namespace simhost
