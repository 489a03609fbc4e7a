#include "ombrel/cardstore/icardstore.h"

#include "ombrel/foundation/error.h"

namespace ombrel {

// Every default is what a late-bound call of a member the store does not
// offer would do: raise the missing-member error naming it.
Status ICardStore::Connect() { RaiseMissingMember("Connect"); }
Status ICardStore::Disconnect() { RaiseMissingMember("Disconnect"); }
Status ICardStore::GetNumberOfCards(int32_t&) { RaiseMissingMember("GetNumberOfCards"); }
Status ICardStore::GetCardID(int32_t, int32_t&) { RaiseMissingMember("GetCardID"); }
Status ICardStore::GetCardDIB(int32_t, int32_t&) { RaiseMissingMember("GetCardDIB"); }
Status ICardStore::GetLabels(const std::string&, std::string&) { RaiseMissingMember("GetLabels"); }
Status ICardStore::GetCustomFields(std::string&) { RaiseMissingMember("GetCustomFields"); }
Status ICardStore::GetValue(int32_t, const std::string&, std::string&) { RaiseMissingMember("GetValue"); }
Status ICardStore::PutValue(int32_t, const std::string&, const std::string&) { RaiseMissingMember("PutValue"); }
Status ICardStore::DeleteCard(int32_t) { RaiseMissingMember("DeleteCard"); }
Status ICardStore::BeginUpdate() { RaiseMissingMember("BeginUpdate"); }
Status ICardStore::CommitUpdate() { RaiseMissingMember("CommitUpdate"); }
Status ICardStore::AbortUpdate() { RaiseMissingMember("AbortUpdate"); }
Status ICardStore::GetCapabilities(int32_t&) { RaiseMissingMember("GetCapabilities"); }
std::string ICardStore::GetLastError() { RaiseMissingMember("GetLastError"); }
Status ICardStore::CardExists(int32_t, bool&) { RaiseMissingMember("CardExists"); }
Status ICardStore::GetBackDIB(int32_t, int32_t&) { RaiseMissingMember("GetBackDIB"); }
Status ICardStore::SetCardDIB(int32_t, int32_t) { RaiseMissingMember("SetCardDIB"); }
Status ICardStore::SetBackDIB(int32_t, int32_t) { RaiseMissingMember("SetBackDIB"); }
Status ICardStore::HasFrontImage(int32_t, bool&) { RaiseMissingMember("HasFrontImage"); }
Status ICardStore::HasBackImage(int32_t, bool&) { RaiseMissingMember("HasBackImage"); }
Status ICardStore::GetCategories(std::string&) { RaiseMissingMember("GetCategories"); }
Status ICardStore::BeginSnapshot() { RaiseMissingMember("BeginSnapshot"); }
Status ICardStore::EndSnapshot() { RaiseMissingMember("EndSnapshot"); }
Status ICardStore::ScanCards(const std::function<bool(int32_t, const ICardValues&)>&) {
  RaiseMissingMember("ScanCards");
}
Status ICardStore::ScanCardsInParts(int32_t, const std::function<bool(int32_t, int32_t, const ICardValues&)>&,
                                    std::span<const int32_t>, const std::function<bool(int32_t)>&,
                                    const std::function<void()>&) {
  RaiseMissingMember("ScanCardsInParts");
}

}  // namespace ombrel
