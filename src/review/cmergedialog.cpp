#include "ombrel/review/cmergedialog.h"

#include <QApplication>
#include <QPointer>

#include "ombrel/cards/ccard.h"
#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/cardstore/cmemorycardstore.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/foundation/cstring.h"
#include "ombrel/foundation/error.h"
#include "ombrel/foundation/messages.h"
#include "review/frm_review.h"
#include "ui/forms.h"
#include "ui/help.h"
#include "ui/qt_prompt.h"
#include "ui/startup.h"

namespace ombrel {

namespace {
constexpr int32_t kMergedCard = 1;  // the result, shown as the primary
constexpr int32_t kHostCard = 2;
constexpr int32_t kOtherCard = 3;
}  // namespace

CMergeDialog::CMergeDialog() : store_(std::make_shared<CMemoryCardStore>()) {
  for (int32_t id : {kMergedCard, kHostCard, kOtherCard}) {
    auto card = std::make_shared<CCard>();
    card->SetCardId(id);
    cards_[static_cast<size_t>(id - 1)] = card;
    store_->AddCard(card);
  }
}

CMergeDialog::~CMergeDialog() = default;

void CMergeDialog::SetImages(int32_t vmDIB, int32_t pimDIB) {
  cards_[0]->frontImage = std::make_shared<CLong>(kHostCard);
  vmDIB_ = vmDIB;
  pimDIB_ = pimDIB;
  store_->SetCardDIB(kHostCard, vmDIB);
  store_->SetCardDIB(kOtherCard, pimDIB);
}

void CMergeDialog::SetFieldData(const std::string& fieldName, const std::string& vmText, const std::string& vmLabel,
                                const std::string& pimText) {
  for (size_t i = 0; i < cards_.size(); ++i) {
    // A host's database may have fields of its own beyond the catalogue.
    if (!cards_[i]->IsStandardFieldName(fieldName)) cards_[i]->AddField(fieldName, false);
    cards_[i]->SetData(fieldName, i == 2 ? pimText : vmText, vmLabel, nullptr, 100, 100, false, false);
  }
}

bool CMergeDialog::Show(int64_t hParentWnd, const std::string& caption, const std::string& dupeHeaders) {
  Trap(qobject_cast<QApplication*>(QCoreApplication::instance()) == nullptr,
       "The merge dialog needs the host's QApplication");
  ui::InitResources();
  ui::UseWindowPrompt();

  mergeSet_ = std::make_shared<CDupeSet>();
  mergeSet_->Init(cards_[0]->Clone(), CONFLICT_DUPE);
  mergeSet_->AddDupe(cards_[1]->Clone());
  mergeSet_->AddDupe(cards_[2]->Clone());

  // The review writes what it keeps to a store of its own made for this
  // showing, so a second showing starts again from the data handed in.
  auto shown = std::make_shared<CMemoryCardStore>();
  for (const auto& card : cards_) shown->AddCard(card->Clone());
  shown->SetCardDIB(kHostCard, vmDIB_);
  shown->SetCardDIB(kOtherCard, pimDIB_);
  ui::ReplaceSharedManager(shown);

  if (AppName().empty()) AppName() = GetResString(206);
  HostWindow() = hParentWnd;

  auto sets = std::make_shared<CList>();
  sets->AddItem(mergeSet_);
  QPointer<ui::frmReview> review = new ui::frmReview(ui::WidgetOfWindow(hParentWnd));
  review->SetShowNavigation(false);
  review->SetAskOnOK(false);
  review->SetZoomWindows(false);
  review->SetDupes(sets, 1);
  std::vector<std::string> headers;
  auto parts = CString(dupeHeaders).GetTokens("\t", false);
  for (int32_t i = 1; i <= parts->GetNumItems(); ++i) headers.push_back(parts->GetItem(i)->ToStr());
  review->SetDupeHeaders(headers);
  review->SetMergeTexts(GetResString(801), GetResString(802));
  review->setWindowTitle(QString::fromStdString(caption));
  review->setObjectName("frmReview");
  review->SetHelpContext(ui::help_context::kMerge);
  review->RefreshDisplay();
  review->ResizeToGrid();
  if (!ui::WidgetOfWindow(hParentWnd)) ui::SetOwnerWindow(review, hParentWnd);
  review->setWindowModality(Qt::ApplicationModal);
  review->exec();
  delete review.data();
  return ui::frmReview::ReviewCancelled();
}

void CMergeDialog::GetCardData(std::string& cardData) const {
  if (!mergeSet_ || !mergeSet_->PrimaryCard()) return;
  const CCard& merged = *mergeSet_->PrimaryCard();
  for (int32_t i = 1; i <= merged.NumFields(); ++i) {
    const CCardField& field = merged.FieldAt(i);
    if (!field.HasText()) continue;
    cardData += field.Name() + "\t" + CString::ReplaceAll(field.Text(), "\t", " ") + "\t";
  }
}

std::shared_ptr<const CCard> CMergeDialog::MergedCard() const {
  return mergeSet_ ? mergeSet_->GetPrimaryCard() : nullptr;
}

}  // namespace ombrel
