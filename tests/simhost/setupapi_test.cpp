// The device tree of the simulated setupapi: device information sets, the
// two-call property protocol, removal of device nodes and injected failures.
#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/setupapi/device_tree.h"
#include "simhost/setupapi/setupapi.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

using simhost::setupapi::Device;

namespace {

constexpr DWORD kPresentAllClasses = DIGCF_PRESENT | DIGCF_ALLCLASSES;
constexpr DWORD kUntouched = 0xDEADBEEF;

// {6BDD1FC6-810F-11D0-BEC7-08002BE2092F}, a class the host has no name for.
const GUID kOtherClass = {0x6BDD1FC6, 0x810F, 0x11D0, {0xBE, 0xC7, 0x08, 0x00, 0x2B, 0xE2, 0x09, 0x2F}};

Device printQueue(const std::wstring& instanceId, const std::wstring& description,
                  std::vector<std::wstring> hardwareIds = {}) {
    Device device{instanceId, GUID_DEVCLASS_PRINTQUEUE};
    device.setString(SPDRP_DEVICEDESC, description);
    if (!hardwareIds.empty()) device.setMultiString(SPDRP_HARDWAREID, std::move(hardwareIds));
    return device;
}

SP_DEVINFO_DATA emptyRecord() {
    SP_DEVINFO_DATA data;
    std::memset(&data, 0, sizeof data);
    data.cbSize = sizeof(SP_DEVINFO_DATA);
    return data;
}

SP_DEVINFO_DATA element(HDEVINFO set, DWORD index) {
    SP_DEVINFO_DATA data = emptyRecord();
    EXPECT_TRUE(SetupDiEnumDeviceInfo(set, index, &data)) << "element " << index;
    return data;
}

std::vector<DWORD> devInstsOf(HDEVINFO set) {
    std::vector<DWORD> found;
    SP_DEVINFO_DATA data = emptyRecord();
    for (DWORD index = 0; SetupDiEnumDeviceInfo(set, index, &data); ++index) found.push_back(data.DevInst);
    return found;
}

// The raw property, read in the two-call protocol.
std::vector<WCHAR> readRaw(HDEVINFO set, SP_DEVINFO_DATA& data, DWORD property, DWORD* type = nullptr) {
    DWORD required = 0;
    EXPECT_FALSE(SetupDiGetDeviceRegistryPropertyW(set, &data, property, nullptr, nullptr, 0, &required));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    std::vector<WCHAR> buffer(required / sizeof(WCHAR));
    EXPECT_TRUE(SetupDiGetDeviceRegistryPropertyW(set, &data, property, type, reinterpret_cast<PBYTE>(buffer.data()),
                                                  required, nullptr));
    return buffer;
}

class SetupApi : public ::testing::Test {
protected:
    void SetUp() override { simhost::Host::get().reset(); }
    void TearDown() override { simhost::Host::get().reset(); }
};

// ---- The tree's own API ----

TEST_F(SetupApi, AddDeviceGivesDistinctNonZeroHandlesAndListsInOrder) {
    DWORD first = simhost::setupapi::addDevice(printQueue(L"SWD\\PRINTENUM\\A", L"First"));
    DWORD second = simhost::setupapi::addDevice(Device{L"ROOT\\OTHER\\0000", kOtherClass, false});
    EXPECT_NE(first, 0u);
    EXPECT_NE(second, 0u);
    EXPECT_NE(first, second);

    std::vector<Device> listed = simhost::setupapi::devices();
    ASSERT_EQ(listed.size(), 2u);
    EXPECT_EQ(listed[0].instanceId, L"SWD\\PRINTENUM\\A");
    EXPECT_EQ(listed[0].devInst, first);
    EXPECT_TRUE(listed[0].present);
    EXPECT_EQ(listed[0].properties.at(SPDRP_DEVICEDESC).strings, std::vector<std::wstring>{L"First"});
    EXPECT_EQ(listed[1].instanceId, L"ROOT\\OTHER\\0000");
    EXPECT_FALSE(listed[1].present);
    EXPECT_TRUE(listed[1].classGuid == kOtherClass);
}

TEST_F(SetupApi, InstanceIdsAreUniqueRegardlessOfCase) {
    simhost::setupapi::addDevice(Device{L"ROOT\\PRINTER\\0000"});
    EXPECT_THROW(simhost::setupapi::addDevice(Device{L"root\\printer\\0000"}), std::invalid_argument);
    EXPECT_THROW(simhost::setupapi::addDevice(Device{L""}), std::invalid_argument);
    EXPECT_EQ(simhost::setupapi::devices().size(), 1u);
    EXPECT_TRUE(simhost::setupapi::deviceExists(L"Root\\Printer\\0000"));
    EXPECT_FALSE(simhost::setupapi::deviceExists(L"ROOT\\PRINTER\\0001"));
}

TEST_F(SetupApi, ResetEmptiesTheTree) {
    simhost::setupapi::addDevice(Device{L"ROOT\\PRINTER\\0000"});
    simhost::Host::get().reset();
    EXPECT_TRUE(simhost::setupapi::devices().empty());
    EXPECT_FALSE(simhost::setupapi::deviceExists(L"ROOT\\PRINTER\\0000"));
}

// ---- SetupDiGetClassDevsW and SetupDiEnumDeviceInfo ----

TEST_F(SetupApi, PresentFlagLeavesOutPhantoms) {
    DWORD present1 = simhost::setupapi::addDevice(Device{L"ROOT\\A\\0", GUID_DEVCLASS_PRINTER});
    DWORD phantom = simhost::setupapi::addDevice(Device{L"ROOT\\B\\0", GUID_DEVCLASS_PRINTER, false});
    DWORD present2 = simhost::setupapi::addDevice(Device{L"SWD\\C\\0", kOtherClass});

    HDEVINFO present = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);
    ASSERT_NE(present, INVALID_HANDLE_VALUE);
    EXPECT_EQ(devInstsOf(present), (std::vector<DWORD>{present1, present2}));

