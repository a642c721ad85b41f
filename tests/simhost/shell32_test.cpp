// Known folders and the COM task allocator of the simulated shell32.
#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/kernel32/memory.h"
#include "simhost/shell32/shell32.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

using simhost::kernel32::Allocator;
using simhost::kernel32::badFreeCount;
using simhost::kernel32::liveBlockCount;

namespace {

constexpr DWORD kUntouched = 0xDEADBEEF;

class Shell32 : public ::testing::Test {
protected:
    void SetUp() override { simhost::Host::get().reset(); }
    void TearDown() override { EXPECT_EQ(simhost::kernel32::releaseAllBlocks(), 0u); }
};

PWSTR notYetSet() { return reinterpret_cast<PWSTR>(static_cast<uintptr_t>(0x1000)); }

TEST_F(Shell32, ProgramDataHasItsPublishedIdentifier) {
    const GUID expected = {0x62AB5D82, 0xFDC1, 0x4DC3, {0xA9, 0xDD, 0x07, 0x0D, 0x1D, 0x49, 0x5D, 0x97}};
    EXPECT_TRUE(FOLDERID_ProgramData == expected);
}

TEST_F(Shell32, ProgramDataPathComesInATaskAllocatorBlock) {
    PWSTR path = notYetSet();
    EXPECT_EQ(SHGetKnownFolderPath(FOLDERID_ProgramData, KF_FLAG_DEFAULT, nullptr, &path), S_OK);
    ASSERT_NE(path, nullptr);
    EXPECT_EQ(std::wstring(path), L"C:\\ProgramData");
    EXPECT_EQ(liveBlockCount(Allocator::CoTaskMem), 1u);
    CoTaskMemFree(path);
    EXPECT_EQ(liveBlockCount(Allocator::CoTaskMem), 0u);
    EXPECT_EQ(badFreeCount(Allocator::CoTaskMem), 0u);
}

TEST_F(Shell32, CreateFlagAndTokenChangeNothingForProgramData) {
    PWSTR path = nullptr;
    int token = 0;
    EXPECT_EQ(SHGetKnownFolderPath(FOLDERID_ProgramData, KF_FLAG_CREATE, &token, &path), S_OK);
    EXPECT_EQ(std::wstring(path), L"C:\\ProgramData");
    CoTaskMemFree(path);
}

TEST_F(Shell32, UnknownFolderFailsWithInvalidArgAndANullPath) {
    const GUID unknown = {0x12345678, 0x1234, 0x1234, {1, 2, 3, 4, 5, 6, 7, 8}};
    PWSTR path = notYetSet();
    SetLastError(kUntouched);
    EXPECT_EQ(SHGetKnownFolderPath(unknown, 0, nullptr, &path), E_INVALIDARG);
    EXPECT_EQ(path, nullptr);
    EXPECT_EQ(GetLastError(), kUntouched);
    CoTaskMemFree(path);
    EXPECT_EQ(liveBlockCount(Allocator::CoTaskMem), 0u);
}

TEST_F(Shell32, InjectedFailureAnswersTheErrorAsAnHresult) {
    simhost::Host::get().faults().failCall("SHGetKnownFolderPath", ERROR_ACCESS_DENIED, 1);
    PWSTR path = notYetSet();
    EXPECT_EQ(SHGetKnownFolderPath(FOLDERID_ProgramData, 0, nullptr, &path), static_cast<HRESULT>(0x80070005));
    EXPECT_EQ(path, nullptr);
    EXPECT_EQ(SHGetKnownFolderPath(FOLDERID_ProgramData, 0, nullptr, &path), S_OK);
    CoTaskMemFree(path);
}

TEST_F(Shell32, FailingTaskAllocatorGivesOutOfMemory) {
    simhost::Host::get().faults().failCall("CoTaskMemAlloc", ERROR_NOT_ENOUGH_MEMORY, 1);
    PWSTR path = notYetSet();
    EXPECT_EQ(SHGetKnownFolderPath(FOLDERID_ProgramData, 0, nullptr, &path), E_OUTOFMEMORY);
    EXPECT_EQ(path, nullptr);
}

TEST_F(Shell32, TaskAllocatorTracksItsBlocks) {
    void* empty = CoTaskMemAlloc(0);
    void* block = CoTaskMemAlloc(32);
    ASSERT_NE(empty, nullptr);
    ASSERT_NE(block, nullptr);
    EXPECT_NE(empty, block);
    EXPECT_EQ(liveBlockCount(Allocator::CoTaskMem), 2u);
    CoTaskMemFree(nullptr);
    CoTaskMemFree(empty);
    CoTaskMemFree(block);
    EXPECT_EQ(liveBlockCount(Allocator::CoTaskMem), 0u);
    CoTaskMemFree(block);
    EXPECT_EQ(badFreeCount(Allocator::CoTaskMem), 1u);
}

TEST_F(Shell32, TaskAllocatorRefusesOtherAllocatorsBlocks) {
    HGLOBAL global = GlobalAlloc(GPTR, 8);
    CoTaskMemFree(global);
    EXPECT_EQ(badFreeCount(Allocator::CoTaskMem), 1u);
    EXPECT_EQ(liveBlockCount(Allocator::Global), 1u);
    GlobalFree(global);
}

TEST_F(Shell32, TaskAllocatorFailureLeavesTheLastErrorAlone) {
    simhost::Host::get().faults().failCall("CoTaskMemAlloc", ERROR_NOT_ENOUGH_MEMORY, 1);
    SetLastError(kUntouched);
    EXPECT_EQ(CoTaskMemAlloc(16), nullptr);
    EXPECT_EQ(GetLastError(), kUntouched);
}

}  // namespace
