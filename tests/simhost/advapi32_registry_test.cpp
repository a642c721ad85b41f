// The registry of the simulated advapi32: keys and values, RegGetValueW's
// type filters and size protocol, access rights of key handles, deleted keys,
// the predefined views and the host's registry API.
#include "simhost/advapi32/advapi32.h"
#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

using namespace simhost::advapi32;

namespace {

constexpr DWORD kUntouched = 0xDEADBEEF;
const std::wstring kPolicyKey = L"Software\\Policies\\Quillion\\Vexor\\vexor_admin";
const std::wstring kAgentKey = L"SOFTWARE\\Quillion\\VexorAgent";

class Advapi32Registry : public ::testing::Test {
protected:
    void SetUp() override {
        simhost::Host::get().reset();
        SetLastError(kUntouched);
    }
    void TearDown() override {
        EXPECT_EQ(openRegistryKeyCount(), 0u);
        EXPECT_EQ(GetLastError(), kUntouched) << "registry calls leave the last error alone";
    }
};

DWORD bytesOfText(const std::wstring& text) { return static_cast<DWORD>((text.size() + 1) * sizeof(WCHAR)); }

std::vector<BYTE> rawBytes(const void* data, size_t size) {
    const BYTE* bytes = static_cast<const BYTE*>(data);
    return std::vector<BYTE>(bytes, bytes + size);
}

HKEY createKey(HKEY root, const std::wstring& path, REGSAM access = KEY_ALL_ACCESS) {
    HKEY key = nullptr;
    EXPECT_EQ(RegCreateKeyExW(root, path.c_str(), 0, nullptr, 0, access, nullptr, &key, nullptr), ERROR_SUCCESS);
    return key;
}

HKEY openKey(HKEY root, const std::wstring& path, REGSAM access) {
    HKEY key = nullptr;
    EXPECT_EQ(RegOpenKeyExW(root, path.c_str(), 0, access, &key), ERROR_SUCCESS);
    return key;
}

// ---- RegGetValueW: DWORD policy values ----

TEST_F(Advapi32Registry, PolicyDwordIsReadWithAnyTypeIntoFourBytes) {
    setRegistryDword(HKEY_LOCAL_MACHINE, kPolicyKey, L"vexor.remote_printing_enabled", 2);
    DWORD value = 1;
    DWORD size = sizeof value;
    DWORD type = kUntouched;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kPolicyKey.c_str(), L"vexor.remote_printing_enabled", RRF_RT_ANY,
                           &type, &value, &size),
              ERROR_SUCCESS);
    EXPECT_EQ(value, 2u);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(type, static_cast<DWORD>(REG_DWORD));
}

TEST_F(Advapi32Registry, MissingKeyAndMissingValueAreFileNotFound) {
    DWORD value = 7;
    DWORD size = sizeof value;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kPolicyKey.c_str(), L"vexor.enable_default_printer", RRF_RT_ANY,
                           nullptr, &value, &size),
              ERROR_FILE_NOT_FOUND);
    setRegistryDword(HKEY_LOCAL_MACHINE, kPolicyKey, L"other", 1);
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kPolicyKey.c_str(), L"vexor.enable_default_printer", RRF_RT_ANY,
                           nullptr, &value, &size),
              ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(value, 7u) << "the destination keeps its default";
}

TEST_F(Advapi32Registry, LongStringIntoFourBytesIsMoreDataWithTheSizeNeeded) {
    const std::wstring text = L"a string far longer than four bytes";
    setRegistryString(HKEY_LOCAL_MACHINE, kPolicyKey, L"vexor.remote_printing_enabled", text);
    DWORD value = 1;
    DWORD size = sizeof value;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kPolicyKey.c_str(), L"vexor.remote_printing_enabled", RRF_RT_ANY,
                           nullptr, &value, &size),
              ERROR_MORE_DATA);
    EXPECT_EQ(size, bytesOfText(text));
}

TEST_F(Advapi32Registry, DwordFilterRefusesAStringWithUnsupportedType) {
    setRegistryString(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Services\\Vexor_Printing",
                      L"DisableSeriesMatch", L"1");
    DWORD value = 0;
    DWORD size = sizeof value;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Services\\Vexor_Printing",
                           L"DisableSeriesMatch", RRF_RT_REG_DWORD, nullptr, &value, &size),
              ERROR_UNSUPPORTED_TYPE);
    EXPECT_EQ(ERROR_UNSUPPORTED_TYPE, 1630);
}

