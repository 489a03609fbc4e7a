// Cards and dupe sets made in memory, and their short textual forms, for the
// card and dupe tests.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ombrel/cards/ccard.h"
#include "ombrel/dupes/cdupeset.h"

namespace ombrel {

// A field's text, and a label (which only the extra Phone and Email fields take).
struct FieldValue {
  FieldValue(std::string n, std::string t, std::string l = "")
      : name(std::move(n)), text(std::move(t)), label(std::move(l)) {}
  std::string name, text, label;
};

inline void SetText(CCard& card, const std::string& name, const std::string& text, const std::string& label = "") {
  card.SetData(name, text, label, nullptr, 100, 100, false, false);
}

inline std::shared_ptr<CCard> MakeCard(int32_t id, const std::vector<FieldValue>& values = {}) {
  auto card = std::make_shared<CCard>();
  card->SetCardId(id);
  for (const FieldValue& v : values) SetText(*card, v.name, v.text, v.label);
  return card;
}

// A set of the first card, with the others as dupes in their order.
inline std::shared_ptr<CDupeSet> SetOf(int32_t type, const std::vector<std::shared_ptr<CCard>>& cards) {
  auto set = std::make_shared<CDupeSet>();
  set->Init(cards.front(), type);
  for (size_t i = 1; i < cards.size(); ++i) set->AddDupe(cards[i]);
  return set;
}

// The card IDs of a list, "4 2 5".
inline std::string Ids(const CList& cards) {
  std::string out;
  for (int32_t i = 1; i <= cards.GetNumItems(); ++i)
    out += (i > 1 ? " " : "") + std::to_string(cards.GetItemAs<CCard>(i)->GetCardID());
  return out;
}

// One line per card of a list, "7 'Smith,John'", with the tag the search gave it.
inline std::string TaggedIds(const CList& cards) {
  std::string out;
  for (int32_t i = 1; i <= cards.GetNumItems(); ++i) {
    auto card = cards.GetItemAs<CCard>(i);
    out += std::to_string(card->GetCardID()) + " '" + card->tag + "'\n";
  }
  return out;
}

// "primary | dupes | recycle bin", by card ID.
inline std::string Layout(const CDupeSet& set) {
  return std::to_string(set.GetPrimaryCard()->GetCardID()) + " | " + Ids(set.GetDupes()) + " | " +
         Ids(set.GetRecycleBin());
}

}  // namespace ombrel
