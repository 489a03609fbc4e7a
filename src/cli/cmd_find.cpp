// ombrel find: the duplicate search over a card database, printed as text
// (each set's dump) or as JSON (type, primary and dupes by card ID).
#include <charconv>
#include <iostream>
#include <future>
#include <vector>

#include "commands.h"
#include "options.h"
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

// The card IDs of a search's sets, primary first then the dupes: cards[]
// from ends[k - 1] (0 for the first) up to ends[k] are set k's.
struct SetIds {
  std::vector<int32_t> cards;
  std::vector<size_t> ends;
};

// Asks the processor for an object's memory ahead of use (a hint only).
template <class T>
void FetchAhead(const T* object) {
  for (size_t offset = 0; offset < sizeof(T); offset += 64) __builtin_prefetch(reinterpret_cast<const char*>(object) + offset);
}

// The IDs of the sets from..to. The cards lie all over memory and fetching
// them is nearly all the work, so the sets and cards a few places on are
// asked for ahead.
void GatherIds(const std::vector<const CDupeSet*>& sets, size_t from, size_t to, SetIds& ids) {
  constexpr size_t kSetsAhead = 16, kCardsAhead = 8;
  for (size_t k = from; k < to; ++k) {
    if (k + kSetsAhead < to) FetchAhead(sets[k + kSetsAhead]);
    if (k + kCardsAhead < to) {
      const CDupeSet& ahead = *sets[k + kCardsAhead];
      FetchAhead(ahead.PrimaryCard());
      FetchAhead(&ahead.GetDupes());
    }
    const CDupeSet& set = *sets[k];
    ids.cards.push_back(set.PrimaryCard()->GetCardID());
    set.GetDupes().ForEachItem([&](const CObject* dupe) { FetchAhead(static_cast<const CCard*>(dupe)); });
    set.GetDupes().ForEachItem(
        [&](const CObject* dupe) { ids.cards.push_back(static_cast<const CCard&>(*dupe).GetCardID()); });
    ids.ends.push_back(ids.cards.size());
  }
}

// A search's list holds dupe sets and a set's dupes cards, never anything
// else: both are read in place, in two halves side by side for many sets.
SetIds GatherIds(const CList& list) {
  std::vector<const CDupeSet*> sets;
  sets.reserve(static_cast<size_t>(list.GetNumItems()));
  list.ForEachItem([&](const CObject* item) { sets.push_back(static_cast<const CDupeSet*>(item)); });
  constexpr size_t kSplitFrom = 20000;  // below this a thread costs more than it saves
  SetIds first, second;
  const size_t half = sets.size() >= kSplitFrom ? sets.size() / 2 : sets.size();
  std::future<void> helper;
  if (half < sets.size()) helper = std::async(std::launch::async, [&] { GatherIds(sets, half, sets.size(), second); });
  GatherIds(sets, 0, half, first);
  if (helper.valid()) helper.get();  // what it raised, if anything
  const size_t offset = first.cards.size();
  first.cards.insert(first.cards.end(), second.cards.begin(), second.cards.end());
  for (size_t end : second.ends) first.ends.push_back(offset + end);
  return first;
}

// A set as its dump lays it out (CDupeSet::ToStr), for a terminal: names
// with their control characters escaped, lines ended by LF alone.
std::string TextListing(const CDupeSet& set) {
  std::string out = "Dupe set type: " + TypeName(set.GetType()) + "\n";
  out += "Number of cards in dupe set: " + std::to_string(set.GetNumberOfCards()) + "\n";
  out += "Primary card: " + Escaped(set.PrimaryCard()->FieldText("Name")) + "\n";
  int32_t k = 0;
  set.GetDupes().ForEachItem([&](const CObject* dupe) {
    out += "Dupe " + std::to_string(++k) + ": " + Escaped(static_cast<const CCard&>(*dupe).FieldText("Name")) + "\n";
  });
  return out;
}

int RunFind(const FindOptions& options) {
  LoadInterfaceTexts();
  auto store = ConnectDatabase(options.db, true);
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
    for (int32_t i = 1; i <= sets->GetNumItems(); ++i) std::cout << TextListing(*sets->GetItemAs<CDupeSet>(i)) << "\n";
    std::cout << "Duplicate cards: " << CountDuplicateCards(*sets) << "\n";
    keptUntilExit->push_back(sets);
  };
  auto printJson = [&](int32_t type, const std::shared_ptr<CList>& sets) {
    if (!sets) return;
    const std::string typeName = TypeName(type);
    const SetIds ids = GatherIds(*sets);
    std::string out;
    char number[16];
    auto append = [&](int32_t value) {
      auto end = std::to_chars(number, number + sizeof number, value).ptr;
      out.append(number, end);
    };
    for (size_t k = 0; k < ids.ends.size(); ++k) {
      const size_t begin = k == 0 ? 0 : ids.ends[k - 1];
      out += firstSet ? "[\n  " : ",\n  ";
      out += R"({"type": ")";
      out += typeName;
      out += R"(", "primary": )";
      append(ids.cards[begin]);
      out += R"(, "dupes": [)";
      for (size_t c = begin + 1; c < ids.ends[k]; ++c) {
        if (c != begin + 1) out += ", ";
        append(ids.cards[c]);
      }
      out += "]}";
      firstSet = false;
      if (out.size() > (1 << 16)) {
        std::cout << out;
        out.clear();
      }
    }
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
    // The text names every card of every set: built as they are read, on
    // the search's threads, rather than one by one as they are printed.
    outcome = SearchDupes(TypesFor(options.type), &progress, emit, options.json);
  }
  if (options.json) std::cout << (firstSet ? "[]\n" : "\n]\n");
  keptUntilExit->push_back(std::move(outcome.cards));
  keptUntilExit->push_back(std::move(outcome.workingTables));
  FinishOutput();
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
  cmd->add_option("--db", options->db, "The card database, opened read-only")->required()->check(kNonEmptyPath);
  cmd->add_option("--type", options->type, "Which duplicates to find")
      ->check(CLI::IsMember({"exact", "compatible", "conflict", "all"}))
      ->default_str("all");
  cmd->add_flag("--json", options->json, "Print the dupe sets as JSON");
  cmd->footer(
      "Each type is searched on a fresh list of the cards that share a name or e-mail key with another card.\n"
      "Text output: for each type a heading, every dupe set (primary first, then its dupes) and the number of\n"
      "duplicate cards; control characters in names are shown escaped (\\n, \\x1b...). JSON output: one array\n"
      "of {\"type\", \"primary\", \"dupes\"} objects with card IDs, exact, compatible and conflicting sets in\n"
      "that order.\n"
      "On a terminal a progress line appears when the search is slow; Ctrl-C stops it and prints what was found\n"
      "so far (exit code 130). The search reads one consistent state of the database, whatever other\n"
      "processes write meanwhile.");
  cmd->callback([options] {
    int code = RunFind(*options);
    if (code != 0) throw CLI::RuntimeError(code);
  });
}

}  // namespace ombrel::cli
