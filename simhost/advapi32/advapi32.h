// advapi32 of the simulated host: the registry, the service control manager
// with the service control dispatcher, and the event log. Below the Windows
// declarations, in namespace simhost::advapi32, the test and host API that
// arranges and inspects these parts of the machine.
#pragma once

#include "simhost/kernel32/kernel32.h"
#include "simhost/wintypes.h"

#include <optional>
#include <string>
#include <vector>

// ---- Error codes of these components (winerror.h) ----
#ifndef ERROR_NOACCESS
#define ERROR_NOACCESS 998L
#endif
#ifndef ERROR_INVALID_SERVICE_CONTROL
#define ERROR_INVALID_SERVICE_CONTROL 1052L
#endif
#ifndef ERROR_DATABASE_DOES_NOT_EXIST
#define ERROR_DATABASE_DOES_NOT_EXIST 1065L
#endif
#ifndef ERROR_SERVICE_NEVER_STARTED
#define ERROR_SERVICE_NEVER_STARTED 1077L
#endif
#ifndef ERROR_SERVICE_NOT_IN_EXE
#define ERROR_SERVICE_NOT_IN_EXE 1083L
#endif
#ifndef ERROR_DATATYPE_MISMATCH
#define ERROR_DATATYPE_MISMATCH 1629L
#endif
#ifndef ERROR_UNSUPPORTED_TYPE
#define ERROR_UNSUPPORTED_TYPE 1630L
#endif
#ifndef RPC_S_INVALID_BOUND
#define RPC_S_INVALID_BOUND 1734L
#endif
#ifndef RPC_X_NULL_REF_POINTER
#define RPC_X_NULL_REF_POINTER 1780L
#endif

// ---- Access rights shared by every securable object (winnt.h) ----
typedef DWORD ACCESS_MASK;
#ifndef DELETE
#define DELETE 0x00010000u
#endif
#ifndef READ_CONTROL
#define READ_CONTROL 0x00020000u
#endif
#ifndef WRITE_DAC
#define WRITE_DAC 0x00040000u
#endif
#ifndef WRITE_OWNER
#define WRITE_OWNER 0x00080000u
#endif
#ifndef SYNCHRONIZE
#define SYNCHRONIZE 0x00100000u
#endif
#ifndef STANDARD_RIGHTS_REQUIRED
#define STANDARD_RIGHTS_REQUIRED 0x000F0000u
#endif
#ifndef STANDARD_RIGHTS_READ
#define STANDARD_RIGHTS_READ READ_CONTROL
#endif
#ifndef STANDARD_RIGHTS_WRITE
#define STANDARD_RIGHTS_WRITE READ_CONTROL
#endif
#ifndef STANDARD_RIGHTS_EXECUTE
#define STANDARD_RIGHTS_EXECUTE READ_CONTROL
#endif
#ifndef STANDARD_RIGHTS_ALL
#define STANDARD_RIGHTS_ALL 0x001F0000u
#endif
#ifndef MAXIMUM_ALLOWED
#define MAXIMUM_ALLOWED 0x02000000u
#endif
#ifndef GENERIC_ALL
#define GENERIC_ALL 0x10000000u
#endif
#ifndef GENERIC_EXECUTE
#define GENERIC_EXECUTE 0x20000000u
#endif
#ifndef GENERIC_WRITE
#define GENERIC_WRITE 0x40000000u
#endif
#ifndef GENERIC_READ
#define GENERIC_READ 0x80000000u
#endif

// A security identifier, read by its published layout: revision, count of
// sub-authorities, 6 bytes of authority, then the sub-authorities.
typedef PVOID PSID;

// ======================================================================
// Registry
// ======================================================================
struct HKEY__;
typedef HKEY__* HKEY;
typedef HKEY* PHKEY;
typedef ACCESS_MASK REGSAM;
typedef LONG LSTATUS;

