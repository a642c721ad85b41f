// The service control manager of the simulated machine and the service
// control dispatcher of this process.
//
// The manager keeps the installed services with their registration and
// current status, and writes each service's key under
// HKLM\SYSTEM\CurrentControlSet\Services as Windows does. The dispatcher
// connects only when the host says the manager started this process; it
// then runs the service main function of the table's first row on a thread
// of its own, serves controls on the calling thread, and returns once the
// service has reported SERVICE_STOPPED and its main function has returned.
// Controls come from ControlService and from the host (deliverControl),
// one at a time, and each waits until the handler has returned.
#include "simhost/advapi32/advapi32.h"
#include "simhost/advapi32/advapi32_internal.h"
#include "simhost/core/host.h"
#include "simhost/kernel32/objects.h"
#include "simhost/kernel32/threads.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <unordered_map>

namespace simhost {
namespace advapi32 {
namespace {

constexpr GenericMapping kManagerMapping = {
    STANDARD_RIGHTS_READ | SC_MANAGER_ENUMERATE_SERVICE | SC_MANAGER_QUERY_LOCK_STATUS,
    STANDARD_RIGHTS_WRITE | SC_MANAGER_CREATE_SERVICE | SC_MANAGER_MODIFY_BOOT_CONFIG,
    STANDARD_RIGHTS_EXECUTE | SC_MANAGER_CONNECT | SC_MANAGER_LOCK, SC_MANAGER_ALL_ACCESS};
constexpr GenericMapping kServiceMapping = {
    STANDARD_RIGHTS_READ | SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS | SERVICE_INTERROGATE |
        SERVICE_ENUMERATE_DEPENDENTS,
    STANDARD_RIGHTS_WRITE | SERVICE_CHANGE_CONFIG,
    STANDARD_RIGHTS_EXECUTE | SERVICE_START | SERVICE_STOP | SERVICE_PAUSE_CONTINUE | SERVICE_USER_DEFINED_CONTROL,
    SERVICE_ALL_ACCESS};
// What the default security of the manager and of a service grants a caller
// that is not an administrator.
constexpr ACCESS_MASK kUserManagerRights =
    SC_MANAGER_CONNECT | SC_MANAGER_ENUMERATE_SERVICE | SC_MANAGER_QUERY_LOCK_STATUS | READ_CONTROL;
constexpr ACCESS_MASK kUserServiceRights = SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS |
                                           SERVICE_ENUMERATE_DEPENDENTS | SERVICE_INTERROGATE |
                                           SERVICE_USER_DEFINED_CONTROL | READ_CONTROL;

constexpr size_t kMaxNameLength = 256;
// How long the manager waits for a handler to return.
constexpr DWORD kControlTimeoutMs = 30000;
const std::wstring kServicesKey = L"SYSTEM\\CurrentControlSet\\Services";

struct ServiceRecord {
    ServiceRegistration registration;
    SERVICE_STATUS status{};
    bool markedForDelete = false;
    size_t openHandles = 0;
};
using RecordPtr = std::shared_ptr<ServiceRecord>;

struct ScHandleEntry {
    RecordPtr service;  // null for a handle of the manager itself
    ACCESS_MASK access = 0;
};

struct PendingControl {
    DWORD control = 0;
    bool finished = false;
    bool handled = false;
};
using PendingPtr = std::shared_ptr<PendingControl>;

struct Dispatcher {
    std::wstring serviceName;
    RecordPtr record;  // the installed service it runs; null when not installed
    LPHANDLER_FUNCTION handler = nullptr;
    SERVICE_STATUS_HANDLE statusHandle = nullptr;
    bool stopped = false;
    std::deque<PendingPtr> controls;
};

struct ServiceControlState {
    std::mutex mutex;
    // Signalled when a control is queued or finished and when the service stops.
    std::condition_variable changed;
    std::map<std::wstring, RecordPtr> services;  // by folded name
    std::unordered_map<SC_HANDLE, ScHandleEntry> handles;
    bool startedByControlManager = false;
    bool administrator = true;
    std::shared_ptr<Dispatcher> dispatcher;  // from the first StartServiceCtrlDispatcherW on
    std::vector<SERVICE_STATUS> history;
};

ServiceControlState& serviceState() { return Host::get().state<ServiceControlState>(); }

template <class Work>
auto withServices(Work work) {
    ServiceControlState& state = serviceState();
    std::lock_guard<std::mutex> hold(state.mutex);
    return work(state);
}

std::chrono::steady_clock::time_point controlDeadline() {
    return std::chrono::steady_clock::now() +
           std::chrono::milliseconds(Host::get().scaledMilliseconds(kControlTimeoutMs));
}

// ---- Names and registrations ----

bool isValidServiceName(LPCWSTR name) {
    if (!name || !*name) return false;
    std::wstring text(name);
    return text.size() <= kMaxNameLength && text.find_first_of(L"/\\") == std::wstring::npos;
}

std::wstring effectiveDisplayName(const ServiceRegistration& registration) {
    const auto& display = registration.displayName;
    return display && !display->empty() ? *display : registration.serviceName;
}

std::optional<std::wstring> optionalText(LPCWSTR text) {
    return text ? std::optional<std::wstring>(text) : std::nullopt;
}

// A list of NUL-ended strings closed by an empty one.
std::optional<std::vector<std::wstring>> stringList(LPCWSTR list) {
    if (!list) return std::nullopt;
    std::vector<std::wstring> strings;
    for (LPCWSTR text = list; *text; text += strings.back().size() + 1) strings.emplace_back(text);
    return strings;
}

bool isDriverType(DWORD type) { return type == SERVICE_KERNEL_DRIVER || type == SERVICE_FILE_SYSTEM_DRIVER; }

bool isWin32Type(DWORD type) {
    DWORD base = type & ~SERVICE_INTERACTIVE_PROCESS;
    return base == SERVICE_WIN32_OWN_PROCESS || base == SERVICE_WIN32_SHARE_PROCESS;
}

// ERROR_INVALID_NAME or ERROR_INVALID_PARAMETER for a registration Windows
// refuses: a bad name, an unknown type, start type or error control, a
// boot or system start for a program, no binary, or a tag without a group.
DWORD checkRegistration(const ServiceRegistration& registration) {
    const auto& display = registration.displayName;
    if (!isValidServiceName(registration.serviceName.c_str()) || (display && display->size() > kMaxNameLength))
        return ERROR_INVALID_NAME;
    DWORD type = registration.serviceType;
    bool knownType = isWin32Type(type) || isDriverType(type);
    bool startFits = registration.startType <= SERVICE_DISABLED &&
                     (registration.startType >= SERVICE_AUTO_START || isDriverType(type));
    bool groupGiven = registration.loadOrderGroup && !registration.loadOrderGroup->empty();
    if (!knownType || !startFits || registration.errorControl > SERVICE_ERROR_CRITICAL ||
        registration.binaryPathName.empty() || (registration.tagRequested && !groupGiven))
        return ERROR_INVALID_PARAMETER;
    return ERROR_SUCCESS;
}

// ERROR_SERVICE_EXISTS or ERROR_SERVICE_MARKED_FOR_DELETE for a name in use,
// ERROR_DUPLICATE_SERVICE_NAME when the name or display name is another
// service's name or display name.
DWORD checkNameIsFree(const ServiceControlState& state, const ServiceRegistration& registration) {
    auto existing = state.services.find(foldCase(registration.serviceName));
    if (existing != state.services.end())
        return existing->second->markedForDelete ? ERROR_SERVICE_MARKED_FOR_DELETE : ERROR_SERVICE_EXISTS;
    std::wstring name = foldCase(registration.serviceName);
    std::wstring display = foldCase(effectiveDisplayName(registration));
    for (const auto& other : state.services) {
        std::wstring otherDisplay = foldCase(effectiveDisplayName(other.second->registration));
        if (display == other.first || name == otherDisplay || display == otherDisplay)
            return ERROR_DUPLICATE_SERVICE_NAME;
    }
    return ERROR_SUCCESS;
}

// Tags are unique within a load order group: the next after the highest.
DWORD nextTag(const ServiceControlState& state, const std::wstring& group) {
    DWORD highest = 0;
    for (const auto& service : state.services) {
        const ServiceRegistration& other = service.second->registration;
        if (other.loadOrderGroup && sameIgnoringCase(*other.loadOrderGroup, group))
            highest = std::max(highest, other.tagId);
    }
    return highest + 1;
}

std::wstring serviceKeyPath(const std::wstring& serviceName) { return kServicesKey + L"\\" + serviceName; }

void writeDependencies(const std::wstring& key, const std::vector<std::wstring>& dependencies) {
    std::vector<std::wstring> services;
    std::vector<std::wstring> groups;
    for (const std::wstring& name : dependencies) {
        if (!name.empty() && name[0] == SC_GROUP_IDENTIFIERW)
            groups.push_back(name.substr(1));
        else
            services.push_back(name);
    }
    if (!services.empty()) setRegistryMultiString(HKEY_LOCAL_MACHINE, key, L"DependOnService", services);
    if (!groups.empty()) setRegistryMultiString(HKEY_LOCAL_MACHINE, key, L"DependOnGroup", groups);
}

// The service's key as CreateServiceW writes it.
void writeServiceKey(const ServiceRegistration& registration) {
    std::wstring key = serviceKeyPath(registration.serviceName);
    setRegistryDword(HKEY_LOCAL_MACHINE, key, L"Type", registration.serviceType);
    setRegistryDword(HKEY_LOCAL_MACHINE, key, L"Start", registration.startType);
    setRegistryDword(HKEY_LOCAL_MACHINE, key, L"ErrorControl", registration.errorControl);
    setRegistryExpandString(HKEY_LOCAL_MACHINE, key, L"ImagePath", registration.binaryPathName);
    setRegistryString(HKEY_LOCAL_MACHINE, key, L"DisplayName", effectiveDisplayName(registration));
    if (registration.serviceStartName)
        setRegistryString(HKEY_LOCAL_MACHINE, key, L"ObjectName", *registration.serviceStartName);
    else if (isWin32Type(registration.serviceType))
        setRegistryString(HKEY_LOCAL_MACHINE, key, L"ObjectName", L"LocalSystem");
    if (registration.loadOrderGroup && !registration.loadOrderGroup->empty())
        setRegistryString(HKEY_LOCAL_MACHINE, key, L"Group", *registration.loadOrderGroup);
    if (registration.tagRequested) setRegistryDword(HKEY_LOCAL_MACHINE, key, L"Tag", registration.tagId);
    if (registration.dependencies) writeDependencies(key, *registration.dependencies);
}

// ---- Handles ----

SC_HANDLE newScHandle(ServiceControlState& state, RecordPtr service, ACCESS_MASK access) {
    SC_HANDLE handle = reinterpret_cast<SC_HANDLE>(reserveHandleValue());
    if (service) ++service->openHandles;
    state.handles[handle] = {std::move(service), access};
    return handle;
}

ScHandleEntry* findHandle(ServiceControlState& state, SC_HANDLE handle, bool ofService) {
    auto it = state.handles.find(handle);
    if (it == state.handles.end() || (it->second.service != nullptr) != ofService) return nullptr;
    return &it->second;
}

// The rights a new handle gets, or nothing when the caller may not have them.
std::optional<ACCESS_MASK> grantedAccess(const ServiceControlState& state, ACCESS_MASK desired,
                                         const GenericMapping& mapping, ACCESS_MASK userRights) {
    ACCESS_MASK wanted = mapGenericAccess(desired, mapping);
    if (!state.administrator && !grants(userRights, wanted)) return std::nullopt;
    return wanted;
}

// A service marked for deletion goes once no handle is open on it and it is
// not running: its record and its registry key.
void removeIfUnused(ServiceControlState& state, const RecordPtr& record) {
    if (!record->markedForDelete || record->openHandles || record->status.dwCurrentState != SERVICE_STOPPED) return;
    state.services.erase(foldCase(record->registration.serviceName));
    deleteRegistryTree(HKEY_LOCAL_MACHINE, serviceKeyPath(record->registration.serviceName));
}

// ---- Controls ----

bool isSendableControl(DWORD control) {
    return (control >= SERVICE_CONTROL_STOP && control <= SERVICE_CONTROL_NETBINDDISABLE &&
            control != SERVICE_CONTROL_SHUTDOWN) ||
           (control >= 128 && control <= 255);
}

ACCESS_MASK rightForControl(DWORD control) {
    if (control == SERVICE_CONTROL_STOP) return SERVICE_STOP;
    if (control == SERVICE_CONTROL_INTERROGATE) return SERVICE_INTERROGATE;
    if (control >= 128) return SERVICE_USER_DEFINED_CONTROL;
    return SERVICE_PAUSE_CONTINUE;
}

bool acceptsControl(DWORD accepted, DWORD control) {
    switch (control) {
    case SERVICE_CONTROL_STOP: return accepted & SERVICE_ACCEPT_STOP;
    case SERVICE_CONTROL_PAUSE:
    case SERVICE_CONTROL_CONTINUE: return accepted & SERVICE_ACCEPT_PAUSE_CONTINUE;
    case SERVICE_CONTROL_PARAMCHANGE: return accepted & SERVICE_ACCEPT_PARAMCHANGE;
    case SERVICE_CONTROL_NETBINDADD:
    case SERVICE_CONTROL_NETBINDREMOVE:
    case SERVICE_CONTROL_NETBINDENABLE:
    case SERVICE_CONTROL_NETBINDDISABLE: return accepted & SERVICE_ACCEPT_NETBINDCHANGE;
    default: return true;  // interrogate and user-defined controls
    }
}

// Why the manager will not send the control in the service's state: not
// active when stopped; not now while a stop is pending, or a start for any
// control but stop; not accepted when the service did not say it takes it.
DWORD refusalOf(const SERVICE_STATUS& status, DWORD control) {
    switch (status.dwCurrentState) {
    case SERVICE_STOPPED: return ERROR_SERVICE_NOT_ACTIVE;
    case SERVICE_STOP_PENDING: return ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
    case SERVICE_START_PENDING:
        if (control != SERVICE_CONTROL_STOP) return ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
        break;
    default: break;
    }
    return acceptsControl(status.dwControlsAccepted, control) ? ERROR_SUCCESS : ERROR_INVALID_SERVICE_CONTROL;
}

// Queues a control for this process's dispatcher and waits until its
// handler returned, or until the deadline. `servedRecord`, when given, is
// the service the dispatcher must be running. True when a handler ran.
bool sendControl(ServiceControlState& state, std::unique_lock<std::mutex>& lock, DWORD control,
                 const ServiceRecord* servedRecord, std::chrono::steady_clock::time_point deadline) {
    std::shared_ptr<Dispatcher> dispatcher = state.dispatcher;
    if (!dispatcher || dispatcher->stopped || (servedRecord && dispatcher->record.get() != servedRecord))
        return false;
    auto pending = std::make_shared<PendingControl>();
    pending->control = control;
    dispatcher->controls.push_back(pending);
    state.changed.notify_all();
    state.changed.wait_until(lock, deadline, [&] { return pending->finished; });
    return pending->handled;
}

DWORD controlService(SC_HANDLE service, DWORD control, LPSERVICE_STATUS status) {
    auto deadline = controlDeadline();
    ServiceControlState& state = serviceState();
    std::unique_lock<std::mutex> lock(state.mutex);
    ScHandleEntry* entry = findHandle(state, service, true);
    if (!entry) return ERROR_INVALID_HANDLE;
    if (!isSendableControl(control)) return ERROR_INVALID_PARAMETER;
    if (!grants(entry->access, rightForControl(control))) return ERROR_ACCESS_DENIED;
    RecordPtr record = entry->service;
    if (DWORD refusal = refusalOf(record->status, control)) {
        *status = record->status;
        return refusal;
    }
    if (!sendControl(state, lock, control, record.get(), deadline)) return ERROR_SERVICE_REQUEST_TIMEOUT;
    *status = record->status;
    return ERROR_SUCCESS;
}

// The dispatcher's loop: runs each queued control's handler without the
// lock held, until the service has reported SERVICE_STOPPED. Controls still
// queued then are dropped unhandled.
void serveControls(ServiceControlState& state, Dispatcher& dispatcher) {
    std::unique_lock<std::mutex> lock(state.mutex);
    for (;;) {
        state.changed.wait(lock, [&] { return dispatcher.stopped || !dispatcher.controls.empty(); });
        if (dispatcher.stopped) break;
        PendingPtr pending = dispatcher.controls.front();
        dispatcher.controls.pop_front();
        LPHANDLER_FUNCTION handler = dispatcher.handler;
        if (handler) {
            lock.unlock();
            handler(pending->control);
            lock.lock();
        }
        pending->handled = handler != nullptr;
        pending->finished = true;
        state.changed.notify_all();
    }
    for (const PendingPtr& pending : dispatcher.controls) pending->finished = true;
    dispatcher.controls.clear();
    state.changed.notify_all();
}

// Connects the dispatcher, or answers why not: not started by the manager
// (ERROR_FAILED_SERVICE_CONTROLLER_CONNECT), called before in this process
// (ERROR_SERVICE_ALREADY_RUNNING), or a table without a first row
// (ERROR_INVALID_DATA). The service it runs shows as start pending.
DWORD connectDispatcher(ServiceControlState& state, const SERVICE_TABLE_ENTRYW* table,
                        std::shared_ptr<Dispatcher>& connected) {
    if (!state.startedByControlManager) return ERROR_FAILED_SERVICE_CONTROLLER_CONNECT;
    if (state.dispatcher) return ERROR_SERVICE_ALREADY_RUNNING;
    if (!table || !table[0].lpServiceName || !table[0].lpServiceProc) return ERROR_INVALID_DATA;
    auto dispatcher = std::make_shared<Dispatcher>();
    dispatcher->serviceName = table[0].lpServiceName;
    auto installed = state.services.find(foldCase(dispatcher->serviceName));
    if (installed != state.services.end()) {
        dispatcher->record = installed->second;
        DWORD type = installed->second->registration.serviceType;
        dispatcher->record->status = {type, SERVICE_START_PENDING, 0, 0, 0, 0, 0};
    }
    state.dispatcher = connected = dispatcher;
    return ERROR_SUCCESS;
}

bool isValidStatus(const SERVICE_STATUS* status) {
    return status && isWin32Type(status->dwServiceType) && status->dwCurrentState >= SERVICE_STOPPED &&
           status->dwCurrentState <= SERVICE_PAUSED;
}

DWORD reportStatus(ServiceControlState& state, SERVICE_STATUS_HANDLE handle, const SERVICE_STATUS* status) {
    Dispatcher* dispatcher = state.dispatcher.get();
    // The first SERVICE_STOPPED report ends the connection: the handle is
    // no longer valid after it.
    if (!dispatcher || dispatcher->stopped || !handle || handle != dispatcher->statusHandle)
        return ERROR_INVALID_HANDLE;
    if (!isValidStatus(status)) return ERROR_INVALID_DATA;
    state.history.push_back(*status);
    if (dispatcher->record) dispatcher->record->status = *status;
    if (status->dwCurrentState == SERVICE_STOPPED) {
        dispatcher->stopped = true;
        state.changed.notify_all();
        if (dispatcher->record) removeIfUnused(state, dispatcher->record);
    }
    return ERROR_SUCCESS;
}

}  // namespace

void setStartedByControlManager(bool started) {
    withServices([&](ServiceControlState& state) { state.startedByControlManager = started; });
}

bool startedByControlManager() {
    return withServices([](ServiceControlState& state) { return state.startedByControlManager; });
}

void setCallerIsAdministrator(bool administrator) {
    withServices([&](ServiceControlState& state) { state.administrator = administrator; });
}

std::optional<ServiceRegistration> serviceRegistration(const std::wstring& serviceName) {
    return withServices([&](ServiceControlState& state) -> std::optional<ServiceRegistration> {
        auto it = state.services.find(foldCase(serviceName));
        if (it == state.services.end()) return std::nullopt;
        return it->second->registration;
    });
}

std::vector<std::wstring> installedServices() {
    return withServices([](ServiceControlState& state) {
        std::vector<std::wstring> names;
        for (const auto& service : state.services) names.push_back(service.second->registration.serviceName);
        return names;
    });
}

bool serviceMarkedForDelete(const std::wstring& serviceName) {
    return withServices([&](ServiceControlState& state) {
        auto it = state.services.find(foldCase(serviceName));
        return it != state.services.end() && it->second->markedForDelete;
    });
}

std::optional<SERVICE_STATUS> serviceStatus(const std::wstring& serviceName) {
    return withServices([&](ServiceControlState& state) -> std::optional<SERVICE_STATUS> {
        auto it = state.services.find(foldCase(serviceName));
        if (it == state.services.end()) return std::nullopt;
        return it->second->status;
    });
}

size_t openServiceHandleCount() {
    return withServices([](ServiceControlState& state) { return state.handles.size(); });
}

bool deliverControl(DWORD control) {
    auto deadline = controlDeadline();
    ServiceControlState& state = serviceState();
    std::unique_lock<std::mutex> lock(state.mutex);
    return sendControl(state, lock, control, nullptr, deadline);
}

std::vector<SERVICE_STATUS> serviceStatusHistory() {
    return withServices([](ServiceControlState& state) { return state.history; });
}

}  // namespace advapi32
}  // namespace simhost

