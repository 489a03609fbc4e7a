#include "ombrel/cardstore/cmemorycardstore.h"


#include "ombrel/foundation/cdictionary.h"
#include "ombrel/foundation/cstring.h"
#include "ombrel/foundation/error.h"

namespace ombrel {

namespace {

std::string Key(int32_t cardId) { return std::to_string(cardId); }

// Runs an operation under the store's error handler: an unexpected error
// ends it, and the caller sees the status set so far.
template <class Body>
Status Guarded(Body&& body) {
  Status status = 0;
  try {
    body(status);
  } catch (...) {
  }
  return status;
}

bool EndsWith(const std::string& text, std::string_view suffix) { return std::string_view(text).ends_with(suffix); }

}  // namespace

CMemoryCardStore::CMemoryCardStore() {
  cards_.RestrictType("CCard");
  frontImages_.RestrictType("CLong");
}

Status CMemoryCardStore::Connect() { return 0; }
Status CMemoryCardStore::Disconnect() { return 0; }
Status CMemoryCardStore::BeginUpdate() { return 0; }
Status CMemoryCardStore::CommitUpdate() { return 0; }
Status CMemoryCardStore::AbortUpdate() { return 0; }

Status CMemoryCardStore::AddCard(std::shared_ptr<CCard> card) {
  return Guarded([&](Status& status) {
    if (!card) RaiseObjectNotSet();
    std::string key = Key(card->GetCardID());
    if (cards_.Contains(key)) {
      status = -1;
      return;
    }
    cards_.AddItem(key, std::move(card));
  });
}

std::shared_ptr<CCard> CMemoryCardStore::GetCard(int32_t index) {
  if (index < 1 || index > cards_.GetNumItems())
    RaiseTrap("CMemoryCardStore does not have card for index: " + std::to_string(index));
  return cards_.GetIndexedItemAs<CCard>(index);
}

Status CMemoryCardStore::GetNumberOfCards(int32_t& numCards) {
  Guarded([&](Status&) { numCards = cards_.GetNumItems(); });
  return -1;
}

Status CMemoryCardStore::DeleteCard(int32_t cardId) {
  return Guarded([&](Status& status) {
    std::string key = Key(cardId);
    if (!cards_.Contains(key)) {
      status = -1;
      return;
    }
    cards_.RemoveItem(key);
  });
}

Status CMemoryCardStore::GetCardID(int32_t cardIndex, int32_t& cardId) {
  return Guarded([&](Status& status) {
    if (cardIndex < 0 || cardIndex >= cards_.GetNumItems()) {
      status = 1;
      return;
    }
    cardId = CString(cards_.GetIndexedKey(cardIndex + 1)).ToLong();
  });
}

Status CMemoryCardStore::GetValue(int32_t cardId, const std::string& fieldName, std::string& value) {
  return Guarded([&](Status& status) {
    value.clear();
    std::string key = Key(cardId);
    if (!cards_.Contains(key)) {
      status = 1;
      return;
    }
    auto card = cards_.GetItemAs<CCard>(key);
    if (!card->GetFields().Contains(fieldName)) {
      status = 2;
      return;
    }
    value = card->FieldText(fieldName);
  });
}

Status CMemoryCardStore::GetCardDIB(int32_t cardId, int32_t& dib) {
  return Guarded([&](Status& status) {
    dib = 0;
    std::string key = Key(cardId);
    if (!cards_.Contains(key)) {
      status = 1;
      return;
    }
    // The remembered handle is looked up but never handed out: hosts have
    // always received 0 here.
    if (frontImages_.Contains(key)) (void)frontImages_.GetItemAs<CLong>(key);
  });
}

Status CMemoryCardStore::GetBackDIB(int32_t, int32_t& dib) {
  dib = 0;
  return 0;
}

Status CMemoryCardStore::SetCardDIB(int32_t cardId, int32_t dib) {
  return Guarded([&](Status& status) {
    std::string key = Key(cardId);
    if (!cards_.Contains(key)) {
      status = 1;
      return;
    }
    auto handle = std::make_shared<CLong>(dib);
    if (frontImages_.Contains(key)) frontImages_.SetItem(key, std::move(handle));
    else frontImages_.AddItem(key, std::move(handle));
  });
}

Status CMemoryCardStore::SetBackDIB(int32_t, int32_t) { return 0; }

Status CMemoryCardStore::HasFrontImage(int32_t cardId, bool& answer) {
  return Guarded([&](Status& status) {
    std::string key = Key(cardId);
    if (!cards_.Contains(key)) {
      status = 1;
      return;
    }
    auto card = cards_.GetItemAs<CCard>(key);
    if (card->frontImage) answer = card->frontImage->Value() > 0;
  });
}

Status CMemoryCardStore::HasBackImage(int32_t, bool&) { return 0; }

Status CMemoryCardStore::CardExists(int32_t cardId, bool& answer) {
  return Guarded([&](Status&) { answer = cards_.Contains(Key(cardId)); });
}

Status CMemoryCardStore::PutValue(int32_t cardId, const std::string& fieldName, const std::string& value) {
  return Guarded([&](Status& status) {
    std::string key = Key(cardId);
    if (!cards_.Contains(key)) {
      status = 1;
      return;
    }
    // This store keeps no geometry, labels or levels: such writes succeed and change nothing.
    std::string lower = CString::LowerText(fieldName);
    if (EndsWith(lower, ".rectangle") || EndsWith(lower, ".label") || EndsWith(lower, ".confidence levels")) return;
    auto card = cards_.GetItemAs<CCard>(key);
    if (!card->GetFields().Contains(fieldName)) {
      status = 2;
      return;
    }
    card->SetData(fieldName, value, "", nullptr, 100, 100, false, false);
  });
}

Status CMemoryCardStore::GetLabels(const std::string&, std::string& labels) {
  labels.clear();
  return 0;
}

Status CMemoryCardStore::GetCategories(std::string& categories) {
  categories.clear();
  return 0;
}

Status CMemoryCardStore::GetCapabilities(int32_t& caps) {
  caps = 0;
  return 0;
}

int32_t CMemoryCardStore::RememberedFrontImage(int32_t cardId) const {
  std::string key = Key(cardId);
  return frontImages_.Contains(key) ? frontImages_.GetItemAs<CLong>(key)->Value() : 0;
}

}  // namespace ombrel
