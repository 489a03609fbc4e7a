// The search's second pass: reading the suspect cards.
//
// A store that offers a scan is read once more from end to end and the
// suspects are built wherever they lie, on as many threads as the store
// reads parts at once; otherwise each suspect is read on its own. Either way
// an error is raised for the first failing card in suspect order, as reading
// them one by one would.
#include <exception>
#include <unordered_map>
#include <vector>

#include "dupes/dupes_internal.h"
#include "ombrel/cards/ccard.h"
#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/cardstore/icardstore.h"
#include "ombrel/dupes/dupe_search.h"

namespace ombrel {

std::shared_ptr<CList> CDupeSearch::LoadSuspects(const std::vector<int32_t>& ids, int32_t total) {
  auto list = std::make_shared<CList>();
  std::vector<std::shared_ptr<CCard>> cards(ids.size());
  ICardStore* store = dupes_internal::ScanningStore();
  if (store && !ids.empty()) {
    std::unordered_map<int32_t, size_t> slot;
    slot.reserve(ids.size());
    for (size_t k = 0; k < ids.size(); ++k) slot.emplace(ids[k], k);
    std::vector<std::exception_ptr> errors(ids.size());
    CCardStoreMgr& mgr = dupes_internal::Mgr();
    const std::string customFields = mgr.GetCustomFields();
    // Each card lands in its own slot, so parts never write the same place.
    auto build = [&](int32_t, int32_t id, const ICardValues& values) {
      const size_t k = slot.at(id);
      try {
        auto card = mgr.BuildCard(id, customFields,
                                  [&](std::string_view name, std::string& value) { values.Read(name, value); });
        card->tag = dupes_internal::Tag(*card, values.Get("First Name"));
        cards[k] = std::move(card);
      } catch (...) {
        errors[k] = std::current_exception();
      }
    };
    ScanStep(*store, dupes_internal::ScanPartsFor(*store, total), search_text::kLoadingSuspects,
             static_cast<int32_t>(ids.size()), [&](int32_t id) { return slot.count(id) > 0; }, build);
    if (stopped_) return nullptr;
    for (size_t k = 0; k < ids.size(); ++k) {
      if (errors[k]) {
        failedCardId_ = ids[k];
        std::rethrow_exception(errors[k]);
      }
      if (!cards[k]) cards[k] = LoadCard(ids[k]);  // not met by the scan: read it alone
    }
  } else {
    for (size_t k = 0; k < ids.size(); ++k) {
      if (!UpdateProgress(search_text::kLoadingSuspects, static_cast<int32_t>(k + 1), static_cast<int32_t>(ids.size())))
        return nullptr;
      cards[k] = LoadCard(ids[k]);
    }
  }
  for (auto& card : cards) list->AddItem(std::move(card));
  return list;
}

}  // namespace ombrel
