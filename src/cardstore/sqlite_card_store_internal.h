// Internals of CSqliteCardStore shared by its source files: thin SQLite
// wrappers, the value codec, the value-name resolver and the store's state.
#pragma once

#include <sqlite3.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "ombrel/cardstore/sqlite_card_store.h"

namespace ombrel::sqlite_store {

// Thrown inside the store and turned into a status and last-error text at
// the public boundary, so the operations read straight through.
struct Failure {
  Status status;
  std::string message;
};

[[noreturn]] void Fail(Status status, std::string message);
// Maps an SQLite result code to a Failure naming what was being done.
[[noreturn]] void FailSql(sqlite3* db, int rc, std::string_view what);

class Statement {
 public:
  Statement() = default;
  Statement(sqlite3* db, std::string_view sql);
  ~Statement();
  Statement(Statement&& other) noexcept : stmt_(std::exchange(other.stmt_, nullptr)) {}
  Statement& operator=(Statement&& other) noexcept;
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  void BindInt(int index, int64_t value);
  void BindText(int index, std::string_view text);
  void BindBlob(int index, std::string_view bytes);
  // True while a row is available, false when done; throws a Failure otherwise.
  bool Step();
  // Ends the statement's read (an unfinished SELECT would pin the WAL
  // snapshot) and clears its bindings.
  void Reset();

  int64_t Int(int col) const { return sqlite3_column_int64(stmt_, col); }
  std::string_view Text(int col) const;
  std::string_view Blob(int col) const;
  bool IsNull(int col) const { return sqlite3_column_type(stmt_, col) == SQLITE_NULL; }

 private:
  sqlite3_stmt* stmt_ = nullptr;
};

// Resets a cached statement however the scope is left.
class StatementUse {
 public:
  explicit StatementUse(Statement& s) : s_(s) {}
  ~StatementUse() { s_.Reset(); }
  Statement* operator->() { return &s_; }

 private:
  Statement& s_;
};

void Exec(sqlite3* db, const char* sql);

// ---- value codec -----------------------------------------------------------
// A card's values are one BLOB: for each value, varint code, varint byte
// length, the UTF-8 bytes. Codes come from the value_names table.
struct CodedValue {
  uint32_t code;
  std::string_view text;
};
void AppendVarint(std::string& out, uint64_t value);
// Reads one varint at p, moving p past it; false when it runs past end.
inline bool ReadVarint(const unsigned char*& p, const unsigned char* end, uint64_t& value) {
  if (p != end && *p < 0x80) {  // codes and most lengths fit one byte
    value = *p++;
    return true;
  }
  value = 0;
  for (int shift = 0; shift < 64; shift += 7) {
    if (p == end) return false;
    unsigned char byte = *p++;
    value |= static_cast<uint64_t>(byte & 0x7F) << shift;
    if (!(byte & 0x80)) return true;
  }
  return false;
}
// False when the blob is damaged.
bool DecodeValues(std::string_view blob, std::vector<CodedValue>& out);
void EncodeValues(const std::vector<CodedValue>& values, std::string& out);

// The canonical spelling of a value name, or false when it is none: a
// standard field, a custom field, First Name, Last Name, Certainty, or a
// standard or custom field with a suffix matched without regard to case.
bool CanonicalName(std::string_view name, const std::unordered_set<std::string>& customFields, std::string& canonical);

struct StringHash {
  using is_transparent = void;
  size_t operator()(std::string_view s) const noexcept { return std::hash<std::string_view>{}(s); }
};
template <typename V>
using StringMap = std::unordered_map<std::string, V, StringHash, std::equal_to<>>;

// Values of one card decoded and indexed by canonical name, for O(1) reads.
struct DecodedCard {
  int32_t id = 0;
  bool valid = false;
  // Changed by PutValue inside an update bracket and not yet written to the row.
  bool dirty = false;
  std::string blob;                 // owns the bytes when cached
  std::vector<CodedValue> values;   // views into blob or owned (or into SQLite's row during a scan)
  std::vector<int32_t> canonIndex;  // canonical-name index of each value
  std::vector<int32_t> slot;        // canonical-name index -> position in values, -1 when absent
  // Texts given by PutValue since the blob was read; a deque so that
  // adding one never moves the others that values point into.
  std::deque<std::string> owned;