using namespace simhost::advapi32;

// Connects to the manager of this machine, the only one: another machine
// name is RPC_S_SERVER_UNAVAILABLE, a database other than the active one
// ERROR_DATABASE_DOES_NOT_EXIST. SC_MANAGER_CONNECT is always granted.
SC_HANDLE WINAPI OpenSCManagerW(LPCWSTR machineName, LPCWSTR databaseName, DWORD desiredAccess) {
    if (DWORD error = simhost::injectedFailure("OpenSCManagerW")) return failHandle<SC_HANDLE>(error);
    if (machineName && *machineName) return failHandle<SC_HANDLE>(RPC_S_SERVER_UNAVAILABLE);
    if (databaseName && !sameIgnoringCase(databaseName, SERVICES_ACTIVE_DATABASEW))
        return failHandle<SC_HANDLE>(ERROR_DATABASE_DOES_NOT_EXIST);
    return withServices([&](ServiceControlState& state) {
        auto access = grantedAccess(state, desiredAccess | SC_MANAGER_CONNECT, kManagerMapping, kUserManagerRights);
        if (!access) return failHandle<SC_HANDLE>(ERROR_ACCESS_DENIED);
        return newScHandle(state, nullptr, *access);
    });
}

// Installs a service, keeping every value it is given, and writes its key.
// The account is not checked against an account database: the machine has
// none. A tag is given out, unique in the group, when one is asked for.
SC_HANDLE WINAPI CreateServiceW(SC_HANDLE manager, LPCWSTR serviceName, LPCWSTR displayName, DWORD desiredAccess,
                                DWORD serviceType, DWORD startType, DWORD errorControl, LPCWSTR binaryPathName,
                                LPCWSTR loadOrderGroup, LPDWORD tagId, LPCWSTR dependencies,
                                LPCWSTR serviceStartName, LPCWSTR password) {
    if (DWORD error = simhost::injectedFailure("CreateServiceW")) return failHandle<SC_HANDLE>(error);
    ServiceRegistration registration{textOf(serviceName), optionalText(displayName), desiredAccess, serviceType,
                                     startType, errorControl, textOf(binaryPathName), optionalText(loadOrderGroup),
                                     tagId != nullptr, 0, stringList(dependencies), optionalText(serviceStartName),
                                     optionalText(password)};
    return withServices([&](ServiceControlState& state) {
        ScHandleEntry* entry = findHandle(state, manager, false);
        if (!entry) return failHandle<SC_HANDLE>(ERROR_INVALID_HANDLE);
        if (!grants(entry->access, SC_MANAGER_CREATE_SERVICE)) return failHandle<SC_HANDLE>(ERROR_ACCESS_DENIED);
        DWORD error = checkRegistration(registration);
        if (!error) error = checkNameIsFree(state, registration);
        if (error) return failHandle<SC_HANDLE>(error);
        if (tagId) *tagId = registration.tagId = nextTag(state, *registration.loadOrderGroup);
        auto record = std::make_shared<ServiceRecord>();
        record->registration = registration;
        record->status = {serviceType, SERVICE_STOPPED, 0, ERROR_SERVICE_NEVER_STARTED, 0, 0, 0};
        state.services[foldCase(registration.serviceName)] = record;
        writeServiceKey(registration);
        return newScHandle(state, record, mapGenericAccess(desiredAccess, kServiceMapping));
    });
}

