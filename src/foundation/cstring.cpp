#include "ombrel/foundation/cstring.h"

#include <charconv>
#include <cmath>
#include <limits>

#include "foundation/utf8.h"
#include "ombrel/foundation/clist.h"
#include "ombrel/foundation/error.h"

namespace ombrel {

namespace {
constexpr std::string_view kWhiteSpace = " \t\r\n";
constexpr std::string_view kCrLf = "\r\n";

std::string DoesNotContain(const std::string& text, std::string_view what, std::string_view verb) {
  return "String: " + std::string(kCrLf) + text + std::string(kCrLf) + " " + std::string(verb) + ": " +
         std::string(what);
}

void ReplaceRepeatedly(std::string& text, std::string_view twice, std::string_view once) {
  while (text.find(twice) != std::string::npos) text = CString::ReplaceAll(text, twice, once);
}
}  // namespace

int32_t CString::Length() const { return static_cast<int32_t>(utf8::CountCodePoints(value_)); }

CString& CString::SingleLine() {
  if (value_.find_first_of("\r\n") != std::string::npos) {
    value_ = ReplaceAll(value_, "\r\n", " ");
    value_ = ReplaceAll(value_, "\r", " ");
    value_ = ReplaceAll(value_, "\n", " ");
  }
  return *this;
}

bool CString::Contains(std::string_view sub) const {
  return value_.find(sub) != std::string::npos;
}

bool CString::ContainsAnyOf(std::string_view chars) const {
  for (char32_t c : utf8::Decode(chars))
    if (value_.find(utf8::Encode(c)) != std::string::npos) return true;
  return false;
}

CString CString::GetChar(int32_t position) const {
  std::u32string cps = utf8::Decode(value_);
  if (position < 1 || position > static_cast<int32_t>(cps.size()))
    RaiseTrap("Cannot return character at position: " + std::to_string(position) + " for string: " + value_);
  return CString(utf8::Encode(cps[position - 1]));
}

bool CString::StartsWith(std::string_view s) const { return std::string_view(value_).starts_with(s); }
bool CString::EndsWith(std::string_view s) const { return std::string_view(value_).ends_with(s); }

CString CString::GetRightFrom(std::string_view s) const {
  Trap(s.empty(), "Cannot get right from empty string");
  size_t at = value_.find(s);
  if (at == std::string::npos) RaiseTrap(DoesNotContain(value_, s, "does not contain"));
  return CString(value_.substr(at + s.size()));
}

CString CString::GetLeftFrom(std::string_view s) const {
  Trap(s.empty(), "Given string cannot be empty");
  size_t at = value_.find(s);
  if (at == std::string::npos) RaiseTrap(DoesNotContain(value_, s, "does not contain"));
  return CString(value_.substr(0, at));
}

std::string CString::ReplaceAll(std::string_view text, std::string_view oldText, std::string_view newText) {
  if (oldText.empty()) return std::string(text);
  std::string out;
  out.reserve(text.size());
  size_t pos = 0;
  while (true) {
    size_t at = text.find(oldText, pos);
    if (at == std::string_view::npos) break;
    out.append(text, pos, at - pos);
    out.append(newText);
    pos = at + oldText.size();
  }
  out.append(text, pos);
  return out;
}

CString& CString::Replace(std::string_view oldText, std::string_view newText) {
  value_ = ReplaceAll(value_, oldText, newText);
  return *this;
}

CString& CString::ReplaceFront(std::string_view oldText, std::string_view newText) {
  if (!StartsWith(oldText)) RaiseTrap(DoesNotContain(value_, oldText, "does not start with"));
  value_ = std::string(newText) + value_.substr(oldText.size());
  return *this;
}

CString& CString::ReplaceEnd(std::string_view oldText, std::string_view newText) {
  if (!EndsWith(oldText)) RaiseTrap(DoesNotContain(value_, oldText, "does not end with"));
  value_ = value_.substr(0, value_.size() - oldText.size()) + std::string(newText);
  return *this;
}

std::shared_ptr<CList> CString::GetTokens(std::string_view delimiters, bool keepDelimiters) const {
  auto tokens = std::make_shared<CList>();
  std::u32string delims = utf8::Decode(delimiters);
  std::string token;
  const char* p = value_.data();
  const char* end = p + value_.size();
  while (p < end) {
    const char* start = p;
    char32_t c = utf8::Next(p, end);
    if (delims.find(c) != std::u32string::npos) {
      if (!token.empty()) tokens->AddItem(std::make_shared<CString>(std::move(token)));
      token.clear();
      if (keepDelimiters) tokens->AddItem(std::make_shared<CString>(std::string(start, p)));
    } else {
      token.append(start, p);
    }
  }
  if (!token.empty()) tokens->AddItem(std::make_shared<CString>(std::move(token)));
  return tokens;
}

std::string CString::TrimText(std::string_view text) { return std::string(TrimmedView(text)); }

CString& CString::Trim() {
  value_ = TrimText(value_);
  return *this;
}

CString& CString::RemoveWhiteSpace() {
  std::string out;
  out.reserve(value_.size());
  for (char c : value_)
    if (kWhiteSpace.find(c) == std::string_view::npos) out.push_back(c);
  value_ = std::move(out);
  return *this;
}

CString& CString::CondenseWhiteSpace() {
  ReplaceRepeatedly(value_, "\r\n\r\n", "\r\n");
  ReplaceRepeatedly(value_, "\r\r", "\r");
  ReplaceRepeatedly(value_, "\n\n", "\n");
  value_ = ReplaceAll(value_, "\t", " ");
  ReplaceRepeatedly(value_, "  ", " ");
  return *this;
}

CString& CString::Reverse() {
  std::u32string cps = utf8::Decode(value_);
  std::string out;
  out.reserve(value_.size());
  for (auto it = cps.rbegin(); it != cps.rend(); ++it) out += utf8::Encode(*it);
  value_ = std::move(out);
  return *this;
}

bool CString::TryParseNumber(std::string_view text, double& value) {
  size_t b = text.find_first_not_of(" \t");
  if (b == std::string_view::npos) return false;
  size_t e = text.find_last_not_of(" \t");
  std::string_view t = text.substr(b, e - b + 1);
  // Validate the shape ourselves: from_chars accepts "inf"/"nan", which are not numbers here.
  size_t i = 0;
  bool negative = false;
  if (i < t.size() && (t[i] == '+' || t[i] == '-')) negative = t[i++] == '-';
  size_t digits = 0;
  size_t start = i;
  while (i < t.size() && t[i] >= '0' && t[i] <= '9') ++i, ++digits;
  if (i < t.size() && t[i] == '.') {
    ++i;
    while (i < t.size() && t[i] >= '0' && t[i] <= '9') ++i, ++digits;
  }
  if (digits == 0) return false;
  if (i < t.size() && (t[i] == 'e' || t[i] == 'E')) {
    size_t j = i + 1;
    if (j < t.size() && (t[j] == '+' || t[j] == '-')) ++j;
    size_t expDigits = 0;
    while (j < t.size() && t[j] >= '0' && t[j] <= '9') ++j, ++expDigits;
    if (expDigits == 0) return false;
    i = j;
  }
  if (i != t.size()) return false;
  std::string_view body = t.substr(start);
  double v = 0;
  auto [ptr, ec] = std::from_chars(body.data(), body.data() + body.size(), v);
  if (ec != std::errc() || ptr != body.data() + body.size()) return false;
  value = negative ? -v : v;
  return true;
}

double CString::ToDouble() const {
  double v = 0;
  if (!TryParseNumber(value_, v)) RaiseTrap("Cannot convert string: " + value_ + " to number");
  return v;
}

double CString::ToNumber() const { return ToDouble(); }

int32_t CString::ToLong() const {
  double v = ToDouble();
  double r = std::nearbyint(v);  // halves to the even neighbour, as the runtime's conversion does
  if (r > std::numeric_limits<int32_t>::max() || r < std::numeric_limits<int32_t>::min()) RaiseOverflow();
  return static_cast<int32_t>(r);
}

bool CString::ToBoolean() const {
  std::string lower = LowerText(value_);
  if (lower == "true") return true;
  if (lower == "false") return false;
  RaiseTrap("Cannot convert string: " + value_ + " to boolean");
}

std::string CString::LowerText(std::string_view text) { return utf8::ToLower(text); }
std::string CString::UpperText(std::string_view text) { return utf8::ToUpper(text); }

CString& CString::ToLower() {
  value_ = LowerText(value_);
  return *this;
}

CString& CString::ToUpper() {
  value_ = UpperText(value_);
  return *this;
}

std::shared_ptr<CList> CString::ToCharList() const {
  auto list = std::make_shared<CList>();
  const char* p = value_.data();
  const char* end = p + value_.size();
  while (p < end) {
    const char* start = p;
    utf8::Next(p, end);
    list->AddItem(std::make_shared<CString>(std::string(start, p)));
  }
  return list;
}

}  // namespace ombrel
