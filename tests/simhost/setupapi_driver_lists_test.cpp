// Class driver lists of the printer class: an empty set of the class, a
// created element and its install parameters, the list built from the INF
// directory and the driver store (models sections chosen for amd64 and
// Windows 10.0), its records and the detail's size protocol, handles,
// faults and leaks.
#include "setupapi_inf_helpers.h"

#include "simhost/setupapi/device_tree.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

using namespace inf_test;

namespace {

constexpr const char* kPrinterVersion =
    "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=Printer\r\nProvider=%Acme%\r\n"
    "DriverVer=06/21/2006,10.0.19041.1\r\n";

// Two models share one install section; one hardware id has a bus part, one
// has none; the undecorated section is not the one chosen for amd64.
const std::string kAcme = std::string(kPrinterVersion) +
                          "[Manufacturer]\r\n%Acme% = Acme, NTamd64\r\n"
                          "[Acme]\r\n\"Acme Old\" = OLD, AcmeOld\r\n"
                          "[acme.ntamd64]\r\n"
                          "%Laser1% = ACME_INST, USBPRINT\\AcmeLaser1, AcmeLaser1, GenericLaser\r\n"
                          "%Laser2% = ACME_INST, AcmeLaser2\r\n"
                          "[Strings]\r\nAcme = \"Acme Corp\"\r\nLaser1 = \"Acme Laser 1\"\r\nLaser2 = \"Acme Laser 2\"\r\n";

const std::string kX86Only = std::string(kVersion) +
                             "[Manufacturer]\r\nBolt = Bolt, NTx86\r\n[Bolt]\r\nPlain = P, BoltP\r\n"
                             "[Bolt.NTx86]\r\nThirtyTwo = T, Bolt32\r\n";

// The latest version not after 10.0 wins; a generic NT section of a later
// version does not serve.
const std::string kVersions = std::string(kVersion) +
                              "[Manufacturer]\r\nCora = Cora, NTamd64.6.3, NT.11.0, NTamd64.10.0, NT.10.0\r\n"
                              "[Cora.NTamd64.6.3]\r\n\"Cora Eight\" = C8, Cora8\r\n"
                              "[Cora.NT.11.0]\r\n\"Cora Eleven\" = C11, Cora11\r\n"
                              "[Cora.NT.10.0]\r\n\"Cora Generic\" = CG, CoraG\r\n"
                              "[Cora.NTamd64.10.0]\r\n\"Cora Ten\" = C10, Cora10\r\n";

// A manufacturer named without a key, whose models section has its name;
// the class is given by GUID only.
const std::string kPlain =
    "[Version]\r\nSignature=\"$Chicago$\"\r\nClassGUID={4D36E979-E325-11CE-BFC1-08002BE10318}\r\n"
    "[Manufacturer]\r\nDove\r\n[Dove]\r\n\"Dove Jet\" = DOVE, LPTENUM\\DoveJet\r\n";

const std::string kNetwork = "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=Net\r\n"
                             "[Manufacturer]\r\nNetCo = NetCo\r\n[NetCo]\r\nCard = CARD, PCI\\Card\r\n";

const std::wstring kStorePackage = L"eagle.inf_amd64_1a2b3c4d";

struct Driver {
    std::wstring description, mfg, provider;
    bool operator==(const Driver& o) const {
        return description == o.description && mfg == o.mfg && provider == o.provider;
    }
};

class DriverLists : public InfFiles {
protected:
    void SetUp() override {
        InfFiles::SetUp();
        set = SetupDiCreateDeviceInfoList(&GUID_DEVCLASS_PRINTER, nullptr);
        ASSERT_NE(set, INVALID_HANDLE_VALUE);
        element.cbSize = sizeof(element);
        ASSERT_TRUE(SetupDiCreateDeviceInfoW(set, L"Printer", &GUID_DEVCLASS_PRINTER, L"Quillion Client Render XPS",
                                             nullptr, DICD_GENERATE_ID, &element));
    }

