// GetTempPathW and GetCurrentDirectoryW of the simulated kernel32.
#include "simhost/core/host.h"
#include "simhost/kernel32/host_settings.h"
#include "simhost/kernel32/kernel32.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

constexpr DWORD kUntouched = 0xDEADBEEF;

class Kernel32Paths : public ::testing::Test {
protected:
    void SetUp() override { simhost::Host::get().reset(); }
};

using PathCall = DWORD(WINAPI*)(DWORD, LPWSTR);

std::wstring readPath(PathCall call) {
    wchar_t buffer[MAX_PATH + 1];
    DWORD length = call(MAX_PATH + 1, buffer);
    return std::wstring(buffer, length);
}

TEST_F(Kernel32Paths, DefaultsAreThoseOfAServiceOnWindows) {
    wchar_t buffer[MAX_PATH + 1];
    SetLastError(kUntouched);
    EXPECT_EQ(GetTempPathW(MAX_PATH + 1, buffer), 16u);
    EXPECT_EQ(std::wstring(buffer), L"C:\\Windows\\Temp\\");
    EXPECT_EQ(GetCurrentDirectoryW(MAX_PATH + 1, buffer), 19u);
    EXPECT_EQ(std::wstring(buffer), L"C:\\Windows\\system32");
    EXPECT_EQ(GetLastError(), kUntouched);
}

TEST_F(Kernel32Paths, ShortBufferAnswersTheSizeWithTheNulAndReceivesNothing) {
    for (PathCall call : {PathCall(GetTempPathW), PathCall(GetCurrentDirectoryW)}) {
        DWORD needed = call(0, nullptr);
        std::vector<wchar_t> buffer(needed, L'x');
        EXPECT_EQ(call(needed - 1, buffer.data()), needed);
        EXPECT_EQ(buffer[0], L'x');
        EXPECT_EQ(call(needed, buffer.data()), needed - 1);
        EXPECT_EQ(buffer[needed - 1], L'\0');
    }
    EXPECT_EQ(GetTempPathW(0, nullptr), 17u);
    EXPECT_EQ(GetCurrentDirectoryW(0, nullptr), 20u);
}

TEST_F(Kernel32Paths, HostSetsBothDirectoriesAndResetRestoresThem) {
    simhost::kernel32::setTempPath(L"D:\\scratch");
    simhost::kernel32::setCurrentDirectory(L"C:\\ProgramData\\Logs");
    EXPECT_EQ(readPath(GetTempPathW), L"D:\\scratch\\");
    EXPECT_EQ(readPath(GetCurrentDirectoryW), L"C:\\ProgramData\\Logs");
    simhost::kernel32::setTempPath(L"E:\\t\\");
    EXPECT_EQ(readPath(GetTempPathW), L"E:\\t\\");
    EXPECT_EQ(simhost::kernel32::tempPath(), L"E:\\t\\");
    simhost::Host::get().reset();
    EXPECT_EQ(readPath(GetTempPathW), L"C:\\Windows\\Temp\\");
    EXPECT_EQ(simhost::kernel32::currentDirectory(), L"C:\\Windows\\system32");
}

TEST_F(Kernel32Paths, BothFailWithTheInjectedError) {
    wchar_t buffer[MAX_PATH + 1] = {L'x'};
    simhost::Host::get().faults().failCall("GetTempPathW", ERROR_ACCESS_DENIED, 1);
    EXPECT_EQ(GetTempPathW(MAX_PATH + 1, buffer), 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(buffer[0], L'x');
    simhost::Host::get().faults().failCall("GetCurrentDirectoryW", ERROR_PATH_NOT_FOUND, 1);
    EXPECT_EQ(GetCurrentDirectoryW(MAX_PATH + 1, buffer), 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(GetTempPathW(MAX_PATH + 1, buffer), 16u);
}

}  // namespace
