#include "foundation/JsonGetters.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

Json::Value objectWith(const std::string& key, const Json::Value& member) {
    Json::Value object(Json::objectValue);
    object[key] = member;
    return object;
}

TEST(GetJsonInt, ReadsAnIntegerMember) { EXPECT_EQ(getJsonInt("n", objectWith("n", -42), 7), -42); }

TEST(GetJsonInt, GivesTheDefaultForAnAbsentKey) { EXPECT_EQ(getJsonInt("n", objectWith("m", 1), 7), 7); }

TEST(GetJsonInt, GivesTheDefaultWhenTheValueIsNoObject) {
    EXPECT_EQ(getJsonInt("n", Json::Value(), 7), 7);
    EXPECT_EQ(getJsonInt("n", Json::Value(5), 7), 7);
    EXPECT_EQ(getJsonInt("n", Json::Value("n"), 7), 7);
    Json::Value array(Json::arrayValue);
    array.append(1);
    EXPECT_EQ(getJsonInt("n", array, 7), 7);
}

TEST(GetJsonInt, ConvertsBooleansDoublesAndNullAsJsoncppDoes) {
    EXPECT_EQ(getJsonInt("n", objectWith("n", true), 7), 1);
    EXPECT_EQ(getJsonInt("n", objectWith("n", false), 7), 0);
    EXPECT_EQ(getJsonInt("n", objectWith("n", 3.9), 7), 3);
    EXPECT_EQ(getJsonInt("n", objectWith("n", Json::Value()), 7), 0);
}

TEST(GetJsonInt, GivesTheDefaultWhenTheConversionFails) {
    EXPECT_EQ(getJsonInt("n", objectWith("n", "12"), 7), 7);
    EXPECT_EQ(getJsonInt("n", objectWith("n", 1e20), 7), 7);
    EXPECT_EQ(getJsonInt("n", objectWith("n", Json::Value(Json::UInt(0x80000000u))), 7), 7);
    EXPECT_EQ(getJsonInt("n", objectWith("n", Json::Value(Json::objectValue)), 7), 7);
}

TEST(GetJsonUInt, ReadsAnUnsignedMember) {
    EXPECT_EQ(getJsonUInt("n", objectWith("n", Json::Value(Json::UInt(UINT_MAX))), 7u), UINT_MAX);
    EXPECT_EQ(getJsonUInt("n", objectWith("n", 5), 7u), 5u);
}

TEST(GetJsonUInt, GivesTheDefaultForAnAbsentKeyOrNoObject) {
    EXPECT_EQ(getJsonUInt("n", objectWith("m", 5), 7u), 7u);
    EXPECT_EQ(getJsonUInt("n", Json::Value("text"), 7u), 7u);
}

TEST(GetJsonUInt, GivesTheDefaultWhenTheConversionFails) {
    EXPECT_EQ(getJsonUInt("n", objectWith("n", -1), 7u), 7u);
    EXPECT_EQ(getJsonUInt("n", objectWith("n", "5"), 7u), 7u);
    EXPECT_EQ(getJsonUInt("n", objectWith("n", Json::Value(Json::arrayValue)), 7u), 7u);
}

TEST(GetJsonUInt, ConvertsBooleans) { EXPECT_EQ(getJsonUInt("n", objectWith("n", true), 7u), 1u); }

TEST(GetJsonString, ReadsAStringMember) { EXPECT_EQ(getJsonString("s", objectWith("s", "Acme"), "d"), "Acme"); }

TEST(GetJsonString, GivesTheDefaultForAnAbsentKeyOrNoObject) {
    EXPECT_EQ(getJsonString("s", objectWith("t", "Acme"), "d"), "d");
    EXPECT_EQ(getJsonString("s", Json::Value(), "d"), "d");
    EXPECT_EQ(getJsonString("s", Json::Value("s"), "d"), "d");
}

TEST(GetJsonString, ConvertsNumbersBooleansAndNullAsJsoncppDoes) {
    EXPECT_EQ(getJsonString("s", objectWith("s", 42), "d"), "42");
    EXPECT_EQ(getJsonString("s", objectWith("s", -3), "d"), "-3");
    EXPECT_EQ(getJsonString("s", objectWith("s", true), "d"), "true");
    EXPECT_EQ(getJsonString("s", objectWith("s", Json::Value()), "d"), "");
}

TEST(GetJsonString, GivesTheDefaultForArraysAndObjects) {
    EXPECT_EQ(getJsonString("s", objectWith("s", Json::Value(Json::arrayValue)), "d"), "d");
    EXPECT_EQ(getJsonString("s", objectWith("s", Json::Value(Json::objectValue)), "d"), "d");
}

TEST(GetJsonWString, DecodesUtf8) {
    EXPECT_EQ(getJsonWString("s", objectWith("s", "Drucker \xC3\xA9\xE2\x82\xAC"), L"d"), L"Drucker \u00E9\u20AC");
}

TEST(GetJsonWString, DecodesCharactersOutsideTheBasicPlane) {
    EXPECT_EQ(getJsonWString("s", objectWith("s", "\xF0\x9F\x96\xA8"), L"d"), L"\U0001F5A8");
}

TEST(GetJsonWString, GivesAnEmptyStringForAnEmptyMember) {
    EXPECT_EQ(getJsonWString("s", objectWith("s", ""), L"d"), L"");
}

TEST(GetJsonWString, ConvertsNumbers) { EXPECT_EQ(getJsonWString("s", objectWith("s", 7), L"d"), L"7"); }

TEST(GetJsonWString, GivesTheDefaultForAnAbsentKeyNoObjectOrAFailedConversion) {
    EXPECT_EQ(getJsonWString("s", objectWith("t", "x"), L"d"), L"d");
    EXPECT_EQ(getJsonWString("s", Json::Value(Json::arrayValue), L"d"), L"d");
    EXPECT_EQ(getJsonWString("s", objectWith("s", Json::Value(Json::objectValue)), L"d"), L"d");
}

}  // namespace
