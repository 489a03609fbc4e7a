#include "review/review_session.h"

#include "ombrel/cards/ccard.h"
#include "ombrel/cards/ccardfield.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/foundation/error.h"
#include "ombrel/foundation/messages.h"
#include "review/cuseraction.h"

namespace ombrel {

namespace {

struct Labelled {
  const char* name;
  int32_t resource;
};

// Row captions by field name.
constexpr Labelled kRowLabels[] = {
    {"Name", 341},      {"Title", 342},    {"Company", 343},    {"Address", 344},       {"2nd Address", 345},
    {"Phone", 346},     {"Fax", 347},      {"Email", 348},      {"Web Page", 349},      {"Other", 350},
    {"Verified", 351},  {"Notes", 352},    {"Categories", 353}, {"Creation Date", 354}, {"Modified Date", 355},
    {"Solvane Status", 356}, {kFrontImageRow, 357}, {kBackImageRow, 358},
};

// Stored values of "Verified" and "Solvane Status" and their display texts.
constexpr Labelled kValueLabels[] = {
    {"OK", 401}, {"Out of date", 402}, {"Unreachable", 403}, {"", 404}, {"Yes", 405}, {"No", 406},
};


}  // namespace

CReviewSession::CReviewSession(IReviewDisplay& display) : display_(display) {}

void CReviewSession::SetDupes(std::shared_ptr<CList> dupeSets, int32_t startIndex) {
  sets_ = std::move(dupeSets);
  const int32_t n = NumSets();
  current_ = n == 0 ? 0 : (startIndex >= 1 && startIndex <= n ? startIndex : 1);
  backup_.RemoveAll();
  for (int32_t i = 1; i <= n; ++i) backup_.AddItem(sets_->GetItemAs<CDupeSet>(i)->Clone());
  undo_.RemoveAll();
  redo_.RemoveAll();
}

std::shared_ptr<CDupeSet> CReviewSession::CurrentSet() const {
  return current_ >= 1 && current_ <= NumSets() ? sets_->GetItemAs<CDupeSet>(current_) : nullptr;
}

std::shared_ptr<CCard> CReviewSession::Primary() const {
  auto set = CurrentSet();
  return set ? set->GetPrimaryCard() : nullptr;
}

int32_t CReviewSession::NumDupes() const {
  auto set = CurrentSet();
  return set ? set->GetDupes().GetNumItems() : 0;
}

std::shared_ptr<CCard> CReviewSession::DupeAt(int32_t column) const {
  auto set = CurrentSet();
  if (!set) RaiseObjectNotSet();
  return set->GetDupes().GetItemAs<CCard>(column);
}

void CReviewSession::SetCurrentSetIndex(int32_t index) {
  Trap(index < 1 || index > NumSets(), "List index out of range: " + std::to_string(index));
  current_ = index;
}

std::vector<std::string> CReviewSession::RowNames() const {
  std::vector<std::string> rows;
  auto primary = Primary();
  if (!primary) return rows;
  const int32_t n = primary->NumFields();
  rows.reserve(static_cast<size_t>(n) + 2);
  for (int32_t i = 1; i <= n; ++i) rows.push_back(primary->FieldAt(i).Name());
  rows.emplace_back(kFrontImageRow);
  rows.emplace_back(kBackImageRow);
  return rows;
}

void CReviewSession::RecordUserAction(int32_t actionType, const ObjectRef& data) {
  auto action = std::make_shared<CUserAction>();
  action->SetData(actionType, current_, data);
  undo_.AddItem(action);
  redo_.RemoveAll();
  display_.UpdateNavigationButtons();
}

void CReviewSession::ShowSetOf(const CUserAction& action) {
  const int32_t index = action.GetSetIndex();
  if (index == current_) return;
  current_ = index;
  display_.RefreshDisplay();
}

std::shared_ptr<CLong> CReviewSession::ImageIdOf(const CCard& card, int32_t imageKind) {
  const auto& id = imageKind == kFrontImageKind ? card.frontImage : card.backImage;
  return id ? id->Clone() : std::make_shared<CLong>(card.GetCardID());
}

void CReviewSession::PutImageId(CCard& card, int32_t imageKind, const std::shared_ptr<CLong>& id) {
  auto& slot = imageKind == kFrontImageKind ? card.frontImage : card.backImage;
  slot = id ? id->Clone() : nullptr;
}

std::shared_ptr<CCardField> CReviewSession::PrimaryField(const std::string& name) const {
  auto primary = Primary();
  if (!primary) RaiseObjectNotSet();
  return primary->GetField(name);
}

void CReviewSession::RedrawField(const CCardField& field) {
  int32_t row = display_.PrimaryRowOf(field.Name());
  if (row < 0) {
    // The display may be behind the data: once rebuilt, look again.
    display_.RefreshDisplay();
    row = display_.PrimaryRowOf(field.Name());
  }
  Trap(row < 0, "Failed to find the grid row for the primary field with text: " + field.Text());
  display_.RedrawPrimaryRow(row);
}

std::shared_ptr<CUserAction> CReviewSession::Restore(const CUserAction& action) {
  auto set = CurrentSet();
  if (!set) RaiseObjectNotSet();
  auto primary = set->GetPrimaryCard();
  auto inverse = std::make_shared<CUserAction>();
  const int32_t type = action.GetActionType();
  switch (type) {
    case FIELD_EDIT: {
      auto stored = action.GetField();
      auto current = primary->GetField(stored->Name());
      inverse->SetData(FIELD_EDIT, current_, current->Clone());
      current->Copy(*stored);
      return inverse;
    }
    case FRONT_IMAGE_CHANGE:
    case BACK_IMAGE_CHANGE: {
      const int32_t kind = type == FRONT_IMAGE_CHANGE ? kFrontImageKind : kBackImageKind;
      inverse->SetData(type, current_, ImageIdOf(*primary, kind));
      PutImageId(*primary, kind, action.GetImageID());
      return inverse;
    }
    case PRIMARY_REPLACEMENT: {
      auto stored = action.GetCard();
      inverse->SetData(PRIMARY_REPLACEMENT, current_, primary->Clone());
      for (int32_t i = 1; i <= stored->NumFields(); ++i) primary->SetField(stored->FieldAt(i));
      PutImageId(*primary, kFrontImageKind, stored->frontImage);
      PutImageId(*primary, kBackImageKind, stored->backImage);
      return inverse;
    }
    default: return nullptr;
  }
}

void CReviewSession::UndoLastAction() { Replay(undo_, redo_, true); }

void CReviewSession::RedoLastAction() { Replay(redo_, undo_, false); }

// Undo and redo are mirror images: the top record of one stack is undone and
// its inverse goes on the other; a deletion's record moves over itself.
void CReviewSession::Replay(CList& from, CList& to, bool undo) {
  if (from.GetNumItems() == 0) return;
  auto action = from.GetLastItemAs<CUserAction>();
  from.RemoveLast();
  ShowSetOf(*action);
  const int32_t type = action->GetActionType();
  if (type == CARD_DELETION) {
    if (undo) CurrentSet()->UndeleteDupe(action->GetCard());
    else CurrentSet()->DeleteDupe(action->GetCard());
    to.AddItem(action);
    display_.RefreshDisplay();
    return;
  }
  Trap(type < FIELD_EDIT || type > PRIMARY_REPLACEMENT,
       undo ? "Cannot Undo this type of user action" : "Cannot Redo this type of user action");
  to.AddItem(Restore(*action));
  if (type == FIELD_EDIT) RedrawField(*action->GetField());
  else display_.RefreshDisplay();
  display_.UpdateNavigationButtons();
}

bool CReviewSession::CommitEdit(const std::string& fieldName, const std::string& cellText,
                                const std::string& newText) {
  if (newText == cellText) return false;
  auto field = PrimaryField(fieldName);
  Trap(DisplayText(*field) != cellText, "Inconsistent data between display and memory");
  RecordUserAction(FIELD_EDIT, field->Clone());
  field->SetText(newText);
  RedrawField(*field);
  return true;
}

bool CReviewSession::CommitVerified(const std::string& cellText, bool yes) {
  const std::string chosen = LocalizeValue("Verified", yes ? "Yes" : "No");
  if (chosen == cellText) return false;
  auto field = PrimaryField("Verified");
  Trap(DisplayText(*field) != cellText, "Inconsistent data between display and memory");
  RecordUserAction(FIELD_EDIT, field->Clone());
  field->SetText(yes ? "Yes" : "No");
  RedrawField(*field);
  return true;
}

void CReviewSession::CopyFromDupe(const std::string& fieldName, int32_t column, bool append) {
  auto field = PrimaryField(fieldName);
  auto dupe = DupeAt(column);
  const CCardField& source = dupe->FieldNamed(fieldName);
  RecordUserAction(FIELD_EDIT, field->Clone());
  if (!append) field->Copy(source);
  else if (fieldName == "Categories") field->MergeCategories(source.Text());
  else field->SetText(field->Text() + source.Text());
  RedrawField(*field);
}

void CReviewSession::TakeImage(int32_t column, int32_t imageKind) {
  Trap(imageKind != kFrontImageKind && imageKind != kBackImageKind,
       "Unknown type of image: " + std::to_string(imageKind));
  auto primary = Primary();
  if (!primary) RaiseObjectNotSet();
  auto dupe = DupeAt(column);
  RecordUserAction(imageKind == kFrontImageKind ? FRONT_IMAGE_CHANGE : BACK_IMAGE_CHANGE,
                   ImageIdOf(*primary, imageKind));
  PutImageId(*primary, imageKind, std::make_shared<CLong>(dupe->GetCardID()));
  display_.RefreshDisplay();
}

void CReviewSession::ReplacePrimary(int32_t column, bool hasBackImageRow) {
  auto primary = Primary();
  if (!primary) RaiseObjectNotSet();
  auto dupe = DupeAt(column);
  RecordUserAction(PRIMARY_REPLACEMENT, primary->Clone());
  for (const std::string& name : RowNames()) {
    if (name == kFrontImageRow || name == kBackImageRow) continue;
    primary->GetField(name)->Copy(dupe->FieldNamed(name));
  }
  primary->frontImage = std::make_shared<CLong>(dupe->GetCardID());
  if (hasBackImageRow) primary->backImage = std::make_shared<CLong>(dupe->GetCardID());
  display_.RefreshDisplay();
}

void CReviewSession::DeleteDupe(int32_t column) {
  auto dupe = DupeAt(column);
  RecordUserAction(CARD_DELETION, dupe);
  CurrentSet()->DeleteDupe(dupe);
  display_.RefreshDisplay();
}

bool CReviewSession::LeaveSetQuestionNeeded() const {
  if (NumDupes() == 0 || undo_.GetNumItems() == 0) return false;
  return undo_.GetLastItemAs<CUserAction>()->GetSetIndex() == current_;
}

int32_t CReviewSession::LeaveSetQuestion() const { return NumDupes() > 1 ? 373 : 374; }

void CReviewSession::DeleteRemainingDupes() {
  while (NumDupes() > 0) DeleteDupe(1);
}

void CReviewSession::RestoreBackup() {
  if (!sets_) return;
  sets_->RemoveAll();
  sets_->Append(backup_);
}

bool CReviewSession::HasLocalizedValues(const std::string& fieldName) {
  return fieldName == "Verified" || fieldName == "Solvane Status";
}

std::string CReviewSession::LocalizeValue(const std::string& fieldName, const std::string& text) {
  Trap(!HasLocalizedValues(fieldName), "Cannot localize field data for field: " + fieldName);
  for (const auto& value : kValueLabels)
    if (text == value.name) return GetResString(value.resource);
  return text;
}

std::string CReviewSession::DisplayText(const CCardField& field) {
  return HasLocalizedValues(field.Name()) ? LocalizeValue(field.Name(), field.Text()) : field.Text();
}

std::string CReviewSession::RowLabel(const std::string& fieldName) {
  for (const auto& row : kRowLabels)
    if (fieldName == row.name) return GetResString(row.resource);
  // "Phone 1".."Phone 6" and "Email 1".."Email 6" take their kind's caption.
  if (IsExtraPhoneFieldName(fieldName)) return GetResString(346) + fieldName.substr(5);
  if (IsExtraEmailFieldName(fieldName)) return GetResString(348) + fieldName.substr(5);
  return fieldName;
}

}  // namespace ombrel
