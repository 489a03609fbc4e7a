#include "review/frm_review.h"

#include <QScopeGuard>
#include <QApplication>
#include <QCloseEvent>
#include <QGuiApplication>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QScreen>
#include <QScrollBar>
#include <QShortcut>
#include <QThread>
#include <QVBoxLayout>
#include <algorithm>

#include "ombrel/cards/ccard.h"
#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/foundation/error.h"
#include "ombrel/foundation/messages.h"
#include "review/frm_categories.h"
#include "review/frm_zoom.h"
#include "review/review_grid.h"
#include "ui/artwork.h"
#include "ui/forms.h"
#include "ui/frm_database_actions.h"
#include "ui/handlers.h"
#include "ui/help.h"
#include "ui/startup.h"

namespace ombrel::ui {

namespace {

QString Q(const std::string& text) { return QString::fromStdString(text).replace("\r\n", "\n"); }
QString Res(int32_t id, const std::vector<std::string>& subs = {}) { return Q(GetResString(id, subs)); }
// Texts typed in an editor keep the stored line breaks.
std::string Stored(const QString& text) {
  return QString(text).replace("\r\n", "\n").replace("\n", "\r\n").toStdString();
}

QPushButton* MakeButton(QWidget* parent, const char* name, int32_t captionId, int32_t tipId = 0) {
  auto* b = new QPushButton(Res(captionId), parent);
  b->setObjectName(name);
  b->setAccessibleName(b->text().remove('&'));
  if (tipId != 0) b->setToolTip(Res(tipId));
  b->setAutoDefault(false);
  return b;
}

QLabel* MakeLabel(QWidget* parent, const char* name) {
  auto* l = new QLabel(parent);
  l->setObjectName(name);
  l->setTextFormat(Qt::PlainText);
  return l;
}

void SetText(QLabel* label, const QString& text) {
  label->setText(text);
  label->setAccessibleName(text);
}

QTableView* MakeGrid(QWidget* parent, const char* name) {
  auto* grid = new QTableView(parent);
  grid->setObjectName(name);
  grid->verticalHeader()->hide();
  grid->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
  grid->setSelectionMode(QAbstractItemView::SingleSelection);
  grid->setEditTriggers(QAbstractItemView::NoEditTriggers);
  grid->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
  grid->setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
  grid->setWordWrap(true);
  grid->setTabKeyNavigation(false);
  grid->horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
  grid->horizontalHeader()->setSectionResizeMode(QHeaderView::Fixed);
  grid->horizontalHeader()->setStretchLastSection(false);
  return grid;
}

// Sizes of the grids, in twips.
constexpr int kValueColumnTwips = 3900;
constexpr int kDupeColumnTwips = 3600;
constexpr int kImageRowTwips = 2100;
constexpr int kMaxLinesShown = 4;
constexpr int kMaxHeightTwips = 12000;
// One step of MoveSmoothly.
constexpr int kSlideStepTwips = 1000;
constexpr int kSlidePauseMs = 100;

constexpr const char* kVersion = "4.1";

}  // namespace

CellCarrier::CellCarrier(QTableView* grid, QWidget* parent) : QLabel(parent), grid_(grid) {
  setWordWrap(true);
  setTextFormat(Qt::PlainText);
  setFocusPolicy(Qt::StrongFocus);
  setAutoFillBackground(true);
  setAlignment(Qt::AlignLeft | Qt::AlignTop);
  setMargin(3);
  QPalette pal = palette();
  pal.setColor(QPalette::Window, pal.color(QPalette::Base));
  setPalette(pal);
  setFrameShape(QFrame::Box);
  setStyleSheet("QLabel { border: 2px solid palette(highlight); background: palette(base); }");
  hide();
}

void CellCarrier::Follow() {
  const QModelIndex index = grid_->currentIndex();
  if (!index.isValid() || index.data(kImageHandleRole).isValid()) {
    hide();
    return;
  }
  const QRect cell = grid_->visualRect(index);
  setText(index.data(Qt::DisplayRole).toString());
  setAccessibleName(index.data(Qt::DisplayRole).toString());
  const int needed = heightForWidth(cell.width());
  setGeometry(cell.x(), cell.y(), cell.width(), std::max(cell.height(), needed));
  show();
  raise();
}

void CellCarrier::keyPressEvent(QKeyEvent* event) {
  switch (event->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter: Q_EMIT Activated(); return;
    case Qt::Key_Up:
    case Qt::Key_Down:
    case Qt::Key_Left:
    case Qt::Key_Right:
    case Qt::Key_PageUp:
    case Qt::Key_PageDown:
    case Qt::Key_Home:
    case Qt::Key_End: {
      // The grid moves its current cell; the carrier follows it there.
      QKeyEvent copy(event->type(), event->key(), event->modifiers(), event->text());
      QApplication::sendEvent(grid_, &copy);
      Follow();
      setFocus();
      return;
    }
    default: QLabel::keyPressEvent(event);
  }
}

void CellCarrier::mouseDoubleClickEvent(QMouseEvent*) { Q_EMIT Activated(); }

bool& frmReview::ReviewCancelled() {
  static bool cancelled = false;
  return cancelled;
}

frmReview::frmReview(QWidget* owner) : QDialog(owner), session_(*this), helpContext_(help_context::kReview) {
  setObjectName("frmReview");
  RegisterForm(this);
  ReviewCancelled() = false;
  setWindowIcon(AppIcon());
  setWindowFlag(Qt::WindowContextHelpButtonHint, false);
  setWindowFlag(Qt::WindowMinMaxButtonsHint, true);
  setSizeGripEnabled(true);
  title_ = GetResString(206) + "  -  ";
  setWindowTitle(Q(title_));

  // Navigation between the sets.
  lblSetCount = MakeLabel(this, "lblSetCount");
  QFont bold = lblSetCount->font();
  bold.setBold(true);
  lblSetCount->setFont(bold);
  lblNumDupes = MakeLabel(this, "lblNumDupes");
  cmdPrevSet = MakeButton(this, "cmdPrevSet", 301, 321);
  cmdNextSet = MakeButton(this, "cmdNextSet", 302, 322);

  // The grids.
  PrimaryGrid = MakeGrid(this, "PrimaryGrid");
  PrimaryGrid->setAccessibleName(Res(395));
  PrimaryGrid->setToolTip(Res(334));
  PrimaryGrid->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  PrimaryGrid->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  DupeGrid = MakeGrid(this, "DupeGrid");
  DupeGrid->setAccessibleName(Res(203));
  DupeGrid->horizontalHeader()->setHighlightSections(true);
  primaryModel_ = new ReviewGridModel(ReviewGridModel::Kind::kPrimary, session_, images_, this);
  dupeModel_ = new ReviewGridModel(ReviewGridModel::Kind::kDupes, session_, images_, this);
  PrimaryGrid->setModel(primaryModel_);
  DupeGrid->setModel(dupeModel_);
  PrimaryGrid->setItemDelegate(new ReviewCellDelegate(images_, PrimaryGrid));
  DupeGrid->setItemDelegate(new ReviewCellDelegate(images_, DupeGrid));
  // The two grids scroll as one.
  connect(DupeGrid->verticalScrollBar(), &QScrollBar::valueChanged, PrimaryGrid->verticalScrollBar(),
          &QScrollBar::setValue);
  connect(PrimaryGrid->verticalScrollBar(), &QScrollBar::valueChanged, DupeGrid->verticalScrollBar(),
          &QScrollBar::setValue);

  picNoDupes = new QWidget(this);
  picNoDupes->setObjectName("picNoDupes");
  picNoDupes->setAutoFillBackground(true);
  lblNoDupes = MakeLabel(picNoDupes, "lblNoDupes");
  SetText(lblNoDupes, Res(376));
  lblNoDupes->setAlignment(Qt::AlignCenter);
  lblNoDupes->setWordWrap(true);
  auto* noDupesLayout = new QVBoxLayout(picNoDupes);
  noDupesLayout->addStretch(1);
  noDupesLayout->addWidget(lblNoDupes);
  noDupesLayout->addStretch(2);
  picNoDupes->hide();

  cmdSend = new QPushButton(this);
  cmdSend->setObjectName("cmdSend");
  const int sendHeight = fontMetrics().height() + 8;
  const QPixmap sendPicture = SendPicture(Language(), sendHeight, devicePixelRatioF());
  cmdSend->setIcon(QIcon(sendPicture));
  cmdSend->setIconSize(sendPicture.size() / sendPicture.devicePixelRatio());
  cmdSend->setToolTip(Res(332) + "\n" + Res(333));
  cmdSend->setAccessibleName(Res(332));
  cmdSend->setAutoDefault(false);
  cmdDelete = new QPushButton(ButtonIcon(ButtonPicture::kDelete), Res(414), this);
  cmdDelete->setObjectName("cmdDelete");
  cmdDelete->setToolTip(Res(331));
  cmdDelete->setAccessibleName(Res(331));
  cmdDelete->setAutoDefault(false);

  // Undo, redo, zoom and the window's own buttons.
  cmdUndo = MakeButton(this, "cmdUndo", 303, 323);
  cmdUndo->setIcon(ButtonIcon(ButtonPicture::kUndo));
  cmdRedo = MakeButton(this, "cmdRedo", 304, 325);
  cmdRedo->setIcon(ButtonIcon(ButtonPicture::kRedo));
  lblUndoToolTip = MakeLabel(this, "lblUndoToolTip");
  SetText(lblUndoToolTip, Res(324));
  lblUndoToolTip->hide();
  lblRedoToolTip = MakeLabel(this, "lblRedoToolTip");
  SetText(lblRedoToolTip, Res(326));
  lblRedoToolTip->hide();
  cmdUndo->setToolTip(Res(323) + "\n" + Res(324));
  cmdRedo->setToolTip(Res(325) + "\n" + Res(326));
  cmdMagnifier = new QPushButton(ButtonIcon(ButtonPicture::kMagnifier), QString(), this);
  cmdMagnifier->setObjectName("cmdMagnifier");
  cmdMagnifier->setToolTip(Res(327));
  cmdMagnifier->setAccessibleName(Res(328));
  cmdMagnifier->setAutoDefault(false);
  lblMagnifierToolTip = MakeLabel(this, "lblMagnifierToolTip");
  SetText(lblMagnifierToolTip, Res(328));
  cmdHelp = MakeButton(this, "cmdHelp", 903);
  cmdOK = MakeButton(this, "cmdOK", 901, 329);
  cmdCancel = MakeButton(this, "cmdCancel", 902, 330);
  for (QPushButton* b : {cmdOK, cmdCancel, cmdHelp}) b->setMinimumWidth(TwipsToPixels(1350));

  // The editors and carriers lie over the cells.
  txtEdit = new QPlainTextEdit(PrimaryGrid->viewport());
  txtEdit->setObjectName("txtEdit");

  txtEdit->setTabChangesFocus(true);
  txtEdit->hide();
  cmbVerified = new QComboBox(PrimaryGrid->viewport());
  cmbVerified->setObjectName("cmbVerified");
  cmbVerified->addItem(Res(405));
  cmbVerified->addItem(Res(406));
  cmbVerified->setAccessibleName(Res(351));
  cmbVerified->hide();
  txtPrimary = new CellCarrier(PrimaryGrid, PrimaryGrid->viewport());
  txtPrimary->setObjectName("txtPrimary");
  txtDupe = new CellCarrier(DupeGrid, DupeGrid->viewport());
  txtDupe->setObjectName("txtDupe");
  txtDupe->setCursor(ArrowPointer(false));
  picSlide = new QLabel(this);
  picSlide->setObjectName("picSlide");
  picSlide->hide();

  lblStatus = MakeLabel(this, "lblStatus");
  lblStatus->setWordWrap(true);
  SetText(lblStatus, " " + Res(501));

  // The legend of the dupe cells' markers.
  auto* legend = new QHBoxLayout;
  for (auto relation : {CellRelation::kSame, CellRelation::kDifferent, CellRelation::kFills}) {
    auto* mark = new QLabel(ReviewCellDelegate::MarkerOf(relation), this);
    mark->setAlignment(Qt::AlignCenter);
    mark->setFixedSize(fontMetrics().height() + 6, fontMetrics().height() + 4);
    mark->setStyleSheet(QString("QLabel { background: %1; border: 1px solid #b8c0c8; font-weight: bold; }")
                            .arg(ReviewCellDelegate::TintOf(relation).name()));
    const int32_t id = relation == CellRelation::kSame ? 410 : relation == CellRelation::kDifferent ? 411 : 412;
    auto* text = new QLabel(Res(id), this);
    mark->setAccessibleName(text->text());
    legend->addWidget(mark);
    legend->addWidget(text);
    legend->addSpacing(TwipsToPixels(180));
  }
  legend->addStretch(1);

  // Layout.
  auto* top = new QHBoxLayout;
  top->addWidget(lblSetCount);
  top->addSpacing(TwipsToPixels(240));
  top->addWidget(lblNumDupes);
  top->addStretch(1);
  top->addWidget(cmdPrevSet);
  top->addWidget(cmdNextSet);

  auto* dupeTools = new QHBoxLayout;
  dupeTools->addWidget(cmdSend);
  dupeTools->addWidget(cmdDelete);
  dupeTools->addStretch(1);
  // The grids side by side, their rows level; the dupe tools above the dupes.
  auto* grids = new QGridLayout;
  grids->addLayout(dupeTools, 0, 1);
  grids->addWidget(PrimaryGrid, 1, 0);
  grids->addWidget(DupeGrid, 1, 1);
  grids->addWidget(picNoDupes, 1, 1);
  grids->setColumnStretch(1, 1);
  grids->setRowStretch(1, 1);

  auto* bottom = new QHBoxLayout;
  bottom->addWidget(cmdUndo);
  bottom->addWidget(cmdRedo);
  bottom->addSpacing(TwipsToPixels(240));
  bottom->addWidget(cmdMagnifier);
  bottom->addWidget(lblMagnifierToolTip);
  bottom->addStretch(1);
  bottom->addWidget(cmdHelp);
  bottom->addSpacing(TwipsToPixels(240));
  bottom->addWidget(cmdOK);
  bottom->addWidget(cmdCancel);

  auto* layout = new QVBoxLayout(this);
  layout->addLayout(top);
  layout->addLayout(grids, 1);
  layout->addLayout(legend);
  layout->addWidget(lblStatus);
  layout->addLayout(bottom);

  // Wiring.
  connect(cmdPrevSet, &QPushButton::clicked, this, [this] { Button([this] { OnMoveSet(-1); }); });
  connect(cmdNextSet, &QPushButton::clicked, this, [this] { Button([this] { OnMoveSet(1); }); });
  connect(cmdUndo, &QPushButton::clicked, this, [this] {
    Button([this] {
      session_.UndoLastAction();
      if (cmdUndo->isEnabled()) cmdUndo->setFocus();
    });
  });
  connect(cmdRedo, &QPushButton::clicked, this, [this] {
    Button([this] {
      session_.RedoLastAction();
      if (cmdRedo->isEnabled()) cmdRedo->setFocus();
    });
  });
  connect(cmdOK, &QPushButton::clicked, this, [this] { Button([this] { OnOK(); }); });
  connect(cmdCancel, &QPushButton::clicked, this, [this] { Button([this] { OnCancel(); }); });
  connect(cmdHelp, &QPushButton::clicked, this, [this] { Button([this] { OnHelp(); }); });
  connect(cmdSend, &QPushButton::clicked, this, [this] { Button([this] { OnSend(); }); });
  connect(cmdDelete, &QPushButton::clicked, this, [this] { Button([this] { OnDelete(); }); });
  connect(cmdMagnifier, &QPushButton::clicked, this, [this] { Guarded([this] { OnMagnifier(); }); });
  connect(PrimaryGrid, &QTableView::doubleClicked, this,
          [this](const QModelIndex& index) { Guarded([this, index] { OnPrimaryActivated(index); }); });
  connect(PrimaryGrid, &QTableView::clicked, this, [this](const QModelIndex& index) {
    Guarded([this, index] {
      if (magnifierArmed_ && primaryModel_->IsImageRow(index.row())) OnPrimaryActivated(index);
    });
  });
  connect(DupeGrid, &QTableView::clicked, this,
          [this](const QModelIndex& index) { Guarded([this, index] { OnDupeActivated(index, true); }); });
  connect(PrimaryGrid->selectionModel(), &QItemSelectionModel::currentChanged, this, [this] {
    Guarded([this] {
      const bool hadFocus = PrimaryGrid->hasFocus() || txtPrimary->hasFocus();
      if (!txtEdit->isVisible() && !cmbVerified->isVisible()) txtPrimary->Follow();
      if (hadFocus && txtPrimary->isVisible()) txtPrimary->setFocus();
      UpdateZoomHighlights();
    });
  });
  // Level rows at the bottom too: the primary grid keeps a scroll bar's room
  // below whenever the dupes have one.
  connect(DupeGrid->horizontalScrollBar(), &QScrollBar::rangeChanged, this, [this](int, int max) {
    PrimaryGrid->setHorizontalScrollBarPolicy(max > 0 ? Qt::ScrollBarAlwaysOn : Qt::ScrollBarAlwaysOff);
  });
  connect(DupeGrid->selectionModel(), &QItemSelectionModel::currentChanged, this, [this] {
    Guarded([this] {
      const bool hadFocus = DupeGrid->hasFocus() || txtDupe->hasFocus();
      txtDupe->Follow();
      if (hadFocus && txtDupe->isVisible()) txtDupe->setFocus();
      UpdateZoomHighlights();
    });
  });
  connect(txtDupe, &CellCarrier::Activated, this, [this] { Guarded([this] { CopyCurrentDupeValue(); }); });
  connect(txtPrimary, &CellCarrier::Activated, this,
          [this] { Guarded([this] { OnPrimaryActivated(PrimaryGrid->currentIndex()); }); });
  connect(cmbVerified, QOverload<int>::of(&QComboBox::activated), this, [this] {
    Guarded([this] {
      CommitEditor();
      PrimaryGrid->setFocus();
    });
  });
  // Tab follows the screen: navigation, the dupe tools, the grids, the buttons below.
  QWidget* order[] = {cmdPrevSet, cmdNextSet, cmdSend, cmdDelete, PrimaryGrid, DupeGrid,
                      cmdUndo,    cmdRedo,    cmdMagnifier, cmdHelp, cmdOK, cmdCancel};
  for (size_t i = 0; i + 1 < std::size(order); ++i) setTabOrder(order[i], order[i + 1]);
  setMinimumSize(TwipsToPixels(10800), TwipsToPixels(6300));
  txtEdit->installEventFilter(this);
  cmbVerified->installEventFilter(this);
  qApp->installEventFilter(this);
  auto* helpKey = new QShortcut(QKeySequence::HelpContents, this);
  connect(helpKey, &QShortcut::activated, this, [this] { Guarded([this] { ShowHelp(helpContext_); }); });
  SetZoomWindows(false);
  UpdateNavigationButtons();
}

frmReview::~frmReview() {
  qApp->removeEventFilter(this);
  for (auto& [key, form] : zoomForms_)
    if (form) delete form.data();
}

template <class Body>
void frmReview::Button(Body&& body) {
  if (busy_) return;
  BusyFlag busy(busy_);
  Guarded([&] {
    DisarmMagnifier();
    EndEdits();
    body();
  });
}

void frmReview::SetShowNavigation(bool show) {
  showNavigation_ = show;
  for (QWidget* w : {static_cast<QWidget*>(cmdPrevSet), static_cast<QWidget*>(cmdNextSet),
                     static_cast<QWidget*>(lblSetCount), static_cast<QWidget*>(lblNumDupes)})
    w->setVisible(show);
}

void frmReview::SetZoomWindows(bool zoom) {
  zoomWindows_ = zoom;
  UpdateNavigationButtons();
}

void frmReview::SetDupeHeaders(std::vector<std::string> headers) { dupeModel_->SetHeaders(std::move(headers)); }

void frmReview::SetMergeTexts(const std::string& primaryHeader, const std::string& hint) {
  primaryModel_->SetPrimaryHeader(primaryHeader);
  SetText(lblStatus, " " + Q(hint));
}

void frmReview::SetCaption(const std::string& caption) { setWindowTitle(Q(title_ + caption)); }

void frmReview::SetDupes(std::shared_ptr<CList> dupeSets, int32_t startIndex) {
  session_.SetDupes(std::move(dupeSets), startIndex);
  RefreshDisplay();
  ResizeToGrid();
}

void frmReview::RefreshDisplay() {
  SetShowNavigation(showNavigation_);
  const int32_t n = session_.NumSets();
  const int32_t dupes = session_.NumDupes();
  SetText(lblSetCount, Res(396, {"%1", std::to_string(session_.CurrentSetIndex()), "%2", std::to_string(n)}));
  SetText(lblNumDupes, dupes == 0 ? Res(391) : dupes == 1 ? Res(392) : Res(393, {"%1", std::to_string(dupes)}));

  setUpdatesEnabled(false);
  txtDupe->hide();
  txtPrimary->hide();
  if (session_.CurrentSetIndex() != shownSet_) {
    // Another set: its zoom windows go, and its images are asked for anew.
    shownSet_ = session_.CurrentSetIndex();
    std::vector<QPointer<frmZoom>> open;
    for (auto& [key, form] : zoomForms_) open.push_back(form);
    for (auto& form : open)
      if (form) form->close();
    zoomForms_.clear();
    images_.ForgetHandles();
  }
  const int keepRow = std::max(PrimaryGrid->currentIndex().row(), DupeGrid->currentIndex().row());
  const int keepColumn = DupeGrid->currentIndex().column();
  primaryModel_->Refresh();
  dupeModel_->Refresh();
  if (session_.CurrentSet()) {
    DupeGrid->setVisible(dupes > 0);
    picNoDupes->setVisible(dupes == 0);
    FitRows();
    const int row = std::clamp(keepRow, 0, std::max(0, primaryModel_->rowCount() - 1));
    if (dupes > 0) DupeGrid->setCurrentIndex(dupeModel_->index(row, std::clamp(keepColumn, 0, dupes - 1)));
  }
  UpdateNavigationButtons();
  setUpdatesEnabled(true);
}

void frmReview::FitRows() {
  const QFontMetrics metrics(PrimaryGrid->font());
  const int line = metrics.lineSpacing();
  const int valueWidth = TwipsToPixels(kValueColumnTwips);
  const int dupeWidth = TwipsToPixels(kDupeColumnTwips);
  int labelWidth = metrics.horizontalAdvance(Res(395));
  for (int row = 0; row < primaryModel_->rowCount(); ++row)
    labelWidth = std::max(labelWidth, metrics.horizontalAdvance(primaryModel_->index(row, 0).data().toString()));
  PrimaryGrid->setColumnWidth(0, labelWidth + metrics.averageCharWidth() * 3);
  PrimaryGrid->setColumnWidth(1, valueWidth);
  // The dupes share the grid's width, each at least a column's width.
  DupeGrid->horizontalHeader()->setMinimumSectionSize(dupeWidth);
  DupeGrid->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);

