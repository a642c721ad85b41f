// kernel32 of the simulated host: other processes of the machine. Opening a
// process, its image name (psapi, served by kernel32 as K32*), its session,
// and toolhelp snapshots of the process list.
#pragma once

#include "simhost/wintypes.h"


// ---- Opening a process ----
#define PROCESS_VM_READ 0x0010u
#define PROCESS_QUERY_INFORMATION 0x0400u
#define PROCESS_QUERY_LIMITED_INFORMATION 0x1000u
#ifndef SYNCHRONIZE
#define SYNCHRONIZE 0x00100000u
#endif
// STANDARD_RIGHTS_REQUIRED, SYNCHRONIZE and every process right.
#define PROCESS_ALL_ACCESS 0x001FFFFFu
#ifndef MAXIMUM_ALLOWED
#define MAXIMUM_ALLOWED 0x02000000u
#endif
HANDLE WINAPI OpenProcess(DWORD desiredAccess, BOOL inheritHandle, DWORD processId);

// ---- Image names ----
// The image path in drive form ("C:\dir\x.exe"); truncated to fit.
DWORD WINAPI K32GetModuleFileNameExW(HANDLE process, HMODULE module, LPWSTR fileName, DWORD size);
#define GetModuleFileNameExW K32GetModuleFileNameExW
// The image path in device form ("\Device\HarddiskVolume3\dir\x.exe").
DWORD WINAPI K32GetProcessImageFileNameW(HANDLE process, LPWSTR imageFileName, DWORD size);
#define GetProcessImageFileNameW K32GetProcessImageFileNameW

// ---- Sessions ----
BOOL WINAPI ProcessIdToSessionId(DWORD processId, DWORD* sessionId);

// ---- Toolhelp snapshots ----
#define TH32CS_SNAPHEAPLIST 0x00000001u
#define TH32CS_SNAPPROCESS 0x00000002u
#define TH32CS_SNAPTHREAD 0x00000004u
#define TH32CS_SNAPMODULE 0x00000008u
#define TH32CS_SNAPMODULE32 0x00000010u
#define TH32CS_SNAPALL (TH32CS_SNAPHEAPLIST | TH32CS_SNAPPROCESS | TH32CS_SNAPTHREAD | TH32CS_SNAPMODULE)
#define TH32CS_INHERIT 0x80000000u

typedef struct tagPROCESSENTRY32W {
    DWORD dwSize;
    DWORD cntUsage;
    DWORD th32ProcessID;
    ULONG_PTR th32DefaultHeapID;
    DWORD th32ModuleID;
    DWORD cntThreads;
    DWORD th32ParentProcessID;
    LONG pcPriClassBase;
    DWORD dwFlags;
    WCHAR szExeFile[MAX_PATH];
} PROCESSENTRY32W, *PPROCESSENTRY32W, *LPPROCESSENTRY32W;

HANDLE WINAPI CreateToolhelp32Snapshot(DWORD flags, DWORD processId);
BOOL WINAPI Process32FirstW(HANDLE snapshot, LPPROCESSENTRY32W entry);
BOOL WINAPI Process32NextW(HANDLE snapshot, LPPROCESSENTRY32W entry);
