// VARIANTs: initialising, clearing, and the conversion to text that
// property values go through.
#include "simhost/core/host.h"
#include "simhost/oleaut32/oleaut32.h"

#include <optional>
#include <string>

namespace {

bool isScalar(VARTYPE type) {
    switch (type) {
    case VT_EMPTY: case VT_NULL: case VT_I2: case VT_I4: case VT_R4: case VT_R8: case VT_CY: case VT_DATE:
    case VT_ERROR: case VT_BOOL: case VT_I1: case VT_UI1: case VT_UI2: case VT_UI4: case VT_I8: case VT_UI8:
    case VT_INT: case VT_UINT:
        return true;
    default: return false;
    }
}

// Frees what the variant owns; false for a type the host does not know.
bool releaseValue(VARIANTARG& variant) {
    if (variant.vt == VT_BSTR) {
        SysFreeString(variant.bstrVal);
        return true;
    }
    if (variant.vt == VT_UNKNOWN || variant.vt == VT_DISPATCH) {
        if (variant.punkVal) variant.punkVal->Release();
        return true;
    }
    return isScalar(variant.vt);
}

struct Text {
    HRESULT error = S_OK;
    std::wstring text;
};

// A VT_BOOL is a number as text, true being -1, unless VARIANT_ALPHABOOL
// asks for "True" or "False" (VariantChangeType's flags).
Text textOf(const VARIANTARG& value, USHORT flags) {
    switch (value.vt) {
    case VT_EMPTY: return {S_OK, {}};
    case VT_BSTR: return {S_OK, value.bstrVal ? value.bstrVal : L""};
    case VT_BOOL:
        if (flags & VARIANT_ALPHABOOL) return {S_OK, value.boolVal ? L"True" : L"False"};
        return {S_OK, std::to_wstring(value.boolVal)};
    case VT_I1: return {S_OK, std::to_wstring(value.cVal)};
    case VT_UI1: return {S_OK, std::to_wstring(value.bVal)};
    case VT_I2: return {S_OK, std::to_wstring(value.iVal)};
    case VT_UI2: return {S_OK, std::to_wstring(value.uiVal)};
    case VT_I4: case VT_INT: return {S_OK, std::to_wstring(value.lVal)};
    case VT_UI4: case VT_UINT: return {S_OK, std::to_wstring(value.ulVal)};
    case VT_I8: return {S_OK, std::to_wstring(value.llVal)};
    case VT_UI8: return {S_OK, std::to_wstring(value.ullVal)};
    default: {
        const bool known = isScalar(value.vt) || value.vt == VT_UNKNOWN || value.vt == VT_DISPATCH;
        return {known ? DISP_E_TYPEMISMATCH : DISP_E_BADVARTYPE, {}};
    }
    }
}

}  // namespace

// Sets vt to VT_EMPTY and nothing else, as documented: the old contents
// are not interpreted.
void WINAPI VariantInit(VARIANTARG* variant) {
    if (variant) variant->vt = VT_EMPTY;
}

// Frees a BSTR value, releases an interface value, and leaves VT_EMPTY. A
// null pointer: E_INVALIDARG; a type the host does not know (arrays and
// references included): DISP_E_BADVARTYPE, the variant unchanged. An
// injected failure answers HRESULT_FROM_WIN32 of its error and changes
// nothing.
HRESULT WINAPI VariantClear(VARIANTARG* variant) {
    if (DWORD error = simhost::injectedFailure("VariantClear")) return HRESULT_FROM_WIN32(error);
    if (!variant) return E_INVALIDARG;
    if (!releaseValue(*variant)) return DISP_E_BADVARTYPE;
    variant->vt = VT_EMPTY;
    return S_OK;
}

// Conversion to VT_BSTR, in place when both pointers are the same: VT_EMPTY
// gives an empty text, a text stays itself, numbers and VT_BOOL become
// decimal text ("-1" for VARIANT_TRUE, "True"/"False" with
// VARIANT_ALPHABOOL). VT_NULL, and the types the host does not convert
// (floating point, currency, dates, interfaces), are DISP_E_TYPEMISMATCH;
// an unknown type DISP_E_BADVARTYPE. Conversion to any other type is not
// modelled: DISP_E_TYPEMISMATCH. A destination other than the source loses
// its old value, as VariantClear would free it. On failure the destination
// is unchanged. Null pointers: E_INVALIDARG; no memory for the text:
// E_OUTOFMEMORY.
HRESULT WINAPI VariantChangeType(VARIANTARG* destination, const VARIANTARG* source, USHORT flags, VARTYPE type) {
    if (DWORD error = simhost::injectedFailure("VariantChangeType")) return HRESULT_FROM_WIN32(error);
    if (!destination || !source) return E_INVALIDARG;
    if (source->vt == VT_NULL || type != VT_BSTR) return DISP_E_TYPEMISMATCH;
    Text converted = textOf(*source, flags);
    if (FAILED(converted.error)) return converted.error;
    BSTR text = SysAllocString(converted.text.c_str());
    if (!text) return E_OUTOFMEMORY;
    releaseValue(*destination);
    destination->vt = VT_BSTR;
    destination->bstrVal = text;
    return S_OK;
}