  // A row is as tall as its longest value needs, up to a few lines (the
  // carrier over the current cell shows the rest); the image rows hold the
  // pictures.
  auto linesOf = [&](const QString& text, int width) {
    if (text.isEmpty()) return 1;
    const QRect r = metrics.boundingRect(QRect(0, 0, width - 8, 100000), Qt::TextWordWrap, text);
    return std::max(1, (r.height() + line - 1) / line);
  };
  for (int row = 0; row < primaryModel_->rowCount(); ++row) {
    int height = line + 8;
    if (primaryModel_->IsImageRow(row)) {
      bool any = primaryModel_->index(row, 1).data(kImageHandleRole).toInt() != 0;
      for (int column = 0; column < dupeModel_->columnCount() && !any; ++column)
        any = dupeModel_->index(row, column).data(kImageHandleRole).toInt() != 0;
      if (any) height = TwipsToPixels(kImageRowTwips);
    } else {
      int lines = linesOf(primaryModel_->index(row, 1).data().toString(), valueWidth);
      for (int column = 0; column < dupeModel_->columnCount(); ++column)
        lines = std::max(lines, linesOf(dupeModel_->index(row, column).data().toString(), dupeWidth));
      height = std::min(lines, kMaxLinesShown) * line + 8;
    }
    PrimaryGrid->verticalHeader()->resizeSection(row, height);
    DupeGrid->verticalHeader()->resizeSection(row, height);
  }
  const int frame = 2 * PrimaryGrid->frameWidth();
  PrimaryGrid->setFixedWidth(PrimaryGrid->columnWidth(0) + PrimaryGrid->columnWidth(1) + frame);
}

