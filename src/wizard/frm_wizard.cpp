#include "wizard/frm_wizard.h"

#include <QScopeGuard>
#include <QApplication>
#include <QCloseEvent>
#include <QFontMetrics>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QTimer>
#include <QVBoxLayout>
#include <algorithm>

#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/foundation/messages.h"
#include "review/frm_review.h"
#include "ui/artwork.h"
#include "ui/forms.h"
#include "ui/frm_database_actions.h"
#include "ui/handlers.h"
#include "ui/help.h"
#include "wizard/dupe_set_model.h"
#include "wizard/frm_dupe_finder.h"
#include "wizard/search_job.h"

namespace ombrel::ui {

namespace {

// Resource texts hold CR LF line breaks; labels want plain ones.
QString ToDisplay(const std::string& text) { return QString::fromStdString(text).replace("\r\n", "\n"); }

QString Res(int32_t id) { return ToDisplay(GetResString(id)); }

// A label's text and its accessible name; hidden when empty.
void Show(QLabel* label, const QString& text, bool visible = true) {
  label->setText(text);
  label->setAccessibleName(text);
  label->setVisible(visible && !text.isEmpty());
}

QLabel* MakeLabel(QWidget* parent, const char* name, bool wrap = true) {
  auto* label = new QLabel(parent);
  label->setObjectName(name);
  label->setWordWrap(wrap);
  label->setTextFormat(Qt::PlainText);
  return label;
}

QPushButton* MakeButton(QWidget* parent, const char* name, int32_t captionId) {
  auto* button = new QPushButton(Res(captionId), parent);
  button->setObjectName(name);
  button->setAccessibleName(button->text().remove('&'));
  button->setAutoDefault(false);
  return button;
}

// The widths a list column may take, in twips.
constexpr int kMinColumnTwips = 1200;
constexpr int kMaxColumnTwips = 4200;
// Rows measured to fit the columns: enough to be fair to the data, few
// enough that a long list costs nothing to show.
constexpr int kRowsMeasured = 400;

}  // namespace

frmWizard::frmWizard(QWidget* parent) : QDialog(parent) {
  // Load: caption, the list's layout, the help topic, the position.
  setObjectName("frmWizard");
  RegisterForm(this);
  setWindowTitle(Res(206));
  setWindowIcon(AppIcon());
  setWindowFlag(Qt::WindowContextHelpButtonHint, false);
  setWindowFlag(Qt::WindowMinMaxButtonsHint, true);
  InstallHelpKey(this, help_context::kWizard);

  picSideBar = new SideBarView(this);
  picSideBar->setObjectName("picSideBar");

  picSideBar->setFixedWidth(TwipsToPixels(2460));

  lblStep = MakeLabel(this, "lblStep", false);
  lblTitle = MakeLabel(this, "lblTitle");
  QFont titleFont = lblTitle->font();
  titleFont.setPointSizeF(titleFont.pointSizeF() * 1.6);
  titleFont.setBold(true);
  lblTitle->setFont(titleFont);
  lblSubTitle = MakeLabel(this, "lblSubTitle");
  QFont subFont = lblSubTitle->font();
  subFont.setPointSizeF(subFont.pointSizeF() * 1.15);
  subFont.setBold(true);
  lblSubTitle->setFont(subFont);
  lblDesc = MakeLabel(this, "lblDesc");
  lblListTitle = MakeLabel(this, "lblListTitle", false);
  lblAutoAction = MakeLabel(this, "lblAutoAction");
  lblReview = MakeLabel(this, "lblReview");
  lblClickNext = MakeLabel(this, "lblClickNext");
  QPalette dim = lblStep->palette();
  dim.setColor(QPalette::WindowText, palette().color(QPalette::Disabled, QPalette::WindowText));
  lblStep->setPalette(dim);

  lstDupes = new QTableView(this);
  lstDupes->setObjectName("lstDupes");
  model_ = new DupeSetListModel(lstDupes);
  lstDupes->setModel(model_);
  lstDupes->setSelectionBehavior(QAbstractItemView::SelectRows);
  lstDupes->setSelectionMode(QAbstractItemView::SingleSelection);
  lstDupes->setEditTriggers(QAbstractItemView::NoEditTriggers);
  lstDupes->setAlternatingRowColors(true);
  lstDupes->setWordWrap(false);
  lstDupes->setTabKeyNavigation(false);
  lstDupes->verticalHeader()->hide();
  lstDupes->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
  lstDupes->verticalHeader()->setDefaultSectionSize(lstDupes->fontMetrics().height() + 8);
  lstDupes->horizontalHeader()->setHighlightSections(false);
  lstDupes->horizontalHeader()->setStretchLastSection(false);
  lstDupes->horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
  lstDupes->installEventFilter(this);
  lstDupes->setMinimumHeight(TwipsToPixels(1800));

  cmdAutoAction = MakeButton(this, "cmdAutoAction", 181);
  cmdReview = MakeButton(this, "cmdReview", 187);
  cmdBack = MakeButton(this, "cmdBack", 183);
  cmdNext = MakeButton(this, "cmdNext", 184);
  cmdClose = MakeButton(this, "cmdClose", 186);
  cmdNext->setDefault(true);
  for (QPushButton* b : {cmdAutoAction, cmdReview}) b->setMinimumWidth(TwipsToPixels(1800));
  for (QPushButton* b : {cmdBack, cmdNext, cmdClose}) b->setMinimumWidth(TwipsToPixels(1350));

  // The page: labels stacked from the top; a hidden one closes its gap.
  auto* page = new QVBoxLayout;
  page->setSpacing(TwipsToPixels(120));
  page->addWidget(lblStep);
  page->addWidget(lblTitle);
  page->addWidget(lblSubTitle);
  page->addWidget(lblDesc);
  auto* autoRow = new QHBoxLayout;
  autoRow->addWidget(lblAutoAction, 1);
  autoRow->addWidget(cmdAutoAction, 0, Qt::AlignVCenter);
  page->addLayout(autoRow);
  auto* reviewRow = new QHBoxLayout;
  reviewRow->addWidget(lblReview, 1);
  reviewRow->addStretch(0);
  reviewRow->addWidget(cmdReview, 0, Qt::AlignVCenter);
  page->addLayout(reviewRow);
  page->addSpacing(TwipsToPixels(60));
  page->addWidget(lblListTitle);
  page->addWidget(lstDupes, 1);
  page->addStretch(0);
  page->addWidget(lblClickNext);

  auto* body = new QHBoxLayout;
  body->setContentsMargins(0, 0, 0, 0);
  body->setSpacing(0);
  body->addWidget(picSideBar);
  auto* pageMargins = new QVBoxLayout;
  pageMargins->setContentsMargins(TwipsToPixels(360), TwipsToPixels(300), TwipsToPixels(360), TwipsToPixels(180));
  pageMargins->addLayout(page);
  body->addLayout(pageMargins, 1);

  // The lower part: a rule and the buttons.
  FrameCover = new QFrame(this);
  FrameCover->setObjectName("FrameCover");
  FrameCover->setFrameShape(QFrame::NoFrame);
  auto* rule = new QFrame(this);
  rule->setFrameShape(QFrame::HLine);
  rule->setFrameShadow(QFrame::Sunken);
  auto* buttons = new QHBoxLayout(FrameCover);
  buttons->setContentsMargins(TwipsToPixels(180), TwipsToPixels(150), TwipsToPixels(180), TwipsToPixels(150));
  buttons->addStretch(1);
  buttons->addWidget(cmdBack);
  buttons->addWidget(cmdNext);
  buttons->addSpacing(TwipsToPixels(180));
  buttons->addWidget(cmdClose);

  auto* outer = new QVBoxLayout(this);
  outer->setContentsMargins(0, 0, 0, 0);
  outer->setSpacing(0);
  outer->addLayout(body, 1);
  outer->addWidget(rule);
  outer->addWidget(FrameCover);

  setMinimumSize(TwipsToPixels(9600), TwipsToPixels(8100));
  resize(TwipsToPixels(10800), TwipsToPixels(8400));

  // Tab follows the screen: the actions, the list, then the buttons below.
  QWidget* order[] = {cmdAutoAction, cmdReview, lstDupes, cmdBack, cmdNext, cmdClose};
  for (size_t i = 0; i + 1 < std::size(order); ++i) setTabOrder(order[i], order[i + 1]);

  connect(cmdNext, &QPushButton::clicked, this, [this] { Handle([this] { OnNext(); }); });
  connect(cmdBack, &QPushButton::clicked, this, [this] { Handle([this] { OnBack(); }); });
  connect(cmdClose, &QPushButton::clicked, this, [this] { Handle([this] { OnClose(); }); });
  connect(cmdAutoAction, &QPushButton::clicked, this, [this] { Handle([this] { OnAutoAction(); }); });
  connect(cmdReview, &QPushButton::clicked, this, [this] { Handle([this] { OpenReview(1); }); });
  connect(lstDupes, &QTableView::doubleClicked, this, [this](const QModelIndex& index) {
    Handle([this, index] { OpenReview(index.row() + 1); });
  });

  CenterOverWindow(this, HostWindow());
  RefreshDisplay();
}

frmWizard::~frmWizard() = default;

void frmWizard::RefreshDisplay() {
  const WizardPage page = flow_.Page();
  picSideBar->SetStep(flow_.Step());
  Show(lblStep, ToDisplay(page.step.Text()));
  picSideBar->setAccessibleName(lblStep->text());
  Show(lblTitle, ToDisplay(page.title.Text()));
  Show(lblSubTitle, ToDisplay(page.subTitle.Text()));
  Show(lblDesc, ToDisplay(page.desc.Text()) + (page.descLineBreak ? "\n" : ""));
  Show(lblListTitle, ToDisplay(page.listTitle.Text()), page.showList);
  Show(lblAutoAction, ToDisplay(page.autoActionLabel.Text()), page.showAutoAction);
  Show(lblReview, ToDisplay(page.reviewLabel.Text()), page.showReviewLabel);
  Show(lblClickNext, ToDisplay(page.clickNext.Text()));
  if (page.autoActionCaption.id != 0) {
    cmdAutoAction->setText(ToDisplay(page.autoActionCaption.Text()));
    cmdAutoAction->setAccessibleName(cmdAutoAction->text().remove('&'));
  }
  cmdAutoAction->setVisible(page.showAutoAction);
  cmdReview->setVisible(page.showReviewButton);
  cmdBack->setEnabled(page.backEnabled);
  cmdNext->setEnabled(page.nextEnabled);
  if (!page.nextEnabled) cmdClose->setDefault(true);
  else cmdNext->setDefault(true);

  const QString tip = ToDisplay(page.listTip.Text());
  lstDupes->setToolTip(tip);
  lstDupes->setAccessibleName(lblListTitle->text());
  model_->SetToolTip(tip);
  model_->SetSets(flow_.CurrentDupes());
  lstDupes->setVisible(page.showList);
  if (page.showList) {
    FitColumns();
    if (!lstDupes->currentIndex().isValid()) lstDupes->selectRow(0);
  }
}

void frmWizard::FitColumns() {
  // The name and count columns fit their widest text; the company column
  // takes the rest of the list's width.
  const QFontMetrics metrics(lstDupes->font());
  const int rows = std::min(model_->rowCount(), kRowsMeasured);
  const int padding = metrics.averageCharWidth() * 3;
  const int minWidth = TwipsToPixels(kMinColumnTwips), maxWidth = TwipsToPixels(kMaxColumnTwips);
  QHeaderView* header = lstDupes->horizontalHeader();
  for (int column : {0, 2}) {
    int widest = metrics.horizontalAdvance(model_->headerData(column, Qt::Horizontal, Qt::DisplayRole).toString());
    for (int row = 0; row < rows; ++row)
      widest = std::max(widest, metrics.horizontalAdvance(model_->index(row, column).data().toString()));
    header->setSectionResizeMode(column, QHeaderView::Interactive);
    lstDupes->setColumnWidth(column, column == 2 ? widest + padding : MinOf(MaxOf(widest + padding, minWidth), maxWidth));
  }
  header->setSectionResizeMode(1, QHeaderView::Stretch);
}

void frmWizard::CompactDupes() {
  flow_.CompactDupes();
  RefreshDisplay();
}

void frmWizard::SetBusy(bool busy) {
  busy_ = busy;
  // Close stays live: during a search it stops the search.
  for (QWidget* w : {static_cast<QWidget*>(cmdAutoAction), static_cast<QWidget*>(cmdReview),
                     static_cast<QWidget*>(lstDupes)})
    w->setEnabled(!busy);
  cmdBack->setEnabled(!busy && flow_.Step() > 1);
  cmdNext->setEnabled(!busy && flow_.Step() < CWizardFlow::kSteps);
  if (busy) setCursor(Qt::WaitCursor);
  else unsetCursor();
}

void frmWizard::MoveTo(int32_t step) {
  const std::vector<int32_t> types = flow_.TypesToSearch(step);
  if (!types.empty()) {
    SetBusy(true);
    const auto restore = qScopeGuard([this] { SetBusy(false); });
    CSearchJob::StopRunning();  // one search at a time reads the store
    auto job = std::make_unique<CSearchJob>(types);
    frmDupeFinder finder(this);
    job->Start();
    finder.RunToEnd(*job);
    // Cancelled: the step is not changed and nothing found is kept, so the
    // next move searches again.
    if (finder.IsStopped() && !job->Finished()) {
      CSearchJob::Linger(std::move(job));
      RefreshDisplay();
      return;
    }
    job->Wait();
    auto results = job->TakeResults();  // raises what the search raised
    if (finder.IsStopped() || job->Stopped()) {
      RefreshDisplay();
      return;
    }
    for (auto& [type, sets] : results) flow_.SetList(type, std::move(sets));
  }
  flow_.GoTo(step);
  lstDupes->setCurrentIndex({});
  RefreshDisplay();
  raise();
  activateWindow();
}

template <class Body>
void frmWizard::Handle(Body&& body) {
  Guarded(std::forward<Body>(body));
  // A close asked for while the handler ran is carried out once it is over.
  if (unloadPending_ && !busy_) {
    unloadPending_ = false;
    RequestUnload(true);
  }
}

void frmWizard::OnNext() {
  if (!busy_) MoveTo(flow_.NextStep());
}

void frmWizard::OnBack() {
  if (!busy_) MoveTo(flow_.PreviousStep());
}

void frmWizard::OnClose() {
  if (auto* finder = qobject_cast<frmDupeFinder*>(FindForm("frmDupeFinder"))) {
    finder->StopSearch();
    return;
  }
  RequestUnload(true);
}

void frmWizard::RequestUnload(bool insideOwnEvent) {
  if (auto* finder = qobject_cast<frmDupeFinder*>(FindForm("frmDupeFinder"))) finder->StopSearch();
  if (busy_) {
    unloadPending_ = true;
    return;
  }
  if (!insideOwnEvent) {
    UnloadComponent();
    return;
  }
  // This window is about to be destroyed: not from inside its own event.
  hide();
  QTimer::singleShot(0, qApp, [] { UnloadComponent(); });
}

void frmWizard::OnAutoAction() {
  if (IsFormLoaded("frmDatabaseActions") || busy_) return;
  CSearchJob::StopRunning();
  const int32_t step = flow_.Step();
  auto current = flow_.CurrentDupes();
  if (!current) return;
  std::unique_ptr<frmDatabaseActions> actions(new frmDatabaseActions(this));
  actions->CheckDatabaseAccess();
  const int32_t k = CountDuplicateCards(*current);
  const ResText question = CWizardFlow::AutoActionQuestion(step, k);
  if (GetPrompt().MessageBox(question.Text(), msgbox::kYesNo | msgbox::kQuestion, AppName()) != msgbox::kAnswerYes)
    return;
  {
    BusyFlag flag(busy_);
    BusyPointer pointer;
    actions->SetOnFinished([this] { flow_.CompactDupes(); });
    const auto changed = qScopeGuard([this] { flow_.DatabaseChanged(); });
    if (step == 2) actions->RemoveDupes(*current);
    else actions->MergeDupes(*current);
  }
  RefreshDisplay();
}

void frmWizard::OpenReview(int32_t startIndex) {
  if (busy_) return;
  CSearchJob::StopRunning();
  auto current = flow_.CurrentDupes();
  if (!current || CountDuplicateCards(*current) == 0) return;
  const int32_t caption = CWizardFlow::ReviewCaption(flow_.Step());
  QPointer<frmReview> review;
  {
    BusyPointer pointer;
    review = new frmReview(this);
    review->SetAskOnOK(true);
    review->SetZoomWindows(true);
    review->SetCaption(GetResString(caption));
    review->SetDupes(current, startIndex);
  }
  review->exec();
  // The review may have been unloaded with the component meanwhile.
  if (!review) return;
  const bool saved = review->Saved();
  delete review.data();
  // Sets the review emptied leave the list; once it has written to the
  // database, the other steps' lists are searched again when next shown.
  if (saved) flow_.DatabaseChanged();
  else flow_.CompactDupes();
  RefreshDisplay();
}

void frmWizard::closeEvent(QCloseEvent* event) {
  event->ignore();
  Handle([this] { OnClose(); });
}

void frmWizard::reject() {
  Handle([this] { OnClose(); });
}

bool frmWizard::eventFilter(QObject* watched, QEvent* event) {
  if (watched == lstDupes && event->type() == QEvent::KeyPress) {
    auto* key = static_cast<QKeyEvent*>(event);
    if (key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter) {
      const int row = lstDupes->currentIndex().isValid() ? lstDupes->currentIndex().row() : 0;
      Handle([this, row] { OpenReview(row + 1); });
      return true;
    }
  }
  return QDialog::eventFilter(watched, event);
}

void UnloadComponent() {
  CSearchJob::StopRunning();
  try {
    if (auto& mgr = CardStoreMgr()) mgr->Disconnect();
  } catch (...) {
  }
  try {
    UnloadAllForms();
  } catch (...) {
  }
  try {
    EnableWindow(HostWindow(), true);
    PlaceWindow(HostWindow(), 0);
  } catch (...) {
  }
  try {
    if (auto& reader = ResourceReader()) {
      reader->Release();
      reader.reset();
    }
  } catch (...) {
  }
}

}  // namespace ombrel::ui
