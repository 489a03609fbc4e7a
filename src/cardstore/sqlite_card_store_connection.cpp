// The card database's connection: recognising an Ombrel file and refusing
// anything else without writing to it, the read-only opening, the schema of a
// new file, transactions, and snapshots. docs/database.md describes the
// schema; keep the two in step.
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "cardstore/sqlite_card_store_internal.h"
#include "ombrel/foundation/error.h"

namespace ombrel::sqlite_store {

namespace {

constexpr const char* kSchema = R"sql(
CREATE TABLE cards (
  ord  INTEGER PRIMARY KEY,
  id   INTEGER NOT NULL UNIQUE CHECK (id BETWEEN 1 AND 2147483647),
  vals BLOB NOT NULL
);
CREATE TABLE value_names (
  code INTEGER PRIMARY KEY,
  name TEXT NOT NULL UNIQUE
);
CREATE TABLE images (
  card_id INTEGER NOT NULL,
  side    INTEGER NOT NULL CHECK (side IN (0, 1)),
  format  TEXT NOT NULL CHECK (format IN ('png', 'jpeg', 'bmp')),
  data    BLOB NOT NULL,
  PRIMARY KEY (card_id, side)
);
CREATE TABLE custom_fields (
  pos        INTEGER PRIMARY KEY,
  name       TEXT NOT NULL UNIQUE,
  type       TEXT NOT NULL,
  visibility TEXT NOT NULL,
  access     TEXT NOT NULL
);
CREATE TABLE categories (
  pos  INTEGER PRIMARY KEY,
  name TEXT NOT NULL UNIQUE
);
PRAGMA application_id = 1332568690;
PRAGMA user_version = 1;
)sql";
static_assert(kApplicationId == 1332568690);
static_assert(kSchemaVersion == 1);

struct FileIdentity {
  int64_t applicationId = 0;
  int64_t version = 0;
  int64_t objects = 0;
};

// Reads only: a file that turns out not to be ours must stay as it was.
FileIdentity Identify(sqlite3* db) {
  FileIdentity id;
  id.applicationId = QueryInt(db, "PRAGMA application_id");
  id.version = QueryInt(db, "PRAGMA user_version");
  id.objects = QueryInt(db, "SELECT count(*) FROM sqlite_master");
  return id;
}

bool IsEmpty(const FileIdentity& id) { return id.applicationId == 0 && id.version == 0 && id.objects == 0; }

void CheckOurs(const FileIdentity& id, const std::string& path) {
  if (id.applicationId != kApplicationId) {
    Fail(CSqliteCardStore::kStatusDatabase, "'" + path + "' is not an Ombrel card database");
  }
  if (id.version > kSchemaVersion) {
    Fail(CSqliteCardStore::kStatusDatabase, "'" + path + "' was written by a newer Ombrel (database version " +
                                                std::to_string(id.version) + ", this program reads up to " +
                                                std::to_string(kSchemaVersion) + ")");
  }
  if (id.version < 1) {
    Fail(CSqliteCardStore::kStatusDatabase,
         "'" + path + "' has an unknown database version " + std::to_string(id.version));
  }
}

// A file name as an SQLite URI: everything but plain characters escaped.
std::string FileUri(const std::string& path, const char* query) {
  std::string uri = "file:";
  const std::string absolute = std::filesystem::absolute(path).string();
  for (unsigned char c : absolute) {
    if (std::isalnum(c) || c == '/' || c == '-' || c == '_' || c == '.' || c == '~') {
      uri.push_back(static_cast<char>(c));
    } else {
      static const char* hex = "0123456789ABCDEF";
      uri += '%';
      uri += hex[c >> 4];
      uri += hex[c & 15];
    }
  }
  return uri + "?" + query;
}

bool Writable(const std::string& path) { return ::access(path.c_str(), W_OK) == 0; }

std::string FolderOf(const std::string& path) {
  std::filesystem::path folder = std::filesystem::path(path).parent_path();
  return folder.empty() ? "." : folder.string();
}

[[noreturn]] void FailReadOnly() {
  Fail(CSqliteCardStore::kStatusReadOnly, "the database was opened for reading only");
}

}  // namespace

int64_t QueryInt(sqlite3* db, const char* sql) {
  Statement s(db, sql);
  StatementUse use(s);
  return use->Step() ? use->Int(0) : 0;
}

int64_t DataVersionOf(sqlite3* db) { return QueryInt(db, "PRAGMA data_version"); }