void frmReview::ResizeToGrid() {
  const int frame = 2 * DupeGrid->frameWidth();
  int gridsWidth = PrimaryGrid->width();
  const int dupes = std::max(1, dupeModel_->columnCount());
  gridsWidth += dupes * TwipsToPixels(kDupeColumnTwips) + frame + DupeGrid->verticalScrollBar()->sizeHint().width();
  int rowsHeight = PrimaryGrid->horizontalHeader()->sizeHint().height() + frame;
  for (int row = 0; row < primaryModel_->rowCount(); ++row) rowsHeight += PrimaryGrid->rowHeight(row);
  const QMargins m = layout()->contentsMargins();
  const int chrome = lblSetCount->sizeHint().height() + cmdSend->sizeHint().height() + cmdOK->sizeHint().height() +
                     lblStatus->sizeHint().height() * 3 + 6 * layout()->spacing() + m.top() + m.bottom();
  QScreen* screen = this->screen() ? this->screen() : QGuiApplication::primaryScreen();
  const QRect area = screen ? screen->availableGeometry() : QRect(0, 0, 1280, 900);
  const int width = std::min(gridsWidth + m.left() + m.right() + layout()->spacing(), area.width() * 9 / 10);
  // Tall cards scroll: the window stays of a size that fits a laptop screen.
  const int height = std::min({rowsHeight + chrome, area.height() * 9 / 10, TwipsToPixels(kMaxHeightTwips)});
  resize(std::max(width, minimumSizeHint().width()), std::max(height, minimumSizeHint().height()));
  CenterOverWindow(this, parentWidget() ? NativeWindowId(parentWidget()->window()) : HostWindow());
}

