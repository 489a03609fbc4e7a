#include "ombrel/review/cmergedialog.h"

#include <gtest/gtest.h>

#include <QPushButton>
#include <QTableView>
#include <QTest>
#include <QTimer>
#include <fstream>
#include <functional>

#include "cli/merge_card.h"
#include "ombrel/cards/ccard.h"
#include "ombrel/cardstore/sqlite_card_store.h"
#include "review/frm_review.h"
#include "review/review_grid.h"
#include "support/scratch_dir.h"
#include "support/windows_fixture.h"

namespace ombrel {
namespace {

class CMergeDialogTest : public WindowsFixture {
 protected:
  // Runs what the user does once the dialog shows, then closes it with button.
  void WhenShown(std::function<void(ui::frmReview&)> act, const char* button) {
    QTimer::singleShot(0, [act, button] {
      auto* review = qobject_cast<ui::frmReview*>(ui::FindForm("frmReview"));
      ASSERT_NE(review, nullptr);
      act(*review);
      review->findChild<QPushButton*>(button)->click();
    });
  }
  // Enter on the other record's (second dupe column's) value of a field.
  static void TakeOther(ui::frmReview& review, const std::string& field) {
    auto* grid = review.findChild<QTableView*>("DupeGrid");
    for (int row = 0; row < grid->model()->rowCount(); ++row)
      if (grid->model()->index(row, 0).data(ui::kFieldNameRole).toString().toStdString() == field)
        grid->setCurrentIndex(grid->model()->index(row, 1));
    grid->setFocus();
    QTest::keyClick(grid, Qt::Key_Return);
  }
  static std::string Header(ui::frmReview& review, int column) {
    return review.findChild<QTableView*>("DupeGrid")->model()->headerData(column, Qt::Horizontal).toString().toStdString();
  }
};

TEST_F(CMergeDialogTest, CardDataAfterOkCancelAndASecondShow) {
  CMergeDialog merge;
  merge.SetFieldData("Name", "Ann Lee", "", "Ann M. Lee");
  merge.SetFieldData("Title", "CEO", "", "Chief\tExecutive");
  merge.SetFieldData("Notes", "", "", "");
  std::string headers;
  WhenShown([&](ui::frmReview& review) {
    headers = Header(review, 0) + "|" + Header(review, 1);
    TakeOther(review, "Title");
  }, "cmdOK");
  EXPECT_FALSE(merge.Show(0, "Merge Ann Lee", "Ours"));
  EXPECT_EQ(headers, "Ours|");  // without a tab only the first column has a header
  std::string data = "kept:";
  merge.GetCardData(data);
  EXPECT_EQ(data, "kept:Name\tAnn Lee\tTitle\tChief Executive\t");

  // A second showing starts from the data handed in; Cancel still leaves the edits readable.
  WhenShown([&](ui::frmReview& review) {
    headers = Header(review, 0) + "|" + Header(review, 1);
    TakeOther(review, "Name");
  }, "cmdCancel");
  EXPECT_TRUE(merge.Show(0, "Merge Ann Lee", "Ours\tTheirs"));
  EXPECT_EQ(headers, "Ours|Theirs");
  data.clear();
  merge.GetCardData(data);
  EXPECT_EQ(data, "Name\tAnn M. Lee\tTitle\tCEO\t");
}

TEST_F(CMergeDialogTest, MergeCardWritesWhatWasKept) {
  ScratchDir dir("merge-card");
  const std::string db = (dir / "cards.db").string();
  int32_t id = 0;
  {
    auto store = CSqliteCardStore::Open(db);
    store->AddCardWithNextId({{"Name", "Ann Lee"}, {"First Name", "Ann"}, {"Last Name", "Lee"}, {"Title", "CEO"}},
                             nullptr, nullptr, id);
  }
  const std::string other = (dir / "other.jsonl").string();
  std::ofstream(other) << R"({"database": {"custom_fields": []}})" << "\n"
                       << R"({"values": {"Name": "Ann Berg", "Last Name": "Berg", "Title": "Founder"}})" << "\n";
  cli::MergeOptions options{db, id, other, 0, true, ""};

  WhenShown([](ui::frmReview& review) { TakeOther(review, "Title"); }, "cmdCancel");
  EXPECT_EQ(cli::RunMergeCard(options), 130);
  WhenShown([](ui::frmReview& review) {
    TakeOther(review, "Title");
    TakeOther(review, "Name");
  }, "cmdOK");
  EXPECT_EQ(cli::RunMergeCard(options), 0);

  auto store = CSqliteCardStore::Open(db);
  std::string title, last;
  store->GetValue(id, "Title", title);
  store->GetValue(id, "Last Name", last);
  EXPECT_EQ(title, "Founder");
  // The new name no longer holds the old last name: the record's goes with it.
  EXPECT_EQ(last, "Berg");
}

}  // namespace
}  // namespace ombrel
