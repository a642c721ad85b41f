// The service control manager and the service control dispatcher of the
// simulated advapi32: installation and the service's registry key, access
// rights, deletion, controls and their refusals, and a service run by the
// dispatcher from its main function to its stop.
#include "simhost/advapi32/advapi32.h"
#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"

#include "kernel32_test_helpers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using namespace simhost::advapi32;
using kernel32_test::eventually;
using kernel32_test::Gate;

namespace {

constexpr DWORD kUntouched = 0xDEADBEEF;
const std::wstring kServiceKey = L"SYSTEM\\CurrentControlSet\\Services\\Vexor_PrintingService";
const wchar_t kImagePath[] = L"C:\\Program Files\\Quillion\\VexorAgent\\VexorPrintingService.exe";
WCHAR kServiceName[] = L"Vexor_PrintingService";

// A service written as the service under test is: its main function
// registers the handler and reports start pending then running (or stopped
// with an error), and its handler stops on stop and shutdown.
struct FakeService {
    static inline std::mutex mutex;
    static inline std::vector<DWORD> controls;
    static inline std::vector<DWORD> handlerThreads;
    static inline std::vector<std::wstring> arguments;
    static inline DWORD mainThread = 0;
    static inline std::atomic<SERVICE_STATUS_HANDLE> statusHandle{nullptr};
    static inline std::atomic<bool> failStart{false};
    // The handler waits here before it acts; open unless a test closes it.
    static inline Gate handlerGate{true};

    static void reset() {
        std::lock_guard<std::mutex> lock(mutex);
        controls.clear();
        handlerThreads.clear();
        arguments.clear();
        mainThread = 0;
        statusHandle = nullptr;
        failStart = false;
        handlerGate.open();
    }

    static BOOL report(DWORD state, DWORD accepted, DWORD exitCode = 0) {
        SERVICE_STATUS status{SERVICE_WIN32_OWN_PROCESS, state, accepted, exitCode, 0, 0, 0};
        return SetServiceStatus(statusHandle, &status);
    }

    static void WINAPI main(DWORD argc, LPWSTR* argv) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            arguments.assign(argv, argv + argc);
            mainThread = GetCurrentThreadId();
        }
        statusHandle = RegisterServiceCtrlHandlerW(argv[0], handler);
        report(SERVICE_START_PENDING, 0);
        if (failStart)
            report(SERVICE_STOPPED, 0, ERROR_ACCESS_DENIED);
        else
            report(SERVICE_RUNNING, SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN);
    }

    static void WINAPI handler(DWORD control) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            controls.push_back(control);
            handlerThreads.push_back(GetCurrentThreadId());
        }
        handlerGate.pass();
        if (control == SERVICE_CONTROL_STOP) report(SERVICE_STOP_PENDING, 0);
        if (control == SERVICE_CONTROL_STOP || control == SERVICE_CONTROL_SHUTDOWN) report(SERVICE_STOPPED, 0);
    }

    static std::vector<DWORD> receivedControls() {
        std::lock_guard<std::mutex> lock(mutex);
        return controls;
    }
};

// StartServiceCtrlDispatcherW on a thread of its own, as the program's main
// thread would call it.
class DispatcherThread {
public:
    DispatcherThread() {
        thread_ = std::thread([this] {
            threadId_ = GetCurrentThreadId();
            SERVICE_TABLE_ENTRYW table[] = {{kServiceName, FakeService::main}, {nullptr, nullptr}};
            result_ = StartServiceCtrlDispatcherW(table);
            error_ = GetLastError();
            done_ = true;
        });
    }
    ~DispatcherThread() { join(); }

    void join() {
        if (thread_.joinable()) thread_.join();
    }
    bool done() const { return done_; }
    BOOL result() const { return result_; }
    DWORD error() const { return error_; }
    DWORD threadId() const { return threadId_; }

private:
    std::thread thread_;
    std::atomic<bool> done_{false};
    std::atomic<BOOL> result_{FALSE};
    std::atomic<DWORD> error_{0};
    std::atomic<DWORD> threadId_{0};
};

std::vector<DWORD> reportedStates() {
    std::vector<DWORD> states;
    for (const SERVICE_STATUS& status : serviceStatusHistory()) states.push_back(status.dwCurrentState);
    return states;
}