void frmReview::UpdateNavigationButtons() {
  const int32_t index = session_.CurrentSetIndex();
  cmdPrevSet->setEnabled(index >= 2);
  cmdNextSet->setEnabled(index < session_.NumSets());
  cmdUndo->setEnabled(session_.CanUndo());
  cmdRedo->setEnabled(session_.CanRedo());
  const bool dupes = session_.NumDupes() > 0;
  cmdSend->setEnabled(dupes);
  cmdDelete->setEnabled(dupes);
  cmdMagnifier->setEnabled(!magnifierArmed_ && zoomWindows_ && session_.CurrentSet() != nullptr);
  cmdMagnifier->setVisible(zoomWindows_);
  lblMagnifierToolTip->setVisible(zoomWindows_);
}

int32_t frmReview::PrimaryRowOf(const std::string& name) const { return primaryModel_->RowOf(name); }

void frmReview::RedrawPrimaryRow(int32_t row) {
  primaryModel_->RefreshRow(row);
  dupeModel_->RefreshRow(row);
  txtPrimary->hide();
}

void frmReview::RemoveZoomForm(const std::string& key) { zoomForms_.erase(key); }

void frmReview::MoveSmoothly(QWidget* control, int targetLeft) {
  const int step = TwipsToPixels(kSlideStepTwips);
  while (control->x() > targetLeft) {
    control->move(std::max(targetLeft, control->x() - step), control->y());
    QApplication::processEvents();
    QThread::msleep(kSlidePauseMs);
  }
}

