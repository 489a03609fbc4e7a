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

bool IsStandardFieldName(std::string_view name);
// The name's position in kStandardFieldNames, or -1.
int32_t StandardFieldIndex(std::string_view name);

}  // namespace ombrel
