// ICardStore: the contract a card store fulfils. The host's database, the
// SQLite card database and the in-memory store are all ICardStores, and the
// system reaches every one of them only through CCardStoreMgr.
//
// Every operation but GetLastError answers a status: 0 is success, anything
// else a failure whose text GetLastError gives. Results travel in the
// by-reference arguments. Card IDs, indexes and image handles are 32-bit.
//
// The system used to call stores by member name, so a store that lacks a
// member failed only when that member was called. Each member here therefore
// has a default that raises the missing-member error naming it; a store
// overrides exactly the members it offers.
//
// Value names accepted by GetValue/PutValue: the 28 standard field names, the
// database's custom fields, "First Name", "Last Name", "Certainty", and a field
// name followed by ".Label", ".Rectangle" ("left top right bottom"),
// ".Confidence Levels" ("ocr cat") or ".Suspect Info" (3 characters, first and
// last "0" or "1"). Suffixes are matched without regard to case.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

namespace ombrel {

using Status = int32_t;

// A read-only view of one card's stored values, handed out during a scan.
class ICardValues {
 public:
  virtual ~ICardValues() = default;
  // The value of that name, empty when the card has none (as GetValue reads it).
  virtual std::string Get(std::string_view name) const = 0;
  // The same into value, whose buffer a store may reuse (a scan reads
  // dozens of values per card).
  virtual void Read(std::string_view name, std::string& value) const { value = Get(name); }

  // For a reader that asks the same names of card after card: Prepare works
  // the names out once and answers a ticket, 0 when these values offer no
  // such thing. While IsPrepared(ticket) holds, ReadPrepared(k, value) reads
  // names[k] of the card now shown exactly as Read would; a later Prepare,
  // or a change in what the names mean to the store, ends it.
  virtual uint64_t Prepare(std::span<const std::string> names) const {
    (void)names;
    return 0;
  }
  virtual bool IsPrepared(uint64_t ticket) const {
    (void)ticket;
    return false;
  }
  virtual void ReadPrepared(size_t k, std::string& value) const {
    (void)k;
    value.clear();
  }
  // The same without a copy, where ViewsPrepared holds: a view of names[k]'s
  // value, valid until the values show another card.
  virtual bool ViewsPrepared() const { return false; }
  virtual std::string_view ViewPrepared(size_t k) const {
    (void)k;
    return {};
  }
  // The views ViewPrepared answers for the card now shown, side by side
  // (names[k]'s at [k]), when the values hold them so; else null. Valid
  // until the values show another card or are asked anything else.
  virtual const std::string_view* PreparedViews() const { return nullptr; }
};

// Reads one list of names from card after card: prepared once when the
// values offer it, else name by name. listId tells lists apart; a reader
// keeps its preparation while the values object, the list and the
// preparation itself stay the same.
class PreparedNamesReader {
 public:
  void Use(const ICardValues& values, std::span<const std::string> names, uint64_t listId) {
    if (&values != values_ || listId != listId_ || !values.IsPrepared(ticket_)) {
      values_ = &values;
      listId_ = listId;
      ticket_ = values.Prepare(names);
    }
    names_ = names;
    viewed_ = ticket_ != 0 && values.ViewsPrepared();
    // A card's values are read by the dozen: through one array rather than a call each.
    views_ = viewed_ ? values.PreparedViews() : nullptr;
  }
  // names[k] of the card the values show now.
  void Read(size_t k, std::string& value) const {
    if (viewed_) value.assign(values_->ViewPrepared(k));
    else if (ticket_ != 0) values_->ReadPrepared(k, value);
    else values_->Read(names_[k], value);
  }
  // The same without a copy when the values offer views, else read into
  // scratch; valid until the values show another card or scratch changes.
  std::string_view View(size_t k, std::string& scratch) const {
    if (views_) return views_[k];
    if (viewed_) return values_->ViewPrepared(k);
    Read(k, scratch);
    return scratch;
  }

 private:
  const ICardValues* values_ = nullptr;
  std::span<const std::string> names_;
  uint64_t listId_ = 0;
  uint64_t ticket_ = 0;
  bool viewed_ = false;
  const std::string_view* views_ = nullptr;
};

class ICardStore {
 public:
  virtual ~ICardStore() = default;

