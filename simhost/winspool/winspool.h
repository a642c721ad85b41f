// winspool of the simulated host: the print spooler's calls, records and
// constants as the service uses them, the device mode of wingdi, and the
// TCP/IP port monitor's records that XcvData exchanges (shared with the
// Windows build). The C++ API that arranges and inspects the spooler is in
// simhost/winspool/spooler.h.
#pragma once

#include "simhost/advapi32/security.h"
#include "simhost/wintypes.h"
// After the base types, which it uses.
#include "platform/tcpxcv_records.h"

#include <cstddef>

// ======================================================================
// Error codes of the spooler and its monitors (winerror.h)
// ======================================================================
#ifndef ERROR_BUSY
#define ERROR_BUSY 170L
#endif
#ifndef ERROR_UNKNOWN_PRINTPROCESSOR
#define ERROR_UNKNOWN_PRINTPROCESSOR 1798L
#endif
#ifndef ERROR_INVALID_DATATYPE
#define ERROR_INVALID_DATATYPE 1804L
#endif
#ifndef ERROR_INVALID_ENVIRONMENT
#define ERROR_INVALID_ENVIRONMENT 1805L
#endif

// ======================================================================
// Access rights of print servers and printers
// ======================================================================
// The standard and generic rights, the rights of jobs (JOB_ACCESS_*) and
// PSECURITY_DESCRIPTOR come with the security component's declarations.
#define SERVER_ACCESS_ADMINISTER 0x00000001
#define SERVER_ACCESS_ENUMERATE 0x00000002
#define PRINTER_ACCESS_ADMINISTER 0x00000004
#define PRINTER_ACCESS_USE 0x00000008
#define PRINTER_ACCESS_MANAGE_LIMITED 0x00000040
#define SERVER_ALL_ACCESS (STANDARD_RIGHTS_REQUIRED | SERVER_ACCESS_ADMINISTER | SERVER_ACCESS_ENUMERATE)
#define SERVER_READ (STANDARD_RIGHTS_READ | SERVER_ACCESS_ENUMERATE)
#define SERVER_WRITE (STANDARD_RIGHTS_WRITE | SERVER_ACCESS_ADMINISTER | SERVER_ACCESS_ENUMERATE)
#define SERVER_EXECUTE (STANDARD_RIGHTS_EXECUTE | SERVER_ACCESS_ENUMERATE)
#define PRINTER_ALL_ACCESS (STANDARD_RIGHTS_REQUIRED | PRINTER_ACCESS_ADMINISTER | PRINTER_ACCESS_USE)
#define PRINTER_READ (STANDARD_RIGHTS_READ | PRINTER_ACCESS_USE)
#define PRINTER_WRITE (STANDARD_RIGHTS_WRITE | PRINTER_ACCESS_USE)
#define PRINTER_EXECUTE (STANDARD_RIGHTS_EXECUTE | PRINTER_ACCESS_USE)

// ======================================================================
// Device mode (wingdi.h)
// ======================================================================
#define CCHDEVICENAME 32
#define CCHFORMNAME 32
#define DM_SPECVERSION 0x0401

// dmFields: which members hold a value.
#define DM_ORIENTATION 0x00000001u
#define DM_PAPERSIZE 0x00000002u
#define DM_PAPERLENGTH 0x00000004u
#define DM_PAPERWIDTH 0x00000008u
#define DM_SCALE 0x00000010u
#define DM_POSITION 0x00000020u
#define DM_NUP 0x00000040u
#define DM_DISPLAYORIENTATION 0x00000080u
#define DM_COPIES 0x00000100u
#define DM_DEFAULTSOURCE 0x00000200u
#define DM_PRINTQUALITY 0x00000400u
#define DM_COLOR 0x00000800u
#define DM_DUPLEX 0x00001000u
#define DM_YRESOLUTION 0x00002000u
#define DM_TTOPTION 0x00004000u
#define DM_COLLATE 0x00008000u
#define DM_FORMNAME 0x00010000u
#define DM_LOGPIXELS 0x00020000u
#define DM_BITSPERPEL 0x00040000u
#define DM_PELSWIDTH 0x00080000u
#define DM_PELSHEIGHT 0x00100000u
#define DM_DISPLAYFLAGS 0x00200000u
#define DM_DISPLAYFREQUENCY 0x00400000u
#define DM_ICMMETHOD 0x00800000u
#define DM_ICMINTENT 0x01000000u
#define DM_MEDIATYPE 0x02000000u
#define DM_DITHERTYPE 0x04000000u
#define DM_PANNINGWIDTH 0x08000000u
#define DM_PANNINGHEIGHT 0x10000000u
#define DM_DISPLAYFIXEDOUTPUT 0x20000000u

