// The grouping walk of the duplicate search over cards already sorted by
// tag, with what the membership rules ask of each card worked out once and
// shared by every dupe type.
//
// The membership rules (dupes/comparison.h) ask the same questions of a card
// over and over: its last name, tag and e-mail (compared here as small
// numbers), its text and words, how many fields it fills. Each is worked out
// once per card. Cards whose fields are laid out alike (the usual case: the
// catalogue then the database's custom fields) are compared field by field
// by position; any other card is compared as a built card. A set is only
// made once it has a second card, so the many cards that find no partner
// cost no set.
//
// Cards without a tag are all offered to one another: an index of their
// texts, e-mails and rarest words keeps a set's walk to the few that can
// pass against its primary.
#pragma once

#include <atomic>
#include <bit>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "dupes/comparison.h"
#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/foundation/clist.h"

namespace ombrel {

class CCard;
class CCardStoreMgr;
class CDupeSearch;

namespace dupes_internal {

// What the grouping asks of a card that follows from the card alone, best
// worked out as the card is built, while its fields are still in cache.
struct CardFacts {
  std::string_view rawEmail;  // the card's stored e-mail text (the card's own, or what was read of it)
  std::string email;                      // the same lower-cased and trimmed, unless
  bool emailIsRaw = false;                // that changes nothing (the usual case)
  std::string_view Email() const { return emailIsRaw ? rawEmail : std::string_view(email); }
  uint64_t lastHash = 0, rawEmailHash = 0, emailHash = 0;
  // CDupeSet::SignatureHash, for the sets the card may head; worked out for
  // cards with an ID only (others raise where a set takes them).
  uint64_t signatureHash = 0;
  bool signatureKnown = false;
  int32_t filled = 0;      // fields with text
  int32_t textLength = 0;  // CCard::TextLength
  int32_t id = 0;          // 0 when the card has none
  bool namedAsKeys = false;  // every field carries the name it is filed under
  // For a card read ahead, its fields as the card itself keeps them, which
  // the field test reads (a built card is asked itself); else null.
  std::shared_ptr<const CCardStoreMgr::ReadFields> readFields;
  // Numbers standing for the texts the walk compares (equal texts, equal
  // numbers; 0 for none), set by NumberNamesAndTags and NumberEmails.
  int32_t lastId = 0, tagId = 0, rawEmailId = 0, emailId = 0;
  // The store's answer on the card's front image when asked ahead (-1 not
  // asked), or what asking raised.
  int8_t frontImage = -1;
  std::exception_ptr frontImageError;
  // Whether the "Name" field is empty, when known without asking the card
  // (-1 unknown): so a card read but not built stays so.
  int8_t nameEmpty = -1;
  // The card's text, worked out as it was read for a card without a tag
  // (the cards that are compared by content), else null.
  std::shared_ptr<const CardText> text;
};
// withText: whether to work out the card's text too.
void ObserveCard(const CCard& card, CardFacts& facts, bool withText);
// The same facts of a card not built yet, from what the card store manager
// read of it (ReadCard): layout is the empty card of its custom fields.
void ObserveRead(const std::shared_ptr<const CCard>& layout, std::shared_ptr<const CCardStoreMgr::ReadFields> fields,
                 int32_t id, const std::string& lastName, bool withText, CardFacts& facts);
// Whether the search compares a card with that tag (as loaded, or as the
// sort left it) by content: one without a name.
inline bool ComparedByContent(std::string_view tag) { return tag.empty() || tag == ","; }

// The numbers of the cards' last names and tags (tags[k] is card k's), and
// of their e-mail texts. The two set different members, so two threads may
// run one each.
void NumberNamesAndTags(std::span<CardFacts> facts, std::span<const std::shared_ptr<CCard>> cards,
                        std::span<const std::string_view> tags);
void NumberEmails(std::span<CardFacts> facts);
// Asks the store whether each card has a front image, keeping each answer
// or error in its facts.
void AskFrontImages(CCardStoreMgr& mgr, std::span<CardFacts> facts, std::span<const std::shared_ptr<CCard>> cards);

class SortedSuspects {
 public:
  // facts, when given, are those of the sorted cards, and all the cards were
  // built with one field layout; front-image answers they carry are taken
  // over, and so are their numbers when numbered. They are in the same order
  // as the cards, or, when factsOrder is given (numbered facts only), card p's
  // are facts[factsOrder[p]].
  explicit SortedSuspects(std::vector<std::shared_ptr<CCard>> sorted, std::vector<CardFacts> facts = {},
                          bool numbered = false, std::span<const int32_t> factsOrder = {});
  ~SortedSuspects();