bool reached(DWORD state) {
    return eventually([&] {
        std::vector<DWORD> states = reportedStates();
        return !states.empty() && states.back() == state;
    });
}

class Advapi32Services : public ::testing::Test {
protected:
    void SetUp() override {
        simhost::Host::get().reset();
        FakeService::reset();
    }
    void TearDown() override { EXPECT_EQ(openServiceHandleCount(), 0u); }

    SC_HANDLE openManager(DWORD access = SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE) {
        SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, access);
        EXPECT_NE(manager, nullptr);
        return manager;
    }

    // Installs the service with the values the service's installer uses.
    SC_HANDLE install(SC_HANDLE manager, LPCWSTR name = kServiceName, LPCWSTR display = L"Vexor_Printing") {
        return CreateServiceW(manager, name, display, SERVICE_QUERY_STATUS, SERVICE_WIN32_OWN_PROCESS,
                              SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, kImagePath, nullptr, nullptr, L"",
                              L"NT AUTHORITY\\LocalSystem", nullptr);
    }

    void installAndClose() {
        SC_HANDLE manager = openManager();
        SC_HANDLE service = install(manager);
        ASSERT_NE(service, nullptr);
        EXPECT_TRUE(CloseServiceHandle(service));
        EXPECT_TRUE(CloseServiceHandle(manager));
    }

    // A handle for the service's remover: stop, query status and delete.
    SC_HANDLE openForRemoval(SC_HANDLE manager) {
        SC_HANDLE service = OpenServiceW(manager, kServiceName, SERVICE_STOP | SERVICE_QUERY_STATUS | DELETE);
        EXPECT_NE(service, nullptr);
        return service;
    }
};

// ---- Installation ----

TEST_F(Advapi32Services, CreateServiceKeepsEveryRegistrationValue) {
    SC_HANDLE manager = openManager();
    SC_HANDLE service = install(manager);
    ASSERT_NE(service, nullptr);

    auto registration = serviceRegistration(L"vexor_printingservice");
    ASSERT_TRUE(registration.has_value());
    EXPECT_EQ(registration->serviceName, L"Vexor_PrintingService");
    EXPECT_EQ(registration->displayName, std::optional<std::wstring>(L"Vexor_Printing"));
    EXPECT_EQ(registration->desiredAccess, static_cast<DWORD>(SERVICE_QUERY_STATUS));
    EXPECT_EQ(registration->serviceType, 0x10u);
    EXPECT_EQ(registration->startType, 3u);
    EXPECT_EQ(registration->errorControl, 1u);
    EXPECT_EQ(registration->binaryPathName, kImagePath);
    EXPECT_FALSE(registration->loadOrderGroup.has_value());
    EXPECT_FALSE(registration->tagRequested);
    EXPECT_EQ(registration->dependencies, std::optional<std::vector<std::wstring>>(std::vector<std::wstring>{}));
    EXPECT_EQ(registration->serviceStartName, std::optional<std::wstring>(L"NT AUTHORITY\\LocalSystem"));
    EXPECT_FALSE(registration->password.has_value());
    EXPECT_EQ(installedServices(), std::vector<std::wstring>{L"Vexor_PrintingService"});

    EXPECT_TRUE(CloseServiceHandle(service));
    EXPECT_TRUE(CloseServiceHandle(manager));
}

TEST_F(Advapi32Services, CreateServiceWritesTheServiceKey) {
    installAndClose();
    auto imagePath = registryValue(HKEY_LOCAL_MACHINE, kServiceKey, L"ImagePath");
    ASSERT_TRUE(imagePath.has_value());
    EXPECT_EQ(imagePath->type, static_cast<DWORD>(REG_EXPAND_SZ));
    EXPECT_EQ(registryString(HKEY_LOCAL_MACHINE, kServiceKey, L"ImagePath"), kImagePath);
    EXPECT_EQ(registryString(HKEY_LOCAL_MACHINE, kServiceKey, L"DisplayName"), L"Vexor_Printing");
    EXPECT_EQ(registryString(HKEY_LOCAL_MACHINE, kServiceKey, L"ObjectName"), L"NT AUTHORITY\\LocalSystem");
    EXPECT_EQ(registryDword(HKEY_LOCAL_MACHINE, kServiceKey, L"Type"), 0x10u);
    EXPECT_EQ(registryDword(HKEY_LOCAL_MACHINE, kServiceKey, L"Start"), 3u);
    EXPECT_EQ(registryDword(HKEY_LOCAL_MACHINE, kServiceKey, L"ErrorControl"), 1u);
    EXPECT_FALSE(registryValue(HKEY_LOCAL_MACHINE, kServiceKey, L"DependOnService").has_value());
    EXPECT_FALSE(registryValue(HKEY_LOCAL_MACHINE, kServiceKey, L"Group").has_value());
}