Statements::Statements(sqlite3* db)
    : selectVals(db, "SELECT vals FROM cards WHERE id = ?1"),
      insertCard(db, "INSERT INTO cards (id, vals) VALUES (?1, ?2)"),
      updateVals(db, "UPDATE cards SET vals = ?2 WHERE id = ?1"),
      deleteCard(db, "DELETE FROM cards WHERE id = ?1"),
      deleteImages(db, "DELETE FROM images WHERE card_id = ?1"),
      maxId(db, "SELECT max(id) FROM cards"),
      countCards(db, "SELECT count(*) FROM cards"),
      // The (id, ord) index answers this without reading the card rows.
      selectOrder(db, "SELECT ord, id FROM cards"),
      selectImage(db, "SELECT format, data FROM images WHERE card_id = ?1 AND side = ?2"),
      // The primary key index answers this without reading image data.
      selectImageSides(db, "SELECT card_id, side FROM images"),
      upsertImage(db, "INSERT OR REPLACE INTO images (card_id, side, format, data) VALUES (?1, ?2, ?3, ?4)"),
      deleteImage(db, "DELETE FROM images WHERE card_id = ?1 AND side = ?2"),
      insertName(db, "INSERT OR IGNORE INTO value_names (name) VALUES (?1)"),
      selectName(db, "SELECT code FROM value_names WHERE name = ?1"),
      selectNames(db, "SELECT code, name FROM value_names"),
      selectCustom(db, "SELECT name, type, visibility, access FROM custom_fields ORDER BY pos"),
      selectCategories(db, "SELECT name FROM categories ORDER BY pos"),
      dataVersion(db, "PRAGMA data_version") {}

// ---- opening ------------------------------------------------------------------

void Connection::Open(OpenMode mode) {
  std::error_code ec;
  const bool exists = std::filesystem::exists(path_, ec);
  if (!exists && mode != OpenMode::kOpenOrCreate) Fail(CSqliteCardStore::kStatusDatabase, "'" + path_ + "' does not exist");
  readOnly_ = mode == OpenMode::kReadOnly;
  immutable_ = false;
  int flags = SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_URI;
  std::string name = path_;
  if (!readOnly_) {
    flags |= SQLITE_OPEN_READWRITE | (exists ? 0 : SQLITE_OPEN_CREATE);
  } else if (Writable(path_) && Writable(FolderOf(path_))) {
    // Opened as any reader that may write: SQLite then tidies the WAL files
    // away on closing, as a read-only connection cannot. This store writes
    // nothing through it.
    flags |= SQLITE_OPEN_READWRITE;
  } else {
    flags |= SQLITE_OPEN_READONLY;
    // Without a WAL file beside it, and unable to make one, nobody is
    // writing the file: it is read as it stands (SQLite would otherwise
    // need to create the WAL files to read it, or leave them behind).
    if (!std::filesystem::exists(path_ + "-wal", ec)) immutable_ = true;
  }
  if (immutable_) name = FileUri(path_, "immutable=1");

  sqlite3* db = nullptr;
  int rc = sqlite3_open_v2(name.c_str(), &db, flags, nullptr);
  // From here on the handle is ours to close, whatever happens.
  struct Closer {
    sqlite3*& db;
    bool keep = false;
    ~Closer() {
      if (!keep) sqlite3_close_v2(db);
    }
  } closer{db};
  if (rc != SQLITE_OK) FailSql(db, rc, "cannot open '" + path_ + "'");
  sqlite3_extended_result_codes(db, 1);
  sqlite3_busy_timeout(db, options_.busyTimeoutMs);
  if (!readOnly_ && sqlite3_db_readonly(db, "main") == 1) {
    Fail(CSqliteCardStore::kStatusDatabase, "'" + path_ + "' cannot be written (a read-only file or folder)");
  }

  FileIdentity id;
  try {
    id = Identify(db);
  } catch (const Failure& f) {
    if ((sqlite3_errcode(db) & 0xFF) == SQLITE_NOTADB) {
      Fail(CSqliteCardStore::kStatusDatabase, "'" + path_ + "' is not an Ombrel card database (not an SQLite file)");
    }
    throw;
  }
  const bool empty = IsEmpty(id);
  if (empty && readOnly_) {
    Fail(CSqliteCardStore::kStatusDatabase, "'" + path_ + "' is an empty file, not an Ombrel card database yet");
  }
  if (!empty) CheckOurs(id, path_);

  if (!readOnly_ && !empty) {
    // WAL lets the host and other ombrel processes read while one writes.
    Exec(db, "PRAGMA journal_mode = WAL");
  }
  // NORMAL sync is safe in WAL mode: a crash can lose the last commit, never
  // corrupt the file.
  if (!readOnly_) Exec(db, "PRAGMA synchronous = NORMAL");
  Exec(db, "PRAGMA cache_size = -65536");

  if (!empty) st_ = std::make_unique<Statements>(db);
  closer.keep = true;
  db_ = db;
  schemaPending_ = empty;
  walPending_ = empty;
  checked_ = empty;  // nothing to check in an empty file
  dataVersion_ = -1;
  if (onStale) onStale();
  Refresh(true);
}

