#include "ombrel/cardstore/sqlite_card_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>

#include "ombrel/foundation/error.h"

namespace ombrel {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using S = CSqliteCardStore;

StoredImage FakePng(uint8_t tag) { return {"png", {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', tag, 1, 2, 3}}; }
StoredImage FakeJpeg(uint8_t tag) { return {"jpeg", {0xFF, 0xD8, 0xFF, 0xE0, tag}}; }

std::string ReadBytes(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void RawExec(const fs::path& path, const char* sql) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  char* err = nullptr;
  int rc = sqlite3_exec(db, sql, nullptr, nullptr, &err);
  std::string message = err ? err : "";
  sqlite3_free(err);
  sqlite3_close(db);
  ASSERT_EQ(rc, SQLITE_OK) << message;
}

class SqliteStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() / ("ombrel-store-" + std::to_string(::getpid()) + "-" +
                                        ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir_);
    fs::create_directories(dir_);
    path_ = (dir_ / "cards.db").string();
    store_ = Open();
  }
  void TearDown() override {
    store_.reset();
    fs::remove_all(dir_);
  }
  std::unique_ptr<S> Open(SqliteStoreOptions options = {}) {
    options.refreshIntervalMs = 0;
    return S::Open(path_, OpenMode::kOpenOrCreate, options);
  }
  std::string Get(S& s, int32_t id, const std::string& name) {
    std::string v = "garbage";
    EXPECT_EQ(s.GetValue(id, name, v), 0) << name << ": " << s.GetLastError();
    return v;
  }
  std::vector<int32_t> Order(S& s) {
    int32_t n = -1;
    EXPECT_EQ(s.GetNumberOfCards(n), 0);
    std::vector<int32_t> ids;
    for (int32_t i = 0; i < n; ++i) {
      int32_t id = 0;
      EXPECT_EQ(s.GetCardID(i, id), 0);
      ids.push_back(id);
    }
    return ids;
  }

  fs::path dir_;
  std::string path_;
  std::unique_ptr<S> store_;
};

TEST_F(SqliteStoreTest, EveryKindOfValueNameRoundTripsExactly) {
  ASSERT_EQ(store_->DefineCustomFields({{"Nickname"}}), 0);
  ASSERT_EQ(store_->AddCard(7, {{"Name", "John Smith"}}), 0);
  const std::vector<std::pair<std::string, std::string>> values = {
      {"Title", "  Chief Engineer  "},
      {"Notes", "first line\r\nsecond line\r\n"},
      {"Name", "Zoë Müller-Łukasz"},
      {"Nickname", "Zo"},
      {"Phone 1.Label", "Mobile"},
      {"Name.Rectangle", "10 20 300 40"},
      {"Email.Confidence Levels", "95 90"},
      {"Company.Suspect Info", "1 0"},
      {"Nickname.Rectangle", "1 2 3 4"},
      {"Solvane Status", std::string("with\0nul", 8)},
  };
  for (const auto& [name, value] : values) ASSERT_EQ(store_->PutValue(7, name, value), 0) << store_->GetLastError();
  for (const auto& [name, value] : values) EXPECT_EQ(Get(*store_, 7, name), value) << name;

  // Suffixes are matched without regard to case and address the same data.
  EXPECT_EQ(Get(*store_, 7, "Phone 1.LABEL"), "Mobile");
  // Never set reads empty with success; setting empty removes the value.
  EXPECT_EQ(Get(*store_, 7, "Fax"), "");
  EXPECT_EQ(Get(*store_, 7, "Phone 6.Suspect Info"), "");
  ASSERT_EQ(store_->PutValue(7, "Title", ""), 0);
  EXPECT_EQ(Get(*store_, 7, "Title"), "");

  // The values survive closing and reopening the file.
  store_ = Open();
  for (const auto& [name, value] : values) {
    if (name != "Title" && name != "Phone 1.Label") {
      EXPECT_EQ(Get(*store_, 7, name), value) << name;
    }
  }
}

TEST_F(SqliteStoreTest, UnknownNamesAndCardsFailWithClearErrors) {
  ASSERT_EQ(store_->AddCard(1, {{"Name", "A"}}), 0);
  std::string v = "x";
  for (const char* bad : {"Nickname", "Phone 7", "First Name.Label", "Name.", ".Label", "Name.Colour", "name"}) {
    EXPECT_EQ(store_->GetValue(1, bad, v), S::kStatusUnknownValueName) << bad;
    EXPECT_EQ(v, "");
    EXPECT_THAT(store_->GetLastError(), HasSubstr(std::string("\"") + bad + "\"")) << bad;
    EXPECT_EQ(store_->PutValue(1, bad, "x"), S::kStatusUnknownValueName) << bad;
  }

  EXPECT_EQ(store_->GetLastError(), "PutValue(card 1, \"name\"): unknown value name \"name\"");
  EXPECT_EQ(store_->GetValue(99, "Name", v), S::kStatusUnknownCard);
  EXPECT_EQ(store_->GetLastError(), "GetValue(card 99, \"Name\"): no such card");
  EXPECT_EQ(store_->PutValue(99, "Name", "x"), S::kStatusUnknownCard);
  EXPECT_EQ(store_->DeleteCard(99), S::kStatusUnknownCard);

  // A custom field becomes a value name once declared.
  ASSERT_EQ(store_->DefineCustomFields({{"Nickname"}}), 0);
  EXPECT_EQ(store_->PutValue(1, "Nickname", "Al"), 0);
  EXPECT_EQ(store_->PutValue(1, "Nickname.Label", "nick"), 0);
}

TEST_F(SqliteStoreTest, CardsEnumerateInInsertionOrder) {
  for (int32_t id : {30, 10, 20}) ASSERT_EQ(store_->AddCard(id, {{"Name", "N" + std::to_string(id)}}), 0);
  EXPECT_EQ(Order(*store_), (std::vector<int32_t>{30, 10, 20}));
  int32_t id = 0;
  EXPECT_EQ(store_->GetCardID(3, id), S::kStatusBadArgument);
  EXPECT_EQ(store_->GetCardID(-1, id), S::kStatusBadArgument);
  EXPECT_THAT(store_->GetLastError(), HasSubstr("-1"));

  ASSERT_EQ(store_->DeleteCard(10), 0);
  EXPECT_EQ(Order(*store_), (std::vector<int32_t>{30, 20}));
  ASSERT_EQ(store_->AddCard(10, {{"Name", "again"}}), 0);
  EXPECT_EQ(Order(*store_), (std::vector<int32_t>{30, 20, 10}));
  EXPECT_EQ(Get(*store_, 10, "Name"), "again");

  int32_t next = 0;
  ASSERT_EQ(store_->AddCardWithNextId({{"Name", "next"}}, nullptr, nullptr, next), 0);
  EXPECT_EQ(next, 31);
  EXPECT_EQ(Order(*store_), (std::vector<int32_t>{30, 20, 10, 31}));
}

TEST_F(SqliteStoreTest, AddCardRefusesBadInputAndAddsNothing) {
  ASSERT_EQ(store_->AddCard(5, {{"Name", "A"}}), 0);
  EXPECT_EQ(store_->AddCard(5, {{"Name", "B"}}), S::kStatusBadArgument);
  EXPECT_THAT(store_->GetLastError(), HasSubstr("already exists"));
  EXPECT_EQ(store_->AddCard(0, {}), S::kStatusBadArgument);
  EXPECT_EQ(store_->AddCard(-4, {}), S::kStatusBadArgument);
  EXPECT_EQ(store_->AddCard(6, {{"Name.Label", "x"}, {"Name.LABEL", "y"}}), S::kStatusBadArgument);
  EXPECT_THAT(store_->GetLastError(), HasSubstr("twice"));
  EXPECT_EQ(store_->AddCard(6, {{"Name", "x"}, {"Shoe Size", "44"}}), S::kStatusUnknownValueName);
  StoredImage notPng = {"png", {1, 2, 3}};
  EXPECT_EQ(store_->AddCard(6, {{"Name", "x"}}, &notPng), S::kStatusBadArgument);
  EXPECT_EQ(Order(*store_), std::vector<int32_t>{5});
  EXPECT_EQ(Get(*store_, 5, "Name"), "A");
}

TEST_F(SqliteStoreTest, AbortRollsBackEveryKindOfWrite) {
  auto png = FakePng(1);
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}, {"Title", "Boss"}}, &png), 0);
  ASSERT_EQ(store_->AddCard(2, {{"Name", "Two"}}), 0);
  EXPECT_EQ(Get(*store_, 1, "Title"), "Boss");  // cached before the bracket

  ASSERT_EQ(store_->BeginUpdate(), 0);
  EXPECT_TRUE(store_->InUpdate());
  EXPECT_EQ(store_->BeginUpdate(), S::kStatusTransaction);
  ASSERT_EQ(store_->PutValue(1, "Title", "Janitor"), 0);
  ASSERT_EQ(store_->PutValue(1, "Fax", "123"), 0);  // a value name new to the file
  ASSERT_EQ(store_->DeleteCard(2), 0);
  ASSERT_EQ(store_->AddCard(3, {{"Name", "Three"}}), 0);
  ASSERT_EQ(store_->SetCardDIB(1, 0), 0);
  ASSERT_EQ(store_->DefineCustomFields({{"Nickname"}}), 0);
  ASSERT_EQ(store_->DefineCategories({"Friends"}), 0);
  EXPECT_EQ(Get(*store_, 1, "Title"), "Janitor");
  EXPECT_EQ(Order(*store_), (std::vector<int32_t>{1, 3}));
  ASSERT_EQ(store_->AbortUpdate(), 0);

  EXPECT_EQ(Get(*store_, 1, "Title"), "Boss");
  EXPECT_EQ(Get(*store_, 1, "Fax"), "");
  EXPECT_EQ(Order(*store_), (std::vector<int32_t>{1, 2}));
  bool has = false;
  ASSERT_EQ(store_->HasFrontImage(1, has), 0);
  EXPECT_TRUE(has);
  std::string text;
  ASSERT_EQ(store_->GetCustomFields(text), 0);
  EXPECT_EQ(text, "");
  ASSERT_EQ(store_->GetCategories(text), 0);
  EXPECT_EQ(text, "");

  EXPECT_EQ(store_->AbortUpdate(), S::kStatusTransaction);
  EXPECT_EQ(store_->CommitUpdate(), S::kStatusTransaction);
  EXPECT_THAT(store_->GetLastError(), HasSubstr("no update in progress"));

}

