// kernel32 of the simulated host: handles and kernel objects, waits, the
// thread pool, last error, process and thread identity, the global, local and
// heap allocators, code-page conversion and system message texts.
#pragma once

#include "simhost/wintypes.h"

// ---- Last error (per thread) ----
DWORD WINAPI GetLastError();
void WINAPI SetLastError(DWORD error);

// ---- Handles and kernel objects ----
BOOL WINAPI CloseHandle(HANDLE object);

typedef struct _SECURITY_ATTRIBUTES {
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
} SECURITY_ATTRIBUTES, *PSECURITY_ATTRIBUTES, *LPSECURITY_ATTRIBUTES;

HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES attributes, BOOL manualReset, BOOL initialState, LPCWSTR name);
BOOL WINAPI SetEvent(HANDLE event);
BOOL WINAPI ResetEvent(HANDLE event);
HANDLE WINAPI CreateMutexW(LPSECURITY_ATTRIBUTES attributes, BOOL initialOwner, LPCWSTR name);
BOOL WINAPI ReleaseMutex(HANDLE mutex);

#define WAIT_OBJECT_0 0x00000000u
#define WAIT_ABANDONED 0x00000080u
#define WAIT_ABANDONED_0 0x00000080u
#define WAIT_TIMEOUT 0x00000102u
#define WAIT_FAILED 0xFFFFFFFFu
DWORD WINAPI WaitForSingleObject(HANDLE object, DWORD milliseconds);

void WINAPI Sleep(DWORD milliseconds);

// ---- Thread pool ----
typedef DWORD(WINAPI* LPTHREAD_START_ROUTINE)(LPVOID parameter);
#define WT_EXECUTEDEFAULT 0x00000000u
#define WT_EXECUTEINIOTHREAD 0x00000001u
#define WT_EXECUTEINPERSISTENTTHREAD 0x00000080u
#define WT_EXECUTELONGFUNCTION 0x00000010u
BOOL WINAPI QueueUserWorkItem(LPTHREAD_START_ROUTINE function, PVOID context, ULONG flags);

// ---- Threads and processes ----
DWORD WINAPI GetCurrentThreadId();
DWORD WINAPI GetCurrentProcessId();
HANDLE WINAPI GetCurrentProcess();
HANDLE WINAPI GetCurrentThread();

// ---- Memory ----
#define GMEM_FIXED 0x0000u
#define GMEM_MOVEABLE 0x0002u
#define GMEM_NOCOMPACT 0x0010u
#define GMEM_NODISCARD 0x0020u
#define GMEM_ZEROINIT 0x0040u
#define GMEM_MODIFY 0x0080u
#define GMEM_DISCARDABLE 0x0100u
#define GPTR (GMEM_FIXED | GMEM_ZEROINIT)
#define GHND (GMEM_MOVEABLE | GMEM_ZEROINIT)
HGLOBAL WINAPI GlobalAlloc(UINT flags, SIZE_T bytes);
HGLOBAL WINAPI GlobalReAlloc(HGLOBAL memory, SIZE_T bytes, UINT flags);
HGLOBAL WINAPI GlobalFree(HGLOBAL memory);
LPVOID WINAPI GlobalLock(HGLOBAL memory);
BOOL WINAPI GlobalUnlock(HGLOBAL memory);
SIZE_T WINAPI GlobalSize(HGLOBAL memory);

#define LMEM_FIXED 0x0000u
#define LMEM_MOVEABLE 0x0002u
#define LMEM_ZEROINIT 0x0040u
#define LPTR (LMEM_FIXED | LMEM_ZEROINIT)
HLOCAL WINAPI LocalAlloc(UINT flags, SIZE_T bytes);
HLOCAL WINAPI LocalFree(HLOCAL memory);

#define HEAP_ZERO_MEMORY 0x00000008u
#define HEAP_GENERATE_EXCEPTIONS 0x00000004u
#define HEAP_NO_SERIALIZE 0x00000001u
HANDLE WINAPI GetProcessHeap();
LPVOID WINAPI HeapAlloc(HANDLE heap, DWORD flags, SIZE_T bytes);
BOOL WINAPI HeapFree(HANDLE heap, DWORD flags, LPVOID memory);

// ---- Code pages ----
#define CP_ACP 0u
#define CP_OEMCP 1u
#define CP_UTF8 65001u
#define MB_PRECOMPOSED 0x00000001u
#define MB_ERR_INVALID_CHARS 0x00000008u
#define WC_NO_BEST_FIT_CHARS 0x00000400u
#define WC_ERR_INVALID_CHARS 0x00000080u
UINT WINAPI GetACP();
int WINAPI MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR multiByte, int multiByteCount, LPWSTR wide,
                               int wideCount);
int WINAPI WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int wideCount, LPSTR multiByte,
                               int multiByteCount, LPCSTR defaultChar, LPBOOL usedDefaultChar);

// ---- System message texts ----
#define FORMAT_MESSAGE_ALLOCATE_BUFFER 0x00000100u
#define FORMAT_MESSAGE_IGNORE_INSERTS 0x00000200u
#define FORMAT_MESSAGE_FROM_STRING 0x00000400u
#define FORMAT_MESSAGE_FROM_HMODULE 0x00000800u
#define FORMAT_MESSAGE_FROM_SYSTEM 0x00001000u
#define FORMAT_MESSAGE_ARGUMENT_ARRAY 0x00002000u
#define FORMAT_MESSAGE_MAX_WIDTH_MASK 0x000000FFu
#define LANG_NEUTRAL 0x00
#define SUBLANG_DEFAULT 0x01
#define MAKELANGID(primary, sub) ((((WORD)(sub)) << 10) | (WORD)(primary))
DWORD WINAPI FormatMessageW(DWORD flags, LPCVOID source, DWORD messageId, DWORD languageId, LPWSTR buffer,
                            DWORD size, void* arguments);

// ---- Paths of the process ----
DWORD WINAPI GetTempPathW(DWORD bufferLength, LPWSTR buffer);
DWORD WINAPI GetCurrentDirectoryW(DWORD bufferLength, LPWSTR buffer);

// ---- Process memory (psapi, served by kernel32 as K32*) ----
typedef struct _PROCESS_MEMORY_COUNTERS {
    DWORD cb;
    DWORD PageFaultCount;
    SIZE_T PeakWorkingSetSize;
    SIZE_T WorkingSetSize;
    SIZE_T QuotaPeakPagedPoolUsage;
    SIZE_T QuotaPagedPoolUsage;
    SIZE_T QuotaPeakNonPagedPoolUsage;
    SIZE_T QuotaNonPagedPoolUsage;
    SIZE_T PagefileUsage;
    SIZE_T PeakPagefileUsage;
} PROCESS_MEMORY_COUNTERS, *PPROCESS_MEMORY_COUNTERS;
BOOL WINAPI K32GetProcessMemoryInfo(HANDLE process, PPROCESS_MEMORY_COUNTERS counters, DWORD size);
#define GetProcessMemoryInfo K32GetProcessMemoryInfo

// ---- Modules of the process ----
DWORD WINAPI GetModuleFileNameW(HMODULE module, LPWSTR fileName, DWORD size);
