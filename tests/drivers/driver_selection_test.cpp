// The ladder that chooses a new printer's driver, step by step, against
// hosts arranged for each case: the driver, the whole `detail` record,
// `warn` and `err`, the comment's mark, the installer's runs and the trail
// of DRV_MATCH lines.
#include "drivers/MakeAndModelHwids.h"
#include "drivers/driver_selection_support.h"

namespace {

using namespace selection_test;

class DriverSelection : public SelectionHost {
protected:
    // `detail` as a step leaves it: the copies of the request's keys and
    // what the step adds.
    static Json::Value detailWith(const Json::Value& request, const std::string& additions) {
        Json::Value detail = json(additions);
        detail["hwid"] = request.get("hardwareId", "");
        detail["driverNameReq"] = request.get("driverName", "");
        detail["printerName"] = request.get("printerName", "");
        return detail;
    }
    static void expectChosen(const Selection& selection, const std::wstring& driver) {
        EXPECT_EQ(selection.driver, driver);
        EXPECT_FALSE(selection.response.isMember("err")) << selection.response.toStyledString();
        EXPECT_EQ(selection.response["detail"], selection.detail) << "detail goes into the reply";
        EXPECT_EQ(selection.response["status"], "fail") << "the caller turns it into success";
    }
};

const std::string kWindowsClient =
    R"({"printerName":"Office","OS":"Windows","driverName":"Acme LaserBox 2000",)"
    R"("hardwareId":"USBPRINT\\AcmeLaserBox_2000EA13","ClientRenderSupported":["XPS"]})";

// ---- Step 1: forced client rendering ----

TEST_F(DriverSelection, WindowsClientUnderBasicPolicyGetsTheXpsDriverAndTheMark) {
    setPrintingMode(1);
    install(kXpsDriver);
    install(L"Acme LaserBox 2000", L"USBPRINT\\AcmeLaserBox_2000EA13");
    const Json::Value request = json(kWindowsClient);
    const Selection selection = select(request);
    expectChosen(selection, kXpsDriver);
    EXPECT_EQ(selection.detail,
              detailWith(request, R"({"preinstalled":true,"from":"forcedClientRender","to":"DriverName",)"
                                  R"("driverNamePicked":"Quillion Client Render XPS"})"));
    EXPECT_EQ(selection.comment, L"(Client Rendered) ");
    EXPECT_EQ(trail(), std::vector<std::string>{"DRV_MATCH: Forced client render with:Quillion Client Render XPS"});
    expectLine("DRV_MATCH: Forced client render with:Quillion Client Render XPS", 4, kNormal, kSelect);
    EXPECT_FALSE(logged("driver req by user:Acme LaserBox 2000")) << "driverName serves only its copy";
    EXPECT_FALSE(logged("Checking for driver for hardwareId:USBPRINT\\AcmeLaserBox_2000EA13"));
    EXPECT_FALSE(selection.response.isMember("warn"));
}

TEST_F(DriverSelection, ForcedDriverThatCannotBeHadLeavesTheLadderAtStepTwoWithoutTheMark) {
    setPrintingMode(1);
    install(L"Acme LaserBox 2000");
    const Json::Value request = json(kWindowsClient);
    const Selection selection = select(request);
    expectChosen(selection, L"Acme LaserBox 2000");
    EXPECT_EQ(selection.comment, L"");
    EXPECT_EQ(selection.detail, detailWith(request, R"({"preinstalled":true,"from":"DriverName","to":"DriverName",)"
                                                    R"("driverNamePicked":"Acme LaserBox 2000"})"));
    EXPECT_EQ(trail(), std::vector<std::string>{
                           "DRV_MATCH: Client requested driver already installed (Name match):Acme LaserBox 2000"});
}

TEST_F(DriverSelection, ForcedDriverThatCannotBeHadSetsNoPreinstalledUnlessALaterStepDoes) {
    setPrintingMode(1);
    const Json::Value request = json(R"({"printerName":"Office","OS":"Windows"})");
    const Selection selection = select(request);
    EXPECT_EQ(selection.driver, L"");
    EXPECT_FALSE(selection.detail.isMember("preinstalled"));
    EXPECT_EQ(selection.detail, detailWith(request, "{}"));
    EXPECT_EQ(selection.response["err"], "Could not find a driver for the printer");
    EXPECT_EQ(selection.response["detail"], selection.detail);
    // The fallback step marks the comment before it knows the driver can be had.
    EXPECT_EQ(selection.comment, L"(Client Rendered) ");
    EXPECT_EQ(trail(), std::vector<std::string>{"DRV_MATCH:Failed to find driver for printer."});
    expectLine("DRV_MATCH:Failed to find driver for printer.", 4, kError, kSelect);
}

TEST_F(DriverSelection, MacClientWithoutHostRenderingGetsTheImagesetter) {
    install(kImagesetter);
    for (const char* text : {R"({"printerName":"Mac","OS":"OSX"})",
                             R"({"printerName":"Mac","OS":"OSX","HostRenderSupported":0})"}) {
        const Selection selection = select(json(text));
        expectChosen(selection, kImagesetter);
        EXPECT_EQ(selection.detail["from"], "forcedClientRender") << text;
        EXPECT_EQ(selection.comment, L"(Client Rendered) ");
    }
}

TEST_F(DriverSelection, ForcedFallbackIsInstalledWhenStaged) {
    stage("oem1.inf", {{"MS Publisher Imagesetter", {"Imagesetter"}}});
    loadCatalogue();
    const Selection selection = select(json(R"({"printerName":"Mac","OS":"OSX"})"));
    expectChosen(selection, kImagesetter);
    EXPECT_EQ(selection.detail["preinstalled"], false);
    EXPECT_EQ(installerRuns(), 1u);
}

// ---- Steps 2 and 3: what the client names ----

TEST_F(DriverSelection, HostRenderingMacClientWithGenericPostScriptGetsTheFallbackInStepFour) {
    install(kImagesetter);
    const Json::Value request =
        json(R"({"printerName":"Mac","OS":"OSX","HostRenderSupported":1,)"
             R"("printer-make-and-model":"Generic PostScript Printer"})");
    const Selection selection = select(request);
    expectChosen(selection, kImagesetter);
    EXPECT_EQ(selection.detail,
              detailWith(request, R"({"preinstalled":true,"from":"HardCodedMakeAndModel","to":"DriverName",)"
                                  R"("driverNamePicked":"MS Publisher Imagesetter"})"));
    EXPECT_EQ(selection.response["warn"], "no hardwareId supplied") << "step 3's text replaces step 2's";
    expectLine("_addPrinter called with no driverName (possibly CUPS printer)", 3, kError, kSelect);
    expectLine("no hardwareId supplied", 3, kError, kSelect);
    expectLine("Using fallback driver for Generic PostScript Printer:MS Publisher Imagesetter", 4, kNormal, kSelect);
    EXPECT_EQ(trail(), std::vector<std::string>{
                           "DRV_MATCH: Matched 'Generic PostScript Printer' to special value:MS Publisher Imagesetter"});
    EXPECT_EQ(selection.comment, L"") << "this step never marks the comment";
}

TEST_F(DriverSelection, GenericPostScriptWithoutAFallbackUsesTheHardcodedDriver) {
    install(kImagesetter);
    const Selection selection =
        select(json(R"({"printerName":"P","OS":"Linux","device_make_and_model":"Generic PostScript Printer"})"));
    expectChosen(selection, kImagesetter);
    expectLine("Using hardcoded driver:MS Publisher Imagesetter", 4, kNormal, kSelect);
    EXPECT_EQ(selection.detail["from"], "HardCodedMakeAndModel");
}

TEST_F(DriverSelection, GenericPostScriptIsMatchedExactly) {
    install(kImagesetter);
    const Selection selection =
        select(json(R"({"printerName":"P","OS":"Linux","device_make_and_model":"generic PostScript Printer"})"));
    EXPECT_EQ(selection.driver, L"");
    EXPECT_FALSE(logged("Using hardcoded driver:MS Publisher Imagesetter"));
}

TEST_F(DriverSelection, DeviceIdStandsInForAnAbsentHardwareIdAndTheCopyStaysEmpty) {
    install(L"Acme LaserBox 2000", L"USBPRINT\\AcmeLaserBox_2000EA13");
    const Json::Value request =
        json(R"({"printerName":"Mac","OS":"OSX","HostRenderSupported":1,"device-id":"MFG:Acme;MDL:LaserBox 2000;"})");
    const Selection selection = select(request);
    expectChosen(selection, L"Acme LaserBox 2000");
    EXPECT_EQ(selection.detail,
              detailWith(request, R"({"preinstalled":true,"to":"hwid","matchedHwid":"AcmeLaserBox_2000EA13",)"
                                  R"("matchedBus":false,"driverNamePicked":"Acme LaserBox 2000"})"));
    EXPECT_EQ(selection.detail["hwid"], "");
    expectLine("Attempting match client supplied hwid (AcmeLaserBox_2000EA13) without going into locally compatible "
               "ids",
               2, kNormal, kSelect);
    EXPECT_FALSE(selection.detail.isMember("from")) << "step 3 writes no source";
    EXPECT_EQ(selection.response["warn"], "_addPrinter called with no driverName (possibly CUPS printer)");
}

TEST_F(DriverSelection, NothingNamedAtAllWarnsOfTheMissingHardwareId) {
    const Selection selection = select(json(R"({"printerName":"P"})"));
    EXPECT_EQ(selection.response["warn"], "no hardwareId supplied");
    EXPECT_EQ(selection.response["err"], "Could not find a driver for the printer");
}

TEST_F(DriverSelection, StagedDriverNamedByTheClientIsInstalledWhenItsIdMatchesNothing) {
    stage("oem1.inf", {{"Acme LaserBox 2000", {"USBPRINT\\AcmeLaserBox_2000EA13"}}});
    loadCatalogue();
    const Json::Value request =
        json(R"({"printerName":"Office","OS":"Windows","driverName":"Acme LaserBox 2000","hardwareId":"USBPRINT\\Nothing"})");
    const Selection selection = select(request);
    expectChosen(selection, L"Acme LaserBox 2000");
    EXPECT_EQ(selection.detail, detailWith(request, R"({"preinstalled":false,"from":"DriverName","to":"DriverName",)"
                                                    R"("driverNamePicked":"Acme LaserBox 2000"})"));
    expectLine("driver req by user:Acme LaserBox 2000", 2, kNormal, kSelect);
    EXPECT_EQ(trail(), std::vector<std::string>{
                           "DRV_MATCH: Client requested driver just installed (Name match):Acme LaserBox 2000"});
    EXPECT_EQ(installerRuns(), 1u);
    EXPECT_FALSE(logged("Checking for driver for hardwareId:USBPRINT\\Nothing"));
}

TEST_F(DriverSelection, ClientIdGoesThroughTheCatalogueWhenNoInstalledDriverCarriesIt) {
    stage("oem1.inf", {{"Acme LaserBox 2000", {"USBPRINT\\AcmeLaserBox_2000EA13"}}});
    loadCatalogue();
    const Json::Value request =
        json(R"({"printerName":"Office","OS":"Windows","hardwareId":"USBPRINT\\AcmeLaserBox_2000EA13"})");
    const Selection selection = select(request);
    expectChosen(selection, L"Acme LaserBox 2000");
    EXPECT_EQ(selection.detail,
              detailWith(request, R"({"preinstalled":false,"to":"hwid","matchedHwid":"USBPRINT\\AcmeLaserBox_2000EA13",)"
                                  R"("matchedBus":true,"driverNamePicked":"Acme LaserBox 2000"})"));
    expectLine("Attempting match hwid (USBPRINT\\AcmeLaserBox_2000EA13) using compatible ids", 2, kNormal, kSelect);
}

// ---- Step 5: the three passes over id lists ----

TEST_F(DriverSelection, CompatibleIdOfTheClientIsMatchedInPassOne) {
    install(L"Acme Universal", L"USBPRINT\\AcmeUniversal");
    const Json::Value request =
        json(R"({"printerName":"P","OS":"Windows","compatHwids":["USBPRINT\\Other","USBPRINT\\AcmeUniversal"]})");
    const Selection selection = select(request);
    expectChosen(selection, L"Acme Universal");
    EXPECT_EQ(selection.detail,
              detailWith(request, R"({"preinstalled":true,"from":"compatHwid","to":"hwid",)"
                                  R"("matchedHwid":"USBPRINT\\AcmeUniversal","matchedBus":true,)"
                                  R"("driverNamePicked":"Acme Universal"})"));
    expectLine("Checking:2 compatible hwids", 2, kNormal, kSelect);
    EXPECT_EQ(trail(), (std::vector<std::string>{
                           "DRV_MATCH_DETAIL:Matched hardwareId:USBPRINT\\AcmeUniversal to installed driverName:Acme "
                           "Universal",
                           "DRV_MATCH:Matched compatible hwid:USBPRINT\\AcmeUniversal to Acme Universal",
                       }));
}

// Every id is tried against the installed drivers before any id is tried
// through the catalogue.
TEST_F(DriverSelection, EveryIdIsTriedCheaplyBeforeAnyGoesThroughTheCatalogue) {
    stage("oem1.inf", {{"Acme Staged", {"USBPRINT\\AcmeStaged"}}});
    loadCatalogue();
    const Json::Value request =
        json(R"({"printerName":"P","OS":"Windows","compatHwids":["USBPRINT\\AcmeStaged","USBPRINT\\Nothing"]})");
    const Selection selection = select(request);
    expectChosen(selection, L"Acme Staged");
    std::vector<std::string> attempts;
    for (const std::string& message : log().messages())
        if (message.rfind("Attempting match compatible hwid", 0) == 0) attempts.push_back(message);
    EXPECT_EQ(attempts, (std::vector<std::string>{
                            "Attempting match compatible hwid (USBPRINT\\AcmeStaged) without going into compatible ids",
                            "Attempting match compatible hwid (USBPRINT\\Nothing) without going into compatible ids",
                            "Attempting match compatible hwid (USBPRINT\\AcmeStaged) using locally compatible hwids",
                        }));
    expectLine("Matched compatible hwid:USBPRINT\\AcmeStaged to locally compatible hwid:Acme Staged", 2, kNormal,
               kSelect);
    EXPECT_EQ(selection.detail["from"], "compatHwid");
    EXPECT_EQ(selection.detail["preinstalled"], false);
}

TEST_F(DriverSelection, CompatibleIdsAsOneStringSkipPassOneAndPassTwoStillRuns) {
    const Json::Value request = json(
        R"({"printerName":"P","OS":"Linux","compatHwids":"USBPRINT\\AcmeUniversal","device-info":"Acme LaserBox"})");
    select(request);
    expectLine("No explicitly defined compatible ids supplied by Client", 2, kNormal, kSelect);
    EXPECT_EQ(log().find("converted:1 make-and-model strings into:1 checksummed hwids").size(), 1u);
    EXPECT_EQ(log().find("converted:1 make-and-model strings into:2 checksummed hwids").size(), 1u)
        << "pass 3's two spellings carry the same line";
}

TEST_F(DriverSelection, CompatibleIdThatIsAnObjectThrowsOutOfTheLadder) {
    const Json::Value request = json(R"({"printerName":"P","OS":"Linux","compatHwids":[{"id":1}]})");
    Selection selection;
    EXPECT_THROW(service().selectDriver(request, selection.response, selection.detail, selection.comment),
                 Json::LogicError);
}

TEST_F(DriverSelection, NoMakeAndModelSkipsPassesTwoAndThreeAndTheNameStepsButNotTheFallback) {
    setPrintingMode(2);
    install(kXpsDriver);
    const Json::Value request = json(R"({"printerName":"P","OS":"Windows","ClientRenderSupported":["XPS"]})");
    const Selection selection = select(request);
    expectChosen(selection, kXpsDriver);
    EXPECT_EQ(log().find("No make-and-model strings supplied by Client").size(), 2u);
    EXPECT_FALSE(logged("Got make/model driver name:"));
    EXPECT_EQ(selection.detail, detailWith(request, R"({"preinstalled":true,"from":"nothing","to":"fallback",)"
                                                    R"("driverNamePicked":"Quillion Client Render XPS"})"));
    EXPECT_EQ(selection.comment, L"(Client Rendered) ");
    EXPECT_EQ(trail(), std::vector<std::string>{"DRV_MATCH: using fallback driver:Quillion Client Render XPS"});
}

// A Mac client that knows only make and model, for a printer whose INF
// carries the id a USB bus would make of the printer's device id.
TEST_F(DriverSelection, MacClientWithOnlyMakeAndModelFindsTheStagedDriverInPassTwo) {
    stage("oem1.inf", {{"Acme LaserBox 2000 PS", {"USBPRINT\\AcmeLaserBox_2000EA13", "AcmeLaserBox_2000EA13"}}});
    loadCatalogue();
    const Json::Value request = json(R"({"printerName":"Mac","OS":"OSX","HostRenderSupported":1,)"
                                     R"("printer-make-and-model":"Acme LaserBox 2000"})");
    const Selection selection = select(request);
    expectChosen(selection, L"Acme LaserBox 2000 PS");
    EXPECT_EQ(selection.detail["from"], "checksummedMakeAndModelHwid");
    EXPECT_EQ(selection.detail["matchedHwid"], kAcmeChecksummedId);
    EXPECT_EQ(selection.detail["preinstalled"], false);
    expectLine("converted:1 make-and-model strings into:2 checksummed hwids", 2, kNormal, kSelect);
    EXPECT_EQ(installerRuns(), 1u);
}

TEST_F(DriverSelection, MacClientWithADeviceIdFindsTheStagedDriverInStepThree) {
    stage("oem1.inf", {{"Acme LaserBox 2000 PS", {"USBPRINT\\AcmeLaserBox_2000EA13"}}});
    loadCatalogue();
    const Json::Value request =
        json(R"({"printerName":"Mac","OS":"OSX","HostRenderSupported":1,"device-id":"MFG:Acme;MDL:LaserBox 2000;",)"
             R"("printer-make-and-model":"Acme LaserBox 2000"})");
    const Selection selection = select(request);
    expectChosen(selection, L"Acme LaserBox 2000 PS");
    EXPECT_FALSE(selection.detail.isMember("from"));
    EXPECT_EQ(selection.detail["matchedBus"], false);
    expectLine("DRV_MATCH_DETAIL:Matched hardwareId:AcmeLaserBox_2000EA13 to bussless compatible hwid staged "
               "driverName:Acme LaserBox 2000 PS",
               4, kNormal, kMatch);
}

TEST_F(DriverSelection, MakeAndModelSpellingIsMatchedInPassThree) {
    install(L"Acme Mono", L"LPTENUM\\AcmeMono_5");
    const Json::Value request = json(R"({"printerName":"P","OS":"Linux","device-info":"Acme Mono 5"})");
    const Selection selection = select(request);
    expectChosen(selection, L"Acme Mono");
    EXPECT_EQ(selection.detail["from"], "makeAndModelHwid");
    EXPECT_EQ(selection.detail["matchedHwid"], "AcmeMono_5");
}

// ---- Steps 6 to 9: names ----

TEST_F(DriverSelection, ManufacturerAndModelJoinedNameTheDriver) {
    stage("oem1.inf", {{"AcmeLaserBox 2000", {"USBPRINT\\Unrelated"}}});
    loadCatalogue();
    const Json::Value request =
        json(R"({"printerName":"P","OS":"Linux","device-id":"MFG: Acme ;MDL: LaserBox 2000 ;"})");
    const Selection selection = select(request);
    expectChosen(selection, L"AcmeLaserBox 2000");
    expectLine("Got MFG/MDL driver name:AcmeLaserBox 2000", 2, kNormal, kSelect);
    EXPECT_EQ(selection.detail["from"], "MFG/MDLDriverName");
    EXPECT_EQ(selection.detail["to"], "DriverName");
    EXPECT_EQ(selection.detail["preinstalled"], false);
    EXPECT_EQ(trail().back(), "DRV_MATCH: MFG/MDL driver just installed (Name match):AcmeLaserBox 2000");
}

TEST_F(DriverSelection, LatestMakeAndModelHitIsTheDriverAndTheLastStringIsTheNamePicked) {
    install(L"Acme LaserBox");
    const Json::Value request =
        json(R"({"printerName":"P","OS":"Linux","device-info":"Acme LaserBox","device-make-and-model":"Zeta Box"})");
    const Selection selection = select(request);
    expectChosen(selection, L"Acme LaserBox");
    EXPECT_EQ(selection.detail["driverNamePicked"], "Zeta Box");
    EXPECT_EQ(selection.detail["from"], "make/model DriverName");
    EXPECT_EQ(selection.detail["preinstalled"], true);
    expectLine("Got make/model driver name:Zeta Box", 2, kNormal, kSelect);
    EXPECT_EQ(trail(), std::vector<std::string>{
                           "DRV_MATCH: make/model driver already installed (Name match):Acme LaserBox"});
    EXPECT_FALSE(logged("Addition of 'series' to driver names enabled")) << "a hit ends the ladder after step 7";
}

TEST_F(DriverSelection, LaterMakeAndModelHitReplacesAnEarlierOneWithItsPreinstalled) {
    install(L"Acme LaserBox");
    stage("oem1.inf", {{"Zeta Box", {"USBPRINT\\Zeta"}}});
    loadCatalogue();
    const Selection selection =
        select(json(R"({"printerName":"P","OS":"Linux","device-info":"Acme LaserBox","device-make-and-model":"Zeta Box"})"));
    expectChosen(selection, L"Zeta Box");
    EXPECT_EQ(selection.detail["preinstalled"], false);
    EXPECT_EQ(trail(), (std::vector<std::string>{
                           "DRV_MATCH: make/model driver already installed (Name match):Acme LaserBox",
                           "DRV_MATCH: make/model driver just installed (Name match):Zeta Box",
                       }));
}

TEST_F(DriverSelection, SeriesFormOfTheChecksummedIdsIsMatchedInStepEight) {
    install(L"Acme Box Series", L"USBPRINT\\" + PrinterUtil::checksummedHwid(L"Acme", L"Box Series"));
    const Json::Value request = json(R"({"printerName":"P","OS":"Linux","device-info":"Acme Box"})");
    const Selection selection = select(request);
    expectChosen(selection, L"Acme Box Series");
    expectLine("Failed to open registry key for matching 'series'. "
               "use:'HKLM\\SYSTEM\\CurrentControlSet\\Services\\Vexor_Printing\\DisableSeriesMatch'",
               3, kNormal, "VexorPrintingService::addSeriesEnabled");
    expectLine("converted:1 make-and-model strings plus 'series' into:4 checksummed hwids", 2, kNormal, kSelect);
    EXPECT_EQ(selection.detail["from"], "checksummedSeriesMakeAndModelHwid");
}

TEST_F(DriverSelection, SeriesNameIsTriedInStepNineInItsCapitalisedFormOnly) {
    install(L"Acme Box Series");
    const Selection selection = select(json(R"({"printerName":"P","OS":"Linux","device-info":"Acme Box"})"));
    expectChosen(selection, L"Acme Box Series");
    EXPECT_EQ(selection.detail["from"], "make/model DriverName");
    EXPECT_EQ(selection.detail["driverNamePicked"], "Acme Box Series");
    expectLine("Got make/model driver name:Acme Box Series", 2, kNormal, kSelect);
    EXPECT_FALSE(logged("Got make/model driver name:Acme Box series"));
}

TEST_F(DriverSelection, StringThatNamesASeriesGetsNoSeriesFormsAndUpperCaseDoesNotCount) {
    const Selection selection = select(
        json(R"({"printerName":"P","OS":"Linux","device-info":"Acme Series 5","device-make-and-model":"Zeta SERIES"})"));
    EXPECT_EQ(selection.driver, L"");
    expectLine("converted:2 make-and-model strings plus 'series' into:4 checksummed hwids", 2, kNormal, kSelect);
    EXPECT_FALSE(logged("Got make/model driver name:Acme Series 5 Series"));
    EXPECT_TRUE(logged("Got make/model driver name:Zeta SERIES Series"));
}

TEST_F(DriverSelection, SeriesStepsAreSkippedWhenTheSwitchDisablesThem) {
    disableSeriesSteps();
    install(L"Acme Box Series");
    const Selection selection = select(json(R"({"printerName":"P","OS":"Linux","device-info":"Acme Box"})"));
    EXPECT_EQ(selection.driver, L"");
    expectLine("Addition of 'series' to driver names explicitly disabled with:1", 3, kNormal,
               "VexorPrintingService::addSeriesEnabled");
    EXPECT_FALSE(logged("Got make/model driver name:Acme Box Series"));
    EXPECT_FALSE(logged("converted:1 make-and-model strings plus 'series' into:2 checksummed hwids"));
}

// ---- Steps 10 and 11 ----

TEST_F(DriverSelection, FallbackThatCannotBeHadEndsInFailureWithTheDetailInTheReply) {
    const Json::Value request = json(R"({"printerName":"Mac","OS":"OSX","HostRenderSupported":1})");
    const Selection selection = select(request);
    EXPECT_EQ(selection.driver, L"");
    EXPECT_EQ(selection.response["err"], "Could not find a driver for the printer");
    EXPECT_EQ(selection.response["detail"], detailWith(request, "{}"));
    EXPECT_FALSE(selection.detail.isMember("driverNamePicked"));
    EXPECT_EQ(selection.comment, L"(Client Rendered) ");
}

TEST_F(DriverSelection, DisabledFallbackIsSaidAndFails) {
    const Selection selection = select(json(R"({"printerName":"P","OS":"Linux"})"));
    expectLine("Use of fallback driver has been disabled.", 4, kNormal, kSelect);
    EXPECT_EQ(selection.response["err"], "Could not find a driver for the printer");
    EXPECT_EQ(selection.comment, L"");
}

// A Windows client under the advanced policy whose id names another bus
// than the maker's INF file.
TEST_F(DriverSelection, WindowsClientIdOnAnotherBusFindsTheStagedDriverWithoutTheBus) {
    setPrintingMode(2);
    stage("oem1.inf", {{"Acme LaserBox 2000", {"USBPRINT\\AcmeLaserBox_2000EA13"}}});
    loadCatalogue();
    const Json::Value request =
        json(R"({"printerName":"Office","OS":"Windows","hardwareId":"LPTENUM\\AcmeLaserBox_2000EA13"})");
    const Selection selection = select(request);
    expectChosen(selection, L"Acme LaserBox 2000");
    EXPECT_EQ(selection.detail["matchedBus"], false);
    EXPECT_EQ(selection.detail["preinstalled"], false);
    EXPECT_EQ(trail(), (std::vector<std::string>{
                           "DRV_MATCH_DETAIL:Matched hardwareId:LPTENUM\\AcmeLaserBox_2000EA13 to bussless compatible "
                           "hwid staged driverName:Acme LaserBox 2000",
                       }));
}

}  // namespace
