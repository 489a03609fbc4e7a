#include "review/review_session.h"

#include <gtest/gtest.h>

#include "ombrel/dupes/cdupeset.h"
#include "review/cuseraction.h"
#include "support/cards.h"
#include "support/error_text.h"
#include "ui/startup.h"

namespace ombrel {
namespace {

TEST(CUserActionTest, KeepsWhatItsTypeAllows) {
  auto field = std::make_shared<CCardField>();
  auto card = MakeCard(7);
  auto id = std::make_shared<CLong>(7);
  CUserAction fresh;
  EXPECT_EQ(fresh.GetActionType(), 0);
  EXPECT_EQ(TrapText([&] { fresh.GetSetIndex(); }), "Set index is not initialized");

  CUserAction wrongType;
  EXPECT_EQ(TrapText([&] { wrongType.SetData(6, 3, card); }), "Wrong actionType for CUserAction");
  EXPECT_EQ(wrongType.GetActionType(), 6);
  EXPECT_EQ(wrongType.GetSetIndex(), 3);

  struct Case {
    int32_t type;
    ObjectRef data;
    bool accepted;
  };
  const Case cases[] = {{FIELD_EDIT, field, true},          {FIELD_EDIT, card, false},
                        {CARD_DELETION, card, true},        {PRIMARY_REPLACEMENT, id, false},
                        {FRONT_IMAGE_CHANGE, id, true},     {BACK_IMAGE_CHANGE, field, false}};
  for (const auto& c : cases) {
    CUserAction action;
    SCOPED_TRACE(c.type);
    EXPECT_EQ(TrapText([&] { action.SetData(c.type, 1, c.data); }),
              c.accepted ? "no trap" : "Wrong parameters for CUserAction::SetData");
  }
  CUserAction edit;
  edit.SetData(FIELD_EDIT, 1, field);
  EXPECT_EQ(edit.GetField(), field);
  EXPECT_EQ(TrapText([&] { edit.GetCard(); }),
            "CUserAction can store card only for card deletion or primary replacement user actions");
  CUserAction replacement;
  replacement.SetData(PRIMARY_REPLACEMENT, 1, card);
  EXPECT_EQ(replacement.GetCard(), card);  // the same object
  EXPECT_EQ(TrapText([&] { replacement.GetImageID(); }), "Image ID was not stored for this user action");
  EXPECT_EQ(TrapText([&] { replacement.GetField(); }), "CUserAction can store field only for field edit user action");
}

// Records what the session asks of the screen; rows are the primary's.
class FakeDisplay final : public IReviewDisplay {
 public:
  void RefreshDisplay() override {
    ++refreshes;
    if (session) rows = session->RowNames();
  }
  int32_t PrimaryRowOf(const std::string& name) const override {
    for (size_t i = 0; i < rows.size(); ++i)
      if (rows[i] == name) return static_cast<int32_t>(i);
    return -1;
  }
  void RedrawPrimaryRow(int32_t row) override { redrawn.push_back(row); }
  void UpdateNavigationButtons() override {}

  CReviewSession* session = nullptr;
  std::vector<std::string> rows;
  std::vector<int32_t> redrawn;
  int refreshes = 0;
};

class ReviewSessionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ui::InitResources();  // the value labels are localized texts
    display_.session = &session_;
    sets_ = std::make_shared<CList>();
    sets_->AddItem(SetOf(CONFLICT_DUPE, {MakeCard(1, {{"Name", "Ann Lee"}, {"Title", "CEO"}, {"Categories", "A"}}),
                                         MakeCard(2, {{"Name", "Ann Lee"}, {"Title", "Chief"}, {"Categories", "B"}}),
                                         MakeCard(3, {{"Name", "Ann Lee"}, {"Notes", "met in Rome"}})}));
    sets_->AddItem(SetOf(CONFLICT_DUPE, {MakeCard(4, {{"Name", "Bob Ray"}}), MakeCard(5, {{"Name", "Bob Ray"}})}));
    session_.SetDupes(sets_, 1);
    display_.RefreshDisplay();
  }
  std::string Text(int32_t id, const std::string& field) const {
    for (int32_t s = 1; s <= sets_->GetNumItems(); ++s) {
      auto set = sets_->GetItemAs<CDupeSet>(s);
      if (set->GetPrimaryCard()->GetCardID() == id) return set->GetPrimaryCard()->FieldText(field);
    }
    return "?";
  }