TEST_F(Advapi32Services, GroupTagAndDependenciesAreWrittenToo) {
    SC_HANDLE manager = openManager();
    DWORD firstTag = 0;
    DWORD secondTag = 0;
    SC_HANDLE first = CreateServiceW(manager, L"One", nullptr, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                     SERVICE_AUTO_START, SERVICE_ERROR_IGNORE, L"C:\\one.exe", L"PrintGroup",
                                     &firstTag, L"Spooler\0+NetGroup\0", nullptr, L"");
    SC_HANDLE second = CreateServiceW(manager, L"Two", nullptr, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                      SERVICE_AUTO_START, SERVICE_ERROR_IGNORE, L"C:\\two.exe", L"printgroup",
                                      &secondTag, nullptr, nullptr, nullptr);
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(firstTag, 1u);
    EXPECT_EQ(secondTag, 2u);
    const std::wstring key = L"SYSTEM\\CurrentControlSet\\Services\\One";
    EXPECT_EQ(registryString(HKEY_LOCAL_MACHINE, key, L"Group"), L"PrintGroup");
    EXPECT_EQ(registryDword(HKEY_LOCAL_MACHINE, key, L"Tag"), 1u);
    EXPECT_EQ(registryMultiString(HKEY_LOCAL_MACHINE, key, L"DependOnService"), std::vector<std::wstring>{L"Spooler"});
    EXPECT_EQ(registryMultiString(HKEY_LOCAL_MACHINE, key, L"DependOnGroup"), std::vector<std::wstring>{L"NetGroup"});
    EXPECT_EQ(registryString(HKEY_LOCAL_MACHINE, key, L"DisplayName"), L"One");
    EXPECT_EQ(registryString(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Services\\Two", L"ObjectName"),
              L"LocalSystem");
    EXPECT_EQ(serviceRegistration(L"One")->password, std::optional<std::wstring>(L""));
    EXPECT_TRUE(CloseServiceHandle(first));
    EXPECT_TRUE(CloseServiceHandle(second));
    EXPECT_TRUE(CloseServiceHandle(manager));
}

TEST_F(Advapi32Services, NewServiceIsStoppedAndNeverStarted) {
    SC_HANDLE manager = openManager();
    SC_HANDLE service = install(manager);
    SERVICE_STATUS status{};
    SetLastError(kUntouched);
    EXPECT_TRUE(QueryServiceStatus(service, &status));
    EXPECT_EQ(GetLastError(), kUntouched);
    EXPECT_EQ(status.dwServiceType, static_cast<DWORD>(SERVICE_WIN32_OWN_PROCESS));
    EXPECT_EQ(status.dwCurrentState, static_cast<DWORD>(SERVICE_STOPPED));
    EXPECT_EQ(status.dwWin32ExitCode, static_cast<DWORD>(ERROR_SERVICE_NEVER_STARTED));
    EXPECT_TRUE(CloseServiceHandle(service));
    EXPECT_TRUE(CloseServiceHandle(manager));
}

TEST_F(Advapi32Services, InstallingTwiceIsServiceExists) {
    SC_HANDLE manager = openManager();
    SC_HANDLE service = install(manager);
    EXPECT_EQ(install(manager, L"VEXOR_PRINTINGSERVICE", L"Another"), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SERVICE_EXISTS));
    EXPECT_EQ(install(manager, L"Another", L"vexor_printing"), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_DUPLICATE_SERVICE_NAME));
    EXPECT_EQ(install(manager, L"Another", L"Vexor_PrintingService"), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_DUPLICATE_SERVICE_NAME));
    EXPECT_TRUE(CloseServiceHandle(service));
    EXPECT_TRUE(CloseServiceHandle(manager));
}

