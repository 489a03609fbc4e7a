#include "wizard/wizard_flow.h"

#include <gtest/gtest.h>

#include "ombrel/dupes/cdupeset.h"
#include "support/cards.h"
#include "support/error_text.h"

namespace ombrel {
namespace {

// A list of n sets of the type, each a primary with one dupe (IDs from first).
std::shared_ptr<CList> Sets(int32_t type, int n, int32_t first = 1) {
  auto list = std::make_shared<CList>();
  for (int i = 0; i < n; ++i) list->AddItem(SetOf(type, {MakeCard(first + 2 * i), MakeCard(first + 2 * i + 1)}));
  return list;
}

struct PageCase {
  int32_t step;
  int sets;  // in the step's list
  ResText title, subTitle, desc, question;  // question: the automatic action's, for the steps that have one
  bool list, autoAction, reviewLabel, reviewButton;
};

// The texts and controls of a step follow the number of sets in its list:
// none, one, or several (counted in the text).
TEST(WizardFlowTest, TextsAndControlsFollowTheCount) {
  const PageCase cases[] = {
      {2, 0, {112}, {115}, {117}, {}, false, false, false, false},
      {2, 1, {111}, {114}, {116}, {191}, true, true, true, true},
      {2, 7, {111}, {113, {"%1", "7"}}, {116}, {192, {"%1", "7"}}, true, true, true, true},
      {3, 0, {132}, {135}, {137}, {}, false, false, false, false},
      {3, 1, {131}, {134}, {136}, {193}, true, true, true, true},
      {3, 2, {131}, {133, {"%1", "2"}}, {136}, {194, {"%1", "2"}}, true, true, true, true},
      // No automatic action for conflicts: only the review button.
      {4, 0, {152}, {155}, {157}, {}, false, false, false, false},
      {4, 1, {151}, {154}, {156}, {}, true, false, false, true},
      {4, 3, {151}, {153, {"%1", "3"}}, {156}, {}, true, false, false, true},
  };
  for (const auto& c : cases) {
    CWizardFlow flow;
    flow.SetList(CWizardFlow::TypeOfStep(c.step), Sets(CWizardFlow::TypeOfStep(c.step), c.sets));
    const WizardPage page = flow.PageOf(c.step);
    SCOPED_TRACE("step " + std::to_string(c.step) + ", " + std::to_string(c.sets) + " sets");
    EXPECT_EQ(page.title, c.title);
    EXPECT_EQ(page.subTitle, c.subTitle);
    EXPECT_EQ(page.desc, c.desc);
    if (c.question.id != 0) {
      EXPECT_EQ(CWizardFlow::AutoActionQuestion(c.step, c.sets), c.question);
    }
    EXPECT_EQ(page.showList, c.list);
    EXPECT_EQ(page.showAutoAction, c.autoAction);
    EXPECT_EQ(page.showReviewLabel, c.reviewLabel);
    EXPECT_EQ(page.showReviewButton, c.reviewButton);
  }
  // Two traps that differ only in a capital letter.
  EXPECT_EQ(TrapText([] { CWizardFlow::AutoActionQuestion(4, 1); }), "Unimplemented Wizard step");
  EXPECT_EQ(TrapText([] { CWizardFlow::ReviewCaption(5); }), "Unknown Wizard step");
  EXPECT_EQ(TrapText([] { CWizardFlow().PageOf(6); }), "Unknown wizard step");
}

// The summary counts the sets of every list.
TEST(WizardFlowTest, SummaryCountsEveryList) {
  CWizardFlow flow;
  EXPECT_EQ(flow.PageOf(5).subTitle, ResText{174});
  EXPECT_EQ(flow.PageOf(5).desc, ResText{});
  flow.SetList(EXACT_DUPE, Sets(EXACT_DUPE, 1));
  EXPECT_EQ(flow.PageOf(5).subTitle, ResText{173});
  flow.SetList(COMPATIBLE_DUPE, Sets(COMPATIBLE_DUPE, 2, 100));
  flow.SetList(CONFLICT_DUPE, Sets(CONFLICT_DUPE, 3, 200));
  const WizardPage summary = flow.PageOf(5);
  EXPECT_EQ(summary.subTitle, (ResText{172, {"%1", "6"}}));
  EXPECT_EQ(summary.desc, (ResText{175, {"%1", "1", "%2", "2", "%3", "3"}}));
  EXPECT_EQ(TrapText([&] { flow.GoTo(0); }), "Unknown wizard step");
}

TEST(WizardFlowTest, ListsAreSearchedOnceAndForgottenWhenTheDatabaseChanges) {
  CWizardFlow flow;
  // One reading of the cards finds a step's list and the later ones.
  EXPECT_EQ(flow.TypesToSearch(2), (std::vector<int32_t>{EXACT_DUPE, COMPATIBLE_DUPE, CONFLICT_DUPE}));
  EXPECT_EQ(flow.TypesToSearch(1), std::vector<int32_t>{});
  flow.SetList(EXACT_DUPE, Sets(EXACT_DUPE, 2));
  flow.GoTo(2);
  EXPECT_EQ(flow.TypesToSearch(2), std::vector<int32_t>{});
  EXPECT_EQ(flow.TypesToSearch(4), std::vector<int32_t>{CONFLICT_DUPE});
  // The summary needs every list still missing.
  EXPECT_EQ(flow.TypesToSearch(5), (std::vector<int32_t>{COMPATIBLE_DUPE, CONFLICT_DUPE}));
  flow.SetList(COMPATIBLE_DUPE, Sets(COMPATIBLE_DUPE, 1, 100));
  EXPECT_EQ(flow.TypesToSearch(3), std::vector<int32_t>{});

  // A set emptied by an action leaves; the other lists are searched again.
  auto exact = flow.ListOfType(EXACT_DUPE);
  exact->GetItemAs<CDupeSet>(1)->DeleteAllDupes();
  flow.DatabaseChanged();
  EXPECT_EQ(flow.ListOfType(EXACT_DUPE)->GetNumItems(), 1);
  EXPECT_EQ(flow.ListOfType(COMPATIBLE_DUPE), nullptr);
  EXPECT_EQ(flow.TypesToSearch(3), (std::vector<int32_t>{COMPATIBLE_DUPE, CONFLICT_DUPE}));
}

TEST(WizardFlowTest, ReferencesExistByCardId) {
  CWizardFlow flow;
  flow.SetList(CONFLICT_DUPE, Sets(CONFLICT_DUPE, 2, 10));  // cards 10..13
  EXPECT_TRUE(flow.ReferencesExist(*MakeCard(10)));  // a primary
  EXPECT_TRUE(flow.ReferencesExist(*MakeCard(13)));  // a dupe
  EXPECT_FALSE(flow.ReferencesExist(*MakeCard(14)));
}

}  // namespace
}  // namespace ombrel
