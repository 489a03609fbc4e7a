// The review screen: one dupe set at a time, its primary card in one grid
// and its dupes beside it in another. The user edits the primary's values,
// copies or appends a dupe's values, takes a dupe's card images, makes a
// dupe the primary, deletes dupes, and undoes and redoes all of it; OK saves
// the changed sets through the database actions, Cancel restores the sets as
// they were handed in. CReviewSession holds the decisions; this window draws
// them and turns the user's clicks and keys into them.
#pragma once

#include <QComboBox>
#include <QDialog>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QTableView>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ombrel/foundation/clist.h"
#include "review/card_images.h"
#include "review/review_session.h"

namespace ombrel::ui {

class ReviewGridModel;
class frmZoom;

// A read-only box over a grid's current cell that shows its whole value and
// takes the keys meant for it (Enter acts on the value; the arrows and Tab
// go on to the grid).
class CellCarrier final : public QLabel {
  Q_OBJECT
 public:
  CellCarrier(QTableView* grid, QWidget* parent);
  // Places the carrier over the grid's current cell, or hides it.
  void Follow();

 Q_SIGNALS:
  void Activated();

 protected:
  void keyPressEvent(QKeyEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* event) override;

 private:
  QTableView* grid_;
};

class frmReview final : public QDialog, private IReviewDisplay {
  Q_OBJECT
 public:
  explicit frmReview(QWidget* owner = nullptr);
  ~frmReview() override;

  // Sizes the window to the grids' content, within the screen.
  void ResizeToGrid();
  // The caller's list (edits change its sets) and the set to start at.
  void SetDupes(std::shared_ptr<CList> dupeSets, int32_t startIndex);
  void RefreshDisplay() override;
  void RemoveZoomForm(const std::string& key);
  // Slides control to the left, 1000 twips a step, a tenth of a second apart.
  void MoveSmoothly(QWidget* control, int targetLeft);

  // The switches of the window: the set navigation, the leave-set check on
  // OK, and the zoom windows.
  void SetShowNavigation(bool show);
  void SetAskOnOK(bool ask) { askOnOK_ = ask; }
  void SetZoomWindows(bool zoom);
  // Merge mode: the dupe columns' headers and the texts of the primary's
  // column and of the hint line.
  void SetDupeHeaders(std::vector<std::string> headers);
  void SetMergeTexts(const std::string& primaryHeader, const std::string& hint);
  // The caption after the product's name.
  void SetCaption(const std::string& caption);
  // The help topic of F1 and the Help button.
  void SetHelpContext(int contextId) { helpContext_ = contextId; }
  void UpdateNavigationButtons() override;

  const CReviewSession& Session() const { return session_; }
  // Whether the set's changes were written (OK with changes).
  bool Saved() const { return saved_; }

  // Set when the user left with Cancel (and confirmed); cleared when a review loads.
  static bool& ReviewCancelled();

  QLabel* lblSetCount;
  QLabel* lblNumDupes;
  QPushButton* cmdPrevSet;
  QPushButton* cmdNextSet;
  QTableView* PrimaryGrid;
  QTableView* DupeGrid;
  QWidget* picNoDupes;
  QLabel* lblNoDupes;
  QPushButton* cmdSend;
  QPushButton* cmdDelete;
  QPushButton* cmdUndo;
  QPushButton* cmdRedo;
  QPushButton* cmdMagnifier;
  QLabel* lblUndoToolTip;
  QLabel* lblRedoToolTip;
  QLabel* lblMagnifierToolTip;
  QPushButton* cmdHelp;
  QPushButton* cmdOK;
  QPushButton* cmdCancel;
  QPlainTextEdit* txtEdit;
  QComboBox* cmbVerified;
  CellCarrier* txtPrimary;
  CellCarrier* txtDupe;
  QLabel* lblStatus;
  QLabel* picSlide;

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;
  void closeEvent(QCloseEvent* event) override;
  void reject() override;
  void resizeEvent(QResizeEvent* event) override;

 private:
  // IReviewDisplay
  int32_t PrimaryRowOf(const std::string& name) const override;
  void RedrawPrimaryRow(int32_t row) override;

  // Runs a button's handler: nothing while another runs; open edits end
  // first; errors are reported; the busy flag is cleared however it ends.
  template <class Body>
  void Button(Body&& body);
  void EndEdits();
  void DisarmMagnifier();
  // Asks about the duplicates left before leaving the set; false to stay.
  bool LeaveSetCheck();

  void OnMoveSet(int delta);
  void OnOK();
  void OnCancel();
  void OnHelp();
  void OnSend();
  void OnDelete();
  void OnMagnifier();
  void StartEdit(int row);
  void CommitEditor();
  void CancelEditor();
  void OnPrimaryActivated(const QModelIndex& index);
  void OnDupeActivated(const QModelIndex& index, bool byClick);
  void CopyCurrentDupeValue();
  void ShowZoom(int32_t cardId, int32_t imageKind);
  void UpdateZoomHighlights();
  // The dupe column the send and delete buttons act on (1-based), 0 for none.
  int32_t SelectedDupe() const;
  void FitRows();
  void PlaceEditor(QWidget* editor, int row);
  void SetControlKey(bool down);
  bool ControlHeld() const;

  CReviewSession session_;
  CardImages images_;
  ReviewGridModel* primaryModel_;
  ReviewGridModel* dupeModel_;
  std::map<std::string, QPointer<frmZoom>> zoomForms_;
  int32_t shownSet_ = -1;
  int editRow_ = -1;
  std::string editCellText_;
  bool busy_ = false;
  bool controlKey_ = false;
  bool showNavigation_ = true;
  bool askOnOK_ = false;
  bool zoomWindows_ = false;
  bool magnifierArmed_ = false;
  bool saved_ = false;
  bool committing_ = false;
  // The delete-dupes question's "don't ask again": the answer given then.
  int rememberedLeaveAnswer_ = 0;
  int helpContext_;
  std::string title_;
};

}  // namespace ombrel::ui
