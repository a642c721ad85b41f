#include "drivers/MakeAndModelHwids.h"

#include "foundation/TextConversion.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

using PrinterUtil::addChecksummedMakeAndModelHwids;
using PrinterUtil::addMakeAndModelHwids;
using PrinterUtil::checksummedHwid;
using PrinterUtil::deviceIdToChecksummedHwid;
using PrinterUtil::getMacManufacturerModelStr;
using PrinterUtil::getMakeAndModelStrings;

using Strings = std::vector<std::string>;

Strings toStrings(const Json::Value& array) {
    Strings strings;
    for (const Json::Value& element : array) strings.push_back(element.asString());
    return strings;
}

Strings checksummedIdsOf(const std::wstring& makeAndModel) {
    Json::Value ids(Json::arrayValue);
    addChecksummedMakeAndModelHwids(makeAndModel, ids);
    return toStrings(ids);
}

Strings spellingsOf(const std::wstring& makeAndModel) {
    Json::Value ids(Json::arrayValue);
    addMakeAndModelHwids(makeAndModel, ids);
    return toStrings(ids);
}

Json::Value requestWith(const std::string& key, const std::string& value) {
    Json::Value request(Json::objectValue);
    request[key] = value;
    return request;
}

// ---- Checksummed ids ----

TEST(ChecksummedHwid, JoinsManufacturerAndModelAndAppendsTheChecksum) {
    EXPECT_EQ(checksummedHwid(L"Acme", L"LaserBox 2000"), L"AcmeLaserBox_2000EA13");
}

TEST(ChecksummedHwid, UsesTheTableOfTheInfFilesNotThePublishedCrc16) {
    // The published CRC-16 of these nine bytes is 0xBB3D.
    EXPECT_EQ(checksummedHwid(L"123456789", L""), L"123456789593C");
}

TEST(ChecksummedHwid, TwoEmptyStringsGiveTheChecksumAlone) { EXPECT_EQ(checksummedHwid(L"", L""), L"0000"); }

TEST(ChecksummedHwid, KeepsTwentyBytesAndCutsTheTwentyFirstWhileItsChecksumCountsIt) {
    EXPECT_EQ(checksummedHwid(L"abcdefghij", L"klmnopqrst"), L"abcdefghijklmnopqrst5F73");
    EXPECT_EQ(checksummedHwid(L"abcdefghij", L"klmnopqrstu"), L"abcdefghijklmnopqrst02DF");
    EXPECT_EQ(checksummedHwid(L"abcdefghij", L"klmnopqrstv"), L"abcdefghijklmnopqrst039F");
}

TEST(ChecksummedHwid, TakesTheChecksumBeforeBlanksBecomeUnderscores) {
    EXPECT_EQ(checksummedHwid(L"Acme", L"LaserBox_2000"), L"AcmeLaserBox_2000E0A7");
}

TEST(ChecksummedHwid, CutInsideAMultiByteSequenceLeavesWhatTheConversionMakesOfIt) {
    // "abcdefghijklmnopqrs" + U+00E9 + "a": the cut at byte 20 keeps only the
    // lead byte 0xC3 of the two-byte sequence.
    std::wstring id = checksummedHwid(L"abcdefghijklmnopqrs", L"\u00E9a");
    EXPECT_EQ(id, utf8ToWide("abcdefghijklmnopqrs\xC3" "966A"));
    // Without the flag for invalid characters the conversion puts U+FFFD in
    // place of the broken sequence.
    EXPECT_EQ(id, L"abcdefghijklmnopqrs\uFFFD966A");
}

// ---- Device id ----

TEST(DeviceId, TakesManufacturerAndModel) {
    std::wstring manufacturer, model;
    Json::Value request = requestWith("device-id", "MFG:Acme;MDL:LaserBox 2000;CMD:PCL;");
    EXPECT_TRUE(getMacManufacturerModelStr(request, manufacturer, model));
    EXPECT_EQ(manufacturer, L"Acme");
    EXPECT_EQ(model, L"LaserBox 2000");
    EXPECT_EQ(deviceIdToChecksummedHwid(request), L"AcmeLaserBox_2000EA13");
}

TEST(DeviceId, WorksWithTheModelFirst) {
    std::wstring manufacturer, model;
    EXPECT_TRUE(getMacManufacturerModelStr(requestWith("device-id", "MDL:Box 2000;MFG:Acme;"), manufacturer, model));
    EXPECT_EQ(manufacturer, L"Acme");
    EXPECT_EQ(model, L"Box 2000");
}

