// The card row's value encoding, the rules that say which value names exist
// and how they are spelled canonically, and the table of names and codes
// through which every card is decoded.
#include <array>
#include <bit>
#include <cstring>

#include "cardstore/sqlite_card_store_internal.h"
#include "ombrel/cards/field_catalogue.h"

namespace ombrel::sqlite_store {

void AppendVarint(std::string& out, uint64_t value) {
  while (value >= 0x80) {
    out.push_back(static_cast<char>((value & 0x7F) | 0x80));
    value >>= 7;
  }
  out.push_back(static_cast<char>(value));
}

void EncodeValues(const std::vector<CodedValue>& values, std::string& out) {
  out.clear();
  for (const auto& v : values) {
    AppendVarint(out, v.code);
    AppendVarint(out, v.text.size());
    out.append(v.text);
  }
}

static bool EndsWithNoCase(std::string_view s, std::string_view suffix) {
  if (s.size() <= suffix.size()) return false;  // the field name before it must not be empty
  std::string_view tail = s.substr(s.size() - suffix.size());
  for (size_t i = 0; i < suffix.size(); ++i) {
    auto lower = [](char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; };
    if (lower(tail[i]) != lower(suffix[i])) return false;
  }
  return true;
}

bool CanonicalName(std::string_view name, const std::unordered_set<std::string>& customFields, std::string& canonical) {
  auto isField = [&](std::string_view n) { return IsStandardFieldName(n) || customFields.count(std::string(n)) > 0; };
  // A whole name wins over a suffix reading, so a custom field may itself
  // end in something that looks like a suffix.
  if (isField(name) || name == kFirstNameValue || name == kLastNameValue || name == kCertaintyValue) {
    canonical.assign(name);
    return true;
  }
  static constexpr std::array kSuffixes = {kLabelSuffix, kRectangleSuffix, kConfidenceLevelsSuffix, kSuspectInfoSuffix};
  for (std::string_view suffix : kSuffixes) {
    if (!EndsWithNoCase(name, suffix)) continue;
    std::string_view base = name.substr(0, name.size() - suffix.size());
    if (!isField(base)) continue;
    canonical.assign(base);
    canonical.append(suffix);
    return true;
  }
  return false;
}

namespace {

// Mixes the length and the first and last eight bytes, where value names
// differ ("Phone 1.Label", "Phone 2.Label", "Email.Rectangle").
size_t NameHash(std::string_view name) {
  uint64_t head = 0, tail = 0;
  if (name.size() >= 8) {
    std::memcpy(&head, name.data(), 8);
    std::memcpy(&tail, name.data() + name.size() - 8, 8);
  } else if (!name.empty()) {
    std::memcpy(&head, name.data(), name.size());
  }
  uint64_t h = head * 0x9E3779B97F4A7C15ULL ^ std::rotl(tail * 0xC2B2AE3D27D4EB4FULL, 31) ^ name.size();
  h ^= h >> 29;
  h *= 0xBF58476D1CE4E5B9ULL;
  return static_cast<size_t>(h >> 32);
}

[[noreturn]] void FailDamaged(int32_t cardId) {
  Fail(CSqliteCardStore::kStatusDatabase, "the stored values of card " + std::to_string(cardId) + " are damaged");
}

}  // namespace

bool ResolvedNames::Find(std::string_view name, int32_t& index, size_t& slot) const {
  static_assert(std::has_single_bit(kResolvedSlots));
  const size_t mask = kResolvedSlots - 1;
  const size_t h = NameHash(name);
  const auto tag = static_cast<uint32_t>(h);
  for (slot = h & mask; slots_[slot].length != kUnused; slot = (slot + 1) & mask) {
    const Slot& s = slots_[slot];
    if (s.hash == tag && std::string_view(names_).substr(s.offset, s.length) == name) {
      index = s.index;
      return true;
    }
  }
  return false;
}

void ResolvedNames::Add(size_t slot, std::string_view name, int32_t index) {
  // Names asked for are few; emptying the table when half full bounds a
  // misuse and keeps probes short (slot, free before, stays free).
  if (count_ >= kResolvedSlots / 2) Clear();
  if (name.size() >= kUnused || names_.size() + name.size() >= kUnused) return;  // not remembered: resolved again when asked
  slots_[slot] = {static_cast<uint32_t>(NameHash(name)), index, static_cast<uint32_t>(names_.size()),
                  static_cast<uint32_t>(name.size())};
  names_.append(name);
  ++count_;
}

void ResolvedNames::Clear() {
  for (auto& s : slots_) s.length = kUnused;
  names_.clear();
  count_ = 0;
}

// One pass over the blob (WalkValues), straight into the card's index or the
// picked views: every card of a scan comes through here.
uint64_t DecodeWith(const std::vector<int32_t>& canonByCode, size_t names, int32_t cardId, std::string_view blob,
                    DecodedCard& card, PickedNames* pick) {
  // Held in locals: the stores below would otherwise make the compiler
  // fetch the tables afresh for every value.
  const int32_t* canonOf = canonByCode.data();
  const uint64_t codes = canonByCode.size();
  uint64_t unknown = 0;
  bool whole = false;
  if (pick) {
    std::fill(pick->views.begin(), pick->views.end(), std::string_view());
    const int32_t* slotOf = pick->slotOf.data();
    const auto slots = static_cast<int32_t>(pick->slotOf.size());
    std::string_view* views = pick->views.data();
    whole = WalkValues(blob, [&](uint64_t code, std::string_view text) {
      const int32_t index = code < codes ? canonOf[code] : -1;
      if (index < 0 && unknown == 0) unknown = code;
      if (unknown != 0 || index >= slots) return;  // failing anyway; read on only to find damage
      const int32_t slot = slotOf[index];
      if (slot >= 0) views[slot] = text;
    });
  } else {
    card.ClearSlots();
    card.canonIndex.clear();
    card.values.clear();
    card.valid = false;
    if (card.slot.size() < names) card.slot.resize(names, -1);
    int32_t* slot = card.slot.data();
    int32_t position = 0;
    whole = WalkValues(blob, [&](uint64_t code, std::string_view text) {
      const int32_t index = code < codes ? canonOf[code] : -1;
      if (index < 0 && unknown == 0) unknown = code;
      if (unknown != 0) return;
      card.values.push_back({static_cast<uint32_t>(code), text});
      card.canonIndex.push_back(index);
      slot[index] = position++;
    });
  }
  if (!whole) FailDamaged(cardId);
  if (unknown == 0 && !pick) card.id = cardId;
  return unknown;
}

// ---- the name table -----------------------------------------------------------------

int32_t NameTable::Intern(const std::string& canonical) {
  auto it = canonByName_.find(canonical);
  if (it != canonByName_.end()) return it->second;
  auto index = static_cast<int32_t>(canon_.size());
  canon_.push_back({canonical, -1});
  canonByName_.emplace(canonical, index);
  return index;
}

void NameTable::EnsureCodesLoaded() {
  if (codesLoaded_) return;
  for (auto& c : canon_) c.code = -1;
  canonByCode_.clear();
  StatementUse use(c_.St().selectNames);
  while (use->Step()) {
    int64_t code = use->Int(0);
    if (code <= 0 || code > (1 << 24))
      Fail(CSqliteCardStore::kStatusDatabase, "value_names holds an impossible code " + std::to_string(code));
    int32_t index = Intern(std::string(use->Text(1)));
    canon_[index].code = code;
    if (canonByCode_.size() <= static_cast<size_t>(code)) canonByCode_.resize(code + 1, -1);
    canonByCode_[code] = index;
  }
  codesLoaded_ = true;
}

void NameTable::EnsureCustomFieldsLoaded() {
  if (customLoaded_) return;
  customFields_.clear();
  StatementUse use(c_.St().selectCustom);
  while (use->Step()) customFields_.emplace(use->Text(0));
  customLoaded_ = true;
  resolved_.Clear();
  ++generation_;
}

int32_t NameTable::Resolve(std::string_view name) {
  EnsureCustomFieldsLoaded();
  int32_t index = kUnknownName;
  size_t slot = 0;
  if (resolved_.Find(name, index, slot)) return index;
  std::string canonical;
  index = CanonicalName(name, customFields_, canonical) ? Intern(canonical) : kUnknownName;
  resolved_.Add(slot, name, index);
  return index;
}

int32_t NameTable::ResolveOrFail(std::string_view name) {
  int32_t index = Resolve(name);
  if (index == kUnknownName && !c_.InBracket()) {
    // Perhaps another connection has just declared that custom field.
    c_.Refresh(true);
    index = Resolve(name);
  }
  if (index == kUnknownName)
    Fail(CSqliteCardStore::kStatusUnknownValueName, "unknown value name \"" + std::string(name) + "\"");
  return index;
}

uint32_t NameTable::EnsureCode(int32_t canon) {
  EnsureCodesLoaded();
  if (canon_[canon].code > 0) return static_cast<uint32_t>(canon_[canon].code);
  const std::string& name = canon_[canon].name;
  {
    StatementUse use(c_.St().insertName);
    use->BindText(1, name);
    use->Step();
  }
  StatementUse use(c_.St().selectName);
  use->BindText(1, name);
  if (!use->Step()) Fail(CSqliteCardStore::kStatusDatabase, "cannot register value name \"" + name + "\"");
  int64_t code = use->Int(0);
  canon_[canon].code = code;
  if (canonByCode_.size() <= static_cast<size_t>(code)) canonByCode_.resize(code + 1, -1);
  canonByCode_[code] = canon;
  return static_cast<uint32_t>(code);
}

void NameTable::Decode(int32_t cardId, std::string_view blob, DecodedCard& card, PickedNames* pick) {
  EnsureCodesLoaded();
  uint64_t unknown = DecodeWith(canonByCode_, canon_.size(), cardId, blob, card, pick);
  if (unknown != 0) {
    // A name another connection registered since we last looked.
    codesLoaded_ = false;
    EnsureCodesLoaded();
    unknown = DecodeWith(canonByCode_, canon_.size(), cardId, blob, card, pick);
  }
  if (unknown != 0) {
    Fail(CSqliteCardStore::kStatusDatabase,
         "card " + std::to_string(cardId) + " holds unknown value code " + std::to_string(unknown));
  }
}

}  // namespace ombrel::sqlite_store
