// The grouping walk of the duplicate search over cards already sorted by
// tag, with what the membership rules ask of each card worked out once and
// shared by every dupe type.
//
// CompareCards and ShouldBecomePrimary ask the same questions of a card over
// and over: its last name, tag and e-mail (compared here as small numbers),
// its lower-cased text, how many fields it fills. Cards whose fields are laid
// out alike (the usual case: the catalogue then the database's custom
// fields) are compared field by field by position; any other card goes
// through CDupeSet::CompareCards itself. A set is only made once it has a
// second card, so the many cards that find no partner cost no set.
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

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
  // Every field's text and label but the dates', one after the other, for
  // the field test (not kept when a text is too long for it).
  std::string fieldTexts;
  bool fieldTextsKept = false;
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
};
void ObserveCard(const CCard& card, CardFacts& facts);
// The same facts of a card not built yet, from what the card store manager
// read of it (ReadCard): layout is the empty card of its custom fields.
void ObserveRead(const std::shared_ptr<const CCard>& layout, std::span<const CCardStoreMgr::ReadField> fields,
                 int32_t id, const std::string& lastName, CardFacts& facts);

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

  // A card's lower-cased text and its user-modifiable data.
  struct Texts {
    std::string lowered;
    std::string userData;
  };
  const Texts& TextsOf(int32_t p);
  // Whether the card's fields are filed as the first card's are.
  bool HasReferenceLayout(const CCard& card) const;
  int32_t CardId(int32_t p) const;
  bool HasFrontImage(CCardStoreMgr& mgr, int32_t p);
  bool FieldTest(int32_t type, const CCard& card1, const CCard& card2) const;
  // The same on two cards' kept field texts.
  bool KeptFieldTest(int32_t type, const std::string& texts1, const std::string& texts2) const;

  std::vector<std::shared_ptr<CCard>> cards_;
  std::vector<Profile> profiles_;
  std::vector<std::unique_ptr<Texts>> texts_;
  std::vector<std::exception_ptr> frontImageErrors_;  // by position; empty when none were met ahead
  std::vector<const std::string*> referenceNames_;  // the common field layout
  enum FieldKind : uint8_t { kOther, kDate, kCategories };
  std::vector<FieldKind> fieldKind_;  // by position in that layout
  std::vector<FieldKind> keptKind_;   // the same without the dates, as the kept field texts have them
  std::vector<std::string> fieldTexts_;  // by position; empty when not kept (then the fields are asked)
  // Positions by RawEmailId, built on first use: those with number id are
  // emailGroups_[emailGroupStart_[id]] up to emailGroups_[emailGroupStart_[id + 1]].
  std::vector<int32_t> emailGroupStart_;
  std::vector<int32_t> emailGroups_;
  bool emailIndexBuilt_ = false;
  bool threaded_ = false;
  std::mutex textsMutex_;
  CDupeSet comparers_[CONFLICT_DUPE + 1];  // CompareCards by type, for the cards laid out otherwise
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

// The word test of CompareCards on two lower-cased card texts.
bool WordTestPasses(const std::string& text1, const std::string& text2);

}  // namespace dupes_internal
}  // namespace ombrel
