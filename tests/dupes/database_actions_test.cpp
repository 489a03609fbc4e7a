#include "ombrel/dupes/database_actions.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ombrel/cards/ccard.h"
#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/foundation/error.h"
#include "ombrel/foundation/messages.h"
#include "support/error_text.h"
#include "support/fake_card_store.h"

namespace ombrel {
namespace {

// Everything the worker shows, one line per call.
class RecordingProgress final : public IActionProgress {
 public:
  void SetActionText(int32_t id) override { Note("action " + std::to_string(id)); }
  void EnableStop(bool enabled) override { Note(enabled ? "stop on" : "stop off"); }
  void ShowWindow() override { Note("window"); }
  void ShowBusy() override { Note("busy"); }
  void SetText(int32_t id, int32_t done, int32_t total) override {
    Note("text " + std::to_string(id) + " " + std::to_string(done) + "/" + std::to_string(total));
  }
  void SetProgress(int32_t percent) override { Note("bar " + std::to_string(percent)); }
  void ProcessEvents() override {
    Note("events");
    if (onEvents) onEvents(++events);
  }
  void Finished() override { Note("finished"); }

  std::string log;
  int events = 0;
  std::function<void(int)> onEvents;

 private:
  void Note(const std::string& line) { log += line + "\n"; }
};

class RecordingPrompt final : public IPrompt {
 public:
  int MessageBox(const std::string& text, int style, const std::string& title) override {
    shown += text + " [" + std::to_string(style) + ", " + title + "]\n";
    return msgbox::kAnswerOk;
  }
  std::string shown;
};

class DatabaseActionsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    savedMgr_ = CardStoreMgr();
    savedAppName_ = AppName();
    AppName() = "Ombrel";
    store_ = std::make_shared<FakeCardStore>();
    CardStoreMgr() = std::make_shared<CCardStoreMgr>();
    CardStoreMgr()->SetCardStore(store_);
    prompt_ = std::make_shared<RecordingPrompt>();
    SetPrompt(prompt_);
    actions_.SetOnFinished([this] { ++finishedCalls_; });
  }
  void TearDown() override {
    CardStoreMgr() = savedMgr_;
    AppName() = savedAppName_;
    SetPrompt(nullptr);
  }

