// Membership rules of a dupe set: CompareCards, IsDupe, ShouldBecomePrimary
// and AddCardIfDupe. The steps of CompareCards and ShouldBecomePrimary are
// in dupes/comparison.h, shared with the search's grouping; here they run on
// built cards.
#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "dupes/comparison.h"
#include "dupes/dupes_internal.h"
#include "dupes/key_table.h"
#include "foundation/utf8.h"
#include "ombrel/cards/ccard.h"
#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/foundation/cstring.h"
#include "ombrel/foundation/error.h"
#include "ombrel/foundation/messages.h"

namespace ombrel {

bool CDupeSet::CompareCards(const CCard* card1, const CCard* card2) const {
  Trap(!card1 || !card2, "Cannot compare cards: one of the given cards is empty");
  return dupes_internal::CompareCards(type_, dupes_internal::BuiltCard(*card1), dupes_internal::BuiltCard(*card2));
}

bool CDupeSet::IsDupe(const CCard& card) const {
  Trap(GetNumberOfCards() == 0, "DupeSet is empty");
  switch (type_) {
    case EXACT_DUPE:
    case CONFLICT_DUPE:
      return CompareCards(primary_.get(), &card);
    case COMPATIBLE_DUPE: {
      if (!CompareCards(primary_.get(), &card)) return false;
      for (int32_t i = 1; i <= dupes_->GetNumItems(); ++i)
        if (!CompareCards(dupes_->GetItemAs<CCard>(i).get(), &card)) return false;
      return true;
    }
    default:
      RaiseTrap("Unknown dupe type: " + std::to_string(type_));
  }
}

bool CDupeSet::ShouldBecomePrimary(const CCard& card) const {
  Trap(!primary_, "Dupe set does not have primary card");
  return dupes_internal::ShouldBecomePrimary(type_, dupes_internal::BuiltCard(*primary_),
                                             dupes_internal::BuiltCard(card));
}

bool CDupeSet::AddCardIfDupe(const std::shared_ptr<CCard>& card) {
  if (!card) {
    // The checks IsDupe would make, in its order, for a missing card.
    Trap(GetNumberOfCards() == 0, "DupeSet is empty");
    RaiseTrap("Cannot compare cards: one of the given cards is empty");
  }
  if (!IsDupe(*card)) return false;
  if (ShouldBecomePrimary(*card)) {
    dupes_->AddItem(primary_);
    SetPrimaryCard(card);
  } else {
    dupes_->AddItem(card);
  }
  return true;
}

namespace dupes_internal {

std::string_view BuiltCard::LastKey() const { return card_.GetLastName(); }

std::string_view BuiltCard::TagKey() const { return card_.tag; }

std::string_view BuiltCard::EmailKey() const {
  if (!email_) email_ = CString::LowerText(CString::TrimText(card_.FieldText("Email")));
  return *email_;
}

const CardText& BuiltCard::Text() const {
  if (!text_) MakeCardText(FieldsOfCard(card_), text_.emplace());
  return *text_;
}

bool BuiltCard::FieldTestPasses(int32_t type, const BuiltCard& other) const {
  static const std::string kEmpty;
  const CCard& card2 = other.card_;
  const int32_t n = card_.NumFields();
  int32_t i = 0;
  return dupes_internal::FieldTestPasses(type, [&](FieldPair& f) {
    if (++i > n) return false;
    const CCardField& f1 = card_.FieldAt(i);
    const std::string& name = f1.Name();
    const bool present = card2.GetFields().Contains(name);
    f.text1 = f1.Text();
    f.label1 = f1.Label();
    f.text2 = present ? card2.FieldText(name) : kEmpty;
    f.label2 = present ? card2.FieldNamed(name).Label() : kEmpty;
    f.date = IsDateField(name);
    f.categories = name == "Categories";
    return true;
  });
}

bool BuiltCard::HasFrontImage() const { return Mgr().HasFrontImage(card_.GetCardID()); }

int32_t BuiltCard::Filled() const {
  int32_t n = 0;
  for (int32_t i = 1; i <= card_.NumFields(); ++i) n += card_.FieldAt(i).Text().empty() ? 0 : 1;
  return n;
}

int32_t BuiltCard::TextLength() const { return card_.TextLength(); }

void MakeCardText(std::string_view text, std::string userData, CardText& out) {
  out.lowered = CString::LowerText(text);
  out.hash = KeyTable::Hash(out.lowered);
  out.userData = std::move(userData);
  std::vector<CardText::Word>& words = out.words;
  words.clear();
  const std::string_view lowered = out.lowered;
  for (size_t pos = 0, n = lowered.size();;) {
    while (pos < n && CString::IsWhiteSpace(lowered[pos])) ++pos;
    if (pos == n) break;
    const size_t begin = pos;
    while (pos < n && !CString::IsWhiteSpace(lowered[pos])) ++pos;
    words.push_back({0, static_cast<uint32_t>(begin), static_cast<uint32_t>(pos - begin)});
  }
  // Short words are dropped, except the last word, which the walk that
  // drops them never examines: that is how the test has always counted.
  size_t kept = 0;
  for (size_t i = 0; i < words.size(); ++i) {
    if (i + 1 < words.size() && utf8::CountCodePoints(lowered.substr(words[i].begin, words[i].size)) < 4) continue;
    words[kept] = words[i];
    words[kept].hash = KeyTable::Hash(lowered.substr(words[i].begin, words[i].size));
    ++kept;
  }
  words.resize(kept);
  std::sort(words.begin(), words.end(), [&](const CardText::Word& a, const CardText::Word& b) {
    if (a.hash != b.hash) return a.hash < b.hash;
    return lowered.substr(a.begin, a.size) < lowered.substr(b.begin, b.size);
  });
}

int32_t AllowedMisses(size_t n) {
  const double count = static_cast<double>(n);
  return RoundHalfEven(count - std::max(3.0, 0.8 * count));
}

bool WordTestPasses(const CardText& text1, const CardText& text2) {
  const size_t count1 = text1.words.size(), count2 = text2.words.size();
  const int32_t allowed = AllowedMisses(std::min(count1, count2));
  if (allowed < 1) return false;
  // The shared words, counted as often as both lists hold them.
  size_t shared = 0;
  for (size_t i = 0, j = 0; i < count1 && j < count2;) {
    const CardText::Word& a = text1.words[i];
    const CardText::Word& b = text2.words[j];
    int order = a.hash < b.hash ? -1 : a.hash > b.hash ? 1 : text1.WordAt(i).compare(text2.WordAt(j));
    if (order < 0) {
      ++i;
    } else if (order > 0) {
      ++j;
    } else {
      ++shared;
      ++i;
      ++j;
    }
  }
  return std::max(count1, count2) - shared <= static_cast<size_t>(allowed);
}

}  // namespace dupes_internal

}  // namespace ombrel
