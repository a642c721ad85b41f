#include "foundation/LogMessageFormat.h"

#include "foundation/TextConversion.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <string>
#include <type_traits>

namespace {

// A wint_t narrower than int travels through "..." as an int.
using PromotedWint = std::conditional_t<(sizeof(wint_t) < sizeof(int)), int, wint_t>;

enum class Length { None, Char, Short, Long, LongLong, LongDouble, Size, IntMax, PtrDiff };

// One conversion directive: its text with any '*' replaced by the
// number taken from the arguments, its length modifier and its letter.
struct Conversion {
    std::string directive;  // "%-8.3" so far; the length and letter are added when printing
    Length length = Length::None;
    char letter = 0;
    bool wide = false;  // %ls, %lc, %S, %C
};

// Prints one conversion of a narrow value through the runtime's printf.
template <class Value>
void appendPrinted(std::string& out, const std::string& directive, Value value) {
    int needed = std::snprintf(nullptr, 0, directive.c_str(), value);
    if (needed <= 0) return;
    std::string text(static_cast<size_t>(needed) + 1, '\0');
    std::snprintf(&text[0], text.size(), directive.c_str(), value);
    out.append(text.data(), static_cast<size_t>(needed));
}

const char* lengthText(Length length) {
    switch (length) {
        case Length::Char: return "hh";
        case Length::Short: return "h";
        case Length::Long: return "l";
        case Length::LongLong: return "ll";
        case Length::LongDouble: return "L";
        case Length::Size: return "z";
        case Length::IntMax: return "j";
        case Length::PtrDiff: return "t";
        case Length::None: break;
    }
    return "";
}

// Flags, width and precision; a '*' takes its number from the arguments.
const char* readFlagsWidthPrecision(const char* at, Conversion& conversion, va_list& args) {
    while (*at && std::strchr("-+ #0", *at)) conversion.directive += *at++;
    auto readNumber = [&] {
        if (*at == '*') {
            conversion.directive += std::to_string(va_arg(args, int));
            ++at;
            return;
        }
        while (*at >= '0' && *at <= '9') conversion.directive += *at++;
    };
    readNumber();
    if (*at == '.') {
        conversion.directive += *at++;
        readNumber();
    }
    return at;
}

const char* readLength(const char* at, Length& length) {
    switch (*at) {
        case 'h':
            if (at[1] == 'h') { length = Length::Char; return at + 2; }
            length = Length::Short;
            return at + 1;
        case 'l':
            if (at[1] == 'l') { length = Length::LongLong; return at + 2; }
            length = Length::Long;
            return at + 1;
        case 'L': length = Length::LongDouble; return at + 1;
        case 'z': length = Length::Size; return at + 1;
        case 'j': length = Length::IntMax; return at + 1;
        case 't': length = Length::PtrDiff; return at + 1;
        default: return at;
    }
}

void appendSigned(std::string& out, const std::string& directive, Length length, va_list& args) {
    switch (length) {
        case Length::Long: appendPrinted(out, directive, va_arg(args, long)); break;
        case Length::LongLong: appendPrinted(out, directive, va_arg(args, long long)); break;
        case Length::Size: appendPrinted(out, directive, va_arg(args, std::make_signed_t<size_t>)); break;
        case Length::IntMax: appendPrinted(out, directive, va_arg(args, intmax_t)); break;
        case Length::PtrDiff: appendPrinted(out, directive, va_arg(args, ptrdiff_t)); break;
        default: appendPrinted(out, directive, va_arg(args, int)); break;
    }
}

void appendUnsigned(std::string& out, const std::string& directive, Length length, va_list& args) {
    switch (length) {
        case Length::Long: appendPrinted(out, directive, va_arg(args, unsigned long)); break;
        case Length::LongLong: appendPrinted(out, directive, va_arg(args, unsigned long long)); break;
        case Length::Size: appendPrinted(out, directive, va_arg(args, size_t)); break;
        case Length::IntMax: appendPrinted(out, directive, va_arg(args, uintmax_t)); break;
        case Length::PtrDiff: appendPrinted(out, directive, va_arg(args, std::make_unsigned_t<ptrdiff_t>)); break;
        default: appendPrinted(out, directive, va_arg(args, unsigned int)); break;
    }
}

// Wide text becomes UTF-8 and is then printed as narrow text, so that
// width and precision count its bytes as they would for %s.
void appendWide(std::string& out, const std::string& directive, char letter, va_list& args) {
    std::string utf8;
    if (letter == 's') {
        const wchar_t* text = va_arg(args, const wchar_t*);
        utf8 = text ? wideToUtf8(text) : std::string("(null)");
    } else {
        const wchar_t character = static_cast<wchar_t>(va_arg(args, PromotedWint));
        if (character == L'\0') {
            out += '\0';  // a NUL character is text of its own, which %s would stop at
            return;
        }
        utf8 = wideToUtf8(std::wstring(1, character));
        if (utf8.empty()) utf8 = "?";
    }
    appendPrinted(out, directive + 's', utf8.c_str());
}

// A pointer as the Windows runtime writes it: every hex digit of its width,
// upper case, no prefix, null included, so that a line reads the same on
// both platforms ("hPrinter = 0x%p").
void appendPointer(std::string& out, const void* pointer) {
    char text[2 * sizeof(void*) + 1];
    std::snprintf(text, sizeof text, "%0*llX", static_cast<int>(2 * sizeof(void*)),
                  static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(pointer)));
    out += text;
}