// A few member values.
#define DMORIENT_PORTRAIT 1
#define DMORIENT_LANDSCAPE 2
#define DMPAPER_LETTER 1
#define DMPAPER_LEGAL 5
#define DMPAPER_A4 9
#define DMBIN_AUTO 7
#define DMRES_HIGH (-4)
#define DMCOLOR_MONOCHROME 1
#define DMCOLOR_COLOR 2
#define DMDUP_SIMPLEX 1
#define DMDUP_VERTICAL 2
#define DMDUP_HORIZONTAL 3
#define DMTT_BITMAP 1
#define DMCOLLATE_FALSE 0
#define DMCOLLATE_TRUE 1
#define DMNUP_SYSTEM 1
#define DMNUP_ONEUP 2

typedef struct _POINTL {
    LONG x;
    LONG y;
} POINTL, *PPOINTL;

// The device mode with its published members and unions. A driver's private
// data, dmDriverExtra bytes, follows the record in the same block.
typedef struct _devicemodeW {
    WCHAR dmDeviceName[CCHDEVICENAME];
    WORD dmSpecVersion;
    WORD dmDriverVersion;
    WORD dmSize;
    WORD dmDriverExtra;
    DWORD dmFields;
    union {
        struct {
            short dmOrientation;
            short dmPaperSize;
            short dmPaperLength;
            short dmPaperWidth;
            short dmScale;
            short dmCopies;
            short dmDefaultSource;
            short dmPrintQuality;
        };
        struct {
            POINTL dmPosition;
            DWORD dmDisplayOrientation;
            DWORD dmDisplayFixedOutput;
        };
    };
    short dmColor;
    short dmDuplex;
    short dmYResolution;
    short dmTTOption;
    short dmCollate;
    WCHAR dmFormName[CCHFORMNAME];
    WORD dmLogPixels;
    DWORD dmBitsPerPel;
    DWORD dmPelsWidth;
    DWORD dmPelsHeight;
    union {
        DWORD dmDisplayFlags;
        DWORD dmNup;
    };
    DWORD dmDisplayFrequency;
    DWORD dmICMMethod;
    DWORD dmICMIntent;
    DWORD dmMediaType;
    DWORD dmDitherType;
    DWORD dmReserved1;
    DWORD dmReserved2;
    DWORD dmPanningWidth;
    DWORD dmPanningHeight;
} DEVMODEW, *PDEVMODEW, *LPDEVMODEW;

// ======================================================================
// Printers
// ======================================================================
typedef struct _PRINTER_DEFAULTSW {
    LPWSTR pDatatype;
    LPDEVMODEW pDevMode;
    ACCESS_MASK DesiredAccess;
} PRINTER_DEFAULTSW, *PPRINTER_DEFAULTSW, *LPPRINTER_DEFAULTSW;

// OpenPrinter2W's options.
#define PRINTER_OPTION_NO_CACHE 0x1
#define PRINTER_OPTION_CACHE 0x2
#define PRINTER_OPTION_CLIENT_CHANGE 0x4
#define PRINTER_OPTION_NO_CLIENT_DATA 0x8

typedef struct _PRINTER_OPTIONSW {
    UINT cbSize;
    DWORD dwFlags;
} PRINTER_OPTIONSW, *PPRINTER_OPTIONSW, *LPPRINTER_OPTIONSW;

typedef struct _PRINTER_INFO_2W {
    LPWSTR pServerName;
    LPWSTR pPrinterName;
    LPWSTR pShareName;
    LPWSTR pPortName;
    LPWSTR pDriverName;
    LPWSTR pComment;
    LPWSTR pLocation;
    LPDEVMODEW pDevMode;
    LPWSTR pSepFile;
    LPWSTR pPrintProcessor;
    LPWSTR pDatatype;
    LPWSTR pParameters;
    PSECURITY_DESCRIPTOR pSecurityDescriptor;
    DWORD Attributes;
    DWORD Priority;
    DWORD DefaultPriority;
    DWORD StartTime;
    DWORD UntilTime;
    DWORD Status;
    DWORD cJobs;
    DWORD AveragePPM;
} PRINTER_INFO_2W, *PPRINTER_INFO_2W, *LPPRINTER_INFO_2W;

