// Admission of a connection: loopback address, an owner that runs one of the
// installation's executables, and an ancestor of that owner in session zero.
// Every failure refuses; the caller closes the socket and sends nothing.
#include "channel/SenderVetting.h"

#include "foundation/StaticLogger.h"
#include "printers/TcpProcessInfo.h"

#include <algorithm>
#include <cwchar>
#include <initializer_list>
#include <string>
#include <vector>

namespace {

// The registry value that anchors the installation: the full path of the
// server executable, always read from the 64-bit view of the registry.
const wchar_t* const kInstallationKey = L"SOFTWARE\\Quillion\\VexorAgent";
const wchar_t* const kInstallationValue = L"VexorServerPath";
const char* const kInstallationValueText = "HKLM\\SOFTWARE\\Quillion\\VexorAgent\\VexorServerPath";
constexpr DWORD kInstallationReadFlags = RRF_RT_REG_SZ | RRF_SUBKEY_WOW6464KEY;

// The executables that may talk to the service, under the installation.
const wchar_t* const kLoaderExecutable = L"vexor_vchan_loader.exe";
const wchar_t* const kLoader32Folder = L"\\x86";
const wchar_t* const kServerExecutable = L"vexor_server.exe";

constexpr BYTE kLoopbackNetwork = 127;
// An ancestry walk examines at most this many ancestors, so that a loop in
// the parent ids cannot hold the socket thread.
constexpr int kMaxAncestors = 101;
// A snapshot is searched over at most this many entries.
constexpr int kMaxSnapshotMisses = 1002;

typedef wchar_t CandidatePath[MAX_PATH];

// `base` followed by each of `parts`, joined as paths are. False when the
// base does not fit the buffer or the platform refuses to append.
bool buildCandidate(const std::wstring& base, std::initializer_list<const wchar_t*> parts, CandidatePath& path) {
    if (base.size() >= MAX_PATH) return false;
    std::copy(base.begin(), base.end(), path);
    path[base.size()] = L'\0';
    for (const wchar_t* part : parts)
        if (!PathAppendW(path, part)) return false;
    return true;
}

}  // namespace

int vettSenderIP(const sockaddr_in& peer) {
    const std::string address = inet_ntoa(peer.sin_addr);
    if ((ntohl(peer.sin_addr.s_addr) >> 24) != kLoopbackNetwork) {
        VX_LOG(kLogError, kNoLastError, 5,
               "Rejecting IP %s because not LocalHost. This means that some unauthorized process is sending us data. "
               "Security issue.",
               address.c_str());
        return 0;
    }
    VX_LOG(kLogNormal, kNoLastError, 2, "Communication IS from LocalHost");

    const DWORD owner = PrinterUtil::getTCPOwnerPid(peer);
    if (owner == 0) {
        VX_LOG(kLogError, kNoLastError, 5, "Failed to get owner of socket sending us a CMD from %s", address.c_str());
        return 0;
    }
    if (!isProcessNameVchanLoader(owner) && !isProcessNameVexorServer(owner)) {
        VX_LOG(kLogError, kNoLastError, 5, "Rejected CMD from %s based on senders name.", address.c_str());
        return 0;
    }

    // The owner itself is never tested: a sender in session zero still needs
    // an ancestor there.
    DWORD ancestor = getParentProcessId(owner);
    VX_LOG(kLogNormal, kNoLastError, 2, "Pid:%u parent is:%u", static_cast<unsigned>(owner),
           static_cast<unsigned>(ancestor));
    for (int examined = 0; ancestor != 0 && examined < kMaxAncestors; ++examined) {
        DWORD session = 0;
        if (ProcessIdToSessionId(ancestor, &session)) {
            if (session == 0) {
                VX_LOG(kLogNormal, kNoLastError, 3, "Ancestor Pid:%u is session zero", static_cast<unsigned>(ancestor));
                return 1;
            }
            VX_LOG(kLogNormal, kNoLastError, 3, "Ancestor Pid:%u is session %u", static_cast<unsigned>(ancestor),
                   static_cast<unsigned>(session));
        } else {
            // A failed look-up does not end the walk: the parent may still tell.
            VX_LOG(kLogError, kWithLastError, 4, "Failed to get session num for process num:%u",
                   static_cast<unsigned>(ancestor));
        }
        const DWORD parent = getParentProcessId(ancestor);
        VX_LOG(kLogNormal, kNoLastError, 2, "Pid:%u parent is:%u", static_cast<unsigned>(ancestor),
               static_cast<unsigned>(parent));
        ancestor = parent;
    }
    if (ancestor != 0) VX_LOG(kLogError, kNoLastError, 5, "Parentage too deep. Potential loop.  Breaking");
    VX_LOG(kLogError, kNoLastError, 5, "Rejected CMD from %s.Couldn't verify ancestor in session zero.",
           address.c_str());
    return 0;
}

