// The window of the database actions: applies one bulk action (remove the
// duplicates, merge them, or save the edited sets) to a list of dupe sets,
// one set after another, with a running count, a bar and a Stop button. The
// work is CDatabaseActions'; this window shows it. One run per window: a new
// run takes a new window. The user cannot close it with the close box.
#pragma once

#include <QDialog>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <functional>
#include <memory>

#include "ombrel/dupes/database_actions.h"
#include "ui/forms.h"

namespace ombrel::ui {

class frmDatabaseActions final : public QDialog, public IActionProgress {
  Q_OBJECT
 public:
  explicit frmDatabaseActions(QWidget* owner = nullptr);
  ~frmDatabaseActions() override;

  void RemoveDupes(CList& dupeSets) { actions_.RemoveDupes(dupeSets); }
  void MergeDupes(CList& dupeSets) { actions_.MergeDupes(dupeSets); }
  void SaveChanges(CList& dupeSets) { actions_.SaveChanges(dupeSets); }
  void CheckDatabaseAccess() { actions_.CheckDatabaseAccess(); }
  void StopAction() { actions_.StopAction(); }
  bool StopRequested() const { return actions_.StopRequested(); }
  int32_t SetsDone() const { return actions_.SetsDone(); }
  // Called when a run ends, however it ends.
  void SetOnFinished(std::function<void()> onFinished) { actions_.SetOnFinished(std::move(onFinished)); }

  QLabel* lblAction;
  QLabel* lblText;
  QProgressBar* ProgressBar1;
  QPushButton* cmdStop;

  // IActionProgress
  void SetActionText(int32_t resourceId) override;
  void EnableStop(bool enabled) override;
  void ShowWindow() override;
  void ShowBusy() override;
  void SetText(int32_t resourceId, int32_t done, int32_t total) override;
  void SetProgress(int32_t percent) override;
  void ProcessEvents() override;
  void Finished() override;

 protected:
  void closeEvent(QCloseEvent* event) override;
  void reject() override {}

 private:
  CDatabaseActions actions_;
  std::unique_ptr<BusyPointer> busy_;
};

}  // namespace ombrel::ui