#define HKEY_CLASSES_ROOT ((HKEY)(ULONG_PTR)((LONG)0x80000000))
#define HKEY_CURRENT_USER ((HKEY)(ULONG_PTR)((LONG)0x80000001))
#define HKEY_LOCAL_MACHINE ((HKEY)(ULONG_PTR)((LONG)0x80000002))
#define HKEY_USERS ((HKEY)(ULONG_PTR)((LONG)0x80000003))

// Access rights of keys.
#define KEY_QUERY_VALUE 0x0001u
#define KEY_SET_VALUE 0x0002u
#define KEY_CREATE_SUB_KEY 0x0004u
#define KEY_ENUMERATE_SUB_KEYS 0x0008u
#define KEY_NOTIFY 0x0010u
#define KEY_CREATE_LINK 0x0020u
#define KEY_WOW64_64KEY 0x0100u
#define KEY_WOW64_32KEY 0x0200u
#define KEY_READ ((STANDARD_RIGHTS_READ | KEY_QUERY_VALUE | KEY_ENUMERATE_SUB_KEYS | KEY_NOTIFY) & ~SYNCHRONIZE)
#define KEY_WRITE ((STANDARD_RIGHTS_WRITE | KEY_SET_VALUE | KEY_CREATE_SUB_KEY) & ~SYNCHRONIZE)
#define KEY_EXECUTE (KEY_READ & ~SYNCHRONIZE)
#define KEY_ALL_ACCESS                                                                                           \
    ((STANDARD_RIGHTS_ALL | KEY_QUERY_VALUE | KEY_SET_VALUE | KEY_CREATE_SUB_KEY | KEY_ENUMERATE_SUB_KEYS | \
      KEY_NOTIFY | KEY_CREATE_LINK) &                                                                            \
     ~SYNCHRONIZE)

// RegCreateKeyExW options and dispositions.
#define REG_OPTION_NON_VOLATILE 0x00000000u
#define REG_OPTION_VOLATILE 0x00000001u
#define REG_OPTION_CREATE_LINK 0x00000002u
#define REG_OPTION_BACKUP_RESTORE 0x00000004u
#define REG_OPTION_OPEN_LINK 0x00000008u
#define REG_CREATED_NEW_KEY 0x00000001u
#define REG_OPENED_EXISTING_KEY 0x00000002u

// RegGetValueW flags: the types admitted, and how to read.
#define RRF_RT_REG_NONE 0x00000001u
#define RRF_RT_REG_SZ 0x00000002u
#define RRF_RT_REG_EXPAND_SZ 0x00000004u
#define RRF_RT_REG_BINARY 0x00000008u
#define RRF_RT_REG_DWORD 0x00000010u
#define RRF_RT_REG_MULTI_SZ 0x00000020u
#define RRF_RT_REG_QWORD 0x00000040u
#define RRF_RT_DWORD (RRF_RT_REG_BINARY | RRF_RT_REG_DWORD)
#define RRF_RT_QWORD (RRF_RT_REG_BINARY | RRF_RT_REG_QWORD)
#define RRF_RT_ANY 0x0000ffffu
#define RRF_SUBKEY_WOW6464KEY 0x00010000u
#define RRF_SUBKEY_WOW6432KEY 0x00020000u
#define RRF_NOEXPAND 0x10000000u
#define RRF_ZEROONFAILURE 0x20000000u

LSTATUS WINAPI RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM desired, PHKEY result);
LSTATUS WINAPI RegCreateKeyExW(HKEY key, LPCWSTR subKey, DWORD reserved, LPWSTR keyClass, DWORD options,
                               REGSAM desired, LPSECURITY_ATTRIBUTES securityAttributes, PHKEY result,
                               LPDWORD disposition);
LSTATUS WINAPI RegCloseKey(HKEY key);
LSTATUS WINAPI RegSetValueExW(HKEY key, LPCWSTR valueName, DWORD reserved, DWORD type, const BYTE* data,
                              DWORD dataSize);
