// ombrel wizard: the duplicates wizard on a card database, shown as a host
// application shows it (modal, over no window of its own).
#include <QApplication>
#include <QFileDialog>
#include <iostream>

#include "commands.h"
#include "options.h"
#include "ombrel/cardstore/sqlite_card_store.h"
#include "ombrel/foundation/error.h"
#include "ombrel/foundation/messages.h"
#include "ombrel/wizard/cduplicateswizard.h"
#include "ui/qt_prompt.h"
#include "ui/startup.h"

namespace ombrel::cli {

namespace {

struct WizardOptions {
  std::string db;
  std::string lang;
};

bool DisplayAvailable() {
  return qEnvironmentVariableIsSet("QT_QPA_PLATFORM") || qEnvironmentVariableIsSet("DISPLAY") ||
         qEnvironmentVariableIsSet("WAYLAND_DISPLAY");
}

int RunWizard(const WizardOptions& o) {
  if (!DisplayAvailable()) {
    std::cerr << "error: the wizard needs a display (set DISPLAY, or QT_QPA_PLATFORM=offscreen)\n";
    return 1;
  }
  static int argc = 1;
  static char name[] = "ombrel";
  static char* argv[] = {name, nullptr};
  QApplication app(argc, argv);
  QApplication::setApplicationName("Ombrel");
  ui::SetRequestedLanguage(o.lang);
  ui::UseWindowPrompt();
  // The texts are needed before the wizard loads them: for the file dialog
  // and for a database that cannot be opened.
  ui::InitResources();
  AppName() = GetResString(206);

  std::string path = o.db;
  if (path.empty()) {
    path = QFileDialog::getOpenFileName(nullptr, QString::fromStdString(GetResString(915)), QString(),
                                        QString::fromStdString(GetResString(916)))
               .toStdString();
    if (path.empty()) return 0;
  }

  std::shared_ptr<CSqliteCardStore> store;
  try {
    store = CSqliteCardStore::Open(path, OpenMode::kOpenExisting);
  } catch (const Error& e) {
    GetPrompt().MessageBox(GetResString(917, {"%1", path}) + "\r\n\r\n" + e.Description(), msgbox::kCritical,
                           AppName());
    return 1;
  }
  CDuplicatesWizard wizard;
  wizard.SetModalOn(0);
  if (wizard.Connect(store) != 1) {
    GetPrompt().MessageBox(GetResString(917, {"%1", path}) + "\r\n\r\n" + store->GetLastError(), msgbox::kCritical,
                           AppName());
    return 1;
  }
  if (wizard.Show() != 1) {
    std::cerr << "error: Unable to load resource file. Please reinstall the application.\n";
    return 1;
  }
  return 0;
}

}  // namespace

void AddWizardCommand(CLI::App& app) {
  auto options = std::make_shared<WizardOptions>();
  CLI::App* cmd = app.add_subcommand("wizard", "Open the duplicates wizard on a card database");
  cmd->footer(
      "Finds the exact, compatible and conflicting duplicates step by step, removes or merges them, and "
      "lets you review every set beside its primary card. Without --db, asks for the database file.");
  cmd->add_option("--db", options->db, "The card database (SQLite file)")->check(kNonEmptyPath);
  cmd->add_option("--lang", options->lang, "Interface language: en, de, fr or es")
      ->check(CLI::IsMember({"en", "de", "fr", "es"}));
  cmd->callback([options] {
    if (int code = RunWizard(*options); code != 0) throw CLI::RuntimeError(code);
  });
}

}  // namespace ombrel::cli