    void writeMachine() const {
        writeInf("acme.inf", kAcme);
        writeInf("bolt.inf", kX86Only);
        writeInf("cora.inf", kVersions);
        writeInf("dove.inf", kPlain);
        writeInf("net.inf", kNetwork);
        std::string store = "Windows\\System32\\DriverStore\\FileRepository\\eagle.inf_amd64_1a2b3c4d";
        drive->makeDirectory(store);
        std::ofstream(drive->native(store + "\\eagle.inf"), std::ios::binary)
            << utf16le(L"[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=Printer\r\nProvider=Eagle\r\n"
                       L"[Manufacturer]\r\nEagle = Eagle, NTamd64\r\n"
                       L"[Eagle.NTamd64]\r\n\"Eagle \u00C9cran\" = EAGLE, WSDPRINT\\EagleE\r\n");
    }

    void build() { ASSERT_TRUE(SetupDiBuildDriverInfoList(set, &element, SPDIT_CLASSDRIVER)); }

    SP_DRVINFO_DATA_V2_W driverAt(DWORD index) {
        SP_DRVINFO_DATA_V2_W data{};
        data.cbSize = sizeof(data);
        EXPECT_TRUE(SetupDiEnumDriverInfoW(set, &element, SPDIT_CLASSDRIVER, index, &data)) << std::hex << GetLastError();
        return data;
    }

    std::vector<Driver> drivers() {
        std::vector<Driver> all;
        SP_DRVINFO_DATA_V2_W data{};
        data.cbSize = sizeof(data);
        for (DWORD i = 0; SetupDiEnumDriverInfoW(set, &element, SPDIT_CLASSDRIVER, i, &data); ++i)
            all.push_back({data.Description, data.MfgName, data.ProviderName});
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_ITEMS));
        return all;
    }

    // The detail record read in the two-call protocol.
    std::vector<BYTE> detailOf(SP_DRVINFO_DATA_V2_W& data) {
        DWORD required = 0;
        EXPECT_FALSE(SetupDiGetDriverInfoDetailW(set, &element, &data, nullptr, 0, &required));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
        std::vector<BYTE> buffer(required);
        auto* detail = reinterpret_cast<SP_DRVINFO_DETAIL_DATA_W*>(buffer.data());
        detail->cbSize = sizeof(SP_DRVINFO_DETAIL_DATA_W);
        EXPECT_TRUE(SetupDiGetDriverInfoDetailW(set, &element, &data, detail, required, nullptr));
        return buffer;
    }

    void TearDown() override {
        if (set != INVALID_HANDLE_VALUE) SetupDiDestroyDeviceInfoList(set);
        InfFiles::TearDown();
    }

    HDEVINFO set = INVALID_HANDLE_VALUE;
    SP_DEVINFO_DATA element{};
};

std::vector<std::wstring> multiString(const WCHAR* text) {
    std::vector<std::wstring> strings;
    for (const WCHAR* p = text; *p; p += strings.back().size() + 1) strings.emplace_back(p);
    return strings;
}

// ---- Sets and elements ----

TEST_F(DriverLists, ACreatedElementIsOfTheSetAndNotInTheTree) {
    EXPECT_EQ(element.ClassGuid, GUID_DEVCLASS_PRINTER);
    EXPECT_NE(element.DevInst, 0u);
    EXPECT_TRUE(simhost::setupapi::devices().empty());
    SP_DEVINFO_DATA first{};
    first.cbSize = sizeof(first);
    EXPECT_TRUE(SetupDiEnumDeviceInfo(set, 0, &first));
    EXPECT_EQ(first.Reserved, element.Reserved);
    HDEVINFO present = SetupDiGetClassDevsW(&GUID_DEVCLASS_PRINTER, nullptr, nullptr, 0);
    EXPECT_FALSE(SetupDiEnumDeviceInfo(present, 0, &first));
    SetupDiDestroyDeviceInfoList(present);
}

