#include "ombrel/cards/field_catalogue.h"

#include <algorithm>

namespace ombrel {

bool IsStandardFieldName(std::string_view name) { return StandardFieldIndex(name) >= 0; }

int32_t StandardFieldIndex(std::string_view name) {
  auto it = std::find(kStandardFieldNames.begin(), kStandardFieldNames.end(), name);
  return it == kStandardFieldNames.end() ? -1 : static_cast<int32_t>(it - kStandardFieldNames.begin());
}

}  // namespace ombrel
