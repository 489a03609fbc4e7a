#include "ombrel/dupes/dupe_search.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "dupes/dupes_internal.h"
#include "dupes/reference_model.h"
#include "ombrel/cards/ccard.h"
#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/cardstore/image_registry.h"
#include "ombrel/cardstore/sqlite_card_store.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/foundation/error.h"
#include "support/error_text.h"
#include "support/fake_card_store.h"

namespace ombrel {
namespace {

namespace fs = std::filesystem;

using Values = std::vector<std::pair<std::string, std::string>>;

struct Entry {
  int32_t id;
  Values values;
  bool frontImage = false;
};

// A person's card: first and last name, "Name" made of both, e-mail and more.
Entry Person(int32_t id, const std::string& first, const std::string& last, const std::string& email,
             Values more = {}, bool image = false) {
  Values v;
  if (!first.empty()) v.emplace_back("First Name", first);
  if (!last.empty()) v.emplace_back("Last Name", last);
  std::string name = first.empty() ? last : last.empty() ? first : first + " " + last;
  if (!name.empty()) v.emplace_back("Name", name);
  if (!email.empty()) v.emplace_back("Email", email);
  v.insert(v.end(), more.begin(), more.end());
  return {id, v, image};
}

// A card with no name at all.
Entry Nameless(int32_t id, const std::string& email, Values more = {}, bool image = false) {
  return Person(id, "", "", email, std::move(more), image);
}

std::string Ids(const CList& cards) {
  std::string out;
  for (int32_t i = 1; i <= cards.GetNumItems(); ++i) {
    auto card = cards.GetItemAs<CCard>(i);
    out += std::to_string(card->GetCardID()) + " '" + card->tag + "'\n";
  }
  return out;
}

std::string Sets(const CList& sets) {
  model::Sets list;
  for (int32_t i = 1; i <= sets.GetNumItems(); ++i) list.push_back(sets.GetItemAs<CDupeSet>(i));
  return model::DumpSets(list);
}

// Records what the search shows; answers false (stop) when stopAt says so.
class RecordingProgress final : public ISearchProgress {
 public:
  void SetActionText(int32_t id) override { log.push_back("action " + std::to_string(id)); }
  bool UpdateProgress(int32_t id, int32_t done, int32_t total) override {
    log.push_back(std::to_string(id) + " " + std::to_string(done) + "/" + std::to_string(total));
    ++reports;
    return !(stopAt && stopAt(id, done, total, reports));
  }
  // The reports of one resource, "1/6 2/6 ...".
  std::string Of(int32_t id) const {
    std::string out, prefix = std::to_string(id) + " ";
    for (const auto& line : log)
      if (line.rfind(prefix, 0) == 0) out += (out.empty() ? "" : " ") + line.substr(prefix.size());
    return out;
  }

  // Answers stop at the nth report of the grouping (never for 0).
  void StopAtGroupingReport(int nth) {
    stopAt = [nth, grouping = 0](int32_t id, int32_t, int32_t, int) mutable {
      return id == search_text::kGroupingCards && ++grouping == nth;
    };
  }

  std::vector<std::string> log;
  int reports = 0;
  std::function<bool(int32_t id, int32_t done, int32_t total, int nth)> stopAt;
};

enum class Kind { kFake, kScanningFake, kSqlite, kSqliteInParts };

std::string KindName(const ::testing::TestParamInfo<Kind>& info) {
  switch (info.param) {
    case Kind::kFake: return "PlainStore";
    case Kind::kScanningFake: return "ScanningStore";
    case Kind::kSqlite: return "SqliteStore";
    case Kind::kSqliteInParts: return "SqliteStoreReadInParts";
  }
  return "?";
}

// Every test runs on a store read value by value, the same offering a scan,
// and a SQLite file, read in one pass and in two parts at once.
class DupeSearchTest : public ::testing::TestWithParam<Kind> {
 protected:
  void SetUp() override { saved_ = CardStoreMgr(); }
  void TearDown() override {
    dupes_internal::PartScanThreshold() = savedThreshold_;
    CardStoreMgr() = saved_;
    sqlite_.reset();
    if (!dir_.empty()) fs::remove_all(dir_);
  }

