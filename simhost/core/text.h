// UTF-8 and wide text inside the simulated host itself (host files, paths of
// this machine). One wide character per code point; malformed UTF-8 becomes
// U+FFFD. The service converts through MultiByteToWideChar instead.
#pragma once

#include <string>
#include <vector>

namespace simhost {

std::wstring widen(const std::string& utf8);
std::string narrow(const std::wstring& wide);
// Appends one code point (at most U+10FFFF, no surrogate) in UTF-8.
void appendUtf8(std::string& out, char32_t point);

// The pieces of text between each `separator`; empty pieces are kept or
// dropped as asked.
enum class EmptyPieces { Keep, Drop };
std::vector<std::wstring> splitText(const std::wstring& text, wchar_t separator, EmptyPieces empty);

}  // namespace simhost
