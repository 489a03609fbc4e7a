// Internals of CSqliteCardStore shared by its source files. The store is a
// few owners, each keeping its own rules:
//   Connection  the file, its statements, transactions (update brackets and
//               writes of their own), snapshots and the read-only opening;
//   NameTable   value names, their codes in the file, and the one decoding
//               of a card's values;
//   CardOrder   the cached card order and ID set, and what drops them;
//   ImageTable  the cached image sides and handed-out image handles;
//   CardBuffer  the card last read, or changed inside a bracket.
// CSqliteCardStore::Impl puts them together and drops the caches whenever
// the connection says the file changed under them.
#pragma once

#include <sqlite3.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
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
// The first column of the first row of sql, 0 when there is none.
int64_t QueryInt(sqlite3* db, const char* sql);
// PRAGMA data_version on that connection.
int64_t DataVersionOf(sqlite3* db);

constexpr int32_t kUnknownName = -1;
constexpr size_t kResolvedSlots = 1024;  // a power of two; emptied when half full
constexpr int64_t kSchemaVersion = 1;
constexpr int32_t kApplicationId = 0x4F6D6272;  // "Ombr"

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

// The one walk over a card's blob: visit(code, text) for each value in
// order. False when the blob is damaged (a code of 0 or beyond 32 bits, a
// varint or a text running past the end); the values before the damage have
// been visited.
template <class Visit>
inline bool WalkValues(std::string_view blob, Visit&& visit) {
  auto* p = reinterpret_cast<const unsigned char*>(blob.data());
  auto* const end = p + blob.size();
  while (p != end) {
    uint64_t code = 0, length = 0;
    if (end - p >= 2 && ((p[0] | p[1]) & 0x80) == 0) {  // a code and a length of one byte each: most values
      code = p[0];
      length = p[1];
      p += 2;
    } else if (!ReadVarint(p, end, code) || !ReadVarint(p, end, length) || code > UINT32_MAX) {
      return false;
    }
    if (code == 0 || length > static_cast<uint64_t>(end - p)) return false;
    visit(code, std::string_view(reinterpret_cast<const char*>(p), length));
    p += length;
  }
  return true;
}

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

// The decoding of a card's blob (which must outlive card) into card by a
// code -> canonical index table over `names` indexes; with pick, only the
// picked names' values (into pick->views), the card untouched. Answers the
// first code the table does not know, 0 when it knows them all; damage is
// reported (as a Failure) before an unknown code. Either way the whole blob
// is checked alike.
uint64_t DecodeWith(const std::vector<int32_t>& canonByCode, size_t names, int32_t cardId, std::string_view blob,
                    DecodedCard& card, PickedNames* pick = nullptr);

struct Statements;

