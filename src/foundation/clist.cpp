#include "ombrel/foundation/clist.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace ombrel {

namespace {
constexpr int32_t kGrowBy = 100;
}

// Nodes are allocated on the first add: the search makes a list per dupe
// set, most of which never hold more than a couple of cards.
CList::CList() = default;

void CList::Grow() {
  // The free chain is empty whenever we grow: chain the new nodes in order.
  if (nodes_.empty()) nodes_.emplace_back();  // node 0 stands for "none"
  int32_t begin = static_cast<int32_t>(nodes_.size());
  // Small lists start with room for one item and double, as most dupe sets
  // hold one or two cards; large ones grow geometrically so that filling
  // stays linear.
  int32_t add = begin < kGrowBy ? begin : std::max<int32_t>(kGrowBy, begin / 2);
  nodes_.resize(begin + add);
  for (int32_t i = begin; i < begin + add; ++i) {
    nodes_[i].prev = -1;
    nodes_[i].next = (i + 1 < begin + add) ? i + 1 : 0;
  }
  freeHead_ = begin;
}

int32_t CList::TakeFreeNode() {
  if (freeHead_ == 0) Grow();
  int32_t node = freeHead_;
  freeHead_ = nodes_[node].next;
  return node;
}

void CList::RestrictType(std::string_view className) {
  Trap(count_ != 0, "Cannot restrict type: list is not empty");
  restrictedClass_ = ClassRestriction(className);
}

void CList::CheckType(const ObjectRef& item) const {
  if (restrictedClass_.empty()) return;
  std::string_view cls = item ? item->ClassName() : std::string_view("Nothing");
  if (cls != restrictedClass_.Name())
    RaiseTrap("Cannot add a: " + std::string(cls) + " into a list of: " + restrictedClass_.Name());
}

void CList::CheckPosition(int32_t position) const {
  if (position < 1 || position > count_) RaiseTrap("List index out of range: " + std::to_string(position));
}

int32_t CList::Follow(int32_t index) const {
  if (index < 1 || index >= static_cast<int32_t>(nodes_.size())) RaiseTrap("Wrong index in linked list");
  if (nodes_[index].prev < 0) RaiseTrap("Error in linked list");
  return index;
}

int32_t CList::Seek(int32_t position) const {
  if (cursorNode_ != 0 && position == cursorPos_) return cursorNode_;
  int32_t node;
  if (cursorNode_ != 0 && position == cursorPos_ + 1) {
    node = Follow(nodes_[cursorNode_].next);
  } else if (cursorNode_ != 0 && position == cursorPos_ - 1) {
    node = Follow(nodes_[cursorNode_].prev);
  } else {
    // Walk from whichever of the cursor and the two ends lies nearest.
    int32_t fromFirst = position - 1;
    int32_t fromLast = count_ - position;
    int32_t fromCursor = cursorNode_ ? std::abs(position - cursorPos_) : std::numeric_limits<int32_t>::max();
    if (fromCursor <= fromFirst && fromCursor <= fromLast) {
      node = cursorNode_;
      for (int32_t p = cursorPos_; p < position; ++p) node = Follow(nodes_[node].next);
      for (int32_t p = cursorPos_; p > position; --p) node = Follow(nodes_[node].prev);
    } else if (static_cast<double>(count_) / 2 > position) {
      node = Follow(first_);
      for (int32_t i = 1; i < position; ++i) node = Follow(nodes_[node].next);
    } else {
      node = Follow(last_);
      for (int32_t i = count_; i > position; --i) node = Follow(nodes_[node].prev);
    }
  }
  cursorPos_ = position;
  cursorNode_ = node;
  return node;
}

void CList::AddItem(ObjectRef item) {
  CheckType(item);
  int32_t newCount = CheckedAdd(count_, 1);
  int32_t node = TakeFreeNode();
  nodes_[node].item = std::move(item);
  nodes_[node].prev = last_;
  nodes_[node].next = 0;
  if (last_ != 0) nodes_[last_].next = node;
  else first_ = node;
  last_ = node;
  count_ = newCount;
  cursorPos_ = count_;
  cursorNode_ = node;
}