TEST_F(SqliteStoreTest, ASecondWriterGetsABusyStatusQuicklyAndReadersGoOn) {
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}}), 0);
  SqliteStoreOptions quick;
  quick.busyTimeoutMs = 100;
  auto other = Open(quick);
  EXPECT_EQ(Get(*other, 1, "Name"), "One");

  ASSERT_EQ(store_->BeginUpdate(), 0);
  ASSERT_EQ(store_->PutValue(1, "Name", "Uno"), 0);
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(other->PutValue(1, "Name", "Eins"), S::kStatusBusy);
  EXPECT_THAT(other->GetLastError(), HasSubstr("locked"));
  EXPECT_EQ(other->BeginUpdate(), S::kStatusBusy);
  EXPECT_FALSE(other->InUpdate());
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  // WAL: the reader sees the last committed state while the writer works.
  EXPECT_EQ(Get(*other, 1, "Name"), "One");

  ASSERT_EQ(store_->CommitUpdate(), 0);
  EXPECT_EQ(Get(*other, 1, "Name"), "Uno");
  ASSERT_EQ(other->PutValue(1, "Name", "Eins"), 0);
  EXPECT_EQ(Get(*store_, 1, "Name"), "Eins");
}

TEST_F(SqliteStoreTest, CachesFollowOtherConnectionsCommits) {
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}, {"Title", "Old"}}), 0);
  auto other = Open();
  EXPECT_EQ(Get(*store_, 1, "Title"), "Old");
  EXPECT_EQ(Order(*store_), std::vector<int32_t>{1});

  ASSERT_EQ(other->PutValue(1, "Title", "New"), 0);
  ASSERT_EQ(other->AddCard(2, {{"Name", "Two"}}), 0);
  ASSERT_EQ(other->DefineCustomFields({{"Nickname"}}), 0);
  ASSERT_EQ(other->PutValue(2, "Nickname", "Twoey"), 0);

  EXPECT_EQ(Get(*store_, 1, "Title"), "New");
  EXPECT_EQ(Order(*store_), (std::vector<int32_t>{1, 2}));
  EXPECT_EQ(Get(*store_, 2, "Nickname"), "Twoey");

  // A bracket that only read leaves the caches to notice later commits too.
  ASSERT_EQ(store_->BeginUpdate(), 0);
  EXPECT_EQ(Get(*store_, 2, "Nickname"), "Twoey");
  ASSERT_EQ(store_->AbortUpdate(), 0);
  ASSERT_EQ(other->PutValue(2, "Nickname", "Deuce"), 0);
  ASSERT_EQ(other->DeleteCard(1), 0);
  EXPECT_EQ(Get(*store_, 2, "Nickname"), "Deuce");
  EXPECT_EQ(Order(*store_), std::vector<int32_t>{2});
}

