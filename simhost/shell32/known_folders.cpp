// Known folders of shell32, and the COM task allocator that frees the paths
// they answer. The only folder this machine knows is ProgramData; it is the
// same for every user and always exists, so the token and KF_FLAG_CREATE
// change nothing.
#include "simhost/core/host.h"
#include "simhost/kernel32/memory.h"
#include "simhost/shell32/shell32.h"

#include <cwchar>

const KNOWNFOLDERID FOLDERID_ProgramData = {0x62AB5D82, 0xFDC1, 0x4DC3,
                                           {0xA9, 0xDD, 0x07, 0x0D, 0x1D, 0x49, 0x5D, 0x97}};

namespace {

using simhost::kernel32::Allocator;

struct KnownFolder {
    const KNOWNFOLDERID* id;
    const wchar_t* path;
};

const KnownFolder kKnownFolders[] = {
    {&FOLDERID_ProgramData, L"C:\\ProgramData"},
};

const wchar_t* knownFolderPath(REFKNOWNFOLDERID folder) {
    for (const KnownFolder& known : kKnownFolders)
        if (*known.id == folder) return known.path;
    return nullptr;
}

}  // namespace

// On any failure *path is null, so that the CoTaskMemFree the caller owes in
// every case is harmless. A folder this machine does not have answers
// E_INVALIDARG; an injected failure answers HRESULT_FROM_WIN32 of its error.
HRESULT WINAPI SHGetKnownFolderPath(REFKNOWNFOLDERID folder, DWORD flags, HANDLE token, PWSTR* path) {
    (void)flags;
    (void)token;
    if (!path) return E_INVALIDARG;
    *path = nullptr;
    if (DWORD error = simhost::injectedFailure("SHGetKnownFolderPath")) return HRESULT_FROM_WIN32(error);
    const wchar_t* known = knownFolderPath(folder);
    if (!known) return E_INVALIDARG;
    size_t characters = std::wcslen(known) + 1;
    auto copy = static_cast<PWSTR>(CoTaskMemAlloc(characters * sizeof(wchar_t)));
    if (!copy) return E_OUTOFMEMORY;
    std::wmemcpy(copy, known, characters);
    *path = copy;
    return S_OK;
}

// Like HeapAlloc, the task allocator reports a failure by its null result
// alone and leaves the last error untouched.
LPVOID WINAPI CoTaskMemAlloc(SIZE_T bytes) {
    if (simhost::injectedFailure("CoTaskMemAlloc")) return nullptr;
    return simhost::kernel32::allocateTrackedBlock(Allocator::CoTaskMem, bytes, false);
}

// Freeing null does nothing. A pointer the task allocator does not hold is
// refused and counted (badFreeCount); Windows would corrupt its heap.
void WINAPI CoTaskMemFree(LPVOID memory) {
    if (memory) simhost::kernel32::freeTrackedBlock(Allocator::CoTaskMem, memory);
}
