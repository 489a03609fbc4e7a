#include "ui/frm_database_actions.h"

#include <QApplication>
#include <QCloseEvent>
#include <QHBoxLayout>
#include <QVBoxLayout>

#include "ombrel/foundation/messages.h"
#include "ui/artwork.h"
#include "ui/handlers.h"
#include "ui/help.h"

namespace ombrel::ui {

frmDatabaseActions::frmDatabaseActions(QWidget* owner) : QDialog(owner), actions_(this) {
  setObjectName("frmDatabaseActions");
  RegisterForm(this);
  setWindowTitle(QString::fromStdString(AppName()));
  setWindowIcon(AppIcon());
  setWindowFlag(Qt::WindowContextHelpButtonHint, false);
  InstallHelpKey(this, help_context::kDatabaseActions);

  lblAction = new QLabel(this);
  lblAction->setObjectName("lblAction");
  QFont bold = lblAction->font();
  bold.setBold(true);
  lblAction->setFont(bold);
  lblText = new QLabel(this);
  lblText->setObjectName("lblText");
  ProgressBar1 = new QProgressBar(this);
  ProgressBar1->setObjectName("ProgressBar1");
  ProgressBar1->setRange(0, 100);
  ProgressBar1->setAccessibleName("Progress");
  cmdStop = new QPushButton(QString::fromStdString(GetResString(action_text::kStopCaption)), this);
  cmdStop->setObjectName("cmdStop");
  cmdStop->setAccessibleName(cmdStop->text().remove('&'));

  auto* layout = new QVBoxLayout(this);
  layout->addWidget(lblAction);
  layout->addWidget(lblText);
  layout->addWidget(ProgressBar1);
  auto* row = new QHBoxLayout;
  row->addStretch(1);
  row->addWidget(cmdStop);
  layout->addLayout(row);
  setMinimumWidth(TwipsToPixels(5400));

  connect(cmdStop, &QPushButton::clicked, this, [this] { Guarded([this] { StopAction(); }); });
}

frmDatabaseActions::~frmDatabaseActions() = default;

void frmDatabaseActions::SetActionText(int32_t resourceId) {
  lblAction->setText(QString::fromStdString(GetResString(resourceId)));
  lblAction->setAccessibleName(lblAction->text());
}

void frmDatabaseActions::EnableStop(bool enabled) {
  cmdStop->setEnabled(enabled);
  cmdStop->setVisible(enabled);
}

void frmDatabaseActions::ShowWindow() {
  adjustSize();
  CenterOverWindow(this, parentWidget() ? NativeWindowId(parentWidget()->window()) : HostWindow());
  show();
  raise();
  QApplication::processEvents();
}

void frmDatabaseActions::ShowBusy() {
  if (!busy_) busy_ = std::make_unique<BusyPointer>();
}

void frmDatabaseActions::SetText(int32_t resourceId, int32_t done, int32_t total) {
  lblText->setText(QString::fromStdString(
      GetResString(resourceId, {"%1", std::to_string(done), "%2", std::to_string(total)})));
  lblText->setAccessibleName(lblText->text());
}

void frmDatabaseActions::SetProgress(int32_t percent) { ProgressBar1->setValue(percent); }

void frmDatabaseActions::ProcessEvents() { QApplication::processEvents(); }

void frmDatabaseActions::Finished() { busy_.reset(); }

void frmDatabaseActions::closeEvent(QCloseEvent* event) {
  // The user's close box is refused; the program closes the window itself.
  if (event->spontaneous()) event->ignore();
  else QDialog::closeEvent(event);
}

}  // namespace ombrel::ui
