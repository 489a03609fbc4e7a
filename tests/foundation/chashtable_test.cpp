#include "ombrel/foundation/chashtable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "ombrel/foundation/clist.h"
#include "ombrel/foundation/cstring.h"
#include "support/error_text.h"

namespace ombrel {
namespace {

class FakeCard final : public CObject {
 public:
  std::string_view ClassName() const override { return "CCard"; }
};

std::shared_ptr<CString> Str(const std::string& s) { return std::make_shared<CString>(s); }

std::vector<std::string> Keys(const CHashTable& table) {
  auto list = table.GetKeys();
  std::vector<std::string> out;
  for (int32_t i = 1; i <= list->GetNumItems(); ++i) out.push_back(list->GetItemAs<CString>(i)->Value());
  return out;
}

TEST(CHashTableTest, ErrorsNameTheKeyOrPositionAndChangeNothing) {
  CHashTable table;
  auto item = Str("v");
  table.AddItem("Last Name", item);
  EXPECT_EQ(TrapText([&] { table.AddItem("Last Name", Str("w")); }), "HashTable already contains key: Last Name");
  EXPECT_EQ(TrapText([&] { table.SetItem("First Name", Str("w")); }), "HashTable does not contain key: First Name");
  EXPECT_EQ(TrapText([&] { table.SetItem("Last Name", item); }),
            "SetItem attempted to set item to itself. Key: Last Name");
  EXPECT_EQ(TrapText([&] { table.SetIndexedItem(1, item); }),
            "SetItem attempted to set item to itself. Key: Last Name");
  EXPECT_EQ(TrapText([&] { table.SetIndexedItem(2, Str("w")); }), "HashTable index out of range: 2");
  EXPECT_EQ(TrapText([&] { table.RemoveItem("Company"); }), "HashTable cannot remove item. Key not found: Company");
  EXPECT_EQ(TrapText([&] { table.GetItem("last name"); }), "HashTable does not contain key: last name");
  for (int32_t bad : {0, 2, -3}) {
    EXPECT_EQ(TrapText([&] { table.GetIndexedItem(bad); }), "HashTable index out of range: " + std::to_string(bad));
  }
  EXPECT_FALSE(table.Contains("last name"));  // never raises
  EXPECT_EQ(table.GetNumItems(), 1);
  EXPECT_EQ(table.GetItem("Last Name"), item);
}

TEST(CHashTableTest, RestrictTypeChecksTheClassBeforeTheKey) {
  CHashTable table;
  table.RestrictType("CCard");
  table.AddItem("a", std::make_shared<FakeCard>());
  EXPECT_EQ(TrapText([&] { table.AddItem("a", Str("x")); }), "Cannot add a: CString into a hashTable of: CCard");
  EXPECT_EQ(TrapText([&] { table.RestrictType("CString"); }), "Cannot restrict type: hashTable is not empty");
  table.RemoveAll();
  table.RestrictType("CString");
  EXPECT_NO_THROW(table.AddItem("b", Str("x")));
}

// Large tables index their keys and leave holes on removal; started empty or
// from a static key list (short, or past the index size), random adds,
// removals and replacements by position across that size keep every lookup (by copies of the keys and by
// the list's own strings, which try their list position first) equal to an
// ordered list, and so do the table's copies.
TEST(CHashTableTest, MatchesAnOrderedModelAcrossSizes) {
  static const std::vector<std::string> kNames = [] {
    std::vector<std::string> names;
    for (int i = 0; i < 60; ++i) names.push_back("k" + std::to_string(i * 5));
    return names;
  }();
  for (size_t fromList : {size_t{0}, size_t{30}, size_t{60}}) {
    std::mt19937 rng(7);
    CHashTable table;
    std::vector<std::pair<std::string, ObjectRef>> model;
    if (fromList > 0) {
      static const CHashTable::StaticKeys kShort(std::span<const std::string>(kNames.data(), 30));
      static const CHashTable::StaticKeys kLong(kNames);
      std::vector<ObjectRef> items;
      for (size_t i = 0; i < fromList; ++i) {
        items.push_back(Str(kNames[i]));
        model.emplace_back(kNames[i], items.back());
      }
      table.AddItemsWithStaticKeys(fromList == 30 ? kShort : kLong, items);
    }
    for (int step = 0; step < 4000; ++step) {
      bool grow = model.size() < 30 || (rng() % 100) < (step < 2000 ? 65u : 35u);
      if (grow) {
        std::string key = "k";
        key += std::to_string(rng() % 400);
        bool present = std::any_of(model.begin(), model.end(), [&](auto& e) { return e.first == key; });
        ASSERT_EQ(table.Contains(key), present);
        if (present) continue;
        auto item = Str(key);
        table.AddItem(key, item);
        model.emplace_back(key, item);
      } else {
        size_t at = rng() % model.size();
        table.RemoveItem(model[at].first);
        model.erase(model.begin() + static_cast<long>(at));
      }
      ASSERT_EQ(table.GetNumItems(), static_cast<int32_t>(model.size()));
      size_t at = rng() % model.size();
      if (step % 5 == 0) {  // replaced by position, holes or not
        model[at].second = Str(model[at].first + "'");
        table.SetIndexedItem(static_cast<int32_t>(at + 1), model[at].second);
      }
      ASSERT_EQ(table.GetIndexedItem(static_cast<int32_t>(at + 1)), model[at].second);
      ASSERT_EQ(table.GetIndexedKey(static_cast<int32_t>(at + 1)), model[at].first);
      ASSERT_EQ(table.GetItem(model[at].first), model[at].second);
      const std::string& listed = kNames[rng() % kNames.size()];  // by the list's own string
      auto inModel = std::find_if(model.begin(), model.end(), [&](auto& e) { return e.first == listed; });
      ASSERT_EQ(table.FindItem(listed) ? *table.FindItem(listed) : nullptr,
                inModel == model.end() ? nullptr : inModel->second);
      if (step % 97 == 0) {
        std::vector<std::string> keys;
        for (auto& e : model) keys.push_back(e.first);
        ASSERT_EQ(Keys(table), keys) << fromList << " " << step;
        ASSERT_EQ(Keys(CHashTable(table)), keys) << fromList << " " << step;
      }
    }
  }
}

// Static keys are referred to, not copied, and checked as copied keys are; a
// static key list fills an empty table in order, checking only the class.
TEST(CHashTableTest, StaticKeysAreReferredToAndCheckedAsCopiedKeys) {
  static const std::vector<std::string> kNames = {"Name", "Title", "Company"};
  static const CHashTable::StaticKeys kKeys(kNames);
  std::vector<ObjectRef> items = {Str("n"), Str("t"), Str("c")};
  const std::vector<ObjectRef> expected = items;
  CHashTable table;
  table.RestrictType("CString");
  table.AddItemsWithStaticKeys(kKeys, items);
  static const std::string kOther = "Other";
  table.AddItemWithStaticKey(kOther, Str("o"));
  for (int32_t i = 1; i <= 3; ++i) {
    EXPECT_EQ(&table.GetIndexedKey(i), &kNames[i - 1]);
    EXPECT_EQ(table.IndexedItemRef(i), expected[i - 1]);
  }
  EXPECT_EQ(&table.GetIndexedKey(4), &kOther);
  EXPECT_EQ(TrapText([&] { table.AddItemWithStaticKey(kNames[1], Str("x")); }),
            "HashTable already contains key: Title");
  EXPECT_EQ(TrapText([&] { table.AddItemWithStaticKey(kOther, std::make_shared<FakeCard>()); }),
            "Cannot add a: CCard into a hashTable of: CString");
  EXPECT_EQ(TrapText([&] { table.AddItemsWithStaticKeys(kKeys, items); }),
            "Cannot add static keys: hashTable is not empty");

  std::vector<ObjectRef> two = {Str("a"), Str("b")};
  std::vector<ObjectRef> mixed = {Str("a"), std::make_shared<FakeCard>(), Str("c")};
  std::vector<ObjectRef> withNull = {Str("a"), Str("b"), nullptr};
  CHashTable other;
  other.RestrictType("CString");
  EXPECT_EQ(TrapText([&] { other.AddItemsWithStaticKeys(kKeys, two); }), "Cannot add static keys: 2 items for 3 keys");
  EXPECT_EQ(TrapText([&] { other.AddItemsWithStaticKeys(kKeys, mixed); }),
            "Cannot add a: CCard into a hashTable of: CString");
  EXPECT_EQ(Keys(other), std::vector<std::string>{"Name"});  // added one by one, as AddItem would
  other.RemoveAll();
  EXPECT_EQ(TrapText([&] { other.AddItemsWithStaticKeys(kKeys, withNull); }),
            "Cannot add a: Nothing into a hashTable of: CString");
  static const std::vector<std::string> kRepeated = {"Name", "Title", "Name"};
  EXPECT_EQ(TrapText([&] { CHashTable::StaticKeys keys(kRepeated); }), "HashTable already contains key: Name");
}

// A copy owns its keys: changing either table leaves the other alone, at
// the small size and at the indexed one with holes. Emptying the copy by
// each entry's own key string checks (in the sanitizer build) that the key
// is not read once its entry is gone.
TEST(CHashTableTest, CopiesAreIndependent) {
  static const std::string kStatic = "static";
  for (int32_t size : {3, 200}) {
    CHashTable table;
    table.AddItemWithStaticKey(kStatic, Str("s"));
    for (int32_t i = 0; i < size; ++i) table.AddItem("k" + std::to_string(i), Str(std::to_string(i)));
    for (int32_t i = 0; i < size; i += 3) table.RemoveItem("k" + std::to_string(i));
    std::vector<std::string> keys = Keys(table);
    CHashTable copy;
    copy.AddItem("old", Str("old"));
    copy = table;
    ASSERT_EQ(Keys(copy), keys) << size;
    for (int32_t i = 1; i <= copy.GetNumItems(); ++i) EXPECT_EQ(copy.GetItem(keys[i - 1]), table.GetIndexedItem(i));
    copy.RemoveItem("k1");
    copy.AddItem("new", Str("new"));
    EXPECT_EQ(copy.GetIndexedKey(copy.GetNumItems()), "new");
    while (copy.GetNumItems() > 0) copy.RemoveItem(copy.GetIndexedKey(copy.GetNumItems() / 2 + 1));
    EXPECT_EQ(Keys(table), keys) << size;
  }
}

}  // namespace
}  // namespace ombrel
