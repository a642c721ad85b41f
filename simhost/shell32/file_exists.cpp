// PathFileExistsW over the host's drives: a Windows path names a real file
// or directory of this machine through the drive mapping. Windows matches
// names without regard to case, so an element that is not there as written
// is looked for among its directory's entries in any case (ASCII letters).
#include "simhost/core/host.h"
#include "simhost/kernel32/host_settings.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/shell32/paths.h"

#include <dirent.h>
#include <string>
#include <strings.h>
#include <sys/stat.h>
#include <vector>

namespace {

enum class Lookup { Found, FileMissing, PathMissing };

// A path relative to the current directory, or to its drive's root ("\x"),
// made full.
std::wstring fullPath(const std::wstring& path) {
    if (path.size() >= 2 && path[1] == L':') return path;
    std::wstring current = simhost::kernel32::currentDirectory();
    if (!path.empty() && path[0] == L'\\') return current.substr(0, 2) + path;
    if (!current.empty() && current.back() != L'\\') current += L'\\';
    return current + path;
}

bool exists(const std::string& nativePath) {
    struct stat info;
    return ::stat(nativePath.c_str(), &info) == 0;
}

// The entry of `directory` whose name is `element` in any case; empty if
// there is none.
std::string entryIgnoringCase(const std::string& directory, const std::string& element) {
    DIR* listing = ::opendir(directory.c_str());
    if (!listing) return {};
    std::string found;
    while (dirent* entry = ::readdir(listing)) {
        if (::strcasecmp(entry->d_name, element.c_str()) != 0) continue;
        found = entry->d_name;
        break;
    }
    ::closedir(listing);
    return found;
}

std::vector<std::string> nativeElements(const std::string& relative) {
    std::vector<std::string> elements;
    size_t start = 0;
    while (start <= relative.size()) {
        size_t slash = relative.find('/', start);
        if (slash == std::string::npos) slash = relative.size();
        if (slash > start) elements.push_back(relative.substr(start, slash - start));
        start = slash + 1;
    }
    return elements;
}

// Follows the path element by element from its drive's directory. A missing
// last element is a missing file; a missing element before it, or an
// unmapped drive, a missing path.
Lookup lookUp(const std::wstring& windowsPath) {
    const simhost::Host& host = simhost::Host::get();
    std::string native = host.toNativePath(windowsPath);
    if (native.empty()) return Lookup::PathMissing;
    std::string resolved = host.driveDirectory(windowsPath[0]);
    std::vector<std::string> elements = nativeElements(native.substr(resolved.size()));
    for (size_t i = 0; i < elements.size(); ++i) {
        std::string next = resolved + "/" + elements[i];
        if (!exists(next)) {
            std::string entry = entryIgnoringCase(resolved, elements[i]);
            if (entry.empty()) return i + 1 == elements.size() ? Lookup::FileMissing : Lookup::PathMissing;
            next = resolved + "/" + entry;
        }
        resolved = next;
    }
    return Lookup::Found;
}

// Why the path names nothing, or 0 when it names a file or directory.
DWORD absenceError(LPCWSTR path) {
    if (DWORD injected = simhost::injectedFailure("PathFileExistsW")) return injected;
    if (!path) return ERROR_INVALID_PARAMETER;
    if (!*path) return ERROR_PATH_NOT_FOUND;
    switch (lookUp(fullPath(path))) {
    case Lookup::Found: return 0;
    case Lookup::FileMissing: return ERROR_FILE_NOT_FOUND;
    case Lookup::PathMissing: break;
    }
    return ERROR_PATH_NOT_FOUND;
}

}  // namespace

// TRUE for a file or a directory. Otherwise FALSE with ERROR_FILE_NOT_FOUND
// when the directory exists but not the name in it, ERROR_PATH_NOT_FOUND
// when a directory on the way is missing, the drive is not mapped or the
// path is empty, and ERROR_INVALID_PARAMETER for a null path. Success leaves
// the last error alone.
BOOL WINAPI PathFileExistsW(LPCWSTR path) {
    if (DWORD error = absenceError(path)) {
        SetLastError(error);
        return FALSE;
    }
    return TRUE;
}
