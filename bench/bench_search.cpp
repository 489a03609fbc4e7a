// Times the duplicate search and the automatic actions on generated card
// databases of realistic size, against the floor any search must pay: one
// plain read of every stored value.
//
//   bench_search [--cards 100000,1000000] [--dir /tmp/ombrel-bench] [--keep] [--no-apply] [--phases]
//
// The databases are made with `ombrel sample --no-images` (kept in --dir and
// reused). `find` and `apply` run as child processes, so their wall time
// and peak memory are those of the real command; the phases of the search,
// the word tests it ran and the longest waits between its progress reports
// are measured in this process. The plain read and `find --type all` are
// timed in turns, five rounds (BENCH_VERBOSE=1 prints each round on
// stderr); each type alone is timed after them.
#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bench_child.h"
#include "cli/memory_settings.h"
#include "ombrel/cards/ccard.h"
#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/cardstore/sqlite_card_store.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/dupes/dupe_search.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

using bench::ChildRun;
using bench::RunChild;

double PlainRead(const std::string& path, size_t& values) {
  auto store = ombrel::CSqliteCardStore::Open(path, ombrel::OpenMode::kOpenExisting);
  auto start = Clock::now();
  size_t bytes = 0;
  values = 0;
  store->ScanRecords([&](const ombrel::CardRecordView& card) {
    for (const auto& [name, value] : card.values) {
      bytes += name.size() + value.size();
      ++values;
    }
    return true;
  });
  double t = std::chrono::duration<double>(Clock::now() - start).count();
  if (bytes == 0) std::cerr << "warning: empty database\n";
  return t;
}

// Records the longest wait between two calls of the search to its progress
// (a stop asked for in between is seen at the next one), by the reports
// that end the wait, and whether any came from another thread.
class WaitsBetweenReports final : public ombrel::ISearchProgress {
 public:
  void SetActionText(int32_t id) override { Note("action " + std::to_string(id)); }
  bool UpdateProgress(int32_t id, int32_t, int32_t) override {
    Note(std::to_string(id));
    return true;
  }
  void Print() const {
    std::printf("  longest wait between progress reports:");
    for (const auto& [what, seconds] : longest_) std::printf(" %s %.3f s,", what.c_str(), seconds);
    std::printf(" reports from other threads: %d\n", otherThreads_);
  }

 private:
  void Note(const std::string& what) {
    const auto now = Clock::now();
    double& longest = longest_[last_ + " to " + what];
    longest = std::max(longest, std::chrono::duration<double>(now - at_).count());
    at_ = now;
    last_ = what;
    otherThreads_ += std::this_thread::get_id() != thread_;
  }
  std::map<std::string, double> longest_;
  Clock::time_point at_ = Clock::now();
  std::string last_ = "start";
  std::thread::id thread_ = std::this_thread::get_id();
  int otherThreads_ = 0;
};

void Phases(const std::string& path) {
  auto store = std::shared_ptr<ombrel::CSqliteCardStore>(
      ombrel::CSqliteCardStore::Open(path, ombrel::OpenMode::kOpenExisting));
  auto mgr = std::make_shared<ombrel::CCardStoreMgr>();
  mgr->SetCardStore(store);
  mgr->Connect();
  ombrel::CardStoreMgr() = mgr;
  WaitsBetweenReports waits;
  ombrel::CDupeSearch search(&waits);
  int32_t sets[4] = {0, 0, 0, 0};
  std::vector<std::shared_ptr<ombrel::CList>> kept;  // as a caller keeps them, to list or review
  auto suspects = search.FindDupesInStore(
      {ombrel::EXACT_DUPE, ombrel::COMPATIBLE_DUPE, ombrel::CONFLICT_DUPE},
      [&](int32_t type, std::shared_ptr<ombrel::CList> found) {
        sets[type] = found->GetNumItems();
        kept.push_back(std::move(found));
      });
  const auto& t = search.Timings();
  std::printf("  phases: suspects %.2f s, loading %.2f s (%d suspects), sorting %.2f s, grouping %.2f s\n",
              t.suspects, t.loading, suspects->GetNumItems(), t.sorting, t.grouping);
  std::printf("  sets: exact %d, compatible %d, conflict %d; word tests %lld\n", sets[1], sets[2], sets[3],
              static_cast<long long>(t.wordTests));
  waits.Print();
  ombrel::CardStoreMgr().reset();
}

}  // namespace