TEST_F(Advapi32Services, CreateServiceRefusesBadRegistrations) {
    SC_HANDLE manager = openManager();
    EXPECT_EQ(install(manager, L"bad\\name"), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_NAME));
    EXPECT_EQ(install(manager, L""), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_NAME));
    EXPECT_EQ(CreateServiceW(manager, L"Boot", nullptr, 0, SERVICE_WIN32_OWN_PROCESS, SERVICE_BOOT_START,
                             SERVICE_ERROR_NORMAL, kImagePath, nullptr, nullptr, nullptr, nullptr, nullptr),
              nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    DWORD tag = 0;
    EXPECT_EQ(CreateServiceW(manager, L"Tagged", nullptr, 0, SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START,
                             SERVICE_ERROR_NORMAL, kImagePath, nullptr, &tag, nullptr, nullptr, nullptr),
              nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(CreateServiceW(manager, L"NoBinary", nullptr, 0, SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START,
                             SERVICE_ERROR_NORMAL, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
              nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_TRUE(installedServices().empty());
    EXPECT_TRUE(CloseServiceHandle(manager));
}

TEST_F(Advapi32Services, CreateServiceNeedsTheCreateRight) {
    SC_HANDLE manager = openManager(SC_MANAGER_CONNECT);
    EXPECT_EQ(install(manager), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_TRUE(CloseServiceHandle(manager));
}

// ---- Handles and access ----

TEST_F(Advapi32Services, ManagerOfAnotherMachineOrDatabaseIsRefused) {
    EXPECT_EQ(OpenSCManagerW(L"\\\\elsewhere", nullptr, SC_MANAGER_CONNECT), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(RPC_S_SERVER_UNAVAILABLE));
    EXPECT_EQ(OpenSCManagerW(nullptr, L"ServicesFailed", SC_MANAGER_CONNECT), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_DATABASE_DOES_NOT_EXIST));
    SC_HANDLE manager = OpenSCManagerW(L"", SERVICES_ACTIVE_DATABASEW, SC_MANAGER_CONNECT);
    EXPECT_NE(manager, nullptr);
    EXPECT_TRUE(CloseServiceHandle(manager));
}

TEST_F(Advapi32Services, OpenServiceOfAMissingServiceIsDoesNotExist) {
    SC_HANDLE manager = openManager(SC_MANAGER_CONNECT);
    EXPECT_EQ(OpenServiceW(manager, kServiceName, SERVICE_STOP | SERVICE_QUERY_STATUS | DELETE), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SERVICE_DOES_NOT_EXIST));
    EXPECT_EQ(ERROR_SERVICE_DOES_NOT_EXIST, 1060);
    EXPECT_EQ(OpenServiceW(manager, L"a/b", SERVICE_QUERY_STATUS), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_NAME));
    EXPECT_TRUE(CloseServiceHandle(manager));
    EXPECT_EQ(OpenServiceW(manager, kServiceName, SERVICE_QUERY_STATUS), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

TEST_F(Advapi32Services, ClosedHandleIsInvalidHandle) {
    SC_HANDLE manager = openManager(SC_MANAGER_CONNECT);
    EXPECT_TRUE(CloseServiceHandle(manager));
    EXPECT_FALSE(CloseServiceHandle(manager));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    SERVICE_STATUS status{};
    EXPECT_FALSE(QueryServiceStatus(manager, &status));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

TEST_F(Advapi32Services, EachCallNeedsItsRight) {
    installAndClose();
    SC_HANDLE manager = openManager(SC_MANAGER_CONNECT);
    SC_HANDLE queryOnly = OpenServiceW(manager, kServiceName, SERVICE_QUERY_STATUS);
    SC_HANDLE stopOnly = OpenServiceW(manager, kServiceName, SERVICE_STOP);
    SERVICE_STATUS status{};
    EXPECT_FALSE(ControlService(queryOnly, SERVICE_CONTROL_STOP, &status));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_FALSE(DeleteService(queryOnly));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_FALSE(QueryServiceStatus(stopOnly, &status));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_TRUE(CloseServiceHandle(queryOnly));
    EXPECT_TRUE(CloseServiceHandle(stopOnly));
    EXPECT_TRUE(CloseServiceHandle(manager));
}

TEST_F(Advapi32Services, CallerWithoutAdministratorRightsGetsOnlyUserRights) {
    installAndClose();
    setCallerIsAdministrator(false);
    EXPECT_EQ(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    SC_HANDLE manager = openManager(SC_MANAGER_CONNECT);
    EXPECT_EQ(OpenServiceW(manager, kServiceName, SERVICE_STOP | SERVICE_QUERY_STATUS | DELETE), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    SC_HANDLE service = OpenServiceW(manager, kServiceName, SERVICE_QUERY_STATUS);
    EXPECT_NE(service, nullptr);
    EXPECT_TRUE(CloseServiceHandle(service));
    EXPECT_TRUE(CloseServiceHandle(manager));
}

TEST_F(Advapi32Services, InjectedFailureFailsTheCallWithItsError) {
    simhost::Host::get().faults().failCall("OpenSCManagerW", ERROR_ACCESS_DENIED, 1);
    EXPECT_EQ(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    SC_HANDLE manager = openManager(SC_MANAGER_CONNECT);
    EXPECT_TRUE(CloseServiceHandle(manager));
}

// ---- Controls refused ----

TEST_F(Advapi32Services, StopOfAServiceNotRunningIsNotActiveWithTheStatus) {
    installAndClose();
    SC_HANDLE manager = openManager(SC_MANAGER_CONNECT);
    SC_HANDLE service = openForRemoval(manager);
    SERVICE_STATUS status{};
    EXPECT_FALSE(ControlService(service, SERVICE_CONTROL_STOP, &status));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SERVICE_NOT_ACTIVE));
    EXPECT_EQ(ERROR_SERVICE_NOT_ACTIVE, 1062);
    EXPECT_EQ(status.dwCurrentState, static_cast<DWORD>(SERVICE_STOPPED));
    EXPECT_TRUE(CloseServiceHandle(service));
    EXPECT_TRUE(CloseServiceHandle(manager));
}

TEST_F(Advapi32Services, ShutdownAndUndefinedControlsCannotBeSent) {
    installAndClose();
    SC_HANDLE manager = openManager(SC_MANAGER_CONNECT);
    SC_HANDLE service = OpenServiceW(manager, kServiceName, SERVICE_ALL_ACCESS);
    SERVICE_STATUS status{};
    EXPECT_FALSE(ControlService(service, SERVICE_CONTROL_SHUTDOWN, &status));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_FALSE(ControlService(service, 0, &status));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_FALSE(ControlService(service, SERVICE_CONTROL_STOP, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(RPC_X_NULL_REF_POINTER));
    EXPECT_TRUE(CloseServiceHandle(service));
    EXPECT_TRUE(CloseServiceHandle(manager));
}

// ---- Deletion ----

TEST_F(Advapi32Services, DeletedServiceGoesWhenItsLastHandleCloses) {
    installAndClose();
    SC_HANDLE manager = openManager(SC_MANAGER_CONNECT);
    SC_HANDLE remover = openForRemoval(manager);
    SC_HANDLE other = OpenServiceW(manager, kServiceName, SERVICE_QUERY_STATUS);
    EXPECT_TRUE(DeleteService(remover));
    EXPECT_TRUE(serviceMarkedForDelete(kServiceName));
    EXPECT_EQ(registryDword(HKEY_LOCAL_MACHINE, kServiceKey, L"DeleteFlag"), 1u);

    EXPECT_FALSE(DeleteService(remover));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SERVICE_MARKED_FOR_DELETE));
    SC_HANDLE again = openForRemoval(manager);
    EXPECT_FALSE(DeleteService(again));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SERVICE_MARKED_FOR_DELETE));
    SC_HANDLE creator = openManager();
    EXPECT_EQ(install(creator), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SERVICE_MARKED_FOR_DELETE));

    EXPECT_TRUE(CloseServiceHandle(remover));
    EXPECT_TRUE(CloseServiceHandle(again));
    EXPECT_TRUE(serviceRegistration(kServiceName).has_value()) << "a handle is still open";
    EXPECT_TRUE(CloseServiceHandle(other));
    EXPECT_FALSE(serviceRegistration(kServiceName).has_value());
    EXPECT_FALSE(registryKeyExists(HKEY_LOCAL_MACHINE, kServiceKey));
    EXPECT_EQ(OpenServiceW(manager, kServiceName, SERVICE_QUERY_STATUS), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SERVICE_DOES_NOT_EXIST));

    SC_HANDLE reinstalled = install(creator);
    EXPECT_NE(reinstalled, nullptr);
    EXPECT_TRUE(CloseServiceHandle(reinstalled));
    EXPECT_TRUE(CloseServiceHandle(creator));
    EXPECT_TRUE(CloseServiceHandle(manager));
}

