#include "printers/OverrideSettings.h"

#include "foundation/ClassicJson.h"
#include "foundation/JsonGetters.h"
#include "foundation/StaticLogger.h"
#include "foundation/TextConversion.h"
#include "service/VexorPrintingService.h"

namespace {

// The byte an escape stands for, or 0 when the escape stands for nothing.
char escapedByte(char byte) {
    switch (byte) {
        case '"': return '"';
        case '\\': return '\\';
        case 'b': return '\b';
        case 'f': return '\f';
        case 'n': return '\n';
        case 'r': return '\r';
        case 't': return '\t';
        default: return 0;
    }
}

// The text from the first '{' to the last '}', both included, or "" when
// either is missing. The length is taken in unsigned arithmetic: a '}' just
// before the '{' gives an empty text, one further before wraps around to the
// whole rest of the text.
bool bracedText(const std::string& text, std::string& braced) {
    const size_t open = text.find('{');
    const size_t close = text.rfind('}');
    if (open == std::string::npos || close == std::string::npos) return false;
    braced = text.substr(open, close - open + 1);
    return true;
}

}  // namespace

std::string unescapeOverrideText(const std::string& text) {
    std::string result;
    bool afterBackslash = false;
    for (char byte : text) {
        if (!afterBackslash) {
            if (byte != '\\') result += byte;
        } else if (byte == 'u') {
            result += "\\u";
        } else if (char translated = escapedByte(byte)) {
            result += translated;
        }
        afterBackslash = byte == '\\';
    }
    return result;
}

void VexorPrintingService::applyOverrideSettings(Json::Value& request) {
    std::string text = getJsonString("pComment", request, "");
    // A comment that is not empty decides alone, braces or not.
    if (text.empty()) text = getJsonString("printer-location", request, "");
    std::string braced;
    if (!bracedText(text, braced)) return;
    text = unescapeOverrideText(braced);
    VX_LOG(kLogNormal, kNoLastError, 3, "User specified override settings:%ls", utf8ToWide(text).c_str());
    Json::Value overrideSettings;
    bool parsed = false;
    try {
        parsed = parseWithClassicReader(text, overrideSettings) && overrideSettings.isObject();
    } catch (const std::exception&) {
        parsed = false;
    }
    if (!parsed) {
        VX_LOG(kLogError, kNoLastError, 5, "Failed to parse User specified override settings json:%s", text.c_str());
        return;
    }
    if (!jsonOverridesEnabled()) return;
    for (const std::string& key : overrideSettings.getMemberNames()) {
        request[key] = overrideSettings[key];
        VX_LOG(kLogNormal, kNoLastError, 3, "Overriding value:%s with user specified:%s", key.c_str(),
               getJsonString(key, overrideSettings, "NotAString").c_str());
    }
}
