// The wizard: five steps (welcome, exact, compatible and conflicting
// duplicates, summary), each with its list of dupe sets, an automatic action
// where one is safe, and the review of the sets. The decisions are
// CWizardFlow's; this window shows them and runs the search and the actions.
#pragma once

#include <QDialog>
#include <QFrame>
#include <QLabel>
#include <QPushButton>
#include <QTableView>
#include <memory>

#include "ombrel/foundation/clist.h"
#include "wizard/wizard_flow.h"

namespace ombrel {
class CCard;
}

namespace ombrel::ui {

class DupeSetListModel;
class SideBarView;

class frmWizard final : public QDialog {
  Q_OBJECT
 public:
  explicit frmWizard(QWidget* parent = nullptr);
  ~frmWizard() override;

  // For the other windows of the component.
  bool ReferencesExist(const CCard& card) const { return flow_.ReferencesExist(card); }
  void RefreshDisplay();
  void CompactDupes();
  int32_t GetStep() const { return flow_.Step(); }
  const CWizardFlow& Flow() const { return flow_; }

  // Unloads the component: at once, or once the event being handled is over
  // when called from one of this window's events (insideOwnEvent), or, while
  // a handler of this window runs (a search, an action), as soon as it ends.
  void RequestUnload(bool insideOwnEvent);

  QLabel* lblStep;
  QLabel* lblTitle;
  QLabel* lblSubTitle;
  QLabel* lblDesc;
  QLabel* lblListTitle;
  QTableView* lstDupes;
  QLabel* lblAutoAction;
  QPushButton* cmdAutoAction;
  QLabel* lblReview;
  QPushButton* cmdReview;
  QLabel* lblClickNext;
  QPushButton* cmdBack;
  QPushButton* cmdNext;
  QPushButton* cmdClose;
  SideBarView* picSideBar;
  QFrame* FrameCover;

 protected:
  void closeEvent(QCloseEvent* event) override;
  void reject() override;
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  // Runs an event's handler: errors are reported, and a close asked for
  // meanwhile is carried out afterwards.
  template <class Body>
  void Handle(Body&& body);
  void OnNext();
  void OnBack();
  void OnClose();
  void OnAutoAction();
  // Opens the review at set startIndex (1-based) of the current list.
  void OpenReview(int32_t startIndex);
  // Shows step, searching first for the lists it needs; stays where it is
  // when the search is cancelled.
  void MoveTo(int32_t step);
  void FitColumns();
  void SetBusy(bool busy);

  CWizardFlow flow_;
  DupeSetListModel* model_;
  bool busy_ = false;
  bool unloadPending_ = false;
};

// The unload of the component: disconnects the card store manager, unloads
// every window newest first, re-enables and raises the host's window and
// releases the interface texts. Every error on the way is ignored.
void UnloadComponent();

}  // namespace ombrel::ui