  std::string_view Find(int32_t canon) const {
    if (canon < 0 || canon >= static_cast<int32_t>(slot.size()) || slot[canon] < 0) return {};
    return values[slot[canon]].text;
  }
  void ClearSlots() {
    for (int32_t c : canonIndex) slot[c] = -1;
  }
};

// A set of card IDs. IDs are mostly dense (1..N), so a bitmap holds the low
// range and a hash set the few that lie far beyond it.
class IdSet {
 public:
  void Assign(const std::vector<int32_t>& ids);
  void Clear();
  bool Contains(int32_t id) const {
    auto u = static_cast<uint32_t>(id);
    if ((u >> 6) < bits_.size() && ((bits_[u >> 6] >> (u & 63)) & 1)) return true;
    return !sparse_.empty() && sparse_.count(id) > 0;
  }
  void Insert(int32_t id);
  void Erase(int32_t id);
  size_t Size() const { return size_; }

 private:
  // Words the bitmap may take for the current size: at most 16 bytes an ID
  // beyond a small floor, less than a hash set entry costs.
  size_t WordBudget() const { return 1024 + 2 * size_; }

  std::vector<uint64_t> bits_;
  std::unordered_set<int32_t> sparse_;
  size_t size_ = 0;
};

constexpr int32_t kUnknownName = -1;
constexpr size_t kResolvedSlots = 1024;  // a power of two; emptied when half full
constexpr int64_t kSchemaVersion = 1;
constexpr int32_t kApplicationId = 0x4F6D6272;  // "Ombr"

// Names as asked -> canonical index or kUnknownName, by open addressing
// with a cheap hash: a scan asks for the same hundred-odd names on every
// card, in whatever spelling the caller uses. Slots are small and the names
// lie in one buffer, so the whole table stays in the nearest cache.
class ResolvedNames {
 public:
  // True with the index remembered for name; otherwise false, with slot set
  // to where Add puts it.
  bool Find(std::string_view name, int32_t& index, size_t& slot) const;
  // slot as Find gave it, with nothing added since.
  void Add(size_t slot, std::string_view name, int32_t index);
  void Clear();

 private:
  struct Slot {
    uint32_t hash = 0;
    int32_t index = kUnknownName;
    uint32_t offset = 0;  // of the name in names_
    uint32_t length = kUnused;
  };
  static constexpr uint32_t kUnused = UINT32_MAX;
  std::vector<Slot> slots_ = std::vector<Slot>(kResolvedSlots);
  std::string names_;
  size_t count_ = 0;
};

// The names a scan's visitor prepared: a decode then keeps just their values,
// by position in the list, and leaves the card's index alone. A visitor of a
// few names (the search's first pass) skips the rest of every card at once,
// and one that builds cards finds each value without a name lookup.
struct PickedNames {
  std::vector<int32_t> slotOf;  // canonical index -> position in the list, -1 for none
  std::vector<std::string_view> views;
};

// Decodes blob (which must outlive card) into card by a code -> canonical
// index table over `names` indexes; with pick, only the picked names' values
// (into pick->views), the card untouched. Answers the first code the table
// does not know, 0 when it knows them all; damage is reported (as a Failure)
// before an unknown code. Either way the whole blob is checked alike.
uint64_t DecodeWith(const std::vector<int32_t>& canonByCode, size_t names, int32_t cardId, std::string_view blob,
                    DecodedCard& card, PickedNames* pick = nullptr);

}  // namespace ombrel::sqlite_store

namespace ombrel {

class CSqliteCardStore::Impl {
 public:
  using Failure = sqlite_store::Failure;
  using Statement = sqlite_store::Statement;

  Impl(std::string path, OpenMode mode, SqliteStoreOptions options);
  ~Impl();

  // Runs one operation, turning a Failure into a status and a last error
  // that reads like the call: PutValue(card 42, "Title"): <reason>.
  template <typename F>
  Status Run(std::string_view operation, F&& body) {
    return Run(operation, 0, {}, std::forward<F>(body));
  }
  template <typename F>
  Status Run(std::string_view operation, int32_t cardId, F&& body) {
    return Run(operation, cardId, {}, std::forward<F>(body));
  }
  template <typename F>
  Status Run(std::string_view operation, int32_t cardId, std::string_view valueName, F&& body);

  // ---- connection (schema file) ----
  void OpenConnection(OpenMode mode);  // throws Failure
  void CloseConnection();
  void RequireConnected() const;

