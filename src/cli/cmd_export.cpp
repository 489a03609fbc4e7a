// ombrel export --db DB [FILE.jsonl]
#include <iostream>
#include <memory>

#include "cli/commands.h"
#include "ombrel/cardstore/jsonl.h"
#include "ombrel/cardstore/sqlite_card_store.h"

namespace ombrel::cli {

namespace {

struct ExportOptions {
  std::string db;
  std::string file;
};

void RunExport(const ExportOptions& o) {
  auto store = CSqliteCardStore::Open(o.db, OpenMode::kOpenExisting);
  if (o.file.empty()) {
    jsonl::Export(*store, std::cout);
    std::cout.flush();
    return;
  }
  auto counts = jsonl::ExportFile(*store, o.file);
  std::cout << "exported " << counts.cards << " cards (" << counts.images << " images) to " << o.file << "\n";
}

}  // namespace

void AddExportCommand(CLI::App& app) {
  auto options = std::make_shared<ExportOptions>();
  CLI::App* cmd = app.add_subcommand("export", "Export a card database as .jsonl");
  cmd->footer(
      "Without FILE the cards go to standard output with images as data: URIs; with FILE the images are "
      "written beside it, into the folder NAME-images for NAME.jsonl.");
  cmd->add_option("--db", options->db, "The card database (SQLite file)")->required();
  cmd->add_option("file", options->file, "The .jsonl file to write");
  cmd->callback([options] { RunExport(*options); });
}

}  // namespace ombrel::cli
