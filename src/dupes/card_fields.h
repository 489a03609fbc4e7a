// A card's fields in table order as the search's facts and the data
// signature read them, from a built card or from what the card store
// manager read of a card not built yet: each field's table key, the field
// standing for its name and place (the card's own, or the layout's empty
// one), and its text and label. Both give the same answers for the same
// stored card, so facts and signatures worked out either way are equal.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ombrel/cards/ccard.h"
#include "ombrel/cards/field_catalogue.h"
#include "ombrel/cardstore/ccardstoremgr.h"

namespace ombrel::dupes_internal {

class FieldsOfCard {
 public:
  explicit FieldsOfCard(const CCard& card) : card_(card) {}
  int32_t Count() const { return card_.NumFields(); }
  const std::string& Key(int32_t i) const { return card_.GetFields().GetIndexedKey(i); }
  const CCardField& Field(int32_t i) const { return card_.FieldAt(i); }
  const std::string& Text(int32_t i) const { return card_.FieldAt(i).Text(); }
  const std::string& Label(int32_t i) const { return card_.FieldAt(i).Label(); }

 private:
  const CCard& card_;
};

class FieldsRead {
 public:
  // layout: the empty card of the read card's custom fields; read: its
  // fields with text, in table order.
  FieldsRead(const CCard& layout, std::span<const CCardStoreMgr::ReadField> read) : layout_(layout), read_(read) {
    slot_.assign(static_cast<size_t>(layout.NumFields()) + 1, -1);
    for (size_t k = 0; k < read.size(); ++k) slot_[static_cast<size_t>(read[k].position)] = static_cast<int32_t>(k);
  }
  int32_t Count() const { return layout_.NumFields(); }
  const std::string& Key(int32_t i) const { return layout_.GetFields().GetIndexedKey(i); }
  const CCardField& Field(int32_t i) const { return layout_.FieldAt(i); }
  std::string_view Text(int32_t i) const {
    const int32_t k = slot_[static_cast<size_t>(i)];
    return k < 0 ? std::string_view() : read_[static_cast<size_t>(k)].text;
  }
  std::string_view Label(int32_t i) const {
    const int32_t k = slot_[static_cast<size_t>(i)];
    return k < 0 ? std::string_view() : read_[static_cast<size_t>(k)].label;
  }

 private:
  const CCard& layout_;
  std::span<const CCardStoreMgr::ReadField> read_;
  std::vector<int32_t> slot_;  // position -> index in read_, -1 for a field without text
};

// The store's bookkeeping fields (dates and status), told by catalogue
// position: a catalogue name is always kept as its position.
inline bool IsBookkeepingField(const CCardField& field) {
  constexpr int32_t kCreation = StandardFieldIndex("Creation Date");
  constexpr int32_t kModified = StandardFieldIndex("Modified Date");
  constexpr int32_t kStatus = StandardFieldIndex("Solvane Status");
  static_assert(kCreation >= 0 && kModified >= 0 && kStatus >= 0);
  const int32_t index = field.CatalogueIndex();
  return index == kCreation || index == kModified || index == kStatus;
}

// Appends CDupeSet::DataSignature of the card with that ID and fields.
template <class Fields>
void AppendSignature(int32_t cardId, const Fields& fields, std::string& sig) {
  sig += std::to_string(cardId);
  sig += "\r\n";
  // Sized first, then written: a card has some thirty fields of four
  // pieces, most of them a separator or empty, so only texts are copied.
  const int32_t n = fields.Count();
  size_t size = sig.size();
  for (int32_t i = 1; i <= n; ++i) {
    if (IsBookkeepingField(fields.Field(i))) continue;
    const size_t text = fields.Text(i).size();
    size += (text == 0 ? 0 : fields.Label(i).size()) + 1 + text + 2;
  }
  size_t at = sig.size();
  sig.resize(size);
  char* out = sig.data() + at;
  auto put = [&](std::string_view piece) {
    if (!piece.empty()) out = std::copy(piece.begin(), piece.end(), out);
  };
  for (int32_t i = 1; i <= n; ++i) {
    if (IsBookkeepingField(fields.Field(i))) continue;
    const auto text = fields.Text(i);
    if (!text.empty()) put(fields.Label(i));
    *out++ = '\t';
    put(text);
    *out++ = '\r';
    *out++ = '\n';
  }
}

// CDupeSet::SignatureHash of the card with that ID and fields.
template <class Fields>
uint64_t SignatureHash(int32_t cardId, const Fields& fields) {
  // A search makes a set for nearly every suspect: each keeps a hash of its
  // primary's signature rather than a copy, built in a buffer kept per thread.
  thread_local std::string buffer;
  buffer.clear();
  AppendSignature(cardId, fields, buffer);
  return std::hash<std::string_view>{}(buffer);
}

}  // namespace ombrel::dupes_internal
