// The English texts of the system's error messages, as FormatMessageW finds
// them with FORMAT_MESSAGE_FROM_SYSTEM.
#pragma once

#include "simhost/wintypes.h"

#include <string>

namespace simhost {
namespace kernel32 {

// The text of a system error code, ending with its "\r\n" as every system
// message does. False when the system has no message for the code.
bool systemMessageText(DWORD code, std::wstring& text);

}  // namespace kernel32
}  // namespace simhost
