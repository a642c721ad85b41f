// GetACP, MultiByteToWideChar and WideCharToMultiByte of the simulated
// kernel32 for UTF-8 and Windows-1252.
#include "simhost/core/host.h"
#include "simhost/kernel32/host_settings.h"
#include "simhost/kernel32/kernel32.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

constexpr DWORD kUntouched = 0xDEADBEEF;

class Kernel32CodePages : public ::testing::Test {
protected:
    void SetUp() override { simhost::Host::get().reset(); }
};

std::wstring toWide(UINT codePage, const std::string& bytes, DWORD flags = 0) {
    int needed = MultiByteToWideChar(codePage, flags, bytes.data(), static_cast<int>(bytes.size()), nullptr, 0);
    std::wstring wide(static_cast<size_t>(needed), L'\0');
    if (needed) MultiByteToWideChar(codePage, flags, bytes.data(), static_cast<int>(bytes.size()), &wide[0], needed);
    return wide;
}

std::string toBytes(UINT codePage, const std::wstring& wide, DWORD flags = 0) {
    int needed = WideCharToMultiByte(codePage, flags, wide.data(), static_cast<int>(wide.size()), nullptr, 0,
                                     nullptr, nullptr);
    std::string bytes(static_cast<size_t>(needed), '\0');
    if (needed)
        WideCharToMultiByte(codePage, flags, wide.data(), static_cast<int>(wide.size()), &bytes[0], needed, nullptr,
                            nullptr);
    return bytes;
}

// ---- GetACP ----

TEST_F(Kernel32CodePages, AnsiCodePageIs1252UnlessTheHostSetsUtf8) {
    EXPECT_EQ(GetACP(), 1252u);
    EXPECT_TRUE(simhost::kernel32::setAnsiCodePage(CP_UTF8));
    EXPECT_EQ(GetACP(), 65001u);
    EXPECT_FALSE(simhost::kernel32::setAnsiCodePage(437));
    EXPECT_EQ(GetACP(), 65001u);
    simhost::Host::get().reset();
    EXPECT_EQ(GetACP(), 1252u);
}

// ---- MultiByteToWideChar, UTF-8 ----

TEST_F(Kernel32CodePages, CountOfMinusOneConvertsTheTerminatingNul) {
    wchar_t out[8];
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "h\xC3\xA9llo", -1, out, 8), 6);
    EXPECT_EQ(std::wstring(out), L"h\u00E9llo");
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "", -1, out, 8), 1);
    EXPECT_EQ(out[0], L'\0');
}

TEST_F(Kernel32CodePages, ExplicitCountConvertsThatManyBytesWithoutANul) {
    wchar_t out[4] = {L'x', L'x', L'x', L'x'};
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abcdef", 3, out, 4), 3);
    EXPECT_EQ(out[0], L'a');
    EXPECT_EQ(out[2], L'c');
    EXPECT_EQ(out[3], L'x');
}

TEST_F(Kernel32CodePages, OutputCountZeroAsksForTheSize) {
    SetLastError(kUntouched);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "h\xC3\xA9llo", -1, nullptr, 0), 6);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "h\xC3\xA9llo", 6, nullptr, 0), 5);
    EXPECT_EQ(GetLastError(), kUntouched);
}

TEST_F(Kernel32CodePages, ShortWideBufferReceivesWhatFitsAndTheCallFails) {
    wchar_t out[4] = {L'x', L'x', L'x', L'x'};
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abcdef", -1, out, 3), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(std::wstring(out, 4), L"abcx");
}

TEST_F(Kernel32CodePages, MultiByteArgumentsAreChecked) {
    wchar_t out[8];
    char text[8] = "abc";
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abc", 0, out, 8), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, nullptr, 3, out, 8), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abc", -2, out, 8), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abc", 3, nullptr, 8), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abc", 3, out, -1), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, text, 3, reinterpret_cast<LPWSTR>(text), 2), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(MultiByteToWideChar(12345, 0, "abc", 3, out, 8), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

TEST_F(Kernel32CodePages, Utf8TakesNoFlagButMbErrInvalidChars) {
    wchar_t out[8];
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, MB_PRECOMPOSED, "abc", 3, out, 8), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_FLAGS));
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, "abc", 3, out, 8), 3);
}

