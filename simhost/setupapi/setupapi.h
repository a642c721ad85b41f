// setupapi of the simulated host: device information sets over the host's
// device tree, and the Plug and Play properties of its device nodes.
#pragma once

#include "simhost/wintypes.h"

typedef PVOID HDEVINFO;

// Error codes of the device installer (APPLICATION_ERROR_MASK |
// ERROR_SEVERITY_ERROR | code).
#define ERROR_INVALID_REG_PROPERTY 0xE0000209L
#define ERROR_NO_SUCH_DEVINST 0xE000020BL

// Device setup classes.
// {4D36E979-E325-11CE-BFC1-08002BE10318}, class name "Printer".
extern const GUID GUID_DEVCLASS_PRINTER;
// {1ED2BBF9-11F0-4084-B21F-AD83A8E6DCDC}, class name "PrintQueue".
extern const GUID GUID_DEVCLASS_PRINTQUEUE;

// One element of a device information set. The set finds the element again
// through Reserved; DevInst is the handle of the device node.
typedef struct _SP_DEVINFO_DATA {
    DWORD cbSize;
    GUID ClassGuid;
    DWORD DevInst;
    ULONG_PTR Reserved;
} SP_DEVINFO_DATA, *PSP_DEVINFO_DATA;
static_assert(sizeof(SP_DEVINFO_DATA) == 32, "SP_DEVINFO_DATA has 32 bytes on 64-bit Windows");

// Flags of SetupDiGetClassDevsW.
#define DIGCF_DEFAULT 0x00000001u
#define DIGCF_PRESENT 0x00000002u
#define DIGCF_ALLCLASSES 0x00000004u
#define DIGCF_PROFILE 0x00000008u
#define DIGCF_DEVICEINTERFACE 0x00000010u

// Plug and Play device properties (SetupDiGetDeviceRegistryPropertyW).
#define SPDRP_DEVICEDESC 0x00000000u
#define SPDRP_HARDWAREID 0x00000001u
#define SPDRP_COMPATIBLEIDS 0x00000002u
#define SPDRP_SERVICE 0x00000004u
#define SPDRP_CLASS 0x00000007u
#define SPDRP_CLASSGUID 0x00000008u
#define SPDRP_DRIVER 0x00000009u
#define SPDRP_CONFIGFLAGS 0x0000000Au
#define SPDRP_MFG 0x0000000Bu
#define SPDRP_FRIENDLYNAME 0x0000000Cu
#define SPDRP_LOCATION_INFORMATION 0x0000000Du
#define SPDRP_PHYSICAL_DEVICE_OBJECT_NAME 0x0000000Eu
#define SPDRP_ENUMERATOR_NAME 0x00000016u
#define SPDRP_MAXIMUM_PROPERTY 0x00000025u

HDEVINFO WINAPI SetupDiGetClassDevsW(const GUID* classGuid, PCWSTR enumerator, HWND parent, DWORD flags);
BOOL WINAPI SetupDiEnumDeviceInfo(HDEVINFO deviceInfoSet, DWORD memberIndex, PSP_DEVINFO_DATA deviceInfoData);
BOOL WINAPI SetupDiGetDeviceRegistryPropertyW(HDEVINFO deviceInfoSet, PSP_DEVINFO_DATA deviceInfoData,
                                              DWORD property, PDWORD propertyRegDataType, PBYTE propertyBuffer,
                                              DWORD propertyBufferSize, PDWORD requiredSize);
BOOL WINAPI SetupDiRemoveDevice(HDEVINFO deviceInfoSet, PSP_DEVINFO_DATA deviceInfoData);
BOOL WINAPI SetupDiDestroyDeviceInfoList(HDEVINFO deviceInfoSet);

// ---- INF files ----

typedef PVOID HINF;

// A line of an open INF file, as SetupFindFirstLineW finds it. Callers pass it
// back without changing it.
typedef struct _INFCONTEXT {
    PVOID Inf;
    PVOID CurrentInf;
    UINT Section;
    UINT Line;
} INFCONTEXT, *PINFCONTEXT;

// Styles of SetupOpenInfFileW.
#define INF_STYLE_NONE 0x00000000u
#define INF_STYLE_OLDNT 0x00000001u
#define INF_STYLE_WIN4 0x00000002u

// Errors of INF files (APPLICATION_ERROR_MASK | ERROR_SEVERITY_ERROR | code):
// syntax errors while loading, then errors of the INF calls.
#define ERROR_EXPECTED_SECTION_NAME 0xE0000000L
#define ERROR_BAD_SECTION_NAME_LINE 0xE0000001L
#define ERROR_SECTION_NAME_TOO_LONG 0xE0000002L
#define ERROR_GENERAL_SYNTAX 0xE0000003L
#define ERROR_WRONG_INF_STYLE 0xE0000100L
#define ERROR_SECTION_NOT_FOUND 0xE0000101L
#define ERROR_LINE_NOT_FOUND 0xE0000102L
#define ERROR_CLASS_MISMATCH 0xE0000203L

HINF WINAPI SetupOpenInfFileW(PCWSTR fileName, PCWSTR infClass, DWORD infStyle, PUINT errorLine);
void WINAPI SetupCloseInfFile(HINF infHandle);
BOOL WINAPI SetupFindFirstLineW(HINF infHandle, PCWSTR section, PCWSTR key, PINFCONTEXT context);
BOOL WINAPI SetupFindNextLine(PINFCONTEXT contextIn, PINFCONTEXT contextOut);
DWORD WINAPI SetupGetFieldCount(PINFCONTEXT context);
BOOL WINAPI SetupGetStringFieldW(PINFCONTEXT context, DWORD fieldIndex, PWSTR returnBuffer, DWORD returnBufferSize,
                                 PDWORD requiredSize);
BOOL WINAPI SetupGetMultiSzFieldW(PINFCONTEXT context, DWORD fieldIndex, PWSTR returnBuffer, DWORD returnBufferSize,
                                  LPDWORD requiredSize);
