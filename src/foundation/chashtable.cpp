#include "ombrel/foundation/chashtable.h"

#include "ombrel/foundation/clist.h"
#include "ombrel/foundation/cstring.h"

namespace ombrel {

void CHashTable::RestrictType(std::string_view className) {
  Trap(!entries_.empty(), "Cannot restrict type: hashTable is not empty");
  restrictedClass_ = std::string(className);
}

int32_t CHashTable::Find(const std::string& key) const {
  if (entries_.size() > kIndexThreshold) {
    auto it = index_.find(key);
    return it == index_.end() ? -1 : it->second;
  }
  for (size_t i = 0; i < entries_.size(); ++i)
    if (entries_[i].key == key) return static_cast<int32_t>(i);
  return -1;
}

void CHashTable::Reindex() {
  index_.clear();
  if (entries_.size() <= kIndexThreshold) return;
  index_.reserve(entries_.size());
  for (size_t i = 0; i < entries_.size(); ++i) index_.emplace(entries_[i].key, static_cast<int32_t>(i));
}

void CHashTable::AddItem(const std::string& key, ObjectRef item) {
  if (!restrictedClass_.empty()) {
    std::string_view cls = item ? item->ClassName() : std::string_view("Nothing");
    if (cls != restrictedClass_)
      RaiseTrap("Cannot add a: " + std::string(cls) + " into a hashTable of: " + restrictedClass_);
  }
  if (Find(key) >= 0) RaiseTrap("HashTable already contains key: " + key);
  entries_.push_back({key, std::move(item)});
  if (entries_.size() == kIndexThreshold + 1) Reindex();
  else if (entries_.size() > kIndexThreshold + 1) index_.emplace(key, static_cast<int32_t>(entries_.size() - 1));
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
  entries_.erase(entries_.begin() + at);
  Reindex();
}

void CHashTable::RemoveAll() {
  entries_.clear();
  index_.clear();
}

ObjectRef CHashTable::GetItem(const std::string& key) const {
  int32_t at = Find(key);
  if (at < 0) RaiseTrap("HashTable does not contain key: " + key);
  return entries_[at].item;
}

ObjectRef CHashTable::GetIndexedItem(int32_t position) const {
  if (position < 1 || position > GetNumItems()) RaiseTrap("HashTable index out of range: " + std::to_string(position));
  return entries_[position - 1].item;
}

const std::string& CHashTable::GetIndexedKey(int32_t position) const {
  if (position < 1 || position > GetNumItems()) RaiseTrap("HashTable index out of range: " + std::to_string(position));
  return entries_[position - 1].key;
}

std::shared_ptr<CList> CHashTable::GetKeys() const {
  // Items and keys live in one array here, so the two counts cannot disagree;
  // the check is kept for the index, which is the second collection.
  Trap(entries_.size() > kIndexThreshold && index_.size() != entries_.size(), "Internal error in HashTable");
  auto keys = std::make_shared<CList>();
  for (const Entry& e : entries_) keys->AddItem(std::make_shared<CString>(e.key));
  return keys;
}

}  // namespace ombrel
