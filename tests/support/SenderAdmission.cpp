#include "support/SenderAdmission.h"

#include "simhost/advapi32/advapi32.h"
#include "simhost/core/host.h"
#include "simhost/iphlpapi/tcp_connections.h"
#include "simhost/kernel32/processes.h"
#include "simhost/kernel32/threads.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace testsupport {

namespace {

constexpr DWORD kSystemProcessId = 4;

}  // namespace

const wchar_t* const kInstallationDirectory = L"C:\\Program Files\\Quillion\\VexorAgent";
const wchar_t* const kServerPath = L"C:\\Program Files\\Quillion\\VexorAgent\\vexor_server.exe";
const wchar_t* const kLoaderPath = L"C:\\Program Files\\Quillion\\VexorAgent\\vexor_vchan_loader.exe";
const wchar_t* const kLoader32Path = L"C:\\Program Files\\Quillion\\VexorAgent\\x86\\vexor_vchan_loader.exe";
const wchar_t* const kSessionZeroAncestorPath = L"C:\\Windows\\System32\\svchost.exe";

void setInstallationPath() {
    simhost::advapi32::setRegistryString(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Quillion\\VexorAgent", L"VexorServerPath",
                                         kServerPath);
}

void makeSimulatedFile(const std::wstring& windowsPath) {
    std::filesystem::path native = simhost::Host::get().toNativePath(windowsPath);
    if (native.empty()) throw std::invalid_argument("the path is on no mapped drive");
    std::filesystem::create_directories(native.parent_path());
    std::ofstream(native, std::ios::trunc).close();
}

void installLoader() {
    setInstallationPath();
    makeSimulatedFile(kLoaderPath);
}

void admitLoopbackClientsAs(DWORD loaderPid) {
    simhost::setCurrentProcessId(kServiceProcessId);
    installLoader();
    simhost::kernel32::addProcess({kSessionZeroAncestorPid, kSystemProcessId, 0, kSessionZeroAncestorPath});
    simhost::kernel32::addProcess({loaderPid, kSessionZeroAncestorPid, kUserSession, kLoaderPath});
    simhost::iphlpapi::setDefaultOutsideEndOwner(loaderPid);
}

void addProcess(DWORD id, DWORD parent, DWORD session, const std::wstring& image,
                simhost::kernel32::ProcessProtection protection) {
    simhost::kernel32::addProcess({id, parent, session, image, protection});
}

void addClientRow(const char* address, u_short port, DWORD owner) {
    simhost::iphlpapi::TcpConnection row;
    row.localAddress = static_cast<DWORD>(inet_addr(address));
    row.localPort = port;
    row.remoteAddress = static_cast<DWORD>(inet_addr("127.0.3.1"));
    row.remotePort = 5555;
    row.owningProcessId = owner;
    simhost::iphlpapi::addTcpConnection(row);
}

}  // namespace testsupport
