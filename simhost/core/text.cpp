#include "simhost/core/text.h"

#include <cstdint>

namespace simhost {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

// The length of the sequence a lead byte starts, 0 for a byte that cannot lead.
int sequenceLength(unsigned char lead) {
    if (lead < 0x80) return 1;
    if (lead >= 0xC2 && lead <= 0xDF) return 2;
    if (lead >= 0xE0 && lead <= 0xEF) return 3;
    if (lead >= 0xF0 && lead <= 0xF4) return 4;
    return 0;
}

}  // namespace

std::wstring widen(const std::string& utf8) {
    std::wstring wide;
    for (size_t i = 0; i < utf8.size();) {
        unsigned char lead = static_cast<unsigned char>(utf8[i]);
        int length = sequenceLength(lead);
        if (length == 0 || i + static_cast<size_t>(length) > utf8.size()) {
            wide += static_cast<wchar_t>(kReplacement);
            ++i;
            continue;
        }
        uint32_t code = length == 1 ? lead : lead & (0x7F >> length);
        bool valid = true;
        for (int k = 1; k < length; ++k) {
            unsigned char next = static_cast<unsigned char>(utf8[i + static_cast<size_t>(k)]);
            valid = valid && (next & 0xC0) == 0x80;
            code = (code << 6) | (next & 0x3F);
        }
        wide += static_cast<wchar_t>(valid ? code : kReplacement);
        i += valid ? static_cast<size_t>(length) : 1;
    }
    return wide;
}

void appendUtf8(std::string& out, char32_t point) {
    if (point < 0x80) {
        out += static_cast<char>(point);
    } else if (point < 0x800) {
        out += static_cast<char>(0xC0 | (point >> 6));
        out += static_cast<char>(0x80 | (point & 0x3F));
    } else if (point < 0x10000) {
        out += static_cast<char>(0xE0 | (point >> 12));
        out += static_cast<char>(0x80 | ((point >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (point & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (point >> 18));
        out += static_cast<char>(0x80 | ((point >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((point >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (point & 0x3F));
    }
}

std::string narrow(const std::wstring& wide) {
    std::string utf8;
    for (wchar_t c : wide) {
        char32_t code = static_cast<char32_t>(c);
        if (code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) code = kReplacement;
        appendUtf8(utf8, code);
    }
    return utf8;
}

std::vector<std::wstring> splitText(const std::wstring& text, wchar_t separator, EmptyPieces empty) {
    std::vector<std::wstring> pieces;
    size_t start = 0;
    for (;;) {
        size_t end = text.find(separator, start);
        if (end == std::wstring::npos) end = text.size();
        if (end > start || empty == EmptyPieces::Keep) pieces.push_back(text.substr(start, end - start));
        if (end == text.size()) return pieces;
        start = end + 1;
    }
}

}  // namespace simhost
