// Device information sets made empty for a class, the elements added to them
// by SetupDiCreateDeviceInfoW, and the installation parameters of sets and
// elements. A created element is not registered: its node never enters the
// device tree, so SetupDiGetClassDevsW does not find it and it goes with its
// set.
#include "simhost/core/text.h"
#include "simhost/kernel32/objects.h"
#include "simhost/setupapi/setupapi_state.h"

#include <cwchar>
#include <cwctype>

namespace simhost {
namespace setupapi {
namespace {

constexpr DWORD kKnownCreationFlags = DICD_GENERATE_ID | DICD_INHERIT_CLASSDRVS;

std::wstring upperCase(std::wstring text) {
    for (wchar_t& c : text) c = static_cast<wchar_t>(std::towupper(c));
    return text;
}

bool instanceIdTaken(const SetupApiState& state, const DeviceInfoSet& set, const std::wstring& id) {
    for (const Device& node : state.tree)
        if (sameIgnoringCase(node.instanceId, id)) return true;
    for (const DeviceInfoElement& element : set.elements)
        if (sameIgnoringCase(element.instanceId, id)) return true;
    return false;
}

// A root-enumerated instance id for the device id: ROOT\<ID>\<nnnn>, with the
// first four-digit instance not in use on the machine or in the set.
std::wstring generatedInstanceId(const SetupApiState& state, const DeviceInfoSet& set, const std::wstring& name) {
    std::wstring prefix = L"ROOT\\" + upperCase(name) + L"\\";
    for (unsigned instance = 0;; ++instance) {
        wchar_t digits[16];
        std::swprintf(digits, 16, L"%04u", instance);
        if (!instanceIdTaken(state, set, prefix + digits)) return prefix + digits;
    }
}

// The instance id of the new element, or the error to fail with. A name to
// generate from is a device id without a backslash; a name given whole is
// an instance id with its enumerator, device and instance parts.
DWORD newInstanceId(const SetupApiState& state, const DeviceInfoSet& set, const std::wstring& name, DWORD flags,
                    std::wstring& id) {
    if (name.empty()) return ERROR_INVALID_DEVINST_NAME;
    if (flags & DICD_GENERATE_ID) {
        if (name.find(L'\\') != std::wstring::npos) return ERROR_INVALID_DEVINST_NAME;
        id = generatedInstanceId(state, set, name);
        return ERROR_SUCCESS;
    }
    if (splitText(name, L'\\', EmptyPieces::Drop).size() != 3) return ERROR_INVALID_DEVINST_NAME;
    id = upperCase(name);
    return instanceIdTaken(state, set, id) ? ERROR_DEVINST_ALREADY_EXISTS : ERROR_SUCCESS;
}

}  // namespace
}  // namespace setupapi
}  // namespace simhost

using namespace simhost::setupapi;

// An empty set of the class (of no class for a null GUID), or
// INVALID_HANDLE_VALUE with the last error.
HDEVINFO WINAPI SetupDiCreateDeviceInfoList(const GUID* classGuid, HWND /*parent*/) {
    if (DWORD error = simhost::injectedFailure("SetupDiCreateDeviceInfoList")) {
        SetLastError(error);
        return INVALID_HANDLE_VALUE;
    }
    DeviceInfoSet set;
    if (classGuid) set.classGuid = *classGuid;
    HDEVINFO handle = simhost::reserveHandleValue();
    withSetupApiState([&](SetupApiState& state) { state.sets.emplace(handle, std::move(set)); });
    return handle;
}