TEST_F(DriverLists, GeneratedIdsTakeTheFirstFreeRootInstance) {
    simhost::setupapi::addDevice(simhost::setupapi::Device(L"ROOT\\PRINTER\\0000", GUID_DEVCLASS_PRINTER));
    SP_DEVINFO_DATA second{};
    second.cbSize = sizeof(second);
    // The element of SetUp took 0000 (the tree was empty then), this one 0001.
    ASSERT_TRUE(SetupDiCreateDeviceInfoW(set, L"printer", &GUID_DEVCLASS_PRINTER, nullptr, nullptr, DICD_GENERATE_ID,
                                         &second));
    SetLastError(kUntouched);
    EXPECT_FALSE(SetupDiCreateDeviceInfoW(set, L"ROOT\\PRINTER\\0001", &GUID_DEVCLASS_PRINTER, nullptr, nullptr, 0,
                                          nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_DEVINST_ALREADY_EXISTS));
    SetLastError(kUntouched);
    EXPECT_TRUE(SetupDiCreateDeviceInfoW(set, L"ROOT\\PRINTER\\0002", &GUID_DEVCLASS_PRINTER, nullptr, nullptr, 0,
                                         nullptr));
    EXPECT_EQ(GetLastError(), kUntouched);
}

TEST_F(DriverLists, CreationErrors) {
    SP_DEVINFO_DATA data{};
    data.cbSize = sizeof(data);
    auto expectCreateFails = [&](PCWSTR name, const GUID* guid, DWORD flags, DWORD error) {
        SetLastError(kUntouched);
        EXPECT_FALSE(SetupDiCreateDeviceInfoW(set, name, guid, nullptr, nullptr, flags, &data));
        EXPECT_EQ(GetLastError(), error) << std::hex << GetLastError();
    };
    expectCreateFails(L"Printer", &GUID_DEVCLASS_PRINTQUEUE, DICD_GENERATE_ID, ERROR_CLASS_MISMATCH);
    expectCreateFails(L"Printer", &GUID_DEVCLASS_PRINTER, 0x100, ERROR_INVALID_FLAGS);
    expectCreateFails(L"ROOT\\Printer", &GUID_DEVCLASS_PRINTER, DICD_GENERATE_ID, ERROR_INVALID_DEVINST_NAME);
    expectCreateFails(L"", &GUID_DEVCLASS_PRINTER, DICD_GENERATE_ID, ERROR_INVALID_DEVINST_NAME);
    data.cbSize = 8;
    expectCreateFails(L"Printer", &GUID_DEVCLASS_PRINTER, DICD_GENERATE_ID, ERROR_INVALID_USER_BUFFER);
}

TEST_F(DriverLists, InstallParametersAreKeptPerElement) {
    SP_DEVINSTALL_PARAMS_W params{};
    params.cbSize = sizeof(params);
    params.Flags = DI_QUIETINSTALL | DI_NOBROWSE;
    params.FlagsEx = DI_FLAGSEX_ALWAYSWRITEIDS;
    EXPECT_EQ(params.Flags, 0x00800200u);
    SetLastError(kUntouched);
    ASSERT_TRUE(SetupDiSetDeviceInstallParamsW(set, &element, &params));
    EXPECT_EQ(GetLastError(), kUntouched);
    SP_DEVINSTALL_PARAMS_W read{};
    read.cbSize = sizeof(read);
    ASSERT_TRUE(SetupDiGetDeviceInstallParamsW(set, &element, &read));
    EXPECT_EQ(read.Flags, params.Flags);
    EXPECT_EQ(read.FlagsEx, params.FlagsEx);
    ASSERT_TRUE(SetupDiGetDeviceInstallParamsW(set, nullptr, &read));
    EXPECT_EQ(read.Flags, 0u);

    params.cbSize = sizeof(params) - 4;
    EXPECT_FALSE(SetupDiSetDeviceInstallParamsW(set, &element, &params));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_USER_BUFFER));
}

// ---- The list ----

TEST_F(DriverLists, EveryPrinterModelForThisHostInFolderOrder) {
    writeMachine();
    build();
    std::vector<Driver> expected{{L"Acme Laser 1", L"Acme Corp", L"Acme Corp"},
                                 {L"Acme Laser 2", L"Acme Corp", L"Acme Corp"},
                                 {L"Cora Ten", L"Cora", L""},
                                 {L"Dove Jet", L"Dove", L""},
                                 {L"Eagle \u00C9cran", L"Eagle", L"Eagle"}};
    EXPECT_EQ(drivers(), expected);
}

