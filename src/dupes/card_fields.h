// A card's fields in table order as the search's facts and the data
// signature read them, from a built card or from what the card store
// manager read of a card not built yet: each field's table key, the field
// standing for its name and place (the card's own, or the layout's empty
// one), and its text and label. Both give the same answers for the same
// stored card, so facts and signatures worked out either way are equal.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ombrel/cards/ccard.h"
#include "ombrel/cards/field_catalogue.h"
#include "ombrel/cardstore/ccardstoremgr.h"

namespace ombrel::dupes_internal {

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

// The date fields, which the field test leaves out.
inline bool IsDateField(std::string_view key) { return key == "Modified Date" || key == "Creation Date"; }

// Each view answers, for a field by position (1..Count()): its text and
// label; whether it is a date field (by its key) or a bookkeeping one;
// whether it carries the name it is filed under; and the field that stands
// for its name and place, which tells what its text adds to the card's text.
class FieldsOfCard {
 public:
  explicit FieldsOfCard(const CCard& card) : card_(card) {}
  int32_t Count() const { return card_.NumFields(); }
  const std::string& Text(int32_t i) const { return card_.FieldAt(i).Text(); }
  const std::string& Label(int32_t i) const { return card_.FieldAt(i).Label(); }
  bool IsDate(int32_t i) const { return IsDateField(card_.GetFields().GetIndexedKey(i)); }
  bool IsBookkeeping(int32_t i) const { return IsBookkeepingField(card_.FieldAt(i)); }
  bool NamedAsKey(int32_t i) const {
    const std::string& key = card_.GetFields().GetIndexedKey(i);
    const std::string& name = card_.FieldAt(i).Name();
    return &key == &name || key == name;
  }
  const CCardField& Place(int32_t i) const { return card_.FieldAt(i); }

 private:
  const CCard& card_;
};

class FieldsRead {
 public:
  // layout: the empty card of the read card's custom fields; read: its
  // fields with text, in table order. What the layout answers is worked out
  // once per layout and thread.
  FieldsRead(const std::shared_ptr<const CCard>& layout, const CCardStoreMgr::ReadFields& read)
      : layout_(LayoutOf(layout)), read_(read) {
    thread_local std::vector<int32_t> slots;
    slots.assign(layout_.flags.size(), -1);
    for (size_t k = 0; k < read.Size(); ++k) slots[static_cast<size_t>(read.Position(k))] = static_cast<int32_t>(k);
    slot_ = slots.data();
  }
  int32_t Count() const { return static_cast<int32_t>(layout_.flags.size()) - 1; }
  std::string_view Text(int32_t i) const {
    const int32_t k = slot_[i];
    return k < 0 ? std::string_view() : read_.Text(static_cast<size_t>(k));
  }
  std::string_view Label(int32_t i) const {
    const int32_t k = slot_[i];
    return k < 0 ? std::string_view() : read_.Label(static_cast<size_t>(k));
  }
  bool IsDate(int32_t i) const { return Flags(i) & kDate; }
  bool IsBookkeeping(int32_t i) const { return Flags(i) & kBookkeeping; }
  bool NamedAsKey(int32_t i) const { return Flags(i) & kNamedAsKey; }
  const CCardField& Place(int32_t i) const { return layout_.layout->FieldAt(i); }
  // The positions of the fields filed under "Email" and "Name", which the
  // facts look up (0 for none), found once per layout.
  int32_t EmailPosition() const { return layout_.email; }
  int32_t NamePosition() const { return layout_.name; }

 private:
  enum : uint8_t { kDate = 1, kBookkeeping = 2, kNamedAsKey = 4 };
  struct Layout {
    std::shared_ptr<const CCard> layout;
    std::vector<uint8_t> flags;  // by position; [0] unused
    int32_t email = 0, name = 0;
  };
  static int32_t Find(const CCard& layout, std::string_view key) {
    for (int32_t i = 1; i <= layout.NumFields(); ++i)
      if (layout.GetFields().GetIndexedKey(i) == key) return i;
    return 0;
  }
  static const Layout& LayoutOf(const std::shared_ptr<const CCard>& layout) {
    thread_local Layout known;
    if (known.layout != layout) {
      const FieldsOfCard fields(*layout);
      known.flags.assign(static_cast<size_t>(fields.Count()) + 1, 0);
      for (int32_t i = 1; i <= fields.Count(); ++i) {
        known.flags[static_cast<size_t>(i)] = static_cast<uint8_t>(
            (fields.IsDate(i) ? kDate : 0) | (fields.IsBookkeeping(i) ? kBookkeeping : 0) | (fields.NamedAsKey(i) ? kNamedAsKey : 0));
      }
      known.email = Find(*layout, "Email");
      known.name = Find(*layout, "Name");
      known.layout = layout;
    }
    return known;
  }
  uint8_t Flags(int32_t i) const { return layout_.flags[static_cast<size_t>(i)]; }

  const Layout& layout_;
  const CCardStoreMgr::ReadFields& read_;
  const int32_t* slot_;
};

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
    if (fields.IsBookkeeping(i)) continue;
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
    if (fields.IsBookkeeping(i)) continue;
    const auto text = fields.Text(i);
    if (!text.empty()) put(fields.Label(i));
    *out++ = '\t';
    put(text);
    *out++ = '\r';
    *out++ = '\n';
  }
}

// CCard::GetText and CCard::GetAllUserModifiableData of the card with those fields.
template <class Fields>
void AppendTextAndUserData(const Fields& fields, std::string& text, std::string& userData) {
  for (int32_t i = 1, n = fields.Count(); i <= n; ++i) {
    const CCardField& place = fields.Place(i);
    CCard::AppendTextOf(place, fields.Text(i), text);
    CCard::AppendUserDataOf(place, fields.Text(i), fields.Label(i), userData);
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
