// The JSON library's classic reader and compact writer, which the wire
// protocol is defined by: the reader's default features decide what a
// request may look like, and the compact writer's text (no blanks, keys in
// byte order, a closing line feed) is what a reply looks like.
#pragma once

#include <json/json.h>

#include <string>

// Parses with a freshly made classic reader in its default features.
// Exceptions of the library pass through.
bool parseWithClassicReader(const std::string& text, Json::Value& value);
// The compact writer's text of `value`, with its default settings.
std::string writeCompact(const Json::Value& value);