// Prints one conversion; false for a letter that is no conversion.
bool appendConversion(std::string& out, const Conversion& conversion, va_list& args) {
    const std::string directive = conversion.directive + lengthText(conversion.length) + conversion.letter;
    if (conversion.wide) {
        appendWide(out, conversion.directive, conversion.letter, args);
        return true;
    }
    switch (conversion.letter) {
        case 'd': case 'i': appendSigned(out, directive, conversion.length, args); return true;
        case 'u': case 'o': case 'x': case 'X': appendUnsigned(out, directive, conversion.length, args); return true;
        case 'c': {
            // The runtime writes a NUL character too; snprintf counts it.
            appendPrinted(out, directive, va_arg(args, int));
            return true;
        }
        case 's': appendPrinted(out, directive, va_arg(args, const char*)); return true;
        case 'p': appendPointer(out, va_arg(args, void*)); return true;
        case 'f': case 'F': case 'e': case 'E': case 'g': case 'G': case 'a': case 'A':
            if (conversion.length == Length::LongDouble) appendPrinted(out, directive, va_arg(args, long double));
            else appendPrinted(out, directive, va_arg(args, double));
            return true;
        case 'n': (void)va_arg(args, void*); return true;  // writes nothing back: a log call reports no counts
        default: return false;
    }
}

}  // namespace

std::string formatLogMessage(const char* format, va_list args) {
    va_list walk;
    va_copy(walk, args);
    std::string out;
    const char* at = format;
    while (*at) {
        const char* percent = std::strchr(at, '%');
        if (!percent) {
            out += at;
            break;
        }
        out.append(at, static_cast<size_t>(percent - at));
        if (percent[1] == '%') {
            out += '%';
            at = percent + 2;
            continue;
        }
        Conversion conversion;
        conversion.directive = "%";
        at = readFlagsWidthPrecision(percent + 1, conversion, walk);
        at = readLength(at, conversion.length);
        conversion.letter = *at;
        if (conversion.letter == 'S' || conversion.letter == 'C') {
            conversion.wide = true;
            conversion.letter = static_cast<char>(conversion.letter - 'A' + 'a');
        } else if (conversion.length == Length::Long && (conversion.letter == 's' || conversion.letter == 'c')) {
            conversion.wide = true;
        }
        if (!appendConversion(out, conversion, walk)) break;
        ++at;
    }
    va_end(walk);
    return out;
}
