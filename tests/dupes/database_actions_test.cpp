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
#include "support/store_fixture.h"

namespace ombrel {
namespace {

// Everything the worker shows, one line per call.
class RecordingProgress final : public IActionProgress {
 public:
  void SetActionText(int32_t id) override { Note("action " + std::to_string(id)); }
  void EnableStop(bool enabled) override { Note(enabled ? "stop on" : "stop off"); }
  void ShowWindow() override { Note("window"); }
  void ShowBusy() override { Note("busy"); }
  void SetText(int32_t id, int32_t d, int32_t t) override { Note("text " + std::to_string(id) + " " + std::to_string(d) + "/" + std::to_string(t)); }
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

class DatabaseActionsTest : public StoreFixture {
 protected:
  void SetUp() override {
    StoreFixture::SetUp();
    actions_.SetOnFinished([this] { ++finishedCalls_; });
  }

  // A set of stored cards, the first the primary; dupes carry a title.
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
  int finishedCalls_ = 0;
};

TEST_F(DatabaseActionsTest, RemoveDeletesEveryDupeCountingByCards) {
  AddSet({1, 2, 3});
  AddSet({4, 5});
  AddSet({6, 7, 8});
  store_->calls.clear();
  actions_.RemoveDupes(sets_);
  EXPECT_EQ(progress_.log, "action 601\nwindow\ntext 605 1/5\nbar 20\nevents\ntext 605 3/5\nbar 60\nevents\n"
                           "text 605 4/5\nbar 80\nevents\nfinished\n");
  EXPECT_EQ(Stored(), "1 4 6");
  EXPECT_EQ(store_->calls[0] + ", " + store_->calls[1], "BeginUpdate, AbortUpdate");
  EXPECT_EQ(CallsOf("DeleteCard"), "DeleteCard 2, DeleteCard 3, DeleteCard 5, DeleteCard 7, DeleteCard 8");
  EXPECT_EQ(actions_.SetsDone(), 3);
  EXPECT_EQ(finishedCalls_, 1);
}

TEST_F(DatabaseActionsTest, MergeFillsThePrimaryFromTheLastDupeFirst) {
  AddSet({1, 2, 3});
  AddSet({4, 5});
  actions_.MergeDupes(sets_);
  EXPECT_EQ(progress_.log, "action 602\nwindow\ntext 605 1/3\nbar 33\nevents\ntext 605 3/3\nbar 100\nevents\nfinished\n");
  EXPECT_EQ(Stored(), "1 4");
  EXPECT_EQ(store_->FindValue(1, "Title").value_or("<none>"), "Title 3");
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
  EXPECT_EQ(progress_.log, "action 603\nstop off\nwindow\ntext 604 1/2\nbar 50\nevents\ntext 604 2/2\nbar 100\n"
                           "events\ntext 604 2/2\nbar 100\nevents\ntext 604 3/2\nbar 100\nevents\nfinished\n");
  EXPECT_EQ(store_->FindValue(1, "Title").value_or("<none>"), "Boss");
  EXPECT_EQ(Stored(), "1 2 3 4 5 6 8 9");
  EXPECT_EQ(CallsOf("CardExists"), "CardExists 1, CardExists 1, CardExists 5, CardExists 5, CardExists 7, CardExists 7");
}

TEST_F(DatabaseActionsTest, ASingleSetShowsOnlyTheBusyPointer) {
  AddSet({1, 2, 3});
  actions_.RemoveDupes(sets_);
  EXPECT_EQ(progress_.log, "action 601\nbusy\nevents\ntext 605 1/2\nbar 50\nevents\nfinished\n");

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
  EXPECT_EQ(CallsOf(""), "BeginUpdate, AbortUpdate");  // probed, nothing else
}

TEST_F(DatabaseActionsTest, AnUnknownActionIsRefused) {
  AddSet({1, 2});
  AddSet({3, 4});
  for (int32_t action : {3, -1}) EXPECT_EQ(ErrorText([&] { actions_.Run(action, sets_); }), "Unknown auto action");
  EXPECT_EQ(Stored(), "1 2 3 4");
  EXPECT_EQ(Set(1)->GetNumberOfCards(), 2);
}

// A click on Stop is seen when events run, which is before each set: a
// click during a set lets that set finish and stops before the next one.
TEST_F(DatabaseActionsTest, StopIsCheckedBeforeEachSet) {
  std::string dump;
  for (int stopAt : {2, 3}) {
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
    for (int32_t i = 1; i <= 3; ++i) dump += " " + std::to_string(Set(i)->GetDupes().GetNumItems());
    dump += "\n";
    EXPECT_NE(progress.log.find("finished\n"), std::string::npos);
  }
  EXPECT_EQ(dump,
            "stop seen at events 2: sets done 1, stored 1 3 4 5 6 7, dupes left 0 2 1\n"
            "stop seen at events 3: sets done 2, stored 1 3 6 7, dupes left 0 0 1\n");
}

TEST_F(DatabaseActionsTest, AnErrorInTheSecondSetEndsTheRunAndIsReported) {
  for (bool raise : {false, true}) {
    SCOPED_TRACE(raise ? "raised" : "reported");
    store_ = std::make_shared<FakeCardStore>();
    CardStoreMgr()->SetCardStore(store_);
    prompt_->shownWithStyle.clear();
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
    EXPECT_EQ(prompt_->shownWithStyle, raise ? "" : "ERROR: " + message + " [16, Ombrel]\n");
    EXPECT_EQ(finished, 1);
    EXPECT_EQ(actions.SetsDone(), 1);
    // Set 1 committed, set 2's bracket aborted (the bin gives 4 before 5), set 3 untouched.
    EXPECT_EQ(Stored(), "1 3 4 5 6 7");
    std::string calls;
    for (const auto& call : store_->calls) calls += call + "\n";
    EXPECT_EQ(calls.substr(calls.find("CardExists 4")),
              "CardExists 4\nCardExists 4\nDeleteCard 4\nGetLastError\nAbortUpdate\n");
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
    EXPECT_EQ(Stored(), "1 2 3 4");
  }
}

}  // namespace
}  // namespace ombrel
