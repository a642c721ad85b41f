// The driver catalogue against INF files staged on the simulated host: the
// keys, the bracket-free names, the ids of shared install sections, and the
// order of preference of a hardware-id look-up.
#include "drivers/DriverCatalogue.h"
#include "drivers/InstalledDrivers.h"
#include "simhost/core/host.h"
#include "simhost/setupapi/device_tree.h"
#include "simhost/setupapi/inf_files.h"
#include "simhost/winspool/spooler.h"
#include "support/LogCapture.h"
#include "support/PluginRequests.h"

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

using testsupport::LogCapture;

namespace {

namespace spooler = simhost::winspool;

const int kError = static_cast<int>(kLogError);
const int kNormal = static_cast<int>(kLogNormal);
constexpr const char* kBuild = "PrinterUtil::getDriverInfoDetail";
constexpr const char* kRead = "PrinterUtil::getDriverInfoHwIdsDetail";
constexpr const char* kLookUp = "PrinterUtil::hardwareId2Driver";

const std::string kVersion = "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=Printer\r\nProvider=%Acme%\r\n";


class DriverCatalogue : public ::testing::Test {
protected:
    void SetUp() override { log_.drive().makeDirectory("Windows\\INF"); }
    void TearDown() override {
        clearCatalogue();
        simhost::Host::get().faults().clearAll();
    }
    // The records belong to infoMap_.
    void clearCatalogue() {
        for (auto& entry : infoMap_) delete entry.second;
        infoMap_.clear();
        hwIdMap_.clear();
    }

    void writeInf(const std::string& name, const std::string& body) const {
        std::ofstream(log_.drive().native("Windows\\INF\\" + name), std::ios::binary | std::ios::trunc)
            << kVersion << body;
    }
    void build(bool removeBrackets = true) { PrinterUtil::getDriverInfoDetail(infoMap_, hwIdMap_, removeBrackets); }
    std::vector<std::wstring> keys() const {
        std::vector<std::wstring> found;
        for (const auto& entry : infoMap_) found.push_back(entry.first);
        return found;
    }
    const DriverInfoRecord* recordUnder(const std::wstring& key) const {
        auto it = infoMap_.find(key);
        return it == infoMap_.end() ? nullptr : it->second;
    }
    void expectLine(const std::string& message, uint32_t level, int channel, const std::string& function) {
        testsupport::expectOneLine(log_, message, level, channel, function);
    }
    void install(const std::wstring& name) { spooler::addDriver({name, spooler::kLocalEnvironment, L"", L"", {}}); }