TEST_F(Advapi32Registry, RefusedTypeStillReportsTheStoredTypeAndSize) {
    setRegistryString(HKEY_LOCAL_MACHINE, kAgentKey, L"text", L"plain text");
    DWORD type = 0xFFFF;
    DWORD value = 0xCCCCCCCC;
    DWORD size = sizeof value;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kAgentKey.c_str(), L"text", RRF_RT_REG_DWORD, &type, &value, &size),
              ERROR_UNSUPPORTED_TYPE);
    EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
    EXPECT_EQ(size, 11 * sizeof(WCHAR));
    EXPECT_EQ(value, 0xCCCCCCCCu);

    setRegistryExpandString(HKEY_LOCAL_MACHINE, kAgentKey, L"expand", L"%UNDEFINED%\\tail");
    type = 0xFFFF;
    size = 0;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kAgentKey.c_str(), L"expand", RRF_RT_REG_SZ | RRF_NOEXPAND, &type,
                           nullptr, &size),
              ERROR_UNSUPPORTED_TYPE);
    EXPECT_EQ(type, static_cast<DWORD>(REG_EXPAND_SZ));
    EXPECT_EQ(size, 17 * sizeof(WCHAR));
}

TEST_F(Advapi32Registry, DwordFilterReadsADword) {
    setRegistryDword(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Services\\Vexor_Printing",
                     L"DisableBracketCheck", 5);
    DWORD value = 0;
    DWORD size = sizeof value;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Services\\Vexor_Printing",
                           L"DisableBracketCheck", RRF_RT_REG_DWORD, nullptr, &value, &size),
              ERROR_SUCCESS);
    EXPECT_EQ(value, 5u);
}

TEST_F(Advapi32Registry, TooSmallBufferForADwordIsMoreData) {
    setRegistryDword(HKEY_LOCAL_MACHINE, kPolicyKey, L"n", 5);
    BYTE small[2] = {9, 9};
    DWORD size = sizeof small;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kPolicyKey.c_str(), L"n", RRF_RT_REG_DWORD, nullptr, small, &size),
              ERROR_MORE_DATA);
    EXPECT_EQ(size, 4u);
}

// ---- RegGetValueW: strings ----

TEST_F(Advapi32Registry, StringIsReadInTheTwoCallProtocol) {
    const std::wstring path = L"C:\\Program Files\\Quillion\\VexorAgent\\VexorServer.exe";
    setRegistryString(HKEY_LOCAL_MACHINE, kAgentKey, L"VexorServerPath", path);
    const DWORD flags = RRF_RT_REG_SZ | RRF_SUBKEY_WOW6464KEY;
    EXPECT_EQ(flags, 0x10002u);

    DWORD size = kUntouched;
    DWORD type = kUntouched;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kAgentKey.c_str(), L"VexorServerPath", flags, &type, nullptr, &size),
              ERROR_SUCCESS);
    EXPECT_EQ(size, bytesOfText(path));
    EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));

    std::vector<WCHAR> buffer(size / sizeof(WCHAR), L'x');
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kAgentKey.c_str(), L"VexorServerPath", flags, nullptr, buffer.data(),
                           &size),
              ERROR_SUCCESS);
    EXPECT_EQ(size, bytesOfText(path));
    EXPECT_EQ(std::wstring(buffer.data()), path);
    EXPECT_EQ(buffer.back(), L'\0');
}

TEST_F(Advapi32Registry, StringBufferOneCharacterShortIsMoreData) {
    setRegistryString(HKEY_LOCAL_MACHINE, kAgentKey, L"VexorServerPath", L"abc");
    WCHAR buffer[3];
    DWORD size = sizeof buffer;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kAgentKey.c_str(), L"VexorServerPath", RRF_RT_REG_SZ, nullptr,
                           buffer, &size),
              ERROR_MORE_DATA);
    EXPECT_EQ(size, 4 * sizeof(WCHAR));
}

