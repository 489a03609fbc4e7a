#include "ombrel/foundation/chashtable.h"

#include "ombrel/foundation/clist.h"
#include "ombrel/foundation/cstring.h"

namespace ombrel {

namespace {
int32_t LowBit(int32_t i) { return i & -i; }
}  // namespace

void CHashTable::RestrictType(std::string_view className) {
  Trap(count_ != 0, "Cannot restrict type: hashTable is not empty");
  restrictedClass_ = ClassRestriction(className);
}

CHashTable::CHashTable(const CHashTable& other)
    : CObject(other), staticKeysBase_(other.staticKeysBase_), restrictedClass_(other.restrictedClass_) {
  // The copy leaves the holes behind and indexes its own key strings.
  entries_.reserve(static_cast<size_t>(other.count_));
  for (const Entry& e : other.entries_)
    if (e.key.Alive()) entries_.push_back(e);
  count_ = other.count_;
  Reindex();
}

CHashTable& CHashTable::operator=(const CHashTable& other) {
  if (this != &other) *this = CHashTable(other);
  return *this;
}

CHashTable::StaticKeys::StaticKeys(std::span<const std::string> keys) : keys_(keys) {
  for (size_t i = 0; i < keys.size(); ++i)
    for (size_t j = 0; j < i; ++j)
      if (keys[j] == keys[i]) RaiseTrap("HashTable already contains key: " + keys[i]);
}

void CHashTable::Reserve(int32_t count) {
  if (count > 0) entries_.reserve(static_cast<size_t>(count));
}

int32_t CHashTable::Find(const std::string& key) const {
  if (staticKeysBase_ != 0) {
    // Found when that slot's entry refers to this very string.
    uintptr_t offset = reinterpret_cast<uintptr_t>(&key) - staticKeysBase_;
    size_t slot = offset / sizeof(std::string);
    if (offset % sizeof(std::string) == 0 && slot < entries_.size() && entries_[slot].key.Is(key))
      return static_cast<int32_t>(slot);
  }
  if (Indexed()) {
    auto it = index_->slots.find(key);
    return it == index_->slots.end() ? -1 : it->second;
  }
  for (size_t i = 0; i < entries_.size(); ++i)
    if (*entries_[i].key == key) return static_cast<int32_t>(i);
  return -1;
}

// The tree is a Fenwick tree over the slots: tree[i] counts the live entries
// among slots (i - LowBit(i), i], 1-based.
void CHashTable::BuildTree() {
  const int32_t n = static_cast<int32_t>(entries_.size());
  std::vector<int32_t>& tree = index_->tree;
  tree.assign(static_cast<size_t>(n) + 1, 0);
  for (int32_t i = 1; i <= n; ++i) {
    tree[i] += entries_[i - 1].key.Alive() ? 1 : 0;
    int32_t parent = i + LowBit(i);
    if (parent <= n) tree[parent] += tree[i];
  }
}

void CHashTable::TreeAdd(int32_t slot, int32_t delta) {
  const int32_t n = static_cast<int32_t>(entries_.size());
  std::vector<int32_t>& tree = index_->tree;
  for (int32_t i = slot + 1; i <= n; i += LowBit(i)) tree[i] += delta;
}

int32_t CHashTable::SlotOf(int32_t position) const {
  if (holes_ == 0) return position - 1;
  // Descend the tree to the slot holding the position-th live entry.
  const int32_t n = static_cast<int32_t>(entries_.size());
  int32_t step = 1;
  while (step * 2 <= n) step *= 2;
  int32_t at = 0;
  int32_t remaining = position;
  const std::vector<int32_t>& tree = index_->tree;
  for (; step > 0; step /= 2) {
    if (at + step <= n && tree[at + step] < remaining) {
      at += step;
      remaining -= tree[at];
    }
  }
  return at;  // 1-based slot at + 1, so 0-based at
}

void CHashTable::Reindex() {
  if (count_ <= kIndexThreshold) {
    index_.reset();
    return;
  }
  if (!index_) index_ = std::make_unique<Index>();
  index_->slots.clear();
  index_->slots.reserve(entries_.size());
  for (size_t i = 0; i < entries_.size(); ++i)
    if (entries_[i].key.Alive()) index_->slots.emplace(*entries_[i].key, static_cast<int32_t>(i));
}

// Squeezes the holes out, keeping the order; the index follows the moved entries.
void CHashTable::Compact() {
  size_t to = 0;
  for (size_t from = 0; from < entries_.size(); ++from) {
    if (!entries_[from].key.Alive()) continue;
    if (to != from) {
      entries_[to] = std::move(entries_[from]);
      if (Indexed()) index_->slots.find(*entries_[to].key)->second = static_cast<int32_t>(to);
    }
    ++to;
  }
  entries_.resize(to);
  holes_ = 0;
  if (Indexed()) index_->tree.clear();
}

void CHashTable::CheckClass(const ObjectRef& item) const {
  if (restrictedClass_.empty()) return;
  std::string_view cls = item ? item->ClassName() : std::string_view("Nothing");
  if (cls != restrictedClass_.Name())
    RaiseTrap("Cannot add a: " + std::string(cls) + " into a hashTable of: " + restrictedClass_.Name());
}

void CHashTable::CheckNewItem(const std::string& key, const ObjectRef& item) const {
  CheckClass(item);
  if (Find(key) >= 0) RaiseTrap("HashTable already contains key: " + key);
}

void CHashTable::AddItem(const std::string& key, ObjectRef item) {
  CheckNewItem(key, item);
  Add(Key::Own(key), std::move(item));
}

void CHashTable::AddItemWithStaticKey(const std::string& key, ObjectRef item) {
  CheckNewItem(key, item);
  Add(Key::Refer(key), std::move(item));
}

void CHashTable::AddItemsWithStaticKeys(const StaticKeys& keys, std::span<ObjectRef> items) {
  std::span<const std::string> names = keys.Keys();
  if (count_ != 0) RaiseTrap("Cannot add static keys: hashTable is not empty");
  if (items.size() != names.size())
    RaiseTrap("Cannot add static keys: " + std::to_string(items.size()) + " items for " + std::to_string(names.size()) +
              " keys");
  entries_.reserve(names.size());
  staticKeysBase_ = reinterpret_cast<uintptr_t>(names.data());
  // The keys are distinct and the table was empty, so only the class is
  // checked, and a class name at the address of the last one accepted passes.
  std::string_view accepted;
  for (size_t i = 0; i < names.size(); ++i) {
    if (!restrictedClass_.empty()) {
      std::string_view cls = items[i] ? items[i]->ClassName() : std::string_view();
      bool sameAsAccepted = items[i] && cls.data() == accepted.data() && cls.size() == accepted.size();
      if (!sameAsAccepted) {
        CheckClass(items[i]);
        accepted = cls;
      }
    }
    entries_.push_back(Entry{Key::Refer(names[i]), std::move(items[i])});
    ++count_;
  }
  // Filled from empty: no holes to count, and an index only past its size.
  if (count_ > kIndexThreshold) Reindex();
}

void CHashTable::Add(Key key, ObjectRef item) {
  entries_.push_back({std::move(key), std::move(item)});
  ++count_;
  const int32_t slot = static_cast<int32_t>(entries_.size()) - 1;
  if (Indexed()) {
    index_->slots.emplace(*entries_.back().key, slot);
  } else if (count_ > kIndexThreshold) {
    Reindex();
  }
  if (holes_ > 0) {
    // Fenwick append: the new node covers itself and the nodes it absorbs below it.
    std::vector<int32_t>& tree = index_->tree;
    const int32_t i = slot + 1;
    int32_t covered = 1;
    for (int32_t j = 1; j < LowBit(i); j *= 2) covered += tree[i - j];
    tree.push_back(covered);
  }
}

void CHashTable::SetItem(const std::string& key, ObjectRef item) {
  int32_t at = Find(key);
  if (at < 0) RaiseTrap("HashTable does not contain key: " + key);
  if (entries_[at].item == item) RaiseTrap("SetItem attempted to set item to itself. Key: " + key);
  entries_[at].item = std::move(item);
}

void CHashTable::RemoveItem(const std::string& key) {
  // key may be the entry's own string: it is not used once the entry goes.
  int32_t at = Find(key);
  if (at < 0) RaiseTrap("HashTable cannot remove item. Key not found: " + key);
  --count_;
  if (!Indexed()) {
    entries_.erase(entries_.begin() + at);
    return;
  }
  index_->slots.erase(key);
  if (at + 1 == static_cast<int32_t>(entries_.size()) && holes_ == 0) {
    entries_.pop_back();
  } else {
    if (holes_ == 0) BuildTree();
    Entry& e = entries_[at];
    e.item.reset();
    e.key = Key();
    TreeAdd(at, -1);
    ++holes_;
  }
  if (count_ <= kIndexThreshold) {
    Compact();
    index_.reset();
  } else if (holes_ > count_) {
    Compact();
  }
}

void CHashTable::RemoveAll() {
  index_.reset();
  entries_.clear();
  count_ = holes_ = 0;
}

ObjectRef CHashTable::GetItem(const std::string& key) const {
  int32_t at = Find(key);
  if (at < 0) RaiseTrap("HashTable does not contain key: " + key);
  return entries_[at].item;
}

ObjectRef CHashTable::GetIndexedItem(int32_t position) const {
  if (position < 1 || position > count_) RaiseTrap("HashTable index out of range: " + std::to_string(position));
  return entries_[SlotOf(position)].item;
}

const std::string& CHashTable::KeyAt(int32_t position) const {
  if (position < 1 || position > count_) RaiseTrap("HashTable index out of range: " + std::to_string(position));
  return *entries_[SlotOf(position)].key;
}

const ObjectRef* CHashTable::FindItem(const std::string& key) const {
  int32_t at = Find(key);
  return at < 0 ? nullptr : &entries_[at].item;
}

const ObjectRef& CHashTable::ItemAt(int32_t position) const {
  if (position < 1 || position > count_) RaiseTrap("HashTable index out of range: " + std::to_string(position));
  return entries_[SlotOf(position)].item;
}

std::shared_ptr<CList> CHashTable::GetKeys() const {
  // The item index and the ordered entries are the two collections here.
  Trap(Indexed() && static_cast<int32_t>(index_->slots.size()) != count_, "Internal error in HashTable");
  auto keys = std::make_shared<CList>();
  for (const Entry& e : entries_)
    if (e.key.Alive()) keys->AddItem(std::make_shared<CString>(*e.key));
  return keys;
}

}  // namespace ombrel
