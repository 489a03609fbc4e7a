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
// FindDupes walks the sorted cards once. Cards taken into a set leave the
// list; a skip table jumps over them. A card with a last name scans forward
// only while last names agree (the list is sorted); a card without one would
// scan to the end, so its candidates, the later cards with the same e-mail
// text or tag, are taken from two indexes, in list order.
#include <algorithm>
#include <chrono>
#include <unordered_map>
#include <vector>

#include "dupes/dupes_internal.h"
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

// Smallest position >= x still in the list (positions 0..n-1; n when none).
class SkipTable {
 public:
  explicit SkipTable(size_t n) : next_(n + 1) {
    for (size_t i = 0; i <= n; ++i) next_[i] = static_cast<int32_t>(i);
  }
  int32_t Next(int32_t x) {
    int32_t root = x;
    while (next_[root] != root) root = next_[root];
    while (next_[x] != root) {
      int32_t up = next_[x];
      next_[x] = root;
      x = up;
    }
    return root;
  }
  void Remove(int32_t x) { next_[x] = x + 1; }
  bool Present(int32_t x) const { return next_[x] == x; }

 private:
  std::vector<int32_t> next_;
};

// The order the binary insertion gives: result[k] is the input index of the
// card that ends at position k + 1.
std::vector<int32_t> InsertionOrder(const std::vector<std::shared_ptr<CCard>>& input) {
  const int32_t n = static_cast<int32_t>(input.size());
  // Rank every card by its tag among the distinct tags (exact byte order).
  std::vector<int32_t> order(static_cast<size_t>(n));
  for (int32_t i = 0; i < n; ++i) order[i] = i;
  std::sort(order.begin(), order.end(), [&](int32_t a, int32_t b) { return input[a]->tag < input[b]->tag; });
  std::vector<int32_t> rank(static_cast<size_t>(n));
  int32_t distinct = 0;
  for (int32_t k = 0; k < n; ++k) {
    if (k > 0 && input[order[k]]->tag != input[order[k - 1]]->tag) ++distinct;
    rank[order[k]] = distinct;
  }
  const size_t ranks = n > 0 ? static_cast<size_t>(distinct) + 1 : 0;

  Fenwick placedBelow(ranks);
  std::vector<std::vector<int32_t>> runs(ranks);
  int32_t placed = 0;
  for (int32_t idx = n - 1; idx >= 0; --idx) {
    const int32_t r = rank[idx];
    const int32_t smaller = placedBelow.CountBelow(static_cast<size_t>(r));
    const int32_t equal = static_cast<int32_t>(runs[r].size());
    int32_t position = 1;  // where the card ends up, 1-based
    if (placed > 0) {
      int32_t low = 1, high = placed;
      while (true) {
        Trap(low > high, "Insertion sort failed");
        int32_t probe = RoundHalfEven(low + (high - low) / 2.0);
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
    runs[r].insert(runs[r].begin() + (position - smaller - 1), idx);
    placedBelow.Add(static_cast<size_t>(r));
    ++placed;
  }

  std::vector<int32_t> result;
  result.reserve(static_cast<size_t>(n));
  for (const auto& run : runs) result.insert(result.end(), run.begin(), run.end());
  return result;
}

}  // namespace

void CDupeSearch::SortCards(CList& cards) {
  auto start = Clock::now();
  const int32_t n = cards.GetNumItems();
  std::vector<std::shared_ptr<CCard>> input;
  input.reserve(static_cast<size_t>(n));
  for (int32_t i = 1; i <= n; ++i) input.push_back(cards.GetItemAs<CCard>(i));
  for (auto& card : input)
    if (card->tag.empty()) card->tag.assign(1, ',');

  std::vector<int32_t> result;
  // The order depends on nothing but the sequence of tags: sorting the same
  // suspects again for another dupe type reuses it.
  if (lastSortTags_.size() == input.size() &&
      std::equal(input.begin(), input.end(), lastSortTags_.begin(), lastSortTags_.end(),
                 [](const std::shared_ptr<CCard>& c, const std::string& seen) { return c->tag == seen; })) {
    result = lastSortOrder_;
  } else {
    result = InsertionOrder(input);
    lastSortTags_.clear();
    for (const auto& c : input) lastSortTags_.push_back(c->tag);
    lastSortOrder_ = result;
  }

  cards.RemoveAll();
  std::vector<CCard*> sorted;
  sorted.reserve(static_cast<size_t>(n));
  for (int32_t idx : result) {
    sorted.push_back(input[idx].get());
    cards.AddItem(input[idx]);
  }
  for (int32_t pos = 1; pos < n; ++pos) {
    CCard* card = sorted[pos - 1];
    if (card->tag > sorted[pos]->tag) RaiseTrap("Sorting problem at index: " + std::to_string(pos));
    if (card->tag == ",") card->tag.clear();
  }
  timings_.sorting += SecondsSince(start);
}

std::shared_ptr<CList> CDupeSearch::FindDupes(int32_t dupeType, CList& cards) {
  auto named = std::make_shared<CList>();
  named->RestrictType("CDupeSet");
  if (cards.GetNumItems() == 0) return named;
  SortCards(cards);
  auto start = Clock::now();
  SetActionText(dupeType);

  const int32_t total = cards.GetNumItems();
  std::vector<std::shared_ptr<CCard>> card(static_cast<size_t>(total));
  for (int32_t i = 1; i <= total; ++i) card[i - 1] = cards.GetItemAs<CCard>(i);
  std::vector<const std::string*> last(card.size()), email(card.size()), tag(card.size());
  for (size_t p = 0; p < card.size(); ++p) {
    last[p] = &card[p]->GetLastName();
    email[p] = &card[p]->FieldText("Email");
    tag[p] = &card[p]->tag;
  }

  // A card without a last name is offered the later cards with the same tag
  // or the same e-mail text. Equal tags sit together in the sorted list; the
  // e-mails are indexed, but only those that such a card carries.
  bool indexed = false;
  std::unordered_map<std::string_view, std::vector<int32_t>> byEmail;
  std::vector<int32_t> tagRunEnd;  // one past the last position with the same tag
  auto buildIndex = [&] {
    tagRunEnd.resize(static_cast<size_t>(total));
    for (int32_t p = total - 1; p >= 0; --p)
      tagRunEnd[p] = (p + 1 < total && *tag[p + 1] == *tag[p]) ? tagRunEnd[p + 1] : p + 1;
    for (int32_t p = 0; p < total; ++p)
      if (last[p]->empty() && !email[p]->empty()) byEmail.try_emplace(*email[p]);
    for (int32_t p = 0; p < total; ++p) {
      if (email[p]->empty()) continue;
      auto it = byEmail.find(*email[p]);
      if (it != byEmail.end()) it->second.push_back(p);
    }
    indexed = true;
  };

  SkipTable present(static_cast<size_t>(total));
  int32_t remaining = total;  // the list's current count
  int32_t keptBefore = 0;     // cards before the current one that stayed in the list
  std::vector<std::shared_ptr<CDupeSet>> namedSets, namelessSets;

  for (int32_t p = present.Next(0); p < total; p = present.Next(p + 1)) {
    const int32_t i = keptBefore + 1;
    if (!UpdateProgress(search_text::kGroupingCards, total + i - remaining, total)) break;
    // The set is made when its first candidate comes up: a card with none
    // would only make a set of one, which is dropped unseen.
    std::shared_ptr<CDupeSet> set;
    bool go = true;
    auto offer = [&](int32_t q) {
      if (!set) {
        set = std::make_shared<CDupeSet>();
        set->Init(card[p], dupeType);
      }
      if (!set->AddCardIfDupe(card[q])) return;
      present.Remove(q);
      --remaining;
      go = UpdateProgress(search_text::kGroupingCards, total + i - remaining, total);
    };
    auto wanted = [&](int32_t q) {
      return (!email[p]->empty() && *email[p] == *email[q]) || *tag[p] == *tag[q];
    };

    if (!last[p]->empty()) {
      for (int32_t q = present.Next(p + 1); go && q < total; q = present.Next(q + 1)) {
        if (!last[q]->empty() && *last[q] != *last[p]) break;
        if (wanted(q)) offer(q);
      }
    } else {
      if (!indexed) buildIndex();
      static const std::vector<int32_t> kNone;
      const std::vector<int32_t>* byMail = &kNone;
      if (!email[p]->empty()) byMail = &byEmail.find(*email[p])->second;
      auto ia = std::upper_bound(byMail->begin(), byMail->end(), p);
      // The run of equal tags after p, then merged with the e-mail candidates in list order.
      const int32_t tagEnd = tagRunEnd[p];
      int32_t qt = present.Next(p + 1);
      while (go) {
        bool tagLeft = qt < tagEnd;
        bool mailLeft = ia != byMail->end();
        if (!tagLeft && !mailLeft) break;
        int32_t q;
        if (tagLeft && (!mailLeft || qt <= *ia)) {
          q = qt;
          if (mailLeft && *ia == qt) ++ia;
          qt = present.Next(qt + 1);
        } else {
          q = *ia++;
          if (!present.Present(q)) continue;
        }
        offer(q);
      }
    }
    if (!go) break;  // stopped while the set was still growing: it is not finished

    if (!set || set->GetNumberOfCards() < 2) {
      ++keptBefore;
      continue;
    }
    (set->GetPrimaryCard()->FieldText("Name").empty() ? namelessSets : namedSets).push_back(set);
    present.Remove(p);
    --remaining;
    if (!UpdateProgress(search_text::kGroupingCards, total + i - remaining, total)) break;
  }

  // The caller's list keeps the cards that joined no set.
  cards.RemoveAll();
  for (int32_t p = present.Next(0); p < total; p = present.Next(p + 1)) cards.AddItem(card[p]);
  for (auto& set : namedSets) named->AddItem(set);
  for (auto& set : namelessSets) named->AddItem(set);
  timings_.grouping += SecondsSince(start);
  return named;
}

}  // namespace ombrel
