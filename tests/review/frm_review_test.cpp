#include "review/frm_review.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QComboBox>
#include <QLabel>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTableView>
#include <QTest>
#include <QTimer>

#include "ombrel/cardstore/image_registry.h"
#include "ombrel/cardstore/sqlite_card_store.h"
#include "ombrel/dupes/cdupeset.h"
#include "review/review_grid.h"
#include "support/cards.h"
#include "support/scratch_dir.h"
#include "support/windows_fixture.h"

namespace ombrel {
namespace {

using ui::frmReview;

class FrmReviewTest : public WindowsFixture {
 protected:
  // Two sets: Ann Lee (1) with dupes 2 and 3, and Bob Ray (4) with dupe 5.
  std::shared_ptr<CList> TwoSets() {
    auto sets = std::make_shared<CList>();
    sets->AddItem(SetOf(CONFLICT_DUPE, {MakeCard(1, {{"Name", "Ann Lee"}, {"Title", "CEO"}, {"Categories", "Red"}}),
                                        MakeCard(2, {{"Name", "Ann Lee"}, {"Title", "Chief"}, {"Categories", "Blue"}}),
                                        MakeCard(3, {{"Name", "Ann Lee"}, {"Notes", "Rome"}})}));
    sets->AddItem(SetOf(CONFLICT_DUPE, {MakeCard(4, {{"Name", "Bob Ray"}}), MakeCard(5, {{"Name", "Bob Ray"}})}));
    for (int32_t id = 1; id <= 5; ++id) store_->AddCard(id);
    return sets;
  }
  frmReview* Open(std::shared_ptr<CList> sets, int32_t start = 1) {
    sets_ = std::move(sets);
    review_ = new frmReview;
    review_->SetDupes(sets_, start);
    review_->show();
    QApplication::setActiveWindow(review_);
    EXPECT_TRUE(QTest::qWaitForWindowActive(review_));
    return review_;
  }
  QTableView* Grid(const char* name) { return Find<QTableView>(review_, name); }
  QPushButton* Button(const char* name) { return Find<QPushButton>(review_, name); }
  int Row(const std::string& field) {
    auto* model = Grid("PrimaryGrid")->model();
    for (int row = 0; row < model->rowCount(); ++row)
      if (model->index(row, 0).data(ui::kFieldNameRole).toString().toStdString() == field) return row;
    return -1;
  }
  // Enter on a cell of a grid.
  void Enter(const char* grid, const std::string& field, int column, Qt::KeyboardModifiers modifiers = {}) {
    QTableView* view = Grid(grid);
    view->setCurrentIndex(view->model()->index(Row(field), column));
    view->setFocus();
    QWidget* target = view;
    if (auto* carrier = review_->findChild<QWidget*>("txtDupe"); grid == std::string("DupeGrid") && carrier->isVisible())
      target = carrier;
    QTest::keyClick(target, Qt::Key_Return, modifiers);
  }
  std::shared_ptr<CCard> Primary(int set = 1) { return sets_->GetItemAs<CDupeSet>(set)->GetPrimaryCard(); }