TEST(DeviceId, AValueWithoutItsSemicolonIsNotFound) {
    std::wstring manufacturer, model;
    Json::Value request = requestWith("device-id", "MFG:Acme;MDL:Box 2000");
    EXPECT_FALSE(getMacManufacturerModelStr(request, manufacturer, model));
    EXPECT_EQ(manufacturer, L"Acme");
    EXPECT_EQ(model, L"");
    EXPECT_EQ(deviceIdToChecksummedHwid(request), L"");
}

TEST(DeviceId, EmptyValuesCountAsFoundAndGiveTheBareChecksum) {
    std::wstring manufacturer = L"x", model = L"y";
    Json::Value request = requestWith("device-id", "MFG:;MDL:;");
    EXPECT_TRUE(getMacManufacturerModelStr(request, manufacturer, model));
    EXPECT_EQ(manufacturer, L"");
    EXPECT_EQ(model, L"");
    EXPECT_EQ(deviceIdToChecksummedHwid(request), L"0000");
}

TEST(DeviceId, TrimsWhiteSpaceAroundValues) {
    std::wstring manufacturer, model;
    EXPECT_TRUE(getMacManufacturerModelStr(requestWith("device-id", "MFG: \tAcme ;MDL:  Box 2000\r\n;"),
                                           manufacturer, model));
    EXPECT_EQ(manufacturer, L"Acme");
    EXPECT_EQ(model, L"Box 2000");
}

TEST(DeviceId, AKeyThatEndsInTheLettersIsTaken) {
    std::wstring manufacturer, model;
    EXPECT_TRUE(
        getMacManufacturerModelStr(requestWith("device-id", "XMFG:Acme;CMDL:Box;"), manufacturer, model));
    EXPECT_EQ(manufacturer, L"Acme");
    EXPECT_EQ(model, L"Box");
}

TEST(DeviceId, LongKeyFormsAndOtherCasesAreNotRecognised) {
    std::wstring manufacturer, model;
    EXPECT_FALSE(getMacManufacturerModelStr(requestWith("device-id", "MANUFACTURER:Acme;MODEL:Box;mfg:Acme;mdl:Box;"),
                                            manufacturer, model));
    EXPECT_EQ(manufacturer, L"");
    EXPECT_EQ(model, L"");
}

TEST(DeviceId, TakesTheFirstOccurrenceOfAKey) {
    std::wstring manufacturer, model;
    EXPECT_TRUE(getMacManufacturerModelStr(requestWith("device-id", "MFG:Acme;MDL:One;MDL:Two;"), manufacturer,
                                           model));
    EXPECT_EQ(model, L"One");
}

TEST(DeviceId, AbsentOrEmptyDeviceIdGivesFalse) {
    std::wstring manufacturer, model;
    EXPECT_FALSE(getMacManufacturerModelStr(Json::Value(Json::objectValue), manufacturer, model));
    EXPECT_FALSE(getMacManufacturerModelStr(requestWith("device-id", ""), manufacturer, model));
    EXPECT_EQ(deviceIdToChecksummedHwid(Json::Value(Json::objectValue)), L"");
}

// ---- Make-and-model strings ----

TEST(MakeAndModelStrings, NoKeysGiveAnEmptyArray) {
    Json::Value strings = getMakeAndModelStrings(Json::Value(Json::objectValue));
    EXPECT_TRUE(strings.isArray());
    EXPECT_EQ(strings.size(), 0u);
    EXPECT_TRUE(getMakeAndModelStrings(Json::Value("not an object")).isArray());
    EXPECT_EQ(getMakeAndModelStrings(Json::Value("not an object")).size(), 0u);
}

TEST(MakeAndModelStrings, CollectsAllFourKeysTrimmed) {
    Json::Value request(Json::objectValue);
    request["device_make_and_model"] = " Acme A ";
    request["printer-make-and-model"] = "\tAcme B";
    request["device-info"] = "Acme C\n";
    request["device-make-and-model"] = "Acme D";
    EXPECT_EQ(toStrings(getMakeAndModelStrings(request)), (Strings{"Acme A", "Acme B", "Acme C", "Acme D"}));
}

TEST(MakeAndModelStrings, UnknownInCapitalsGoesIn) {
    EXPECT_EQ(toStrings(getMakeAndModelStrings(requestWith("device_make_and_model", "Unknown"))),
              Strings{"Unknown"});
}

