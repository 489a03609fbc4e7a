#include "ombrel/dupes/cdupeset.h"

#include "ombrel/cards/ccard.h"
#include "ombrel/cards/field_catalogue.h"
#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/foundation/error.h"
#include "ombrel/foundation/messages.h"
#include "dupes/card_fields.h"
#include "dupes/dupes_internal.h"

namespace ombrel {

using dupes_internal::Mgr;

namespace {
constexpr int kFrontImage = 1;
constexpr int kBackImage = 2;
}  // namespace

CDupeSet::CDupeSet() : dupes_(std::make_shared<CList>()) { dupes_->RestrictType("CCard"); }

std::string CDupeSet::DataSignature(const CCard& card) {
  std::string sig;
  dupes_internal::AppendSignature(card.GetCardID(), dupes_internal::FieldsOfCard(card), sig);
  return sig;
}

uint64_t CDupeSet::SignatureHash(const CCard& card) {
  return dupes_internal::SignatureHash(card.GetCardID(), dupes_internal::FieldsOfCard(card));
}

void CDupeSet::Init(std::shared_ptr<CCard> primary, int32_t type) {
  Trap(!primary, "Cannot set as primary empty card");
  const uint64_t hash = SignatureHash(*primary);
  Init(std::move(primary), type, hash);
}

void CDupeSet::Init(std::shared_ptr<CCard> primary, int32_t type, uint64_t primarySignatureHash) {
  Trap(!primary, "Cannot set as primary empty card");
  primarySnapshot_ = primarySignatureHash;
  primary_ = std::move(primary);
  if (dupes_->GetNumItems() > 0) {  // a fresh set already has its empty list
    dupes_ = std::make_shared<CList>();
    dupes_->RestrictType("CCard");
  }
  type_ = type;
}

std::shared_ptr<CDupeSet> CDupeSet::Clone() const {
  auto copy = std::make_shared<CDupeSet>();
  copy->Init(primary_ ? primary_->Clone() : nullptr, type_);
  for (int32_t i = 1; i <= dupes_->GetNumItems(); ++i) copy->AddDupe(dupes_->GetItemAs<CCard>(i)->Clone());
  return copy;
}

int32_t CDupeSet::GetNumberOfCards() const {
  if (!primary_) {
    Trap(dupes_->GetNumItems() > 0, "Dupe set contains some cards but no primary");
    return 0;
  }
  return CheckedAdd(1, dupes_->GetNumItems());
}

const CList& CDupeSet::GetRecycleBin() const {
  static const CList kEmpty;
  return recycleBin_ ? *recycleBin_ : kEmpty;
}

CList& CDupeSet::RecycleBin() {
  if (!recycleBin_) {
    recycleBin_ = std::make_shared<CList>();
    recycleBin_->RestrictType("CCard");
  }
  return *recycleBin_;
}

void CDupeSet::SetPrimaryCard(std::shared_ptr<CCard> card) {
  Trap(!card, "Cannot set as primary empty card");
  primarySnapshot_ = SignatureHash(*card);
  primary_ = std::move(card);
}

void CDupeSet::AddDupe(std::shared_ptr<CCard> card, int32_t position) {
  Trap(!primary_, "Cannot add dupe in DupeSet because primary card has not been set");
  if (position == 0) dupes_->AddItem(std::move(card));
  else dupes_->InsertItem(position, std::move(card));
}

void CDupeSet::DeleteDupe(const std::shared_ptr<CCard>& dupe) {
  int32_t pos = dupes_->GetPosition(dupe);
  Trap(pos == 0, "Cannot find given dupe in the dupe list");
  dupes_->RemoveItem(pos);
  RecycleBin().AddItem(dupe);
}

void CDupeSet::UndeleteDupe(const std::shared_ptr<CCard>& dupe) {
  int32_t pos = recycleBin_ ? recycleBin_->GetPosition(dupe) : 0;
  Trap(pos == 0, "Cannot find given dupe in the recycle bin");
  recycleBin_->RemoveItem(pos);
  dupes_->AddItem(dupe);
}

void CDupeSet::DeleteAllDupes() {
  while (dupes_->GetNumItems() > 0) DeleteDupe(dupes_->GetLastItemAs<CCard>());
}

void CDupeSet::MergeDupe(const std::shared_ptr<CCard>& dupe) {
  Trap(!dupes_->Contains(dupe), "Dupe list does not contain given dupe");
  for (int32_t i = 1; i <= primary_->NumFields(); ++i) {
    const CCardField& primaryField = primary_->FieldAt(i);
    const std::string name = primaryField.Name();
    const CCardField& dupeField = dupe->FieldNamed(name);
    const std::string& dupeText = dupeField.Text();
    if (!dupeText.empty() && primaryField.Text().empty()) {
      auto taken = dupeField.Clone();
      taken->SetUserLabel(primaryField.Label());
      primary_->SetField(*taken);
    } else if (!dupeText.empty() && name == "Categories") {
      primary_->GetFieldAt(i)->MergeCategories(dupeText);
    }
  }
  DeleteDupe(dupe);
}

void CDupeSet::MergeAllDupes() {
  while (dupes_->GetNumItems() > 0) MergeDupe(dupes_->GetLastItemAs<CCard>());
}

bool CDupeSet::DupeSetNeedsSaving() const {
  if (!primary_) RaiseObjectNotSet();
  if (recycleBin_ && recycleBin_->GetNumItems() > 0) return true;
  if (SignatureHash(*primary_) != primarySnapshot_) return true;
  return primary_->HasStoredCardId() && primary_->GetStoredCardId() != primary_->GetCardID();
}

void CDupeSet::WritePrimaryFields(int32_t id) {
  CCardStoreMgr& mgr = Mgr();
  for (int32_t i = 1; i <= primary_->NumFields(); ++i) {
    const CCardField& f = primary_->FieldAt(i);
    if (dupes_internal::IsBookkeepingField(f)) continue;
    const std::string& name = f.Name();
    mgr.PutValue(id, name, f.Text());
    if (f.IsExtraField()) mgr.PutValue(id, name + ".Label", f.Label());
    if (name != "Notes" && name != "Verified" && name != "Categories") {
      CRectangle r = f.GetRect();
      mgr.PutValue(id, name + ".Rectangle",
                   std::to_string(r.GetLeft()) + " " + std::to_string(r.GetTop()) + " " +
                       std::to_string(r.GetRight()) + " " + std::to_string(r.GetBottom()));
      mgr.PutValue(id, name + ".Confidence Levels",
                   std::to_string(f.GetOcrConfLevel()) + " " + std::to_string(f.GetCatConfLevel()));
    }
  }
}

void CDupeSet::SaveImage(int32_t id, int kind) {
  CCardStoreMgr& mgr = Mgr();
  if (kind == kFrontImage) {
    // The override names the card whose image replaces this card's own.
    if (primary_->frontImage) mgr.SetCardDIB(id, mgr.GetCardDIB(primary_->frontImage->Value()));
  } else if (kind == kBackImage) {
    if (primary_->backImage) mgr.SetBackDIB(id, mgr.GetBackDIB(primary_->backImage->Value()));
  } else {
    RaiseTrap("Cannot save image: image type is unknown");
  }
}

void CDupeSet::CommitToDatabase() {
  if (!primary_) RaiseObjectNotSet();
  CCardStoreMgr& mgr = Mgr();
  int32_t id = primary_->GetCardID();
  if (!mgr.CardExists(id)) {
    GetPrompt().MessageBox("WARNING: contact '" + primary_->FieldText("Name") +
                               "' has been deleted from the database.\r\n"
                               "         Changes for this contact will be ignored.",
                           msgbox::kOkOnly, AppName());
    if (recycleBin_) {
      while (recycleBin_->GetNumItems() > 0) {
        dupes_->AddItem(recycleBin_->GetItem(1));
        recycleBin_->RemoveItem(1);
      }
    }
    return;
  }
  if (SignatureHash(*primary_) != primarySnapshot_) Mgr().WithinUpdate([&](CCardStoreMgr&) { WritePrimaryFields(id); });
  primarySnapshot_ = SignatureHash(*primary_);
  Mgr().WithinUpdate([&](CCardStoreMgr&) {
    SaveImage(id, kFrontImage);
    SaveImage(id, kBackImage);
  });
  Mgr().WithinUpdate([&](CCardStoreMgr& m) {
    CList& bin = RecycleBin();
    while (bin.GetNumItems() > 0) {
      int32_t gone = bin.GetLastItemAs<CCard>()->GetCardID();
      if (m.CardExists(gone)) m.DeleteCard(gone);
      bin.RemoveLast();
    }
  });
}

std::string CDupeSet::ToStr() const {
  std::string out;
  switch (type_) {
    case EXACT_DUPE: out = "Dupe set type: EXACT_DUPE"; break;
    case COMPATIBLE_DUPE: out = "Dupe set type: COMPATIBLE_DUPE"; break;
    case CONFLICT_DUPE: out = "Dupe set type: CONFLICT_DUPE"; break;
    default: out = "Unknown dupe set type"; break;
  }
  out += "\r\nNumber of cards in dupe set: " + std::to_string(GetNumberOfCards()) + "\r\n";
  if (!primary_) RaiseObjectNotSet();
  out += "Primary card: " + primary_->FieldText("Name") + "\r\n";
  for (int32_t i = 1; i <= dupes_->GetNumItems(); ++i)
    out += "Dupe " + std::to_string(i) + ": " + dupes_->GetItemAs<CCard>(i)->FieldText("Name") + "\r\n";
  return out;
}

void CDupeSet::SemanticallyMatchExtraFields() {
  if (extraFieldsMatched_) return;
  DoSemanticallyMatchExtraFields("Phone");
  DoSemanticallyMatchExtraFields("Email");
  extraFieldsMatched_ = true;
}

int32_t CountDuplicateCards(const CList& dupeSets) {
  int32_t total = 0;
  for (int32_t i = 1; i <= dupeSets.GetNumItems(); ++i)
    total = CheckedAdd(total, dupeSets.GetItemAs<CDupeSet>(i)->GetNumberOfCards() - 1);
  return total;
}

}  // namespace ombrel