// Adds an element to the set, as documented: a set of a class takes elements
// of that class only (ERROR_CLASS_MISMATCH); an instance id in use on the
// machine fails with ERROR_DEVINST_ALREADY_EXISTS, a bad name with
// ERROR_INVALID_DEVINST_NAME. The description would become the node's
// SPDRP_DEVICEDESC once registered, which the host does not model.
BOOL WINAPI SetupDiCreateDeviceInfoW(HDEVINFO deviceInfoSet, PCWSTR deviceName, const GUID* classGuid,
                                     PCWSTR /*deviceDescription*/, HWND /*parent*/, DWORD creationFlags,
                                     PSP_DEVINFO_DATA deviceInfoData) {
    if (DWORD e = simhost::injectedFailure("SetupDiCreateDeviceInfoW")) return failWith(e);
    return withSetupApiState([&](SetupApiState& state) {
        DeviceInfoSet* set = state.findSet(deviceInfoSet);
        if (!set) return failWith(ERROR_INVALID_HANDLE);
        if (creationFlags & ~kKnownCreationFlags) return failWith(ERROR_INVALID_FLAGS);
        if (!classGuid) return failWith(ERROR_INVALID_PARAMETER);
        if (set->classGuid != GUID{} && *classGuid != set->classGuid) return failWith(ERROR_CLASS_MISMATCH);
        if (deviceInfoData && deviceInfoData->cbSize != sizeof(SP_DEVINFO_DATA))
            return failWith(ERROR_INVALID_USER_BUFFER);
        std::wstring id;
        if (DWORD e = newInstanceId(state, *set, deviceName ? deviceName : L"", creationFlags, id)) return failWith(e);
        DeviceInfoElement element{id, *classGuid, ++state.lastDevInst, ++state.lastElementToken, false, {}};
        set->elements.push_back(element);
        if (deviceInfoData) {
            deviceInfoData->ClassGuid = element.classGuid;
            deviceInfoData->DevInst = element.devInst;
            deviceInfoData->Reserved = element.token;
        }
        return TRUE;
    });
}

namespace {

// The install parameters kept for the element, or for the set when no
// element is given, once the caller's record is checked: null, with the
// error, for an unknown set or element, no record, or a cbSize other than
// the record's (ERROR_INVALID_USER_BUFFER).
SP_DEVINSTALL_PARAMS_W* installParamsOf(SetupApiState& state, HDEVINFO deviceInfoSet, PSP_DEVINFO_DATA deviceInfoData,
                                        const SP_DEVINSTALL_PARAMS_W* given, DWORD& error) {
    SetTarget target = findTarget(state, deviceInfoSet, deviceInfoData);
    error = !target.set ? target.error
            : !given    ? ERROR_INVALID_PARAMETER
            : given->cbSize != sizeof(SP_DEVINSTALL_PARAMS_W) ? ERROR_INVALID_USER_BUFFER
                                                               : 0;
    if (error) return nullptr;
    return target.element ? &target.element->installParams : &target.set->installParams;
}

}  // namespace

BOOL WINAPI SetupDiSetDeviceInstallParamsW(HDEVINFO deviceInfoSet, PSP_DEVINFO_DATA deviceInfoData,
                                           PSP_DEVINSTALL_PARAMS_W deviceInstallParams) {
    if (DWORD e = simhost::injectedFailure("SetupDiSetDeviceInstallParamsW")) return failWith(e);
    return withSetupApiState([&](SetupApiState& state) {
        DWORD error = 0;
        SP_DEVINSTALL_PARAMS_W* kept = installParamsOf(state, deviceInfoSet, deviceInfoData, deviceInstallParams, error);
        if (!kept) return failWith(error);
        *kept = *deviceInstallParams;
        return TRUE;
    });
}

// Zero until set.
BOOL WINAPI SetupDiGetDeviceInstallParamsW(HDEVINFO deviceInfoSet, PSP_DEVINFO_DATA deviceInfoData,
                                           PSP_DEVINSTALL_PARAMS_W deviceInstallParams) {
    if (DWORD e = simhost::injectedFailure("SetupDiGetDeviceInstallParamsW")) return failWith(e);
    return withSetupApiState([&](SetupApiState& state) {
        DWORD error = 0;
        SP_DEVINSTALL_PARAMS_W* kept = installParamsOf(state, deviceInfoSet, deviceInfoData, deviceInstallParams, error);
        if (!kept) return failWith(error);
        *deviceInstallParams = *kept;
        deviceInstallParams->cbSize = sizeof(SP_DEVINSTALL_PARAMS_W);
        return TRUE;
    });
}
