// Every interface text a window asks for is in the English resource file.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "ombrel/foundation/messages.h"
#include "support/cards.h"
#include "wizard/wizard_flow.h"

namespace ombrel {
namespace {

namespace fs = std::filesystem;

// The numbers the windows' code names where it asks for a text: in a call
// (GetResString, Res, ResText), in a table of labels ({"Name", 341}), as a
// named resource constant (constexpr int32_t kX = 395), a button's caption
// and tip (MakeButton(this, "cmdX", 301, 321)), or one of two (? 357 : 358).
std::set<int32_t> NumbersInCode() {
  const std::regex patterns[] = {
      std::regex(R"((?:GetResString|Res)\(\s*(\d{3})\b)"),
      std::regex(R"(ResText\{(\d{3}))"),
      std::regex(R"(\{"[^"]*", (\d{3})\})"),
      std::regex(R"(constexpr int32_t k\w+ = (\d{3});)"),
      std::regex(R"(MakeButton\([^,]+, "\w+", (\d{3}))"),
      std::regex(R"(MakeButton\([^,]+, "\w+", \d{3}, (\d{3}))"),
      std::regex(R"(\? (\d{3}) :)"),
      std::regex(R"(: (\d{3})[;)])"),
      std::regex(R"(\bid = (\d{3});)"),
  };
  std::set<int32_t> found;
  const fs::path root = OMBREL_SOURCE_DIR;
  for (const char* dir : {"src/ui", "src/wizard", "src/review", "src/cli", "include/ombrel/dupes"}) {
    for (const auto& entry : fs::recursive_directory_iterator(root / dir)) {
      std::ifstream in(entry.path());
      std::stringstream text;
      text << in.rdbuf();
      const std::string code = text.str();
      for (const auto& pattern : patterns)
        for (std::sregex_iterator it(code.begin(), code.end(), pattern), end; it != end; ++it)
          found.insert(std::stoi((*it)[1]));
    }
  }
  return found;
}

// The numbers the wizard's decisions give, which its code works out.
std::set<int32_t> NumbersOfTheWizard() {
  std::set<int32_t> found;
  for (int n : {0, 1, 2}) {
    CWizardFlow flow;
    for (int32_t type : {1, 2, 3}) {
      auto list = std::make_shared<CList>();
      for (int i = 0; i < n; ++i) list->AddItem(SetOf(type, {MakeCard(2 * i + 1), MakeCard(2 * i + 2)}));
      flow.SetList(type, list);
    }
    for (int32_t step = 1; step <= CWizardFlow::kSteps; ++step) {
      const WizardPage page = flow.PageOf(step);
      for (const ResText* t : {&page.step, &page.title, &page.subTitle, &page.desc, &page.listTitle, &page.listTip,
                               &page.autoActionCaption, &page.autoActionLabel, &page.reviewLabel, &page.clickNext})
        if (t->id != 0) found.insert(t->id);
    }
  }
  for (int32_t step : {2, 3})
    for (int32_t k : {1, 2}) found.insert(CWizardFlow::AutoActionQuestion(step, k).id);
  for (int32_t step : {2, 3, 4}) found.insert(CWizardFlow::ReviewCaption(step));
  return found;
}

TEST(InterfaceTextsTest, EveryNumberTheWindowsAskForIsInTheEnglishFile) {
  CResourceReader english;
  ASSERT_TRUE(english.Load(std::string(OMBREL_SOURCE_DIR) + "/locale/en/OmbrelDll.dat"));
  std::set<int32_t> wanted = NumbersInCode();
  ASSERT_GT(wanted.size(), 100u);  // the patterns still find the calls
  for (int32_t id : NumbersOfTheWizard()) wanted.insert(id);
  std::string missing;
  for (int32_t id : wanted)
    if (!english.Has(id)) missing += std::to_string(id) + " ";
  EXPECT_EQ(missing, "");
}

}  // namespace
}  // namespace ombrel
