#include "ombrel/similarity/ceditdistance.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "foundation/utf8.h"
#include "ombrel/foundation/clist.h"
#include "ombrel/foundation/crectangle.h"
#include "ombrel/foundation/error.h"

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

std::shared_ptr<CString> Ops(const std::string& s) { return std::make_shared<CString>(s); }

CEditDistance Made(int32_t e, int32_t m, int32_t i, int32_t d, std::shared_ptr<CString> ops = nullptr) {
  CEditDistance ed;
  ed.Initialize(e, m, i, d, std::move(ops));
  return ed;
}

// Plain two-row Levenshtein distance over code points, independent of the class under test.
int32_t Levenshtein(const std::u32string& a, const std::u32string& b) {
  std::vector<int32_t> prev(b.size() + 1), cur(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) prev[j] = static_cast<int32_t>(j);
  for (size_t i = 1; i <= a.size(); ++i) {
    cur[0] = static_cast<int32_t>(i);
    for (size_t j = 1; j <= b.size(); ++j)
      cur[j] = std::min({prev[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1), prev[j] + 1, cur[j - 1] + 1});
    std::swap(prev, cur);
  }
  return prev[b.size()];
}

// Walks the operations over both operands: every letter must describe its aligned
// pair truthfully and the walk must consume both operands exactly.
void ExpectAlignmentValid(const std::u32string& a, const std::u32string& b, const std::string& ops) {
  size_t i = 0, j = 0;
  for (char op : ops) {
    switch (op) {
      case '.':
        ASSERT_TRUE(i < a.size() && j < b.size() && a[i] == b[j]) << ops;
        ++i, ++j;
        break;
      case 'M':
        ASSERT_TRUE(i < a.size() && j < b.size() && a[i] != b[j]) << ops;
        ++i, ++j;
        break;
      case 'D':
        ASSERT_LT(i, a.size()) << ops;
        ++i;
        break;
      case 'I':
        ASSERT_LT(j, b.size()) << ops;
        ++j;
        break;
      default:
        FAIL() << "unexpected letter in " << ops;
    }
  }
  EXPECT_EQ(i, a.size()) << ops;
  EXPECT_EQ(j, b.size()) << ops;
}

TEST(CEditDistanceTest, FreshObjectIsZeroWithoutOperations) {
  CEditDistance ed;
  EXPECT_EQ(ed.ToStr(), "E:0, M:0, I:0, D:0");
  EXPECT_FALSE(ed.HasOperations());
  EXPECT_EQ(TrapText([&] { ed.GetOperations(); }), "Edit operations have not been calculated");
  EXPECT_NO_THROW(ed.Check());
}

TEST(CEditDistanceTest, CalculateStrKnownResults) {
  struct Case {
    std::string s1, s2, text, ops;
  };
  const std::vector<Case> cases = {
      {"", "", "E:0, M:0, I:0, D:0", ""},
      {"", "abc", "E:3, M:0, I:3, D:0", "III"},
      {"abc", "", "E:3, M:0, I:0, D:3", "DDD"},
      {"abc", "abd", "E:1, M:1, I:0, D:0", "..M"},
      {"ab", "abc", "E:1, M:0, I:1, D:0", "..I"},
      {"abc", "abc", "E:0, M:0, I:0, D:0", "..."},
      {"ab", "ba", "E:2, M:2, I:0, D:0", "MM"},  // the diagonal wins every tie
      {"aba", "bab", "E:2, M:0, I:1, D:1", "I..D"},  // a deletion wins a tie against an insertion
      {"abcd", "acd", "E:1, M:0, I:0, D:1", ".D.."},
      {"abc", "xabc", "E:1, M:0, I:1, D:0", "I..."},
      {"kitten", "sitting", "E:3, M:2, I:1, D:0", "M...M.I"},
      {"Smith", "smith", "E:1, M:1, I:0, D:0", "M...."},
      {"Müller", "Muller", "E:1, M:1, I:0, D:0", ".M...."},
      {"Müller", "Mueller", "E:2, M:1, I:1, D:0", ".IM...."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.s1 + " -> " + c.s2);
    CEditDistance ed;
    ed.CalculateStr(c.s1, c.s2);
    EXPECT_EQ(ed.ToStr(), c.text);
    EXPECT_EQ(ed.GetOperations()->Value(), c.ops);
  }
}

