// Bulk figures of the SQLite card store: import of a large .jsonl file,
// reading every card the way the card store manager does (GetValue per
// field and suffix), the ScanCards fast path, the existence and image
// checks of the duplicate search, merge-style writes in update brackets,
// and export.
//
//   bench_import [cards=1000000] [work folder=/tmp/ombrel-bench]
//
// Writes the .jsonl (about 40 values a card), imports it into a new
// database, then reads it back. The in-memory sections print the best of
// three runs, as the machine may be shared. Not a test: it prints figures.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "ombrel/cards/field_catalogue.h"
#include "ombrel/cardstore/image_registry.h"
#include "ombrel/cardstore/jsonl.h"
#include "ombrel/cardstore/sqlite_card_store.h"

using namespace ombrel;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

double Seconds(Clock::time_point since) { return std::chrono::duration<double>(Clock::now() - since).count(); }

// The best of a few runs of f(run).
template <class F>
double Best(int runs, F&& f) {
  double best = 1e300;
  for (int run = 0; run < runs; ++run) {
    auto t = Clock::now();
    f(run);
    best = std::min(best, Seconds(t));
  }
  return best;
}

std::string Escape(const std::string& s) {
  std::string out;
  for (char c : s) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out;
}

// Cheap deterministic variety; the numbers only need to differ.
uint64_t Mix(uint64_t x) {
  x ^= x >> 33;
  x *= 0xff51afd7ed558ccdULL;
  x ^= x >> 33;
  return x;
}

void WriteJsonl(const fs::path& path, int64_t cards) {
  static const char* kFirst[] = {"John", "Zoë", "José", "Łukasz", "Ségolène", "Anna", "Peter", "Mia", "Omar", "Li"};
  static const char* kLast[] = {"Smith", "Müller", "García", "Nowak", "Dupont", "Rossi", "Jensen", "Kowalski"};
  static const char* kTitle[] = {"Sales Manager", "CEO", "Engineer", "Buyer", "Consultant", "Director"};
  std::ofstream out(path, std::ios::binary);
  out << R"({"database": {"custom_fields": [{"name": "Nickname", "type": "TEXT", "visibility": "VISIBLE", )"
         R"("access": "READWRITE"}], "categories": ["Business", "Friends", "Press"]}})"
      << '\n';
  std::string line;
  for (int64_t i = 1; i <= cards; ++i) {
    uint64_t r = Mix(i);
    std::string first = kFirst[r % 10], last = kLast[(r >> 8) % 8] + std::to_string((r >> 16) % 100000);
    std::string name = first + " " + last;
    std::string company = "Firm " + std::to_string((r >> 24) % 50000) + " Ltd";
    std::string email = "user" + std::to_string(i) + "@firm" + std::to_string((r >> 24) % 50000) + ".com";
    auto kv = [&](const std::string& k, const std::string& v) { line += '"' + k + "\": \"" + Escape(v) + "\", "; };
    line = "{\"id\": " + std::to_string(i) + ", \"values\": {";
    kv("Name", name);
    kv("First Name", first);
    kv("Last Name", last);
    kv("Title", kTitle[(r >> 40) % 6]);
    kv("Company", company);
    kv("Address", std::to_string(r % 200) + " Main Street, 10115 Berlin");
    kv("Phone", "+49 30 " + std::to_string(1000000 + r % 8999999));
    kv("Fax", "+49 30 " + std::to_string(1000000 + (r >> 3) % 8999999));
    kv("Phone 1", "+49 170 " + std::to_string(1000000 + (r >> 5) % 8999999));
    kv("Phone 1.Label", "Mobile");
    kv("Email", email);
    kv("Web Page", "www.firm" + std::to_string((r >> 24) % 50000) + ".com");
    kv("Email 1", "private" + std::to_string(i) + "@mail.com");
    kv("Email 1.Label", "Home");
    kv("Verified", (r & 1) ? "Yes" : "No");
    kv("Categories", "Business");
    kv("Creation Date", "2021-03-04 10:22");
    kv("Modified Date", "2022-11-30 08:01");
    kv("Certainty", std::to_string(r % 101));
    int y = 20;
    for (const char* f : {"Name", "Title", "Company", "Address", "Phone", "Email", "Web Page"}) {
      kv(std::string(f) + ".Rectangle", "40 " + std::to_string(y) + " 400 " + std::to_string(y + 24));
      kv(std::string(f) + ".Confidence Levels", std::to_string(60 + r % 40) + " 90");
      kv(std::string(f) + ".Suspect Info", (r >> 50) % 10 ? "0 0" : "1 0");
      y += 40;
    }
    line.resize(line.size() - 2);  // the last ", "
    line += "}}\n";
    out << line;
  }
}

