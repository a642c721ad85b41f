// The INF calls of setupapi: opening with its errors and error lines, finding
// lines, the two-call size protocols, handles, injected faults, the cache of
// parses, and the host file's copyFiles key.
#include "setupapi_inf_helpers.h"

#include "simhost/hostfile/host_file.h"
#include "simhost/kernel32/host_settings.h"

#include <filesystem>

using namespace inf_test;

namespace {

class InfCalls : public InfFiles {
protected:
    // Opens C:\Windows\INF\<name> and expects the failure `error`.
    static void expectOpenFails(const wchar_t* path, DWORD error, const wchar_t* infClass = nullptr,
                                DWORD style = INF_STYLE_WIN4) {
        SetLastError(kUntouched);
        EXPECT_EQ(SetupOpenInfFileW(path, infClass, style, nullptr), INVALID_HANDLE_VALUE);
        EXPECT_EQ(GetLastError(), error) << std::hex << GetLastError();
    }
    // Writes the text and expects a syntax error at this line.
    void expectSyntaxError(const std::string& text, DWORD error, UINT line) {
        writeInf("bad.inf", text);
        UINT errorLine = 0;
        SetLastError(kUntouched);
        EXPECT_EQ(SetupOpenInfFileW(L"C:\\Windows\\INF\\bad.inf", nullptr, INF_STYLE_WIN4, &errorLine),
                  INVALID_HANDLE_VALUE);
        EXPECT_EQ(GetLastError(), error) << std::hex << GetLastError();
        EXPECT_EQ(errorLine, line);
    }
};

const std::string kModels = std::string(kVersion) + "[Models]\nOne = INSTALL, Id1, Id2\nTwo = INSTALL\n";

// ---- Opening ----

TEST_F(InfCalls, OpeningSucceedsWithoutTouchingTheLastError) {
    writeInf("oem7.inf", kModels);
    SetLastError(kUntouched);
    HINF inf = SetupOpenInfFileW(L"C:\\Windows\\INF\\oem7.inf", L"printer", INF_STYLE_WIN4, nullptr);
    ASSERT_NE(inf, INVALID_HANDLE_VALUE);
    ASSERT_NE(inf, nullptr);
    EXPECT_EQ(GetLastError(), kUntouched);
    EXPECT_EQ(simhost::setupapi::openInfHandleCount(), 1u);
    SetupCloseInfFile(inf);
    EXPECT_EQ(simhost::setupapi::openInfHandleCount(), 0u);
}

TEST_F(InfCalls, ANameWithoutAPathIsLookedForInTheInfDirectory) {
    writeInf("oem7.inf", kModels);
    HINF inf = SetupOpenInfFileW(L"oem7.inf", nullptr, INF_STYLE_WIN4, nullptr);
    ASSERT_NE(inf, INVALID_HANDLE_VALUE);
    SetupCloseInfFile(inf);
    expectOpenFails(L"absent.inf", ERROR_FILE_NOT_FOUND);
}

TEST_F(InfCalls, MissingFilesAndPaths) {
    expectOpenFails(L"C:\\Windows\\INF\\absent.inf", ERROR_FILE_NOT_FOUND);
    expectOpenFails(L"C:\\Windows\\Nowhere\\absent.inf", ERROR_PATH_NOT_FOUND);
    expectOpenFails(L"Q:\\Windows\\INF\\absent.inf", ERROR_PATH_NOT_FOUND);
    expectOpenFails(L"C:\\Windows\\INF", ERROR_ACCESS_DENIED);
    expectOpenFails(nullptr, ERROR_INVALID_PARAMETER);
}

TEST_F(InfCalls, OnlyWin4FilesOpen) {
    writeInf("nover.inf", "[Models]\nOne = INSTALL\n");
    expectOpenFails(L"C:\\Windows\\INF\\nover.inf", ERROR_WRONG_INF_STYLE);
    writeInf("other.inf", "[Version]\nSignature=\"$Other$\"\n");
    expectOpenFails(L"C:\\Windows\\INF\\other.inf", ERROR_WRONG_INF_STYLE);
    writeInf("chicago.inf", "[version]\nsignature = \"$CHICAGO$\"\n");
    HINF inf = SetupOpenInfFileW(L"C:\\Windows\\INF\\chicago.inf", nullptr, INF_STYLE_WIN4 | INF_STYLE_OLDNT, nullptr);
    EXPECT_NE(inf, INVALID_HANDLE_VALUE);
    SetupCloseInfFile(inf);
    expectOpenFails(L"C:\\Windows\\INF\\chicago.inf", ERROR_WRONG_INF_STYLE, nullptr, INF_STYLE_OLDNT);
    expectOpenFails(L"C:\\Windows\\INF\\chicago.inf", ERROR_INVALID_PARAMETER, nullptr, INF_STYLE_WIN4 | 0x100);
}

TEST_F(InfCalls, TheClassMustMatch) {
    writeInf("oem7.inf", kModels);
    expectOpenFails(L"C:\\Windows\\INF\\oem7.inf", ERROR_CLASS_MISMATCH, L"Net");
    writeInf("guid.inf", "[Version]\nSignature=$Windows NT$\nClassGUID={4D36E979-E325-11CE-BFC1-08002BE10318}\n");
    HINF inf = SetupOpenInfFileW(L"C:\\Windows\\INF\\guid.inf", L"Printer", INF_STYLE_WIN4, nullptr);
    EXPECT_NE(inf, INVALID_HANDLE_VALUE);
    SetupCloseInfFile(inf);
    expectOpenFails(L"C:\\Windows\\INF\\guid.inf", ERROR_CLASS_MISMATCH, L"PrintQueue");
}

TEST_F(InfCalls, SyntaxErrorsGiveTheirLine) {
    expectSyntaxError(std::string(kVersion) + "[Models\nOne = x\n", ERROR_BAD_SECTION_NAME_LINE, 4);
    expectSyntaxError(std::string(kVersion) + "[Models] extra\n", ERROR_BAD_SECTION_NAME_LINE, 4);
    expectSyntaxError(std::string(kVersion) + "\n[ ]\n", ERROR_EXPECTED_SECTION_NAME, 5);
    expectSyntaxError(std::string(kVersion) + "[" + std::string(256, 'x') + "]\n", ERROR_SECTION_NAME_TOO_LONG, 4);
    expectSyntaxError(std::string(kVersion) + "[Models]\nOne = \"open, \\\nTwo\n", ERROR_GENERAL_SYNTAX, 5);
    writeInf("long.inf", std::string(kVersion) + "[" + std::string(255, 'x') + "]\n");
    HINF inf = SetupOpenInfFileW(L"C:\\Windows\\INF\\long.inf", nullptr, INF_STYLE_WIN4, nullptr);
    EXPECT_NE(inf, INVALID_HANDLE_VALUE);
    SetupCloseInfFile(inf);
}

// ---- Finding lines ----

TEST_F(InfCalls, LinesNotFound) {
    HINF inf = openText(kModels + "[Empty]\n");
    INFCONTEXT context{};
    SetLastError(kUntouched);
    EXPECT_FALSE(SetupFindFirstLineW(inf, L"Absent", nullptr, &context));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_LINE_NOT_FOUND));
    EXPECT_FALSE(SetupFindFirstLineW(inf, L"Empty", nullptr, &context));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_LINE_NOT_FOUND));
    EXPECT_FALSE(SetupFindFirstLineW(inf, L"Models", L"Three", &context));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_LINE_NOT_FOUND));
    context = firstLine(inf, L"Models", L"two");
    EXPECT_FALSE(SetupFindNextLine(&context, &context));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_LINE_NOT_FOUND));
    SetupCloseInfFile(inf);
}

