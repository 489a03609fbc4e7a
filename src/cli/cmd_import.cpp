// ombrel import FILE.jsonl --db DB
#include <filesystem>
#include <iostream>
#include <memory>

#include "cli/commands.h"
#include "ombrel/cardstore/jsonl.h"
#include "ombrel/cardstore/sqlite_card_store.h"

namespace ombrel::cli {

namespace {

struct ImportOptions {
  std::string file;
  std::string db;
};

void RemoveDatabase(const std::string& path) {
  std::error_code ec;
  for (const char* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(path + suffix, ec);
}

void RunImport(const ImportOptions& o) {
  bool created = !std::filesystem::exists(o.db);
  auto store = CSqliteCardStore::Open(o.db, OpenMode::kOpenOrCreate);
  jsonl::Counts counts;
  try {
    counts = jsonl::ImportFile(*store, o.file);
  } catch (...) {
    // Nothing was imported; do not leave behind an empty database we made.
    store.reset();
    if (created) RemoveDatabase(o.db);
    throw;
  }
  std::cout << "imported " << counts.cards << " cards (" << counts.images << " images) into " << o.db << "\n";
}

}  // namespace

void AddImportCommand(CLI::App& app) {
  auto options = std::make_shared<ImportOptions>();
  CLI::App* cmd = app.add_subcommand("import", "Import a .jsonl card file into a card database");
  cmd->footer(
      "The database is created if needed. All or nothing: the first bad line stops the import with its line "
      "number and reason, and nothing of the file is kept.");
  cmd->add_option("file", options->file, "The .jsonl file (image paths are relative to it)")->required();
  cmd->add_option("--db", options->db, "The card database (SQLite file)")->required();
  cmd->callback([options] { RunImport(*options); });
}

}  // namespace ombrel::cli
