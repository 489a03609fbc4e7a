// CDupeSearch: reads the connected store through CardStoreMgr(), narrows the
// cards to those that share a name or e-mail key with another card (the
// suspects), sorts them by their tag (last name, comma, first name) and
// walks the sorted list forming dupe sets of one requested type.
//
// The search owns no window: it reports progress (a resource number, done,
// total) to an ISearchProgress and asks it whether to go on, so the wizard's
// progress window, the command line and tests all drive the same loops.
// Once stopped, every loop ends at its next progress report.
//
// The results are those of the plain algorithm (list walks, one store call
// per value); only the costs differ: stores that offer a scan are read in
// one pass, the binary insertion sort is replayed with counts instead of
// list walks, and the grouping jumps over cards already taken.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ombrel/foundation/clist.h"
#include "ombrel/foundation/error.h"

namespace ombrel {

class CCard;
class ICardStore;
class ICardValues;
namespace dupes_internal {
struct GroupingReports;
struct CardFacts;
}

// Resource numbers of the search's texts.
namespace search_text {
inline constexpr int32_t kActionOther = 701;
inline constexpr int32_t kActionExact = 702;
inline constexpr int32_t kActionCompatible = 703;
inline constexpr int32_t kActionConflict = 704;
inline constexpr int32_t kReadingCards = 705;   // "%1" done of "%2"
inline constexpr int32_t kGroupingCards = 706;  // "%1" done of "%2"
inline constexpr int32_t kLoadingSuspects = 707;
inline constexpr int32_t kCancelCaption = 902;
}  // namespace search_text

// The search calls its progress only on the thread that called it, however
// many threads it works on, and at least every fifth of a second or so while
// it works, so that a stop is seen soon (work with no count of its own
// repeats the last report).
class ISearchProgress {
 public:
  virtual ~ISearchProgress() = default;
  // The search starts a new kind of work (resource 701..704 names it).
  virtual void SetActionText(int32_t actionResourceId) { (void)actionResourceId; }
  // Progress of the current work; answers false to stop the search.
  virtual bool UpdateProgress(int32_t resourceId, int32_t done, int32_t total) = 0;
};

// The rule by which a progress display appears only for slow work: after
// more than a second when less than 80% is done, and in any case after
// three seconds.
bool ShouldShowProgress(int64_t elapsedSeconds, int32_t done, int32_t total);

struct SearchTimings {
  double suspects = 0;  // key pass over the store
  double loading = 0;   // reading the suspect cards
  double sorting = 0;
  double grouping = 0;
  int64_t wordTests = 0;  // word tests the grouping ran, every type together
};

class CDupeSearch {
 public:
  explicit CDupeSearch(ISearchProgress* progress = nullptr);

  // Every card of the store: the cards whose "Name" is empty first, then the
  // others, each group in store order. What was read so far when stopped.
  std::shared_ptr<CList> GetAllCards();
  // The cards that share a key with another card; null when stopped.
  std::shared_ptr<CList> GetSuspectCards();
  // Dupe sets of one type out of cards (which are consumed): sets whose
  // primary has a name first, then the nameless ones, each in creation order.
  std::shared_ptr<CList> FindDupes(int32_t dupeType, CList& cards);
  // FindDupes of each type in turn, each as if given a fresh copy of cards
  // with their tags as they are now; found receives each type's sets as soon
  // as they are made (null for the types not reached once stopped). The
  // cards are sorted once for all types.
  void FindDupesOfTypes(const std::vector<int32_t>& dupeTypes, const CList& cards,
                        const std::function<void(int32_t dupeType, std::shared_ptr<CList> sets)>& found);
  // GetSuspectCards, then FindDupesOfTypes on the suspects, which nobody can
  // change in between: what was learned of each card as it was read serves
  // the grouping. Answers the suspects, or null when stopped while reading
  // them (found then receives null for every type).
  std::shared_ptr<CList> FindDupesInStore(const std::vector<int32_t>& dupeTypes,
                                          const std::function<void(int32_t dupeType, std::shared_ptr<CList> sets)>& found);
  // Whether FindDupesInStore reads the suspects as deferred cards
  // (CCard::Deferred), each checked as it is read but built only when its
  // fields are first asked for: the grouping compares what it learned while
  // reading, so a caller that lists the sets' card IDs, or looks into a few
  // sets, never pays for building the others. On unless turned off; a
  // caller that reads every card's fields anyway saves nothing by it.
  void SetDeferCards(bool defer) { deferCards_ = defer; }
  void StopSearch();
  bool IsStopped() const { return stopped_; }
  std::shared_ptr<CCard> LoadCard(int32_t cardId);
  void SetActionText(int32_t dupeType);
  bool UpdateProgress(int32_t resourceId, int32_t done, int32_t total);
  void SortCards(CList& cards);

