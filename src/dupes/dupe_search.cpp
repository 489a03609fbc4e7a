#include "ombrel/dupes/dupe_search.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <thread>
#include <unordered_map>
#include <unordered_set>

#include "ombrel/cards/ccard.h"
#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/cardstore/icardstore.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/foundation/cstring.h"
#include "ombrel/foundation/error.h"
#include "dupes/dupes_internal.h"
#include "dupes/key_table.h"

namespace ombrel {

using dupes_internal::Clock;
using dupes_internal::Mgr;
using dupes_internal::Scan;
using dupes_internal::ScanningStore;
using dupes_internal::SecondsSince;
using dupes_internal::Tag;

namespace dupes_internal {

ICardStore* ScanningStore() {
  auto& mgr = CardStoreMgr();
  if (!mgr) return nullptr;
  auto store = mgr->GetCardStore();
  return store && store->OffersScan() ? store.get() : nullptr;
}

void Scan(ICardStore& store, const std::function<bool(int32_t, const ICardValues&)>& visit) {
  if (store.ScanCards(visit) != 0) RaiseTrap("Failed to read cards\r\n" + store.GetLastError());
}

void ScanInParts(ICardStore& store, int32_t parts,
                 const std::function<bool(int32_t, int32_t, const ICardValues&)>& visit,
                 std::span<const int32_t> partStarts, const std::function<bool(int32_t)>& wanted,
                 const std::function<void()>& waiting) {
  if (store.ScanCardsInParts(parts, visit, partStarts, wanted, waiting) != 0) RaiseTrap("Failed to read cards\r\n" + store.GetLastError());
}

int32_t& PartScanThreshold() {
  static int32_t threshold = 20000;
  return threshold;
}

size_t& CheckInEvery() {
  static size_t cards = size_t{1} << 16;
  return cards;
}

int32_t& ScanParts() {
  static int32_t parts = 0;
  return parts;
}

void InHalves(size_t n, bool split, const std::function<void(size_t from, size_t to)>& work) {
  if (!split) {
    work(0, n);
    return;
  }
  std::thread helper([&] { work(n / 2, n); });
  work(0, n / 2);
  helper.join();
}

int32_t ScanPartsFor(const ICardStore& store, int32_t cards) {
  if (!store.OffersPartScan() || cards < PartScanThreshold()) return 1;
  if (ScanParts() > 0) return ScanParts();
  // Two parts a core: the parts never cost quite the same, and a core whose
  // part ends first then shares the rest instead of waiting.
  const unsigned cores = std::thread::hardware_concurrency();
  return cores >= 2 ? static_cast<int32_t>(std::min(2 * cores, 8u)) : 1;
}

std::string Tag(const CCard& card, const std::string& firstName) {
  return CString::TrimText(card.GetLastName() + "," + firstName);
}

}  // namespace dupes_internal

bool ShouldShowProgress(int64_t elapsedSeconds, int32_t done, int32_t total) {
  return (elapsedSeconds > 1 && done < 0.8 * total) || elapsedSeconds >= 3;
}

CDupeSearch::CDupeSearch(ISearchProgress* progress) : progress_(progress) {}

void CDupeSearch::StopSearch() { stopped_ = true; }

Error CDupeSearch::NamingFailedCard(const Error& e) const {
  if (failedCardId_ == 0) return e;
  return Error(e.Number(), e.Source(), e.Description() + "\n(while reading card " + std::to_string(failedCardId_) + ")");
}

bool CDupeSearch::UpdateProgress(int32_t resourceId, int32_t done, int32_t total) {
  if (stopped_) return false;
  lastReport_[0] = resourceId;
  lastReport_[1] = done;
  lastReport_[2] = total;
  if (progress_ && !progress_->UpdateProgress(resourceId, done, total)) stopped_ = true;
  return !stopped_;
}

bool CDupeSearch::ReportAgain() {
  if (lastReport_[0] == 0) return !stopped_;
  return UpdateProgress(lastReport_[0], lastReport_[1], lastReport_[2]);
}

void CDupeSearch::SetActionText(int32_t dupeType) {
  int32_t id = search_text::kActionOther;
  if (dupeType == EXACT_DUPE) id = search_text::kActionExact;
  else if (dupeType == COMPATIBLE_DUPE) id = search_text::kActionCompatible;
  else if (dupeType == CONFLICT_DUPE) id = search_text::kActionConflict;
  if (progress_) {
    progress_->SetActionText(id);
    progress_->UpdateProgress(search_text::kReadingCards, 0, 0);
  }
}

std::shared_ptr<CCard> CDupeSearch::LoadCard(int32_t cardId) {
  try {
    CCardStoreMgr& mgr = Mgr();
    auto card = mgr.GetCard(cardId);
    if (card) card->tag = Tag(*card, mgr.GetValue(cardId, "First Name"));
    return card;
  } catch (...) {
    failedCardId_ = cardId;
    throw;
  }
}

std::shared_ptr<CList> CDupeSearch::GetAllCards() {
  CCardStoreMgr& mgr = Mgr();
  const auto snapshot = mgr.HoldSnapshot();  // one state of the store for the whole read
  auto named = std::make_shared<CList>();
  auto nameless = std::make_shared<CList>();
  int32_t total = mgr.GetNumberOfCards();
  auto place = [&](std::shared_ptr<CCard> card) {
    (card->FieldText("Name").empty() ? nameless : named)->AddItem(std::move(card));
  };
  if (ICardStore* store = ScanningStore()) {
    std::string customFields = mgr.GetCustomFields();
    int32_t i = 0;
    Scan(*store, [&](int32_t id, const ICardValues& values) {
      if (++i > total || !UpdateProgress(search_text::kReadingCards, i, total)) return false;
      try {
        auto card = mgr.BuildCard(id, customFields, values);
        card->tag = Tag(*card, values.Get("First Name"));
        place(std::move(card));
      } catch (...) {
        failedCardId_ = id;
        throw;
      }
      return true;
    });
  } else {
    for (int32_t i = 1; i <= total; ++i) {
      if (!UpdateProgress(search_text::kReadingCards, i, total)) break;
      place(LoadCard(mgr.GetCardID(i - 1)));
    }
  }
  nameless->Append(*named);
  return nameless;
}

void CDupeSearch::ScanStep(ICardStore& store, int32_t parts, int32_t resourceId, int32_t total,
                           const std::function<bool(int32_t id)>& wanted,
                           const std::function<void(int32_t part, int32_t id, const ICardValues& values)>& work,
                           std::span<const int32_t> partStarts) {
  if (parts <= 1) {
    int32_t done = 0;
    dupes_internal::Scan(store, [&](int32_t id, const ICardValues& values) {
      if (wanted && !wanted(id)) return true;
      if (++done > total || !UpdateProgress(resourceId, done, total)) return false;
      work(0, id, values);
      return done < total;
    });
    return;
  }
  // Part 0 reports for all parts; the others only look out for a stop.
  int32_t partZeroDone = 0, reported = 0;
  std::atomic<bool> halt{false};
  // The store passes over the cards not wanted without reading them.
  dupes_internal::ScanInParts(store, parts, [&](int32_t part, int32_t id, const ICardValues& values) {
    if (part == 0) {
      reported = dupes_internal::PartProgress(++partZeroDone, parts, total);
      if (!UpdateProgress(resourceId, reported, total)) halt = true;
    }
    if (halt.load(std::memory_order_relaxed)) return false;
    work(part, id, values);
    return true;
  }, partStarts, wanted, [&] {
    // Part 0 is done and the others go on: the reports go on too, and a stop reaches them.
    if (!halt && !ReportAgain()) halt = true;
  });
  if (!halt && reported < total) UpdateProgress(resourceId, total, total);
}

std::shared_ptr<CList> CDupeSearch::GetSuspectCards() {
  const auto snapshot = Mgr().HoldSnapshot();  // one state of the store for both passes
  return ReadSuspects(nullptr);
}

std::shared_ptr<CList> CDupeSearch::ReadSuspects(std::vector<dupes_internal::CardFacts>* facts) {
  auto start = Clock::now();
  int32_t total = Mgr().GetNumberOfCards();
  std::vector<int32_t> partStarts;
  std::vector<int32_t> ids = FindSuspectIds(total, partStarts);
  timings_.suspects += SecondsSince(start);
  if (stopped_) return nullptr;
  start = Clock::now();
  auto list = LoadSuspects(ids, total, partStarts, facts);
  timings_.loading += SecondsSince(start);
  if (stopped_ || !list) return nullptr;
  Trap(list->GetNumItems() != static_cast<int32_t>(ids.size()), "Failed to identify correctly the duplicate cards");
  return list;
}

}  // namespace ombrel
