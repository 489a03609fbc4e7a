#include "ombrel/dupes/database_actions.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ombrel/cards/ccard.h"
#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/dupes/cdupeset.h"
#include "support/error_text.h"
#include "support/store_fixture.h"

namespace ombrel {
namespace {

// Everything the worker shows, one line per call.
class RecordingProgress final : public IActionProgress {
 public:
  void SetActionText(int32_t id) override { log += "action " + std::to_string(id) + "\n"; }
  void EnableStop(bool enabled) override { log += enabled ? "stop on\n" : "stop off\n"; }
  void ShowWindow() override { log += "window\n"; }
  void ShowBusy() override { log += "busy\n"; }
  void SetText(int32_t id, int32_t done, int32_t total) override {
    log += "text " + std::to_string(id) + " " + std::to_string(done) + "/" + std::to_string(total) + "\n";
  }
  void SetProgress(int32_t percent) override { log += "bar " + std::to_string(percent) + "\n"; }
  void ProcessEvents() override {
    log += "events\n";
    if (onEvents) onEvents(++events);
  }
  void Finished() override { log += "finished\n"; }

  std::string log;
  int events = 0;
  std::function<void(int)> onEvents;
};

class DatabaseActionsTest : public StoreFixture {
 protected:
  // A fresh store holding these sets of cards, the first of each the
  // primary; dupes carry a title.
  void UseSets(const std::vector<std::vector<int32_t>>& sets) {
    store_ = std::make_shared<FakeCardStore>();
    CardStoreMgr()->SetCardStore(store_);
    sets_.RemoveAll();
    for (const auto& ids : sets) {
      for (size_t i = 0; i < ids.size(); ++i) {
        FakeCardStore::Values values{{"Name", "Ann Lee"}};
        if (i > 0) values["Title"] = "Title " + std::to_string(ids[i]);
        store_->AddCard(ids[i], values);
      }
      auto set = std::make_shared<CDupeSet>();
      set->Init(CardStoreMgr()->GetCard(ids[0]), CONFLICT_DUPE);
      for (size_t i = 1; i < ids.size(); ++i) set->AddDupe(CardStoreMgr()->GetCard(ids[i]));
      sets_.AddItem(set);
    }
    store_->calls.clear();
  }
  std::shared_ptr<CDupeSet> Set(int32_t position) { return sets_.GetItemAs<CDupeSet>(position); }
  std::string Stored() const {
    std::string out;
    for (int32_t id : store_->CardOrder()) out += (out.empty() ? "" : " ") + std::to_string(id);
    return out;
  }
  // The store calls of one member, e.g. "DeleteCard 2, DeleteCard 3".
  std::string CallsOf(const std::string& member) const {
    std::string out;
    for (const auto& call : store_->calls)
      if (call.rfind(member, 0) == 0) out += (out.empty() ? "" : ", ") + call;
    return out;
  }

