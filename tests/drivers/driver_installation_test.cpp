// Installing a driver by name with the platform's installation tool, as the
// simulated host runs it: the catalogue's INF files tried in turn, and
// success judged by the name asked for.
#include "drivers/DriverCatalogue.h"
#include "drivers/InstalledDrivers.h"
#include "simhost/core/host.h"
#include "simhost/kernel32/process_creation.h"
#include "simhost/kernel32/programs.h"
#include "simhost/printui/printui.h"
#include "simhost/winspool/spooler.h"
#include "support/LogCapture.h"
#include "support/PluginRequests.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

using testsupport::LogCapture;

namespace {

namespace spooler = simhost::winspool;

const int kError = static_cast<int>(kLogError);
const int kNormal = static_cast<int>(kLogNormal);
constexpr const char* kInstall = "PrinterUtil::installDriverByName";

const std::string kAcmeInf =
    "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=Printer\r\n[Manufacturer]\r\nAcme=Acme,NTamd64\r\n"
    "[Acme.NTamd64]\r\n\"Acme LaserBox 2000\" = LB, USBPRINT\\AcmeLaserBox_2000EA13\r\n";

bool installed(const std::wstring& name) {
    for (const spooler::PrinterDriver& driver : spooler::drivers())
        if (driver.name == name) return true;
    return false;
}

class DriverInstallation : public ::testing::Test {
protected:
    void SetUp() override { log_.drive().makeDirectory("Windows\\INF"); }
    void TearDown() override {
        for (auto& entry : infoMap_) delete entry.second;
        // Ends any tool still running.
        simhost::Host::get().reset();
    }
    void writeInf(const std::string& name, const std::string& text) const {
        std::ofstream(log_.drive().native("Windows\\INF\\" + name), std::ios::binary | std::ios::trunc) << text;
    }
    void buildCatalogue() { PrinterUtil::getDriverInfoDetail(infoMap_, hwIdMap_, true); }
    void expectLine(const std::string& message, uint32_t level, int channel) {
        testsupport::expectOneLine(log_, message, level, channel, kInstall);
    }

    LogCapture log_;
    DriverInfoMap infoMap_;
    DriverHwIdMap hwIdMap_;
};

TEST_F(DriverInstallation, DriverIsInstalledFromItsInfUnderItsModelName) {
    writeInf("oem7.inf", kAcmeInf);
    buildCatalogue();
    EXPECT_TRUE(PrinterUtil::installDriverByName(L"ACME LASERBOX 2000", infoMap_));
    EXPECT_TRUE(installed(L"Acme LaserBox 2000"));
    expectLine("Running cmd:rundll32 printui.dll,PrintUIEntry /ia /u /q /f \"C:\\Windows\\INF\\oem7.inf\" /m \"Acme "
               "LaserBox 2000\"",
               2, kNormal);
    expectLine("installDriverByName success:ACME LASERBOX 2000", 3, kNormal);
    EXPECT_EQ(simhost::kernel32::processRuns().size(), 1u);
}

TEST_F(DriverInstallation, NameWithOtherBlanksInstallsYetFailsTheFinalTest) {
    writeInf("oem7.inf", kAcmeInf);
    buildCatalogue();
    EXPECT_FALSE(PrinterUtil::installDriverByName(L"Acme  Laser Box 2000", infoMap_));
    EXPECT_TRUE(installed(L"Acme LaserBox 2000"));
    expectLine("installDriverByName failure:Acme  Laser Box 2000", 4, kError);
}

TEST_F(DriverInstallation, EmptyOrUnknownNameHasNoInfo) {
    writeInf("oem7.inf", kAcmeInf);
    buildCatalogue();
    EXPECT_FALSE(PrinterUtil::installDriverByName(L"", infoMap_));
    expectLine("installDriverByName no info on driver:", 3, kNormal);
    EXPECT_TRUE(simhost::kernel32::processRuns().empty());
}

TEST_F(DriverInstallation, InstalledAlreadyIsTrueWithAnErrorLine) {
    spooler::addDriver({L"Acme LaserBox 2000", spooler::kLocalEnvironment, L"", L"", {}});
    EXPECT_TRUE(PrinterUtil::installDriverByName(L"acme laserbox 2000", infoMap_));
    expectLine("installDriverByName:acme laserbox 2000 but is *already* installed", 4, kError);
}

TEST_F(DriverInstallation, NextInfIsTriedWhenARunLeavesTheDriverUninstalled) {
    writeInf("oem1.inf", kAcmeInf);
    writeInf("oem2.inf", kAcmeInf);
    writeInf("oem3.inf", kAcmeInf);
    buildCatalogue();
    // The first INF is gone by the time the tool runs.
    std::remove(log_.drive().native("Windows\\INF\\oem1.inf").c_str());
    EXPECT_TRUE(PrinterUtil::installDriverByName(L"Acme LaserBox 2000", infoMap_));
    EXPECT_EQ(simhost::kernel32::processRuns().size(), 2u);
}

// The 60-second wait lasts 60 ms at this scale.
TEST_F(DriverInstallation, ToolThatHangsIsLeftRunningAndTheNextInfIsTried) {
    simhost::Host::get().setTimeScale(0.001);
    writeInf("oem1.inf", kAcmeInf);
    writeInf("oem2.inf", kAcmeInf);
    buildCatalogue();
    simhost::printui::setInstallerBehaviour(L"Acme LaserBox 2000", {simhost::printui::InstallerOutcome::Hangs, 0});
    EXPECT_FALSE(PrinterUtil::installDriverByName(L"Acme LaserBox 2000", infoMap_));
    EXPECT_EQ(log_.find("Timed out waiting for printui to stop").size(), 2u);
    EXPECT_EQ(simhost::kernel32::processRuns().size(), 2u);
    expectLine("installDriverByName failure:Acme LaserBox 2000", 4, kError);
}

TEST_F(DriverInstallation, ToolThatFailsLeavesTheDriverUninstalled) {
    writeInf("oem7.inf", kAcmeInf);
    buildCatalogue();
    simhost::printui::setInstallerBehaviour(L"Acme LaserBox 2000", {simhost::printui::InstallerOutcome::Fails, 0});
    EXPECT_FALSE(PrinterUtil::installDriverByName(L"Acme LaserBox 2000", infoMap_));
    EXPECT_FALSE(installed(L"Acme LaserBox 2000"));
}

TEST_F(DriverInstallation, ToolThatCannotStartEndsTheAttempt) {
    writeInf("oem1.inf", kAcmeInf);
    writeInf("oem2.inf", kAcmeInf);
    buildCatalogue();
    simhost::Host::get().faults().failCall("CreateProcessW", ERROR_FILE_NOT_FOUND, 1);
    EXPECT_FALSE(PrinterUtil::installDriverByName(L"Acme LaserBox 2000", infoMap_));
    expectLine("CreateProcess failed. Is rundll32 in the current PATH? should be in system32 Err:2:The system cannot "
               "find the file specified.",
               4, kError);
    EXPECT_TRUE(simhost::kernel32::processRuns().empty());
}

}  // namespace
