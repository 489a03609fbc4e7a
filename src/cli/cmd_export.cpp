// ombrel export --db DB [FILE.jsonl]
#include <iostream>
#include <memory>

#include "cli/commands.h"
#include "cli/options.h"
#include "cli/terminal.h"
#include "ombrel/cardstore/jsonl.h"
#include "ombrel/cardstore/sqlite_card_store.h"

namespace ombrel::cli {

namespace {

struct ExportOptions {
  std::string db;
  std::string file;
  bool fileGiven = false;
};

int RunExport(const ExportOptions& o) {
  InstallStopHandler();
  auto store = CSqliteCardStore::Open(o.db, OpenMode::kReadOnly);
  try {
    if (!o.fileGiven) {
      jsonl::Export(*store, std::cout, StopRequested);
      return 0;
    }
    auto counts = jsonl::ExportFile(*store, o.file, StopRequested);
    // A device or a pipe may well be standard output itself: the summary
    // then goes to standard error.
    std::ostream& report = counts.imagesInline ? std::cerr : std::cout;
    report << "exported " << counts.cards << " cards (" << counts.images << " images) to " << o.file << "\n";
    if (counts.imagesInline && counts.images > 0)
      std::cerr << "note: " << o.file << " is not a regular file, so the images went into its lines as data: URIs\n";
  } catch (const Error&) {
    if (!StopRequested()) throw;
    std::cerr << "Export stopped: " << (o.fileGiven ? o.file + " was left as it was" : "the output is incomplete")
              << ".\n";
    return 130;
  }
  return 0;
}

}  // namespace

void AddExportCommand(CLI::App& app) {
  auto options = std::make_shared<ExportOptions>();
  CLI::App* cmd = app.add_subcommand("export", "Export a card database as .jsonl");
  cmd->footer(
      "Without FILE the cards go to standard output with images as data: URIs; with FILE the images are "
      "written beside it, into the folder NAME-images for NAME.jsonl. A regular FILE is replaced only once the "
      "whole export is written (a failed or stopped export leaves it as it was); a symbolic link is written "
      "through; a device or a pipe is written in place, with the images as data: URIs. The database and its "
      "-wal, -shm and -journal files are refused as FILE. The database is opened read-only.");
  cmd->add_option("--db", options->db, "The card database (SQLite file)")->required()->check(kNonEmptyPath);
  cmd->add_option("file", options->file, "The .jsonl file to write")->check(kNonEmptyPath);
  cmd->callback([options, cmd] {
    options->fileGiven = cmd->count("file") > 0;
    int code = RunExport(*options);
    if (code != 0) throw CLI::RuntimeError(code);
  });
}

}  // namespace ombrel::cli