  void Use(const std::vector<Entry>& entries) {
    std::shared_ptr<ICardStore> store;
    sqlite_.reset();
    fake_ = std::make_shared<FakeCardStore>();
    if (GetParam() == Kind::kSqlite || GetParam() == Kind::kSqliteInParts) {
      dupes_internal::PartScanThreshold() = GetParam() == Kind::kSqliteInParts ? 0 : savedThreshold_;
      static int stores = 0;
      if (!dir_.empty()) fs::remove_all(dir_);
      dir_ = fs::temp_directory_path() /
             ("ombrel-search-" + std::to_string(::getpid()) + "-" + std::to_string(++stores));
      fs::remove_all(dir_);
      fs::create_directories(dir_);
      auto sqlite = CSqliteCardStore::Open((dir_ / "cards.db").string());
      const StoredImage png{"png", {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 7, 1, 2, 3}};
      for (const Entry& e : entries) {
        CardValueList values(e.values.begin(), e.values.end());
        ASSERT_EQ(sqlite->AddCard(e.id, values, e.frontImage ? &png : nullptr), 0) << sqlite->GetLastError();
      }
      sqlite_ = std::shared_ptr<CSqliteCardStore>(std::move(sqlite));
      store = sqlite_;
    } else {
      for (const Entry& e : entries) {
        fake_->AddCard(e.id, FakeCardStore::Values(e.values.begin(), e.values.end()));
        if (e.frontImage) fake_->frontDib[e.id] = 100 + e.id;
      }
      store = fake_;
      if (GetParam() == Kind::kScanningFake) store = std::make_shared<ScanningStore>(fake_);
    }
    CardStoreMgr() = std::make_shared<CCardStoreMgr>();
    CardStoreMgr()->SetCardStore(store);
  }

  std::string Find(int32_t type, RecordingProgress* progress = nullptr) {
    CDupeSearch search(progress);
    auto suspects = search.GetSuspectCards();
    if (!suspects) return "<stopped>";
    return Sets(*search.FindDupes(type, *suspects));
  }

  std::string FindAllTypes() { return Find(EXACT_DUPE) + Find(COMPATIBLE_DUPE) + Find(CONFLICT_DUPE); }

  std::shared_ptr<FakeCardStore> fake_;