void frmReview::EndEdits() {
  if (txtEdit->isVisible() || cmbVerified->isVisible()) {
    CommitEditor();
    cmdOK->setFocus();
  }
  txtPrimary->hide();
  txtDupe->hide();
}

void frmReview::DisarmMagnifier() {
  if (!magnifierArmed_) return;
  magnifierArmed_ = false;
  DupeGrid->viewport()->setCursor(ArrowPointer(false));
  PrimaryGrid->viewport()->unsetCursor();
  UpdateNavigationButtons();
}

void frmReview::OnMagnifier() {
  if (busy_) return;
  magnifierArmed_ = true;
  DupeGrid->viewport()->setCursor(MagnifierPointer());
  PrimaryGrid->viewport()->setCursor(MagnifierPointer());
  UpdateNavigationButtons();
}

bool frmReview::LeaveSetCheck() {
  if (!session_.LeaveSetQuestionNeeded()) return true;
  int answer = rememberedLeaveAnswer_;
  if (answer == 0) {
    bool dontAsk = false;
    answer = GetPrompt().AskDeleteDupes(GetResString(session_.LeaveSetQuestion()), dontAsk);
    if (dontAsk && answer != msgbox::kAnswerCancel) rememberedLeaveAnswer_ = answer;
  }
  if (answer == msgbox::kAnswerCancel) return false;
  if (answer == msgbox::kAnswerYes) session_.DeleteRemainingDupes();
  return true;
}

