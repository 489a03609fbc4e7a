// Times what a user of the windows waits for, on generated card databases:
//
//   bench_windows [--cards 100000,1000000] [--dir /tmp/ombrel-bench] [--images DB]
//
// The wizard: each step's first appearance (the click on Next until the
// step is shown) against `ombrel find --type` of that step's type, and the
// wizard's peak memory at the summary against `ombrel find --type all`'s.
// Both run as child processes so each peak is its own. The databases are
// those of bench_search (`ombrel sample --no-images`, kept in --dir).
//
// The review (on --images DB, a database with card images, by default the
// demo database of scripts/run.sh): moving to the next set with every card's
// images shown, and undoing and redoing 1,000 changes.
#include <sys/resource.h>

#include <QAbstractItemModel>
#include <QApplication>
#include <QPushButton>
#include <QTableView>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "bench_child.h"
#include "cli/memory_settings.h"
#include "ombrel/cards/ccard.h"
#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/cardstore/sqlite_card_store.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/dupes/dupe_search.h"
#include "ombrel/wizard/cduplicateswizard.h"
#include "review/frm_review.h"
#include "review/review_session.h"
#include "ui/forms.h"
#include "ui/startup.h"
#include "wizard/frm_wizard.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

double Since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

long PeakKb() {
  struct rusage usage {};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

std::shared_ptr<ombrel::CSqliteCardStore> OpenStore(const std::string& db) {
  return ombrel::CSqliteCardStore::Open(db, ombrel::OpenMode::kOpenExisting);
}

// In a child: the wizard from step 1 to the summary, one line a step.
int WizardRun(const std::string& db) {
  ombrel::CDuplicatesWizard wizard;
  wizard.SetModalOff(0);
  if (wizard.Connect(OpenStore(db)) != 1 || wizard.Show() != 1) return 1;
  auto* form = qobject_cast<ombrel::ui::frmWizard*>(ombrel::ui::FindForm("frmWizard"));
  auto* next = form->findChild<QPushButton*>("cmdNext");
  auto* list = form->findChild<QTableView*>("lstDupes");
  for (int step = 2; step <= 5; ++step) {
    const auto start = Clock::now();
    next->click();
    QApplication::processEvents();
    const double shown = Since(start);
    double scrolled = 0;
    if (step <= 4 && list->model()->rowCount() > 0) {
      // Down the whole list a page at a time, each page drawn.
      const auto scroll = Clock::now();
      int pages = 0;
      for (int row = 0; row < list->model()->rowCount() && pages < 200; row += 20, ++pages) {
        list->scrollTo(list->model()->index(row, 0));
        list->viewport()->repaint();
      }
      scrolled = pages > 0 ? Since(scroll) / pages : 0;
    }
    std::printf("step %d %.3f %d %.4f\n", step, shown, list->model()->rowCount(), scrolled);
  }
  std::printf("peak %ld\n", PeakKb());
  wizard.Hide();
  return 0;
}

// In this process: the review on the conflicting sets of a database with images.
void ReviewRun(const std::string& db) {
  auto store = OpenStore(db);
  auto mgr = std::make_shared<ombrel::CCardStoreMgr>();
  mgr->SetCardStore(store);
  mgr->Connect();
  ombrel::CardStoreMgr() = mgr;
  ombrel::CDupeSearch search;
  std::shared_ptr<ombrel::CList> sets;
  search.FindDupesInStore({ombrel::CONFLICT_DUPE}, [&](int32_t, std::shared_ptr<ombrel::CList> s) { sets = s; });
  if (!sets || sets->GetNumItems() < 2) {
    std::printf("review: too few sets in %s\n", db.c_str());
    return;
  }
  auto* review = new ombrel::ui::frmReview;
  review->SetZoomWindows(true);
  review->SetDupes(sets, 1);
  review->show();
  QApplication::processEvents();
  auto* next = review->findChild<QPushButton*>("cmdNextSet");
  std::vector<double> moves;
  const int n = std::min(sets->GetNumItems() - 1, 200);
  for (int i = 0; i < n; ++i) {
    const auto start = Clock::now();
    next->click();
    review->repaint();  // every cell drawn, images included
    moves.push_back(Since(start) * 1000);
  }
  std::sort(moves.begin(), moves.end());
  std::printf("review: next set over %d sets: median %.1f ms, 95th %.1f ms, max %.1f ms\n", n, moves[n / 2],
              moves[n * 95 / 100], moves.back());

  // 1,000 edits of one field, then all undone and redone.
  auto* session = const_cast<ombrel::CReviewSession*>(&review->Session());
  session->SetCurrentSetIndex(1);
  review->RefreshDisplay();
  std::string text = session->Primary()->FieldText("Notes");
  const auto edits = Clock::now();
  for (int i = 0; i < 1000; ++i) {
    std::string next = "note " + std::to_string(i);
    session->CommitEdit("Notes", text, next);
    text = next;
  }
  const double editTime = Since(edits);
  auto* undo = review->findChild<QPushButton*>("cmdUndo");
  auto* redo = review->findChild<QPushButton*>("cmdRedo");
  auto timeClicks = [](QPushButton* b) {
    std::vector<double> each;
    while (b->isEnabled()) {
      const auto start = Clock::now();
      b->click();
      each.push_back(Since(start) * 1000);
    }
    return each;
  };
  auto undos = timeClicks(undo);
  auto redos = timeClicks(redo);
  auto mean = [](const std::vector<double>& v, size_t from, size_t to) {
    double sum = 0;
    for (size_t i = from; i < to && i < v.size(); ++i) sum += v[i];
    return sum / std::max<size_t>(1, std::min(to, v.size()) - from);
  };
  std::printf("review: 1,000 edits %.3f s; %zu undos, first 100 %.1f us each, last 100 %.1f us; %zu redos, first "
              "100 %.1f us, last 100 %.1f us\n",
              editTime, undos.size(), 1000 * mean(undos, 0, 100), 1000 * mean(undos, undos.size() - 100, undos.size()),
              redos.size(), 1000 * mean(redos, 0, 100), 1000 * mean(redos, redos.size() - 100, redos.size()));
  delete review;
  ombrel::CardStoreMgr().reset();
}

}  // namespace