typedef struct _PRINTER_INFO_3 {
    PSECURITY_DESCRIPTOR pSecurityDescriptor;
} PRINTER_INFO_3, *PPRINTER_INFO_3, *LPPRINTER_INFO_3;

typedef struct _PRINTER_INFO_4W {
    LPWSTR pPrinterName;
    LPWSTR pServerName;
    DWORD Attributes;
} PRINTER_INFO_4W, *PPRINTER_INFO_4W, *LPPRINTER_INFO_4W;

typedef struct _PRINTER_INFO_6 {
    DWORD dwStatus;
} PRINTER_INFO_6, *PPRINTER_INFO_6, *LPPRINTER_INFO_6;

#define PRINTER_ATTRIBUTE_QUEUED 0x00000001u
#define PRINTER_ATTRIBUTE_DIRECT 0x00000002u
#define PRINTER_ATTRIBUTE_DEFAULT 0x00000004u
#define PRINTER_ATTRIBUTE_SHARED 0x00000008u
#define PRINTER_ATTRIBUTE_NETWORK 0x00000010u
#define PRINTER_ATTRIBUTE_HIDDEN 0x00000020u
#define PRINTER_ATTRIBUTE_LOCAL 0x00000040u
#define PRINTER_ATTRIBUTE_ENABLE_DEVQ 0x00000080u
#define PRINTER_ATTRIBUTE_KEEPPRINTEDJOBS 0x00000100u
#define PRINTER_ATTRIBUTE_DO_COMPLETE_FIRST 0x00000200u
#define PRINTER_ATTRIBUTE_WORK_OFFLINE 0x00000400u
#define PRINTER_ATTRIBUTE_ENABLE_BIDI 0x00000800u
#define PRINTER_ATTRIBUTE_RAW_ONLY 0x00001000u
#define PRINTER_ATTRIBUTE_PUBLISHED 0x00002000u
#define PRINTER_ATTRIBUTE_FAX 0x00004000u
#define PRINTER_ATTRIBUTE_TS 0x00008000u
#define PRINTER_ATTRIBUTE_PUSHED_USER 0x00020000u
#define PRINTER_ATTRIBUTE_PUSHED_MACHINE 0x00040000u
#define PRINTER_ATTRIBUTE_MACHINE 0x00080000u
#define PRINTER_ATTRIBUTE_FRIENDLY_NAME 0x00100000u
#define PRINTER_ATTRIBUTE_TS_GENERIC_DRIVER 0x00200000u
#define PRINTER_ATTRIBUTE_PER_USER 0x00400000u
#define PRINTER_ATTRIBUTE_ENTERPRISE_CLOUD 0x00800000u

#define PRINTER_STATUS_PAUSED 0x00000001u
#define PRINTER_STATUS_ERROR 0x00000002u
#define PRINTER_STATUS_PENDING_DELETION 0x00000004u
#define PRINTER_STATUS_PAPER_JAM 0x00000008u
#define PRINTER_STATUS_PAPER_OUT 0x00000010u
#define PRINTER_STATUS_MANUAL_FEED 0x00000020u
#define PRINTER_STATUS_PAPER_PROBLEM 0x00000040u
#define PRINTER_STATUS_OFFLINE 0x00000080u
#define PRINTER_STATUS_IO_ACTIVE 0x00000100u
#define PRINTER_STATUS_BUSY 0x00000200u
#define PRINTER_STATUS_PRINTING 0x00000400u
#define PRINTER_STATUS_OUTPUT_BIN_FULL 0x00000800u
#define PRINTER_STATUS_NOT_AVAILABLE 0x00001000u
#define PRINTER_STATUS_WAITING 0x00002000u
#define PRINTER_STATUS_PROCESSING 0x00004000u
#define PRINTER_STATUS_INITIALIZING 0x00008000u
#define PRINTER_STATUS_WARMING_UP 0x00010000u
#define PRINTER_STATUS_TONER_LOW 0x00020000u
#define PRINTER_STATUS_NO_TONER 0x00040000u
#define PRINTER_STATUS_PAGE_PUNT 0x00080000u
#define PRINTER_STATUS_USER_INTERVENTION 0x00100000u
#define PRINTER_STATUS_OUT_OF_MEMORY 0x00200000u
#define PRINTER_STATUS_DOOR_OPEN 0x00400000u
#define PRINTER_STATUS_SERVER_UNKNOWN 0x00800000u
#define PRINTER_STATUS_POWER_SAVE 0x01000000u
#define PRINTER_STATUS_SERVER_OFFLINE 0x02000000u
#define PRINTER_STATUS_DRIVER_UPDATE_NEEDED 0x04000000u

