#include "ombrel/cards/field_catalogue.h"

#include <algorithm>

namespace ombrel {

bool IsStandardFieldName(std::string_view name) {
  return std::find(kStandardFieldNames.begin(), kStandardFieldNames.end(), name) != kStandardFieldNames.end();
}

}  // namespace ombrel