  // The tables the last search's walks worked on (a few hundred bytes a
  // suspect) stay with the search until it is destroyed or searches again.
  // A caller about to end its process takes them here and lets them be,
  // rather than wait while they are taken apart.
  std::shared_ptr<void> TakeWorkingTables() { return std::move(workingTables_); }

  // The ID of the card whose reading raised the last error, 0 when none did.
  int32_t FailedCardId() const { return failedCardId_; }
  // e as the user is told of it: naming the card whose reading raised it.
  Error NamingFailedCard(const Error& e) const;
  const SearchTimings& Timings() const { return timings_; }

 private:
  // The suspects' IDs; partStarts receives, for reading them in parts, the
  // suspects at which parts after the first begin so each gets as many.
  std::vector<int32_t> FindSuspectIds(int32_t total, std::vector<int32_t>& partStarts);
  // GetSuspectCards; facts, when given, receives what each card showed as
  // it was built, in list order (left empty when the store was read card by card).
  std::shared_ptr<CList> ReadSuspects(std::vector<dupes_internal::CardFacts>* facts);
  void GroupTypes(const std::vector<int32_t>& dupeTypes, const CList& cards,
                  std::vector<dupes_internal::CardFacts>* facts,
                  const std::function<void(int32_t dupeType, std::shared_ptr<CList> sets)>& found);
  // Where a grouping walk on this thread reports.
  dupes_internal::GroupingReports Reports();
  // The last report again, during work that has no count of its own: the
  // progress answers whether to go on.
  bool ReportAgain();
  // The cards in SortCards' order, with the sort's tag clean-up done.
  // order, when given, receives the input position of each sorted card.
  // meanwhile, when given, runs on this thread while another works out the
  // order of many cards; it gets the cards and their tags in input order
  // ("," standing for none).
  std::vector<std::shared_ptr<CCard>> SortedCards(
      const CList& cards, std::vector<int32_t>* order = nullptr,
      const std::function<void(std::span<const std::shared_ptr<CCard>> cards, std::span<const std::string_view> tags)>&
          meanwhile = {});
  // The suspects of a store of total cards, in the order of ids.
  std::shared_ptr<CList> LoadSuspects(const std::vector<int32_t>& ids, int32_t total,
                                      std::span<const int32_t> partStarts,
                                      std::vector<dupes_internal::CardFacts>* facts);
  // One pass of the search over a scanning store, in parts cards at once:
  // work(part, id, values) for every card wanted (every card when wanted is
  // empty), with progress (resourceId, done, of total) counted over those;
  // partStarts as ICardStore::ScanCardsInParts takes it.
  void ScanStep(ICardStore& store, int32_t parts, int32_t resourceId, int32_t total,
                const std::function<bool(int32_t id)>& wanted,
                const std::function<void(int32_t part, int32_t id, const ICardValues& values)>& work,
                std::span<const int32_t> partStarts = {});

  ISearchProgress* progress_;
  // The tags of the last sort's input, in order, and the order it gave.
  std::string lastSortTags_;          // one after the other
  std::vector<uint32_t> lastSortEnds_;  // where each ends
  std::vector<int32_t> lastSortOrder_;
  std::shared_ptr<void> workingTables_;
  bool stopped_ = false;
  bool deferCards_ = true;
  int32_t lastReport_[3] = {0, 0, 0};  // resource, done, total
  int32_t failedCardId_ = 0;
  SearchTimings timings_;
};

}  // namespace ombrel
