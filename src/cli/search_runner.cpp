#include "search_runner.h"

#include "ombrel/cards/ccard.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/foundation/error.h"

namespace ombrel::cli {

std::string TypeName(int32_t type) {
  switch (type) {
    case EXACT_DUPE: return "EXACT_DUPE";
    case COMPATIBLE_DUPE: return "COMPATIBLE_DUPE";
    case CONFLICT_DUPE: return "CONFLICT_DUPE";
    default: return "UNKNOWN";
  }
}

SearchOutcome SearchDupes(const std::vector<int32_t>& types, ISearchProgress* progress, const EmitSets& emit,
                          bool deferCards) {
  SearchOutcome outcome;
  auto deliver = [&](int32_t type, std::shared_ptr<CList> sets) {
    if (emit) emit(type, sets);
    else outcome.results.push_back({type, std::move(sets)});
  };
  CDupeSearch search(progress);
  search.SetDeferCards(deferCards);
  try {
    auto suspects = search.FindDupesInStore(types, deliver);
    if (suspects) outcome.suspects = suspects->GetNumItems();
    outcome.cards = suspects;
  } catch (const Error& e) {
    throw search.NamingFailedCard(e);
  }
  outcome.stopped = search.IsStopped();
  outcome.timings = search.Timings();
  outcome.workingTables = search.TakeWorkingTables();
  return outcome;
}

}  // namespace ombrel::cli
