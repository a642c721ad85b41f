// Conversions between the service's UTF-8 text and the platform's wide text,
// through the platform's own code-page calls (code page 65001, flags 0). An
// empty input gives an empty result; so does input the platform refuses.
#pragma once

#include <string>

std::wstring utf8ToWide(const std::string& utf8);
std::string wideToUtf8(const std::wstring& wide);

// The text without the characters the C locale's isspace accepts at either
// end (blank, tab, line feed, vertical tab, form feed, carriage return).
template <typename Text>
Text trimmed(const Text& text) {
    using Char = typename Text::value_type;
    static const Char kWhiteSpace[] = {' ', '\t', '\n', '\v', '\f', '\r', 0};
    size_t first = text.find_first_not_of(kWhiteSpace);
    if (first == Text::npos) return Text();
    size_t last = text.find_last_not_of(kWhiteSpace);
    return text.substr(first, last - first + 1);
}
