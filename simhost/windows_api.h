// Everything the simulated host declares of the Windows API, one header per
// Windows component. platform/win32.h includes this on every platform but
// Windows.
#pragma once

#include "simhost/wintypes.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/shell32/shell32.h"
#include "simhost/setupapi/setupapi.h"
#include "simhost/ws2_32/winsock.h"
#include "simhost/winspool/winspool.h"
#include "simhost/crt/crt.h"
// Processes and toolhelp snapshots, the TCP connection table, path functions.
#include "simhost/kernel32/toolhelp.h"
#include "simhost/kernel32/process_creation.h"
#include "simhost/iphlpapi/iphlpapi.h"
#include "simhost/shell32/paths.h"
// Registry, service control manager and event log.
#include "simhost/advapi32/advapi32.h"
// SIDs, security descriptors and SDDL.
#include "simhost/advapi32/security.h"
// Access tokens and impersonation.
#include "simhost/advapi32/tokens.h"
// COM, automation types and management instrumentation.
#include "simhost/ole32/ole32.h"
#include "simhost/oleaut32/oleaut32.h"
#include "simhost/wbem/wbem.h"
#include "simhost/comsupp/comsupp.h"