// ---- the connection ----------------------------------------------------------
// Owns the SQLite handle and everything about its transactions. Rules:
// - A file opened for reading (OpenMode::kReadOnly) is never written: every
//   write fails with kStatusReadOnly, and a file or folder the user cannot
//   write is opened read-only by SQLite (as it stands on disk when no WAL
//   file is there to say otherwise).
// - A file that was empty or missing gets its schema inside the first write
//   transaction (a read before it lays the schema on its own), so a first
//   transaction that fails leaves the file as empty as it was; the file
//   turns to WAL mode after that first commit.
// - The first write transaction on a connection checks the file
//   (PRAGMA quick_check) and refuses a damaged one before writing anything.
// - Inside an update bracket or a snapshot nothing another connection
//   commits is seen; outside both, Stale() tells when it has been.
// - No write is taken while a snapshot is held.
class Connection {
 public:
  Connection(std::string path, SqliteStoreOptions options) : path_(std::move(path)), options_(options) {}
  ~Connection() { Close(); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Called whenever what the caches hold may no longer be the file's.
  std::function<void()> onStale;

  void Open(OpenMode mode);  // throws Failure; a refused file is left untouched
  void Close();
  void RequireOpen() const;
  // RequireOpen, and the schema there to read (laid now when still pending).
  void RequireReadable();
  sqlite3* Db() const { return db_; }
  Statements& St() { return *st_; }
  const std::string& Path() const { return path_; }
  const SqliteStoreOptions& Options() const { return options_; }
  // A connection on the file by name, or none (in memory, temporary).
  const char* FileName() const;

  // Outside brackets and snapshots: whether another connection committed
  // since the last look (looked at most every refreshIntervalMs, unless
  // forced); onStale has then been called.
  void Refresh(bool force);
  int64_t DataVersion();
  // The data version the caches hold, -1 before the first look.
  int64_t CachedVersion() const { return dataVersion_; }
  // Counts the writes this connection began (update brackets included).
  uint64_t Writes() const { return writes_; }

  // Update brackets.
  bool InBracket() const { return inBracket_; }
  bool BracketWrote() const { return bracketWrote_; }
  void BeginBracket();
  void CommitBracket();
  void AbortBracket();
  // A write joins the open bracket or else is its own transaction; a write
  // of its own is committed by FinishOwnWrite, undone by AfterFailedWrite.
  void BeginWrite(bool own);
  void FinishOwnWrite();
  // The write failed; own tells whether it was a transaction of its own.
  // Answers whether the bracket is still open with its changes kept.
  bool AfterFailedWrite(bool own);
  // A card deletion this write made; counted once its transaction commits.
  void NoteDeletion() { ++pendingDeletions_; }
  int64_t CommittedDeletions() const { return committedDeletions_; }

  // Snapshots: nestable; while held, every read of this connection sees the
  // state of the file when the outermost began.
  void BeginSnapshot();
  void EndSnapshot();
  bool InSnapshot() const { return snapshotDepth_ > 0; }
  // Whether a reader that began its own read transaction after this
  // connection's snapshot began reads the same state: true when nothing
  // was committed since, as far as a connection outside watching says.
  bool SnapshotStillCurrent();

 private:
  // Asks PRAGMA data_version and calls onStale when another connection
  // committed since the caches were filled.
  void FollowDataVersion();
  void LaySchemaIfPending();
  void BeginImmediate();
  void CheckIntegrityOnce();
  void AfterCommit();
  void AfterRollback();
  void RollbackQuietly();

  std::string path_;
  SqliteStoreOptions options_;
  sqlite3* db_ = nullptr;
  std::unique_ptr<Statements> st_;
  bool readOnly_ = false;
  bool immutable_ = false;      // opened as it stands on disk, no WAL in sight
  bool schemaPending_ = false;  // the file was empty: laid with the first write
  bool schemaInWrite_ = false;  // laid by the write now open
  bool walPending_ = false;     // still to turn to WAL mode
  bool checked_ = false;        // quick_check passed on this connection
  bool inBracket_ = false;
  bool bracketWrote_ = false;  // a write was tried inside the current bracket
  uint64_t writes_ = 0;
  int64_t pendingDeletions_ = 0;
  int64_t committedDeletions_ = 0;
  int64_t dataVersion_ = -1;
  std::chrono::steady_clock::time_point lastCheck_{};
  int snapshotDepth_ = 0;
  bool snapshotOwnsRead_ = false;  // the outermost snapshot began a read transaction
  // A connection outside the snapshot, asked for the data version before the
  // snapshot began and again when another reader joins it.
  sqlite3* watcher_ = nullptr;
  int64_t watcherVersion_ = -1;
};

// The statements prepared once the schema is there.
struct Statements {
  explicit Statements(sqlite3* db);
  Statement selectVals, insertCard, updateVals, deleteCard, deleteImages, maxId, countCards;
  Statement selectOrder;
  Statement selectImage, selectImageSides, upsertImage, deleteImage;
  Statement insertName, selectName, selectNames;
  Statement selectCustom, selectCategories;
  Statement dataVersion;
};

// ---- value names ---------------------------------------------------------------
// Canonical names interned to small indexes that never change while the
// table lives (decoded cards and scans hold them), their codes in the file
// (reloaded when a card holds one this table does not know yet), and the
// custom fields that decide which names exist.
class NameTable {
 public:
  explicit NameTable(Connection& c) : c_(c) {}

