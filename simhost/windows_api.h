// Everything the simulated host declares of the Windows API, one header per
// Windows component. platform/win32.h includes this on every platform but
// Windows.
#pragma once

#include "simhost/wintypes.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/shell32/shell32.h"
#include "simhost/setupapi/setupapi.h"
#include "simhost/ws2_32/winsock.h"