void frmReview::OnMoveSet(int delta) {
  const int32_t target = session_.CurrentSetIndex() + delta;
  if (target < 1 || target > session_.NumSets()) return;
  if (!LeaveSetCheck()) return;
  session_.SetCurrentSetIndex(target);
  RefreshDisplay();
}

void frmReview::OnOK() {
  if (askOnOK_ && !LeaveSetCheck()) return;
  if (cmdUndo->isEnabled()) {
    BusyPointer pointer;
    setEnabled(false);
    const auto enable = qScopeGuard([this] { setEnabled(true); });
    auto actions = std::make_unique<frmDatabaseActions>(this);
    actions->SaveChanges(*session_.DupeSets());
    saved_ = true;
  }
  done(Accepted);
}

void frmReview::OnCancel() {
  int answer = msgbox::kAnswerYes;
  if (cmdUndo->isEnabled())
    answer = GetPrompt().MessageBox(GetResString(372),
                                    msgbox::kYesNo | msgbox::kExclamation | msgbox::kDefaultButton2, AppName());
  if (answer != msgbox::kAnswerYes) return;
  session_.RestoreBackup();
  ReviewCancelled() = true;
  done(Rejected);
}

void frmReview::OnHelp() {
  if (ControlHeld()) {
    GetPrompt().MessageBox(GetResString(206) + " " + kVersion, msgbox::kOkOnly, "Software version");
    SetControlKey(false);
    return;
  }
  ShowHelp(helpContext_);
}

int32_t frmReview::SelectedDupe() const {
  if (session_.NumDupes() == 0) return 0;
  const QModelIndex current = DupeGrid->currentIndex();
  return current.isValid() ? current.column() + 1 : 1;
}

void frmReview::OnSend() {
  const int32_t column = SelectedDupe();
  if (column == 0) return;
  // The dupe's column slides over into the primary's place.
  const int x = DupeGrid->columnViewportPosition(column - 1);
  const QRect shot(x, 0, DupeGrid->columnWidth(column - 1), DupeGrid->viewport()->height());
  picSlide->setPixmap(DupeGrid->viewport()->grab(shot));
  picSlide->setGeometry(QRect(DupeGrid->viewport()->mapTo(this, shot.topLeft()), shot.size()));
  picSlide->show();
  picSlide->raise();
  const int target = PrimaryGrid->viewport()->mapTo(this, QPoint(PrimaryGrid->columnViewportPosition(1), 0)).x();
  const auto hideSlide = qScopeGuard([this] { picSlide->hide(); });
  MoveSmoothly(picSlide, target);
  session_.ReplacePrimary(column, primaryModel_->RowOf(kBackImageRow) >= 0);
}

void frmReview::OnDelete() {
  const int32_t column = SelectedDupe();
  if (column != 0) session_.DeleteDupe(column);
}

void frmReview::OnPrimaryActivated(const QModelIndex& index) {
  if (!index.isValid() || busy_) return;
  if (primaryModel_->IsImageRow(index.row())) {
    if (zoomWindows_ && (magnifierArmed_ || index.data(kImageHandleRole).toInt() != 0)) {
      auto primary = session_.Primary();
      const int32_t kind = primaryModel_->ImageKindAt(index.row());
      if (primary) ShowZoom(ReviewGridModel::ImageCardId(*primary, kind), kind);
      DisarmMagnifier();
    }
    return;
  }
  StartEdit(index.row());
}

