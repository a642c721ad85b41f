#include "simhost/setupapi/device_tree.h"

#include "simhost/setupapi/setupapi_state.h"

#include <algorithm>
#include <cwchar>
#include <cwctype>
#include <stdexcept>

const GUID GUID_DEVCLASS_PRINTER = {0x4D36E979, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
const GUID GUID_DEVCLASS_PRINTQUEUE = {0x1ED2BBF9, 0x11F0, 0x4084, {0xB2, 0x1F, 0xAD, 0x83, 0xA8, 0xE6, 0xDC, 0xDC}};

namespace simhost {
namespace setupapi {
namespace {

bool isNullGuid(const GUID& guid) { return guid == GUID{}; }

}  // namespace

// The ClassGUID value of a device's registry key: braces, lower case.
std::wstring registryForm(const GUID& guid) {
    wchar_t text[39];
    std::swprintf(text, 39, L"{%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x}", guid.Data1, guid.Data2,
                  guid.Data3, guid.Data4[0], guid.Data4[1], guid.Data4[2], guid.Data4[3], guid.Data4[4],
                  guid.Data4[5], guid.Data4[6], guid.Data4[7]);
    return text;
}

// The class names of the setup classes the host knows by GUID.
std::optional<std::wstring> knownClassName(const GUID& guid) {
    if (guid == GUID_DEVCLASS_PRINTER) return L"Printer";
    if (guid == GUID_DEVCLASS_PRINTQUEUE) return L"PrintQueue";
    return std::nullopt;
}

namespace {

DeviceProperty stringProperty(std::wstring value) { return {REG_SZ, {std::move(value)}}; }

std::optional<DeviceProperty> derivedProperty(const Device& device, DWORD property) {
    switch (property) {
    case SPDRP_CLASSGUID:
        if (isNullGuid(device.classGuid)) return std::nullopt;
        return stringProperty(registryForm(device.classGuid));
    case SPDRP_CLASS:
        if (auto name = knownClassName(device.classGuid)) return stringProperty(*name);
        return std::nullopt;
    case SPDRP_ENUMERATOR_NAME:
        return stringProperty(enumeratorOf(device.instanceId));
    default:
        return std::nullopt;
    }
}

}  // namespace

bool sameIgnoringCase(const std::wstring& a, const std::wstring& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](wchar_t x, wchar_t y) {
               return std::towupper(x) == std::towupper(y);
           });
}

std::wstring enumeratorOf(const std::wstring& instanceId) { return instanceId.substr(0, instanceId.find(L'\\')); }

Device& Device::setString(DWORD property, std::wstring value) {
    properties[property] = stringProperty(std::move(value));
    return *this;
}

Device& Device::setMultiString(DWORD property, std::vector<std::wstring> values) {
    properties[property] = {REG_MULTI_SZ, std::move(values)};
    return *this;
}

Device* SetupApiState::findNode(DWORD devInst) {
    if (devInst == 0) return nullptr;
    auto found = std::find_if(tree.begin(), tree.end(), [&](const Device& d) { return d.devInst == devInst; });
    return found == tree.end() ? nullptr : &*found;
}

DeviceInfoSet* SetupApiState::findSet(HDEVINFO handle) {
    auto found = sets.find(handle);
    return found == sets.end() ? nullptr : &found->second;
}

DWORD addDevice(Device device) {
    if (device.instanceId.empty()) throw std::invalid_argument("a device needs an instance id");
    return withSetupApiState([&](SetupApiState& state) {
        for (const Device& node : state.tree)
            if (sameIgnoringCase(node.instanceId, device.instanceId))
                throw std::invalid_argument("the device tree already holds this instance id");
        device.devInst = ++state.lastDevInst;
        state.tree.push_back(std::move(device));
        return state.tree.back().devInst;
    });
}

std::vector<Device> devices() {
    return withSetupApiState([](SetupApiState& state) { return state.tree; });
}

bool deviceExists(const std::wstring& instanceId) {
    return withSetupApiState([&](SetupApiState& state) {
        return std::any_of(state.tree.begin(), state.tree.end(),
                           [&](const Device& node) { return sameIgnoringCase(node.instanceId, instanceId); });
    });
}

size_t openDeviceInfoSetCount() {
    return withSetupApiState([](SetupApiState& state) { return state.sets.size(); });
}

std::optional<DeviceProperty> readProperty(const Device& device, DWORD property) {
    auto set = device.properties.find(property);
    if (set != device.properties.end()) return set->second;
    return derivedProperty(device, property);
}

std::vector<WCHAR> encodeProperty(const DeviceProperty& property) {
    std::vector<WCHAR> encoded;
    for (const std::wstring& text : property.strings) {
        encoded.insert(encoded.end(), text.begin(), text.end());
        encoded.push_back(L'\0');
    }
    if (property.type == REG_MULTI_SZ) encoded.push_back(L'\0');
    return encoded;
}

}  // namespace setupapi
}  // namespace simhost
