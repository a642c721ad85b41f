// The simulated host's SDDL reader and writer: the input is an SDDL text,
// one byte a character. A text the reader takes is written back, and the
// written text must read back to the same descriptor: what the host writes
// into a state file it must be able to read from a host file.
#include "platform/win32.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr SECURITY_INFORMATION kEveryPart = OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION |
                                            DACL_SECURITY_INFORMATION | SACL_SECURITY_INFORMATION |
                                            LABEL_SECURITY_INFORMATION;

// The descriptor of a text, freed by the caller with LocalFree; null when
// the text is refused.
PSECURITY_DESCRIPTOR readSddl(const std::wstring& text, ULONG& size) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(text.c_str(), SDDL_REVISION_1, &descriptor, &size))
        return nullptr;
    return descriptor;
}

std::wstring writeSddl(PSECURITY_DESCRIPTOR descriptor) {
    LPWSTR text = nullptr;
    ULONG length = 0;
    if (!ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1, kEveryPart, &text,
                                                              &length))
        std::abort();  // the reader made it, so it is valid
    std::wstring written(text);
    LocalFree(text);
    return written;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::wstring text(data, data + size);
    ULONG firstSize = 0;
    PSECURITY_DESCRIPTOR first = readSddl(text, firstSize);
    if (!first) return 0;
    const std::wstring written = writeSddl(first);
    ULONG secondSize = 0;
    PSECURITY_DESCRIPTOR second = readSddl(written, secondSize);
    if (!second || secondSize != firstSize || std::memcmp(first, second, firstSize) != 0) std::abort();
    LocalFree(second);
    LocalFree(first);
    return 0;
}