void Connection::Close() {
  if (!db_) return;
  if (!sqlite3_get_autocommit(db_)) RollbackQuietly();
  if (watcher_) sqlite3_close_v2(watcher_);
  watcher_ = nullptr;
  snapshotDepth_ = 0;
  inBracket_ = false;
  st_.reset();
  sqlite3_close_v2(db_);
  db_ = nullptr;
  if (onStale) onStale();
}

void Connection::RequireOpen() const {
  if (!db_) Fail(CSqliteCardStore::kStatusNotConnected, "not connected to '" + path_ + "' (call Connect)");
}

void Connection::RequireReadable() {
  RequireOpen();
  if (!schemaPending_) return;
  // A read before the first write: the schema is laid on its own.
  BeginWrite(true);
  FinishOwnWrite();
}

const char* Connection::FileName() const {
  const char* file = sqlite3_db_filename(db_, "main");
  return file && *file && !immutable_ ? file : nullptr;
}

// Lays the schema of a file that was empty, inside the write transaction
// just begun; another process may have laid it meanwhile.
void Connection::LaySchemaIfPending() {
  if (!schemaPending_) return;
  const FileIdentity again = Identify(db_);
  if (IsEmpty(again)) {
    Exec(db_, kSchema);
    schemaInWrite_ = true;
  } else {
    CheckOurs(again, path_);
  }
  st_ = std::make_unique<Statements>(db_);
  schemaPending_ = false;
}

// ---- changes of other connections ------------------------------------------------

int64_t Connection::DataVersion() {
  if (!st_) return DataVersionOf(db_);
  StatementUse use(st_->dataVersion);
  use->Step();
  return use->Int(0);
}

// Other connections' commits show in PRAGMA data_version; our own do not,
// and our own writes keep the caches current themselves. Inside a bracket we
// hold the write lock, and inside a snapshot the state is fixed: nothing can
// change under us.
void Connection::Refresh(bool force) {
  if (inBracket_ || snapshotDepth_ > 0) return;
  auto now = std::chrono::steady_clock::now();
  if (!force && dataVersion_ >= 0 && now - lastCheck_ < std::chrono::milliseconds(options_.refreshIntervalMs)) {
    return;
  }
  lastCheck_ = now;
  FollowDataVersion();
}

void Connection::FollowDataVersion() {
  const int64_t version = DataVersion();
  if (version != dataVersion_) {
    if (dataVersion_ >= 0 && onStale) onStale();
    dataVersion_ = version;
  }
}

// ---- writes -----------------------------------------------------------------------

void Connection::RollbackQuietly() { sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr); }

void Connection::BeginImmediate() {
  if (readOnly_) FailReadOnly();
  if (snapshotDepth_ > 0) {
    Fail(CSqliteCardStore::kStatusTransaction, "a snapshot is held: nothing can be written until it ends");
  }
  Exec(db_, "BEGIN IMMEDIATE");
  try {
    LaySchemaIfPending();
    CheckIntegrityOnce();
    // The lock brings the newest state: drop what other connections changed.
    FollowDataVersion();
  } catch (...) {
    // Nobody owns the transaction yet: do not leave it open.
    RollbackQuietly();
    AfterRollback();
    throw;
  }
  pendingDeletions_ = 0;
}

// A damaged file is refused before anything is written to it: writing
// would spread the damage, and a later repair needs the file as it was.
void Connection::CheckIntegrityOnce() {
  if (checked_ || !options_.checkBeforeWriting) return;
  Statement check(db_, "PRAGMA quick_check(1)");
  std::string answer = check.Step() ? std::string(check.Text(0)) : std::string("no answer");
  if (answer != "ok") {
    std::replace(answer.begin(), answer.end(), '\n', ' ');
    Fail(CSqliteCardStore::kStatusDatabase, "'" + path_ + "' is damaged (" + answer +
                                                "); nothing was written. Restore it from a copy, or export what can "
                                                "still be read into a new database");
  }
  checked_ = true;
}

