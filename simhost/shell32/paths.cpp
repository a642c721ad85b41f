// Building paths as shlwapi and pathcch do: removing the last element and
// appending one. Both work on the text alone and never touch the drives.
#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/shell32/paths.h"

#include <algorithm>
#include <cwchar>
#include <cwctype>
#include <string>
#include <vector>

namespace {

bool startsWith(const std::wstring& text, const wchar_t* prefix) { return text.rfind(prefix, 0) == 0; }

bool hasDrive(const std::wstring& path, size_t at = 0) {
    return path.size() >= at + 2 && path[at + 1] == L':' && std::iswalpha(path[at]);
}

// "\\server\share" from `start` on: where the share's name ends.
size_t uncRootEnd(const std::wstring& path, size_t start) {
    size_t server = path.find(L'\\', start);
    if (server == std::wstring::npos) return path.size();
    size_t share = path.find(L'\\', server + 1);
    return share == std::wstring::npos ? path.size() : share;
}

// How many characters of the path are its root: "C:\", "C:", "\",
// "\\server\share", and the same after the "\\?\" and "\\?\UNC\" prefixes.
// A drive root keeps its backslash; a share root does not have one.
size_t rootLength(const std::wstring& path) {
    if (startsWith(path, L"\\\\?\\UNC\\")) return uncRootEnd(path, 8);
    size_t drive = startsWith(path, L"\\\\?\\") ? 4 : 0;
    if (hasDrive(path, drive)) return drive + (path.size() > drive + 2 && path[drive + 2] == L'\\' ? 3 : 2);
    if (drive) return drive;
    if (startsWith(path, L"\\\\")) return uncRootEnd(path, 2);
    return startsWith(path, L"\\") ? 1 : 0;
}

std::vector<std::wstring> splitElements(const std::wstring& text) {
    std::vector<std::wstring> elements;
    size_t start = 0;
    for (size_t separator; (separator = text.find(L'\\', start)) != std::wstring::npos; start = separator + 1)
        elements.push_back(text.substr(start, separator - start));
    elements.push_back(text.substr(start));
    return elements;
}

// Drops "." elements and ".." with the element before it. A "." or ".."
// with nothing before it loses its periods but keeps its backslash, so
// "..\a" becomes "\a", as PathAppend documents.
std::wstring canonical(const std::wstring& path) {
    size_t root = rootLength(path);
    std::vector<std::wstring> kept;
    bool strippedLead = false;
    for (const std::wstring& element : splitElements(path.substr(root))) {
        if (element != L"." && element != L"..") {
            kept.push_back(element);
        } else if (element == L".." && !kept.empty()) {
            kept.pop_back();
        } else {
            strippedLead = strippedLead || (kept.empty() && root == 0);
        }
    }
    std::wstring rest;
    for (size_t i = 0; i < kept.size(); ++i) rest += (i ? L"\\" : L"") + kept[i];
    return path.substr(0, root) + (strippedLead ? L"\\" : L"") + rest;
}

// What PathAppend makes of the two: a "more" with a drive or a share root
// replaces the path; otherwise its leading backslashes go and one backslash
// joins the two.
std::wstring appended(std::wstring path, std::wstring more) {
    if (hasDrive(more) || startsWith(more, L"\\\\")) return canonical(more);
    more.erase(0, std::min(more.find_first_not_of(L'\\'), more.size()));
    if (!more.empty() && !path.empty() && path.back() != L'\\') path += L'\\';
    return canonical(path + more);
}

}  // namespace

// A trailing backslash is removed alone; otherwise the last element goes
// with the backslash before it, except the backslash of a drive root:
// "C:\a\b" gives "C:\a", "C:\a" gives "C:\", "C:\a\" gives "C:\a".
HRESULT WINAPI PathCchRemoveFileSpec(PWSTR path, size_t pathCharacters) {
    if (DWORD injected = simhost::injectedFailure("PathCchRemoveFileSpec")) return HRESULT_FROM_WIN32(injected);
    if (!path || pathCharacters == 0 || pathCharacters > PATHCCH_MAX_CCH) return E_INVALIDARG;
    size_t length = wcsnlen(path, pathCharacters);
    if (length == pathCharacters) return E_INVALIDARG;
    std::wstring text(path, length);
    size_t root = rootLength(text);
    if (length <= root) return S_FALSE;
    size_t cut = length - 1;
    if (text.back() != L'\\') {
        size_t separator = text.find_last_of(L'\\');
        cut = separator == std::wstring::npos || separator < root ? root : separator;
    }
    path[cut] = L'\0';
    return S_OK;
}

// A result of MAX_PATH characters or more fails, leaving the path empty.
// Nothing here sets the last error, except an injected failure.
BOOL WINAPI PathAppendW(LPWSTR path, LPCWSTR more) {
    if (DWORD injected = simhost::injectedFailure("PathAppendW")) {
        SetLastError(injected);
        return FALSE;
    }
    if (!path || !more) return FALSE;
    std::wstring result = appended(path, more);
    if (result.size() >= MAX_PATH) {
        path[0] = L'\0';
        return FALSE;
    }
    std::wmemcpy(path, result.c_str(), result.size() + 1);
    return TRUE;
}