// ---- The dispatcher ----

TEST_F(Advapi32Services, DispatcherOfAProgramStartedByHandFailsAtOnce) {
    SERVICE_TABLE_ENTRYW table[] = {{kServiceName, FakeService::main}, {nullptr, nullptr}};
    EXPECT_FALSE(StartServiceCtrlDispatcherW(table));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FAILED_SERVICE_CONTROLLER_CONNECT));
    EXPECT_EQ(ERROR_FAILED_SERVICE_CONTROLLER_CONNECT, 1063);
    EXPECT_EQ(FakeService::mainThread, 0u) << "the service main function never ran";
    EXPECT_TRUE(serviceStatusHistory().empty());
}

TEST_F(Advapi32Services, HandlerCannotBeRegisteredOutsideADispatcher) {
    EXPECT_EQ(RegisterServiceCtrlHandlerW(kServiceName, FakeService::handler), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SERVICE_NOT_IN_EXE));
    SERVICE_STATUS status{SERVICE_WIN32_OWN_PROCESS, SERVICE_RUNNING, 0, 0, 0, 0, 0};
    EXPECT_FALSE(SetServiceStatus(nullptr, &status));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_FALSE(deliverControl(SERVICE_CONTROL_STOP));
}

TEST_F(Advapi32Services, DispatcherRunsTheServiceAndReturnsAfterItStops) {
    installAndClose();
    setStartedByControlManager(true);
    DispatcherThread dispatcher;
    ASSERT_TRUE(reached(SERVICE_RUNNING));
    EXPECT_FALSE(dispatcher.done());
    {
        std::lock_guard<std::mutex> lock(FakeService::mutex);
        EXPECT_EQ(FakeService::arguments, std::vector<std::wstring>{L"Vexor_PrintingService"});
        EXPECT_NE(FakeService::mainThread, dispatcher.threadId()) << "the main function runs on a thread of its own";
    }

    SC_HANDLE manager = openManager(SC_MANAGER_CONNECT);
    SC_HANDLE service = openForRemoval(manager);
    SERVICE_STATUS status{};
    EXPECT_TRUE(QueryServiceStatus(service, &status));
    EXPECT_EQ(status.dwCurrentState, static_cast<DWORD>(SERVICE_RUNNING));
    EXPECT_EQ(status.dwControlsAccepted, static_cast<DWORD>(SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN));

    SetLastError(kUntouched);
    EXPECT_TRUE(ControlService(service, SERVICE_CONTROL_STOP, &status));
    EXPECT_EQ(GetLastError(), kUntouched);
    EXPECT_EQ(status.dwCurrentState, static_cast<DWORD>(SERVICE_STOPPED)) << "it returns once the handler has";
    dispatcher.join();
    EXPECT_EQ(dispatcher.result(), TRUE);

    EXPECT_EQ(FakeService::receivedControls(), std::vector<DWORD>{SERVICE_CONTROL_STOP});
    {
        std::lock_guard<std::mutex> lock(FakeService::mutex);
        EXPECT_EQ(FakeService::handlerThreads, std::vector<DWORD>{dispatcher.threadId()})
            << "controls are served on the dispatcher's thread";
    }
    EXPECT_EQ(reportedStates(), (std::vector<DWORD>{SERVICE_START_PENDING, SERVICE_RUNNING, SERVICE_STOP_PENDING,
                                                    SERVICE_STOPPED}));
    EXPECT_TRUE(QueryServiceStatus(service, &status));
    EXPECT_EQ(status.dwCurrentState, static_cast<DWORD>(SERVICE_STOPPED));
    EXPECT_FALSE(ControlService(service, SERVICE_CONTROL_STOP, &status));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SERVICE_NOT_ACTIVE));
    EXPECT_TRUE(CloseServiceHandle(service));
    EXPECT_TRUE(CloseServiceHandle(manager));
}

