// Group-policy values that steer remote printing. Each read goes to the
// registry at the moment of use: the enforced policy key first, then the
// defaults key, then the built-in default. Nothing is cached.
#pragma once

#include "platform/win32.h"

// Value names and their built-in defaults.
constexpr const wchar_t* kRemotePrintingEnabled = L"vexor.remote_printing_enabled";
constexpr DWORD kRemotePrintingEnabledDefault = 1;
constexpr const wchar_t* kEnableDefaultPrinter = L"vexor.enable_default_printer";
constexpr DWORD kEnableDefaultPrinterDefault = 0;

DWORD getGPOValue(const wchar_t* valueName, DWORD defaultValue);

// The log line of the printing mode that "vexor.remote_printing_enabled" names.
const char* remotePrintingModeText(DWORD mode);
