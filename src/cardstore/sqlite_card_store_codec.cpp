// The card row's value encoding and the rules that say which value names
// exist and how they are spelled canonically.
#include <array>

#include "cardstore/sqlite_card_store_internal.h"
#include "ombrel/cards/field_catalogue.h"

namespace ombrel::sqlite_store {

void AppendVarint(std::string& out, uint64_t value) {
  while (value >= 0x80) {
    out.push_back(static_cast<char>((value & 0x7F) | 0x80));
    value >>= 7;
  }
  out.push_back(static_cast<char>(value));
}

bool DecodeValues(std::string_view blob, std::vector<CodedValue>& out) {
  out.clear();
  auto* p = reinterpret_cast<const unsigned char*>(blob.data());
  auto* end = p + blob.size();
  while (p != end) {
    uint64_t code = 0, length = 0;
    if (!ReadVarint(p, end, code) || !ReadVarint(p, end, length)) return false;
    if (code == 0 || code > UINT32_MAX || length > static_cast<uint64_t>(end - p)) return false;
    out.push_back({static_cast<uint32_t>(code), std::string_view(reinterpret_cast<const char*>(p), length)});
    p += length;
  }
  return true;
}

void EncodeValues(const std::vector<CodedValue>& values, std::string& out) {
  out.clear();
  for (const auto& v : values) {
    AppendVarint(out, v.code);
    AppendVarint(out, v.text.size());
    out.append(v.text);
  }
}

static bool EndsWithNoCase(std::string_view s, std::string_view suffix) {
  if (s.size() <= suffix.size()) return false;  // the field name before it must not be empty
  std::string_view tail = s.substr(s.size() - suffix.size());
  for (size_t i = 0; i < suffix.size(); ++i) {
    auto lower = [](char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; };
    if (lower(tail[i]) != lower(suffix[i])) return false;
  }
  return true;
}

bool CanonicalName(std::string_view name, const std::unordered_set<std::string>& customFields, std::string& canonical) {
  auto isField = [&](std::string_view n) { return IsStandardFieldName(n) || customFields.count(std::string(n)) > 0; };
  // A whole name wins over a suffix reading, so a custom field may itself
  // end in something that looks like a suffix.
  if (isField(name) || name == kFirstNameValue || name == kLastNameValue || name == kCertaintyValue) {
    canonical.assign(name);
    return true;
  }
  static constexpr std::array kSuffixes = {kLabelSuffix, kRectangleSuffix, kConfidenceLevelsSuffix, kSuspectInfoSuffix};
  for (std::string_view suffix : kSuffixes) {
    if (!EndsWithNoCase(name, suffix)) continue;
    std::string_view base = name.substr(0, name.size() - suffix.size());
    if (!isField(base)) continue;
    canonical.assign(base);
    canonical.append(suffix);
    return true;
  }
  return false;
}

}  // namespace ombrel::sqlite_store
