// UTF-8 helpers: code point iteration and Unicode case mapping (utf8proc).
// Bytes that are not valid UTF-8 are carried through one by one as if each
// were its own character, so no text is ever lost.
#pragma once

#include <string>
#include <string_view>

namespace ombrel::utf8 {

// Reads one code point at p and advances p; an invalid byte reads as 0xDC00 + byte.
char32_t Next(const char*& p, const char* end);
std::u32string Decode(std::string_view text);
std::string Encode(char32_t c);
std::string Encode(const std::u32string& cps);
size_t CountCodePoints(std::string_view text);
std::string ToLower(std::string_view text);
std::string ToUpper(std::string_view text);

}  // namespace ombrel::utf8