    HDEVINFO all = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES);
    ASSERT_NE(all, INVALID_HANDLE_VALUE);
    EXPECT_EQ(devInstsOf(all), (std::vector<DWORD>{present1, phantom, present2}));

    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(present));
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(all));
}

TEST_F(SetupApi, ClassGuidSelectsOneClassUnlessAllClassesIsSet) {
    DWORD printer = simhost::setupapi::addDevice(Device{L"ROOT\\A\\0", GUID_DEVCLASS_PRINTER});
    DWORD other = simhost::setupapi::addDevice(Device{L"ROOT\\B\\0", kOtherClass});

    HDEVINFO printers = SetupDiGetClassDevsW(&GUID_DEVCLASS_PRINTER, nullptr, nullptr, DIGCF_PRESENT);
    EXPECT_EQ(devInstsOf(printers), std::vector<DWORD>{printer});
    HDEVINFO ignoringClass = SetupDiGetClassDevsW(&GUID_DEVCLASS_PRINTER, nullptr, nullptr, kPresentAllClasses);
    EXPECT_EQ(devInstsOf(ignoringClass), (std::vector<DWORD>{printer, other}));
    HDEVINFO queues = SetupDiGetClassDevsW(&GUID_DEVCLASS_PRINTQUEUE, nullptr, nullptr, DIGCF_PRESENT);
    EXPECT_TRUE(devInstsOf(queues).empty());

    for (HDEVINFO set : {printers, ignoringClass, queues}) EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
}

TEST_F(SetupApi, EnumeratorSelectsDevicesRegardlessOfCase) {
    simhost::setupapi::addDevice(Device{L"ROOT\\A\\0", GUID_DEVCLASS_PRINTER});
    DWORD software = simhost::setupapi::addDevice(Device{L"SWD\\PRINTENUM\\1", GUID_DEVCLASS_PRINTQUEUE});

    HDEVINFO set = SetupDiGetClassDevsW(nullptr, L"swd", nullptr, kPresentAllClasses);
    EXPECT_EQ(devInstsOf(set), std::vector<DWORD>{software});
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
}

TEST_F(SetupApi, DeviceInterfaceSetsAreEmptySinceNoDeviceExposesAnInterface) {
    simhost::setupapi::addDevice(Device{L"ROOT\\A\\0", GUID_DEVCLASS_PRINTER});
    HDEVINFO set = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, DIGCF_DEVICEINTERFACE | kPresentAllClasses);
    ASSERT_NE(set, INVALID_HANDLE_VALUE);
    SP_DEVINFO_DATA data = emptyRecord();
    EXPECT_FALSE(SetupDiEnumDeviceInfo(set, 0, &data));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_ITEMS));
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
}

