// JSON as the tools write and read it: one line, UTF-8 as it is.
#pragma once

#include <json/json.h>

#include <string>

namespace vexor_tools {

std::string compactJson(const Json::Value& value);
// False, with the reader's errors in `errors` when given, for text that is
// no JSON.
bool parseJson(const std::string& text, Json::Value& value, std::string* errors = nullptr);

}  // namespace vexor_tools
