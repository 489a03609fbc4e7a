#include "ombrel/foundation/cstring.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "ombrel/foundation/clist.h"

namespace ombrel {
namespace {

template <class F>
std::string TrapText(F&& f) {
  try {
    f();
  } catch (const Error& e) {
    EXPECT_EQ(e.Number(), kTrapErrorNumber);
    EXPECT_EQ(e.Source(), "TRAP");
    return e.Description();
  }
  ADD_FAILURE() << "no trap raised";
  return "<no trap>";
}

std::vector<std::string> Texts(const CList& list) {
  std::vector<std::string> out;
  for (int32_t i = 1; i <= list.GetNumItems(); ++i) out.push_back(list.GetItemAs<CString>(i)->Value());
  return out;
}

struct TransformCase {
  const char* name;
  std::string input;
  std::function<CString&(CString&)> op;
  std::string expected;
};

// Every transforming operation changes the value in place and hands back the same object.
TEST(CStringTest, TransformsInPlace) {
  const std::vector<TransformCase> cases = {
      {"SingleLine", "a\r\nb\rc", [](CString& s) -> CString& { return s.SingleLine(); }, "a b c"},
      {"SingleLine LF CR is two breaks", "a\n\rb", [](CString& s) -> CString& { return s.SingleLine(); }, "a  b"},
      {"SingleLine CR then pair", "a\r\r\nb", [](CString& s) -> CString& { return s.SingleLine(); }, "a  b"},
      {"SingleLine no break", "a b", [](CString& s) -> CString& { return s.SingleLine(); }, "a b"},
      {"Replace all", "a-b-c", [](CString& s) -> CString& { return s.Replace("-", "+"); }, "a+b+c"},
      {"Replace left to right", "aaa", [](CString& s) -> CString& { return s.Replace("aa", "b"); }, "ba"},
      {"Replace growing", "abab", [](CString& s) -> CString& { return s.Replace("a", "aa"); }, "aabaab"},
      {"Replace absent", "abc", [](CString& s) -> CString& { return s.Replace("x", "y"); }, "abc"},
      {"Replace empty old", "abc", [](CString& s) -> CString& { return s.Replace("", "y"); }, "abc"},
      {"Replace multibyte", "Müller", [](CString& s) -> CString& { return s.Replace("ü", "ue"); }, "Mueller"},
      {"ReplaceFront", "Dr. Dr. Smith", [](CString& s) -> CString& { return s.ReplaceFront("Dr. ", "Prof. "); },
       "Prof. Dr. Smith"},
      {"ReplaceEnd", "Smith Jr. Jr.", [](CString& s) -> CString& { return s.ReplaceEnd(" Jr.", ""); },
       "Smith Jr."},
      {"ReplaceFront whole", "abc", [](CString& s) -> CString& { return s.ReplaceFront("abc", ""); }, ""},
      {"Trim", " \t\r\n a \t b \n", [](CString& s) -> CString& { return s.Trim(); }, "a \t b"},
      {"Trim blanks only", "   ", [](CString& s) -> CString& { return s.Trim(); }, ""},
      {"RemoveWhiteSpace", " a\tb\r\nc ", [](CString& s) -> CString& { return s.RemoveWhiteSpace(); }, "abc"},
      {"Condense tab and blanks", "a\t  b", [](CString& s) -> CString& { return s.CondenseWhiteSpace(); }, "a b"},
      {"Condense CR LF pairs", "a\r\n\r\n\r\nb", [](CString& s) -> CString& { return s.CondenseWhiteSpace(); },
       "a\r\nb"},
      {"Condense CRs", "a\r\r\rb", [](CString& s) -> CString& { return s.CondenseWhiteSpace(); }, "a\rb"},
      {"Condense LFs", "a\n\n\n\nb", [](CString& s) -> CString& { return s.CondenseWhiteSpace(); }, "a\nb"},
      {"Condense order CR before LF", "a\r\r\n\nb", [](CString& s) -> CString& { return s.CondenseWhiteSpace(); },
       "a\r\nb"},
      // Pairs are condensed first, so a pair formed later by dropping a CR stays.
      {"Condense pairs before CRs", "a\r\n\r\r\nb", [](CString& s) -> CString& { return s.CondenseWhiteSpace(); },
       "a\r\n\r\nb"},
      {"Condense long blank run", "a      b  ", [](CString& s) -> CString& { return s.CondenseWhiteSpace(); },
       "a b "},
      {"Reverse", "abc", [](CString& s) -> CString& { return s.Reverse(); }, "cba"},
      {"Reverse code points", "Müller 日本", [](CString& s) -> CString& { return s.Reverse(); }, "本日 rellüM"},
      {"Reverse empty", "", [](CString& s) -> CString& { return s.Reverse(); }, ""},
      {"ToLower umlaut", "MÜLLER", [](CString& s) -> CString& { return s.ToLower(); }, "müller"},
      {"ToLower mixed scripts", "McDONALD ÉCOLE ΣΟΦΙΑ ИВАН", [](CString& s) -> CString& { return s.ToLower(); },
       "mcdonald école σοφια иван"},
      {"ToUpper", "müller école ñ иван 42", [](CString& s) -> CString& { return s.ToUpper(); },
       "MÜLLER ÉCOLE Ñ ИВАН 42"},
  };
  for (const TransformCase& c : cases) {
    SCOPED_TRACE(c.name);
    CString s(c.input);
    CString& result = c.op(s);
    EXPECT_EQ(&result, &s);
    EXPECT_EQ(s.Value(), c.expected);
  }
}

TEST(CStringTest, TransformsChain) {
  CString s("  MÜLLER,\tHANS  ");
  s.Trim().ToLower().Replace(",", "").CondenseWhiteSpace();
  EXPECT_EQ(s.Value(), "müller hans");
}

TEST(CStringTest, CountsCodePoints) {
  struct Case {
    std::string text;
    int32_t length;
  };
  for (const Case& c : {Case{"", 0}, Case{"abc", 3}, Case{"Müller", 6}, Case{"日本語", 3}, Case{"a😀b", 3},
                        Case{"e\xCC\x81", 2}}) {
    SCOPED_TRACE(c.text);
    CString s(c.text);
    EXPECT_EQ(s.Length(), c.length);
    auto chars = s.ToCharList();
    ASSERT_EQ(chars->GetNumItems(), c.length);
    std::string joined;
    for (int32_t i = 1; i <= c.length; ++i) {
      EXPECT_EQ(chars->GetItemAs<CString>(i)->Value(), s.GetChar(i).Value());
      joined += s.GetChar(i).Value();
    }
    EXPECT_EQ(joined, c.text);
  }
}

TEST(CStringTest, GetCharOutsideTheText) {
  CString s("Müller");
  EXPECT_EQ(s.GetChar(2).Value(), "ü");
  EXPECT_EQ(s.GetChar(6).Value(), "r");
  EXPECT_EQ(TrapText([&] { s.GetChar(0); }), "Cannot return character at position: 0 for string: Müller");
  EXPECT_EQ(TrapText([&] { s.GetChar(7); }), "Cannot return character at position: 7 for string: Müller");
  EXPECT_EQ(TrapText([] { CString().GetChar(1); }), "Cannot return character at position: 1 for string: ");
}

TEST(CStringTest, InvalidUtf8BytesSurviveAsCharacters) {
  const std::string raw = "a\xFF" "b\xC3";  // a stray byte and a truncated sequence
  CString s(raw);
  EXPECT_EQ(s.Length(), 4);
  EXPECT_EQ(s.GetChar(2).Value(), "\xFF");
  EXPECT_EQ(CString(raw).ToUpper().Value(), "A\xFF" "B\xC3");
  EXPECT_EQ(CString(raw).Reverse().Reverse().Value(), raw);
}

TEST(CStringTest, Predicates) {
  CString s("Smith, John");
  EXPECT_TRUE(s.Equals("Smith, John"));
  EXPECT_FALSE(s.Equals("smith, john"));
  EXPECT_TRUE(s.Equals(CString("Smith, John")));
  EXPECT_TRUE(s.Contains(", "));
  EXPECT_FALSE(s.Contains("john"));
  EXPECT_TRUE(s.ContainsAnyOf("xyz,"));
  EXPECT_FALSE(s.ContainsAnyOf("xyz"));
  EXPECT_FALSE(s.ContainsAnyOf(""));
  EXPECT_TRUE(CString("Müller").ContainsAnyOf("öü"));
  EXPECT_FALSE(CString("Möller").ContainsAnyOf("üä"));  // a shared lead byte is not a match
  EXPECT_TRUE(s.StartsWith("Smith"));
  EXPECT_FALSE(s.StartsWith("smith"));
  EXPECT_TRUE(s.EndsWith("John"));
  EXPECT_FALSE(s.EndsWith("John "));
  EXPECT_TRUE(s.StartsWith(""));
}

TEST(CStringTest, RightAndLeftOfFirstOccurrence) {
  struct Case {
    std::string text, sep, right, left;
  };
  for (const Case& c : {Case{"Smith,John", ",", "John", "Smith"}, Case{"a,b,c", ",", "b,c", "a"},
                        Case{"T:10,L:20", "L:", "20", "T:10,"}, Case{"abc,", ",", "", "abc"},
                        Case{",abc", ",", "abc", ""}, Case{"Grüße aus Köln", "ü", "ße aus Köln", "Gr"}}) {
    SCOPED_TRACE(c.text);
    CString s(c.text);
    EXPECT_EQ(s.GetRightFrom(c.sep).Value(), c.right);
    EXPECT_EQ(s.GetLeftFrom(c.sep).Value(), c.left);
    EXPECT_EQ(s.Value(), c.text);
  }
}

TEST(CStringTest, MisuseTextsAndValueUnchanged) {
  CString s("Smith John");
  EXPECT_EQ(TrapText([&] { s.GetRightFrom(""); }), "Cannot get right from empty string");
  EXPECT_EQ(TrapText([&] { s.GetLeftFrom(""); }), "Given string cannot be empty");
  EXPECT_EQ(TrapText([&] { s.GetRightFrom(","); }), "String: \r\nSmith John\r\n does not contain: ,");
  EXPECT_EQ(TrapText([&] { s.GetLeftFrom(";"); }), "String: \r\nSmith John\r\n does not contain: ;");
  EXPECT_EQ(TrapText([&] { s.ReplaceFront("John", "x"); }), "String: \r\nSmith John\r\n does not start with: John");
  EXPECT_EQ(TrapText([&] { s.ReplaceEnd("Smith", "x"); }), "String: \r\nSmith John\r\n does not end with: Smith");
  EXPECT_EQ(s.Value(), "Smith John");
  EXPECT_EQ(TrapText([] { CString().GetRightFrom(""); }), "Cannot get right from empty string");
}

TEST(CStringTest, ToLongRoundsPlainDecimalText) {
  struct Case {
    std::string text;
    int32_t value;
  };
  for (const Case& c : {Case{"42", 42}, Case{" -7 ", -7}, Case{"+3", 3}, Case{"007", 7}, Case{"2.5", 2},
                        Case{"3.5", 4}, Case{"-2.5", -2}, Case{"2.6", 3}, Case{"1e3", 1000}, Case{"0", 0},
                        Case{"2147483647", std::numeric_limits<int32_t>::max()},
                        Case{"-2147483648", std::numeric_limits<int32_t>::min()}}) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(CString(c.text).ToLong(), c.value);
  }
}

TEST(CStringTest, NumericConversionsRejectNonNumbers) {
  for (const std::string text : {"", " ", "abc", "12abc", "1,5", "0x10", "inf", "nan", "1e", ".", "-", "1 2", "--1",
                                 "١٢"}) {
    SCOPED_TRACE(text);
    const std::string expected = "Cannot convert string: " + text + " to number";
    EXPECT_EQ(TrapText([&] { CString(text).ToLong(); }), expected);
    EXPECT_EQ(TrapText([&] { CString(text).ToDouble(); }), expected);
    EXPECT_EQ(TrapText([&] { CString(text).ToNumber(); }), expected);
  }
}

TEST(CStringTest, ToLongBeyond32BitsOverflows) {
  for (const char* text : {"2147483648", "-2147483649", "1e12", "2147483647.5"}) {
    SCOPED_TRACE(text);
    try {
      CString(text).ToLong();
      ADD_FAILURE() << "no error";
    } catch (const Error& e) {
      EXPECT_EQ(e.Number(), kOverflowErrorNumber);
    }
  }
}

TEST(CStringTest, ToDoubleReadsFractionsWithoutLocale) {
  struct Case {
    std::string text;
    double value;
  };
  for (const Case& c : {Case{"1.5", 1.5}, Case{"-0.25", -0.25}, Case{".5", 0.5}, Case{"5.", 5.0},
                        Case{"1e-3", 0.001}, Case{"\t12\t", 12.0}, Case{"2.5E2", 250.0}}) {
    SCOPED_TRACE(c.text);
    EXPECT_DOUBLE_EQ(CString(c.text).ToDouble(), c.value);
    EXPECT_DOUBLE_EQ(CString(c.text).ToNumber(), c.value);
  }
}

TEST(CStringTest, ToBoolean) {
  EXPECT_TRUE(CString("TRUE").ToBoolean());
  EXPECT_TRUE(CString("true").ToBoolean());
  EXPECT_FALSE(CString("False").ToBoolean());
  for (const std::string text : {"yes", "", "1", " true", "truee"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(TrapText([&] { CString(text).ToBoolean(); }), "Cannot convert string: " + text + " to boolean");
  }
}

TEST(CStringTest, GetTokensSplitsWithoutEmptyTokens) {
  struct Case {
    std::string text, delimiters;
    bool keep;
    std::vector<std::string> tokens;
  };
  const std::vector<Case> cases = {
      {"a b  c", " ", false, {"a", "b", "c"}},
      {"a b  c", " ", true, {"a", " ", "b", " ", " ", "c"}},
      {"  lead and trail  ", " ", false, {"lead", "and", "trail"}},
      {"   ", " ", false, {}},
      {"   ", " ", true, {" ", " ", " "}},
      {"", " ", true, {}},
      {"a,b;c", ",;", true, {"a", ",", "b", ";", "c"}},
      {"aXbxc", "x", false, {"aXb", "c"}},
      {"no delimiters", "", false, {"no delimiters"}},
      {"Jean·Luc·", "·", true, {"Jean", "·", "Luc", "·"}},
      {"John\t\r\nSmith", " \t\r\n", false, {"John", "Smith"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text + " / " + c.delimiters);
    auto tokens = CString(c.text).GetTokens(c.delimiters, c.keep);
    EXPECT_EQ(Texts(*tokens), c.tokens);
  }
}

TEST(CStringTest, CloneIsIndependent) {
  CString s("abc");
  auto copy = s.Clone();
  copy->ToUpper();
  EXPECT_EQ(s.Value(), "abc");
  EXPECT_EQ(copy->Value(), "ABC");
  EXPECT_EQ(copy->ClassName(), "CString");
  EXPECT_EQ(s.ToStr(), "abc");
}

}  // namespace
}  // namespace ombrel