TEST_F(DriverLists, RecordsCarryTypeDateAndVersion) {
    writeMachine();
    build();
    SP_DRVINFO_DATA_V2_W data = driverAt(0);
    EXPECT_EQ(data.DriverType, SPDIT_CLASSDRIVER);
    // 21 June 2006, 00:00 UTC.
    ULONGLONG date = (ULONGLONG(data.DriverDate.dwHighDateTime) << 32) | data.DriverDate.dwLowDateTime;
    EXPECT_EQ(date, 127953216000000000ULL);
    EXPECT_EQ(data.DriverVersion, (10ULL << 48) | (0ULL << 32) | (19041ULL << 16) | 1ULL);
    SP_DRVINFO_DATA_V2_W noDate = driverAt(2);
    EXPECT_EQ(noDate.DriverVersion, 0u);
}

// ---- DriverVer ----

struct DriverVerCase {
    std::string line;
    ULONGLONG date;
    DWORDLONG version;
};

constexpr ULONGLONG kJune21Of2006 = 127953216000000000ULL;
constexpr DWORDLONG kVersion10_0_19041_1 = (10ULL << 48) | (19041ULL << 16) | 1ULL;

// A date that is not mm/dd/yyyy of a real day from 1601 on counts as none
// (00/00/0000, a zero FILETIME); a version that is not up to four words of 0
// to 65535 counts as none (0). Neither spoils the other.
TEST_F(DriverLists, ADriverVerThatIsNotADateOrVersionCountsAsNone) {
    const std::vector<DriverVerCase> cases{
        {"06/21/2006,10.0.19041.1", kJune21Of2006, kVersion10_0_19041_1},
        {"06-21-2006,10.0.19041.1", kJune21Of2006, kVersion10_0_19041_1},
        {"6/21/2006,10.0.19041.1", kJune21Of2006, kVersion10_0_19041_1},
        {"02/29/2004,1.2", 127224864000000000ULL, (1ULL << 48) | (2ULL << 32)},
        {"01/02/1601,0.0.0.1", 864000000000ULL, 1},
        {"06/21/27777777777777777777777777,10.0.19041.1", 0, kVersion10_0_19041_1},
        {"06/21/20066,10.0.19041.1", 0, kVersion10_0_19041_1},
        {"06/21/206,10.0.19041.1", 0, kVersion10_0_19041_1},
        {"06/21/1600,10.0.19041.1", 0, kVersion10_0_19041_1},
        {"13/01/2006,10.0.19041.1", 0, kVersion10_0_19041_1},
        {"00/10/2006,10.0.19041.1", 0, kVersion10_0_19041_1},
        {"04/31/2006,10.0.19041.1", 0, kVersion10_0_19041_1},
        {"02/29/2006,10.0.19041.1", 0, kVersion10_0_19041_1},
        {"06/21-2006,10.0.19041.1", 0, kVersion10_0_19041_1},
        {"06/21/2006x,10.0.19041.1", 0, kVersion10_0_19041_1},
        {"June 21 2006,10.0.19041.1", 0, kVersion10_0_19041_1},
        {"06/21/2006,10.0.65536.1", kJune21Of2006, 0},
        {"06/21/2006,10.0.4294967297.1", kJune21Of2006, 0},
        {"06/21/2006,10.0.19041.1.5", kJune21Of2006, 0},
        {"06/21/2006,10.0.", kJune21Of2006, 0},
        {"06/21/2006,10.0.x.1", kJune21Of2006, 0},
    };
    // Each case its own file, the one before removed: the host keeps parsed
    // files by time of change and size, which two cases may share.
    for (size_t i = 0; i < cases.size(); ++i) {
        const DriverVerCase& c = cases[i];
        const std::string name = "case" + std::to_string(i) + ".inf";
        if (i > 0) std::remove(drive->native("Windows\\INF\\case" + std::to_string(i - 1) + ".inf").c_str());
        writeInf(name, "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=Printer\r\nDriverVer=" + c.line +
                                 "\r\n[Manufacturer]\r\nAcme = Acme\r\n[Acme]\r\nLaser = L, AcmeLaser\r\n");
        SCOPED_TRACE(c.line);
        SetupDiDestroyDriverInfoList(set, &element, SPDIT_CLASSDRIVER);
        build();
        SP_DRVINFO_DATA_V2_W data = driverAt(0);
        EXPECT_EQ((ULONGLONG(data.DriverDate.dwHighDateTime) << 32) | data.DriverDate.dwLowDateTime, c.date);
        EXPECT_EQ(data.DriverVersion, c.version);
    }
}