bool IsExtraField(std::string_view f) {
  return (f.rfind("Phone ", 0) == 0 || f.rfind("Email ", 0) == 0) && f.size() == 7;
}

bool HasGeometry(std::string_view f) {
  for (const char* n : {"Notes", "Categories", "Verified", "Solvane Status", "Creation Date", "Modified Date"}) {
    if (f == n) return false;
  }
  return true;
}

// Reads one card the way the manager builds a CCard.
int ReadCardLikeTheManager(ICardStore& store, int32_t id, std::string& v, size_t& checksum) {
  int calls = 0;
  for (std::string_view field : kStandardFieldNames) {
    std::string name(field);
    store.GetValue(id, name, v);
    ++calls;
    checksum += v.size();
    if (v.empty() || !HasGeometry(field)) continue;
    if (IsExtraField(field)) {
      store.GetValue(id, name + ".Label", v);
      ++calls;
    }
    for (const char* suffix : {".Rectangle", ".Confidence Levels", ".Suspect Info"}) {
      store.GetValue(id, name + suffix, v);
      ++calls;
      checksum += v.size();
    }
  }
  for (const char* n : {"Nickname", "Last Name", "Certainty"}) {
    store.GetValue(id, n, v);
    ++calls;
  }
  return calls;
}

}  // namespace

