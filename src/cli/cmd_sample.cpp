// ombrel sample --cards N --db DB [--seed S] [--no-images]
#include <QGuiApplication>
#include <algorithm>
#include <array>
#include <chrono>
#include <iostream>
#include <memory>
#include <optional>

#include "cli/commands.h"
#include "cli/sample_generator.h"
#include "cli/sample_renderer.h"
#include "cli/options.h"
#include "cli/terminal.h"
#include "ombrel/cardstore/sqlite_card_store.h"
#include "ombrel/foundation/error.h"

namespace ombrel::cli {

namespace {

// Ten times the largest database the benchmarks make: beyond it a run
// takes hours, which is more likely a typing slip than a wish.
constexpr uint64_t kMaxCards = 10'000'000;

struct SampleOptions {
  int64_t cards = 0;
  std::string db;
  uint64_t seed = 1;
  bool noImages = false;
};

void Check(CSqliteCardStore& store, Status status) {
  if (status != 0) RaiseTrap(store.GetLastError());
}

// Qt chatters on stderr about the runtime folder and the like; only real
// trouble is worth showing next to our own output.
void QuietQtMessages(QtMsgType type, const QMessageLogContext&, const QString& message) {
  if (type == QtCriticalMsg || type == QtFatalMsg) std::cerr << message.toStdString() << "\n";
}

int RunSample(const SampleOptions& o) {
  auto start = std::chrono::steady_clock::now();
  InstallStopHandler();
  DatabaseFileGuard guard(o.db);
  auto store = CSqliteCardStore::Open(o.db, OpenMode::kOpenOrCreate);
  // One transaction for everything, the database's fields included: a
  // failed or stopped run leaves the database as it found it.
  Check(*store, store->BeginUpdate());
  // Declare what is missing; a database being extended keeps its own
  // attributes for fields it already has.
  std::vector<CustomFieldDef> existing, missing;
  try {
    Check(*store, store->ListCustomFields(existing));
    for (const auto& field : sample::SampleGenerator::CustomFields()) {
      bool known = std::any_of(existing.begin(), existing.end(), [&](const auto& e) { return e.name == field.name; });
      if (!known) missing.push_back(field);
    }
    Check(*store, store->DefineCustomFields(missing));
    Check(*store, store->DefineCategories(sample::SampleGenerator::Categories()));
  } catch (...) {
    store->AbortUpdate();
    throw;
  }

  // The renderer needs a GUI application, which needs no display offscreen.
  std::optional<QGuiApplication> app;
  std::unique_ptr<sample::CardRenderer> renderer;
  sample::EstimatedMeasure estimate;
  if (!o.noImages) {
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    qInstallMessageHandler(QuietQtMessages);
    static int argc = 1;
    static char name[] = "ombrel";
    static char* argv[] = {name, nullptr};
    app.emplace(argc, argv);
    renderer = std::make_unique<sample::CardRenderer>();
  }
  sample::TextMeasure& measure = renderer ? static_cast<sample::TextMeasure&>(*renderer) : estimate;
  sample::SampleGenerator generator(o.seed, measure);

  std::array<int64_t, sample::kCardKinds> kinds{};
  try {
    for (int64_t i = 0; i < o.cards; ++i) {
      if (StopRequested()) {
        store->AbortUpdate();
        store.reset();
        std::cerr << "Stopped: nothing was added.\n";
        return 130;
      }
      sample::SampleCard card = generator.Next();
      std::optional<StoredImage> front;
      if (renderer) front = StoredImage{"png", renderer->RenderPng(card)};
      int32_t id = 0;
      Check(*store, store->AddCardWithNextId(card.values, front ? &*front : nullptr, nullptr, id));
      ++kinds[static_cast<int>(card.kind)];
    }
    Check(*store, store->CommitUpdate());
  } catch (...) {
    store->AbortUpdate();
    throw;
  }
  store.reset();
  guard.Keep();
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  using K = sample::CardKind;
  auto n = [&](K k) { return kinds[static_cast<int>(k)]; };
  std::cout << "generated " << o.cards << " cards into " << o.db << " in " << seconds << " s: " << n(K::kExactDuplicate)
            << " exact, " << n(K::kCompatibleDuplicate) << " compatible and " << n(K::kConflictDuplicate)
            << " conflicting duplicates, " << n(K::kSharedMailbox) << " sharing a last name and e-mail, "
            << n(K::kNoName) << " without a name" << (renderer ? "" : ", no images") << "\n";
  return 0;
}

}  // namespace

void AddSampleCommand(CLI::App& app) {
  auto options = std::make_shared<SampleOptions>();
  CLI::App* cmd = app.add_subcommand("sample", "Generate a realistic demo card database");
  cmd->footer(
      "Varied international contacts with OCR geometry and confidence data, about 17% duplicates (exact "
      "re-scans, compatible and conflicting versions) and a rendered front image per card. The same seed "
      "gives the same cards; an existing database is extended, all cards in one transaction: a failed or "
      "stopped run (Ctrl-C, exit code 130) adds nothing.");
  cmd->add_option("--cards", options->cards, "Number of cards to add, 0 to 10000000")
      ->required()
      ->check(WholeNumber(0, kMaxCards));
  cmd->add_option("--db", options->db, "The card database (SQLite file), created if needed")
      ->required()
      ->check(kNonEmptyPath);
  cmd->add_option("--seed", options->seed, "Seed of the generator, 0 to 18446744073709551615")
      ->check(WholeNumber(0, UINT64_MAX))
      ->capture_default_str();
  cmd->add_flag("--no-images", options->noImages, "Skip the card pictures (fast, for large databases)");
  cmd->callback([options] {
    int code = RunSample(*options);
    if (code != 0) throw CLI::RuntimeError(code);
  });
}

}  // namespace ombrel::cli
