#include "wizard/frm_wizard.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QTableView>
#include <QTest>
#include <QTimer>
#include <atomic>
#include <chrono>
#include <thread>

#include "ombrel/dupes/cdupeset.h"
#include "ombrel/wizard/cduplicateswizard.h"
#include "review/frm_review.h"
#include "support/windows_fixture.h"

namespace ombrel {
namespace {

using ui::frmWizard;

class FrmWizardTest : public WindowsFixture {
 protected:
  // Ann Lee twice (exact, also compatible and conflicting), Bob Ray with
  // and without a title (compatible, conflicting), Cy Oak as CEO and as CFO
  // (conflicting): 1, 2 and 3 sets.
  void AddThreeKinds() {
    AddPerson(1, "Ann", "Lee", "ann@lee.org", {{"Title", "CEO"}});
    AddPerson(2, "Ann", "Lee", "ann@lee.org", {{"Title", "CEO"}});
    AddPerson(3, "Bob", "Ray", "bob@ray.org", {{"Title", "CTO"}});
    AddPerson(4, "Bob", "Ray", "bob@ray.org");
    AddPerson(5, "Cy", "Oak", "cy@oak.org", {{"Title", "CEO"}});
    AddPerson(6, "Cy", "Oak", "cy@oak.org", {{"Title", "CFO"}});
  }
  frmWizard* Open() {
    wizard_ = new frmWizard;
    wizard_->show();
    return wizard_;
  }
  QString Text(const char* label) { return Find<QLabel>(wizard_, label)->text(); }
  void Click(const char* button) { Find<QPushButton>(wizard_, button)->click(); }
  int Searches() const { return store_->CallCount("GetNumberOfCards"); }

