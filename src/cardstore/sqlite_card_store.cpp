// The card store contract on an SQLite file: per-card values, the card order,
// update brackets and snapshots, and the caches that make reading a card one
// query.
#include "ombrel/cardstore/sqlite_card_store.h"

#include <algorithm>
#include <atomic>

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

void IdSet::Clear() {
  bits_.clear();
  sparse_.clear();
  size_ = 0;
}

void IdSet::Assign(const std::vector<int32_t>& ids) {
  Clear();
  uint32_t top = 0;
  for (int32_t id : ids) top = std::max(top, static_cast<uint32_t>(id));
  // Sized once for the whole set, under the budget it will have.
  bits_.resize(std::min<size_t>((top >> 6) + 1, 1024 + 2 * ids.size()));
  for (int32_t id : ids) Insert(id);
}

void IdSet::Insert(int32_t id) {
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

void IdSet::Erase(int32_t id) {
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

// ---- card order -----------------------------------------------------------------

void CardOrder::EnsureLoaded() {
  if (valid_) return;
  std::vector<std::pair<int64_t, int32_t>> rows;
  {
    StatementUse use(c_.St().selectOrder);
    while (use->Step()) rows.emplace_back(use->Int(0), static_cast<int32_t>(use->Int(1)));
  }
  // Read in ID order; IDs usually grow with the insertion order, so this
  // rarely has anything to sort.
  if (!std::is_sorted(rows.begin(), rows.end())) std::sort(rows.begin(), rows.end());
  std::vector<int32_t> order;
  order.reserve(rows.size());
  for (const auto& row : rows) order.push_back(row.second);
  Set(std::move(order));
}

const std::vector<int32_t>& CardOrder::Order() {
  EnsureLoaded();
  if (holes_ != 0) {
    // Deletions only mark the set; the order is compacted once, when next asked for.
    std::erase_if(order_, [&](int32_t id) { return !ids_.Contains(id); });
    holes_ = 0;
  }
  return order_;
}

void CardOrder::Set(std::vector<int32_t>&& order) {
  order_ = std::move(order);
  ids_.Assign(order_);
  holes_ = 0;
  valid_ = true;
}

void CardOrder::Added(int32_t id) {
  if (!valid_) return;
  Order();  // a deleted ID may come back: its old place must go first
  order_.push_back(id);  // a new row always sorts last
  ids_.Insert(id);
}

void CardOrder::Deleted(int32_t id) {
  if (valid_ && ids_.Contains(id)) {
    ids_.Erase(id);
    ++holes_;
  }
}

void CardOrder::Invalidate() {
  valid_ = false;
  order_.clear();
  ids_.Clear();
  holes_ = 0;
}

// ---- the card at hand -------------------------------------------------------------

void CardBuffer::Load(int32_t cardId) {
  if (Holds(cardId)) return;
  Flush();
  card_.valid = false;
  card_.owned.clear();
  StatementUse use(c_.St().selectVals);
  use->BindInt(1, cardId);
  if (!use->Step()) Fail(CSqliteCardStore::kStatusUnknownCard, "no such card");
  card_.blob.assign(use->Blob(0));
  names_.Decode(cardId, card_.blob, card_);
  card_.valid = true;
}

void CardBuffer::Apply(int32_t canon, uint32_t code, const std::string& value) {
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
      if (c.slot.size() <= static_cast<size_t>(canon)) c.slot.resize(names_.Size(), -1);
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

void CardBuffer::Flush() {
  if (!card_.dirty) return;
  std::string blob;
  EncodeValues(card_.values, blob);
  try {
    StatementUse use(c_.St().updateVals);
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
    // Same codes in the same order: canonIndex and slot hold.
    size_t k = 0;
    WalkValues(card_.blob, [&](uint64_t, std::string_view text) { card_.values[k++].text = text; });
    card_.owned.clear();
  }
}

void CardBuffer::Forget(int32_t cardId) {
  if (card_.id == cardId) {
    card_.valid = false;
    card_.dirty = false;
  }
}

void CardBuffer::Discard() {
  card_.valid = false;
  card_.dirty = false;
  card_.owned.clear();
}

// ---- scans' values ------------------------------------------------------------------

uint64_t ViewedValues::Prepare(std::span<const std::string> names) const {
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

std::string_view ViewedValues::Find(std::string_view name) const {
  const int32_t index = Resolve(name);
  if (picked_ && index >= 0 && static_cast<size_t>(index) < pick_.slotOf.size()) {
    const int32_t slot = pick_.slotOf[static_cast<size_t>(index)];
    if (slot >= 0) return pick_.views[static_cast<size_t>(slot)];
  }
  return FullCard().Find(index);
}

void ViewedValues::Show(int32_t id, std::string_view blob) {
  shownId_ = id;
  shownBlob_ = blob;
  // The card is taken as not shown until its decode succeeds.
  picked_ = false;
  const bool pick = picking_ && Generation() == generation_;
  Decode(id, blob, pick ? &pick_ : nullptr);
  picked_ = pick;
}

const DecodedCard& ViewedValues::FullCard() const {
  if (picked_) {
    // The whole blob decoded without a fault when picked: so it does again.
    const_cast<ViewedValues*>(this)->Decode(shownId_, shownBlob_, nullptr);
    picked_ = false;
  }
  return Card();
}

// ---- the store's own rules --------------------------------------------------------

void CSqliteCardStore::Impl::InvalidateAll() {
  card.Discard();
  order.Invalidate();
  images.Invalidate();
  names.Invalidate();
}

void CSqliteCardStore::Impl::ReadyToRead() {
  conn.RequireReadable();
  conn.Refresh(false);
}

bool CSqliteCardStore::Impl::CardExists(int32_t cardId) {
  ReadyToRead();
  return card.Holds(cardId) || order.Contains(cardId);
}

void CSqliteCardStore::Impl::RequireCard(int32_t cardId) {
  if (!CardExists(cardId)) Fail(kStatusUnknownCard, "no such card");
}

CSqliteCardStore::Impl::ScanStart CSqliteCardStore::Impl::BeginIdCollection() {
  ScanStart start;
  // Inside a bracket the scan sees changes not committed yet.
  if (order.Valid() || conn.InBracket()) return start;
  start.dataVersion = conn.DataVersion();
  start.writes = conn.Writes();
  // Caches older than the database would be dropped at the next look anyway.
  start.collect = start.dataVersion == conn.CachedVersion();
  return start;
}

void CSqliteCardStore::Impl::AdoptScannedIds(const ScanStart& start, std::vector<int32_t>&& ids) {
  if (!start.collect || order.Valid() || conn.InBracket() || conn.Writes() != start.writes) return;
  // No other connection committed meanwhile: every part read this state.
  if (conn.DataVersion() != start.dataVersion || conn.CachedVersion() != start.dataVersion) return;
  order.Set(std::move(ids));
}

WriteTransaction::~WriteTransaction() {
  if (done_) return;
  if (s_.conn.AfterFailedWrite(own_)) {
    // The bracket goes on; a half-done operation may have left these stale.
    // A card with pending changes stays: those calls succeeded, and no
    // failing step changes it half-way. The image sets follow each
    // statement that succeeds, so they stay too.
    s_.card.DropUnlessDirty();
    s_.order.Invalidate();
    s_.images.ForgetHandles();
  } else {
    s_.InvalidateAll();
  }
}

// ---- the public class -------------------------------------------------------

CSqliteCardStore::CSqliteCardStore(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
CSqliteCardStore::~CSqliteCardStore() = default;

const std::string& CSqliteCardStore::Path() const { return impl_->conn.Path(); }
bool CSqliteCardStore::InUpdate() const { return impl_->conn.InBracket(); }
int64_t CSqliteCardStore::CardsDeleted() const { return impl_->conn.CommittedDeletions(); }

Status CSqliteCardStore::Connect() {
  return impl_->Run("Connect", [&] {
    if (impl_->conn.Db()) return;
    impl_->conn.Open(impl_->mode == OpenMode::kReadOnly ? OpenMode::kReadOnly : OpenMode::kOpenExisting);
  });
}

Status CSqliteCardStore::Disconnect() {
  return impl_->Run("Disconnect", [&] { impl_->conn.Close(); });
}

Status CSqliteCardStore::GetNumberOfCards(int32_t& numCards) {
  return impl_->Run("GetNumberOfCards", [&] {
    Impl& s = *impl_;
    s.ReadyToRead();
    if (s.order.Valid()) {
      numCards = static_cast<int32_t>(s.order.Size());
    } else {
      // A count walks the smallest index: a search that reads every card in
      // a scan never needs the order itself, which takes far longer to load.
      StatementUse use(s.conn.St().countCards);
      use->Step();
      numCards = static_cast<int32_t>(use->Int(0));
    }
  });
}

Status CSqliteCardStore::GetCardID(int32_t cardIndex, int32_t& cardId) {
  return impl_->Run("GetCardID", [&] {
    impl_->ReadyToRead();
    const auto& order = impl_->order.Order();
    if (cardIndex < 0 || static_cast<size_t>(cardIndex) >= order.size()) {
      Fail(kStatusBadArgument,
           "card index " + std::to_string(cardIndex) + " is out of range (" + std::to_string(order.size()) + " cards)");
    }
    cardId = order[cardIndex];
  });
}

Status CSqliteCardStore::GetValue(int32_t cardId, const std::string& fieldName, std::string& value) {
  value.clear();
  return impl_->Run("GetValue", cardId, fieldName, [&] {
    Impl& s = *impl_;
    s.ReadyToRead();
    int32_t index = s.names.ResolveOrFail(fieldName);
    s.card.Load(cardId);
    value.assign(s.card.Card().Find(index));
  });
}

Status CSqliteCardStore::PutValue(int32_t cardId, const std::string& fieldName, const std::string& value) {
  return impl_->Run("PutValue", cardId, fieldName, [&] {
    Impl& s = *impl_;
    WriteTransaction tx(s);
    int32_t index = s.names.ResolveOrFail(fieldName);
    s.card.Load(cardId);
    uint32_t code = s.names.EnsureCode(index);
    s.card.Apply(index, code, value);
    // Inside a bracket the row is written once, when the bracket leaves the card.
    if (!s.conn.InBracket()) s.card.Flush();
    tx.Commit();
  });
}

Status CSqliteCardStore::DeleteCard(int32_t cardId) {
  return impl_->Run("DeleteCard", cardId, [&] {
    Impl& s = *impl_;
    WriteTransaction tx(s);
    {
      StatementUse use(s.conn.St().deleteCard);
      use->BindInt(1, cardId);
      use->Step();
    }
    if (sqlite3_changes(s.conn.Db()) == 0) Fail(kStatusUnknownCard, "no such card");
    {
      StatementUse use(s.conn.St().deleteImages);
      use->BindInt(1, cardId);
      use->Step();
    }
    // Pending changes to it go with the row.
    s.card.Forget(cardId);
    s.order.Deleted(cardId);
    s.images.Forget(cardId);
    s.conn.NoteDeletion();
    tx.Commit();
  });
}

Status CSqliteCardStore::CardExists(int32_t cardId, bool& answer) {
  return impl_->Run("CardExists", cardId, [&] { answer = impl_->CardExists(cardId); });
}

Status CSqliteCardStore::BeginUpdate() {
  return impl_->Run("BeginUpdate", [&] { impl_->conn.BeginBracket(); });
}

Status CSqliteCardStore::CommitUpdate() {
  return impl_->Run("CommitUpdate", [&] {
    Impl& s = *impl_;
    s.conn.RequireOpen();
    if (!s.conn.InBracket()) {
      Fail(kStatusTransaction, sqlite3_get_autocommit(s.conn.Db())
                                   ? "no update in progress (an earlier failure may have ended it)"
                                   : "no update in progress");
    }
    try {
      s.card.Flush();
      s.conn.CommitBracket();
    } catch (const Failure&) {
      // A failed write or COMMIT may leave the transaction open (retry or
      // abort, the pending changes kept) or gone.
      if (sqlite3_get_autocommit(s.conn.Db())) {
        s.conn.AbortBracket();
        s.InvalidateAll();
      }
      throw;
    }
  });
}

Status CSqliteCardStore::AbortUpdate() {
  return impl_->Run("AbortUpdate", [&] {
    Impl& s = *impl_;
    s.conn.RequireOpen();
    if (!s.conn.InBracket()) Fail(kStatusTransaction, "no update in progress");
    const bool wrote = s.conn.BracketWrote();
    s.conn.AbortBracket();
    // A bracket that wrote nothing leaves the caches as true as before.
    if (wrote) s.InvalidateAll();
  });
}

Status CSqliteCardStore::BeginSnapshot() {
  return impl_->Run("BeginSnapshot", [&] {
    impl_->card.Flush();
    impl_->conn.BeginSnapshot();
  });
}

Status CSqliteCardStore::EndSnapshot() {
  return impl_->Run("EndSnapshot", [&] {
    impl_->conn.RequireOpen();
    if (!impl_->conn.InSnapshot()) Fail(kStatusTransaction, "no snapshot is held");
    impl_->conn.EndSnapshot();
  });
}

Status CSqliteCardStore::GetCapabilities(int32_t& caps) {
  caps = 0;
  return 0;
}

std::string CSqliteCardStore::GetLastError() { return impl_->lastError; }

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
    impl_->ReadyToRead();
    canonical = impl_->names.Name(impl_->names.ResolveOrFail(name));
  });
}

}  // namespace ombrel