TEST_F(SqliteStoreTest, AWriteNeverUndoesAnotherConnectionsCommit) {
  auto slow = S::Open(path_, OpenMode::kOpenExisting, {1000, 3600 * 1000});  // reads may lag an hour
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}}), 0);
  EXPECT_EQ(Get(*slow, 1, "Name"), "One");  // card 1 now cached in slow
  ASSERT_EQ(store_->PutValue(1, "Fax", "555"), 0);
  // Taking the write lock brings slow up to date before it rewrites the card.
  ASSERT_EQ(slow->PutValue(1, "Notes", "met at the fair"), 0);
  EXPECT_EQ(Get(*store_, 1, "Fax"), "555");
  EXPECT_EQ(Get(*store_, 1, "Notes"), "met at the fair");
  ASSERT_EQ(store_->PutValue(1, "Title", "Boss"), 0);
  ASSERT_EQ(slow->BeginUpdate(), 0);
  EXPECT_EQ(Get(*slow, 1, "Title"), "Boss");
  ASSERT_EQ(slow->DeleteCard(1), 0);
  ASSERT_EQ(slow->CommitUpdate(), 0);
  bool exists = true;
  ASSERT_EQ(store_->CardExists(1, exists), 0);
  EXPECT_FALSE(exists);
}

TEST_F(SqliteStoreTest, ValueCodesOfAnAbortedUpdateDoNotLeak) {
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}}), 0);
  auto other = Open();
  // This connection registers "Fax" under a new code, then gives it up...
  ASSERT_EQ(store_->BeginUpdate(), 0);
  ASSERT_EQ(store_->PutValue(1, "Fax", "555"), 0);
  ASSERT_EQ(store_->AbortUpdate(), 0);
  // ...and the other takes the same code for another name.
  ASSERT_EQ(other->PutValue(1, "Title", "Boss"), 0);
  EXPECT_EQ(Get(*store_, 1, "Title"), "Boss");
  EXPECT_EQ(Get(*store_, 1, "Fax"), "");
  ASSERT_EQ(store_->PutValue(1, "Fax", "777"), 0);
  EXPECT_EQ(Get(*other, 1, "Fax"), "777");
  EXPECT_EQ(Get(*other, 1, "Title"), "Boss");
}

