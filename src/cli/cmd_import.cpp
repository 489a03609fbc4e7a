// ombrel import FILE.jsonl --db DB
#include <iostream>
#include <memory>

#include "cli/commands.h"
#include "cli/options.h"
#include "cli/terminal.h"
#include "ombrel/cardstore/jsonl.h"
#include "ombrel/cardstore/sqlite_card_store.h"

namespace ombrel::cli {

namespace {

struct ImportOptions {
  std::string file;
  std::string db;
};

int RunImport(const ImportOptions& o) {
  InstallStopHandler();
  DatabaseFileGuard guard(o.db);
  jsonl::Counts counts;
  {
    auto store = CSqliteCardStore::Open(o.db, OpenMode::kOpenOrCreate);
    try {
      counts = jsonl::ImportFile(*store, o.file, StopRequested);
    } catch (const Error&) {
      if (!StopRequested()) throw;
      std::cerr << "Import stopped: nothing was imported.\n";
      return 130;
    }
  }
  guard.Keep();
  std::cout << "imported " << counts.cards << " cards (" << counts.images << " images) into " << o.db << "\n";
  return 0;
}

}  // namespace

void AddImportCommand(CLI::App& app) {
  auto options = std::make_shared<ImportOptions>();
  CLI::App* cmd = app.add_subcommand("import", "Import a .jsonl card file into a card database");
  cmd->footer(
      "The database is created if needed. All or nothing: the first bad line stops the import with its line "
      "number and reason, and nothing of the file is kept; a database file that was empty or missing stays so. "
      "Every card must read as the duplicate search reads it, and every image (a regular file of at most "
      "50 MB, or a data: URI) must decode. Ctrl-C stops it, importing nothing (exit code 130).");
  cmd->add_option("file", options->file, "The .jsonl file (image paths are relative to it)")
      ->required()
      ->check(kNonEmptyPath);
  cmd->add_option("--db", options->db, "The card database (SQLite file)")->required()->check(kNonEmptyPath);
  cmd->callback([options] {
    int code = RunImport(*options);
    if (code != 0) throw CLI::RuntimeError(code);
  });
}

}  // namespace ombrel::cli
