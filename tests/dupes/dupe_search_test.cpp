#include "ombrel/dupes/dupe_search.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "dupes/dupes_internal.h"
#include "dupes/reference_model.h"
#include "dupes/search_state.h"
#include "ombrel/cardstore/ccardstoremgr.h"
#include "support/cards.h"
#include "support/error_text.h"
#include "support/fake_card_store.h"
#include "support/scratch_dir.h"

namespace ombrel {
namespace {

using Values = std::vector<std::pair<std::string, std::string>>;

struct Entry { int32_t id; Values values; bool frontImage = false; };

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
  const char* names[] = {"PlainStore", "ScanningStore", "SqliteStore", "SqliteStoreReadInParts"};
  return names[static_cast<int>(info.param)];
}

// Every test runs on a store read value by value, the same offering a scan,
// and a SQLite file, read in one pass and in two parts at once.
class DupeSearchTest : public ::testing::TestWithParam<Kind> {
 protected:
  void Use(const std::vector<Entry>& entries) {
    auto fake = std::make_shared<FakeCardStore>();
    for (const Entry& e : entries) {
      fake->AddCard(e.id, FakeCardStore::Values(e.values.begin(), e.values.end()));
      if (e.frontImage) fake->frontDib[e.id] = 100 + e.id;
    }
    fake->offersScan = GetParam() == Kind::kScanningFake;
    dupes_internal::PartScanThreshold() = GetParam() == Kind::kSqliteInParts ? 0 : restore_.threshold;
    dupes_internal::ScanParts() = 2;
    const bool sqlite = GetParam() == Kind::kSqlite || GetParam() == Kind::kSqliteInParts;
    CardStoreMgr() = std::make_shared<CCardStoreMgr>();
    CardStoreMgr()->SetCardStore(sqlite ? InSqlite(*fake, (dir_ / std::to_string(++stores_)).string()) : fake);
  }

  std::string Find(int32_t type, RecordingProgress* progress = nullptr) {
    CDupeSearch search(progress);
    auto suspects = search.GetSuspectCards();
    if (!suspects) return "<stopped>";
    return Sets(*search.FindDupes(type, *suspects));
  }

  std::string FindAllTypes() { return Find(EXACT_DUPE) + Find(COMPATIBLE_DUPE) + Find(CONFLICT_DUPE); }

