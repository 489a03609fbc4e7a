#include "ombrel/similarity/ceditdistance.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "foundation/utf8.h"
#include "ombrel/foundation/clist.h"
#include "ombrel/foundation/error.h"
#include "support/error_text.h"

namespace ombrel {
namespace {

std::shared_ptr<CString> Ops(const std::string& s) { return std::make_shared<CString>(s); }

CEditDistance Made(int32_t e, int32_t m, int32_t i, int32_t d, std::shared_ptr<CString> ops = nullptr) {
  CEditDistance ed;
  ed.Initialize(e, m, i, d, std::move(ops));
  return ed;
}

const std::string kNotCalculated = "Edit operations have not been calculated";

// Where several alignments are minimal, the one chosen is fixed (the random
// test below checks minimality and validity); an earlier result never leaks in.
TEST(CEditDistanceTest, CalculateStrGivesCountsAndOperationsWithItsTieRules) {
  struct Case { std::string s1, s2, text, ops; };
  for (const Case& c : std::vector<Case>{
           {"", "abc", "E:3, M:0, I:3, D:0", "III"},
           {"abc", "", "E:3, M:0, I:0, D:3", "DDD"},
           {"ab", "ba", "E:2, M:2, I:0, D:0", "MM"},      // the diagonal wins every tie
           {"aba", "bab", "E:2, M:0, I:1, D:1", "I..D"},  // a deletion wins a tie against an insertion
           {"kitten", "sitting", "E:3, M:2, I:1, D:0", "M...M.I"},
           {"Müller", "Mueller", "E:2, M:1, I:1, D:0", ".IM...."},
       }) {
    CEditDistance ed = Made(5, 1, 2, 2);  // an earlier result is replaced
    ed.CalculateStr(c.s1, c.s2);
    EXPECT_EQ(ed.ToStr() + " " + ed.GetOperations()->Value(), c.text + " " + c.ops) << c.s1 << " -> " << c.s2;
  }
}

// On random texts over small alphabets (many ties) the distance must be the true
// Levenshtein distance, and the operations a valid alignment agreeing with the counts.
TEST(CEditDistanceTest, RandomTextsGiveMinimalValidAlignments) {
  std::mt19937 rng(99);
  const std::u32string alphabets[] = {U"ab", U"abc", U"aäb"};
  for (int round = 0; round < 2000; ++round) {
    const std::u32string& alphabet = alphabets[round % 3];
    std::u32string a(rng() % 9, U' '), b(rng() % 9, U' ');
    for (auto* t : {&a, &b})
      for (auto& ch : *t) ch = alphabet[rng() % alphabet.size()];
    // Reference distance, two rows at a time.
    std::vector<int32_t> prev(b.size() + 1), cur(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) prev[j] = static_cast<int32_t>(j);
    for (size_t i = 1; i <= a.size(); ++i, std::swap(prev, cur)) {
      cur[0] = static_cast<int32_t>(i);
      for (size_t j = 1; j <= b.size(); ++j)
        cur[j] = std::min({prev[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1), prev[j] + 1, cur[j - 1] + 1});
    }
    CEditDistance ed;
    ed.CalculateStr(utf8::Encode(a), utf8::Encode(b));
    const std::string ops = ed.GetOperations()->Value();
    SCOPED_TRACE(utf8::Encode(a) + " -> " + utf8::Encode(b) + ": " + ops);
    ASSERT_EQ(ed.GetNumEdit(), prev[b.size()]);
    ASSERT_EQ(std::count(ops.begin(), ops.end(), 'M'), ed.GetNumModify());
    ASSERT_EQ(std::count(ops.begin(), ops.end(), 'I'), ed.GetNumInsert());
    ASSERT_EQ(std::count(ops.begin(), ops.end(), 'D'), ed.GetNumDelete());
    size_t i = 0, j = 0;  // each letter must describe its aligned pair truthfully
    for (char op : ops) {
      if (op == '.' || op == 'M') {
        ASSERT_TRUE(i < a.size() && j < b.size() && (a[i] == b[j]) == (op == '.'));
        ++i, ++j;
      } else {
        ASSERT_TRUE(op == 'D' ? i++ < a.size() : j++ < b.size());
      }
    }
    ASSERT_EQ(i, a.size());
    ASSERT_EQ(j, b.size());
  }
}

// Lists of distances compare them by their counts, whatever their operations
// (lists of words are compared through the word distance below).
TEST(CEditDistanceTest, CalculateComparesDistancesByTheirCounts) {
  CList d1, d2;
  d1.AddItem(std::make_shared<CEditDistance>(Made(1, 1, 0, 0)));
  d2.AddItem(std::make_shared<CEditDistance>(Made(1, 0, 1, 0)));
  d2.AddItem(std::make_shared<CEditDistance>(Made(1, 1, 0, 0, Ops("M"))));
  CEditDistance ed;
  ed.Calculate(d1, d2);
  EXPECT_EQ(ed.GetOperations()->Value(), "I.");
}

TEST(CEditDistanceTest, InitializeChecksTheCountsInOrderWithExactMessages) {
  const std::string failed = "CEditDistance check failed: ";
  EXPECT_EQ(TrapText([] { Made(3, 1, 1, 0); }), failed + "Edits <> Modify + Insert + Delete\r\nE:3, M:1, I:1, D:0");
  EXPECT_EQ(TrapText([] { Made(1, 0, 1, 0, Ops("MI")); }), failed + "numModify does not agree with operations string");
  EXPECT_EQ(TrapText([] { Made(1, 0, 1, 0, Ops("..D")); }), failed + "numInsert does not agree with operations string");
  EXPECT_EQ(TrapText([] { Made(2, 0, 1, 1, Ops("I.")); }), failed + "numDelete does not agree with operations string");
  EXPECT_NO_THROW(Made(2, 1, 0, 1, Ops("....M...D")));
  EXPECT_EQ(TrapText([] { CEditDistance().GetOperations(); }), kNotCalculated);
}

TEST(CEditDistanceTest, ParseStrReadsTheTextFormAndWrapsAnyError) {
  auto ops = Ops("..MII");
  CEditDistance ed = Made(3, 1, 2, 0, ops), parsed;
  parsed.ParseStr(CString("E:12, M:10, I:0, D:2"));
  EXPECT_EQ(parsed.ToStr(), "E:12, M:10, I:0, D:2");
  ed.ParseStr(CString("E:3, M:1, I:2, D:0"));
  EXPECT_EQ(ed.GetOperations(), ops);  // kept as it was, and still checked against
  EXPECT_THROW(ed.ParseStr(CString("E:2, M:2, I:0, D:0")), Error);
  struct Case { std::string text, inner; };
  for (const Case& c : std::vector<Case>{
           {"E:3, M:1, I:1, D:0", "CEditDistance check failed: Edits <> Modify + Insert + Delete\r\nE:3, M:1, I:1, D:0"},
           {"E:x, M:1, I:1, D:0", "Cannot convert string: x to number"},
           {"E:3, M:1, D:0", "String: \r\nE:3, M:1, D:0\r\n does not contain: I:"},
           {"E:3 M:1 I:2 D:0", "String: \r\n3 M:1 I:2 D:0\r\n does not contain: ,"},
       }) {
    EXPECT_EQ(TrapText([&] { CEditDistance().ParseStr(CString(c.text)); }),
              "Cannot initialize CEditDistance by parsing the string: " + c.text + "\r\n" + c.inner);
  }
  CEditDistance partial = Made(9, 9, 0, 0);
  EXPECT_THROW(partial.ParseStr(CString("E:4, M:2, I:x, D:0")), Error);
  EXPECT_EQ(partial.ToStr(), "E:4, M:2, I:0, D:0");  // counts read before the failure stay
}

TEST(CEditDistanceTest, AddAndSubtractCheckTheOperandAndOverflow) {
  auto ops = Ops(".MD");
  CEditDistance ed = Made(2, 1, 0, 1, ops);
  EXPECT_EQ(ed.Clone()->GetOperations(), ops);
  EXPECT_FALSE(ed.Equals(Made(2, 1, 1, 0)));
  ed.Add(Made(3, 2, 1, 0, Ops("MMI")));
  EXPECT_EQ(ed.ToStr(), "E:5, M:3, I:1, D:1");
  EXPECT_EQ(TrapText([&] { ed.GetOperations(); }), kNotCalculated);
  ed.Subtract(Made(6, 3, 1, 2));
  EXPECT_EQ(ed.ToStr(), "E:-1, M:0, I:0, D:-1");
  // A bad operand is refused before anything changes.
  CEditDistance bad;
  EXPECT_THROW(bad.ParseStr(CString("E:5, M:1, I:1, D:1")), Error);
  EXPECT_EQ(TrapText([&] { ed.Add(bad); }),
            "CEditDistance check failed: Edits <> Modify + Insert + Delete\r\nE:5, M:1, I:1, D:1");
  EXPECT_THROW(ed.Subtract(bad), Error);
  CEditDistance big = Made(std::numeric_limits<int32_t>::max(), 0, 0, std::numeric_limits<int32_t>::max());
  EXPECT_EQ(ErrorNumber([&] { big.Add(Made(1, 0, 0, 1)); }), kOverflowErrorNumber);
  EXPECT_EQ(big.GetNumDelete(), std::numeric_limits<int32_t>::max());
  EXPECT_EQ(ed.ToStr(), "E:-1, M:0, I:0, D:-1");
}

// Equal texts take a shortcut: a dot a character for the character distance,
// no operations at all for the word distance.
TEST(CStringEditDistanceTest, EqualTextsDifferBetweenCharAndWordDistance) {
  for (const std::string text : {"", "John  Smith", "Müller"}) {
    auto chars = CString(text).GetCharEditDistance(text);
    EXPECT_EQ(chars->ToStr() + " " + chars->GetOperations()->Value(),
              "E:0, M:0, I:0, D:0 " + std::string(static_cast<size_t>(CString(text).Length()), '.'));
    EXPECT_EQ(TrapText([&] { CString(text).GetWordEditDistance(text)->GetOperations(); }), kNotCalculated);
  }
  EXPECT_EQ(CString("Smith").GetCharEditDistance("smith")->GetOperations()->Value(), "M....");
}

TEST(CStringEditDistanceTest, WordDistanceComparesTokens) {
  struct Case { std::string a, b, text, ops; };
  for (const Case& c : std::vector<Case>{
           {"John  Smith", "John Smith", "E:0, M:0, I:0, D:0", ".."},
           {"John\tSmith\r\n", " John Smith", "E:0, M:0, I:0, D:0", ".."},
           {"John F. Smith", "John Smith Jr.", "E:2, M:2, I:0, D:0", ".MM"},
           {"Smith John", "John Smith", "E:2, M:2, I:0, D:0", "MM"},
           {"   ", "John", "E:1, M:0, I:1, D:0", "I"},
           {"John F. Smith", "John Smith", "E:1, M:0, I:0, D:1", ".D."},
       }) {
    auto ed = CString(c.a).GetWordEditDistance(c.b);
    EXPECT_EQ(ed->ToStr() + " " + ed->GetOperations()->Value(), c.text + " " + c.ops) << c.a << " / " << c.b;
  }
}

}  // namespace
}  // namespace ombrel
