// shell32 and ole32 of the simulated host: known folders and the COM task
// allocator that frees what they return.
#pragma once

#include "simhost/wintypes.h"

// {62AB5D82-FDC1-4DC3-A9DD-070D1D495D97}
extern const KNOWNFOLDERID FOLDERID_ProgramData;

#define KF_FLAG_DEFAULT 0x00000000u
#define KF_FLAG_CREATE 0x00008000u
HRESULT WINAPI SHGetKnownFolderPath(REFKNOWNFOLDERID folder, DWORD flags, HANDLE token, PWSTR* path);
LPVOID WINAPI CoTaskMemAlloc(SIZE_T bytes);
void WINAPI CoTaskMemFree(LPVOID memory);
