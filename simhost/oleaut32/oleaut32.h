// oleaut32 of the simulated host: BSTR strings and VARIANTs, as management
// instrumentation hands out property values.
#pragma once

#include "simhost/ole32/ole32.h"
#include "simhost/wintypes.h"

// A BSTR points at its characters; the length in bytes stands in the four
// bytes before them, and a NUL follows them.
typedef OLECHAR* BSTR;

typedef SHORT VARIANT_BOOL;
#define VARIANT_TRUE ((VARIANT_BOOL)-1)
#define VARIANT_FALSE ((VARIANT_BOOL)0)

typedef USHORT VARTYPE;
enum VARENUM {
    VT_EMPTY = 0,
    VT_NULL = 1,
    VT_I2 = 2,
    VT_I4 = 3,
    VT_R4 = 4,
    VT_R8 = 5,
    VT_CY = 6,
    VT_DATE = 7,
    VT_BSTR = 8,
    VT_DISPATCH = 9,
    VT_ERROR = 10,
    VT_BOOL = 11,
    VT_VARIANT = 12,
    VT_UNKNOWN = 13,
    VT_I1 = 16,
    VT_UI1 = 17,
    VT_UI2 = 18,
    VT_UI4 = 19,
    VT_I8 = 20,
    VT_UI8 = 21,
    VT_INT = 22,
    VT_UINT = 23,
};

// The published layout's names: the type, three reserved words, then the
// value in one union.
typedef struct tagVARIANT {
    VARTYPE vt;
    WORD wReserved1;
    WORD wReserved2;
    WORD wReserved3;
    union {
        LONGLONG llVal;
        LONG lVal;
        BYTE bVal;
        SHORT iVal;
        float fltVal;
        double dblVal;
        VARIANT_BOOL boolVal;
        LONG scode;
        BSTR bstrVal;
        IUnknown* punkVal;
        CHAR cVal;
        USHORT uiVal;
        ULONG ulVal;
        ULONGLONG ullVal;
        INT intVal;
        UINT uintVal;
    };
} VARIANT, VARIANTARG;
typedef VARIANT* LPVARIANT;
typedef VARIANTARG* LPVARIANTARG;

// VariantChangeType's flags.
#define VARIANT_NOVALUEPROP 0x1u
#define VARIANT_ALPHABOOL 0x2u
#define VARIANT_NOUSEROVERRIDE 0x4u
#define VARIANT_LOCALBOOL 0x10u

// Automation's answers (winerror.h).
#define DISP_E_TYPEMISMATCH ((HRESULT)0x80020005L)
#define DISP_E_BADVARTYPE ((HRESULT)0x80020008L)

BSTR WINAPI SysAllocString(const OLECHAR* text);
void WINAPI SysFreeString(BSTR text);
UINT WINAPI SysStringLen(BSTR text);
void WINAPI VariantInit(VARIANTARG* variant);
HRESULT WINAPI VariantClear(VARIANTARG* variant);
HRESULT WINAPI VariantChangeType(VARIANTARG* destination, const VARIANTARG* source, USHORT flags, VARTYPE type);
