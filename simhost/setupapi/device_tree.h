// The device tree of the simulated host: the device nodes that Plug and Play
// knows on this machine, each with its instance id, setup class, presence and
// registry properties. Tests and host files arrange it here; the setupapi
// calls read it and remove nodes from it.
#pragma once

#include "simhost/setupapi/setupapi.h"

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace simhost {
namespace setupapi {

// A registry property of a device node: one string for REG_SZ, the list for
// REG_MULTI_SZ.
struct DeviceProperty {
    DWORD type = REG_SZ;
    std::vector<std::wstring> strings;
};

struct Device {
    Device() = default;
    explicit Device(std::wstring instanceId, GUID classGuid = GUID{}, bool present = true)
        : instanceId(std::move(instanceId)), classGuid(classGuid), present(present) {}

    // "ROOT\PRINTER\0000": enumerator, device id, instance; unique on the
    // machine regardless of case.
    std::wstring instanceId;
    // The setup class; all zeros for a device without one.
    GUID classGuid{};
    // False for a phantom: a node that is installed but not attached now.
    bool present = true;
    // Properties by SPDRP_* id, as set. SPDRP_CLASSGUID, SPDRP_CLASS and
    // SPDRP_ENUMERATOR_NAME are also derived from the fields above when not
    // set here; see readProperty.
    std::map<DWORD, DeviceProperty> properties;
    // The node's handle, given by addDevice; 0 before.
    DWORD devInst = 0;

    Device& setString(DWORD property, std::wstring value);
    Device& setMultiString(DWORD property, std::vector<std::wstring> values);
};

// ---- Test and host API ----

// Adds a node to the tree and answers its DevInst, a value never given to
// another node of this machine. Throws std::invalid_argument for an empty
// instance id or one the tree already holds.
DWORD addDevice(Device device);
// The nodes of the tree, in the order they were added.
std::vector<Device> devices();
// Whether a node of this instance id (any case) is still in the tree.
bool deviceExists(const std::wstring& instanceId);
// Device information sets that are open, to find sets that were not destroyed.
size_t openDeviceInfoSetCount();
// Driver lists built and not destroyed, in all open sets.
size_t openDriverInfoListCount();

// ---- Reading a node ----

// The property as Windows reports it for the node: set explicitly, else
// derived (class GUID in registry form, class name of a known class, the
// enumerator part of the instance id); nothing when it is not there.
std::optional<DeviceProperty> readProperty(const Device& device, DWORD property);
// The property in its registry layout: the strings each with its NUL, a
// REG_MULTI_SZ with one more NUL at its end.
std::vector<WCHAR> encodeProperty(const DeviceProperty& property);

}  // namespace setupapi
}  // namespace simhost
