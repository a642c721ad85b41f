// Override settings: the JSON object a user writes into the comment or the
// location of a client printer, found, unescaped, parsed and laid over the
// request, with its lines.
#include "foundation/ClassicJson.h"
#include "printers/OverrideSettings.h"
#include "support/PluginRequests.h"
#include "support/ServiceHarness.h"
#include "simhost/advapi32/advapi32.h"

#include <gtest/gtest.h>

namespace {

const int kError = static_cast<int>(kLogError);
const int kNormal = static_cast<int>(kLogNormal);
constexpr const char* kApply = "VexorPrintingService::applyOverrideSettings";

Json::Value json(const std::string& text) {
    Json::Value value;
    EXPECT_TRUE(parseWithClassicReader(text, value)) << text;
    return value;
}

// ---- Unescaping ----

TEST(UnescapeOverrideText, LoneBackslashesGoAndEscapesAreTranslated) {
    EXPECT_EQ(unescapeOverrideText(R"({\"a\":1})"), R"({"a":1})");
    EXPECT_EQ(unescapeOverrideText("a\\bb\\fc\\nd\\re\\tf"), "a\bb\fc\nd\re\tf");
    EXPECT_EQ(unescapeOverrideText("plain"), "plain");
}

TEST(UnescapeOverrideText, UnicodeEscapeStaysAsItsTwoBytesAndUnknownEscapesAreDropped) {
    EXPECT_EQ(unescapeOverrideText("\\u00e9"), "\\u00e9");
    EXPECT_EQ(unescapeOverrideText("x\\qy"), "xy");
}

// The flag is set from every byte handled, so an escaped backslash still
// escapes the byte after it.
TEST(UnescapeOverrideText, EscapedBackslashStillEscapesTheNextByte) {
    EXPECT_EQ(unescapeOverrideText("\\\\n"), "\\\n");
    EXPECT_EQ(unescapeOverrideText("\\\\\\\\"), "\\\\\\") << "the first is dropped, the others escaped";
    EXPECT_EQ(unescapeOverrideText("\\"), "");
}

// ---- Applying ----

class OverrideSettings : public ::testing::Test {
protected:
    VexorPrintingService& service() { return harness_.service(); }
    const testsupport::LogCapture& log() const { return harness_.log(); }
    void expectLine(const std::string& message, uint32_t level, int channel) const {
        testsupport::expectOneLine(log(), message, level, channel, kApply);
    }
    Json::Value applied(const std::string& text) {
        Json::Value request = json(text);
        service().applyOverrideSettings(request);
        return request;
    }
    testsupport::ServiceHarness harness_{0.001};
};

TEST_F(OverrideSettings, ObjectAmongWordsOfTheCommentOverridesTheRequest) {
    const Json::Value request =
        applied(R"({"pComment":"Use {\"driverName\":\"Acme LaserBox 2000\"} please","driverName":"Other"})");
    EXPECT_EQ(request["driverName"], "Acme LaserBox 2000");
    expectLine(R"(User specified override settings:{"driverName":"Acme LaserBox 2000"})", 3, kNormal);
    expectLine("Overriding value:driverName with user specified:Acme LaserBox 2000", 3, kNormal);
    testsupport::expectOneLine(log(),
                               "Failed to open registry key for disableing JSON overrides. "
                               "use:'HKLM\\SYSTEM\\CurrentControlSet\\Services\\Vexor_Printing\\DisableJsonOverrides'",
                               3, kNormal, "VexorPrintingService::jsonOverridesEnabled");
}

TEST_F(OverrideSettings, EscapedTextOfTheClientIsUnescapedBeforeItIsParsed) {
    const Json::Value request = applied(R"({"pComment":"{\\\"Priority\\\":5}"})");
    EXPECT_EQ(request["Priority"], 5);
}

TEST_F(OverrideSettings, BracesAroundTextThatIsNoJsonAreLoggedAndChangeNothing) {
    const std::string text = R"({"pComment":"note {not json} end","printerName":"P"})";
    EXPECT_EQ(applied(text), json(text));
    expectLine("Failed to parse User specified override settings json:{not json}", 5, kError);
    EXPECT_FALSE(log().contains("Overriding value:printerName with user specified:P"));
}

TEST_F(OverrideSettings, LocationCarriesTheSettingsWhenTheCommentIsEmpty) {
    const Json::Value request =
        applied(R"({"pComment":"","printer-location":"Hall {\"printerName\":\"Hall printer\"}","printerName":"P"})");
    EXPECT_EQ(request["printerName"], "Hall printer");
    EXPECT_EQ(request["printer-location"], R"(Hall {"printerName":"Hall printer"})") << "the carrier stays";
}

TEST_F(OverrideSettings, CommentWithoutBracesDecidesAloneAndNothingIsLogged) {
    const std::string text = R"({"pComment":"Second floor","printer-location":"{\"Priority\":5}"})";
    EXPECT_EQ(applied(text), json(text));
    EXPECT_TRUE(log().find("User specified override settings:").empty());
    for (const testsupport::LogLine& line : log().lines()) EXPECT_NE(line.function, kApply) << line.raw;
}

