// The membership rules of a dupe set, written once for any view of a card:
// CDupeSet runs them on built cards (BuiltCard), the search's grouping on
// what it learned of each suspect as it was read (SortedSuspects::Suspect).
// The order of the steps in CompareCards is part of the behaviour: the
// first step that decides ends the comparison.
//
// A view of a card answers:
//   LastKey(), TagKey(), EmailKey(): its last name, tag and trimmed,
//     lower-cased e-mail as keys that are equal for equal texts (NoKey for
//     an empty one);
//   Text(): its CardText, worked out at most once per card;
//   FieldTestPasses(type, other): the field test against the other card,
//     by way of FieldTestPasses below;
//   CountWordTest(): told of each word test about to run;
//   HasFrontImage(), Filled(), TextLength(): what ShouldBecomePrimary weighs.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dupes/card_fields.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/foundation/error.h"

namespace ombrel {

class CCard;

namespace dupes_internal {

// A card's text as the content steps compare it.
struct CardText {
  std::string lowered;   // CString::LowerText(CCard::GetText())
  uint64_t hash = 0;     // of lowered
  std::string userData;  // CCard::GetAllUserModifiableData()
  // The words the word test counts (split on blanks: those of four
  // characters or more, and the last word whatever its length), each by its
  // hash and place in lowered, ordered by hash and then bytes, so that two
  // lists meet in one pass.
  struct Word {
    uint64_t hash;
    uint32_t begin, size;
  };
  std::vector<Word> words;
  std::string_view WordAt(size_t k) const { return std::string_view(lowered).substr(words[k].begin, words[k].size); }
};

// The CardText of a card whose GetText and GetAllUserModifiableData are text and userData.
void MakeCardText(std::string_view text, std::string userData, CardText& out);
// The same from a card's fields (FieldsOfCard, FieldsRead).
template <class Fields>
void MakeCardText(const Fields& fields, CardText& out) {
  std::string text, userData;
  AppendTextAndUserData(fields, text, userData);
  MakeCardText(text, std::move(userData), out);
}

inline bool SameText(const CardText& a, const CardText& b) { return a.hash == b.hash && a.lowered == b.lowered; }

// How many words of the longer list may go unmatched when the shorter holds
// n: n - max(3, 0.8 n) in double precision, halves to even. Below 1 (n of 3
// or fewer) the test fails; it never falls as n grows.
int32_t AllowedMisses(size_t n);

// The word test. Each word of the longer list (card1's on equal
// counts) takes the first unused equal word of the shorter one; the test
// fails once more than AllowedMisses of them find none. That takes every
// word the two lists share, as many times as both hold it, so the misses
// are the longer count less the shared words, whichever list is longer.
bool WordTestPasses(const CardText& text1, const CardText& text2);

inline bool NoKey(int32_t key) { return key == 0; }
inline bool NoKey(std::string_view key) { return key.empty(); }

// One field of the first card with the second card's field of the same name.
struct FieldPair {
  std::string_view text1, label1, text2, label2;
  bool date = false;        // "Creation Date" or "Modified Date", which the test leaves out
  bool categories = false;  // "Categories", which the compatible test leaves out
};

// The field test over the fields of the first card in table
// order: next(pair) gives the next one and answers false after the last.
template <class Next>
bool FieldTestPasses(int32_t type, Next&& next) {
  FieldPair f;
  while (next(f)) {
    if (f.date) continue;
    if (type == EXACT_DUPE) {
      if (f.text1 != f.text2 || f.label1 != f.label2) return false;
    } else if (type == COMPATIBLE_DUPE && !f.categories) {
      // An empty value never conflicts.
      if (!f.text1.empty() && !f.text2.empty() && f.text1 != f.text2) return false;
      if (!f.label1.empty() && !f.label2.empty() && f.label1 != f.label2) return false;
    }
  }
  return true;
}

// CDupeSet::CompareCards of card1 (a member of the set) and card2 (the
// candidate) under the set's type.
template <class Card>
bool CompareCards(int32_t type, const Card& card1, const Card& card2) {
  const auto last1 = card1.LastKey(), last2 = card2.LastKey();
  if (!NoKey(last1) && !NoKey(last2) && last1 != last2) return false;
  const auto tag1 = card1.TagKey(), tag2 = card2.TagKey();
  if (tag1 != tag2 && type == EXACT_DUPE) return false;
  const auto email1 = card1.EmailKey(), email2 = card2.EmailKey();
  if (email1 != email2 && type == EXACT_DUPE) return false;
  const bool emailsMatch = !NoKey(email1) && email1 == email2;
  // Same family name with another first name is a duplicate only through the e-mail.
  if (!emailsMatch && !NoKey(last1) && !NoKey(last2) && tag1 != tag2) return false;

  // The content, for a card without a tag.
  if (NoKey(tag1) || NoKey(tag2)) {
    const CardText& text1 = card1.Text();
    const CardText& text2 = card2.Text();
    if (SameText(text1, text2)) {
      if (text1.userData == text2.userData) return true;  // without the field test
    } else if (type == EXACT_DUPE) {
      return false;
    }
    if (!emailsMatch) {
      card1.CountWordTest();
      if (!WordTestPasses(text1, text2)) return false;
    }
  }

  if (type == CONFLICT_DUPE) return true;
  return card1.FieldTestPasses(type, card2);
}

// So, since a card without a tag always goes through the content steps,
// CompareCards(type, card1, card2) holds for such a card2 only when it
// shares with card1 its text (the only way for EXACT_DUPE), or card1's
// non-empty e-mail, or enough words to pass the word test: both cards hold
// four counted words or more and neither has more than AllowedMisses of its
// own count unmatched. The search's index of cards without a tag offers
// only those.

// CDupeSet::ShouldBecomePrimary of a set of that type whose primary is primary.
template <class Card>
bool ShouldBecomePrimary(int32_t type, const Card& primary, const Card& candidate) {
  switch (type) {
    case EXACT_DUPE:
      return false;
    case COMPATIBLE_DUPE:
    case CONFLICT_DUPE: {
      // Both are asked, whatever the first answers.
      const bool primaryHasImage = primary.HasFrontImage();
      const bool candidateHasImage = candidate.HasFrontImage();
      if (!primaryHasImage && candidateHasImage) return true;
      // Ties keep the primary.
      return type == COMPATIBLE_DUPE ? candidate.Filled() > primary.Filled()
                                     : candidate.TextLength() > primary.TextLength();
    }
    default:
      RaiseTrap("Unknown dupe type: " + std::to_string(type));
  }
}

// A built card as the rules see it; what it works out is kept for the
// view's life.
class BuiltCard {
 public:
  explicit BuiltCard(const CCard& card) : card_(card) {}
  std::string_view LastKey() const;
  std::string_view TagKey() const;
  std::string_view EmailKey() const;
  const CardText& Text() const;
  // The other card's fields are found by name; one it lacks (a non-standard
  // card) reads as empty text with no label.
  bool FieldTestPasses(int32_t type, const BuiltCard& other) const;
  void CountWordTest() const {}
  bool HasFrontImage() const;
  int32_t Filled() const;
  int32_t TextLength() const;

 private:
  const CCard& card_;
  mutable std::optional<std::string> email_;
  mutable std::optional<CardText> text_;
};

}  // namespace dupes_internal
}  // namespace ombrel
