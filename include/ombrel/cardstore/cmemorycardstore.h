// CMemoryCardStore: a card store that keeps CCard objects in memory instead
// of a database. A host creates it, fills it with AddCard and hands it
// wherever a card store is expected.
//
// Its answers keep the statuses hosts have always seen from it, odd ones
// included: GetNumberOfCards answers -1 although it succeeds, GetCardDIB
// always hands out 0, PutValue ignores labels, rectangles and levels. It
// keeps no error text and declares no custom fields, so it offers neither
// GetLastError nor GetCustomFields: a manager fails where it asks for them.
//
// Every operation but GetCard turns an unexpected error into the status it
// had set so far (usually 0), the way the store has always reported.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "ombrel/cards/ccard.h"
#include "ombrel/cardstore/icardstore.h"
#include "ombrel/foundation/chashtable.h"
#include "ombrel/foundation/object.h"

namespace ombrel {

class CMemoryCardStore final : public ICardStore, public CObject {
 public:
  CMemoryCardStore();

  std::string_view ClassName() const override { return "CMemoryCardStore"; }

  Status Connect() override;
  Status Disconnect() override;
  Status BeginUpdate() override;
  Status CommitUpdate() override;
  Status AbortUpdate() override;
  // Holds the caller's card itself. 0 added; -1 when its ID is present already.
  Status AddCard(std::shared_ptr<CCard> card);
  // 1-based, in insertion order; raises for an index out of range.
  std::shared_ptr<CCard> GetCard(int32_t index);
  Status GetNumberOfCards(int32_t& numCards) override;  // always -1
  Status DeleteCard(int32_t cardId) override;          // -1 when absent
  Status GetCardID(int32_t cardIndex, int32_t& cardId) override;  // 0-based
  // Plain field names only; any other name is status 2.
  Status GetValue(int32_t cardId, const std::string& fieldName, std::string& value) override;
  Status GetCardDIB(int32_t cardId, int32_t& dib) override;  // dib is always 0
  Status GetBackDIB(int32_t cardId, int32_t& dib) override;
  Status SetCardDIB(int32_t cardId, int32_t dib) override;  // remembered, never handed back
  Status SetBackDIB(int32_t cardId, int32_t dib) override;
  // Answers from the card's own frontImage; leaves answer alone when it has none.
  Status HasFrontImage(int32_t cardId, bool& answer) override;
  Status HasBackImage(int32_t cardId, bool& answer) override;
  Status CardExists(int32_t cardId, bool& answer) override;
  // Replaces a field's text and resets its label, rectangle, levels and flags.
  Status PutValue(int32_t cardId, const std::string& fieldName, const std::string& value) override;
  Status GetLabels(const std::string& labelType, std::string& labels) override;
  Status GetCategories(std::string& categories) override;
  Status GetCapabilities(int32_t& caps) override;

  // The handle SetCardDIB remembered for a card, 0 when none.
  int32_t RememberedFrontImage(int32_t cardId) const;

 private:
  CHashTable cards_;        // decimal card ID -> CCard
  CHashTable frontImages_;  // decimal card ID -> CLong
};

}  // namespace ombrel
