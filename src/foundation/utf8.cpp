#include "foundation/utf8.h"

#include <array>
#include <cstdint>
#include <cstring>

#include <utf8proc.h>

namespace ombrel::utf8 {

namespace {
// Lone invalid bytes map into the low-surrogate range, which valid UTF-8 never
// decodes to, so Encode can give the very byte back.
constexpr char32_t kRawByteBase = 0xDC00;
}

char32_t Next(const char*& p, const char* end) {
  unsigned char c = static_cast<unsigned char>(*p);
  if (c < 0x80) {
    ++p;
    return c;
  }
  utf8proc_int32_t cp = 0;
  utf8proc_ssize_t n =
      utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(p), end - p, &cp);
  if (n <= 0) {
    ++p;
    return kRawByteBase + c;
  }
  p += n;
  return static_cast<char32_t>(cp);
}

std::u32string Decode(std::string_view text) {
  std::u32string out;
  out.reserve(text.size());
  const char* p = text.data();
  const char* end = p + text.size();
  while (p < end) out.push_back(Next(p, end));
  return out;
}

std::string Encode(char32_t c) {
  if (c >= kRawByteBase + 0x80 && c <= kRawByteBase + 0xFF) return std::string(1, static_cast<char>(c - kRawByteBase));
  utf8proc_uint8_t buf[4];
  utf8proc_ssize_t n = utf8proc_encode_char(static_cast<utf8proc_int32_t>(c), buf);
  return std::string(reinterpret_cast<char*>(buf), static_cast<size_t>(n));
}

std::string Encode(const std::u32string& cps) {
  std::string out;
  out.reserve(cps.size());
  for (char32_t c : cps) out += Encode(c);
  return out;
}

size_t CountCodePoints(std::string_view text) {
  size_t n = 0;
  const char* p = text.data();
  const char* end = p + text.size();
  while (p < end) {
    // Runs of plain ASCII, the usual text, eight bytes at a time.
    uint64_t word;
    while (end - p >= 8 && (std::memcpy(&word, p, 8), (word & 0x8080808080808080ull) == 0)) {
      p += 8;
      n += 8;
    }
    if (p == end) break;
    if (static_cast<unsigned char>(*p) < 0x80) ++p;
    else Next(p, end);
    ++n;
  }
  return n;
}

namespace {
// The case maps of every code point two bytes encode (below U+0800: the
// Latin, Greek and Cyrillic letters of most names), read once from the same
// tables, so that such letters are mapped without decoding and encoding.
using TwoByteMap = std::array<char32_t, 0x800>;
template <class Map>
TwoByteMap MakeTwoByteMap(Map map) {
  TwoByteMap table{};
  for (char32_t cp = 0; cp < table.size(); ++cp) table[cp] = static_cast<char32_t>(map(static_cast<utf8proc_int32_t>(cp)));
  return table;
}

template <class Map>
std::string MapCase(std::string_view text, Map map, const TwoByteMap& twoByte, bool lower) {
  std::string out;
  out.reserve(text.size());
  const char* p = text.data();
  const char* end = p + text.size();
  while (p < end) {
    unsigned char c = static_cast<unsigned char>(*p);
    if (c < 0x80) {
      if (lower && c >= 'A' && c <= 'Z') c = static_cast<unsigned char>(c + 32);
      if (!lower && c >= 'a' && c <= 'z') c = static_cast<unsigned char>(c - 32);
      out.push_back(static_cast<char>(c));
      ++p;
      continue;
    }
    // A well-formed two-byte sequence (C2..DF, then a continuation byte).
    if (c >= 0xC2 && c <= 0xDF && end - p >= 2 && (static_cast<unsigned char>(p[1]) & 0xC0) == 0x80) {
      const char32_t mapped = twoByte[((c & 0x1Fu) << 6) | (static_cast<unsigned char>(p[1]) & 0x3Fu)];
      p += 2;
      if (mapped < 0x80) {
        out.push_back(static_cast<char>(mapped));
      } else if (mapped < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (mapped >> 6)));
        out.push_back(static_cast<char>(0x80 | (mapped & 0x3F)));
      } else {
        out += Encode(mapped);
      }
      continue;
    }
    const char* start = p;
    char32_t cp = Next(p, end);
    if (cp >= kRawByteBase + 0x80 && cp <= kRawByteBase + 0xFF) out.append(start, p);
    else out += Encode(static_cast<char32_t>(map(static_cast<utf8proc_int32_t>(cp))));
  }
  return out;
}
}  // namespace

std::string ToLower(std::string_view text) {
  static const TwoByteMap twoByte = MakeTwoByteMap(utf8proc_tolower);
  return MapCase(text, utf8proc_tolower, twoByte, true);
}
std::string ToUpper(std::string_view text) {
  static const TwoByteMap twoByte = MakeTwoByteMap(utf8proc_toupper);
  return MapCase(text, utf8proc_toupper, twoByte, false);
}

}  // namespace ombrel::utf8