  int32_t Intern(const std::string& canonical);
  const std::string& Name(int32_t index) const { return canon_[index].name; }
  size_t Size() const { return canon_.size(); }
  // Canonical-name index of a value name, kUnknownName when it is none.
  int32_t Resolve(std::string_view name);
  // As Resolve, failing when the name is unknown (after a look at the
  // custom fields another connection may just have declared).
  int32_t ResolveOrFail(std::string_view name);
  // The name's code in the file, registered now if it has none (inside a
  // write transaction).
  uint32_t EnsureCode(int32_t canon);
  // Decodes blob (which must outlive card) into card, reloading the codes
  // once when it meets one written by another connection.
  void Decode(int32_t cardId, std::string_view blob, DecodedCard& card, PickedNames* pick = nullptr);
  void EnsureCodesLoaded();
  void EnsureCustomFieldsLoaded();
  const std::vector<int32_t>& CanonByCode() const { return canonByCode_; }
  const StringMap<int32_t>& CanonByName() const { return canonByName_; }
  const std::unordered_set<std::string>& CustomFields() const { return customFields_; }
  // Changes whenever a name may come to mean something else.
  uint64_t Generation() const { return generation_; }
  // The file may hold other names and custom fields now.
  void Invalidate() {
    codesLoaded_ = false;
    customLoaded_ = false;
  }
  void CustomFieldsChanged() { customLoaded_ = false; }

 private:
  struct CanonName {
    std::string name;
    int64_t code = -1;
  };
  Connection& c_;
  std::vector<CanonName> canon_;
  StringMap<int32_t> canonByName_;
  ResolvedNames resolved_;
  uint64_t generation_ = 1;           // counts the times resolved_ was emptied
  std::vector<int32_t> canonByCode_;  // code -> canonical index, -1 when unknown
  bool codesLoaded_ = false;
  std::unordered_set<std::string> customFields_;
  bool customLoaded_ = false;
};

// ---- card order and IDs ------------------------------------------------------------
// The card order and the ID set, loaded together in one query or handed
// over by a scan that read every card. Valid until the file changes under
// them; the store's own additions and deletions keep them current, a
// deletion only marking the set until the order is next asked for.
class CardOrder {
 public:
  explicit CardOrder(Connection& c) : c_(c) {}
  bool Valid() const { return valid_; }
  // The order and the ID set, possibly with deleted IDs still in the order.
  void EnsureLoaded();
  // The order with the deleted IDs taken out.
  const std::vector<int32_t>& Order();
  bool Contains(int32_t id) {
    EnsureLoaded();
    return ids_.Contains(id);
  }
  size_t Size() const { return ids_.Size(); }
  // order (every card ID, in card order) becomes the cached order and ID set.
  void Set(std::vector<int32_t>&& order);
  void Added(int32_t id);
  void Deleted(int32_t id);
  void Invalidate();

 private:
  Connection& c_;
  std::vector<int32_t> order_;  // IDs not in ids_ are deleted ones still to drop
  IdSet ids_;
  size_t holes_ = 0;
  bool valid_ = false;
};

// ---- images ----------------------------------------------------------------------
// Which cards have an image on each side (loaded in one query, kept current
// by this store's writes) and the handles handed out for them.
class ImageTable {
 public:
  explicit ImageTable(Connection& c) : c_(c) {}
  // Stores the image, checked against the format it claims.
  void Store(int32_t cardId, ImageSide side, const StoredImage& image);
  void Remove(int32_t cardId, ImageSide side);
  bool Has(int32_t cardId, ImageSide side);
  // The handle of the card's image, 0 when it has none on that side; the
  // same handle again while the registry still holds it.
  int32_t Handle(int32_t cardId, ImageSide side);
  void Remember(int32_t cardId, ImageSide side, int32_t handle) { handles_[{cardId, static_cast<int>(side)}] = handle; }
  void Forget(int32_t cardId);
  void Invalidate();
  void ForgetHandles() { handles_.clear(); }

 private:
  void EnsureLoaded();