LSTATUS WINAPI RegQueryValueExW(HKEY key, LPCWSTR valueName, LPDWORD reserved, LPDWORD type, LPBYTE data,
                                LPDWORD dataSize);
LSTATUS WINAPI RegGetValueW(HKEY key, LPCWSTR subKey, LPCWSTR valueName, DWORD flags, LPDWORD type, PVOID data,
                            LPDWORD dataSize);
LSTATUS WINAPI RegDeleteValueW(HKEY key, LPCWSTR valueName);
LSTATUS WINAPI RegDeleteKeyW(HKEY key, LPCWSTR subKey);

// ======================================================================
// Service control manager and service control dispatcher
// ======================================================================
struct SC_HANDLE__;
typedef SC_HANDLE__* SC_HANDLE;
typedef SC_HANDLE* LPSC_HANDLE;
struct SERVICE_STATUS_HANDLE__;
typedef SERVICE_STATUS_HANDLE__* SERVICE_STATUS_HANDLE;

// Service types.
#define SERVICE_KERNEL_DRIVER 0x00000001u
#define SERVICE_FILE_SYSTEM_DRIVER 0x00000002u
#define SERVICE_ADAPTER 0x00000004u
#define SERVICE_RECOGNIZER_DRIVER 0x00000008u
#define SERVICE_DRIVER (SERVICE_KERNEL_DRIVER | SERVICE_FILE_SYSTEM_DRIVER | SERVICE_RECOGNIZER_DRIVER)
#define SERVICE_WIN32_OWN_PROCESS 0x00000010u
#define SERVICE_WIN32_SHARE_PROCESS 0x00000020u
#define SERVICE_WIN32 (SERVICE_WIN32_OWN_PROCESS | SERVICE_WIN32_SHARE_PROCESS)
#define SERVICE_INTERACTIVE_PROCESS 0x00000100u

// Start types.
#define SERVICE_BOOT_START 0x00000000u
#define SERVICE_SYSTEM_START 0x00000001u
#define SERVICE_AUTO_START 0x00000002u
#define SERVICE_DEMAND_START 0x00000003u
#define SERVICE_DISABLED 0x00000004u

// Error control.
#define SERVICE_ERROR_IGNORE 0x00000000u
#define SERVICE_ERROR_NORMAL 0x00000001u
#define SERVICE_ERROR_SEVERE 0x00000002u
#define SERVICE_ERROR_CRITICAL 0x00000003u

// Current states.
#define SERVICE_STOPPED 0x00000001u
#define SERVICE_START_PENDING 0x00000002u
#define SERVICE_STOP_PENDING 0x00000003u
#define SERVICE_RUNNING 0x00000004u
#define SERVICE_CONTINUE_PENDING 0x00000005u
#define SERVICE_PAUSE_PENDING 0x00000006u
#define SERVICE_PAUSED 0x00000007u

// Controls.
#define SERVICE_CONTROL_STOP 0x00000001u
#define SERVICE_CONTROL_PAUSE 0x00000002u
#define SERVICE_CONTROL_CONTINUE 0x00000003u
#define SERVICE_CONTROL_INTERROGATE 0x00000004u
#define SERVICE_CONTROL_SHUTDOWN 0x00000005u
#define SERVICE_CONTROL_PARAMCHANGE 0x00000006u
#define SERVICE_CONTROL_NETBINDADD 0x00000007u
#define SERVICE_CONTROL_NETBINDREMOVE 0x00000008u
#define SERVICE_CONTROL_NETBINDENABLE 0x00000009u
#define SERVICE_CONTROL_NETBINDDISABLE 0x0000000Au

// Controls a service accepts.
#define SERVICE_ACCEPT_STOP 0x00000001u
#define SERVICE_ACCEPT_PAUSE_CONTINUE 0x00000002u
#define SERVICE_ACCEPT_SHUTDOWN 0x00000004u
#define SERVICE_ACCEPT_PARAMCHANGE 0x00000008u
#define SERVICE_ACCEPT_NETBINDCHANGE 0x00000010u