void frmReview::OnDupeActivated(const QModelIndex& index, bool byClick) {
  if (!index.isValid() || busy_) return;
  if (!dupeModel_->IsImageRow(index.row())) {
    if (!byClick) CopyCurrentDupeValue();
    return;
  }
  const int32_t kind = dupeModel_->ImageKindAt(index.row());
  if (magnifierArmed_) {
    ShowZoom(ReviewGridModel::ImageCardId(*session_.DupeAt(index.column() + 1), kind), kind);
    DisarmMagnifier();
    return;
  }
  session_.TakeImage(index.column() + 1, kind);
}

void frmReview::CopyCurrentDupeValue() {
  const QModelIndex index = DupeGrid->currentIndex();
  if (!index.isValid() || busy_ || dupeModel_->IsImageRow(index.row())) return;
  const std::string name = primaryModel_->Rows()[static_cast<size_t>(index.row())];
  session_.CopyFromDupe(name, index.column() + 1, ControlHeld());
  cmdOK->setFocus();
}

void frmReview::PlaceEditor(QWidget* editor, int row) {
  const QRect cell = PrimaryGrid->visualRect(primaryModel_->index(row, 1));
  // The text's lines and one more to type into, within reason.
  const int lines = editor == txtEdit ? std::min(static_cast<int>(txtEdit->toPlainText().count(QChar(10))) + 2, kMaxLinesShown + 2) : 1;
  const int height = std::max(cell.height(), fontMetrics().lineSpacing() * lines + 10);
  editor->setGeometry(cell.x(), cell.y(), cell.width(),
                      editor == txtEdit ? height : std::max(height, editor->sizeHint().height()));
  editor->show();
  editor->raise();
  editor->setFocus();
}

void frmReview::StartEdit(int row) {
  auto primary = session_.Primary();
  if (!primary || row < 0 || primaryModel_->IsImageRow(row)) return;
  const std::string name = primaryModel_->Rows()[static_cast<size_t>(row)];
  auto field = primary->GetField(name);
  if (field->IsReadOnly()) {
    GetPrompt().MessageBox(GetResString(371), msgbox::kOkOnly, AppName());
    return;
  }
  editRow_ = row;
  editCellText_ = CReviewSession::DisplayText(*field);
  txtPrimary->hide();
  if (name == "Verified") {
    cmbVerified->setCurrentIndex(field->Text() == "No" ? 1 : 0);
    PlaceEditor(cmbVerified, row);
    return;
  }
  if (name == "Categories") {
    frmCategories picker(this);
    picker.SetCategories(CardStoreMgr() ? CardStoreMgr()->GetCategories() : std::string());
    picker.CheckCategories(field->Text());
    picker.exec();
    session_.CommitEdit(name, editCellText_, picker.GetCheckedCategories());
    return;
  }
  txtEdit->setAccessibleName(Q(CReviewSession::RowLabel(name)));
  txtEdit->setPlainText(Q(editCellText_));
  txtEdit->selectAll();
  PlaceEditor(txtEdit, row);
}

void frmReview::CommitEditor() {
  if (committing_) return;
  BusyFlag committing(committing_);
  if (editRow_ < 0 || static_cast<size_t>(editRow_) >= primaryModel_->Rows().size()) {
    txtEdit->hide();
    cmbVerified->hide();
    return;
  }
  const std::string name = primaryModel_->Rows()[static_cast<size_t>(editRow_)];
  if (txtEdit->isVisible()) {
    const std::string text = Stored(txtEdit->toPlainText());
    txtEdit->hide();
    session_.CommitEdit(name, editCellText_, text);
  } else if (cmbVerified->isVisible()) {
    const bool yes = cmbVerified->currentIndex() == 0;
    cmbVerified->hide();
    session_.CommitVerified(editCellText_, yes);
  }
  editRow_ = -1;
}

void frmReview::CancelEditor() {
  txtEdit->hide();
  cmbVerified->hide();
  editRow_ = -1;
  PrimaryGrid->setFocus();
}

void frmReview::ShowZoom(int32_t cardId, int32_t imageKind) {
  const std::string key = std::to_string(cardId) + (imageKind == kFrontImageKind ? ":front" : ":back");
  const QImage picture = images_.Image(images_.Handle(cardId, imageKind));
  QPointer<frmZoom>& form = zoomForms_[key];
  if (!form) {
    form = new frmZoom(this);
    form->SetKey(key, [this](const std::string& closed) { RemoveZoomForm(closed); });
    const int open = static_cast<int>(zoomForms_.size()) - 1;
    const QPoint beside = frameGeometry().topRight() + QPoint(-form->width() / 2 + 24 * open, 40 + 24 * open);
    form->move(beside);
  }
  QString who;
  auto set = session_.CurrentSet();
  std::shared_ptr<CCard> card;
  if (set) {
    if (set->PrimaryCard() && set->PrimaryCard()->GetCardID() == cardId) card = set->GetPrimaryCard();
    for (int32_t i = 1; !card && i <= set->GetDupes().GetNumItems(); ++i)
      if (set->GetDupes().GetItemAs<CCard>(i)->GetCardID() == cardId) card = set->GetDupes().GetItemAs<CCard>(i);
  }
  if (card) who = Q(card->FieldText("Name"));
  form->setWindowTitle(Q(AppName()) + " - " + (who.isEmpty() ? QString() : who + " - ") +
                       Res(imageKind == kFrontImageKind ? 357 : 358));
  form->SetPicture(picture);
  form->ResizePicture();
  form->show();
  form->raise();
  UpdateZoomHighlights();
}

