// SortCards and FindDupes.
//
// SortCards gives exactly the order of a binary insertion sort that takes the
// cards from the end of the input and probes at round-half-even midpoints.
// Which of several equal tags a card lands beside depends on the probes, so
// the loop is replayed, but without walking a list: the outcome of comparing
// a card's tag with the one at any position follows from two counts, the
// number of cards already placed with a smaller tag and with an equal one,
// kept in a Fenwick tree over the distinct tags. Cards with equal tags live
// in one small run each.
//
// FindDupes then walks the sorted cards once (dupes/grouping.cpp).
#include <algorithm>
#include <chrono>
#include <cstring>
#include <atomic>
#include <functional>
#include <memory>
#include <future>
#include <thread>
#include <string>
#include <string_view>
#include <vector>

#include "dupes/dupes_internal.h"
#include "dupes/grouping.h"
#include "ombrel/cards/ccard.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/dupes/dupe_search.h"
#include "ombrel/foundation/error.h"
#include "ombrel/foundation/messages.h"

namespace ombrel {

using dupes_internal::Clock;
using dupes_internal::SecondsSince;

namespace {

class Fenwick {
 public:
  explicit Fenwick(size_t n) : tree_(n + 1, 0) {}
  void Add(size_t index) {  // 0-based
    for (size_t i = index + 1; i < tree_.size(); i += i & (~i + 1)) ++tree_[i];
  }
  int32_t CountBelow(size_t index) const {  // entries with index < given
    int32_t sum = 0;
    for (size_t i = index; i > 0; i -= i & (~i + 1)) sum += tree_[i];
    return sum;
  }

