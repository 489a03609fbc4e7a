// Membership rules of a dupe set: CompareCards, IsDupe, ShouldBecomePrimary
// and AddCardIfDupe. The order of the tests in CompareCards is part of the
// behaviour: the first step that decides ends the comparison.
#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "dupes/dupes_internal.h"
#include "dupes/grouping.h"
#include "foundation/utf8.h"
#include "ombrel/cards/ccard.h"
#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/foundation/cstring.h"
#include "ombrel/foundation/error.h"
#include "ombrel/foundation/messages.h"

namespace ombrel {

namespace {

const std::string& TextOf(const CCard& card, const std::string& name, bool& present) {
  static const std::string kEmpty;
  present = card.GetFields().Contains(name);
  return present ? card.FieldText(name) : kEmpty;
}

}  // namespace

bool CDupeSet::CompareCards(const CCard* card1, const CCard* card2) const {
  Trap(!card1 || !card2, "Cannot compare cards: one of the given cards is empty");
  const std::string& last1 = card1->GetLastName();
  const std::string& last2 = card2->GetLastName();
  if (!last1.empty() && !last2.empty() && last1 != last2) return false;

  const std::string& key1 = card1->tag;
  const std::string& key2 = card2->tag;
  if (key1 != key2 && type_ == EXACT_DUPE) return false;

  std::string email1 = CString::LowerText(CString::TrimText(card1->FieldText("Email")));
  std::string email2 = CString::LowerText(CString::TrimText(card2->FieldText("Email")));
  if (email1 != email2 && type_ == EXACT_DUPE) return false;
  bool emailsMatch = !email1.empty() && email1 == email2;

  // Same family name with another first name is a duplicate only through the e-mail.
  if (!emailsMatch && !last1.empty() && !last2.empty() && key1 != key2) return false;

  if (key1.empty() || key2.empty()) {
    std::string text1 = CString::LowerText(card1->GetText());
    std::string text2 = CString::LowerText(card2->GetText());
    if (text1 == text2) {
      if (card1->GetAllUserModifiableData() == card2->GetAllUserModifiableData()) return true;
    } else if (type_ == EXACT_DUPE) {
      return false;
    }
    if (email1.empty() || email1 != email2) {
      if (!dupes_internal::WordTestPasses(text1, text2)) return false;
    }
  }

  if (type_ == CONFLICT_DUPE) return true;

  // Field test. A field that the candidate lacks (a non-standard card) reads
  // as empty text with no label, so it conflicts only under the exact rule.
  const CHashTable& fields1 = card1->GetFields();
  for (int32_t i = 1; i <= fields1.GetNumItems(); ++i) {
    const CCardField& f1 = card1->FieldAt(i);
    const std::string& name = f1.Name();
    if (name == "Modified Date" || name == "Creation Date") continue;
    if (type_ == COMPATIBLE_DUPE && name == "Categories") continue;
    bool present = false;
    const std::string& text2 = TextOf(*card2, name, present);
    static const std::string kEmpty;
    const std::string& label2 = present ? card2->GetFields().GetItemAs<CCardField>(name)->Label() : kEmpty;
    const std::string& text1 = f1.Text();
    const std::string& label1 = f1.Label();
    if (type_ == EXACT_DUPE) {
      if (text1 != text2 || label1 != label2) return false;
    } else if (type_ == COMPATIBLE_DUPE) {
      if (!text1.empty() && !text2.empty() && text1 != text2) return false;
      if (!label1.empty() && !label2.empty() && label1 != label2) return false;
    }
  }
  return true;
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
  switch (type_) {
    case EXACT_DUPE:
      return false;
    case COMPATIBLE_DUPE:
    case CONFLICT_DUPE: {
      CCardStoreMgr& mgr = dupes_internal::Mgr();
      // Both are asked, whatever the first answers.
      bool primaryHasImage = mgr.HasFrontImage(primary_->GetCardID());
      bool candidateHasImage = mgr.HasFrontImage(card.GetCardID());
      if (!primaryHasImage && candidateHasImage) return true;
      if (type_ == COMPATIBLE_DUPE) {
        auto filled = [](const CCard& c) {
          int32_t n = 0;
          for (int32_t i = 1; i <= c.NumFields(); ++i) n += c.FieldAt(i).Text().empty() ? 0 : 1;
          return n;
        };
        return filled(card) > filled(*primary_);
      }
      return utf8::CountCodePoints(card.GetText()) > utf8::CountCodePoints(primary_->GetText());
    }
    default:
      RaiseTrap("Unknown dupe type: " + std::to_string(type_));
  }
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

namespace {

// The words of a text (split on blanks) that the test counts: those of four
// characters or more, and the last word whatever its length.
void CountedWords(std::string_view text, std::vector<std::string_view>& words) {
  words.clear();
  for (size_t pos = 0, n = text.size();;) {
    while (pos < n && CString::IsWhiteSpace(text[pos])) ++pos;
    if (pos == n) break;
    const size_t begin = pos;
    while (pos < n && !CString::IsWhiteSpace(text[pos])) ++pos;
    words.push_back(text.substr(begin, pos - begin));
  }
  size_t kept = 0;
  for (size_t i = 0; i < words.size(); ++i)
    if (i + 1 == words.size() || utf8::CountCodePoints(words[i]) >= 4) words[kept++] = words[i];
  words.resize(kept);
}

}  // namespace

// Short words (under four characters) are dropped, except the last word of
// each list, which the walk never examines: that is how the test has always
// counted, and it is kept. The walks compare many card pairs this way, so
// the words are views of the texts in buffers kept per thread.
bool WordTestPasses(const std::string& text1, const std::string& text2) {
  thread_local std::vector<std::string_view> w1, w2;
  thread_local std::vector<bool> matched;
  CountedWords(text1, w1);
  CountedWords(text2, w2);
  const std::vector<std::string_view>& a = w1.size() >= w2.size() ? w1 : w2;
  const std::vector<std::string_view>& b = w1.size() >= w2.size() ? w2 : w1;
  double n = static_cast<double>(b.size());
  int32_t allowed = RoundHalfEven(n - std::max(3.0, 0.8 * n));
  if (allowed < 1) return false;
  // Each word of a takes the first word of b equal to it that no earlier
  // word took.
  matched.assign(b.size(), false);
  int32_t misses = 0;
  for (std::string_view word : a) {
    size_t k = 0;
    while (k < b.size() && (matched[k] || b[k] != word)) ++k;
    if (k < b.size()) {
      matched[k] = true;
    } else if (++misses > allowed) {
      return false;
    }
  }
  return true;
}

}  // namespace dupes_internal

}  // namespace ombrel