TEST(MakeAndModelStrings, ADeviceMakeAndModelHoldingUnknownIsLeftOut) {
    EXPECT_EQ(toStrings(getMakeAndModelStrings(requestWith("device_make_and_model", "unknown printer"))),
              Strings{});
    EXPECT_EQ(toStrings(getMakeAndModelStrings(requestWith("device_make_and_model", "Device unknown"))),
              Strings{});
}

TEST(MakeAndModelStrings, UnknownIsTestedOnlyInDeviceMakeAndModelWithUnderscores) {
    EXPECT_EQ(toStrings(getMakeAndModelStrings(requestWith("device-make-and-model", "Device unknown"))),
              Strings{"Device unknown"});
}

TEST(MakeAndModelStrings, APrinterMakeAndModelNamingACupsDriverGivesItselfAndTheModel) {
    EXPECT_EQ(toStrings(getMakeAndModelStrings(requestWith("printer-make-and-model", "Acme Box, 1.2 CUPS driver"))),
              (Strings{"Acme Box, 1.2", "Acme Box, 1.2 CUPS driver"}));
}

TEST(MakeAndModelStrings, TheTextBeforeCupsIsTrimmed) {
    EXPECT_EQ(toStrings(getMakeAndModelStrings(requestWith("printer-make-and-model", "Acme Box \t CUPS"))),
              (Strings{"Acme Box", "Acme Box \t CUPS"}));
}

TEST(MakeAndModelStrings, APrinterMakeAndModelOfFourCharactersIsTakenWhole) {
    // Trimmed, " CUPS" is "CUPS": too short to hold the marker.
    EXPECT_EQ(toStrings(getMakeAndModelStrings(requestWith("printer-make-and-model", " CUPS"))), Strings{"CUPS"});
    EXPECT_EQ(toStrings(getMakeAndModelStrings(requestWith("printer-make-and-model", "Acme"))), Strings{"Acme"});
}

TEST(MakeAndModelStrings, AValueOfBlanksOnlyGoesInAsAnEmptyString) {
    EXPECT_EQ(toStrings(getMakeAndModelStrings(requestWith("device-info", "   "))), Strings{""});
    EXPECT_EQ(toStrings(getMakeAndModelStrings(requestWith("device_make_and_model", " "))), Strings{""});
    EXPECT_EQ(toStrings(getMakeAndModelStrings(requestWith("printer-make-and-model", "  "))), Strings{""});
    EXPECT_EQ(toStrings(getMakeAndModelStrings(requestWith("device-make-and-model", "\t"))), Strings{""});
}

TEST(MakeAndModelStrings, EmptyValuesAreLeftOut) {
    Json::Value request(Json::objectValue);
    for (const char* key : {"device_make_and_model", "printer-make-and-model", "device-info", "device-make-and-model"})
        request[key] = "";
    EXPECT_EQ(toStrings(getMakeAndModelStrings(request)), Strings{});
}

TEST(MakeAndModelStrings, EqualTextsGiveOneElementInByteOrder) {
    Json::Value request(Json::objectValue);
    request["device-info"] = "acme box";
    request["device-make-and-model"] = "Acme Box";
    request["printer-make-and-model"] = "Acme Box ";
    EXPECT_EQ(toStrings(getMakeAndModelStrings(request)), (Strings{"Acme Box", "acme box"}));
}

// ---- Variants of one make-and-model string ----

TEST(ChecksummedVariants, EachBlankInTurnBordersManufacturerAndModel) {
    EXPECT_EQ(checksummedIdsOf(L"Acme LaserBox 2000"), (Strings{"AcmeLaserBox_2000EA13", "AcmeLaserBox20008AF2"}));
}

TEST(ChecksummedVariants, SeriesInCapitalsGivesOneIdMore) {
    EXPECT_EQ(checksummedIdsOf(L"Acme LaserBox 2000 Series"),
              (Strings{"AcmeLaserBox_2000_SeCBF5", "AcmeLaserBox2000_Ser1DAD", "AcmeLaserBox2000SeriB6EC"}));
}

TEST(ChecksummedVariants, SeriesInSmallLettersGivesOneIdMore) {
    EXPECT_EQ(checksummedIdsOf(L"Acme LaserBox 2000 series"),
              (Strings{"AcmeLaserBox_2000_se13F3", "AcmeLaserBox2000_ser7DAA", "AcmeLaserBox2000seriD6EB"}));
}

