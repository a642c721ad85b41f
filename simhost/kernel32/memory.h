// The simulated host's memory allocators. Every block handed out by the
// global, local and heap allocators of kernel32, by the COM task allocator
// and by oleaut32's string allocator is tracked with the allocator that made it, so that a block freed twice, a
// pointer that was never allocated, or a block given back to the wrong
// allocator is refused and counted, as tests need to see. The blocks
// themselves come from malloc, so AddressSanitizer still reports leaks,
// overflows and uses after free.
#pragma once

#include "simhost/wintypes.h"

#include <cstddef>
#include <optional>

namespace simhost {
namespace kernel32 {

enum class Allocator { Global, Local, Heap, CoTaskMem, SysString };

// Blocks of this allocator that are allocated and not yet freed.
size_t liveBlockCount(Allocator allocator);
// Frees passed to this allocator that it refused: pointers it does not hold,
// whether never allocated, already freed, or owned by another allocator.
size_t badFreeCount(Allocator allocator);
// Frees every live block of every allocator and answers how many there were.
// For tests of code paths that leak a block on purpose.
size_t releaseAllBlocks();

// What the host knows of a buffer a caller passes: the bytes it can take
// when it is a tracked block's memory (a fixed block's address), 0 when it
// is a tracked handle that is no memory to write into (a movable block's
// handle), nothing when the host does not know it (a stack or malloc
// buffer). Lets stand-ins refuse a size that a buffer cannot take instead of
// writing past its end.
std::optional<SIZE_T> trackedBufferBytes(const void* buffer);

// For stand-ins of other components that hand out memory of their own
// allocator (the COM task allocator, BSTRs): a fixed block, or null when the
// request cannot be met. Neither touches the thread's last error.
void* allocateTrackedBlock(Allocator owner, SIZE_T bytes, bool zeroed);
enum class FreeOutcome { Freed, NotAllocated, WrongAllocator };
FreeOutcome freeTrackedBlock(Allocator owner, void* block);

}  // namespace kernel32
}  // namespace simhost
