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
// returns (a store answering anything but 0 fails everywhere). A value the
// card does not hold reads as empty, as a database column would.
//
// Cards may share one value map (AddSharedCard), so a large store costs
// little memory; writing a value copies the map first. Every call is logged
// as "Member arg1 arg2" in calls. With offersScan it serves ScanCards too,
// reading each value through GetValue, so the same data can be searched both ways.
#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <functional>
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
    Status status;
    std::string lastError;
    std::optional<int32_t> cardId;
    std::optional<std::string> fieldName;
    int remaining = -1;  // calls left to fail; -1 = every call

    Fault& ForCard(int32_t id) { cardId = id; return *this; }
    Fault& ForField(std::string name) { fieldName = std::move(name); return *this; }
    Fault& Times(int n) { remaining = n; return *this; }
  };

  Status successStatus = 0;
  std::string customFields, categories;
  std::string lastError;  // what GetLastError answers
  std::map<int32_t, int32_t> frontDib, backDib;
  bool inUpdate = false;
  std::vector<std::string> calls;
  bool logCalls = true;  // benchmarks turn the log off
  bool offersScan = false;
  int scans = 0;

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
  const Values& ValuesOf(int32_t id) const { return *cards_.at(id); }
  std::optional<std::string> FindValue(int32_t id, const std::string& name) const {
    auto card = cards_.find(id);
    return card != cards_.end() && card->second->count(name) ? std::optional(card->second->at(name)) : std::nullopt;
  }
  const std::vector<int32_t>& CardOrder() const { return order_; }

  Fault& Fail(std::string member, Status status, std::string errorText) {
    return faults_.emplace_back(Fault{std::move(member), status, std::move(errorText), {}, {}});
  }
  void Lack(std::string member) { lacking_.insert(std::move(member)); }
  std::string Log() const {  // the calls, a line each
    std::string out;
    for (const auto& call : calls) out += call + "\n";
    return out;
  }
  int CallCount(std::string_view member) const {
    return static_cast<int>(std::count_if(calls.begin(), calls.end(), [&](const std::string& c) {
      return std::string_view(c).substr(0, c.find(' ')) == member;
    }));
  }

  // --- the contract -----------------------------------------------------
  Status Connect() override { return Call("Connect", {}, nullptr, [] {}); }
  Status Disconnect() override { return Call("Disconnect", {}, nullptr, [] {}); }
  Status GetNumberOfCards(int32_t& n) override {
    return Call("GetNumberOfCards", {}, nullptr, [&] { n = static_cast<int32_t>(order_.size()); });
  }
  Status GetCardID(int32_t index, int32_t& id) override {
    if (auto fault = Enter("GetCardID", index, nullptr)) return *fault;
    if (index < 0 || index >= static_cast<int32_t>(order_.size()))
      return Failed("Card index out of range: " + std::to_string(index));
    id = order_[index];
    return successStatus;
  }
  Status GetCardDIB(int32_t id, int32_t& dib) override {
    return OnCard("GetCardDIB", id, [&] { dib = Dib(frontDib, id); });
  }
  Status GetBackDIB(int32_t id, int32_t& dib) override {
    return OnCard("GetBackDIB", id, [&] { dib = Dib(backDib, id); });
  }
  Status SetCardDIB(int32_t id, int32_t dib) override { return OnCard("SetCardDIB", id, [&] { frontDib[id] = dib; }); }
  Status SetBackDIB(int32_t id, int32_t dib) override { return OnCard("SetBackDIB", id, [&] { backDib[id] = dib; }); }
  Status HasFrontImage(int32_t id, bool& answer) override {
    return OnCard("HasFrontImage", id, [&] { answer = Dib(frontDib, id) != 0; });
  }
  Status HasBackImage(int32_t id, bool& answer) override {
    return OnCard("HasBackImage", id, [&] { answer = Dib(backDib, id) != 0; });
  }
  Status GetLabels(const std::string& type, std::string& out) override {
    return Call("GetLabels", {}, &type, [&] { out.clear(); });
  }
  Status GetCustomFields(std::string& out) override {
    return Call("GetCustomFields", {}, nullptr, [&] { out = customFields; });
  }
  Status GetCategories(std::string& out) override {
    return Call("GetCategories", {}, nullptr, [&] { out = categories; });
  }
  Status GetValue(int32_t id, const std::string& name, std::string& value) override {
    return OnCard("GetValue", id, [&] { value = FindValue(id, name).value_or(""); }, &name);
  }
  Status PutValue(int32_t id, const std::string& name, const std::string& value) override {
    return OnCard("PutValue", id, [&] { SetValue(id, name, value); }, &name);
  }
  Status DeleteCard(int32_t id) override {
    return OnCard("DeleteCard", id, [&] {
      cards_.erase(id);
      order_.erase(std::find(order_.begin(), order_.end(), id));
    });
  }
  Status BeginUpdate() override { return Call("BeginUpdate", {}, nullptr, [&] { inUpdate = true; }); }
  Status CommitUpdate() override { return Call("CommitUpdate", {}, nullptr, [&] { inUpdate = false; }); }
  Status AbortUpdate() override { return Call("AbortUpdate", {}, nullptr, [&] { inUpdate = false; }); }
  Status GetCapabilities(int32_t& caps) override { return Call("GetCapabilities", {}, nullptr, [&] { caps = 0; }); }
  Status CardExists(int32_t id, bool& answer) override {
    return Call("CardExists", id, nullptr, [&] { answer = HasCard(id); });
  }
  std::string GetLastError() override {
    Enter("GetLastError", {}, nullptr);
    return lastError;
  }
  bool OffersScan() const override { return offersScan; }
  Status ScanCards(const std::function<bool(int32_t cardId, const ICardValues& values)>& visit) override {
    ++scans;
    struct Read final : ICardValues {
      Read(FakeCardStore& s, int32_t i) : store(s), id(i) {}
      std::string Get(std::string_view name) const override {
        std::string value;
        if (store.GetValue(id, std::string(name), value) != 0) value.clear();
        return value;
      }
      FakeCardStore& store;
      int32_t id;
    };
    for (int32_t id : std::vector<int32_t>(order_))
      if (!visit(id, Read(*this, id))) break;
    return successStatus;
  }

 private:
  // Logs the call, raises for a lacking member, and answers the fault that applies, if any.
  std::optional<Status> Enter(std::string_view member, std::optional<int32_t> id, const std::string* field) {
    if (logCalls)
      calls.push_back(std::string(member) + (id ? " " + std::to_string(*id) : "") + (field ? " " + *field : ""));
    if (lacking_.count(member)) RaiseMissingMember(member);
    for (Fault& fault : faults_) {
      if (fault.member != member || fault.remaining == 0 || (fault.cardId && fault.cardId != id)) continue;
      if (fault.fieldName && (!field || *fault.fieldName != *field)) continue;
      if (fault.remaining > 0) --fault.remaining;
      lastError = fault.lastError;
      return fault.status;
    }
    return std::nullopt;
  }
  template <class Body>
  Status Call(std::string_view member, std::optional<int32_t> id, const std::string* field, Body&& body) {
    if (auto fault = Enter(member, id, field)) return *fault;
    body();
    return successStatus;
  }
  // The same for a member about one card, which fails when there is no such card.
  template <class Body>
  Status OnCard(std::string_view member, int32_t id, Body&& body, const std::string* field = nullptr) {
    if (auto fault = Enter(member, id, field)) return *fault;
    if (!HasCard(id)) return Failed("No card with ID: " + std::to_string(id));
    body();
    return successStatus;
  }
  Status Failed(std::string text) {
    lastError = std::move(text);
    return 1;
  }
  static int32_t Dib(const std::map<int32_t, int32_t>& dibs, int32_t id) {
    auto it = dibs.find(id);
    return it == dibs.end() ? 0 : it->second;
  }

  std::unordered_map<int32_t, std::shared_ptr<Values>> cards_;
  std::vector<int32_t> order_;
  std::deque<Fault> faults_;  // a deque, so the references Fail hands out stay valid
  std::set<std::string, std::less<>> lacking_;
};

}  // namespace ombrel