TEST(ChecksummedVariants, AStringWithoutBlanksGivesNoIdButOneSpelling) {
    EXPECT_EQ(checksummedIdsOf(L"LaserBox"), Strings{});
    EXPECT_EQ(spellingsOf(L"LaserBox"), Strings{"LaserBox"});
}

TEST(ChecksummedVariants, AppendsToWhatIsThere) {
    Json::Value ids(Json::arrayValue);
    ids.append("first");
    addChecksummedMakeAndModelHwids(L"Acme LaserBox", ids);
    addMakeAndModelHwids(L"A B", ids);
    EXPECT_EQ(toStrings(ids), (Strings{"first", "AcmeLaserBox79D4", "A_B", "AB"}));
}

TEST(SpellingVariants, UnderscoresComeFirst) {
    EXPECT_EQ(spellingsOf(L"Acme LaserBox 2000"),
              (Strings{"Acme_LaserBox_2000", "Acme_LaserBox2000", "AcmeLaserBox_2000", "AcmeLaserBox2000"}));
}

TEST(SpellingVariants, AnEmptyStringGivesItself) { EXPECT_EQ(spellingsOf(L""), Strings{""}); }

TEST(SpellingVariants, KeepsNonAsciiText) {
    EXPECT_EQ(spellingsOf(L"Acm\u00E9 Box"), (Strings{"Acm\xC3\xA9_Box", "Acm\xC3\xA9" "Box"}));
}

// ---- Properties over random strings ----

// Words of letters and digits: no blanks, no underscores, never empty.
std::wstring randomWord(std::mt19937& random) {
    static const wchar_t kLetters[] = L"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    std::uniform_int_distribution<size_t> length(1, 5);
    std::uniform_int_distribution<size_t> letter(0, (sizeof kLetters / sizeof kLetters[0]) - 2);
    std::wstring word;
    for (size_t i = length(random); i > 0; --i) word += kLetters[letter(random)];
    return word;
}

// n + 1 words with single blanks between them.
std::wstring randomWordsWithBlanks(std::mt19937& random, size_t blanks) {
    std::wstring text = randomWord(random);
    for (size_t i = 0; i < blanks; ++i) text += L" " + randomWord(random);
    return text;
}

// n blanks at random places, leading, trailing and adjacent ones included.
std::wstring randomlyPlacedBlanks(std::mt19937& random, size_t blanks) {
    std::wstring text = randomWord(random);
    for (size_t i = 0; i < blanks; ++i) {
        std::uniform_int_distribution<size_t> place(0, text.size());
        text.insert(place(random), 1, L' ');
    }
    return text;
}

// The text part of the checksummed id whose border is blank `index`: the
// blanks before it squeezed out, the later ones shown as "_", cut to 20.
std::string expectedIdText(std::wstring text, size_t index) {
    for (size_t i = 0; i <= index; ++i) text.erase(text.find(L' '), 1);
    std::string utf8 = wideToUtf8(text);
    for (char& c : utf8)
        if (c == ' ') c = '_';
    return utf8.substr(0, 20);
}

bool allDistinct(const Strings& strings) { return std::set<std::string>(strings.begin(), strings.end()).size() == strings.size(); }

constexpr size_t kMaxBlanks = 12;
constexpr int kStringsPerBlankCount = 3;

TEST(VariantProperties, NBlanksGiveNChecksummedIdsAndTwoToTheNSpellings) {
    std::mt19937 random(20240131);
    for (size_t blanks = 0; blanks <= kMaxBlanks; ++blanks) {
        for (int round = 0; round < kStringsPerBlankCount; ++round) {
            std::wstring text = randomlyPlacedBlanks(random, blanks);
            SCOPED_TRACE(wideToUtf8(text));
            EXPECT_EQ(checksummedIdsOf(text).size(), blanks);
            EXPECT_EQ(spellingsOf(text).size(), size_t{1} << blanks);
        }
    }
}

TEST(VariantProperties, SingleBlanksBetweenWordsGiveDistinctSpellings) {
    std::mt19937 random(7);
    for (size_t blanks = 0; blanks <= kMaxBlanks; ++blanks) {
        for (int round = 0; round < kStringsPerBlankCount; ++round) {
            std::wstring text = randomWordsWithBlanks(random, blanks);
            SCOPED_TRACE(wideToUtf8(text));
            Strings spellings = spellingsOf(text);
            ASSERT_EQ(spellings.size(), size_t{1} << blanks);
            EXPECT_TRUE(allDistinct(spellings));
            EXPECT_TRUE(std::none_of(spellings.begin(), spellings.end(),
                                     [](const std::string& spelling) { return spelling.find(' ') != std::string::npos; }));
        }
    }
}

