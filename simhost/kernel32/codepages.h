// Decoding for the host's own readers of files in Windows encodings (INF
// files): the same conversions MultiByteToWideChar makes, without its
// argument checks, fault injection or last error.
#pragma once

#include "simhost/wintypes.h"

#include <string>

namespace simhost {
namespace kernel32 {

// Text in `codePage` (CP_ACP for the machine's ANSI page, 1252 or CP_UTF8);
// ill-formed input becomes U+FFFD. Answers false for a page that is not
// installed.
bool decodeMultiByte(UINT codePage, const std::string& bytes, std::wstring& text);
// UTF-16 little-endian bytes: surrogate pairs joined, a lone surrogate and an
// odd last byte become U+FFFD.
std::wstring decodeUtf16Le(const std::string& bytes);

}  // namespace kernel32
}  // namespace simhost
