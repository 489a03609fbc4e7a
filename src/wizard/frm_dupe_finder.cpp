#include "wizard/frm_dupe_finder.h"

#include <QCloseEvent>
#include <QEventLoop>
#include <QTimer>

#include "ombrel/foundation/messages.h"
#include "ui/artwork.h"
#include "ui/forms.h"
#include "ui/handlers.h"
#include "ui/help.h"
#include "ui/progress_layout.h"

namespace ombrel::ui {

namespace {
// How often the window looks at the search: well within the 0.2 s in
// which Cancel must be answered.
constexpr int kPollMilliseconds = 50;
}  // namespace

frmDupeFinder::frmDupeFinder(QWidget* owner) : QDialog(owner) {
  setObjectName("frmDupeFinder");
  RegisterForm(this);
  setWindowTitle(QString::fromStdString(AppName()));
  setWindowIcon(AppIcon());
  InstallHelpKey(this, help_context::kSearch);

  const ProgressControls c = MakeProgressControls(this, "cmdCancel", search_text::kCancelCaption, 1000);
  lblAction = c.lblAction;
  lblText = c.lblText;
  ProgressBar1 = c.ProgressBar1;
  cmdCancel = c.stop;

  connect(cmdCancel, &QPushButton::clicked, this, [this] { Guarded([this] { StopSearch(); }); });
}

void frmDupeFinder::ShowProgress(const CSearchJob::Progress& progress, int64_t elapsedSeconds) {
  SetLabelText(lblAction, GetResString(progress.actionId));
  SetLabelText(lblText, GetResString(progress.resourceId, {"%1", std::to_string(progress.done), "%2",
                                                           std::to_string(progress.total)}));
  ProgressBar1->setValue(progress.total > 0
                             ? static_cast<int>(1000.0 * std::min(progress.done, progress.total) / progress.total)
                             : 0);
  if (!stopped_ && !shown_ && ShouldShowProgress(elapsedSeconds, progress.done, progress.total)) {
    shown_ = true;
    if (QWidget* busy = parentWidget()) busy->window()->unsetCursor();
    adjustSize();
    if (HostWindow() != 0) SetOwnerWindow(this, HostWindow());
    CenterOverWindow(this, parentWidget() ? NativeWindowId(parentWidget()->window()) : HostWindow());
    show();
  }
}

void frmDupeFinder::RunToEnd(CSearchJob& job) {
  job_ = &job;
  QEventLoop loop;
  QTimer poll;
  auto look = [&] {
    // Stopped, the search ends at its next report; the wizard need not wait for it.
    if (job.Finished() || stopped_) {
      loop.quit();
      return;
    }
    ShowProgress(job.LastProgress(), job.ElapsedSeconds());
  };
  connect(&poll, &QTimer::timeout, &loop, look);
  poll.start(kPollMilliseconds);
  if (!job.Finished() && !stopped_) loop.exec();
  job_ = nullptr;
  hide();
}

void frmDupeFinder::StopSearch() {
  stopped_ = true;
  if (job_) job_->Stop();
  hide();
}

void frmDupeFinder::closeEvent(QCloseEvent* event) {
  event->ignore();
  Guarded([this] { StopSearch(); });
}

void frmDupeFinder::reject() {
  Guarded([this] { StopSearch(); });
}

}  // namespace ombrel::ui
