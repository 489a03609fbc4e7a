#include "ombrel/foundation/cdictionary.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

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

TEST(CDictionaryTest, KeepsTextsInOrderWithExactErrors) {
  CDictionary dict;
  EXPECT_EQ(dict.GetNumItems(), 0);
  EXPECT_FALSE(dict.Contains("x"));
  EXPECT_EQ(dict.ToStr(), "");
  EXPECT_EQ(TrapText([&] { dict.RemoveItem("x"); }), "CDictionary does not contain item: x");
  EXPECT_EQ(TrapText([&] { dict.GetItem(1); }), "CDictionary index out of range: 1");
  dict.AddItem("Work");
  dict.AddItem("Family");
  dict.AddItem("work");
  EXPECT_EQ(TrapText([&] { dict.AddItem("Work"); }), "CDictionary already contains item: Work");
  EXPECT_EQ(TrapText([&] { dict.GetItem(0); }), "CDictionary index out of range: 0");
  EXPECT_EQ(TrapText([&] { dict.GetItem(4); }), "CDictionary index out of range: 4");
  EXPECT_EQ(dict.ToStr(), "Work\r\nFamily\r\nwork");
  dict.RemoveItem("Family");
  EXPECT_EQ(dict.GetItem(2), "work");
  EXPECT_EQ(dict.GetNumItems(), 2);
}

TEST(CDictionaryTest, MergeAddsOnlyMissingItemsInTheirOrder) {
  CDictionary a, b, empty;
  a.AddItem("x");
  a.AddItem("y");
  b.AddItem("z");
  b.AddItem("y");
  b.AddItem("w");
  a.Merge(b);
  EXPECT_EQ(a.ToStr(), "x\r\ny\r\nz\r\nw");
  a.Merge(a);
  a.Merge(empty);
  EXPECT_EQ(a.GetNumItems(), 4);
  empty.Merge(b);
  EXPECT_EQ(empty.ToStr(), "z\r\ny\r\nw");
  EXPECT_EQ(b.GetNumItems(), 3);
}

TEST(CLongTest, ValueTextAndClone) {
  for (int32_t v : {0, 7, -42, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()}) {
    CLong n(v);
    EXPECT_EQ(n.ToStr(), std::to_string(v));
    auto copy = n.Clone();
    EXPECT_EQ(copy->Value(), v);
    copy->SetValue(v ^ 1);
    EXPECT_EQ(n.Value(), v);
  }
  EXPECT_EQ(CLong().Value(), 0);
}

}  // namespace
}  // namespace ombrel