TEST_F(SetupApi, ClassDevsWithoutClassNorAllClassesIsAnInvalidParameter) {
    SetLastError(0);
    EXPECT_EQ(SetupDiGetClassDevsW(nullptr, nullptr, nullptr, DIGCF_PRESENT), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(simhost::setupapi::openDeviceInfoSetCount(), 0u);
}

TEST_F(SetupApi, ClassDevsRefusesUnknownFlags) {
    EXPECT_EQ(SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses | 0x20), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_FLAGS));
}

TEST_F(SetupApi, SetHandlesAreDistinctValidValues) {
    HDEVINFO first = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);
    HDEVINFO second = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);
    for (HDEVINFO set : {first, second}) {
        EXPECT_NE(set, nullptr);
        EXPECT_NE(set, INVALID_HANDLE_VALUE);
    }
    EXPECT_NE(first, second);
    EXPECT_EQ(simhost::setupapi::openDeviceInfoSetCount(), 2u);
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(first));
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(second));
    EXPECT_EQ(simhost::setupapi::openDeviceInfoSetCount(), 0u);
}

TEST_F(SetupApi, EnumFillsClassAndNodeAndEndsWithNoMoreItems) {
    DWORD devInst = simhost::setupapi::addDevice(Device{L"ROOT\\A\\0", GUID_DEVCLASS_PRINTER});
    HDEVINFO set = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);

    SP_DEVINFO_DATA data = emptyRecord();
    ASSERT_TRUE(SetupDiEnumDeviceInfo(set, 0, &data));
    EXPECT_EQ(data.cbSize, 32u);
    EXPECT_TRUE(data.ClassGuid == GUID_DEVCLASS_PRINTER);
    EXPECT_EQ(data.DevInst, devInst);
    EXPECT_NE(data.Reserved, 0u);

    SP_DEVINFO_DATA past = emptyRecord();
    EXPECT_FALSE(SetupDiEnumDeviceInfo(set, 1, &past));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_ITEMS));
    EXPECT_FALSE(SetupDiEnumDeviceInfo(set, 1000, &past));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_ITEMS));
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
}

TEST_F(SetupApi, EnumChecksTheOutputRecord) {
    simhost::setupapi::addDevice(Device{L"ROOT\\A\\0", GUID_DEVCLASS_PRINTER});
    HDEVINFO set = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);

    SP_DEVINFO_DATA data = emptyRecord();
    data.cbSize = 28;
    EXPECT_FALSE(SetupDiEnumDeviceInfo(set, 0, &data));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_USER_BUFFER));
    EXPECT_EQ(data.DevInst, 0u);
    EXPECT_FALSE(SetupDiEnumDeviceInfo(set, 0, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
}

TEST_F(SetupApi, SetIsASnapshotOfTheTree) {
    DWORD before = simhost::setupapi::addDevice(Device{L"ROOT\\A\\0", GUID_DEVCLASS_PRINTER});
    HDEVINFO set = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);
    simhost::setupapi::addDevice(Device{L"ROOT\\B\\0", GUID_DEVCLASS_PRINTER});
    EXPECT_EQ(devInstsOf(set), std::vector<DWORD>{before});
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
}

// ---- SetupDiGetDeviceRegistryPropertyW ----

TEST_F(SetupApi, SizeQueryFailsWithInsufficientBufferAndTheSizeInBytes) {
    simhost::setupapi::addDevice(printQueue(L"SWD\\PRINTENUM\\A", L"dorvan description"));
    HDEVINFO set = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);
    SP_DEVINFO_DATA data = element(set, 0);

    DWORD type = kUntouched;
    DWORD required = kUntouched;
    SetLastError(0);
    EXPECT_FALSE(SetupDiGetDeviceRegistryPropertyW(set, &data, SPDRP_DEVICEDESC, &type, nullptr, 0, &required));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(required, 19 * sizeof(WCHAR));
    EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
}