  RecordingProgress progress_;
  CDatabaseActions actions_{&progress_};
  CList sets_;
};

// Removing and merging count cards, saving counts the sets that need it; a
// single set shows only the busy pointer. The run probes the database first.
TEST_F(DatabaseActionsTest, EachActionReportsItsProgressAndCommitsSetBySet) {
  int finished = 0;
  actions_.SetOnFinished([&] { ++finished; });
  UseSets({{1, 2, 3}, {4, 5}, {6, 7, 8}});
  actions_.RemoveDupes(sets_);
  EXPECT_EQ(progress_.log, "action 601\nwindow\ntext 605 1/5\nbar 20\nevents\ntext 605 3/5\nbar 60\nevents\n"
                           "text 605 4/5\nbar 80\nevents\nfinished\n");
  EXPECT_EQ(Stored(), "1 4 6");
  EXPECT_EQ(store_->calls[0] + ", " + store_->calls[1], "BeginUpdate, AbortUpdate");
  EXPECT_EQ(CallsOf("DeleteCard"), "DeleteCard 2, DeleteCard 3, DeleteCard 5, DeleteCard 7, DeleteCard 8");
  EXPECT_EQ(actions_.SetsDone(), 3);
  EXPECT_EQ(finished, 1);

  UseSets({{1, 2, 3}, {4, 5}});
  progress_.log.clear();
  actions_.MergeDupes(sets_);
  EXPECT_EQ(progress_.log,
            "action 602\nwindow\ntext 605 1/3\nbar 33\nevents\ntext 605 3/3\nbar 100\nevents\nfinished\n");
  EXPECT_EQ(Stored() + " | " + store_->FindValue(1, "Title").value_or("<none>"), "1 4 | Title 3");

  UseSets({{1, 2}, {3, 4}, {5, 6, 7}, {8, 9}});
  Set(1)->GetPrimaryCard()->SetData("Title", "Boss", "", nullptr, 100, 100, false, false);
  Set(3)->DeleteDupe(Set(3)->GetDupes().GetItemAs<CCard>(2));
  progress_.log.clear();
  actions_.SaveChanges(sets_);
  EXPECT_EQ(progress_.log, "action 603\nstop off\nwindow\ntext 604 1/2\nbar 50\nevents\ntext 604 2/2\nbar 100\n"
                           "events\ntext 604 2/2\nbar 100\nevents\ntext 604 3/2\nbar 100\nevents\nfinished\n");
  EXPECT_EQ(Stored() + " | " + store_->FindValue(1, "Title").value_or("<none>"), "1 2 3 4 5 6 8 9 | Boss");
  EXPECT_EQ(CallsOf("CardExists"),
            "CardExists 1, CardExists 1, CardExists 5, CardExists 5, CardExists 7, CardExists 7");

  UseSets({{1, 2, 3}});
  progress_.log.clear();
  actions_.RemoveDupes(sets_);
  EXPECT_EQ(progress_.log, "action 601\nbusy\nevents\ntext 605 1/2\nbar 50\nevents\nfinished\n");
  EXPECT_EQ(finished, 4);
}

TEST_F(DatabaseActionsTest, NothingToDoOrAnUnknownActionShowsNothingAndWritesNothing) {
  int finished = 0;
  actions_.SetOnFinished([&] { ++finished; });
  actions_.RemoveDupes(sets_);
  actions_.MergeDupes(sets_);
  UseSets({{1, 2}, {3, 4}});
  actions_.SaveChanges(sets_);
  EXPECT_EQ(progress_.log, "action 601\naction 602\naction 603\nstop off\n");
  EXPECT_EQ(CallsOf(""), "BeginUpdate, AbortUpdate");  // probed, nothing else
  for (int32_t action : {3, -1}) EXPECT_EQ(ErrorText([&] { actions_.Run(action, sets_); }), "Unknown auto action");
  EXPECT_EQ(Stored(), "1 2 3 4");
  EXPECT_EQ(Set(1)->GetNumberOfCards(), 2);
  EXPECT_EQ(finished, 0);
}

// A click on Stop is seen when events run, which is before each set: a
// click during a set lets that set finish and stops before the next one.
TEST_F(DatabaseActionsTest, StopIsCheckedBeforeEachSet) {
  std::string dump;
  for (int stopAt : {2, 3}) {
    UseSets({{1, 2}, {3, 4, 5}, {6, 7}});
    RecordingProgress progress;
    CDatabaseActions actions(&progress);
    progress.onEvents = [&](int n) {
      if (n == stopAt) actions.StopAction();
    };
    actions.RemoveDupes(sets_);
    dump += "stop seen at events " + std::to_string(stopAt) + ": sets done " + std::to_string(actions.SetsDone()) +
            ", stored " + Stored() + ", dupes left";
    for (int32_t i = 1; i <= 3; ++i) dump += " " + std::to_string(Set(i)->GetDupes().GetNumItems());
    dump += progress.log.ends_with("finished\n") ? "\n" : " (not finished)\n";
  }
  EXPECT_EQ(dump,
            "stop seen at events 2: sets done 1, stored 1 3 4 5 6 7, dupes left 0 2 1\n"
            "stop seen at events 3: sets done 2, stored 1 3 6 7, dupes left 0 0 1\n");
}

TEST_F(DatabaseActionsTest, AnErrorInTheSecondSetEndsTheRunAndIsReported) {
  for (bool raise : {false, true}) {
    SCOPED_TRACE(raise ? "raised" : "reported");
    UseSets({{1, 2}, {3, 4, 5}, {6, 7}});
    store_->Fail("DeleteCard", 5, "card is locked").ForCard(4);
    prompt_->shownWithStyle.clear();
    RecordingProgress progress;
    CDatabaseActions actions(&progress);
    int finished = 0;
    actions.SetOnFinished([&] { ++finished; });
    actions.SetRaiseErrors(raise);

    std::string raised = ErrorText([&] { actions.RemoveDupes(sets_); });
    const std::string message = "Failed to delete card with ID: 4\r\ncard is locked";
    EXPECT_EQ(raised, raise ? message : "<no error>");
    EXPECT_EQ(prompt_->shownWithStyle, raise ? "" : "ERROR: " + message + " [16, Ombrel]\n");
    EXPECT_EQ(finished, 1);
    EXPECT_EQ(actions.SetsDone(), 1);
    // Set 1 committed, set 2's bracket aborted (the bin gives 4 before 5), set 3 untouched.
    EXPECT_EQ(Stored(), "1 3 4 5 6 7");
    const std::string calls = store_->Log();
    EXPECT_EQ(calls.substr(calls.find("CardExists 4")),
              "CardExists 4\nCardExists 4\nDeleteCard 4\nGetLastError\nAbortUpdate\n");
  }
}

// The worker fails the same way before touching anything, whatever the error mode.
TEST_F(DatabaseActionsTest, AnUnwritableDatabaseRaisesTheStoresOwnText) {
  UseSets({{1, 2}, {3, 4}});
  actions_.SetRaiseErrors(false);
  for (const char* member : {"BeginUpdate", "AbortUpdate"}) {
    SCOPED_TRACE(member);
    const std::string text = member + std::string(" failed: attempt to write a readonly database");
    store_->Fail(member, 8, text).Times(1);
    EXPECT_EQ(ErrorText([&] { actions_.CheckDatabaseAccess(); }), text);
    store_->Fail(member, 8, text).Times(1);
    progress_.log.clear();
    EXPECT_EQ(ErrorText([&] { actions_.RemoveDupes(sets_); }), text);
    EXPECT_EQ(progress_.log, "action 601\n");
    EXPECT_EQ(Stored(), "1 2 3 4");
  }
}

}  // namespace
}  // namespace ombrel