    LogCapture log_;
    DriverInfoMap infoMap_;
    DriverHwIdMap hwIdMap_;
};

// ---- Keys ----

TEST(DriverCatalogueKeys, NamesAreTrimmedLoweredAndLoseTheirBlanks) {
    EXPECT_EQ(PrinterUtil::normaliseDriverName(L"  Acme Color  Printer \t"), L"acmecolorprinter");
    EXPECT_EQ(PrinterUtil::stripEnumerator(L"USBPRINT\\AcmeLaserBox2000"), L"AcmeLaserBox2000");
    EXPECT_EQ(PrinterUtil::stripEnumerator(L"a\\b\\C"), L"C");
    EXPECT_EQ(PrinterUtil::hwidKey(L"USBPRINT\\AcmeLaserBox2000"), L"acmelaserbox2000");
    EXPECT_TRUE(PrinterUtil::hwidsEqual(L"USBPRINT\\acme", L"LPTENUM\\ACME", false));
    EXPECT_FALSE(PrinterUtil::hwidsEqual(L"USBPRINT\\acme", L"LPTENUM\\ACME", true));
    EXPECT_TRUE(PrinterUtil::hwidsEqual(L"USBPRINT\\acme", L"usbprint\\ACME", true));
    EXPECT_FALSE(PrinterUtil::hwidsEqual(L"acme", L"acme2", false));
}

// ---- Building ----

TEST_F(DriverCatalogue, EveryModelOfEveryInfIsARecordWithItsIds) {
    writeInf("acme.inf",
             "[Manufacturer]\r\n%Acme%=Acme,NTamd64\r\n"
             "[Acme.NTamd64]\r\n\"Acme LaserBox 2000\" = LB2000, USBPRINT\\AcmeLaserBox_2000EA13, AcmeLaserBox_2000EA13\r\n"
             "\"Acme InkJet\" = INK, USBPRINT\\AcmeInkJet\r\n"
             "[Strings]\r\nAcme=\"Acme\"\r\n");
    build();
    EXPECT_EQ(keys(), (std::vector<std::wstring>{L"acmeinkjet", L"acmelaserbox2000"}));
    const DriverInfoRecord* laserBox = recordUnder(L"acmelaserbox2000");
    ASSERT_NE(laserBox, nullptr);
    EXPECT_EQ(laserBox->infFile, L"C:\\Windows\\INF\\acme.inf");
    EXPECT_EQ(laserBox->sectionName, L"LB2000");
    EXPECT_EQ(laserBox->driverName, L"Acme LaserBox 2000");
    EXPECT_EQ(laserBox->hardwareIds,
              (std::vector<std::wstring>{L"USBPRINT\\AcmeLaserBox_2000EA13", L"AcmeLaserBox_2000EA13"}));
    EXPECT_EQ(hwIdMap_.count(L"acmelaserbox_2000ea13"), 2u);
    expectLine("getDriverInfoDetail()", 2, kNormal, kBuild);
    expectLine("getDriverInfoDetail loaded 2 driver names", 2, kNormal, kBuild);
    expectLine("done getDriverInfoDetail()", 2, kNormal, kBuild);
    EXPECT_EQ(simhost::setupapi::openDriverInfoListCount(), 0u);
    EXPECT_EQ(simhost::setupapi::openInfHandleCount(), 0u);
}

TEST_F(DriverCatalogue, TrailingBracketsGiveASecondKey) {
    writeInf("acme.inf",
             "[Manufacturer]\r\nAcme=Acme,NTamd64\r\n[Acme.NTamd64]\r\n"
             "\"Acme Printer (PS)\" = PS, ACME_PS\r\n\"Acme (USB) Printer\" = USB, ACME_USB\r\n"
             "\"Acme ()\" = EMPTY, ACME_EMPTY\r\n");
    build();
    EXPECT_EQ(keys(),
              (std::vector<std::wstring>{L"acme()", L"acme(usb)printer", L"acmeprinter", L"acmeprinter(ps)"}));
    expectLine("Removing trailing brackets from:acmeprinter(ps)to make alt driver name:acmeprinter", 2, kNormal,
               kBuild);
    // The second record gives each id a second entry.
    EXPECT_EQ(hwIdMap_.count(L"acme_ps"), 2u);
    EXPECT_EQ(recordUnder(L"acmeprinter")->driverName, L"Acme Printer (PS)");
}

TEST_F(DriverCatalogue, BracketsStayWhenTheSwitchIsOff) {
    writeInf("acme.inf", "[Manufacturer]\r\nAcme=Acme\r\n[Acme]\r\n\"Acme Printer (PS)\" = PS, ACME_PS\r\n");
    build(false);
    EXPECT_EQ(keys(), std::vector<std::wstring>{L"acmeprinter(ps)"});
}

TEST_F(DriverCatalogue, AnUnbracketedNameFirstKeepsTheKey) {
    writeInf("a.inf", "[Manufacturer]\r\nAcme=Acme\r\n[Acme]\r\n\"Acme Printer\" = P, ACME_P\r\n");
    writeInf("b.inf", "[Manufacturer]\r\nAcme=Acme\r\n[Acme]\r\n\"Acme Printer (PS)\" = PS, ACME_PS\r\n");
    build();
    EXPECT_EQ(infoMap_.count(L"acmeprinter"), 1u);
    expectLine("There's already an unbracketed driver name so we will not use this.", 2, kNormal, kBuild);
}

TEST_F(DriverCatalogue, ModelsSharingAnInstallSectionLendTheirIds) {
    writeInf("acme.inf",
             "[Manufacturer]\r\nAcme=Acme,NTamd64\r\n[Acme.NTamd64]\r\n"
             "\"Acme One\" = SHARED, ACME_ONE\r\n\"Acme Two\" = SHARED, ACME_TWO\r\n\"Acme Three\" = OTHER, ACME_THREE\r\n"
             "\"Acme One\" = SECOND, ACME_ONE_B\r\n");
    build();
    const DriverInfoRecord* one = recordUnder(L"acmeone");
    ASSERT_NE(one, nullptr);
    // Both of its own lines, then the line of the other name on a shared
    // section; each line's first id goes to the front, so the last line
    // taken stands first.
    EXPECT_EQ(one->hardwareIds, (std::vector<std::wstring>{L"ACME_TWO", L"ACME_ONE_B", L"ACME_ONE"}));
    EXPECT_EQ(recordUnder(L"acmethree")->hardwareIds, std::vector<std::wstring>{L"ACME_THREE"});
}

// Only a decorated line names a section the reading finds: "Acme" alone
// makes "Acme.", which the INF does not have.
TEST_F(DriverCatalogue, UndecoratedManufacturerLineFindsNoModels) {
    writeInf("acme.inf", "[Manufacturer]\r\nAcme=Acme\r\n[Acme]\r\n\"Acme One\" = ONE, ACME_ONE\r\n");
    build();
    ASSERT_NE(recordUnder(L"acmeone"), nullptr);
    EXPECT_TRUE(recordUnder(L"acmeone")->hardwareIds.empty());
    expectLine("Failed to find models section in INF file:C:\\Windows\\INF\\acme.inf", 4, kError, kRead);
    expectLine("Failed to find driver INF info:Acme One", 3, kError, kRead);
}

TEST_F(DriverCatalogue, InfWithoutManufacturerGivesNoIds) {
    writeInf("acme.inf", "[Manufacturer]\r\nAcme=Acme\r\n[Acme]\r\n\"Acme One\" = ONE, ACME_ONE\r\n");
    DriverInfoRecord record{L"C:\\Windows\\INF\\acme.inf", L"ONE", L"Acme One", L"", {}};
    std::ofstream(log_.drive().native("Windows\\INF\\plain.inf"), std::ios::binary) << kVersion << "[Other]\r\nx=1\r\n";
    record.infFile = L"C:\\Windows\\INF\\plain.inf";
    PrinterUtil::getDriverInfoHwIdsDetail(&record, nullptr);
    EXPECT_TRUE(record.hardwareIds.empty());
    expectLine("Failed to find driver INF info:Acme One", 3, kError, kRead);
}

TEST_F(DriverCatalogue, MissingModelsSectionEndsTheReading) {
    std::ofstream(log_.drive().native("Windows\\INF\\broken.inf"), std::ios::binary)
        << kVersion << "[Manufacturer]\r\nAcme=Acme,NTamd64\r\n";
    DriverInfoRecord record{L"C:\\Windows\\INF\\broken.inf", L"ONE", L"Acme One", L"", {}};
    PrinterUtil::getDriverInfoHwIdsDetail(&record, nullptr);
    expectLine("Failed to find models section in INF file:C:\\Windows\\INF\\broken.inf", 4, kError, kRead);
}

TEST_F(DriverCatalogue, InfThatCannotBeOpenedIsLogged) {
    DriverInfoRecord record{L"C:\\Windows\\INF\\gone.inf", L"ONE", L"Acme One", L"", {}};
    PrinterUtil::getDriverInfoHwIdsDetail(&record, nullptr);
    expectLine("SetupOpenInfFile on:C:\\Windows\\INF\\gone.inf Err:2:The system cannot find the file specified.", 4,
               kError, kRead);
}

TEST_F(DriverCatalogue, DetailTooSmallIsFetchedAgainWithTheSizeAsked) {
    std::string models = "[Manufacturer]\r\nAcme=Acme,NTamd64\r\n[Acme.NTamd64]\r\n\"Acme Many\" = MANY";
    for (int i = 0; i < 300; ++i) models += ", ACME_ID_NUMBER_" + std::to_string(i);
    writeInf("acme.inf", models + "\r\n");
    build();
    EXPECT_EQ(keys(), std::vector<std::wstring>{L"acmemany"});
    bool upped = false;
    for (const std::string& message : log_.messages()) upped = upped || message.rfind("Upping size from:", 0) == 0;
    EXPECT_TRUE(upped) << log_.contents();
    EXPECT_EQ(recordUnder(L"acmemany")->hardwareIds.size(), 300u);
}

TEST_F(DriverCatalogue, FailuresOfTheListEndTheBuildWithTheirLines) {
    simhost::Host::get().faults().failCall("SetupDiCreateDeviceInfoList", ERROR_NOT_ENOUGH_MEMORY, 1);
    build();
    EXPECT_TRUE(log_.contains(
        "SetupDiCreateDeviceInfoList failed Err:8:Not enough memory resources are available to process this command."));
    simhost::Host::get().faults().failCall("SetupDiBuildDriverInfoList", ERROR_NOT_ENOUGH_MEMORY, 1);
    simhost::Host::get().faults().failCall("SetupDiSetDeviceInstallParamsW", ERROR_INVALID_USER_BUFFER, 1);
    build();
    EXPECT_TRUE(log_.contains(
        "SetupDiBuildDriverInfoList failed Err:8:Not enough memory resources are available to process this command."));
    EXPECT_EQ(log_.find("getDriverInfoDetail()").size(), 2u);
    EXPECT_FALSE(log_.contains("done getDriverInfoDetail()"));
    bool installParams = false;
    for (const std::string& message : log_.messages())
        installParams = installParams || message.rfind("SetupDiSetDeviceInstallParams failed Err:", 0) == 0;
    EXPECT_TRUE(installParams);
    EXPECT_TRUE(infoMap_.empty());
}

// ---- Looking up an id ----

class HardwareIdLookUp : public DriverCatalogue {
protected:
    // Records put straight into the map, in this order.
    DriverInfoRecord* add(const std::wstring& name, std::vector<std::wstring> ids) {
        auto* record = new DriverInfoRecord{L"C:\\Windows\\INF\\x.inf", L"S", name, L"", ids};
        infoMap_.insert({PrinterUtil::normaliseDriverName(name), record});
        for (const std::wstring& id : ids) hwIdMap_.insert({PrinterUtil::hwidKey(id), record});
        return record;
    }
};

TEST_F(HardwareIdLookUp, DirectMatchOnAFirstIdWinsAtOnce) {
    add(L"Staged", {L"USBPRINT\\OTHER", L"USBPRINT\\ACME"});
    add(L"Direct", {L"USBPRINT\\ACME"});
    EXPECT_EQ(PrinterUtil::hardwareId2Driver(L"USBPRINT\\ACME", hwIdMap_, 0), L"Direct");
    expectLine("Direct match driver:Direct found for:USBPRINT\\ACME", 3, kNormal, kLookUp);
}

TEST_F(HardwareIdLookUp, OtherBusWithTheBusComparedIsNoMatch) {
    add(L"Staged", {L"USBPRINT\\FIRST", L"USBPRINT\\ACME"});
    EXPECT_EQ(PrinterUtil::hardwareId2Driver(L"LPTENUM\\ACME", hwIdMap_, 3), L"");
    expectLine("hardwareId2Driver no match for:LPTENUM\\ACME", 2, kNormal, kLookUp);
}

TEST_F(HardwareIdLookUp, OfTwoInstalledTheLaterWinsOfTwoStagedTheEarlier) {
    add(L"Installed A", {L"X1", L"ACME"});
    add(L"Installed B", {L"X2", L"ACME"});
    install(L"Installed A");
    install(L"Installed B");
    EXPECT_EQ(PrinterUtil::hardwareId2Driver(L"ACME", hwIdMap_, 0), L"Installed B");
    clearCatalogue();
    add(L"Staged A", {L"X1", L"STAGED"});
    add(L"Staged B", {L"X2", L"STAGED"});
    EXPECT_EQ(PrinterUtil::hardwareId2Driver(L"STAGED", hwIdMap_, 0), L"Staged A");
    expectLine("Prefering driver:Staged A over:Staged B", 3, kNormal, kLookUp);
    expectLine("hardwareId2Driver returning Driver:Staged A for:STAGED", 3, kNormal, kLookUp);
}

TEST_F(HardwareIdLookUp, InstalledBeatsStagedWhicheverCameFirst) {
    install(L"Installed");
    add(L"Staged", {L"X1", L"USBPRINT\\ACME"});
    add(L"Installed", {L"X2", L"USBPRINT\\ACME"});
    for (unsigned flags : {0u, 1u})
        EXPECT_EQ(PrinterUtil::hardwareId2Driver(L"USBPRINT\\ACME", hwIdMap_, flags), L"Installed") << flags;
    clearCatalogue();
    add(L"Installed", {L"X2", L"USBPRINT\\ACME"});
    add(L"Staged", {L"X1", L"USBPRINT\\ACME"});
    EXPECT_EQ(PrinterUtil::hardwareId2Driver(L"USBPRINT\\ACME", hwIdMap_, 0), L"Installed");
}

TEST_F(HardwareIdLookUp, InstalledOnlySkipsStagedRecords) {
    add(L"Staged", {L"X1", L"ACME"});
    EXPECT_EQ(PrinterUtil::hardwareId2Driver(L"ACME", hwIdMap_, PrinterUtil::kHwidInstalledOnly), L"");
}

TEST_F(HardwareIdLookUp, NullRecordEndsTheSearch) {
    hwIdMap_.insert({L"acme", nullptr});
    EXPECT_EQ(PrinterUtil::hardwareId2Driver(L"ACME", hwIdMap_, 0), L"");
    expectLine("Failed to find any driver info for:ACME", 2, kNormal, kLookUp);
}

}  // namespace