TEST_F(SqliteStoreTest, ForeignNewerAndGarbageFilesAreRefusedUntouched) {
  auto refused = [&](const fs::path& path, const std::string& expected) {
    std::string before = ReadBytes(path);
    try {
      S::Open(path.string(), OpenMode::kOpenOrCreate);
      ADD_FAILURE() << path << " was accepted";
    } catch (const Error& e) {
      EXPECT_THAT(e.Description(), HasSubstr(expected)) << path;
    }
    EXPECT_EQ(ReadBytes(path), before) << path;
  };

  fs::path foreign = dir_ / "foreign.db";
  RawExec(foreign, "CREATE TABLE people (name TEXT); INSERT INTO people VALUES ('x');");
  refused(foreign, "not an Ombrel card database");

  fs::path garbage = dir_ / "garbage.db";
  std::ofstream(garbage) << std::string(5000, 'z');
  refused(garbage, "not an Ombrel card database");

  store_.reset();
  RawExec(path_, "PRAGMA user_version = 2;");
  refused(path_, "newer");

  EXPECT_THROW(S::Open((dir_ / "missing.db").string(), OpenMode::kOpenExisting), Error);
  EXPECT_FALSE(fs::exists(dir_ / "missing.db"));

  // An empty file is a new database.
  fs::path empty = dir_ / "empty.db";
  std::ofstream(empty).close();
  auto fresh = S::Open(empty.string(), OpenMode::kOpenExisting);
  ASSERT_EQ(fresh->AddCard(1, {{"Name", "x"}}), 0);
  fresh.reset();
  EXPECT_NO_THROW(S::Open(empty.string(), OpenMode::kOpenExisting));
}

TEST_F(SqliteStoreTest, CustomFieldsCategoriesAndLabelsUseTheContractFormats) {
  ASSERT_EQ(store_->DefineCustomFields({{"Nickname"}, {"Internal", "TEXT", "HIDDEN", "READONLY"}}), 0);
  ASSERT_EQ(store_->DefineCustomFields({{"Nickname", "TEXT", "VISIBLE", "READONLY"}, {"Birthday"}}), 0);
  std::string text;
  ASSERT_EQ(store_->GetCustomFields(text), 0);
  EXPECT_EQ(text,
            "Nickname\tTEXT\tVISIBLE\tREADONLY\r\nInternal\tTEXT\tHIDDEN\tREADONLY\r\n"
            "Birthday\tTEXT\tVISIBLE\tREADWRITE");
  EXPECT_EQ(store_->DefineCustomFields({{"Bad\tName"}}), S::kStatusBadArgument);
  EXPECT_EQ(store_->DefineCustomFields({{"Title"}}), S::kStatusBadArgument);

  ASSERT_EQ(store_->DefineCategories({"Business", "Friends"}), 0);
  ASSERT_EQ(store_->DefineCategories({"Friends", "Family"}), 0);
  ASSERT_EQ(store_->GetCategories(text), 0);
  EXPECT_EQ(text, "Business, Friends, Family");
  EXPECT_EQ(store_->DefineCategories({"A, B"}), S::kStatusBadArgument);

  ASSERT_EQ(
      store_->AddCard(
          1,
          {{"Phone 1.Label", "Mobile"}, {"Phone 6.Label", "Home"}, {"Phone.Label", "Main"}, {"Email 2.Label", "Work"}}),
      0);
  ASSERT_EQ(store_->AddCard(2, {{"Phone 2.Label", "Mobile"}, {"Phone 3.Label", "Car"}}), 0);
  ASSERT_EQ(store_->GetLabels("Phone", text), 0);
  EXPECT_EQ(text, "Car\r\nHome\r\nMobile");
  ASSERT_EQ(store_->GetLabels("Email", text), 0);
  EXPECT_EQ(text, "Work");
  EXPECT_EQ(store_->GetLabels("Fax", text), S::kStatusBadArgument);
}

TEST_F(SqliteStoreTest, ImagesTravelThroughRegistryHandles) {
  auto& registry = ImageRegistry::Instance();
  auto png = FakePng(9);
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}}, &png), 0);
  ASSERT_EQ(store_->AddCard(2, {{"Name", "Two"}}), 0);

  int32_t dib = -1;
  ASSERT_EQ(store_->GetCardDIB(1, dib), 0);
  ASSERT_GT(dib, 0);
  ASSERT_TRUE(registry.Get(dib));
  EXPECT_EQ(registry.Get(dib)->bytes, png.bytes);
  EXPECT_EQ(registry.Get(dib)->format, "png");
  ASSERT_EQ(store_->GetCardDIB(2, dib), 0);
  EXPECT_EQ(dib, 0);

  // Card 1's front goes to card 2's back; card 1 gets a JPEG front.
  ASSERT_EQ(store_->SetBackDIB(2, registry.Register(png)), 0);
  int32_t jpeg = registry.Register(FakeJpeg(4));
  ASSERT_EQ(store_->SetCardDIB(1, jpeg), 0);
  ASSERT_EQ(store_->GetBackDIB(2, dib), 0);
  EXPECT_EQ(registry.Get(dib)->bytes, png.bytes);
  ASSERT_EQ(store_->GetCardDIB(1, dib), 0);
  EXPECT_EQ(registry.Get(dib)->format, "jpeg");
  EXPECT_EQ(registry.Get(dib)->bytes, FakeJpeg(4).bytes);

  // Handle 0 removes; an unknown handle or card fails and changes nothing.
  bool has = true;
  ASSERT_EQ(store_->SetCardDIB(1, 0), 0);
  ASSERT_EQ(store_->HasFrontImage(1, has), 0);
  EXPECT_FALSE(has);
  EXPECT_EQ(store_->SetBackDIB(2, 987654321), S::kStatusBadArgument);
  EXPECT_THAT(store_->GetLastError(), HasSubstr("987654321"));
  ASSERT_EQ(store_->HasBackImage(2, has), 0);
  EXPECT_TRUE(has);
  EXPECT_EQ(store_->SetCardDIB(55, jpeg), S::kStatusUnknownCard);
}

