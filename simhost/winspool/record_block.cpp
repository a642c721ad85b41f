#include "simhost/winspool/record_block.h"

#include "simhost/kernel32/memory.h"
#include "simhost/winspool/spooler_state.h"

namespace simhost {
namespace winspool {
namespace {

// Every piece starts on this boundary, so a device mode or descriptor
// behind a string is as aligned as the records are.
constexpr size_t kAlignment = 8;

size_t aligned(size_t offset) { return (offset + kAlignment - 1) / kAlignment * kAlignment; }

}  // namespace

BYTE* RecordBlock::place(const void* data, size_t size) {
    size_t start = aligned(end_);
    end_ = start + size;
    if (!writing()) return nullptr;
    std::memcpy(buffer_ + start, data, size);
    return buffer_ + start;
}

LPWSTR RecordBlock::text(const std::wstring& text) {
    return reinterpret_cast<LPWSTR>(place(text.c_str(), (text.size() + 1) * sizeof(WCHAR)));
}

LPWSTR RecordBlock::multiText(const std::vector<std::wstring>& texts) {
    std::wstring joined;
    for (const std::wstring& text : texts) joined.append(text).push_back(L'\0');
    joined.push_back(L'\0');
    return reinterpret_cast<LPWSTR>(place(joined.data(), joined.size() * sizeof(WCHAR)));
}

BYTE* RecordBlock::bytes(const std::vector<BYTE>& data) { return data.empty() ? nullptr : place(data.data(), data.size()); }

// A buffer the host knows to be smaller than the size the caller claims is
// refused as memory the call may not write (ERROR_NOACCESS), where Windows
// would write past its end: a fault the caller's process would not survive.
DWORD checkBlockArguments(LPBYTE buffer, DWORD bufferSize, LPDWORD needed) {
    if (!buffer && bufferSize) return ERROR_INVALID_USER_BUFFER;
    if (buffer && bufferSize) {
        std::optional<SIZE_T> room = kernel32::trackedBufferBytes(buffer);
        if (room && *room < bufferSize) return ERROR_NOACCESS;
    }
    return needed ? 0 : RPC_X_NULL_REF_POINTER;
}

DWORD checkBlockArguments(LPBYTE buffer, DWORD bufferSize, LPDWORD needed, LPDWORD returned) {
    if (DWORD error = checkBlockArguments(buffer, bufferSize, needed)) return error;
    return returned ? 0 : RPC_X_NULL_REF_POINTER;
}

BOOL finishGet(const BlockAnswer& answer, LPDWORD needed) {
    *needed = answer.needed;
    return succeedOrFail(answer.error);
}

BOOL finishEnum(const BlockAnswer& answer, LPDWORD needed, LPDWORD returned) {
    *returned = answer.error ? 0 : answer.count;
    return finishGet(answer, needed);
}

}  // namespace winspool
}  // namespace simhost