TEST_F(InfCalls, NextLineWalksTheSection) {
    HINF inf = openText(kModels);
    INFCONTEXT first = firstLine(inf, L"Models");
    INFCONTEXT second{};
    SetLastError(kUntouched);
    EXPECT_TRUE(SetupFindNextLine(&first, &second));
    EXPECT_EQ(GetLastError(), kUntouched);
    EXPECT_EQ(first.Line, 0u);
    EXPECT_EQ(field(second, 0), L"Two");
    EXPECT_EQ(SetupGetFieldCount(&first), 3u);
    EXPECT_EQ(SetupGetFieldCount(&second), 1u);
    SetupCloseInfFile(inf);
}

TEST_F(InfCalls, AClosedHandleIsRefused) {
    HINF inf = openText(kModels);
    INFCONTEXT context = firstLine(inf, L"Models");
    SetupCloseInfFile(inf);
    SetupCloseInfFile(inf);
    WCHAR buffer[16];
    EXPECT_FALSE(SetupFindFirstLineW(inf, L"Models", nullptr, &context));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_FALSE(SetupGetStringFieldW(&context, 1, buffer, 16, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_FALSE(SetupFindNextLine(&context, &context));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(SetupGetFieldCount(&context), 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(simhost::setupapi::openInfHandleCount(), 0u);
}

// ---- Size protocols ----

TEST_F(InfCalls, StringFieldSizes) {
    HINF inf = openText(kModels);
    INFCONTEXT context = firstLine(inf, L"Models");
    DWORD required = 0;
    SetLastError(kUntouched);
    EXPECT_TRUE(SetupGetStringFieldW(&context, 1, nullptr, 0, &required));
    EXPECT_EQ(required, 8u);  // "INSTALL" and its NUL
    EXPECT_EQ(GetLastError(), kUntouched);
    WCHAR buffer[8];
    required = 0;
    EXPECT_FALSE(SetupGetStringFieldW(&context, 1, buffer, 7, &required));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(required, 8u);
    SetLastError(kUntouched);
    EXPECT_TRUE(SetupGetStringFieldW(&context, 1, buffer, 8, &required));
    EXPECT_EQ(std::wstring(buffer), L"INSTALL");
    EXPECT_EQ(GetLastError(), kUntouched);
    EXPECT_TRUE(SetupGetStringFieldW(&context, 0, buffer, 8, &required));
    EXPECT_EQ(std::wstring(buffer), L"One");
    EXPECT_EQ(required, 4u);
    EXPECT_FALSE(SetupGetStringFieldW(&context, 4, buffer, 8, &required));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    SetupCloseInfFile(inf);
}

TEST_F(InfCalls, MultiStringFieldSizes) {
    HINF inf = openText(kModels);
    INFCONTEXT context = firstLine(inf, L"Models");
    DWORD required = 0;
    EXPECT_TRUE(SetupGetMultiSzFieldW(&context, 2, nullptr, 0, &required));
    EXPECT_EQ(required, 9u);  // "Id1\0Id2\0\0"
    WCHAR buffer[9];
    EXPECT_FALSE(SetupGetMultiSzFieldW(&context, 2, buffer, 8, &required));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(required, 9u);
    EXPECT_TRUE(SetupGetMultiSzFieldW(&context, 2, buffer, 9, nullptr));
    EXPECT_EQ(std::wstring(buffer, 9), std::wstring(L"Id1\0Id2\0\0", 9));
    EXPECT_EQ(fieldsFrom(context, 1), (std::vector<std::wstring>{L"INSTALL", L"Id1", L"Id2"}));
    SetLastError(kUntouched);
    EXPECT_FALSE(SetupGetMultiSzFieldW(&context, 0, buffer, 8, &required));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_FALSE(SetupGetMultiSzFieldW(&context, 4, buffer, 8, &required));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    SetupCloseInfFile(inf);
}

// ---- Faults ----

TEST_F(InfCalls, EachCallCanBeMadeToFail) {
    writeInf("oem7.inf", kModels);
    auto& faults = simhost::Host::get().faults();
    faults.failCall("SetupOpenInfFileW", ERROR_NOT_ENOUGH_MEMORY, 1);
    expectOpenFails(L"C:\\Windows\\INF\\oem7.inf", ERROR_NOT_ENOUGH_MEMORY);
    HINF inf = openText(kModels, "oem7.inf");
    INFCONTEXT context = firstLine(inf, L"Models");
    WCHAR buffer[16];
    DWORD required = 0;
    for (const char* call : {"SetupFindFirstLineW", "SetupFindNextLine", "SetupGetFieldCount", "SetupGetStringFieldW",
                             "SetupGetMultiSzFieldW"})
        faults.failCall(call, ERROR_GEN_FAILURE, 1);
    EXPECT_FALSE(SetupFindFirstLineW(inf, L"Models", nullptr, &context));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_GEN_FAILURE));
    EXPECT_FALSE(SetupFindNextLine(&context, &context));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_GEN_FAILURE));
    EXPECT_EQ(SetupGetFieldCount(&context), 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_GEN_FAILURE));
    EXPECT_FALSE(SetupGetStringFieldW(&context, 1, buffer, 16, &required));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_GEN_FAILURE));
    EXPECT_FALSE(SetupGetMultiSzFieldW(&context, 1, buffer, 16, &required));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_GEN_FAILURE));
    EXPECT_EQ(context.Line, 0u);
    faults.failCall("SetupCloseInfFile", ERROR_GEN_FAILURE, 1);
    SetupCloseInfFile(inf);
    EXPECT_EQ(faults.callCount("SetupCloseInfFile"), 1u);
    EXPECT_EQ(simhost::setupapi::openInfHandleCount(), 0u);
}

