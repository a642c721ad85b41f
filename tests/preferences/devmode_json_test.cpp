// A Windows client's device mode laid over a printer's, on printers of the
// simulated spooler: the table of keys in its order, the bits, the 16-bit
// truncations, the unprotected dmDriverVersion, every line, and what the
// spooler keeps afterwards.
#include "PreferencesFixture.h"
#include "preferences/DevModeJson.h"
#include "preferences/PrinterPreferences.h"

#include <cstring>
#include <stdexcept>
#include <string>

using namespace preferencestest;

namespace {

constexpr const char* kSetPreferences = "PrinterUtil::setPreferences";

class DevModeJson : public PreferencesTest {
protected:
    int apply(const std::string& pDevMode) { return PrinterUtil::setPreferences(parse(pDevMode), printer_); }
    void expectStoredOnce() {
        EXPECT_EQ(calls("SetPrinterW"), 1u);
        expectLine("Setting printer preferences", 2, kNormal, kSetPreferences);
        expectLine("setPreferences - success", 2, kNormal, kSetPreferences);
    }
};

// The jsoncpp text of an unsigned read of this value.
std::string unsignedReadFailure(const Json::Value& value) {
    try {
        value.asUInt();
    } catch (const std::exception& e) {
        return e.what();
    }
    return "no failure";
}

// ---- The edge cases ----

TEST_F(DevModeJson, AnEmptyObjectSetsTheVersionClearsReservedAndPanningAndAddsNoBit) {
    EXPECT_NE(apply("{}"), 0);
    DEVMODEW mode = stored();
    EXPECT_EQ(mode.dmSpecVersion, 0x401);
    EXPECT_EQ(mode.dmReserved1, 0u);
    EXPECT_EQ(mode.dmReserved2, 0u);
    EXPECT_EQ(mode.dmPanningWidth, 0u);
    EXPECT_EQ(mode.dmPanningHeight, 0u);
    EXPECT_EQ(mode.dmFields, kDriverFields);
    DEVMODEW driver = spooler::devModeRecord(driverBlock_);
    EXPECT_EQ(mode.dmDriverVersion, driver.dmDriverVersion);
    EXPECT_EQ(mode.dmPelsWidth, 1024u) << "members the table does not name are never written";
    EXPECT_EQ(mode.dmSize, sizeof(DEVMODEW));
    EXPECT_EQ(spooler::devModePrivateBytes(storedBlock()), kPrivateBytes) << "the driver's private bytes go along";
    expectStoredOnce();
}

TEST_F(DevModeJson, AnOrientationIsStoredWithItsBitOnTopOfTheDrivers) {
    ASSERT_EQ(spooler::devModeRecord(driverBlock_).dmOrientation, DMORIENT_PORTRAIT);
    EXPECT_NE(apply(R"({"dmOrientation": 2})"), 0);
    EXPECT_EQ(stored().dmOrientation, DMORIENT_LANDSCAPE);
    EXPECT_EQ(stored().dmFields, kDriverFields | DM_ORIENTATION);
    expectStoredOnce();
}

TEST_F(DevModeJson, CopiesBeyondSixteenBitsKeepTheirLowSixteen) {
    EXPECT_NE(apply(R"({"dmCopies": 70000})"), 0);
    EXPECT_EQ(stored().dmCopies, 70000 & 0xFFFF);
    EXPECT_EQ(stored().dmCopies, 4464);
    EXPECT_FALSE(log_.contains("PrinterUtil::setPreferences:  Catching exception:  ")) << log_.contents();
    expectStoredOnce();
}

TEST_F(DevModeJson, ATextForCopiesKeepsTheMemberAndSetsItsBitAllTheSame) {
    DEVMODEW bare = driverDevMode();
    bare.dmFields = DM_ORIENTATION;
    bare.dmCopies = 2;
    usePrinterWithDriverMode(bare);
    EXPECT_NE(apply(R"({"dmCopies": "three"})"), 0);
    EXPECT_EQ(stored().dmCopies, 2);
    EXPECT_EQ(stored().dmFields, static_cast<DWORD>(DM_ORIENTATION | DM_COPIES));
}

TEST_F(DevModeJson, AFormNameOfThirtyOneCharactersIsStoredWholeAndOneOfThirtyTwoIgnored) {
    DEVMODEW bare = driverDevMode();
    bare.dmFields = DM_ORIENTATION;
    usePrinterWithDriverMode(bare);
    const std::string thirtyOne(31, 'F');
    EXPECT_NE(apply(R"({"dmFormName": ")" + thirtyOne + R"("})"), 0);
    EXPECT_EQ(std::wstring(stored().dmFormName), std::wstring(31, L'F'));
    EXPECT_EQ(stored().dmFields, static_cast<DWORD>(DM_ORIENTATION | DM_FORMNAME));

    usePrinterWithDriverMode(bare);
    EXPECT_NE(apply(R"({"dmFormName": ")" + std::string(32, 'G') + R"("})"), 0);
    EXPECT_EQ(std::wstring(stored().dmFormName), L"Letter") << "the driver's form stays";
    EXPECT_EQ(stored().dmFields, static_cast<DWORD>(DM_ORIENTATION)) << "no bit for a name that was not taken";
    usePrinterWithDriverMode(bare);
    EXPECT_NE(apply(R"({"dmFormName": ""})"), 0);
    EXPECT_EQ(stored().dmFields, static_cast<DWORD>(DM_ORIENTATION));
}

TEST_F(DevModeJson, ADeviceNameOtherThanThePrintersIsStoredAsItCame) {
    EXPECT_NE(apply(R"({"dmDeviceName": "Client's own printer"})"), 0);
    EXPECT_EQ(std::wstring(stored().dmDeviceName), L"Client's own printer");
    EXPECT_EQ(stored().dmFields, kDriverFields) << "the device name has no bit";
    EXPECT_NE(apply(R"({"dmDeviceName": ")" + std::string(32, 'N') + R"("})"), 0);
    EXPECT_EQ(std::wstring(stored().dmDeviceName), L"Client's own printer") << "32 characters are not cut down";
}

TEST_F(DevModeJson, ANegativeDriverVersionThrowsAndNothingIsStored) {
    EXPECT_EQ(apply(R"({"dmOrientation": 2, "dmDriverVersion": -1})"), 0);
    EXPECT_EQ(storedBlock(), driverBlock_) << "the printer keeps the driver's device mode";
    EXPECT_EQ(calls("SetPrinterW"), 0u);
    expectLine("PrinterUtil::setPreferences:  Catching exception:  " + unsignedReadFailure(Json::Value(-1)), 3,
               kNormal, kSetPreferences);
    EXPECT_FALSE(logged("setPreferences - success"));
}

TEST_F(DevModeJson, ADriverVersionAsTextThrowsAsWell) {
    EXPECT_EQ(apply(R"({"dmDriverVersion": "1"})"), 0);
    EXPECT_EQ(storedBlock(), driverBlock_);
    expectLine("PrinterUtil::setPreferences:  Catching exception:  " + unsignedReadFailure(Json::Value("1")), 3,
               kNormal, kSetPreferences);
}

TEST_F(DevModeJson, ADriverVersionKeepsItsLowSixteenBitsAndAddsNoBit) {
    EXPECT_NE(apply(R"({"dmDriverVersion": 65539})"), 0);
    EXPECT_EQ(stored().dmDriverVersion, 3);
    EXPECT_EQ(stored().dmFields, kDriverFields);
}

TEST_F(DevModeJson, KeysOutsideTheTableAreIgnored) {
    EXPECT_NE(apply(R"({"dmPelsWidth": 640, "dmSize": 4, "dmDriverExtra": 0, "dmFields": 0,
                        "dmSpecVersion": 3, "dmLogPixels": 96, "dmReserved1": 5})"),
              0);
    DEVMODEW mode = stored();
    EXPECT_EQ(mode.dmPelsWidth, 1024u);
    EXPECT_EQ(mode.dmFields, kDriverFields);
    EXPECT_EQ(mode.dmSpecVersion, 0x401);
    EXPECT_EQ(mode.dmReserved1, 0u);
    EXPECT_EQ(mode.dmSize, sizeof(DEVMODEW));
    EXPECT_EQ(spooler::devModePrivateBytes(storedBlock()), kPrivateBytes);
}

TEST_F(DevModeJson, ADeviceModeObjectLeavesTheMediaKeysUnread) {
    PrinterUtil::applyClientPreferences(
        parse(R"({"pDevMode": {"dmCopies": 4}, "media": "iso_a4_210x297mm", "media-default": "na_legal_8.5x14in"})"),
        printer_, kAddPrinter);
    EXPECT_EQ(stored().dmCopies, 4);
    EXPECT_EQ(stored().dmPaperSize, DMPAPER_LETTER) << "the driver's paper";
    EXPECT_FALSE(logged("Got 'media' string:iso_a4_210x297mm"));
    EXPECT_FALSE(logged("Attempting to set paper size using Mac preference of:iso_a4_210x297mm"));
    expectStoredOnce();
}

// ---- The table ----

TEST_F(DevModeJson, EveryKeyOfTheTableReachesItsMemberAndBit) {
    DEVMODEW bare{};
    bare.dmFields = 0;
    usePrinterWithDriverMode(bare);
    EXPECT_NE(apply(R"({"dmDeviceName": "Dev", "dmDriverVersion": 7, "dmOrientation": 2, "dmPaperSize": 9,
        "dmPaperLength": 2970, "dmPaperWidth": 2100, "dmScale": 90, "dmCopies": 3, "dmDefaultSource": 7,
        "dmPrintQuality": -4, "dmColor": 1, "dmDuplex": 2, "dmYResolution": 300, "dmTTOption": 3, "dmCollate": 1,
        "dmFormName": "A4", "dmNup": 2, "dmICMMethod": 1, "dmICMIntent": 3, "dmMediaType": 258,
        "dmDitherType": 4294967295})"),
              0);
    DEVMODEW mode = stored();
    EXPECT_EQ(std::wstring(mode.dmDeviceName), L"Dev");
    EXPECT_EQ(mode.dmDriverVersion, 7);
    EXPECT_EQ(mode.dmOrientation, 2);
    EXPECT_EQ(mode.dmPaperSize, 9);
    EXPECT_EQ(mode.dmPaperLength, 2970);
    EXPECT_EQ(mode.dmPaperWidth, 2100);
    EXPECT_EQ(mode.dmScale, 90);
    EXPECT_EQ(mode.dmCopies, 3);
    EXPECT_EQ(mode.dmDefaultSource, 7);
    EXPECT_EQ(mode.dmPrintQuality, -4);
    EXPECT_EQ(mode.dmColor, 1);
    EXPECT_EQ(mode.dmDuplex, 2);
    EXPECT_EQ(mode.dmYResolution, 300);
    EXPECT_EQ(mode.dmTTOption, 3);
    EXPECT_EQ(mode.dmCollate, 1);
    EXPECT_EQ(std::wstring(mode.dmFormName), L"A4");
    EXPECT_EQ(mode.dmNup, 2u);
    EXPECT_EQ(mode.dmICMMethod, 1u);
    EXPECT_EQ(mode.dmICMIntent, 3u);
    EXPECT_EQ(mode.dmMediaType, 258u);
    EXPECT_EQ(mode.dmDitherType, 4294967295u);
    EXPECT_EQ(mode.dmFields, 0x1u | 0x2 | 0x4 | 0x8 | 0x10 | 0x100 | 0x200 | 0x400 | 0x800 | 0x1000 | 0x2000 | 0x4000 |
                                 0x8000 | 0x10000 | 0x40 | 0x800000 | 0x1000000 | 0x2000000 | 0x4000000);
}

TEST_F(DevModeJson, SignedMembersTakeTheLowSixteenBitsOfNegativeAndLargeNumbers) {
    EXPECT_NE(apply(R"({"dmPaperLength": -2, "dmScale": 98304, "dmYResolution": 32768})"), 0);
    EXPECT_EQ(stored().dmPaperLength, -2);
    EXPECT_EQ(stored().dmScale, static_cast<short>(98304 & 0xFFFF));
    EXPECT_EQ(stored().dmYResolution, -32768);
}

TEST_F(DevModeJson, UnsignedMembersThatDoNotConvertKeepTheirValueAndSetTheirBit) {
    DEVMODEW bare = driverDevMode();
    bare.dmFields = 0;
    bare.dmMediaType = 5;
    usePrinterWithDriverMode(bare);
    EXPECT_NE(apply(R"({"dmMediaType": -1, "dmNup": "two"})"), 0);
    EXPECT_EQ(stored().dmMediaType, 5u);
    EXPECT_EQ(stored().dmNup, bare.dmNup);
    EXPECT_EQ(stored().dmFields, static_cast<DWORD>(DM_MEDIATYPE | DM_NUP));
}

// ---- Every line ----

TEST_F(DevModeJson, ANullDeviceModeIsRefusedWithTheLineOfTheOtherDirection) {
    PrinterUtil::jsonToDevMode(parse(R"({"dmCopies": 2})"), nullptr);
    expectLine("devModeToJson called with NULL struct", 5, kError, "PrinterUtil::jsonToDevMode");
}

TEST_F(DevModeJson, AnUnreadablePrinterIsLoggedAndNothingStored) {
    simhost::Host::get().faults().failCall("GetPrinterW", ERROR_INVALID_HANDLE);
    EXPECT_EQ(apply(R"({"dmCopies": 2})"), 0);
    expectLine("Failed to get PRINTER_INFO_2", 4, kError, kSetPreferences);
    EXPECT_EQ(calls("SetPrinterW"), 0u);
}

TEST_F(DevModeJson, ARefusedRecordIsLoggedWithTheSystemErrorAndAnswersZero) {
    simhost::Host::get().faults().failCall("SetPrinterW", ERROR_ACCESS_DENIED);
    EXPECT_EQ(apply(R"({"dmCopies": 2})"), 0);
    expectLine("SetPrinter 2 error: Err:5:Access is denied.", 4, kError, kSetPreferences);
    EXPECT_FALSE(logged("setPreferences - success"));
    EXPECT_EQ(storedBlock(), driverBlock_);
}

}  // namespace
