// The SDDL conversion calls of advapi32 and the host's C++ API over the same
// reader and writer.
#include "simhost/advapi32/advapi32_internal.h"
#include "simhost/advapi32/security_internal.h"
#include "simhost/core/host.h"
#include "simhost/core/text.h"

namespace simhost {

std::vector<BYTE> sddlToDescriptor(const std::wstring& sddl) {
    advapi32::DescriptorRecord record;
    if (DWORD error = advapi32::readSddl(sddl, record))
        throw SecurityTextError(
            "SDDL text not accepted (error " + std::to_string(error) + "): \"" + narrow(sddl) + "\"", error);
    return advapi32::encodeSelfRelative(record);
}

std::wstring descriptorToSddl(const BYTE* descriptor, DWORD securityInformation) {
    advapi32::DescriptorRecord record;
    if (DWORD error = advapi32::decodeDescriptor(descriptor, record))
        throw SecurityTextError("not a valid security descriptor (error " + std::to_string(error) + ")", error);
    return advapi32::writeSddl(record, securityInformation);
}

}  // namespace simhost

using namespace simhost::advapi32;

namespace {

DWORD checkConversionArguments(const char* call, const void* input, const void* output, DWORD revision) {
    DWORD error = simhost::injectedFailure(call);
    if (!error && (!input || !output)) error = ERROR_INVALID_PARAMETER;
    if (!error && revision != SDDL_REVISION_1) error = ERROR_UNKNOWN_REVISION;
    return error;
}

// Hands out text in a LocalAlloc block with its length counting the NUL, or
// a null string of length 0.
BOOL handOutText(const std::wstring* text, LPWSTR* result, PULONG length) {
    void* block = text ? localCopy(text->c_str(), (text->size() + 1) * sizeof(WCHAR)) : nullptr;
    if (text && !block) return FALSE;
    *result = static_cast<LPWSTR>(block);
    if (length) *length = text ? static_cast<ULONG>(text->size() + 1) : 0;
    return TRUE;
}

}  // namespace

// A self-relative descriptor of SDDL text in one block the caller frees with
// LocalFree, its size in bytes in *securityDescriptorSize when asked for. The
// revision must be SDDL_REVISION_1 (else ERROR_UNKNOWN_REVISION); a null text
// or result is ERROR_INVALID_PARAMETER; text that cannot be read fails as
// readSddl says. An allowed object entry without GUIDs becomes a plain
// allowed entry, as documented.
BOOL WINAPI ConvertStringSecurityDescriptorToSecurityDescriptorW(LPCWSTR stringSecurityDescriptor,
                                                                 DWORD stringSDRevision,
                                                                 PSECURITY_DESCRIPTOR* securityDescriptor,
                                                                 PULONG securityDescriptorSize) {
    DWORD error = checkConversionArguments("ConvertStringSecurityDescriptorToSecurityDescriptorW",
                                           stringSecurityDescriptor, securityDescriptor, stringSDRevision);
    DescriptorRecord record;
    if (!error) error = readSddl(stringSecurityDescriptor, record);
    if (error) return succeedOrFail(error);
    std::vector<BYTE> bytes = encodeSelfRelative(record);
    void* block = localCopy(bytes.data(), bytes.size());
    if (!block) return FALSE;
    *securityDescriptor = block;
    if (securityDescriptorSize) *securityDescriptorSize = static_cast<ULONG>(bytes.size());
    return TRUE;
}

// The SDDL text of the parts of a descriptor (either form) that
// `securityInformation` names, in one block the caller frees with LocalFree;
// *stringSecurityDescriptorLen, when asked for, counts its characters with
// the terminating NUL, the size of the buffer in WCHARs as documented. With
// BACKUP_SECURITY_INFORMATION the call succeeds with a null string, as
// documented. The revision must be SDDL_REVISION_1 (else
// ERROR_UNKNOWN_REVISION); a null descriptor or result is
// ERROR_INVALID_PARAMETER; a descriptor that is not well formed fails with
// ERROR_UNKNOWN_REVISION, ERROR_INVALID_SID or ERROR_INVALID_ACL.
BOOL WINAPI ConvertSecurityDescriptorToStringSecurityDescriptorW(PSECURITY_DESCRIPTOR securityDescriptor,
                                                                 DWORD requestedStringSDRevision,
                                                                 SECURITY_INFORMATION securityInformation,
                                                                 LPWSTR* stringSecurityDescriptor,
                                                                 PULONG stringSecurityDescriptorLen) {
    DWORD error = checkConversionArguments("ConvertSecurityDescriptorToStringSecurityDescriptorW", securityDescriptor,
                                           stringSecurityDescriptor, requestedStringSDRevision);
    bool backup = (securityInformation & BACKUP_SECURITY_INFORMATION) != 0;
    DescriptorRecord record;
    if (!error && !backup) error = decodeDescriptor(securityDescriptor, record);
    if (error) return succeedOrFail(error);
    if (backup) return handOutText(nullptr, stringSecurityDescriptor, stringSecurityDescriptorLen);
    std::wstring text = writeSddl(record, securityInformation);
    return handOutText(&text, stringSecurityDescriptor, stringSecurityDescriptorLen);
}
