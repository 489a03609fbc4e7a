// CString: one text value with the named string operations the rest of the
// system uses, each with its own misuse message. Text is UTF-8; "characters"
// are Unicode code points (Length, GetChar, Reverse, ToCharList and the edit
// distances count code points) and ToLower/ToUpper map Unicode case.
//
// Operations that transform the text (SingleLine, Replace, Trim, ToLower, ...)
// change this value and return it, so they chain; a failed call leaves the
// value unchanged. Queries (GetRightFrom, GetChar, ...) return new values.
// Numeric conversions read plain decimal text with no locale.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "ombrel/foundation/object.h"

namespace ombrel {

class CList;
class CEditDistance;

class CString final : public CObject {
 public:
  CString() = default;
  explicit CString(std::string value) : value_(std::move(value)) {}
  explicit CString(std::string_view value) : value_(value) {}
  explicit CString(const char* value) : value_(value) {}

  std::string_view ClassName() const override { return "CString"; }
  DefaultValue GetDefaultValue() const override { return {false, 0, value_}; }

  // The default member: the text itself.
  const std::string& Value() const { return value_; }
  void SetValue(std::string value) { value_ = std::move(value); }

  std::shared_ptr<CString> Clone() const { return std::make_shared<CString>(value_); }
  int32_t Length() const;
  std::string ToStr() const override { return value_; }
  bool Equals(std::string_view other) const { return value_ == other; }
  bool Equals(const CString& other) const { return value_ == other.value_; }
  CString& SingleLine();
  bool Contains(std::string_view sub) const;
  bool ContainsAnyOf(std::string_view chars) const;
  CString GetChar(int32_t position) const;
  bool StartsWith(std::string_view s) const;
  bool EndsWith(std::string_view s) const;
  CString GetRightFrom(std::string_view s) const;
  CString GetLeftFrom(std::string_view s) const;
  CString& Replace(std::string_view oldText, std::string_view newText);
  CString& ReplaceFront(std::string_view oldText, std::string_view newText);
  CString& ReplaceEnd(std::string_view oldText, std::string_view newText);
  std::shared_ptr<CList> GetTokens(std::string_view delimiters, bool keepDelimiters) const;
  CString& Trim();
  CString& RemoveWhiteSpace();
  CString& CondenseWhiteSpace();
  CString& Reverse();
  int32_t ToLong() const;
  double ToDouble() const;
  double ToNumber() const;
  bool ToBoolean() const;
  CString& ToLower();
  CString& ToUpper();
  std::shared_ptr<CList> ToCharList() const;
  std::shared_ptr<CEditDistance> GetCharEditDistance(std::string_view other) const;
  std::shared_ptr<CEditDistance> GetWordEditDistance(std::string_view other) const;

  // Plain-text helpers shared with code that works on std::string directly.
  // White space as Trim sees it: blank, tab, CR and LF.
  static bool IsWhiteSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }
  // TrimText without a copy: the view of text between its white space.
  static std::string_view TrimmedView(std::string_view text) {
    size_t begin = 0, end = text.size();
    while (begin < end && IsWhiteSpace(text[begin])) ++begin;
    while (end > begin && IsWhiteSpace(text[end - 1])) --end;
    return text.substr(begin, end - begin);
  }
  static std::string TrimText(std::string_view text);
  static std::string LowerText(std::string_view text);
  static std::string UpperText(std::string_view text);
  static std::string ReplaceAll(std::string_view text, std::string_view oldText, std::string_view newText);
  // Decimal number with optional sign, fraction and exponent, surrounding blanks allowed.
  static bool TryParseNumber(std::string_view text, double& value);

 private:
  std::string value_;
};

}  // namespace ombrel
