// The state of the setupapi component, held by the host and dropped by
// Host::reset: the device tree and the open device information sets. One
// lock guards both, since the calls read the tree through a set.
#pragma once

#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/setupapi/device_tree.h"
#include "simhost/setupapi/driver_catalog.h"

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace simhost {
namespace setupapi {

// A device as a set holds it: a snapshot taken when the set was built. The
// node's properties are read live from the tree through devInst, which
// becomes 0 once the node is removed.
struct DeviceInfoElement {
    std::wstring instanceId;
    GUID classGuid{};
    DWORD devInst = 0;
    // What SP_DEVINFO_DATA.Reserved carries for this element; unique on the
    // machine, so an element of another set is never taken for this one.
    ULONG_PTR token = 0;
    // An element made by SetupDiCreateDeviceInfoW is not registered: its
    // node is not in the tree, though it has a DevInst of its own.
    bool registered = true;
    SP_DEVINSTALL_PARAMS_W installParams{};
};

struct DeviceInfoSet {
    // The class of a set made for one class; all zeros for none.
    GUID classGuid{};
    std::vector<DeviceInfoElement> elements;
    // Class driver lists built, by the token of their element; 0 keys the
    // set's own list (no element given).
    std::map<ULONG_PTR, std::vector<DriverInfo>> classDriverLists;
    // The installation parameters of the set itself.
    SP_DEVINSTALL_PARAMS_W installParams{};
};

struct SetupApiState {
    std::mutex mutex;
    std::vector<Device> tree;
    DWORD lastDevInst = 0;
    ULONG_PTR lastElementToken = 0;
    ULONG_PTR lastDriverToken = 0;
    std::unordered_map<HDEVINFO, DeviceInfoSet> sets;

    // The node of this handle in the tree; null when it was removed.
    Device* findNode(DWORD devInst);
    // The open set of this handle; null for a closed or unknown handle.
    DeviceInfoSet* findSet(HDEVINFO handle);
};

// A class GUID in registry form: braces, lower case.
std::wstring registryForm(const GUID& guid);
// The class names of the setup classes the host knows by GUID.
std::optional<std::wstring> knownClassName(const GUID& guid);

// Instance ids and enumerator names compare regardless of case.
bool sameIgnoringCase(const std::wstring& a, const std::wstring& b);
// The enumerator part of an instance id: "ROOT" of "ROOT\PRINTER\0000".
std::wstring enumeratorOf(const std::wstring& instanceId);

// The element that an SP_DEVINFO_DATA given as input names in an open set,
// or the error to fail with: ERROR_INVALID_HANDLE for a closed or unknown
// set; ERROR_INVALID_PARAMETER for a null record, a wrong cbSize or an
// element that is not of this set, as setupapi documents for input records.
struct ElementLookup {
    DeviceInfoElement* element = nullptr;
    DWORD error = ERROR_SUCCESS;
};
ElementLookup findInputElement(SetupApiState& state, HDEVINFO handle, const SP_DEVINFO_DATA* data);

// What a call that takes an optional SP_DEVINFO_DATA works on: the set, and
// the element when one is given (null for the set itself), or the error of
// findInputElement.
struct SetTarget {
    DeviceInfoSet* set = nullptr;
    DeviceInfoElement* element = nullptr;
    DWORD error = ERROR_SUCCESS;
};
SetTarget findTarget(SetupApiState& state, HDEVINFO handle, const SP_DEVINFO_DATA* data);

// The failure return of a BOOL call, with its last error.
inline BOOL failWith(DWORD error) {
    SetLastError(error);
    return FALSE;
}

// Runs `work` on the component's state with its lock held; answers what
// `work` answers.
template <class Work>
auto withSetupApiState(Work work) {
    SetupApiState& state = Host::get().state<SetupApiState>();
    std::lock_guard<std::mutex> hold(state.mutex);
    return work(state);
}

}  // namespace setupapi
}  // namespace simhost