  FakeDisplay display_;
  CReviewSession session_{display_};
  std::shared_ptr<CList> sets_;
};

TEST_F(ReviewSessionTest, StartsWhereAskedAndCancelRestoresClones) {
  for (auto [start, expected] : {std::pair{2, 2}, {0, 1}, {3, 1}}) {
    session_.SetDupes(sets_, start);
    EXPECT_EQ(session_.CurrentSetIndex(), expected);
  }
  session_.SetDupes(std::make_shared<CList>(), 1);
  EXPECT_EQ(session_.CurrentSetIndex(), 0);

  session_.SetDupes(sets_, 1);
  auto original = sets_->GetItemAs<CDupeSet>(1);
  session_.CommitEdit("Title", "CEO", "Founder");
  session_.DeleteDupe(1);
  session_.RestoreBackup();
  auto restored = sets_->GetItemAs<CDupeSet>(1);
  EXPECT_NE(restored, original);
  EXPECT_EQ(restored->GetPrimaryCard()->FieldText("Title"), "CEO");
  EXPECT_EQ(Layout(*restored), "1 | 2 3 | ");
  EXPECT_EQ(sets_->GetNumItems(), 2);
}

TEST_F(ReviewSessionTest, EditsAreRecordedOnlyWhenTheyChangeSomething) {
  EXPECT_FALSE(session_.CommitEdit("Title", "CEO", "CEO"));
  EXPECT_FALSE(session_.CanUndo());
  EXPECT_EQ(TrapText([&] { session_.CommitEdit("Title", "CTO", "CFO"); }),
            "Inconsistent data between display and memory");
  EXPECT_TRUE(session_.CommitEdit("Title", "CEO", "Founder"));
  EXPECT_EQ(Text(1, "Title"), "Founder");
  EXPECT_EQ(display_.redrawn.back(), display_.PrimaryRowOf("Title"));
  EXPECT_TRUE(session_.CommitVerified(CReviewSession::LocalizeValue("Verified", ""), true));
  EXPECT_EQ(Text(1, "Verified"), "Yes");
  // Only two fields have their values localized; an unknown value stands as it is.
  EXPECT_EQ(TrapText([] { CReviewSession::LocalizeValue("Title", "OK"); }), "Cannot localize field data for field: Title");
  EXPECT_EQ(CReviewSession::LocalizeValue("Solvane Status", "pending"), "pending");

  session_.CopyFromDupe("Title", 1, false);
  EXPECT_EQ(Text(1, "Title"), "Chief");
  session_.CopyFromDupe("Notes", 2, true);
  EXPECT_EQ(Text(1, "Notes"), "met in Rome");
  session_.CopyFromDupe("Title", 1, true);
  EXPECT_EQ(Text(1, "Title"), "ChiefChief");
  session_.CopyFromDupe("Categories", 1, true);
  EXPECT_EQ(Text(1, "Categories"), "A, B");
  EXPECT_EQ(session_.UndoStack().GetNumItems(), 6);
}

