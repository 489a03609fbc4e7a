#include "ombrel/foundation/clist.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <random>
#include <vector>

#include "ombrel/foundation/cdictionary.h"
#include "ombrel/foundation/cstring.h"

namespace ombrel {
namespace {

// The description of the trap f raised; fails the test when it raised none.
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

// Stands in for the card class, which lives in another subsystem.
class FakeCard final : public CObject {
 public:
  std::string_view ClassName() const override { return "CCard"; }
  std::string ToStr() const override { return "card"; }
};

std::shared_ptr<CString> Str(const char* s) { return std::make_shared<CString>(s); }
std::shared_ptr<CLong> Num(int32_t v) { return std::make_shared<CLong>(v); }

// Items of the list, read by walking positions 1..n.
std::vector<ObjectRef> Items(const CList& list) {
  std::vector<ObjectRef> out;
  for (int32_t i = 1; i <= list.GetNumItems(); ++i) out.push_back(list.GetItem(i));
  return out;
}

CList ListOf(std::initializer_list<const char*> texts) {
  CList list;
  for (const char* t : texts) list.AddItem(Str(t));
  return list;
}

TEST(CListTest, NewListIsEmpty) {
  CList list;
  EXPECT_EQ(list.GetNumItems(), 0);
  EXPECT_EQ(list.ToStr(), "");
  EXPECT_EQ(TrapText([&] { list.GetItem(1); }), "List index out of range: 1");
}

TEST(CListTest, PositionalOperationsRejectPositionsOutsideOneToN) {
  struct Case {
    const char* name;
    std::function<void(CList&, int32_t)> call;
  };
  const std::vector<Case> cases = {
      {"GetItem", [](CList& l, int32_t p) { l.GetItem(p); }},
      {"InsertItem", [](CList& l, int32_t p) { l.InsertItem(p, Str("x")); }},
      {"ReplaceItem", [](CList& l, int32_t p) { l.ReplaceItem(p, Str("x")); }},
      {"SwapItems first", [](CList& l, int32_t p) { l.SwapItems(p, 1); }},
      {"SwapItems second", [](CList& l, int32_t p) { l.SwapItems(1, p); }},
      {"RemoveItem", [](CList& l, int32_t p) { l.RemoveItem(p); }},
  };
  for (const Case& c : cases) {
    for (int32_t bad : {0, 4, -1, 1000, std::numeric_limits<int32_t>::min()}) {
      SCOPED_TRACE(std::string(c.name) + " " + std::to_string(bad));
      CList list = ListOf({"a", "b", "c"});
      std::vector<ObjectRef> before = Items(list);
      EXPECT_EQ(TrapText([&] { c.call(list, bad); }), "List index out of range: " + std::to_string(bad));
      EXPECT_EQ(Items(list), before);
    }
  }
}

TEST(CListTest, EmptyListErrors) {
  CList list;
  EXPECT_EQ(TrapText([&] { list.GetLastItem(); }), "Cannot get last item: list is empty");
  EXPECT_EQ(TrapText([&] { list.RemoveLast(); }), "There's nothing left to remove from CList");
  list.AddItem(Str("a"));
  list.RemoveLast();
  EXPECT_EQ(TrapText([&] { list.RemoveLast(); }), "There's nothing left to remove from CList");
  EXPECT_EQ(list.GetNumItems(), 0);
}

TEST(CListTest, RestrictTypeOnlyOnEmptyList) {
  CList list;
  list.AddItem(std::make_shared<FakeCard>());
  EXPECT_EQ(TrapText([&] { list.RestrictType("CCard"); }), "Cannot restrict type: list is not empty");
  list.RemoveAll();
  EXPECT_NO_THROW(list.RestrictType("CCard"));
}

TEST(CListTest, RestrictedListNamesBothClassesWhenRefusing) {
  CList list;
  list.RestrictType("CCard");
  list.AddItem(std::make_shared<FakeCard>());
  EXPECT_EQ(TrapText([&] { list.AddItem(Str("x")); }), "Cannot add a: CString into a list of: CCard");
  EXPECT_EQ(TrapText([&] { list.InsertItem(1, Num(3)); }), "Cannot add a: CLong into a list of: CCard");
  EXPECT_EQ(list.GetNumItems(), 1);
  EXPECT_EQ(list.GetItem(1)->ClassName(), "CCard");

  CList strings;
  strings.RestrictType("CString");
  strings.AddItem(Str("a"));
  strings.InsertItem(1, Str("b"));
  EXPECT_EQ(strings.ToStr(), "b\r\na");
  EXPECT_EQ(TrapText([&] { strings.AddItem(std::make_shared<FakeCard>()); }),
            "Cannot add a: CCard into a list of: CString");
}

TEST(CListTest, ToStrJoinsWithCrLf) {
  EXPECT_EQ(ListOf({}).ToStr(), "");
  EXPECT_EQ(ListOf({"only"}).ToStr(), "only");
  EXPECT_EQ(ListOf({"a", "", "c"}).ToStr(), "a\r\n\r\nc");
  CList mixed;
  mixed.AddItem(Num(-7));
  mixed.AddItem(std::make_shared<FakeCard>());
  mixed.AddItem(Str("s"));
  EXPECT_EQ(mixed.ToStr(), "-7\r\ncard\r\ns");
}

TEST(CListTest, IdentityAndValueLookups) {
  auto a = Str("Smith");
  auto b = Str("Jones");
  auto twin = Str("Jones");  // equal value, other object
  CList list;
  list.AddItem(a);
  list.AddItem(b);
  list.AddItem(twin);
  list.AddItem(b);

  EXPECT_EQ(list.GetPosition(b), 2);  // first match
  EXPECT_EQ(list.GetPosition(twin), 3);
  EXPECT_EQ(list.GetPosition(Str("Smith")), 0);
  EXPECT_FALSE(list.Contains(Str("Smith")));
  EXPECT_TRUE(list.Contains(a));

  EXPECT_EQ(list.GetPositionByValue(twin), 2);
  EXPECT_EQ(list.GetPositionByValue(Str("Smith")), 1);
  EXPECT_EQ(list.GetPositionByValue(Str("smith")), 0);  // values compare exactly
  EXPECT_TRUE(list.ContainsByValue(Str("Jones")));
  EXPECT_FALSE(list.ContainsByValue(Str("Jone")));

  CList numbers;
  numbers.AddItem(Num(5));
  numbers.AddItem(Num(-2));
  EXPECT_EQ(numbers.GetPositionByValue(Num(-2)), 2);
  EXPECT_FALSE(numbers.ContainsByValue(Num(2)));
  EXPECT_FALSE(CList().ContainsByValue(Num(1)));
}

TEST(CListTest, InsertReplaceSwapAndRemoveKeepOrder) {
  CList list = ListOf({"a", "b", "c"});
  list.InsertItem(1, Str("front"));
  list.InsertItem(4, Str("beforeLast"));
  EXPECT_EQ(list.ToStr(), "front\r\na\r\nb\r\nbeforeLast\r\nc");
  list.ReplaceItem(3, Str("B"));
  list.SwapItems(1, 5);
  list.SwapItems(2, 2);
  EXPECT_EQ(list.ToStr(), "c\r\na\r\nB\r\nbeforeLast\r\nfront");
  EXPECT_EQ(list.GetLastItem()->ToStr(), "front");
  list.RemoveItem(1);
  list.RemoveItem(4);
  list.RemoveItem(2);
  EXPECT_EQ(list.ToStr(), "a\r\nbeforeLast");
  EXPECT_EQ(list.GetLastItem()->ToStr(), "beforeLast");
}

TEST(CListTest, CloneIsShallowAndUnrestricted) {
  CList list;
  list.RestrictType("CString");
  auto a = Str("a");
  auto b = Str("b");
  list.AddItem(a);
  list.AddItem(b);
  auto copy = list.Clone();
  ASSERT_EQ(copy->GetNumItems(), 2);
  EXPECT_EQ(copy->GetItem(1), a);
  EXPECT_EQ(copy->GetItem(2), b);
  copy->AddItem(Num(1));  // no restriction on the clone
  copy->RemoveItem(1);
  EXPECT_EQ(list.GetNumItems(), 2);
  EXPECT_EQ(list.GetItem(1), a);
  a->SetValue("changed");
  EXPECT_EQ(list.ToStr(), "changed\r\nb");
}

TEST(CListTest, AppendAddsInOrderAndAppendingToItselfDoubles) {
  CList list = ListOf({"a", "b"});
  list.Append(ListOf({"c"}));
  list.Append(CList());
  list.Append(list);
  EXPECT_EQ(list.ToStr(), "a\r\nb\r\nc\r\na\r\nb\r\nc");
  EXPECT_EQ(list.GetItem(1), list.GetItem(4));
}

TEST(CListTest, FailedAppendLeavesListUnchanged) {
  CList cards;
  cards.RestrictType("CCard");
  cards.AddItem(std::make_shared<FakeCard>());
  CList mixed;
  mixed.AddItem(std::make_shared<FakeCard>());
  mixed.AddItem(Str("x"));
  EXPECT_EQ(TrapText([&] { cards.Append(mixed); }), "Cannot add a: CString into a list of: CCard");
  EXPECT_EQ(cards.GetNumItems(), 1);
}

TEST(CListTest, NullItemsRaiseInsteadOfCrashing) {
  CList list;
  list.AddItem(Str("a"));
  list.AddItem(nullptr);
  EXPECT_EQ(list.GetItem(2), nullptr);
  EXPECT_THROW(list.ToStr(), Error);
  EXPECT_THROW(list.GetPositionByValue(Str("b")), Error);
  EXPECT_EQ(list.GetPositionByValue(Str("a")), 1);  // found before the empty slot
  EXPECT_THROW(list.GetPositionByValue(nullptr), Error);
  EXPECT_EQ(list.GetPosition(nullptr), 2);
}

TEST(CListTest, GrowsPastNodeBlocksWithoutLosingOrder) {
  for (int32_t n : {99, 100, 101, 200, 201, 1000}) {
    SCOPED_TRACE(n);
    CList list;
    for (int32_t i = 1; i <= n; ++i) list.AddItem(Num(i));
    ASSERT_EQ(list.GetNumItems(), n);
    for (int32_t i = 1; i <= n; ++i) ASSERT_EQ(list.GetItemAs<CLong>(i)->Value(), i);
    for (int32_t i = n; i >= 1; --i) ASSERT_EQ(list.GetItemAs<CLong>(i)->Value(), i);
    for (int32_t i : {n / 2, 1, n, n / 3, n - 1, 2 * n / 3}) {
      ASSERT_EQ(list.GetItemAs<CLong>(i)->Value(), i);
    }
  }
}

TEST(CListTest, TypedAccessRefusesOtherClasses) {
  CList list;
  list.AddItem(Num(1));
  EXPECT_EQ(list.GetItemAs<CLong>(1)->Value(), 1);
  EXPECT_THROW(list.GetItemAs<CString>(1), Error);
  EXPECT_THROW(list.GetLastItemAs<CString>(), Error);
}

// Random mixes of every mutating and positional operation, checked against a
// vector; the cursor makes access order matter, so reads alternate between
// sequential runs and random jumps.
TEST(CListTest, MatchesAVectorUnderRandomOperations) {
  std::mt19937 rng(20240611);
  for (int round = 0; round < 20; ++round) {
    CList list;
    std::vector<ObjectRef> model;
    int32_t nextValue = 0;
    auto pick = [&](int32_t n) { return std::uniform_int_distribution<int32_t>(1, n)(rng); };
    for (int step = 0; step < 3000; ++step) {
      int32_t n = static_cast<int32_t>(model.size());
      int op = std::uniform_int_distribution<int>(0, 9)(rng);
      if (n == 0 || op <= 2) {
        auto item = Num(nextValue++);
        list.AddItem(item);
        model.push_back(item);
      } else if (op == 3) {
        int32_t p = pick(n);
        auto item = Num(nextValue++);
        list.InsertItem(p, item);
        model.insert(model.begin() + (p - 1), item);
      } else if (op == 4) {
        int32_t p = pick(n);
        list.RemoveItem(p);
        model.erase(model.begin() + (p - 1));
      } else if (op == 5) {
        list.RemoveLast();
        model.pop_back();
      } else if (op == 6) {
        int32_t p = pick(n), q = pick(n);
        list.SwapItems(p, q);
        std::swap(model[p - 1], model[q - 1]);
      } else if (op == 7) {
        int32_t p = pick(n);
        auto item = Num(nextValue++);
        list.ReplaceItem(p, item);
        model[p - 1] = item;
      } else if (op == 8) {
        int32_t p = pick(n);
        int32_t len = std::min<int32_t>(5, n);
        bool down = rng() & 1;
        for (int32_t k = 0; k < len; ++k) {
          int32_t at = down ? p - k : p + k;
          if (at < 1 || at > n) break;
          ASSERT_EQ(list.GetItem(at), model[at - 1]) << "position " << at;
        }
      } else {
        int32_t p = pick(n);
        ASSERT_EQ(list.GetItem(p), model[p - 1]) << "position " << p;
      }
      ASSERT_EQ(list.GetNumItems(), static_cast<int32_t>(model.size()));
      if (!model.empty()) {
        ASSERT_EQ(list.GetLastItem(), model.back());
      }
    }
    ASSERT_EQ(Items(list), model);
    for (int32_t i = static_cast<int32_t>(model.size()); i >= 1; --i) ASSERT_EQ(list.GetItem(i), model[i - 1]);
    if (!model.empty()) {
      EXPECT_EQ(list.GetPosition(model.back()), static_cast<int32_t>(model.size()));
    }
  }
}

TEST(CListTest, RemoveAllReleasesItemsAndListIsReusable) {
  auto watched = Str("w");
  CList list;
  for (int i = 0; i < 250; ++i) list.AddItem(Str("x"));
  list.AddItem(watched);
  EXPECT_EQ(watched.use_count(), 2);
  list.RemoveAll();
  EXPECT_EQ(watched.use_count(), 1);
  EXPECT_EQ(list.GetNumItems(), 0);
  EXPECT_EQ(TrapText([&] { list.GetLastItem(); }), "Cannot get last item: list is empty");
  list.AddItem(Str("again"));
  EXPECT_EQ(list.ToStr(), "again");
  list.RemoveItem(1);
  list.AddItem(watched);
  list.RemoveLast();
  EXPECT_EQ(watched.use_count(), 1);
}

// A walk that is not one step per call would take minutes here, not milliseconds.
TEST(CListTest, LargeListsStayLinearToFillWalkAndClear) {
  constexpr int32_t n = 300000;
  auto started = std::chrono::steady_clock::now();
  CList list;
  for (int32_t i = 1; i <= n; ++i) list.AddItem(Num(i));
  int64_t sum = 0;
  for (int32_t i = 1; i <= n; ++i) sum += list.GetItemAs<CLong>(i)->Value();
  for (int32_t i = n; i >= 1; --i) sum -= list.GetItemAs<CLong>(i)->Value();
  EXPECT_EQ(sum, 0);
  // Insert and remove beside a moving cursor, then empty from both ends.
  for (int32_t i = 1; i <= n; i += 1000) {
    list.InsertItem(i, Num(0));
    list.RemoveItem(i);
  }
  for (int32_t i = 0; i < n / 2; ++i) list.RemoveItem(1);
  while (list.GetNumItems() > 0) list.RemoveLast();
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  EXPECT_LT(seconds, 20.0);
}

}  // namespace
}  // namespace ombrel
