#include "ombrel/dupes/database_actions.h"

#include <exception>

#include "dupes/dupes_internal.h"
#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/foundation/error.h"
#include "ombrel/foundation/messages.h"

namespace ombrel {

CDatabaseActions::CDatabaseActions(IActionProgress* progress) : progress_(progress ? progress : &nullProgress_) {}

int32_t CDatabaseActions::ProgressValue(double fraction) {
  return MinOf<int32_t>(MaxOf<int32_t>(RoundHalfEven(fraction * 100), 0), 100);
}

void CDatabaseActions::RemoveDupes(CList& dupeSets) {
  progress_->SetActionText(action_text::kRemoving);
  Run(kRemove, dupeSets);
}

void CDatabaseActions::MergeDupes(CList& dupeSets) {
  progress_->SetActionText(action_text::kMerging);
  Run(kMerge, dupeSets);
}

void CDatabaseActions::SaveChanges(CList& dupeSets) {
  progress_->SetActionText(action_text::kSaving);
  progress_->EnableStop(false);
  Run(kSave, dupeSets);
}

void CDatabaseActions::CheckDatabaseAccess() {
  CCardStoreMgr& mgr = dupes_internal::Mgr();
  try {
    mgr.BeginUpdate();
    mgr.AbortUpdate();
  } catch (const Error&) {
    RaiseTrap(mgr.GetLastError());
  }
}

void CDatabaseActions::Run(int32_t action, CList& dupeSets) {
  Trap(action != kRemove && action != kMerge && action != kSave, "Unknown auto action");
  setsDone_ = 0;
  CheckDatabaseAccess();

  const int32_t numSets = dupeSets.GetNumItems();
  int32_t count = 0;
  if (action == kSave) {
    for (int32_t i = 1; i <= numSets; ++i) count += dupeSets.GetItemAs<CDupeSet>(i)->DupeSetNeedsSaving() ? 1 : 0;
  } else {
    count = numSets;
  }
  if (count == 0) return;

  std::exception_ptr failure;
  try {
    if (count == 1) {
      progress_->ShowBusy();
      progress_->ProcessEvents();
    } else {
      progress_->ShowWindow();
    }
    // The counter shows the work about to be done: it starts at 1 and moves
    // after each set, by cards for remove and merge, by sets for a save.
    int32_t done = 1;
    const int32_t total = action == kSave ? count : CountDuplicateCards(dupeSets);
    for (int32_t i = 1; i <= numSets; ++i) {
      progress_->SetText(action == kSave ? action_text::kSavingCount : action_text::kRemovingCount, done, total);
      // Sets without dupes leave nothing to count: the bar then shows nothing done.
      progress_->SetProgress(ProgressValue(total > 0 ? static_cast<double>(done) / total : 0.0));
      progress_->ProcessEvents();
      if (stopRequested_) break;
      auto set = dupeSets.GetItemAs<CDupeSet>(i);
      if (action == kSave) {
        if (set->DupeSetNeedsSaving()) {
          set->CommitToDatabase();
          done = CheckedAdd(done, 1);
          ++setsDone_;
        }
        continue;
      }
      done = CheckedAdd(done, set->GetDupes().GetNumItems());
      if (action == kRemove) set->DeleteAllDupes();
      else set->MergeAllDupes();
      set->CommitToDatabase();
      ++setsDone_;
    }
  } catch (...) {
    failure = std::current_exception();
  }

  progress_->Finished();
  if (failure && !raiseErrors_) {
    try {
      std::rethrow_exception(failure);
    } catch (...) {
      ReportError();
    }
  }
  if (onFinished_) onFinished_();
  if (failure && raiseErrors_) std::rethrow_exception(failure);
}

}  // namespace ombrel