TEST_F(Kernel32CodePages, InvalidUtf8BecomesOneReplacementPerMaximalSubpart) {
    // A byte that cannot start a sequence, as in the documented "\xC0AB" case.
    EXPECT_EQ(toWide(CP_UTF8, "\xC0" "AB"), std::wstring(L"\uFFFD" L"AB"));
    EXPECT_EQ(toWide(CP_UTF8, "test\xFF\xFF test"), std::wstring(L"test\uFFFD\uFFFD test"));
    // A truncated sequence is one replacement; the byte that broke it counts anew.
    EXPECT_EQ(toWide(CP_UTF8, "\xE2\x82" "A"), std::wstring(L"\uFFFD" L"A"));
    EXPECT_EQ(toWide(CP_UTF8, "\xE2\x82"), std::wstring(L"\uFFFD"));
    // Encoded surrogates, overlong forms and values beyond U+10FFFF.
    EXPECT_EQ(toWide(CP_UTF8, "\xED\xA0\x80"), std::wstring(L"\uFFFD\uFFFD\uFFFD"));
    EXPECT_EQ(toWide(CP_UTF8, "\xE0\x80\x80"), std::wstring(L"\uFFFD\uFFFD\uFFFD"));
    EXPECT_EQ(toWide(CP_UTF8, "\xF4\x90\x80\x80"), std::wstring(L"\uFFFD\uFFFD\uFFFD\uFFFD"));
    EXPECT_EQ(toWide(CP_UTF8, "\x80" "a"), std::wstring(L"\uFFFD" L"a"));
}

TEST_F(Kernel32CodePages, MbErrInvalidCharsFailsOnInvalidUtf8) {
    wchar_t out[8];
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, "a\xC0" "b", 3, out, 8), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_UNICODE_TRANSLATION));
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, "a\xC0" "b", 3, nullptr, 0), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_UNICODE_TRANSLATION));
}

// wchar_t is 32 bits here: a character beyond U+FFFF is one wchar_t.
TEST_F(Kernel32CodePages, CharacterBeyondTheBasicPlaneIsOneWideCharacter) {
    std::wstring wide = toWide(CP_UTF8, "\xF0\x9F\x98\x80");
    ASSERT_EQ(wide.size(), 1u);
    EXPECT_EQ(static_cast<unsigned>(wide[0]), 0x1F600u);
}

// ---- MultiByteToWideChar, Windows-1252 ----

TEST_F(Kernel32CodePages, Windows1252MapsItsHighControlsRangeAsWindowsDoes) {
    EXPECT_EQ(toWide(1252, "\x80\x82\x8A\x9F"), std::wstring(L"\u20AC\u201A\u0160\u0178"));
    // The five bytes the page leaves undefined map to the C1 controls.
    EXPECT_EQ(toWide(1252, "\x81\x8D\x8F\x90\x9D"), std::wstring(L"\u0081\u008D\u008F\u0090\u009D"));
    EXPECT_EQ(toWide(1252, "\xA0\xE9\xFF"), std::wstring(L"\u00A0\u00E9\u00FF"));
    wchar_t out[4];
    EXPECT_EQ(MultiByteToWideChar(1252, MB_ERR_INVALID_CHARS, "\x81", 1, out, 4), 1);
}

TEST_F(Kernel32CodePages, EveryWindows1252ByteComesBackUnchanged) {
    std::string all;
    for (int byte = 1; byte < 256; ++byte) all += static_cast<char>(byte);
    std::wstring wide = toWide(1252, all);
    ASSERT_EQ(wide.size(), 255u);
    BOOL usedDefault = TRUE;
    char back[256];
    EXPECT_EQ(WideCharToMultiByte(1252, 0, wide.data(), 255, back, 256, nullptr, &usedDefault), 255);
    EXPECT_EQ(usedDefault, FALSE);
    EXPECT_EQ(std::string(back, 255), all);
}

TEST_F(Kernel32CodePages, AnsiCodePageFollowsTheHost) {
    EXPECT_EQ(toWide(CP_ACP, "\x80"), std::wstring(L"\u20AC"));
    simhost::kernel32::setAnsiCodePage(CP_UTF8);
    EXPECT_EQ(toWide(CP_ACP, "\x80"), std::wstring(L"\uFFFD"));
    wchar_t out[4];
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, "a", 1, out, 4), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_FLAGS));
}

TEST_F(Kernel32CodePages, Windows1252RefusesUnknownFlags) {
    wchar_t out[4];
    EXPECT_EQ(MultiByteToWideChar(1252, MB_PRECOMPOSED | MB_ERR_INVALID_CHARS, "a", 1, out, 4), 1);
    EXPECT_EQ(MultiByteToWideChar(1252, 0x100, "a", 1, out, 4), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_FLAGS));
}

// ---- WideCharToMultiByte, UTF-8 ----

