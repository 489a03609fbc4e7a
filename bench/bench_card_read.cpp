// How fast the card store manager turns stored values into cards.
//
//   bench_card_read [cards=100000] [distinct value sets=1000] [all|both|memory|values|build]
//
// "build" times CCardStoreMgr::BuildCard alone, the way the duplicate search
// calls it during a scan, on two kinds of card: a typical one (10 of the 28
// standard fields filled, each filled one with a rectangle, levels and
// suspect info, one additional phone with a label) and a full one. The
// values come either in the order BuildCard asks for them (each copied into
// the reader's string, no lookup: BuildCard's own cost) or from a store's
// name table (a lookup per value; the lookups alone are timed too). It
// reports CPU time per card, the heap bytes each kept card holds (malloc's
// count, so exact) and the CPU time to destroy a card.
//
// "both" reads full cards through CCardStoreMgr::GetCard: every card has all
// 28 standard fields filled, each with a rectangle, confidence levels and
// suspect info, and the twelve additional fields carry labels. They come from
// two sources:
//   1. an in-memory store of CCard objects (it answers plain field names
//      only, so each suffixed value costs a refused lookup), behind a thin
//      adapter that declares no custom fields, as GetCard needs;
//   2. a store of value maps answering every value name (the host's case).
// The loaded cards are kept, as the duplicate search keeps them, so the
// memory figure is the resident size per loaded card. Times are wall clock
// and, in brackets, this process's CPU time (the figure to trust on a busy
// machine). Not a test: it prints figures.
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "../tests/support/fake_card_store.h"
#include "ombrel/cards/ccard.h"
#include "ombrel/cards/field_catalogue.h"
#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/cardstore/cmemorycardstore.h"

using namespace ombrel;
using Clock = std::chrono::steady_clock;

