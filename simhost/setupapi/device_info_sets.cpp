// Device information sets: built from the device tree by
// SetupDiGetClassDevsW, walked by SetupDiEnumDeviceInfo, released by
// SetupDiDestroyDeviceInfoList. A set is a snapshot: nodes added to the tree
// later are not in it, and an element stays in it when its node is removed.
#include "simhost/kernel32/objects.h"
#include "simhost/setupapi/setupapi_state.h"

#include <algorithm>

namespace simhost {
namespace setupapi {
namespace {

constexpr DWORD kKnownClassDevsFlags =
    DIGCF_DEFAULT | DIGCF_PRESENT | DIGCF_ALLCLASSES | DIGCF_PROFILE | DIGCF_DEVICEINTERFACE;

struct ClassDevsFilter {
    const GUID* classGuid;  // null with DIGCF_ALLCLASSES
    PCWSTR enumerator;      // null or empty for all enumerators
    DWORD flags;

    bool admits(const Device& device) const {
        // The host models no device interfaces, so no device exposes one.
        if (flags & DIGCF_DEVICEINTERFACE) return false;
        if (classGuid && device.classGuid != *classGuid) return false;
        if ((flags & DIGCF_PRESENT) && !device.present) return false;
        return !enumerator || !*enumerator || sameIgnoringCase(enumeratorOf(device.instanceId), enumerator);
    }
};

DeviceInfoSet buildSet(SetupApiState& state, const ClassDevsFilter& filter) {
    DeviceInfoSet set;
    for (const Device& device : state.tree)
        if (filter.admits(device))
            set.elements.push_back({device.instanceId, device.classGuid, device.devInst, ++state.lastElementToken});
    return set;
}

}  // namespace

ElementLookup findInputElement(SetupApiState& state, HDEVINFO handle, const SP_DEVINFO_DATA* data) {
    DeviceInfoSet* set = state.findSet(handle);
    if (!set) return {nullptr, ERROR_INVALID_HANDLE};
    if (!data || data->cbSize != sizeof(SP_DEVINFO_DATA)) return {nullptr, ERROR_INVALID_PARAMETER};
    for (DeviceInfoElement& element : set->elements)
        if (element.token == data->Reserved) return {&element, ERROR_SUCCESS};
    return {nullptr, ERROR_INVALID_PARAMETER};
}

SetTarget findTarget(SetupApiState& state, HDEVINFO handle, const SP_DEVINFO_DATA* data) {
    DeviceInfoSet* set = state.findSet(handle);
    if (!set) return {nullptr, nullptr, ERROR_INVALID_HANDLE};
    if (!data) return {set, nullptr, ERROR_SUCCESS};
    ElementLookup lookup = findInputElement(state, handle, data);
    return {lookup.element ? set : nullptr, lookup.element, lookup.error};
}

}  // namespace setupapi
}  // namespace simhost

using simhost::setupapi::ClassDevsFilter;
using simhost::setupapi::Device;
using simhost::setupapi::DeviceInfoElement;
using simhost::setupapi::DeviceInfoSet;
using simhost::setupapi::ElementLookup;
using simhost::setupapi::SetupApiState;
using simhost::setupapi::buildSet;
using simhost::setupapi::failWith;
using simhost::setupapi::findInputElement;
using simhost::setupapi::kKnownClassDevsFlags;
using simhost::setupapi::withSetupApiState;

