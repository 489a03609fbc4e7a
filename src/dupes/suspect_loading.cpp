// The search's second pass: reading the suspect cards.
//
// A store that offers a scan is read once more from end to end and the
// suspects are built wherever they lie, on as many threads as the store
// reads parts at once; otherwise each suspect is read on its own. Either way
// an error is raised for the first failing card in suspect order, as reading
// them one by one would.
#include <algorithm>
#include <exception>
#include <unordered_map>
#include <vector>

#include "dupes/dupes_internal.h"
#include "dupes/grouping.h"
#include "ombrel/cards/ccard.h"
#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/cardstore/icardstore.h"
#include "ombrel/dupes/dupe_search.h"

namespace ombrel {

namespace {

// Where each suspect goes in the list, by card ID: asked for every card of
// the store, so IDs (mostly dense, 1..N) index a vector when they allow it.
class SlotsById {
 public:
  explicit SlotsById(const std::vector<int32_t>& ids) {
    int64_t highest = 0;
    for (int32_t id : ids) highest = std::max<int64_t>(highest, id);
    if (highest <= 4 * static_cast<int64_t>(ids.size()) + 1024) {
      dense_.assign(static_cast<size_t>(highest) + 1, -1);
      for (size_t k = 0; k < ids.size(); ++k)
        if (ids[k] >= 0 && dense_[static_cast<size_t>(ids[k])] < 0) dense_[static_cast<size_t>(ids[k])] = static_cast<int32_t>(k);
    } else {
      sparse_.reserve(ids.size());
      for (size_t k = 0; k < ids.size(); ++k) sparse_.emplace(ids[k], static_cast<int32_t>(k));
    }
  }
  // The slot, or -1 when the card is no suspect.
  int32_t Find(int32_t id) const {
    if (!dense_.empty()) return id >= 0 && static_cast<size_t>(id) < dense_.size() ? dense_[static_cast<size_t>(id)] : -1;
    auto it = sparse_.find(id);
    return it == sparse_.end() ? -1 : it->second;
  }

 private:
  std::vector<int32_t> dense_;
  std::unordered_map<int32_t, int32_t> sparse_;
};

}  // namespace

std::shared_ptr<CList> CDupeSearch::LoadSuspects(const std::vector<int32_t>& ids, int32_t total,
                                                 std::span<const int32_t> partStarts,
                                                 std::vector<dupes_internal::CardFacts>* facts) {
  auto list = std::make_shared<CList>();
  std::vector<std::shared_ptr<CCard>> cards(ids.size());
  ICardStore* store = dupes_internal::ScanningStore();
  if (store && !ids.empty()) {
    SlotsById slot(ids);
    std::vector<std::exception_ptr> errors(ids.size());
    CCardStoreMgr& mgr = dupes_internal::Mgr();
    const std::string customFields = mgr.GetCustomFields();
    if (facts) facts->assign(ids.size(), dupes_internal::CardFacts{});
    // With facts to work out, the cards are read and checked but built only
    // when something asks for their fields: the search itself compares
    // facts, and a listing of the sets needs no more than the IDs.
    std::shared_ptr<const CCard> layout;
    if (facts && deferCards_) {
      try {
        layout = mgr.Layout(customFields);
      } catch (...) {  // raised below for the first card, as reading it raises it
      }
    }
    // Each card lands in its own slot, so parts never write the same place.
    auto build = [&](int32_t, int32_t id, const ICardValues& values) {
      const size_t k = static_cast<size_t>(slot.Find(id));
      if (facts) {
        // The slots lie anywhere in the list: their memory is asked for now,
        // to arrive while the card is read.
        const char* slotFacts = reinterpret_cast<const char*>(&(*facts)[k]);
        for (size_t line = 0; line < sizeof(dupes_internal::CardFacts); line += 64) __builtin_prefetch(slotFacts + line, 1);
      }
      try {
        std::shared_ptr<CCard> card;
        if (layout) {
          std::shared_ptr<const CCardStoreMgr::ReadFields> read;
          card = mgr.ReadCard(id, customFields, values, &read);
          card->tag = dupes_internal::Tag(*card, values.Get("First Name"));
          dupes_internal::ObserveRead(layout, std::move(read), id, card->GetLastName(),
                                      dupes_internal::ComparedByContent(card->tag), (*facts)[k]);
        } else {
          card = mgr.BuildCard(id, customFields, values);
          card->tag = dupes_internal::Tag(*card, values.Get("First Name"));
          if (facts) dupes_internal::ObserveCard(*card, (*facts)[k], dupes_internal::ComparedByContent(card->tag));
        }
        cards[k] = std::move(card);
      } catch (...) {
        errors[k] = std::current_exception();
      }
    };
    ScanStep(*store, dupes_internal::ScanPartsFor(*store, total), search_text::kLoadingSuspects,
             static_cast<int32_t>(ids.size()), [&](int32_t id) { return slot.Find(id) >= 0; }, build, partStarts);
    if (stopped_) return nullptr;
    for (size_t k = 0; k < ids.size(); ++k) {
      if (errors[k]) {
        failedCardId_ = ids[k];
        std::rethrow_exception(errors[k]);
      }
      if (!cards[k]) {
        cards[k] = LoadCard(ids[k]);  // not met by the scan: read it alone
        if (facts) facts->clear();    // and perhaps with other fields: no shared layout
      }
    }
  } else {
    if (facts) facts->clear();
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
