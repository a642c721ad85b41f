// Fields of INF lines. A line is `key = field, field, ...` or a list of fields
// without a key. Blanks around keys and fields are dropped; text in double
// quotes is kept as it is, commas, semicolons and blanks included, and a
// doubled quote inside quotes is one quote character. %strkey% tokens, in
// quotes or not, become their text from the [Strings] sections; a token no
// Strings section defines stays as written, and %% is one percent sign.
#include "simhost/setupapi/inf_parser.h"

#include "simhost/crt/crt.h"
#include "simhost/setupapi/inf_text.h"

#include <cwchar>
#include <map>

namespace simhost {
namespace setupapi {
namespace {

struct IgnoringCase {
    bool operator()(const std::wstring& a, const std::wstring& b) const { return _wcsicmp(a.c_str(), b.c_str()) < 0; }
};
using StringTable = std::map<std::wstring, std::wstring, IgnoringCase>;

// One field as it is read: blanks outside quotes are dropped at both ends.
class FieldBuilder {
public:
    void addPlain(wchar_t c) {
        if (text_.empty() && isInfBlank(c)) return;
        text_ += c;
        if (!isInfBlank(c)) keptEnd_ = text_.size();
    }
    void addKept(const std::wstring& text) {
        text_ += text;
        keptEnd_ = text_.size();
        touched_ = true;
    }
    bool touched() const { return touched_ || keptEnd_ > 0; }
    std::wstring take() {
        std::wstring field = text_.substr(0, keptEnd_);
        *this = FieldBuilder{};
        return field;
    }

private:
    std::wstring text_;
    size_t keptEnd_ = 0;
    bool touched_ = false;  // quotes or a token seen, even if they gave no text
};

// A token's name is visible text without quotes, commas or '='.
bool isTokenName(const std::wstring& name) {
    return name.find_first_of(L" \t\",=") == std::wstring::npos;
}

// What the '%' at raw[i] stands for; `i` moves to the token's last character.
std::wstring expandPercent(const std::wstring& raw, size_t& i, const StringTable& strings) {
    size_t close = raw.find(L'%', i + 1);
    if (close == std::wstring::npos) return L"%";
    std::wstring name = raw.substr(i + 1, close - i - 1);
    if (!isTokenName(name)) return L"%";
    i = close;
    if (name.empty()) return L"%";
    auto found = strings.find(name);
    return found != strings.end() ? found->second : L"%" + name + L"%";
}

InfLine scanLine(const std::wstring& raw, const StringTable& strings) {
    InfLine line;
    FieldBuilder field;
    bool quoted = false;
    for (size_t i = 0; i < raw.size(); ++i) {
        wchar_t c = raw[i];
        if (c == L'"' && quoted && i + 1 < raw.size() && raw[i + 1] == L'"') {
            field.addKept(L"\"");
            ++i;
        } else if (c == L'"') {
            quoted = !quoted;
            field.addKept(L"");
        } else if (c == L'%') {
            field.addKept(expandPercent(raw, i, strings));
        } else if (quoted) {
            field.addKept(std::wstring(1, c));
        } else if (c == L'=' && !line.hasKey && line.fields.empty()) {
            line.hasKey = true;
            line.key = field.take();
        } else if (c == L',') {
            line.fields.push_back(field.take());
        } else {
            field.addPlain(c);
        }
    }
    // "key =" has no field; a comma always ends one.
    if (field.touched() || !line.fields.empty() || !line.hasKey) line.fields.push_back(field.take());
    return line;
}

// The keys of every section of this name; a value with commas keeps them.
void addStrings(StringTable& table, const RawInf& raw, const std::wstring& sectionName) {
    const StringTable none;
    for (const RawSection& section : raw.sections) {
        if (_wcsicmp(section.name.c_str(), sectionName.c_str()) != 0) continue;
        for (const RawLine& rawLine : section.lines) {
            InfLine line = scanLine(rawLine.text, none);
            if (!line.hasKey) continue;
            std::wstring text;
            for (size_t i = 0; i < line.fields.size(); ++i) text += (i ? L"," : L"") + line.fields[i];
            table[line.key] = text;
        }
    }
}

StringTable stringTable(const RawInf& raw, WORD language) {
    StringTable table;
    addStrings(table, raw, L"Strings");
    wchar_t localized[16];
    std::swprintf(localized, 16, L"Strings.%04X", static_cast<unsigned>(language));
    addStrings(table, raw, localized);
    return table;
}

}  // namespace

long InfFile::findSection(const std::wstring& name) const {
    for (size_t i = 0; i < sections.size(); ++i)
        if (_wcsicmp(sections[i].name.c_str(), name.c_str()) == 0) return static_cast<long>(i);
    return -1;
}

std::wstring InfFile::value(const std::wstring& section, const std::wstring& key) const {
    long index = findSection(section);
    if (index < 0) return {};
    for (const InfLine& line : sections[size_t(index)].lines)
        if (line.hasKey && _wcsicmp(line.key.c_str(), key.c_str()) == 0) return line.fields.empty() ? L"" : line.fields[0];
    return {};
}

InfParse parseInf(const std::string& bytes, WORD language) {
    RawInf raw = splitInfSections(decodeInfText(bytes));
    if (raw.error) return {nullptr, raw.error, raw.errorLine};
    StringTable strings = stringTable(raw, language);
    auto file = std::make_shared<InfFile>();
    for (const RawSection& rawSection : raw.sections) {
        InfSection section{rawSection.name, {}};
        for (const RawLine& line : rawSection.lines) section.lines.push_back(scanLine(line.text, strings));
        file->sections.push_back(std::move(section));
    }
    return {file, ERROR_SUCCESS, 0};
}

}  // namespace setupapi
}  // namespace simhost