// On random texts over small alphabets (many ties), the distance must be the
// true Levenshtein distance and the operations a valid alignment whose letters
// agree with the counts.
TEST(CEditDistanceTest, RandomTextsGiveMinimalValidAlignments) {
  std::mt19937 rng(99);
  const std::vector<std::u32string> alphabets = {U"ab", U"abc", U"aäb", U"xyz01"};
  for (int round = 0; round < 2000; ++round) {
    const std::u32string& alphabet = alphabets[round % alphabets.size()];
    auto randomText = [&] {
      std::u32string t(rng() % 9, U' ');
      for (auto& ch : t) ch = alphabet[rng() % alphabet.size()];
      return t;
    };
    std::u32string a = randomText(), b = randomText();
    SCOPED_TRACE(utf8::Encode(a) + " -> " + utf8::Encode(b));
    CEditDistance ed;
    ed.CalculateStr(utf8::Encode(a), utf8::Encode(b));
    const std::string ops = ed.GetOperations()->Value();
    ASSERT_EQ(ed.GetNumEdit(), Levenshtein(a, b));
    ASSERT_EQ(ed.GetNumEdit(), ed.GetNumModify() + ed.GetNumInsert() + ed.GetNumDelete());
    ASSERT_EQ(std::count(ops.begin(), ops.end(), 'M'), ed.GetNumModify());
    ASSERT_EQ(std::count(ops.begin(), ops.end(), 'I'), ed.GetNumInsert());
    ASSERT_EQ(std::count(ops.begin(), ops.end(), 'D'), ed.GetNumDelete());
    ASSERT_GE(ops.size(), std::max(a.size(), b.size()));
    ExpectAlignmentValid(a, b, ops);
  }
}

TEST(CEditDistanceTest, CalculateComparesListElementsWithEquals) {
  auto words = [](std::initializer_list<const char*> ws) {
    CList list;
    for (const char* w : ws) list.AddItem(std::make_shared<CString>(w));
    return list;
  };
  CEditDistance ed;
  ed.Calculate(words({"John", "F.", "Smith"}), words({"John", "Smith", "Jr."}));
  EXPECT_EQ(ed.ToStr(), "E:2, M:2, I:0, D:0");
  EXPECT_EQ(ed.GetOperations()->Value(), ".MM");
  ed.Calculate(words({"John", "F.", "Smith"}), words({"John", "Smith"}));
  EXPECT_EQ(ed.ToStr(), "E:1, M:0, I:0, D:1");
  EXPECT_EQ(ed.GetOperations()->Value(), ".D.");
  ed.Calculate(CList(), words({"a", "b"}));
  EXPECT_EQ(ed.GetOperations()->Value(), "II");
  ed.Calculate(words({"a"}), CList());
  EXPECT_EQ(ed.GetOperations()->Value(), "D");

  // Distances themselves can be compared: equal counts are equal elements.
  CList d1, d2;
  d1.AddItem(std::make_shared<CEditDistance>(Made(1, 1, 0, 0)));
  d2.AddItem(std::make_shared<CEditDistance>(Made(1, 0, 1, 0)));
  d2.AddItem(std::make_shared<CEditDistance>(Made(1, 1, 0, 0, Ops("M"))));
  ed.Calculate(d1, d2);
  EXPECT_EQ(ed.GetOperations()->Value(), "I.");
}

TEST(CEditDistanceTest, CalculateReplacesEarlierResult) {
  CEditDistance ed = Made(5, 1, 2, 2);
  ed.CalculateStr("abc", "abd");
  EXPECT_EQ(ed.ToStr(), "E:1, M:1, I:0, D:0");
  ed.CalculateStr("abc", "abc");
  EXPECT_EQ(ed.ToStr(), "E:0, M:0, I:0, D:0");
  EXPECT_EQ(ed.GetOperations()->Value(), "...");
}

