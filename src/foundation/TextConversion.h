// Conversions between the service's UTF-8 text and the platform's wide text,
// through the platform's own code-page calls (code page 65001, flags 0). An
// empty input gives an empty result; so does input the platform refuses.
#pragma once

#include <string>

std::wstring utf8ToWide(const std::string& utf8);
std::string wideToUtf8(const std::wstring& wide);