TEST_F(DriverLists, FirstVersionRecordsAreFilledUpToTheDate) {
    writeMachine();
    build();
    SP_DRVINFO_DATA_V2_W data{};
    data.cbSize = offsetof(SP_DRVINFO_DATA_V2_W, DriverDate);
    data.DriverVersion = 7;
    ASSERT_TRUE(SetupDiEnumDriverInfoW(set, &element, SPDIT_CLASSDRIVER, 0, &data));
    EXPECT_STREQ(data.Description, L"Acme Laser 1");
    EXPECT_EQ(data.DriverVersion, 7u);
    data.cbSize = sizeof(data) - 8;
    EXPECT_FALSE(SetupDiEnumDriverInfoW(set, &element, SPDIT_CLASSDRIVER, 0, &data));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_USER_BUFFER));
}

TEST_F(DriverLists, AnEmptyMachineGivesAnEmptyList) {
    build();
    EXPECT_TRUE(drivers().empty());
}

TEST_F(DriverLists, TheSetsOwnListNeedsNoElement) {
    writeInf("acme.inf", kAcme);
    ASSERT_TRUE(SetupDiBuildDriverInfoList(set, nullptr, SPDIT_CLASSDRIVER));
    SP_DRVINFO_DATA_V2_W data{};
    data.cbSize = sizeof(data);
    EXPECT_TRUE(SetupDiEnumDriverInfoW(set, nullptr, SPDIT_CLASSDRIVER, 1, &data));
    EXPECT_FALSE(SetupDiEnumDriverInfoW(set, &element, SPDIT_CLASSDRIVER, 0, &data));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_ITEMS));
    HDEVINFO classless = SetupDiCreateDeviceInfoList(nullptr, nullptr);
    EXPECT_FALSE(SetupDiBuildDriverInfoList(classless, nullptr, SPDIT_CLASSDRIVER));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_ASSOCIATED_CLASS));
    SetupDiDestroyDeviceInfoList(classless);
}

// ---- The detail ----

TEST_F(DriverLists, DetailOfAModelWithCompatibleIds) {
    writeMachine();
    build();
    SP_DRVINFO_DATA_V2_W data = driverAt(0);
    std::vector<BYTE> buffer = detailOf(data);
    const auto* detail = reinterpret_cast<const SP_DRVINFO_DETAIL_DATA_W*>(buffer.data());
    EXPECT_STREQ(detail->SectionName, L"ACME_INST");
    EXPECT_STREQ(detail->InfFileName, L"C:\\Windows\\INF\\acme.inf");
    EXPECT_STREQ(detail->DrvDescription, L"Acme Laser 1");
    EXPECT_EQ(multiString(detail->HardwareID),
              (std::vector<std::wstring>{L"USBPRINT\\AcmeLaser1", L"AcmeLaser1", L"GenericLaser"}));
    EXPECT_EQ(detail->CompatIDsOffset, 20u);
    EXPECT_EQ(detail->CompatIDsLength, 11u + 13u + 1u);
    EXPECT_EQ(buffer.size(), offsetof(SP_DRVINFO_DETAIL_DATA_W, HardwareID) + (20 + 25) * sizeof(WCHAR));
    EXPECT_NE(detail->InfDate.dwHighDateTime, 0u);
}

