// ombrel find: the duplicate search over a card database, printed as text
// (each set's dump) or as JSON (type, primary and dupes by card ID).
#include <charconv>
#include <iostream>

#include "commands.h"
#include "ombrel/cards/ccard.h"
#include "ombrel/dupes/cdupeset.h"
#include "search_runner.h"
#include "terminal.h"

namespace ombrel::cli {

namespace {

struct FindOptions {
  std::string db;
  std::string type = "all";
  bool json = false;
};

std::vector<int32_t> TypesFor(const std::string& type) {
  if (type == "exact") return {EXACT_DUPE};
  if (type == "compatible") return {COMPATIBLE_DUPE};
  if (type == "conflict") return {CONFLICT_DUPE};
  return {EXACT_DUPE, COMPATIBLE_DUPE, CONFLICT_DUPE};
}

const char* Heading(int32_t type) {
  switch (type) {
    case EXACT_DUPE: return "Exact duplicates";
    case COMPATIBLE_DUPE: return "Compatible duplicates";
    default: return "Conflicting duplicates";
  }
}

int RunFind(const FindOptions& options) {
  LoadInterfaceTexts();
  auto store = ConnectDatabase(options.db);
  InstallStopHandler();
  // Each type is printed as soon as it is found. Its sets are then kept, not
  // freed: the process ends right after, and handing hundreds of thousands
  // of cards and sets back to the allocator one by one would only add to the
  // wait.
  static auto* keptUntilExit = new std::vector<std::shared_ptr<void>>();
  bool firstType = true, firstSet = true;
  auto printText = [&](int32_t type, const std::shared_ptr<CList>& sets) {
    if (!firstType) std::cout << "\n";
    firstType = false;
    std::cout << Heading(type) << "\n";
    if (!sets) {
      std::cout << "(not searched: stopped)\n";
      return;
    }
    for (int32_t i = 1; i <= sets->GetNumItems(); ++i) std::cout << sets->GetItemAs<CDupeSet>(i)->ToStr() << "\r\n";
    std::cout << "Duplicate cards: " << CountDuplicateCards(*sets) << "\n";
    keptUntilExit->push_back(sets);
  };
  auto printJson = [&](int32_t type, const std::shared_ptr<CList>& sets) {
    if (!sets) return;
    const std::string typeName = TypeName(type);
    std::string out;
    char number[16];
    auto append = [&](int32_t value) {
      auto end = std::to_chars(number, number + sizeof number, value).ptr;
      out.append(number, end);
    };
    // A search's list holds dupe sets and a set's dupes cards, never
    // anything else: both are read in place.
    sets->ForEachItem([&](const CObject* item) {
      const auto& set = static_cast<const CDupeSet&>(*item);
      out += firstSet ? "[\n  " : ",\n  ";
      out += R"({"type": ")";
      out += typeName;
      out += R"(", "primary": )";
      append(set.PrimaryCard()->GetCardID());
      out += R"(, "dupes": [)";
      bool firstDupe = true;
      set.GetDupes().ForEachItem([&](const CObject* dupe) {
        if (!firstDupe) out += ", ";
        firstDupe = false;
        append(static_cast<const CCard&>(*dupe).GetCardID());
      });
      out += "]}";
      firstSet = false;
      if (out.size() > (1 << 16)) {
        std::cout << out;
        out.clear();
      }
    });
    std::cout << out;
    keptUntilExit->push_back(sets);
  };
  SearchOutcome outcome;
  {
    TerminalProgress progress;
    auto emit = [&](int32_t type, const std::shared_ptr<CList>& sets) {
      progress.Clear();
      if (options.json) printJson(type, sets);
      else printText(type, sets);
    };
    outcome = SearchDupes(TypesFor(options.type), &progress, emit);
  }
  if (options.json) std::cout << (firstSet ? "[]\n" : "\n]\n");
  keptUntilExit->push_back(std::move(outcome.cards));
  keptUntilExit->push_back(std::move(outcome.workingTables));
  std::cout.flush();
  if (outcome.stopped) {
    std::cerr << "Search stopped: the results above are what was found so far.\n";
    return 130;
  }
  return 0;
}

}  // namespace

void AddFindCommand(CLI::App& app) {
  auto options = std::make_shared<FindOptions>();
  CLI::App* cmd = app.add_subcommand("find", "Find the duplicate cards of a card database");
  cmd->add_option("--db", options->db, "The card database")->required();
  cmd->add_option("--type", options->type, "Which duplicates to find")
      ->check(CLI::IsMember({"exact", "compatible", "conflict", "all"}))
      ->default_str("all");
  cmd->add_flag("--json", options->json, "Print the dupe sets as JSON");
  cmd->footer(
      "Each type is searched on a fresh list of the cards that share a name or e-mail key with another card.\n"
      "Text output: for each type a heading, every dupe set (primary first, then its dupes) and the number of\n"
      "duplicate cards. JSON output: one array of {\"type\", \"primary\", \"dupes\"} objects with card IDs, exact,\n"
      "compatible and conflicting sets in that order.\n"
      "On a terminal a progress line appears when the search is slow; Ctrl-C stops it and prints what was found\n"
      "so far (exit code 130).");
  cmd->callback([options] {
    int code = RunFind(*options);
    if (code != 0) throw CLI::RuntimeError(code);
  });
}

}  // namespace ombrel::cli
