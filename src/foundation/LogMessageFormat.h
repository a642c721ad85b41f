// Formats a log message from a printf format and its arguments, with wide
// text arguments (%ls, %lc and their forms %S, %C) converted to UTF-8.
//
// The runtimes' own printf families convert wide text through the current C
// locale, which is "C" in the service: any character outside ASCII makes the
// conversion fail and the whole message come out empty. The log is UTF-8
// throughout, so the logger walks the format itself, converts each wide
// argument through the platform's code-page call (code page 65001), and hands
// every other conversion, one at a time, to the runtime's own printf.
#pragma once

#include <cstdarg>
#include <string>

// The whole formatted text, NUL bytes that a conversion produced included.
// An invalid conversion directive ends the text where it stands.
std::string formatLogMessage(const char* format, va_list args);
