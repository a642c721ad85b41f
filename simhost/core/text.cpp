#include "simhost/core/text.h"

#include <cstdint>

namespace simhost {

namespace {

constexpr uint32_t kReplacement = 0xFFFD;

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

std::string narrow(const std::wstring& wide) {
    std::string utf8;
    for (wchar_t c : wide) {
        uint32_t code = static_cast<uint32_t>(c);
        if (code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) code = kReplacement;
        if (code < 0x80) {
            utf8 += static_cast<char>(code);
        } else if (code < 0x800) {
            utf8 += static_cast<char>(0xC0 | (code >> 6));
            utf8 += static_cast<char>(0x80 | (code & 0x3F));
        } else if (code < 0x10000) {
            utf8 += static_cast<char>(0xE0 | (code >> 12));
            utf8 += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            utf8 += static_cast<char>(0x80 | (code & 0x3F));
        } else {
            utf8 += static_cast<char>(0xF0 | (code >> 18));
            utf8 += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
            utf8 += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            utf8 += static_cast<char>(0x80 | (code & 0x3F));
        }
    }
    return utf8;
}

}  // namespace simhost
