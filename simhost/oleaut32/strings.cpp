// BSTRs: counted strings from oleaut32's own allocator. The block holds the
// length in bytes, the characters and a NUL; the BSTR points at the
// characters. Blocks are tracked (Allocator::SysString), so a string freed
// twice or never allocated is refused and counted, and a test can see the
// strings a caller did not free (liveBlockCount).
#include "simhost/core/host.h"
#include "simhost/kernel32/memory.h"
#include "simhost/oleaut32/oleaut32.h"

#include <cstring>
#include <cwchar>

namespace {

using simhost::kernel32::Allocator;

constexpr size_t kPrefixBytes = sizeof(DWORD);

BYTE* blockOf(BSTR text) { return reinterpret_cast<BYTE*>(text) - kPrefixBytes; }

}  // namespace

// A copy of the text, or null for a null text, when memory is short, or
// when a failure is injected (SysAllocString sets no last error).
BSTR WINAPI SysAllocString(const OLECHAR* text) {
    if (simhost::injectedFailure("SysAllocString")) return nullptr;
    if (!text) return nullptr;
    const size_t length = std::wcslen(text);
    const DWORD bytes = static_cast<DWORD>(length * sizeof(OLECHAR));
    auto block = static_cast<BYTE*>(
        simhost::kernel32::allocateTrackedBlock(Allocator::SysString, kPrefixBytes + bytes + sizeof(OLECHAR), false));
    if (!block) return nullptr;
    std::memcpy(block, &bytes, kPrefixBytes);
    BSTR copy = reinterpret_cast<BSTR>(block + kPrefixBytes);
    std::wmemcpy(copy, text, length + 1);
    return copy;
}

// Freeing null does nothing; a string the allocator does not hold is
// refused and counted (badFreeCount). It reports nothing, so it can only be
// blocked or slowed.
void WINAPI SysFreeString(BSTR text) {
    simhost::injectedFailure("SysFreeString");
    if (text) simhost::kernel32::freeTrackedBlock(Allocator::SysString, blockOf(text));
}

// The length in characters from the prefix; 0 for null.
UINT WINAPI SysStringLen(BSTR text) {
    if (!text) return 0;
    DWORD bytes = 0;
    std::memcpy(&bytes, blockOf(text), kPrefixBytes);
    return bytes / sizeof(OLECHAR);
}
