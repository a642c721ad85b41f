// SetupDiGetDeviceRegistryPropertyW: the Plug and Play properties of a node,
// read from the device tree when asked, in the two-call size protocol.
#include "simhost/setupapi/setupapi_state.h"

#include <cstring>

using simhost::setupapi::Device;
using simhost::setupapi::DeviceProperty;
using simhost::setupapi::ElementLookup;
using simhost::setupapi::SetupApiState;
using simhost::setupapi::failWith;
using simhost::setupapi::withSetupApiState;

// As documented: FALSE with ERROR_INVALID_DATA when the node lacks the
// property; a null buffer with size 0, or one that is too small, fails with
// ERROR_INSUFFICIENT_BUFFER and the size in bytes in *requiredSize (FALSE
// even for the size query). The data type is reported whenever the property
// exists. A property id beyond SPDRP_MAXIMUM_PROPERTY is
// ERROR_INVALID_REG_PROPERTY; a null buffer with a size is
// ERROR_INVALID_USER_BUFFER; a node removed meanwhile is ERROR_NO_SUCH_DEVINST.
BOOL WINAPI SetupDiGetDeviceRegistryPropertyW(HDEVINFO deviceInfoSet, PSP_DEVINFO_DATA deviceInfoData,
                                              DWORD property, PDWORD propertyRegDataType, PBYTE propertyBuffer,
                                              DWORD propertyBufferSize, PDWORD requiredSize) {
    if (DWORD e = simhost::injectedFailure("SetupDiGetDeviceRegistryPropertyW")) return failWith(e);
    return withSetupApiState([&](SetupApiState& state) {
        ElementLookup lookup = findInputElement(state, deviceInfoSet, deviceInfoData);
        if (!lookup.element) return failWith(lookup.error);
        if (property >= SPDRP_MAXIMUM_PROPERTY) return failWith(ERROR_INVALID_REG_PROPERTY);
        if (!propertyBuffer && propertyBufferSize != 0) return failWith(ERROR_INVALID_USER_BUFFER);
        const Device* node = state.findNode(lookup.element->devInst);
        if (!node) return failWith(ERROR_NO_SUCH_DEVINST);
        std::optional<DeviceProperty> value = readProperty(*node, property);
        if (!value) return failWith(ERROR_INVALID_DATA);

        std::vector<WCHAR> encoded = encodeProperty(*value);
        DWORD bytes = static_cast<DWORD>(encoded.size() * sizeof(WCHAR));
        if (propertyRegDataType) *propertyRegDataType = value->type;
        if (requiredSize) *requiredSize = bytes;
        if (propertyBufferSize < bytes) return failWith(ERROR_INSUFFICIENT_BUFFER);
        if (bytes != 0) std::memcpy(propertyBuffer, encoded.data(), bytes);
        return TRUE;
    });
}
