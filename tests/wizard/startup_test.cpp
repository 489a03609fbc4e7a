#include "ui/startup.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include "ombrel/foundation/error.h"
#include "ombrel/foundation/messages.h"

namespace ombrel {
namespace {

class StartupTest : public ::testing::Test {
 protected:
  void TearDown() override {
    for (const char* v : {"TEST_APPINFO_APPDIR", "TEST_APPINFO_LANGDIR", "TEST_APPINFO_LANG"}) unsetenv(v);
    ui::SetRequestedLanguage("");
    ui::InitResources();
  }
};

TEST_F(StartupTest, TheLocaleFolderComesFromTheHostsLibraryOrTheComponentsOwn) {
  EXPECT_EQ(ui::GetLocaleDir(), ui::ComponentDir() + "/Locale/en");
  EXPECT_EQ(ui::Language(), "en");

  // Answers are cut at their first NUL and trimmed.
  setenv("TEST_APPINFO_APPDIR", "  /opt/host  ", 1);
  EXPECT_EQ(ui::GetLocaleDir(), "/opt/host/Locale/en");
  setenv("TEST_APPINFO_LANGDIR", " /opt/host/lang/fr ", 1);
  setenv("TEST_APPINFO_LANG", "fr ", 1);
  EXPECT_EQ(ui::GetLocaleDir(), "/opt/host/lang/fr");
  EXPECT_EQ(ui::Language(), "fr");
  // A language asked for by name takes its folder beside the others.
  ui::SetRequestedLanguage("de");
  EXPECT_EQ(ui::GetLocaleDir(), "/opt/host/Locale/de");
  EXPECT_EQ(ui::Language(), "de");

  // A folder without the texts: start-up fails with the system's message.
  try {
    ui::InitResources();
    ADD_FAILURE() << "no error";
  } catch (const Error& e) {
    EXPECT_EQ(e.Description(), "Unable to load resource file. Please reinstall the application.");
    EXPECT_EQ(e.Source(), "TRAP");
  }
}

}  // namespace
}  // namespace ombrel