// Opens an installed service, one marked for deletion included, by its
// name regardless of case.
SC_HANDLE WINAPI OpenServiceW(SC_HANDLE manager, LPCWSTR serviceName, DWORD desiredAccess) {
    if (DWORD error = simhost::injectedFailure("OpenServiceW")) return failHandle<SC_HANDLE>(error);
    return withServices([&](ServiceControlState& state) {
        if (!findHandle(state, manager, false)) return failHandle<SC_HANDLE>(ERROR_INVALID_HANDLE);
        if (!isValidServiceName(serviceName)) return failHandle<SC_HANDLE>(ERROR_INVALID_NAME);
        auto it = state.services.find(foldCase(serviceName));
        if (it == state.services.end()) return failHandle<SC_HANDLE>(ERROR_SERVICE_DOES_NOT_EXIST);
        auto access = grantedAccess(state, desiredAccess, kServiceMapping, kUserServiceRights);
        if (!access) return failHandle<SC_HANDLE>(ERROR_ACCESS_DENIED);
        return newScHandle(state, it->second, *access);
    });
}

// Sends a control as the manager does: refused in states and for controls
// the service does not take (the status is then filled in all the same for
// ERROR_SERVICE_NOT_ACTIVE, ERROR_SERVICE_CANNOT_ACCEPT_CTRL and
// ERROR_INVALID_SERVICE_CONTROL), otherwise delivered to the handler of the
// service running in this process. It returns when the handler has,
// answering the status the service reported last, or after 30 seconds on the
// host's time scale with ERROR_SERVICE_REQUEST_TIMEOUT. A null status record
// is refused by the call's marshalling (RPC_X_NULL_REF_POINTER).
BOOL WINAPI ControlService(SC_HANDLE service, DWORD control, LPSERVICE_STATUS status) {
    DWORD error = simhost::injectedFailure("ControlService");
    if (!error && !status) error = RPC_X_NULL_REF_POINTER;
    if (!error) error = controlService(service, control, status);
    return succeedOrFail(error);
}

