// GetModuleFileNameW of the simulated kernel32: the program's path as the
// host sets it, and the documented truncation when the buffer is too small.
#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/kernel32/module.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

constexpr DWORD kUntouched = 0xDEADBEEF;
const std::wstring kDefaultPath = L"C:\\Program Files\\Quillion\\VexorAgent\\VexorPrintingService.exe";

class Kernel32ModuleFileName : public ::testing::Test {
protected:
    void SetUp() override {
        simhost::Host::get().reset();
        SetLastError(kUntouched);
    }
};

TEST_F(Kernel32ModuleFileName, ProgramPathIsTheDefaultInstallationPath) {
    WCHAR buffer[MAX_PATH];
    EXPECT_EQ(GetModuleFileNameW(nullptr, buffer, MAX_PATH), kDefaultPath.size());
    EXPECT_EQ(std::wstring(buffer), kDefaultPath);
    EXPECT_EQ(GetLastError(), kUntouched);
}

TEST_F(Kernel32ModuleFileName, HostSetsThePathUntilReset) {
    simhost::kernel32::setModuleFileName(L"D:\\Elsewhere\\svc.exe");
    WCHAR buffer[MAX_PATH];
    EXPECT_EQ(GetModuleFileNameW(nullptr, buffer, MAX_PATH), 20u);
    EXPECT_EQ(std::wstring(buffer), L"D:\\Elsewhere\\svc.exe");
    simhost::Host::get().reset();
    EXPECT_EQ(simhost::kernel32::moduleFileName(), kDefaultPath);
}

TEST_F(Kernel32ModuleFileName, BufferForThePathAndItsNulIsEnough) {
    std::vector<WCHAR> buffer(kDefaultPath.size() + 1, L'x');
    EXPECT_EQ(GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size())), kDefaultPath.size());
    EXPECT_EQ(std::wstring(buffer.data()), kDefaultPath);
    EXPECT_EQ(GetLastError(), kUntouched);
}

TEST_F(Kernel32ModuleFileName, ShortBufferGetsTheTruncatedPathAndInsufficientBuffer) {
    std::vector<WCHAR> buffer(kDefaultPath.size(), L'x');
    DWORD size = static_cast<DWORD>(buffer.size());
    EXPECT_EQ(GetModuleFileNameW(nullptr, buffer.data(), size), size);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(std::wstring(buffer.data()), kDefaultPath.substr(0, size - 1));

    WCHAR small[4] = {L'x', L'x', L'x', L'x'};
    EXPECT_EQ(GetModuleFileNameW(nullptr, small, 4), 4u);
    EXPECT_EQ(std::wstring(small), L"C:\\");
}

TEST_F(Kernel32ModuleFileName, ZeroSizeWritesNothing) {
    WCHAR untouched = L'x';
    EXPECT_EQ(GetModuleFileNameW(nullptr, &untouched, 0), 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(untouched, L'x');
}

TEST_F(Kernel32ModuleFileName, OtherModuleIsNotFound) {
    WCHAR buffer[MAX_PATH];
    HMODULE other = reinterpret_cast<HMODULE>(static_cast<uintptr_t>(0x10000));
    EXPECT_EQ(GetModuleFileNameW(other, buffer, MAX_PATH), 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_MOD_NOT_FOUND));
}

TEST_F(Kernel32ModuleFileName, InjectedFailureAnswersZeroWithTheError) {
    simhost::Host::get().faults().failCall("GetModuleFileNameW", ERROR_ACCESS_DENIED, 1);
    WCHAR buffer[MAX_PATH] = {L'x', 0};
    EXPECT_EQ(GetModuleFileNameW(nullptr, buffer, MAX_PATH), 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(std::wstring(buffer), L"x");
}

}  // namespace
