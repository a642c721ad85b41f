// How each driver's installation goes, as tests and host files arrange it.
#include "simhost/core/host.h"
#include "simhost/printui/printui.h"

#include <cwctype>
#include <map>
#include <mutex>

namespace simhost {
namespace printui {
namespace {

struct InstallerState {
    std::mutex mutex;
    // By the driver name in lower case.
    std::map<std::wstring, InstallerBehaviour> behaviours;
    // An installation that still hangs when the host is reset read its
    // behaviour under the lock; taking it here orders that read before the
    // map goes.
    ~InstallerState() { std::lock_guard<std::mutex> hold(mutex); }
};

std::wstring lowerCase(std::wstring text) {
    for (wchar_t& c : text) c = static_cast<wchar_t>(std::towlower(c));
    return text;
}

}  // namespace

void setInstallerBehaviour(const std::wstring& driverName, InstallerBehaviour behaviour) {
    InstallerState& state = Host::get().state<InstallerState>();
    std::lock_guard<std::mutex> hold(state.mutex);
    state.behaviours[lowerCase(driverName)] = behaviour;
}

InstallerBehaviour installerBehaviour(const std::wstring& driverName) {
    InstallerState& state = Host::get().state<InstallerState>();
    std::lock_guard<std::mutex> hold(state.mutex);
    auto found = state.behaviours.find(lowerCase(driverName));
    return found == state.behaviours.end() ? InstallerBehaviour{} : found->second;
}

}  // namespace printui
}  // namespace simhost
