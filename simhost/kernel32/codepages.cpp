// Code-page conversion of kernel32 for the two pages the machine can have as
// its ANSI page: Windows-1252 and UTF-8 (65001). Other code pages are taken
// as not installed, which Windows answers with ERROR_INVALID_PARAMETER.
//
// Wide characters are the platform's wchar_t. On Linux that is 32 bits, so a
// character above U+FFFF is one wchar_t here where Windows writes a surrogate
// pair: counts of such text are one less per character than on Windows. A
// surrogate pair found in wide input is still joined into one character, and
// a lone surrogate is invalid, as in UTF-16.
//
// Not modelled: the composite and glyph forms (MB_COMPOSITE,
// MB_USEGLYPHCHARS, WC_COMPOSITECHECK and its companions), refused with
// ERROR_INVALID_FLAGS, and the best-fit approximations Windows-1252 applies
// without WC_NO_BEST_FIT_CHARS: every character outside the page becomes the
// default character, as with that flag.
#include "simhost/core/host.h"
#include "simhost/core/text.h"
#include "simhost/kernel32/codepages.h"
#include "simhost/kernel32/host_settings.h"
#include "simhost/kernel32/kernel32.h"

#include <atomic>
#include <cstring>
#include <cwchar>
#include <string>
#include <utility>
#include <vector>