TEST_F(Advapi32Registry, StringStoredWithoutItsNulIsDeliveredTerminated) {
    const WCHAR unterminated[] = {L'a', L'b'};
    HKEY key = createKey(HKEY_LOCAL_MACHINE, kAgentKey);
    EXPECT_EQ(RegSetValueExW(key, L"raw", 0, REG_SZ, reinterpret_cast<const BYTE*>(unterminated),
                             sizeof unterminated),
              ERROR_SUCCESS);

    DWORD stored = 0;
    EXPECT_EQ(RegQueryValueExW(key, L"raw", nullptr, nullptr, nullptr, &stored), ERROR_SUCCESS);
    EXPECT_EQ(stored, 2 * sizeof(WCHAR)) << "RegQueryValueExW answers the data as stored";

    DWORD size = 0;
    EXPECT_EQ(RegGetValueW(key, nullptr, L"raw", RRF_RT_REG_SZ, nullptr, nullptr, &size), ERROR_SUCCESS);
    EXPECT_EQ(size, 3 * sizeof(WCHAR));
    WCHAR buffer[3] = {L'x', L'x', L'x'};
    EXPECT_EQ(RegGetValueW(key, nullptr, L"raw", RRF_RT_REG_SZ, nullptr, buffer, &size), ERROR_SUCCESS);
    EXPECT_EQ(std::wstring(buffer), L"ab");
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
}

TEST_F(Advapi32Registry, StringFilterLeavesOutOtherStringTypes) {
    setRegistryMultiString(HKEY_LOCAL_MACHINE, kAgentKey, L"list", {L"a", L"b"});
    DWORD size = 0;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kAgentKey.c_str(), L"list", RRF_RT_REG_SZ, nullptr, nullptr, &size),
              ERROR_UNSUPPORTED_TYPE);
}

TEST_F(Advapi32Registry, MultiStringIsReadWithBothTerminators) {
    setRegistryMultiString(HKEY_LOCAL_MACHINE, kAgentKey, L"list", {L"one", L"two"});
    DWORD size = 0;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kAgentKey.c_str(), L"list", RRF_RT_REG_MULTI_SZ, nullptr, nullptr,
                           &size),
              ERROR_SUCCESS);
    EXPECT_EQ(size, 9 * sizeof(WCHAR));
    std::vector<WCHAR> buffer(9, L'x');
    DWORD type = 0;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kAgentKey.c_str(), L"list", RRF_RT_REG_MULTI_SZ, &type, buffer.data(),
                           &size),
              ERROR_SUCCESS);
    EXPECT_EQ(type, static_cast<DWORD>(REG_MULTI_SZ));
    EXPECT_EQ(std::wstring(buffer.data(), 9), std::wstring(L"one\0two\0\0", 9));
}

TEST_F(Advapi32Registry, ExpandStringIsExpandedAndReportedAsPlainString) {
    setRegistryExpandString(HKEY_LOCAL_MACHINE, kAgentKey, L"dir", L"%ProgramFiles%\\Quillion\\%Unknown%");
    const std::wstring expanded = L"C:\\Program Files\\Quillion\\%Unknown%";
    DWORD size = 0;
    DWORD type = 0;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kAgentKey.c_str(), L"dir", RRF_RT_REG_SZ, &type, nullptr, &size),
              ERROR_SUCCESS);
    EXPECT_EQ(size, bytesOfText(expanded));
    EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
    std::vector<WCHAR> buffer(size / sizeof(WCHAR));
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kAgentKey.c_str(), L"dir", RRF_RT_REG_SZ, nullptr, buffer.data(),
                           &size),
              ERROR_SUCCESS);
    EXPECT_EQ(std::wstring(buffer.data()), expanded);
}

TEST_F(Advapi32Registry, NoExpandKeepsTheExpandStringAsWritten) {
    const std::wstring raw = L"%SystemRoot%\\system32";
    setRegistryExpandString(HKEY_LOCAL_MACHINE, kAgentKey, L"dir", raw);
    std::vector<WCHAR> buffer(raw.size() + 1);
    DWORD size = static_cast<DWORD>(buffer.size() * sizeof(WCHAR));
    DWORD type = 0;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kAgentKey.c_str(), L"dir", RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND, &type,
                           buffer.data(), &size),
              ERROR_SUCCESS);
    EXPECT_EQ(type, static_cast<DWORD>(REG_EXPAND_SZ));
    EXPECT_EQ(std::wstring(buffer.data()), raw);
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kAgentKey.c_str(), L"dir", RRF_RT_REG_SZ | RRF_NOEXPAND, nullptr,
                           nullptr, &size),
              ERROR_UNSUPPORTED_TYPE);
}

