#include "wizard/wizard_flow.h"

#include "ombrel/cards/ccard.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/foundation/error.h"
#include "ombrel/foundation/messages.h"

namespace ombrel {

namespace {

// The resource numbers of one typed step: its texts lie at these offsets
// from 111 (exact), 131 (compatible) and 151 (conflicting).
struct StepTexts {
  int32_t base;
  int32_t autoActionCaption;  // 0: no automatic action
};

StepTexts TextsOf(int32_t step) {
  switch (step) {
    case 2: return {111, 181};
    case 3: return {131, 182};
    default: return {151, 0};
  }
}

std::string Count(int32_t n) { return std::to_string(n); }

int32_t Size(const std::shared_ptr<CList>& list) { return list ? list->GetNumItems() : 0; }

}  // namespace

std::string ResText::Text() const { return id == 0 ? std::string() : GetResString(id, substitutions); }

CWizardFlow::CWizardFlow() = default;

int32_t CWizardFlow::TypeOfStep(int32_t step) { return step >= 2 && step <= 4 ? step - 1 : 0; }

std::shared_ptr<CList> CWizardFlow::ListOfType(int32_t dupeType) const {
  return dupeType >= EXACT_DUPE && dupeType <= CONFLICT_DUPE ? lists_[dupeType - 1] : nullptr;
}

std::shared_ptr<CList> CWizardFlow::ListOfStep(int32_t step) const { return ListOfType(TypeOfStep(step)); }

std::vector<int32_t> CWizardFlow::TypesToSearch(int32_t step) const {
  // A search reads every card whatever it looks for: it finds, besides the
  // step's own list, every later list still missing, which the next steps
  // then show at once.
  const int32_t from = step == kSteps ? EXACT_DUPE : TypeOfStep(step);
  std::vector<int32_t> types;
  if (from == 0 || (step != kSteps && ListOfType(from))) return types;
  for (int32_t type = from; type <= CONFLICT_DUPE; ++type)
    if (!ListOfType(type)) types.push_back(type);
  return types;
}

void CWizardFlow::SetList(int32_t dupeType, std::shared_ptr<CList> sets) {
  Trap(dupeType < EXACT_DUPE || dupeType > CONFLICT_DUPE, "Unknown dupe type: " + std::to_string(dupeType));
  lists_[dupeType - 1] = std::move(sets);
}

void CWizardFlow::GoTo(int32_t step) {
  Trap(step < 1 || step > kSteps, "Unknown wizard step");
  step_ = step;
}

WizardPage CWizardFlow::PageOf(int32_t step) const {
  Trap(step < 1 || step > kSteps, "Unknown wizard step");
  WizardPage page;
  page.step = {189, {"%1", Count(step), "%2", Count(kSteps)}};
  page.backEnabled = step > 1;
  page.nextEnabled = step < kSteps;
  if (step == 1) {
    page.title = {101};
    page.desc = {102};
    page.descLineBreak = true;
    return page;
  }
  if (step == kSteps) {
    const int32_t exact = Size(lists_[0]), compatible = Size(lists_[1]), conflict = Size(lists_[2]);
    const int32_t total = exact + compatible + conflict;
    page.title = {171};
    page.subTitle = total == 0 ? ResText{174} : total == 1 ? ResText{173} : ResText{172, {"%1", Count(total)}};
    if (total > 0) {
      page.desc = {175, {"%1", Count(exact), "%2", Count(compatible), "%3", Count(conflict)}};
      page.clickNext = {176};
    }
    return page;
  }
  const StepTexts texts = TextsOf(step);
  const int32_t b = texts.base;
  const int32_t n = Size(ListOfStep(step));
  page.title = {n == 0 ? b + 1 : b};
  page.subTitle = n == 0 ? ResText{b + 4} : n == 1 ? ResText{b + 3} : ResText{b + 2, {"%1", Count(n)}};
  page.desc = {n == 0 ? b + 6 : b + 5};
  page.listTitle = {b + 7};
  page.listTip = {b + 8};
  if (texts.autoActionCaption != 0) {
    page.autoActionCaption = {texts.autoActionCaption};
    page.autoActionLabel = {b + 9};
    page.reviewLabel = {b + 10};
    page.clickNext = {b + 11};
  } else {
    page.reviewLabel = {b + 9};
    page.clickNext = {b + 10};
  }
  page.showList = n > 0;
  page.showReviewButton = n > 0;
  page.showAutoAction = page.showReviewLabel = n > 0 && texts.autoActionCaption != 0;
  return page;
}

ResText CWizardFlow::AutoActionQuestion(int32_t step, int32_t k) {
  Trap(step != 2 && step != 3, "Unimplemented Wizard step");
  const int32_t one = step == 2 ? 191 : 193;
  return k == 1 ? ResText{one} : ResText{one + 1, {"%1", Count(k)}};
}

int32_t CWizardFlow::ReviewCaption(int32_t step) {
  Trap(step < 2 || step > 4, "Unknown Wizard step");
  return 395 + step;
}

void CWizardFlow::CompactDupes() {
  for (auto& list : lists_) {
    if (!list) continue;
    for (int32_t i = list->GetNumItems(); i >= 1; --i)
      if (list->GetItemAs<CDupeSet>(i)->GetDupes().GetNumItems() == 0) list->RemoveItem(i);
  }
}

void CWizardFlow::DatabaseChanged() {
  const int32_t current = TypeOfStep(step_);
  for (int32_t type : {EXACT_DUPE, COMPATIBLE_DUPE, CONFLICT_DUPE})
    if (type != current) lists_[type - 1].reset();
  CompactDupes();
}

bool CWizardFlow::ReferencesExist(const CCard& card) const {
  const int32_t id = card.GetCardID();
  for (const auto& list : lists_) {
    if (!list) continue;
    for (int32_t i = 1; i <= list->GetNumItems(); ++i) {
      auto set = list->GetItemAs<CDupeSet>(i);
      if (const CCard* primary = set->PrimaryCard(); primary && primary->GetCardID() == id) return true;
      const CList& dupes = set->GetDupes();
      for (int32_t j = 1; j <= dupes.GetNumItems(); ++j)
        if (dupes.GetItemAs<CCard>(j)->GetCardID() == id) return true;
    }
  }
  return false;
}

}  // namespace ombrel
