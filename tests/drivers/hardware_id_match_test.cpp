// The driver for one hardware id: the six stages in their order, what each
// writes into `detail`, the installs of staged drivers, and the lines.
#include "drivers/driver_selection_support.h"

namespace {

using namespace selection_test;

constexpr const wchar_t* kUsbId = L"USBPRINT\\AcmeLaserBox_2000EA13";
constexpr const wchar_t* kLptId = L"LPTENUM\\AcmeLaserBox_2000EA13";

class HardwareIdMatch : public SelectionHost {
protected:
    std::wstring match(const std::wstring& hwid, bool useCompatibleIds = true) {
        return service()._matchDriverByHwid(hwid, useCompatibleIds, detail_);
    }
    void expectDetail(bool preinstalled, const char* to, const char* hwid, bool withBus) const {
        Json::Value expected(Json::objectValue);
        expected["preinstalled"] = preinstalled;
        expected["to"] = to;
        expected["matchedHwid"] = hwid;
        expected["matchedBus"] = withBus;
        EXPECT_EQ(detail_, expected) << detail_.toStyledString();
    }
    // The stage lines logged, in order.
    std::vector<std::string> stagesTried() const {
        std::vector<std::string> stages;
        for (const std::string& message : log().messages())
            if (message.rfind("Matching {", 0) == 0) stages.push_back(message);
        return stages;
    }