TEST_F(SqliteStoreTest, ScanCardsSeesExactlyWhatGetValueReads) {
  ASSERT_EQ(store_->DefineCustomFields({{"Nickname"}}), 0);
  std::mt19937 rng(3);
  const std::vector<std::string> names = {"Name",     "Title",     "Phone 1", "Phone 1.Label",    "Email.Rectangle",
                                          "Nickname", "Certainty", "Notes",   "Name.Suspect Info"};
  for (int i = 1; i <= 60; ++i) {
    CardValueList values;
    for (const auto& n : names) {
      if (rng() % 3) values.emplace_back(n, n + " of " + std::to_string(i) + (rng() % 2 ? " " : "\r\n"));
    }
    ASSERT_EQ(store_->AddCard(1000 - i * 7, values), 0);
  }
  ASSERT_EQ(store_->PutValue(1000 - 7, "Title", "changed"), 0);
  ASSERT_EQ(store_->DeleteCard(1000 - 14), 0);

  std::vector<std::string> asked = names;
  for (const char* extra : {"phone 1.label", "Email.RECTANGLE", "Fax", "Shoe Size", "Nickname.Label"}) {
    asked.emplace_back(extra);
  }
  std::vector<int32_t> visited;
  ASSERT_EQ(store_->ScanCards([&](int32_t id, const ICardValues& values) {
    visited.push_back(id);
    for (const auto& n : asked) {
      std::string expected;
      store_->GetValue(id, n, expected);  // unknown names read empty, as GetValue leaves them
      EXPECT_EQ(values.Get(n), expected) << id << " " << n;
    }
    return true;
  }),
            0);
  EXPECT_EQ(visited, Order(*store_));
  EXPECT_EQ(visited.size(), 59u);
}

TEST_F(SqliteStoreTest, DisconnectClosesAndConnectReopens) {
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}}), 0);
  ASSERT_EQ(store_->BeginUpdate(), 0);
  ASSERT_EQ(store_->PutValue(1, "Name", "Lost"), 0);
  ASSERT_EQ(store_->Disconnect(), 0);  // an open bracket is abandoned
  std::string v;
  EXPECT_EQ(store_->GetValue(1, "Name", v), S::kStatusNotConnected);
  EXPECT_THAT(store_->GetLastError(), HasSubstr("Connect"));
  ASSERT_EQ(store_->Connect(), 0);
  ASSERT_EQ(store_->Connect(), 0);
  EXPECT_EQ(Get(*store_, 1, "Name"), "One");
}

// Counts the UPDATEs of card rows, and refuses to write a card holding
// "FORBIDDEN", so that tests see when rows are written and what a failing
// write does.
void InstallWriteProbe(const fs::path& path) {
  RawExec(path,
          "CREATE TABLE row_writes (n INTEGER NOT NULL); INSERT INTO row_writes VALUES (0);"
          "CREATE TRIGGER count_row_writes AFTER UPDATE ON cards BEGIN UPDATE row_writes SET n = n + 1; END;"
          "CREATE TRIGGER refuse_row BEFORE UPDATE ON cards WHEN instr(NEW.vals, 'FORBIDDEN') > 0 "
          "BEGIN SELECT RAISE(ABORT, 'row refused'); END;");
}

int64_t RowWrites(const fs::path& path) {
  sqlite3* db = nullptr;
  EXPECT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  sqlite3_stmt* st = nullptr;
  EXPECT_EQ(sqlite3_prepare_v2(db, "SELECT n FROM row_writes", -1, &st, nullptr), SQLITE_OK);
  int64_t n = sqlite3_step(st) == SQLITE_ROW ? sqlite3_column_int64(st, 0) : -1;
  sqlite3_finalize(st);
  sqlite3_close(db);
  return n;
}

// What the existence and image checks answer, "id:FB" a card: F and B for a
// front and a back image, '-' for none, "gone" when there is no such card.
std::string Survey(S& s, std::initializer_list<int32_t> ids) {
  std::string out;
  for (int32_t id : ids) {
    bool exists = false, front = false, back = false;
    EXPECT_EQ(s.CardExists(id, exists), 0) << s.GetLastError();
    out += std::to_string(id) + (exists ? ":" : ":gone ");
    if (!exists) continue;
    EXPECT_EQ(s.HasFrontImage(id, front), 0) << s.GetLastError();
    EXPECT_EQ(s.HasBackImage(id, back), 0) << s.GetLastError();
    out += std::string(front ? "F" : "-") + (back ? "B " : "- ");
  }
  return out;
}

