#include "foundation/ClassicJson.h"

// The classic reader and writer are deprecated by the library in favour of
// its builders, whose defaults accept and produce other texts. This file is
// the one place that uses them.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

bool parseWithClassicReader(const std::string& text, Json::Value& value) {
    Json::Reader reader;
    return reader.parse(text, value);
}

std::string writeCompact(const Json::Value& value) {
    Json::FastWriter writer;
    return writer.write(value);
}

#pragma GCC diagnostic pop
