// IWbemClassObject of a Win32_Printer instance: reading a property into a
// VARIANT, and setting one in the object (PutInstance takes it to the
// spooler).
#include "simhost/core/host.h"
#include "simhost/wbem/wbem_objects.h"

namespace simhost {
namespace wbem {
namespace {

std::wstring pathOf(std::vector<Property>& properties) {
    return L"Win32_Printer.DeviceID=\"" + findProperty(properties, L"DeviceID")->value.text + L"\"";
}

// A text is a new BSTR the caller frees with VariantClear; an unsigned
// 32-bit number is VT_I4, as WMI hands out uint32; a boolean is
// VARIANT_TRUE or VARIANT_FALSE.
HRESULT toVariant(const PropertyValue& value, VARIANT& variant) {
    if (value.null) {
        variant.vt = VT_NULL;
        return WBEM_S_NO_ERROR;
    }
    switch (value.type) {
    case CIM_STRING: {
        BSTR text = SysAllocString(value.text.c_str());
        if (!text) return WBEM_E_OUT_OF_MEMORY;
        variant.vt = VT_BSTR;
        variant.bstrVal = text;
        return WBEM_S_NO_ERROR;
    }
    case CIM_UINT32:
        variant.vt = VT_I4;
        variant.lVal = static_cast<LONG>(value.number);
        return WBEM_S_NO_ERROR;
    default:
        variant.vt = VT_BOOL;
        variant.boolVal = value.flag ? VARIANT_TRUE : VARIANT_FALSE;
        return WBEM_S_NO_ERROR;
    }
}

// A property's type is fixed on an instance: a text takes VT_BSTR, a number
// VT_I4, a boolean VT_BOOL (any non-zero value is true); a null pointer or
// VT_NULL makes it null.
HRESULT fromVariant(const VARIANT* variant, PropertyValue& value) {
    if (!variant || variant->vt == VT_NULL) {
        value.null = true;
        return WBEM_S_NO_ERROR;
    }
    const VARTYPE wanted = value.type == CIM_STRING ? VT_BSTR : value.type == CIM_UINT32 ? VT_I4 : VT_BOOL;
    if (variant->vt != wanted) return WBEM_E_TYPE_MISMATCH;
    value.null = false;
    if (wanted == VT_BSTR) value.text = variant->bstrVal ? variant->bstrVal : L"";
    if (wanted == VT_I4) value.number = static_cast<DWORD>(variant->lVal);
    if (wanted == VT_BOOL) value.flag = variant->boolVal != 0;
    return WBEM_S_NO_ERROR;
}

}  // namespace

PrinterObject::PrinterObject(std::vector<Property> properties)
    : ComObject(IID_IWbemClassObject, "IWbemClassObject", pathOf(properties)), properties_(std::move(properties)) {}

// The value, its CIM type and its flavor (always 0: flavors are not
// modelled), each only where a pointer is given; *value is written only on
// success. A null name or non-zero flags: WBEM_E_INVALID_PARAMETER; a
// property the class lacks: WBEM_E_NOT_FOUND. System properties (__CLASS,
// __PATH ...) are not modelled. An injected failure answers
// HRESULT_FROM_WIN32 of its error.
HRESULT PrinterObject::Get(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE* type, LONG* flavor) {
    if (DWORD error = injectedFailure("IWbemClassObject::Get")) return HRESULT_FROM_WIN32(error);
    if (!name || flags) return WBEM_E_INVALID_PARAMETER;
    const Property* property = findProperty(properties_, name);
    if (!property) return WBEM_E_NOT_FOUND;
    if (value) {
        VARIANT answer{};
        if (HRESULT result = toVariant(property->value, answer); FAILED(result)) return result;
        *value = answer;
    }
    if (type) *type = property->value.type;
    if (flavor) *flavor = 0;
    return WBEM_S_NO_ERROR;
}

// Sets a property of this object only. On an instance, Put "cannot create a
// property value", so a name the class lacks is WBEM_E_NOT_FOUND, and the
// type argument must be 0 (WBEM_E_INVALID_PARAMETER otherwise, as for a
// null name or non-zero flags); a value of another type than the
// property's is WBEM_E_TYPE_MISMATCH. The caller keeps its variant.
HRESULT PrinterObject::Put(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE type) {
    if (DWORD error = injectedFailure("IWbemClassObject::Put")) return HRESULT_FROM_WIN32(error);
    if (!name || flags || type) return WBEM_E_INVALID_PARAMETER;
    Property* property = findProperty(properties_, name);
    if (!property) return WBEM_E_NOT_FOUND;
    PropertyValue changed = property->value;
    if (HRESULT result = fromVariant(value, changed); FAILED(result)) return result;
    property->value = changed;
    return WBEM_S_NO_ERROR;
}

}  // namespace wbem
}  // namespace simhost