TEST_F(SqliteStoreTest, ExistenceAndImageAnswersFollowThisConnectionsWrites) {
  auto png = FakePng(1);
  auto jpeg = FakeJpeg(2);
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}}, &png), 0);
  ASSERT_EQ(store_->AddCard(2, {{"Name", "Two"}}, nullptr, &jpeg), 0);
  ASSERT_EQ(store_->AddCard(3, {{"Name", "Three"}}), 0);
  // The first answers load the sets; every write after must keep them exact.
  EXPECT_EQ(Survey(*store_, {1, 2, 3, 4}), "1:F- 2:-B 3:-- 4:gone ");
  int32_t handle = ImageRegistry::Instance().Register(FakePng(3));
  ASSERT_EQ(store_->SetCardDIB(1, 0), 0);
  ASSERT_EQ(store_->SetCardDIB(3, handle), 0);
  ASSERT_EQ(store_->SetBackDIB(3, handle), 0);
  ASSERT_EQ(store_->AddCard(4, {{"Name", "Four"}}, &png, &jpeg), 0);
  EXPECT_EQ(Survey(*store_, {1, 2, 3, 4}), "1:-- 2:-B 3:FB 4:FB ");

  ASSERT_EQ(store_->DeleteCard(3), 0);
  EXPECT_EQ(Survey(*store_, {3}), "3:gone ");
  // The ID comes back as a new card without images, at the end of the order.
  ASSERT_EQ(store_->AddCard(3, {{"Name", "Three again"}}), 0);
  EXPECT_EQ(Survey(*store_, {1, 2, 3, 4}), "1:-- 2:-B 3:-- 4:FB ");
  EXPECT_EQ(Order(*store_), (std::vector<int32_t>{1, 2, 4, 3}));

  // An aborted bracket leaves no trace in the answers.
  ASSERT_EQ(store_->BeginUpdate(), 0);
  ASSERT_EQ(store_->DeleteCard(2), 0);
  ASSERT_EQ(store_->SetCardDIB(1, handle), 0);
  ASSERT_EQ(store_->AbortUpdate(), 0);
  EXPECT_EQ(Survey(*store_, {1, 2, 3, 4, 9}), "1:-- 2:-B 3:-- 4:FB 9:gone ");
  EXPECT_EQ(Order(*store_), (std::vector<int32_t>{1, 2, 4, 3}));
  EXPECT_EQ(Survey(*Open(), {1, 2, 3, 4, 9}), Survey(*store_, {1, 2, 3, 4, 9}));  // as the file has it
}

TEST_F(SqliteStoreTest, ExistenceAndImageAnswersFollowOtherConnectionsCommits) {
  auto png = FakePng(1);
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}}), 0);
  ASSERT_EQ(store_->AddCard(2, {{"Name", "Two"}}, &png), 0);
  auto slow = S::Open(path_, OpenMode::kOpenExisting, {1000, 3600 * 1000});  // reads may lag an hour
  EXPECT_EQ(Survey(*store_, {1, 2, 3}), "1:-- 2:F- 3:gone ");
  EXPECT_EQ(Survey(*slow, {1, 2, 3}), "1:-- 2:F- 3:gone ");

  auto other = Open();
  ASSERT_EQ(other->SetCardDIB(1, ImageRegistry::Instance().Register(FakePng(5))), 0);
  ASSERT_EQ(other->DeleteCard(2), 0);
  ASSERT_EQ(other->AddCard(3, {{"Name", "Three"}}, nullptr, &png), 0);
  EXPECT_EQ(Survey(*store_, {1, 2, 3}), "1:F- 2:gone 3:-B ");
  EXPECT_EQ(Order(*store_), (std::vector<int32_t>{1, 3}));

  // Taking the write lock brings even a lagging reader up to date.
  ASSERT_EQ(slow->BeginUpdate(), 0);
  EXPECT_EQ(Survey(*slow, {1, 2, 3}), "1:F- 2:gone 3:-B ");
  EXPECT_EQ(slow->DeleteCard(2), S::kStatusUnknownCard);
  ASSERT_EQ(slow->DeleteCard(3), 0);
  ASSERT_EQ(slow->CommitUpdate(), 0);
  EXPECT_EQ(Survey(*store_, {1, 3}), "1:F- 3:gone ");
  EXPECT_EQ(Order(*store_), std::vector<int32_t>{1});
}

TEST_F(SqliteStoreTest, CardExistsIsExactForSparseIds) {
  for (int32_t id : {2147483647, 1, 64, 63, 65, 5000000, 2147483000, 128}) {
    ASSERT_EQ(store_->AddCard(id, {{"Name", std::to_string(id)}}), 0);
  }
  auto reader = Open();  // loads the set from the file rather than building it
  for (S* s : {store_.get(), reader.get()}) {
    EXPECT_EQ(Survey(*s, {2147483647, 1, 64, 63, 65, 5000000, 2147483000, 128}),
              "2147483647:-- 1:-- 64:-- 63:-- 65:-- 5000000:-- 2147483000:-- 128:-- ");
    EXPECT_EQ(Survey(*s, {0, -1, 2, 62, 66, 127, 4999999, 2147483646}),
              "0:gone -1:gone 2:gone 62:gone 66:gone 127:gone 4999999:gone 2147483646:gone ");
  }
}