TEST_F(Advapi32Registry, ExpandStringFilterAloneNeedsNoExpand) {
    setRegistryExpandString(HKEY_LOCAL_MACHINE, kAgentKey, L"dir", L"%SystemRoot%");
    DWORD size = 0;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kAgentKey.c_str(), L"dir", RRF_RT_REG_EXPAND_SZ, nullptr, nullptr,
                           &size),
              ERROR_INVALID_PARAMETER);
}

// ---- RegGetValueW: binary, qword and the flags ----

TEST_F(Advapi32Registry, DwordAndQwordFiltersTakeBinaryOfTheirSizeOnly) {
    setRegistryBinary(HKEY_LOCAL_MACHINE, kAgentKey, L"four", {1, 0, 0, 0});
    setRegistryBinary(HKEY_LOCAL_MACHINE, kAgentKey, L"three", {1, 0, 0});
    setRegistryQword(HKEY_LOCAL_MACHINE, kAgentKey, L"q", 0x1122334455667788ull);
    DWORD value = 0;
    DWORD size = sizeof value;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kAgentKey.c_str(), L"four", RRF_RT_DWORD, nullptr, &value, &size),
              ERROR_SUCCESS);
    EXPECT_EQ(value, 1u);
    size = sizeof value;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kAgentKey.c_str(), L"three", RRF_RT_DWORD, nullptr, &value, &size),
              ERROR_DATATYPE_MISMATCH);
    ULONGLONG wide = 0;
    size = sizeof wide;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kAgentKey.c_str(), L"q", RRF_RT_QWORD, nullptr, &wide, &size),
              ERROR_SUCCESS);
    EXPECT_EQ(wide, 0x1122334455667788ull);
    size = sizeof wide;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kAgentKey.c_str(), L"four", RRF_RT_QWORD, nullptr, &wide, &size),
              ERROR_DATATYPE_MISMATCH);
}

TEST_F(Advapi32Registry, ZeroOnFailureClearsTheBuffer) {
    setRegistryString(HKEY_LOCAL_MACHINE, kAgentKey, L"long", L"longer than eight bytes");
    BYTE buffer[8];
    std::memset(buffer, 0xAB, sizeof buffer);
    DWORD size = sizeof buffer;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kAgentKey.c_str(), L"long", RRF_RT_ANY | RRF_ZEROONFAILURE, nullptr,
                           buffer, &size),
              ERROR_MORE_DATA);
    EXPECT_EQ(rawBytes(buffer, sizeof buffer), std::vector<BYTE>(8, 0));

    std::memset(buffer, 0xAB, sizeof buffer);
    size = sizeof buffer;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kAgentKey.c_str(), L"missing", RRF_RT_ANY | RRF_ZEROONFAILURE, nullptr,
                           buffer, &size),
              ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(rawBytes(buffer, sizeof buffer), std::vector<BYTE>(8, 0));

    std::memset(buffer, 0xAB, sizeof buffer);
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kAgentKey.c_str(), L"missing", RRF_RT_ANY, nullptr, buffer, &size),
              ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(rawBytes(buffer, sizeof buffer), std::vector<BYTE>(8, 0xAB)) << "without the flag the buffer stays";
}

TEST_F(Advapi32Registry, InvalidFlagCombinationsAreInvalidParameter) {
    setRegistryDword(HKEY_LOCAL_MACHINE, kAgentKey, L"n", 1);
    DWORD value = 0;
    DWORD size = sizeof value;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kAgentKey.c_str(), L"n",
                           RRF_RT_ANY | RRF_SUBKEY_WOW6464KEY | RRF_SUBKEY_WOW6432KEY, nullptr, &value, &size),
              ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kAgentKey.c_str(), L"n", RRF_NOEXPAND, nullptr, &value, &size),
              ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kAgentKey.c_str(), L"n", RRF_RT_ANY, nullptr, &value, nullptr),
              ERROR_INVALID_PARAMETER);
}

