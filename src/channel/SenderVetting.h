// Admission of a connection to the command socket. The service runs as the
// local system account and acts on what it is told, so a peer is admitted
// only when it is on the loopback network, the process owning its end of the
// connection runs the installation's virtual-channel loader (native or
// 32-bit) or its server, and some ancestor of that process runs in session
// zero. Nothing is cached: each accept reads the registry, the files, the
// TCP table and the process list afresh. No function here throws.
#pragma once

#include "platform/win32.h"

#include <string>

// 1 to admit the peer, 0 to refuse it.
int vettSenderIP(const sockaddr_in& peer);

// The directory of the server executable named by the installation's
// registry value; false (and a log line) when it cannot be had.
bool getBaseInstallationPath(std::wstring& path);

// 1 if the process runs the native or the 32-bit loader of the installation.
int isProcessNameVchanLoader(DWORD processId);
// 1 if the process runs the installation's server.
int isProcessNameVexorServer(DWORD processId);
// Nonzero if the image path of the process equals `fullPath` exactly, case
// included.
int isProcessNameMatch(DWORD processId, const std::wstring& fullPath);

// The parent of the process as a process snapshot names it; 0 when the
// process is not in the snapshot or the snapshot cannot be read.
DWORD getParentProcessId(DWORD processId);