TEST(CEditDistanceTest, CheckMessages) {
  EXPECT_EQ(TrapText([] { Made(3, 1, 1, 0); }),
            "CEditDistance check failed: Edits <> Modify + Insert + Delete\r\nE:3, M:1, I:1, D:0");
  EXPECT_EQ(TrapText([] { Made(1, 1, 0, 0, Ops(".I")); }),
            "CEditDistance check failed: numModify does not agree with operations string");
  EXPECT_EQ(TrapText([] { Made(1, 0, 1, 0, Ops("MI")); }),
            "CEditDistance check failed: numModify does not agree with operations string");
  EXPECT_EQ(TrapText([] { Made(1, 0, 1, 0, Ops("..D")); }),
            "CEditDistance check failed: numInsert does not agree with operations string");
  EXPECT_EQ(TrapText([] { Made(2, 0, 1, 1, Ops("I.")); }),
            "CEditDistance check failed: numDelete does not agree with operations string");
  // Dots are not counted; unset operations are not checked.
  EXPECT_NO_THROW(Made(2, 1, 0, 1, Ops("....M...D")));
  EXPECT_NO_THROW(Made(7, 3, 2, 2));
}

TEST(CEditDistanceTest, ToStrAndParseStr) {
  CEditDistance ed;
  auto ops = Ops("..MII");
  ed.Initialize(3, 1, 2, 0, ops);
  EXPECT_EQ(ed.ToStr(), "E:3, M:1, I:2, D:0");
  CEditDistance parsed;
  parsed.ParseStr(CString("E:3, M:1, I:2, D:0"));
  EXPECT_TRUE(parsed.Equals(ed));
  EXPECT_EQ(parsed.ToStr(), "E:3, M:1, I:2, D:0");
  EXPECT_FALSE(parsed.HasOperations());
  parsed.ParseStr(CString("E:12, M:10, I:0, D:2"));
  EXPECT_EQ(parsed.GetNumModify(), 10);
  EXPECT_EQ(parsed.GetNumDelete(), 2);
  // Parsing keeps an existing operations string.
  ed.ParseStr(CString("E:3, M:1, I:2, D:0"));
  EXPECT_EQ(ed.GetOperations(), ops);
}

