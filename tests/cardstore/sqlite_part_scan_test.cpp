// ScanCardsInParts on the SQLite store.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <mutex>
#include <set>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "ombrel/cardstore/icardstore.h"
#include "ombrel/cardstore/sqlite_card_store.h"
#include "support/scratch_dir.h"

namespace ombrel {
namespace {

using ::testing::HasSubstr;
using S = CSqliteCardStore;
using Parts = std::vector<std::vector<std::string>>;  // per part, what was read of each card

const std::vector<std::string> kStored = {"Name",           "First Name",        "Last Name", "Title",
                                          "Phone 1",        "Phone 1.Label",     "Email 2",   "Email 2.Label",
                                          "Name.Rectangle", "Email 2.Rectangle", "Nickname",  "Room.Confidence Levels"};

// Also a suffix in another case, a valid name no card holds and a name that is none.
std::string Dump(int32_t id, const ICardValues& values) {
  std::string out = std::to_string(id);
  for (const auto& n : kStored) out += "|" + values.Get(n);
  for (const char* n : {"phone 1.LABEL", "Fax.Label", "Room", "Shoe Size"}) out += "|" + values.Get(n);
  return out;
}

class PartScanTest : public ::testing::Test {
 protected:
  static std::unique_ptr<S> Fill(const std::string& path, int cards) {
    auto store = S::Open(path, OpenMode::kOpenOrCreate, {5000, 0});
    EXPECT_EQ(store->DefineCustomFields({{"Nickname"}, {"Room"}}), 0);
    EXPECT_EQ(store->BeginUpdate(), 0);
    for (int i = 1; i <= cards; ++i) {
      CardValueList values;
      for (size_t n = 0; n < kStored.size(); ++n) {
        if ((i * 7 + n * 3) % 5 != 0) values.emplace_back(kStored[n], kStored[n] + " " + std::to_string(i % 97));
      }
      EXPECT_EQ(store->AddCard(i * 3, values), 0) << store->GetLastError();
    }
    EXPECT_EQ(store->CommitUpdate(), 0);
    return store;
  }
  static std::vector<std::string> Scan(S& store) {
    std::vector<std::string> all;
    EXPECT_EQ(store.ScanCards([&](int32_t id, const ICardValues& v) {
      all.push_back(Dump(id, v));
      return true;
    }),
              0);
    return all;
  }
  // Each part writes only its own list; part stopping answers false at its first card.
  static Parts ScanInParts(S& store, int32_t parts, int32_t stopping = -1, std::vector<int32_t> starts = {}) {
    Parts got(parts);
    EXPECT_EQ(store.ScanCardsInParts(
                  parts,
                  [&](int32_t part, int32_t id, const ICardValues& v) {
                    got.at(part).push_back(Dump(id, v));
                    return part != stopping;
                  },
                  starts),
              0)
        << store.GetLastError();
    return got;
  }
  static std::vector<std::string> Joined(const Parts& parts) {
    std::vector<std::string> all;
    for (const auto& p : parts) all.insert(all.end(), p.begin(), p.end());
    return all;
  }

