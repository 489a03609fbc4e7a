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
//
// Entries are kept small, as every card in memory holds a table of some
// thirty: a key is a string of the entry's own on the heap, or, when added
// with a static key, a static string the entry only refers to. A table filled
// from a static key list keeps no key at all for those entries (the list says
// which key each slot has) and finds a key given as one of that list's very
// strings without searching.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "ombrel/foundation/error.h"
#include "ombrel/foundation/object.h"

namespace ombrel {

class CList;

class CHashTable final : public CObject {
 public:
  // Distinct strings of static storage duration, checked for repeats once,
  // when made, so that a table can take them all as keys without checking
  // them again (the names of a catalogue). Raises "HashTable already
  // contains key: k" on a repeat.
  class StaticKeys {
   public:
    explicit StaticKeys(std::span<const std::string> keys);
    std::span<const std::string> Keys() const { return keys_; }

   private:
    std::span<const std::string> keys_;
  };

  CHashTable() = default;
  CHashTable(const CHashTable& other);
  CHashTable(CHashTable&& other) noexcept = default;
  CHashTable& operator=(const CHashTable& other);
  CHashTable& operator=(CHashTable&& other) noexcept = default;
  ~CHashTable() override = default;

  std::string_view ClassName() const override { return "CHashTable"; }

  void RestrictType(std::string_view className);
  // Room for count entries in all, so adding up to that many never reallocates.
  void Reserve(int32_t count);
  void AddItem(const std::string& key, ObjectRef item);
  // AddItem without copying the key: the table refers to it, so it must be a
  // string of static storage duration that never changes (a catalogue name).
  void AddItemWithStaticKey(const std::string& key, ObjectRef item);
  // Fills an empty table: items[i] under keys' i-th string, in order, each
  // checked against the class restriction as AddItem checks it.
  void AddItemsWithStaticKeys(const StaticKeys& keys, std::span<ObjectRef> items);
  void SetItem(const std::string& key, ObjectRef item);
  // SetItem for the entry at a position (1-based, insertion order), without
  // looking its key up.
  void SetIndexedItem(int32_t position, ObjectRef item);
  void RemoveItem(const std::string& key);
  void RemoveAll();
  ObjectRef GetItem(const std::string& key) const;
  ObjectRef GetIndexedItem(int32_t position) const;
  // A list of CString holding the keys in insertion order.
  std::shared_ptr<CList> GetKeys() const;
  int32_t GetNumItems() const { return count_; }
  bool Contains(const std::string& key) const { return Find(key) >= 0; }
  // The item under key without copying the reference; null when absent.
  const ObjectRef* FindItem(const std::string& key) const;

  // Direct access for hot loops, without building a key list or copying a reference.
  const std::string& GetIndexedKey(int32_t position) const {
    return holes_ == 0 && position >= 1 && position <= count_ ? KeyOf(static_cast<size_t>(position - 1))
                                                              : KeyAt(position);
  }
  const ObjectRef& IndexedItemRef(int32_t position) const {
    return holes_ == 0 && position >= 1 && position <= count_ ? items_[static_cast<size_t>(position - 1)]
                                                              : ItemAt(position);
  }

  template <class T>
  std::shared_ptr<T> GetItemAs(const std::string& key) const {
    return std::static_pointer_cast<T>(CheckedCast<T>(GetItem(key)));
  }
  template <class T>
  std::shared_ptr<T> GetIndexedItemAs(int32_t position) const {
    return std::static_pointer_cast<T>(CheckedCast<T>(GetIndexedItem(position)));
  }

 private:
  // An entry's key: a string it owns, or a static one it refers to (the low
  // bit of the pointer tells which). Empty marks a removed entry.
  class Key {
   public:
    Key() = default;
    static Key Own(const std::string& key) { return Key(reinterpret_cast<uintptr_t>(new std::string(key))); }
    static Key Refer(const std::string& key) { return Key(reinterpret_cast<uintptr_t>(&key) | kStatic); }
    Key(const Key& other) : bits_(other.Owned() ? Own(*other).Release() : other.bits_) {}
    Key(Key&& other) noexcept : bits_(std::exchange(other.bits_, 0)) {}
    Key& operator=(Key other) noexcept {
      std::swap(bits_, other.bits_);
      return *this;
    }
    ~Key() {
      if (Owned()) delete Get();
    }
    bool Alive() const { return bits_ != 0; }
    bool Is(const std::string& key) const { return Get() == &key; }
    const std::string& operator*() const { return *Get(); }

   private:
    static constexpr uintptr_t kStatic = 1;
    explicit Key(uintptr_t bits) : bits_(bits) {}
    bool Owned() const { return bits_ != 0 && (bits_ & kStatic) == 0; }
    const std::string* Get() const { return reinterpret_cast<const std::string*>(bits_ & ~kStatic); }
    uintptr_t Release() { return std::exchange(bits_, 0); }
    uintptr_t bits_ = 0;
  };
  // What only a large table needs. The index's views point at the entries'
  // key strings, which never move.
  struct Index {
    std::unordered_map<std::string_view, int32_t> slotOf;  // key -> slot
    std::vector<int32_t> tree;                             // counting tree over live slots, only while there are holes
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
  // GetIndexedKey and IndexedItemRef when there are holes or the position is out of range.
  const std::string& KeyAt(int32_t position) const;
  const ObjectRef& ItemAt(int32_t position) const;
  bool Indexed() const { return index_ != nullptr; }
  void CheckClass(const ObjectRef& item) const;                            // raises as AddItem does
  void CheckNewItem(const std::string& key, const ObjectRef& item) const;  // raises as AddItem does
  void Add(Key key, ObjectRef item);
  // Slot s's key: the static list's s-th string for the slots filled from it,
  // else keys_[s - staticCount_]. A dead key marks a removed entry.
  const std::string& KeyOf(size_t slot) const {
    return slot < static_cast<size_t>(staticCount_) ? staticKeys_[slot] : *keys_[slot - staticCount_];
  }
  bool KeyIs(size_t slot, const std::string& key) const {
    return slot < static_cast<size_t>(staticCount_) ? &staticKeys_[slot] == &key : keys_[slot - staticCount_].Is(key);
  }
  bool AliveAt(size_t slot) const {
    return slot < static_cast<size_t>(staticCount_) || keys_[slot - staticCount_].Alive();
  }
  // Gives the slots filled from the static list keys of their own, before
  // anything could shift them.
  void OwnStaticKeys();
  void Compact();
  void Reindex();
  void BuildTree();
  void TreeAdd(int32_t slot, int32_t delta);

  std::vector<ObjectRef> items_;  // insertion order; holes (dead entries) only while indexed
  std::vector<Key> keys_;         // the keys of the slots from staticCount_ on
  int32_t count_ = 0;             // live entries
  int32_t holes_ = 0;             // dead entries
  std::unique_ptr<Index> index_;  // only past kIndexThreshold
  // The static key list the table was filled with: a key at that list's
  // i-th string is looked for in slot i first, and the first staticCount_
  // slots have its strings as their keys.
  const std::string* staticKeys_ = nullptr;
  int32_t staticCount_ = 0;
  ClassRestriction restrictedClass_;
};

}  // namespace ombrel