// Access rights of the control manager.
#define SC_MANAGER_CONNECT 0x0001u
#define SC_MANAGER_CREATE_SERVICE 0x0002u
#define SC_MANAGER_ENUMERATE_SERVICE 0x0004u
#define SC_MANAGER_LOCK 0x0008u
#define SC_MANAGER_QUERY_LOCK_STATUS 0x0010u
#define SC_MANAGER_MODIFY_BOOT_CONFIG 0x0020u
#define SC_MANAGER_ALL_ACCESS                                                                            \
    (STANDARD_RIGHTS_REQUIRED | SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE |                        \
     SC_MANAGER_ENUMERATE_SERVICE | SC_MANAGER_LOCK | SC_MANAGER_QUERY_LOCK_STATUS |                     \
     SC_MANAGER_MODIFY_BOOT_CONFIG)

// Access rights of a service.
#define SERVICE_QUERY_CONFIG 0x0001u
#define SERVICE_CHANGE_CONFIG 0x0002u
#define SERVICE_QUERY_STATUS 0x0004u
#define SERVICE_ENUMERATE_DEPENDENTS 0x0008u
#define SERVICE_START 0x0010u
#define SERVICE_STOP 0x0020u
#define SERVICE_PAUSE_CONTINUE 0x0040u
#define SERVICE_INTERROGATE 0x0080u
#define SERVICE_USER_DEFINED_CONTROL 0x0100u
#define SERVICE_ALL_ACCESS                                                                                   \
    (STANDARD_RIGHTS_REQUIRED | SERVICE_QUERY_CONFIG | SERVICE_CHANGE_CONFIG | SERVICE_QUERY_STATUS |       \
     SERVICE_ENUMERATE_DEPENDENTS | SERVICE_START | SERVICE_STOP | SERVICE_PAUSE_CONTINUE |                 \
     SERVICE_INTERROGATE | SERVICE_USER_DEFINED_CONTROL)

#define SERVICES_ACTIVE_DATABASEW L"ServicesActive"
#define SC_GROUP_IDENTIFIERW L'+'

typedef struct _SERVICE_STATUS {
    DWORD dwServiceType;
    DWORD dwCurrentState;
    DWORD dwControlsAccepted;
    DWORD dwWin32ExitCode;
    DWORD dwServiceSpecificExitCode;
    DWORD dwCheckPoint;
    DWORD dwWaitHint;
} SERVICE_STATUS, *LPSERVICE_STATUS;

typedef VOID(WINAPI* LPSERVICE_MAIN_FUNCTIONW)(DWORD argc, LPWSTR* argv);
typedef VOID(WINAPI* LPHANDLER_FUNCTION)(DWORD control);

typedef struct _SERVICE_TABLE_ENTRYW {
    LPWSTR lpServiceName;
    LPSERVICE_MAIN_FUNCTIONW lpServiceProc;
} SERVICE_TABLE_ENTRYW, *LPSERVICE_TABLE_ENTRYW;

SC_HANDLE WINAPI OpenSCManagerW(LPCWSTR machineName, LPCWSTR databaseName, DWORD desiredAccess);
SC_HANDLE WINAPI CreateServiceW(SC_HANDLE manager, LPCWSTR serviceName, LPCWSTR displayName, DWORD desiredAccess,
                                DWORD serviceType, DWORD startType, DWORD errorControl, LPCWSTR binaryPathName,
                                LPCWSTR loadOrderGroup, LPDWORD tagId, LPCWSTR dependencies,
                                LPCWSTR serviceStartName, LPCWSTR password);
SC_HANDLE WINAPI OpenServiceW(SC_HANDLE manager, LPCWSTR serviceName, DWORD desiredAccess);
BOOL WINAPI ControlService(SC_HANDLE service, DWORD control, LPSERVICE_STATUS status);
BOOL WINAPI QueryServiceStatus(SC_HANDLE service, LPSERVICE_STATUS status);
BOOL WINAPI DeleteService(SC_HANDLE service);
BOOL WINAPI CloseServiceHandle(SC_HANDLE handle);

