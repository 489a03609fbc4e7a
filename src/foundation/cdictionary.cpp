#include "ombrel/foundation/cdictionary.h"

#include "ombrel/foundation/cstring.h"

namespace ombrel {

CHashTable& CDictionary::Table() {
  if (!table_) table_ = std::make_unique<CHashTable>();
  return *table_;
}

void CDictionary::AddItem(const std::string& text) {
  if (Contains(text)) RaiseTrap("CDictionary already contains item: " + text);
  Table().AddItem(text, std::make_shared<CString>(text));
}

void CDictionary::RemoveItem(const std::string& text) {
  if (!Contains(text)) RaiseTrap("CDictionary does not contain item: " + text);
  Table().RemoveItem(text);
}

std::string CDictionary::GetItem(int32_t position) const {
  if (position < 1 || position > GetNumItems())
    RaiseTrap("CDictionary index out of range: " + std::to_string(position));
  return table_->GetIndexedKey(position);
}

void CDictionary::Merge(const CDictionary& other) {
  for (int32_t i = 1; i <= other.GetNumItems(); ++i) {
    const std::string& item = other.table_->GetIndexedKey(i);
    if (!Contains(item)) AddItem(item);
  }
}

std::string CDictionary::ToStr() const {
  std::string out;
  for (int32_t i = 1; i <= GetNumItems(); ++i) {
    if (i > 1) out += "\r\n";
    out += table_->GetIndexedKey(i);
  }
  return out;
}

}  // namespace ombrel