// ---- The cache ----

TEST_F(InfCalls, AnUnchangedFileIsParsedOnce) {
    HINF first = openText(kModels);
    HINF second = SetupOpenInfFileW(L"C:\\Windows\\INF\\test.inf", nullptr, INF_STYLE_WIN4, nullptr);
    ASSERT_NE(second, INVALID_HANDLE_VALUE);
    EXPECT_NE(first, second);
    EXPECT_EQ(simhost::setupapi::infCacheCounts().parses, 1u);
    EXPECT_EQ(simhost::setupapi::infCacheCounts().hits, 1u);
    EXPECT_EQ(simhost::setupapi::openInfHandleCount(), 2u);
    SetupCloseInfFile(first);
    EXPECT_EQ(field(firstLine(second, L"Models", L"Two"), 1), L"INSTALL");
    SetupCloseInfFile(second);
}

TEST_F(InfCalls, AChangedFileOrCodePageIsParsedAgain) {
    HINF inf = openText(kModels);
    SetupCloseInfFile(inf);
    inf = openText(kModels + "Three = INSTALL\n");
    EXPECT_EQ(sectionLines(inf, L"Models").size(), 3u);
    SetupCloseInfFile(inf);
    EXPECT_EQ(simhost::setupapi::infCacheCounts().parses, 2u);
    simhost::kernel32::setAnsiCodePage(CP_UTF8);
    inf = openText(kModels + "Three = INSTALL\n");
    SetupCloseInfFile(inf);
    EXPECT_EQ(simhost::setupapi::infCacheCounts().parses, 3u);
    EXPECT_EQ(simhost::setupapi::infCacheCounts().hits, 0u);
}

