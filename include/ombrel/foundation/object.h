// CObject: the common root of every class that can stand in a CList or a
// CHashTable. Objects are shared by reference (std::shared_ptr); a list
// restricted to one class compares ClassName() with the restriction, so
// ClassName() answers the system's own class name ("CCard", "CString", ...).
//
// DefaultValue() is what the original called an object's default member: the
// value ContainsByValue compares. Classes without one raise the missing
// member error when it is asked for.
#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace ombrel {

// A default member's value: a number or a text.
struct DefaultValue {
  bool isNumber = false;
  double number = 0;
  std::string text;

  // Equality as the original's "=" on two default members: numeric when both
  // are numbers, textual when both are texts; a number against a text compares
  // numerically when the text is numeric and raises a type mismatch otherwise.
  bool Equals(const DefaultValue& other) const;
};

class CObject {
 public:
  virtual ~CObject() = default;
  virtual std::string_view ClassName() const = 0;
  // One-line (or multi-line) text dump; classes without one raise the missing member error.
  virtual std::string ToStr() const;
  virtual DefaultValue GetDefaultValue() const;
};

using ObjectRef = std::shared_ptr<CObject>;

// The class a list or table is restricted to, kept once for the whole
// process: a search makes hundreds of thousands of restricted lists and
// tables, and each holds a pointer instead of its own copy of the name.
// Empty means no restriction.
class ClassRestriction {
 public:
  ClassRestriction() = default;
  explicit ClassRestriction(std::string_view className);
  bool empty() const { return name_ == nullptr; }
  const std::string& Name() const;  // empty when there is none

 private:
  const std::string* name_ = nullptr;
};

}  // namespace ombrel
