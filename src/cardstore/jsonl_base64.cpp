// Base64 for data: URIs. The core library takes no Qt and no crypto library,
// and this is all it needs of either.
#include <array>

#include "ombrel/cardstore/jsonl.h"

namespace ombrel::jsonl {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<int8_t, 256> MakeDecodeTable() {
  std::array<int8_t, 256> table{};
  for (auto& t : table) t = -1;
  for (int i = 0; i < 64; ++i) table[static_cast<unsigned char>(kAlphabet[i])] = static_cast<int8_t>(i);
  return table;
}
constexpr auto kDecode = MakeDecodeTable();

}  // namespace

std::string EncodeBase64(const std::vector<uint8_t>& bytes) {
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    uint32_t n = (bytes[i] << 16) | (bytes[i + 1] << 8) | bytes[i + 2];
    out += kAlphabet[n >> 18];
    out += kAlphabet[(n >> 12) & 63];
    out += kAlphabet[(n >> 6) & 63];
    out += kAlphabet[n & 63];
  }
  size_t rest = bytes.size() - i;
  if (rest == 1) {
    uint32_t n = bytes[i] << 16;
    out += kAlphabet[n >> 18];
    out += kAlphabet[(n >> 12) & 63];
    out += "==";
  } else if (rest == 2) {
    uint32_t n = (bytes[i] << 16) | (bytes[i + 1] << 8);
    out += kAlphabet[n >> 18];
    out += kAlphabet[(n >> 12) & 63];
    out += kAlphabet[(n >> 6) & 63];
    out += '=';
  }
  return out;
}

bool DecodeBase64(std::string_view text, std::vector<uint8_t>& bytes) {
  bytes.clear();
  if (text.size() % 4 != 0) return false;
  size_t padding = 0;
  if (!text.empty() && text.back() == '=') ++padding;
  if (text.size() >= 2 && text[text.size() - 2] == '=') ++padding;
  bytes.reserve(text.size() / 4 * 3);
  for (size_t i = 0; i < text.size(); i += 4) {
    bool last = i + 4 == text.size();
    uint32_t n = 0;
    for (size_t k = 0; k < 4; ++k) {
      char c = text[i + k];
      int8_t v = 0;
      if (c == '=') {
        if (!last || k < 4 - padding) return false;
      } else {
        v = kDecode[static_cast<unsigned char>(c)];
        if (v < 0) return false;
      }
      n = (n << 6) | static_cast<uint32_t>(v);
    }
    bytes.push_back(static_cast<uint8_t>(n >> 16));
    if (!last || padding < 2) bytes.push_back(static_cast<uint8_t>((n >> 8) & 0xFF));
    if (!last || padding < 1) bytes.push_back(static_cast<uint8_t>(n & 0xFF));
  }
  return true;
}

std::string ImageDataUri(const StoredImage& image) {
  return "data:image/" + image.format + ";base64," + EncodeBase64(image.bytes);
}

}  // namespace ombrel::jsonl
