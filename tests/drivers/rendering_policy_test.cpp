// The rendering a client gets and the driver that stands in for its printer:
// the client's OS as its request shows it, the printing mode of the policy
// read on every call, and the lines each answer leaves.
#include "drivers/driver_selection_support.h"

namespace {

using namespace selection_test;

class RenderingPolicy : public SelectionHost {};

// ---- The client's OS ----

TEST_F(RenderingPolicy, StatedOsWinsOverTheKeysOfAnother) {
    EXPECT_EQ(service().GetClientOS(json(R"({"OS":"Windows","device-uri":"usb://Acme"})")), "Windows");
    expectLine("Client OS is:Windows", 2, kNormal, kClientOs);
}

TEST_F(RenderingPolicy, MacKeysAreTestedBeforeWindowsKeys) {
    EXPECT_EQ(service().GetClientOS(json(R"({"pDevMode":{},"printer-make-and-model":"Acme"})")), "OSX");
    EXPECT_EQ(service().GetClientOS(json(R"({"printer-uri-supported":null})")), "OSX") << "presence alone decides";
    EXPECT_EQ(service().GetClientOS(json(R"({"pPrintProcessor":"winprint"})")), "Windows");
    EXPECT_EQ(service().GetClientOS(json(R"({"OS":""})")), "");
    EXPECT_EQ(log().find("Client OS is:OSX").size(), 2u);
    expectLine("Client OS is:", 2, kNormal, kClientOs);
}

// ---- Forcing client rendering ----

TEST_F(RenderingPolicy, WindowsClientUnderBasicModeIsForcedAndGetsTheXpsDriver) {
    setPrintingMode(1);
    const Json::Value request = json(R"({"OS":"Windows"})");
    EXPECT_TRUE(service().forceClientSideRendering(request));
    expectLine("Checking forceClientSideRendering for:Windows", 2, kNormal, kForce);
    expectLine("forceing client side rendering explicitly enabled", 3, kNormal, kForce);
    EXPECT_EQ(service().GetFallbackDriver(request), kXpsDriver);
    EXPECT_FALSE(logged("Failed to open registry key for fallback driver. "
                        "use:'HKLM\\SYSTEM\\CurrentControlSet\\Services\\Vexor_Printing\\fallbackDriver\\Windows'"));
    expectLine("Using fallback driver:Quillion Client Render XPS", 3, kNormal, kFallback);
}

TEST_F(RenderingPolicy, WindowsClientUnderAdvancedModeIsNotForcedAndTheLineSaysZero) {
    setPrintingMode(2);
    EXPECT_FALSE(service().forceClientSideRendering(json(R"({"OS":"Windows"})")));
    expectLine("forceing client side rendering explicitly disabled with:0", 3, kNormal, kForce);
}

// A mode the policy does not know falls back to basic at start, yet here
// only the mode 1 forces.
TEST_F(RenderingPolicy, ModeThreeDoesNotForceAWindowsClient) {
    setPrintingMode(3);
    EXPECT_FALSE(service().forceClientSideRendering(json(R"({"OS":"Windows"})")));
    expectLine("forceing client side rendering explicitly disabled with:0", 3, kNormal, kForce);
}

TEST_F(RenderingPolicy, ModeIsReadAgainOnEveryCall) {
    const Json::Value request = json(R"({"OS":"Windows"})");
    setPrintingMode(2);
    EXPECT_FALSE(service().forceClientSideRendering(request));
    setPrintingMode(1);
    EXPECT_TRUE(service().forceClientSideRendering(request));
    setPrintingMode(0);
    EXPECT_FALSE(service().forceClientSideRendering(request));
}

TEST_F(RenderingPolicy, OsInSmallLettersIsNeitherWindowsNorMac) {
    setPrintingMode(1);
    const Json::Value request = json(R"({"OS":"windows","ClientRenderSupported":["XPS"]})");
    EXPECT_FALSE(service().forceClientSideRendering(request));
    expectLine("Failed to open registry key for forceing client side rendering. "
               "Use:'HKLM\\SYSTEM\\CurrentControlSet\\Services\\Vexor_Printing\\forceClientSideRendering\\windows'",
               3, kNormal, kForce);
    expectLine("NOT forcing client side rendering by default", 3, kNormal, kForce);
    EXPECT_EQ(service().GetFallbackDriver(request), L"");
    expectLine("Failed to open registry key for fallback driver. "
               "use:'HKLM\\SYSTEM\\CurrentControlSet\\Services\\Vexor_Printing\\fallbackDriver\\windows'",
               3, kNormal, kFallback);
}

TEST_F(RenderingPolicy, MacClientWithHostRenderZeroIsForcedAndTheLineStillSaysUnspecified) {
    EXPECT_TRUE(service().forceClientSideRendering(json(R"({"OS":"OSX","HostRenderSupported":0})")));
    expectLine("Forcing client side rendering for OS X by default. Client HostRenderSupported unspecified", 3, kNormal,
               kForce);
    EXPECT_TRUE(service().forceClientSideRendering(json(R"({"device-uri":"ipp://x"})")));
    EXPECT_EQ(log().find("Forcing client side rendering for OS X by default. Client HostRenderSupported unspecified")
                  .size(),
              2u);
}

TEST_F(RenderingPolicy, MacClientThatTakesHostRenderingIsNotForced) {
    EXPECT_FALSE(service().forceClientSideRendering(json(R"({"OS":"OSX","HostRenderSupported":1})")));
    expectLine("Force client side rendering for OS X is unspecified, but Client specificly states "
               "HostRenderSupported. So we will not force.",
               3, kNormal, kForce);
    expectLine("Failed to open registry key for forceing client side rendering. "
               "Use:'HKLM\\SYSTEM\\CurrentControlSet\\Services\\Vexor_Printing\\forceClientSideRendering\\OSX'",
               3, kNormal, kForce);
}

// ---- The fallback driver ----

TEST_F(RenderingPolicy, XpsInTheClientsFormatsGivesTheXpsDriverOutsideBasicMode) {
    setPrintingMode(2);
    EXPECT_EQ(service().GetFallbackDriver(json(R"({"OS":"Windows","ClientRenderSupported":["PDF","XPS"]})")),
              kXpsDriver);
    expectLine("Using Windows hardcoded XPS fallback driver", 3, kNormal, kFallback);
    EXPECT_EQ(service().GetFallbackDriver(json(R"({"OS":"Windows","ClientRenderSupported":["xps"]})")), L"");
    EXPECT_EQ(service().GetFallbackDriver(json(R"({"OS":"Windows"})")), L"");
}

TEST_F(RenderingPolicy, ClientRenderSupportedThatIsNoArrayIsRefusedWithAnError) {
    setPrintingMode(2);
    EXPECT_EQ(service().GetFallbackDriver(json(R"({"OS":"Windows","ClientRenderSupported":"XPS"})")), L"");
    expectLine("bad ClientRenderSupported value", 5, kError, kFallback);
}

TEST_F(RenderingPolicy, MacFallbackDoesNotDependOnTheMode) {
    for (DWORD mode : {0u, 1u, 2u}) {
        setPrintingMode(mode);
        EXPECT_EQ(service().GetFallbackDriver(json(R"({"OS":"OSX"})")), kImagesetter) << mode;
    }
    EXPECT_EQ(log().find("Using OSX hardcoded fallback driver").size(), 3u);
}

TEST_F(RenderingPolicy, WindowsFallbackInModeZeroFollowsTheClientsFormatsAlone) {
    setPrintingMode(0);
    EXPECT_EQ(service().GetFallbackDriver(json(R"({"OS":"Windows","ClientRenderSupported":["XPS"]})")), kXpsDriver);
    EXPECT_EQ(service().GetFallbackDriver(json(R"({"OS":"Windows","ClientRenderSupported":[]})")), L"");
}

TEST_F(RenderingPolicy, InstalledFallbackIsSaidToBeSoAndAMissingOneIsLeftToTheCaller) {
    install(kImagesetter);
    EXPECT_EQ(service().GetFallbackDriver(json(R"({"OS":"OSX"})")), kImagesetter);
    expectLine("fallback driverMS Publisher Imagesetter already installed", 3, kNormal, kFallback);
    setPrintingMode(1);
    EXPECT_EQ(service().GetFallbackDriver(json(R"({"OS":"Windows"})")), kXpsDriver);
    EXPECT_FALSE(logged("fallback driverQuillion Client Render XPS already installed"));
    EXPECT_EQ(installerRuns(), 0u) << "installing a named fallback is the caller's business";
}

// The installing branch is reached only without a name, so it always fails
// and leaves its lines with nothing in the place of the name.
TEST_F(RenderingPolicy, NoFallbackTriesToInstallTheEmptyNameAndSaysSo) {
    EXPECT_EQ(service().GetFallbackDriver(json(R"({"OS":"Linux"})")), L"");
    expectLine("Checking fallbackDriver", 2, kNormal, kFallback);
    expectLine("fallback driver NOT already installed", 4, kNormal, kFallback);
    expectLine("fallback driver could not be installed", 5, kError, kFallback);
    EXPECT_FALSE(logged("fallback driver was installed"));
    expectLine("Using fallback driver:", 3, kNormal, kFallback);
    EXPECT_EQ(installerRuns(), 0u);
}

TEST_F(RenderingPolicy, OtherOrNoOsIsNeverForced) {
    for (const char* request : {R"({"OS":"Linux"})", "{}"}) {
        EXPECT_FALSE(service().forceClientSideRendering(json(request))) << request;
        EXPECT_EQ(service().GetFallbackDriver(json(request)), L"") << request;
    }
    EXPECT_EQ(log().find("NOT forcing client side rendering by default").size(), 2u);
}

}  // namespace