TEST_F(Advapi32Registry, ThirtyTwoBitViewReadsTheOneView) {
    setRegistryDword(HKEY_LOCAL_MACHINE, kAgentKey, L"n", 3);
    DWORD value = 0;
    DWORD size = sizeof value;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kAgentKey.c_str(), L"n", RRF_RT_REG_DWORD | RRF_SUBKEY_WOW6432KEY,
                           nullptr, &value, &size),
              ERROR_SUCCESS);
    EXPECT_EQ(value, 3u);
}

TEST_F(Advapi32Registry, KeyAndValueNamesIgnoreCase) {
    setRegistryDword(HKEY_LOCAL_MACHINE, kPolicyKey, L"Vexor.Remote_Printing_Enabled", 0);
    DWORD value = 9;
    DWORD size = sizeof value;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\POLICIES\\quillion\\VEXOR\\Vexor_Admin",
                           L"vexor.remote_printing_enabled", RRF_RT_ANY, nullptr, &value, &size),
              ERROR_SUCCESS);
    EXPECT_EQ(value, 0u);
}

TEST_F(Advapi32Registry, InjectedFailureIsAnsweredAsTheCode) {
    setRegistryDword(HKEY_LOCAL_MACHINE, kPolicyKey, L"n", 1);
    simhost::Host::get().faults().failCall("RegGetValueW", ERROR_ACCESS_DENIED, 1);
    DWORD value = 0;
    DWORD size = sizeof value;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kPolicyKey.c_str(), L"n", RRF_RT_ANY, nullptr, &value, &size),
              ERROR_ACCESS_DENIED);
    EXPECT_EQ(value, 0u);
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kPolicyKey.c_str(), L"n", RRF_RT_ANY, nullptr, &value, &size),
              ERROR_SUCCESS);
    EXPECT_EQ(value, 1u);
}

// ---- Keys and handles ----

TEST_F(Advapi32Registry, CreateKeyMakesThePathAndTellsTheDisposition) {
    HKEY key = nullptr;
    DWORD disposition = 0;
    EXPECT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\A\\B\\C", 0, nullptr, REG_OPTION_NON_VOLATILE,
                              KEY_ALL_ACCESS, nullptr, &key, &disposition),
              ERROR_SUCCESS);
    EXPECT_EQ(disposition, static_cast<DWORD>(REG_CREATED_NEW_KEY));
    EXPECT_TRUE(registryKeyExists(HKEY_LOCAL_MACHINE, L"SOFTWARE\\A\\B"));
    HKEY again = nullptr;
    EXPECT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"software\\a\\b\\c", 0, nullptr, 0, KEY_READ, nullptr, &again,
                              &disposition),
              ERROR_SUCCESS);
    EXPECT_EQ(disposition, static_cast<DWORD>(REG_OPENED_EXISTING_KEY));
    EXPECT_NE(again, key);
    EXPECT_EQ(openRegistryKeyCount(), 2u);
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(again), ERROR_SUCCESS);
}

TEST_F(Advapi32Registry, KeysCannotBeAddedRightBelowAHive) {
    HKEY key = nullptr;
    EXPECT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"Vexor", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr),
              ERROR_ACCESS_DENIED);
    EXPECT_FALSE(registryKeyExists(HKEY_LOCAL_MACHINE, L"Vexor"));
}

TEST_F(Advapi32Registry, SetAndQueryValueRoundTripWithTheSizeProtocol) {
    HKEY key = createKey(HKEY_LOCAL_MACHINE, kAgentKey);
    const std::wstring text = L"value";
    EXPECT_EQ(RegSetValueExW(key, L"Name", 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()), bytesOfText(text)),
              ERROR_SUCCESS);

    DWORD type = 0;
    DWORD size = 0;
    EXPECT_EQ(RegQueryValueExW(key, L"name", nullptr, &type, nullptr, &size), ERROR_SUCCESS);
    EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
    EXPECT_EQ(size, bytesOfText(text));

    WCHAR small[2];
    size = sizeof small;
    EXPECT_EQ(RegQueryValueExW(key, L"Name", nullptr, &type, reinterpret_cast<BYTE*>(small), &size), ERROR_MORE_DATA);
    EXPECT_EQ(size, bytesOfText(text));

    std::vector<WCHAR> buffer(text.size() + 1);
    size = static_cast<DWORD>(buffer.size() * sizeof(WCHAR));
    EXPECT_EQ(RegQueryValueExW(key, L"Name", nullptr, &type, reinterpret_cast<BYTE*>(buffer.data()), &size),
              ERROR_SUCCESS);
    EXPECT_EQ(std::wstring(buffer.data()), text);
    EXPECT_EQ(registryString(HKEY_LOCAL_MACHINE, kAgentKey, L"Name"), text);

    EXPECT_EQ(RegQueryValueExW(key, L"missing", nullptr, &type, nullptr, &size), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
}