// SetPrinterW's commands at level 0.
#define PRINTER_CONTROL_PAUSE 1
#define PRINTER_CONTROL_RESUME 2
#define PRINTER_CONTROL_PURGE 3
#define PRINTER_CONTROL_SET_STATUS 4

// EnumPrintersW's flags.
#define PRINTER_ENUM_DEFAULT 0x00000001u
#define PRINTER_ENUM_LOCAL 0x00000002u
#define PRINTER_ENUM_CONNECTIONS 0x00000004u
#define PRINTER_ENUM_FAVORITE 0x00000004u
#define PRINTER_ENUM_NAME 0x00000008u
#define PRINTER_ENUM_REMOTE 0x00000010u
#define PRINTER_ENUM_SHARED 0x00000020u
#define PRINTER_ENUM_NETWORK 0x00000040u

BOOL WINAPI OpenPrinterW(LPWSTR printerName, LPHANDLE printer, LPPRINTER_DEFAULTSW defaults);
BOOL WINAPI OpenPrinter2W(LPCWSTR printerName, LPHANDLE printer, LPPRINTER_DEFAULTSW defaults,
                          PPRINTER_OPTIONSW options);
BOOL WINAPI ClosePrinter(HANDLE printer);
HANDLE WINAPI AddPrinterW(LPWSTR serverName, DWORD level, LPBYTE printer);
BOOL WINAPI DeletePrinter(HANDLE printer);
BOOL WINAPI GetPrinterW(HANDLE printer, DWORD level, LPBYTE buffer, DWORD bufferSize, LPDWORD needed);
BOOL WINAPI SetPrinterW(HANDLE printer, DWORD level, LPBYTE info, DWORD command);
BOOL WINAPI EnumPrintersW(DWORD flags, LPWSTR name, DWORD level, LPBYTE buffer, DWORD bufferSize, LPDWORD needed,
                          LPDWORD returned);
BOOL WINAPI SetDefaultPrinterW(LPCWSTR printerName);

// ======================================================================
// Ports and their monitors
// ======================================================================
typedef struct _PORT_INFO_1W {
    LPWSTR pName;
} PORT_INFO_1W, *PPORT_INFO_1W, *LPPORT_INFO_1W;

typedef struct _PORT_INFO_2W {
    LPWSTR pPortName;
    LPWSTR pMonitorName;
    LPWSTR pDescription;
    DWORD fPortType;
    DWORD Reserved;
} PORT_INFO_2W, *PPORT_INFO_2W, *LPPORT_INFO_2W;

#define PORT_TYPE_WRITE 0x0001u
#define PORT_TYPE_READ 0x0002u
#define PORT_TYPE_REDIRECTED 0x0004u
#define PORT_TYPE_NET_ATTACHED 0x0008u

BOOL WINAPI EnumPortsW(LPWSTR serverName, DWORD level, LPBYTE buffer, DWORD bufferSize, LPDWORD needed,
                       LPDWORD returned);
BOOL WINAPI XcvDataW(HANDLE xcv, PCWSTR dataName, PBYTE inputData, DWORD inputSize, PBYTE outputData,
                     DWORD outputSize, PDWORD outputNeeded, PDWORD status);

// ======================================================================
// Printer drivers
// ======================================================================
typedef struct _DRIVER_INFO_1W {
    LPWSTR pName;
} DRIVER_INFO_1W, *PDRIVER_INFO_1W, *LPDRIVER_INFO_1W;

typedef struct _DRIVER_INFO_3W {
    DWORD cVersion;
    LPWSTR pName;
    LPWSTR pEnvironment;
    LPWSTR pDriverPath;
    LPWSTR pDataFile;
    LPWSTR pConfigFile;
    LPWSTR pHelpFile;
    LPWSTR pDependentFiles;
    LPWSTR pMonitorName;
    LPWSTR pDefaultDataType;
} DRIVER_INFO_3W, *PDRIVER_INFO_3W, *LPDRIVER_INFO_3W;

