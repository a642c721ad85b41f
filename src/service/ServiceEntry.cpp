#include "service/ServiceEntry.h"

#include "foundation/TextConversion.h"
#include "service/VexorPrintingService.h"

#include <cstdio>
#include <string>

namespace {

constexpr const wchar_t* kServiceName = VexorPrintingService::kServiceName;
constexpr const wchar_t* kDisplayName = L"Vexor_Printing";
constexpr const wchar_t* kServiceAccount = L"NT AUTHORITY\\LocalSystem";
constexpr DWORD kModulePathCapacity = 260;

// "<what> w/err 0x0000041b", the form of every failure this program prints.
void printFailure(const char* what, DWORD error) {
    std::printf("%s w/err 0x%08x\n", what, static_cast<unsigned>(error));
}

std::string serviceNameText() { return wideToUtf8(kServiceName); }

void printUsage() {
    std::printf("Parameters:\n");
    std::printf(" -install to install the service.\n");
    std::printf(" -remove  to remove the service.\n");
}

// Waits, a dot a second, for as long as the service reports a pending stop.
void waitForStop(SC_HANDLE service) {
    std::printf("Stopping %s.", serviceNameText().c_str());
    std::fflush(stdout);
    Sleep(1000);
    SERVICE_STATUS status = {};
    while (QueryServiceStatus(service, &status) && status.dwCurrentState == SERVICE_STOP_PENDING) {
        std::printf(".");
        std::fflush(stdout);
        Sleep(1000);
    }
    if (status.dwCurrentState == SERVICE_STOPPED)
        std::printf("\n%s is stopped.\n", serviceNameText().c_str());
    else
        std::printf("\n%s failed to stop.\n", serviceNameText().c_str());
}

}  // namespace

void install() {
    wchar_t path[kModulePathCapacity];
    if (GetModuleFileNameW(nullptr, path, kModulePathCapacity) == 0) {
        printFailure("GetModuleFileName failed", GetLastError());
        return;
    }
    SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE);
    if (!manager) {
        printFailure("OpenSCManager failed", GetLastError());
        return;
    }
    SC_HANDLE service = CreateServiceW(manager, kServiceName, kDisplayName, SERVICE_QUERY_STATUS,
                                       SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, path,
                                       nullptr, nullptr, L"\0", kServiceAccount, nullptr);
    if (service)
        std::printf("%s is installed.\n", serviceNameText().c_str());
    else
        printFailure("CreateService failed", GetLastError());
    if (service) CloseServiceHandle(service);
    CloseServiceHandle(manager);
}

void remove() {
    SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    if (!manager) {
        printFailure("OpenSCManager failed", GetLastError());
        return;
    }
    SC_HANDLE service = OpenServiceW(manager, kServiceName, SERVICE_STOP | SERVICE_QUERY_STATUS | DELETE);
    if (!service) {
        printFailure("OpenService failed", GetLastError());
        CloseServiceHandle(manager);
        return;
    }
    SERVICE_STATUS status = {};
    // A service that is not running cannot take the stop; it is deleted all the same.
    if (ControlService(service, SERVICE_CONTROL_STOP, &status)) waitForStop(service);
    if (DeleteService(service))
        std::printf("%s is removed.\n", serviceNameText().c_str());
    else
        printFailure("DeleteService failed", GetLastError());
    CloseServiceHandle(service);
    CloseServiceHandle(manager);
}

int serviceEntry(int argc, wchar_t** argv) {
    if (argc > 1 && (argv[1][0] == L'-' || argv[1][0] == L'/')) {
        const wchar_t* word = argv[1] + 1;
        if (_wcsicmp(word, L"install") == 0) {
            install();
            return 0;
        }
        if (_wcsicmp(word, L"remove") == 0) {
            remove();
            return 0;
        }
        // "runFromCommandLine" changes nothing; any other word shows the usage.
        if (_wcsicmp(word, L"runFromCommandLine") != 0) printUsage();
    }

    VexorPrintingService service;
    theService = &service;
    SERVICE_TABLE_ENTRYW dispatchTable[] = {
        {const_cast<LPWSTR>(kServiceName), ServiceMain},
        {nullptr, nullptr},
    };
    if (!StartServiceCtrlDispatcherW(dispatchTable)) printFailure("Service failed to run", GetLastError());
    theService = nullptr;
    return 0;
}