int main(int argc, char** argv) {
  ombrel::cli::UseSearchMemorySettings();  // what the command does
  std::vector<int> sizes = {100000, 1000000};
  std::string dir = "/tmp/ombrel-bench";
  bool keep = false;
  bool apply = true;
  bool phasesOnly = false;  // the search's phases alone, in this process
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "--cards" && i + 1 < argc) {
      sizes.clear();
      std::stringstream ss(argv[++i]);
      for (std::string n; std::getline(ss, n, ',');) sizes.push_back(std::stoi(n));
    } else if (a == "--dir" && i + 1 < argc) {
      dir = argv[++i];
    } else if (a == "--keep") {
      keep = true;
    } else if (a == "--no-apply") {
      apply = false;
    } else if (a == "--phases") {
      phasesOnly = true;
    } else {
      std::cerr << "usage: bench_search [--cards N,N] [--dir DIR] [--keep] [--no-apply] [--phases]\n";
      return 2;
    }
  }
  const std::string ombrel = std::string(OMBREL_BINARY_DIR) + "/src/cli/ombrel";
  fs::create_directories(dir);

  for (int n : sizes) {
    std::string db = dir + "/bench-" + std::to_string(n) + ".db";
    std::printf("== %d cards ==\n", n);
    if (!fs::exists(db)) {
      ChildRun gen = RunChild({ombrel, "sample", "--cards", std::to_string(n), "--db", db, "--seed", "7", "--no-images"});
      std::printf("  sample: %.2f s (exit %d)\n", gen.seconds, gen.status);
      if (gen.status != 0) return 1;
    }
    if (phasesOnly) {
      Phases(db);
      continue;
    }
    size_t values = 0;
    // The two sides of the ratio are timed in turns, so that both meet the
    // same moods of a shared machine, and the best of each is taken: such a
    // machine only ever adds time. The ratio of each round is shown too.
    constexpr int kRounds = 5;
    double floor = 0;
    ChildRun find;
    std::vector<double> ratios;
    for (int round = 0; round < kRounds; ++round) {
      const double read = PlainRead(db, values);
      ChildRun again = RunChild({ombrel, "find", "--db", db, "--type", "all", "--json"});
      ratios.push_back(again.seconds / read);
      if (std::getenv("BENCH_VERBOSE")) std::fprintf(stderr, "    round %d: read %.2f s, find %.2f s\n", round + 1, read, again.seconds);
      if (round == 0 || read < floor) floor = read;
      if (round == 0 || again.seconds < find.seconds) find = again;
    }
    std::sort(ratios.begin(), ratios.end());
    std::printf("  plain read of every value (best of %d): %.2f s (%zu values, %.0f cards/s)\n", kRounds, floor, values,
                n / floor);
    std::printf("  find --type all (best of %d): %.2f s, %.0f cards/s, peak %.0f MB, exit %d; ratio to plain read %.2f\n",
                kRounds, find.seconds, n / find.seconds, find.peakKb / 1024.0, find.status, find.seconds / floor);
    std::printf("  ratio round by round: median %.2f (from %.2f to %.2f)\n", ratios[ratios.size() / 2], ratios.front(),
                ratios.back());
    // Each type alone: none should cost much more than the others.
    for (const char* type : {"exact", "compatible", "conflict"}) {
      ChildRun best;
      for (int round = 0; round < 3; ++round) {
        ChildRun run = RunChild({ombrel, "find", "--db", db, "--type", type, "--json"});
        if (round == 0 || run.seconds < best.seconds) best = run;
      }
      std::printf("  find --type %s (best of 3): %.2f s, peak %.0f MB, exit %d\n", type, best.seconds,
                  best.peakKb / 1024.0, best.status);
    }
    Phases(db);
    // Hand the memory back: a child forked later would count it in its own peak until it execs.
    malloc_trim(0);

    for (std::string action : {"remove-exact", "merge-compatible"}) {
      if (!apply) break;
      std::string copy = dir + "/apply-" + std::to_string(n) + ".db";
      fs::copy_file(db, copy, fs::copy_options::overwrite_existing);
      ChildRun apply = RunChild({ombrel, "apply", "--db", copy, "--action", action, "--yes"});
      std::printf("  apply %s: %.2f s, %.0f cards/s, peak %.0f MB, exit %d\n", action.c_str(), apply.seconds,
                  n / apply.seconds, apply.peakKb / 1024.0, apply.status);
      if (!keep) fs::remove(copy);
    }
  }
  return 0;
}