  // The declared slots, in order.
  virtual Status Connect();
  virtual Status Disconnect();
  virtual Status GetNumberOfCards(int32_t& numCards);
  virtual Status GetCardID(int32_t cardIndex, int32_t& cardId);
  virtual Status GetCardDIB(int32_t cardId, int32_t& dib);
  virtual Status GetLabels(const std::string& labelType, std::string& labels);
  virtual Status GetCustomFields(std::string& fields);
  virtual Status GetValue(int32_t cardId, const std::string& fieldName, std::string& value);
  virtual Status PutValue(int32_t cardId, const std::string& fieldName, const std::string& value);
  virtual Status DeleteCard(int32_t cardId);
  virtual Status BeginUpdate();
  virtual Status CommitUpdate();
  virtual Status AbortUpdate();
  virtual Status GetCapabilities(int32_t& caps);
  virtual std::string GetLastError();

  // Members beyond the declared slots that the manager calls.
  virtual Status CardExists(int32_t cardId, bool& answer);
  virtual Status GetBackDIB(int32_t cardId, int32_t& dib);
  virtual Status SetCardDIB(int32_t cardId, int32_t dib);
  virtual Status SetBackDIB(int32_t cardId, int32_t dib);
  virtual Status HasFrontImage(int32_t cardId, bool& answer);
  virtual Status HasBackImage(int32_t cardId, bool& answer);
  virtual Status GetCategories(std::string& categories);

  // Optional fast path for whole-database reads. A store that offers it
  // answers true from OffersScan and visits every card, in index order
  // (the order of GetCardID), in one pass; visit returns false to stop early.
  // The values seen are exactly those GetValue would give. Stores without it
  // are read card by card through the members above.
  virtual bool OffersScan() const { return false; }
  virtual Status ScanCards(const std::function<bool(int32_t cardId, const ICardValues& values)>& visit);

  // Optional: the scan split into `parts` stretches of the card order, read at once, part 0 on the
  // calling thread and each other part on a thread of its own. A part visits its stretch in order and
  // every card of part p comes before every card of part p + 1 in the order, so the parts' cards in
  // part order are exactly what ScanCards visits. A store may use fewer parts than asked (parts left
  // without cards are simply never visited), e.g. while an update bracket is open.
  // The visitor runs concurrently on several threads, each part with its own ICardValues; only part 0's
  // visitor may call back into the store. Answering false ends that part only.
  // When a visitor throws, or a part fails, the other parts stop at their next card and every thread
  // is joined before the call returns. The exception of the lowest-numbered part that threw is then
  // rethrown here; otherwise the failure of the lowest-numbered failing part is the call's status.
  // partStarts, when it names parts - 1 cards in store order, asks for the parts to begin at those
  // cards instead of splitting the store into equal stretches (a caller that wants only some cards
  // can give each part as many of them); a store may ignore it.
  // wanted, when given, is asked (on the part's thread) about each card first: a card it answers false
  // for is passed over unvisited, and a store may then skip reading its values.
  // waiting, when given, is called on the calling thread every few hundredths of a second once part 0
  // is done while other parts still run (a caller keeps its progress reports going, and may have the
  // other parts' visitors answer false); a store may call it never.
  // Optional: a snapshot, one consistent state for reads of many calls. Between BeginSnapshot and
  // EndSnapshot every read answers from the state the store had when the snapshot began, whatever
  // others write meanwhile (a card read once is still there, with the same values, later in the
  // snapshot). Snapshots nest; writes through the store fail while one is held.
  virtual bool OffersSnapshot() const { return false; }
  virtual Status BeginSnapshot();
  virtual Status EndSnapshot();

  virtual bool OffersPartScan() const { return false; }
  virtual Status ScanCardsInParts(
      int32_t parts, const std::function<bool(int32_t part, int32_t cardId, const ICardValues& values)>& visit,
      std::span<const int32_t> partStarts = {}, const std::function<bool(int32_t cardId)>& wanted = {},
      const std::function<void()>& waiting = {});
};

}  // namespace ombrel
