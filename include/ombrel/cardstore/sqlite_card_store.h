// CSqliteCardStore: a card store kept in one SQLite file.
//
// This is Ombrel's own card database. The command-line tools import cards
// into it, export them and generate demo data in it, and because it serves
// the full ICardStore contract the duplicate search and the database actions
// run on it exactly as on the host's store.
//
//   auto store = CSqliteCardStore::Open("cards.db", OpenMode::kOpenOrCreate);
//   int32_t count = 0;
//   store->GetNumberOfCards(count);
//
// Open throws ombrel::Error when the file cannot be used: it does not exist
// (kOpenExisting), it is not an Ombrel database (garbage, or another
// program's SQLite file) or it was written by a newer Ombrel. Such a file is
// left untouched. A missing or empty file gets the schema (docs/database.md).
//
// Each card is one row holding all its values in a compact encoding, so a
// card costs one query however many of its values are read; the last card
// read stays decoded in memory. CardExists, HasFrontImage and HasBackImage
// answer from the card IDs and image sides kept in memory, each set read in
// one query when first needed and kept current by this store's own writes.
// Several connections may share the file (the host application, a second
// ombrel process, another store object): the file runs in WAL mode, readers
// never wait for a writer, and a writer that cannot get the write lock within
// the busy timeout gets a failing status instead of blocking forever. Reads
// outside an update bracket notice commits by other connections at most
// refreshIntervalMs late; inside one every answer is exact. A snapshot
// (BeginSnapshot ... EndSnapshot) holds one state for reads of many calls:
// the duplicate search reads through one, so it never sees half of another
// process's work.
//
// Opened with OpenMode::kReadOnly the store never writes the file (writes
// fail with kStatusReadOnly); a file or folder the user cannot write is read
// all the same. A missing or empty file opened for writing gets the schema
// in its first write transaction, so a first import that fails leaves it as
// it was. The first write transaction of a connection checks the file
// (PRAGMA quick_check) and refuses a damaged one.
//
// Status values: 0 success; otherwise one of the kStatus* codes below, and
// GetLastError names what failed (operation, card ID, value name, SQLite's
// own message). Writes outside BeginUpdate/CommitUpdate are each their own
// transaction. Connect re-opens the file after Disconnect; the store is
// connected when Open returns. Not thread-safe: one store object per thread;
// ScanCardsInParts runs its other parts on threads of its own, each with its
// own read-only connection, and answers only when they have all finished.
//
// PutValue inside a bracket: the value name and the card are checked (and a
// new value name registered) at once, so those failures come from PutValue
// itself; the value then changes the card kept in memory, and the card's row
// is written once: when a call turns to another card (GetValue, PutValue),
// before a read of the whole database (ScanCards, ScanRecords, GetLabels),
// and at CommitUpdate. If that write fails, the call that made it fails
// naming the card ("the changes to card 7 could not be written: ..."); the
// changes stay pending and are written again at the next such point, so a
// bracket never commits without them: a CommitUpdate that fails so leaves
// the bracket open (retry it or AbortUpdate), unless SQLite itself ended the
// transaction. AbortUpdate discards pending changes, DeleteCard drops those
// of the card it deletes. Outside a bracket each PutValue writes its row at
// once, in its own transaction.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ombrel/cardstore/icardstore.h"
#include "ombrel/cardstore/image_registry.h"

namespace ombrel {

enum class OpenMode {
  kOpenOrCreate,  // create the file (with the schema) when it does not exist
  kOpenExisting,  // refuse a missing file
  kReadOnly,      // refuse a missing or empty file, and every write
};

struct SqliteStoreOptions {
  // How long a statement waits for another connection's lock before failing.
  int busyTimeoutMs = 5000;
  // Outside an update bracket, how often the cached card, the card order and
  // the ID and image sets are checked against commits of other connections.
  // 0 checks on every read.
  int refreshIntervalMs = 20;
  // The first write transaction runs PRAGMA quick_check and refuses a
  // damaged file (about 0.2 s a 100,000 cards).
  bool checkBeforeWriting = true;
};

// A custom field as the database declares it (one line of GetCustomFields).
struct CustomFieldDef {
  std::string name;
  std::string type = "TEXT";
  std::string visibility = "VISIBLE";
  std::string access = "READWRITE";
  bool operator==(const CustomFieldDef&) const = default;
};

// Value name → text, in the order given (stored and exported in that order).
using CardValueList = std::vector<std::pair<std::string, std::string>>;

// One card as a whole-database scan sees it: values in stored order. The
// views are valid only during the visit.
struct CardRecordView {
  int32_t id = 0;
  std::vector<std::pair<std::string_view, std::string_view>> values;
  bool hasFront = false;
  bool hasBack = false;
};

enum class ImageSide { kFront = 0, kBack = 1 };

class CSqliteCardStore : public ICardStore {
 public:
  static constexpr Status kStatusNotConnected = 1;
  static constexpr Status kStatusUnknownCard = 2;
  static constexpr Status kStatusUnknownValueName = 3;
  static constexpr Status kStatusBadArgument = 4;  // index out of range, bad ID, unknown image handle
  static constexpr Status kStatusBusy = 5;         // another connection holds the lock
  static constexpr Status kStatusTransaction = 6;  // bracket misuse (nested Begin, Commit without Begin)
  static constexpr Status kStatusDatabase = 7;     // any other SQLite failure
  static constexpr Status kStatusReadOnly = 8;     // a write to a store opened with OpenMode::kReadOnly

