// INF files as setupapi reads them: sections of lines, each line an optional
// key and its fields, with the %strkey% tokens of the [Strings] sections
// replaced. A parsed file never changes, so open handles share it.
#pragma once

#include "simhost/wintypes.h"

#include <memory>
#include <string>
#include <vector>

namespace simhost {
namespace setupapi {

struct InfLine {
    // A line without '=' has no key; SetupGetStringFieldW answers an empty
    // string for its field 0.
    bool hasKey = false;
    std::wstring key;
    std::vector<std::wstring> fields;
};

struct InfSection {
    std::wstring name;
    std::vector<InfLine> lines;
};

struct InfFile {
    std::vector<InfSection> sections;

    // The index of the section of this name in any case; -1 when absent.
    long findSection(const std::wstring& name) const;
    // Field 1 of the first line of `key` in `section`; empty when absent.
    std::wstring value(const std::wstring& section, const std::wstring& key) const;
};

struct InfParse {
    std::shared_ptr<const InfFile> file;  // null on a syntax error
    DWORD error = ERROR_SUCCESS;
    UINT errorLine = 0;
};

// Parses an INF file's bytes. `language` picks the [Strings.<language>]
// section, four hexadecimal digits such as 0409, whose keys take precedence
// over those of [Strings].
InfParse parseInf(const std::string& bytes, WORD language);

}  // namespace setupapi
}  // namespace simhost