TEST_F(Advapi32Services, StatusHistoryKeepsEveryReportedField) {
    setStartedByControlManager(true);
    DispatcherThread dispatcher;
    ASSERT_TRUE(reached(SERVICE_RUNNING));
    EXPECT_TRUE(deliverControl(SERVICE_CONTROL_STOP));
    dispatcher.join();
    std::vector<SERVICE_STATUS> history = serviceStatusHistory();
    ASSERT_EQ(history.size(), 4u);
    EXPECT_EQ(history[1].dwServiceType, static_cast<DWORD>(SERVICE_WIN32_OWN_PROCESS));
    EXPECT_EQ(history[1].dwControlsAccepted, static_cast<DWORD>(SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN));
    EXPECT_EQ(history[3].dwControlsAccepted, 0u);
    EXPECT_EQ(history[3].dwWin32ExitCode, 0u);
}

TEST_F(Advapi32Services, ShutdownDeliveredByTheHostReachesTheHandler) {
    setStartedByControlManager(true);
    DispatcherThread dispatcher;
    ASSERT_TRUE(reached(SERVICE_RUNNING));
    EXPECT_TRUE(deliverControl(SERVICE_CONTROL_SHUTDOWN));
    dispatcher.join();
    EXPECT_EQ(dispatcher.result(), TRUE);
    EXPECT_EQ(FakeService::receivedControls(), std::vector<DWORD>{SERVICE_CONTROL_SHUTDOWN});
    EXPECT_EQ(reportedStates(), (std::vector<DWORD>{SERVICE_START_PENDING, SERVICE_RUNNING, SERVICE_STOPPED}));
    EXPECT_FALSE(deliverControl(SERVICE_CONTROL_STOP)) << "no dispatcher serves once the service stopped";
}

