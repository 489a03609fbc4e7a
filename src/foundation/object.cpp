#include "ombrel/foundation/object.h"

#include <mutex>
#include <unordered_set>

#include "ombrel/foundation/cstring.h"
#include "ombrel/foundation/error.h"

namespace ombrel {

ClassRestriction::ClassRestriction(std::string_view className) {
  if (className.empty()) return;
  // Most lists of a thread are restricted to the class the last one was.
  thread_local const std::string* last = nullptr;
  if (last && *last == className) {
    name_ = last;
    return;
  }
  static std::mutex mutex;
  static auto* names = new std::unordered_set<std::string>();  // never destroyed: lists may outlive it
  std::lock_guard<std::mutex> lock(mutex);
  name_ = last = &*names->emplace(className).first;
}

const std::string& ClassRestriction::Name() const {
  static const std::string none;
  return name_ ? *name_ : none;
}

std::string CObject::ToStr() const { RaiseMissingMember("ToStr"); }

DefaultValue CObject::GetDefaultValue() const { RaiseMissingMember("default member of " + std::string(ClassName())); }

bool DefaultValue::Equals(const DefaultValue& other) const {
  if (isNumber == other.isNumber) return isNumber ? number == other.number : text == other.text;
  const DefaultValue& num = isNumber ? *this : other;
  const DefaultValue& txt = isNumber ? other : *this;
  double parsed = 0;
  if (!CString::TryParseNumber(txt.text, parsed))
    throw Error(kTypeMismatchErrorNumber, "Ombrel", "Type mismatch");
  return parsed == num.number;
}

}  // namespace ombrel