namespace {

double Seconds(Clock::time_point since) { return std::chrono::duration<double>(Clock::now() - since).count(); }

double CpuNow() {
  timespec ts{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + ts.tv_nsec * 1e-9;
}

// Resident memory in bytes, from /proc (0 where it is not available).
int64_t ResidentBytes() {
  std::ifstream statm("/proc/self/statm");
  int64_t pages = 0, resident = 0;
  if (!(statm >> pages >> resident)) return 0;
  return resident * 4096;
}

// The memory store lacks GetCustomFields and GetLastError, so GetCard on it
// fails by design; this adapter supplies both and forwards everything else.
class MemoryStoreAdapter final : public ICardStore {
 public:
  explicit MemoryStoreAdapter(std::shared_ptr<CMemoryCardStore> inner) : inner_(std::move(inner)) {}
  Status GetCustomFields(std::string& fields) override {
    fields.clear();
    return 0;
  }
  std::string GetLastError() override { return {}; }
  Status GetValue(int32_t cardId, const std::string& fieldName, std::string& value) override {
    return inner_->GetValue(cardId, fieldName, value);
  }
  Status GetNumberOfCards(int32_t& numCards) override { return inner_->GetNumberOfCards(numCards); }
  Status GetCardID(int32_t cardIndex, int32_t& cardId) override { return inner_->GetCardID(cardIndex, cardId); }

 private:
  std::shared_ptr<CMemoryCardStore> inner_;
};

std::string Text(int set, const std::string& name) {
  if (name == "Verified") return set % 2 ? "Yes" : "No";
  if (name == "Name") return "Alexandra Montgomery-Smith " + std::to_string(set);
  if (name.starts_with("Email")) return "alexandra.m" + std::to_string(set) + "@example-company.com";
  if (name.starts_with("Phone") || name == "Fax") return "+44 20 7946 " + std::to_string(1000 + set);
  return name + " of contact " + std::to_string(set);
}

// The values a host would hold for one card.
std::shared_ptr<FakeCardStore::Values> ValueSet(int set) {
  auto values = std::make_shared<FakeCardStore::Values>();
  int row = 0;
  for (auto view : kStandardFieldNames) {
    std::string name(view);
    (*values)[name] = Text(set, name);
    int top = 40 * row++;
    (*values)[name + ".Rectangle"] = "20 " + std::to_string(top) + " 400 " + std::to_string(top + 30);
    (*values)[name + ".Confidence Levels"] = std::to_string(60 + set % 40) + " " + std::to_string(90);
    (*values)[name + ".Suspect Info"] = set % 3 ? "0 1" : "1 0";
    if (IsExtraPhoneFieldName(name) || IsExtraEmailFieldName(name)) (*values)[name + ".Label"] = "Label " + name;
  }
  (*values)["Last Name"] = "Montgomery-Smith";
  (*values)["Certainty"] = "80";
  return values;
}

// The same card as a CCard, for the in-memory store.
std::shared_ptr<CCard> CardFrom(int32_t id, const FakeCardStore::Values& values) {
  auto card = std::make_shared<CCard>();
  auto get = [&](const std::string& key) { return values.at(key); };
  int row = 0;
  for (auto view : kStandardFieldNames) {
    std::string name(view);
    CRectangle rect(40 * row++, 20, 380, 30);
    std::string label = values.count(name + ".Label") ? get(name + ".Label") : "";
    bool ocrSuspect = get(name + ".Suspect Info").front() == '1';
    card->SetData(name, get(name), label, &rect, 70, 90, ocrSuspect, !ocrSuspect);
  }
  card->SetCardId(id);
  card->SetLastName(get("Last Name"));
  return card;
}

struct Result {
  double seconds = 0;
  double cpuSeconds = 0;
  double storeSeconds = 0;  // the store's own share: the same value reads without building cards
  double storeCpuSeconds = 0;
  int64_t bytes = 0;
  size_t checksum = 0;
  std::vector<std::shared_ptr<CCard>> cards;
};

// The value names GetCard asks for on a card whose fields are all filled.
std::vector<std::string> NamesAskedFor() {
  std::vector<std::string> names;
  for (auto view : kStandardFieldNames) {
    std::string name(view);
    names.push_back(name);
    if (name == "Notes" || name == "Categories" || name == "Verified" || name == "Solvane Status" ||
        name == "Creation Date" || name == "Modified Date")
      continue;
    for (const char* suffix : {".Rectangle", ".Confidence Levels", ".Suspect Info"}) names.push_back(name + suffix);
    if (IsExtraPhoneFieldName(name) || IsExtraEmailFieldName(name)) names.push_back(name + ".Label");
  }
  names.push_back("Last Name");
  return names;
}

Result LoadAll(const std::shared_ptr<ICardStore>& store, int32_t count) {
  Result result;
  CCardStoreMgr mgr;
  mgr.SetCardStore(store);

  const std::vector<std::string> names = NamesAskedFor();
  auto start = Clock::now();
  double cpu = CpuNow();
  size_t bytesRead = 0;
  for (int32_t index = 0; index < count; ++index) {
    int32_t id = mgr.GetCardID(index);
    for (const std::string& name : names) bytesRead += mgr.GetValue(id, name).size();
  }
  result.storeSeconds = Seconds(start);
  result.storeCpuSeconds = CpuNow() - cpu;
  result.checksum = bytesRead % 2;

  result.cards.reserve(count);
  int64_t before = ResidentBytes();
  start = Clock::now();
  cpu = CpuNow();
  for (int32_t index = 0; index < count; ++index) result.cards.push_back(mgr.GetCard(mgr.GetCardID(index)));
  result.seconds = Seconds(start);
  result.cpuSeconds = CpuNow() - cpu;
  result.bytes = ResidentBytes() - before;
  result.checksum = 0;
  for (const auto& card : result.cards) result.checksum += card->FieldText("Name").size() + card->NumFields();
  return result;
}

void Report(const char* source, int32_t count, const Result& r) {
  std::printf(
      "%s: %d cards in %.2f s [cpu %.2f s] = %.0f cards/s [cpu %.0f cards/s]; the store's reads alone %.2f s "
      "[cpu %.2f s]; %.0f bytes/card resident\n",
      source, count, r.seconds, r.cpuSeconds, count / r.seconds, count / r.cpuSeconds, r.storeSeconds,
      r.storeCpuSeconds, static_cast<double>(r.bytes) / count);
}

// --- BuildCard alone ------------------------------------------------------

struct ViewHash {
  using is_transparent = void;
  size_t operator()(std::string_view s) const { return std::hash<std::string_view>{}(s); }
};
using ValueMap = std::unordered_map<std::string, std::string, ViewHash, std::equal_to<>>;

// The stored values of a typical card: ten fields filled, recognised ones
// with geometry, one additional phone labelled.
ValueMap TypicalValues(int set) {
  const std::string n = std::to_string(set);
  const std::vector<std::pair<std::string, std::string>> texts = {
      {"Name", "Gaelle Ostkalenetti " + n},
      {"Title", "Director de Ventas"},
      {"Company", "Summit Trading S.r.l. " + n},
      {"Address", "Corso Italia " + n + ", 87159 Napoli"},
      {"Phone", "+39 09 4400 " + n},
      {"Fax", "+39 01 7205 " + n},
      {"Phone 1", "+39 396 462 " + n},
      {"Email", "ostkalenetti.gaelle" + n + "@summittrading.it"},
      {"Web Page", "www.summittrading.it"},
      {"Creation Date", "2021-02-15 08:21"},
  };
  ValueMap values;
  int row = 0;
  for (const auto& [name, text] : texts) {
    values[name] = text;
    if (name == "Creation Date") continue;
    int top = 30 + 24 * row++;
    values[name + ".Rectangle"] = "38 " + std::to_string(top) + " 391 " + std::to_string(top + 18);
    values[name + ".Confidence Levels"] = std::to_string(60 + set % 40) + " 89";
    values[name + ".Suspect Info"] = set % 3 ? "0 0" : "1 0";
  }
  values["Phone 1.Label"] = "Mobile";
  values["Last Name"] = "Ostkalenetti";
  return values;
}

ValueMap FullValues(int set) {
  auto full = ValueSet(set);
  return ValueMap(full->begin(), full->end());
}

// Value sets stored as a store keeps them: one table of value names for all
// cards, and per card its values by name number.
class ValueSets {
 public:
  explicit ValueSets(const std::vector<ValueMap>& sets) {
    for (const ValueMap& set : sets) {
      values_.emplace_back();
      for (const auto& [name, text] : set) {
        auto [it, added] = numbers_.emplace(name, static_cast<int32_t>(numbers_.size()));
        if (values_.back().size() <= static_cast<size_t>(it->second)) values_.back().resize(it->second + 1);
        values_.back()[it->second] = text;
      }
    }
  }
  size_t Count() const { return values_.size(); }
  // A new string, as ICardValues::Get answers.
  std::string Get(size_t set, std::string_view name) const {
    auto it = numbers_.find(name);
    if (it == numbers_.end() || static_cast<size_t>(it->second) >= values_[set].size()) return {};
    return values_[set][it->second];
  }

 private:
  std::unordered_map<std::string, int32_t, ViewHash, std::equal_to<>> numbers_;
  std::vector<std::vector<std::string>> values_;
};

// Bytes malloc has handed out and not taken back.
int64_t HeapInUse() { return static_cast<int64_t>(mallinfo2().uordblks + mallinfo2().hblkhd); }

struct BuildResult {
  double buildCpu = 0;   // per card, lookups included
  double lookupCpu = 0;  // per card, the same lookups without building; 0 when there are none
  double destroyCpu = 0;
  double bytes = 0;
  size_t checksum = 0;
};

enum class Getter {
  kReplay,          // value reader, values handed over in the order asked
  kValueReader,     // value reader on the store
  kStringFunction,  // std::function getter on the store
};

// Builds count cards from the value sets, as a scan hands them over.
BuildResult BuildAll(const ValueSets& sets, int32_t count, Getter getter) {
  CCardStoreMgr mgr;
  const std::string customFields;
  BuildResult r;

  // What one card of each set asks for, in order, to replay and to time the
  // lookups by themselves.
  std::vector<std::vector<std::pair<std::string, std::string>>> asked(sets.Count());
  for (size_t s = 0; s < sets.Count(); ++s)
    mgr.BuildCard(1, customFields, [&](const std::string& name) {
      asked[s].emplace_back(name, sets.Get(s, name));
      return sets.Get(s, name);
    });

  double cpu = CpuNow();
  size_t sink = 0;
  for (int32_t id = 1; id <= count; ++id) {
    size_t set = static_cast<size_t>(id) % sets.Count();
    for (const auto& value : asked[set]) sink += sets.Get(set, value.first).size();
  }
  r.lookupCpu = getter == Getter::kReplay ? 0 : (CpuNow() - cpu) / count;

  std::vector<std::shared_ptr<CCard>> cards;
  cards.reserve(count);
  int64_t before = HeapInUse();
  cpu = CpuNow();
  for (int32_t id = 1; id <= count; ++id) {
    size_t set = static_cast<size_t>(id) % sets.Count();
    if (getter == Getter::kReplay) {
      size_t next = 0;
      const auto& values = asked[set];
      cards.push_back(mgr.BuildCard(id, customFields, [&](std::string_view name, std::string& value) {
        if (next >= values.size() || values[next].first.size() != name.size()) std::abort();  // not the order seen
        value = std::string(values[next++].second);  // a new string, as ICardValues::Get answers
      }));
    } else if (getter == Getter::kValueReader) {
      cards.push_back(mgr.BuildCard(id, customFields,
                                    [&](std::string_view name, std::string& value) { value = sets.Get(set, name); }));
    } else {
      cards.push_back(mgr.BuildCard(id, customFields, [&](const std::string& name) { return sets.Get(set, name); }));
    }
  }
  r.buildCpu = (CpuNow() - cpu) / count;
  r.bytes = static_cast<double>(HeapInUse() - before) / count;
  for (const auto& card : cards) r.checksum += card->FieldText("Name").size() + card->NumFields();
  r.checksum += sink % 2;

  cpu = CpuNow();
  for (auto& card : cards) card.reset();
  r.destroyCpu = (CpuNow() - cpu) / count;
  return r;
}

void ReportBuild(const char* kind, const char* how, int32_t count, const BuildResult& r) {
  std::printf("BuildCard, %s, %s: %d cards, %.2f us/card cpu", kind, how, count, r.buildCpu * 1e6);
  if (r.lookupCpu > 0) std::printf(" (the lookups alone %.2f us)", r.lookupCpu * 1e6);
  std::printf("; %.0f bytes/card heap; destroying %.2f us/card cpu\n", r.bytes, r.destroyCpu * 1e6);
}

}  // namespace

int main(int argc, char** argv) {
  int32_t count = argc > 1 ? std::atoi(argv[1]) : 100000;
  int sets = argc > 2 ? std::atoi(argv[2]) : 1000;
  std::string which = argc > 3 ? argv[3] : "all";
  if (count <= 0 || sets <= 0 ||
      (which != "all" && which != "both" && which != "memory" && which != "values" && which != "build")) {
    std::fprintf(stderr, "usage: bench_card_read [cards] [distinct value sets] [all|both|memory|values|build]\n");
    return 2;
  }
  if (which == "all" || which == "build") {
    std::vector<ValueMap> typicalMaps, fullMaps;
    for (int s = 0; s < sets; ++s) {
      typicalMaps.push_back(TypicalValues(s));
      fullMaps.push_back(FullValues(s));
    }
    const ValueSets typical(typicalMaps), full(fullMaps);
    // Each kind in a process of its own, so the first round meets fresh
    // memory as a real load does; the later ones reuse what it freed.
    for (const auto& [kind, valueSets] : {std::pair{"typical card (10 of 28 fields filled)", &typical},
                                          std::pair{"full card (28 of 28 fields filled)", &full}}) {
      std::fflush(stdout);
      pid_t pid = fork();
      if (pid == 0) {
        ReportBuild(kind, "values as asked, fresh memory", count, BuildAll(*valueSets, count, Getter::kReplay));
        ReportBuild(kind, "values as asked, memory reused", count, BuildAll(*valueSets, count, Getter::kReplay));
        ReportBuild(kind, "store, value reader", count, BuildAll(*valueSets, count, Getter::kValueReader));
        ReportBuild(kind, "store, string getter", count, BuildAll(*valueSets, count, Getter::kStringFunction));
        std::fflush(stdout);
        _exit(0);
      }
      int status = 0;
      waitpid(pid, &status, 0);
      if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return 1;
    }
    if (which == "build") return 0;
  }
  std::vector<std::shared_ptr<FakeCardStore::Values>> valueSets;
  for (int s = 0; s < sets; ++s) valueSets.push_back(ValueSet(s));

  // Fill both stores before timing anything.
  auto start = Clock::now();
  auto memory = std::make_shared<CMemoryCardStore>();
  auto fake = std::make_shared<FakeCardStore>();
  fake->logCalls = false;
  for (int32_t id = 1; id <= count; ++id) {
    const auto& values = valueSets[id % sets];
    memory->AddCard(CardFrom(id, *values));
    fake->AddSharedCard(id, values);
  }
  std::printf("filled the stores in %.2f s\n", Seconds(start));

  Result fromMemory, fromValues;
  if (which != "values") {
    fromMemory = LoadAll(std::make_shared<MemoryStoreAdapter>(memory), count);
    Report("in-memory store (texts only)", count, fromMemory);
  }
  if (which != "memory") {
    fromValues = LoadAll(fake, count);
    Report("value-map store (all values)", count, fromValues);
  }

  // Sanity: both paths saw the same texts.
  if ((which == "both" || which == "all") && fromMemory.checksum != fromValues.checksum) {
    std::fprintf(stderr, "checksums differ: %zu vs %zu\n", fromMemory.checksum, fromValues.checksum);
    return 1;
  }
  return 0;
}
