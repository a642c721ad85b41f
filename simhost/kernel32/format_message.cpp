// FormatMessageW over the system message table (FORMAT_MESSAGE_FROM_SYSTEM)
// and caller strings (FORMAT_MESSAGE_FROM_STRING), with the escape sequences
// and string inserts of the message syntax.
//
// Not modelled, and refused with ERROR_INVALID_PARAMETER: line-width limits
// (FORMAT_MESSAGE_MAX_WIDTH_MASK), inserts read from a va_list (only
// FORMAT_MESSAGE_ARGUMENT_ARRAY is read) and insert formats other than
// strings. Modules hold no message tables here.
#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/kernel32/system_messages.h"

#include <algorithm>
#include <string>

namespace simhost {
namespace kernel32 {
namespace {

constexpr DWORD kErrorResourceTypeNotFound = 1813;
constexpr DWORD kErrorResourceLangNotFound = 1815;
constexpr DWORD kLangEnglish = 0x09;

DWORD fail(DWORD error) {
    SetLastError(error);
    return 0;
}

// The system table holds English texts only, found for language 0, the
// neutral and default languages and any English one.
bool languageAvailable(DWORD languageId) {
    DWORD primary = languageId & 0x3FF;
    return languageId <= 0xFFFF && (primary == LANG_NEUTRAL || primary == kLangEnglish);
}

// The message text the flags select; 0, or the error to fail with.
DWORD findPattern(DWORD flags, LPCVOID source, DWORD messageId, DWORD languageId, std::wstring& pattern) {
    if (flags & FORMAT_MESSAGE_FROM_STRING) {
        if (!source) return ERROR_INVALID_PARAMETER;
        pattern = static_cast<LPCWSTR>(source);
        return 0;
    }
    // A module has no message table here, so with FORMAT_MESSAGE_FROM_SYSTEM
    // the search goes on in the system table, as Windows does.
    if (!(flags & FORMAT_MESSAGE_FROM_SYSTEM))
        return flags & FORMAT_MESSAGE_FROM_HMODULE ? kErrorResourceTypeNotFound : ERROR_INVALID_PARAMETER;
    if (!languageAvailable(languageId)) return kErrorResourceLangNotFound;
    return systemMessageText(messageId, pattern) ? 0 : ERROR_MR_MID_NOT_FOUND;
}

// An insert "%N" or "%N!format!" starting at pattern[at] (the first digit).
struct Insert {
    size_t number = 0;
    std::wstring format;
    size_t end = 0;  // index of its last character
};

Insert parseInsert(const std::wstring& pattern, size_t at) {
    Insert insert;
    insert.number = size_t(pattern[at] - L'0');
    insert.end = at;
    bool secondDigit = at + 1 < pattern.size() && pattern[at + 1] >= L'0' && pattern[at + 1] <= L'9';
    if (secondDigit) insert.number = insert.number * 10 + size_t(pattern[++insert.end] - L'0');
    size_t close = insert.end + 1 < pattern.size() && pattern[insert.end + 1] == L'!'
                       ? pattern.find(L'!', insert.end + 2)
                       : std::wstring::npos;
    if (close != std::wstring::npos) {
        insert.format = pattern.substr(insert.end + 2, close - insert.end - 2);
        insert.end = close;
    }
    return insert;
}

// Fills an insert from a FORMAT_MESSAGE_ARGUMENT_ARRAY of string pointers.
bool fillInsert(const Insert& insert, DWORD flags, void* arguments, std::wstring& out) {
    bool stringFormat = insert.format.empty() || insert.format == L"s" || insert.format == L"ls" ||
                        insert.format == L"ws";
    if (!arguments || !(flags & FORMAT_MESSAGE_ARGUMENT_ARRAY) || !stringFormat) return false;
    auto text = reinterpret_cast<LPCWSTR>(static_cast<const DWORD_PTR*>(arguments)[insert.number - 1]);
    out += text ? text : L"(null)";
    return true;
}

wchar_t escapedCharacter(wchar_t code) {
    switch (code) {
    case L'r':
        return L'\r';
    case L't':
        return L'\t';
    default:
        return code;  // "%%", "% ", "%." and "%!" stand for the character itself
    }
}

// Applies the message syntax: "%0" ends the text without a line break, "%n"
// is a line break, other escapes give their character, and inserts are
// filled, or passed through unchanged with FORMAT_MESSAGE_IGNORE_INSERTS.
// False when an insert cannot be filled, as without arguments.
bool expandMessage(const std::wstring& pattern, DWORD flags, void* arguments, std::wstring& out) {
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] != L'%') {
            out += pattern[i];
        } else if (++i == pattern.size() || pattern[i] == L'0') {
            return true;
        } else if (pattern[i] == L'n') {
            out += L"\r\n";
        } else if (pattern[i] < L'1' || pattern[i] > L'9') {
            out += escapedCharacter(pattern[i]);
        } else {
            Insert insert = parseInsert(pattern, i);
            if (flags & FORMAT_MESSAGE_IGNORE_INSERTS)
                out += pattern.substr(i - 1, insert.end - i + 2);
            else if (!fillInsert(insert, flags, arguments, out))
                return false;
            i = insert.end;
        }
    }
    return true;
}

// With FORMAT_MESSAGE_ALLOCATE_BUFFER `buffer` is where the address of a
// LocalAlloc block of at least `size` characters goes, which the caller frees
// with LocalFree.
DWORD deliverAllocated(const std::wstring& text, LPWSTR* buffer, DWORD size) {
    if (!buffer) return fail(ERROR_INVALID_PARAMETER);
    SIZE_T characters = std::max<SIZE_T>(size, text.size() + 1);
    auto block = static_cast<LPWSTR>(LocalAlloc(LMEM_FIXED, characters * sizeof(wchar_t)));
    if (!block) return 0;  // LocalAlloc has set the last error
    std::copy(text.begin(), text.end(), block);
    block[text.size()] = L'\0';
    *buffer = block;
    return static_cast<DWORD>(text.size());
}

// The text and its NUL into the caller's buffer of `size` characters; a short
// buffer receives nothing.
DWORD deliver(DWORD flags, const std::wstring& text, LPWSTR buffer, DWORD size) {
    if (flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) return deliverAllocated(text, reinterpret_cast<LPWSTR*>(buffer), size);
    if (size < text.size() + 1) return fail(ERROR_INSUFFICIENT_BUFFER);
    if (!buffer) return fail(ERROR_INVALID_PARAMETER);
    std::copy(text.begin(), text.end(), buffer);
    buffer[text.size()] = L'\0';
    return static_cast<DWORD>(text.size());
}

}  // namespace
}  // namespace kernel32
}  // namespace simhost

DWORD WINAPI FormatMessageW(DWORD flags, LPCVOID source, DWORD messageId, DWORD languageId, LPWSTR buffer,
                            DWORD size, void* arguments) {
    using namespace simhost::kernel32;
    if (DWORD error = simhost::injectedFailure("FormatMessageW")) return fail(error);
    if (flags & FORMAT_MESSAGE_MAX_WIDTH_MASK) return fail(ERROR_INVALID_PARAMETER);
    std::wstring pattern;
    if (DWORD error = findPattern(flags, source, messageId, languageId, pattern)) return fail(error);
    std::wstring text;
    if (!expandMessage(pattern, flags, arguments, text)) return fail(ERROR_INVALID_PARAMETER);
    return deliver(flags, text, buffer, size);
}