BOOL WINAPI QueryServiceStatus(SC_HANDLE service, LPSERVICE_STATUS status) {
    DWORD error = simhost::injectedFailure("QueryServiceStatus");
    if (!error && !status) error = RPC_X_NULL_REF_POINTER;
    if (!error) error = withServices([&](ServiceControlState& state) -> DWORD {
        ScHandleEntry* entry = findHandle(state, service, true);
        if (!entry) return ERROR_INVALID_HANDLE;
        if (!grants(entry->access, SERVICE_QUERY_STATUS)) return ERROR_ACCESS_DENIED;
        *status = entry->service->status;
        return ERROR_SUCCESS;
    });
    return succeedOrFail(error);
}

// Marks the service for deletion and sets DeleteFlag in its key; it goes
// when its last handle is closed and it is not running.
BOOL WINAPI DeleteService(SC_HANDLE service) {
    DWORD error = simhost::injectedFailure("DeleteService");
    if (!error) error = withServices([&](ServiceControlState& state) -> DWORD {
        ScHandleEntry* entry = findHandle(state, service, true);
        if (!entry) return ERROR_INVALID_HANDLE;
        if (!grants(entry->access, DELETE)) return ERROR_ACCESS_DENIED;
        ServiceRecord& record = *entry->service;
        if (record.markedForDelete) return ERROR_SERVICE_MARKED_FOR_DELETE;
        record.markedForDelete = true;
        setRegistryDword(HKEY_LOCAL_MACHINE, serviceKeyPath(record.registration.serviceName), L"DeleteFlag", 1);
        return ERROR_SUCCESS;
    });
    return succeedOrFail(error);
}