  Connection& c_;
  IdSet sides_[2];
  bool valid_ = false;
  std::map<std::pair<int32_t, int>, int32_t> handles_;
};

// ---- the card at hand ------------------------------------------------------------
// The card last read, decoded; inside a bracket also the card being changed,
// whose row is written once, when the bracket leaves it (Flush). Pending
// changes are never dropped but by Discard (an abort) or the card's deletion.
class CardBuffer {
 public:
  CardBuffer(Connection& c, NameTable& names) : c_(c), names_(names) {}
  const DecodedCard& Card() const { return card_; }
  bool Holds(int32_t cardId) const { return card_.valid && card_.id == cardId; }
  bool Dirty() const { return card_.dirty; }
  // Makes the card the one at hand (writing the pending changes of another
  // first), or fails with an unknown card.
  void Load(int32_t cardId);
  // Sets one value of the card at hand, marking it dirty when it changes.
  void Apply(int32_t canon, uint32_t code, const std::string& value);
  // Writes the pending changes to the card's row (inside the current transaction).
  void Flush();
  // The card's row is gone: its pending changes go with it.
  void Forget(int32_t cardId);
  // Drops what is at hand unless it holds pending changes.
  void DropUnlessDirty() {
    if (!card_.dirty) card_.valid = false;
  }
  void Discard();

 private:
  Connection& c_;
  NameTable& names_;
  DecodedCard card_;
};

}  // namespace ombrel::sqlite_store

namespace ombrel {

class CSqliteCardStore::Impl {
 public:
  using Failure = sqlite_store::Failure;

  Impl(std::string path, SqliteStoreOptions options) : conn(std::move(path), options) {
    conn.onStale = [this] { InvalidateAll(); };
  }
  // Closed while the caches it drops are still there.
  ~Impl() {
    conn.Close();
    conn.onStale = nullptr;
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

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

  // Ready to read: connected, the schema there, caches checked against
  // other connections' commits.
  void ReadyToRead();
  // Every cache dropped: the file may hold anything now.
  void InvalidateAll();
  bool CardExists(int32_t cardId);
  void RequireCard(int32_t cardId);
  void AddCard(int32_t cardId, const CardValueList& values, const StoredImage* front, const StoredImage* back);

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

  OpenMode mode = OpenMode::kOpenOrCreate;  // how Connect opens the file again
  sqlite_store::Connection conn;
  sqlite_store::NameTable names{conn};
  sqlite_store::CardOrder order{conn};
  sqlite_store::ImageTable images{conn};
  sqlite_store::CardBuffer card{conn, names};
  std::string lastError;
};

// A write that joins the open bracket or else is its own transaction.
class WriteTransaction {
 public:
  explicit WriteTransaction(CSqliteCardStore::Impl& s) : s_(s), own_(!s.conn.InBracket()) { s_.conn.BeginWrite(own_); }
  ~WriteTransaction();
  void Commit() {
    if (own_) s_.conn.FinishOwnWrite();
    done_ = true;
  }
  WriteTransaction(const WriteTransaction&) = delete;
  WriteTransaction& operator=(const WriteTransaction&) = delete;

 private:
  CSqliteCardStore::Impl& s_;
  bool own_;
  bool done_ = false;
};

std::string DescribeCall(std::string_view operation, int32_t cardId, std::string_view valueName);

template <typename F>
Status CSqliteCardStore::Impl::Run(std::string_view operation, int32_t cardId, std::string_view valueName, F&& body) {
  try {
    body();
    return 0;
  } catch (const Failure& f) {
    lastError = DescribeCall(operation, cardId, valueName) + ": " + f.message;
    return f.status;
  } catch (const std::bad_alloc&) {
    lastError = DescribeCall(operation, cardId, valueName) + ": out of memory";
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
  const std::string_view* PreparedViews() const final { return picked_ ? pick_.views.data() : nullptr; }

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
  explicit ScanValues(NameTable& names) : names_(names) {}
  DecodedCard card;

 private:
  int32_t Resolve(std::string_view name) const override {
    try {
      return names_.Resolve(name);
    } catch (const Failure&) {
      return kUnknownName;
    }
  }
  uint64_t Generation() const override { return names_.Generation(); }
  const DecodedCard& Card() const override { return card; }
  void Decode(int32_t id, std::string_view blob, PickedNames* pick) override { names_.Decode(id, blob, card, pick); }

  NameTable& names_;
};

}  // namespace sqlite_store

}  // namespace ombrel
