// FakeCardStore: a card store for tests that keeps every value in maps and
// can be told to misbehave.
//
//   FakeCardStore store;
//   store.AddCard(12, {{"Name", "Ann Lee"}, {"Title", "CEO"}});
//   store.Fail("PutValue", 5, "locked").ForCard(12).ForField("Title");
//   store.Fail("CardExists", 1, "gone").Times(1);   // only the first call
//   store.Lack("GetLastError");                       // raises the missing-member error
//
// A fault applies to the calls of its member that match its card and field
// (when given), for its number of calls (every call by default); the first
// matching fault wins. A failing call leaves its out-arguments untouched and
// sets the text GetLastError answers. successStatus is what a call that works
// returns (a store answering anything but 0 fails everywhere).
//
// Cards may share one value map (AddSharedCard), so a large store costs
// little memory; writing a value copies the map first. Every call is logged
// as "Member arg1 arg2" in calls.
#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "ombrel/cardstore/icardstore.h"
#include "ombrel/foundation/error.h"

namespace ombrel {

class FakeCardStore final : public ICardStore {
 public:
  using Values = std::unordered_map<std::string, std::string>;

  struct Fault {
    std::string member;
    Status status = 1;
    std::string lastError;
    std::optional<int32_t> cardId;
    std::optional<std::string> fieldName;
    int remaining = -1;  // calls left to fail; -1 = every call

    Fault& ForCard(int32_t id) {
      cardId = id;
      return *this;
    }
    Fault& ForField(std::string name) {
      fieldName = std::move(name);
      return *this;
    }
    Fault& Times(int n) {
      remaining = n;
      return *this;
    }
  };

  // --- contents ---------------------------------------------------------
  Status successStatus = 0;
  std::string customFields;
  std::string categories;
  std::string labels;
  std::string lastError;  // what GetLastError answers
  std::map<int32_t, int32_t> frontDib;
  std::map<int32_t, int32_t> backDib;
  bool connected = false;
  bool inUpdate = false;
  std::vector<std::string> calls;
  bool logCalls = true;  // benchmarks turn the log off

  void AddCard(int32_t id, Values values = {}) { AddSharedCard(id, std::make_shared<Values>(std::move(values))); }
  void AddSharedCard(int32_t id, std::shared_ptr<Values> values) {
    if (!cards_.count(id)) order_.push_back(id);
    cards_[id] = std::move(values);
  }
  void SetValue(int32_t id, const std::string& name, const std::string& value) {
    auto& values = cards_.at(id);
    if (values.use_count() > 1) values = std::make_shared<Values>(*values);
    (*values)[name] = value;
  }
  bool HasCard(int32_t id) const { return cards_.count(id) != 0; }
  std::optional<std::string> FindValue(int32_t id, const std::string& name) const {
    auto card = cards_.find(id);
    if (card == cards_.end()) return std::nullopt;
    auto it = card->second->find(name);
    if (it == card->second->end()) return std::nullopt;
    return it->second;
  }
  const std::vector<int32_t>& CardOrder() const { return order_; }

  // --- misbehaviour -----------------------------------------------------
  Fault& Fail(std::string member, Status status, std::string errorText) {
    faults_.push_back(Fault{std::move(member), status, std::move(errorText), {}, {}, -1});
    return faults_.back();
  }
  void ClearFaults() { faults_.clear(); }
  void Lack(std::string member) { lacking_.insert(std::move(member)); }

  int CallCount(std::string_view member) const {
    return static_cast<int>(std::count_if(calls.begin(), calls.end(), [&](const std::string& c) {
      return std::string_view(c).substr(0, c.find(' ')) == member;
    }));
  }

