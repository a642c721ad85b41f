// INF files as setupapi reads them: sections, keys and fields, quotes,
// comments, continued lines, %strkey% tokens and the encodings of the file.
#include "setupapi_inf_helpers.h"

#include "simhost/kernel32/host_settings.h"

using namespace inf_test;
using Lines = std::vector<std::vector<std::wstring>>;

namespace {

class InfSyntax : public InfFiles {};

const std::string kPrinterInf = std::string(kVersion) +
                                "Provider=%Acme%\r\n"
                                "\r\n"
                                "[Manufacturer]\r\n"
                                "%Acme% = Acme, NTamd64, NTamd64.10.0\r\n"
                                "\"Brightline\" = Bright\r\n"
                                "\r\n"
                                "[Acme]\r\n"
                                "%LaserBox% = LASERBOX.INSTALL, USBPRINT\\AcmeLaserBox_2000EA13, AcmeLaserBox_2000EA13\r\n"
                                "\r\n"
                                "[Acme.NTamd64]\r\n"
                                "%LaserBox% = LASERBOX.INSTALL, USBPRINT\\AcmeLaserBox_2000EA13, AcmeLaserBox_2000EA13\r\n"
                                "%LaserBoxPro% = LASERBOX.INSTALL, AcmeLaserBox_Pro\r\n"
                                "\r\n"
                                "[Manufacturer.NTamd64.10.0]\r\n"
                                "Acme = Acme.NTamd64\r\n"
                                "\r\n"
                                "[Bright]\r\n"
                                "\"Bright Jet 5\" = BRIGHT.INSTALL,BrightJet5\r\n"
                                "\r\n"
                                "[Strings]\r\n"
                                "Acme = \"Acme Printers\"\r\n"
                                "LaserBox = \"Acme LaserBox 2000\"\r\n"
                                "LaserBoxPro = \"Acme LaserBox Pro\"\r\n";

TEST_F(InfSyntax, ManufacturersAndTheirModels) {
    HINF inf = openText(kPrinterInf);
    EXPECT_EQ(sectionLines(inf, L"Manufacturer"),
              (Lines{{L"Acme Printers", L"Acme", L"NTamd64", L"NTamd64.10.0"}, {L"Brightline", L"Bright"}}));
    INFCONTEXT acme = firstLine(inf, L"Manufacturer");
    EXPECT_EQ(fieldsFrom(acme, 2), (std::vector<std::wstring>{L"NTamd64", L"NTamd64.10.0"}));
    EXPECT_EQ(sectionLines(inf, L"Acme"), (Lines{{L"Acme LaserBox 2000", L"LASERBOX.INSTALL",
                                                  L"USBPRINT\\AcmeLaserBox_2000EA13", L"AcmeLaserBox_2000EA13"}}));
    // Two models of the decorated section share one install section.
    Lines decorated = sectionLines(inf, L"acme.ntamd64");
    ASSERT_EQ(decorated.size(), 2u);
    EXPECT_EQ(decorated[0][1], L"LASERBOX.INSTALL");
    EXPECT_EQ(decorated[1], (std::vector<std::wstring>{L"Acme LaserBox Pro", L"LASERBOX.INSTALL", L"AcmeLaserBox_Pro"}));
    EXPECT_EQ(sectionLines(inf, L"Manufacturer.NTamd64.10.0"), (Lines{{L"Acme", L"Acme.NTamd64"}}));
    EXPECT_EQ(sectionLines(inf, L"Bright"), (Lines{{L"Bright Jet 5", L"BRIGHT.INSTALL", L"BrightJet5"}}));
    SetupCloseInfFile(inf);
}

TEST_F(InfSyntax, KeysAreFoundInAnyCaseAfterSubstitution) {
    HINF inf = openText(kPrinterInf);
    INFCONTEXT pro = firstLine(inf, L"Acme.NTamd64", L"acme laserbox PRO");
    EXPECT_EQ(pro.Line, 1u);
    EXPECT_EQ(field(pro, 2), L"AcmeLaserBox_Pro");
    EXPECT_EQ(field(firstLine(inf, L"VERSION", L"provider"), 1), L"Acme Printers");
    SetupCloseInfFile(inf);
}

TEST_F(InfSyntax, QuotesCommentsAndBlanks) {
    HINF inf = openText(std::string(kVersion) +
                        "[Fields]\n"
                        "  spaced key  =   a  b  ,  \"  kept  \" , ; a comment\n"
                        "quoted = \"one, two; three\", \"say \"\"hi\"\"\"\n"
                        "empty = a,,\"\"\n"
                        "nothing =\n"
                        "; only a comment\n"
                        "\t\n"
                        "USBPRINT\\AcmeLaserBox_2000EA13, AcmeLaserBox_2000EA13\n");
    EXPECT_EQ(sectionLines(inf, L"Fields"),
              (Lines{{L"spaced key", L"a  b", L"  kept  ", L""},
                     {L"quoted", L"one, two; three", L"say \"hi\""},
                     {L"empty", L"a", L"", L""},
                     {L"nothing"},
                     {L"", L"USBPRINT\\AcmeLaserBox_2000EA13", L"AcmeLaserBox_2000EA13"}}));
    SetupCloseInfFile(inf);
}

TEST_F(InfSyntax, ABackslashContinuesTheLine) {
    HINF inf = openText(std::string(kVersion) +
                        "[Models]\n"
                        "Model = INSTALL, \\\n"
                        "        USBPRINT\\AcmeLaserBox_2000EA13, \\   ; a comment after the backslash\n"
                        "        AcmeLaserBox_2000EA13\n"
                        "Next = \"ends in a backslash\\\"\n");
    EXPECT_EQ(sectionLines(inf, L"Models"),
              (Lines{{L"Model", L"INSTALL", L"USBPRINT\\AcmeLaserBox_2000EA13", L"AcmeLaserBox_2000EA13"},
                     {L"Next", L"ends in a backslash\\"}}));
    SetupCloseInfFile(inf);
}

TEST_F(InfSyntax, SectionsRepeatedMergeAndLinesBeforeTheFirstAreIgnored) {
    HINF inf = openText("stray = line\n" + std::string(kVersion) +
                        "[Copy Files.One]\nfirst.dll\n[Other]\nx=1\n[COPY FILES.ONE]\nsecond.dll\n");
    EXPECT_EQ(sectionLines(inf, L"copy files.one"), (Lines{{L"", L"first.dll"}, {L"", L"second.dll"}}));
    INFCONTEXT context{};
    EXPECT_FALSE(SetupFindFirstLineW(inf, L"Version", L"stray", &context));
    SetupCloseInfFile(inf);
}

TEST_F(InfSyntax, StringTokens) {
    HINF inf = openText(std::string(kVersion) +
                        "[Tokens]\n"
                        "%Name% = \"%Name% in quotes\", 100%%, %Unknown%, %Name%%Name%, 50% off\n"
                        "[Strings]\n"
                        "Name = \"Acme, Inc.\"\n"
                        "Percent = \"5%%\"\n");
    EXPECT_EQ(sectionLines(inf, L"Tokens"),
              (Lines{{L"Acme, Inc.", L"Acme, Inc. in quotes", L"100%", L"%Unknown%", L"Acme, Inc.Acme, Inc.",
                      L"50% off"}}));
    EXPECT_EQ(field(firstLine(inf, L"Strings", L"Percent"), 1), L"5%");
    SetupCloseInfFile(inf);
}

const std::string kLocalized = std::string(kVersion) +
                               "[Names]\nmodel = %Model%, %Vendor%\n"
                               "[Strings]\nModel = \"LaserBox\"\nVendor = \"Acme\"\n"
                               "[Strings.0409]\nModel = \"LaserBox (US)\"\n"
                               "[strings.0407]\nModel = \"LaserBox (DE)\"\n";

TEST_F(InfSyntax, TheSystemLanguagesStringsOverrideThePlainOnes) {
    HINF inf = openText(kLocalized);
    EXPECT_EQ(sectionLines(inf, L"Names"), (Lines{{L"model", L"LaserBox (US)", L"Acme"}}));
    SetupCloseInfFile(inf);
    simhost::kernel32::setSystemLanguage(0x0407);
    inf = openText(kLocalized);
    EXPECT_EQ(sectionLines(inf, L"Names"), (Lines{{L"model", L"LaserBox (DE)", L"Acme"}}));
    SetupCloseInfFile(inf);
    simhost::kernel32::setSystemLanguage(0x040C);
    inf = openText(kLocalized);
    EXPECT_EQ(sectionLines(inf, L"Names"), (Lines{{L"model", L"LaserBox", L"Acme"}}));
    SetupCloseInfFile(inf);
}

TEST_F(InfSyntax, AUtf16FileWithItsByteOrderMark) {
    HINF inf = openText(utf16le(L"[Version]\r\nSignature=\"$Windows NT$\"\r\n[Acme]\r\n"
                                L"\"Acme Drucker f\u00fcr B\u00fcros \u20ac\" = INSTALL, AcmeLaserBox_2000EA13\r\n"));
    EXPECT_EQ(sectionLines(inf, L"Acme"),
              (Lines{{L"Acme Drucker f\u00fcr B\u00fcros \u20ac", L"INSTALL", L"AcmeLaserBox_2000EA13"}}));
    SetupCloseInfFile(inf);
}

TEST_F(InfSyntax, AnAnsiFileIsReadInTheAnsiCodePage) {
    const std::string text = std::string(kVersion) + "[Acme]\nImprim\xE9" "e = caf\xE9, \x80\n";
    HINF inf = openText(text);
    EXPECT_EQ(sectionLines(inf, L"Acme"), (Lines{{L"Imprim\u00e9e", L"caf\u00e9", L"\u20ac"}}));
    SetupCloseInfFile(inf);
    ASSERT_TRUE(simhost::kernel32::setAnsiCodePage(CP_UTF8));
    inf = openText(std::string(kVersion) + "[Acme]\nImprim\xC3\xA9" "e = caf\xC3\xA9\n");
    EXPECT_EQ(sectionLines(inf, L"Acme"), (Lines{{L"Imprim\u00e9e", L"caf\u00e9"}}));
    SetupCloseInfFile(inf);
}

TEST_F(InfSyntax, AUtf8FileWithItsByteOrderMark) {
    HINF inf = openText("\xEF\xBB\xBF" + std::string(kVersion) + "[Acme]\nImprim\xC3\xA9" "e = x\n");
    EXPECT_EQ(sectionLines(inf, L"Acme"), (Lines{{L"Imprim\u00e9e", L"x"}}));
    SetupCloseInfFile(inf);
}

}  // namespace
