#include "dupes/grouping.h"

#include <algorithm>
#include <exception>
#include <future>
#include <mutex>
#include <thread>
#include <string_view>

#include "dupes/card_fields.h"
#include "dupes/dupes_internal.h"
#include "dupes/key_table.h"
#include "ombrel/cards/ccard.h"
#include "ombrel/dupes/dupe_search.h"
#include "ombrel/foundation/cstring.h"
#include "ombrel/foundation/error.h"

namespace ombrel::dupes_internal {

namespace {

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

// The facts of a card with those fields, ID (0 for none), last name and
// "Email" text.
template <class Fields>
void Observe(const Fields& fields, int32_t id, bool hasId, const std::string& lastName, std::string_view raw,
             bool withText, CardFacts& facts) {
  const int32_t count = fields.Count();
  bool namedAsKeys = true;
  int32_t filled = 0;
  size_t textLength = 0;
  for (int32_t i = 1; i <= count; ++i) {
    if (namedAsKeys && !fields.NamedAsKey(i)) namedAsKeys = false;
    const std::string_view text = fields.Text(i);
    if (!text.empty()) {  // an empty field adds nothing to the text
      ++filled;
      textLength += CCard::TextLengthOf(fields.Place(i), text);
    }
  }
  facts.namedAsKeys = namedAsKeys;
  facts.filled = filled;
  facts.textLength = static_cast<int32_t>(textLength);  // CCard::TextLength, from the walk above
  facts.id = hasId ? id : 0;
  facts.signatureKnown = hasId;
  facts.signatureHash = hasId ? SignatureHash(id, fields) : 0;
  facts.lastHash = KeyTable::Hash(lastName);
  if (withText) {
    auto text = std::make_shared<CardText>();
    MakeCardText(fields, *text);
    facts.text = std::move(text);
  } else {
    facts.text.reset();
  }
  facts.rawEmail = raw;
  facts.rawEmailHash = KeyTable::Hash(raw);
  facts.email.clear();
  facts.emailIsRaw = false;
  facts.emailHash = 0;
  if (raw.empty()) return;
  auto plain = [](char c) { return static_cast<unsigned char>(c) < 0x80 && !(c >= 'A' && c <= 'Z'); };
  if (!CString::IsWhiteSpace(raw.front()) && !CString::IsWhiteSpace(raw.back()) &&
      std::all_of(raw.begin(), raw.end(), plain)) {
    facts.emailIsRaw = true;
    facts.emailHash = facts.rawEmailHash;
    return;
  }
  facts.email = CString::LowerText(CString::TrimText(raw));
  if (!facts.email.empty()) facts.emailHash = KeyTable::Hash(facts.email);
}

}  // namespace

void ObserveCard(const CCard& card, CardFacts& facts, bool withText) {
  const bool hasId = card.HasCardId();
  const std::string& raw = card.FieldText("Email");
  Observe(FieldsOfCard(card), hasId ? card.GetCardID() : 0, hasId, card.GetLastName(), raw, withText, facts);
  facts.readFields.reset();  // the field test asks a built card itself
}

void ObserveRead(const std::shared_ptr<const CCard>& layout, std::shared_ptr<const CCardStoreMgr::ReadFields> fields,
                 int32_t id, const std::string& lastName, bool withText, CardFacts& facts) {
  const FieldsRead read(layout, *fields);
  const int32_t email = read.EmailPosition(), name = read.NamePosition();
  Trap(email == 0 || name == 0, "A card layout without the catalogue fields");
  Observe(read, id, true, lastName, read.Text(email), withText, facts);
  facts.readFields = std::move(fields);
  facts.nameEmpty = read.Text(name).empty() ? 1 : 0;
}

namespace {

// Numbers texts of one kind in a table of their own; the numbers only say
// which texts are equal.
template <class Text, class Hash>
void Number(std::span<CardFacts> facts, int32_t CardFacts::*member, Text text, Hash hash) {
  KeyTable table(facts.size(), true);  // the texts outlive this call
  for (size_t k = 0; k < facts.size(); ++k) {
    std::string_view key = text(k);
    facts[k].*member = key.empty() ? 0 : table.Intern(key, hash(k), static_cast<int32_t>(table.Size()) + 1);
  }
}

}  // namespace

void NumberNamesAndTags(std::span<CardFacts> facts, std::span<const std::shared_ptr<CCard>> cards,
                        std::span<const std::string_view> tags) {
  Number(facts, &CardFacts::lastId, [&](size_t k) -> std::string_view { return cards[k]->GetLastName(); },
         [&](size_t k) { return facts[k].lastHash; });
  Number(facts, &CardFacts::tagId, [&](size_t k) { return tags[k]; }, [&](size_t k) { return KeyTable::Hash(tags[k]); });
}

void NumberEmails(std::span<CardFacts> facts) {
  Number(facts, &CardFacts::rawEmailId, [&](size_t k) { return facts[k].rawEmail; },
         [&](size_t k) { return facts[k].rawEmailHash; });
  Number(facts, &CardFacts::emailId, [&](size_t k) { return facts[k].Email(); },
         [&](size_t k) { return facts[k].emailHash; });
}

void AskFrontImages(CCardStoreMgr& mgr, std::span<CardFacts> facts, std::span<const std::shared_ptr<CCard>> cards) {
  for (size_t k = 0; k < facts.size(); ++k) {
    try {
      const int32_t id = facts[k].id != 0 ? facts[k].id : cards[k]->GetCardID();
      facts[k].frontImage = mgr.HasFrontImage(id) ? 1 : 0;
    } catch (...) {
      facts[k].frontImageError = std::current_exception();
    }
  }
}

SortedSuspects::SortedSuspects(std::vector<std::shared_ptr<CCard>> sorted, std::vector<CardFacts> facts,
                               bool numbered, std::span<const int32_t> factsOrder)
    : cards_(std::move(sorted)),
      profiles_(cards_.size()),
      texts_(cards_.size()),
      textOf_(std::make_unique<std::atomic<const CardText*>[]>(cards_.size())),
      readFields_(cards_.size()) {
  const size_t n = cards_.size();
  if (n == 0) return;

  // The layout most cards share: that of the first card, when its fields
  // carry the names they are filed under. Catalogue names are shared
  // strings, so most names compare by address.
  const CCard& first = *cards_[0];
  for (int32_t i = 1; i <= first.NumFields(); ++i) {
    const std::string& key = first.GetFields().GetIndexedKey(i);
    if (first.FieldAt(i).Name() != key) {
      referenceNames_.clear();
      break;
    }
    referenceNames_.push_back(&key);
  }
  for (size_t i = 0; i < referenceNames_.size(); ++i) {
    if (IsDateField(*referenceNames_[i])) continue;
    keptCategories_.push_back(*referenceNames_[i] == "Categories");
    keptPositions_.push_back(static_cast<int32_t>(i) + 1);
  }

  // Facts not handed over are worked out here, on two threads for many
  // cards (the cards are only read).
  const bool given = facts.size() == n;
  if (!given || !numbered || factsOrder.size() != n) factsOrder = {};
  if (!given) facts.assign(n, CardFacts{});
  std::vector<std::exception_ptr> errors(given ? 0 : n);
  auto observe = [&](size_t from, size_t to) {
    for (size_t p = from; p < to; ++p) {
      try {
        const CCard& card = *cards_[p];
        ObserveCard(card, facts[p], ComparedByContent(card.tag));
        // Cards built by one manager share a layout; these may not.
        if (facts[p].namedAsKeys && !HasReferenceLayout(card)) facts[p].namedAsKeys = false;
      } catch (...) {
        errors[p] = std::current_exception();
        return;  // the first failure in order is the one raised
      }
    }
  };
  const bool threads = n >= static_cast<size_t>(PartScanThreshold()) && std::thread::hardware_concurrency() >= 2;
  if (!given) {
    InHalves(n, threads, observe);
    for (auto& error : errors)
      if (error) std::rethrow_exception(error);
  }

  if (!given || !numbered) {
    std::vector<std::string_view> tags(n);
    for (size_t p = 0; p < n; ++p) tags[p] = cards_[p]->tag;
    if (threads) {
      std::thread helper([&] { NumberEmails(facts); });
      NumberNamesAndTags(facts, cards_, tags);
      helper.join();
    } else {
      NumberNamesAndTags(facts, cards_, tags);
      NumberEmails(facts);
    }
  }
  const bool layoutKnown = !referenceNames_.empty();
  auto factsOf = [&](size_t p) -> CardFacts& {
    return facts[factsOrder.empty() ? p : static_cast<size_t>(factsOrder[p])];
  };
  // Each card's profile and texts are its own: the halves never meet.
  InHalves(n, threads, [&](size_t from, size_t to) {
    for (size_t p = from; p < to; ++p) {
      Profile& profile = profiles_[p];
      CardFacts& f = factsOf(p);
      profile.last = f.lastId;
      profile.tag = f.tagId;
      profile.rawEmail = f.rawEmailId;
      profile.email = f.emailId;
      profile.aligned = layoutKnown && f.namedAsKeys;
      profile.filled = f.filled;
      profile.textLength = f.textLength;
      profile.id = f.id;
      profile.signatureKnown = f.signatureKnown;
      profile.signatureHash = f.signatureHash;
      profile.frontImage = f.frontImage;
      profile.nameEmpty = f.nameEmpty;
      if (profile.aligned) readFields_[p] = std::move(f.readFields);
      textOf_[p].store(f.text.get(), std::memory_order_relaxed);
      texts_[p] = std::move(f.text);
    }
  });
  for (size_t p = 0; p < n; ++p) {
    const CardFacts& f = factsOf(p);
    if (!f.frontImageError) continue;
    frontImageErrors_.resize(n);
    frontImageErrors_[p] = f.frontImageError;
  }
  IndexContent();
}

bool SortedSuspects::HasReferenceLayout(const CCard& card) const {
  const int32_t fields = card.NumFields();
  if (fields != static_cast<int32_t>(referenceNames_.size())) return false;
  for (int32_t i = 1; i <= fields; ++i) {
    const std::string* ref = referenceNames_[static_cast<size_t>(i - 1)];
    const std::string& key = card.GetFields().GetIndexedKey(i);
    if (&key != ref && key != *ref) return false;
  }
  return true;
}

bool SortedSuspects::HasFrontImage(CCardStoreMgr& mgr, int32_t p) {
  // The store does not change while the search runs: one answer per card.
  Profile& profile = profiles_[static_cast<size_t>(p)];
  if (!frontImageErrors_.empty() && frontImageErrors_[static_cast<size_t>(p)])
    std::rethrow_exception(frontImageErrors_[static_cast<size_t>(p)]);
  if (profile.frontImage < 0) profile.frontImage = mgr.HasFrontImage(CardId(p)) ? 1 : 0;
  return profile.frontImage == 1;
}

int32_t SortedSuspects::CardId(int32_t p) const {
  int32_t id = profiles_[static_cast<size_t>(p)].id;
  return id != 0 ? id : Card(p)->GetCardID();  // raises the card's own error when it has none
}

bool SortedSuspects::NameEmpty(int32_t p) const {
  const int8_t known = profiles_[static_cast<size_t>(p)].nameEmpty;
  return known >= 0 ? known == 1 : Card(p)->FieldText("Name").empty();
}

SortedSuspects::~SortedSuspects() = default;

std::shared_ptr<CDupeSet> SortedSuspects::NewSet(int32_t type, int32_t p) const {
  auto set = std::make_shared<CDupeSet>();
  const Profile& profile = profiles_[static_cast<size_t>(p)];
  if (profile.signatureKnown) set->Init(Card(p), type, profile.signatureHash);
  else set->Init(Card(p), type);
  return set;
}

const CardText& SortedSuspects::TextOf(int32_t p) {
  const CardText* text = textOf_[p].load(std::memory_order_acquire);
  if (text) return *text;
  // A card with a tag, compared with one without: made once, whichever walk asks first.
  std::lock_guard<std::mutex> lock(textsMutex_);
  text = textOf_[p].load(std::memory_order_relaxed);
  if (!text) {
    auto made = std::make_shared<CardText>();
    MakeCardText(FieldsOfCard(*cards_[static_cast<size_t>(p)]), *made);
    text = made.get();
    texts_[static_cast<size_t>(p)] = std::move(made);
    textOf_[p].store(text, std::memory_order_release);
  }
  return *text;
}

bool SortedSuspects::Suspect::HasFrontImage() const { return all_.HasFrontImage(Mgr(), p_); }

void SortedSuspects::Postings::Seal() {
  std::sort(entries_.begin(), entries_.end());
  entries_.erase(std::unique(entries_.begin(), entries_.end()), entries_.end());
  keys_.resize(entries_.size());
  positions_.resize(entries_.size());
  for (size_t k = 0; k < entries_.size(); ++k) {
    keys_[k] = entries_[k].first;
    positions_[k] = entries_[k].second;
  }
  entries_ = {};
}

std::span<const int32_t> SortedSuspects::Postings::Of(uint64_t key) const {
  const auto [from, to] = std::equal_range(keys_.begin(), keys_.end(), key);
  return std::span<const int32_t>(positions_).subspan(static_cast<size_t>(from - keys_.begin()),
                                                     static_cast<size_t>(to - from));
}

namespace {

// The key of a word's nth repeat in a text (n from 0).
uint64_t RepeatKey(uint64_t wordHash, uint32_t repeat) { return wordHash + repeat * 0x9E3779B97F4A7C15ull; }

// How many of its rarest words a text of n counted words shares with any
// text it passes the word test with. Put the words of each text in one
// order, rarest first (each repeat of a word a word of its own), and call
// S the words both hold: S has at least n - AllowedMisses(n) of them (at
// least three), and as many for the other text's count. So the jth of S in
// that order is among the first AllowedMisses + j of either text: the first
// of S is among each text's AllowedMisses + 1 rarest words (what the index
// files a card under), and the first five of S (all of S when it is
// smaller) among each text's AllowedMisses + RareWordsShared rarest, which
// is the whole text when RareWordsShared is below five. Both texts' counts
// hold: the higher one is asked for.
constexpr int32_t kRareWordsShared = 5;
int32_t RareWordsShared(size_t n) {
  const int32_t allowed = AllowedMisses(n);
  if (allowed < 1) return 0;  // the word test fails whatever the other text holds
  return std::min<int32_t>(kRareWordsShared, static_cast<int32_t>(n) - allowed);
}

}  // namespace

int32_t SortedSuspects::RarestWordKeys(const CardText& text, std::vector<uint64_t>& keys) const {
  keys.clear();
  const int32_t shared = RareWordsShared(text.words.size());
  if (shared == 0) return 0;
  struct Ranked {
    int32_t cards;  // how many indexed cards hold the word
    uint64_t hash;
    uint32_t repeat;
  };
  thread_local std::vector<Ranked> ranked;
  ranked.clear();
  uint32_t repeat = 0;
  int32_t cards = 0;
  for (size_t k = 0; k < text.words.size(); ++k) {
    const uint64_t hash = text.words[k].hash;
    if (k > 0 && hash == text.words[k - 1].hash) {
      ++repeat;
    } else {
      repeat = 0;
      cards = WordCards(hash);
    }
    ranked.push_back({cards, hash, repeat});
  }
  const size_t take = std::min(ranked.size(), static_cast<size_t>(AllowedMisses(text.words.size()) + shared));
  std::partial_sort(ranked.begin(), ranked.begin() + static_cast<std::ptrdiff_t>(take), ranked.end(),
                    [](const Ranked& a, const Ranked& b) {
                      if (a.cards != b.cards) return a.cards < b.cards;
                      if (a.hash != b.hash) return a.hash < b.hash;
                      return a.repeat < b.repeat;
                    });
  for (size_t k = 0; k < take; ++k) keys.push_back(RepeatKey(ranked[k].hash, ranked[k].repeat));
  return shared;
}

void SortedSuspects::IndexContent() {
  // Equal tags sit side by side: so do the cards without one.
  std::vector<int32_t> tagless;
  for (int32_t p = 0; p < Size(); ++p)
    if (TagId(p) == 0) tagless.push_back(p);
  if (tagless.size() < 2) return;  // a card is never offered to itself
  Trap(tagless.back() - tagless.front() + 1 != static_cast<int32_t>(tagless.size()),
       "Cards without a tag are not side by side");
  const size_t n = tagless.size();
  firstTagless_ = tagless.front();
  // About how many of them hold each word, for the order of the words: a
  // count for each hash prefix, about as many as words, in a table small
  // enough to stay in cache.
  size_t words = 0;
  rareShared_.assign(n, 0);
  rareWordsStart_.assign(n + 1, 0);
  wordListsStart_.assign(n + 1, 0);
  for (size_t slot = 0; slot < n; ++slot) {
    const size_t count = TextOf(tagless[slot]).words.size();
    words += count;
    // Where the slot's keys go: RarestWordKeys makes AllowedMisses + RareWordsShared of them.
    const int32_t shared = RareWordsShared(count);
    rareShared_[slot] = static_cast<int8_t>(shared);
    const size_t keys = shared == 0 ? 0 : std::min(count, static_cast<size_t>(AllowedMisses(count) + shared));
    rareWordsStart_[slot + 1] = rareWordsStart_[slot] + static_cast<int32_t>(keys);
    wordListsStart_[slot + 1] = wordListsStart_[slot] + static_cast<int32_t>(shared == 0 ? 0 : keys - shared + 1);
  }
  int bits = 10;
  while (bits < 18 && (size_t{1} << bits) < words) ++bits;
  wordCardsShift_ = 64 - bits;
  wordCards_.assign(size_t{1} << bits, 0);
  for (size_t slot = 0; slot < n; ++slot) {
    if (rareShared_[slot] == 0) continue;
    const CardText& text = TextOf(tagless[slot]);
    for (size_t k = 0; k < text.words.size(); ++k)
      if (k == 0 || text.words[k].hash != text.words[k - 1].hash)
        ++wordCards_[static_cast<size_t>(text.words[k].hash >> wordCardsShift_)];
  }
  // Each card's rarest words: the keys of its lists, and all of them in
  // order of key. On two threads for many cards; each writes its own slots.
  rareWords_.resize(static_cast<size_t>(rareWordsStart_[n]));
  rareMasks_.assign(n, RareMask{});
  std::vector<uint64_t> filed(static_cast<size_t>(wordListsStart_[n]));
  const bool threads = n >= static_cast<size_t>(PartScanThreshold()) / 4 && std::thread::hardware_concurrency() >= 2;
  InHalves(n, threads, [&](size_t from, size_t to) {
    std::vector<uint64_t> keys;
    for (size_t slot = from; slot < to; ++slot) {
      if (RarestWordKeys(TextOf(tagless[slot]), keys) == 0) continue;
      std::copy_n(keys.begin(), wordListsStart_[slot + 1] - wordListsStart_[slot], filed.begin() + wordListsStart_[slot]);
      std::sort(keys.begin(), keys.end());
      std::copy(keys.begin(), keys.end(), rareWords_.begin() + rareWordsStart_[slot]);
      rareMasks_[slot].Of(keys);
    }
  });
  // The three indexes are filled and sorted each on its own: the words,
  // the largest, beside the texts and e-mails for many cards.
  auto fileWords = [&] {
    for (size_t slot = 0; slot < n; ++slot)
      for (int32_t k = wordListsStart_[slot]; k < wordListsStart_[slot + 1]; ++k)
        byWord_.Add(filed[static_cast<size_t>(k)], tagless[slot]);
    byWord_.Seal();
  };
  std::future<void> wordsFiled;
  if (threads) wordsFiled = std::async(std::launch::async, fileWords);
  for (size_t slot = 0; slot < n; ++slot) {
    const int32_t p = tagless[slot];
    byText_.Add(TextOf(p).hash, p);
    const int32_t email = profiles_[static_cast<size_t>(p)].email;
    if (email != 0) byEmail_.Add(static_cast<uint64_t>(email), p);
  }
  byText_.Seal();
  byEmail_.Seal();
  if (wordsFiled.valid()) wordsFiled.get();
  else fileWords();
  wordLists_.resize(filed.size());
  InHalves(filed.size(), threads, [&](size_t from, size_t to) {
    for (size_t k = from; k < to; ++k) wordLists_[k] = byWord_.Of(filed[k]);
  });
}

void SortedSuspects::ContentCandidates(int32_t type, int32_t a, ContentLists& lists) {
  lists.sure.clear();
  lists.words.clear();
  lists.rareWords = {};
  lists.shared = 0;
  lists.mask = RareMask{};
  const CardText& text = TextOf(a);
  lists.sure.push_back(byText_.Of(text.hash));
  if (type == EXACT_DUPE) return;
  const int32_t email = profiles_[static_cast<size_t>(a)].email;
  if (email != 0) lists.sure.push_back(byEmail_.Of(static_cast<uint64_t>(email)));
  if (const int32_t slot = SlotOf(a); slot >= 0) {  // worked out as the card was indexed
    const auto at = [](const auto& all, const std::vector<int32_t>& start, int32_t slot) {
      return std::span(all).subspan(static_cast<size_t>(start[static_cast<size_t>(slot)]),
                                    static_cast<size_t>(start[static_cast<size_t>(slot) + 1] - start[static_cast<size_t>(slot)]));
    };
    lists.shared = rareShared_[static_cast<size_t>(slot)];
    lists.rareWords = at(rareWords_, rareWordsStart_, slot);
    const auto words = at(wordLists_, wordListsStart_, slot);
    lists.words.assign(words.begin(), words.end());
    lists.mask = rareMasks_[static_cast<size_t>(slot)];
    return;
  }
  lists.shared = RarestWordKeys(text, lists.own);
  if (lists.shared == 0) return;
  const size_t filed = lists.own.size() - static_cast<size_t>(lists.shared) + 1;
  for (size_t k = 0; k < filed; ++k) lists.words.push_back(byWord_.Of(lists.own[k]));
  std::sort(lists.own.begin(), lists.own.end());
  lists.rareWords = lists.own;
  lists.mask.Of(lists.own);
}

void SortedSuspects::RareMask::Of(std::span<const uint64_t> keys) {
  bits[0] = bits[1] = 0;
  int32_t set = 0;
  for (uint64_t key : keys) {
    const uint64_t bit = uint64_t{1} << ((key >> 57) & 63);
    uint64_t& half = bits[key >> 63];
    if (!(half & bit)) ++set;
    half |= bit;
  }
  distinct = set == static_cast<int32_t>(keys.size());
}

bool SortedSuspects::SharesRareWords(const ContentLists& lists, int32_t p) const {
  const int32_t slot = SlotOf(p);
  if (slot < 0 || rareShared_[static_cast<size_t>(slot)] == 0) return false;
  const uint64_t* mine = rareWords_.data() + rareWordsStart_[static_cast<size_t>(slot)];
  const uint64_t* mineEnd = rareWords_.data() + rareWordsStart_[static_cast<size_t>(slot) + 1];
  const int32_t needed = std::max<int32_t>(lists.shared, rareShared_[static_cast<size_t>(slot)]);
  // Most cards a word list names share that word and few others: told by
  // the masks alone. (The merge below counts each key of a distinct side
  // at most once.)
  const RareMask& theirMask = rareMasks_[static_cast<size_t>(slot)];
  if ((lists.mask.distinct || theirMask.distinct) && lists.mask.Common(theirMask) < needed) return false;
  int32_t shared = 0;
  for (auto theirs = lists.rareWords.begin(); mine != mineEnd && theirs != lists.rareWords.end();) {
    if (*mine < *theirs) {
      ++mine;
    } else if (*theirs < *mine) {
      ++theirs;
    } else {
      if (++shared >= needed) return true;
      ++mine;
      ++theirs;
    }
  }
  return false;
}

void SortedSuspects::PrepareForThreads() {
  SameRawEmail(0);
  // Store calls stay on this thread: every answer is asked for now.
  CCardStoreMgr& mgr = Mgr();
  for (int32_t p = 0; p < Size(); ++p) HasFrontImage(mgr, p);
}

std::span<const int32_t> SortedSuspects::SameRawEmail(int32_t p) {
  if (!emailIndexBuilt_) {
    // Positions grouped by number, each group in order: counted, then placed.
    int32_t highest = 0;
    for (const Profile& profile : profiles_) highest = std::max(highest, profile.rawEmail);
    emailGroupStart_.assign(static_cast<size_t>(highest) + 2, 0);
    for (const Profile& profile : profiles_) ++emailGroupStart_[static_cast<size_t>(profile.rawEmail) + 1];
    for (size_t id = 1; id < emailGroupStart_.size(); ++id) emailGroupStart_[id] += emailGroupStart_[id - 1];
    emailGroups_.resize(profiles_.size());
    std::vector<int32_t> next(emailGroupStart_.begin(), emailGroupStart_.end() - 1);
    for (int32_t q = 0; q < Size(); ++q) emailGroups_[static_cast<size_t>(next[static_cast<size_t>(RawEmailId(q))]++)] = q;
    emailIndexBuilt_ = true;
  }
  const auto id = static_cast<size_t>(RawEmailId(p));
  return std::span<const int32_t>(emailGroups_).subspan(
      static_cast<size_t>(emailGroupStart_[id]), static_cast<size_t>(emailGroupStart_[id + 1] - emailGroupStart_[id]));
}

bool SortedSuspects::FieldTest(int32_t type, int32_t a, int32_t b) const {
  const auto& read1 = readFields_[static_cast<size_t>(a)];
  const auto& read2 = readFields_[static_cast<size_t>(b)];
  if (!read1 || !read2) return BuiltCard(*Card(a)).FieldTestPasses(type, BuiltCard(*Card(b)));
  // The same layout: the same fields, and the same texts, which no type
  // tells apart, pass at once.
  if (read1->SameAs(*read2)) return true;
  // The fields the cards list (in table order) are met as the kept fields
  // (all but the dates) are walked; a field not listed is empty.
  size_t k1 = 0, k2 = 0, field = 0;
  auto take = [](const CCardStoreMgr::ReadFields& read, size_t& k, int32_t position, std::string_view& text,
                 std::string_view& label) {
    while (k < read.Size() && read.Position(k) < position) ++k;  // a date
    if (k < read.Size() && read.Position(k) == position) {
      text = read.Text(k);
      label = read.Label(k);
      ++k;
    } else {
      text = label = {};
    }
  };
  return FieldTestPasses(type, [&](FieldPair& f) {
    if (field == keptPositions_.size()) return false;
    take(*read1, k1, keptPositions_[field], f.text1, f.label1);
    take(*read2, k2, keptPositions_[field], f.text2, f.label2);
    f.categories = keptCategories_[field++];
    return true;
  });
}

bool SortedSuspects::Compare(int32_t type, int32_t a, int32_t b) {
  if (!profiles_[static_cast<size_t>(a)].aligned || !profiles_[static_cast<size_t>(b)].aligned)
    return CompareCards(type, BuiltCard(*Card(a)), BuiltCard(*Card(b)));
  return CompareCards(type, Suspect(*this, a), Suspect(*this, b));
}

bool SortedSuspects::ShouldBecomePrimary(int32_t type, int32_t primary, int32_t candidate) {
  return dupes_internal::ShouldBecomePrimary(type, Suspect(*this, primary), Suspect(*this, candidate));
}

std::shared_ptr<CList> GroupSortedCards(const GroupingReports& reports, int32_t type, SortedSuspects& cards,
                                        std::vector<int32_t>* kept) {
  auto named = std::make_shared<CList>();
  named->RestrictType("CDupeSet");
  const int32_t total = cards.Size();
  if (total == 0) return named;
  reports.begin(type);

  // A card is offered the later cards with its tag or its stored e-mail
  // text, and a card with a last name only those up to the next card with
  // another. Equal tags sit together in the sorted list, and so do most
  // cards without a last name (their tags begin with the comma).
  std::vector<int32_t> tagRunEnd(static_cast<size_t>(total));  // one past the last position with the same tag
  std::vector<int32_t> noLastEnd(static_cast<size_t>(total));  // the same for a stretch without last names
  for (int32_t p = total - 1; p >= 0; --p) {
    tagRunEnd[p] = (p + 1 < total && cards.TagId(p + 1) == cards.TagId(p)) ? tagRunEnd[p + 1] : p + 1;
    noLastEnd[p] = (p + 1 < total && cards.LastId(p) == 0 && cards.LastId(p + 1) == 0) ? noLastEnd[p + 1] : p + 1;
  }

  SkipTable present(static_cast<size_t>(total));
  int32_t remaining = total;  // the list's current count
  int32_t keptBefore = 0;     // cards before the current one that stayed in the list
  std::vector<std::shared_ptr<CDupeSet>> namedSets, namelessSets;
  std::vector<int32_t> dupes;
  SortedSuspects::ContentLists lists;  // content candidates, then what is left of each

  for (int32_t p = present.Next(0); p < total; p = present.Next(p + 1)) {
    const int32_t i = keptBefore + 1;
    if (!reports.update(total + i - remaining, total)) break;
    int32_t primary = p;
    dupes.clear();
    bool go = true;
    auto offer = [&](int32_t q) {
      bool dupe = false;
      switch (type) {
        case EXACT_DUPE:
        case CONFLICT_DUPE:
          dupe = cards.Compare(type, primary, q);
          break;
        case COMPATIBLE_DUPE:
          dupe = cards.Compare(type, primary, q);
          for (size_t d = 0; dupe && d < dupes.size(); ++d) dupe = cards.Compare(type, dupes[d], q);
          break;
        default:
          RaiseTrap("Unknown dupe type: " + std::to_string(type));
      }
      if (!dupe) return;
      if (cards.ShouldBecomePrimary(type, primary, q)) {
        dupes.push_back(primary);
        primary = q;
      } else {
        dupes.push_back(q);
      }
      present.Remove(q);
      --remaining;
      go = reports.update(total + i - remaining, total);
    };
    // Offers, in list order, the cards still in the list of positions from
    // up to to and of mail (positions in order).
    auto offerRunAndMail = [&](int32_t from, int32_t to, std::span<const int32_t> mail) {
      auto ia = mail.begin();
      int32_t qt = present.Next(std::min(from, total));
      while (go) {
        const bool tagLeft = qt < to;
        const bool mailLeft = ia != mail.end();
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
    };

    const int32_t last = cards.LastId(p);
    const int32_t tag = cards.TagId(p);
    const int32_t email = cards.RawEmailId(p);
    const std::span<const int32_t> byMail = email != 0 ? cards.SameRawEmail(p) : std::span<const int32_t>();
    // The e-mail candidates from a position on, up to another.
    auto mailBetween = [&](int32_t from, int32_t to) {
      auto a = std::lower_bound(byMail.begin(), byMail.end(), from);
      auto b = std::lower_bound(a, byMail.end(), to);
      return std::span<const int32_t>(a, b);
    };
    if (last != 0) {
      // The list is sorted: the cards that may share this last name follow it.
      for (int32_t q = present.Next(p + 1); go && q < total;) {
        const int32_t otherLast = cards.LastId(q);
        if (otherLast == 0) {
          // A stretch without last names: only its cards with this tag or
          // e-mail text are offered, so those are all that is looked at.
          const int32_t end = noLastEnd[q];
          offerRunAndMail(std::max(q, p + 1), std::min(end, tagRunEnd[p]), mailBetween(q, end));
          q = present.Next(end);
          continue;
        }
        if (otherLast != last) break;
        if ((email != 0 && email == cards.RawEmailId(q)) || tag == cards.TagId(q)) offer(q);
        q = present.Next(q + 1);
      }
    } else if (tag != 0) {
      // The run of equal tags after p merged with the e-mail candidates.
      offerRunAndMail(p + 1, tagRunEnd[p], mailBetween(p + 1, total));
    } else {
      // Every card without a tag follows in p's run, each compared by
      // content: only those the content index names for the set's primary
      // can join, beside the e-mail candidates. A new primary names others.
      auto aim = [&](int32_t after) {
        cards.ContentCandidates(type, primary, lists);
        lists.sure.push_back(mailBetween(after + 1, total));
        for (auto* group : {&lists.sure, &lists.words})
          for (auto& list : *group) list = list.subspan(static_cast<size_t>(std::upper_bound(list.begin(), list.end(), after) - list.begin()));
      };
      // Takes q off the lists of a group, answering whether any had it.
      auto take = [&](std::vector<std::span<const int32_t>>& group, int32_t q) {
        bool had = false;
        for (auto& list : group) {
          if (!list.empty() && list.front() == q) {
            list = list.subspan(1);
            had = true;
          }
        }
        return had;
      };
      aim(p);
      while (go) {
        int32_t q = total;  // the first card left in any list
        for (auto* group : {&lists.sure, &lists.words}) {
          for (auto& list : *group) {
            while (!list.empty() && !present.Present(list.front())) list = list.subspan(1);
            if (!list.empty()) q = std::min(q, list.front());
          }
        }
        if (q == total) break;
        const bool sure = take(lists.sure, q);
        const bool word = take(lists.words, q);
        if (!sure && !(word && cards.SharesRareWords(lists, q))) continue;
        const int32_t before = primary;
        offer(q);
        if (primary != before) aim(q);
      }
    }
    if (!go) break;  // stopped while the set was still growing: it is not finished

    if (dupes.empty()) {
      ++keptBefore;
      continue;
    }
    auto set = cards.NewSet(type, primary);
    for (int32_t d : dupes) set->AddDupe(cards.Card(d));
    (cards.NameEmpty(primary) ? namelessSets : namedSets).push_back(std::move(set));
    present.Remove(p);
    --remaining;
    if (!reports.update(total + i - remaining, total)) break;
  }

  if (kept) {
    kept->clear();
    for (int32_t p = present.Next(0); p < total; p = present.Next(p + 1)) kept->push_back(p);
  }
  for (auto& set : namedSets) named->AddItem(set);
  for (auto& set : namelessSets) named->AddItem(set);
  return named;
}

}  // namespace ombrel::dupes_internal
