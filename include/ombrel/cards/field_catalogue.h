// The standard field catalogue: the 28 field names every standard card
// carries, in their fixed order. The same names are the card store's field
// names. Also the store's extra value names and the suffixes that address
// data about a field rather than its text.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace ombrel {

inline constexpr std::array<std::string_view, 28> kStandardFieldNames = {
    "Name",    "Title",   "Company", "Address", "2nd Address", "Phone",       "Fax",
    "Phone 1", "Phone 2", "Phone 3", "Phone 4", "Phone 5",     "Phone 6",     "Email",
    "Web Page", "Email 1", "Email 2", "Email 3", "Email 4",    "Email 5",     "Email 6",
    "Other",   "Verified", "Notes",  "Categories", "Creation Date", "Modified Date", "Solvane Status"};

// Store values that are not fields of a card.
inline constexpr std::string_view kFirstNameValue = "First Name";
inline constexpr std::string_view kLastNameValue = "Last Name";
inline constexpr std::string_view kCertaintyValue = "Certainty";

// Suffixes, as the manager spells them; stores match them without regard to case.
inline constexpr std::string_view kLabelSuffix = ".Label";
inline constexpr std::string_view kRectangleSuffix = ".Rectangle";
inline constexpr std::string_view kConfidenceLevelsSuffix = ".Confidence Levels";
inline constexpr std::string_view kSuspectInfoSuffix = ".Suspect Info";

namespace catalogue_detail {
// Every field that is set asks for its name's position, so the position is
// found from a slot computed from the length and the first and last
// characters, then confirmed by one comparison. The slots of the catalogue
// names differ; a catalogue change that breaks that fails to compile.
constexpr size_t Slot(std::string_view name) {
  return (name.size() * 30 + static_cast<unsigned char>(name.front()) * 60 + static_cast<unsigned char>(name.back())) &
         63;
}

inline constexpr std::array<int8_t, 64> kPositionBySlot = [] {
  std::array<int8_t, 64> positions{};
  positions.fill(-1);
  for (size_t i = 0; i < kStandardFieldNames.size(); ++i) {
    if (positions[Slot(kStandardFieldNames[i])] != -1) throw "two catalogue names share a slot";
    positions[Slot(kStandardFieldNames[i])] = static_cast<int8_t>(i);
  }
  return positions;
}();
}  // namespace catalogue_detail

// The name's position in kStandardFieldNames, or -1.
constexpr int32_t StandardFieldIndex(std::string_view name) {
  if (name.empty()) return -1;
  const int32_t position = catalogue_detail::kPositionBySlot[catalogue_detail::Slot(name)];
  return position >= 0 && kStandardFieldNames[static_cast<size_t>(position)] == name ? position : -1;
}
constexpr bool IsStandardFieldName(std::string_view name) { return StandardFieldIndex(name) >= 0; }

}  // namespace ombrel