TEST_F(InfCalls, AFileWithASyntaxErrorIsNotKept) {
    expectSyntaxError("[Version\n", ERROR_BAD_SECTION_NAME_LINE, 1);
    expectSyntaxError("[Version\n", ERROR_BAD_SECTION_NAME_LINE, 1);
    EXPECT_EQ(simhost::setupapi::infCacheCounts().parses, 2u);
}

// ---- copyFiles ----

class CopyFiles : public InfFiles {
protected:
    void SetUp() override {
        InfFiles::SetUp();
        source = drive->root() + "-sources";
        std::filesystem::create_directories(source + "/infs");
        std::ofstream(source + "/infs/oem7.inf", std::ios::binary) << bytes;
    }
    void TearDown() override {
        std::filesystem::remove_all(source);
        InfFiles::TearDown();
    }
    std::string refusal(const std::string& target, const std::string& from) {
        Json::Value host;
        host["copyFiles"][target] = from;
        try {
            simhost::applyHostDescription(host, drive->root(), source);
        } catch (const simhost::HostFileError& e) {
            return e.what();
        }
        return "accepted";
    }

    const std::string bytes = std::string("\xFF\xFE[\0V\0]\0\r\0\n\0\xE9\0", 14);
    std::string source;
};

TEST_F(CopyFiles, CopiesByteForByteFromTheHostFilesDirectory) {
    EXPECT_EQ(refusal("C:\\Windows\\INF\\new\\oem7.inf", "infs/oem7.inf"), "accepted");
    std::ifstream copied(drive->native("Windows\\INF\\new\\oem7.inf"), std::ios::binary);
    std::string content((std::istreambuf_iterator<char>(copied)), std::istreambuf_iterator<char>());
    EXPECT_EQ(content, bytes);
}

TEST_F(CopyFiles, RefusesAMissingSourceOrAnUnmappedTarget) {
    std::string missing = refusal("C:\\Windows\\INF\\oem8.inf", "infs/absent.inf");
    EXPECT_NE(missing.find("\"copyFiles\" source"), std::string::npos) << missing;
    EXPECT_NE(missing.find("absent.inf"), std::string::npos) << missing;
    std::string unmapped = refusal("Q:\\oem7.inf", "infs/oem7.inf");
    EXPECT_NE(unmapped.find("\"copyFiles\" target"), std::string::npos) << unmapped;
    EXPECT_NE(unmapped.find("no mapped drive"), std::string::npos) << unmapped;
    EXPECT_NE(refusal("C:\\x.inf", "").find("\"copyFiles\""), std::string::npos);
}

}  // namespace