  ScratchDir dir_{"ombrel-parts"};
  std::unique_ptr<S> store_ = Fill((dir_ / "cards.db").string(), 3000);
};

TEST_F(PartScanTest, PartsInOrderAreExactlyTheScan) {
  for (int id : {3, 1500, 4500, 9000}) ASSERT_EQ(store_->DeleteCard(id), 0);  // holes in the order
  ASSERT_EQ(store_->PutValue(6, "Room", "moved"), 0);
  Parts two = ScanInParts(*store_, 2);  // before a scan on the store's connection has asked these names
  Parts five = ScanInParts(*store_, 5);
  const auto whole = Scan(*store_);
  ASSERT_EQ(whole.size(), 2996u);
  EXPECT_EQ(Joined(two), whole);
  EXPECT_EQ(Joined(five), whole);
  EXPECT_NEAR(two[0].size(), 1498.0, 5);  // both threads really read
  for (const auto& part : five) EXPECT_NEAR(part.size(), 600.0, 5);

  auto few = Fill((dir_ / "few.db").string(), 3);  // fewer cards than parts
  Parts eight = ScanInParts(*few, 8);
  EXPECT_EQ(Joined(eight), Scan(*few));
  EXPECT_EQ(eight[2].size(), 1u);
}

TEST_F(PartScanTest, PartsBeginAtTheCardsAskedForWhenTheStoreHoldsThemInOrder) {
  const auto whole = Scan(*store_);
  auto sizes = [](const Parts& parts) {
    std::vector<size_t> n;
    for (const auto& p : parts) n.push_back(p.size());
    return n;
  };
  Parts asked = ScanInParts(*store_, 3, -1, {300, 7500});  // the 100th and the 2,500th card
  EXPECT_EQ(Joined(asked), whole);
  EXPECT_EQ(sizes(asked), (std::vector<size_t>{99, 2400, 501}));
  EXPECT_EQ(asked[1][0].substr(0, 4), "300|");

  // Out of order, unknown, the first card (no part before it), or too few: equal stretches.
  for (std::vector<int32_t> starts : std::vector<std::vector<int32_t>>{{7500, 300}, {301, 7500}, {3, 7500}, {300}}) {
    Parts even = ScanInParts(*store_, 3, -1, starts);
    EXPECT_EQ(Joined(even), whole);
    EXPECT_EQ(sizes(even), (std::vector<size_t>{1000, 1000, 1000})) << starts[0];
  }
}

TEST_F(PartScanTest, OnePartOnTheStoresConnectionWhenOthersCouldNotSeeTheCards) {
  ASSERT_EQ(store_->BeginUpdate(), 0);
  ASSERT_EQ(store_->PutValue(9, "Title", "pending"), 0);
  Parts bracket = ScanInParts(*store_, 2);
  EXPECT_EQ(bracket[0], Scan(*store_));
  EXPECT_THAT(bracket[0][2], HasSubstr("|pending|"));
  ASSERT_EQ(store_->AbortUpdate(), 0);

  auto memory = Fill(":memory:", 40);
  EXPECT_EQ(ScanInParts(*memory, 2)[0], Scan(*memory));
}

TEST_F(PartScanTest, AnsweringFalseEndsThatPartOnly) {
  const Parts all = ScanInParts(*store_, 2);
  for (int32_t stopping : {0, 1}) {
    Parts got = ScanInParts(*store_, 2, stopping);
    EXPECT_EQ(got[stopping], std::vector<std::string>{all[stopping][0]});
    EXPECT_EQ(got[1 - stopping], all[1 - stopping]);
  }
}

// Once part 0 is done, the caller is called back on its own thread while
// the other parts run, and can have them stop: part 1 alone would take 1.5 s.
TEST_F(PartScanTest, TheCallerWaitingOnTheOtherPartsIsCalledBackAndCanStopThem) {
  const auto caller = std::this_thread::get_id();
  std::atomic<bool> stopOthers = false;
  std::atomic<int> othersVisited = 0;
  int calls = 0;
  bool onCaller = true;
  ASSERT_EQ(store_->ScanCardsInParts(
                2,
                [&](int32_t part, int32_t, const ICardValues&) {
                  if (part == 0 || stopOthers) return false;
                  ++othersVisited;
                  std::this_thread::sleep_for(std::chrono::milliseconds(1));
                  return true;
                },
                {}, {},
                [&] {
                  ++calls;
                  onCaller = onCaller && std::this_thread::get_id() == caller;
                  stopOthers = true;
                }),
            0)
      << store_->GetLastError();
  EXPECT_GE(calls, 1);
  EXPECT_TRUE(onCaller);
  EXPECT_LT(othersVisited, 750);
}

// When both parts throw, part 1 throws first: it waits until part 0 visits a
// card, which then waits until part 1 has thrown (each for a while only, so
// that a scan reading one part after the other fails instead of hanging).
TEST_F(PartScanTest, AVisitorsExceptionReachesTheCallerFromTheLowestPartThatThrew) {
  for (bool bothThrow : {false, true}) {
    std::atomic<bool> visiting = false, threw = false;
    auto waitFor = [](const std::atomic<bool>& flag) {
      for (int i = 0; !flag && i < 5000; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
    auto visit = [&](int32_t part, int32_t, const ICardValues&) {
      if (part == 0 && !bothThrow) return true;
      if (part == 0) visiting = true;
      if (bothThrow) waitFor(part == 0 ? threw : visiting);
      if (part == 1) threw = true;
      throw std::runtime_error("part " + std::to_string(part));
    };
    try {
      store_->ScanCardsInParts(2, visit);
      ADD_FAILURE() << "nothing thrown";
    } catch (const std::runtime_error& e) {
      EXPECT_EQ(e.what(), std::string(bothThrow ? "part 0" : "part 1"));
    }
  }
  EXPECT_EQ(Scan(*store_).size(), 3000u);  // nothing left running or locked
}

// Cards not wanted are passed over unread: the others come as the whole
// scan gives them, a damaged card nobody wants goes unnoticed, and what the
// filter throws reaches the caller.
TEST_F(PartScanTest, CardsNotWantedAreNeitherVisitedNorRead) {
  const auto whole = Scan(*store_);
  RunSql(dir_ / "cards.db", "UPDATE cards SET vals = x'630141' WHERE id = 8994");
  auto wanted = [](int32_t id) { return id % 4 == 0 && id != 8994; };
  Parts got(2);
  EXPECT_EQ(store_->ScanCardsInParts(
                2,
                [&](int32_t part, int32_t id, const ICardValues& v) {
                  got.at(part).push_back(Dump(id, v));
                  return true;
                },
                {}, wanted),
            0)
      << store_->GetLastError();
  std::vector<std::string> expected;
  for (int i = 1; i <= 3000; ++i)
    if (wanted(i * 3)) expected.push_back(whole[static_cast<size_t>(i - 1)]);
  EXPECT_EQ(Joined(got), expected);
  EXPECT_FALSE(got[1].empty());
  try {
    store_->ScanCardsInParts(
        2, [](int32_t, int32_t, const ICardValues&) { return true; }, {},
        [](int32_t id) -> bool {
          // Only in the first part, and the other reads nothing (card 8994 is damaged): a part that
          // throws or fails first stops the other, so a second one would make the outcome a race.
          if (id < 4500) throw std::runtime_error("asked about " + std::to_string(id));
          return false;
        });
    ADD_FAILURE() << "nothing thrown";
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(e.what(), std::string("asked about 3"));
  }
}

// A visitor that reads a few prepared names has only those decoded, yet each
// card is checked whole: a damaged card fails the scan however much of it
// is read, on the store's own connection as on a part's.
TEST_F(PartScanTest, AStoreFailureInAPartIsTheCallsStatus) {
  const std::vector<std::string> few = {"Name", "phone 1.LABEL"}, repeated = {"Name", "Name"};
  auto reading = [](const std::vector<std::string>* names) {
    return [names](const ICardValues& v) {
      if (!names) return;
      PreparedNamesReader reader;
      reader.Use(v, *names, 1);
      std::string scratch;
      for (size_t k = 0; k < names->size(); ++k) reader.View(k, scratch);
    };
  };
  std::string got;
  for (const char* blob : {"x'630141'", "x'0105414243'"}) {
    RunSql(dir_ / "cards.db", std::string("UPDATE cards SET vals = ") + blob + " WHERE id = 8994");
    for (const auto* names : {static_cast<const std::vector<std::string>*>(nullptr), &few, &repeated}) {
      auto read = reading(names);
      EXPECT_EQ(store_->ScanCardsInParts(2, [&](int32_t, int32_t, const ICardValues& v) { return read(v), true; }),
                S::kStatusDatabase);
      got += store_->GetLastError() + "\n";
      EXPECT_EQ(store_->ScanCards([&](int32_t, const ICardValues& v) { return read(v), true; }), S::kStatusDatabase);
      got += store_->GetLastError() + "\n";
    }
  }
  const std::string unknown = "card 8994 holds unknown value code 99\n", damaged = "the stored values of card 8994 are damaged\n";
  std::string expected;
  for (const std::string& error : {unknown, damaged})
    for (int reader = 0; reader < 3; ++reader) expected += "ScanCardsInParts: " + error + "ScanCards: " + error;
  EXPECT_EQ(got, expected);
}

// Views of prepared names, a few (the search's first pass) or many (a card
// being built), read what the names read in a scan that prepared nothing,
// card after card, in every part; so does any name asked for beside them,
// before the views or after.
TEST_F(PartScanTest, PreparedViewsReadWhatNamesRead) {
  const std::vector<std::string> few = {"Email 2", "phone 1.LABEL", "Fax.Label", "Shoe Size", "Nickname"};
  const std::vector<std::string> many = [] {
    auto names = kStored;
    names.insert(names.end(), {"Fax.Label", "Shoe Size", "room.label"});
    return names;
  }();
  for (const auto* names : {&few, &many}) {
    auto line = [&](int32_t id, const ICardValues& v, bool prepare, bool dumpFirst) {
      std::string out = dumpFirst ? Dump(id, v) : "";
      PreparedNamesReader reader;
      if (prepare) reader.Use(v, *names, names->size());
      std::string scratch;
      for (size_t k = 0; k < names->size(); ++k)
        out += "|" + (prepare ? std::string(reader.View(k, scratch)) : v.Get((*names)[k]));
      return dumpFirst ? out : out + Dump(id, v);
    };
    for (bool dumpFirst : {false, true}) {
      std::vector<std::string> expected, scanned;
      ASSERT_EQ(store_->ScanCards([&](int32_t id, const ICardValues& v) {
        expected.push_back(line(id, v, false, dumpFirst));
        return true;
      }),
                0);
      Parts got(2);
      ASSERT_EQ(store_->ScanCardsInParts(2, [&](int32_t part, int32_t id, const ICardValues& v) {
        got.at(part).push_back(line(id, v, true, dumpFirst));
        return true;
      }),
                0)
          << store_->GetLastError();
      ASSERT_EQ(store_->ScanCards([&](int32_t id, const ICardValues& v) {
        scanned.push_back(line(id, v, true, dumpFirst));
        return true;
      }),
                0);
      EXPECT_EQ(Joined(got), expected) << names->size() << dumpFirst;
      EXPECT_EQ(scanned, expected) << names->size() << dumpFirst;
    }
  }
}

// A scan in parts inside a snapshot reads the snapshot's cards, in parts
// while nothing was committed since it began, else in one part.
TEST_F(PartScanTest, APartScanInASnapshotReadsItsStateWhateverOthersCommit) {
  auto other = S::Open((dir_ / "cards.db").string(), OpenMode::kOpenExisting);
  auto scan = [&] {
    std::vector<int32_t> ids;
    std::set<int32_t> parts;
    EXPECT_EQ(store_->ScanCardsInParts(3, [&](int32_t part, int32_t id, const ICardValues&) {
      static std::mutex m;
      std::lock_guard lock(m);
      ids.push_back(id);
      parts.insert(part);
      return true;
    }), 0) << store_->GetLastError();
    std::sort(ids.begin(), ids.end());
    return std::to_string(ids.size()) + " " + std::to_string(ids.front()) + " " + std::to_string(parts.size());
  };
  ASSERT_EQ(store_->BeginSnapshot(), 0);
  EXPECT_EQ(scan(), "3000 3 3");
  ASSERT_EQ(other->DeleteCard(3), 0);
  ASSERT_EQ(other->AddCard(9003, {{"Name", "Late"}}), 0);
  EXPECT_EQ(scan(), "3000 3 1");
  ASSERT_EQ(store_->EndSnapshot(), 0);
  EXPECT_EQ(scan(), "3000 6 3");
}

// A scan that meets every card leaves the store knowing their IDs, cards not
// wanted included, without another pass over them; a scan in parts reads one
// state, and what another connection changed meanwhile shows once it is over.
TEST_F(PartScanTest, IdsMetByAScanServeTheStoreUnlessTheCardsChanged) {
  auto survey = [&] {
    int32_t n = 0, first = 0, second = 0, last = 0;
    EXPECT_EQ(store_->GetNumberOfCards(n), 0);
    EXPECT_EQ(store_->GetCardID(0, first) + store_->GetCardID(1, second) + store_->GetCardID(n - 1, last), 0);
    std::string out = std::to_string(n) + " " + std::to_string(first) + " " + std::to_string(second) + " " +
                      std::to_string(last) + " ";
    for (int32_t id : {3, 6, 4500, 9000, 9003, 4}) {
      bool exists = false;
      EXPECT_EQ(store_->CardExists(id, exists), 0);
      out += exists ? "+" : "-";
    }
    return out;
  };
  auto all = [](int32_t, int32_t, const ICardValues&) { return true; };
  ASSERT_EQ(store_->ScanCardsInParts(3, all, {}, [](int32_t id) { return id % 2 == 0; }), 0);
  EXPECT_EQ(survey(), "3000 3 6 9000 ++++--");

  // The reopened store knows no IDs; another connection deletes its first
  // card and adds one while the scan goes on, which meets neither change,
  // and the store itself cannot write while it reads.
  store_ = S::Open((dir_ / "cards.db").string(), OpenMode::kOpenExisting, {5000, 0});
  auto other = S::Open((dir_ / "cards.db").string(), OpenMode::kOpenExisting);
  bool changed = false;
  std::vector<int32_t> met;
  ASSERT_EQ(store_->ScanCardsInParts(3, [&](int32_t part, int32_t id, const ICardValues&) {
    if (part == 0 && !changed) {
      changed = true;
      EXPECT_EQ(other->DeleteCard(3), 0) << other->GetLastError();
      EXPECT_EQ(other->AddCard(9003, {{"Name", "Late"}}), 0);
      EXPECT_EQ(store_->DeleteCard(4), CSqliteCardStore::kStatusTransaction);
    }
    if (id == 3 || id == 9003) met.push_back(id);
    return true;
  }),
            0)
      << store_->GetLastError();
  EXPECT_EQ(met, std::vector<int32_t>{3});
  EXPECT_EQ(survey(), "3000 6 9 9003 -++++-");
}

}  // namespace
}  // namespace ombrel