  // --- the contract -----------------------------------------------------
  Status Connect() override {
    return Call("Connect", {}, nullptr, [&] {
      connected = true;
      return successStatus;
    });
  }
  Status Disconnect() override {
    return Call("Disconnect", {}, nullptr, [&] {
      connected = false;
      return successStatus;
    });
  }
  Status GetNumberOfCards(int32_t& numCards) override {
    return Call("GetNumberOfCards", {}, nullptr, [&] {
      numCards = static_cast<int32_t>(order_.size());
      return successStatus;
    });
  }
  Status GetCardID(int32_t cardIndex, int32_t& cardId) override {
    return Call("GetCardID", cardIndex, nullptr, [&] {
      if (cardIndex < 0 || cardIndex >= static_cast<int32_t>(order_.size()))
        return Failed(1, "Card index out of range: " + std::to_string(cardIndex));
      cardId = order_[cardIndex];
      return successStatus;
    });
  }
  Status GetCardDIB(int32_t cardId, int32_t& dib) override {
    return Call("GetCardDIB", cardId, nullptr, [&] { return Image(frontDib, cardId, dib); });
  }
  Status GetBackDIB(int32_t cardId, int32_t& dib) override {
    return Call("GetBackDIB", cardId, nullptr, [&] { return Image(backDib, cardId, dib); });
  }
  Status SetCardDIB(int32_t cardId, int32_t dib) override {
    return Call("SetCardDIB", cardId, nullptr, [&] { return SetImage(frontDib, cardId, dib); });
  }
  Status SetBackDIB(int32_t cardId, int32_t dib) override {
    return Call("SetBackDIB", cardId, nullptr, [&] { return SetImage(backDib, cardId, dib); });
  }
  Status HasFrontImage(int32_t cardId, bool& answer) override {
    return Call("HasFrontImage", cardId, nullptr, [&] { return HasImage(frontDib, cardId, answer); });
  }
  Status HasBackImage(int32_t cardId, bool& answer) override {
    return Call("HasBackImage", cardId, nullptr, [&] { return HasImage(backDib, cardId, answer); });
  }
  Status GetLabels(const std::string& labelType, std::string& out) override {
    return Call("GetLabels", {}, &labelType, [&] {
      out = labels;
      return successStatus;
    });
  }
  Status GetCustomFields(std::string& fields) override {
    return Call("GetCustomFields", {}, nullptr, [&] {
      fields = customFields;
      return successStatus;
    });
  }
  Status GetCategories(std::string& out) override {
    return Call("GetCategories", {}, nullptr, [&] {
      out = categories;
      return successStatus;
    });
  }
  // A value the card does not hold reads as empty, as a database column would.
  Status GetValue(int32_t cardId, const std::string& fieldName, std::string& value) override {
    return Call("GetValue", cardId, &fieldName, [&] {
      auto card = cards_.find(cardId);
      if (card == cards_.end()) return Failed(1, NoCard(cardId));
      auto it = card->second->find(fieldName);
      if (it == card->second->end()) value.clear();
      else value = it->second;
      return successStatus;
    });
  }
  Status PutValue(int32_t cardId, const std::string& fieldName, const std::string& value) override {
    return Call("PutValue", cardId, &fieldName, [&] {
      if (!HasCard(cardId)) return Failed(1, NoCard(cardId));
      SetValue(cardId, fieldName, value);
      return successStatus;
    });
  }
  Status DeleteCard(int32_t cardId) override {
    return Call("DeleteCard", cardId, nullptr, [&] {
      if (!HasCard(cardId)) return Failed(1, NoCard(cardId));
      cards_.erase(cardId);
      order_.erase(std::find(order_.begin(), order_.end(), cardId));
      return successStatus;
    });
  }
  Status BeginUpdate() override {
    return Call("BeginUpdate", {}, nullptr, [&] {
      inUpdate = true;
      return successStatus;
    });
  }
  Status CommitUpdate() override {
    return Call("CommitUpdate", {}, nullptr, [&] {
      inUpdate = false;
      return successStatus;
    });
  }
  Status AbortUpdate() override {
    return Call("AbortUpdate", {}, nullptr, [&] {
      inUpdate = false;
      return successStatus;
    });
  }
  Status GetCapabilities(int32_t& caps) override {
    return Call("GetCapabilities", {}, nullptr, [&] {
      caps = 0;
      return successStatus;
    });
  }
  Status CardExists(int32_t cardId, bool& answer) override {
    return Call("CardExists", cardId, nullptr, [&] {
      answer = HasCard(cardId);
      return successStatus;
    });
  }
  std::string GetLastError() override {
    Enter("GetLastError", {}, nullptr);
    return lastError;
  }

 private:
  static std::string NoCard(int32_t id) { return "No card with ID: " + std::to_string(id); }

  Status Failed(Status status, std::string text) {
    lastError = std::move(text);
    return status;
  }

  // Logs the call, raises for a lacking member, and answers the fault that applies, if any.
  std::optional<Status> Enter(std::string_view member, std::optional<int32_t> id, const std::string* field) {
    if (logCalls) {
      std::string entry(member);
      if (id) entry += " " + std::to_string(*id);
      if (field) entry += " " + *field;
      calls.push_back(std::move(entry));
    }
    if (lacking_.find(member) != lacking_.end()) RaiseMissingMember(member);
    for (Fault& fault : faults_) {
      if (fault.member != member || fault.remaining == 0) continue;
      if (fault.cardId && fault.cardId != id) continue;
      if (fault.fieldName && (!field || *fault.fieldName != *field)) continue;
      if (fault.remaining > 0) --fault.remaining;
      lastError = fault.lastError;
      return fault.status;
    }
    return std::nullopt;
  }

  template <class Body>
  Status Call(std::string_view member, std::optional<int32_t> id, const std::string* field, Body&& body) {
    if (auto status = Enter(member, id, field)) return *status;
    return body();
  }

  Status Image(const std::map<int32_t, int32_t>& dibs, int32_t cardId, int32_t& dib) {
    if (!HasCard(cardId)) return Failed(1, NoCard(cardId));
    auto it = dibs.find(cardId);
    dib = it == dibs.end() ? 0 : it->second;
    return successStatus;
  }
  Status SetImage(std::map<int32_t, int32_t>& dibs, int32_t cardId, int32_t dib) {
    if (!HasCard(cardId)) return Failed(1, NoCard(cardId));
    dibs[cardId] = dib;
    return successStatus;
  }
  Status HasImage(const std::map<int32_t, int32_t>& dibs, int32_t cardId, bool& answer) {
    if (!HasCard(cardId)) return Failed(1, NoCard(cardId));
    auto it = dibs.find(cardId);
    answer = it != dibs.end() && it->second != 0;
    return successStatus;
  }

  std::unordered_map<int32_t, std::shared_ptr<Values>> cards_;
  std::vector<int32_t> order_;
  std::deque<Fault> faults_;  // a deque, so the references Fail hands out stay valid
  std::set<std::string, std::less<>> lacking_;
};

}  // namespace ombrel
