// CDictionary: a set of texts in insertion order (each text is its own key),
// and CLong, a boxed signed 32-bit number so numbers can stand in a CList.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "ombrel/foundation/chashtable.h"
#include "ombrel/foundation/object.h"

namespace ombrel {

class CDictionary final : public CObject {
 public:
  std::string_view ClassName() const override { return "CDictionary"; }

  void AddItem(const std::string& text);
  void RemoveItem(const std::string& text);
  std::string GetItem(int32_t position) const;
  int32_t GetNumItems() const { return table_ ? table_->GetNumItems() : 0; }
  bool Contains(const std::string& text) const { return table_ && table_->Contains(text); }
  // Adds each of the other's items that is not present yet.
  void Merge(const CDictionary& other);
  std::string ToStr() const override;

 private:
  CHashTable& Table();
  std::unique_ptr<CHashTable> table_;  // created on first use
};

class CLong final : public CObject {
 public:
  CLong() = default;
  explicit CLong(int32_t value) : value_(value) {}

  std::string_view ClassName() const override { return "CLong"; }
  int32_t Value() const { return value_; }
  void SetValue(int32_t value) { value_ = value; }
  std::shared_ptr<CLong> Clone() const { return std::make_shared<CLong>(value_); }
  std::string ToStr() const override { return std::to_string(value_); }
  DefaultValue GetDefaultValue() const override { return {true, static_cast<double>(value_), {}}; }

 private:
  int32_t value_ = 0;
};

}  // namespace ombrel