TEST_F(SetupApi, TooSmallBufferIsLeftAloneAndTheSizeIsReported) {
    simhost::setupapi::addDevice(printQueue(L"SWD\\PRINTENUM\\A", L"dorvan description"));
    HDEVINFO set = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);
    SP_DEVINFO_DATA data = element(set, 0);

    std::vector<WCHAR> buffer(18, L'x');  // one character short: no room for the NUL
    DWORD required = kUntouched;
    EXPECT_FALSE(SetupDiGetDeviceRegistryPropertyW(set, &data, SPDRP_DEVICEDESC, nullptr,
                                                   reinterpret_cast<PBYTE>(buffer.data()),
                                                   static_cast<DWORD>(buffer.size() * sizeof(WCHAR)), &required));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(required, 19 * sizeof(WCHAR));
    EXPECT_EQ(buffer, std::vector<WCHAR>(18, L'x'));
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
}

TEST_F(SetupApi, LargeBufferReceivesTheStringWithItsNul) {
    simhost::setupapi::addDevice(printQueue(L"SWD\\PRINTENUM\\A", L"Quillion Client Render XPS"));
    HDEVINFO set = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);
    SP_DEVINFO_DATA data = element(set, 0);

    std::vector<BYTE> buffer(2048, 0xAB);
    DWORD type = kUntouched;
    DWORD required = kUntouched;
    ASSERT_TRUE(SetupDiGetDeviceRegistryPropertyW(set, &data, SPDRP_DEVICEDESC, &type, buffer.data(),
                                                  static_cast<DWORD>(buffer.size()), &required));
    EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
    EXPECT_EQ(required, 27 * sizeof(WCHAR));
    const WCHAR* text = reinterpret_cast<const WCHAR*>(buffer.data());
    EXPECT_EQ(std::wstring(text), L"Quillion Client Render XPS");
    EXPECT_EQ(buffer[required], 0xAB);  // nothing written past the property
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
}

TEST_F(SetupApi, HardwareIdsAreAMultiStringWithDoubleNul) {
    simhost::setupapi::addDevice(printQueue(L"SWD\\PRINTENUM\\A", L"Printer", {L"USBPRINT\\AcmeLaser", L"AcmeLaser"}));
    HDEVINFO set = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);
    SP_DEVINFO_DATA data = element(set, 0);

    DWORD type = kUntouched;
    std::vector<WCHAR> raw = readRaw(set, data, SPDRP_HARDWAREID, &type);
    std::wstring expected(L"USBPRINT\\AcmeLaser\0AcmeLaser\0\0", 30);
    EXPECT_EQ(std::wstring(raw.begin(), raw.end()), expected);
    EXPECT_EQ(type, static_cast<DWORD>(REG_MULTI_SZ));
    // Read as one wide string, a multi-string gives its first string.
    EXPECT_EQ(std::wstring(raw.data()), L"USBPRINT\\AcmeLaser");
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
}

TEST_F(SetupApi, MissingPropertyFailsWithInvalidData) {
    simhost::setupapi::addDevice(printQueue(L"SWD\\PRINTENUM\\A", L"dorvan description"));
    HDEVINFO set = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);
    SP_DEVINFO_DATA data = element(set, 0);

    std::vector<BYTE> buffer(2048, 0);
    DWORD required = kUntouched;
    DWORD type = kUntouched;
    for (DWORD property : {SPDRP_HARDWAREID, SPDRP_FRIENDLYNAME, SPDRP_COMPATIBLEIDS}) {
        EXPECT_FALSE(SetupDiGetDeviceRegistryPropertyW(set, &data, property, &type, buffer.data(),
                                                       static_cast<DWORD>(buffer.size()), &required));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_DATA)) << property;
        EXPECT_FALSE(SetupDiGetDeviceRegistryPropertyW(set, &data, property, nullptr, nullptr, 0, &required));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_DATA)) << property;
    }
    EXPECT_EQ(required, kUntouched);
    EXPECT_EQ(type, kUntouched);
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
}