TEST_F(DriverLists, DetailOfAModelWithoutCompatibleIdsOrBusPart) {
    writeMachine();
    build();
    SP_DRVINFO_DATA_V2_W data = driverAt(1);
    std::vector<BYTE> buffer = detailOf(data);
    const auto* detail = reinterpret_cast<const SP_DRVINFO_DETAIL_DATA_W*>(buffer.data());
    EXPECT_STREQ(detail->SectionName, L"ACME_INST");
    EXPECT_EQ(multiString(detail->HardwareID), std::vector<std::wstring>{L"AcmeLaser2"});
    EXPECT_EQ(detail->CompatIDsOffset, 11u);
    EXPECT_EQ(detail->CompatIDsLength, 0u);
}

TEST_F(DriverLists, AStagedPackageIsReportedInTheDriverStore) {
    writeMachine();
    build();
    SP_DRVINFO_DATA_V2_W data = driverAt(4);
    std::vector<BYTE> buffer = detailOf(data);
    const auto* detail = reinterpret_cast<const SP_DRVINFO_DETAIL_DATA_W*>(buffer.data());
    EXPECT_EQ(std::wstring(detail->InfFileName),
              L"C:\\Windows\\System32\\DriverStore\\FileRepository\\" + kStorePackage + L"\\eagle.inf");
    EXPECT_EQ(multiString(detail->HardwareID), std::vector<std::wstring>{L"WSDPRINT\\EagleE"});
}

TEST_F(DriverLists, ABufferOfTheFixedPartGetsItAndTheIdsThatFit) {
    writeMachine();
    build();
    SP_DRVINFO_DATA_V2_W data = driverAt(0);
    std::vector<BYTE> buffer(sizeof(SP_DRVINFO_DETAIL_DATA_W) + 40 * sizeof(WCHAR), 0xCC);
    auto* detail = reinterpret_cast<SP_DRVINFO_DETAIL_DATA_W*>(buffer.data());
    detail->cbSize = sizeof(SP_DRVINFO_DETAIL_DATA_W);
    DWORD required = 0;
    SetLastError(kUntouched);
    EXPECT_FALSE(SetupDiGetDriverInfoDetailW(set, &element, &data, detail, DWORD(buffer.size()), &required));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(required, offsetof(SP_DRVINFO_DETAIL_DATA_W, HardwareID) + 45 * sizeof(WCHAR));
    EXPECT_STREQ(detail->SectionName, L"ACME_INST");
    EXPECT_EQ(detail->CompatIDsOffset, 20u);
    // The hardware id and one compatible id fit with the list's last NUL.
    EXPECT_EQ(multiString(detail->HardwareID), (std::vector<std::wstring>{L"USBPRINT\\AcmeLaser1", L"AcmeLaser1"}));
}

