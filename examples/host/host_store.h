// The host's own card store: an ICardStore over cards the host keeps in a
// CMemoryCardStore.
//
// CMemoryCardStore keeps the answers hosts have always had from it: its card
// count comes with status -1, and it has neither GetLastError nor
// GetCustomFields. The wizard's search takes the first as a failure and then
// fails asking for the error text, so a host that wants its in-memory cards
// searched answers those three itself and hands the rest on, as here. (The
// merge dialog uses a CMemoryCardStore of its own as it is.)
#pragma once

#include <memory>
#include <string>

#include "ombrel/cardstore/cmemorycardstore.h"
#include "ombrel/cardstore/icardstore.h"

class HostCardStore final : public ombrel::ICardStore {
 public:
  explicit HostCardStore(std::shared_ptr<ombrel::CMemoryCardStore> cards) : cards_(std::move(cards)) {}

  // The three the wizard needs answered by the contract's convention.
  ombrel::Status GetNumberOfCards(int32_t& numCards) override {
    cards_->GetNumberOfCards(numCards);
    return 0;
  }
  std::string GetLastError() override { return {}; }
  ombrel::Status GetCustomFields(std::string& fields) override {
    fields.clear();  // only the standard fields
    return 0;
  }

  ombrel::Status Connect() override { return cards_->Connect(); }
  ombrel::Status Disconnect() override { return cards_->Disconnect(); }
  ombrel::Status GetCardID(int32_t cardIndex, int32_t& cardId) override { return cards_->GetCardID(cardIndex, cardId); }
  ombrel::Status GetCardDIB(int32_t cardId, int32_t& dib) override { return cards_->GetCardDIB(cardId, dib); }
  ombrel::Status GetLabels(const std::string& labelType, std::string& labels) override {
    return cards_->GetLabels(labelType, labels);
  }
  ombrel::Status GetValue(int32_t cardId, const std::string& fieldName, std::string& value) override {
    return cards_->GetValue(cardId, fieldName, value);
  }
  ombrel::Status PutValue(int32_t cardId, const std::string& fieldName, const std::string& value) override {
    return cards_->PutValue(cardId, fieldName, value);
  }
  ombrel::Status DeleteCard(int32_t cardId) override { return cards_->DeleteCard(cardId); }
  ombrel::Status BeginUpdate() override { return cards_->BeginUpdate(); }
  ombrel::Status CommitUpdate() override { return cards_->CommitUpdate(); }
  ombrel::Status AbortUpdate() override { return cards_->AbortUpdate(); }
  ombrel::Status GetCapabilities(int32_t& caps) override { return cards_->GetCapabilities(caps); }
  ombrel::Status CardExists(int32_t cardId, bool& answer) override { return cards_->CardExists(cardId, answer); }
  ombrel::Status GetBackDIB(int32_t cardId, int32_t& dib) override { return cards_->GetBackDIB(cardId, dib); }
  ombrel::Status SetCardDIB(int32_t cardId, int32_t dib) override { return cards_->SetCardDIB(cardId, dib); }
  ombrel::Status SetBackDIB(int32_t cardId, int32_t dib) override { return cards_->SetBackDIB(cardId, dib); }
  ombrel::Status HasFrontImage(int32_t cardId, bool& answer) override { return cards_->HasFrontImage(cardId, answer); }
  ombrel::Status HasBackImage(int32_t cardId, bool& answer) override { return cards_->HasBackImage(cardId, answer); }
  ombrel::Status GetCategories(std::string& categories) override { return cards_->GetCategories(categories); }

 private:
  std::shared_ptr<ombrel::CMemoryCardStore> cards_;
};