TEST_F(Advapi32Registry, UnnamedValueIsSetAndReadThroughANullName) {
    HKEY key = createKey(HKEY_LOCAL_MACHINE, kAgentKey);
    DWORD number = 42;
    EXPECT_EQ(RegSetValueExW(key, nullptr, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof number),
              ERROR_SUCCESS);
    EXPECT_EQ(registryDword(HKEY_LOCAL_MACHINE, kAgentKey, L""), 42u);
    DWORD read = 0;
    DWORD size = sizeof read;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kAgentKey.c_str(), L"", RRF_RT_REG_DWORD, nullptr, &read, &size),
              ERROR_SUCCESS);
    EXPECT_EQ(read, 42u);
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
}

TEST_F(Advapi32Registry, OpenMissingKeyIsFileNotFound) {
    HKEY key = reinterpret_cast<HKEY>(static_cast<uintptr_t>(kUntouched));
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Nowhere", 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
}

TEST_F(Advapi32Registry, NullSubkeyOnAPredefinedKeyAnswersThatKey) {
    HKEY key = nullptr;
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, nullptr, 0, KEY_READ, &key), ERROR_SUCCESS);
    EXPECT_EQ(key, HKEY_LOCAL_MACHINE);
    EXPECT_EQ(RegCloseKey(HKEY_LOCAL_MACHINE), ERROR_SUCCESS);
}

TEST_F(Advapi32Registry, ClosedOrUnknownHandleIsInvalidHandle) {
    HKEY key = createKey(HKEY_LOCAL_MACHINE, kAgentKey);
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(key), ERROR_INVALID_HANDLE);
    DWORD size = 0;
    EXPECT_EQ(RegQueryValueExW(key, L"x", nullptr, nullptr, nullptr, &size), ERROR_INVALID_HANDLE);
    EXPECT_EQ(RegGetValueW(key, nullptr, L"x", RRF_RT_ANY, nullptr, nullptr, &size), ERROR_INVALID_HANDLE);
}

TEST_F(Advapi32Registry, HandleRightsDecideValueAccess) {
    createRegistryKey(HKEY_LOCAL_MACHINE, kAgentKey);
    setRegistryDword(HKEY_LOCAL_MACHINE, kAgentKey, L"n", 1);
    DWORD number = 2;
    DWORD size = sizeof number;

    HKEY reader = openKey(HKEY_LOCAL_MACHINE, kAgentKey, KEY_READ);
    EXPECT_EQ(RegSetValueExW(reader, L"n", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof number),
              ERROR_ACCESS_DENIED);
    EXPECT_EQ(RegDeleteValueW(reader, L"n"), ERROR_ACCESS_DENIED);
    EXPECT_EQ(RegQueryValueExW(reader, L"n", nullptr, nullptr, nullptr, &size), ERROR_SUCCESS);

    HKEY writer = openKey(HKEY_LOCAL_MACHINE, kAgentKey, KEY_WRITE);
    EXPECT_EQ(RegQueryValueExW(writer, L"n", nullptr, nullptr, nullptr, &size), ERROR_ACCESS_DENIED);
    EXPECT_EQ(RegGetValueW(writer, nullptr, L"n", RRF_RT_ANY, nullptr, nullptr, &size), ERROR_ACCESS_DENIED);
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kAgentKey.c_str(), L"n", RRF_RT_ANY, nullptr, nullptr, &size),
              ERROR_SUCCESS);
    EXPECT_EQ(RegSetValueExW(writer, L"n", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof number),
              ERROR_SUCCESS);
    EXPECT_EQ(registryDword(HKEY_LOCAL_MACHINE, kAgentKey, L"n"), 2u);

    HKEY generic = openKey(HKEY_LOCAL_MACHINE, kAgentKey, GENERIC_READ);
    EXPECT_EQ(RegQueryValueExW(generic, L"n", nullptr, nullptr, nullptr, &size), ERROR_SUCCESS);

    EXPECT_EQ(RegCloseKey(reader), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(writer), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(generic), ERROR_SUCCESS);
}

