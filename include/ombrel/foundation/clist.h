// CList: the ordered, 1-based list of shared objects that every part of the
// system keeps its objects in. A list may be restricted to one class by name;
// every misuse raises through Trap with a fixed text.
//
// Internally a doubly linked list kept in an array of nodes, with a chain of
// free nodes and a cursor on the last position reached, so that walking the
// list forwards or backwards costs one step per call and inserting or
// removing next to the cursor costs O(1). Random access walks from the
// nearer end.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ombrel/foundation/error.h"
#include "ombrel/foundation/object.h"

namespace ombrel {

class CList final : public CObject {
 public:
  CList();

  std::string_view ClassName() const override { return "CList"; }

  void RestrictType(std::string_view className);
  // A new unrestricted list holding the same item references in the same order.
  std::shared_ptr<CList> Clone() const;
  void Append(const CList& other);
  void AddItem(ObjectRef item);
  ObjectRef GetItem(int32_t position) const;
  ObjectRef GetLastItem() const;
  int32_t GetNumItems() const { return count_; }
  void InsertItem(int32_t position, ObjectRef item);
  void ReplaceItem(int32_t position, ObjectRef item);
  void SwapItems(int32_t position1, int32_t position2);
  void RemoveItem(int32_t position);
  void RemoveLast();
  void RemoveAll();
  bool Contains(const ObjectRef& item) const { return GetPosition(item) >= 1; }
  int32_t GetPosition(const ObjectRef& item) const;
  bool ContainsByValue(const ObjectRef& item) const { return GetPositionByValue(item) >= 1; }
  int32_t GetPositionByValue(const ObjectRef& item) const;
  std::string ToStr() const override;

  // Calls visit(item) with every item (a CObject pointer, null for an empty
  // reference) in order, without moving the cursor or copying a reference:
  // for reading a long list from end to end.
  template <class Visit>
  void ForEachItem(const Visit& visit) const {
    for (int32_t node = first_; node != 0; node = nodes_[static_cast<size_t>(node)].next)
      visit(nodes_[static_cast<size_t>(node)].item.get());
  }

  // Typed access: the item at position cast to T; raises when it is of another class.
  template <class T>
  std::shared_ptr<T> GetItemAs(int32_t position) const {
    return CastItem<T>(GetItem(position));
  }
  template <class T>
  std::shared_ptr<T> GetLastItemAs() const {
    return CastItem<T>(GetLastItem());
  }

 private:
  struct Node {
    ObjectRef item;
    int32_t prev = 0;  // -1 marks a free node
    int32_t next = 0;
  };

  template <class T>
  static std::shared_ptr<T> CastItem(ObjectRef item) {
    auto typed = std::dynamic_pointer_cast<T>(item);
    // Build the message only on failure: typed access sits in the hottest loops.
    if (item && !typed) RaiseTrap("List item is not of the requested class: " + std::string(item->ClassName()));
    return typed;
  }

  void CheckType(const ObjectRef& item) const;
  void CheckPosition(int32_t position) const;
  // Moves the cursor to position (1..count_) and answers its node index.
  int32_t Seek(int32_t position) const;
  int32_t Follow(int32_t index) const;
  int32_t TakeFreeNode();
  void Unlink(int32_t node);
  void Grow();

  // Node 0 is unused so that indexes are 1-based like positions; 0 means none.
  std::vector<Node> nodes_;
  int32_t first_ = 0;
  int32_t last_ = 0;
  int32_t count_ = 0;
  int32_t freeHead_ = 0;
  ClassRestriction restrictedClass_;
  mutable int32_t cursorPos_ = 0;
  mutable int32_t cursorNode_ = 0;
};

}  // namespace ombrel
