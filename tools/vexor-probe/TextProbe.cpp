// Code-page conversions (UTF-8 and Windows-1252) and the system's message
// texts. Only characters of the Basic Multilingual Plane are converted, so
// counts of wide characters mean the same with 2- and 4-byte wide
// characters.
#include "Probe.h"

#include <cstdio>
#include <cstring>

namespace probe {
namespace {

constexpr UINT kWindows1252 = 1252;

std::string hexBytes(const char* bytes, int count) {
    std::string told;
    for (int i = 0; i < count; ++i) {
        char one[4];
        std::snprintf(one, sizeof one, "%02X", static_cast<unsigned char>(bytes[i]));
        told += (i ? " " : "") + std::string(one);
    }
    return told.empty() ? "none" : told;
}

std::string codePoints(const wchar_t* wide, int count) {
    std::string told;
    for (int i = 0; i < count; ++i) {
        char one[12];
        std::snprintf(one, sizeof one, "U+%04X", static_cast<unsigned>(wide[i]));
        told += (i ? " " : "") + std::string(one);
    }
    return told.empty() ? "none" : told;
}

void toWide(const std::string& topic, UINT codePage, DWORD flags, const char* bytes, int count, int capacity = 32) {
    primeLastError();
    int needed = MultiByteToWideChar(codePage, flags, bytes, count, nullptr, 0);
    std::string told = "size=" + std::to_string(needed);
    if (needed == 0) told += " " + lastErrorText();
    wchar_t wide[32] = {};
    primeLastError();
    int written = MultiByteToWideChar(codePage, flags, bytes, count, wide, capacity);
    told += " written=" + std::to_string(written) + " " + (written ? codePoints(wide, written) : lastErrorText());
    observe("MultiByteToWideChar(" + std::to_string(codePage) + "," + std::to_string(flags) + ") " + topic, told);
}

void toBytes(const std::string& topic, UINT codePage, DWORD flags, const wchar_t* wide, int count,
             bool askDefault = false, int capacity = 32) {
    BOOL usedDefault = 7;
    BOOL* used = askDefault ? &usedDefault : nullptr;
    primeLastError();
    int needed = WideCharToMultiByte(codePage, flags, wide, count, nullptr, 0, nullptr, used);
    std::string told = "size=" + std::to_string(needed);
    if (needed == 0) told += " " + lastErrorText();
    char bytes[32] = {};
    primeLastError();
    int written = WideCharToMultiByte(codePage, flags, wide, count, bytes, capacity, nullptr, used);
    told += " written=" + std::to_string(written) + " " + (written ? hexBytes(bytes, written) : lastErrorText());
    if (askDefault) told += " usedDefault=" + std::to_string(usedDefault);
    observe("WideCharToMultiByte(" + std::to_string(codePage) + "," + std::to_string(flags) + ") " + topic, told);
}

void message(DWORD code, DWORD capacity = 512) {
    wchar_t buffer[512] = {};
    primeLastError();
    DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0, buffer,
                                  capacity, nullptr);
    observe("FormatMessageW(" + number(code) + (capacity == 512 ? "" : ", " + number(capacity) + " chars") + ")",
            "length=" + number(length) + " " + (length ? "\"" + text(buffer) + "\"" : lastErrorText()));
}

}  // namespace

void probeCodePages() {
    observe("GetACP", number(GetACP()));
    toWide("ascii", CP_UTF8, 0, "hello", -1);
    toWide("two-byte", CP_UTF8, 0, "h\xC3\xA9llo", -1);
    toWide("counted", CP_UTF8, 0, "h\xC3\xA9llo", 3);
    toWide("three-byte", CP_UTF8, 0, "\xE2\x82\xAC!", -1);
    toWide("short-output", CP_UTF8, 0, "h\xC3\xA9llo", -1, 3);
    toWide("bad-continuation", CP_UTF8, 0, "a\xC3\x28" "b", -1);
    toWide("bad-continuation strict", CP_UTF8, MB_ERR_INVALID_CHARS, "a\xC3\x28" "b", -1);
    toWide("truncated", CP_UTF8, 0, "a\xE2\x82", 3);
    toWide("stray-continuation", CP_UTF8, 0, "\x80\x80x", 3);
    toWide("overlong", CP_UTF8, 0, "\xC0\xAF" "x", 3);
    toWide("encoded-surrogate", CP_UTF8, 0, "\xED\xA0\x80" "x", 4);
    toWide("beyond-unicode", CP_UTF8, 0, "\xF4\x90\x80\x80" "x", 5);
    toWide("bad-flags", CP_UTF8, MB_PRECOMPOSED, "abc", -1);
    toWide("zero-count", CP_UTF8, 0, "abc", 0);
    toWide("page-80-9F", kWindows1252, 0, "\x80\x81\x8D\x9F\xE9", 5);
    toWide("precomposed", kWindows1252, MB_PRECOMPOSED, "\xE9", 1);
    toWide("unknown-page", 12345, 0, "abc", -1);

    toBytes("ascii", CP_UTF8, 0, L"hello", -1);
    toBytes("accents", CP_UTF8, 0, L"h\u00E9\u20AC", -1);
    toBytes("short-output", CP_UTF8, 0, L"h\u00E9\u20AC", -1, false, 3);
    toBytes("lone-surrogate", CP_UTF8, 0, L"a\xD800" L"b", 3);
    toBytes("lone-surrogate strict", CP_UTF8, WC_ERR_INVALID_CHARS, L"a\xD800" L"b", 3);
    toBytes("default-char-asked", CP_UTF8, 0, L"abc", -1, true);
    toBytes("in-page", kWindows1252, 0, L"\u20AC\u00E9\u0178", 3, true);
    toBytes("undefined-bytes", kWindows1252, 0, L"\u0081\u008D", 2, true);
    toBytes("outside-page", kWindows1252, 0, L"a\u4E2D", 2, true);
    toBytes("outside-page no-best-fit", kWindows1252, WC_NO_BEST_FIT_CHARS, L"a\u0101", 2, true);
    toBytes("strict-flag", kWindows1252, WC_ERR_INVALID_CHARS, L"abc", 3);
}

void probeMessages() {
    for (DWORD code : {2u, 5u, 87u, 122u, 1801u, 1797u}) message(code);
    message(2, 5);
    message(0x2FFFFFFF);
}

}  // namespace probe
