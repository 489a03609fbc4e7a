#include "ui/frm_database_actions.h"

#include <QApplication>
#include <QCloseEvent>

#include "ombrel/foundation/messages.h"
#include "ui/artwork.h"
#include "ui/handlers.h"
#include "ui/help.h"
#include "ui/progress_layout.h"

namespace ombrel::ui {

frmDatabaseActions::frmDatabaseActions(QWidget* owner) : QDialog(owner), actions_(this) {
  setObjectName("frmDatabaseActions");
  RegisterForm(this);
  setWindowTitle(QString::fromStdString(AppName()));
  setWindowIcon(AppIcon());
  setWindowFlag(Qt::WindowContextHelpButtonHint, false);
  InstallHelpKey(this, help_context::kDatabaseActions);

  const ProgressControls c = MakeProgressControls(this, "cmdStop", action_text::kStopCaption, 100);
  lblAction = c.lblAction;
  lblText = c.lblText;
  ProgressBar1 = c.ProgressBar1;
  cmdStop = c.stop;

  connect(cmdStop, &QPushButton::clicked, this, [this] { Guarded([this] { StopAction(); }); });
}

frmDatabaseActions::~frmDatabaseActions() = default;

void frmDatabaseActions::SetActionText(int32_t resourceId) { SetLabelText(lblAction, GetResString(resourceId)); }

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
  SetLabelText(lblText, GetResString(resourceId, {"%1", std::to_string(done), "%2", std::to_string(total)}));
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
