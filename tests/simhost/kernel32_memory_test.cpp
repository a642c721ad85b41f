// The global, local and heap allocators of the simulated kernel32, their
// tracking of live blocks, and the process memory counters.
#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/kernel32/memory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <ostream>
#include <sstream>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

using simhost::kernel32::Allocator;
using simhost::kernel32::badFreeCount;
using simhost::kernel32::liveBlockCount;

namespace {

constexpr DWORD kUntouched = 0xDEADBEEF;  // a last error no call sets
constexpr DWORD kErrorDiscarded = 157;
constexpr DWORD kErrorNotLocked = 158;

class Kernel32Memory : public ::testing::Test {
protected:
    void SetUp() override { simhost::Host::get().reset(); }
    // Every test gives back what it allocated.
    void TearDown() override { EXPECT_EQ(simhost::kernel32::releaseAllBlocks(), 0u); }
};

bool allBytesAre(const void* data, size_t size, unsigned char value) {
    auto bytes = static_cast<const unsigned char*>(data);
    for (size_t i = 0; i < size; ++i)
        if (bytes[i] != value) return false;
    return true;
}

void fillCounting(void* data, size_t size) {
    auto bytes = static_cast<unsigned char*>(data);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<unsigned char>(i);
}

bool holdsCounting(const void* data, size_t size) {
    auto bytes = static_cast<const unsigned char*>(data);
    for (size_t i = 0; i < size; ++i)
        if (bytes[i] != static_cast<unsigned char>(i)) return false;
    return true;
}

// ---- GlobalAlloc, GlobalFree, GlobalLock, GlobalUnlock, GlobalSize ----

TEST_F(Kernel32Memory, GptrGivesAZeroedFixedBlockThatIsItsOwnPointer) {
    HGLOBAL block = GlobalAlloc(GPTR, 64);
    ASSERT_NE(block, nullptr);
    EXPECT_TRUE(allBytesAre(block, 64, 0));
    EXPECT_EQ(GlobalLock(block), block);
    EXPECT_EQ(GlobalSize(block), 64u);
    EXPECT_EQ(liveBlockCount(Allocator::Global), 1u);
    EXPECT_EQ(GlobalFree(block), nullptr);
    EXPECT_EQ(liveBlockCount(Allocator::Global), 0u);
}

TEST_F(Kernel32Memory, FixedBlockOfNoBytesReportsOneByte) {
    HGLOBAL block = GlobalAlloc(GMEM_FIXED, 0);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(GlobalSize(block), 1u);
    EXPECT_EQ(GlobalFree(block), nullptr);
}

TEST_F(Kernel32Memory, UnlockingAFixedBlockAnswersTrueAndKeepsTheLastError) {
    HGLOBAL block = GlobalAlloc(GPTR, 8);
    SetLastError(kUntouched);
    EXPECT_EQ(GlobalUnlock(block), TRUE);
    EXPECT_EQ(GetLastError(), kUntouched);
    GlobalFree(block);
}

TEST_F(Kernel32Memory, FreeingNullSucceedsWithoutTouchingTheLastError) {
    SetLastError(kUntouched);
    EXPECT_EQ(GlobalFree(nullptr), nullptr);
    EXPECT_EQ(LocalFree(nullptr), nullptr);
    EXPECT_EQ(GetLastError(), kUntouched);
}

TEST_F(Kernel32Memory, SecondGlobalFreeAnswersTheHandleWithInvalidHandle) {
    HGLOBAL block = GlobalAlloc(GPTR, 16);
    ASSERT_EQ(GlobalFree(block), nullptr);
    SetLastError(kUntouched);
    EXPECT_EQ(GlobalFree(block), block);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(badFreeCount(Allocator::Global), 1u);
}

TEST_F(Kernel32Memory, GlobalFreeOfAPointerNeverAllocatedFails) {
    int onTheStack = 0;
    EXPECT_EQ(GlobalFree(&onTheStack), &onTheStack);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(badFreeCount(Allocator::Global), 1u);
}

TEST_F(Kernel32Memory, CallsOnAFreedHandleFailWithInvalidHandle) {
    HGLOBAL block = GlobalAlloc(GPTR, 16);
    GlobalFree(block);
    SetLastError(kUntouched);
    EXPECT_EQ(GlobalSize(block), 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    SetLastError(kUntouched);
    EXPECT_EQ(GlobalLock(block), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    SetLastError(kUntouched);
    EXPECT_EQ(GlobalReAlloc(block, 32, GMEM_MOVEABLE), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    // Windows answers TRUE here, with the error set.
    SetLastError(kUntouched);
    EXPECT_EQ(GlobalUnlock(block), TRUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

TEST_F(Kernel32Memory, ABlockGivenBackToAnotherAllocatorIsRefusedAndStaysLive) {
    HGLOBAL block = GlobalAlloc(GPTR, 16);
    EXPECT_EQ(LocalFree(block), block);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(HeapFree(GetProcessHeap(), 0, block), FALSE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(badFreeCount(Allocator::Local), 1u);
    EXPECT_EQ(badFreeCount(Allocator::Heap), 1u);
    EXPECT_EQ(badFreeCount(Allocator::Global), 0u);
    EXPECT_EQ(liveBlockCount(Allocator::Global), 1u);
    EXPECT_EQ(GlobalFree(block), nullptr);
}

TEST_F(Kernel32Memory, GlobalAllocFailsWithTheInjectedError) {
    simhost::Host::get().faults().failCall("GlobalAlloc", ERROR_NOT_ENOUGH_MEMORY, 1);
    EXPECT_EQ(GlobalAlloc(GPTR, 16), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(liveBlockCount(Allocator::Global), 0u);
    HGLOBAL block = GlobalAlloc(GPTR, 16);
    EXPECT_NE(block, nullptr);
    GlobalFree(block);
}

TEST_F(Kernel32Memory, AnImpossibleSizeFailsWithNotEnoughMemory) {
    EXPECT_EQ(GlobalAlloc(GPTR, ~SIZE_T(0)), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(LocalAlloc(LPTR, ~SIZE_T(0)), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
}

TEST_F(Kernel32Memory, MovableBlockLocksAndUnlocksByCount) {
    HGLOBAL handle = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, 16);
    ASSERT_NE(handle, nullptr);
    void* data = GlobalLock(handle);
    ASSERT_NE(data, nullptr);
    EXPECT_NE(data, handle);
    EXPECT_TRUE(allBytesAre(data, 16, 0));
    EXPECT_EQ(GlobalLock(handle), data);
    EXPECT_EQ(GlobalSize(handle), 16u);
    EXPECT_EQ(GlobalUnlock(handle), TRUE);
    SetLastError(kUntouched);
    EXPECT_EQ(GlobalUnlock(handle), FALSE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(NO_ERROR));
    EXPECT_EQ(GlobalUnlock(handle), FALSE);
    EXPECT_EQ(GetLastError(), kErrorNotLocked);
    EXPECT_EQ(GlobalFree(handle), nullptr);
}

TEST_F(Kernel32Memory, MovableBlockOfNoBytesStartsDiscarded) {
    HGLOBAL handle = GlobalAlloc(GMEM_MOVEABLE, 0);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(GlobalSize(handle), 0u);
    EXPECT_EQ(GlobalLock(handle), nullptr);
    EXPECT_EQ(GetLastError(), kErrorDiscarded);
    EXPECT_EQ(GlobalFree(handle), nullptr);
}

// ---- GlobalReAlloc ----

TEST_F(Kernel32Memory, FixedBlockWithoutMoveableRefusesEveryNewSize) {
    HGLOBAL block = GlobalAlloc(GPTR, 64);
    fillCounting(block, 64);
    for (SIZE_T bytes : {SIZE_T(16), SIZE_T(64), SIZE_T(128)}) {
        SetLastError(kUntouched);
        EXPECT_EQ(GlobalReAlloc(block, bytes, GMEM_ZEROINIT), nullptr) << bytes;
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY)) << bytes;
    }
    EXPECT_EQ(GlobalSize(block), 64u);
    EXPECT_TRUE(holdsCounting(block, 64));
    GlobalFree(block);
}

TEST_F(Kernel32Memory, FixedBlockWithMoveableMovesKeepsItsBytesAndZeroesTheGrowth) {
    HGLOBAL block = GlobalAlloc(GPTR, 64);
    fillCounting(block, 64);
    HGLOBAL moved = GlobalReAlloc(block, 128, GMEM_MOVEABLE | GMEM_ZEROINIT);
    ASSERT_NE(moved, nullptr);
    EXPECT_NE(moved, block);
    EXPECT_EQ(GlobalLock(moved), moved);  // still a fixed block
    EXPECT_EQ(GlobalSize(moved), 128u);
    EXPECT_TRUE(holdsCounting(moved, 64));
    EXPECT_TRUE(allBytesAre(static_cast<char*>(moved) + 64, 64, 0));
    EXPECT_EQ(GlobalSize(block), 0u);  // the old address is no block any more
    EXPECT_EQ(liveBlockCount(Allocator::Global), 1u);
    GlobalFree(moved);
}

TEST_F(Kernel32Memory, FixedBlockWithMoveableShrinks) {
    HGLOBAL block = GlobalAlloc(GPTR, 64);
    fillCounting(block, 64);
    HGLOBAL moved = GlobalReAlloc(block, 16, GMEM_MOVEABLE);
    ASSERT_NE(moved, nullptr);
    EXPECT_EQ(GlobalSize(moved), 16u);
    EXPECT_TRUE(holdsCounting(moved, 16));
    GlobalFree(moved);
}

TEST_F(Kernel32Memory, ModifyChangesNothingButMovabilityAndIgnoresTheByteCount) {
    HGLOBAL block = GlobalAlloc(GPTR, 64);
    for (UINT flags : {UINT(GMEM_MODIFY), UINT(GMEM_MODIFY | GMEM_DISCARDABLE), UINT(GMEM_MODIFY | GMEM_ZEROINIT)}) {
        SetLastError(kUntouched);
        EXPECT_EQ(GlobalReAlloc(block, 1 << 20, flags), block) << flags;
        EXPECT_EQ(GetLastError(), kUntouched) << flags;
        EXPECT_EQ(GlobalSize(block), 64u) << flags;
    }
    GlobalFree(block);
}

TEST_F(Kernel32Memory, ModifyWithMoveableTurnsAFixedBlockMovableBehindANewHandle) {
    HGLOBAL block = GlobalAlloc(GPTR, 64);
    HGLOBAL handle = GlobalReAlloc(block, 0, GMEM_MODIFY | GMEM_MOVEABLE);
    ASSERT_NE(handle, nullptr);
    EXPECT_NE(handle, block);
    EXPECT_EQ(GlobalSize(handle), 64u);
    EXPECT_EQ(GlobalLock(handle), block);  // the data stays where it was
    EXPECT_EQ(GlobalUnlock(handle), FALSE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(NO_ERROR));
    EXPECT_EQ(GlobalSize(block), 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(GlobalFree(handle), nullptr);
    EXPECT_EQ(liveBlockCount(Allocator::Global), 0u);
}

// The service resizes with the byte count and the flags swapped:
// GlobalReAlloc(block, 0x40, neededSize). Only GMEM_MODIFY, GMEM_MOVEABLE and
// GMEM_ZEROINIT of the size are read, and the block never reaches the size.
struct SwappedCall {
    UINT neededSize;
    const char* outcome;
};

void PrintTo(const SwappedCall& call, std::ostream* out) {
    *out << "needed size 0x" << std::hex << call.neededSize << std::dec << ", " << call.outcome;
}

std::string swappedCallName(const ::testing::TestParamInfo<SwappedCall>& info) {
    std::ostringstream name;
    name << "Size0x" << std::hex << info.param.neededSize << "_";
    for (const char* c = info.param.outcome; *c; ++c) name << (*c == ' ' ? '_' : *c);
    return name.str();
}

class Kernel32SwappedReAlloc : public Kernel32Memory, public ::testing::WithParamInterface<SwappedCall> {};

TEST_P(Kernel32SwappedReAlloc, AnswersAsWindowsDoes) {
    const SwappedCall call = GetParam();
    const SIZE_T original = 0x1000;
    HGLOBAL block = GlobalAlloc(GPTR, original);
    fillCounting(block, original);
    SetLastError(kUntouched);
    HGLOBAL result = GlobalReAlloc(block, 0x40, call.neededSize);
    std::string outcome = call.outcome;
    if (outcome == "refused") {
        EXPECT_EQ(result, nullptr);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
        EXPECT_EQ(GlobalSize(block), original);
        EXPECT_TRUE(holdsCounting(block, original));
        GlobalFree(block);
    } else if (outcome == "unchanged") {
        EXPECT_EQ(result, block);
        EXPECT_EQ(GetLastError(), kUntouched);
        EXPECT_EQ(GlobalSize(block), original);
        GlobalFree(block);
    } else if (outcome == "movable handle") {
        ASSERT_NE(result, nullptr);
        EXPECT_NE(result, block);
        EXPECT_EQ(GetLastError(), kUntouched);
        EXPECT_EQ(GlobalSize(result), original);
        EXPECT_EQ(GlobalLock(result), block);
        GlobalUnlock(result);
        GlobalFree(result);
    } else {  // "shrunk"
        ASSERT_NE(result, nullptr);
        EXPECT_NE(result, block);
        EXPECT_EQ(GlobalSize(result), 0x40u);
        EXPECT_TRUE(holdsCounting(result, 0x40));
        GlobalFree(result);
    }
    EXPECT_EQ(liveBlockCount(Allocator::Global), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    NeededSizes, Kernel32SwappedReAlloc,
    ::testing::Values(SwappedCall{0x1234, "refused"},          // neither GMEM_MODIFY nor GMEM_MOVEABLE
                      SwappedCall{0x12345, "refused"},         // GMEM_DISCARDABLE and high bits ignored
                      SwappedCall{0x1280, "unchanged"},        // GMEM_MODIFY alone
                      SwappedCall{0x11C0, "unchanged"},        // GMEM_MODIFY with GMEM_ZEROINIT
                      SwappedCall{0x1282, "movable handle"},   // GMEM_MODIFY and GMEM_MOVEABLE
                      SwappedCall{0x1236, "shrunk"},           // GMEM_MOVEABLE without GMEM_MODIFY
                      SwappedCall{0x2046, "shrunk"}),          // the same with GMEM_ZEROINIT
    swappedCallName);

TEST_F(Kernel32Memory, MovableBlockResizesBehindTheSameHandle) {
    HGLOBAL handle = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, 8);
    EXPECT_EQ(GlobalReAlloc(handle, 32, GMEM_ZEROINIT), handle);
    EXPECT_EQ(GlobalSize(handle), 32u);
    EXPECT_TRUE(allBytesAre(GlobalLock(handle), 32, 0));
    // Locked, it may move only with GMEM_MOVEABLE.
    EXPECT_EQ(GlobalReAlloc(handle, 64, 0), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(GlobalReAlloc(handle, 64, GMEM_MOVEABLE), handle);
    EXPECT_EQ(GlobalSize(handle), 64u);
    GlobalUnlock(handle);
    // Unlocked, GMEM_MOVEABLE with no bytes discards it.
    EXPECT_EQ(GlobalReAlloc(handle, 0, GMEM_MOVEABLE), handle);
    EXPECT_EQ(GlobalSize(handle), 0u);
    EXPECT_EQ(GlobalLock(handle), nullptr);
    EXPECT_EQ(GetLastError(), kErrorDiscarded);
    EXPECT_EQ(GlobalFree(handle), nullptr);
}

TEST_F(Kernel32Memory, GlobalReAllocFailsWithTheInjectedErrorAndKeepsTheBlock) {
    HGLOBAL block = GlobalAlloc(GPTR, 32);
    simhost::Host::get().faults().failCall("GlobalReAlloc", ERROR_OUTOFMEMORY, 1);
    EXPECT_EQ(GlobalReAlloc(block, 64, GMEM_MOVEABLE), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_OUTOFMEMORY));
    EXPECT_EQ(GlobalSize(block), 32u);
    GlobalFree(block);
}

// ---- LocalAlloc, LocalFree ----

TEST_F(Kernel32Memory, LptrGivesAZeroedBlockThatLocalFreeGivesBackOnce) {
    HLOCAL block = LocalAlloc(LPTR, 32);
    ASSERT_NE(block, nullptr);
    EXPECT_TRUE(allBytesAre(block, 32, 0));
    EXPECT_EQ(liveBlockCount(Allocator::Local), 1u);
    EXPECT_EQ(liveBlockCount(Allocator::Global), 0u);
    EXPECT_EQ(LocalFree(block), nullptr);
    EXPECT_EQ(LocalFree(block), block);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(badFreeCount(Allocator::Local), 1u);
}

TEST_F(Kernel32Memory, LocalAllocFailsWithTheInjectedError) {
    simhost::Host::get().faults().failCall("LocalAlloc", ERROR_OUTOFMEMORY, 1);
    EXPECT_EQ(LocalAlloc(LPTR, 32), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_OUTOFMEMORY));
}

TEST_F(Kernel32Memory, InjectedFreeFailureAnswersTheHandle) {
    HGLOBAL block = GlobalAlloc(GPTR, 8);
    simhost::Host::get().faults().failCall("GlobalFree", ERROR_ACCESS_DENIED, 1);
    EXPECT_EQ(GlobalFree(block), block);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(GlobalFree(block), nullptr);
}

// ---- The process heap ----

TEST_F(Kernel32Memory, ProcessHeapAllocatesZeroedBlocksAndFreesThemOnce) {
    HANDLE heap = GetProcessHeap();
    ASSERT_NE(heap, nullptr);
    EXPECT_EQ(GetProcessHeap(), heap);
    void* block = HeapAlloc(heap, HEAP_ZERO_MEMORY, 100);
    ASSERT_NE(block, nullptr);
    EXPECT_TRUE(allBytesAre(block, 100, 0));
    EXPECT_EQ(liveBlockCount(Allocator::Heap), 1u);
    EXPECT_EQ(HeapFree(heap, 0, block), TRUE);
    SetLastError(kUntouched);
    EXPECT_EQ(HeapFree(heap, 0, block), FALSE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(badFreeCount(Allocator::Heap), 1u);
    EXPECT_EQ(HeapFree(heap, 0, nullptr), TRUE);
}

TEST_F(Kernel32Memory, AnotherHeapHandleIsRefused) {
    int notAHeap = 0;
    EXPECT_EQ(HeapAlloc(&notAHeap, 0, 8), nullptr);
    void* block = HeapAlloc(GetProcessHeap(), 0, 8);
    EXPECT_EQ(HeapFree(&notAHeap, 0, block), FALSE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(HeapFree(GetProcessHeap(), 0, block), TRUE);
}

TEST_F(Kernel32Memory, HeapAllocFailureLeavesTheLastErrorAlone) {
    SetLastError(kUntouched);
    EXPECT_EQ(HeapAlloc(GetProcessHeap(), 0, ~SIZE_T(0)), nullptr);
    EXPECT_EQ(GetLastError(), kUntouched);
    simhost::Host::get().faults().failCall("HeapAlloc", ERROR_NOT_ENOUGH_MEMORY, 1);
    EXPECT_EQ(HeapAlloc(GetProcessHeap(), 0, 8), nullptr);
    EXPECT_EQ(GetLastError(), kUntouched);
    EXPECT_EQ(liveBlockCount(Allocator::Heap), 0u);
}

TEST_F(Kernel32Memory, HeapFreeFailsWithTheInjectedError) {
    void* block = HeapAlloc(GetProcessHeap(), 0, 8);
    simhost::Host::get().faults().failCall("HeapFree", ERROR_ACCESS_DENIED, 1);
    EXPECT_EQ(HeapFree(GetProcessHeap(), 0, block), FALSE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(HeapFree(GetProcessHeap(), 0, block), TRUE);
}

// ---- Tracking ----

TEST_F(Kernel32Memory, EachAllocatorCountsItsOwnBlocks) {
    HGLOBAL global = GlobalAlloc(GPTR, 1);
    HGLOBAL global2 = GlobalAlloc(GPTR, 1);
    HLOCAL local = LocalAlloc(LPTR, 1);
    void* heap = HeapAlloc(GetProcessHeap(), 0, 1);
    EXPECT_EQ(liveBlockCount(Allocator::Global), 2u);
    EXPECT_EQ(liveBlockCount(Allocator::Local), 1u);
    EXPECT_EQ(liveBlockCount(Allocator::Heap), 1u);
    EXPECT_EQ(liveBlockCount(Allocator::CoTaskMem), 0u);
    GlobalFree(global);
    GlobalFree(global2);
    LocalFree(local);
    HeapFree(GetProcessHeap(), 0, heap);
    EXPECT_EQ(liveBlockCount(Allocator::Global), 0u);
    EXPECT_EQ(liveBlockCount(Allocator::Local), 0u);
    EXPECT_EQ(liveBlockCount(Allocator::Heap), 0u);
}

TEST_F(Kernel32Memory, ReleaseAllBlocksFreesWhatALeakingPathLeft) {
    GlobalAlloc(GPTR, 8);
    GlobalAlloc(GMEM_MOVEABLE, 8);
    HeapAlloc(GetProcessHeap(), 0, 8);
    EXPECT_EQ(simhost::kernel32::releaseAllBlocks(), 3u);
    EXPECT_EQ(liveBlockCount(Allocator::Global), 0u);
    EXPECT_EQ(liveBlockCount(Allocator::Heap), 0u);
}

TEST_F(Kernel32Memory, AllocatorsServeManyThreadsAtOnce) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < 500; ++i) {
                HGLOBAL block = GlobalAlloc(GPTR, 24);
                void* heap = HeapAlloc(GetProcessHeap(), 0, 24);
                GlobalFree(block);
                HeapFree(GetProcessHeap(), 0, heap);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(liveBlockCount(Allocator::Global), 0u);
    EXPECT_EQ(liveBlockCount(Allocator::Heap), 0u);
    EXPECT_EQ(badFreeCount(Allocator::Global), 0u);
}

// ---- K32GetProcessMemoryInfo ----

SIZE_T residentBytesFromStatm() {
    std::ifstream statm("/proc/self/statm");
    SIZE_T size = 0, resident = 0;
    statm >> size >> resident;
    return resident * static_cast<SIZE_T>(sysconf(_SC_PAGESIZE));
}

TEST_F(Kernel32Memory, WorkingSetIsThisProcessResidentSet) {
    PROCESS_MEMORY_COUNTERS counters{};
    counters.cb = sizeof(counters);
    SIZE_T before = residentBytesFromStatm();
    ASSERT_EQ(K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters)), TRUE);
    SIZE_T after = residentBytesFromStatm();
    EXPECT_GE(counters.WorkingSetSize, std::min(before, after) - (1u << 20));
    EXPECT_LE(counters.WorkingSetSize, std::max(before, after) + (1u << 20));
    EXPECT_GE(counters.PeakWorkingSetSize, counters.WorkingSetSize);
    EXPECT_GT(counters.PageFaultCount, 0u);
    EXPECT_EQ(counters.cb, sizeof(counters));
}

TEST_F(Kernel32Memory, WorkingSetGrowsWithTouchedMemory) {
    PROCESS_MEMORY_COUNTERS before{}, after{};
    ASSERT_EQ(GetProcessMemoryInfo(GetCurrentProcess(), &before, sizeof(before)), TRUE);
    const size_t bytes = 64u << 20;
    std::vector<char> touched(bytes, 1);
    ASSERT_EQ(GetProcessMemoryInfo(GetCurrentProcess(), &after, sizeof(after)), TRUE);
    EXPECT_GE(after.WorkingSetSize, before.WorkingSetSize + bytes / 2);
    EXPECT_EQ(touched[bytes - 1], 1);
}

TEST_F(Kernel32Memory, ProcessMemoryInfoRefusesASmallRecordAnotherProcessAndInjectedFaults) {
    PROCESS_MEMORY_COUNTERS counters{};
    EXPECT_EQ(K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters) - 1), FALSE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(counters.WorkingSetSize, 0u);
    EXPECT_EQ(K32GetProcessMemoryInfo(reinterpret_cast<HANDLE>(0x1234), &counters, sizeof(counters)), FALSE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    simhost::Host::get().faults().failCall("K32GetProcessMemoryInfo", ERROR_ACCESS_DENIED, 1);
    EXPECT_EQ(K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters)), FALSE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(counters.WorkingSetSize, 0u);
}

}  // namespace