 private:
  ScratchDir dir_{"ombrel-search"};
  int stores_ = 0;
  RestoreSearchState restore_;
};

INSTANTIATE_TEST_SUITE_P(Stores, DupeSearchTest,
                         ::testing::Values(Kind::kFake, Kind::kScanningFake, Kind::kSqlite, Kind::kSqliteInParts),
                         KindName);

// ---------------------------------------------------------------------------
// Reading

TEST_P(DupeSearchTest, GetAllCardsPutsTheNamelessFirstEachGroupInStoreOrder) {
  Use({Person(5, "Ann", "Lee", ""), Nameless(3, "a@x.com"), Person(9, "Bob", "Ng", ""),
       {4, {{"First Name", "Cy"}}}, Person(1, "", "Wu", ""), Nameless(2, "")});
  CDupeSearch search;
  EXPECT_EQ(TaggedIds(*search.GetAllCards()), "3 ','\n4 ',Cy'\n2 ','\n5 'Lee,Ann'\n9 'Ng,Bob'\n1 'Wu,'\n");

  // Stopped at the fourth card: what was read before it.
  RecordingProgress progress;
  progress.stopAt = [](int32_t, int32_t, int32_t, int nth) { return nth == 4; };
  CDupeSearch stopped(&progress);
  EXPECT_EQ(TaggedIds(*stopped.GetAllCards()), "3 ','\n5 'Lee,Ann'\n9 'Ng,Bob'\n");
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

// Named sets come first, then nameless ones, each in creation order. All
// types over one list of suspects, as the command line asks (on the store read
// in parts the last type is walked on a second thread), give what each type
// gives on a fresh list; a stop in the first type leaves the others unreached.
TEST_P(DupeSearchTest, FindDupesGivesNamedSetsFirstAndAllTypesInTurn) {
  Use(GroupingStore());
  const std::string each = FindAllTypes();
  EXPECT_EQ(each, "1 1: 2\n1 6: 7\n2 8: 9\n2 1: 2\n2 71: 70\n2 6: 7\n3 8: 9\n3 1: 2 3 4\n3 71: 70\n3 6: 7\n");
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

// Equal tags are sorted as the reference model test checks on every store.
// There a "," tag is never last and no tag is empty: only a "," at the last
// position stays (the others become empty), and an empty tag is sorted as
// ",", after a tag below ",".
TEST_P(DupeSearchTest, SortCardsLeavesOnlyTheLastCommaAndTakesAnEmptyTagForOne) {
  Use({Person(1, "A", "X", ""), Person(6, "B", "Y", ""), Nameless(10, ""), Nameless(11, ""), Nameless(12, ""),
       Person(13, "G", "'t Hooft", "")});
  CDupeSearch search;
  auto sortIds = [&](const std::vector<int32_t>& ids, bool emptyFirstTag = false) {
    CList cards;
    for (int32_t id : ids) cards.AddItem(search.LoadCard(id));
    if (emptyFirstTag) cards.GetItemAs<CCard>(1)->tag.clear();
    search.SortCards(cards);
    return TaggedIds(cards);
  };
  EXPECT_EQ(sortIds({10, 11, 12}), "11 ''\n10 ''\n12 ','\n");
  EXPECT_EQ(sortIds({10, 13, 11}), "13 ''t Hooft,G'\n10 ''\n11 ','\n");
  EXPECT_EQ(sortIds({1, 13, 6}, true), "13 ''t Hooft,G'\n1 ''\n6 'Y,B'\n");
}

// The sort leaves "," as the tag of the last card alone, and the walk tells
// it from the emptied tags before it: nameless cards alike in all else but
// that tag are no exact dupes of it, while they are compatible with it.
TEST_P(DupeSearchTest, TheTagLeftAsACommaAtTheEndIsADifferentTag) {
  Use({Nameless(1, "ann@lee.org"), Nameless(2, "ann@lee.org"), Nameless(3, "ann@lee.org")});
  EXPECT_EQ(Find(EXACT_DUPE) + Find(COMPATIBLE_DUPE), "1 1: 2\n2 1: 2 3\n");
  std::string inOnePass;
  CDupeSearch().FindDupesInStore({EXACT_DUPE, COMPATIBLE_DUPE},
                                 [&](int32_t, std::shared_ptr<CList> sets) { inOnePass += Sets(*sets); });
  EXPECT_EQ(inOnePass, "1 1: 2\n2 1: 2 3\n");
}

// The search over a store it reads in one pass leaves the sets' cards to be
// built when their fields are first asked for, unless told not to; the sets
// are the same either way, and the same as each type's on a fresh list.
TEST_P(DupeSearchTest, CardsReadInOnePassAreBuiltOnlyWhenAskedForUnlessToldOtherwise) {
  Use(GroupingStore());
  const std::string each = FindAllTypes();
  for (bool defer : {true, false}) {
    CDupeSearch search;
    search.SetDeferCards(defer);
    std::vector<std::shared_ptr<CList>> found;
    search.FindDupesInStore({EXACT_DUPE, COMPATIBLE_DUPE, CONFLICT_DUPE},
                            [&](int32_t, std::shared_ptr<CList> sets) { found.push_back(std::move(sets)); });
    int32_t cards = 0, pending = 0;  // counted before anything looks into them
    for (const auto& list : found) {
      for (int32_t i = 1; i <= list->GetNumItems(); ++i) {
        auto set = list->GetItemAs<CDupeSet>(i);
        for (int32_t c = 0; c <= set->GetDupes().GetNumItems(); ++c) {
          ++cards;
          pending += (c == 0 ? set->GetPrimaryCard() : set->GetDupes().GetItemAs<CCard>(c))->IsPending() ? 1 : 0;
        }
      }
    }
    std::string sets;
    for (const auto& list : found) sets += Sets(*list);
    EXPECT_EQ(sets, each) << defer;
    const bool scanned = GetParam() != Kind::kFake;
    EXPECT_EQ(pending > 0, defer && scanned) << defer << " " << pending << " of " << cards;
  }
}

// Cards without a name are all offered to one another and compared by
// content, but the word test runs only on those that share enough words
// (here each tenth card and its copy with one word misread), not on every
// pair.
TEST_P(DupeSearchTest, CardsWithoutANameRunTheWordTestWithFewOthers) {
  std::vector<Entry> entries;
  constexpr int32_t kCompanies = 300;
  auto company = [](int32_t id, int32_t number, const std::string& city) {
    const std::string n = std::to_string(1000 + number);
    return Nameless(id, "", {{"Company", "Company " + n + " Holding"}, {"Address", "Main Street " + n + "0 " + city},
                             {"Phone", "+49 30 " + n + n}});
  };
  for (int32_t id = 1; id <= kCompanies; ++id) entries.push_back(company(id, id, "Berlin"));
  for (int32_t id = 10; id <= kCompanies; id += 10) entries.push_back(company(kCompanies + id, id, "Bcrlin"));
  // A person sorted last, so that every nameless card keeps an empty tag.
  entries.push_back(Person(9001, "Ann", "Zed", ""));
  entries.push_back(Person(9002, "Ann", "Zed", ""));
  Use(entries);
  CDupeSearch search;
  std::string sets;
  search.FindDupesInStore({EXACT_DUPE, COMPATIBLE_DUPE, CONFLICT_DUPE},
                          [&](int32_t, std::shared_ptr<CList> found) { sets += Sets(*found); });
  EXPECT_EQ(std::count(sets.begin(), sets.end(), '\n'), 3 + kCompanies / 10);
  EXPECT_EQ(sets.rfind("1 9002: 9001\n2 9002: 9001\n3 9002: 9001\n3 ", 0), 0u) << sets;
  EXPECT_LE(search.Timings().wordTests, 3 * static_cast<int64_t>(entries.size()));
}

// Field texts and labels decide exact and compatible dupes however long the
// texts are (the notes here take 300 and 70,000 bytes).
TEST_P(DupeSearchTest, LongFieldTextsAndLabelsAreComparedInFull) {
  std::vector<Entry> entries;
  int32_t id = 0;
  for (size_t length : {size_t{300}, size_t{70000}}) {
    const std::string notes(length, 'a'), other = std::string(length - 1, 'a') + "b";
    const std::string first = length == 300 ? "Ann" : "Bob", last = length == 300 ? "Lee" : "Ray";
    auto card = [&](const std::string& text, const std::string& label) {
      Values more{{"Notes", text}};
      if (!label.empty()) more.insert(more.end(), {{"Phone 1", "555"}, {"Phone 1.Label", label}});
      entries.push_back(Person(++id, first, last, "", more));
    };
    card(notes, "Work");
    card(notes, "Work");
    card(notes, "Home");
    card(notes, "");
    card(other, "");
  }
  Use(entries);
  EXPECT_EQ(FindAllTypes(), "1 2: 1\n1 7: 6\n2 2: 4 1\n2 7: 9 6\n3 2: 4 1 3 5\n3 7: 9 6 8 10\n");
  // An edited card may hold a label on an empty field: it tells exact twins apart as any label does.
  CDupeSearch search;
  auto suspects = search.GetSuspectCards();
  for (int32_t i = 1; i <= suspects->GetNumItems(); ++i) {
    auto card = suspects->GetItemAs<CCard>(i);
    if (card->GetCardID() == 2) card->SetData("Phone 2", "", "Work", nullptr, 100, 100, false, false);
  }
  EXPECT_EQ(Sets(*search.FindDupes(EXACT_DUPE, *suspects)), "1 7: 6\n");
}

// Long tags alike in their first bytes, tags that are prefixes of others
// (one ending in a zero byte) and repeated ones sort as the insertion does.
TEST(SortCardsTest, TagsAlikeInTheirFirstBytesSortByAllTheirBytes) {
  const std::string base = "Abcdefghijklmnop";  // sixteen bytes
  const std::vector<std::string> tags = {base + "q", base, base + "a", base.substr(0, 15), base + "q",
                                         std::string("Abc\0", 4), "Abc", base + "a" + base, base + "a",
                                         base, "Abc", base + "a" + base + "b", ",", base + "q"};
  model::Cards mine, theirs;
  for (size_t i = 0; i < tags.size(); ++i) {
    auto card = std::make_shared<CCard>();
    card->SetCardId(static_cast<int32_t>(i) + 1);
    card->tag = tags[i];
    mine.push_back(card);
    theirs.push_back(card->Clone());
  }
  CList list;
  for (const auto& card : mine) list.AddItem(card);
  CDupeSearch().SortCards(list);
  model::SortCards(theirs);
  CList expected;
  for (const auto& card : theirs) expected.AddItem(card);
  EXPECT_EQ(TaggedIds(list), TaggedIds(expected));
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

// Work without a count of its own (the key tables, the sort, the grouping's
// tables) repeats the last report every so many cards (here every card): a
// stop answered there is seen at once.
TEST_P(DupeSearchTest, WorkWithoutACountRepeatsTheLastReportAndStopsThere) {
  Use(GroupingStore());
  dupes_internal::CheckInEvery() = 1;
  const int32_t cards = static_cast<int32_t>(GroupingStore().size());
  const std::string keysRead = std::to_string(search_text::kReadingCards) + " " + std::to_string(cards) + "/" +
                               std::to_string(cards);
  for (bool stop : {false, true}) {
    RecordingProgress progress;
    progress.stopAt = [&, last = std::string()](int32_t id, int32_t done, int32_t total, int) mutable {
      const std::string report = std::to_string(id) + " " + std::to_string(done) + "/" + std::to_string(total);
      const bool again = report == last;
      last = report;
      return stop && again;
    };
    CDupeSearch search(&progress);
    std::string got;
    auto suspects = search.FindDupesInStore({EXACT_DUPE, COMPATIBLE_DUPE},
                                            [&](int32_t, std::shared_ptr<CList> sets) { got += sets ? "sets " : "none "; });
    if (stop) {
      EXPECT_FALSE(suspects);
      EXPECT_EQ(got, "none none ");
      EXPECT_EQ(std::count(progress.log.begin(), progress.log.end(), keysRead), 2);
      continue;
    }
    // The key tables: a check-in a card for each kind of key; the grouping's
    // tables: the loading's last report again, before the first action.
    EXPECT_GE(std::count(progress.log.begin(), progress.log.end(), keysRead), 3 * cards);
    auto action = std::find(progress.log.begin(), progress.log.end(), "action 702");
    ASSERT_GT(action - progress.log.begin(), 2);
    EXPECT_EQ(*(action - 1), *(action - 2));
    EXPECT_EQ(got, "sets sets ");
  }
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

// With the walks side by side every card's front image is asked ahead of
// them; a store failure is raised for the first failing card in sorted
// order, as asking card by card in that order would, and no type is handed on.
TEST(DupeSearchAheadTest, AFrontImageFailureIsRaisedForTheFirstFailingCardInSortedOrder) {
  const RestoreSearchState restore;
  auto fake = std::make_shared<FakeCardStore>();
  for (const Entry& e : {Person(4, "Bob", "Ray", ""), Person(3, "Bob", "Ray", ""), Person(2, "Ann", "Lee", ""),
                         Person(1, "Ann", "Lee", ""), Person(6, "Al", "Abbot", ""), Person(5, "Al", "Abbot", "")})
    fake->AddCard(e.id, FakeCardStore::Values(e.values.begin(), e.values.end()));
  fake->offersScan = true;
  fake->Fail("HasFrontImage", 3, "offline").ForCard(4);
  fake->Fail("HasFrontImage", 3, "offline").ForCard(5);
  dupes_internal::PartScanThreshold() = 0;
  CardStoreMgr() = std::make_shared<CCardStoreMgr>();
  CardStoreMgr()->SetCardStore(fake);
  int handedOn = 0;
  EXPECT_EQ(ErrorText([&] {
              CDupeSearch().FindDupesInStore({EXACT_DUPE, COMPATIBLE_DUPE, CONFLICT_DUPE},
                                             [&](int32_t, std::shared_ptr<CList>) { ++handedOn; });
            }),
            "Failed to find out if front image exists for card: 5\r\noffline");
  EXPECT_EQ(handedOn, 0);
}

}  // namespace
}  // namespace ombrel
