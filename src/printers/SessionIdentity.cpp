// The logon SID of a process's token, and the descriptor of a printer as
// text: the two sides of the ownership test.
#include "printers/SessionIdentity.h"

#include "foundation/SpoolerAccess.h"
#include "foundation/StaticLogger.h"
#include "foundation/TextConversion.h"

#include <cstdint>

namespace {

constexpr DWORD kLogonIdBits = SE_GROUP_LOGON_ID;
// Owner, group, discretionary list and label.
constexpr SECURITY_INFORMATION kDescriptorParts = 23;

// The first group of the token that carries both bits of the logon id.
PSID firstLogonSid(const TOKEN_GROUPS& groups) {
    for (DWORD i = 0; i < groups.GroupCount; ++i)
        if ((groups.Groups[i].Attributes & kLogonIdBits) == kLogonIdBits) return groups.Groups[i].Sid;
    return nullptr;
}

}  // namespace

namespace PrinterUtil {

PSID SessionSIDCreate(HANDLE process) {
    VX_LOG(kLogNormal, kNoLastError, 2, "SessionSIDCreate()");
    if (!process || process == INVALID_HANDLE_VALUE) process = GetCurrentProcess();
    // Not tested: a failed open shows in the size query. Never closed.
    HANDLE token = nullptr;
    OpenProcessToken(process, TOKEN_READ, &token);
    DWORD size = 0;
    if (!GetTokenInformation(token, TokenGroups, nullptr, 0, &size) && GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
        VX_LOG(kLogError, kWithLastError, 4, "GetTokenInformation1");
        return nullptr;
    }
    HANDLE heap = GetProcessHeap();
    auto* groups = static_cast<TOKEN_GROUPS*>(HeapAlloc(heap, HEAP_ZERO_MEMORY, size));
    if (!groups) {
        VX_LOG(kLogError, kWithLastError, 4, "HeapAlloc:");
        return nullptr;
    }
    PSID copy = nullptr;
    PSID logonSid = nullptr;
    if (!GetTokenInformation(token, TokenGroups, groups, size, &size)) {
        VX_LOG(kLogError, kWithLastError, 4, "GetTokenInformation 2");
    } else if (!(logonSid = firstLogonSid(*groups))) {
        VX_LOG(kLogError, kNoLastError, 4, "Couldn't find logon SID");
    } else {
        VX_LOG(kLogNormal, kNoLastError, 2, "Found the logon SID; making a copy of it.");
        DWORD length = GetLengthSid(logonSid);
        copy = HeapAlloc(heap, HEAP_ZERO_MEMORY, length);
        if (!copy) {
            VX_LOG(kLogError, kWithLastError, 4, "HeapAlloc");
        } else if (!CopySid(length, copy, logonSid)) {
            // The copy is given back and not handed out: a freed SID in the
            // caller's hands would be read and freed a second time.
            VX_LOG(kLogError, kWithLastError, 4, "CopySid");
            HeapFree(heap, 0, copy);
            copy = nullptr;
        } else {
            LPWSTR text = nullptr;
            if (ConvertSidToStringSidW(copy, &text)) {
                VX_LOG(kLogNormal, kNoLastError, 3, "Session SID: %ls", text);
                LocalFree(text);
            } else {
                VX_LOG(kLogError, kWithLastError, 4, "ConvertSidToStringSid error:");
            }
        }
    }
    HeapFree(heap, 0, groups);
    return copy;
}

std::string processHandleToSessionSecurityId(HANDLE process) {
    PSID sid = SessionSIDCreate(process);
    if (!sid) {
        VX_LOG(kLogError, kNoLastError, 4, "processHandleToSessionSecurityId failed due to GetSessionSID");
        return "";
    }
    std::string sidText;
    LPWSTR text = nullptr;
    if (ConvertSidToStringSidW(sid, &text)) {
        sidText = wideToUtf8(text);
        VX_LOG(kLogNormal, kNoLastError, 2, "Got SessionSID:%s", sidText.c_str());
        LocalFree(text);
    } else {
        VX_LOG(kLogError, kWithLastError, 4, "ConvertSidToStringSid error:");
    }
    HeapFree(GetProcessHeap(), 0, sid);
    return sidText;
}

std::string processIdToSessionSecurityId(DWORD processId) {
    VX_LOG(kLogNormal, kNoLastError, 2, "Getting Security Id of process:%u", static_cast<unsigned>(processId));
    HANDLE process = OpenProcess(MAXIMUM_ALLOWED, FALSE, processId);
    if (!process) {
        VX_LOG(kLogError, kWithLastError, 4, "OpenProcess:%u failed", static_cast<unsigned>(processId));
        return "";
    }
    VX_LOG(kLogNormal, kNoLastError, 2, "Got process handle:0x%x",
           static_cast<unsigned>(reinterpret_cast<uintptr_t>(process)));
    std::string sidText = processHandleToSessionSecurityId(process);
    if (!CloseHandle(process)) VX_LOG(kLogError, kWithLastError, 4, "Failed to close process handle");
    return sidText;
}

std::string GetPrinterSecurityDescriptorString(const wchar_t* printerName) {
    HANDLE printer = nullptr;
    PRINTER_DEFAULTSW defaults = {nullptr, nullptr, kPrinterAllAccess};
    if (!OpenPrinter2W(printerName, &printer, &defaults, nullptr)) {
        VX_LOG(kLogError, kWithLastError, 4, "Failed to open printer:%ls", printerName ? printerName : L"");
        return "";
    }
    std::string descriptor = GetPrinterSecurityDescriptorString(printer);
    if (!ClosePrinter(printer)) VX_LOG(kLogError, kWithLastError, 4, "Failed to close printer");
    return descriptor;
}

std::string GetPrinterSecurityDescriptorString(HANDLE printer) {
    auto* info = reinterpret_cast<PRINTER_INFO_3*>(getPrinter(printer, 3));
    if (!info) {
        VX_LOG(kLogError, kNoLastError, 4, "Failed to get printer info 3 struct");
        return "";
    }
    std::string descriptor;
    LPWSTR text = nullptr;
    ULONG length = 0;
    if (ConvertSecurityDescriptorToStringSecurityDescriptorW(info->pSecurityDescriptor, SDDL_REVISION_1,
                                                             kDescriptorParts, &text, &length)) {
        descriptor = wideToUtf8(text);
        LocalFree(text);
    } else {
        VX_LOG(kLogError, kWithLastError, 4, "ConvertSecurityDescriptorToStringSecurityDescriptor:");
    }
    GlobalFree(info);
    return descriptor;
}

}  // namespace PrinterUtil