BOOL WINAPI StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* serviceTable);
SERVICE_STATUS_HANDLE WINAPI RegisterServiceCtrlHandlerW(LPCWSTR serviceName, LPHANDLER_FUNCTION handler);
BOOL WINAPI SetServiceStatus(SERVICE_STATUS_HANDLE statusHandle, LPSERVICE_STATUS status);

// ======================================================================
// Event log
// ======================================================================
#define EVENTLOG_SUCCESS 0x0000u
#define EVENTLOG_ERROR_TYPE 0x0001u
#define EVENTLOG_WARNING_TYPE 0x0002u
#define EVENTLOG_INFORMATION_TYPE 0x0004u
#define EVENTLOG_AUDIT_SUCCESS 0x0008u
#define EVENTLOG_AUDIT_FAILURE 0x0010u

HANDLE WINAPI RegisterEventSourceW(LPCWSTR serverName, LPCWSTR sourceName);
BOOL WINAPI ReportEventW(HANDLE eventLog, WORD type, WORD category, DWORD eventId, PSID userSid, WORD stringCount,
                         DWORD dataSize, LPCWSTR* strings, LPVOID rawData);
BOOL WINAPI DeregisterEventSource(HANDLE eventLog);

// ======================================================================
// Test and host API
// ======================================================================
namespace simhost {
namespace advapi32 {

// ---- Registry ----
// Keys are given as a predefined root and a path below it ("SOFTWARE\A\B");
// these calls ignore injected faults and access rights, create missing keys
// on the way, and throw std::invalid_argument for a root that is not one of
// the four predefined keys.
struct RegistryValue {
    DWORD type = REG_NONE;
    std::vector<BYTE> data;
};

// The data of a REG_SZ or REG_EXPAND_SZ value: the text and its NUL.
std::vector<BYTE> stringValueData(const std::wstring& text);
// The data of a REG_MULTI_SZ value: each string with its NUL, then one NUL.
std::vector<BYTE> multiStringValueData(const std::vector<std::wstring>& strings);

void createRegistryKey(HKEY root, const std::wstring& keyPath);
void setRegistryValue(HKEY root, const std::wstring& keyPath, const std::wstring& valueName, DWORD type,
                      std::vector<BYTE> data);
void setRegistryString(HKEY root, const std::wstring& keyPath, const std::wstring& valueName,
                       const std::wstring& text);
void setRegistryExpandString(HKEY root, const std::wstring& keyPath, const std::wstring& valueName,
                             const std::wstring& text);
void setRegistryMultiString(HKEY root, const std::wstring& keyPath, const std::wstring& valueName,
                            const std::vector<std::wstring>& strings);
void setRegistryDword(HKEY root, const std::wstring& keyPath, const std::wstring& valueName, DWORD value);
void setRegistryQword(HKEY root, const std::wstring& keyPath, const std::wstring& valueName, ULONGLONG value);
void setRegistryBinary(HKEY root, const std::wstring& keyPath, const std::wstring& valueName,
                       std::vector<BYTE> data);
// False when the key or value was not there.
bool deleteRegistryValue(HKEY root, const std::wstring& keyPath, const std::wstring& valueName);
// Removes the key with all its subkeys and values; false when it was not there.
bool deleteRegistryTree(HKEY root, const std::wstring& keyPath);

bool registryKeyExists(HKEY root, const std::wstring& keyPath);
std::optional<RegistryValue> registryValue(HKEY root, const std::wstring& keyPath, const std::wstring& valueName);
// Typed reads: nothing when the value is missing or of another type. A string
// ends at its first NUL.
std::optional<std::wstring> registryString(HKEY root, const std::wstring& keyPath, const std::wstring& valueName);
std::optional<DWORD> registryDword(HKEY root, const std::wstring& keyPath, const std::wstring& valueName);
std::optional<std::vector<std::wstring>> registryMultiString(HKEY root, const std::wstring& keyPath,
                                                             const std::wstring& valueName);

// The predefined key of a root's name: "HKEY_LOCAL_MACHINE" or "HKLM",
// "HKEY_CURRENT_USER" or "HKCU", "HKEY_USERS" or "HKU", "HKEY_CLASSES_ROOT"
// or "HKCR", regardless of case; nothing for another name.
std::optional<HKEY> predefinedKeyNamed(const std::wstring& name);

// The whole registry, key by key: every key of HKEY_LOCAL_MACHINE, then of
// HKEY_USERS, parents before children, siblings in the order of their names
// regardless of case, each with its values in the order they were made.
// Paths are full ("HKEY_LOCAL_MACHINE\SOFTWARE\A"); names keep their case.
struct RegistryValueEntry {
    std::wstring name;
    DWORD type = REG_NONE;
    std::vector<BYTE> data;
};
struct RegistryKeyEntry {
    std::wstring path;
    std::vector<RegistryValueEntry> values;
};
std::vector<RegistryKeyEntry> dumpRegistry();

// Key handles opened or created and not yet closed, for leak tests.
size_t openRegistryKeyCount();

// ---- Service control manager ----
// Every value CreateServiceW was given, as given; a null string parameter
// is an empty optional.
struct ServiceRegistration {
    std::wstring serviceName;
    std::optional<std::wstring> displayName;
    DWORD desiredAccess = 0;
    DWORD serviceType = 0;
    DWORD startType = 0;
    DWORD errorControl = 0;
    std::wstring binaryPathName;
    std::optional<std::wstring> loadOrderGroup;
    bool tagRequested = false;
    DWORD tagId = 0;  // the tag given out, 0 when none was asked for
    std::optional<std::vector<std::wstring>> dependencies;
    std::optional<std::wstring> serviceStartName;
    std::optional<std::wstring> password;
};

// Whether this process was started by the control manager, which decides
// whether StartServiceCtrlDispatcherW connects (true) or fails as for a
// program started by hand (false, the default).
void setStartedByControlManager(bool started);
bool startedByControlManager();
// Whether the caller holds an administrator's token (true by default).
// Without one, OpenSCManagerW grants only connect, enumerate and lock-status
// queries, and OpenServiceW only the rights the default service security
// gives to users: query config and status, enumerate dependents,
// interrogate, user-defined controls and read control.
void setCallerIsAdministrator(bool administrator);

std::optional<ServiceRegistration> serviceRegistration(const std::wstring& serviceName);
std::vector<std::wstring> installedServices();
bool serviceMarkedForDelete(const std::wstring& serviceName);
// What QueryServiceStatus would answer; nothing for a service not installed.
std::optional<SERVICE_STATUS> serviceStatus(const std::wstring& serviceName);
// Control manager handles (of the manager and of services) not yet closed.
size_t openServiceHandleCount();

// Sends a control to the handler of the running service of this process, as
// the control manager does (SERVICE_CONTROL_SHUTDOWN at system shutdown, for
// one), without the checks ControlService makes, and waits until the handler
// has returned, up to 30 seconds on the host's time scale. False when no
// dispatcher is serving, no handler is registered, or the wait ran out.
bool deliverControl(DWORD control);
// Every status the service of this process reported through
// SetServiceStatus and the control manager accepted, in order.
std::vector<SERVICE_STATUS> serviceStatusHistory();

// ---- Event log ----
struct EventLogEntry {
    std::wstring source;
    WORD type = 0;
    WORD category = 0;
    DWORD eventId = 0;
    std::vector<BYTE> userSid;  // empty without a SID
    std::vector<std::wstring> strings;
    std::vector<BYTE> rawData;
};
// Every entry written, in order.
std::vector<EventLogEntry> eventLogEntries();
// Event source handles registered and not yet deregistered.
size_t openEventSourceCount();

}  // namespace advapi32
}  // namespace simhost
