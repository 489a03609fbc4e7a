// What the review screen decides, without its window: which dupe set it
// shows, the backup it restores on Cancel, every change the user makes to
// the live sets, each recorded for undo and redo, and the walks of the two
// stacks. The screen draws; this class changes the sets and tells the screen
// what to redraw through IReviewDisplay.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ombrel/foundation/clist.h"
#include "ombrel/foundation/object.h"

namespace ombrel {

class CCard;
class CCardField;
class CDupeSet;
class CLong;
class CUserAction;

// The grid rows of the two card images, after the fields.
inline constexpr const char* kFrontImageRow = "Front Image";
inline constexpr const char* kBackImageRow = "Back Image";
enum ImageKind : int32_t { kFrontImageKind = 1, kBackImageKind = 2 };

class IReviewDisplay {
 public:
  virtual ~IReviewDisplay() = default;
  // Rebuilds everything that shows the current set.
  virtual void RefreshDisplay() = 0;
  // The primary grid's row whose field-name cell holds name, or -1.
  virtual int32_t PrimaryRowOf(const std::string& name) const = 0;
  virtual void RedrawPrimaryRow(int32_t row) = 0;
  virtual void UpdateNavigationButtons() = 0;
};

class CReviewSession {
 public:
  explicit CReviewSession(IReviewDisplay& display);

  // Keeps the caller's list (edits change its sets in place) and a clone of
  // every set for Cancel; starts at startIndex, or at 1 when that is out of
  // range, or at 0 when there are no sets. Both stacks start empty.
  void SetDupes(std::shared_ptr<CList> dupeSets, int32_t startIndex);
  std::shared_ptr<CList> DupeSets() const { return sets_; }
  int32_t CurrentSetIndex() const { return current_; }
  int32_t NumSets() const { return sets_ ? sets_->GetNumItems() : 0; }
  std::shared_ptr<CDupeSet> CurrentSet() const;
  std::shared_ptr<CCard> Primary() const;
  int32_t NumDupes() const;
  // The dupe of a column of the dupe grid (1-based).
  std::shared_ptr<CCard> DupeAt(int32_t column) const;
  // Moves to another set (1..NumSets) without asking anything.
  void SetCurrentSetIndex(int32_t index);

  // The rows of the grids: the primary's fields in table order, then the
  // two image rows.
  std::vector<std::string> RowNames() const;

  // Undo and redo.
  const CList& UndoStack() const { return undo_; }
  const CList& RedoStack() const { return redo_; }
  bool CanUndo() const { return undo_.GetNumItems() > 0; }
  bool CanRedo() const { return redo_.GetNumItems() > 0; }
  void RecordUserAction(int32_t actionType, const ObjectRef& data);
  void UndoLastAction();
  void RedoLastAction();

  // Changes, each recorded. cellText is what the primary grid shows for the
  // field; an unchanged text records nothing (answers false).
  bool CommitEdit(const std::string& fieldName, const std::string& cellText, const std::string& newText);
  // The "Verified" row's editor: yes is the entry chosen.
  bool CommitVerified(const std::string& cellText, bool yes);
  // Takes the dupe's field of that name into the primary: whole, or with
  // append its text added (its categories merged on "Categories").
  void CopyFromDupe(const std::string& fieldName, int32_t column, bool append);
  void TakeImage(int32_t column, int32_t imageKind);
  // The primary takes over every field of the dupe and its images.
  void ReplacePrimary(int32_t column, bool hasBackImageRow);
  void DeleteDupe(int32_t column);

  // Leaving the set: whether the user should first be asked about the
  // duplicates left (the set has dupes and the last change was made in it),
  // and with which text.
  bool LeaveSetQuestionNeeded() const;
  int32_t LeaveSetQuestion() const;
  void DeleteRemainingDupes();

  // Cancel: the caller's list holds the clones taken on entry.
  void RestoreBackup();

  // The text a field shows: the stored text, or for "Verified" and
  // "Solvane Status" its localized label; raises "Cannot localize field data
  // for field: " for any other field asked to be localized.
  static std::string LocalizeValue(const std::string& fieldName, const std::string& text);
  static bool HasLocalizedValues(const std::string& fieldName);
  static std::string DisplayText(const CCardField& field);
  // The localized caption of a field's row.
  static std::string RowLabel(const std::string& fieldName);

 private:
  // The image ID a record keeps: a clone of the override, or the card's own ID.
  static std::shared_ptr<CLong> ImageIdOf(const CCard& card, int32_t imageKind);
  static void PutImageId(CCard& card, int32_t imageKind, const std::shared_ptr<CLong>& id);
  void Replay(CList& from, CList& to, bool undo);
  // Moves to the record's set when it is not the one shown.
  void ShowSetOf(const CUserAction& action);
  // The inverse of a record of type 1, 3, 4 or 5, after putting its state
  // back; a deletion's record moves between the stacks itself.
  std::shared_ptr<CUserAction> Restore(const CUserAction& action);
  void RedrawField(const CCardField& field);
  std::shared_ptr<CCardField> PrimaryField(const std::string& name) const;

  IReviewDisplay& display_;
  std::shared_ptr<CList> sets_;
  CList backup_;
  int32_t current_ = 0;
  CList undo_;
  CList redo_;
};

}  // namespace ombrel