  int32_t Size() const { return static_cast<int32_t>(cards_.size()); }
  const std::shared_ptr<CCard>& Card(int32_t p) const { return cards_[static_cast<size_t>(p)]; }

  // CDupeSet::CompareCards(card a, card b) for a set of the given type
  // (EXACT_DUPE, COMPATIBLE_DUPE or CONFLICT_DUPE).
  bool Compare(int32_t type, int32_t a, int32_t b);
  // CDupeSet::ShouldBecomePrimary for a set of the given type whose primary is card primary.
  bool ShouldBecomePrimary(int32_t type, int32_t primary, int32_t candidate);
  // Where to find the cards without a tag for which Compare(type, a, it)
  // can hold (see dupes/comparison.h): every card of the sure lists, and
  // the cards of the word lists that SharesRareWords says may pass the
  // word test. Each list holds positions in order.
  // A set of rare word keys as bits, one bit a key (by its top bits). When
  // each key has a bit of its own (distinct), the keys shared with another
  // set set at least as many bits in both masks as there are of them: fewer
  // common bits than a test asks for fail it without comparing the keys.
  struct RareMask {
    uint64_t bits[2] = {0, 0};
    bool distinct = false;
    void Of(std::span<const uint64_t> keys);
    int32_t Common(const RareMask& other) const {
      return std::popcount(bits[0] & other.bits[0]) + std::popcount(bits[1] & other.bits[1]);
    }
  };
  struct ContentLists {
    std::vector<std::span<const int32_t>> sure, words;
    std::span<const uint64_t> rareWords;  // card a's, in order of key
    int32_t shared = 0;                   // how many of them a card must share
    std::vector<uint64_t> own;            // rareWords when card a has no slot
    RareMask mask;                        // of rareWords
  };
  void ContentCandidates(int32_t type, int32_t a, ContentLists& lists);
  bool SharesRareWords(const ContentLists& lists, int32_t p) const;
  // The word tests run so far.
  int64_t WordTests() const { return wordTests_.load(std::memory_order_relaxed); }

  // For the walk: last name, tag and stored e-mail text as numbers (0 when empty).
  int32_t LastId(int32_t p) const { return profiles_[static_cast<size_t>(p)].last; }
  int32_t TagId(int32_t p) const { return profiles_[static_cast<size_t>(p)].tag; }
  int32_t RawEmailId(int32_t p) const { return profiles_[static_cast<size_t>(p)].rawEmail; }
  // Makes Compare and ShouldBecomePrimary safe to call from several threads
  // (each dupe type on one), asking the store now for what they would ask.
  void PrepareForThreads();
  // A set of the given type headed by the card at position p.
  std::shared_ptr<CDupeSet> NewSet(int32_t type, int32_t p) const;
  // Whether card p's "Name" field is empty.
  bool NameEmpty(int32_t p) const;
  // Positions of the cards with the same stored e-mail text, in order.
  std::span<const int32_t> SameRawEmail(int32_t p);

 private:
  struct Profile {
    int32_t last = 0;
    int32_t tag = 0;
    int32_t rawEmail = 0;
    int32_t email = 0;  // lower-cased and trimmed
    int32_t filled = 0;
    int32_t textLength = 0;
    int32_t id = 0;  // 0 when the card has none
    int8_t frontImage = -1;  // not asked yet
    int8_t nameEmpty = -1;   // not known yet
    bool aligned = false;
    bool signatureKnown = false;
    uint64_t signatureHash = 0;
  };

  // One card as the rules of dupes/comparison.h see it.
  class Suspect {
   public:
    Suspect(SortedSuspects& all, int32_t p) : all_(all), p_(p), profile_(all.profiles_[static_cast<size_t>(p)]) {}
    int32_t LastKey() const { return profile_.last; }
    int32_t TagKey() const { return profile_.tag; }
    int32_t EmailKey() const { return profile_.email; }
    const CardText& Text() const { return all_.TextOf(p_); }
    bool FieldTestPasses(int32_t type, const Suspect& other) const { return all_.FieldTest(type, p_, other.p_); }
    void CountWordTest() const { all_.wordTests_.fetch_add(1, std::memory_order_relaxed); }
    bool HasFrontImage() const;
    int32_t Filled() const { return profile_.filled; }
    int32_t TextLength() const { return profile_.textLength; }

   private:
    SortedSuspects& all_;
    int32_t p_;
    const Profile& profile_;
  };