  frmWizard* wizard_ = nullptr;
};

TEST_F(FrmWizardTest, WalksTheStepsSearchingEachListOnce) {
  AddThreeKinds();
  Open();
  EXPECT_EQ(Text("lblTitle").toStdString(), GetResString(101));
  EXPECT_FALSE(Find<QLabel>(wizard_, "lblSubTitle")->isVisible());
  EXPECT_FALSE(Find<QPushButton>(wizard_, "cmdBack")->isEnabled());

  Click("cmdNext");
  EXPECT_EQ(wizard_->GetStep(), 2);
  EXPECT_EQ(Text("lblSubTitle").toStdString(), GetResString(114));
  auto* list = Find<QTableView>(wizard_, "lstDupes");
  ASSERT_EQ(list->model()->rowCount(), 1);
  EXPECT_EQ(list->model()->index(0, 0).data().toString(), "Ann Lee");
  EXPECT_EQ(list->model()->index(0, 2).data().toString(), "1");
  EXPECT_TRUE(Find<QPushButton>(wizard_, "cmdAutoAction")->isVisible());

  Click("cmdNext");
  EXPECT_EQ(Text("lblSubTitle").toStdString(), GetResString(133, {"%1", "2"}));
  Click("cmdNext");
  EXPECT_EQ(Text("lblSubTitle").toStdString(), GetResString(153, {"%1", "3"}));
  EXPECT_FALSE(Find<QPushButton>(wizard_, "cmdAutoAction")->isVisible());
  EXPECT_TRUE(Find<QPushButton>(wizard_, "cmdReview")->isVisible());
  Click("cmdNext");
  EXPECT_EQ(Text("lblDesc").toStdString(), "Exact: 1\nCompatible: 2\nConflicting: 3");
  EXPECT_FALSE(Find<QPushButton>(wizard_, "cmdNext")->isEnabled());

  const int searches = Searches();
  EXPECT_EQ(searches, 1);  // one reading found the three lists
  for (int i = 0; i < 3; ++i) Click("cmdBack");
  EXPECT_EQ(wizard_->GetStep(), 2);
  for (int i = 0; i < 3; ++i) Click("cmdNext");
  EXPECT_EQ(Searches(), searches);
  EXPECT_TRUE(prompt_->shown.empty()) << prompt_->Texts();
}

TEST_F(FrmWizardTest, AutoActionAsksAndLaterStepsNeverOfferARemovedCard) {
  AddThreeKinds();
  Open();
  Click("cmdNext");
  auto removed = wizard_->Flow().CurrentDupes()->GetItemAs<CDupeSet>(1)->GetDupes().GetItemAs<CCard>(1);
  const int32_t removedId = removed->GetCardID();
  prompt_->answers = {msgbox::kAnswerNo};
  Click("cmdAutoAction");
  ASSERT_EQ(prompt_->shown.size(), 1u);
  EXPECT_EQ(prompt_->shown[0].text, GetResString(191));
  EXPECT_EQ(prompt_->shown[0].style, 36);
  EXPECT_EQ(prompt_->shown[0].title, "Ombrel");
  EXPECT_TRUE(store_->HasCard(removedId));

  Click("cmdAutoAction");  // answered Yes
  EXPECT_FALSE(store_->HasCard(removedId));
  EXPECT_EQ(Text("lblSubTitle").toStdString(), GetResString(115));
  EXPECT_FALSE(Find<QTableView>(wizard_, "lstDupes")->isVisible());

  // Ann Lee is left alone: the compatible step has only Bob Ray.
  Click("cmdNext");
  EXPECT_EQ(Text("lblSubTitle").toStdString(), GetResString(134));
  EXPECT_FALSE(wizard_->ReferencesExist(*removed));
}

TEST_F(FrmWizardTest, TheReviewOpensAtTheChosenSetAndItsEmptiedSetsLeave) {
  AddThreeKinds();
  Open();
  for (int i = 0; i < 3; ++i) Click("cmdNext");
  auto* list = Find<QTableView>(wizard_, "lstDupes");
  ASSERT_EQ(list->model()->rowCount(), 3);
  const auto chosen = wizard_->Flow().CurrentDupes()->GetItemAs<CDupeSet>(2);
  const auto dupe = chosen->GetDupes().GetItemAs<CCard>(1);
  const int32_t dupeId = dupe->GetCardID();
  std::string caption;
  int32_t shownSet = 0;
  QTimer::singleShot(0, [&] {
    auto* review = qobject_cast<ui::frmReview*>(ui::FindForm("frmReview"));
    ASSERT_NE(review, nullptr);
    caption = review->windowTitle().toStdString();
    shownSet = review->Session().CurrentSetIndex();
    review->findChild<QPushButton*>("cmdDelete")->click();
    review->findChild<QPushButton*>("cmdOK")->click();
  });
  list->selectRow(1);
  list->setFocus();
  QTest::keyClick(list, Qt::Key_Return);
  EXPECT_EQ(shownSet, 2);
  EXPECT_EQ(caption, GetResString(206) + "  -  " + GetResString(399));
  EXPECT_FALSE(store_->HasCard(dupeId));
  EXPECT_EQ(list->model()->rowCount(), 2);
  EXPECT_FALSE(wizard_->ReferencesExist(*dupe));
}

// The search waits at its first call until the test lets it go.
class GatedStore final : public ICardStore {
 public:
  explicit GatedStore(std::shared_ptr<FakeCardStore> inner) : inner_(std::move(inner)) {}
  std::atomic<bool> open{false};
  Status Connect() override { return inner_->Connect(); }
  Status Disconnect() override { return inner_->Disconnect(); }
  Status GetNumberOfCards(int32_t& n) override {
    for (int i = 0; i < 500 && !open; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return inner_->GetNumberOfCards(n);
  }
  Status GetCardID(int32_t index, int32_t& id) override { return inner_->GetCardID(index, id); }
  Status GetValue(int32_t id, const std::string& name, std::string& value) override {
    return inner_->GetValue(id, name, value);
  }
  Status GetCustomFields(std::string& fields) override { return inner_->GetCustomFields(fields); }
  Status HasFrontImage(int32_t id, bool& answer) override { return inner_->HasFrontImage(id, answer); }
  std::string GetLastError() override { return inner_->GetLastError(); }

 private:
  std::shared_ptr<FakeCardStore> inner_;
};

TEST_F(FrmWizardTest, CloseDuringTheSearchStopsItAndKeepsTheStep) {
  AddThreeKinds();
  auto gated = std::make_shared<GatedStore>(store_);
  CardStoreMgr()->SetCardStore(gated);
  Open();
  QTimer::singleShot(50, [&] {
    EXPECT_TRUE(ui::IsFormLoaded("frmDupeFinder"));
    Click("cmdClose");
    gated->open = true;
  });
  Click("cmdNext");
  EXPECT_EQ(wizard_->GetStep(), 1);
  EXPECT_TRUE(ui::IsFormLoaded("frmWizard"));
  EXPECT_FALSE(ui::IsFormLoaded("frmDupeFinder"));
  Click("cmdNext");  // searches again
  EXPECT_EQ(wizard_->GetStep(), 2);
}

TEST_F(FrmWizardTest, AFailingStoreIsReportedAndTheStepStays) {
  AddThreeKinds();
  store_->Fail("GetNumberOfCards", 7, "the disk is full");
  Open();
  Click("cmdNext");
  EXPECT_EQ(wizard_->GetStep(), 1);
  ASSERT_EQ(prompt_->shown.size(), 1u);
  EXPECT_EQ(prompt_->shown[0].text, "ERROR: Failed to get number of cards\r\nthe disk is full");
  EXPECT_EQ(prompt_->shown[0].style, msgbox::kCritical);
  EXPECT_EQ(prompt_->shown[0].title, "Ombrel");
}

TEST_F(FrmWizardTest, HostComponentConnectsShowsAndHides) {
  AddThreeKinds();
  CDuplicatesWizard host;
  EXPECT_EQ(host.SetModalOff(0), 1);
  // Shown before Connect: the first step that reads says why.
  CardStoreMgr().reset();
  AppName().clear();
  EXPECT_EQ(host.Show(), 1);
  EXPECT_EQ(AppName(), GetResString(206));
  auto* wizard = qobject_cast<frmWizard*>(ui::FindForm("frmWizard"));
  ASSERT_NE(wizard, nullptr);
  EXPECT_TRUE(wizard->isVisible());
  wizard->findChild<QPushButton*>("cmdNext")->click();
  ASSERT_EQ(prompt_->shown.size(), 1u);
  EXPECT_EQ(prompt_->shown[0].text.rfind("ERROR: ", 0), 0u);

  // Hide unloads every window and gives the host its window back.
  QWidget hostWindow;
  hostWindow.setEnabled(false);
  HostWindow() = ui::NativeWindowId(&hostWindow);
  EXPECT_EQ(host.Hide(), 1);
  EXPECT_FALSE(ui::IsFormLoaded("frmWizard"));
  EXPECT_TRUE(hostWindow.isEnabled());
  EXPECT_EQ(ResourceReader(), nullptr);

  // Connect lets go of the manager it replaces; a store that cannot connect answers 0.
  EXPECT_EQ(host.Connect(store_), 1);
  store_->Fail("Connect", 3, "offline");
  const int disconnects = store_->CallCount("Disconnect");
  EXPECT_EQ(host.Connect(store_), 0);
  EXPECT_EQ(store_->CallCount("Disconnect"), disconnects + 1);

  // Without its texts the wizard does not show.
  ui::SetRequestedLanguage("xx");
  EXPECT_EQ(host.Show(), 0);
  EXPECT_FALSE(ui::IsFormLoaded("frmWizard"));
}

TEST_F(FrmWizardTest, ModalShowReturnsWhenTheWizardCloses) {
  CDuplicatesWizard host;
  host.SetModalOn(0);
  ASSERT_EQ(host.Connect(store_), 1);
  bool closedFromInside = false;
  QTimer::singleShot(50, [&] {
    auto* wizard = ui::FindForm("frmWizard");
    ASSERT_NE(wizard, nullptr);
    EXPECT_TRUE(wizard->isModal() || wizard->windowModality() == Qt::ApplicationModal);
    wizard->findChild<QPushButton*>("cmdClose")->click();
    closedFromInside = true;
  });
  EXPECT_EQ(host.Show(), 1);
  EXPECT_TRUE(closedFromInside);
  EXPECT_FALSE(ui::IsFormLoaded("frmWizard"));
}

}  // namespace
}  // namespace ombrel
