#include "foundation/JsonGetters.h"

#include "foundation/TextConversion.h"

#include <exception>

namespace {

// Reads `key` of `value` through `convert`, or gives `defaultValue`. jsoncpp
// reports a failed conversion by throwing; requests come from clients, so a
// bad type is expected input and must not escape.
template <typename Result, typename Convert>
Result readMember(const std::string& key, const Json::Value& value, const Result& defaultValue, Convert convert) {
    if (!value.isObject() || !value.isMember(key)) return defaultValue;
    try {
        return convert(value[key]);
    } catch (const std::exception&) {
        return defaultValue;
    }
}

}  // namespace

int getJsonInt(const std::string& key, const Json::Value& value, int defaultValue) {
    return readMember(key, value, defaultValue, [](const Json::Value& member) { return member.asInt(); });
}

unsigned int getJsonUInt(const std::string& key, const Json::Value& value, unsigned int defaultValue) {
    return readMember(key, value, defaultValue, [](const Json::Value& member) { return member.asUInt(); });
}

std::string getJsonString(const std::string& key, const Json::Value& value, const std::string& defaultValue) {
    return readMember(key, value, defaultValue, [](const Json::Value& member) { return member.asString(); });
}

std::wstring getJsonWString(const std::string& key, const Json::Value& value, const std::wstring& defaultValue) {
    return readMember(key, value, defaultValue,
                      [](const Json::Value& member) { return utf8ToWide(member.asString()); });
}
