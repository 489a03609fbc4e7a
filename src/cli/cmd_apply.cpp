// ombrel apply: the wizard's automatic actions on a card database: remove
// every exact duplicate, or merge every compatible duplicate into its
// primary, set by set, each set committed on its own.
#include <iostream>

#include "commands.h"
#include "options.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/dupes/database_actions.h"
#include "ombrel/foundation/messages.h"
#include "search_runner.h"
#include "ombrel/cardstore/sqlite_card_store.h"
#include "terminal.h"

namespace ombrel::cli {

namespace {

struct ApplyOptions {
  std::string db;
  std::string action;
  bool yes = false;
};

int RunApply(const ApplyOptions& options) {
  const bool remove = options.action == "remove-exact";
  const int32_t type = remove ? EXACT_DUPE : COMPATIBLE_DUPE;
  LoadInterfaceTexts();
  InstallStopHandler();
  // A second apply works on what the first one left: it waits for it, then
  // searches.
  if (!LockForApply(options.db)) {
    std::cerr << "Stopped while waiting: nothing was changed.\n";
    return 130;
  }
  auto store = ConnectDatabase(options.db, false);

  SearchOutcome outcome;
  {
    TerminalProgress progress;
    outcome = SearchDupes({type}, &progress);
  }
  if (outcome.stopped) {
    std::cerr << "Search stopped: nothing was changed.\n";
    return 130;
  }
  CList& sets = *outcome.results.front().sets;
  const int32_t cards = CountDuplicateCards(sets);
  if (cards == 0) {
    std::cout << (remove ? "No exact duplicates: nothing to remove.\n" : "No compatible duplicates: nothing to merge.\n");
    return 0;
  }

  TerminalProgress progress;
  CDatabaseActions actions(&progress);
  progress.SetActions(&actions);
  actions.SetRaiseErrors(true);
  actions.CheckDatabaseAccess();

  if (!options.yes) {
    if (!StdinIsTerminal()) {
      std::cerr << "error: apply changes the database; confirm on a terminal or pass --yes\n";
      return 1;
    }
    int32_t id = remove ? (cards == 1 ? 191 : 192) : (cards == 1 ? 193 : 194);
    std::string question = GetResString(id, {"%1", std::to_string(cards)});
    const Answer answer = AskYesNo(question);
    if (answer == Answer::kStopped) {
      std::cerr << "Stopped: nothing was changed.\n";
      return 130;
    }
    if (answer == Answer::kNo) {
      std::cout << "Nothing was changed.\n";
      return 0;
    }
  }

  const int64_t deletedBefore = store->CardsDeleted();
  if (remove) actions.RemoveDupes(sets);
  else actions.MergeDupes(sets);
  progress.Clear();

  // What this run did: the cards whose deletion it committed, not the
  // cards the search found (another writer may have taken some meanwhile).
  const int64_t gone = store->CardsDeleted() - deletedBefore;
  const int32_t total = sets.GetNumItems();
  const int32_t done = actions.SetsDone();
  if (done == total) {
    std::cout << (remove ? "Removed " : "Merged ") << gone << " duplicate card" << (gone == 1 ? "" : "s")
              << (remove ? " of " : " into ") << total << " contact" << (total == 1 ? "" : "s") << ".\n";
  } else {
    std::cout << (remove ? "Removed " : "Merged ") << gone << " duplicate card" << (gone == 1 ? "" : "s")
              << ", the duplicates of " << done << " of " << total << " contacts.\n";
  }
  if (gone != cards && done == total)
    std::cerr << "note: " << (cards - gone) << " of the duplicates found were gone before this run reached them.\n";
  if (actions.StopRequested() && done < total) {
    std::cerr << "Stopped before the remaining " << (total - done) << " contacts; run apply again to finish.\n";
    return 130;
  }
  return 0;
}

}  // namespace

void AddApplyCommand(CLI::App& app) {
  auto options = std::make_shared<ApplyOptions>();
  CLI::App* cmd = app.add_subcommand("apply", "Remove exact duplicates or merge compatible ones");
  cmd->add_option("--db", options->db, "The card database")->required()->check(kNonEmptyPath);
  cmd->add_option("--action", options->action, "What to do")
      ->required()
      ->check(CLI::IsMember({"remove-exact", "merge-compatible"}));
  cmd->add_flag("--yes", options->yes, "Do not ask for confirmation");
  cmd->footer(
      "remove-exact deletes every exact duplicate and keeps each set's primary card; merge-compatible copies the\n"
      "values a primary lacks from its compatible duplicates, then deletes them. Each dupe set is written in its\n"
      "own transactions, so the database is sound whenever the command stops; run it again to finish.\n"
      "Without --yes the command asks on the terminal and refuses to run without one.\n"
      "Ctrl-C stops before the next dupe set, never inside one, and at the question changes nothing (exit code 130).\n"
      "A second apply on the same database waits for the first to finish, then works on what is left; the\n"
      "counts printed are the cards this run deleted. A damaged database is refused before anything is written.");
  cmd->callback([options] {
    int code = RunApply(*options);
    if (code != 0) throw CLI::RuntimeError(code);
  });
}

}  // namespace ombrel::cli
