#include "ombrel/foundation/clist.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <limits>
#include <random>
#include <vector>

#include "ombrel/foundation/cdictionary.h"
#include "ombrel/foundation/cstring.h"
#include "support/error_text.h"

namespace ombrel {
namespace {

// Stands in for the card class, which lives in another subsystem.
class FakeCard final : public CObject {
 public:
  std::string_view ClassName() const override { return "CCard"; }
  std::string ToStr() const override { return "card"; }
};

std::shared_ptr<CString> Str(const char* s) { return std::make_shared<CString>(s); }
std::shared_ptr<CLong> Num(int32_t v) { return std::make_shared<CLong>(v); }

std::vector<ObjectRef> Items(const CList& list) {
  std::vector<ObjectRef> out;
  for (int32_t i = 1; i <= list.GetNumItems(); ++i) out.push_back(list.GetItem(i));
  return out;
}

TEST(CListTest, PositionsOutsideOneToNAreRefusedAndChangeNothing) {
  const std::vector<std::function<void(CList&, int32_t)>> calls = {
      [](CList& l, int32_t p) { l.GetItem(p); },
      [](CList& l, int32_t p) { l.InsertItem(p, Str("x")); },
      [](CList& l, int32_t p) { l.ReplaceItem(p, Str("x")); },
      [](CList& l, int32_t p) { l.SwapItems(p, 1); },
      [](CList& l, int32_t p) { l.SwapItems(1, p); },
      [](CList& l, int32_t p) { l.RemoveItem(p); },
  };
  for (size_t c = 0; c < calls.size(); ++c) {
    for (int32_t bad : {0, 4, -1, std::numeric_limits<int32_t>::min()}) {
      SCOPED_TRACE("call " + std::to_string(c) + " at " + std::to_string(bad));
      CList list;
      for (const char* t : {"a", "b", "c"}) list.AddItem(Str(t));
      std::vector<ObjectRef> before = Items(list);
      EXPECT_EQ(TrapText([&] { calls[c](list, bad); }), "List index out of range: " + std::to_string(bad));
      EXPECT_EQ(Items(list), before);
    }
  }
}

TEST(CListTest, EmptyListAndRestrictionErrors) {
  CList list;
  EXPECT_EQ(TrapText([&] { list.GetItem(1); }), "List index out of range: 1");
  EXPECT_EQ(TrapText([&] { list.GetLastItem(); }), "Cannot get last item: list is empty");
  EXPECT_EQ(TrapText([&] { list.RemoveLast(); }), "There's nothing left to remove from CList");
  list.AddItem(std::make_shared<FakeCard>());
  EXPECT_EQ(TrapText([&] { list.RestrictType("CCard"); }), "Cannot restrict type: list is not empty");
  list.RemoveAll();
  list.RestrictType("CCard");
  list.AddItem(std::make_shared<FakeCard>());
  EXPECT_EQ(TrapText([&] { list.AddItem(Str("x")); }), "Cannot add a: CString into a list of: CCard");
  EXPECT_EQ(TrapText([&] { list.InsertItem(1, Num(3)); }), "Cannot add a: CLong into a list of: CCard");
  // A refused append adds none of the other list's items.
  CList mixed;
  mixed.AddItem(std::make_shared<FakeCard>());
  mixed.AddItem(Str("x"));
  EXPECT_EQ(TrapText([&] { list.Append(mixed); }), "Cannot add a: CString into a list of: CCard");
  EXPECT_EQ(list.GetNumItems(), 1);
}

TEST(CListTest, ToStrJoinsItemsAndLookupsFindByIdentityOrValue) {
  CList list;
  EXPECT_EQ(list.ToStr(), "");
  list.AddItem(Num(-7));
  EXPECT_EQ(list.ToStr(), "-7");
  list.AddItem(std::make_shared<FakeCard>());
  list.AddItem(Str(""));
  EXPECT_EQ(list.ToStr(), "-7\r\ncard\r\n");

  auto a = Str("Smith"), b = Str("Jones"), twin = Str("Jones");
  list.RemoveAll();
  for (const auto& item : {a, b, twin, b}) list.AddItem(item);
  EXPECT_EQ(list.GetPosition(b), 2);
  EXPECT_EQ(list.GetPosition(twin), 3);
  EXPECT_FALSE(list.Contains(Str("Smith")));
  EXPECT_EQ(list.GetPositionByValue(twin), 2);
  EXPECT_EQ(list.GetPositionByValue(Str("Smith")), 1);
  EXPECT_FALSE(list.ContainsByValue(Str("smith")));
  CList numbers;
  numbers.AddItem(Num(5));
  numbers.AddItem(Num(-2));
  EXPECT_EQ(numbers.GetPositionByValue(Num(-2)), 2);
}

TEST(CListTest, CloneAndAppendShareItemReferences) {
  CList list;
  list.RestrictType("CString");
  auto a = Str("a"), b = Str("b");
  list.AddItem(a);
  list.AddItem(b);
  auto copy = list.Clone();
  EXPECT_EQ(Items(*copy), Items(list));
  copy->AddItem(Num(1));  // the clone is unrestricted
  copy->RemoveItem(1);
  EXPECT_EQ(list.GetNumItems(), 2);
  a->SetValue("changed");
  EXPECT_EQ(list.ToStr(), "changed\r\nb");
  list.Append(list);
  EXPECT_EQ(Items(list), (std::vector<ObjectRef>{a, b, a, b}));
}

TEST(CListTest, UnsetItemsRaiseInsteadOfCrashing) {
  CList list;
  list.AddItem(Str("a"));
  list.AddItem(nullptr);
  EXPECT_EQ(list.GetPosition(nullptr), 2);
  EXPECT_EQ(list.GetPositionByValue(Str("a")), 1);
  EXPECT_THROW(list.ToStr(), Error);
  EXPECT_THROW(list.GetPositionByValue(Str("b")), Error);
  EXPECT_THROW(list.GetPositionByValue(nullptr), Error);
}

// Random mixes of every operation against a vector. The cursor makes the
// order of access matter, so reads alternate between short runs up or down
// and random jumps, and the list grows well past several node blocks.
TEST(CListTest, MatchesAVectorUnderRandomOperations) {
  std::mt19937 rng(20240611);
  for (int round = 0; round < 20; ++round) {
    CList list;
    std::vector<ObjectRef> model;
    auto pick = [&](size_t n) { return static_cast<int32_t>(rng() % n) + 1; };
    for (int step = 0; step < 3000; ++step) {
      const size_t n = model.size();
      const int op = n == 0 ? 0 : static_cast<int>(rng() % 10);
      const int32_t p = n == 0 ? 0 : pick(n), q = n == 0 ? 0 : pick(n);
      auto item = Num(step);
      if (op <= 2) {
        list.AddItem(item);
        model.push_back(item);
      } else if (op == 3) {
        list.InsertItem(p, item);
        model.insert(model.begin() + (p - 1), item);
      } else if (op == 4) {
        list.RemoveItem(p);
        model.erase(model.begin() + (p - 1));
      } else if (op == 5) {
        list.RemoveLast();
        model.pop_back();
      } else if (op == 6) {
        list.SwapItems(p, q);
        std::swap(model[p - 1], model[q - 1]);
      } else if (op == 7) {
        list.ReplaceItem(p, item);
        model[p - 1] = item;
      } else {
        const int32_t dir = op == 8 ? 1 : -1;
        for (int32_t at = p; at >= 1 && at <= static_cast<int32_t>(n) && std::abs(at - p) < 5; at += dir) {
          ASSERT_EQ(list.GetItem(at), model[at - 1]) << "position " << at;
        }
      }
      ASSERT_EQ(list.GetNumItems(), static_cast<int32_t>(model.size()));
      if (!model.empty()) {
        ASSERT_EQ(list.GetLastItem(), model.back());
      }
    }
    ASSERT_EQ(Items(list), model);
    for (int32_t i = list.GetNumItems(); i >= 1; --i) ASSERT_EQ(list.GetItem(i), model[i - 1]);
    // The in-place walk meets the same items in the same order.
    std::vector<const CObject*> visited, expected;
    list.ForEachItem([&](const CObject* item) { visited.push_back(item); });
    for (const ObjectRef& item : model) expected.push_back(item.get());
    ASSERT_EQ(visited, expected);
  }
}

TEST(CDictionaryTest, KeepsTextsInOrderWithExactErrorsAndMergesOnlyMissingOnes) {
  CDictionary dict, other, empty;
  EXPECT_EQ(TrapText([&] { dict.RemoveItem("x"); }), "CDictionary does not contain item: x");
  EXPECT_EQ(TrapText([&] { dict.GetItem(1); }), "CDictionary index out of range: 1");
  for (const char* t : {"Work", "Family", "work"}) dict.AddItem(t);
  EXPECT_EQ(TrapText([&] { dict.AddItem("Work"); }), "CDictionary already contains item: Work");
  EXPECT_EQ(TrapText([&] { dict.GetItem(4); }), "CDictionary index out of range: 4");
  dict.RemoveItem("Family");
  EXPECT_EQ(dict.GetItem(2), "work");
  for (const char* t : {"Golf", "work", "Clients"}) other.AddItem(t);
  dict.Merge(other);
  dict.Merge(dict);
  dict.Merge(empty);
  EXPECT_EQ(dict.ToStr(), "Work\r\nwork\r\nGolf\r\nClients");
  empty.Merge(other);
  EXPECT_EQ(empty.ToStr(), "Golf\r\nwork\r\nClients");
}

}  // namespace
}  // namespace ombrel
