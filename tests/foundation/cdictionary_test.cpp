#include "ombrel/foundation/cdictionary.h"

#include <gtest/gtest.h>

#include <string>

#include "support/error_text.h"

namespace ombrel {
namespace {

TEST(CDictionaryTest, KeepsTextsInOrderWithExactErrors) {
  CDictionary dict;
  EXPECT_EQ(TrapText([&] { dict.RemoveItem("x"); }), "CDictionary does not contain item: x");
  EXPECT_EQ(TrapText([&] { dict.GetItem(1); }), "CDictionary index out of range: 1");
  for (const char* t : {"Work", "Family", "work"}) dict.AddItem(t);
  EXPECT_EQ(TrapText([&] { dict.AddItem("Work"); }), "CDictionary already contains item: Work");
  EXPECT_EQ(TrapText([&] { dict.GetItem(4); }), "CDictionary index out of range: 4");
  EXPECT_EQ(dict.ToStr(), "Work\r\nFamily\r\nwork");
  dict.RemoveItem("Family");
  EXPECT_EQ(dict.GetItem(2), "work");
  EXPECT_FALSE(dict.Contains("Family"));
}

TEST(CDictionaryTest, MergeAddsOnlyMissingItemsInTheirOrder) {
  CDictionary a, b, empty;
  for (const char* t : {"x", "y"}) a.AddItem(t);
  for (const char* t : {"z", "y", "w"}) b.AddItem(t);
  a.Merge(b);
  EXPECT_EQ(a.ToStr(), "x\r\ny\r\nz\r\nw");
  a.Merge(a);
  a.Merge(empty);
  EXPECT_EQ(a.GetNumItems(), 4);
  empty.Merge(b);
  EXPECT_EQ(empty.ToStr(), "z\r\ny\r\nw");
}

}  // namespace
}  // namespace ombrel