bool getBaseInstallationPath(std::wstring& path) {
    DWORD size = 0;
    LSTATUS result = RegGetValueW(HKEY_LOCAL_MACHINE, kInstallationKey, kInstallationValue, kInstallationReadFlags,
                                  nullptr, nullptr, &size);
    if (result != ERROR_SUCCESS) {
        VX_LOG(kLogError, kNoLastError, 4, "Could not find registry value %s (err=%d)", kInstallationValueText,
               static_cast<int>(result));
        return false;
    }
    // One character more than asked, so that the text always ends in a NUL.
    std::vector<wchar_t> text(size / sizeof(wchar_t) + 1, L'\0');
    size = static_cast<DWORD>((text.size() - 1) * sizeof(wchar_t));
    result = RegGetValueW(HKEY_LOCAL_MACHINE, kInstallationKey, kInstallationValue, kInstallationReadFlags, nullptr,
                          text.data(), &size);
    if (result != ERROR_SUCCESS) {
        VX_LOG(kLogError, kNoLastError, 4, "Could not read registry value %s (err=%d)", kInstallationValueText,
               static_cast<int>(result));
        return false;
    }
    // S_FALSE means nothing was removed: the value named no file.
    if (PathCchRemoveFileSpec(text.data(), text.size()) != S_OK) {
        VX_LOG(kLogError, kNoLastError, 4, "PathRemoveFileSpec failed for installation path");
        return false;
    }
    path = text.data();
    return true;
}

int isProcessNameVchanLoader(DWORD processId) {
    std::wstring base;
    if (!getBaseInstallationPath(base)) return 0;
    CandidatePath native, x86;
    if (!buildCandidate(base, {kLoaderExecutable}, native)) {
        VX_LOG(kLogError, kNoLastError, 4, "PathAppend failed for ");
        return 0;
    }
    if (!buildCandidate(base, {kLoader32Folder, kLoaderExecutable}, x86)) {
        VX_LOG(kLogError, kNoLastError, 4, "PathAppend failed for \\x86");
        return 0;
    }
    // One of the two on disk is enough for both to be tried.
    if (!PathFileExistsW(native) && !PathFileExistsW(x86)) {
        VX_LOG(kLogError, kNoLastError, 4, "Could not locate library ");
        return 0;
    }
    return isProcessNameMatch(processId, native) || isProcessNameMatch(processId, x86) ? 1 : 0;
}

int isProcessNameVexorServer(DWORD processId) {
    std::wstring base;
    if (!getBaseInstallationPath(base)) return 0;
    CandidatePath server;
    if (!buildCandidate(base, {kServerExecutable}, server) || !PathFileExistsW(server)) {
        VX_LOG(kLogError, kNoLastError, 4, "Could not locate library %ls.", kServerExecutable);
        return 0;
    }
    return isProcessNameMatch(processId, server) ? 1 : 0;
}

int isProcessNameMatch(DWORD processId, const std::wstring& fullPath) {
    HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId);
    if (!process) {
        VX_LOG(kLogError, kWithLastError, 4, "Failed to open process %u to check name",
               static_cast<unsigned>(processId));
        return 0;
    }
    wchar_t imagePath[MAX_PATH] = {0};
    if (!K32GetModuleFileNameExW(process, nullptr, imagePath, MAX_PATH)) {
        VX_LOG(kLogError, kWithLastError, 4, "Failed to get name for process %u", static_cast<unsigned>(processId));
        CloseHandle(process);
        return 0;
    }
    if (!CloseHandle(process)) VX_LOG(kLogError, kWithLastError, 2, "Failed to close process handle");
    VX_LOG(kLogNormal, kNoLastError, 2, "Sender process:%ls == %ls", imagePath, fullPath.c_str());
    // Exact, case included: a path that differs only in case is another file
    // to this test.
    if (std::wcscmp(imagePath, fullPath.c_str()) == 0) return 1;
    VX_LOG(kLogError, kNoLastError, 5, "Sender process:%ls is not allowed to send us commands", imagePath);
    return 0;
}

DWORD getParentProcessId(DWORD processId) {
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (snapshot == INVALID_HANDLE_VALUE) {
        VX_LOG(kLogError, kWithLastError, 4, "CreateToolhelp32Snapshot failed to get info for process %u",
               static_cast<unsigned>(processId));
        return 0;
    }
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof entry;
    if (!Process32FirstW(snapshot, &entry)) {
        VX_LOG(kLogError, kWithLastError, 4, "Process32First failed to get info for process %u",
               static_cast<unsigned>(processId));
        CloseHandle(snapshot);
        return 0;
    }
    int misses = 0;
    while (entry.th32ProcessID != processId) {
        if (++misses >= kMaxSnapshotMisses) {
            VX_LOG(kLogError, kNoLastError, 5, "Runaway test failed after:%d processes", misses);
            CloseHandle(snapshot);
            return 0;
        }
        if (!Process32NextW(snapshot, &entry)) {
            CloseHandle(snapshot);
            return 0;
        }
    }
    const DWORD parent = entry.th32ParentProcessID;
    VX_LOG(kLogNormal, kNoLastError, 2, "Found parent pid:%u of child pid:%u", static_cast<unsigned>(parent),
           static_cast<unsigned>(processId));
    CloseHandle(snapshot);
    return parent;
}
