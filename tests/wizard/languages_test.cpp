// Every language's texts fit the windows: at the size a window needs for
// its texts (its minimum size, and the height its wrapped texts take at that
// width) no label or button is cut, and that size fits a 1024 x 720 screen.
// Every language has its own help, whose topics F1 opens.
#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QApplication>
#include <QFile>
#include <QLabel>
#include <QLayout>
#include <QPushButton>
#include <QRegularExpression>
#include <QTest>
#include <QTextBrowser>
#include <algorithm>
#include <filesystem>
#include <set>

#include "ombrel/dupes/cdupeset.h"
#include "review/frm_categories.h"
#include "review/frm_review.h"
#include "review/frm_zoom.h"
#include "support/windows_fixture.h"
#include "ui/frm_ask_delete_dupes.h"
#include "ui/frm_database_actions.h"
#include "ui/help.h"
#include "wizard/frm_dupe_finder.h"
#include "wizard/frm_wizard.h"

namespace ombrel {
namespace {

constexpr QSize kScreen(1024, 720);

QSize NeededSize(QWidget* window) {
  QSize need = window->minimumSize().expandedTo(window->minimumSizeHint());
  if (QLayout* layout = window->layout(); layout && layout->hasHeightForWidth())
    need.setHeight(std::max(need.height(), layout->totalHeightForWidth(need.width())));
  return need;
}

// The texts window cuts at its present size: narrower or lower than they
// need, or reaching past the window's edge.
QStringList CutTexts(QWidget* window) {
  QStringList cut;
  for (QWidget* w : window->findChildren<QWidget*>()) {
    if (!w->isVisibleTo(window)) continue;
    bool fits = true;
    QString text;
    if (auto* label = qobject_cast<QLabel*>(w)) {
      text = label->text();
      fits = label->wordWrap() ? label->heightForWidth(label->width()) <= label->height()
                               : label->sizeHint().width() <= label->width();
    } else if (auto* button = qobject_cast<QAbstractButton*>(w)) {
      text = button->text();
      fits = button->sizeHint().width() <= button->width();
    }
    if (text.isEmpty()) continue;
    if (!fits || !window->rect().contains(QRect(w->mapTo(window, QPoint(0, 0)), w->size()))) cut << text;
  }
  return cut;
}

class LanguagesTest : public WindowsFixture, public ::testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    WindowsFixture::SetUp();
    ui::SetRequestedLanguage(GetParam());
    ui::InitResources();
  }

  // Shows window at the size its texts need and checks that size and the texts.
  void ExpectFits(QWidget* window, const std::string& state) {
    SCOPED_TRACE(window->objectName().toStdString() + " " + state);
    window->show();
    QApplication::processEvents();
    const QSize need = NeededSize(window);
    EXPECT_LE(need.width(), kScreen.width());
    EXPECT_LE(need.height(), kScreen.height());
    window->resize(need);
    if (window->layout()) window->layout()->activate();
    QApplication::processEvents();
    const QStringList cut = CutTexts(window);
    EXPECT_TRUE(cut.isEmpty()) << "at " << window->width() << "x" << window->height() << ": "
                               << cut.join(" | ").toStdString();
  }

  // Ann Lee twice, Bob Ray with and without a title, Cy Oak three times with
  // three titles: a list at every step, and a set of two dupes to review.
  void AddCards() {
    AddPerson(1, "Ann", "Lee", "ann@lee.org", {{"Title", "CEO"}, {"Company", "Lee & Partners"}});
    AddPerson(2, "Ann", "Lee", "ann@lee.org", {{"Title", "CEO"}, {"Company", "Lee & Partners"}});
    AddPerson(3, "Bob", "Ray", "bob@ray.org", {{"Title", "CTO"}});
    AddPerson(4, "Bob", "Ray", "bob@ray.org");
    AddPerson(5, "Cy", "Oak", "cy@oak.org", {{"Title", "CEO"}, {"Phone", "+1 555 0100"}});
    AddPerson(6, "Cy", "Oak", "cy@oak.org", {{"Title", "CFO"}});
    AddPerson(7, "Cy", "Oak", "cy@oak.org", {{"Title", "Chief Technology Officer"}});
  }
};

TEST_P(LanguagesTest, TheWizardsStepsShowTheirWholeTexts) {
  AddCards();
  auto* wizard = new ui::frmWizard;
  for (int step = 1; step <= 5; ++step) {
    ASSERT_EQ(wizard->GetStep(), step);
    ExpectFits(wizard, "step " + std::to_string(step));
    wizard->cmdNext->click();
  }
}

