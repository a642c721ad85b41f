// What tests and host files arrange of kernel32's view of the machine: the
// system's ANSI code page and language and the process's temporary and current
// directories. Host::reset() brings back the defaults.
#pragma once

#include "simhost/wintypes.h"

#include <string>

namespace simhost {
namespace kernel32 {

// The ANSI code page GetACP answers and CP_ACP stands for: 1252 (the default)
// or 65001. Answers false, changing nothing, for any other page.
bool setAnsiCodePage(UINT codePage);

// The system's language id, 0x0409 (English, United States) unless set: the
// language whose [Strings.<id>] section of an INF file is read.
void setSystemLanguage(WORD languageId);
WORD systemLanguage();

// GetTempPathW's directory; default "C:\Windows\Temp\". It is answered, by
// tempPath() too, with a final backslash added when it has none, as Windows
// always ends the temporary path with one.
void setTempPath(const std::wstring& path);
std::wstring tempPath();

// GetCurrentDirectoryW's directory, answered as set; default
// "C:\Windows\system32", the directory a service starts in.
void setCurrentDirectory(const std::wstring& path);
std::wstring currentDirectory();

}  // namespace kernel32
}  // namespace simhost