TEST_F(Advapi32Registry, DeleteValueThenItIsGone) {
    setRegistryDword(HKEY_LOCAL_MACHINE, kAgentKey, L"n", 1);
    HKEY key = openKey(HKEY_LOCAL_MACHINE, kAgentKey, KEY_ALL_ACCESS);
    EXPECT_EQ(RegDeleteValueW(key, L"N"), ERROR_SUCCESS);
    EXPECT_EQ(RegDeleteValueW(key, L"N"), ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(registryValue(HKEY_LOCAL_MACHINE, kAgentKey, L"n").has_value());
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
}

TEST_F(Advapi32Registry, DeleteKeyRefusesSubkeysAndMissingKeys) {
    createRegistryKey(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Quillion\\VexorAgent\\Child");
    EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, kAgentKey.c_str()), ERROR_ACCESS_DENIED);
    EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Quillion\\Missing"), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Quillion\\VexorAgent\\child"), ERROR_SUCCESS);
    EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, kAgentKey.c_str()), ERROR_SUCCESS);
    EXPECT_FALSE(registryKeyExists(HKEY_LOCAL_MACHINE, kAgentKey));
    EXPECT_TRUE(registryKeyExists(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Quillion"));
}

TEST_F(Advapi32Registry, HandleOfADeletedKeyAnswersKeyDeleted) {
    setRegistryDword(HKEY_LOCAL_MACHINE, kAgentKey, L"n", 1);
    HKEY key = openKey(HKEY_LOCAL_MACHINE, kAgentKey, KEY_ALL_ACCESS);
    EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, kAgentKey.c_str()), ERROR_SUCCESS);
    DWORD size = 0;
    EXPECT_EQ(RegQueryValueExW(key, L"n", nullptr, nullptr, nullptr, &size), ERROR_KEY_DELETED);
    DWORD number = 1;
    EXPECT_EQ(RegSetValueExW(key, L"n", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof number),
              ERROR_KEY_DELETED);
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
    HKEY recreated = createKey(HKEY_LOCAL_MACHINE, kAgentKey);
    EXPECT_FALSE(registryValue(HKEY_LOCAL_MACHINE, kAgentKey, L"n").has_value());
    EXPECT_EQ(RegCloseKey(recreated), ERROR_SUCCESS);
}