 private:
  std::shared_ptr<CCardStoreMgr> saved_;
  int32_t savedThreshold_ = dupes_internal::PartScanThreshold();
  std::shared_ptr<CSqliteCardStore> sqlite_;
  fs::path dir_;
};

INSTANTIATE_TEST_SUITE_P(Stores, DupeSearchTest,
                         ::testing::Values(Kind::kFake, Kind::kScanningFake, Kind::kSqlite, Kind::kSqliteInParts),
                         KindName);

// ---------------------------------------------------------------------------
// Suspects

TEST_P(DupeSearchTest, SuspectsShareAKeyWithAnEarlierCardAndComeWithTheirPartner) {
  Use({
      Person(21, "John", "Smith", "john@x.com"),
      Person(7, "JOHN", "SMITH", " JOHN@X.COM "),      // full name, other case: partner 21
      Person(15, "Jane", "Smith", "john@x.com"),       // last name and e-mail of 21
      Person(3, "Bob", "Lee", "bob@x.com"),
      Person(30, "Rob", "Lee", "BOB@x.com"),           // last name and e-mail of 3, partner loaded after it
      Person(11, "Ann", "Ng", "shared@x.com"),
      Person(12, "Tom", "Wu", "shared@x.com"),         // a new full name: the e-mail alone is not looked up
      Nameless(40, "info@acme.com", {{"Company", "Acme"}}),
      Nameless(41, "  INFO@acme.com", {{"Company", "Acme"}}),  // e-mail of 40
      Nameless(42, "", {{"Company", "Globex"}}),       // no name, no e-mail: always, with no partner
      Nameless(43, "shared@x.com"),                    // e-mail of the named card 11
      Person(50, "Ann", "", ""),
      Person(51, "", "Ng", "ann@ng.com"),
      Person(52, " ann ", "", ""),                     // full name of 50, first name with blanks
      Person(53, "Jon", "Smith", "jon@x.com"),
  });
  CDupeSearch search;
  auto suspects = search.GetSuspectCards();
  ASSERT_TRUE(suspects);
  EXPECT_EQ(Ids(*suspects),
            "7 'SMITH,JOHN'\n"
            "21 'Smith,John'\n"
            "15 'Smith,Jane'\n"
            "30 'Lee,Rob'\n"
            "3 'Lee,Bob'\n"
            "41 ','\n"
            "40 ','\n"
            "42 ','\n"
            "43 ','\n"
            "11 'Ng,Ann'\n"
            "52 ', ann'\n"
            "50 ',Ann'\n");
}

TEST_P(DupeSearchTest, GetAllCardsPutsTheNamelessFirstEachGroupInStoreOrder) {
  Use({Person(5, "Ann", "Lee", ""), Nameless(3, "a@x.com"), Person(9, "Bob", "Ng", ""),
       {4, {{"First Name", "Cy"}}}, Person(1, "", "Wu", ""), Nameless(2, "")});
  CDupeSearch search;
  EXPECT_EQ(Ids(*search.GetAllCards()), "3 ','\n4 ',Cy'\n2 ','\n5 'Lee,Ann'\n9 'Ng,Bob'\n1 'Wu,'\n");

  // Stopped at the fourth card: what was read before it.
  RecordingProgress progress;
  progress.stopAt = [](int32_t, int32_t, int32_t, int nth) { return nth == 4; };
  CDupeSearch stopped(&progress);
  EXPECT_EQ(Ids(*stopped.GetAllCards()), "3 ','\n5 'Lee,Ann'\n9 'Ng,Bob'\n");
  EXPECT_EQ(progress.Of(search_text::kReadingCards), "1/6 2/6 3/6 4/6");
}

// ---------------------------------------------------------------------------
// Grouping

// Two families, an exact nameless copy, a card whose image makes it primary,
// and a named card that sorts before the nameless ones and hands its set to a
// nameless primary.
std::vector<Entry> GroupingStore() {
  return {
      Person(1, "John", "Smith", "john@x.com", {{"Title", "CEO"}}),
      Person(2, "John", "Smith", "john@x.com", {{"Title", "CEO"}}),
      Person(3, "John", "Smith", "JOHN@x.com", {{"Title", "CTO"}}),
      Person(4, "Jon", "Smith", "john@x.com"),
      Person(5, "Jane", "Smith", "jane@x.com"),
      Nameless(6, "info@acme.com", {{"Company", "Acme Corp"}, {"Address", "12 north tower plaza suite"}}),
      Nameless(7, "info@acme.com", {{"Company", "Acme Corp"}, {"Address", "12 north tower plaza suite"}}),
      Person(8, "Ann", "Lee", "ann@lee.com", {}, true),
      Person(9, "Ann", "Lee", "ann@lee.com", {{"Title", "Boss"}}),
      Person(70, "Gerard", "'t Hooft", "g@h.nl"),
      Nameless(71, "g@h.nl", {{"Company", "Physics Dept"}}, true),
  };
}

TEST_P(DupeSearchTest, FindDupesGivesNamedSetsFirstThenNamelessOnesEachInCreationOrder) {
  Use(GroupingStore());
  EXPECT_EQ(FindAllTypes(),
            "1 1: 2\n"
            "1 6: 7\n"
            "2 8: 9\n"
            "2 1: 2\n"
            "2 71: 70\n"
            "2 6: 7\n"
            "3 8: 9\n"
            "3 1: 2 3 4\n"
            "3 71: 70\n"
            "3 6: 7\n");
}

// All types over one list of suspects, as the command line asks (on the
// store read in parts the last type is walked on a second thread), give what
// each type gives on a fresh list, in type order; a stop in the first type
// leaves the others unreached.
TEST_P(DupeSearchTest, FindDupesOfTypesGivesEachTypesSetsInTurn) {
  Use(GroupingStore());
  const std::string each = FindAllTypes();
  for (int stopAt : {0, 2}) {
    RecordingProgress progress;
    progress.StopAtGroupingReport(stopAt);
    CDupeSearch search(&progress);
    auto suspects = search.GetSuspectCards();
    ASSERT_TRUE(suspects);
    std::string all;
    search.FindDupesOfTypes({EXACT_DUPE, COMPATIBLE_DUPE, CONFLICT_DUPE}, *suspects,
                            [&](int32_t type, std::shared_ptr<CList> sets) {
                              all += sets ? Sets(*sets) : std::to_string(type) + " not reached\n";
                            });
    EXPECT_EQ(all, stopAt == 0 ? each : "2 not reached\n3 not reached\n");
  }
}

TEST_P(DupeSearchTest, SortCardsKeepsTheOrderOfTheInsertionForEqualTags) {
  // Tags chosen through the store: equal tags, ",", a tag below ",".
  Use({Person(1, "A", "X", ""), Person(2, "A", "X", ""), Person(3, "A", "X", ""), Person(4, "A", "X", ""),
       Person(5, "A", "X", ""), Person(6, "B", "Y", ""), Person(7, "A", "Y", ""), Person(8, "B", "Y", ""),
       Person(9, "A", "Y", ""), Nameless(10, ""), Nameless(11, ""), Nameless(12, ""),
       Person(13, "G", "'t Hooft", "")});
  CDupeSearch search;
  auto sortIds = [&](const std::vector<int32_t>& ids) {
    CList cards;
    for (int32_t id : ids) cards.AddItem(search.LoadCard(id));
    search.SortCards(cards);
    return Ids(cards);
  };
  EXPECT_EQ(sortIds({1, 2, 3, 4}), "3 'X,A'\n1 'X,A'\n2 'X,A'\n4 'X,A'\n");
  EXPECT_EQ(sortIds({6, 7, 8, 9}), "7 'Y,A'\n9 'Y,A'\n6 'Y,B'\n8 'Y,B'\n");
  // Only a "," at the last position stays; the others become empty.
  EXPECT_EQ(sortIds({10, 11, 12}), "11 ''\n10 ''\n12 ','\n");
  EXPECT_EQ(sortIds({10, 13, 11}), "13 ''t Hooft,G'\n10 ''\n11 ','\n");

  // An empty tag is sorted as ",".
  CList cards;
  for (int32_t id : {1, 13, 6}) cards.AddItem(search.LoadCard(id));
  cards.GetItemAs<CCard>(1)->tag.clear();
  cards.GetItemAs<CCard>(2)->tag.clear();
  search.SortCards(cards);
  EXPECT_EQ(Ids(cards), "1 ''\n13 ''\n6 'Y,B'\n");
}

// Nameless cards lose their "," tag in the sort, except one left at the
// last position, so they are compared by content and words and that last
// one is offered only through an e-mail.
TEST_P(DupeSearchTest, NamelessCardsAreComparedByContent) {
  const Values acme = {{"Company", "Acme"}, {"Address", "north tower plaza suite"}};
  const Values globex = {{"Company", "Globex"}, {"Address", "north tower plaza suite"}};
  const Values initech = {{"Company", "Initech"}, {"Address", "north tower plaza suite"}};
  const std::vector<Entry> johns = {Person(4, "John", "Smith", ""), Person(5, "John", "Smith", "")};
  struct Case {
    std::string what;
    std::vector<Entry> entries;
  };
  auto with = [&](std::vector<Entry> entries, bool addJohns) {
    if (addJohns) entries.insert(entries.end(), johns.begin(), johns.end());
    return entries;
  };
  const std::vector<Case> cases = {
      {"three copies beside a named pair",
       with({Nameless(1, "", acme), Nameless(2, "", acme), Nameless(3, "", acme)}, true)},
      {"two copies alone", with({Nameless(1, "", acme), Nameless(2, "", acme)}, false)},
      {"two copies alone with one e-mail",
       with({Nameless(1, "a@acme.com", acme), Nameless(2, "a@acme.com", acme)}, false)},
      {"three cards sharing enough words beside a named pair",
       with({Nameless(1, "", acme), Nameless(2, "", globex), Nameless(3, "", initech)}, true)},
  };
  std::string dump;
  for (const Case& c : cases) {
    Use(c.entries);
    dump += c.what + ":\n" + FindAllTypes();
  }
  EXPECT_EQ(dump,
            "three copies beside a named pair:\n"
            "1 5: 4\n"
            "1 2: 1 3\n"
            "2 5: 4\n"
            "2 2: 1 3\n"
            "3 5: 4\n"
            "3 2: 1 3\n"
            "two copies alone:\n"
            "two copies alone with one e-mail:\n"
            "2 2: 1\n"
            "3 2: 1\n"
            "three cards sharing enough words beside a named pair:\n"
            "1 5: 4\n"
            "2 5: 4\n"
            "3 5: 4\n"
            "3 3: 1 2\n");
}

// ---------------------------------------------------------------------------
// Progress and stopping

// Two pairs around two cards that only share a full name (in other case):
// each of those is a set of one, discarded.
std::vector<Entry> PairsStore() {
  return {Person(1, "Al", "Adams", ""), Person(2, "Al", "Adams", ""), Person(3, "Bo", "Brown", ""),
          Person(4, "BO", "BROWN", ""), Person(5, "Cy", "Clark", ""), Person(6, "Cy", "Clark", "")};
}

TEST_P(DupeSearchTest, ProgressCountsCardsReadThenCardsTakenIntoSets) {
  Use(PairsStore());
  RecordingProgress progress;
  EXPECT_EQ(Find(EXACT_DUPE, &progress), "1 2: 1\n1 6: 5\n");
  // Read in two parts, the first part reports for both.
  EXPECT_EQ(progress.Of(search_text::kReadingCards),
            GetParam() == Kind::kSqliteInParts ? "2/6 4/6 6/6 0/0" : "1/6 2/6 3/6 4/6 5/6 6/6 0/0");
  // done = total + position - current count: cards in sets count as done.
  EXPECT_EQ(progress.Of(search_text::kGroupingCards), "1/6 2/6 3/6 3/6 4/6 5/6 6/6 7/6");
  // The action text comes after the reading, and resets the text to 0 of 0.
  auto action = std::find(progress.log.begin(), progress.log.end(), "action 702");
  ASSERT_LT(action + 1, progress.log.end());
  EXPECT_EQ(*(action + 1), "705 0/0");
  EXPECT_EQ(std::count(progress.log.begin(), progress.log.end(), "705 6/6"), 1);
  EXPECT_LT(std::find(progress.log.begin(), progress.log.end(), "705 6/6"), action);
}

TEST_P(DupeSearchTest, AStopWhileReadingMakesGetSuspectCardsAnswerNothing) {
  Use(PairsStore());
  // Every report of a full run, then a run stopped at each of them.
  RecordingProgress full;
  ASSERT_TRUE(CDupeSearch(&full).GetSuspectCards());
  ASSERT_GE(full.reports, 6);
  for (int stopAt = 1; stopAt <= full.reports; ++stopAt) {
    RecordingProgress progress;
    progress.stopAt = [&](int32_t, int32_t, int32_t, int nth) { return nth == stopAt; };
    CDupeSearch search(&progress);
    EXPECT_FALSE(search.GetSuspectCards()) << "stopped at report " << stopAt;
    EXPECT_EQ(progress.reports, stopAt) << "reports went on after the stop";
    EXPECT_TRUE(search.IsStopped());
  }

  // Stopping through StopSearch works the same, and a stopped search stays stopped.
  RecordingProgress progress;
  CDupeSearch search(&progress);
  progress.stopAt = [&](int32_t id, int32_t done, int32_t, int) {
    if (id == search_text::kReadingCards && done >= 3) search.StopSearch();
    return false;  // the answer says go on; the flag alone stops
  };
  EXPECT_FALSE(search.GetSuspectCards());
  const bool inParts = GetParam() == Kind::kSqliteInParts;
  EXPECT_EQ(progress.Of(search_text::kReadingCards), inParts ? "2/6 4/6" : "1/6 2/6 3/6");
  EXPECT_FALSE(search.GetSuspectCards());
  EXPECT_EQ(progress.reports, inParts ? 2 : 3);
}

TEST_P(DupeSearchTest, AStopWhileGroupingKeepsTheSetsFinishedSoFar) {
  Use(PairsStore());
  std::string dump;
  for (int stopAt : {2, 3, 7, 8, 9}) {
    RecordingProgress progress;
    progress.StopAtGroupingReport(stopAt);
    CDupeSearch search(&progress);
    auto suspects = search.GetSuspectCards();
    ASSERT_TRUE(suspects);
    std::string sets = Sets(*search.FindDupes(EXACT_DUPE, *suspects));
    for (char& c : sets)
      if (c == '\n') c = ';';
    dump += std::to_string(stopAt) + ": " + sets + " (" + progress.Of(search_text::kGroupingCards) + ")\n";
  }
  EXPECT_EQ(dump,
            "2:  (1/6 2/6)\n"
            "3: 1 2: 1; (1/6 2/6 3/6)\n"
            "7: 1 2: 1; (1/6 2/6 3/6 3/6 4/6 5/6 6/6)\n"
            "8: 1 2: 1;1 6: 5; (1/6 2/6 3/6 3/6 4/6 5/6 6/6 7/6)\n"
            "9: 1 2: 1;1 6: 5; (1/6 2/6 3/6 3/6 4/6 5/6 6/6 7/6)\n");
}

TEST_P(DupeSearchTest, AnUnreadableSuspectRaisesTheManagersError) {
  auto entries = PairsStore();
  entries[3].values.emplace_back("Title", "Boss");
  entries[3].values.emplace_back("Title.Rectangle", "1 2 3");
  Use(entries);
  CDupeSearch search;
  EXPECT_EQ(ErrorText([&] { search.GetSuspectCards(); }),
            "Failed to get field data for field: Title\r\nIncorrect rectangle information: 1 2 3");
  EXPECT_EQ(search.FailedCardId(), 4);
}

}  // namespace
}  // namespace ombrel
