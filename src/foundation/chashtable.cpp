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
    : CObject(other),
      items_(other.items_),
      keys_(other.keys_),
      count_(other.count_),
      holes_(other.holes_),
      staticKeys_(other.staticKeys_),
      staticCount_(other.staticCount_),
      restrictedClass_(other.restrictedClass_) {
  // The copy leaves the holes behind and indexes its own key strings.
  Compact();
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
  if (count > 0) items_.reserve(static_cast<size_t>(count));
}

void CHashTable::OwnStaticKeys() {
  if (staticCount_ == 0) return;
  std::vector<Key> keys;
  keys.reserve(items_.capacity());
  for (int32_t i = 0; i < staticCount_; ++i) keys.push_back(Key::Refer(staticKeys_[i]));
  for (Key& key : keys_) keys.push_back(std::move(key));
  keys_ = std::move(keys);
  staticCount_ = 0;
}

int32_t CHashTable::Find(const std::string& key) const {
  if (staticKeys_ != nullptr) {
    // Found when that slot's key is this very string.
    uintptr_t offset = reinterpret_cast<uintptr_t>(&key) - reinterpret_cast<uintptr_t>(staticKeys_);
    size_t slot = offset / sizeof(std::string);
    if (offset % sizeof(std::string) == 0 && slot < items_.size() && KeyIs(slot, key))
      return static_cast<int32_t>(slot);
  }
  if (Indexed()) {
    auto it = index_->slotOf.find(key);
    return it == index_->slotOf.end() ? -1 : it->second;
  }
  for (size_t i = 0; i < items_.size(); ++i)
    if (KeyOf(i) == key) return static_cast<int32_t>(i);
  return -1;
}

// The tree is a Fenwick tree over the slots: tree[i] counts the live entries
// among slots (i - LowBit(i), i], 1-based.
void CHashTable::BuildTree() {
  const int32_t n = static_cast<int32_t>(items_.size());
  std::vector<int32_t>& tree = index_->tree;
  tree.assign(static_cast<size_t>(n) + 1, 0);
  for (int32_t i = 1; i <= n; ++i) {
    tree[i] += AliveAt(static_cast<size_t>(i - 1)) ? 1 : 0;
    int32_t parent = i + LowBit(i);
    if (parent <= n) tree[parent] += tree[i];
  }
}

void CHashTable::TreeAdd(int32_t slot, int32_t delta) {
  const int32_t n = static_cast<int32_t>(items_.size());
  std::vector<int32_t>& tree = index_->tree;
  for (int32_t i = slot + 1; i <= n; i += LowBit(i)) tree[i] += delta;
}

int32_t CHashTable::SlotOf(int32_t position) const {
  if (holes_ == 0) return position - 1;
  // Descend the tree to the slot holding the position-th live entry.
  const int32_t n = static_cast<int32_t>(items_.size());
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
  index_->slotOf.clear();
  index_->slotOf.reserve(items_.size());
  for (size_t i = 0; i < items_.size(); ++i)
    if (AliveAt(i)) index_->slotOf.emplace(KeyOf(i), static_cast<int32_t>(i));
}

// Squeezes the holes out, keeping the order; the index follows the moved
// entries. Holes are never among the static keys (see RemoveItem), so every
// moved entry has a key of its own.
void CHashTable::Compact() {
  if (holes_ == 0) return;
  const size_t first = static_cast<size_t>(staticCount_);
  size_t to = first;
  for (size_t from = first; from < items_.size(); ++from) {
    if (!AliveAt(from)) continue;
    if (to != from) {
      items_[to] = std::move(items_[from]);
      keys_[to - first] = std::move(keys_[from - first]);
      if (Indexed()) index_->slotOf.find(KeyOf(to))->second = static_cast<int32_t>(to);
    }
    ++to;
  }
  items_.resize(to);
  keys_.resize(to - first);
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
  items_.reserve(names.size());
  // The keys stay where they are: slot i's key is names[i].
  staticKeys_ = names.data();
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
    items_.push_back(std::move(items[i]));
    ++staticCount_;
    ++count_;
  }
  // Filled from empty: no holes to count, and an index only past its size.
  if (count_ > kIndexThreshold) Reindex();
}

