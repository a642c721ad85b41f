// Override settings: a user steers the creation of a printer by writing a
// JSON object into the comment or the location of the printer on the client.
// The object is laid over the request before anything else of the creation
// happens.
#pragma once

#include <string>

// The text with the escapes of a JSON string resolved, byte by byte: a
// backslash is dropped, and the byte after it is translated (`"`, `\`, b, f,
// n, r, t; u stays as the two bytes `\u`; anything else is dropped). The
// flag that says "the previous byte was a backslash" is set from every byte
// handled, so an escaped backslash still escapes the next byte: `\\n` gives
// a backslash and a line feed.
std::string unescapeOverrideText(const std::string& text);