TEST_F(SetupApi, ClassEnumeratorAndClassGuidAreDerivedFromTheNode) {
    simhost::setupapi::addDevice(Device{L"ROOT\\PRINTER\\0000", GUID_DEVCLASS_PRINTER});
    simhost::setupapi::addDevice(Device{L"SWD\\PRINTENUM\\1", GUID_DEVCLASS_PRINTQUEUE});
    simhost::setupapi::addDevice(Device{L"ROOT\\UNKNOWN\\0000"});
    HDEVINFO set = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);

    SP_DEVINFO_DATA printer = element(set, 0);
    EXPECT_EQ(std::wstring(readRaw(set, printer, SPDRP_CLASSGUID).data()), L"{4d36e979-e325-11ce-bfc1-08002be10318}");
    EXPECT_EQ(std::wstring(readRaw(set, printer, SPDRP_CLASS).data()), L"Printer");
    EXPECT_EQ(std::wstring(readRaw(set, printer, SPDRP_ENUMERATOR_NAME).data()), L"ROOT");

    SP_DEVINFO_DATA queue = element(set, 1);
    EXPECT_EQ(std::wstring(readRaw(set, queue, SPDRP_CLASSGUID).data()), L"{1ed2bbf9-11f0-4084-b21f-ad83a8e6dcdc}");
    EXPECT_EQ(std::wstring(readRaw(set, queue, SPDRP_CLASS).data()), L"PrintQueue");
    EXPECT_EQ(std::wstring(readRaw(set, queue, SPDRP_ENUMERATOR_NAME).data()), L"SWD");

    SP_DEVINFO_DATA classless = element(set, 2);
    DWORD required = 0;
    for (DWORD property : {SPDRP_CLASSGUID, SPDRP_CLASS}) {
        EXPECT_FALSE(SetupDiGetDeviceRegistryPropertyW(set, &classless, property, nullptr, nullptr, 0, &required));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_DATA)) << property;
    }
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
}

TEST_F(SetupApi, ExplicitPropertiesWinOverDerivedOnes) {
    Device device{L"ROOT\\PRINTER\\0000", GUID_DEVCLASS_PRINTER};
    device.setString(SPDRP_CLASS, L"Custom").setString(SPDRP_FRIENDLYNAME, L"Front desk");
    simhost::setupapi::addDevice(device);
    HDEVINFO set = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);
    SP_DEVINFO_DATA data = element(set, 0);
    EXPECT_EQ(std::wstring(readRaw(set, data, SPDRP_CLASS).data()), L"Custom");
    EXPECT_EQ(std::wstring(readRaw(set, data, SPDRP_FRIENDLYNAME).data()), L"Front desk");
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
}

TEST_F(SetupApi, PropertyReadChecksItsArguments) {
    simhost::setupapi::addDevice(printQueue(L"SWD\\PRINTENUM\\A", L"Printer"));
    HDEVINFO set = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);
    HDEVINFO other = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);
    SP_DEVINFO_DATA data = element(set, 0);
    BYTE buffer[64];
    DWORD required = 0;

    EXPECT_FALSE(SetupDiGetDeviceRegistryPropertyW(set, &data, SPDRP_MAXIMUM_PROPERTY, nullptr, buffer,
                                                   sizeof buffer, &required));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_REG_PROPERTY));
    EXPECT_FALSE(SetupDiGetDeviceRegistryPropertyW(set, &data, SPDRP_DEVICEDESC, nullptr, nullptr, 64, &required));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_USER_BUFFER));

    SP_DEVINFO_DATA wrongSize = data;
    wrongSize.cbSize = 28;
    EXPECT_FALSE(SetupDiGetDeviceRegistryPropertyW(set, &wrongSize, SPDRP_DEVICEDESC, nullptr, buffer, sizeof buffer,
                                                   &required));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_FALSE(
        SetupDiGetDeviceRegistryPropertyW(set, nullptr, SPDRP_DEVICEDESC, nullptr, buffer, sizeof buffer, &required));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    // An element of another set, even of the same node, is not in this one.
    EXPECT_FALSE(SetupDiGetDeviceRegistryPropertyW(other, &data, SPDRP_DEVICEDESC, nullptr, buffer, sizeof buffer,
                                                   &required));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));

    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
    EXPECT_FALSE(SetupDiGetDeviceRegistryPropertyW(set, &data, SPDRP_DEVICEDESC, nullptr, buffer, sizeof buffer,
                                                   &required));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(other));
}

// ---- SetupDiRemoveDevice ----