int main(int argc, char** argv) {
  int64_t cards = argc > 1 ? std::stoll(argv[1]) : 1000000;
  fs::path dir = argc > 2 ? argv[2] : fs::temp_directory_path() / "ombrel-bench";
  fs::create_directories(dir);
  fs::path jsonlPath = dir / "cards.jsonl", dbPath = dir / "cards.db";
  for (const char* suffix : {"", "-wal", "-shm"}) fs::remove(dbPath.string() + suffix);

  auto t = Clock::now();
  WriteJsonl(jsonlPath, cards);
  std::printf("wrote %lld cards to %s: %.1f MB in %.2f s\n", static_cast<long long>(cards), jsonlPath.c_str(),
              fs::file_size(jsonlPath) / 1e6, Seconds(t));

  auto store = CSqliteCardStore::Open(dbPath.string());
  t = Clock::now();
  auto counts = jsonl::ImportFile(*store, jsonlPath);
  double importSeconds = Seconds(t);
  std::printf("import: %lld cards in %.2f s (%.0f cards/s), database %.1f MB\n", static_cast<long long>(counts.cards),
              importSeconds, counts.cards / importSeconds, fs::file_size(dbPath) / 1e6);

  // Fresh connection: nothing cached from the import.
  store = CSqliteCardStore::Open(dbPath.string());
  t = Clock::now();
  int32_t n = 0;
  store->GetNumberOfCards(n);
  std::string v;
  size_t checksum = 0;
  int64_t calls = 0;
  for (int32_t i = 0; i < n; ++i) {
    int32_t id = 0;
    store->GetCardID(i, id);
    calls += ReadCardLikeTheManager(*store, id, v, checksum);
  }
  double getSeconds = Seconds(t);
  std::printf("GetValue: %d cards, %lld calls (%.1f a card) in %.2f s: %.0f cards/s, %.1f M calls/s\n", n,
              static_cast<long long>(calls), static_cast<double>(calls) / n, getSeconds, n / getSeconds,
              calls / getSeconds / 1e6);

  int64_t scanned = 0;
  double scanSeconds = Best(3, [&](int) {
    scanned = 0;
    store->ScanCards([&](int32_t, const ICardValues&) {
      ++scanned;
      return true;
    });
  });
  std::printf("ScanCards (visit only): %lld cards in %.2f s: %.0f cards/s\n", static_cast<long long>(scanned),
              scanSeconds, scanned / scanSeconds);

  scanSeconds = Best(3, [&](int) {
    scanned = 0;
    store->ScanCards([&](int32_t, const ICardValues& values) {
      ++scanned;
      for (std::string_view field : kStandardFieldNames) checksum += values.Get(field).size();
      for (const char* name : {"Name.Rectangle", "Email.Confidence Levels", "Last Name", "First Name"}) {
        checksum += values.Get(name).size();
      }
      return true;
    });
  });
  std::printf("ScanCards (32 values a card): %lld cards in %.2f s: %.0f cards/s\n", static_cast<long long>(scanned),
              scanSeconds, scanned / scanSeconds);

  // The names a card read asks for, in its order: text, then the geometry
  // of fields that have text.
  int64_t gets = 0;
  scanSeconds = Best(3, [&](int) {
    gets = 0;
    std::string key;
    store->ScanCards([&](int32_t, const ICardValues& values) {
      for (std::string_view field : kStandardFieldNames) {
        std::string text = values.Get(field);
        ++gets;
        if (text.empty() || !HasGeometry(field)) continue;
        for (const char* suffix : {".Rectangle", ".Confidence Levels", ".Suspect Info", ".Label"}) {
          if (suffix[1] == 'L' && !IsExtraField(field)) continue;
          key.assign(field).append(suffix);
          checksum += values.Get(key).size();
          ++gets;
        }
      }
      checksum += values.Get("Last Name").size() + values.Get("First Name").size();
      gets += 2;
      return true;
    });
  });
  std::printf("ScanCards (as a card read asks): %lld values in %.2f s: %.1f M values/s\n",
              static_cast<long long>(gets), scanSeconds, gets / scanSeconds / 1e6);

  // Every third card gets a front image, for the checks below.
  {
    auto& registry = ImageRegistry::Instance();
    int32_t png = registry.Register({"png", {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 0, 1, 2, 3}});
    store->BeginUpdate();
    for (int32_t i = 0; i < n; i += 3) {
      int32_t id = 0;
      store->GetCardID(i, id);
      store->SetCardDIB(id, png);
    }
    store->CommitUpdate();
    registry.Release(png);
  }
  std::vector<int32_t> ids(static_cast<size_t>(n));
  for (int32_t i = 0; i < n; ++i) store->GetCardID(i, ids[static_cast<size_t>(i)]);
  // Fresh connection: the first call pays for loading what the others use.
  store = CSqliteCardStore::Open(dbPath.string());
  int64_t yes = 0;
  double checkSeconds = Best(3, [&](int) {
    yes = 0;
    bool answer = false;
    for (int32_t id : ids) {
      store->CardExists(id, answer);
      yes += answer;
      store->HasFrontImage(id, answer);
      yes += answer;
      store->HasFrontImage(id, answer);
      store->HasBackImage(id, answer);
      yes += answer;
    }
  });
  std::printf("CardExists + 2 HasFrontImage + HasBackImage: %d cards in %.3f s: %.1f M calls/s (%lld yes)\n", n,
              checkSeconds, 4.0 * n / checkSeconds / 1e6, static_cast<long long>(yes));

  // A merged card written back: every field with its label, rectangle and
  // levels, most of them unchanged, one bracket per card.
  const int32_t merged = std::max<int32_t>(1, n / 10);
  int64_t puts = 0;
  double mergeSeconds = Best(3, [&](int run) {
    puts = 0;
    std::string text;
    for (int32_t k = 0; k < merged; ++k) {
      int32_t id = ids[static_cast<size_t>(k) * 10 % ids.size()];
      store->BeginUpdate();
      for (std::string_view field : kStandardFieldNames) {
        std::string name(field);
        store->GetValue(id, name, text);
        if (field == "Notes") text = "merged in run " + std::to_string(run);
        store->PutValue(id, name, text);
        ++puts;
        if (IsExtraField(field)) {
          store->PutValue(id, name + ".Label", text.empty() ? "" : "Work");
          ++puts;
        }
        if (!HasGeometry(field)) continue;
        store->PutValue(id, name + ".Rectangle", "40 20 400 44");
        store->PutValue(id, name + ".Confidence Levels", "100 100");
        puts += 2;
      }
      store->CommitUpdate();
    }
  });
  std::printf("merge-style writes: %d cards, %lld PutValue in %.2f s: %.0f cards/s\n", merged,
              static_cast<long long>(puts), mergeSeconds, merged / mergeSeconds);

  t = Clock::now();
  {
    std::ofstream sink(dir / "export.jsonl", std::ios::binary);
    jsonl::Export(*store, sink);
  }
  std::printf("export: %.2f s\n", Seconds(t));
  std::printf("(checksum %zu)\n", checksum);
  return 0;
}