void Connection::BeginWrite(bool own) {
  RequireOpen();
  if (readOnly_) FailReadOnly();
  if (own) BeginImmediate();
  bracketWrote_ = true;
  ++writes_;
}

void Connection::FinishOwnWrite() {
  Exec(db_, "COMMIT");
  AfterCommit();
}

void Connection::AfterCommit() {
  committedDeletions_ += pendingDeletions_;
  pendingDeletions_ = 0;
  schemaInWrite_ = false;
  if (walPending_ && !schemaPending_) {
    // The schema is committed: the file now turns to WAL mode, which needs
    // a moment alone with it; if others are reading, the next commit tries again.
    walPending_ = sqlite3_exec(db_, "PRAGMA journal_mode = WAL", nullptr, nullptr, nullptr) != SQLITE_OK;
  }
}

void Connection::AfterRollback() {
  pendingDeletions_ = 0;
  if (schemaInWrite_) {
    // The schema went with the transaction: the file is empty again.
    st_.reset();
    schemaPending_ = true;
    schemaInWrite_ = false;
  }
}

bool Connection::AfterFailedWrite(bool own) {
  if (!db_) return false;
  if (own) {
    if (!sqlite3_get_autocommit(db_)) RollbackQuietly();
    AfterRollback();
    return false;
  }
  if (sqlite3_get_autocommit(db_)) {
    // SQLite gave up the whole bracket (disk full, I/O error).
    inBracket_ = false;
    AfterRollback();
    return false;
  }
  return true;
}

// ---- update brackets ------------------------------------------------------------------

void Connection::BeginBracket() {
  RequireOpen();
  if (inBracket_) Fail(CSqliteCardStore::kStatusTransaction, "an update is already in progress");
  BeginWrite(true);
  inBracket_ = true;
  bracketWrote_ = false;
}

void Connection::CommitBracket() {
  Exec(db_, "COMMIT");
  inBracket_ = false;
  AfterCommit();
}

void Connection::AbortBracket() {
  inBracket_ = false;
  RollbackQuietly();
  AfterRollback();
}

// ---- snapshots -----------------------------------------------------------------------

void Connection::BeginSnapshot() {
  RequireReadable();
  if (snapshotDepth_++ > 0 || inBracket_) return;  // already fixed
  // The watcher's first look comes before the snapshot begins: a later look
  // that finds the same version proves nothing was committed in between.
  // Without one, scans in parts read in one part (SnapshotStillCurrent).
  if (const char* file = FileName(); file && sqlite3_threadsafe()) {
    bool watching = sqlite3_open_v2(file, &watcher_, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr) == SQLITE_OK;
    if (watching) {
      sqlite3_busy_timeout(watcher_, options_.busyTimeoutMs);
      try {
        watcherVersion_ = DataVersionOf(watcher_);
      } catch (const Failure&) {
        watching = false;
      }
    }
    if (!watching) {
      sqlite3_close_v2(watcher_);
      watcher_ = nullptr;
    }
  }
  try {
    Exec(db_, "BEGIN");
    snapshotOwnsRead_ = true;
    // The read begins with the first statement: the version the caches
    // must hold comes with it.
    FollowDataVersion();
  } catch (...) {
    EndSnapshot();
    throw;
  }
}

void Connection::EndSnapshot() {
  if (snapshotDepth_ == 0 || --snapshotDepth_ > 0) return;
  if (watcher_) sqlite3_close_v2(watcher_);
  watcher_ = nullptr;
  if (snapshotOwnsRead_ && db_ && !sqlite3_get_autocommit(db_)) sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr);
  snapshotOwnsRead_ = false;
}

bool Connection::SnapshotStillCurrent() {
  if (immutable_) return true;  // nobody can write the file
  if (!snapshotOwnsRead_ || !watcher_) return false;
  try {
    return DataVersionOf(watcher_) == watcherVersion_;
  } catch (const Failure&) {
    return false;
  }
}

}  // namespace ombrel::sqlite_store

namespace ombrel {

std::unique_ptr<CSqliteCardStore> CSqliteCardStore::Open(const std::string& path, OpenMode mode,
                                                         const SqliteStoreOptions& options) {
  auto impl = std::make_unique<Impl>(path, options);
  try {
    impl->conn.Open(mode);
  } catch (const sqlite_store::Failure& f) {
    RaiseTrap(f.message);
  }
  impl->mode = mode;
  return std::unique_ptr<CSqliteCardStore>(new CSqliteCardStore(std::move(impl)));
}

}  // namespace ombrel