TEST_F(Advapi32Services, ControlsTheServiceDoesNotAcceptAreRefused) {
    installAndClose();
    setStartedByControlManager(true);
    DispatcherThread dispatcher;
    ASSERT_TRUE(reached(SERVICE_RUNNING));
    SC_HANDLE manager = openManager(SC_MANAGER_CONNECT);
    SC_HANDLE service = OpenServiceW(manager, kServiceName, SERVICE_ALL_ACCESS);
    SERVICE_STATUS status{};
    EXPECT_FALSE(ControlService(service, SERVICE_CONTROL_PAUSE, &status));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_SERVICE_CONTROL));
    EXPECT_EQ(status.dwCurrentState, static_cast<DWORD>(SERVICE_RUNNING));
    EXPECT_TRUE(ControlService(service, SERVICE_CONTROL_INTERROGATE, &status));
    EXPECT_TRUE(ControlService(service, 200, &status)) << "user-defined controls are always taken";
    EXPECT_EQ(FakeService::receivedControls(), (std::vector<DWORD>{SERVICE_CONTROL_INTERROGATE, 200}));
    EXPECT_TRUE(ControlService(service, SERVICE_CONTROL_STOP, &status));
    dispatcher.join();
    EXPECT_TRUE(CloseServiceHandle(service));
    EXPECT_TRUE(CloseServiceHandle(manager));
}

TEST_F(Advapi32Services, PendingStatesRefuseControls) {
    installAndClose();
    setStartedByControlManager(true);
    FakeService::handlerGate.close();
    DispatcherThread dispatcher;
    ASSERT_TRUE(reached(SERVICE_RUNNING));
    SC_HANDLE manager = openManager(SC_MANAGER_CONNECT);
    SC_HANDLE service = OpenServiceW(manager, kServiceName, SERVICE_ALL_ACCESS);
    std::thread stopper([&] {
        SERVICE_STATUS status{};
        EXPECT_TRUE(ControlService(service, SERVICE_CONTROL_STOP, &status));
    });
    ASSERT_TRUE(eventually([] { return FakeService::receivedControls().size() == 1; }));
    FakeService::report(SERVICE_STOP_PENDING, 0);
    SERVICE_STATUS status{};
    EXPECT_FALSE(ControlService(service, SERVICE_CONTROL_INTERROGATE, &status));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SERVICE_CANNOT_ACCEPT_CTRL));
    EXPECT_EQ(status.dwCurrentState, static_cast<DWORD>(SERVICE_STOP_PENDING));
    FakeService::handlerGate.open();
    stopper.join();
    dispatcher.join();
    EXPECT_TRUE(CloseServiceHandle(service));
    EXPECT_TRUE(CloseServiceHandle(manager));
}

