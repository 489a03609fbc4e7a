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
};

}  // namespace ombrel