  // Card p's text: worked out as it was read, or here when first asked for.
  const CardText& TextOf(int32_t p);
  // Indexes the cards without a tag (ContentCandidates).
  void IndexContent();
  // The keys of a text's first AllowedMisses + RareWordsShared words in the
  // order of the index (rarest first, each repeat of a word a key of its
  // own), in that order; the answer is RareWordsShared.
  int32_t RarestWordKeys(const CardText& text, std::vector<uint64_t>& keys) const;
  // Whether the card's fields are filed as the first card's are.
  bool HasReferenceLayout(const CCard& card) const;
  int32_t CardId(int32_t p) const;
  bool HasFrontImage(CCardStoreMgr& mgr, int32_t p);
  // The field test of card a against card b: on their kept field texts, or
  // else on the cards.
  bool FieldTest(int32_t type, int32_t a, int32_t b) const;

  // Positions under 64-bit keys, each key's in order.
  class Postings {
   public:
    void Add(uint64_t key, int32_t position) { entries_.push_back({key, position}); }
    void Seal();
    std::span<const int32_t> Of(uint64_t key) const;

   private:
    std::vector<std::pair<uint64_t, int32_t>> entries_;  // until sealed
    std::vector<uint64_t> keys_;
    std::vector<int32_t> positions_;
  };

  std::vector<std::shared_ptr<CCard>> cards_;
  std::vector<Profile> profiles_;
  // The cards' texts, by position: set as they were read, or when first
  // asked for (under textsMutex_).
  std::vector<std::shared_ptr<const CardText>> texts_;
  std::unique_ptr<std::atomic<const CardText*>[]> textOf_;
  // The cards without a tag by text, by e-mail and by their AllowedMisses +
  // 1 rarest words, and about how many of them hold each word (a count for
  // all the words whose hashes share their top bits: any order of the words
  // serves, and this one, rarest first, keeps the lists short). The cards
  // without a tag sit side by side from position firstTagless_; each has a slot
  // there (p - firstTagless_) that tells its RarestWordKeys in order of key
  // (from rareWords_[rareWordsStart_[slot]]), the byWord_ lists of its
  // AllowedMisses + 1 rarest (from wordLists_[wordListsStart_[slot]]) and
  // its RareWordsShared.
  Postings byText_, byEmail_, byWord_;
  std::vector<int32_t> wordCards_;  // by top bits of the hash
  int wordCardsShift_ = 64;
  int32_t WordCards(uint64_t hash) const {
    return wordCards_.empty() ? 0 : wordCards_[static_cast<size_t>(hash >> wordCardsShift_)];
  }
  int32_t firstTagless_ = 0;
  std::vector<uint64_t> rareWords_;
  std::vector<int32_t> rareWordsStart_;
  std::vector<std::span<const int32_t>> wordLists_;
  std::vector<int32_t> wordListsStart_;
  std::vector<int8_t> rareShared_;
  std::vector<RareMask> rareMasks_;  // of each slot's rare words
  // Card p's slot, or -1.
  int32_t SlotOf(int32_t p) const {
    const int32_t slot = p - firstTagless_;
    return slot >= 0 && slot < static_cast<int32_t>(rareShared_.size()) ? slot : -1;
  }
  std::atomic<int64_t> wordTests_{0};
  std::vector<std::exception_ptr> frontImageErrors_;  // by position; empty when none were met ahead
  std::vector<const std::string*> referenceNames_;  // the common field layout
  // The fields of that layout the field test walks (all but the dates):
  // their positions (1-based) and whether each is "Categories".
  std::vector<int32_t> keptPositions_;
  std::vector<bool> keptCategories_;
  // By position: the fields the field test reads, for a card of that
  // layout, else null (then the cards are asked).
  std::vector<std::shared_ptr<const CCardStoreMgr::ReadFields>> readFields_;
  // Positions by RawEmailId, built on first use: those with number id are
  // emailGroups_[emailGroupStart_[id]] up to emailGroups_[emailGroupStart_[id + 1]].
  std::vector<int32_t> emailGroupStart_;
  std::vector<int32_t> emailGroups_;
  bool emailIndexBuilt_ = false;
  std::mutex textsMutex_;
};

// Where a walk reports: begin(type) as it starts, update(done, total) as it
// goes, which answers false to stop it.
struct GroupingReports {
  std::function<void(int32_t type)> begin;
  std::function<bool(int32_t done, int32_t total)> update;
};

// The dupe sets of one type over the sorted cards: sets whose primary has a
// name first, then the nameless ones, each in creation order. kept, when
// given, receives the positions of the cards that joined no set.
std::shared_ptr<CList> GroupSortedCards(const GroupingReports& reports, int32_t type, SortedSuspects& cards,
                                        std::vector<int32_t>* kept);

}  // namespace dupes_internal
}  // namespace ombrel