 private:
  std::vector<int32_t> tree_;
};

// The probe of the insertion loop: low + (high - low) / 2 rounded half to
// even, in whole numbers (low >= 1, high >= low).
int32_t Probe(int32_t low, int32_t high) {
  const int32_t gap = high - low;
  if (gap % 2 == 0) return low + gap / 2;
  const int32_t below = low + gap / 2;  // the midpoint is below + 0.5
  return below % 2 == 0 ? below : below + 1;
}

// A tag's first sixteen bytes as two numbers that order as the bytes do,
// with its length: two tags of sixteen bytes or fewer compare by these
// alone; longer ones equal in them are told apart by the full comparison.
struct SortKey {
  uint64_t high = 0, low = 0;
  uint32_t length = 0;
  int32_t index = 0;
};

uint64_t BigEndian(const unsigned char* bytes) {
  uint64_t value = 0;
  for (int i = 0; i < 8; ++i) value = value << 8 | bytes[i];
  return value;
}

SortKey KeyOf(std::string_view tag, int32_t index) {
  unsigned char bytes[16] = {};
  std::memcpy(bytes, tag.data(), std::min<size_t>(tag.size(), 16));
  return {BigEndian(bytes), BigEndian(bytes + 8), static_cast<uint32_t>(std::min<size_t>(tag.size(), UINT32_MAX)), index};
}

// The order the binary insertion gives: result[k] is the input index of the
// card that ends at position k + 1.
std::vector<int32_t> InsertionOrder(const std::vector<std::string_view>& tags) {
  const int32_t n = static_cast<int32_t>(tags.size());
  // Rank every card by its tag among the distinct tags (exact byte order).
  std::vector<SortKey> order(static_cast<size_t>(n));
  for (int32_t i = 0; i < n; ++i) order[static_cast<size_t>(i)] = KeyOf(tags[static_cast<size_t>(i)], i);
  // -1, 0 or 1 as tag a is below, equal to or above tag b.
  auto compare = [&](const SortKey& a, const SortKey& b) {
    if (a.high != b.high) return a.high < b.high ? -1 : 1;
    if (a.low != b.low) return a.low < b.low ? -1 : 1;
    if (a.length <= 16 && b.length <= 16) return a.length == b.length ? 0 : a.length < b.length ? -1 : 1;
    const int c = tags[static_cast<size_t>(a.index)].compare(tags[static_cast<size_t>(b.index)]);
    return c < 0 ? -1 : c > 0 ? 1 : 0;
  };
  std::sort(order.begin(), order.end(), [&](const SortKey& a, const SortKey& b) { return compare(a, b) < 0; });
  std::vector<int32_t> rank(static_cast<size_t>(n));
  int32_t distinct = 0;
  for (size_t k = 0; k < order.size(); ++k) {
    if (k > 0 && compare(order[k], order[k - 1]) != 0) ++distinct;
    rank[static_cast<size_t>(order[k].index)] = distinct;
  }
  const size_t ranks = n > 0 ? static_cast<size_t>(distinct) + 1 : 0;

  // Each rank's run has a known final length: the runs lie side by side in
  // one array, each from where the smaller ranks' runs end.
  std::vector<int32_t> runStart(ranks + 1, 0);
  for (int32_t r : rank) ++runStart[static_cast<size_t>(r) + 1];
  for (size_t r = 0; r < ranks; ++r) runStart[r + 1] += runStart[r];
  std::vector<int32_t> runLength(ranks, 0);
  std::vector<int32_t> result(static_cast<size_t>(n));

  Fenwick placedBelow(ranks);
  int32_t placed = 0;
  for (int32_t idx = n - 1; idx >= 0; --idx) {
    const auto r = static_cast<size_t>(rank[static_cast<size_t>(idx)]);
    const int32_t smaller = placedBelow.CountBelow(r);
    const int32_t equal = runLength[r];
    int32_t position = 1;  // where the card ends up, 1-based
    if (placed > 0) {
      int32_t low = 1, high = placed;
      while (true) {
        Trap(low > high, "Insertion sort failed");
        const int32_t probe = Probe(low, high);
        if (probe > smaller && probe <= smaller + equal) {  // equal tag
          position = probe;
          break;
        }
        if (probe > smaller + equal) {  // the card's tag is smaller
          if (probe == low) {
            position = probe;
            break;
          }
          high = probe - 1;
        } else {  // the card's tag is greater
          if (probe == high) {
            position = probe + 1;
            break;
          }
          low = probe + 1;
        }
      }
    }
    int32_t* run = result.data() + runStart[r];
    const int32_t at = position - smaller - 1;
    std::memmove(run + at + 1, run + at, static_cast<size_t>(equal - at) * sizeof(int32_t));
    run[at] = idx;
    ++runLength[r];
    placedBelow.Add(r);
    ++placed;
  }
  return result;
}

std::shared_ptr<CList> NoSets() {
  auto none = std::make_shared<CList>();
  none->RestrictType("CDupeSet");
  return none;
}

}  // namespace

std::vector<std::shared_ptr<CCard>> CDupeSearch::SortedCards(
    const CList& cards, std::vector<int32_t>* order,
    const std::function<void(std::span<const std::shared_ptr<CCard>>, std::span<const std::string_view>)>& meanwhile) {
  auto start = Clock::now();
  const int32_t n = cards.GetNumItems();
  std::vector<std::shared_ptr<CCard>> input;
  input.reserve(static_cast<size_t>(n));
  // The tags side by side in one buffer: the sort compares them many times
  // over, and the cards themselves, scattered in memory, are visited once.
  std::string arena;
  arena.reserve(static_cast<size_t>(n) * 16);
  std::vector<uint32_t> ends;
  ends.reserve(static_cast<size_t>(n));
  // The cards lie all over memory and reaching them is nearly all this
  // loop's work: each card, then its tag's text, is asked for a few places
  // ahead of its turn.
  std::vector<const CObject*> ahead;
  ahead.reserve(static_cast<size_t>(n));
  cards.ForEachItem([&](const CObject* item) { ahead.push_back(item); });
  constexpr size_t kCardsAhead = 16, kTagsAhead = 8;
  for (int32_t i = 1; i <= n; ++i) {
    const auto k = static_cast<size_t>(i - 1);
    if (k + kCardsAhead < ahead.size()) __builtin_prefetch(ahead[k + kCardsAhead]);
    if (k + kTagsAhead < ahead.size()) {
      if (const auto* next = dynamic_cast<const CCard*>(ahead[k + kTagsAhead])) __builtin_prefetch(next->tag.data());
    }
    auto card = cards.GetItemAs<CCard>(i);
    if (card->tag.empty()) card->tag.assign(1, ',');
    arena += card->tag;
    ends.push_back(static_cast<uint32_t>(arena.size()));
    input.push_back(std::move(card));
  }
  std::vector<std::string_view> tags(input.size());
  for (size_t k = 0, begin = 0; k < input.size(); begin = ends[k++]) tags[k] = std::string_view(arena).substr(begin, ends[k] - begin);

  // The order depends on nothing but the sequence of tags: sorting the same
  // suspects again for another dupe type reuses it.
  const bool known = lastSortEnds_ == ends && lastSortTags_ == arena;
  std::vector<int32_t> result;
  if (known) {
    result = lastSortOrder_;
    if (meanwhile) meanwhile(input, tags);
  } else if (meanwhile && n >= dupes_internal::PartScanThreshold() && std::thread::hardware_concurrency() >= 2) {
    // Both threads only read the tags and cards until the order is known.
    auto sorting = std::async(std::launch::async, [&] { return InsertionOrder(tags); });
    meanwhile(input, tags);
    // For many cards a stop is seen while the order is worked out; it ends
    // the search once it is.
    if (input.size() >= dupes_internal::CheckInEvery())
      while (sorting.wait_for(std::chrono::milliseconds(50)) != std::future_status::ready) ReportAgain();
    result = sorting.get();
  } else {
    result = InsertionOrder(tags);
    if (meanwhile) meanwhile(input, tags);
  }

  std::vector<std::shared_ptr<CCard>> sorted;
  sorted.reserve(static_cast<size_t>(n));
  for (int32_t idx : result) sorted.push_back(std::move(input[static_cast<size_t>(idx)]));
  // Checked in two halves side by side for many cards: the tags and cards
  // lie all over memory. The first position out of order is the one named.
  std::atomic<int32_t> outOfOrder{n};
  const bool halves = n >= dupes_internal::PartScanThreshold() && std::thread::hardware_concurrency() >= 2;
  dupes_internal::InHalves(static_cast<size_t>(std::max(n - 1, 0)), halves, [&](size_t from, size_t to) {
    for (auto pos = static_cast<int32_t>(from) + 1; pos <= static_cast<int32_t>(to); ++pos) {
      if (tags[static_cast<size_t>(result[pos - 1])] > tags[static_cast<size_t>(result[pos])]) {
        int32_t seen = outOfOrder.load();
        while (pos < seen && !outOfOrder.compare_exchange_weak(seen, pos)) {
        }
        return;
      }
      if (tags[static_cast<size_t>(result[pos - 1])] == ",") sorted[static_cast<size_t>(pos - 1)]->tag.clear();
    }
  });
  if (outOfOrder < n) RaiseTrap("Sorting problem at index: " + std::to_string(outOfOrder.load()));
  if (!known) {
    lastSortTags_ = std::move(arena);  // the views above are not used from here on
    lastSortEnds_ = std::move(ends);
    lastSortOrder_ = result;
  }
  if (order) *order = std::move(result);
  timings_.sorting += SecondsSince(start);
  return sorted;
}

void CDupeSearch::SortCards(CList& cards) {
  auto sorted = SortedCards(cards);
  cards.RemoveAll();
  for (auto& card : sorted) cards.AddItem(std::move(card));
}

std::shared_ptr<CList> CDupeSearch::FindDupes(int32_t dupeType, CList& cards) {
  if (cards.GetNumItems() == 0) return NoSets();
  auto sortedCards = SortedCards(cards);
  auto start = Clock::now();
  dupes_internal::SortedSuspects sorted(std::move(sortedCards));
  std::vector<int32_t> kept;
  auto sets = dupes_internal::GroupSortedCards(Reports(), dupeType, sorted, &kept);
  // The caller's list keeps the cards that joined no set.
  cards.RemoveAll();
  for (int32_t p : kept) cards.AddItem(sorted.Card(p));
  timings_.grouping += SecondsSince(start);
  timings_.wordTests += sorted.WordTests();
  return sets;
}

void CDupeSearch::FindDupesOfTypes(const std::vector<int32_t>& dupeTypes, const CList& cards,
                                   const std::function<void(int32_t, std::shared_ptr<CList>)>& found) {
  GroupTypes(dupeTypes, cards, nullptr, found);
}

std::shared_ptr<CList> CDupeSearch::FindDupesInStore(const std::vector<int32_t>& dupeTypes,
                                                     const std::function<void(int32_t, std::shared_ptr<CList>)>& found) {
  const auto snapshot = dupes_internal::Mgr().HoldSnapshot();  // one state of the store for the whole search
  std::vector<dupes_internal::CardFacts> facts;
  auto suspects = ReadSuspects(&facts);
  if (!suspects) {
    for (int32_t type : dupeTypes) found(type, nullptr);
    return nullptr;
  }
  GroupTypes(dupeTypes, *suspects, &facts, found);
  return suspects;
}

void CDupeSearch::GroupTypes(const std::vector<int32_t>& dupeTypes, const CList& cards,
                             std::vector<dupes_internal::CardFacts>* facts,
                             const std::function<void(int32_t, std::shared_ptr<CList>)>& found) {
  std::vector<int32_t> types = dupeTypes;
  workingTables_.reset();
  if (cards.GetNumItems() == 0) {
    for (int32_t type : types) found(type, NoSets());
    return;
  }
  const bool threads = cards.GetNumItems() >= dupes_internal::PartScanThreshold() &&
                       std::thread::hardware_concurrency() >= 2;
  const bool alongside = types.size() > 1 && threads;
  const bool ahead = facts && facts->size() == static_cast<size_t>(cards.GetNumItems()) && threads;
  // While the cards are sorted, what the walks will compare them by is
  // numbered and, when the walks run side by side, the store is asked (from
  // this thread, as always) about every front image.
  std::future<void> emails;
  if (ahead) emails = std::async(std::launch::async, [&] { dupes_internal::NumberEmails(*facts); });
  auto meanwhile = [&](std::span<const std::shared_ptr<CCard>> input, std::span<const std::string_view> tags) {
    auto numberNames = [&] {
      // The sort empties every tag "," but the last card's: numbered as empty
      // here, the last one is told apart below.
      std::vector<std::string_view> tagsAfterSort(tags.begin(), tags.end());
      for (auto& tag : tagsAfterSort)
        if (tag == ",") tag = {};
      dupes_internal::NumberNamesAndTags(*facts, input, tagsAfterSort);
    };
    if (!alongside) {
      numberNames();
      return;
    }
    // Store calls stay on this thread; the numbering, which sets other
    // members of the facts, goes on beside them (the future waits for it
    // however this thread leaves).
    auto names = std::async(std::launch::async, numberNames);
    dupes_internal::AskFrontImages(dupes_internal::Mgr(), *facts, input);
    names.get();
  };
  // Each type would sort the same tags into the same order: sort once.
  std::vector<int32_t> order;
  auto sortedCards = ahead ? SortedCards(cards, &order, meanwhile) : SortedCards(cards, &order);
  if (emails.valid()) emails.get();
  if (stopped_) {  // while sorting
    for (int32_t type : types) found(type, nullptr);
    return;
  }
  auto start = Clock::now();
  // Numbered facts are handed over as they are, with the order that tells
  // whose they are; others are put in sorted order first.
  std::vector<dupes_internal::CardFacts> handed;
  const bool given = facts && facts->size() == order.size();
  if (given && ahead) {
    handed = std::move(*facts);
    if (sortedCards.back()->tag == ",") {
      int32_t highest = 0;
      for (const auto& f : handed) highest = std::max(highest, f.tagId);
      handed[static_cast<size_t>(order.back())].tagId = highest + 1;  // no other card keeps that tag
    }
  } else if (given) {
    handed.reserve(order.size());
    for (int32_t idx : order) handed.push_back(std::move((*facts)[static_cast<size_t>(idx)]));
  }
  if (facts) facts->clear();
  const std::span<const int32_t> handedOrder = given && ahead ? std::span<const int32_t>(order) : std::span<const int32_t>();
  auto sortedOwner =
      std::make_unique<dupes_internal::SortedSuspects>(std::move(sortedCards), std::move(handed), ahead, handedOrder);
  dupes_internal::SortedSuspects& sorted = *sortedOwner;
  timings_.grouping += SecondsSince(start);
  // Many cards take a while to get here: a stop asked for meanwhile ends the search now.
  if (order.size() >= dupes_internal::CheckInEvery() && !ReportAgain()) {
    for (int32_t type : types) found(type, nullptr);
    workingTables_ = std::move(sortedOwner);
    return;
  }
  if (!alongside) {
    for (int32_t type : types) {
      if (stopped_) {
        found(type, nullptr);
        continue;
      }
      start = Clock::now();
      auto sets = dupes_internal::GroupSortedCards(Reports(), type, sorted, nullptr);
      timings_.grouping += SecondsSince(start);
      found(type, std::move(sets));
    }
    timings_.wordTests += sorted.WordTests();
    workingTables_ = std::move(sortedOwner);
    return;
  }

  // The first type is walked on this thread and every other on a thread of
  // its own, all at once: the walks differ in cost, and one thread taking
  // two of them would leave a core idle at the end. A walk on its own
  // thread reports nothing itself and stops when told; its sets are handed
  // on in their turn, after those of the types before it.
  start = Clock::now();
  sorted.PrepareForThreads();
  struct Background {
    int32_t type = 0;
    std::atomic<int64_t> progress{0};  // done << 32 | total
    std::future<std::shared_ptr<CList>> sets;
  };
  std::vector<std::unique_ptr<Background>> others;
  std::atomic<bool> halt{false};
  // However this thread leaves, the other walks are told to stop before
  // their futures' destructors wait for them.
  struct Halt {
    std::atomic<bool>& flag;
    ~Halt() { flag = true; }
  } haltOnExit{halt};
  for (size_t t = 1; t < types.size(); ++t) {
    auto walk = std::make_unique<Background>();
    walk->type = types[t];
    Background* mine = walk.get();
    walk->sets = std::async(std::launch::async, [&sorted, &halt, mine] {
      dupes_internal::GroupingReports silent{[](int32_t) {}, [&halt, mine](int32_t done, int32_t total) {
                                               mine->progress = (static_cast<int64_t>(done) << 32) | static_cast<uint32_t>(total);
                                               return !halt.load(std::memory_order_relaxed);
                                             }};
      return dupes_internal::GroupSortedCards(silent, mine->type, sorted, nullptr);
    });
    others.push_back(std::move(walk));
  }

  if (!stopped_) found(types.front(), dupes_internal::GroupSortedCards(Reports(), types.front(), sorted, nullptr));
  else found(types.front(), nullptr);
  for (auto& walk : others) {
    if (!stopped_) {
      // Its turn: show its progress while it finishes, and pass a stop on.
      SetActionText(walk->type);
      while (walk->sets.wait_for(std::chrono::milliseconds(10)) != std::future_status::ready) {
        int64_t progress = walk->progress.load();
        auto total = static_cast<int32_t>(progress & 0xFFFFFFFF);
        if (total > 0 && !UpdateProgress(search_text::kGroupingCards, static_cast<int32_t>(progress >> 32), total)) {
          halt = true;
          break;
        }
      }
    }
    if (stopped_) {
      halt = true;
      walk->sets.wait();
      found(walk->type, nullptr);
      continue;
    }
    found(walk->type, walk->sets.get());
  }
  timings_.grouping += SecondsSince(start);
  timings_.wordTests += sorted.WordTests();
  workingTables_ = std::move(sortedOwner);
}

dupes_internal::GroupingReports CDupeSearch::Reports() {
  return {[this](int32_t type) { SetActionText(type); },
          [this](int32_t done, int32_t total) { return UpdateProgress(search_text::kGroupingCards, done, total); }};
}

}  // namespace ombrel
