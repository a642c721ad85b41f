// Arranges the simulated host so that the service admits a client: the
// installation's registry value, the loader's executable on drive C:, a
// loader process in a user session whose ancestor runs in session zero, and
// that loader as the owner of every loopback client end made from outside
// the host. Call after the host was reset (a TempDrive, a LogCapture or a
// ServiceHarness), before the client connects.
#pragma once

#include "platform/win32.h"
#include "simhost/kernel32/processes.h"

#include <string>

namespace testsupport {

// The service process's id while clients are admitted, pinned so that no
// arranged id can meet the test program's real one.
constexpr DWORD kServiceProcessId = 4242;
// The loader's parent, in session zero, itself a child of System (id 4).
constexpr DWORD kSessionZeroAncestorPid = 700;
constexpr DWORD kUserSession = 2;
// The loader that most tests admit.
constexpr DWORD kLoaderPid = 5000;

extern const wchar_t* const kInstallationDirectory;
// What the installation's registry value names.
extern const wchar_t* const kServerPath;
extern const wchar_t* const kLoaderPath;
extern const wchar_t* const kLoader32Path;
extern const wchar_t* const kSessionZeroAncestorPath;

// Writes HKLM\SOFTWARE\Quillion\VexorAgent\VexorServerPath = kServerPath.
void setInstallationPath();
// Makes an empty file at a Windows path of drive C:, with its folders.
void makeSimulatedFile(const std::wstring& windowsPath);
// The installation value and the native loader's file.
void installLoader();
// Everything above, the ancestor and the loader process `loaderPid` (in
// kUserSession, running kLoaderPath), and `loaderPid` as the default owner
// of outside client ends.
void admitLoopbackClientsAs(DWORD loaderPid);

// A process of the machine.
void addProcess(DWORD id, DWORD parent, DWORD session, const std::wstring& image,
                simhost::kernel32::ProcessProtection protection = simhost::kernel32::ProcessProtection::None);
// A client's end of a connection to the command socket, owned by `owner`.
void addClientRow(const char* address, u_short port, DWORD owner);

}  // namespace testsupport