  std::shared_ptr<CList> sets_;
  frmReview* review_ = nullptr;
};

TEST_F(FrmReviewTest, EditingThePrimaryThroughItsGrid) {
  Open(TwoSets());
  EXPECT_EQ(Find<QLabel>(review_, "lblSetCount")->text().toStdString(), GetResString(396, {"%1", "1", "%2", "2"}));
  EXPECT_EQ(Grid("DupeGrid")->model()->columnCount(), 2);
  EXPECT_FALSE(Button("cmdUndo")->isEnabled());

  Enter("PrimaryGrid", "Title", 1);
  auto* editor = Find<QPlainTextEdit>(review_, "txtEdit");
  ASSERT_TRUE(editor->isVisible());
  EXPECT_EQ(editor->toPlainText(), "CEO");
  QTest::keyClick(editor, Qt::Key_Return);  // unchanged: nothing recorded
  EXPECT_FALSE(editor->isVisible());
  EXPECT_FALSE(Button("cmdUndo")->isEnabled());

  Enter("PrimaryGrid", "Title", 1);
  editor->setPlainText("Founder");
  QTest::keyClick(editor, Qt::Key_Return);
  EXPECT_EQ(Primary()->FieldText("Title"), "Founder");
  EXPECT_EQ(Grid("PrimaryGrid")->model()->index(Row("Title"), 1).data().toString(), "Founder");
  EXPECT_TRUE(Button("cmdUndo")->isEnabled());

  Enter("PrimaryGrid", "Verified", 1);
  auto* verified = Find<QComboBox>(review_, "cmbVerified");
  ASSERT_TRUE(verified->isVisible());
  verified->setCurrentIndex(1);
  QTest::keyClick(verified, Qt::Key_Return);
  EXPECT_EQ(Primary()->FieldText("Verified"), "No");

  Enter("PrimaryGrid", "Creation Date", 1);  // read-only
  ASSERT_EQ(prompt_->shown.size(), 1u);
  EXPECT_EQ(prompt_->shown[0].text, GetResString(371));
  EXPECT_FALSE(editor->isVisible());

  QTest::keyClick(review_, Qt::Key_Z, Qt::ControlModifier);
  EXPECT_EQ(Primary()->FieldText("Verified"), "");
  QTest::keyClick(review_, Qt::Key_Z, Qt::ControlModifier);
  EXPECT_EQ(Primary()->FieldText("Title"), "CEO");
  QTest::keyClick(review_, Qt::Key_Y, Qt::ControlModifier);
  EXPECT_EQ(Primary()->FieldText("Title"), "Founder");
}

TEST_F(FrmReviewTest, CategoriesArePickedAndMerged) {
  store_->categories = "Red\r\nBlue\r\nGreen";
  Open(TwoSets());
  QTimer::singleShot(0, [this] {
    auto* picker = qobject_cast<QDialog*>(ui::FindForm("frmCategories"));
    ASSERT_NE(picker, nullptr);
    auto* list = picker->findChild<QListWidget*>("lstCategories");
    EXPECT_EQ(list->item(0)->checkState(), Qt::Checked);
    list->item(2)->setCheckState(Qt::Checked);
    picker->findChild<QPushButton*>("cmdClose")->click();
  });
  Enter("PrimaryGrid", "Categories", 1);
  EXPECT_EQ(Primary()->FieldText("Categories"), "Red, Green");

  Enter("DupeGrid", "Categories", 0, Qt::ControlModifier);
  EXPECT_EQ(Primary()->FieldText("Categories"), "Red, Green, Blue");
}

TEST_F(FrmReviewTest, ValuesAndImagesComeFromTheDupes) {
  store_->frontDib[2] = ImageRegistry::Instance().Register({"png", {}});
  Open(TwoSets());
  Enter("DupeGrid", "Title", 0);
  EXPECT_EQ(Primary()->FieldText("Title"), "Chief");
  Enter("DupeGrid", "Title", 0, Qt::ControlModifier);
  EXPECT_EQ(Primary()->FieldText("Title"), "ChiefChief");

  QTableView* dupes = Grid("DupeGrid");
  const QModelIndex front = dupes->model()->index(Row(kFrontImageRow), 0);
  EXPECT_EQ(front.data(ui::kImageHandleRole).toInt(), store_->frontDib[2]);
  QTest::mouseClick(dupes->viewport(), Qt::LeftButton, {}, dupes->visualRect(front).center());
  ASSERT_NE(Primary()->frontImage, nullptr);
  EXPECT_EQ(Primary()->frontImage->Value(), 2);
  EXPECT_EQ(Grid("PrimaryGrid")->model()->index(Row(kFrontImageRow), 1).data(ui::kImageHandleRole).toInt(),
            store_->frontDib[2]);

  // The second dupe becomes the primary's data.
  dupes->setCurrentIndex(dupes->model()->index(0, 1));
  Button("cmdSend")->click();
  EXPECT_EQ(Primary()->FieldText("Notes"), "Rome");
  EXPECT_EQ(Primary()->FieldText("Title"), "");
  EXPECT_EQ(Primary()->GetCardID(), 1);
}

TEST_F(FrmReviewTest, LeavingAChangedSetAsksAboutItsDupes) {
  Open(TwoSets());
  Button("cmdDelete")->click();  // dupe 2 of set 1
  EXPECT_EQ(Layout(*sets_->GetItemAs<CDupeSet>(1)), "1 | 3 | 2");

  prompt_->answers = {msgbox::kAnswerCancel};
  Button("cmdNextSet")->click();
  EXPECT_EQ(prompt_->shown.back().text, GetResString(374));
  EXPECT_EQ(review_->Session().CurrentSetIndex(), 1);

  prompt_->answers = {msgbox::kAnswerNo};
  Button("cmdNextSet")->click();
  EXPECT_EQ(review_->Session().CurrentSetIndex(), 2);
  EXPECT_EQ(Layout(*sets_->GetItemAs<CDupeSet>(1)), "1 | 3 | 2");

  Button("cmdUndo")->click();  // back in set 1, dupe 2 restored
  EXPECT_EQ(review_->Session().CurrentSetIndex(), 1);
  EXPECT_EQ(Layout(*sets_->GetItemAs<CDupeSet>(1)), "1 | 3 2 | ");

  Enter("DupeGrid", "Title", 0);  // a change here again
  prompt_->answers = {msgbox::kAnswerYes};
  Button("cmdNextSet")->click();  // Yes deletes both dupes
  EXPECT_EQ(prompt_->shown.back().text, GetResString(373));
  EXPECT_EQ(Layout(*sets_->GetItemAs<CDupeSet>(1)), "1 |  | 3 2");
  EXPECT_EQ(review_->Session().CurrentSetIndex(), 2);
  Button("cmdPrevSet")->click();
  EXPECT_TRUE(Find<QWidget>(review_, "picNoDupes")->isVisible());
  EXPECT_FALSE(Grid("DupeGrid")->isVisible());
  EXPECT_EQ(Find<QLabel>(review_, "lblNumDupes")->text().toStdString(), GetResString(391));
}

TEST_F(FrmReviewTest, CancelRestoresTheSetsAsHandedIn) {
  Open(TwoSets());
  auto handedIn = sets_->GetItemAs<CDupeSet>(1);
  Button("cmdDelete")->click();
  prompt_->answers = {msgbox::kAnswerNo};
  Button("cmdCancel")->click();
  EXPECT_EQ(prompt_->shown.back().text, GetResString(372));
  EXPECT_EQ(prompt_->shown.back().style, msgbox::kYesNo | msgbox::kExclamation | msgbox::kDefaultButton2);
  EXPECT_TRUE(review_->isVisible());

  QTest::keyClick(review_, Qt::Key_Escape);  // answered Yes
  EXPECT_FALSE(review_->isVisible());
  EXPECT_TRUE(frmReview::ReviewCancelled());
  EXPECT_NE(sets_->GetItemAs<CDupeSet>(1), handedIn);
  EXPECT_EQ(Layout(*sets_->GetItemAs<CDupeSet>(1)), "1 | 2 3 | ");
}

TEST_F(FrmReviewTest, HelpWithCtrlShowsTheVersion) {
  Open(TwoSets());
  QTest::keyPress(Grid("PrimaryGrid"), Qt::Key_Control);
  Button("cmdHelp")->click();
  QTest::keyRelease(Grid("PrimaryGrid"), Qt::Key_Control);
  ASSERT_EQ(prompt_->shown.size(), 1u);
  EXPECT_EQ(prompt_->shown[0].text, GetResString(206) + " 4.1");
  EXPECT_EQ(prompt_->shown[0].title, "Software version");
}

TEST_F(FrmReviewTest, ATrapIsReportedAndTheScreenStays) {
  Open(TwoSets());
  Enter("PrimaryGrid", "Title", 1);
  Primary()->GetField("Title")->SetText("changed behind the screen");
  auto* editor = Find<QPlainTextEdit>(review_, "txtEdit");
  editor->setPlainText("Founder");
  QTest::keyClick(editor, Qt::Key_Return);
  ASSERT_EQ(prompt_->shown.size(), 1u);
  EXPECT_EQ(prompt_->shown[0].text, "ERROR: Inconsistent data between display and memory");
  EXPECT_EQ(prompt_->shown[0].style, msgbox::kCritical);
  EXPECT_TRUE(review_->isVisible());
  EXPECT_EQ(Grid("PrimaryGrid")->model()->rowCount(), Primary()->NumFields() + 2);
  EXPECT_FALSE(Button("cmdUndo")->isEnabled());
}

TEST_F(FrmReviewTest, OkWritesTheChangesToTheDatabase) {
  ScratchDir dir("review");
  const std::string path = (dir / "cards.db").string();
  int32_t first = 0, second = 0;
  {
    auto store = CSqliteCardStore::Open(path);
    store->AddCardWithNextId({{"Name", "Ann Lee"}, {"Last Name", "Lee"}, {"Title", "CEO"}}, nullptr, nullptr, first);
    store->AddCardWithNextId({{"Name", "Ann Lee"}, {"Last Name", "Lee"}, {"Title", "CFO"}}, nullptr, nullptr, second);
  }
  std::shared_ptr<ICardStore> store = CSqliteCardStore::Open(path);
  CardStoreMgr()->SetCardStore(store);
  CardStoreMgr()->Connect();
  auto sets = std::make_shared<CList>();
  sets->AddItem(SetOf(CONFLICT_DUPE, {CardStoreMgr()->GetCard(first), CardStoreMgr()->GetCard(second)}));
  Open(sets);
  Enter("DupeGrid", "Title", 0);  // CFO
  Button("cmdDelete")->click();
  Button("cmdOK")->click();
  EXPECT_TRUE(review_->Saved());
  EXPECT_TRUE(prompt_->shown.empty()) << prompt_->Texts();
  CardStoreMgr()->Disconnect();
  CardStoreMgr()->SetCardStore(CSqliteCardStore::Open(path));
  EXPECT_EQ(CardStoreMgr()->GetCard(first)->FieldText("Title"), "CFO");
  EXPECT_FALSE(CardStoreMgr()->CardExists(second));
}

}  // namespace
}  // namespace ombrel