  // Adds a set whose cards are stored: the first ID is the primary. Dupes
  // carry a title the primary lacks.
  void AddSet(const std::vector<int32_t>& ids) {
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
  std::shared_ptr<CDupeSet> Set(int32_t position) { return sets_.GetItemAs<CDupeSet>(position); }

  // The cards still in the store, in store order.
  std::string Stored() const {
    std::string out;
    for (int32_t id : store_->CardOrder()) {
      if (!out.empty()) out += ' ';
      out += std::to_string(id);
    }
    return out;
  }
  // The store calls of one member, e.g. "DeleteCard 2, DeleteCard 3".
  std::string CallsOf(const std::string& member) const {
    std::string out;
    for (const auto& call : store_->calls)
      if (call.rfind(member, 0) == 0) {
        if (!out.empty()) out += ", ";
        out += call;
      }
    return out;
  }

  std::shared_ptr<FakeCardStore> store_;
  std::shared_ptr<RecordingPrompt> prompt_;
  RecordingProgress progress_;
  CDatabaseActions actions_{&progress_};
  CList sets_;
  int finishedCalls_ = 0;

 private:
  std::shared_ptr<CCardStoreMgr> savedMgr_;
  std::string savedAppName_;
};

TEST_F(DatabaseActionsTest, RemoveDeletesEveryDupeCountingByCards) {
  AddSet({1, 2, 3});
  AddSet({4, 5});
  AddSet({6, 7, 8});
  store_->calls.clear();
  actions_.RemoveDupes(sets_);
  EXPECT_EQ(progress_.log,
            "action 601\n"
            "window\n"
            "text 605 1/5\nbar 20\nevents\n"
            "text 605 3/5\nbar 60\nevents\n"
            "text 605 4/5\nbar 80\nevents\n"
            "finished\n");
  EXPECT_EQ(Stored(), "1 4 6");
  EXPECT_EQ(store_->calls[0] + ", " + store_->calls[1], "BeginUpdate, AbortUpdate");
  EXPECT_EQ(CallsOf("DeleteCard"), "DeleteCard 2, DeleteCard 3, DeleteCard 5, DeleteCard 7, DeleteCard 8");
  EXPECT_EQ(actions_.SetsDone(), 3);
  EXPECT_EQ(finishedCalls_, 1);
  EXPECT_EQ(prompt_->shown, "");
  for (int32_t i = 1; i <= 3; ++i) EXPECT_EQ(Set(i)->GetNumberOfCards(), 1);
}

TEST_F(DatabaseActionsTest, MergeFillsThePrimaryThenDeletesTheDupes) {
  AddSet({1, 2, 3});
  AddSet({4, 5});
  actions_.MergeDupes(sets_);
  EXPECT_EQ(progress_.log,
            "action 602\n"
            "window\n"
            "text 605 1/3\nbar 33\nevents\n"
            "text 605 3/3\nbar 100\nevents\n"
            "finished\n");
  EXPECT_EQ(Stored(), "1 4");
  // The last dupe is merged first, so its title wins.
  EXPECT_EQ(store_->FindValue(1, "Title").value_or("<none>"), "Title 3");
  EXPECT_EQ(store_->FindValue(4, "Title").value_or("<none>"), "Title 5");
  EXPECT_EQ(actions_.SetsDone(), 2);
}

TEST_F(DatabaseActionsTest, SaveCommitsOnlyTheSetsThatNeedItCountingBySets) {
  AddSet({1, 2});
  AddSet({3, 4});
  AddSet({5, 6, 7});
  AddSet({8, 9});
  Set(1)->GetPrimaryCard()->SetData("Title", "Boss", "", nullptr, 100, 100, false, false);
  Set(3)->DeleteDupe(Set(3)->GetDupes().GetItemAs<CCard>(2));
  store_->calls.clear();
  actions_.SaveChanges(sets_);
  EXPECT_EQ(progress_.log,
            "action 603\n"
            "stop off\n"
            "window\n"
            "text 604 1/2\nbar 50\nevents\n"
            "text 604 2/2\nbar 100\nevents\n"
            "text 604 2/2\nbar 100\nevents\n"
            "text 604 3/2\nbar 100\nevents\n"
            "finished\n");
  EXPECT_EQ(store_->FindValue(1, "Title").value_or("<none>"), "Boss");
  EXPECT_EQ(Stored(), "1 2 3 4 5 6 8 9");
  EXPECT_EQ(actions_.SetsDone(), 2);
  EXPECT_EQ(CallsOf("CardExists"), "CardExists 1, CardExists 1, CardExists 5, CardExists 5, CardExists 7, CardExists 7");
}

TEST_F(DatabaseActionsTest, ASingleSetShowsOnlyTheBusyPointer) {
  AddSet({1, 2, 3});
  actions_.RemoveDupes(sets_);
  EXPECT_EQ(progress_.log, "action 601\nbusy\nevents\ntext 605 1/2\nbar 50\nevents\nfinished\n");

  // A save with one set to save among several is a single set too.
  AddSet({4, 5});
  AddSet({6, 7});
  Set(3)->GetPrimaryCard()->SetData("Title", "Boss", "", nullptr, 100, 100, false, false);
  progress_.log.clear();
  CDatabaseActions save(&progress_);
  save.SaveChanges(sets_);
  EXPECT_EQ(progress_.log,
            "action 603\nstop off\nbusy\nevents\n"
            "text 604 1/1\nbar 100\nevents\n"
            "text 604 1/1\nbar 100\nevents\n"
            "text 604 1/1\nbar 100\nevents\n"
            "finished\n");
  EXPECT_EQ(save.SetsDone(), 1);
}

TEST_F(DatabaseActionsTest, NothingToDoReturnsAtOnceShowingNothing) {
  actions_.RemoveDupes(sets_);
  actions_.MergeDupes(sets_);
  AddSet({1, 2});
  AddSet({3, 4});
  store_->calls.clear();
  actions_.SaveChanges(sets_);
  EXPECT_EQ(progress_.log, "action 601\naction 602\naction 603\nstop off\n");
  EXPECT_EQ(finishedCalls_, 0);
  EXPECT_EQ(prompt_->shown, "");
  // The database was still probed, and nothing else.
  std::string calls;
  for (const auto& call : store_->calls) calls += call + "\n";
  EXPECT_EQ(calls, "BeginUpdate\nAbortUpdate\n");
}

TEST_F(DatabaseActionsTest, AnUnknownActionIsRefused) {
  AddSet({1, 2});
  AddSet({3, 4});
  for (int32_t action : {3, -1}) EXPECT_EQ(ErrorText([&] { actions_.Run(action, sets_); }), "Unknown auto action");
  EXPECT_EQ(Stored(), "1 2 3 4");
  EXPECT_EQ(Set(1)->GetNumberOfCards(), 2);
  EXPECT_EQ(CallsOf("PutValue") + CallsOf("DeleteCard"), "");
}

TEST_F(DatabaseActionsTest, ProgressValueIsTheNearestPercentWithin0To100) {
  std::string dump;
  for (double fraction : {-2.0, -0.25, -0.004, 0.0, 0.004, 0.125, 1.0 / 3, 0.375, 0.625, 2.0 / 3, 0.875, 1.0, 1.25,
                          5.0})
    dump += std::to_string(CDatabaseActions::ProgressValue(fraction)) + " ";
  EXPECT_EQ(dump, "0 0 0 0 0 12 33 38 62 67 88 100 100 100 ");
}

// A click on Stop is seen when events run, which is before each set: a
// click during a set lets that set finish and stops before the next one.
TEST_F(DatabaseActionsTest, StopIsCheckedBeforeEachSet) {
  std::string dump;
  for (int stopAt : {1, 2, 3, 4}) {
    store_ = std::make_shared<FakeCardStore>();
    CardStoreMgr()->SetCardStore(store_);
    sets_.RemoveAll();
    AddSet({1, 2});
    AddSet({3, 4, 5});
    AddSet({6, 7});
    RecordingProgress progress;
    CDatabaseActions actions(&progress);
    progress.onEvents = [&](int n) {
      if (n == stopAt) actions.StopAction();
    };
    actions.RemoveDupes(sets_);
    dump += "stop seen at events " + std::to_string(stopAt) + ": sets done " + std::to_string(actions.SetsDone()) +
            ", stored " + Stored() + ", dupes left";
    for (int32_t i = 1; i <= 3; ++i) {
      dump += ' ';
      dump += std::to_string(Set(i)->GetDupes().GetNumItems());
    }
    dump += "\n";
    EXPECT_NE(progress.log.find("finished\n"), std::string::npos);
  }
  EXPECT_EQ(dump,
            "stop seen at events 1: sets done 0, stored 1 2 3 4 5 6 7, dupes left 1 2 1\n"
            "stop seen at events 2: sets done 1, stored 1 3 4 5 6 7, dupes left 0 2 1\n"
            "stop seen at events 3: sets done 2, stored 1 3 6 7, dupes left 0 0 1\n"
            "stop seen at events 4: sets done 3, stored 1 3 6, dupes left 0 0 0\n");
}

TEST_F(DatabaseActionsTest, AnErrorInTheSecondSetEndsTheRunAndIsReported) {
  for (bool raise : {false, true}) {
    SCOPED_TRACE(raise ? "raised" : "reported");
    store_ = std::make_shared<FakeCardStore>();
    CardStoreMgr()->SetCardStore(store_);
    prompt_->shown.clear();
    sets_.RemoveAll();
    AddSet({1, 2});
    AddSet({3, 4, 5});
    AddSet({6, 7});
    store_->Fail("DeleteCard", 5, "card is locked").ForCard(4);
    store_->calls.clear();
    RecordingProgress progress;
    CDatabaseActions actions(&progress);
    int finished = 0;
    actions.SetOnFinished([&] { ++finished; });
    actions.SetRaiseErrors(raise);

    std::string raised = ErrorText([&] { actions.RemoveDupes(sets_); });
    const std::string message = "Failed to delete card with ID: 4\r\ncard is locked";
    EXPECT_EQ(raised, raise ? message : "<no error>");
    EXPECT_EQ(prompt_->shown, raise ? "" : "ERROR: " + message + " [16, Ombrel]\n");
    EXPECT_EQ(finished, 1);
    EXPECT_EQ(actions.SetsDone(), 1);
    // The first set is committed, the second's deletion bracket aborted, the third untouched.
    // (The bin gives its last card first: 4 before 5.)
    EXPECT_EQ(Stored(), "1 3 4 5 6 7");
    std::string calls;
    for (const auto& call : store_->calls) calls += call + "\n";
    EXPECT_EQ(calls.substr(calls.find("CardExists 4")),
              "CardExists 4\nCardExists 4\nDeleteCard 4\nGetLastError\nAbortUpdate\n");
    EXPECT_EQ(Set(3)->GetDupes().GetNumItems(), 1);
    EXPECT_EQ(progress.log.substr(progress.log.size() - 9), "finished\n");
  }
}

TEST_F(DatabaseActionsTest, AnUnwritableDatabaseRaisesTheStoresOwnText) {
  AddSet({1, 2});
  AddSet({3, 4});
  struct Case {
    std::string member, text;
  };
  for (const Case& c : {Case{"BeginUpdate", "attempt to write a readonly database"},
                        Case{"AbortUpdate", "cannot rollback - no transaction is active"}}) {
    SCOPED_TRACE(c.member);
    store_->ClearFaults();
    store_->Fail(c.member, 8, c.text).Times(1);
    EXPECT_EQ(ErrorText([&] { actions_.CheckDatabaseAccess(); }), c.text);

    // The worker fails the same way before touching anything, whatever the error mode.
    store_->Fail(c.member, 8, c.text).Times(1);
    progress_.log.clear();
    actions_.SetRaiseErrors(false);
    EXPECT_EQ(ErrorText([&] { actions_.RemoveDupes(sets_); }), c.text);
    EXPECT_EQ(progress_.log, "action 601\n");
    EXPECT_EQ(prompt_->shown, "");
    EXPECT_EQ(Stored(), "1 2 3 4");
  }
  EXPECT_EQ(Set(1)->GetNumberOfCards(), 2);
}

}  // namespace
}  // namespace ombrel