int main(int argc, char** argv) {
  ombrel::cli::UseSearchMemorySettings();  // what the command does
  if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  ombrel::ui::InitResources();

  std::vector<int> sizes = {100000, 1000000};
  std::string dir = "/tmp/ombrel-bench";
  std::string imagesDb = std::string(OMBREL_BINARY_DIR) + "/../data/demo.db";
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "--wizard-run" && i + 1 < argc) return WizardRun(argv[i + 1]);
    if (a == "--cards" && i + 1 < argc) {
      sizes.clear();
      std::stringstream ss(argv[++i]);
      for (std::string n; std::getline(ss, n, ',');) sizes.push_back(std::stoi(n));
    } else if (a == "--dir" && i + 1 < argc) {
      dir = argv[++i];
    } else if (a == "--images" && i + 1 < argc) {
      imagesDb = argv[++i];
    } else {
      std::cerr << "usage: bench_windows [--cards N,N] [--dir DIR] [--images DB]\n";
      return 2;
    }
  }
  const std::string ombrel = std::string(OMBREL_BINARY_DIR) + "/src/cli/ombrel";
  const std::string self = fs::read_symlink("/proc/self/exe").string();
  fs::create_directories(dir);
  for (int cards : sizes) {
    const std::string db = dir + "/bench-" + std::to_string(cards) + ".db";
    if (!fs::exists(db)) {
      std::printf("making %s ...\n", db.c_str());
      // The same databases as bench_search's.
      bench::RunChild({ombrel, "sample", "--cards", std::to_string(cards), "--db", db, "--seed", "7", "--no-images"});
    }
    std::printf("%d cards:\n", cards);
    const char* types[] = {"exact", "compatible", "conflict", "all"};
    double find[4];
    long findPeak = 0;
    for (int t = 0; t < 4; ++t) {
      auto run = bench::RunChild({ombrel, "find", "--db", db, "--type", types[t], "--json"});
      find[t] = run.seconds;
      if (t == 3) findPeak = run.peakKb;
      std::printf("  find --type %-10s %.2f s, peak %ld MB\n", types[t], run.seconds, run.peakKb / 1024);
    }
    const std::string out = dir + "/wizard-run.txt";
    auto run = bench::RunChild({self, "--wizard-run", db}, out);
    std::ifstream in(out);
    std::string word;
    long wizardPeak = 0;
    while (in >> word) {
      if (word == "peak") {
        in >> wizardPeak;
        continue;
      }
      int step = 0, rows = 0;
      double shown = 0, scrolled = 0;
      in >> step >> shown >> rows >> scrolled;
      const double budget = step <= 4 ? find[step - 2] + 1.0 : 1.0;
      std::printf("  wizard step %d shown after %.2f s (budget %.2f s: %s), %d sets%s\n", step, shown, budget,
                  shown <= budget ? "met" : "NOT met", rows,
                  scrolled > 0 ? (", " + std::to_string(scrolled * 1000).substr(0, 4) + " ms a page").c_str() : "");
    }
    std::printf("  wizard peak at the summary %ld MB = %.2f x find --type all (%s)\n", wizardPeak / 1024,
                findPeak > 0 ? double(wizardPeak) / findPeak : 0.0,
                findPeak > 0 && wizardPeak <= 1.5 * findPeak ? "met" : "NOT met");
    if (run.status != 0) std::printf("  (the wizard run ended with status %d)\n", run.status);
  }
  if (fs::exists(imagesDb)) ReviewRun(imagesDb);
  else std::printf("review: no database with images at %s (run scripts/run.sh, or pass --images)\n", imagesDb.c_str());
  return 0;
}
