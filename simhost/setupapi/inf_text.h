// The first pass over an INF file: its bytes decoded, its physical lines
// joined into logical ones and gathered under their sections. Fields are
// split later (inf_parser.cpp), once the [Strings] sections are known.
#pragma once

#include "simhost/wintypes.h"

#include <string>
#include <vector>

namespace simhost {
namespace setupapi {

// A logical line: comments removed, continued lines joined, surrounding
// blanks trimmed; `number` is the 1-based line it starts on.
struct RawLine {
    std::wstring text;
    UINT number = 0;
};

struct RawSection {
    std::wstring name;
    std::vector<RawLine> lines;
};

struct RawInf {
    std::vector<RawSection> sections;
    DWORD error = ERROR_SUCCESS;  // an ERROR_* syntax code of setupapi
    UINT errorLine = 0;
};

// The text of an INF file's bytes: UTF-16 LE after its byte-order mark,
// UTF-8 after its byte-order mark, else the machine's ANSI code page.
std::wstring decodeInfText(const std::string& bytes);

// The sections of the text; a section that appears twice is one, its lines
// in the order they come. Lines before the first section are ignored.
RawInf splitInfSections(const std::wstring& text);

// Blanks are spaces and tabs, as INF files use them.
bool isInfBlank(wchar_t c);

}  // namespace setupapi
}  // namespace simhost
