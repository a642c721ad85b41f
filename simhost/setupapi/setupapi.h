// setupapi of the simulated host: device information sets over the host's
// device tree, and the Plug and Play properties of its device nodes.
#pragma once

#include "simhost/wintypes.h"

typedef PVOID HDEVINFO;

// Error codes of the device installer (APPLICATION_ERROR_MASK |
// ERROR_SEVERITY_ERROR | code).
#define ERROR_NO_ASSOCIATED_CLASS 0xE0000200L
#define ERROR_INVALID_DEVINST_NAME 0xE0000205L
#define ERROR_DEVINST_ALREADY_EXISTS 0xE0000207L
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

// ---- Creating device information elements ----

#define LINE_LEN 256

// Flags of SetupDiCreateDeviceInfoW.
#define DICD_GENERATE_ID 0x00000001u
#define DICD_INHERIT_CLASSDRVS 0x00000002u

// Flags and FlagsEx of SP_DEVINSTALL_PARAMS_W, those the service sets.
#define DI_NOBROWSE 0x00000200u
#define DI_QUIETINSTALL 0x00800000u
#define DI_FLAGSEX_ALWAYSWRITEIDS 0x00000200u

typedef PVOID HSPFILEQ;
typedef UINT(CALLBACK* PSP_FILE_CALLBACK_W)(PVOID context, UINT notification, UINT_PTR param1, UINT_PTR param2);

// Installation parameters of a device information element.
typedef struct _SP_DEVINSTALL_PARAMS_W {
    DWORD cbSize;
    DWORD Flags;
    DWORD FlagsEx;
    HWND hwndParent;
    PSP_FILE_CALLBACK_W InstallMsgHandler;
    PVOID InstallMsgHandlerContext;
    HSPFILEQ FileQueue;
    ULONG_PTR ClassInstallReserved;
    DWORD Reserved;
    WCHAR DriverPath[MAX_PATH];
} SP_DEVINSTALL_PARAMS_W, *PSP_DEVINSTALL_PARAMS_W;

HDEVINFO WINAPI SetupDiCreateDeviceInfoList(const GUID* classGuid, HWND parent);
BOOL WINAPI SetupDiCreateDeviceInfoW(HDEVINFO deviceInfoSet, PCWSTR deviceName, const GUID* classGuid,
                                     PCWSTR deviceDescription, HWND parent, DWORD creationFlags,
                                     PSP_DEVINFO_DATA deviceInfoData);
BOOL WINAPI SetupDiSetDeviceInstallParamsW(HDEVINFO deviceInfoSet, PSP_DEVINFO_DATA deviceInfoData,
                                           PSP_DEVINSTALL_PARAMS_W deviceInstallParams);
BOOL WINAPI SetupDiGetDeviceInstallParamsW(HDEVINFO deviceInfoSet, PSP_DEVINFO_DATA deviceInfoData,
                                           PSP_DEVINSTALL_PARAMS_W deviceInstallParams);

// ---- Driver information lists ----

#define SPDIT_NODRIVER 0x00000000u
#define SPDIT_CLASSDRIVER 0x00000001u
#define SPDIT_COMPATDRIVER 0x00000002u

// One driver of a driver list. The list finds the driver again through
// Reserved. Records of the first version end before DriverDate.
typedef struct _SP_DRVINFO_DATA_V2_W {
    DWORD cbSize;
    DWORD DriverType;
    ULONG_PTR Reserved;
    WCHAR Description[LINE_LEN];
    WCHAR MfgName[LINE_LEN];
    WCHAR ProviderName[LINE_LEN];
    FILETIME DriverDate;
    DWORDLONG DriverVersion;
} SP_DRVINFO_DATA_V2_W, *PSP_DRVINFO_DATA_V2_W;
typedef SP_DRVINFO_DATA_V2_W SP_DRVINFO_DATA_W;
typedef PSP_DRVINFO_DATA_V2_W PSP_DRVINFO_DATA_W;

// The detail of a driver: a fixed part, then HardwareID, which runs on past
// the record as a list of strings (the hardware id, then the compatible ids).
typedef struct _SP_DRVINFO_DETAIL_DATA_W {
    DWORD cbSize;
    FILETIME InfDate;
    DWORD CompatIDsOffset;
    DWORD CompatIDsLength;
    ULONG_PTR Reserved;
    WCHAR SectionName[LINE_LEN];
    WCHAR InfFileName[MAX_PATH];
    WCHAR DrvDescription[LINE_LEN];
    WCHAR HardwareID[1];
} SP_DRVINFO_DETAIL_DATA_W, *PSP_DRVINFO_DETAIL_DATA_W;

