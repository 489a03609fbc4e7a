#include "ombrel/foundation/object.h"

#include "ombrel/foundation/cstring.h"
#include "ombrel/foundation/error.h"

namespace ombrel {

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
