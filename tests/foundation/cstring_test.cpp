#include "ombrel/foundation/cstring.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <string>
#include <vector>

#include <utf8proc.h>

#include "foundation/utf8.h"
#include "ombrel/foundation/clist.h"
#include "support/error_text.h"

namespace ombrel {
namespace {

using Transform = std::function<CString&(CString&)>;
const Transform kSingleLine = [](CString& s) -> CString& { return s.SingleLine(); };
const Transform kCondense = [](CString& s) -> CString& { return s.CondenseWhiteSpace(); };
const Transform kTrim = [](CString& s) -> CString& { return s.Trim(); };
const Transform kReverse = [](CString& s) -> CString& { return s.Reverse(); };
const Transform kLower = [](CString& s) -> CString& { return s.ToLower(); };
const Transform kUpper = [](CString& s) -> CString& { return s.ToUpper(); };

// Every transforming operation changes the value in place and hands back the same object.
TEST(CStringTest, TransformsInPlace) {
  struct Case { std::string input; Transform op; std::string expected; };
  for (const Case& c : std::vector<Case>{
      {"a\r\nb\rc", kSingleLine, "a b c"},
      {"a\n\rb", kSingleLine, "a  b"},  // LF CR is not a pair
      {"a\r\r\nb", kSingleLine, "a  b"},
      {"a\t  b", kCondense, "a b"},
      {"a\r\n\r\n\r\nb", kCondense, "a\r\nb"},
      {"a\r\r\rb\n\n\nc", kCondense, "a\rb\nc"},
      {"a\r\n\r\r\nb", kCondense, "a\r\n\r\nb"},  // pairs go first; one formed later stays
      {" \t\r\n a \t b \n", kTrim, "a \t b"},
      {" \t ", kTrim, ""},
      {" a\tb\r\nc ", [](CString& s) -> CString& { return s.RemoveWhiteSpace(); }, "abc"},
      {"aaa", [](CString& s) -> CString& { return s.Replace("aa", "b"); }, "ba"},
      {"abab", [](CString& s) -> CString& { return s.Replace("a", "aa"); }, "aabaab"},
      {"abc", [](CString& s) -> CString& { return s.Replace("", "y"); }, "abc"},
      {"Dr. Dr. Smith", [](CString& s) -> CString& { return s.ReplaceFront("Dr. ", "Prof. "); }, "Prof. Dr. Smith"},
      {"Smith Jr. Jr.", [](CString& s) -> CString& { return s.ReplaceEnd(" Jr.", ""); }, "Smith Jr."},
      {"Müller 日本", kReverse, "本日 rellüM"},
      {"McDONALD ÉCOLE ΣΟΦΙΑ ИВАН", kLower, "mcdonald école σοφια иван"},
      {"müller école ñ иван 42", kUpper, "MÜLLER ÉCOLE Ñ ИВАН 42"},
       }) {
    SCOPED_TRACE(c.input);
    CString s(c.input);
    EXPECT_EQ(&c.op(s), &s);
    EXPECT_EQ(s.Value(), c.expected);
  }
}

TEST(CStringTest, CharactersAreCodePoints) {
  for (const std::string text : {"", "abc", "Müller", "a😀b", "e\xCC\x81", "a\xFF" "b\xC3"}) {
    SCOPED_TRACE(text);
    CString s(text);
    auto chars = s.ToCharList();
    ASSERT_EQ(chars->GetNumItems(), s.Length());
    std::string joined;
    for (int32_t i = 1; i <= s.Length(); ++i) {
      EXPECT_EQ(chars->GetItemAs<CString>(i)->Value(), s.GetChar(i).Value());
      joined += s.GetChar(i).Value();
    }
    EXPECT_EQ(joined, text);  // invalid bytes survive one by one
    EXPECT_EQ(CString(text).Reverse().Reverse().Value(), text);
  }
  EXPECT_EQ(CString("Müller").Length(), 6);
  EXPECT_EQ(CString("a😀b").GetChar(2).Value(), "😀");
  EXPECT_EQ(TrapText([] { CString("Müller").GetChar(7); }), "Cannot return character at position: 7 for string: Müller");
  EXPECT_EQ(TrapText([] { CString("").GetChar(0); }), "Cannot return character at position: 0 for string: ");
}

TEST(CStringTest, SearchesAndTheirMisuseTexts) {
  CString s("Smith, John, Jr.");
  EXPECT_EQ(s.GetRightFrom(", ").Value(), "John, Jr.");
  EXPECT_EQ(s.GetLeftFrom(", ").Value(), "Smith");
  EXPECT_EQ(CString("Grüße").GetRightFrom("ü").Value(), "ße");
  EXPECT_TRUE(s.ContainsAnyOf("xyz,"));
  EXPECT_FALSE(CString("Möller").ContainsAnyOf("üä"));  // a shared lead byte is not a match
  EXPECT_EQ(TrapText([&] { s.GetRightFrom(""); }), "Cannot get right from empty string");
  EXPECT_EQ(TrapText([&] { s.GetLeftFrom(""); }), "Given string cannot be empty");
  EXPECT_EQ(TrapText([&] { s.GetRightFrom(";"); }), "String: \r\nSmith, John, Jr.\r\n does not contain: ;");
  EXPECT_EQ(TrapText([&] { s.GetLeftFrom(";"); }), "String: \r\nSmith, John, Jr.\r\n does not contain: ;");
  EXPECT_EQ(TrapText([&] { s.ReplaceFront("John", "x"); }),
            "String: \r\nSmith, John, Jr.\r\n does not start with: John");
  EXPECT_EQ(TrapText([&] { s.ReplaceEnd("Smith", "x"); }), "String: \r\nSmith, John, Jr.\r\n does not end with: Smith");
  EXPECT_EQ(s.Value(), "Smith, John, Jr.");
}

TEST(CStringTest, NumbersArePlainDecimalText) {
  struct Case { std::string text; int32_t asLong; double asDouble; };
  for (const Case& c : {Case{" -7 ", -7, -7}, Case{"+3", 3, 3}, Case{"007", 7, 7}, Case{"2.5", 2, 2.5},
                        Case{"3.5", 4, 3.5}, Case{"-2.5", -2, -2.5}, Case{".5", 0, 0.5}, Case{"1e3", 1000, 1000},
                        Case{"\t1E-3\t", 0, 0.001}, Case{"2147483647", 2147483647, 2147483647.0},
                        Case{"-2147483648", std::numeric_limits<int32_t>::min(), -2147483648.0}}) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(CString(c.text).ToLong(), c.asLong);
    EXPECT_DOUBLE_EQ(CString(c.text).ToDouble(), c.asDouble);
    EXPECT_DOUBLE_EQ(CString(c.text).ToNumber(), c.asDouble);
  }
  for (const std::string text : {"", " ", "abc", "12abc", "1,5", "0x10", "inf", "nan", "1e", ".", "-", "1 2", "١٢"}) {
    SCOPED_TRACE(text);
    const std::string expected = "Cannot convert string: " + text + " to number";
    EXPECT_EQ(TrapText([&] { CString(text).ToLong(); }), expected);
    EXPECT_EQ(TrapText([&] { CString(text).ToDouble(); }), expected);
    EXPECT_EQ(TrapText([&] { CString(text).ToNumber(); }), expected);
  }
  for (const char* text : {"2147483648", "-2147483649", "2147483647.5"})
    EXPECT_EQ(ErrorNumber([&] { CString(text).ToLong(); }), kOverflowErrorNumber) << text;
}

TEST(CStringTest, ToBooleanTakesOnlyTrueAndFalseInAnyCase) {
  EXPECT_TRUE(CString("TRUE").ToBoolean());
  EXPECT_FALSE(CString("False").ToBoolean());
  for (const std::string text : {"yes", "", " true", "1"})
    EXPECT_EQ(TrapText([&] { CString(text).ToBoolean(); }), "Cannot convert string: " + text + " to boolean");
}

TEST(CStringTest, GetTokensNeverMakesEmptyTokens) {
  struct Case {
    std::string text, delimiters;
    bool keep;
    std::string tokens;  // joined by '|'
  };
  for (const Case& c : std::vector<Case>{{"  a b  c ", " ", false, "a|b|c"},
                                         {"a b  c", " ", true, "a| |b| | |c"},
                                         {"   ", " ", false, ""},
                                         {"a,b;c", ",;", true, "a|,|b|;|c"},
                                         {"aXbxc", "x", false, "aXb|c"},
                                         {"Jean·Luc·", "·", true, "Jean|·|Luc|·"},
                                         {"John\t\r\nSmith", " \t\r\n", false, "John|Smith"}}) {
    auto list = CString(c.text).GetTokens(c.delimiters, c.keep);
    std::string tokens;
    for (int32_t i = 1; i <= list->GetNumItems(); ++i)
      tokens += (i > 1 ? "|" : "") + list->GetItemAs<CString>(i)->Value();
    EXPECT_EQ(tokens, c.tokens) << c.text;
  }
}

// Counting characters: plain ASCII runs are counted a word at a time, so the
// cases mix long runs with multi-byte and invalid bytes at every boundary.
TEST(Utf8Test, CountCodePointsCountsCharactersAcrossAsciiRuns) {
  const std::string run = "abcdefgh";  // one word
  struct Case { std::string text; size_t characters; };
  const Case cases[] = {
      {"", 0},
      {"abc", 3},
      {run + run + "xyz", 19},
      {"Ståhl", 5},
      {run + "\xC3\xA9" + run + "ab", 19},              // é between two runs
      {"\xE2\x82\xAC" + run + run, 17},                  // € before them
      {run + "\xF0\x9F\x98\x80" + "a", 10},              // a character outside the basic plane
      {run + "\xFF" + run, 17},                          // a lone invalid byte is one character
      {run + "a\xC3", 10},                               // a sequence cut short at the end
      {"Zoë Müller-Ståhl, Directrice générale", 37},
  };
  for (const Case& c : cases) EXPECT_EQ(utf8::CountCodePoints(c.text), c.characters) << c.text;
}

TEST(TrapTest, CheckedArithmeticOverflowsOnlyOutside32Bits) {
  constexpr int32_t kMax = std::numeric_limits<int32_t>::max(), kMin = std::numeric_limits<int32_t>::min();
  EXPECT_EQ(CheckedAdd(kMax - 1, 1), kMax);
  EXPECT_EQ(CheckedSub(-1, kMax), kMin);
  for (auto op : {+[] { CheckedAdd(kMax, 1); }, +[] { CheckedAdd(kMin, -1); }, +[] { CheckedSub(0, kMin); }})
    EXPECT_EQ(ErrorNumber(op), kOverflowErrorNumber);
}

// Letters two bytes encode are case-mapped from a table read once: every
// one of them maps as its code point's own mapping says, and a broken
// sequence stays the bytes it was.
TEST(CStringTest, TwoByteLettersMapAsTheirCodePointsDo) {
  std::string wrong;
  for (char32_t cp = 0x80; cp < 0x800; ++cp) {
    const std::string text = "A" + utf8::Encode(cp) + "z";
    const std::string lower = "a" + utf8::Encode(static_cast<char32_t>(utf8proc_tolower(static_cast<int32_t>(cp)))) + "z";
    const std::string upper = "A" + utf8::Encode(static_cast<char32_t>(utf8proc_toupper(static_cast<int32_t>(cp)))) + "Z";
    if (CString::LowerText(text) != lower || CString::UpperText(text) != upper) wrong += " U+" + std::to_string(cp);
  }
  EXPECT_EQ(wrong, "");
  EXPECT_EQ(CString::LowerText("\xC3" "A \xC3\xC3\x89 \xC0\x80 \xC3"), "\xC3" "a \xC3\xC3\xA9 \xC0\x80 \xC3");
  EXPECT_EQ(CString::UpperText("\xC3\xA9t\xC3\xA9 \xCE\xA3\xCF\x82"), "\xC3\x89T\xC3\x89 \xCE\xA3\xCE\xA3");
}

}  // namespace
}  // namespace ombrel