TEST_F(ReviewSessionTest, UndoAndRedoWalkBothStacksAcrossSets) {
  session_.CommitEdit("Title", "CEO", "Founder");   // set 1
  session_.TakeImage(1, kFrontImageKind);           // set 1: card 2's front image
  session_.SetCurrentSetIndex(2);
  session_.DeleteDupe(1);                           // set 2: card 5 goes
  auto primary1 = sets_->GetItemAs<CDupeSet>(1)->GetPrimaryCard();
  EXPECT_EQ(primary1->frontImage->Value(), 2);

  session_.UndoLastAction();  // the deletion, in the set shown
  EXPECT_EQ(Layout(*sets_->GetItemAs<CDupeSet>(2)), "4 | 5 | ");
  session_.UndoLastAction();  // the image: back to set 1 first
  EXPECT_EQ(session_.CurrentSetIndex(), 1);
  // The image ID kept was the card's own, and it is put back as such.
  EXPECT_EQ(primary1->frontImage->Value(), 1);
  session_.UndoLastAction();
  EXPECT_EQ(Text(1, "Title"), "CEO");
  EXPECT_FALSE(session_.CanUndo());
  EXPECT_EQ(session_.RedoStack().GetNumItems(), 3);

  session_.RedoLastAction();
  EXPECT_EQ(Text(1, "Title"), "Founder");
  session_.RedoLastAction();
  session_.RedoLastAction();
  EXPECT_EQ(session_.CurrentSetIndex(), 2);
  EXPECT_EQ(Layout(*sets_->GetItemAs<CDupeSet>(2)), "4 |  | 5");
  // Undo and redo never empty the other stack; a new change empties the redo stack.
  session_.UndoLastAction();
  session_.UndoLastAction();
  EXPECT_EQ(session_.RedoStack().GetNumItems(), 2);
  session_.SetCurrentSetIndex(1);
  session_.CommitEdit("Title", "Founder", "Owner");
  EXPECT_FALSE(session_.CanRedo());
}

TEST_F(ReviewSessionTest, ADeletionMovesItsOwnRecordBetweenTheStacks) {
  session_.DeleteDupe(2);
  auto record = session_.UndoStack().GetLastItem();
  session_.UndoLastAction();
  EXPECT_EQ(session_.RedoStack().GetLastItem(), record);
  session_.RedoLastAction();
  EXPECT_EQ(session_.UndoStack().GetLastItem(), record);
}

TEST_F(ReviewSessionTest, ReplacingThePrimaryIsUndoneWhole) {
  auto primary = sets_->GetItemAs<CDupeSet>(1)->GetPrimaryCard();
  session_.ReplacePrimary(2, true);
  EXPECT_EQ(primary->FieldText("Notes"), "met in Rome");
  EXPECT_EQ(primary->FieldText("Title"), "");
  EXPECT_EQ(primary->frontImage->Value(), 3);
  EXPECT_EQ(primary->backImage->Value(), 3);
  EXPECT_EQ(primary->GetCardID(), 1);
  session_.UndoLastAction();
  EXPECT_EQ(primary->FieldText("Title"), "CEO");
  EXPECT_EQ(primary->FieldText("Notes"), "");
  EXPECT_EQ(primary->frontImage, nullptr);
  session_.RedoLastAction();
  EXPECT_EQ(primary->FieldText("Notes"), "met in Rome");
}

TEST_F(ReviewSessionTest, ARowNotShownAfterARefreshIsATrap) {
  session_.CommitEdit("Title", "CEO", "Founder");
  display_.rows.clear();  // the display lost track; a refresh finds the row again
  const int refreshes = display_.refreshes;
  session_.UndoLastAction();
  EXPECT_EQ(display_.refreshes, refreshes + 1);

  struct Blind final : IReviewDisplay {
    void RefreshDisplay() override {}
    int32_t PrimaryRowOf(const std::string&) const override { return -1; }
    void RedrawPrimaryRow(int32_t) override {}
    void UpdateNavigationButtons() override {}
  } blind;
  CReviewSession session(blind);
  session.SetDupes(sets_, 1);
  EXPECT_EQ(TrapText([&] { session.CommitEdit("Title", "CEO", "Owner"); }),
            "Failed to find the grid row for the primary field with text: Owner");
}

TEST_F(ReviewSessionTest, LeavingASetAsksOnlyAfterAChangeInIt) {
  EXPECT_FALSE(session_.LeaveSetQuestionNeeded());
  session_.CommitEdit("Title", "CEO", "Founder");
  EXPECT_TRUE(session_.LeaveSetQuestionNeeded());
  EXPECT_EQ(session_.LeaveSetQuestion(), 373);
  session_.DeleteDupe(1);
  EXPECT_EQ(session_.LeaveSetQuestion(), 374);
  session_.DeleteRemainingDupes();
  EXPECT_FALSE(session_.LeaveSetQuestionNeeded());
  session_.SetCurrentSetIndex(2);
  EXPECT_FALSE(session_.LeaveSetQuestionNeeded());  // the last change was made elsewhere
}

}  // namespace
}  // namespace ombrel
