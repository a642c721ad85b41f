// A printer property that only management instrumentation reaches
// (EnableBIDI): read as text through the printer's Win32_Printer instance,
// and set if asked.
#pragma once

#include "platform/win32.h"

#include <string>

namespace PrinterUtil {

// Finds the Win32_Printer instance whose Name is `printerName` exactly
// (case included), reads `propertyName` as text and, with a `newValue`,
// stores the boolean true under the property: the text serves the log
// alone. The value read before any change, or an empty string when it
// could not be read. Sets up and tears down COM on each call; a string that
// cannot be allocated while connecting raises _com_error.
std::wstring WMIPrinterRequest(const std::wstring& printerName, const std::wstring& propertyName,
                               const wchar_t* newValue = nullptr);

}  // namespace PrinterUtil