namespace simhost {
namespace kernel32 {
namespace {

constexpr UINT kThreadAnsiCodePage = 3;  // CP_THREAD_ACP
constexpr UINT kWindows1252 = 1252;
constexpr char32_t kReplacementCharacter = 0xFFFD;
constexpr char32_t kLastCodePoint = 0x10FFFF;
constexpr char32_t kNotACharacter = 0xFFFFFFFF;  // a lone surrogate or a value beyond Unicode

struct CodePageState {
    std::atomic<UINT> ansiCodePage{kWindows1252};
    std::atomic<WORD> language{0x0409};
};

CodePageState& codePageState() { return Host::get().state<CodePageState>(); }

// Windows-1252 bytes 0x80 to 0x9F. The five bytes the page leaves undefined
// (0x81, 0x8D, 0x8F, 0x90, 0x9D) map to the C1 controls of the same number,
// as Windows maps them.
constexpr char32_t kWindows1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

int fail(DWORD error) {
    SetLastError(error);
    return 0;
}

// CP_ACP and CP_THREAD_ACP stand for the machine's ANSI page. Answers 0 for
// a page that is not installed.
UINT resolveCodePage(UINT codePage) {
    if (codePage == CP_ACP || codePage == kThreadAnsiCodePage) return GetACP();
    return codePage == kWindows1252 || codePage == CP_UTF8 ? codePage : 0;
}

// ---- Multi-byte to code points ----

struct Decoded {
    std::u32string text;
    bool invalid = false;  // some input was ill-formed and replaced by U+FFFD
};

Decoded decodeWindows1252(const unsigned char* bytes, size_t count) {
    Decoded decoded;
    decoded.text.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        unsigned char byte = bytes[i];
        decoded.text += byte >= 0x80 && byte < 0xA0 ? kWindows1252High[byte - 0x80] : char32_t(byte);
    }
    return decoded;
}

// Bytes in a sequence that `lead` starts; 0 for a byte that cannot start one
// (a continuation byte, C0, C1 and F5 to FF).
int utf8SequenceLength(unsigned char lead) {
    if (lead < 0x80) return 1;
    if (lead >= 0xC2 && lead <= 0xDF) return 2;
    if (lead >= 0xE0 && lead <= 0xEF) return 3;
    if (lead >= 0xF0 && lead <= 0xF4) return 4;
    return 0;
}

// The bytes allowed after `lead` at position `index` of its sequence. The
// narrower second-byte ranges exclude overlong forms, surrogates and values
// beyond U+10FFFF.
std::pair<unsigned char, unsigned char> utf8ContinuationRange(unsigned char lead, int index) {
    if (index == 1 && lead == 0xE0) return {0xA0, 0xBF};
    if (index == 1 && lead == 0xED) return {0x80, 0x9F};
    if (index == 1 && lead == 0xF0) return {0x90, 0xBF};
    if (index == 1 && lead == 0xF4) return {0x80, 0x8F};
    return {0x80, 0xBF};
}

// Ill-formed input becomes one U+FFFD per maximal subpart, the longest start
// of a valid sequence, or per single byte that cannot start one.
Decoded decodeUtf8(const unsigned char* bytes, size_t count) {
    Decoded decoded;
    size_t i = 0;
    while (i < count) {
        unsigned char lead = bytes[i];
        int length = utf8SequenceLength(lead);
        char32_t codePoint = length == 1 ? lead : lead & (0x7F >> length);
        size_t used = 1;
        for (int k = 1; k < length; ++k, ++used) {
            auto range = utf8ContinuationRange(lead, k);
            if (i + k >= count || bytes[i + k] < range.first || bytes[i + k] > range.second) break;
            codePoint = (codePoint << 6) | (bytes[i + k] & 0x3F);
        }
        bool complete = length > 0 && used == size_t(length);
        decoded.text += complete ? codePoint : kReplacementCharacter;
        decoded.invalid |= !complete;
        i += used;
    }
    return decoded;
}

int deliverWide(const std::u32string& text, LPWSTR out, int capacity) {
    int needed = static_cast<int>(text.size());
    if (capacity == 0) return needed;
    // A short buffer receives what fits before the call fails, as on Windows.
    int written = needed < capacity ? needed : capacity;
    for (int i = 0; i < written; ++i) out[i] = static_cast<wchar_t>(text[size_t(i)]);
    return needed <= capacity ? needed : fail(ERROR_INSUFFICIENT_BUFFER);
}

// ---- Code points to multi-byte ----

std::u32string codePointsOf(LPCWSTR wide, size_t count) {
    std::u32string points;
    points.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        char32_t unit = static_cast<char32_t>(wide[i]);
        bool high = unit >= 0xD800 && unit <= 0xDBFF;
        bool lowFollows = i + 1 < count && char32_t(wide[i + 1]) >= 0xDC00 && char32_t(wide[i + 1]) <= 0xDFFF;
        if (high && lowFollows) {
            points += 0x10000 + ((unit - 0xD800) << 10) + (char32_t(wide[++i]) - 0xDC00);
        } else {
            bool character = unit <= kLastCodePoint && (unit < 0xD800 || unit > 0xDFFF);
            points += character ? unit : kNotACharacter;
        }
    }
    return points;
}

// Encoded text with the end of each character, so that a short buffer takes
// whole characters only.
struct Encoded {
    std::string bytes;
    std::vector<size_t> characterEnds;
    bool usedDefault = false;
    bool invalid = false;
};

Encoded encodeUtf8(const std::u32string& points) {
    Encoded encoded;
    for (char32_t point : points) {
        bool valid = point != kNotACharacter;
        simhost::appendUtf8(encoded.bytes, valid ? point : kReplacementCharacter);
        encoded.invalid |= !valid;
        encoded.characterEnds.push_back(encoded.bytes.size());
    }
    return encoded;
}

// The Windows-1252 byte of a code point, or -1 when the page has none.
int windows1252Byte(char32_t point) {
    if (point < 0x80 || (point >= 0xA0 && point <= 0xFF)) return static_cast<int>(point);
    for (int i = 0; i < 32; ++i)
        if (kWindows1252High[i] == point) return 0x80 + i;
    return -1;
}

Encoded encodeWindows1252(const std::u32string& points, char defaultChar) {
    Encoded encoded;
    for (char32_t point : points) {
        int byte = windows1252Byte(point);
        encoded.bytes += byte < 0 ? defaultChar : static_cast<char>(byte);
        encoded.usedDefault |= byte < 0;
        encoded.characterEnds.push_back(encoded.bytes.size());
    }
    return encoded;
}

int deliverBytes(const Encoded& encoded, LPSTR out, int capacity) {
    int needed = static_cast<int>(encoded.bytes.size());
    if (capacity == 0) return needed;
    // A short buffer receives the whole characters that fit before the call
    // fails, as on Windows.
    size_t fitting = 0;
    for (size_t end : encoded.characterEnds)
        if (end <= size_t(capacity)) fitting = end;
    std::memcpy(out, encoded.bytes.data(), needed <= capacity ? size_t(needed) : fitting);
    return needed <= capacity ? needed : fail(ERROR_INSUFFICIENT_BUFFER);
}

bool badCounts(const void* in, int inCount, const void* out, int outCount) {
    return !in || inCount == 0 || inCount < -1 || outCount < 0 || (!out && outCount) || in == out;
}

}  // namespace