    Json::Value detail_{Json::objectValue};
};

const std::vector<std::string> kAllStages = {
    "Matching {hwid with bus} to {installed driver}",
    "Matching {hwid without bus} to {installed driver}",
    "Matching {compatible hwid with bus} to {installed driver}",
    "Matching {compatible hwid without bus} to {installed driver}",
    "Matching {compatible hwid with bus} to {staged driver}",
    "Matching {compatible hwid without bus} to {staged driver}",
};

TEST_F(HardwareIdMatch, IdOfAnInstalledDriverHitsTheFirstStage) {
    install(L"Acme LaserBox 2000", kUsbId);
    EXPECT_EQ(match(kUsbId), L"Acme LaserBox 2000");
    expectDetail(true, "hwid", "USBPRINT\\AcmeLaserBox_2000EA13", true);
    expectLine("Checking for driver for hardwareId:USBPRINT\\AcmeLaserBox_2000EA13", 2, kNormal, kMatch);
    expectLine("DRV_MATCH_DETAIL:Matched hardwareId:USBPRINT\\AcmeLaserBox_2000EA13 to installed driverName:Acme "
               "LaserBox 2000",
               4, kNormal, kMatch);
    EXPECT_EQ(stagesTried(), std::vector<std::string>(kAllStages.begin(), kAllStages.begin() + 1));
}

TEST_F(HardwareIdMatch, CaseAloneMakesNoMiss) {
    install(L"Acme LaserBox 2000", kUsbId);
    EXPECT_EQ(match(L"usbprint\\acmelaserbox_2000ea13"), L"Acme LaserBox 2000");
    EXPECT_EQ(detail_["matchedBus"], true);
}

TEST_F(HardwareIdMatch, OtherBusHitsTheSecondStage) {
    install(L"Acme LaserBox 2000", kUsbId);
    EXPECT_EQ(match(kLptId), L"Acme LaserBox 2000");
    expectDetail(true, "hwid", "LPTENUM\\AcmeLaserBox_2000EA13", false);
    expectLine("DRV_MATCH_DETAIL:Matched hardwareId:LPTENUM\\AcmeLaserBox_2000EA13 to installed driverName:Acme "
               "LaserBox 2000 minus the bus part (e.g. USB)",
               4, kNormal, kMatch);
    EXPECT_EQ(stagesTried().size(), 2u);
}

TEST_F(HardwareIdMatch, WithoutCompatibleIdsACatalogueDriverIsNoHitAndNothingIsSaid) {
    stage("oem1.inf", {{"Acme LaserBox 2000", {"USBPRINT\\AcmeLaserBox_2000EA13"}}});
    loadCatalogue();
    EXPECT_EQ(match(kUsbId, false), L"");
    EXPECT_EQ(detail_, Json::Value(Json::objectValue));
    EXPECT_EQ(stagesTried(), std::vector<std::string>(kAllStages.begin(), kAllStages.begin() + 2));
    EXPECT_FALSE(logged("No driver found for hardwareId:USBPRINT\\AcmeLaserBox_2000EA13"));
    EXPECT_EQ(installerRuns(), 0u);
}

// The spooler stores one id with a driver; the catalogue knows all the ids
// of its INF line.
TEST_F(HardwareIdMatch, CatalogueIdOfAnInstalledDriverWithTheBusHitsStageThreeWhoseToIsCompatHwid) {
    stage("oem1.inf", {{"Acme LaserBox 2000", {"USBPRINT\\AcmeLaserBox_2000EA13", "LPTENUM\\AcmeCompat"}}});
    loadCatalogue();
    install(L"Acme LaserBox 2000", kUsbId);
    EXPECT_EQ(match(L"LPTENUM\\AcmeCompat"), L"Acme LaserBox 2000");
    expectDetail(true, "compatHwid", "LPTENUM\\AcmeCompat", true);
    expectLine("DRV_MATCH_DETAIL:Matched hardwareId:LPTENUM\\AcmeCompat to compatible hwid installed "
               "driverName:Acme LaserBox 2000",
               4, kNormal, kMatch);
    EXPECT_EQ(stagesTried().size(), 3u);
}

TEST_F(HardwareIdMatch, CatalogueIdOfAnInstalledDriverOnAnotherBusHitsStageFourWhoseToIsHwid) {
    stage("oem1.inf", {{"Acme LaserBox 2000", {"USBPRINT\\AcmeLaserBox_2000EA13", "LPTENUM\\AcmeCompat"}}});
    loadCatalogue();
    install(L"Acme LaserBox 2000", kUsbId);
    EXPECT_EQ(match(L"USBPRINT\\AcmeCompat"), L"Acme LaserBox 2000");
    expectDetail(true, "hwid", "USBPRINT\\AcmeCompat", false);
    expectLine("DRV_MATCH_DETAIL:Matched hardwareId:USBPRINT\\AcmeCompat to compatible hwid installed "
               "driverName:Acme LaserBox 2000 minus the bus part (e.g. USB)",
               4, kNormal, kMatch);
    EXPECT_EQ(stagesTried().size(), 4u);
}

TEST_F(HardwareIdMatch, StagedDriverIsInstalledInStageFiveAndReportedAsNotPreinstalled) {
    stage("oem1.inf", {{"Acme LaserBox 2000", {"USBPRINT\\AcmeLaserBox_2000EA13"}}});
    loadCatalogue();
    EXPECT_EQ(match(kUsbId), L"Acme LaserBox 2000");
    expectDetail(false, "hwid", "USBPRINT\\AcmeLaserBox_2000EA13", true);
    EXPECT_TRUE(installed(L"Acme LaserBox 2000"));
    EXPECT_EQ(installerRuns(), 1u);
    expectLine("Attempting to install driver:Acme LaserBox 2000", 2, kNormal, kMatch);
    expectLine("Installed printer driver:Acme LaserBox 2000", 4, kNormal, kMatch);
    expectLine("DRV_MATCH_DETAIL:Matched hardwareId:USBPRINT\\AcmeLaserBox_2000EA13 to compatible hwid staged "
               "driverName:Acme LaserBox 2000",
               4, kNormal, kMatch);
    EXPECT_EQ(stagesTried().size(), 5u);
}

TEST_F(HardwareIdMatch, FailedInstallInStageFiveFallsToAnotherStagedDriverInStageSix) {
    // Files are read in name order: the bus-less look-up meets the LPT
    // driver's record first.
    stage("oem1.inf", {{"Acme LaserBox LPT", {"LPTENUM\\AcmeLaserBox_2000EA13"}}});
    stage("oem2.inf", {{"Acme LaserBox USB", {"USBPRINT\\AcmeLaserBox_2000EA13"}}});
    loadCatalogue();
    installerFails(L"Acme LaserBox USB");
    EXPECT_EQ(match(kUsbId), L"Acme LaserBox LPT");
    expectDetail(false, "hwid", "USBPRINT\\AcmeLaserBox_2000EA13", false);
    expectLine("Failed to install driver:Acme LaserBox USB", 4, kError, kMatch);
    expectLine("Installed driver:Acme LaserBox LPT", 4, kNormal, kMatch);
    expectLine("DRV_MATCH_DETAIL:Matched hardwareId:USBPRINT\\AcmeLaserBox_2000EA13 to bussless compatible hwid "
               "staged driverName:Acme LaserBox LPT",
               4, kNormal, kMatch);
    EXPECT_FALSE(installed(L"Acme LaserBox USB"));
    EXPECT_TRUE(installed(L"Acme LaserBox LPT"));
    EXPECT_EQ(installerRuns(), 2u);
    EXPECT_EQ(stagesTried(), kAllStages);
}

TEST_F(HardwareIdMatch, SameStagedNameInBothStagesIsTriedTwiceThenNothingIsFound) {
    stage("oem1.inf", {{"Acme LaserBox 2000", {"USBPRINT\\AcmeLaserBox_2000EA13"}}});
    loadCatalogue();
    installerFails(L"Acme LaserBox 2000");
    EXPECT_EQ(match(kUsbId), L"");
    EXPECT_EQ(installerRuns(), 2u);
    EXPECT_EQ(log().find("Failed to install driver:Acme LaserBox 2000").size(), 2u);
    expectLine("No driver found for hardwareId:USBPRINT\\AcmeLaserBox_2000EA13", 3, kError, kMatch);
    EXPECT_EQ(detail_, Json::Value(Json::objectValue)) << "a miss leaves detail alone";
}

TEST_F(HardwareIdMatch, IdWithoutABusTakesPartAsItIs) {
    install(L"Acme Bare", L"AcmeBare");
    EXPECT_EQ(match(L"acmebare"), L"Acme Bare");
    EXPECT_EQ(detail_["matchedBus"], true) << "stage 1: both sides lack a bus";
    install(L"Acme LaserBox 2000", kUsbId);
    Json::Value detail(Json::objectValue);
    EXPECT_EQ(service()._matchDriverByHwid(L"AcmeLaserBox_2000EA13", true, detail), L"Acme LaserBox 2000");
    EXPECT_EQ(detail["matchedBus"], false) << "stage 2: only the other side's bus differs";
}

TEST_F(HardwareIdMatch, BareIdFindsAStagedDriverOnlyWithoutTheBus) {
    stage("oem1.inf", {{"Acme LaserBox 2000", {"USBPRINT\\AcmeLaserBox_2000EA13"}}});
    loadCatalogue();
    EXPECT_EQ(match(L"AcmeLaserBox_2000EA13"), L"Acme LaserBox 2000");
    expectDetail(false, "hwid", "AcmeLaserBox_2000EA13", false);
    EXPECT_EQ(log().find("Attempting to install driver:Acme LaserBox 2000").size(), 1u) << "stage 5 finds nothing";
    EXPECT_EQ(installerRuns(), 1u);
}

TEST_F(HardwareIdMatch, NothingAnywhereIsNoDriverFound) {
    install(L"Zeta", L"USBPRINT\\Zeta");
    EXPECT_EQ(match(kUsbId), L"");
    EXPECT_EQ(stagesTried(), kAllStages);
    expectLine("No driver found for hardwareId:USBPRINT\\AcmeLaserBox_2000EA13", 3, kError, kMatch);
}

}  // namespace
