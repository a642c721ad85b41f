#include "foundation/PolicySettings.h"
#include "simhost/advapi32/advapi32.h"
#include "simhost/core/host.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

using testsupport::LogCapture;
using testsupport::LogLine;

namespace {

const std::wstring kEnforced = L"Software\\Policies\\Quillion\\Vexor\\vexor_admin";
const std::wstring kDefaults = L"Software\\Policies\\Quillion\\Vexor\\vexor_admin_defaults";

class Policy : public ::testing::Test {
protected:
    LogCapture log_;
};

TEST_F(Policy, NeitherKeyGivesTheBuiltInDefaultAndNoLine) {
    EXPECT_EQ(getGPOValue(kRemotePrintingEnabled, kRemotePrintingEnabledDefault), 1u);
    EXPECT_EQ(getGPOValue(kEnableDefaultPrinter, kEnableDefaultPrinterDefault), 0u);
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(Policy, EnforcedValueWinsOverTheDefaultsKey) {
    simhost::advapi32::setRegistryDword(HKEY_LOCAL_MACHINE, kEnforced, kRemotePrintingEnabled, 0);
    simhost::advapi32::setRegistryDword(HKEY_LOCAL_MACHINE, kDefaults, kRemotePrintingEnabled, 2);
    EXPECT_EQ(getGPOValue(kRemotePrintingEnabled, 1), 0u);
}

TEST_F(Policy, DefaultsKeyIsReadWhenTheEnforcedOneLacksTheValue) {
    simhost::advapi32::setRegistryDword(HKEY_LOCAL_MACHINE, kEnforced, L"something.else", 7);
    simhost::advapi32::setRegistryDword(HKEY_LOCAL_MACHINE, kDefaults, kEnableDefaultPrinter, 1);
    EXPECT_EQ(getGPOValue(kEnableDefaultPrinter, 0), 1u);
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(Policy, LongStringIsLoggedAndTheSecondKeyRead) {
    simhost::advapi32::setRegistryString(HKEY_LOCAL_MACHINE, kEnforced, kRemotePrintingEnabled, L"basic printing");
    simhost::advapi32::setRegistryDword(HKEY_LOCAL_MACHINE, kDefaults, kRemotePrintingEnabled, 2);
    EXPECT_EQ(getGPOValue(kRemotePrintingEnabled, 1), 2u);
    std::vector<LogLine> lines = log_.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].message,
              "Could not read gpo setting 'Software\\Policies\\Quillion\\Vexor\\vexor_admin\\"
              "vexor.remote_printing_enabled', error: 234");
    EXPECT_EQ(lines[0].level, 4u);
    EXPECT_EQ(lines[0].function, "getGPOValue");
}

TEST_F(Policy, ErrorsOnBothKeysGiveTwoLinesAndTheDefault) {
    simhost::Host::get().faults().failCall("RegGetValueW", ERROR_ACCESS_DENIED, 2);
    EXPECT_EQ(getGPOValue(kEnableDefaultPrinter, 0), 0u);
    std::vector<std::string> expected = {
        "Could not read gpo setting 'Software\\Policies\\Quillion\\Vexor\\vexor_admin\\vexor.enable_default_printer', "
        "error: 5",
        "Could not read gpo setting 'Software\\Policies\\Quillion\\Vexor\\vexor_admin_defaults\\"
        "vexor.enable_default_printer', error: 5",
    };
    EXPECT_EQ(log_.messages(), expected);
}

TEST_F(Policy, ValueIsReadAtEachUse) {
    EXPECT_EQ(getGPOValue(kEnableDefaultPrinter, 0), 0u);
    simhost::advapi32::setRegistryDword(HKEY_LOCAL_MACHINE, kEnforced, kEnableDefaultPrinter, 1);
    EXPECT_EQ(getGPOValue(kEnableDefaultPrinter, 0), 1u);
}

TEST(PolicyModeText, EachValueHasItsLine) {
    EXPECT_STREQ(remotePrintingModeText(0), "Remote printing is disabled through GPO setting.");
    EXPECT_STREQ(remotePrintingModeText(1), "Basic Remote printing is enabled through GPO setting.");
    EXPECT_STREQ(remotePrintingModeText(2),
                 "Basic and Advanced Remote printing for Windows clients is enabled through GPO setting.");
    EXPECT_STREQ(remotePrintingModeText(3), "GPO specifies an unknown printing mode, falling back to default (basic).");
    EXPECT_STREQ(remotePrintingModeText(0xFFFFFFFF),
                 "GPO specifies an unknown printing mode, falling back to default (basic).");
}

}  // namespace
