// The COM runtime's process and thread state: apartments entered with
// CoInitializeEx, the process's one security initialisation, and the
// blankets set on proxies.
#include "simhost/core/host.h"
#include "simhost/ole32/com_objects.h"

#include <map>
#include <mutex>
#include <thread>

namespace simhost {
namespace ole32 {
namespace {

constexpr DWORD kKnownCoInitFlags =
    COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE | COINIT_SPEED_OVER_MEMORY;

struct Apartment {
    int count = 0;
    bool singleThreaded = false;
};

struct RuntimeState {
    std::mutex mutex;
    std::map<std::thread::id, Apartment> apartments;
    bool securitySet = false;
    SecurityLevels security;
    SecurityLevels blanket;
};

RuntimeState& runtime() { return Host::get().state<RuntimeState>(); }

bool validLevels(DWORD authenticationLevel, DWORD impersonationLevel) {
    return authenticationLevel <= RPC_C_AUTHN_LEVEL_PKT_PRIVACY && impersonationLevel <= RPC_C_IMP_LEVEL_DELEGATE;
}

}  // namespace

int initializationCount() {
    RuntimeState& state = runtime();
    std::lock_guard<std::mutex> lock(state.mutex);
    auto it = state.apartments.find(std::this_thread::get_id());
    return it == state.apartments.end() ? 0 : it->second.count;
}

bool securityInitialized() {
    RuntimeState& state = runtime();
    std::lock_guard<std::mutex> lock(state.mutex);
    return state.securitySet;
}

void initializeSecurityImplicitly() {
    RuntimeState& state = runtime();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.securitySet = true;
}

SecurityLevels processSecurity() {
    RuntimeState& state = runtime();
    std::lock_guard<std::mutex> lock(state.mutex);
    return state.security;
}

SecurityLevels lastProxyBlanket() {
    RuntimeState& state = runtime();
    std::lock_guard<std::mutex> lock(state.mutex);
    return state.blanket;
}

}  // namespace ole32
}  // namespace simhost

using simhost::ole32::runtime;
using simhost::ole32::RuntimeState;

// The first successful call on a thread enters an apartment (S_OK); a
// further call of the same model counts once more and answers S_FALSE, one
// of the other model is RPC_E_CHANGED_MODE and counts nothing. Each success
// is owed a CoUninitialize. A reserved pointer or an unknown flag is
// E_INVALIDARG; an injected failure answers HRESULT_FROM_WIN32 of its error.
HRESULT WINAPI CoInitializeEx(LPVOID reserved, DWORD coInit) {
    if (DWORD error = simhost::injectedFailure("CoInitializeEx")) return HRESULT_FROM_WIN32(error);
    if (reserved || (coInit & ~simhost::ole32::kKnownCoInitFlags)) return E_INVALIDARG;
    const bool singleThreaded = coInit & COINIT_APARTMENTTHREADED;
    RuntimeState& state = runtime();
    std::lock_guard<std::mutex> lock(state.mutex);
    simhost::ole32::Apartment& apartment = state.apartments[std::this_thread::get_id()];
    if (apartment.count == 0) apartment.singleThreaded = singleThreaded;
    else if (apartment.singleThreaded != singleThreaded) return RPC_E_CHANGED_MODE;
    return apartment.count++ == 0 ? S_OK : S_FALSE;
}

// Undoes one successful CoInitializeEx of the calling thread; on a thread
// without COM it does nothing. It reports nothing, so it can only be
// blocked or slowed.
void WINAPI CoUninitialize() {
    simhost::injectedFailure("CoUninitialize");
    RuntimeState& state = runtime();
    std::lock_guard<std::mutex> lock(state.mutex);
    auto it = state.apartments.find(std::this_thread::get_id());
    if (it != state.apartments.end() && --it->second.count == 0) state.apartments.erase(it);
}

// Sets the process's security once: "called exactly once per process,
// either explicitly or implicitly", so every later call, and a call after
// the first proxy set it implicitly, is RPC_E_TOO_LATE. A count of -1
// (COM chooses the services) with a list, a count below -1, or levels out
// of range are E_INVALIDARG. The descriptor and lists are not modelled.
HRESULT WINAPI CoInitializeSecurity(PSECURITY_DESCRIPTOR, LONG authenticationServiceCount,
                                    SOLE_AUTHENTICATION_SERVICE* authenticationServices, void*,
                                    DWORD authenticationLevel, DWORD impersonationLevel, void*, DWORD capabilities,
                                    void*) {
    if (DWORD error = simhost::injectedFailure("CoInitializeSecurity")) return HRESULT_FROM_WIN32(error);
    if (authenticationServiceCount < -1 || (authenticationServiceCount == -1 && authenticationServices) ||
        !simhost::ole32::validLevels(authenticationLevel, impersonationLevel))
        return E_INVALIDARG;
    RuntimeState& state = runtime();
    std::lock_guard<std::mutex> lock(state.mutex);
    if (state.securitySet) return RPC_E_TOO_LATE;
    state.securitySet = true;
    state.security = {RPC_C_AUTHN_DEFAULT, RPC_C_AUTHZ_DEFAULT, authenticationLevel, impersonationLevel, capabilities};
    return S_OK;
}

// Sets the security a proxy's calls are made with. Only proxies take it: an
// object of this process has no client security, so it is E_NOINTERFACE, as
// for any in-process object. A null proxy or levels out of range are
// E_INVALIDARG. The principal and identity are not modelled.
HRESULT WINAPI CoSetProxyBlanket(IUnknown* proxy, DWORD authenticationService, DWORD authorizationService, OLECHAR*,
                                 DWORD authenticationLevel, DWORD impersonationLevel, RPC_AUTH_IDENTITY_HANDLE,
                                 DWORD capabilities) {
    if (DWORD error = simhost::injectedFailure("CoSetProxyBlanket")) return HRESULT_FROM_WIN32(error);
    if (!proxy || !simhost::ole32::validLevels(authenticationLevel, impersonationLevel)) return E_INVALIDARG;
    if (!simhost::ole32::isProxy(proxy)) return E_NOINTERFACE;
    RuntimeState& state = runtime();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.blanket = {authenticationService, authorizationService, authenticationLevel, impersonationLevel,
                     capabilities};
    return S_OK;
}
