// The card scan split into stretches of the card order read at once: part 0
// on the store's own connection and the calling thread, every other part on
// a read-only connection and a thread of its own.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>

#include "cardstore/sqlite_card_store_internal.h"

namespace ombrel {

using namespace sqlite_store;

namespace {

using PartVisit = std::function<bool(int32_t part, int32_t cardId, const ICardValues& values)>;

// More threads than this would only take turns on the same cores.
constexpr int32_t kMaxParts = 64;

constexpr const char* kRangeScan = "SELECT id, vals FROM cards WHERE ord BETWEEN ?1 AND ?2 ORDER BY ord";

// The name tables as they were when the scan began. Part 0's visitor may call
// back into the store, which may then grow or reload the store's own tables,
// so the other parts read this copy and never the store.
struct NameTables {
  std::vector<int32_t> canonByCode;
  size_t names = 0;
  StringMap<int32_t> canonByName;
  std::unordered_set<std::string> customFields;
};

[[noreturn]] void FailUnknownCode(sqlite3* db, int32_t cardId, uint64_t code);

// What a part on a thread of its own hands to its visitor; db is the part's
// connection.
class PartValues final : public ViewedValues {
 public:
  PartValues(const NameTables& tables, sqlite3* db) : tables_(tables), db_(db) {}

 private:
  int32_t Resolve(std::string_view name) const override {
    int32_t index = kUnknownName;
    size_t slot = 0;
    if (!resolved_.Find(name, index, slot)) {
      std::string canonical;
      if (CanonicalName(name, tables_.customFields, canonical)) {
        // A valid name that no card has ever held has no index: it reads empty.
        auto it = tables_.canonByName.find(canonical);
        if (it != tables_.canonByName.end()) index = it->second;
      }
      resolved_.Add(slot, name, index);
    }
    return index;
  }
  uint64_t Generation() const override { return 1; }  // the tables are this scan's copy
  const DecodedCard& Card() const override { return card_; }
  void Decode(int32_t id, std::string_view blob, PickedNames* pick) override {
    uint64_t unknown = DecodeWith(tables_.canonByCode, tables_.names, id, blob, card_, pick);
    if (unknown != 0) FailUnknownCode(db_, id, unknown);
  }

  DecodedCard card_;
  const NameTables& tables_;
  sqlite3* db_;
  mutable ResolvedNames resolved_;  // this part's alone
};

struct Part {
  int64_t first = 0;
  int64_t last = -1;
  sqlite3* db = nullptr;  // null for part 0, which reads on the store's connection
  Statement scan;
  std::exception_ptr thrown;      // by the visitor
  std::exception_ptr storeError;  // a Failure, or running out of memory
  bool collectIds = false;        // every ID met goes into ids
  std::vector<int32_t> ids;
  bool finished = false;  // read to its end

  Part() = default;
  Part(const Part&) = delete;
  Part& operator=(const Part&) = delete;
  ~Part() { Close(); }
  void Close() noexcept {
    scan = Statement();
    if (db) sqlite3_close_v2(db);
    db = nullptr;
  }
};

void OpenPartConnection(Part& part, const char* file, int busyTimeoutMs) {
  int rc = sqlite3_open_v2(file, &part.db, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr);
  if (rc != SQLITE_OK) FailSql(part.db, rc, "cannot open '" + std::string(file) + "' for a part of the scan");
  sqlite3_extended_result_codes(part.db, 1);
  sqlite3_busy_timeout(part.db, busyTimeoutMs);
  // The part's read begins now, to be compared with the store's snapshot.
  Exec(part.db, "BEGIN");
  QueryInt(part.db, "SELECT count(*) FROM value_names");
  part.scan = Statement(part.db, kRangeScan);
  part.scan.BindInt(1, part.first);
  part.scan.BindInt(2, part.last);
}

// A code the copied tables do not know: registered by another connection
// after the scan began, or never registered at all (damage, reported as the
// store's own reads report it).
[[noreturn]] void FailUnknownCode(sqlite3* db, int32_t cardId, uint64_t code) {
  Statement lookup(db, "SELECT 1 FROM value_names WHERE code = ?1");
  lookup.BindInt(1, static_cast<int64_t>(code));
  if (lookup.Step()) {
    Fail(CSqliteCardStore::kStatusDatabase, "the database changed during the scan (card " + std::to_string(cardId) +
                                                " holds a value name registered since it began); try again");
  }
  Fail(CSqliteCardStore::kStatusDatabase,
       "card " + std::to_string(cardId) + " holds unknown value code " + std::to_string(code));
}

// While alive, holds the connection's page cache to a few pages. A scan in
// parts reads every page once: the large cache kept for the store's own work
// would only fill with pages never read again, memory the search needs.
class SmallCacheDuringScan {
 public:
  explicit SmallCacheDuringScan(sqlite3* db) : db_(db) {
    Statement current(db, "PRAGMA cache_size");
    if (!current.Step()) return;
    saved_ = current.Int(0);
    current = Statement();
    Exec(db, "PRAGMA cache_size = -2048");
    active_ = true;
  }
  ~SmallCacheDuringScan() {
    if (!active_) return;
    const std::string restore = "PRAGMA cache_size = " + std::to_string(saved_);
    sqlite3_exec(db_, restore.c_str(), nullptr, nullptr, nullptr);  // a size only; nothing to report
  }
  SmallCacheDuringScan(const SmallCacheDuringScan&) = delete;
  SmallCacheDuringScan& operator=(const SmallCacheDuringScan&) = delete;

