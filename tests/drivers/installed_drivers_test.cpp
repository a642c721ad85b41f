// The installed drivers as the spooler lists them, and the host-wide
// switches of driver selection.
#include "drivers/InstalledDrivers.h"
#include "simhost/advapi32/advapi32.h"
#include "simhost/core/host.h"
#include "simhost/winspool/spooler.h"
#include "support/LogCapture.h"
#include "support/PluginRequests.h"
#include "support/ServiceHarness.h"

#include <gtest/gtest.h>

#include <string>

using testsupport::LogCapture;

namespace {

namespace spooler = simhost::winspool;

const int kError = static_cast<int>(kLogError);
const int kNormal = static_cast<int>(kLogNormal);
constexpr const char* kInstalled = "PrinterUtil::printerDriverInstalled";
constexpr const char* kByHwid = "PrinterUtil::hardwareIdToInstalledPrinterDriverName";
constexpr const char* kList = "PrinterUtil::getPrinterDrivers";

void install(const std::wstring& name, const std::wstring& hardwareId = L"",
             const std::wstring& environment = spooler::kLocalEnvironment) {
    spooler::addDriver({name, environment, hardwareId, L"", {}});
}

class InstalledDrivers : public ::testing::Test {
protected:
    void TearDown() override { simhost::Host::get().faults().clearAll(); }
    void expectLine(const std::string& message, uint32_t level, int channel, const std::string& function) {
        testsupport::expectOneLine(log_, message, level, channel, function);
    }
    LogCapture log_;
};

TEST_F(InstalledDrivers, NameInAnyCaseIsInstalled) {
    install(L"Acme LaserBox");
    EXPECT_TRUE(PrinterUtil::printerDriverInstalled(L"ACME LASERBOX"));
    expectLine("printerDriverInstalled() ACME LASERBOX", 2, kNormal, kInstalled);
    expectLine("printerDriverInstalled() found driver:Acme LaserBox", 3, kNormal, kInstalled);
    EXPECT_FALSE(PrinterUtil::printerDriverInstalled(L"Acme  Laser Box"));
    expectLine("Acme  Laser Box not installed.", 2, kNormal, kInstalled);
}

TEST_F(InstalledDrivers, EmptyNameIsNotInstalled) {
    install(L"Acme LaserBox");
    EXPECT_FALSE(PrinterUtil::printerDriverInstalled(L""));
}

TEST_F(InstalledDrivers, DriverOfAnotherArchitectureCountsAsInstalled) {
    install(L"Old Driver", L"", L"Windows NT x86");
    EXPECT_TRUE(PrinterUtil::printerDriverInstalled(L"Old Driver"));
}

TEST_F(InstalledDrivers, NoDriverAtAllIsNothingFound) {
    EXPECT_FALSE(PrinterUtil::printerDriverInstalled(L"Acme"));
    expectLine("printerDriverInstalled() found nothing for:Acme", 2, kNormal, kInstalled);
}

TEST_F(InstalledDrivers, ListThatCannotBeFetchedIsLogged) {
    install(L"Acme LaserBox");
    simhost::Host::get().faults().failCall("EnumPrinterDriversW", ERROR_ACCESS_DENIED, 1, 1);
    BYTE* block = reinterpret_cast<BYTE*>(1);
    EXPECT_EQ(PrinterUtil::getPrinterDrivers(1, &block), 0u);
    EXPECT_EQ(block, nullptr);
    expectLine("EnumPrinterDrivers failed to get printer driver data:1 Err:5:Access is denied.", 5, kError, kList);
    simhost::Host::get().faults().failCall("GlobalAlloc", ERROR_NOT_ENOUGH_MEMORY, 1);
    EXPECT_EQ(PrinterUtil::getPrinterDrivers(1, &block), 0u);
    EXPECT_EQ(log_.find("GlobalAlloc Err:8:Not enough memory resources are available to process this command.").size(),
              1u);
}

TEST_F(InstalledDrivers, HardwareIdFindsTheFirstInstalledDriverWithOrWithoutTheBus) {
    install(L"Acme One", L"USBPRINT\\AcmeLaserBox");
    install(L"Acme Two", L"LPTENUM\\AcmeLaserBox");
    EXPECT_EQ(PrinterUtil::hardwareIdToInstalledPrinterDriverName(L"LPTENUM\\acmelaserbox", true), L"Acme Two");
    EXPECT_EQ(PrinterUtil::hardwareIdToInstalledPrinterDriverName(L"LPTENUM\\acmelaserbox", false), L"Acme One");
    expectLine("Stripping enumerator in hwid. Now:acmelaserbox", 2, kNormal, kByHwid);
    EXPECT_EQ(PrinterUtil::hardwareIdToInstalledPrinterDriverName(L"Nothing", false), L"");
    expectLine("hardwareIdToInstalledPrinterDriverName() found nothing for hwid:Nothing", 2, kNormal, kByHwid);
}

TEST_F(InstalledDrivers, IdWithoutABusIsComparedAsItIs) {
    install(L"Acme One", L"AcmeLaserBox");
    EXPECT_EQ(PrinterUtil::hardwareIdToInstalledPrinterDriverName(L"acmelaserbox", true), L"Acme One");
    expectLine("hardwareIdToInstalledPrinterDriverName() returning driver:Acme One for hwid:acmelaserbox", 3, kNormal,
               kByHwid);
}

// ---- The switches ----

class DriverSwitches : public ::testing::Test {
protected:
    static constexpr const wchar_t* kKey = L"SYSTEM\\CurrentControlSet\\Services\\Vexor_Printing";
    // The service's constructor applies its own log settings.
    testsupport::ServiceHarness harness_{0.001};
    VexorPrintingService& service() { return harness_.service(); }
    const LogCapture& log() const { return harness_.log(); }
};

TEST_F(DriverSwitches, MissingValuesLeaveEveryFeatureEnabledAndTwoCallsLogOnce) {
    EXPECT_TRUE(service().addSeriesEnabled());
    EXPECT_TRUE(service().addSeriesEnabled());
    EXPECT_TRUE(service().removeTrailingBracketsEnabled());
    EXPECT_TRUE(service().jsonOverridesEnabled());
    testsupport::expectOneLine(log(),
                               "Failed to open registry key for matching 'series'. "
                               "use:'HKLM\\SYSTEM\\CurrentControlSet\\Services\\Vexor_Printing\\DisableSeriesMatch'",
                               3, kNormal, "VexorPrintingService::addSeriesEnabled");
    testsupport::expectOneLine(
        log(),
        "Failed to open registry key for removal of Trailing Brackets. "
        "use:'HKLM\\SYSTEM\\CurrentControlSet\\Services\\Vexor_Printing\\DisableBracketCheck'",
        3, kNormal, "VexorPrintingService::removeTrailingBracketsEnabled");
    testsupport::expectOneLine(
        log(),
        "Failed to open registry key for disableing JSON overrides. "
        "use:'HKLM\\SYSTEM\\CurrentControlSet\\Services\\Vexor_Printing\\DisableJsonOverrides'",
        3, kNormal, "VexorPrintingService::jsonOverridesEnabled");
}

TEST_F(DriverSwitches, NonZeroDisablesZeroEnablesAndTheFirstReadHolds) {
    simhost::advapi32::setRegistryDword(HKEY_LOCAL_MACHINE, kKey, L"DisableBracketCheck", 7);
    simhost::advapi32::setRegistryDword(HKEY_LOCAL_MACHINE, kKey, L"DisableSeriesMatch", 0);
    simhost::advapi32::setRegistryDword(HKEY_LOCAL_MACHINE, kKey, L"DisableJsonOverrides", 1);
    EXPECT_FALSE(service().removeTrailingBracketsEnabled());
    EXPECT_TRUE(service().addSeriesEnabled());
    EXPECT_FALSE(service().jsonOverridesEnabled());
    simhost::advapi32::setRegistryDword(HKEY_LOCAL_MACHINE, kKey, L"DisableBracketCheck", 0);
    EXPECT_FALSE(service().removeTrailingBracketsEnabled()) << "read once per run";
    EXPECT_TRUE(log().contains("Removal of Trailing Brackets explicitly disabled with:7"));
    EXPECT_TRUE(log().contains("Addition of 'series' to driver names enabled"));
    EXPECT_TRUE(log().contains("JSON overrides disabled with:1"));
}

TEST_F(DriverSwitches, ValueOfTheWrongTypeIsAFailedReadAndTheFeatureStaysEnabled) {
    simhost::advapi32::setRegistryString(HKEY_LOCAL_MACHINE, kKey, L"DisableSeriesMatch", L"1");
    EXPECT_TRUE(service().addSeriesEnabled());
    EXPECT_TRUE(log().contains("Failed to open registry key for matching 'series'. "
                               "use:'HKLM\\SYSTEM\\CurrentControlSet\\Services\\Vexor_Printing\\DisableSeriesMatch'"));
}

}  // namespace