bool decodeMultiByte(UINT codePage, const std::string& bytes, std::wstring& text) {
    UINT page = resolveCodePage(codePage);
    if (!page) return false;
    auto data = reinterpret_cast<const unsigned char*>(bytes.data());
    Decoded decoded = page == CP_UTF8 ? decodeUtf8(data, bytes.size()) : decodeWindows1252(data, bytes.size());
    text.assign(decoded.text.begin(), decoded.text.end());
    return true;
}

std::wstring decodeUtf16Le(const std::string& bytes) {
    std::wstring units;
    for (size_t i = 0; i + 1 < bytes.size(); i += 2)
        units += static_cast<wchar_t>(static_cast<unsigned char>(bytes[i]) | static_cast<unsigned char>(bytes[i + 1]) << 8);
    std::wstring text;
    for (char32_t point : codePointsOf(units.data(), units.size()))
        text += static_cast<wchar_t>(point == kNotACharacter ? kReplacementCharacter : point);
    if (bytes.size() % 2) text += static_cast<wchar_t>(kReplacementCharacter);
    return text;
}

void setSystemLanguage(WORD languageId) { codePageState().language = languageId; }

WORD systemLanguage() { return codePageState().language; }

bool setAnsiCodePage(UINT codePage) {
    if (codePage != kWindows1252 && codePage != CP_UTF8) return false;
    codePageState().ansiCodePage = codePage;
    return true;
}

}  // namespace kernel32
}  // namespace simhost

UINT WINAPI GetACP() { return simhost::kernel32::codePageState().ansiCodePage; }

int WINAPI MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR multiByte, int multiByteCount, LPWSTR wide,
                               int wideCount) {
    using namespace simhost::kernel32;
    if (DWORD error = simhost::injectedFailure("MultiByteToWideChar")) return fail(error);
    if (badCounts(multiByte, multiByteCount, wide, wideCount)) return fail(ERROR_INVALID_PARAMETER);
    UINT page = resolveCodePage(codePage);
    if (!page) return fail(ERROR_INVALID_PARAMETER);
    DWORD allowed = page == CP_UTF8 ? MB_ERR_INVALID_CHARS : MB_PRECOMPOSED | MB_ERR_INVALID_CHARS;
    if (flags & ~allowed) return fail(ERROR_INVALID_FLAGS);
    // A count of -1 takes the text up to and with its terminating NUL.
    size_t length = multiByteCount == -1 ? std::strlen(multiByte) + 1 : size_t(multiByteCount);
    auto bytes = reinterpret_cast<const unsigned char*>(multiByte);
    Decoded decoded = page == CP_UTF8 ? decodeUtf8(bytes, length) : decodeWindows1252(bytes, length);
    if (decoded.invalid && (flags & MB_ERR_INVALID_CHARS)) return fail(ERROR_NO_UNICODE_TRANSLATION);
    return deliverWide(decoded.text, wide, wideCount);
}

int WINAPI WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int wideCount, LPSTR multiByte,
                               int multiByteCount, LPCSTR defaultChar, LPBOOL usedDefaultChar) {
    using namespace simhost::kernel32;
    if (DWORD error = simhost::injectedFailure("WideCharToMultiByte")) return fail(error);
    if (badCounts(wide, wideCount, multiByte, multiByteCount)) return fail(ERROR_INVALID_PARAMETER);
    UINT page = resolveCodePage(codePage);
    if (!page) return fail(ERROR_INVALID_PARAMETER);
    // WC_ERR_INVALID_CHARS belongs to UTF-8 alone.
    if (flags & ~(page == CP_UTF8 ? WC_ERR_INVALID_CHARS : WC_NO_BEST_FIT_CHARS)) return fail(ERROR_INVALID_FLAGS);
    // UTF-8 has no default character, so neither argument may be given.
    if (page == CP_UTF8 && (defaultChar || usedDefaultChar)) return fail(ERROR_INVALID_PARAMETER);
    size_t length = wideCount == -1 ? std::wcslen(wide) + 1 : size_t(wideCount);
    std::u32string points = codePointsOf(wide, length);
    char fallback = defaultChar ? *defaultChar : '?';
    Encoded encoded = page == CP_UTF8 ? encodeUtf8(points) : encodeWindows1252(points, fallback);
    if (encoded.invalid && (flags & WC_ERR_INVALID_CHARS)) return fail(ERROR_NO_UNICODE_TRANSLATION);
    if (usedDefaultChar) *usedDefaultChar = encoded.usedDefault ? TRUE : FALSE;
    return deliverBytes(encoded, multiByte, multiByteCount);
}
