// Which program a CreateProcessW call names. Without an application name the
// program is the command line's first token: a quoted name as written, else
// the shortest run of words up to a blank that names a program (so
// "C:\Program Files\x.exe a" is tried as "C:\Program.exe" first). A name
// without an extension gets ".exe" (a final period alone is dropped), and a
// name without a path is looked for in the application's directory, the
// current directory, System32, System and the Windows directory. The host
// models no environment, so PATH adds no directory.
#include "simhost/kernel32/host_settings.h"
#include "simhost/kernel32/module.h"
#include "simhost/kernel32/program_run.h"

#include <vector>

namespace simhost {
namespace kernel32 {
namespace {

const wchar_t* const kSystemDirectories[] = {L"C:\\Windows\\System32", L"C:\\Windows\\System", L"C:\\Windows"};

enum class Lookup {
    // lpApplicationName: no default extension, no search.
    ApplicationName,
    CommandLine,
};

bool isBlank(wchar_t c) { return c == L' ' || c == L'\t'; }

bool hasDrive(const std::wstring& name) { return name.size() >= 2 && name[1] == L':'; }

std::wstring directoryOf(const std::wstring& path) {
    size_t separator = path.find_last_of(L'\\');
    return separator == std::wstring::npos ? std::wstring() : path.substr(0, separator);
}

std::wstring withDefaultExtension(std::wstring name) {
    if (!name.empty() && name.back() == L'.') {
        name.pop_back();
        return name;
    }
    size_t separator = name.find_last_of(L"\\/");
    size_t lastElement = separator == std::wstring::npos ? 0 : separator + 1;
    if (name.find(L'.', lastElement) == std::wstring::npos) name += L".exe";
    return name;
}

// The full path of a name taken from a directory: a path with a drive as it
// is, "\x" on the directory's drive, anything else below the directory.
std::wstring fromDirectory(const std::wstring& directory, const std::wstring& name) {
    if (hasDrive(name)) return name;
    if (!name.empty() && name[0] == L'\\') return directory.substr(0, 2) + name;
    return directory + L"\\" + name;
}

std::vector<std::wstring> searchDirectories() {
    std::vector<std::wstring> directories{directoryOf(moduleFileName()), currentDirectory()};
    directories.insert(directories.end(), std::begin(kSystemDirectories), std::end(kSystemDirectories));
    return directories;
}

std::optional<std::wstring> knownProgramPath(const std::wstring& name, Lookup lookup) {
    std::wstring file = lookup == Lookup::CommandLine ? withDefaultExtension(name) : name;
    bool hasPath = file.find_first_of(L"\\/:") != std::wstring::npos;
    std::vector<std::wstring> directories =
        hasPath || lookup == Lookup::ApplicationName ? std::vector<std::wstring>{currentDirectory()} : searchDirectories();
    for (const std::wstring& directory : directories) {
        if (std::optional<std::wstring> path = knownImagePath(fromDirectory(directory, file))) return path;
    }
    return std::nullopt;
}

std::wstring withoutLeadingBlanks(const std::wstring& text) {
    size_t first = 0;
    while (first < text.size() && isBlank(text[first])) ++first;
    return text.substr(first);
}

// The first token as a quoted name and the text after its closing quote.
std::optional<ProgramStart> quotedProgram(const std::wstring& line) {
    size_t close = line.find(L'"', 1);
    std::optional<std::wstring> path = knownProgramPath(line.substr(1, close - 1), Lookup::CommandLine);
    if (!path) return std::nullopt;
    return ProgramStart{*path, close == std::wstring::npos ? std::wstring() : line.substr(close + 1)};
}

// The shortest run of words that names a known program.
std::optional<ProgramStart> unquotedProgram(const std::wstring& line) {
    for (size_t end = 1; end <= line.size(); ++end) {
        if (end < line.size() && !isBlank(line[end])) continue;
        if (isBlank(line[end - 1])) continue;
        if (std::optional<std::wstring> path = knownProgramPath(line.substr(0, end), Lookup::CommandLine))
            return ProgramStart{*path, line.substr(end)};
    }
    return std::nullopt;
}

// The text after a command line's first token: a quoted one, or a word.
std::wstring afterFirstToken(const std::wstring& line) {
    if (!line.empty() && line[0] == L'"') {
        size_t close = line.find(L'"', 1);
        return close == std::wstring::npos ? std::wstring() : line.substr(close + 1);
    }
    size_t end = 0;
    while (end < line.size() && !isBlank(line[end])) ++end;
    return line.substr(end);
}

}  // namespace

std::optional<ProgramStart> resolveProgram(const wchar_t* applicationName, const std::wstring& commandLine) {
    std::wstring line = withoutLeadingBlanks(commandLine);
    if (applicationName) {
        std::optional<std::wstring> path = knownProgramPath(applicationName, Lookup::ApplicationName);
        if (!path) return std::nullopt;
        return ProgramStart{*path, afterFirstToken(line)};
    }
    if (line.empty()) return std::nullopt;
    return line[0] == L'"' ? quotedProgram(line) : unquotedProgram(line);
}

}  // namespace kernel32
}  // namespace simhost
