// UTF-8 and wide text inside the simulated host itself (host files, paths of
// this machine). One wide character per code point; malformed UTF-8 becomes
// U+FFFD. The service converts through MultiByteToWideChar instead.
#pragma once

#include <string>

namespace simhost {

std::wstring widen(const std::string& utf8);
std::string narrow(const std::wstring& wide);

}  // namespace simhost