TEST_F(Advapi32Services, HandlerThatDoesNotReturnTimesTheControlOut) {
    installAndClose();
    setStartedByControlManager(true);
    FakeService::handlerGate.close();
    DispatcherThread dispatcher;
    ASSERT_TRUE(reached(SERVICE_RUNNING));
    SC_HANDLE manager = openManager(SC_MANAGER_CONNECT);
    SC_HANDLE service = OpenServiceW(manager, kServiceName, SERVICE_ALL_ACCESS);
    SERVICE_STATUS status{};
    simhost::Host::get().setTimeScale(0.001);  // the 30-second wait lasts 30 ms
    EXPECT_FALSE(ControlService(service, SERVICE_CONTROL_INTERROGATE, &status));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SERVICE_REQUEST_TIMEOUT));
    simhost::Host::get().setTimeScale(1.0);
    FakeService::handlerGate.open();
    EXPECT_TRUE(ControlService(service, SERVICE_CONTROL_STOP, &status));
    dispatcher.join();
    EXPECT_TRUE(CloseServiceHandle(service));
    EXPECT_TRUE(CloseServiceHandle(manager));
}

TEST_F(Advapi32Services, FailedStartEndsTheDispatcherAndTheStatusHandle) {
    installAndClose();
    setStartedByControlManager(true);
    FakeService::failStart = true;
    DispatcherThread dispatcher;
    dispatcher.join();
    EXPECT_EQ(dispatcher.result(), TRUE);
    EXPECT_EQ(reportedStates(), (std::vector<DWORD>{SERVICE_START_PENDING, SERVICE_STOPPED}));
    EXPECT_EQ(serviceStatusHistory().back().dwWin32ExitCode, static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(serviceStatus(kServiceName)->dwWin32ExitCode, static_cast<DWORD>(ERROR_ACCESS_DENIED));

    EXPECT_FALSE(FakeService::report(SERVICE_RUNNING, 0));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(serviceStatusHistory().size(), 2u) << "a refused report is not kept";
    SERVICE_TABLE_ENTRYW table[] = {{kServiceName, FakeService::main}, {nullptr, nullptr}};
    EXPECT_FALSE(StartServiceCtrlDispatcherW(table));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SERVICE_ALREADY_RUNNING));
}

TEST_F(Advapi32Services, InvalidStatusIsInvalidData) {
    setStartedByControlManager(true);
    DispatcherThread dispatcher;
    ASSERT_TRUE(reached(SERVICE_RUNNING));
    SERVICE_STATUS status{SERVICE_WIN32_OWN_PROCESS, 8, 0, 0, 0, 0, 0};
    EXPECT_FALSE(SetServiceStatus(FakeService::statusHandle, &status));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_DATA));
    status = {0, SERVICE_RUNNING, 0, 0, 0, 0, 0};
    EXPECT_FALSE(SetServiceStatus(FakeService::statusHandle, &status));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_DATA));
    EXPECT_TRUE(deliverControl(SERVICE_CONTROL_STOP));
    dispatcher.join();
}

TEST_F(Advapi32Services, RunningServiceMarkedForDeletionGoesWhenItStops) {
    installAndClose();
    setStartedByControlManager(true);
    DispatcherThread dispatcher;
    ASSERT_TRUE(reached(SERVICE_RUNNING));
    SC_HANDLE manager = openManager(SC_MANAGER_CONNECT);
    SC_HANDLE service = openForRemoval(manager);
    EXPECT_TRUE(DeleteService(service));
    EXPECT_TRUE(CloseServiceHandle(service));
    EXPECT_TRUE(serviceRegistration(kServiceName).has_value()) << "it still runs";
    EXPECT_TRUE(deliverControl(SERVICE_CONTROL_STOP));
    dispatcher.join();
    EXPECT_FALSE(serviceRegistration(kServiceName).has_value());
    EXPECT_FALSE(registryKeyExists(HKEY_LOCAL_MACHINE, kServiceKey));
    EXPECT_TRUE(CloseServiceHandle(manager));
}

}  // namespace