void CHashTable::Add(Key key, ObjectRef item) {
  items_.push_back(std::move(item));
  // The keys' room follows the items' (a reserved table grows neither).
  if (keys_.size() == keys_.capacity()) keys_.reserve(items_.capacity() - static_cast<size_t>(staticCount_));
  keys_.push_back(std::move(key));
  ++count_;
  const int32_t slot = static_cast<int32_t>(items_.size()) - 1;
  if (Indexed()) {
    index_->slotOf.emplace(*keys_.back(), slot);
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
  if (items_[at] == item) RaiseTrap("SetItem attempted to set item to itself. Key: " + key);
  items_[at] = std::move(item);
}

void CHashTable::SetIndexedItem(int32_t position, ObjectRef item) {
  if (position < 1 || position > count_) RaiseTrap("HashTable index out of range: " + std::to_string(position));
  const int32_t at = SlotOf(position);
  if (items_[at] == item) RaiseTrap("SetItem attempted to set item to itself. Key: " + KeyOf(static_cast<size_t>(at)));
  items_[at] = std::move(item);
}

void CHashTable::RemoveItem(const std::string& key) {
  // key may be the entry's own string: it is not used once the entry goes.
  int32_t at = Find(key);
  if (at < 0) RaiseTrap("HashTable cannot remove item. Key not found: " + key);
  if (at < staticCount_) OwnStaticKeys();
  --count_;
  const size_t keyAt = static_cast<size_t>(at - staticCount_);
  if (!Indexed()) {
    items_.erase(items_.begin() + at);
    keys_.erase(keys_.begin() + static_cast<std::ptrdiff_t>(keyAt));
    return;
  }
  index_->slotOf.erase(key);
  if (at + 1 == static_cast<int32_t>(items_.size()) && holes_ == 0) {
    items_.pop_back();
    keys_.pop_back();
  } else {
    if (holes_ == 0) BuildTree();
    items_[at].reset();
    keys_[keyAt] = Key();
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
  items_.clear();
  keys_.clear();
  count_ = holes_ = staticCount_ = 0;
  staticKeys_ = nullptr;
}

ObjectRef CHashTable::GetItem(const std::string& key) const {
  int32_t at = Find(key);
  if (at < 0) RaiseTrap("HashTable does not contain key: " + key);
  return items_[at];
}

ObjectRef CHashTable::GetIndexedItem(int32_t position) const {
  if (position < 1 || position > count_) RaiseTrap("HashTable index out of range: " + std::to_string(position));
  return items_[SlotOf(position)];
}

const std::string& CHashTable::KeyAt(int32_t position) const {
  if (position < 1 || position > count_) RaiseTrap("HashTable index out of range: " + std::to_string(position));
  return KeyOf(SlotOf(position));
}

const ObjectRef* CHashTable::FindItem(const std::string& key) const {
  int32_t at = Find(key);
  return at < 0 ? nullptr : &items_[at];
}

const ObjectRef& CHashTable::ItemAt(int32_t position) const {
  if (position < 1 || position > count_) RaiseTrap("HashTable index out of range: " + std::to_string(position));
  return items_[SlotOf(position)];
}

std::shared_ptr<CList> CHashTable::GetKeys() const {
  // The item index and the ordered entries are the two collections here.
  Trap(Indexed() && static_cast<int32_t>(index_->slotOf.size()) != count_, "Internal error in HashTable");
  auto keys = std::make_shared<CList>();
  for (size_t i = 0; i < items_.size(); ++i)
    if (AliveAt(i)) keys->AddItem(std::make_shared<CString>(KeyOf(i)));
  return keys;
}

}  // namespace ombrel
