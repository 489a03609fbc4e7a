// The duplicate search's progress window. It stays hidden while the search
// is quick and appears, owned by the host's window, once the search is slow
// (after more than a second with less than 80% done, or after three
// seconds). Cancel, Esc and the close box stop the search.
#pragma once

#include <QDialog>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>

#include "wizard/search_job.h"

namespace ombrel::ui {

class frmDupeFinder final : public QDialog {
  Q_OBJECT
 public:
  // owner: the window to stay in front of when the host gave none.
  explicit frmDupeFinder(QWidget* owner = nullptr);

  // Keeps the windows live while job runs and returns when it has finished
  // or the user has stopped it, showing its progress by the rule above.
  void RunToEnd(CSearchJob& job);
  // Stops the search for good and hides the window.
  void StopSearch();
  bool IsStopped() const { return stopped_; }
  // Shows one progress report (public so the wiring can be checked).
  void ShowProgress(const CSearchJob::Progress& progress, int64_t elapsedSeconds);

  QLabel* lblAction;
  QLabel* lblText;
  QProgressBar* ProgressBar1;
  QPushButton* cmdCancel;

 protected:
  void closeEvent(QCloseEvent* event) override;
  void reject() override;

 private:
  CSearchJob* job_ = nullptr;
  bool stopped_ = false;
  bool shown_ = false;
};

}  // namespace ombrel::ui
