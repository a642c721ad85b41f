// Helpers of the INF file tests: a drive C: with INF files written into it,
// and readers of lines and fields through the two-call protocols.
#pragma once

#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/setupapi/inf_files.h"
#include "simhost/setupapi/setupapi.h"
#include "support/TempDrive.h"

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace inf_test {

constexpr DWORD kUntouched = 0xDEADBEEF;

class InfFiles : public ::testing::Test {
protected:
    void SetUp() override {
        drive = std::make_unique<testsupport::TempDrive>();
        drive->makeDirectory("Windows\\INF");
    }
    void TearDown() override {
        drive.reset();
        simhost::Host::get().reset();
    }

    // Writes C:\Windows\INF\<name> with exactly these bytes.
    void writeInf(const std::string& name, const std::string& bytes) const {
        std::ofstream(drive->native("Windows\\INF\\" + name), std::ios::binary | std::ios::trunc) << bytes;
    }
    // Writes and opens a WIN4 file; the test fails if it does not open.
    HINF openText(const std::string& bytes, const std::string& name = "test.inf") const {
        writeInf(name, bytes);
        std::wstring path = L"C:\\Windows\\INF\\" + std::wstring(name.begin(), name.end());
        HINF inf = SetupOpenInfFileW(path.c_str(), nullptr, INF_STYLE_WIN4, nullptr);
        EXPECT_NE(inf, INVALID_HANDLE_VALUE) << "error " << std::hex << GetLastError();
        return inf;
    }

    std::unique_ptr<testsupport::TempDrive> drive;
};

// The bytes of a UTF-16 LE file with its byte-order mark (characters of the
// basic plane only).
inline std::string utf16le(const std::wstring& text) {
    std::string bytes = "\xFF\xFE";
    for (wchar_t c : text) {
        bytes += static_cast<char>(c & 0xFF);
        bytes += static_cast<char>((c >> 8) & 0xFF);
    }
    return bytes;
}

inline const char* const kVersion = "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=Printer\r\n";

inline INFCONTEXT firstLine(HINF inf, const wchar_t* section, const wchar_t* key = nullptr) {
    INFCONTEXT context{};
    EXPECT_TRUE(SetupFindFirstLineW(inf, section, key, &context)) << "error " << std::hex << GetLastError();
    return context;
}

// A field read in the two-call protocol.
inline std::wstring field(INFCONTEXT context, DWORD index) {
    DWORD required = 0;
    EXPECT_TRUE(SetupGetStringFieldW(&context, index, nullptr, 0, &required));
    std::vector<WCHAR> buffer(required);
    EXPECT_TRUE(SetupGetStringFieldW(&context, index, buffer.data(), required, nullptr));
    return std::wstring(buffer.data());
}

// The fields from `index` on, read as one multi-string.
inline std::vector<std::wstring> fieldsFrom(INFCONTEXT& context, DWORD index) {
    DWORD required = 0;
    EXPECT_TRUE(SetupGetMultiSzFieldW(&context, index, nullptr, 0, &required));
    std::vector<WCHAR> buffer(required);
    EXPECT_TRUE(SetupGetMultiSzFieldW(&context, index, buffer.data(), required, nullptr));
    std::vector<std::wstring> strings;
    for (const WCHAR* p = buffer.data(); *p; p += strings.back().size() + 1) strings.emplace_back(p);
    return strings;
}

// Every line of a section: key, then fields.
inline std::vector<std::vector<std::wstring>> sectionLines(HINF inf, const wchar_t* section) {
    std::vector<std::vector<std::wstring>> lines;
    INFCONTEXT context{};
    for (BOOL found = SetupFindFirstLineW(inf, section, nullptr, &context); found;
         found = SetupFindNextLine(&context, &context)) {
        std::vector<std::wstring> line{field(context, 0)};
        for (DWORD i = 1; i <= SetupGetFieldCount(&context); ++i) line.push_back(field(context, i));
        lines.push_back(line);
    }
    return lines;
}

}  // namespace inf_test