TEST(VariantProperties, ChecksummedIdsCarryTheirTextAndAreDistinctWhereTheirTextsAre) {
    std::mt19937 random(11);
    for (size_t blanks = 0; blanks <= kMaxBlanks; ++blanks) {
        for (int round = 0; round < kStringsPerBlankCount; ++round) {
            std::wstring text = randomWordsWithBlanks(random, blanks);
            SCOPED_TRACE(wideToUtf8(text));
            Strings ids = checksummedIdsOf(text);
            ASSERT_EQ(ids.size(), blanks);
            Strings texts;
            for (size_t i = 0; i < ids.size(); ++i) {
                texts.push_back(expectedIdText(text, i));
                ASSERT_EQ(ids[i].size(), texts.back().size() + 4);
                EXPECT_EQ(ids[i].substr(0, texts.back().size()), texts.back());
                EXPECT_EQ(ids[i].find_first_not_of("0123456789ABCDEF", texts.back().size()), std::string::npos);
            }
            if (allDistinct(texts)) {
                EXPECT_TRUE(allDistinct(ids));
            }
        }
    }
}

// ---- Log lines ----

// "<level>|<function>|<message>" for each line of the log.
Strings loggedLines(const testsupport::LogCapture& log) {
    Strings summaries;
    for (const testsupport::LogLine& line : log.lines())
        summaries.push_back(std::to_string(line.level) + "|" + line.function + "|" + line.message);
    return summaries;
}

TEST(MakeAndModelLog, AMissingDeviceIdIsLogged) {
    testsupport::LogCapture log;
    std::wstring manufacturer, model;
    getMacManufacturerModelStr(Json::Value(Json::objectValue), manufacturer, model);
    EXPECT_EQ(loggedLines(log), Strings{"3|PrinterUtil::getMacManufacturerModelStr|"
                                        "No device-id in Json. Device probably not attached."});
}

TEST(MakeAndModelLog, FoundModelAndManufacturerAreLogged) {
    testsupport::LogCapture log;
    std::wstring manufacturer, model;
    getMacManufacturerModelStr(requestWith("device-id", "MFG:Acme;MDL:Box 2000;"), manufacturer, model);
    EXPECT_EQ(loggedLines(log),
              (Strings{"2|PrinterUtil::getMacManufacturerModelStr|Got model:Box 2000 from device-id",
                       "2|PrinterUtil::getMacManufacturerModelStr|Got Manufacturer:Acme from device-id"}));
}

TEST(MakeAndModelLog, ModelAndManufacturerOutsideAsciiAreLoggedAsUtf8) {
    testsupport::LogCapture log;
    std::wstring manufacturer, model;
    getMacManufacturerModelStr(requestWith("device-id", "MFG:Acm\xc3\xa9;MDL:\xe6\xbc\xa2 Box\xc3\xa9;"), manufacturer,
                               model);
    EXPECT_EQ(model, L"\u6f22 Box\u00e9");
    EXPECT_EQ(loggedLines(log),
              (Strings{"2|PrinterUtil::getMacManufacturerModelStr|Got model:\xe6\xbc\xa2 Box\xc3\xa9 from device-id",
                       "2|PrinterUtil::getMacManufacturerModelStr|Got Manufacturer:Acm\xc3\xa9 from device-id"}));
    EXPECT_EQ(log.lines()[0].channel, static_cast<int>(kLogNormal));
}

TEST(MakeAndModelLog, OnlyWhatWasFoundIsLogged) {
    testsupport::LogCapture log;
    std::wstring manufacturer, model;
    getMacManufacturerModelStr(requestWith("device-id", "MFG:Acme;MDL:Box 2000"), manufacturer, model);
    EXPECT_EQ(loggedLines(log),
              Strings{"2|PrinterUtil::getMacManufacturerModelStr|Got Manufacturer:Acme from device-id"});
}

TEST(MakeAndModelLog, DeviceIdToChecksummedHwidLogsThroughTheLookUp) {
    testsupport::LogCapture log;
    deviceIdToChecksummedHwid(Json::Value(Json::objectValue));
    EXPECT_EQ(loggedLines(log), Strings{"3|PrinterUtil::getMacManufacturerModelStr|"
                                        "No device-id in Json. Device probably not attached."});
}

}  // namespace
