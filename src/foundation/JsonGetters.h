// Typed reads of one member of a JSON object. Each yields its default when
// the value is not an object, when the key is absent, or when the member does
// not convert to the wanted type; no exception leaves them. Numbers, booleans
// and null convert as jsoncpp's asInt, asUInt and asString do.
#pragma once

#include <json/json.h>

#include <string>

int getJsonInt(const std::string& key, const Json::Value& value, int defaultValue);
unsigned int getJsonUInt(const std::string& key, const Json::Value& value, unsigned int defaultValue);
std::string getJsonString(const std::string& key, const Json::Value& value, const std::string& defaultValue);
// The member's UTF-8 text as a wide string.
std::wstring getJsonWString(const std::string& key, const Json::Value& value, const std::wstring& defaultValue);
