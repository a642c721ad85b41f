// The two-call size protocol of the spooler's Get and Enum calls, in one
// place: records at the start of the caller's buffer, the strings, device
// modes and descriptors they point to behind them in the same block. The
// same fill code runs twice, once to measure and once to write, so the size
// a first call reports is exactly what the second call uses.
#pragma once

#include "simhost/winspool/winspool.h"

#include <cstring>
#include <string>
#include <vector>

namespace simhost {
namespace winspool {

// Where the variable data of a block goes. Without a buffer it only counts
// the bytes, and every pointer it hands out is null.
class RecordBlock {
public:
    RecordBlock(BYTE* buffer, size_t recordBytes) : buffer_(buffer), end_(recordBytes) {}

    bool writing() const { return buffer_ != nullptr; }
    size_t size() const { return end_; }

    // A copy of the text with its NUL.
    LPWSTR text(const std::wstring& text);
    // A list of texts, each with its NUL, and one more NUL at the end.
    LPWSTR multiText(const std::vector<std::wstring>& texts);
    // A copy of the bytes, aligned for any record; null for none.
    BYTE* bytes(const std::vector<BYTE>& data);

private:
    BYTE* place(const void* data, size_t size);

    BYTE* buffer_;
    size_t end_;
};

// The outcome of filling a caller's buffer.
struct BlockAnswer {
    DWORD error = 0;   // 0, ERROR_INSUFFICIENT_BUFFER, or what the fill refused
    DWORD needed = 0;  // bytes the block takes
    DWORD count = 0;   // records written
};

// Fills `buffer` with one Record per item, `fill(record, block, item)`
// setting each record's members. A buffer smaller than the block answers
// ERROR_INSUFFICIENT_BUFFER with the size needed and writes nothing.
template <class Record, class Item, class Fill>
BlockAnswer answerRecords(const std::vector<Item>& items, LPBYTE buffer, DWORD bufferSize, Fill fill) {
    const size_t recordBytes = items.size() * sizeof(Record);
    RecordBlock measure(nullptr, recordBytes);
    for (const Item& item : items) {
        Record scratch{};
        fill(scratch, measure, item);
    }
    BlockAnswer answer;
    answer.needed = static_cast<DWORD>(measure.size());
    if (measure.size() > bufferSize) {
        answer.error = ERROR_INSUFFICIENT_BUFFER;
        return answer;
    }
    RecordBlock block(buffer, recordBytes);
    for (size_t i = 0; i < items.size(); ++i) {
        Record record{};
        fill(record, block, items[i]);
        std::memcpy(buffer + i * sizeof(Record), &record, sizeof(Record));
    }
    answer.count = static_cast<DWORD>(items.size());
    return answer;
}

// The checks every Get and Enum call makes of its buffer arguments before
// it looks at the spooler: a null buffer with a size is
// ERROR_INVALID_USER_BUFFER; a null needed-size (or, for Enum calls, a null
// count) is RPC_X_NULL_REF_POINTER, the refusal of the spooler's remote
// interface for a missing reference argument.
DWORD checkBlockArguments(LPBYTE buffer, DWORD bufferSize, LPDWORD needed);
DWORD checkBlockArguments(LPBYTE buffer, DWORD bufferSize, LPDWORD needed, LPDWORD returned);

// Ends a Get call: *needed always, TRUE or FALSE with the last error.
BOOL finishGet(const BlockAnswer& answer, LPDWORD needed);
// Ends an Enum call: *needed and *returned (0 on failure) always.
BOOL finishEnum(const BlockAnswer& answer, LPDWORD needed, LPDWORD returned);

}  // namespace winspool
}  // namespace simhost
