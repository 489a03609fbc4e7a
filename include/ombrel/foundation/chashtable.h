// CHashTable: objects by text key, keys kept in insertion order, optionally
// restricted to one class. Positions (GetIndexedItem) are 1-based over
// insertion order. Every misuse raises through Trap with a fixed text.
//
// Small tables (a card's field table has about thirty entries) are searched
// linearly; an index is built once a table grows past that, so both the many
// small tables and the few large ones stay cheap. In an indexed table a
// removal leaves a hole instead of shifting every later entry; a counting tree
// over the live entries finds a position among the holes, and the holes are
// squeezed out once they outnumber the live entries.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "ombrel/foundation/error.h"
#include "ombrel/foundation/object.h"

namespace ombrel {

class CList;

class CHashTable final : public CObject {
 public:
  std::string_view ClassName() const override { return "CHashTable"; }

  void RestrictType(std::string_view className);
  void AddItem(const std::string& key, ObjectRef item);
  void SetItem(const std::string& key, ObjectRef item);
  void RemoveItem(const std::string& key);
  void RemoveAll();
  ObjectRef GetItem(const std::string& key) const;
  ObjectRef GetIndexedItem(int32_t position) const;
  // A list of CString holding the keys in insertion order.
  std::shared_ptr<CList> GetKeys() const;
  int32_t GetNumItems() const { return count_; }
  bool Contains(const std::string& key) const { return Find(key) >= 0; }

  // Direct access for hot loops, without building a key list.
  const std::string& GetIndexedKey(int32_t position) const;

  template <class T>
  std::shared_ptr<T> GetItemAs(const std::string& key) const {
    return std::static_pointer_cast<T>(CheckedCast<T>(GetItem(key)));
  }
  template <class T>
  std::shared_ptr<T> GetIndexedItemAs(int32_t position) const {
    return std::static_pointer_cast<T>(CheckedCast<T>(GetIndexedItem(position)));
  }

 private:
  struct Entry {
    std::string key;
    ObjectRef item;
    bool alive = true;
  };
  static constexpr int32_t kIndexThreshold = 48;

  template <class T>
  static ObjectRef CheckedCast(ObjectRef item) {
    if (item && !dynamic_cast<T*>(item.get()))
      RaiseTrap("HashTable item is not of the requested class: " + std::string(item->ClassName()));
    return item;
  }
  int32_t Find(const std::string& key) const;  // 0-based slot, -1 when absent
  int32_t SlotOf(int32_t position) const;      // 0-based slot of a valid 1-based position
  bool Indexed() const { return !index_.empty(); }
  void Compact();
  void Reindex();
  void BuildTree();
  void TreeAdd(int32_t slot, int32_t delta);

  std::vector<Entry> entries_;  // insertion order; holes (dead entries) only while indexed
  int32_t count_ = 0;           // live entries
  int32_t holes_ = 0;           // dead entries
  std::unordered_map<std::string, int32_t> index_;  // key -> slot, only past kIndexThreshold
  std::vector<int32_t> tree_;   // counting tree over live slots, only while there are holes
  std::string restrictedClass_;
};

}  // namespace ombrel