TEST_F(Advapi32Registry, CurrentUserAndClassesRootAreViewsOfTheirHives) {
    setRegistryDword(HKEY_CURRENT_USER, L"Printers\\Defaults", L"n", 1);
    EXPECT_EQ(registryDword(HKEY_USERS, L"S-1-5-18\\Printers\\Defaults", L"n"), 1u);
    setRegistryString(HKEY_CLASSES_ROOT, L".vx", L"", L"VexorFile");
    EXPECT_EQ(registryString(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Classes\\.vx", L""), L"VexorFile");
    DWORD size = 0;
    EXPECT_EQ(RegGetValueW(HKEY_CURRENT_USER, L"Printers\\Defaults", L"n", RRF_RT_REG_DWORD, nullptr, nullptr, &size),
              ERROR_SUCCESS);
    EXPECT_EQ(size, 4u);
}

// ---- The host's registry API ----

TEST_F(Advapi32Registry, TypedReadsAnswerOnlyTheirType) {
    setRegistryMultiString(HKEY_LOCAL_MACHINE, kAgentKey, L"list", {L"a", L"bc"});
    setRegistryDword(HKEY_LOCAL_MACHINE, kAgentKey, L"n", 7);
    EXPECT_EQ(registryMultiString(HKEY_LOCAL_MACHINE, kAgentKey, L"list"), (std::vector<std::wstring>{L"a", L"bc"}));
    EXPECT_FALSE(registryString(HKEY_LOCAL_MACHINE, kAgentKey, L"n").has_value());
    EXPECT_FALSE(registryDword(HKEY_LOCAL_MACHINE, kAgentKey, L"list").has_value());
    auto raw = registryValue(HKEY_LOCAL_MACHINE, kAgentKey, L"list");
    ASSERT_TRUE(raw.has_value());
    EXPECT_EQ(raw->type, static_cast<DWORD>(REG_MULTI_SZ));
    EXPECT_EQ(raw->data, multiStringValueData({L"a", L"bc"}));
    EXPECT_EQ(raw->data.size(), 6 * sizeof(WCHAR));
}

TEST_F(Advapi32Registry, DeleteTreeRemovesSubkeys) {
    setRegistryDword(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Quillion\\VexorAgent\\Deep\\Deeper", L"n", 1);
    EXPECT_TRUE(deleteRegistryTree(HKEY_LOCAL_MACHINE, kAgentKey));
    EXPECT_FALSE(registryKeyExists(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Quillion\\VexorAgent\\Deep"));
    EXPECT_FALSE(deleteRegistryTree(HKEY_LOCAL_MACHINE, kAgentKey));
    EXPECT_FALSE(deleteRegistryValue(HKEY_LOCAL_MACHINE, L"SOFTWARE", L"x"));
}

TEST_F(Advapi32Registry, DumpListsEveryKeyParentsFirstInNameOrder) {
    setRegistryDword(HKEY_LOCAL_MACHINE, L"SOFTWARE\\zeta", L"z", 1);
    setRegistryString(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Alpha", L"second", L"2");
    setRegistryString(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Alpha", L"first", L"1");
    std::vector<RegistryKeyEntry> dump = dumpRegistry();
    std::vector<std::wstring> paths;
    for (const RegistryKeyEntry& key : dump) paths.push_back(key.path);
    EXPECT_EQ(paths, (std::vector<std::wstring>{
                         L"HKEY_LOCAL_MACHINE",
                         L"HKEY_LOCAL_MACHINE\\SOFTWARE",
                         L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Alpha",
                         L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Classes",
                         L"HKEY_LOCAL_MACHINE\\SOFTWARE\\zeta",
                         L"HKEY_LOCAL_MACHINE\\SYSTEM",
                         L"HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet",
                         L"HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services",
                         L"HKEY_USERS",
                         L"HKEY_USERS\\.DEFAULT",
                         L"HKEY_USERS\\S-1-5-18",
                     }));
    const RegistryKeyEntry& alpha = dump[2];
    ASSERT_EQ(alpha.values.size(), 2u);
    EXPECT_EQ(alpha.values[0].name, L"second");
    EXPECT_EQ(alpha.values[0].type, static_cast<DWORD>(REG_SZ));
    EXPECT_EQ(alpha.values[0].data, stringValueData(L"2"));
    EXPECT_EQ(alpha.values[1].name, L"first");
}

TEST_F(Advapi32Registry, RootsAreKnownByTheirNames) {
    EXPECT_EQ(predefinedKeyNamed(L"HKEY_LOCAL_MACHINE"), HKEY_LOCAL_MACHINE);
    EXPECT_EQ(predefinedKeyNamed(L"hklm"), HKEY_LOCAL_MACHINE);
    EXPECT_EQ(predefinedKeyNamed(L"HKCU"), HKEY_CURRENT_USER);
    EXPECT_EQ(predefinedKeyNamed(L"HKEY_USERS"), HKEY_USERS);
    EXPECT_EQ(predefinedKeyNamed(L"HKCR"), HKEY_CLASSES_ROOT);
    EXPECT_FALSE(predefinedKeyNamed(L"HKEY_CURRENT_CONFIG").has_value());
}

TEST_F(Advapi32Registry, HostApiRefusesARootThatIsNotPredefined) {
    HKEY notARoot = reinterpret_cast<HKEY>(static_cast<uintptr_t>(0x1234));
    EXPECT_THROW(setRegistryDword(notARoot, L"A", L"n", 1), std::invalid_argument);
    EXPECT_THROW(registryKeyExists(notARoot, L"A"), std::invalid_argument);
}

}  // namespace