TEST_F(Kernel32CodePages, WideToUtf8WithCountOfMinusOneIncludesTheNul) {
    char out[16];
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"h\u00E9llo", -1, out, 16, nullptr, nullptr), 7);
    EXPECT_EQ(std::string(out), "h\xC3\xA9llo");
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"h\u00E9llo", -1, nullptr, 0, nullptr, nullptr), 7);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"h\u00E9llo", 2, nullptr, 0, nullptr, nullptr), 3);
}

TEST_F(Kernel32CodePages, ShortByteBufferReceivesTheWholeCharactersThatFit) {
    char out[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"12345678", -1, out, 4, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(std::string(out, 4), "1234");
    char two[3] = {'x', 'x', 'x'};
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"a\u00E9", 2, two, 2, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(std::string(two, 3), "axx");
}

TEST_F(Kernel32CodePages, Utf8RefusesFlagsAndDefaultCharacterArguments) {
    char out[8];
    BOOL usedDefault = FALSE;
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, WC_NO_BEST_FIT_CHARS, L"a", 1, out, 8, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_FLAGS));
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"a", 1, out, 8, "?", nullptr), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"a", 1, out, 8, nullptr, &usedDefault), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, L"a", 1, out, 8, nullptr, nullptr), 1);
}

TEST_F(Kernel32CodePages, WideArgumentsAreChecked) {
    char out[8];
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"abc", 0, out, 8, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, nullptr, 3, out, 8, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"abc", 3, nullptr, 8, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(WideCharToMultiByte(437, 0, L"abc", 3, out, 8, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

TEST_F(Kernel32CodePages, LoneSurrogatesBecomeReplacementsOrFailWithWcErrInvalidChars) {
    const wchar_t lone[] = {L'a', 0xD800, L'b', 0};
    EXPECT_EQ(toBytes(CP_UTF8, lone), "a\xEF\xBF\xBD" "b");
    char out[8];
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, lone, 3, out, 8, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_UNICODE_TRANSLATION));
    const wchar_t beyond[] = {0x110000, 0};
    EXPECT_EQ(toBytes(CP_UTF8, beyond), "\xEF\xBF\xBD");
}

TEST_F(Kernel32CodePages, SurrogatePairsAndWideCharactersBeyondTheBasicPlaneEncodeAlike) {
    const wchar_t pair[] = {0xD83D, 0xDE00, 0};
    const wchar_t single[] = {0x1F600, 0};
    EXPECT_EQ(toBytes(CP_UTF8, pair), "\xF0\x9F\x98\x80");
    EXPECT_EQ(toBytes(CP_UTF8, single), "\xF0\x9F\x98\x80");
}

// ---- WideCharToMultiByte, Windows-1252 ----

TEST_F(Kernel32CodePages, UnmappableCharactersBecomeTheDefaultCharacter) {
    char out[8] = {};
    BOOL usedDefault = FALSE;
    EXPECT_EQ(WideCharToMultiByte(1252, 0, L"\u20AC\u0100a", 3, out, 8, nullptr, &usedDefault), 3);
    EXPECT_EQ(std::string(out, 3), "\x80?a");
    EXPECT_EQ(usedDefault, TRUE);
    EXPECT_EQ(WideCharToMultiByte(1252, WC_NO_BEST_FIT_CHARS, L"\u4E2D", 1, out, 8, "*", &usedDefault), 1);
    EXPECT_EQ(out[0], '*');
    EXPECT_EQ(usedDefault, TRUE);
    EXPECT_EQ(WideCharToMultiByte(1252, 0, L"abc", 3, out, 8, nullptr, &usedDefault), 3);
    EXPECT_EQ(usedDefault, FALSE);
}

TEST_F(Kernel32CodePages, Windows1252RefusesWcErrInvalidChars) {
    char out[8];
    EXPECT_EQ(WideCharToMultiByte(1252, WC_ERR_INVALID_CHARS, L"a", 1, out, 8, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_FLAGS));
}

// ---- Faults ----

TEST_F(Kernel32CodePages, ConversionsFailWithTheInjectedError) {
    simhost::Host::get().faults().failCall("MultiByteToWideChar", ERROR_NOT_ENOUGH_MEMORY, 1);
    wchar_t wide[4];
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "a", 1, wide, 4), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "a", 1, wide, 4), 1);
    simhost::Host::get().faults().failCall("WideCharToMultiByte", ERROR_GEN_FAILURE, 1);
    char bytes[4];
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"a", 1, bytes, 4, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_GEN_FAILURE));
}

}  // namespace
