#include "ombrel/foundation/chashtable.h"

#include "ombrel/foundation/clist.h"
#include "ombrel/foundation/cstring.h"

namespace ombrel {

namespace {
int32_t LowBit(int32_t i) { return i & -i; }
}  // namespace

void CHashTable::RestrictType(std::string_view className) {
  Trap(count_ != 0, "Cannot restrict type: hashTable is not empty");
  restrictedClass_ = std::string(className);
}

int32_t CHashTable::Find(const std::string& key) const {
  if (Indexed()) {
    auto it = index_.find(key);
    return it == index_.end() ? -1 : it->second;
  }
  for (size_t i = 0; i < entries_.size(); ++i)
    if (entries_[i].key == key) return static_cast<int32_t>(i);
  return -1;
}

// The tree is a Fenwick tree over the slots: tree_[i] counts the live entries
// among slots (i - LowBit(i), i], 1-based.
void CHashTable::BuildTree() {
  const int32_t n = static_cast<int32_t>(entries_.size());
  tree_.assign(static_cast<size_t>(n) + 1, 0);
  for (int32_t i = 1; i <= n; ++i) {
    tree_[i] += entries_[i - 1].alive ? 1 : 0;
    int32_t parent = i + LowBit(i);
    if (parent <= n) tree_[parent] += tree_[i];
  }
}

void CHashTable::TreeAdd(int32_t slot, int32_t delta) {
  const int32_t n = static_cast<int32_t>(entries_.size());
  for (int32_t i = slot + 1; i <= n; i += LowBit(i)) tree_[i] += delta;
}

int32_t CHashTable::SlotOf(int32_t position) const {
  if (holes_ == 0) return position - 1;
  // Descend the tree to the slot holding the position-th live entry.
  const int32_t n = static_cast<int32_t>(entries_.size());
  int32_t step = 1;
  while (step * 2 <= n) step *= 2;
  int32_t at = 0;
  int32_t remaining = position;
  for (; step > 0; step /= 2) {
    if (at + step <= n && tree_[at + step] < remaining) {
      at += step;
      remaining -= tree_[at];
    }
  }
  return at;  // 1-based slot at + 1, so 0-based at
}

void CHashTable::Reindex() {
  index_.clear();
  if (count_ <= kIndexThreshold) return;
  index_.reserve(entries_.size());
  for (size_t i = 0; i < entries_.size(); ++i)
    if (entries_[i].alive) index_.emplace(entries_[i].key, static_cast<int32_t>(i));
}

// Squeezes the holes out, keeping the order; the index follows the moved entries.
void CHashTable::Compact() {
  size_t to = 0;
  for (size_t from = 0; from < entries_.size(); ++from) {
    if (!entries_[from].alive) continue;
    if (to != from) {
      entries_[to] = std::move(entries_[from]);
      if (Indexed()) index_[entries_[to].key] = static_cast<int32_t>(to);
    }
    ++to;
  }
  entries_.resize(to);
  holes_ = 0;
  tree_.clear();
}

void CHashTable::AddItem(const std::string& key, ObjectRef item) {
  if (!restrictedClass_.empty()) {
    std::string_view cls = item ? item->ClassName() : std::string_view("Nothing");
    if (cls != restrictedClass_)
      RaiseTrap("Cannot add a: " + std::string(cls) + " into a hashTable of: " + restrictedClass_);
  }
  if (Find(key) >= 0) RaiseTrap("HashTable already contains key: " + key);
  entries_.push_back({key, std::move(item), true});
  ++count_;
  const int32_t slot = static_cast<int32_t>(entries_.size()) - 1;
  if (Indexed()) {
    index_.emplace(key, slot);
  } else if (count_ > kIndexThreshold) {
    Reindex();
  }
  if (holes_ > 0) {
    // Fenwick append: the new node covers itself and the nodes it absorbs below it.
    const int32_t i = slot + 1;
    int32_t covered = 1;
    for (int32_t j = 1; j < LowBit(i); j *= 2) covered += tree_[i - j];
    tree_.push_back(covered);
  }
}

void CHashTable::SetItem(const std::string& key, ObjectRef item) {
  int32_t at = Find(key);
  if (at < 0) RaiseTrap("HashTable does not contain key: " + key);
  if (entries_[at].item == item) RaiseTrap("SetItem attempted to set item to itself. Key: " + key);
  entries_[at].item = std::move(item);
}

void CHashTable::RemoveItem(const std::string& key) {
  int32_t at = Find(key);
  if (at < 0) RaiseTrap("HashTable cannot remove item. Key not found: " + key);
  --count_;
  if (!Indexed()) {
    entries_.erase(entries_.begin() + at);
    return;
  }
  index_.erase(key);
  if (at + 1 == static_cast<int32_t>(entries_.size()) && holes_ == 0) {
    entries_.pop_back();
  } else {
    if (holes_ == 0) BuildTree();
    Entry& e = entries_[at];
    e.alive = false;
    e.item.reset();
    e.key = std::string();
    TreeAdd(at, -1);
    ++holes_;
  }
  if (count_ <= kIndexThreshold) {
    Compact();
    index_.clear();
  } else if (holes_ > count_) {
    Compact();
  }
}

void CHashTable::RemoveAll() {
  entries_.clear();
  index_.clear();
  tree_.clear();
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

const std::string& CHashTable::GetIndexedKey(int32_t position) const {
  if (position < 1 || position > count_) RaiseTrap("HashTable index out of range: " + std::to_string(position));
  return entries_[SlotOf(position)].key;
}

std::shared_ptr<CList> CHashTable::GetKeys() const {
  // The item index and the ordered entries are the two collections here.
  Trap(Indexed() && static_cast<int32_t>(index_.size()) != count_, "Internal error in HashTable");
  auto keys = std::make_shared<CList>();
  for (const Entry& e : entries_)
    if (e.alive) keys->AddItem(std::make_shared<CString>(e.key));
  return keys;
}

}  // namespace ombrel