void frmReview::UpdateZoomHighlights() {
  if (zoomForms_.empty()) return;
  auto set = session_.CurrentSet();
  if (!set) return;
  const QModelIndex current =
      DupeGrid->hasFocus() || txtDupe->hasFocus() ? DupeGrid->currentIndex() : PrimaryGrid->currentIndex();
  const int row = current.isValid() ? current.row() : DupeGrid->currentIndex().row();
  const auto& rows = primaryModel_->Rows();
  for (auto& [key, form] : zoomForms_) {
    if (!form) continue;
    QRect highlight;
    const size_t colon = key.find(':');
    const int32_t cardId = std::stoi(key.substr(0, colon));
    // The rectangles lie on the front of the card they belong to.
    if (key.substr(colon + 1) == "front" && row >= 0 && static_cast<size_t>(row) < rows.size() &&
        !primaryModel_->IsImageRow(row)) {
      std::shared_ptr<CCard> card;
      if (set->PrimaryCard() && set->PrimaryCard()->GetCardID() == cardId) card = set->GetPrimaryCard();
      for (int32_t i = 1; !card && i <= set->GetDupes().GetNumItems(); ++i)
        if (set->GetDupes().GetItemAs<CCard>(i)->GetCardID() == cardId) card = set->GetDupes().GetItemAs<CCard>(i);
      if (card && card->IsStandardFieldName(rows[static_cast<size_t>(row)])) {
        const CRectangle r = card->FieldNamed(rows[static_cast<size_t>(row)]).GetRect();
        highlight = QRect(r.GetLeft(), r.GetTop(), r.GetWidth(), r.GetHeight());
      }
    }
    form->SetHighlight(highlight);
  }
}

void frmReview::SetControlKey(bool down) {
  controlKey_ = down;
  txtDupe->setCursor(ArrowPointer(down));
  if (!magnifierArmed_) DupeGrid->viewport()->setCursor(ArrowPointer(down));
}

bool frmReview::ControlHeld() const {
  return controlKey_ || (QGuiApplication::keyboardModifiers() & Qt::ControlModifier);
}

bool frmReview::eventFilter(QObject* watched, QEvent* event) {
  auto* widget = qobject_cast<QWidget*>(watched);
  if (!widget || widget->window() != this) return QDialog::eventFilter(watched, event);
  if (event->type() == QEvent::FocusOut && (watched == txtEdit || watched == cmbVerified)) {
    const auto reason = static_cast<QFocusEvent*>(event)->reason();
    // A commit on leaving the cell; not when the window itself loses the focus.
    if (reason != Qt::ActiveWindowFocusReason && reason != Qt::PopupFocusReason)
      Guarded([this] { CommitEditor(); });
    return false;
  }
  if (event->type() != QEvent::KeyPress && event->type() != QEvent::KeyRelease) return false;
  auto* key = static_cast<QKeyEvent*>(event);
  if (key->key() == Qt::Key_Control) {
    if (!key->isAutoRepeat()) SetControlKey(event->type() == QEvent::KeyPress);
    return false;
  }
  if (event->type() != QEvent::KeyPress) return false;
  const bool ctrl = key->modifiers() & Qt::ControlModifier;
  if (ctrl && key->key() == Qt::Key_Z) {
    if (cmdUndo->isEnabled()) cmdUndo->click();
    return true;
  }
  if (ctrl && key->key() == Qt::Key_Y) {
    if (cmdRedo->isEnabled()) cmdRedo->click();
    return true;
  }
  if (key->key() == Qt::Key_Escape) {
    if (txtEdit->isVisible() || cmbVerified->isVisible()) CancelEditor();
    else cmdCancel->click();
    return true;
  }
  if (key->key() != Qt::Key_Return && key->key() != Qt::Key_Enter) return false;
  if (watched == txtEdit) {
    if (key->modifiers() & Qt::ShiftModifier) return false;  // a line break in the value
    PrimaryGrid->setFocus();  // leaving the editor commits it
    return true;
  }
  if (watched == cmbVerified || cmbVerified->isAncestorOf(widget)) {
    Guarded([this] { CommitEditor(); });
    PrimaryGrid->setFocus();
    return true;
  }
  if (watched == txtDupe || watched == txtPrimary) return false;
  if (watched == PrimaryGrid) {
    Guarded([this] { OnPrimaryActivated(PrimaryGrid->currentIndex()); });
    return true;
  }
  if (watched == DupeGrid) {
    Guarded([this] { OnDupeActivated(DupeGrid->currentIndex(), false); });
    return true;
  }
  if (qobject_cast<QPushButton*>(widget)) return false;  // Enter presses the button that has the focus
  cmdOK->click();
  return true;
}

void frmReview::closeEvent(QCloseEvent* event) {
  if (!event->spontaneous()) {
    QDialog::closeEvent(event);
    return;
  }
  // The close box is Cancel.
  event->ignore();
  cmdCancel->click();
}

void frmReview::reject() {
  if (txtEdit->isVisible() || cmbVerified->isVisible()) CancelEditor();
  else cmdCancel->click();
}

void frmReview::resizeEvent(QResizeEvent* event) {
  QDialog::resizeEvent(event);
  txtDupe->Follow();
  if (!txtDupe->hasFocus()) txtDupe->hide();
}

}  // namespace ombrel::ui