  // ---- caches and refresh ----
  void Refresh(bool force);
  void InvalidateAll();
  void EnsureNamesLoaded();
  void EnsureCustomFieldsLoaded();
  // The card order with the IDs deleted since it was loaded taken out.
  void EnsureOrderLoaded();
  // The card order and the ID set, possibly with deleted IDs still in order_.
  void EnsureIdsLoaded();
  // order (every card ID, in card order) becomes the cached order and ID set.
  void SetOrder(std::vector<int32_t>&& order);
  void EnsureImagesLoaded();
  // PRAGMA data_version now.
  int64_t CurrentDataVersion();
  // What a scan needs to know, when it began, to hand the IDs it read to the
  // cache: a scan reads every card anyway, and loading the IDs apart takes
  // another pass over them all.
  struct ScanStart {
    int64_t dataVersion = -1;
    uint64_t writes = 0;
    bool collect = false;  // the IDs are not cached yet and may be
  };
  ScanStart BeginIdCollection();
  // ids: every card ID the scan met, in card order. They become the cache
  // only when nothing changed since start, here or on another connection.
  void AdoptScannedIds(const ScanStart& start, std::vector<int32_t>&& ids);

  // ---- names ----
  int32_t Intern(const std::string& canonical);
  // Canonical-name index of a value name, kUnknownName when it is none.
  int32_t Resolve(std::string_view name);
  // As Resolve, failing when the name is unknown.
  int32_t ResolveOrFail(std::string_view name);
  uint32_t EnsureCode(int32_t canon);  // inside a write transaction
  // Decodes blob (which must outlive card) into card, reloading the name
  // table once when it meets a code written by another connection.
  void Decode(int32_t cardId, std::string_view blob, sqlite_store::DecodedCard& card,
              sqlite_store::PickedNames* pick = nullptr);

  // ---- cards ----
  void LoadCard(int32_t cardId);  // fills card_ (writing pending changes first) or fails with unknown card
  bool CardRowExists(int32_t cardId);
  // Sets one value of card_ in memory, marking it dirty when it changes.
  void ApplyValue(int32_t canon, uint32_t code, const std::string& value);
  // Writes card_'s pending changes to its row (inside the current transaction).
  void FlushCard();
  // The card's row and images are gone: drop it from every cache.
  void ForgetCard(int32_t cardId);
  void AddCard(int32_t cardId, const CardValueList& values, const StoredImage* front, const StoredImage* back);
  void StoreImage(int32_t cardId, ImageSide side, const StoredImage* image);
  int32_t GetImageHandle(int32_t cardId, ImageSide side);
  bool HasImage(int32_t cardId, ImageSide side);
  void SetImageFromHandle(int32_t cardId, ImageSide side, int32_t handle);

  // ---- transactions ----
  void BeginImmediate();
  void FinishOwnWrite();
  void AfterFailedWrite(bool ownTransaction);

  std::string path_;
  OpenMode mode_;
  SqliteStoreOptions options_;
  sqlite3* db_ = nullptr;
  bool inBracket_ = false;
  bool bracketWrote_ = false;  // a write was tried inside the current bracket
  std::string lastError_;

  struct Statements;
  std::unique_ptr<Statements> st_;

  // Refresh bookkeeping.
  int64_t dataVersion_ = -1;
  std::chrono::steady_clock::time_point lastCheck_{};

  // Names: canonical names interned to small indexes, their codes in the file.
  struct CanonName {
    std::string name;
    int64_t code = -1;
  };
  std::vector<CanonName> canon_;
  sqlite_store::StringMap<int32_t> canonByName_;
  sqlite_store::ResolvedNames resolved_;
  uint64_t resolveGeneration_ = 1;  // counts the times resolved_ was emptied
  std::vector<int32_t> canonByCode_;           // code -> canonical index, -1 when unknown
  bool namesLoaded_ = false;
  std::unordered_set<std::string> customFields_;
  bool customLoaded_ = false;

  sqlite_store::DecodedCard card_;  // the last card read, or written inside a bracket
  std::vector<int32_t> order_;      // card IDs in order; IDs not in ids_ are deleted ones still to drop
  sqlite_store::IdSet ids_;         // every card ID, valid with order_
  size_t orderHoles_ = 0;           // deletions not yet taken out of order_
  bool orderValid_ = false;
  uint64_t writes_ = 0;  // the writes this connection began (update brackets included)
  sqlite_store::IdSet images_[2];  // IDs of cards with a front / back image
  bool imagesValid_ = false;
  std::map<std::pair<int32_t, int>, int32_t> handles_;  // (card, side) -> registered image handle
};

// A write that joins the open bracket or else is its own transaction.
class WriteTransaction {
 public:
  explicit WriteTransaction(CSqliteCardStore::Impl& s) : s_(s), own_(!s.inBracket_) {
    if (own_) s_.BeginImmediate();
    s_.bracketWrote_ = true;
    ++s_.writes_;
  }
  ~WriteTransaction() {
    if (!done_) s_.AfterFailedWrite(own_);
  }
  void Commit() {
    if (own_) s_.FinishOwnWrite();
    done_ = true;
  }
  WriteTransaction(const WriteTransaction&) = delete;
  WriteTransaction& operator=(const WriteTransaction&) = delete;