// Sizes on 64-bit Windows: 584, 1568 and 1584 bytes. Here WCHAR is the
// 4-byte wchar_t, so what must match is the layout: the published members in
// their order and 8-byte alignment, with the published counts of characters.
// Each size is computed from the width of a character; with 2-byte characters
// the formulas give the Windows sizes, which is checked too.
namespace simhost::setupapi {
constexpr size_t alignedTo8(size_t bytes) { return (bytes + 7) / 8 * 8; }
constexpr size_t installParamsSize(size_t charSize) { return alignedTo8(60 + MAX_PATH * charSize); }
constexpr size_t driverDateOffset(size_t charSize) { return 16 + 3 * LINE_LEN * charSize; }
constexpr size_t driverInfoSize(size_t charSize) { return alignedTo8(driverDateOffset(charSize) + 8) + 8; }
constexpr size_t hardwareIdOffset(size_t charSize) { return 32 + (2 * LINE_LEN + MAX_PATH) * charSize; }
constexpr size_t driverDetailSize(size_t charSize) { return alignedTo8(hardwareIdOffset(charSize) + charSize); }
}  // namespace simhost::setupapi

static_assert(simhost::setupapi::installParamsSize(2) == 584 && simhost::setupapi::driverInfoSize(2) == 1568 &&
                  simhost::setupapi::driverDetailSize(2) == 1584,
              "the layouts give the Windows sizes with 2-byte characters");
static_assert(offsetof(SP_DEVINSTALL_PARAMS_W, DriverPath) == 60 &&
                  sizeof(SP_DEVINSTALL_PARAMS_W) == simhost::setupapi::installParamsSize(sizeof(WCHAR)),
              "SP_DEVINSTALL_PARAMS_W: three DWORDs, five pointers, a DWORD, a path of MAX_PATH WCHARs");
static_assert(offsetof(SP_DRVINFO_DATA_V2_W, Description) == 16 &&
                  offsetof(SP_DRVINFO_DATA_V2_W, DriverDate) == simhost::setupapi::driverDateOffset(sizeof(WCHAR)) &&
                  sizeof(SP_DRVINFO_DATA_V2_W) == simhost::setupapi::driverInfoSize(sizeof(WCHAR)),
              "SP_DRVINFO_DATA_V2_W: two DWORDs, a pointer, three names of LINE_LEN WCHARs, a date, a version");
static_assert(offsetof(SP_DRVINFO_DETAIL_DATA_W, Reserved) == 24 &&
                  offsetof(SP_DRVINFO_DETAIL_DATA_W, SectionName) == 32 &&
                  offsetof(SP_DRVINFO_DETAIL_DATA_W, HardwareID) ==
                      simhost::setupapi::hardwareIdOffset(sizeof(WCHAR)) &&
                  sizeof(SP_DRVINFO_DETAIL_DATA_W) == simhost::setupapi::driverDetailSize(sizeof(WCHAR)),
              "SP_DRVINFO_DETAIL_DATA_W: a DWORD, a date, two DWORDs, a pointer, three strings, the id list");

BOOL WINAPI SetupDiBuildDriverInfoList(HDEVINFO deviceInfoSet, PSP_DEVINFO_DATA deviceInfoData, DWORD driverType);
BOOL WINAPI SetupDiEnumDriverInfoW(HDEVINFO deviceInfoSet, PSP_DEVINFO_DATA deviceInfoData, DWORD driverType,
                                   DWORD memberIndex, PSP_DRVINFO_DATA_W driverInfoData);
BOOL WINAPI SetupDiGetDriverInfoDetailW(HDEVINFO deviceInfoSet, PSP_DEVINFO_DATA deviceInfoData,
                                        PSP_DRVINFO_DATA_W driverInfoData,
                                        PSP_DRVINFO_DETAIL_DATA_W driverInfoDetailData,
                                        DWORD driverInfoDetailDataSize, PDWORD requiredSize);
BOOL WINAPI SetupDiDestroyDriverInfoList(HDEVINFO deviceInfoSet, PSP_DEVINFO_DATA deviceInfoData, DWORD driverType);

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
#define ERROR_CLASS_MISMATCH 0xE0000201L

HINF WINAPI SetupOpenInfFileW(PCWSTR fileName, PCWSTR infClass, DWORD infStyle, PUINT errorLine);
void WINAPI SetupCloseInfFile(HINF infHandle);
BOOL WINAPI SetupFindFirstLineW(HINF infHandle, PCWSTR section, PCWSTR key, PINFCONTEXT context);
BOOL WINAPI SetupFindNextLine(PINFCONTEXT contextIn, PINFCONTEXT contextOut);
DWORD WINAPI SetupGetFieldCount(PINFCONTEXT context);
BOOL WINAPI SetupGetStringFieldW(PINFCONTEXT context, DWORD fieldIndex, PWSTR returnBuffer, DWORD returnBufferSize,
                                 PDWORD requiredSize);
BOOL WINAPI SetupGetMultiSzFieldW(PINFCONTEXT context, DWORD fieldIndex, PWSTR returnBuffer, DWORD returnBufferSize,
                                  LPDWORD requiredSize);