TEST_F(DriverLists, DetailBufferErrors) {
    writeMachine();
    build();
    SP_DRVINFO_DATA_V2_W data = driverAt(0);
    std::vector<BYTE> buffer(4096);
    auto* detail = reinterpret_cast<SP_DRVINFO_DETAIL_DATA_W*>(buffer.data());
    detail->cbSize = sizeof(SP_DRVINFO_DETAIL_DATA_W) - 8;
    EXPECT_FALSE(SetupDiGetDriverInfoDetailW(set, &element, &data, detail, DWORD(buffer.size()), nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_USER_BUFFER));
    detail->cbSize = sizeof(SP_DRVINFO_DETAIL_DATA_W);
    EXPECT_FALSE(SetupDiGetDriverInfoDetailW(set, &element, &data, detail, 100, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_USER_BUFFER));
    EXPECT_FALSE(SetupDiGetDriverInfoDetailW(set, &element, &data, nullptr, 100, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    data.Reserved = 0;
    EXPECT_FALSE(SetupDiGetDriverInfoDetailW(set, &element, &data, detail, DWORD(buffer.size()), nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

// ---- Handles, types, faults and leaks ----

TEST_F(DriverLists, ClosedSetsAndOtherListTypes) {
    SP_DRVINFO_DATA_V2_W data{};
    data.cbSize = sizeof(data);
    EXPECT_FALSE(SetupDiEnumDriverInfoW(set, &element, SPDIT_CLASSDRIVER, 0, &data));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_ITEMS));
    EXPECT_FALSE(SetupDiBuildDriverInfoList(set, &element, SPDIT_COMPATDRIVER));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    build();
    ASSERT_TRUE(SetupDiDestroyDeviceInfoList(set));
    HDEVINFO closed = set;
    set = INVALID_HANDLE_VALUE;
    EXPECT_FALSE(SetupDiBuildDriverInfoList(closed, &element, SPDIT_CLASSDRIVER));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_FALSE(SetupDiEnumDriverInfoW(closed, &element, SPDIT_CLASSDRIVER, 0, &data));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_FALSE(SetupDiGetDriverInfoDetailW(closed, &element, &data, nullptr, 0, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_FALSE(SetupDiDestroyDriverInfoList(closed, &element, SPDIT_CLASSDRIVER));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_FALSE(SetupDiCreateDeviceInfoW(closed, L"Printer", &GUID_DEVCLASS_PRINTER, nullptr, nullptr,
                                          DICD_GENERATE_ID, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

TEST_F(DriverLists, ListsAreFreedByTheirCallAndWithTheirSet) {
    writeMachine();
    build();
    EXPECT_EQ(simhost::setupapi::openDriverInfoListCount(), 1u);
    SetLastError(kUntouched);
    EXPECT_TRUE(SetupDiDestroyDriverInfoList(set, &element, SPDIT_CLASSDRIVER));
    EXPECT_EQ(GetLastError(), kUntouched);
    EXPECT_EQ(simhost::setupapi::openDriverInfoListCount(), 0u);
    EXPECT_TRUE(drivers().empty());
    build();
    ASSERT_TRUE(SetupDiBuildDriverInfoList(set, nullptr, SPDIT_CLASSDRIVER));
    EXPECT_EQ(simhost::setupapi::openDriverInfoListCount(), 2u);
    ASSERT_TRUE(SetupDiDestroyDeviceInfoList(set));
    set = INVALID_HANDLE_VALUE;
    EXPECT_EQ(simhost::setupapi::openDriverInfoListCount(), 0u);
    EXPECT_EQ(simhost::setupapi::openDeviceInfoSetCount(), 0u);
}

TEST_F(DriverLists, EveryCallCanBeMadeToFail) {
    writeMachine();
    auto& faults = simhost::Host::get().faults();
    for (const char* call : {"SetupDiCreateDeviceInfoList", "SetupDiCreateDeviceInfoW",
                             "SetupDiSetDeviceInstallParamsW", "SetupDiBuildDriverInfoList", "SetupDiEnumDriverInfoW",
                             "SetupDiGetDriverInfoDetailW", "SetupDiDestroyDriverInfoList"})
        faults.failCall(call, ERROR_NOT_ENOUGH_MEMORY, 1);
    EXPECT_EQ(SetupDiCreateDeviceInfoList(&GUID_DEVCLASS_PRINTER, nullptr), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_FALSE(SetupDiCreateDeviceInfoW(set, L"Printer", &GUID_DEVCLASS_PRINTER, nullptr, nullptr, DICD_GENERATE_ID,
                                          nullptr));
    SP_DEVINSTALL_PARAMS_W params{};
    params.cbSize = sizeof(params);
    EXPECT_FALSE(SetupDiSetDeviceInstallParamsW(set, &element, &params));
    EXPECT_FALSE(SetupDiBuildDriverInfoList(set, &element, SPDIT_CLASSDRIVER));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(simhost::setupapi::openDriverInfoListCount(), 0u);
    build();
    SP_DRVINFO_DATA_V2_W data{};
    data.cbSize = sizeof(data);
    EXPECT_FALSE(SetupDiEnumDriverInfoW(set, &element, SPDIT_CLASSDRIVER, 0, &data));
    data = driverAt(0);
    DWORD required = 0;
    EXPECT_FALSE(SetupDiGetDriverInfoDetailW(set, &element, &data, nullptr, 0, &required));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(required, 0u);
    EXPECT_FALSE(SetupDiDestroyDriverInfoList(set, &element, SPDIT_CLASSDRIVER));
    EXPECT_EQ(simhost::setupapi::openDriverInfoListCount(), 1u);
    EXPECT_EQ(simhost::setupapi::openDeviceInfoSetCount(), 1u);
}

}  // namespace
