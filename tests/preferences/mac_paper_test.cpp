// A Mac client's paper on printers of the simulated spooler: which media key
// decides, the exact lookup, a constant or the dimensions written into the
// device mode the spooler keeps, and every line.
#include "PreferencesFixture.h"
#include "preferences/MacPaper.h"
#include "preferences/PrinterPreferences.h"

#include <stdexcept>
#include <string>
#include <vector>

using namespace preferencestest;

namespace {

constexpr const char* kUpdate = "PrinterUtil::UpdateDevmodeWithMacPaper";

// The driver's device mode without the paper bits, so that the bits the
// paper sets can be told apart.
DEVMODEW withoutPaperBits() {
    DEVMODEW mode = driverDevMode();
    mode.dmFields = DM_ORIENTATION | DM_COPIES;
    mode.dmPaperWidth = 11;
    mode.dmPaperLength = 12;
    return mode;
}

class MacPaper : public PreferencesTest {
protected:
    void SetUp() override {
        PreferencesTest::SetUp();
        usePrinterWithDriverMode(withoutPaperBits());
    }
    void choose(const std::string& request) {
        PrinterUtil::applyClientPreferences(parse(request), printer_, kAddPrinter);
    }
    bool loggedStartingWith(const std::string& start) const {
        for (const std::string& message : log_.messages())
            if (message.rfind(start, 0) == 0) return true;
        return false;
    }
    void expectPaperConstant(short constant) {
        EXPECT_EQ(stored().dmPaperSize, constant);
        EXPECT_EQ(stored().dmFields, static_cast<DWORD>(DM_ORIENTATION | DM_COPIES | DM_PAPERSIZE));
        EXPECT_EQ(stored().dmPaperWidth, 11) << "the dimensions stay the driver's";
        expectLine("Set printer page size to Mac spec.", 2, kNormal, kAddPrinter);
    }
    void expectDriversPaper() {
        EXPECT_EQ(storedBlock(), driverBlock_);
        EXPECT_EQ(calls("SetPrinterW"), 0u);
    }
};

// ---- The edge cases ----

TEST_F(MacPaper, AnIsoA4MediaSetsItsConstantAndTheDefaultIsNotRead) {
    choose(R"({"media": "iso_a4_210x297mm", "media-default": "na_legal_8.5x14in"})");
    expectPaperConstant(9);
    expectLine("Got 'media' string:iso_a4_210x297mm", 2, kNormal, kAddPrinter);
    expectLine("Attempting to set paper size using Mac preference of:iso_a4_210x297mm", 2, kNormal, kAddPrinter);
    expectLine("Found Windows version constant for Mac paper size:iso_a4_210x297mm, constant:9", 3, kNormal, kUpdate);
    EXPECT_FALSE(loggedStartingWith("media-available string:"));
    EXPECT_FALSE(log_.contents().find("na_legal") != std::string::npos);
    EXPECT_EQ(spooler::devModePrivateBytes(storedBlock()), kPrivateBytes);
}

TEST_F(MacPaper, ASizeWithoutConstantGoesByItsDimensions) {
    choose(R"({"media": "na_index-3x5_3x5in"})");
    DEVMODEW mode = stored();
    EXPECT_EQ(mode.dmPaperWidth, 762);
    EXPECT_EQ(mode.dmPaperLength, 1270);
    EXPECT_EQ(mode.dmFields, static_cast<DWORD>(DM_ORIENTATION | DM_COPIES | DM_PAPERWIDTH | DM_PAPERLENGTH));
    EXPECT_EQ(mode.dmPaperSize, DMPAPER_LETTER) << "the driver's paper size, and its bit, stay as they were";
    expectLine(
        "Didn't find Windows version constant for Mac paper size:na_index-3x5_3x5in. Going with dimensions:762x1270", 3,
        kError, kUpdate);
    expectLine("Set printer page size to Mac spec.", 2, kNormal, kAddPrinter);
}

TEST_F(MacPaper, OnlyTheExactSelfDescribingNameIsKnown) {
    for (const char* name : {"NA_LETTER_8.5X11IN", "na-letter", "Letter"}) {
        choose(std::string(R"({"media": ")") + name + R"("})");
        expectLine(std::string("Failed to find Windows version of Mac paper size:") + name, 4, kError, kUpdate);
    }
    expectDriversPaper();
    EXPECT_FALSE(log_.contains("Set printer page size to Mac spec."));
}

TEST_F(MacPaper, AnEmptyMediaGivesWayToTheDefaultWithoutItsLine) {
    choose(R"({"media": "", "media-default": "na_legal_8.5x14in"})");
    expectPaperConstant(5);
    EXPECT_FALSE(loggedStartingWith("Got 'media' string:"));
    EXPECT_FALSE(loggedStartingWith("media-available string:"));
    expectLine("Attempting to set paper size using Mac preference of:na_legal_8.5x14in", 2, kNormal, kAddPrinter);
}

TEST_F(MacPaper, AnEmptyAvailableListIsLoggedEmptyAndTheSupportedListDecides) {
    choose(R"({"media-available": [], "media-supported": ["jis_b5_182x257mm", "iso_a4_210x297mm"]})");
    expectPaperConstant(13);
    expectLine("media-available string:", 2, kNormal, kAddPrinter);
    expectLine("media-supported string:jis_b5_182x257mm", 2, kNormal, kAddPrinter);
    std::vector<std::string> messages = log_.messages();
    auto at = [&](const std::string& message) {
        for (size_t i = 0; i < messages.size(); ++i)
            if (messages[i] == message) return i;
        return messages.size();
    };
    EXPECT_LT(at("media-available string:"), at("media-supported string:jis_b5_182x257mm"));
}

TEST_F(MacPaper, ACommaSeparatedAvailableTextStaysOneNameAndFails) {
    choose(R"({"media-available": "iso_a4_210x297mm,na_letter_8.5x11in", "media-supported": ["iso_a4_210x297mm"]})");
    expectLine("media-available string:iso_a4_210x297mm,na_letter_8.5x11in", 2, kNormal, kAddPrinter);
    expectLine("Failed to find Windows version of Mac paper size:iso_a4_210x297mm,na_letter_8.5x11in", 4, kError,
               kUpdate);
    EXPECT_FALSE(loggedStartingWith("media-supported string:"));
    expectDriversPaper();
}

TEST_F(MacPaper, ADeviceModeObjectMeansNoMediaKeyIsRead) {
    choose(R"({"pDevMode": {}, "media": "iso_a4_210x297mm", "media-default": "na_legal_8.5x14in",
               "media-available": ["jis_b5_182x257mm"], "media-supported": ["iso_a5_148x210mm"]})");
    for (const char* start : {"Got 'media' string:", "media-available string:", "media-supported string:",
                              "Attempting to set paper size", "Failed to find", "Found Windows version"})
        EXPECT_FALSE(loggedStartingWith(start)) << start;
    EXPECT_EQ(stored().dmPaperSize, DMPAPER_LETTER);
    expectLine("setPreferences - success", 2, kNormal, "PrinterUtil::setPreferences");
}

TEST_F(MacPaper, ADeviceModeAsTextCountsAsAbsent) {
    choose(R"({"pDevMode": "dmPaperSize=9", "media": "na_legal_8.5x14in"})");
    expectPaperConstant(5);
    EXPECT_FALSE(log_.contains("Setting printer preferences"));
}

TEST_F(MacPaper, ADeviceModeAsANumberCountsAsAbsent) {
    choose(R"({"pDevMode": 42, "media": "iso_a5_148x210mm"})");
    expectPaperConstant(11);
    EXPECT_FALSE(log_.contains("Setting printer preferences"));
}

// ---- What else the choice does ----

TEST_F(MacPaper, WithoutAnyNameOnlyTheTwoListLinesAreWritten) {
    choose(R"({"printerName": "Local Desk"})");
    expectLine("media-available string:", 2, kNormal, kAddPrinter);
    expectLine("media-supported string:", 2, kNormal, kAddPrinter);
    EXPECT_FALSE(loggedStartingWith("Attempting to set paper size"));
    EXPECT_EQ(calls("GetPrinterW"), 0u);
    expectDriversPaper();
}

TEST_F(MacPaper, AListsFirstElementAndANumbersTextAreNames) {
    EXPECT_EQ(PrinterUtil::chooseMacMediaName(parse(R"({"media-available": ["a", "b"]})"), kAddPrinter), "a");
    EXPECT_EQ(PrinterUtil::chooseMacMediaName(parse(R"({"media-available": 42})"), kAddPrinter), "42");
    EXPECT_EQ(PrinterUtil::chooseMacMediaName(parse(R"({"media-supported": true})"), kAddPrinter), "true");
    EXPECT_EQ(PrinterUtil::chooseMacMediaName(parse(R"({"media-default": "x", "media": 7})"), kAddPrinter), "7");
}

TEST_F(MacPaper, AnObjectWhereANameIsWantedThrowsTheLibrarysError) {
    EXPECT_THROW(choose(R"({"media-available": {"name": "iso_a4_210x297mm"}})"), std::exception);
    EXPECT_THROW(choose(R"({"media-supported": [["iso_a4_210x297mm"]]})"), std::exception);
    expectDriversPaper();
}

TEST_F(MacPaper, AnUnreadablePrinterKeepsItsPaper) {
    simhost::Host::get().faults().failCall("GetPrinterW", ERROR_INVALID_HANDLE);
    choose(R"({"media": "iso_a4_210x297mm"})");
    EXPECT_FALSE(log_.contains("Set printer page size to Mac spec."));
    expectDriversPaper();
}

TEST_F(MacPaper, ARefusedRecordIsLoggedWithTheSystemError) {
    simhost::Host::get().faults().failCall("SetPrinterW", ERROR_ACCESS_DENIED);
    choose(R"({"media": "iso_a4_210x297mm"})");
    expectLine("SetPrinter 2 error: Err:5:Access is denied.", 4, kError, kAddPrinter);
    EXPECT_EQ(storedBlock(), driverBlock_);
}

// ---- The lookup alone ----

TEST(UpdateDevmodeWithMacPaper, WritesOnlyThePaperItFinds) {
    DEVMODEW mode{};
    mode.dmPaperSize = 1;
    EXPECT_EQ(PrinterUtil::UpdateDevmodeWithMacPaper("na_10x14_10x14in", &mode), 1);
    EXPECT_EQ(mode.dmPaperSize, 44) << "the table's constant, not corrected";
    EXPECT_EQ(mode.dmFields, static_cast<DWORD>(DM_PAPERSIZE));
    DEVMODEW other{};
    EXPECT_EQ(PrinterUtil::UpdateDevmodeWithMacPaper("iso_2a0_1189x1682mm", &other), 1);
    EXPECT_EQ(other.dmPaperWidth, 11890);
    EXPECT_EQ(other.dmPaperLength, 16820);
    EXPECT_EQ(other.dmFields, static_cast<DWORD>(DM_PAPERWIDTH | DM_PAPERLENGTH));
    DEVMODEW untouched{};
    EXPECT_EQ(PrinterUtil::UpdateDevmodeWithMacPaper("", &untouched), 0);
    EXPECT_EQ(untouched.dmFields, 0u);
}

}  // namespace
