// The path functions of the simulated host: PathCchRemoveFileSpec and
// PathAppendW on text, PathFileExistsW on the files of the host's drives.
#include "simhost/core/host.h"
#include "simhost/kernel32/host_settings.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/shell32/paths.h"

#include "support/TempDrive.h"

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr DWORD kUntouched = 0xDEADBEEF;

class PathText : public ::testing::Test {
protected:
    void SetUp() override { simhost::Host::get().reset(); }
    void TearDown() override { simhost::Host::get().reset(); }
};

struct Removal {
    HRESULT result;
    std::wstring path;
};

Removal removeFileSpec(const std::wstring& path) {
    std::vector<WCHAR> buffer(path.begin(), path.end());
    buffer.resize(MAX_PATH, L'\0');
    HRESULT result = PathCchRemoveFileSpec(buffer.data(), buffer.size());
    return {result, buffer.data()};
}

struct Appending {
    BOOL result;
    std::wstring path;
};

Appending append(const std::wstring& path, const std::wstring& more) {
    std::vector<WCHAR> buffer(path.begin(), path.end());
    buffer.resize(MAX_PATH, L'\0');
    BOOL result = PathAppendW(buffer.data(), more.c_str());
    return {result, buffer.data()};
}

// ---- PathCchRemoveFileSpec ----

TEST_F(PathText, RemovingTheFileSpecTakesTheLastElement) {
    const std::vector<std::pair<std::wstring, std::wstring>> cases = {
        {L"C:\\path1", L"C:\\"},
        {L"C:\\path1\\path2", L"C:\\path1"},
        {L"C:\\path1\\", L"C:\\path1"},
        {L"\\\\path1\\path2\\path3", L"\\\\path1\\path2"},
        {L"\\path1", L"\\"},
        {L"C:\\Program Files\\Quillion\\VexorAgent\\vexor_server.exe", L"C:\\Program Files\\Quillion\\VexorAgent"},
        {L"file.exe", L""},
        {L"dir\\file.exe", L"dir"},
        {L"\\\\?\\C:\\dir\\x.exe", L"\\\\?\\C:\\dir"},
        {L"\\\\?\\UNC\\server\\share\\x.exe", L"\\\\?\\UNC\\server\\share"},
    };
    for (const auto& c : cases) {
        Removal removal = removeFileSpec(c.first);
        EXPECT_EQ(removal.result, S_OK) << std::string(c.first.begin(), c.first.end());
        EXPECT_EQ(removal.path, c.second);
    }
}

TEST_F(PathText, ARootLosesNothingAndAnswersFalse) {
    for (std::wstring root :
         {L"C:\\", L"C:", L"\\", L"\\\\server\\share", L"", L"\\\\?\\C:\\", L"\\\\?\\UNC\\server\\share"}) {
        Removal removal = removeFileSpec(root);
        EXPECT_EQ(removal.result, S_FALSE) << std::string(root.begin(), root.end());
        EXPECT_EQ(removal.path, root);
    }
}

TEST_F(PathText, RemovingTheFileSpecRefusesBadBuffers) {
    WCHAR path[] = L"C:\\dir\\x.exe";
    EXPECT_EQ(PathCchRemoveFileSpec(nullptr, MAX_PATH), E_INVALIDARG);
    EXPECT_EQ(PathCchRemoveFileSpec(path, 0), E_INVALIDARG);
    EXPECT_EQ(PathCchRemoveFileSpec(path, PATHCCH_MAX_CCH + 1), E_INVALIDARG);
    EXPECT_EQ(PathCchRemoveFileSpec(path, 5), E_INVALIDARG);
    EXPECT_EQ(std::wstring(path), L"C:\\dir\\x.exe");
    EXPECT_EQ(PathCchRemoveFileSpec(path, 13), S_OK);
    EXPECT_EQ(std::wstring(path), L"C:\\dir");
}

