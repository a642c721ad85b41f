#include "simhost/setupapi/inf_text.h"

#include "simhost/core/text.h"
#include "simhost/kernel32/codepages.h"
#include "simhost/setupapi/setupapi.h"
#include "simhost/setupapi/setupapi_state.h"

namespace simhost {
namespace setupapi {
namespace {

// Windows 2000 and later take section names of up to 255 characters.
constexpr size_t kLongestSectionName = 255;

bool startsWith(const std::string& bytes, const char* prefix, size_t length) {
    return bytes.compare(0, length, prefix, length) == 0;
}

std::wstring trimBlanks(const std::wstring& text) {
    size_t first = 0, end = text.size();
    while (first < end && isInfBlank(text[first])) ++first;
    while (end > first && isInfBlank(text[end - 1])) --end;
    return text.substr(first, end - first);
}

// The line up to its comment: a semicolon outside quotes. Answers false for
// a quote left open at the end of the line, which is a syntax error.
bool stripComment(const std::wstring& line, std::wstring& kept) {
    bool quoted = false;
    size_t end = 0;
    for (; end < line.size(); ++end) {
        if (line[end] == L'"') quoted = !quoted;
        if (line[end] == L';' && !quoted) break;
    }
    kept = line.substr(0, end);
    return !quoted;
}

// Reads "[name]" into `name`; answers the syntax error of a bad header.
DWORD sectionHeader(const std::wstring& line, std::wstring& name) {
    size_t close = line.find(L']');
    if (close == std::wstring::npos || close + 1 != line.size()) return ERROR_BAD_SECTION_NAME_LINE;
    name = trimBlanks(line.substr(1, close - 1));
    if (name.empty()) return ERROR_EXPECTED_SECTION_NAME;
    return name.size() > kLongestSectionName ? ERROR_SECTION_NAME_TOO_LONG : ERROR_SUCCESS;
}

RawSection& sectionNamed(RawInf& inf, const std::wstring& name) {
    for (RawSection& section : inf.sections)
        if (sameIgnoringCase(section.name, name)) return section;
    inf.sections.push_back({name, {}});
    return inf.sections.back();
}

RawInf syntaxError(DWORD error, UINT line) {
    RawInf failed;
    failed.error = error;
    failed.errorLine = line;
    return failed;
}

}  // namespace

bool isInfBlank(wchar_t c) { return c == L' ' || c == L'\t'; }

std::wstring decodeInfText(const std::string& bytes) {
    if (startsWith(bytes, "\xFF\xFE", 2)) return kernel32::decodeUtf16Le(bytes.substr(2));
    std::wstring text;
    if (startsWith(bytes, "\xEF\xBB\xBF", 3)) kernel32::decodeMultiByte(CP_UTF8, bytes.substr(3), text);
    else kernel32::decodeMultiByte(CP_ACP, bytes, text);
    return text;
}

RawInf splitInfSections(const std::wstring& text) {
    RawInf inf;
    RawSection* current = nullptr;
    std::vector<std::wstring> physical = splitText(text, L'\n', EmptyPieces::Keep);
    RawLine pending;
    for (size_t i = 0; i < physical.size(); ++i) {
        UINT number = static_cast<UINT>(i + 1);
        std::wstring& physicalLine = physical[i];
        if (!physicalLine.empty() && physicalLine.back() == L'\r') physicalLine.pop_back();
        std::wstring kept;
        if (!stripComment(physicalLine, kept)) return syntaxError(ERROR_GENERAL_SYNTAX, number);
        kept = trimBlanks(kept);
        if (pending.text.empty()) pending.number = number;
        // A backslash ending the line continues it on the next.
        bool continues = !kept.empty() && kept.back() == L'\\' && i + 1 < physical.size();
        pending.text += continues ? kept.substr(0, kept.size() - 1) : kept;
        if (continues) continue;
        RawLine line{trimBlanks(pending.text), pending.number};
        pending = RawLine{};
        if (line.text.empty()) continue;
        if (line.text[0] == L'[') {
            std::wstring name;
            if (DWORD error = sectionHeader(line.text, name)) return syntaxError(error, line.number);
            current = &sectionNamed(inf, name);
        } else if (current) {
            current->lines.push_back(line);
        }
    }
    return inf;
}

}  // namespace setupapi
}  // namespace simhost