void CList::Append(const CList& other) {
  // Check every item and the final count first, so a refused append adds nothing.
  int32_t n = other.count_;
  CheckedAdd(count_, n);
  int32_t node = other.first_;
  for (int32_t i = 0; i < n; ++i) {
    CheckType(other.nodes_[node].item);
    node = other.nodes_[node].next;
  }
  // Walk the other list's nodes directly: appending a list to itself sees the original count.
  node = other.first_;
  for (int32_t i = 0; i < n; ++i) {
    ObjectRef item = other.nodes_[node].item;
    node = other.nodes_[node].next;
    AddItem(std::move(item));
  }
}

std::shared_ptr<CList> CList::Clone() const {
  auto copy = std::make_shared<CList>();
  copy->Append(*this);
  return copy;
}

ObjectRef CList::GetItem(int32_t position) const {
  CheckPosition(position);
  return nodes_[Seek(position)].item;
}

ObjectRef CList::GetLastItem() const {
  Trap(count_ == 0, "Cannot get last item: list is empty");
  return nodes_[last_].item;
}

void CList::InsertItem(int32_t position, ObjectRef item) {
  CheckPosition(position);
  CheckType(item);
  int32_t newCount = CheckedAdd(count_, 1);
  int32_t at = Seek(position);
  int32_t node = TakeFreeNode();
  int32_t before = nodes_[at].prev;
  nodes_[node].item = std::move(item);
  nodes_[node].prev = before;
  nodes_[node].next = at;
  nodes_[at].prev = node;
  if (before != 0) nodes_[before].next = node;
  else first_ = node;
  count_ = newCount;
  cursorPos_ = position;
  cursorNode_ = node;
}

void CList::ReplaceItem(int32_t position, ObjectRef item) {
  CheckPosition(position);
  CheckType(item);
  nodes_[Seek(position)].item = std::move(item);
}

void CList::SwapItems(int32_t position1, int32_t position2) {
  CheckPosition(position1);
  CheckPosition(position2);
  int32_t a = Seek(position1);
  int32_t b = Seek(position2);
  std::swap(nodes_[a].item, nodes_[b].item);
}

void CList::Unlink(int32_t node) {
  int32_t prev = nodes_[node].prev;
  int32_t next = nodes_[node].next;
  if (prev != 0) nodes_[prev].next = next;
  else first_ = next;
  if (next != 0) nodes_[next].prev = prev;
  else last_ = prev;
  nodes_[node].item.reset();
  nodes_[node].prev = -1;
  nodes_[node].next = freeHead_;
  freeHead_ = node;
  --count_;
}

void CList::RemoveItem(int32_t position) {
  CheckPosition(position);
  int32_t node = Seek(position);
  int32_t prev = nodes_[node].prev;
  int32_t next = nodes_[node].next;
  Unlink(node);
  // The cursor stays on the same position when an item follows, else on the new last.
  if (next != 0) {
    cursorNode_ = next;
    cursorPos_ = position;
  } else if (prev != 0) {
    cursorNode_ = prev;
    cursorPos_ = position - 1;
  } else {
    cursorNode_ = 0;
    cursorPos_ = 0;
  }
}

void CList::RemoveLast() {
  Trap(count_ == 0, "There's nothing left to remove from CList");
  RemoveItem(count_);
}

void CList::RemoveAll() {
  std::vector<Node>().swap(nodes_);
  first_ = last_ = count_ = 0;
  freeHead_ = 0;
  cursorPos_ = cursorNode_ = 0;
}

int32_t CList::GetPosition(const ObjectRef& item) const {
  int32_t node = first_;
  for (int32_t pos = 1; pos <= count_; ++pos) {
    if (nodes_[node].item == item) return pos;
    node = nodes_[node].next;
  }
  return 0;
}

int32_t CList::GetPositionByValue(const ObjectRef& item) const {
  if (!item) RaiseObjectNotSet();
  DefaultValue wanted = item->GetDefaultValue();
  int32_t node = first_;
  for (int32_t pos = 1; pos <= count_; ++pos) {
    const ObjectRef& candidate = nodes_[node].item;
    if (!candidate) RaiseObjectNotSet();
    if (candidate->GetDefaultValue().Equals(wanted)) return pos;
    node = nodes_[node].next;
  }
  return 0;
}

std::string CList::ToStr() const {
  std::string out;
  int32_t node = first_;
  for (int32_t pos = 1; pos <= count_; ++pos) {
    if (pos > 1) out += "\r\n";
    if (!nodes_[node].item) RaiseObjectNotSet();
    out += nodes_[node].item->ToStr();
    node = nodes_[node].next;
  }
  return out;
}

}  // namespace ombrel