TEST_F(PathText, RemovingTheFileSpecCanBeMadeToFail) {
    simhost::Host::get().faults().failCall("PathCchRemoveFileSpec", ERROR_NOT_ENOUGH_MEMORY, 1);
    Removal removal = removeFileSpec(L"C:\\dir\\x.exe");
    EXPECT_EQ(removal.result, HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(removal.path, L"C:\\dir\\x.exe");
}

// ---- PathAppendW ----

TEST_F(PathText, AppendingJoinsWithOneBackslash) {
    const std::vector<std::vector<std::wstring>> cases = {
        {L"C:\\dir", L"x.exe", L"C:\\dir\\x.exe"},
        {L"C:\\dir\\", L"x.exe", L"C:\\dir\\x.exe"},
        {L"C:\\dir", L"\\x86", L"C:\\dir\\x86"},
        {L"C:\\dir", L"x86\\vexor_vchan_loader.exe", L"C:\\dir\\x86\\vexor_vchan_loader.exe"},
        {L"name_1\\name_2", L"name_3", L"name_1\\name_2\\name_3"},
        {L"..\\path1\\path2", L"path3", L"\\path1\\path2\\path3"},
        {L"C:\\a\\b", L"..\\c", L"C:\\a\\c"},
        {L"C:\\a", L".\\c", L"C:\\a\\c"},
        {L"C:\\a", L"D:\\x", L"D:\\x"},
        {L"C:\\a", L"", L"C:\\a"},
        {L"", L"x", L"x"},
    };
    for (const auto& c : cases) {
        SetLastError(kUntouched);
        Appending result = append(c[0], c[1]);
        EXPECT_TRUE(result.result) << std::string(c[0].begin(), c[0].end());
        EXPECT_EQ(result.path, c[2]);
        EXPECT_EQ(GetLastError(), kUntouched);
    }
}

TEST_F(PathText, AnAppendedPathMustFitMaxPath) {
    std::wstring base = L"C:\\" + std::wstring(250, L'a');
    Appending fits = append(base, L"12345");  // 259 characters
    EXPECT_TRUE(fits.result);
    EXPECT_EQ(fits.path.size(), 259u);
    Appending tooLong = append(base, L"123456");  // 260 characters
    EXPECT_FALSE(tooLong.result);
    EXPECT_EQ(tooLong.path, L"");
}

TEST_F(PathText, AppendingRefusesNullArguments) {
    WCHAR path[MAX_PATH] = L"C:\\dir";
    EXPECT_FALSE(PathAppendW(path, nullptr));
    EXPECT_FALSE(PathAppendW(nullptr, L"x"));
    EXPECT_EQ(std::wstring(path), L"C:\\dir");
}

TEST_F(PathText, AppendingCanBeMadeToFail) {
    simhost::Host::get().faults().failCall("PathAppendW", ERROR_INVALID_PARAMETER, 1);
    Appending result = append(L"C:\\dir", L"x.exe");
    EXPECT_FALSE(result.result);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(result.path, L"C:\\dir");
}

// ---- PathFileExistsW ----

class FileExists : public ::testing::Test {
protected:
    void SetUp() override {
        simhost::Host::get().reset();
        drive = std::make_unique<testsupport::TempDrive>();
        drive->makeDirectory("Program Files\\Quillion\\VexorAgent\\x86");
        std::ofstream(drive->native("Program Files\\Quillion\\VexorAgent\\vexor_server.exe")) << "MZ";
    }
    void TearDown() override {
        drive.reset();
        simhost::Host::get().reset();
    }

    static void expectMissing(const wchar_t* path, DWORD error) {
        SetLastError(kUntouched);
        EXPECT_FALSE(PathFileExistsW(path));
        EXPECT_EQ(GetLastError(), error);
    }

    std::unique_ptr<testsupport::TempDrive> drive;
};

TEST_F(FileExists, AFileAndADirectoryExist) {
    SetLastError(kUntouched);
    EXPECT_TRUE(PathFileExistsW(L"C:\\Program Files\\Quillion\\VexorAgent\\vexor_server.exe"));
    EXPECT_TRUE(PathFileExistsW(L"C:\\Program Files\\Quillion\\VexorAgent\\x86"));
    EXPECT_TRUE(PathFileExistsW(L"C:\\Program Files\\Quillion\\VexorAgent\\x86\\"));
    EXPECT_TRUE(PathFileExistsW(L"C:\\"));
    EXPECT_EQ(GetLastError(), kUntouched);
}

TEST_F(FileExists, NamesMatchWithoutRegardToCase) {
    EXPECT_TRUE(PathFileExistsW(L"c:\\PROGRAM FILES\\quillion\\VexorAgent\\VEXOR_SERVER.EXE"));
}

TEST_F(FileExists, AMissingFileIsFileNotFound) {
    expectMissing(L"C:\\Program Files\\Quillion\\VexorAgent\\vexor_vchan_loader.exe", ERROR_FILE_NOT_FOUND);
    expectMissing(L"C:\\Program Files\\Quillion\\VexorAgent\\x86\\vexor_vchan_loader.exe", ERROR_FILE_NOT_FOUND);
}

TEST_F(FileExists, AMissingDirectoryOnTheWayIsPathNotFound) {
    expectMissing(L"C:\\Program Files\\Other\\vexor_server.exe", ERROR_PATH_NOT_FOUND);
    expectMissing(L"Q:\\vexor_server.exe", ERROR_PATH_NOT_FOUND);
    expectMissing(L"", ERROR_PATH_NOT_FOUND);
}

TEST_F(FileExists, ARelativePathStartsAtTheCurrentDirectory) {
    simhost::kernel32::setCurrentDirectory(L"C:\\Program Files\\Quillion");
    EXPECT_TRUE(PathFileExistsW(L"VexorAgent\\vexor_server.exe"));
    EXPECT_TRUE(PathFileExistsW(L"\\Program Files\\Quillion\\VexorAgent\\vexor_server.exe"));
    expectMissing(L"vexor_server.exe", ERROR_FILE_NOT_FOUND);
}

TEST_F(FileExists, ANullPathIsInvalid) { expectMissing(nullptr, ERROR_INVALID_PARAMETER); }

TEST_F(FileExists, TheCallCanBeMadeToFail) {
    simhost::Host::get().faults().failCall("PathFileExistsW", ERROR_ACCESS_DENIED, 1);
    expectMissing(L"C:\\Program Files\\Quillion\\VexorAgent\\vexor_server.exe", ERROR_ACCESS_DENIED);
    EXPECT_TRUE(PathFileExistsW(L"C:\\Program Files\\Quillion\\VexorAgent\\vexor_server.exe"));
}

}  // namespace
