#include "ui/frm_ask_delete_dupes.h"

#include <QHBoxLayout>
#include <QVBoxLayout>

#include "ombrel/foundation/messages.h"
#include "ui/artwork.h"
#include "ui/forms.h"

namespace ombrel::ui {

namespace {
// Where the question appears: this far right of and below the window it asks about.
constexpr int kOffsetTwips = 2000;

QString Res(int id) { return QString::fromStdString(GetResString(id)); }
}  // namespace

frmAskDeleteDupes::frmAskDeleteDupes(QWidget* owner) : QDialog(owner) {
  setObjectName("frmAskDeleteDupes");
  RegisterForm(this);
  setWindowTitle(QString::fromStdString(AppName()));
  setWindowIcon(AppIcon());
  setModal(true);

  Picture1 = new QLabel(this);
  Picture1->setObjectName("Picture1");
  Picture1->setPixmap(QuestionPicture(48, devicePixelRatioF()));
  Picture1->setAccessibleName(windowTitle());
  Picture1->setAlignment(Qt::AlignTop);
  Label1 = new QLabel(this);
  Label1->setObjectName("Label1");
  Label1->setWordWrap(true);
  Label1->setMinimumWidth(TwipsToPixels(4500));
  cmdYes = new QPushButton(Res(904), this);
  cmdYes->setObjectName("cmdYes");
  cmdNo = new QPushButton(Res(905), this);
  cmdNo->setObjectName("cmdNo");
  cmdCancel = new QPushButton(Res(902), this);
  cmdCancel->setObjectName("cmdCancel");
  chkDontAskAgain = new QCheckBox(Res(375), this);
  chkDontAskAgain->setObjectName("chkDontAskAgain");
  for (QAbstractButton* b : {static_cast<QAbstractButton*>(cmdYes), static_cast<QAbstractButton*>(cmdNo),
                             static_cast<QAbstractButton*>(cmdCancel), static_cast<QAbstractButton*>(chkDontAskAgain)})
    b->setAccessibleName(b->text().remove('&'));
  cmdYes->setAutoDefault(false);
  cmdNo->setAutoDefault(false);
  cmdCancel->setDefault(true);

  auto* top = new QHBoxLayout;
  top->addWidget(Picture1);
  top->addWidget(Label1, 1);
  auto* buttons = new QHBoxLayout;
  buttons->addWidget(chkDontAskAgain);
  buttons->addStretch(1);
  buttons->addWidget(cmdYes);
  buttons->addWidget(cmdNo);
  buttons->addWidget(cmdCancel);
  auto* layout = new QVBoxLayout(this);
  layout->addLayout(top);
  layout->addSpacing(8);
  layout->addLayout(buttons);

  connect(cmdYes, &QPushButton::clicked, this, [this] { Answer(true, false); });
  connect(cmdNo, &QPushButton::clicked, this, [this] { Answer(false, false); });
  connect(cmdCancel, &QPushButton::clicked, this, [this] { Answer(false, true); });
}

void frmAskDeleteDupes::SetMessage(const std::string& text) {
  Label1->setText(QString::fromStdString(text));
  Label1->setAccessibleName(Label1->text());
  adjustSize();
}

void frmAskDeleteDupes::Answer(bool yes, bool cancel) {
  answerYes_ = yes;
  answerCancel_ = cancel;
  hide();
  done(cancel ? Rejected : Accepted);
}

// Esc and the close box answer Cancel.
void frmAskDeleteDupes::reject() { Answer(false, true); }

void frmAskDeleteDupes::showEvent(QShowEvent* event) {
  QDialog::showEvent(event);
  if (QWidget* owner = parentWidget()) {
    const int offset = TwipsToPixels(kOffsetTwips);
    move(owner->window()->frameGeometry().topLeft() + QPoint(offset, offset));
  }
  cmdCancel->setFocus();
}

}  // namespace ombrel::ui