 private:
  sqlite3* db_;
  int64_t saved_ = 0;
  bool active_ = false;
};

// Reads one part, catching whatever it meets; anything caught stops the
// other parts at their next card.
void ReadPart(int32_t number, Part& part, ViewedValues& values, const PartVisit& visit,
              const std::function<bool(int32_t)>& wanted, std::atomic<bool>& stop) noexcept {
  try {
    while (!stop.load(std::memory_order_relaxed)) {
      if (!part.scan.Step()) {
        part.finished = true;
        break;
      }
      auto id = static_cast<int32_t>(part.scan.Int(0));
      if (part.collectIds) part.ids.push_back(id);
      bool more = false;
      try {
        if (wanted && !wanted(id)) continue;
      } catch (...) {
        part.thrown = std::current_exception();
        break;
      }
      values.Show(id, part.scan.Blob(1));
      try {
        more = visit(number, id, values);
      } catch (...) {
        part.thrown = std::current_exception();
        break;
      }
      if (!more) break;
    }
  } catch (...) {
    part.storeError = std::current_exception();
  }
  part.scan.Reset();  // an unfinished read would pin the snapshot
  if (part.thrown || part.storeError) stop.store(true, std::memory_order_relaxed);
}

}  // namespace

Status CSqliteCardStore::ScanCardsInParts(int32_t parts, const PartVisit& visit, std::span<const int32_t> partStarts,
                                          const std::function<bool(int32_t)>& wanted,
                                          const std::function<void()>& waiting) {
  std::exception_ptr thrown;
  Status status = impl_->Run("ScanCardsInParts", [&] {
    Impl& s = *impl_;
    s.ReadyToRead();
    s.card.Flush();

    // Pending changes are visible on this connection only, and an in-memory
    // or temporary database on no other.
    const char* file = s.conn.FileName();
    int64_t first = INT64_MIN, last = INT64_MAX;
    int32_t count = 1;
    // The parts read one state: a snapshot of the store's own, which the
    // other parts' reads are then checked to share.
    struct Snapshot {
      Connection* held = nullptr;
      ~Snapshot() {
        if (held) held->EndSnapshot();
      }
    } snapshot;
    if (parts > 1 && !s.conn.InBracket() && file && sqlite3_threadsafe()) {
      s.conn.BeginSnapshot();
      snapshot.held = &s.conn;
      // One aggregate a query, so that each reads one end of the table and not all of it.
      Statement bounds(s.conn.Db(), "SELECT (SELECT min(ord) FROM cards), (SELECT max(ord) FROM cards)");
      if (bounds.Step() && !bounds.IsNull(0)) {
        first = bounds.Int(0);
        last = bounds.Int(1);
        // ord is dense after imports, so equal stretches of it hold about equal numbers of cards.
        __int128 span = static_cast<__int128>(last) - first + 1;
        count = static_cast<int32_t>(std::min<__int128>({parts, kMaxParts, span}));
      }
    }
    std::vector<Part> part(count);
    for (int32_t p = 0; p < count; ++p) {
      __int128 span = static_cast<__int128>(last) - first + 1;
      part[p].first = static_cast<int64_t>(first + span * p / count);
      part[p].last = static_cast<int64_t>(first + span * (p + 1) / count - 1);
    }
    if (count > 1 && partStarts.size() == static_cast<size_t>(count - 1)) {
      // The caller's split, when every card it names is here and in order.
      std::vector<int64_t> starts;
      Statement find(s.conn.Db(), "SELECT ord FROM cards WHERE id = ?1");
      for (int32_t id : partStarts) {
        find.Reset();
        find.BindInt(1, id);
        if (!find.Step()) break;
        int64_t ord = find.Int(0);
        if (ord <= (starts.empty() ? first : starts.back())) break;
        starts.push_back(ord);
      }
      find.Reset();
      if (starts.size() == partStarts.size()) {
        for (int32_t p = 1; p < count; ++p) {
          part[p].first = starts[static_cast<size_t>(p - 1)];
          part[p - 1].last = part[p].first - 1;
        }
      }
    }

    // What can fail on its own (the names, the connections) is done before any card is visited.
    NameTables tables;
    if (count > 1) {
      s.names.EnsureCodesLoaded();
      s.names.EnsureCustomFieldsLoaded();
      tables.canonByCode = s.names.CanonByCode();
      tables.names = s.names.Size();
      tables.canonByName = s.names.CanonByName();
      tables.customFields = s.names.CustomFields();
      for (int32_t p = 1; p < count; ++p) OpenPartConnection(part[p], file, s.conn.Options().busyTimeoutMs);
      if (!s.conn.SnapshotStillCurrent()) {
        // Something was committed since the snapshot began: the other
        // connections would read a later state. Read on this one alone.
        for (int32_t p = 1; p < count; ++p) {
          part[p].Close();
          part[p].finished = true;  // nothing left for it: part 0 reads it all
        }
        part[0].first = first;
        part[0].last = last;
        count = 1;
      }
    }
    const Impl::ScanStart idStart = s.BeginIdCollection();
    for (Part& p : part) p.collectIds = idStart.collect;
    std::optional<SmallCacheDuringScan> smallCache;
    if (count > 1) smallCache.emplace(s.conn.Db());
    part[0].scan = Statement(s.conn.Db(), kRangeScan);  // its own: the visitor may call back into the store
    part[0].scan.BindInt(1, part[0].first);
    part[0].scan.BindInt(2, part[0].last);

    std::atomic<bool> stop = false;
    // The other parts still running, for the caller waiting on them.
    std::mutex runningMutex;
    std::condition_variable partEnded;
    int32_t running = count - 1;
    auto readAlone = [&](int32_t p) {
      PartValues values(tables, part[p].db);
      ReadPart(p, part[p], values, visit, wanted, stop);
      part[p].Close();
    };
    std::vector<std::thread> threads;
    // However this body is left, no thread outlives it.
    struct JoinAll {
      std::vector<std::thread>& threads;
      std::atomic<bool>& stop;
      ~JoinAll() {
        for (auto& t : threads) {
          if (t.joinable()) {
            stop = true;
            t.join();
          }
        }
      }
    } joinAll{threads, stop};
    threads.reserve(count - 1);
    try {
      for (int32_t p = 1; p < count; ++p) {
        threads.emplace_back([&, p] {
          try {
            readAlone(p);
          } catch (...) {
            // PartValues' table of names could not be made.
            part[p].storeError = std::current_exception();
            stop.store(true, std::memory_order_relaxed);
          }
          std::lock_guard<std::mutex> lock(runningMutex);
          --running;
          partEnded.notify_all();
        });
      }
    } catch (const std::system_error& e) {
      Fail(kStatusDatabase, std::string("cannot start a thread for a part of the scan: ") + e.what());
    }

    ScanValues values(s.names);
    ReadPart(0, part[0], values, visit, wanted, stop);
    if (waiting) {
      constexpr auto kWaitingEvery = std::chrono::milliseconds(20);
      std::unique_lock<std::mutex> lock(runningMutex);
      while (running > 0) {
        if (partEnded.wait_for(lock, kWaitingEvery, [&] { return running == 0; })) break;
        lock.unlock();
        waiting();
        lock.lock();
      }
    }
    for (auto& t : threads) t.join();

    for (const Part& p : part) {
      if (p.thrown) {
        thrown = p.thrown;
        return;
      }
    }
    for (const Part& p : part) {
      if (p.storeError) std::rethrow_exception(p.storeError);
    }
    if (idStart.collect && std::all_of(part.begin(), part.end(), [](const Part& p) { return p.finished; })) {
      std::vector<int32_t> ids = std::move(part[0].ids);
      for (int32_t p = 1; p < count; ++p) ids.insert(ids.end(), part[p].ids.begin(), part[p].ids.end());
      s.AdoptScannedIds(idStart, std::move(ids));
    }
  });
  // Outside Run, which would turn a visitor's bad_alloc into a status.
  if (thrown) std::rethrow_exception(thrown);
  return status;
}

}  // namespace ombrel
