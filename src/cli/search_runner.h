// Running the duplicate search for one or several dupe types, as the wizard
// does for its steps: the suspects are read once and each type groups a
// fresh list of them, with every card's tag as it was when loaded.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ombrel/dupes/dupe_search.h"
#include "ombrel/foundation/clist.h"

namespace ombrel::cli {

struct TypedSets {
  int32_t type = 0;
  std::shared_ptr<CList> sets;  // CList of CDupeSet; null when the search stopped before it
};

struct SearchOutcome {
  std::vector<TypedSets> results;
  bool stopped = false;
  SearchTimings timings;
  int32_t suspects = 0;
  // The cards read, which the sets refer to.
  std::shared_ptr<CList> cards;
  // What the search worked on, for a caller that ends the process soon
  // after to keep rather than free.
  std::shared_ptr<void> workingTables;
};

// Hands each type's sets to emit as soon as they are found (null when the
// search stopped before that type), so a caller can print and drop them.
using EmitSets = std::function<void(int32_t type, const std::shared_ptr<CList>& sets)>;

// Raises the search's error with the failing card's ID added when a card could not be read.
// Without emit, the sets are kept in the outcome's results.
// deferCards: CDupeSearch::SetDeferCards.
SearchOutcome SearchDupes(const std::vector<int32_t>& types, ISearchProgress* progress, const EmitSets& emit = {},
                          bool deferCards = true);

// "EXACT_DUPE", "COMPATIBLE_DUPE", "CONFLICT_DUPE".
std::string TypeName(int32_t type);

}  // namespace ombrel::cli
