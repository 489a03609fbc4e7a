#include "ombrel/cards/field_catalogue.h"

#include <stdexcept>

namespace ombrel {

namespace {

// Every field that is set asks for its name's position, so the position is
// found from a slot computed from the length and the first and last
// characters, then confirmed by one comparison. The slots of the catalogue
// names differ; a catalogue change that breaks that fails to compile.
constexpr size_t Slot(std::string_view name) {
  return (name.size() * 30 + static_cast<unsigned char>(name.front()) * 60 + static_cast<unsigned char>(name.back())) &
         63;
}

constexpr std::array<int8_t, 64> kPositionBySlot = [] {
  std::array<int8_t, 64> positions{};
  positions.fill(-1);
  for (size_t i = 0; i < kStandardFieldNames.size(); ++i) {
    if (positions[Slot(kStandardFieldNames[i])] != -1) throw std::logic_error("two catalogue names share a slot");
    positions[Slot(kStandardFieldNames[i])] = static_cast<int8_t>(i);
  }
  return positions;
}();

}  // namespace

bool IsStandardFieldName(std::string_view name) { return StandardFieldIndex(name) >= 0; }

int32_t StandardFieldIndex(std::string_view name) {
  if (name.empty()) return -1;
  int32_t position = kPositionBySlot[Slot(name)];
  return position >= 0 && kStandardFieldNames[position] == name ? position : -1;
}

}  // namespace ombrel