TEST_F(SqliteStoreTest, PutValuesInABracketWriteTheRowOnceAndReadBackAtOnce) {
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}, {"Title", "Boss"}, {"Fax", "1"}}), 0);
  ASSERT_EQ(store_->AddCard(2, {{"Name", "Two"}}), 0);
  store_.reset();
  InstallWriteProbe(path_);
  store_ = Open();
  auto other = Open();

  ASSERT_EQ(store_->BeginUpdate(), 0);
  for (int i = 0; i < 100; ++i) ASSERT_EQ(store_->PutValue(1, "Notes", "note " + std::to_string(i)), 0);
  ASSERT_EQ(store_->PutValue(1, "Title", ""), 0);  // removed
  ASSERT_EQ(store_->PutValue(1, "Phone 1.label", "Mobile"), 0);
  ASSERT_EQ(store_->PutValue(1, "Phone 1.Label", "Home"), 0);
  ASSERT_EQ(store_->PutValue(1, "Name", "Uno"), 0);
  ASSERT_EQ(store_->PutValue(1, "Fax", "1"), 0);  // unchanged
  EXPECT_EQ(Get(*store_, 1, "Notes"), "note 99");
  EXPECT_EQ(Get(*store_, 1, "Title"), "");
  EXPECT_EQ(Get(*store_, 1, "Phone 1.Label"), "Home");
  EXPECT_EQ(RowWrites(path_), 0);
  EXPECT_EQ(Get(*other, 1, "Name"), "One");  // nothing committed yet
  ASSERT_EQ(store_->CommitUpdate(), 0);
  EXPECT_EQ(RowWrites(path_), 1);

  // Each card of a bracket is written once; reads that must see the rows
  // get them written first, and see the changes.
  ASSERT_EQ(store_->BeginUpdate(), 0);
  ASSERT_EQ(store_->PutValue(1, "Title", "Chief"), 0);
  ASSERT_EQ(store_->PutValue(1, "Phone 1.Label", "Car"), 0);
  ASSERT_EQ(store_->PutValue(2, "Title", "Second"), 0);  // card 1 is written here
  EXPECT_EQ(RowWrites(path_), 1);                        // the probe reads committed data only
  EXPECT_EQ(Get(*store_, 1, "Title"), "Chief");          // read back from the row
  ASSERT_EQ(store_->CommitUpdate(), 0);
  EXPECT_EQ(RowWrites(path_), 3);
  EXPECT_EQ(Get(*other, 1, "Title"), "Chief");
  EXPECT_EQ(Get(*other, 2, "Title"), "Second");

  // Outside a bracket every PutValue is its own committed write.
  ASSERT_EQ(store_->PutValue(2, "Fax", "22"), 0);
  EXPECT_EQ(RowWrites(path_), 4);
  EXPECT_EQ(Get(*other, 2, "Fax"), "22");
}

TEST_F(SqliteStoreTest, PendingChangesAreDiscardedByAbortAndByDeletingTheCard) {
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}, {"Title", "Boss"}}), 0);
  ASSERT_EQ(store_->AddCard(2, {{"Name", "Two"}}), 0);
  EXPECT_EQ(Get(*store_, 1, "Title"), "Boss");

  ASSERT_EQ(store_->BeginUpdate(), 0);
  ASSERT_EQ(store_->PutValue(1, "Title", "Janitor"), 0);
  ASSERT_EQ(store_->PutValue(1, "Fax", "555"), 0);
  ASSERT_EQ(store_->AbortUpdate(), 0);
  // Nothing left over for a later bracket to write.
  ASSERT_EQ(store_->BeginUpdate(), 0);
  ASSERT_EQ(store_->PutValue(2, "Title", "Second"), 0);
  ASSERT_EQ(store_->CommitUpdate(), 0);
  auto other = Open();
  EXPECT_EQ(Get(*other, 1, "Title"), "Boss");
  EXPECT_EQ(Get(*other, 1, "Fax"), "");

  // Deleting the card drops its pending changes; a new card under the same
  // ID must not receive them.
  ASSERT_EQ(store_->BeginUpdate(), 0);
  ASSERT_EQ(store_->PutValue(1, "Title", "Ghost"), 0);
  ASSERT_EQ(store_->DeleteCard(1), 0);
  ASSERT_EQ(store_->AddCard(1, {{"Name", "New One"}}), 0);
  ASSERT_EQ(store_->CommitUpdate(), 0);
  EXPECT_EQ(Get(*other, 1, "Name"), "New One");
  EXPECT_EQ(Get(*other, 1, "Title"), "");
  EXPECT_EQ(Order(*other), (std::vector<int32_t>{2, 1}));
}

