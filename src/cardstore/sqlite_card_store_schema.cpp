// Opening the card database: recognising an Ombrel file, refusing anything
// else without writing to it, and laying the schema into a new file.
// docs/database.md describes the schema; keep the two in step.
#include <filesystem>

#include "cardstore/sqlite_card_store_internal.h"
#include "ombrel/foundation/error.h"

namespace ombrel {

using namespace sqlite_store;

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

int64_t PragmaInt(sqlite3* db, const char* sql) {
  Statement s(db, sql);
  StatementUse use(s);
  return use->Step() ? use->Int(0) : 0;
}

struct FileIdentity {
  int64_t applicationId = 0;
  int64_t version = 0;
  int64_t objects = 0;
};

// Reads only: a file that turns out not to be ours must stay as it was.
FileIdentity Identify(sqlite3* db) {
  FileIdentity id;
  id.applicationId = PragmaInt(db, "PRAGMA application_id");
  id.version = PragmaInt(db, "PRAGMA user_version");
  id.objects = PragmaInt(db, "SELECT count(*) FROM sqlite_master");
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

}  // namespace

CSqliteCardStore::Impl::Statements::Statements(sqlite3* db)
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
      begin(db, "BEGIN IMMEDIATE"),
      commit(db, "COMMIT"),
      rollback(db, "ROLLBACK"),
      dataVersion(db, "PRAGMA data_version") {}

CSqliteCardStore::Impl::Impl(std::string path, OpenMode mode, SqliteStoreOptions options)
    : path_(std::move(path)), mode_(mode), options_(options) {}

CSqliteCardStore::Impl::~Impl() { CloseConnection(); }

void CSqliteCardStore::Impl::OpenConnection(OpenMode mode) {
  std::error_code ec;
  bool exists = std::filesystem::exists(path_, ec);
  if (!exists && mode == OpenMode::kOpenExisting) {
    Fail(kStatusDatabase, "'" + path_ + "' does not exist");
  }
  int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | (exists ? 0 : SQLITE_OPEN_CREATE);
  sqlite3* db = nullptr;
  int rc = sqlite3_open_v2(path_.c_str(), &db, flags, nullptr);
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

  FileIdentity id;
  try {
    id = Identify(db);
  } catch (const Failure& f) {
    if ((sqlite3_errcode(db) & 0xFF) == SQLITE_NOTADB) {
      Fail(kStatusDatabase, "'" + path_ + "' is not an Ombrel card database (not an SQLite file)");
    }
    throw;
  }
  if (!IsEmpty(id)) CheckOurs(id, path_);

  // WAL lets the host and other ombrel processes read while one writes.
  // NORMAL sync is safe in WAL mode: a crash can lose the last commit, never
  // corrupt the file.
  Exec(db, "PRAGMA journal_mode = WAL");
  Exec(db, "PRAGMA synchronous = NORMAL");
  Exec(db, "PRAGMA cache_size = -65536");

  if (IsEmpty(id)) {
    Exec(db, "BEGIN IMMEDIATE");
    try {
      // Another process may have laid the schema while we were looking.
      FileIdentity again = Identify(db);
      if (IsEmpty(again)) {
        Exec(db, kSchema);
      } else {
        CheckOurs(again, path_);
      }
      Exec(db, "COMMIT");
    } catch (...) {
      sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
      throw;
    }
  }

  st_ = std::make_unique<Statements>(db);
  closer.keep = true;
  db_ = db;
  InvalidateAll();
  dataVersion_ = -1;
  Refresh(true);
}

void CSqliteCardStore::Impl::CloseConnection() {
  if (!db_) return;
  if (inBracket_) sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
  inBracket_ = false;
  st_.reset();
  sqlite3_close_v2(db_);
  db_ = nullptr;
  InvalidateAll();
}

std::unique_ptr<CSqliteCardStore> CSqliteCardStore::Open(const std::string& path, OpenMode mode,
                                                         const SqliteStoreOptions& options) {
  auto impl = std::make_unique<Impl>(path, mode, options);
  try {
    impl->OpenConnection(mode);
  } catch (const Failure& f) {
    RaiseTrap(f.message);
  }
  return std::unique_ptr<CSqliteCardStore>(new CSqliteCardStore(std::move(impl)));
}

}  // namespace ombrel
