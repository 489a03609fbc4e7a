// A second, deliberately plain implementation of the duplicate search, used
// to check CDupeSearch on random stores. It follows the written algorithm
// step by step, with no shortcut of any kind: one store call per value, the
// three key tables, a binary insertion into a plain vector, and the grouping
// loop over a list from which taken cards are removed. Membership is decided
// by CDupeSet::AddCardIfDupe, which has tests of its own. Everything reads
// the store through the shared CardStoreMgr().
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ombrel/cardstore/icardstore.h"

namespace ombrel {

class CCard;
class CDupeSet;

namespace model {

using Cards = std::vector<std::shared_ptr<CCard>>;
using Sets = std::vector<std::shared_ptr<CDupeSet>>;

// GetCard, with the tag set to Trim(last name + "," + stored "First Name").
std::shared_ptr<CCard> LoadCard(int32_t cardId);
// The cards that share a name or e-mail key with an earlier card, and their
// partners, in the order they were first registered as suspects.
Cards GetSuspectCards();
// Binary insertion on the tags, then the check walk that clears "," tags
// (all but the one at the last position).
void SortCards(Cards& cards);
// The sets of one type: those whose primary has a name first, then the
// nameless ones, each in creation order. cards is consumed.
Sets FindDupes(int32_t dupeType, Cards cards);
// One line per set: "type primary: dupe dupe ...".
std::string DumpSets(const Sets& sets);

}  // namespace model

// Serves another store's cards through the scan fast path (and every other
// member by forwarding), so the same data can be searched both ways.
class ScanningStore final : public ICardStore {
 public:
  explicit ScanningStore(std::shared_ptr<ICardStore> inner) : inner_(std::move(inner)) {}

  int scans = 0;

  Status Connect() override { return inner_->Connect(); }
  Status Disconnect() override { return inner_->Disconnect(); }
  Status GetNumberOfCards(int32_t& n) override { return inner_->GetNumberOfCards(n); }
  Status GetCardID(int32_t index, int32_t& id) override { return inner_->GetCardID(index, id); }
  Status GetCardDIB(int32_t id, int32_t& dib) override { return inner_->GetCardDIB(id, dib); }
  Status GetLabels(const std::string& type, std::string& labels) override { return inner_->GetLabels(type, labels); }
  Status GetCustomFields(std::string& fields) override { return inner_->GetCustomFields(fields); }
  Status GetValue(int32_t id, const std::string& name, std::string& value) override {
    return inner_->GetValue(id, name, value);
  }
  Status PutValue(int32_t id, const std::string& name, const std::string& value) override {
    return inner_->PutValue(id, name, value);
  }
  Status DeleteCard(int32_t id) override { return inner_->DeleteCard(id); }
  Status BeginUpdate() override { return inner_->BeginUpdate(); }
  Status CommitUpdate() override { return inner_->CommitUpdate(); }
  Status AbortUpdate() override { return inner_->AbortUpdate(); }
  Status GetCapabilities(int32_t& caps) override { return inner_->GetCapabilities(caps); }
  std::string GetLastError() override { return inner_->GetLastError(); }
  Status CardExists(int32_t id, bool& answer) override { return inner_->CardExists(id, answer); }
  Status GetBackDIB(int32_t id, int32_t& dib) override { return inner_->GetBackDIB(id, dib); }
  Status SetCardDIB(int32_t id, int32_t dib) override { return inner_->SetCardDIB(id, dib); }
  Status SetBackDIB(int32_t id, int32_t dib) override { return inner_->SetBackDIB(id, dib); }
  Status HasFrontImage(int32_t id, bool& answer) override { return inner_->HasFrontImage(id, answer); }
  Status HasBackImage(int32_t id, bool& answer) override { return inner_->HasBackImage(id, answer); }
  Status GetCategories(std::string& categories) override { return inner_->GetCategories(categories); }
  bool OffersScan() const override { return true; }
  Status ScanCards(const std::function<bool(int32_t cardId, const ICardValues& values)>& visit) override;

 private:
  std::shared_ptr<ICardStore> inner_;
};

}  // namespace ombrel
