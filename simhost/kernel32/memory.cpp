// Global, local and heap memory of kernel32.
//
// A fixed block is its own handle: the handle is the address of its data. A
// movable block's handle is a small allocation of its own whose first word
// holds the data address, as on Windows, where a movable handle points at the
// data pointer inside its handle-table entry.
//
// Global and local blocks come from one heap on Windows, so the lock, unlock,
// size and resize calls of either family accept blocks of both. Frees do not:
// a block given back to another allocator than its own is refused and
// counted, because the service must never mix them.
#include "simhost/kernel32/memory.h"

#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <unordered_map>

namespace simhost {
namespace kernel32 {
namespace {

constexpr DWORD kErrorDiscarded = 157;  // ERROR_DISCARDED
constexpr DWORD kErrorNotLocked = 158;  // ERROR_NOT_LOCKED
constexpr DWORD kMaxLockCount = 0xFF;   // a movable block's lock count stops here
// Larger requests fail as out of memory without reaching malloc, so that a
// size computed from a corrupt count fails instead of exhausting the machine.
constexpr SIZE_T kLargestBlock = SIZE_T(1) << 32;

struct Block {
    Allocator owner = Allocator::Global;
    void* data = nullptr;  // null while a movable block is discarded
    SIZE_T size = 0;
    bool movable = false;
    DWORD locks = 0;
};

struct MemoryState {
    std::mutex mutex;
    // By handle: a fixed block's data address, or a movable block's slot.
    std::unordered_map<const void*, Block> blocks;
    std::map<Allocator, size_t> badFrees;
};

MemoryState& memoryState() { return Host::get().state<MemoryState>(); }

void* rawAllocate(SIZE_T bytes, bool zeroed) {
    if (bytes > kLargestBlock) return nullptr;
    void* data = zeroed ? std::calloc(1, bytes) : std::malloc(bytes);
    if (!data && bytes == 0) data = std::calloc(1, 1);
    return data;
}

void** newHandleSlot(void* data) {
    void** slot = static_cast<void**>(std::malloc(sizeof(void*)));
    if (slot) *slot = data;
    return slot;
}

void releaseStorage(const void* handle, const Block& block) {
    std::free(block.data);
    if (block.movable) std::free(const_cast<void*>(handle));
}

// A new block, answering its handle, or null when memory is short. A movable
// block of no bytes starts out discarded, as GlobalAlloc documents.
HANDLE allocateBlock(Allocator owner, SIZE_T bytes, bool zeroed, bool movable) {
    Block block;
    block.owner = owner;
    block.size = bytes;
    block.movable = movable;
    if (!movable || bytes) {
        block.data = rawAllocate(bytes, zeroed);
        if (!block.data) return nullptr;
    }
    void* handle = block.data;
    if (movable) {
        handle = newHandleSlot(block.data);
        if (!handle) {
            std::free(block.data);
            return nullptr;
        }
    }
    MemoryState& state = memoryState();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.blocks[handle] = block;
    return handle;
}

FreeOutcome freeBlock(Allocator owner, const void* handle) {
    MemoryState& state = memoryState();
    Block block;
    {
        std::lock_guard<std::mutex> lock(state.mutex);
        auto it = state.blocks.find(handle);
        if (it == state.blocks.end() || it->second.owner != owner) {
            ++state.badFrees[owner];
            return it == state.blocks.end() ? FreeOutcome::NotAllocated : FreeOutcome::WrongAllocator;
        }
        block = it->second;
        state.blocks.erase(it);
    }
    releaseStorage(handle, block);
    return FreeOutcome::Freed;
}

HGLOBAL allocateWithFlags(const char* call, Allocator owner, UINT flags, SIZE_T bytes) {
    if (DWORD error = injectedFailure(call)) {
        SetLastError(error);
        return nullptr;
    }
    HANDLE handle = allocateBlock(owner, bytes, flags & GMEM_ZEROINIT, flags & GMEM_MOVEABLE);
    if (!handle) SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return handle;
}

// GlobalFree and LocalFree: null on success, else the handle back with
// ERROR_INVALID_HANDLE. Freeing null does nothing and succeeds.
HGLOBAL freeAnsweringHandle(const char* call, Allocator owner, HGLOBAL memory) {
    if (!memory) return nullptr;
    if (DWORD error = injectedFailure(call)) {
        SetLastError(error);
        return memory;
    }
    if (freeBlock(owner, memory) == FreeOutcome::Freed) return nullptr;
    SetLastError(ERROR_INVALID_HANDLE);
    return memory;
}

Block* findGlobalOrLocal(MemoryState& state, const void* handle) {
    auto it = state.blocks.find(handle);
    if (it == state.blocks.end()) return nullptr;
    Allocator owner = it->second.owner;
    return owner == Allocator::Global || owner == Allocator::Local ? &it->second : nullptr;
}

// The block's data at a new address of `bytes` bytes: the old contents kept,
// the growth zeroed when asked, the old data freed. Null when memory is short.
void* moveData(const Block& block, SIZE_T bytes, bool zeroGrowth) {
    void* data = rawAllocate(bytes, false);
    if (!data) return nullptr;
    SIZE_T kept = block.data ? std::min(block.size, bytes) : 0;
    if (kept) std::memcpy(data, block.data, kept);
    if (zeroGrowth && bytes > kept) std::memset(static_cast<char*>(data) + kept, 0, bytes - kept);
    std::free(block.data);
    return data;
}

HGLOBAL refuseResize() {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

// GMEM_MODIFY changes attributes only and ignores the byte count. The only
// attribute Win32 still honours is GMEM_MOVEABLE, which turns a fixed block
// into a movable one behind a new handle (the data stays where it is); every
// other bit, GMEM_DISCARDABLE included, is ignored and the handle comes back
// unchanged, the last error untouched.
HGLOBAL modifyAttributes(MemoryState& state, HGLOBAL handle, UINT flags) {
    Block block = state.blocks.at(handle);
    if (!(flags & GMEM_MOVEABLE) || block.movable) return handle;
    void** slot = newHandleSlot(block.data);
    if (!slot) return refuseResize();
    block.movable = true;
    state.blocks.erase(handle);
    state.blocks[slot] = block;
    return slot;
}

// Without GMEM_MOVEABLE a fixed block may only be resized in place, and
// current Windows refuses that for any size, the same one included, with
// ERROR_NOT_ENOUGH_MEMORY. With it the block moves to a new address (always,
// here, so that a stale pointer is caught at once) and stays fixed. Only
// GMEM_MOVEABLE and GMEM_ZEROINIT are read; all other bits are ignored.
HGLOBAL resizeFixed(MemoryState& state, HGLOBAL handle, SIZE_T bytes, UINT flags) {
    if (!(flags & GMEM_MOVEABLE)) return refuseResize();
    Block block = state.blocks.at(handle);
    void* data = moveData(block, bytes, flags & GMEM_ZEROINIT);
    if (!data) return refuseResize();
    state.blocks.erase(handle);
    block.data = data;
    block.size = bytes;
    state.blocks[data] = block;
    return data;
}

// A movable block keeps its handle. GMEM_MOVEABLE with no bytes discards an
// unlocked block; a locked block may move only when GMEM_MOVEABLE allows it.
HGLOBAL resizeMovable(Block& block, HGLOBAL handle, SIZE_T bytes, UINT flags) {
    bool mayMove = flags & GMEM_MOVEABLE;
    if (bytes == 0 && mayMove && !block.locks) {
        std::free(block.data);
        block.data = nullptr;
        block.size = 0;
        *static_cast<void**>(handle) = nullptr;
        return handle;
    }
    if (bytes == 0 || (block.locks && !mayMove)) return refuseResize();
    void* data = moveData(block, bytes, flags & GMEM_ZEROINIT);
    if (!data) return refuseResize();
    block.data = data;
    block.size = bytes;
    *static_cast<void**>(handle) = data;
    return handle;
}

}  // namespace

size_t liveBlockCount(Allocator allocator) {
    MemoryState& state = memoryState();
    std::lock_guard<std::mutex> lock(state.mutex);
    return static_cast<size_t>(std::count_if(state.blocks.begin(), state.blocks.end(),
                                             [&](const auto& entry) { return entry.second.owner == allocator; }));
}

size_t badFreeCount(Allocator allocator) {
    MemoryState& state = memoryState();
    std::lock_guard<std::mutex> lock(state.mutex);
    auto it = state.badFrees.find(allocator);
    return it == state.badFrees.end() ? 0 : it->second;
}

size_t releaseAllBlocks() {
    MemoryState& state = memoryState();
    std::unordered_map<const void*, Block> blocks;
    {
        std::lock_guard<std::mutex> lock(state.mutex);
        blocks.swap(state.blocks);
    }
    for (const auto& entry : blocks) releaseStorage(entry.first, entry.second);
    return blocks.size();
}

std::optional<SIZE_T> trackedBufferBytes(const void* buffer) {
    MemoryState& state = memoryState();
    std::lock_guard<std::mutex> lock(state.mutex);
    auto it = state.blocks.find(buffer);
    if (it == state.blocks.end()) return std::nullopt;
    return it->second.data == buffer ? it->second.size : 0;
}

void* allocateTrackedBlock(Allocator owner, SIZE_T bytes, bool zeroed) {
    return allocateBlock(owner, bytes, zeroed, false);
}

FreeOutcome freeTrackedBlock(Allocator owner, void* block) { return freeBlock(owner, block); }

}  // namespace kernel32
}  // namespace simhost

using simhost::kernel32::Allocator;
using simhost::kernel32::Block;
using simhost::kernel32::MemoryState;

HGLOBAL WINAPI GlobalAlloc(UINT flags, SIZE_T bytes) {
    return simhost::kernel32::allocateWithFlags("GlobalAlloc", Allocator::Global, flags, bytes);
}

HGLOBAL WINAPI GlobalReAlloc(HGLOBAL memory, SIZE_T bytes, UINT flags) {
    using namespace simhost::kernel32;
    if (DWORD error = simhost::injectedFailure("GlobalReAlloc")) {
        SetLastError(error);
        return nullptr;
    }
    MemoryState& state = memoryState();
    std::lock_guard<std::mutex> lock(state.mutex);
    Block* block = findGlobalOrLocal(state, memory);
    if (!block) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    if (flags & GMEM_MODIFY) return modifyAttributes(state, memory, flags);
    if (!block->movable) return resizeFixed(state, memory, bytes, flags);
    return resizeMovable(*block, memory, bytes, flags);
}

HGLOBAL WINAPI GlobalFree(HGLOBAL memory) {
    return simhost::kernel32::freeAnsweringHandle("GlobalFree", Allocator::Global, memory);
}

LPVOID WINAPI GlobalLock(HGLOBAL memory) {
    using namespace simhost::kernel32;
    MemoryState& state = memoryState();
    std::lock_guard<std::mutex> lock(state.mutex);
    Block* block = findGlobalOrLocal(state, memory);
    if (!block) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    if (!block->movable) return block->data;
    if (!block->data) {
        SetLastError(kErrorDiscarded);
        return nullptr;
    }
    if (block->locks < kMaxLockCount) ++block->locks;
    return block->data;
}

// A fixed block has no lock count: unlocking it answers TRUE and leaves the
// last error alone. For a handle it does not know Windows also answers TRUE,
// with ERROR_INVALID_HANDLE (observed behaviour; the documentation only says
// that a failure answers FALSE).
BOOL WINAPI GlobalUnlock(HGLOBAL memory) {
    using namespace simhost::kernel32;
    MemoryState& state = memoryState();
    std::lock_guard<std::mutex> lock(state.mutex);
    Block* block = findGlobalOrLocal(state, memory);
    if (!block) {
        SetLastError(ERROR_INVALID_HANDLE);
        return TRUE;
    }
    if (!block->movable) return TRUE;
    if (!block->locks) {
        SetLastError(kErrorNotLocked);
        return FALSE;
    }
    if (--block->locks) return TRUE;
    SetLastError(NO_ERROR);
    return FALSE;
}

// A fixed block of no bytes reports one byte, as the Windows heap rounds it.
SIZE_T WINAPI GlobalSize(HGLOBAL memory) {
    using namespace simhost::kernel32;
    MemoryState& state = memoryState();
    std::lock_guard<std::mutex> lock(state.mutex);
    Block* block = findGlobalOrLocal(state, memory);
    if (!block) {
        SetLastError(ERROR_INVALID_HANDLE);
        return 0;
    }
    if (block->movable) return block->data ? block->size : 0;
    return std::max<SIZE_T>(block->size, 1);
}

HLOCAL WINAPI LocalAlloc(UINT flags, SIZE_T bytes) {
    return simhost::kernel32::allocateWithFlags("LocalAlloc", Allocator::Local, flags, bytes);
}

HLOCAL WINAPI LocalFree(HLOCAL memory) {
    return simhost::kernel32::freeAnsweringHandle("LocalFree", Allocator::Local, memory);
}

namespace {
// The process heap's handle: the address of this object, distinct from every
// kernel handle and from every block.
const char kProcessHeap = 0;
}  // namespace

HANDLE WINAPI GetProcessHeap() { return const_cast<char*>(&kProcessHeap); }

// HeapAlloc is documented not to set the last error when it fails, so neither
// a refused request nor an injected failure touches it. HEAP_GENERATE_EXCEPTIONS
// is not modelled: a failure answers null whatever the flags.
LPVOID WINAPI HeapAlloc(HANDLE heap, DWORD flags, SIZE_T bytes) {
    if (simhost::injectedFailure("HeapAlloc")) return nullptr;
    if (heap != GetProcessHeap()) return nullptr;
    return simhost::kernel32::allocateTrackedBlock(Allocator::Heap, bytes, flags & HEAP_ZERO_MEMORY);
}

// Freeing null succeeds. A pointer the heap does not hold fails with
// ERROR_INVALID_PARAMETER, the error of the heap's own validation.
BOOL WINAPI HeapFree(HANDLE heap, DWORD flags, LPVOID memory) {
    (void)flags;
    if (DWORD error = simhost::injectedFailure("HeapFree")) {
        SetLastError(error);
        return FALSE;
    }
    if (heap != GetProcessHeap()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (!memory) return TRUE;
    if (simhost::kernel32::freeTrackedBlock(Allocator::Heap, memory) == simhost::kernel32::FreeOutcome::Freed)
        return TRUE;
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
}