TEST_F(SetupApi, RemoveTakesTheNodeOutOfTheTreeButNotOutOfTheSet) {
    simhost::setupapi::addDevice(printQueue(L"SWD\\PRINTENUM\\A", L"dorvan description"));
    DWORD kept = simhost::setupapi::addDevice(printQueue(L"SWD\\PRINTENUM\\B", L"Other", {L"ID"}));
    HDEVINFO set = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);
    SP_DEVINFO_DATA data = element(set, 0);

    ASSERT_TRUE(SetupDiRemoveDevice(set, &data));
    EXPECT_EQ(data.DevInst, 0u);
    EXPECT_FALSE(simhost::setupapi::deviceExists(L"SWD\\PRINTENUM\\A"));
    EXPECT_TRUE(simhost::setupapi::deviceExists(L"SWD\\PRINTENUM\\B"));

    // The set keeps its element, so the next index still names the next node.
    EXPECT_EQ(devInstsOf(set), (std::vector<DWORD>{0u, kept}));

    DWORD required = 0;
    EXPECT_FALSE(SetupDiGetDeviceRegistryPropertyW(set, &data, SPDRP_DEVICEDESC, nullptr, nullptr, 0, &required));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_SUCH_DEVINST));
    EXPECT_FALSE(SetupDiRemoveDevice(set, &data));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_SUCH_DEVINST));
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
}

TEST_F(SetupApi, RemovalDuringEnumerationReachesEveryElementInOrder) {
    for (const wchar_t* id : {L"SWD\\PRINTENUM\\1", L"SWD\\PRINTENUM\\2", L"SWD\\PRINTENUM\\3"})
        simhost::setupapi::addDevice(printQueue(id, L"Quillion Client Render XPS"));
    simhost::setupapi::addDevice(printQueue(L"SWD\\PRINTENUM\\4", L"Quillion Client Render XPS", {L"IN\\USE"}));

    HDEVINFO set = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);
    HDEVINFO earlier = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);
    DWORD index = 0;
    DWORD removed = 0;
    SP_DEVINFO_DATA data = emptyRecord();
    while (SetupDiEnumDeviceInfo(set, index, &data)) {
        DWORD required = 0;
        if (!SetupDiGetDeviceRegistryPropertyW(set, &data, SPDRP_HARDWAREID, nullptr, nullptr, 0, &required) &&
            GetLastError() == static_cast<DWORD>(ERROR_INVALID_DATA)) {
            EXPECT_TRUE(SetupDiRemoveDevice(set, &data));
            ++removed;
        }
        ++index;
        data = emptyRecord();
    }
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_ITEMS));
    EXPECT_EQ(index, 4u);
    EXPECT_EQ(removed, 3u);

    std::vector<Device> left = simhost::setupapi::devices();
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(left[0].instanceId, L"SWD\\PRINTENUM\\4");
    // Another set made before the removals still holds all four elements.
    EXPECT_EQ(devInstsOf(earlier).size(), 4u);
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(earlier));
}

TEST_F(SetupApi, NodeRemovedThroughAnotherSetIsGoneForThisOne) {
    simhost::setupapi::addDevice(printQueue(L"SWD\\PRINTENUM\\A", L"Printer"));
    HDEVINFO first = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);
    HDEVINFO second = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);
    SP_DEVINFO_DATA inFirst = element(first, 0);
    SP_DEVINFO_DATA inSecond = element(second, 0);

    ASSERT_TRUE(SetupDiRemoveDevice(first, &inFirst));
    EXPECT_FALSE(SetupDiRemoveDevice(second, &inSecond));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_SUCH_DEVINST));
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(first));
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(second));
}

TEST_F(SetupApi, RemoveChecksItsArguments) {
    simhost::setupapi::addDevice(printQueue(L"SWD\\PRINTENUM\\A", L"Printer"));
    HDEVINFO set = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);
    SP_DEVINFO_DATA data = element(set, 0);

    SP_DEVINFO_DATA wrongSize = data;
    wrongSize.cbSize = 0;
    EXPECT_FALSE(SetupDiRemoveDevice(set, &wrongSize));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    SP_DEVINFO_DATA unknown = data;
    unknown.Reserved = 0;
    EXPECT_FALSE(SetupDiRemoveDevice(set, &unknown));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_FALSE(SetupDiRemoveDevice(INVALID_HANDLE_VALUE, &data));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_TRUE(simhost::setupapi::deviceExists(L"SWD\\PRINTENUM\\A"));
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
}

// ---- SetupDiDestroyDeviceInfoList ----

TEST_F(SetupApi, ClosedOrUnknownSetIsAnInvalidHandle) {
    HDEVINFO set = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);
    ASSERT_TRUE(SetupDiDestroyDeviceInfoList(set));
    EXPECT_FALSE(SetupDiDestroyDeviceInfoList(set));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    for (HDEVINFO never : {static_cast<HDEVINFO>(nullptr), static_cast<HDEVINFO>(INVALID_HANDLE_VALUE)}) {
        SetLastError(0);
        EXPECT_FALSE(SetupDiDestroyDeviceInfoList(never));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    }
    SP_DEVINFO_DATA data = emptyRecord();
    EXPECT_FALSE(SetupDiEnumDeviceInfo(set, 0, &data));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