 private:
  CSqliteCardStore::Impl& s_;
  bool own_;
  bool done_ = false;
};

// The statements prepared once per connection.
struct CSqliteCardStore::Impl::Statements {
  explicit Statements(sqlite3* db);
  Statement selectVals, insertCard, updateVals, deleteCard, deleteImages, maxId, countCards;
  Statement selectOrder;
  Statement selectImage, selectImageSides, upsertImage, deleteImage;
  Statement insertName, selectName, selectNames;
  Statement selectCustom, selectCategories;
  Statement begin, commit, rollback, dataVersion;
};

std::string DescribeCall(std::string_view operation, int32_t cardId, std::string_view valueName);

template <typename F>
Status CSqliteCardStore::Impl::Run(std::string_view operation, int32_t cardId, std::string_view valueName, F&& body) {
  try {
    body();
    return 0;
  } catch (const Failure& f) {
    lastError_ = DescribeCall(operation, cardId, valueName) + ": " + f.message;
    return f.status;
  } catch (const std::bad_alloc&) {
    lastError_ = DescribeCall(operation, cardId, valueName) + ": out of memory";
    return kStatusDatabase;
  }
}

namespace sqlite_store {

// Values a scan hands out as views into the card being visited; Get and
// Read copy from them. Names prepared are resolved once for the whole scan.
// A visitor that reads a few prepared names and nothing else has only those
// decoded (each card is still checked whole); anything else it asks for has
// the card decoded in full first.
class ViewedValues : public ICardValues {
 public:
  std::string Get(std::string_view name) const final { return std::string(Find(name)); }
  void Read(std::string_view name, std::string& value) const final { value.assign(Find(name)); }
  uint64_t Prepare(std::span<const std::string> names) const final;
  bool IsPrepared(uint64_t ticket) const final { return ticket != 0 && ticket == ticket_ && Generation() == generation_; }
  void ReadPrepared(size_t k, std::string& value) const final { value.assign(ViewPrepared(k)); }
  bool ViewsPrepared() const final { return true; }
  std::string_view ViewPrepared(size_t k) const final {
    return picked_ ? pick_.views[k] : Card().Find(prepared_[k]);
  }

  // Shows the card id stored as blob, which must stay valid while it is shown.
  void Show(int32_t id, std::string_view blob);

 protected:
  // The canonical index of a name, kUnknownName when it is none.
  virtual int32_t Resolve(std::string_view name) const = 0;
  // Changes whenever a name may come to mean something else.
  virtual uint64_t Generation() const = 0;
  virtual const DecodedCard& Card() const = 0;
  // DecodeWith as the store behind these values does it.
  virtual void Decode(int32_t id, std::string_view blob, PickedNames* pick) = 0;

 private:
  // A prepared name is read from the picked values; any other has the card
  // decoded in full.
  std::string_view Find(std::string_view name) const;
  // The card shown, decoded in full.
  const DecodedCard& FullCard() const;

  mutable std::vector<int32_t> prepared_;
  mutable uint64_t ticket_ = 0;
  mutable uint64_t generation_ = 0;
  // The prepared names as picked ones, when each is there once.
  mutable PickedNames pick_;
  mutable bool picking_ = false;
  // The card shown had only the picked names decoded.
  mutable bool picked_ = false;
  int32_t shownId_ = 0;
  std::string_view shownBlob_;
};

// What a scan on the store's own connection hands to its visitor: the row's
// values, decoded in place. The visitor may call back into the store, which
// may then learn of new custom fields: its generation tells.
class ScanValues : public ViewedValues {
 public:
  explicit ScanValues(CSqliteCardStore::Impl& store) : store_(store) {}
  DecodedCard card;

 private:
  int32_t Resolve(std::string_view name) const override {
    try {
      return store_.Resolve(name);
    } catch (const Failure&) {
      return kUnknownName;
    }
  }
  uint64_t Generation() const override { return store_.resolveGeneration_; }
  const DecodedCard& Card() const override { return card; }
  void Decode(int32_t id, std::string_view blob, PickedNames* pick) override { store_.Decode(id, blob, card, pick); }

  CSqliteCardStore::Impl& store_;
};

}  // namespace sqlite_store

}  // namespace ombrel