TEST_P(LanguagesTest, TheReviewAndItsDialogsShowTheirWholeTexts) {
  AddCards();
  auto* wizard = new ui::frmWizard;
  for (int i = 0; i < 3; ++i) wizard->cmdNext->click();
  ASSERT_EQ(wizard->GetStep(), 4);
  auto sets = wizard->Flow().CurrentDupes();
  ASSERT_TRUE(sets);
  // The set with the most dupes shows the most columns and markers.
  int32_t widest = 1;
  for (int32_t i = 1; i <= sets->GetNumItems(); ++i)
    if (sets->GetItemAs<CDupeSet>(i)->GetDupes().GetNumItems() >
        sets->GetItemAs<CDupeSet>(widest)->GetDupes().GetNumItems())
      widest = i;

  auto* review = new ui::frmReview(wizard);
  review->SetAskOnOK(true);
  review->SetZoomWindows(true);
  review->SetCaption(GetResString(399));
  review->SetDupes(sets, widest);
  ExpectFits(review, "two dupes");
  review->cmdDelete->click();
  review->cmdDelete->click();
  ExpectFits(review, "no dupes left");

  auto* ask = new ui::frmAskDeleteDupes(review);
  ask->SetMessage(GetResString(373));
  ExpectFits(ask, "373");

  auto* finder = new ui::frmDupeFinder(wizard);
  for (int32_t action : {701, 702, 703, 704})
    for (int32_t text : {705, 706, 707}) {
      finder->ShowProgress({action, text, 123456, 999999}, 0);
      ExpectFits(finder, std::to_string(action) + " " + std::to_string(text));
    }

  auto* actions = new ui::frmDatabaseActions(wizard);
  IActionProgress& progress = *actions;
  for (int32_t action : {601, 602, 603})
    for (int32_t text : {604, 605}) {
      progress.SetActionText(action);
      progress.SetText(text, 123456, 999999);
      ExpectFits(actions, std::to_string(action) + " " + std::to_string(text));
    }

  auto* categories = new ui::frmCategories(review);
  categories->SetCategories("Business\r\nPersonal");
  ExpectFits(categories, "");
  auto* zoom = new ui::frmZoom(review);
  ExpectFits(zoom, "no image");
}

TEST_P(LanguagesTest, EveryWindowHasItsHelpTopicWhoseLinksLeadToTopicsAndF1OpensIt) {
  namespace fs = std::filesystem;
  namespace ctx = ui::help_context;
  const fs::path dir = ui::HelpDir();
  ASSERT_EQ(dir.parent_path().filename(), GetParam());
  std::set<std::string> topics;
  for (int context : {0, ctx::kWizard, ctx::kReview, ctx::kMerge, ctx::kZoom, ctx::kCategories,
                      ctx::kDatabaseActions, ctx::kSearch, ctx::kDeleteQuestion}) {
    const std::string file = ui::HelpTopicFile(context);
    // The language's own topic, not the English one it would fall back to.
    EXPECT_EQ(ui::HelpTopicPath(context), (dir / file).string());
    topics.insert(file);
  }
  // Links between topics (the style sheet they share is linked otherwise).
  static const QRegularExpression link("<a href=\"([^\"]*)\"");
  for (const std::string& topic : topics) {
    QFile file(QString::fromStdString((dir / topic).string()));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << topic;
    for (const auto& match : link.globalMatch(QString::fromUtf8(file.readAll())))
      EXPECT_TRUE(topics.contains(match.captured(1).toStdString())) << topic << " links to " << match.captured(1).toStdString();
  }

  auto* wizard = new ui::frmWizard;
  wizard->show();
  QApplication::setActiveWindow(wizard);
  QTest::keyClick(wizard, Qt::Key_F1);
  QWidget* viewer = ui::FindForm("frmHelp");
  ASSERT_NE(viewer, nullptr);
  auto* browser = viewer->findChild<QTextBrowser*>("txtHelp");
  ASSERT_NE(browser, nullptr);
  EXPECT_EQ(browser->source().toLocalFile().toStdString(), (dir / "wizard.html").string());
  EXPECT_FALSE(browser->documentTitle().isEmpty());
}

INSTANTIATE_TEST_SUITE_P(Languages, LanguagesTest, ::testing::Values("en", "de", "fr", "es"),
                         [](const auto& info) { return std::string(info.param); });

}  // namespace
}  // namespace ombrel
