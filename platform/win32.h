// The one header through which the service reaches the platform. On Windows
// it is the SDK; everywhere else it is the simulated Windows host, which
// provides the same names, types, constants and behaviour.
#pragma once

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>
#include <winspool.h>
#include <iphlpapi.h>
#include <tlhelp32.h>
#include <psapi.h>
#include <sddl.h>
#include <setupapi.h>
#include <devguid.h>
#include <shlobj.h>
#include <knownfolders.h>
#include <shlwapi.h>
#include <pathcch.h>
#include <wbemidl.h>
#include <comdef.h>
#include "platform/windows/missing_records.h"
#else
#include "simhost/windows_api.h"
#endif

#include "platform/platform.h"
