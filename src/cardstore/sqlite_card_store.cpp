// The card store contract on an SQLite file: per-card values, the card order,
// update brackets, and the caches that make reading a card one query.
#include "ombrel/cardstore/sqlite_card_store.h"

#include <algorithm>
#include <bit>
#include <atomic>
#include <cstring>

#include "cardstore/sqlite_card_store_internal.h"

namespace ombrel {

using namespace sqlite_store;

std::string DescribeCall(std::string_view operation, int32_t cardId, std::string_view valueName) {
  std::string call(operation);
  if (cardId == 0 && valueName.empty()) return call;
  call += "(";
  if (cardId != 0) call += "card " + std::to_string(cardId);
  if (cardId != 0 && !valueName.empty()) call += ", ";
  if (!valueName.empty()) call.append("\"").append(valueName).append("\"");
  return call + ")";
}

// ---- ID sets ------------------------------------------------------------------

void sqlite_store::IdSet::Clear() {
  bits_.clear();
  sparse_.clear();
  size_ = 0;
}

void sqlite_store::IdSet::Assign(const std::vector<int32_t>& ids) {
  Clear();
  uint32_t top = 0;
  for (int32_t id : ids) top = std::max(top, static_cast<uint32_t>(id));
  // Sized once for the whole set, under the budget it will have.
  bits_.resize(std::min<size_t>((top >> 6) + 1, 1024 + 2 * ids.size()));
  for (int32_t id : ids) Insert(id);
}

void sqlite_store::IdSet::Insert(int32_t id) {
  if (Contains(id)) return;
  auto u = static_cast<uint32_t>(id);
  size_t word = u >> 6;
  if (word >= bits_.size() && word < WordBudget()) bits_.resize(std::max(word + 1, bits_.size() * 2));
  if (word < bits_.size()) {
    bits_[word] |= uint64_t{1} << (u & 63);
  } else {
    sparse_.insert(id);
  }
  ++size_;
}

void sqlite_store::IdSet::Erase(int32_t id) {
  auto u = static_cast<uint32_t>(id);
  size_t word = u >> 6;
  uint64_t bit = uint64_t{1} << (u & 63);
  if (word < bits_.size() && (bits_[word] & bit)) {
    bits_[word] &= ~bit;
    --size_;
  } else if (!sparse_.empty() && sparse_.erase(id) > 0) {
    --size_;
  }
}

// ---- caches ---------------------------------------------------------------

void CSqliteCardStore::Impl::InvalidateAll() {
  card_.valid = false;
  card_.dirty = false;
  card_.owned.clear();
  orderValid_ = false;
  order_.clear();
  ids_.Clear();
  orderHoles_ = 0;
  imagesValid_ = false;
  images_[0].Clear();
  images_[1].Clear();
  handles_.clear();
  namesLoaded_ = false;
  customLoaded_ = false;  // and with them the resolved names
}

// Other connections' commits show in PRAGMA data_version; our own do not,
// and our own writes keep the caches current themselves. Inside a bracket we
// hold the write lock, so nothing can change under us.
void CSqliteCardStore::Impl::Refresh(bool force) {
  if (inBracket_) return;
  auto now = std::chrono::steady_clock::now();
  if (!force && dataVersion_ >= 0 && now - lastCheck_ < std::chrono::milliseconds(options_.refreshIntervalMs)) {
    return;
  }
  lastCheck_ = now;
  const int64_t version = CurrentDataVersion();
  if (version != dataVersion_) {
    if (dataVersion_ >= 0) InvalidateAll();
    dataVersion_ = version;
  }
}

void CSqliteCardStore::Impl::RequireConnected() const {
  if (!db_) Fail(kStatusNotConnected, "not connected to '" + path_ + "' (call Connect)");
}

void CSqliteCardStore::Impl::EnsureIdsLoaded() {
  if (orderValid_) return;
  order_.clear();
  ids_.Clear();
  orderHoles_ = 0;
  std::vector<std::pair<int64_t, int32_t>> rows;
  {
    StatementUse use(st_->selectOrder);
    while (use->Step()) rows.emplace_back(use->Int(0), static_cast<int32_t>(use->Int(1)));
  }
  // Read in ID order; IDs usually grow with the insertion order, so this
  // rarely has anything to sort.
  if (!std::is_sorted(rows.begin(), rows.end())) std::sort(rows.begin(), rows.end());
  std::vector<int32_t> order;
  order.reserve(rows.size());
  for (const auto& row : rows) order.push_back(row.second);
  SetOrder(std::move(order));
}

void CSqliteCardStore::Impl::SetOrder(std::vector<int32_t>&& order) {
  order_ = std::move(order);
  ids_.Assign(order_);
  orderHoles_ = 0;
  orderValid_ = true;
}

int64_t CSqliteCardStore::Impl::CurrentDataVersion() {
  StatementUse use(st_->dataVersion);
  use->Step();
  return use->Int(0);
}

CSqliteCardStore::Impl::ScanStart CSqliteCardStore::Impl::BeginIdCollection() {
  ScanStart start;
  // Inside a bracket the scan sees changes not committed yet.
  if (orderValid_ || inBracket_) return start;
  start.dataVersion = CurrentDataVersion();
  start.writes = writes_;
  // Caches older than the database would be dropped at the next look anyway.
  start.collect = start.dataVersion == dataVersion_;
  return start;
}

void CSqliteCardStore::Impl::AdoptScannedIds(const ScanStart& start, std::vector<int32_t>&& ids) {
  if (!start.collect || orderValid_ || inBracket_ || writes_ != start.writes) return;
  // No other connection committed meanwhile: every part read this state.
  if (CurrentDataVersion() != start.dataVersion || dataVersion_ != start.dataVersion) return;
  SetOrder(std::move(ids));
}

void CSqliteCardStore::Impl::EnsureOrderLoaded() {
  EnsureIdsLoaded();
  if (orderHoles_ == 0) return;
  // Deletions only mark the set; the order is compacted once, when next asked for.
  std::erase_if(order_, [&](int32_t id) { return !ids_.Contains(id); });
  orderHoles_ = 0;
}

void CSqliteCardStore::Impl::EnsureImagesLoaded() {
  if (imagesValid_) return;
  std::vector<int32_t> sides[2];
  {
    StatementUse use(st_->selectImageSides);
    while (use->Step()) {
      int64_t id = use->Int(0), side = use->Int(1);
      // Rows no card could own are never asked about.
      if (id >= 1 && id <= INT32_MAX && (side == 0 || side == 1)) sides[side].push_back(static_cast<int32_t>(id));
    }
  }
  images_[0].Assign(sides[0]);
  images_[1].Assign(sides[1]);
  imagesValid_ = true;
}

void CSqliteCardStore::Impl::ForgetCard(int32_t cardId) {
  if (card_.id == cardId) {
    card_.valid = false;
    card_.dirty = false;
  }
  if (orderValid_ && ids_.Contains(cardId)) {
    ids_.Erase(cardId);
    ++orderHoles_;
  }
  images_[0].Erase(cardId);
  images_[1].Erase(cardId);
  handles_.erase({cardId, 0});
  handles_.erase({cardId, 1});
}

// ---- value names ------------------------------------------------------------

int32_t CSqliteCardStore::Impl::Intern(const std::string& canonical) {
  auto it = canonByName_.find(canonical);
  if (it != canonByName_.end()) return it->second;
  auto index = static_cast<int32_t>(canon_.size());
  canon_.push_back({canonical, -1});
  canonByName_.emplace(canonical, index);
  return index;
}

void CSqliteCardStore::Impl::EnsureNamesLoaded() {
  if (namesLoaded_) return;
  for (auto& c : canon_) c.code = -1;
  canonByCode_.clear();
  StatementUse use(st_->selectNames);
  while (use->Step()) {
    int64_t code = use->Int(0);
    if (code <= 0 || code > (1 << 24))
      Fail(kStatusDatabase, "value_names holds an impossible code " + std::to_string(code));
    int32_t index = Intern(std::string(use->Text(1)));
    canon_[index].code = code;
    if (canonByCode_.size() <= static_cast<size_t>(code)) canonByCode_.resize(code + 1, -1);
    canonByCode_[code] = index;
  }
  namesLoaded_ = true;
}

void CSqliteCardStore::Impl::EnsureCustomFieldsLoaded() {
  if (customLoaded_) return;
  customFields_.clear();
  StatementUse use(st_->selectCustom);
  while (use->Step()) customFields_.emplace(use->Text(0));
  customLoaded_ = true;
  resolved_.Clear();
  ++resolveGeneration_;
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

}  // namespace

bool sqlite_store::ResolvedNames::Find(std::string_view name, int32_t& index, size_t& slot) const {
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

void sqlite_store::ResolvedNames::Add(size_t slot, std::string_view name, int32_t index) {
  // Names asked for are few; emptying the table when half full bounds a
  // misuse and keeps probes short (slot, free before, stays free).
  if (count_ >= kResolvedSlots / 2) Clear();
  if (name.size() >= kUnused || names_.size() + name.size() >= kUnused) return;  // not remembered: resolved again when asked
  slots_[slot] = {static_cast<uint32_t>(NameHash(name)), index, static_cast<uint32_t>(names_.size()),
                  static_cast<uint32_t>(name.size())};
  names_.append(name);
  ++count_;
}

void sqlite_store::ResolvedNames::Clear() {
  for (auto& s : slots_) s.length = kUnused;
  names_.clear();
  count_ = 0;
}

uint64_t sqlite_store::ViewedValues::Prepare(std::span<const std::string> names) const {
  // Tickets are unique in the process, so none is taken for another object's.
  static std::atomic<uint64_t> lastTicket{0};
  FullCard();  // the card shown may have been picked by the names before
  prepared_.clear();
  for (const std::string& name : names) prepared_.push_back(Resolve(name));
  generation_ = Generation();
  ticket_ = ++lastTicket;
  // Picked when each name is there once (a view per name).
  picking_ = true;
  pick_.slotOf.clear();
  pick_.views.assign(prepared_.size(), {});
  for (size_t k = 0; picking_ && k < prepared_.size(); ++k) {
    const int32_t index = prepared_[k];
    if (index < 0) continue;  // no such name: always empty
    if (pick_.slotOf.size() <= static_cast<size_t>(index)) pick_.slotOf.resize(static_cast<size_t>(index) + 1, -1);
    if (pick_.slotOf[static_cast<size_t>(index)] >= 0) picking_ = false;
    pick_.slotOf[static_cast<size_t>(index)] = static_cast<int32_t>(k);
  }
  return ticket_;
}

std::string_view sqlite_store::ViewedValues::Find(std::string_view name) const {
  const int32_t index = Resolve(name);
  if (picked_ && index >= 0 && static_cast<size_t>(index) < pick_.slotOf.size()) {
    const int32_t slot = pick_.slotOf[static_cast<size_t>(index)];
    if (slot >= 0) return pick_.views[static_cast<size_t>(slot)];
  }
  return FullCard().Find(index);
}

void sqlite_store::ViewedValues::Show(int32_t id, std::string_view blob) {
  shownId_ = id;
  shownBlob_ = blob;
  // The card is taken as not shown until its decode succeeds.
  picked_ = false;
  const bool pick = picking_ && Generation() == generation_;
  Decode(id, blob, pick ? &pick_ : nullptr);
  picked_ = pick;
}

const sqlite_store::DecodedCard& sqlite_store::ViewedValues::FullCard() const {
  if (picked_) {
    // The whole blob decoded without a fault when picked: so it does again.
    const_cast<ViewedValues*>(this)->Decode(shownId_, shownBlob_, nullptr);
    picked_ = false;
  }
  return Card();
}

int32_t CSqliteCardStore::Impl::Resolve(std::string_view name) {
  EnsureCustomFieldsLoaded();
  int32_t index = kUnknownName;
  size_t slot = 0;
  if (resolved_.Find(name, index, slot)) return index;
  std::string canonical;
  index = CanonicalName(name, customFields_, canonical) ? Intern(canonical) : kUnknownName;
  resolved_.Add(slot, name, index);
  return index;
}

int32_t CSqliteCardStore::Impl::ResolveOrFail(std::string_view name) {
  int32_t index = Resolve(name);
  if (index == kUnknownName && !inBracket_) {
    // Perhaps another connection has just declared that custom field.
    Refresh(true);
    index = Resolve(name);
  }
  if (index == kUnknownName) Fail(kStatusUnknownValueName, "unknown value name \"" + std::string(name) + "\"");
  return index;
}

uint32_t CSqliteCardStore::Impl::EnsureCode(int32_t canon) {
  EnsureNamesLoaded();
  if (canon_[canon].code > 0) return static_cast<uint32_t>(canon_[canon].code);
  const std::string& name = canon_[canon].name;
  {
    StatementUse use(st_->insertName);
    use->BindText(1, name);
    use->Step();
  }
  StatementUse use(st_->selectName);
  use->BindText(1, name);
  if (!use->Step()) Fail(kStatusDatabase, "cannot register value name \"" + name + "\"");
  int64_t code = use->Int(0);
  canon_[canon].code = code;
  if (canonByCode_.size() <= static_cast<size_t>(code)) canonByCode_.resize(code + 1, -1);
  canonByCode_[code] = canon;
  return static_cast<uint32_t>(code);
}

namespace {

[[noreturn]] void FailDamaged(int32_t cardId) {
  Fail(CSqliteCardStore::kStatusDatabase, "the stored values of card " + std::to_string(cardId) + " are damaged");
}

// DecodeWith's pass for a few picked names: the same checks over the whole
// blob, keeping only the picked values.
uint64_t DecodePicked(const std::vector<int32_t>& canonByCode, int32_t cardId, std::string_view blob,
                      sqlite_store::PickedNames& pick) {
  std::fill(pick.views.begin(), pick.views.end(), std::string_view());
  auto* p = reinterpret_cast<const unsigned char*>(blob.data());
  auto* end = p + blob.size();
  const int32_t* canonOf = canonByCode.data();
  const uint64_t codes = canonByCode.size();
  const int32_t* slotOf = pick.slotOf.data();
  const auto slots = static_cast<int32_t>(pick.slotOf.size());
  uint64_t unknown = 0;
  while (p != end) {
    uint64_t code = 0, length = 0;
    if (end - p >= 2 && ((p[0] | p[1]) & 0x80) == 0) {  // a code and a length of one byte each: most values
      code = p[0];
      length = p[1];
      p += 2;
      if (code == 0 || length > static_cast<uint64_t>(end - p)) FailDamaged(cardId);
    } else if (!sqlite_store::ReadVarint(p, end, code) || !sqlite_store::ReadVarint(p, end, length) || code == 0 ||
               code > UINT32_MAX || length > static_cast<uint64_t>(end - p)) {
      FailDamaged(cardId);
    }
    const auto* text = p;
    p += length;
    const int32_t index = code < codes ? canonOf[code] : -1;
    if (index < 0) {
      if (unknown == 0) unknown = code;
      continue;
    }
    if (unknown != 0 || index >= slots) continue;
    const int32_t slot = slotOf[index];
    if (slot >= 0) pick.views[static_cast<size_t>(slot)] = std::string_view(reinterpret_cast<const char*>(text), length);
  }
  return unknown;
}

}  // namespace

// One pass over the blob, straight into the card's index: every card of a
// scan comes through here.
uint64_t sqlite_store::DecodeWith(const std::vector<int32_t>& canonByCode, size_t names, int32_t cardId,
                                  std::string_view blob, DecodedCard& card, PickedNames* pick) {
  if (pick) return DecodePicked(canonByCode, cardId, blob, *pick);
  card.ClearSlots();
  card.canonIndex.clear();
  card.values.clear();
  card.valid = false;
  if (card.slot.size() < names) card.slot.resize(names, -1);
  auto* p = reinterpret_cast<const unsigned char*>(blob.data());
  auto* end = p + blob.size();
  // Held in locals: the stores below would otherwise make the compiler
  // fetch the tables afresh for every value.
  const int32_t* canonOf = canonByCode.data();
  const uint64_t codes = canonByCode.size();
  int32_t* slot = card.slot.data();
  uint64_t unknown = 0;
  int32_t position = 0;
  while (p != end) {
    uint64_t code = 0, length = 0;
    if (!ReadVarint(p, end, code) || !ReadVarint(p, end, length) || code == 0 || code > UINT32_MAX ||
        length > static_cast<uint64_t>(end - p)) {
      FailDamaged(cardId);
    }
    std::string_view text(reinterpret_cast<const char*>(p), length);
    p += length;
    const int32_t index = code < codes ? canonOf[code] : -1;
    if (index < 0 && unknown == 0) unknown = code;
    if (unknown != 0) continue;  // failing anyway; read on only to find damage
    card.values.push_back({static_cast<uint32_t>(code), text});
    card.canonIndex.push_back(index);
    slot[index] = position++;
  }
  if (unknown == 0) card.id = cardId;
  return unknown;
}

void CSqliteCardStore::Impl::Decode(int32_t cardId, std::string_view blob, DecodedCard& card, PickedNames* pick) {
  EnsureNamesLoaded();
  uint64_t unknown = DecodeWith(canonByCode_, canon_.size(), cardId, blob, card, pick);
  if (unknown != 0) {
    // A name another connection registered since we last looked.
    namesLoaded_ = false;
    EnsureNamesLoaded();
    unknown = DecodeWith(canonByCode_, canon_.size(), cardId, blob, card, pick);
  }
  if (unknown != 0) {
    Fail(kStatusDatabase, "card " + std::to_string(cardId) + " holds unknown value code " + std::to_string(unknown));
  }
}

// ---- cards ------------------------------------------------------------------

void CSqliteCardStore::Impl::LoadCard(int32_t cardId) {
  Refresh(false);
  if (card_.valid && card_.id == cardId) return;
  FlushCard();
  card_.valid = false;
  card_.owned.clear();
  StatementUse use(st_->selectVals);
  use->BindInt(1, cardId);
  if (!use->Step()) Fail(kStatusUnknownCard, "no such card");
  card_.blob.assign(use->Blob(0));
  Decode(cardId, card_.blob, card_);
  card_.valid = true;
}

bool CSqliteCardStore::Impl::CardRowExists(int32_t cardId) {
  Refresh(false);
  if (card_.valid && card_.id == cardId) return true;
  EnsureIdsLoaded();
  return ids_.Contains(cardId);
}

void CSqliteCardStore::Impl::ApplyValue(int32_t canon, uint32_t code, const std::string& value) {
  DecodedCard& c = card_;
  int32_t pos = canon < static_cast<int32_t>(c.slot.size()) ? c.slot[canon] : -1;
  if (pos >= 0 ? c.values[pos].text == value : value.empty()) return;
  if (value.empty()) {
    c.values.erase(c.values.begin() + pos);
    c.canonIndex.erase(c.canonIndex.begin() + pos);
    c.slot[canon] = -1;
    for (size_t i = pos; i < c.values.size(); ++i) c.slot[c.canonIndex[i]] = static_cast<int32_t>(i);
  } else {
    // Everything that allocates comes first, so that running out of memory
    // leaves the card as it was.
    if (pos < 0) {
      if (c.slot.size() <= static_cast<size_t>(canon)) c.slot.resize(canon_.size(), -1);
      c.values.reserve(c.values.size() + 1);
      c.canonIndex.reserve(c.values.size() + 1);
    }
    std::string_view text = c.owned.emplace_back(value);
    if (pos >= 0) {
      c.values[pos].text = text;
    } else {
      c.values.push_back({code, text});
      c.canonIndex.push_back(canon);
      c.slot[canon] = static_cast<int32_t>(c.values.size() - 1);
    }
  }
  c.dirty = true;
}

void CSqliteCardStore::Impl::FlushCard() {
  if (!card_.dirty) return;
  std::string blob;
  EncodeValues(card_.values, blob);
  try {
    StatementUse use(st_->updateVals);
    use->BindInt(1, card_.id);
    use->BindBlob(2, blob);
    use->Step();
  } catch (Failure& f) {
    f.message = "the changes to card " + std::to_string(card_.id) + " could not be written: " + f.message;
    throw;
  }
  card_.dirty = false;
  // Values given many times over would pile up: keep the texts in the blob.
  if (card_.owned.size() > card_.values.size() + 16) {
    card_.blob.swap(blob);
    DecodeValues(card_.blob, card_.values);  // same codes in the same order: canonIndex and slot hold
    card_.owned.clear();
  }
}

// ---- transactions -----------------------------------------------------------

void CSqliteCardStore::Impl::BeginImmediate() {
  {
    StatementUse use(st_->begin);
    use->Step();
  }
  // The lock brings the newest snapshot: drop what other connections changed.
  try {
    const int64_t version = CurrentDataVersion();
    if (version != dataVersion_) {
      InvalidateAll();
      dataVersion_ = version;
    }
  } catch (...) {
    // Nobody owns the transaction yet: do not leave it open.
    sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
    throw;
  }
}

void CSqliteCardStore::Impl::FinishOwnWrite() {
  StatementUse use(st_->commit);
  use->Step();
}

void CSqliteCardStore::Impl::AfterFailedWrite(bool ownTransaction) {
  if (!db_) return;
  if (ownTransaction) {
    if (!sqlite3_get_autocommit(db_)) sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
    InvalidateAll();
  } else if (sqlite3_get_autocommit(db_)) {
    // SQLite gave up the whole bracket (disk full, I/O error).
    inBracket_ = false;
    InvalidateAll();
  } else {
    // The bracket goes on; a half-done operation may have left these stale.
    // A card with pending changes stays: those calls succeeded, and no
    // failing step changes it half-way. The image sets follow each
    // statement that succeeds, so they stay too.
    if (!card_.dirty) card_.valid = false;
    orderValid_ = false;
    handles_.clear();
  }
}

// ---- the public class -------------------------------------------------------

CSqliteCardStore::CSqliteCardStore(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
CSqliteCardStore::~CSqliteCardStore() = default;

const std::string& CSqliteCardStore::Path() const { return impl_->path_; }
bool CSqliteCardStore::InUpdate() const { return impl_->inBracket_; }

Status CSqliteCardStore::Connect() {
  return impl_->Run("Connect", [&] {
    if (!impl_->db_) impl_->OpenConnection(OpenMode::kOpenExisting);
  });
}

Status CSqliteCardStore::Disconnect() {
  return impl_->Run("Disconnect", [&] { impl_->CloseConnection(); });
}

Status CSqliteCardStore::GetNumberOfCards(int32_t& numCards) {
  return impl_->Run("GetNumberOfCards", [&] {
    impl_->RequireConnected();
    impl_->Refresh(false);
    if (impl_->orderValid_) {
      numCards = static_cast<int32_t>(impl_->ids_.Size());
    } else {
      // A count walks the smallest index: a search that reads every card in
      // a scan never needs the order itself, which takes far longer to load.
      StatementUse use(impl_->st_->countCards);
      use->Step();
      numCards = static_cast<int32_t>(use->Int(0));
    }
  });
}

Status CSqliteCardStore::GetCardID(int32_t cardIndex, int32_t& cardId) {
  return impl_->Run("GetCardID", [&] {
    impl_->RequireConnected();
    impl_->Refresh(false);
    impl_->EnsureOrderLoaded();
    const auto& order = impl_->order_;
    if (cardIndex < 0 || static_cast<size_t>(cardIndex) >= order.size()) {
      sqlite_store::Fail(kStatusBadArgument, "card index " + std::to_string(cardIndex) + " is out of range (" +
                                                 std::to_string(order.size()) + " cards)");
    }
    cardId = order[cardIndex];
  });
}

Status CSqliteCardStore::GetValue(int32_t cardId, const std::string& fieldName, std::string& value) {
  value.clear();
  return impl_->Run("GetValue", cardId, fieldName, [&] {
    impl_->RequireConnected();
    int32_t index = impl_->ResolveOrFail(fieldName);
    impl_->LoadCard(cardId);
    value.assign(impl_->card_.Find(index));
  });
}

Status CSqliteCardStore::PutValue(int32_t cardId, const std::string& fieldName, const std::string& value) {
  return impl_->Run("PutValue", cardId, fieldName, [&] {
    Impl& s = *impl_;
    s.RequireConnected();
    WriteTransaction tx(s);
    int32_t index = s.ResolveOrFail(fieldName);
    s.LoadCard(cardId);
    uint32_t code = s.EnsureCode(index);
    s.ApplyValue(index, code, value);
    // Inside a bracket the row is written once, when the bracket leaves the card.
    if (!s.inBracket_) s.FlushCard();
    tx.Commit();
  });
}

Status CSqliteCardStore::DeleteCard(int32_t cardId) {
  return impl_->Run("DeleteCard", cardId, [&] {
    Impl& s = *impl_;
    s.RequireConnected();
    WriteTransaction tx(s);
    {
      StatementUse use(s.st_->deleteCard);
      use->BindInt(1, cardId);
      use->Step();
    }
    if (sqlite3_changes(s.db_) == 0) sqlite_store::Fail(kStatusUnknownCard, "no such card");
    {
      StatementUse use(s.st_->deleteImages);
      use->BindInt(1, cardId);
      use->Step();
    }
    s.ForgetCard(cardId);  // pending changes to it go with the row
    tx.Commit();
  });
}

Status CSqliteCardStore::CardExists(int32_t cardId, bool& answer) {
  return impl_->Run("CardExists", cardId, [&] {
    impl_->RequireConnected();
    answer = impl_->CardRowExists(cardId);
  });
}

Status CSqliteCardStore::BeginUpdate() {
  return impl_->Run("BeginUpdate", [&] {
    impl_->RequireConnected();
    if (impl_->inBracket_) sqlite_store::Fail(kStatusTransaction, "an update is already in progress");
    impl_->BeginImmediate();
    ++impl_->writes_;
    impl_->inBracket_ = true;
    impl_->bracketWrote_ = false;
  });
}

Status CSqliteCardStore::CommitUpdate() {
  return impl_->Run("CommitUpdate", [&] {
    Impl& s = *impl_;
    s.RequireConnected();
    if (!s.inBracket_) {
      sqlite_store::Fail(kStatusTransaction, sqlite3_get_autocommit(s.db_)
                                                 ? "no update in progress (an earlier failure may have ended it)"
                                                 : "no update in progress");
    }
    try {
      s.FlushCard();
      s.FinishOwnWrite();
    } catch (const Failure&) {
      // A failed write or COMMIT may leave the transaction open (retry or
      // abort, the pending changes kept) or gone.
      if (sqlite3_get_autocommit(s.db_)) {
        s.inBracket_ = false;
        s.InvalidateAll();
      }
      throw;
    }
    s.inBracket_ = false;
  });
}

Status CSqliteCardStore::AbortUpdate() {
  return impl_->Run("AbortUpdate", [&] {
    Impl& s = *impl_;
    s.RequireConnected();
    if (!s.inBracket_) sqlite_store::Fail(kStatusTransaction, "no update in progress");
    s.inBracket_ = false;
    // A bracket that wrote nothing leaves the caches as true as before.
    if (s.bracketWrote_) s.InvalidateAll();
    StatementUse use(s.st_->rollback);
    use->Step();
  });
}

Status CSqliteCardStore::GetCapabilities(int32_t& caps) {
  caps = 0;
  return 0;
}

std::string CSqliteCardStore::GetLastError() { return impl_->lastError_; }

Status CSqliteCardStore::GetCustomFields(std::string& fields) {
  fields.clear();
  std::vector<CustomFieldDef> defs;
  Status status = ListCustomFields(defs);
  if (status != 0) return status;
  for (const auto& d : defs) {
    if (!fields.empty()) fields += "\r\n";
    fields += d.name + "\t" + d.type + "\t" + d.visibility + "\t" + d.access;
  }
  return 0;
}

Status CSqliteCardStore::GetCategories(std::string& categories) {
  categories.clear();
  std::vector<std::string> list;
  Status status = ListCategories(list);
  if (status != 0) return status;
  for (const auto& c : list) {
    if (!categories.empty()) categories += ", ";
    categories += c;
  }
  return 0;
}

Status CSqliteCardStore::CanonicalValueName(std::string_view name, std::string& canonical) {
  return impl_->Run("CanonicalValueName", 0, name, [&] {
    impl_->RequireConnected();
    canonical = impl_->canon_[impl_->ResolveOrFail(name)].name;
  });
}

}  // namespace ombrel
