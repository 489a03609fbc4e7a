// CDatabaseActions: the worker that writes the user's decisions to the
// store, one dupe set after another: remove every set's duplicates, merge
// them into their primaries, or save the sets edited on the review screen.
// Each set is committed on its own (CDupeSet::CommitToDatabase brackets its
// writes), so a Stop or an error leaves the earlier sets committed and the
// later ones untouched. Stop is checked before each set, never inside one.
//
// The worker owns no window: what it shows goes to an IActionProgress, which
// the database-actions window and the command line implement.
#pragma once

#include <cstdint>
#include <functional>

#include "ombrel/foundation/clist.h"

namespace ombrel {

namespace action_text {
inline constexpr int32_t kRemoving = 601;
inline constexpr int32_t kMerging = 602;
inline constexpr int32_t kSaving = 603;
inline constexpr int32_t kSavingCount = 604;    // "%1" of "%2" sets
inline constexpr int32_t kRemovingCount = 605;  // "%1" of "%2" cards
inline constexpr int32_t kStopCaption = 907;
}  // namespace action_text

class IActionProgress {
 public:
  virtual ~IActionProgress() = default;
  virtual void SetActionText(int32_t resourceId) { (void)resourceId; }
  virtual void EnableStop(bool enabled) { (void)enabled; }
  // More than one set: the progress window is shown.
  virtual void ShowWindow() {}
  // A single set: only the busy pointer, and one repaint.
  virtual void ShowBusy() {}
  virtual void SetText(int32_t resourceId, int32_t done, int32_t total) {
    (void)resourceId, (void)done, (void)total;
  }
  virtual void SetProgress(int32_t percent) { (void)percent; }
  // Lets pending events run once; a Stop click is seen here.
  virtual void ProcessEvents() {}
  // The run ended (normally, stopped or failed): the normal pointer comes back.
  virtual void Finished() {}
};

class CDatabaseActions {
 public:
  enum Action : int32_t { kRemove = 0, kMerge = 1, kSave = 2 };

  explicit CDatabaseActions(IActionProgress* progress = nullptr);

  void RemoveDupes(CList& dupeSets);
  void MergeDupes(CList& dupeSets);
  void SaveChanges(CList& dupeSets);
  // Probes that the database can be written (begin, then abort, an update);
  // raises the store's own last-error text when it cannot.
  void CheckDatabaseAccess();
  void StopAction() { stopRequested_ = true; }
  bool StopRequested() const { return stopRequested_; }

  // By default an error during the run is shown with ReportError, as a window
  // does; the command line asks for it to be raised after the run instead.
  void SetRaiseErrors(bool raise) { raiseErrors_ = raise; }
  // Called when a run ends, whichever way (the wizard drops sets that no longer hold duplicates).
  void SetOnFinished(std::function<void()> onFinished) { onFinished_ = std::move(onFinished); }

  // The bar's value for a fraction done: nearest integer percent, within 0..100.
  static int32_t ProgressValue(double fraction);

  // Sets committed by the last run (saved sets for a save).
  int32_t SetsDone() const { return setsDone_; }
  // The common worker; any other action code raises "Unknown auto action".
  void Run(int32_t action, CList& dupeSets);

 private:
  IActionProgress* progress_;
  IActionProgress nullProgress_;
  bool stopRequested_ = false;
  bool raiseErrors_ = false;
  int32_t setsDone_ = 0;
  std::function<void()> onFinished_;
};

}  // namespace ombrel