typedef struct _DRIVER_INFO_8W {
    DWORD cVersion;
    LPWSTR pName;
    LPWSTR pEnvironment;
    LPWSTR pDriverPath;
    LPWSTR pDataFile;
    LPWSTR pConfigFile;
    LPWSTR pHelpFile;
    LPWSTR pDependentFiles;
    LPWSTR pMonitorName;
    LPWSTR pDefaultDataType;
    LPWSTR pszzPreviousNames;
    FILETIME ftDriverDate;
    DWORDLONG dwlDriverVersion;
    LPWSTR pszMfgName;
    LPWSTR pszOEMUrl;
    LPWSTR pszHardwareID;
    LPWSTR pszProvider;
    LPWSTR pszPrintProcessor;
    LPWSTR pszVendorSetup;
    LPWSTR pszzColorProfiles;
    LPWSTR pszInfPath;
    DWORD dwPrinterDriverAttributes;
    LPWSTR pszzCoreDriverDependencies;
    FILETIME ftMinInboxDriverVerDate;
    DWORDLONG dwlMinInboxDriverVerVersion;
} DRIVER_INFO_8W, *PDRIVER_INFO_8W, *LPDRIVER_INFO_8W;

BOOL WINAPI EnumPrinterDriversW(LPWSTR serverName, LPWSTR environment, DWORD level, LPBYTE buffer,
                                DWORD bufferSize, LPDWORD needed, LPDWORD returned);

// ======================================================================
// Layout checks
// ======================================================================
// On Windows these records are 964, 236 and 132 bytes, checked where the
// Windows build declares them. Here WCHAR is the 4-byte wchar_t, so the
// records with text are larger; what must match is their layout: the
// published fields with the published counts of characters, bytes and
// DWORDs. Each size below is built from those counts and this platform's
// WCHAR, so a field added, dropped or resized fails the check.
namespace simhost::winspool {
constexpr size_t dwordAligned(size_t bytes) {
    return (bytes + sizeof(DWORD) - 1) / sizeof(DWORD) * sizeof(DWORD);
}
}  // namespace simhost::winspool

static_assert(sizeof(PORT_DATA_1) ==
                  simhost::winspool::dwordAligned((64 + 49 + 33 + 33 + 16) * sizeof(WCHAR) + 540 + 5 * sizeof(DWORD)) +
                      3 * sizeof(DWORD),
              "PORT_DATA_1: 5 strings of 64, 49, 33, 33 and 16 WCHARs, 540 reserved bytes, 8 DWORDs");
static_assert(sizeof(DELETE_PORT_DATA_1) ==
                  simhost::winspool::dwordAligned(64 * sizeof(WCHAR) + 98) + 2 * sizeof(DWORD),
              "DELETE_PORT_DATA_1: a string of 64 WCHARs, 98 reserved bytes, 2 DWORDs");
static_assert(sizeof(CONFIG_INFO_DATA_1) == 128 + sizeof(DWORD),
              "CONFIG_INFO_DATA_1: 128 reserved bytes and a DWORD");
// DEVMODEW is 220 bytes on Windows. Here its two names of 32 WCHARs are
// wider, and the second starts on a 4-byte boundary; the checks follow the
// published members from one to the next.
static_assert(offsetof(DEVMODEW, dmFields) == 32 * sizeof(WCHAR) + 4 * sizeof(WORD),
              "DEVMODEW: a name of 32 WCHARs and four WORDs before dmFields");
static_assert(offsetof(DEVMODEW, dmColor) == offsetof(DEVMODEW, dmFields) + sizeof(DWORD) + 16,
              "DEVMODEW: the 16-byte union of paper and position members follows dmFields");
static_assert(offsetof(DEVMODEW, dmFormName) ==
                  (offsetof(DEVMODEW, dmColor) + 5 * sizeof(short) + alignof(WCHAR) - 1) / alignof(WCHAR) *
                      alignof(WCHAR),
              "DEVMODEW: five shorts from dmColor to dmCollate, then dmFormName");
static_assert(offsetof(DEVMODEW, dmBitsPerPel) ==
                  simhost::winspool::dwordAligned(offsetof(DEVMODEW, dmFormName) + 32 * sizeof(WCHAR) + sizeof(WORD)),
              "DEVMODEW: a form name of 32 WCHARs and dmLogPixels before dmBitsPerPel");
static_assert(sizeof(DEVMODEW) == offsetof(DEVMODEW, dmBitsPerPel) + 13 * sizeof(DWORD),
              "DEVMODEW: thirteen DWORDs from dmBitsPerPel to dmPanningHeight");
static_assert(sizeof(PRINTER_INFO_2W) == 13 * sizeof(void*) + 8 * sizeof(DWORD),
              "PRINTER_INFO_2W: 13 pointers and 8 DWORDs");
static_assert(sizeof(DRIVER_INFO_8W) == 8 + 19 * sizeof(void*) + 2 * sizeof(FILETIME) + 2 * 8 + 8,
              "DRIVER_INFO_8W: the published members in 64-bit alignment");
