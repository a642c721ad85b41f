// Path functions of the simulated host (shlwapi and pathcch): building the
// paths of files and asking whether they exist on the host's drives.
#pragma once

#include "simhost/wintypes.h"

#define PATHCCH_MAX_CCH 0x8000

// S_OK when an element (or a trailing backslash) was removed, S_FALSE when
// the path was a root or empty and nothing was, E_INVALIDARG for a null
// path, a size of 0 or above PATHCCH_MAX_CCH, or a path without a NUL within
// the size.
HRESULT WINAPI PathCchRemoveFileSpec(PWSTR path, size_t pathCharacters);
// `path` is a buffer of MAX_PATH characters.
BOOL WINAPI PathAppendW(LPWSTR path, LPCWSTR more);
BOOL WINAPI PathFileExistsW(LPCWSTR path);