TEST_F(OverrideSettings, DisabledOverridesAreStillParsedButChangeNothing) {
    simhost::advapi32::setRegistryDword(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Services\\Vexor_Printing",
                                        L"DisableJsonOverrides", 1);
    const std::string good = R"({"pComment":"{\"Priority\":5}","Priority":1})";
    EXPECT_EQ(applied(good), json(good));
    expectLine(R"(User specified override settings:{"Priority":5})", 3, kNormal);
    const std::string bad = R"({"pComment":"{Priority}"})";
    EXPECT_EQ(applied(bad), json(bad));
    expectLine("Failed to parse User specified override settings json:{Priority}", 5, kError);
    EXPECT_TRUE(log().find("Overriding value:Priority with user specified:5").empty());
    testsupport::expectOneLine(log(), "JSON overrides disabled with:1", 3, kNormal,
                               "VexorPrintingService::jsonOverridesEnabled");
}

TEST_F(OverrideSettings, NumberReplacesTheValueAndIsShownAsText) {
    const Json::Value request = applied(R"({"pComment":"{\"Priority\":5}","Priority":1})");
    EXPECT_EQ(request["Priority"], Json::Value(5));
    expectLine("Overriding value:Priority with user specified:5", 3, kNormal);
}

TEST_F(OverrideSettings, MembersThatAreNoStringKeepTheirTypeAndListsShowAsNotAString) {
    const Json::Value request =
        applied(R"({"pComment":"{\"compatHwids\":[\"AcmeBox\"],\"OAttributes\":2,\"pDevMode\":{}}"})");
    EXPECT_EQ(request["compatHwids"], json(R"(["AcmeBox"])"));
    EXPECT_EQ(request["OAttributes"], 2);
    EXPECT_EQ(request["pDevMode"], Json::Value(Json::objectValue));
    expectLine("Overriding value:compatHwids with user specified:NotAString", 3, kNormal);
    expectLine("Overriding value:pDevMode with user specified:NotAString", 3, kNormal);
    expectLine("Overriding value:OAttributes with user specified:2", 3, kNormal);
    // In the order of the keys.
    std::vector<std::string> keys;
    for (const std::string& message : log().messages())
        if (message.rfind("Overriding value:", 0) == 0) keys.push_back(message.substr(17, message.find(" with") - 17));
    EXPECT_EQ(keys, (std::vector<std::string>{"OAttributes", "compatHwids", "pDevMode"}));
}

// The length is taken unsigned: a '}' right before the '{' leaves nothing,
// one further before leaves the whole rest of the text.
TEST_F(OverrideSettings, ClosingBraceBeforeTheOpeningOneWrapsAround) {
    applied(R"({"pComment":"}{"})");
    expectLine("Failed to parse User specified override settings json:", 5, kError);
    applied(R"({"pComment":"} x {\"Priority\":5"})");
    expectLine(R"(Failed to parse User specified override settings json:{"Priority":5)", 5, kError);
}

TEST_F(OverrideSettings, CommentWithOnlyOneKindOfBraceDoesNothing) {
    const std::string text = R"({"pComment":"{ open only"})";
    EXPECT_EQ(applied(text), json(text));
    EXPECT_TRUE(log().find("User specified override settings:").empty());
}

}  // namespace
