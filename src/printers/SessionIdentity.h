// The identity of a logon session and the access lists of printers, as text.
// A printer belongs to the logon session that asked for it: its access list
// names the session's logon SID, and ownership is the question whether a
// sender's logon SID text occurs in the printer's descriptor text.
#pragma once

#include "platform/win32.h"

#include <string>

namespace PrinterUtil {

// A copy of the logon SID of the process's token on the process heap (give
// it back with HeapFree), or null. A handle of 0 or all ones stands for the
// current process. The token handle is left open: each call leaves one.
PSID SessionSIDCreate(HANDLE process);
// The logon SID of the process as "S-1-5-5-..." text, or "" when unknown.
std::string processHandleToSessionSecurityId(HANDLE process);
std::string processIdToSessionSecurityId(DWORD processId);

// The printer's owner, group, access list and label as SDDL text, or "" when
// unknown.
std::string GetPrinterSecurityDescriptorString(const wchar_t* printerName);
std::string GetPrinterSecurityDescriptorString(HANDLE printer);

// Printers are opened with every right to read their descriptor and to
// remove them.
constexpr DWORD kPrinterAllAccess = 0xF000C;

}  // namespace PrinterUtil