// A new set, or INVALID_HANDLE_VALUE with the last error, as documented. A
// class GUID is needed unless DIGCF_ALLCLASSES is set; without one the call
// fails with ERROR_INVALID_PARAMETER, and flags outside the DIGCF_* set fail
// with ERROR_INVALID_FLAGS. DIGCF_PRESENT keeps only present devices;
// DIGCF_PROFILE keeps all, since every node belongs to the host's one
// hardware profile.
HDEVINFO WINAPI SetupDiGetClassDevsW(const GUID* classGuid, PCWSTR enumerator, HWND /*parent*/, DWORD flags) {
    DWORD error = simhost::injectedFailure("SetupDiGetClassDevsW");
    if (!error && (flags & ~kKnownClassDevsFlags)) error = ERROR_INVALID_FLAGS;
    if (!error && !classGuid && !(flags & DIGCF_ALLCLASSES)) error = ERROR_INVALID_PARAMETER;
    if (error) {
        SetLastError(error);
        return INVALID_HANDLE_VALUE;
    }
    const GUID* wantedClass = (flags & DIGCF_ALLCLASSES) ? nullptr : classGuid;
    ClassDevsFilter filter{wantedClass, enumerator, flags};
    HDEVINFO handle = simhost::reserveHandleValue();
    withSetupApiState([&](SetupApiState& state) { state.sets.emplace(handle, buildSet(state, filter)); });
    return handle;
}

// TRUE with the element at memberIndex; past the end FALSE with
// ERROR_NO_MORE_ITEMS. The record is output, so a wrong cbSize fails with
// ERROR_INVALID_USER_BUFFER.
BOOL WINAPI SetupDiEnumDeviceInfo(HDEVINFO deviceInfoSet, DWORD memberIndex, PSP_DEVINFO_DATA deviceInfoData) {
    if (DWORD e = simhost::injectedFailure("SetupDiEnumDeviceInfo")) return failWith(e);
    return withSetupApiState([&](SetupApiState& state) {
        DeviceInfoSet* set = state.findSet(deviceInfoSet);
        if (!set) return failWith(ERROR_INVALID_HANDLE);
        if (!deviceInfoData) return failWith(ERROR_INVALID_PARAMETER);
        if (deviceInfoData->cbSize != sizeof(SP_DEVINFO_DATA)) return failWith(ERROR_INVALID_USER_BUFFER);
        if (memberIndex >= set->elements.size()) return failWith(ERROR_NO_MORE_ITEMS);
        const DeviceInfoElement& element = set->elements[memberIndex];
        deviceInfoData->ClassGuid = element.classGuid;
        deviceInfoData->DevInst = element.devInst;
        deviceInfoData->Reserved = element.token;
        return TRUE;
    });
}

// Removes the node from the device tree. The element stays in the set, so
// the indices of the others do not move; DevInst becomes 0, as the record's
// handle does on Windows once all traces of the device are deleted. A node
// that is gone already fails with ERROR_NO_SUCH_DEVINST.
BOOL WINAPI SetupDiRemoveDevice(HDEVINFO deviceInfoSet, PSP_DEVINFO_DATA deviceInfoData) {
    if (DWORD e = simhost::injectedFailure("SetupDiRemoveDevice")) return failWith(e);
    return withSetupApiState([&](SetupApiState& state) {
        ElementLookup lookup = findInputElement(state, deviceInfoSet, deviceInfoData);
        if (!lookup.element) return failWith(lookup.error);
        if (!state.findNode(lookup.element->devInst)) return failWith(ERROR_NO_SUCH_DEVINST);
        DWORD removed = lookup.element->devInst;
        state.tree.erase(std::remove_if(state.tree.begin(), state.tree.end(),
                                        [&](const Device& d) { return d.devInst == removed; }),
                         state.tree.end());
        lookup.element->devInst = 0;
        deviceInfoData->DevInst = 0;
        return TRUE;
    });
}

// A closed or unknown set fails with ERROR_INVALID_HANDLE.
BOOL WINAPI SetupDiDestroyDeviceInfoList(HDEVINFO deviceInfoSet) {
    if (DWORD e = simhost::injectedFailure("SetupDiDestroyDeviceInfoList")) return failWith(e);
    return withSetupApiState([&](SetupApiState& state) {
        return state.sets.erase(deviceInfoSet) ? TRUE : failWith(ERROR_INVALID_HANDLE);
    });
}