TEST_F(SetupApi, SetOfAnEarlierMachineIsRefusedAfterReset) {
    HDEVINFO set = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);
    simhost::Host::get().reset();
    EXPECT_FALSE(SetupDiDestroyDeviceInfoList(set));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

// ---- Last error and injected failures ----

TEST_F(SetupApi, SuccessLeavesTheLastErrorAlone) {
    simhost::setupapi::addDevice(printQueue(L"SWD\\PRINTENUM\\A", L"Printer"));
    SetLastError(1234);
    HDEVINFO set = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);
    SP_DEVINFO_DATA data = emptyRecord();
    ASSERT_TRUE(SetupDiEnumDeviceInfo(set, 0, &data));
    BYTE buffer[256];
    ASSERT_TRUE(SetupDiGetDeviceRegistryPropertyW(set, &data, SPDRP_DEVICEDESC, nullptr, buffer, sizeof buffer,
                                                  nullptr));
    ASSERT_TRUE(SetupDiRemoveDevice(set, &data));
    ASSERT_TRUE(SetupDiDestroyDeviceInfoList(set));
    EXPECT_EQ(GetLastError(), 1234u);
}

TEST_F(SetupApi, ClassDevsFailsAsInjected) {
    simhost::Host::get().faults().failCall("SetupDiGetClassDevsW", ERROR_NOT_ENOUGH_MEMORY, 1);
    EXPECT_EQ(SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(simhost::setupapi::openDeviceInfoSetCount(), 0u);

    HDEVINFO set = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);
    EXPECT_NE(set, INVALID_HANDLE_VALUE);
    EXPECT_EQ(simhost::Host::get().faults().callCount("SetupDiGetClassDevsW"), 2u);
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
}

TEST_F(SetupApi, SetCallsFailAsInjectedAndChangeNothing) {
    simhost::setupapi::addDevice(printQueue(L"SWD\\PRINTENUM\\A", L"Printer", {L"ID"}));
    HDEVINFO set = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);
    SP_DEVINFO_DATA data = element(set, 0);
    simhost::Faults& faults = simhost::Host::get().faults();
    faults.failCall("SetupDiEnumDeviceInfo", ERROR_GEN_FAILURE);
    faults.failCall("SetupDiGetDeviceRegistryPropertyW", ERROR_ACCESS_DENIED);
    faults.failCall("SetupDiRemoveDevice", ERROR_ACCESS_DENIED);
    faults.failCall("SetupDiDestroyDeviceInfoList", ERROR_INVALID_HANDLE);

    SP_DEVINFO_DATA fresh = emptyRecord();
    EXPECT_FALSE(SetupDiEnumDeviceInfo(set, 0, &fresh));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_GEN_FAILURE));
    EXPECT_EQ(fresh.DevInst, 0u);

    DWORD required = kUntouched;
    EXPECT_FALSE(SetupDiGetDeviceRegistryPropertyW(set, &data, SPDRP_HARDWAREID, nullptr, nullptr, 0, &required));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(required, kUntouched);

    EXPECT_FALSE(SetupDiRemoveDevice(set, &data));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_TRUE(simhost::setupapi::deviceExists(L"SWD\\PRINTENUM\\A"));

    EXPECT_FALSE(SetupDiDestroyDeviceInfoList(set));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(simhost::setupapi::openDeviceInfoSetCount(), 1u);

    faults.clearAll();
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
}

TEST_F(SetupApi, SetsOnSeveralThreadsDoNotDisturbEachOther) {
    for (int i = 0; i < 8; ++i)
        simhost::setupapi::addDevice(printQueue(L"SWD\\PRINTENUM\\" + std::to_wstring(i), L"Printer"));
    auto walk = [] {
        for (int round = 0; round < 50; ++round) {
            HDEVINFO set = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kPresentAllClasses);
            EXPECT_EQ(devInstsOf(set).size(), 8u);
            EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
        }
    };
    std::thread other(walk);
    walk();
    other.join();
    EXPECT_EQ(simhost::setupapi::openDeviceInfoSetCount(), 0u);
}

}  // namespace