  // Opens (or creates) the database at path. Throws ombrel::Error when the
  // file is refused, as described above.
  static std::unique_ptr<CSqliteCardStore> Open(const std::string& path, OpenMode mode = OpenMode::kOpenOrCreate,
                                                const SqliteStoreOptions& options = {});
  ~CSqliteCardStore() override;
  CSqliteCardStore(const CSqliteCardStore&) = delete;
  CSqliteCardStore& operator=(const CSqliteCardStore&) = delete;

  const std::string& Path() const;

  // The contract.
  Status Connect() override;
  Status Disconnect() override;
  Status GetNumberOfCards(int32_t& numCards) override;
  Status GetCardID(int32_t cardIndex, int32_t& cardId) override;
  Status GetCardDIB(int32_t cardId, int32_t& dib) override;
  Status GetLabels(const std::string& labelType, std::string& labels) override;
  Status GetCustomFields(std::string& fields) override;
  Status GetValue(int32_t cardId, const std::string& fieldName, std::string& value) override;
  Status PutValue(int32_t cardId, const std::string& fieldName, const std::string& value) override;
  Status DeleteCard(int32_t cardId) override;
  Status BeginUpdate() override;
  Status CommitUpdate() override;
  Status AbortUpdate() override;
  Status GetCapabilities(int32_t& caps) override;
  std::string GetLastError() override;
  Status CardExists(int32_t cardId, bool& answer) override;
  Status GetBackDIB(int32_t cardId, int32_t& dib) override;
  Status SetCardDIB(int32_t cardId, int32_t dib) override;
  Status SetBackDIB(int32_t cardId, int32_t dib) override;
  Status HasFrontImage(int32_t cardId, bool& answer) override;
  Status HasBackImage(int32_t cardId, bool& answer) override;
  Status GetCategories(std::string& categories) override;
  bool OffersScan() const override { return true; }
  Status ScanCards(const std::function<bool(int32_t cardId, const ICardValues& values)>& visit) override;
  // One part on this connection while a bracket is open (its pending changes
  // are this connection's alone) or when the database is not a file of its
  // own (in memory, temporary).
  // A snapshot is one read transaction on the store's connection; the other
  // parts of a scan in parts read the same state, or (when another
  // connection committed since the snapshot began) the scan reads in one part.
  bool OffersSnapshot() const override { return true; }
  Status BeginSnapshot() override;
  Status EndSnapshot() override;
  bool OffersPartScan() const override { return true; }
  // partStarts that the store does not hold, or not in store order, are ignored. The values of
  // cards not wanted are not decoded. A scan in parts reads one snapshot (the caller's, or its
  // own): part 0's visitor may read through the store, but a write fails until the scan is over.
  Status ScanCardsInParts(int32_t parts,
                          const std::function<bool(int32_t part, int32_t cardId, const ICardValues& values)>& visit,
                          std::span<const int32_t> partStarts = {},
                          const std::function<bool(int32_t cardId)>& wanted = {},
                          const std::function<void()>& waiting = {}) override;

  // Bulk and administrative paths used by import, export and the sample
  // generator. They follow the same status convention; inside an update
  // bracket they join it, outside each call is its own transaction.

  // Adds a card at the end of the order. Values must use valid value names
  // (a name given twice, in any suffix spelling, is refused); empty values
  // are not stored. front/back may be null; their format must be known.
  Status AddCard(int32_t cardId, const CardValueList& values, const StoredImage* front = nullptr,
                 const StoredImage* back = nullptr);
  // The same with the next free ID (one above the largest in use).
  Status AddCardWithNextId(const CardValueList& values, const StoredImage* front, const StoredImage* back,
                           int32_t& cardId);
  // Adds the fields not yet declared and updates the attributes of those that are.
  Status DefineCustomFields(const std::vector<CustomFieldDef>& fields);
  // Adds the categories not yet declared, after the existing ones.
  Status DefineCategories(const std::vector<std::string>& categories);
  Status ListCustomFields(std::vector<CustomFieldDef>& fields);
  Status ListCategories(std::vector<std::string>& categories);
  // Answers the canonical spelling of a value name ("Phone 1.label" →
  // "Phone 1.Label"); kStatusUnknownValueName when it is not one.
  Status CanonicalValueName(std::string_view name, std::string& canonical);
  // Every card in order with its values as stored, in one query.
  Status ScanRecords(const std::function<bool(const CardRecordView& card)>& visit);
  // The stored image; present is false when the card has none on that side.
  Status GetImage(int32_t cardId, ImageSide side, StoredImage& image, bool& present);
  bool InUpdate() const;
  // The cards this store object has deleted in transactions that committed.
  int64_t CardsDeleted() const;

  class Impl;

 private:
  explicit CSqliteCardStore(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

}  // namespace ombrel