BOOL WINAPI CloseServiceHandle(SC_HANDLE handle) {
    DWORD error = simhost::injectedFailure("CloseServiceHandle");
    if (!error) error = withServices([&](ServiceControlState& state) -> DWORD {
        auto it = state.handles.find(handle);
        if (it == state.handles.end()) return ERROR_INVALID_HANDLE;
        RecordPtr record = it->second.service;
        state.handles.erase(it);
        if (record) {
            --record->openHandles;
            removeIfUnused(state, record);
        }
        return ERROR_SUCCESS;
    });
    return succeedOrFail(error);
}

// Connects this process's main thread to the manager and serves it until the
// service has stopped; see the head of this file. The service main function
// gets the service name as its one argument, as for a start without
// arguments.
BOOL WINAPI StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* serviceTable) {
    DWORD error = simhost::injectedFailure("StartServiceCtrlDispatcherW");
    std::shared_ptr<Dispatcher> dispatcher;
    if (!error) error = withServices([&](ServiceControlState& state) {
        return connectDispatcher(state, serviceTable, dispatcher);
    });
    if (error) return succeedOrFail(error);
    std::vector<LPWSTR> arguments{dispatcher->serviceName.data()};
    LPSERVICE_MAIN_FUNCTIONW serviceMain = serviceTable[0].lpServiceProc;
    std::thread mainThread([&] { serviceMain(static_cast<DWORD>(arguments.size()), arguments.data()); });
    serveControls(serviceState(), *dispatcher);
    mainThread.join();
    // On Windows the process ends right after this returns, and its other
    // threads with it. Here the program goes on to run destructors, so the
    // service's work items (a socket thread still in its one-second select)
    // are given a few seconds to end first.
    constexpr DWORD kWorkItemsGraceMs = 3000;
    simhost::waitForIdleWorkItems(kWorkItemsGraceMs);
    return TRUE;
}

