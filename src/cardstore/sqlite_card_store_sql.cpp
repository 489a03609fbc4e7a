// SQLite plumbing for the card store: statements that throw a Failure with
// SQLite's own message, and the mapping of lock errors to a busy status.
#include "cardstore/sqlite_card_store_internal.h"

namespace ombrel::sqlite_store {

void Fail(Status status, std::string message) { throw Failure{status, std::move(message)}; }

void FailSql(sqlite3* db, int rc, std::string_view what) {
  int primary = rc & 0xFF;
  std::string message(what);
  message += ": ";
  message += db ? sqlite3_errmsg(db) : sqlite3_errstr(rc);
  if (primary == SQLITE_BUSY || primary == SQLITE_LOCKED) {
    message += " (another connection holds the lock)";
    Fail(CSqliteCardStore::kStatusBusy, std::move(message));
  }
  Fail(CSqliteCardStore::kStatusDatabase, std::move(message));
}

Statement::Statement(sqlite3* db, std::string_view sql) {
  int rc = sqlite3_prepare_v3(db, sql.data(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT, &stmt_, nullptr);
  if (rc != SQLITE_OK) FailSql(db, rc, "cannot prepare \"" + std::string(sql) + "\"");
}

Statement::~Statement() { sqlite3_finalize(stmt_); }

Statement& Statement::operator=(Statement&& other) noexcept {
  if (this != &other) {
    sqlite3_finalize(stmt_);
    stmt_ = std::exchange(other.stmt_, nullptr);
  }
  return *this;
}

void Statement::BindInt(int index, int64_t value) { sqlite3_bind_int64(stmt_, index, value); }

void Statement::BindText(int index, std::string_view text) {
  sqlite3_bind_text(stmt_, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
}

void Statement::BindBlob(int index, std::string_view bytes) {
  // A zero-length blob must still be a blob, not NULL.
  static const char kEmpty = 0;
  sqlite3_bind_blob(stmt_, index, bytes.empty() ? &kEmpty : bytes.data(), static_cast<int>(bytes.size()),
                    SQLITE_TRANSIENT);
}

bool Statement::Step() {
  int rc = sqlite3_step(stmt_);
  if (rc == SQLITE_ROW) return true;
  if (rc == SQLITE_DONE) return false;
  sqlite3* db = sqlite3_db_handle(stmt_);
  std::string sql = sqlite3_sql(stmt_);
  sqlite3_reset(stmt_);
  FailSql(db, rc, "\"" + sql + "\" failed");
}

void Statement::Reset() {
  sqlite3_reset(stmt_);
  sqlite3_clear_bindings(stmt_);
}

std::string_view Statement::Text(int col) const {
  auto* p = reinterpret_cast<const char*>(sqlite3_column_text(stmt_, col));
  return p ? std::string_view(p, sqlite3_column_bytes(stmt_, col)) : std::string_view();
}

std::string_view Statement::Blob(int col) const {
  auto* p = static_cast<const char*>(sqlite3_column_blob(stmt_, col));
  return p ? std::string_view(p, sqlite3_column_bytes(stmt_, col)) : std::string_view();
}

void Exec(sqlite3* db, const char* sql) {
  int rc = sqlite3_exec(db, sql, nullptr, nullptr, nullptr);
  if (rc != SQLITE_OK) FailSql(db, rc, std::string("\"") + sql + "\" failed");
}

}  // namespace ombrel::sqlite_store