TEST(CEditDistanceTest, ParseStrWrapsTheInnerError) {
  struct Case {
    std::string text, inner;
  };
  const std::string check = "CEditDistance check failed: ";
  const std::vector<Case> cases = {
      {"E:3, M:1, I:1, D:0", check + "Edits <> Modify + Insert + Delete\r\nE:3, M:1, I:1, D:0"},
      {"E:x, M:1, I:1, D:0", "Cannot convert string: x to number"},
      {"E:3, M:1, D:0", "String: \r\nE:3, M:1, D:0\r\n does not contain: I:"},
      {"E:3 M:1 I:2 D:0", "String: \r\n3 M:1 I:2 D:0\r\n does not contain: ,"},
      {"", "String: \r\n\r\n does not contain: E:"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    CEditDistance ed;
    EXPECT_EQ(TrapText([&] { ed.ParseStr(CString(c.text)); }),
              "Cannot initialize CEditDistance by parsing the string: " + c.text + "\r\n" + c.inner);
  }
  // Counts read before the failure stay assigned.
  CEditDistance ed = Made(9, 9, 0, 0);
  EXPECT_THROW(ed.ParseStr(CString("E:4, M:2, I:x, D:0")), Error);
  EXPECT_EQ(ed.GetNumEdit(), 4);
  EXPECT_EQ(ed.GetNumModify(), 2);
  EXPECT_EQ(ed.GetNumInsert(), 0);
}

TEST(CEditDistanceTest, CloneSharesOperationsAndEqualsIgnoresThem) {
  auto ops = Ops(".MD");
  CEditDistance ed = Made(2, 1, 0, 1, ops);
  auto clone = ed.Clone();
  EXPECT_TRUE(clone->Equals(ed));
  EXPECT_EQ(clone->GetOperations(), ops);  // the same object, not a copy
  EXPECT_TRUE(Made(2, 1, 0, 1, Ops("MD")).Equals(Made(2, 1, 0, 1)));
  for (const CEditDistance& other : {Made(3, 2, 0, 1), Made(2, 2, 0, 0), Made(2, 1, 1, 0), Made(1, 0, 0, 1)}) {
    SCOPED_TRACE(other.ToStr());
    EXPECT_FALSE(ed.Equals(other));
  }
}

TEST(CEditDistanceTest, AddAndSubtractDropTheOperations) {
  CEditDistance ed;
  ed.CalculateStr("kitten", "sitting");
  CEditDistance other;
  other.CalculateStr("abc", "ab");
  ed.Add(other);
  EXPECT_EQ(ed.ToStr(), "E:4, M:2, I:1, D:1");
  EXPECT_FALSE(ed.HasOperations());
  EXPECT_EQ(TrapText([&] { ed.GetOperations(); }), "Edit operations have not been calculated");
  ed.Subtract(Made(3, 2, 1, 0));
  EXPECT_EQ(ed.ToStr(), "E:1, M:0, I:0, D:1");
  ed.Subtract(Made(2, 1, 0, 1));
  EXPECT_EQ(ed.ToStr(), "E:-1, M:-1, I:0, D:0");
}

TEST(CEditDistanceTest, AddAndSubtractRefuseBadOperandsBeforeChanging) {
  CEditDistance bad;
  // Make an inconsistent object the only way possible: a failed parse keeps what it read.
  EXPECT_THROW(bad.ParseStr(CString("E:5, M:1, I:1, D:1")), Error);
  CEditDistance ed = Made(1, 1, 0, 0, Ops("M"));
  EXPECT_EQ(TrapText([&] { ed.Add(bad); }),
            "CEditDistance check failed: Edits <> Modify + Insert + Delete\r\nE:5, M:1, I:1, D:1");
  EXPECT_EQ(TrapText([&] { ed.Subtract(bad); }),
            "CEditDistance check failed: Edits <> Modify + Insert + Delete\r\nE:5, M:1, I:1, D:1");
  EXPECT_EQ(ed.ToStr(), "E:1, M:1, I:0, D:0");
  EXPECT_EQ(ed.GetOperations()->Value(), "M");

  constexpr int32_t kMax = std::numeric_limits<int32_t>::max();
  CEditDistance big = Made(kMax, kMax, 0, 0);
  try {
    big.Add(Made(1, 0, 1, 0));
    ADD_FAILURE() << "no overflow";
  } catch (const Error& e) {
    EXPECT_EQ(e.Number(), kOverflowErrorNumber);
  }
  EXPECT_EQ(big.GetNumEdit(), kMax);
  EXPECT_EQ(big.GetNumInsert(), 0);
}

TEST(CStringEditDistanceTest, CharDistanceOfEqualTextsHasADotPerCharacter) {
  for (const std::string text : {"", "abc", "Müller"}) {
    SCOPED_TRACE(text);
    auto ed = CString(text).GetCharEditDistance(text);
    EXPECT_EQ(ed->ToStr(), "E:0, M:0, I:0, D:0");
    EXPECT_EQ(ed->GetOperations()->Value(), std::string(static_cast<size_t>(CString(text).Length()), '.'));
  }
  auto ed = CString("Smith").GetCharEditDistance("Smyth");
  EXPECT_EQ(ed->ToStr(), "E:1, M:1, I:0, D:0");
  EXPECT_EQ(ed->GetOperations()->Value(), "..M..");
  EXPECT_EQ(CString("Jon").GetCharEditDistance("John")->GetOperations()->Value(), "..I.");
}

TEST(CStringEditDistanceTest, WordDistance) {
  struct Case {
    std::string a, b, text, ops;
  };
  const std::vector<Case> cases = {
      {"John  Smith", "John Smith", "E:0, M:0, I:0, D:0", ".."},
      {"John\tSmith\r\n", " John Smith", "E:0, M:0, I:0, D:0", ".."},
      {"John F. Smith", "John Smith", "E:1, M:0, I:0, D:1", ".D."},
      {"John Smith", "john smith", "E:2, M:2, I:0, D:0", "MM"},
      {"Smith John", "John Smith", "E:2, M:2, I:0, D:0", "MM"},
      {"", "John Smith", "E:2, M:0, I:2, D:0", "II"},
      {"   ", "John", "E:1, M:0, I:1, D:0", "I"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.a + " / " + c.b);
    auto ed = CString(c.a).GetWordEditDistance(c.b);
    EXPECT_EQ(ed->ToStr(), c.text);
    EXPECT_EQ(ed->GetOperations()->Value(), c.ops);
  }
}

TEST(CStringEditDistanceTest, WordDistanceOfEqualTextsHasNoOperations) {
  for (const std::string text : {"", "John Smith", "a  b"}) {
    SCOPED_TRACE(text);
    auto ed = CString(text).GetWordEditDistance(text);
    EXPECT_EQ(ed->ToStr(), "E:0, M:0, I:0, D:0");
    EXPECT_EQ(TrapText([&] { ed->GetOperations(); }), "Edit operations have not been calculated");
  }
}

}  // namespace
}  // namespace ombrel
