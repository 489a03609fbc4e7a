#include "foundation/utf8.h"

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
template <class Map>
std::string MapCase(std::string_view text, Map map, bool lower) {
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
    const char* start = p;
    char32_t cp = Next(p, end);
    if (cp >= kRawByteBase + 0x80 && cp <= kRawByteBase + 0xFF) out.append(start, p);
    else out += Encode(static_cast<char32_t>(map(static_cast<utf8proc_int32_t>(cp))));
  }
  return out;
}
}  // namespace

std::string ToLower(std::string_view text) { return MapCase(text, utf8proc_tolower, true); }
std::string ToUpper(std::string_view text) { return MapCase(text, utf8proc_toupper, false); }

}  // namespace ombrel::utf8