// The handler receives the controls of the service this process runs; its
// name is not checked, as for a service of its own process. Outside a
// running dispatcher: ERROR_SERVICE_NOT_IN_EXE.
SERVICE_STATUS_HANDLE WINAPI RegisterServiceCtrlHandlerW(LPCWSTR /*serviceName*/, LPHANDLER_FUNCTION handler) {
    if (DWORD error = simhost::injectedFailure("RegisterServiceCtrlHandlerW"))
        return failHandle<SERVICE_STATUS_HANDLE>(error);
    return withServices([&](ServiceControlState& state) {
        Dispatcher* dispatcher = state.dispatcher.get();
        if (!dispatcher || dispatcher->stopped) return failHandle<SERVICE_STATUS_HANDLE>(ERROR_SERVICE_NOT_IN_EXE);
        dispatcher->handler = handler;
        if (!dispatcher->statusHandle)
            dispatcher->statusHandle = reinterpret_cast<SERVICE_STATUS_HANDLE>(simhost::reserveHandleValue());
        return dispatcher->statusHandle;
    });
}

// Records the status and tells the manager. A status with an unknown state
// or a type other than a program's is ERROR_INVALID_DATA.
BOOL WINAPI SetServiceStatus(SERVICE_STATUS_HANDLE statusHandle, LPSERVICE_STATUS status) {
    DWORD error = simhost::injectedFailure("SetServiceStatus");
    if (!error)
        error = withServices([&](ServiceControlState& state) { return reportStatus(state, statusHandle, status); });
    return succeedOrFail(error);
}
