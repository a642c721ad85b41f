#include "JsonText.h"

#include <sstream>

namespace vexor_tools {

std::string compactJson(const Json::Value& value) {
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    writer["emitUTF8"] = true;
    return Json::writeString(writer, value);
}

bool parseJson(const std::string& text, Json::Value& value, std::string* errors) {
    std::istringstream in(text);
    Json::CharReaderBuilder builder;
    std::string found;
    const bool parsed = Json::parseFromStream(builder, in, &value, &found);
    if (errors) *errors = found;
    return parsed;
}

}  // namespace vexor_tools