TEST_F(SqliteStoreTest, AFailedCallInABracketLosesNoPendingChange) {
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}}), 0);
  ASSERT_EQ(store_->BeginUpdate(), 0);
  ASSERT_EQ(store_->PutValue(1, "Fax", "555"), 0);
  EXPECT_EQ(store_->DeleteCard(99), S::kStatusUnknownCard);
  EXPECT_EQ(store_->SetCardDIB(1, 987654321), S::kStatusBadArgument);
  EXPECT_EQ(store_->PutValue(1, "Shoe Size", "44"), S::kStatusUnknownValueName);
  EXPECT_EQ(store_->PutValue(99, "Fax", "1"), S::kStatusUnknownCard);
  EXPECT_EQ(Get(*store_, 1, "Fax"), "555");
  ASSERT_EQ(store_->CommitUpdate(), 0);
  auto other = Open();
  EXPECT_EQ(Get(*other, 1, "Fax"), "555");
}

TEST_F(SqliteStoreTest, ARowThatCannotBeWrittenFailsTheCallThatWritesItAndBlocksTheCommit) {
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}}), 0);
  ASSERT_EQ(store_->AddCard(2, {{"Name", "Two"}}), 0);
  store_.reset();
  InstallWriteProbe(path_);
  store_ = Open();
  auto other = Open();

  // Outside a bracket the failure is PutValue's own, and nothing changes.
  EXPECT_EQ(store_->PutValue(1, "Notes", "FORBIDDEN"), S::kStatusDatabase);
  EXPECT_THAT(store_->GetLastError(), HasSubstr("PutValue(card 1, \"Notes\")"));
  EXPECT_THAT(store_->GetLastError(), HasSubstr("row refused"));

  ASSERT_EQ(store_->BeginUpdate(), 0);
  ASSERT_EQ(store_->PutValue(1, "Fax", "555"), 0);
  ASSERT_EQ(store_->PutValue(1, "Notes", "FORBIDDEN"), 0);  // only checked when written
  // Turning to card 2 writes card 1, which fails that call and leaves card 2 alone.
  EXPECT_EQ(store_->PutValue(2, "Title", "Second"), S::kStatusDatabase);
  EXPECT_THAT(store_->GetLastError(),
              HasSubstr("PutValue(card 2, \"Title\"): the changes to card 1 could not be written"));
  EXPECT_EQ(Get(*store_, 1, "Fax"), "555");  // still pending
  EXPECT_EQ(store_->CommitUpdate(), S::kStatusDatabase);
  EXPECT_THAT(store_->GetLastError(), HasSubstr("CommitUpdate: the changes to card 1 could not be written"));
  EXPECT_TRUE(store_->InUpdate());
  EXPECT_EQ(Get(*other, 1, "Fax"), "");  // nothing committed

  // Fixed up, the same bracket commits every change made before.
  ASSERT_EQ(store_->PutValue(1, "Notes", "allowed"), 0);
  ASSERT_EQ(store_->PutValue(2, "Title", "Second"), 0);
  ASSERT_EQ(store_->CommitUpdate(), 0);
  EXPECT_EQ(Get(*other, 1, "Fax"), "555");
  EXPECT_EQ(Get(*other, 1, "Notes"), "allowed");
  EXPECT_EQ(Get(*other, 2, "Title"), "Second");
}

TEST_F(SqliteStoreTest, DamagedValueBlobIsReportedNotMisread) {
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}}), 0);
  ASSERT_EQ(store_->AddCard(2, {{"Name", "Two"}}), 0);
  RawExec(path_, "UPDATE cards SET vals = x'0105414243' WHERE id = 1;");  // length runs past the end
  RawExec(path_, "UPDATE cards SET vals = x'630141' WHERE id = 2;");      // code no name has
  std::string v;
  EXPECT_EQ(store_->GetValue(1, "Name", v), S::kStatusDatabase);
  EXPECT_THAT(store_->GetLastError(), HasSubstr("damaged"));
  EXPECT_EQ(store_->GetValue(2, "Name", v), S::kStatusDatabase);
  EXPECT_THAT(store_->GetLastError(), HasSubstr("unknown value code 99"));
  EXPECT_EQ(store_->ScanCards([](int32_t, const ICardValues&) { return true; }), S::kStatusDatabase);
  RawExec(path_, "UPDATE cards SET vals = x'010141' WHERE id = 1;");
  EXPECT_EQ(Get(*store_, 1, "Name"), "A");
}

TEST_F(SqliteStoreTest, ValueNamesRegisteredElsewhereReadBeforeTheCachesRefresh) {
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}}), 0);
  ASSERT_EQ(store_->AddCard(2, {{"Name", "Two"}}), 0);
  auto slow = S::Open(path_, OpenMode::kOpenExisting, {1000, 3600 * 1000});
  EXPECT_EQ(Get(*slow, 1, "Name"), "One");
  for (const char* name : {"Fax", "Title", "Notes", "Email 3.Label", "Phone 6.Rectangle"}) {
    ASSERT_EQ(store_->PutValue(2, name, std::string("new ") + name), 0);
  }
  // slow has not looked for commits, but a card it reads holds codes it does not know.
  for (const char* name : {"Fax", "Title", "Notes", "Email 3.Label", "Phone 6.Rectangle"}) {
    EXPECT_EQ(Get(*slow, 2, name), std::string("new ") + name);
  }
}

}  // namespace
}  // namespace ombrel
