#include "ombrel/cardstore/sqlite_card_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <random>

#include "support/error_text.h"
#include "support/scratch_dir.h"

namespace ombrel {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using S = CSqliteCardStore;

StoredImage FakePng(uint8_t tag) { return {"png", PngBytes(tag)}; }
StoredImage FakeJpeg(uint8_t tag) { return {"jpeg", {0xFF, 0xD8, 0xFF, 0xE0, tag}}; }
const StoredImage kFront = FakePng(1);

std::string ReadBytes(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

class SqliteStoreTest : public ::testing::Test {
 protected:
  void TearDown() override { store_.reset(); }
  std::unique_ptr<S> Open(SqliteStoreOptions options = {}) {
    options.refreshIntervalMs = 0;
    return S::Open(path_, OpenMode::kOpenOrCreate, options);
  }
  // A connection whose reads may lag an hour behind other connections' commits.
  std::unique_ptr<S> OpenSlow() { return S::Open(path_, OpenMode::kOpenExisting, {1000, 3600 * 1000}); }
  // Reopens the file with triggers that count the UPDATEs of card rows and
  // refuse to write a card holding "FORBIDDEN", so that tests see when rows
  // are written and what a failing write does.
  void ProbeRowWrites() {
    store_.reset();
    RunSql(path_, "CREATE TABLE row_writes (n INTEGER NOT NULL); INSERT INTO row_writes VALUES (0);"
                  "CREATE TRIGGER count_row_writes AFTER UPDATE ON cards BEGIN UPDATE row_writes SET n = n + 1; END;"
                  "CREATE TRIGGER refuse_row BEFORE UPDATE ON cards WHEN instr(NEW.vals, 'FORBIDDEN') > 0 "
                  "BEGIN SELECT RAISE(ABORT, 'row refused'); END;");
    store_ = Open();
  }
  std::string RowWrites() { return RunSql(path_, "SELECT n FROM row_writes"); }

  static std::string Get(S& s, int32_t id, const std::string& name) {
    std::string v = "garbage";
    EXPECT_EQ(s.GetValue(id, name, v), 0) << name << ": " << s.GetLastError();
    return v;
  }
  static void Put(S& s, int32_t id, const CardValueList& values) {
    for (const auto& [name, value] : values)
      EXPECT_EQ(s.PutValue(id, name, value), 0) << name << ": " << s.GetLastError();
  }
  static std::string Order(S& s) {
    int32_t n = -1;
    EXPECT_EQ(s.GetNumberOfCards(n), 0);
    std::string ids;
    for (int32_t i = 0, id = 0; i < n; ++i) {
      EXPECT_EQ(s.GetCardID(i, id), 0);
      ids += (i ? " " : "") + std::to_string(id);
    }
    return ids;
  }
  // What the existence and image checks answer, "id:FB" a card: F and B for a
  // front and a back image, '-' for none, "gone" when there is no such card.
  static std::string Survey(S& s, std::initializer_list<int32_t> ids) {
    std::string out;
    for (int32_t id : ids) {
      bool exists = false, front = false, back = false;
      EXPECT_EQ(s.CardExists(id, exists), 0) << s.GetLastError();
      out += std::to_string(id) + (exists ? ":" : ":gone ");
      if (!exists) continue;
      EXPECT_EQ(s.HasFrontImage(id, front) + s.HasBackImage(id, back), 0) << s.GetLastError();
      out += std::string(front ? "F" : "-") + (back ? "B " : "- ");
    }
    return out;
  }
  std::string Text(Status (S::*member)(std::string&)) {
    std::string text = "garbage";
    EXPECT_EQ((store_.get()->*member)(text), 0) << store_->GetLastError();
    return text;
  }

  ScratchDir dir_{"ombrel-store"};
  std::string path_ = (dir_ / "cards.db").string();
  std::unique_ptr<S> store_ = Open();
};

TEST_F(SqliteStoreTest, EveryKindOfValueNameRoundTripsExactly) {
  ASSERT_EQ(store_->DefineCustomFields({{"Nickname"}}), 0);
  ASSERT_EQ(store_->AddCard(7, {{"Name", "John Smith"}}), 0);
  CardValueList values = {
      {"Title", "  Chief Engineer  "},      {"Notes", "first line\r\nsecond line\r\n"},
      {"Name", "Zoë Müller-Łukasz"},        {"Nickname", "Zo"},
      {"Phone 1.Label", "Mobile"},          {"Name.Rectangle", "10 20 300 40"},
      {"Email.Confidence Levels", "95 90"}, {"Company.Suspect Info", "1 0"},
      {"Nickname.Rectangle", "1 2 3 4"},    {"Solvane Status", std::string("with\0nul", 8)},
  };
  Put(*store_, 7, values);
  for (const auto& [name, value] : values) EXPECT_EQ(Get(*store_, 7, name), value) << name;
  // Suffixes are matched without regard to case and address the same data.
  EXPECT_EQ(Get(*store_, 7, "Phone 1.LABEL"), "Mobile");
  // Never set reads empty with success; setting empty removes the value.
  EXPECT_EQ(Get(*store_, 7, "Fax") + Get(*store_, 7, "Phone 6.Suspect Info"), "");
  Put(*store_, 7, {{"Title", ""}});
  values[0].second.clear();
  // The values survive closing and reopening the file.
  store_ = Open();
  for (const auto& [name, value] : values) EXPECT_EQ(Get(*store_, 7, name), value) << name;
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
}

TEST_F(SqliteStoreTest, CardsEnumerateInInsertionOrderAndBadCardsAreRefusedWhole) {
  for (int32_t id : {30, 10, 20}) ASSERT_EQ(store_->AddCard(id, {{"Name", "N" + std::to_string(id)}}), 0);
  EXPECT_EQ(Order(*store_), "30 10 20");
  int32_t id = 0;
  EXPECT_EQ(store_->GetCardID(3, id), S::kStatusBadArgument);
  EXPECT_EQ(store_->GetCardID(-1, id), S::kStatusBadArgument);
  EXPECT_THAT(store_->GetLastError(), HasSubstr("-1"));
  ASSERT_EQ(store_->DeleteCard(10), 0);
  ASSERT_EQ(store_->AddCard(10, {{"Name", "again"}}), 0);
  EXPECT_EQ(Order(*store_) + " " + Get(*store_, 10, "Name"), "30 20 10 again");
  ASSERT_EQ(store_->AddCardWithNextId({{"Name", "next"}}, nullptr, nullptr, id), 0);
  EXPECT_EQ(std::to_string(id) + ": " + Order(*store_), "31: 30 20 10 31");

  EXPECT_EQ(store_->AddCard(30, {{"Name", "B"}}), S::kStatusBadArgument);
  EXPECT_THAT(store_->GetLastError(), HasSubstr("already exists"));
  EXPECT_EQ(store_->AddCard(0, {}), S::kStatusBadArgument);
  EXPECT_EQ(store_->AddCard(-4, {}), S::kStatusBadArgument);
  EXPECT_EQ(store_->AddCard(6, {{"Name.Label", "x"}, {"Name.LABEL", "y"}}), S::kStatusBadArgument);
  EXPECT_THAT(store_->GetLastError(), HasSubstr("twice"));
  EXPECT_EQ(store_->AddCard(6, {{"Name", "x"}, {"Shoe Size", "44"}}), S::kStatusUnknownValueName);
  StoredImage notPng = {"png", {1, 2, 3}};
  EXPECT_EQ(store_->AddCard(6, {{"Name", "x"}}, &notPng), S::kStatusBadArgument);
  EXPECT_EQ(Order(*store_) + " " + Get(*store_, 30, "Name"), "30 20 10 31 N30");
}

TEST_F(SqliteStoreTest, AbortRollsBackEveryKindOfWriteAndDropsPendingChanges) {
  auto png = FakePng(1);
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}, {"Title", "Boss"}}, &png), 0);
  ASSERT_EQ(store_->AddCard(2, {{"Name", "Two"}}), 0);
  EXPECT_EQ(Get(*store_, 1, "Title"), "Boss");  // cached before the bracket

  ASSERT_EQ(store_->BeginUpdate(), 0);
  EXPECT_TRUE(store_->InUpdate());
  EXPECT_EQ(store_->BeginUpdate(), S::kStatusTransaction);
  Put(*store_, 1, {{"Title", "Janitor"}, {"Fax", "123"}});  // Fax: a value name new to the file
  ASSERT_EQ(store_->DeleteCard(2), 0);
  ASSERT_EQ(store_->AddCard(3, {{"Name", "Three"}}), 0);
  ASSERT_EQ(store_->SetCardDIB(1, 0), 0);
  ASSERT_EQ(store_->DefineCustomFields({{"Nickname"}}), 0);
  ASSERT_EQ(store_->DefineCategories({"Friends"}), 0);
  EXPECT_EQ(Get(*store_, 1, "Title") + " " + Order(*store_), "Janitor 1 3");
  ASSERT_EQ(store_->AbortUpdate(), 0);

  EXPECT_EQ(Get(*store_, 1, "Title") + "|" + Get(*store_, 1, "Fax") + "|" + Order(*store_), "Boss||1 2");
  EXPECT_EQ(Survey(*store_, {1}), "1:F- ");
  EXPECT_EQ(Text(&S::GetCustomFields) + Text(&S::GetCategories), "");
  EXPECT_EQ(store_->AbortUpdate(), S::kStatusTransaction);
  EXPECT_EQ(store_->CommitUpdate(), S::kStatusTransaction);
  EXPECT_THAT(store_->GetLastError(), HasSubstr("no update in progress"));

  // Nothing is left over for a later bracket to write.
  ASSERT_EQ(store_->BeginUpdate(), 0);
  Put(*store_, 2, {{"Title", "Second"}});
  ASSERT_EQ(store_->CommitUpdate(), 0);
  auto other = Open();
  EXPECT_EQ(Get(*other, 1, "Title") + "|" + Get(*other, 1, "Fax") + "|" + Get(*other, 2, "Title"), "Boss||Second");

  // Deleting the card drops its pending changes; a new card under the same
  // ID must not receive them.
  ASSERT_EQ(store_->BeginUpdate(), 0);
  Put(*store_, 1, {{"Title", "Ghost"}});
  ASSERT_EQ(store_->DeleteCard(1), 0);
  ASSERT_EQ(store_->AddCard(1, {{"Name", "New One"}}), 0);
  ASSERT_EQ(store_->CommitUpdate(), 0);
  EXPECT_EQ(Get(*other, 1, "Name") + "|" + Get(*other, 1, "Title") + "|" + Order(*other), "New One||2 1");
}

TEST_F(SqliteStoreTest, ASecondWriterGetsABusyStatusQuicklyAndReadersGoOn) {
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}}), 0);
  SqliteStoreOptions quick;
  quick.busyTimeoutMs = 100;
  auto other = Open(quick);
  EXPECT_EQ(Get(*other, 1, "Name"), "One");
  ASSERT_EQ(store_->BeginUpdate(), 0);
  Put(*store_, 1, {{"Name", "Uno"}});
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(other->PutValue(1, "Name", "Eins"), S::kStatusBusy);
  EXPECT_THAT(other->GetLastError(), HasSubstr("locked"));
  EXPECT_EQ(other->BeginUpdate(), S::kStatusBusy);
  EXPECT_FALSE(other->InUpdate());
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  EXPECT_EQ(Get(*other, 1, "Name"), "One");  // WAL: the reader sees the last commit while the writer works
  ASSERT_EQ(store_->CommitUpdate(), 0);
  EXPECT_EQ(Get(*other, 1, "Name"), "Uno");
  Put(*other, 1, {{"Name", "Eins"}});
  EXPECT_EQ(Get(*store_, 1, "Name"), "Eins");
}

TEST_F(SqliteStoreTest, CachesFollowOtherConnectionsCommits) {
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}, {"Title", "Old"}}), 0);
  auto other = Open();
  EXPECT_EQ(Get(*store_, 1, "Title") + " " + Order(*store_), "Old 1");
  Put(*other, 1, {{"Title", "New"}});
  ASSERT_EQ(other->AddCard(2, {{"Name", "Two"}}), 0);
  ASSERT_EQ(other->DefineCustomFields({{"Nickname"}}), 0);
  Put(*other, 2, {{"Nickname", "Twoey"}});
  EXPECT_EQ(Get(*store_, 1, "Title") + " " + Order(*store_) + " " + Get(*store_, 2, "Nickname"), "New 1 2 Twoey");

  // A bracket that only read leaves the caches to notice later commits too.
  ASSERT_EQ(store_->BeginUpdate(), 0);
  EXPECT_EQ(Get(*store_, 2, "Nickname"), "Twoey");
  ASSERT_EQ(store_->AbortUpdate(), 0);
  Put(*other, 2, {{"Nickname", "Deuce"}});
  ASSERT_EQ(other->DeleteCard(1), 0);
  EXPECT_EQ(Get(*store_, 2, "Nickname") + " " + Order(*store_), "Deuce 2");
}

// Inside a snapshot every read answers from the state it began with,
// whatever another connection commits; nothing is written through it; once
// it ends the store follows the file again.
TEST_F(SqliteStoreTest, ASnapshotHoldsOneStateWhileAnotherConnectionWrites) {
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}, {"Title", "Old"}}, &kFront), 0);
  ASSERT_EQ(store_->AddCard(2, {{"Name", "Two"}}), 0);
  auto other = Open();
  ASSERT_EQ(store_->BeginSnapshot(), 0);
  ASSERT_EQ(store_->BeginSnapshot(), 0);  // nested: shares the outer one
  Put(*other, 1, {{"Title", "New"}});
  ASSERT_EQ(other->DeleteCard(2), 0);
  ASSERT_EQ(other->AddCard(3, {{"Name", "Three"}}), 0);
  ASSERT_EQ(other->SetCardDIB(1, 0), 0);
  ASSERT_EQ(store_->EndSnapshot(), 0);
  EXPECT_EQ(Get(*store_, 1, "Title") + " " + Order(*store_) + " " + Survey(*store_, {1, 2, 3}),
            "Old 1 2 1:F- 2:-- 3:gone ");
  EXPECT_EQ(store_->PutValue(1, "Title", "Mine"), S::kStatusTransaction);
  EXPECT_EQ(store_->BeginUpdate(), S::kStatusTransaction);
  ASSERT_EQ(store_->EndSnapshot(), 0);
  EXPECT_EQ(store_->EndSnapshot(), S::kStatusTransaction);
  EXPECT_EQ(Get(*store_, 1, "Title") + " " + Order(*store_) + " " + Survey(*store_, {1, 2, 3}),
            "New 1 3 1:-- 2:gone 3:-- ");
  EXPECT_EQ(store_->PutValue(1, "Title", "Mine"), 0);
}

// Opened for reading, the store writes nothing and refuses an empty file;
// opened for writing, an empty file gets its schema with the first write,
// so a first write that is undone leaves it empty.
TEST_F(SqliteStoreTest, AReadOnlyStoreNeverWritesAndAnEmptyFileStaysEmptyUntilAWriteCommits) {
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}}), 0);
  store_.reset();
  const std::string before = ReadBytes(path_);
  auto reader = S::Open(path_, OpenMode::kReadOnly);
  EXPECT_EQ(Get(*reader, 1, "Name"), "One");
  EXPECT_EQ(reader->PutValue(1, "Name", "Two"), S::kStatusReadOnly);
  EXPECT_EQ(reader->AddCard(2, {{"Name", "Two"}}), S::kStatusReadOnly);
  EXPECT_EQ(reader->BeginUpdate(), S::kStatusReadOnly);
  EXPECT_EQ(reader->DefineCategories({"X"}), S::kStatusReadOnly);
  ASSERT_EQ(reader->Disconnect() + reader->Connect(), 0);
  EXPECT_EQ(reader->PutValue(1, "Name", "Two"), S::kStatusReadOnly);
  reader.reset();
  EXPECT_EQ(ReadBytes(path_), before);

  const std::string empty = (dir_ / "empty.db").string();
  std::ofstream(empty).close();
  EXPECT_THAT(ErrorText([&] { S::Open(empty, OpenMode::kReadOnly); }), HasSubstr("empty file"));
  auto writer = S::Open(empty, OpenMode::kOpenExisting);
  ASSERT_EQ(writer->BeginUpdate(), 0);
  ASSERT_EQ(writer->AddCard(1, {{"Name", "x"}}), 0);
  ASSERT_EQ(writer->AbortUpdate(), 0);
  EXPECT_EQ(fs::file_size(empty), 0u);
  ASSERT_EQ(writer->AddCard(1, {{"Name", "y"}}), 0);
  writer.reset();
  EXPECT_EQ(Get(*S::Open(empty, OpenMode::kReadOnly), 1, "Name"), "y");
}

TEST_F(SqliteStoreTest, AWriteNeverUndoesAnotherConnectionsCommit) {
  auto slow = OpenSlow();
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}}), 0);
  EXPECT_EQ(Get(*slow, 1, "Name"), "One");  // card 1 now cached in slow
  Put(*store_, 1, {{"Fax", "555"}});
  // Taking the write lock brings slow up to date before it rewrites the card.
  Put(*slow, 1, {{"Notes", "met at the fair"}});
  EXPECT_EQ(Get(*store_, 1, "Fax") + "|" + Get(*store_, 1, "Notes"), "555|met at the fair");
  Put(*store_, 1, {{"Title", "Boss"}});
  ASSERT_EQ(slow->BeginUpdate(), 0);
  EXPECT_EQ(Get(*slow, 1, "Title"), "Boss");
  ASSERT_EQ(slow->DeleteCard(1), 0);
  ASSERT_EQ(slow->CommitUpdate(), 0);
  EXPECT_EQ(Survey(*store_, {1}), "1:gone ");
}

TEST_F(SqliteStoreTest, ValueNamesRegisteredElsewhereAreKnownAndAbortedOnesDoNotLeak) {
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}}), 0);
  ASSERT_EQ(store_->AddCard(2, {{"Name", "Two"}}), 0);
  auto other = Open();
  // This connection registers "Fax" under a new code, then gives it up...
  ASSERT_EQ(store_->BeginUpdate(), 0);
  Put(*store_, 1, {{"Fax", "555"}});
  ASSERT_EQ(store_->AbortUpdate(), 0);
  // ...and the other takes the same code for another name.
  Put(*other, 1, {{"Title", "Boss"}});
  EXPECT_EQ(Get(*store_, 1, "Title") + "|" + Get(*store_, 1, "Fax"), "Boss|");
  Put(*store_, 1, {{"Fax", "777"}});
  EXPECT_EQ(Get(*other, 1, "Fax") + "|" + Get(*other, 1, "Title"), "777|Boss");

  // A lagging reader has not looked for commits, but a card it reads holds codes it does not know.
  auto slow = OpenSlow();
  EXPECT_EQ(Get(*slow, 1, "Name"), "One");
  const std::vector<std::string> names = {"Notes", "Email 3.Label", "Phone 6.Rectangle"};
  for (const auto& name : names) Put(*store_, 2, {{name, "new " + name}});
  for (const auto& name : names) EXPECT_EQ(Get(*slow, 2, name), "new " + name);
}

TEST_F(SqliteStoreTest, ForeignNewerAndGarbageFilesAreRefusedUntouched) {
  RunSql(dir_ / "foreign.db", "CREATE TABLE people (name TEXT); INSERT INTO people VALUES ('x');");
  std::ofstream(dir_ / "garbage.db") << std::string(5000, 'z');
  ASSERT_EQ(store_->AddCard(1, {{"Name", "x"}}), 0);
  store_.reset();
  RunSql(path_, "PRAGMA user_version = 2;");
  for (auto [name, expected] : std::vector<std::pair<std::string, std::string>>{
           {"foreign.db", "not an Ombrel card database"}, {"garbage.db", "not an Ombrel card database"},
           {"cards.db", "newer"}}) {
    const std::string before = ReadBytes(dir_ / name);
    EXPECT_THAT(ErrorText([&] { S::Open((dir_ / name).string(), OpenMode::kOpenOrCreate); }), HasSubstr(expected));
    EXPECT_EQ(ReadBytes(dir_ / name), before) << name;
  }
  EXPECT_THROW(S::Open((dir_ / "missing.db").string(), OpenMode::kOpenExisting), Error);
  EXPECT_FALSE(fs::exists(dir_ / "missing.db"));
}

TEST_F(SqliteStoreTest, CustomFieldsCategoriesAndLabelsUseTheContractFormats) {
  ASSERT_EQ(store_->DefineCustomFields({{"Nickname"}, {"Internal", "TEXT", "HIDDEN", "READONLY"}}), 0);
  ASSERT_EQ(store_->DefineCustomFields({{"Nickname", "TEXT", "VISIBLE", "READONLY"}, {"Birthday"}}), 0);
  EXPECT_EQ(Text(&S::GetCustomFields),
            "Nickname\tTEXT\tVISIBLE\tREADONLY\r\nInternal\tTEXT\tHIDDEN\tREADONLY\r\n"
            "Birthday\tTEXT\tVISIBLE\tREADWRITE");
  EXPECT_EQ(store_->DefineCustomFields({{"Bad\tName"}}), S::kStatusBadArgument);
  EXPECT_EQ(store_->DefineCustomFields({{"Title"}}), S::kStatusBadArgument);
  ASSERT_EQ(store_->DefineCategories({"Business", "Friends"}), 0);
  ASSERT_EQ(store_->DefineCategories({"Friends", "Family"}), 0);
  EXPECT_EQ(Text(&S::GetCategories), "Business, Friends, Family");
  EXPECT_EQ(store_->DefineCategories({"A, B"}), S::kStatusBadArgument);

  ASSERT_EQ(store_->AddCard(1, {{"Phone 1.Label", "Mobile"}, {"Phone 6.Label", "Home"}, {"Phone.Label", "Main"},
                                {"Email 2.Label", "Work"}}),
            0);
  ASSERT_EQ(store_->AddCard(2, {{"Phone 2.Label", "Mobile"}, {"Phone 3.Label", "Car"}}), 0);
  std::string phone, email;
  ASSERT_EQ(store_->GetLabels("Phone", phone) + store_->GetLabels("Email", email), 0);
  EXPECT_EQ(phone + "|" + email, "Car\r\nHome\r\nMobile|Work");
  EXPECT_EQ(store_->GetLabels("Fax", phone), S::kStatusBadArgument);
}

// Handles are snapshots of the images; the existence and image answers, once
// loaded, must stay exact through every write, delete and aborted bracket.
TEST_F(SqliteStoreTest, ImagesTravelThroughRegistryHandlesAndTheAnswersFollowEveryWrite) {
  auto& registry = ImageRegistry::Instance();
  const StoredImage png = FakePng(9), jpeg = FakeJpeg(4);
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}}, &png), 0);
  ASSERT_EQ(store_->AddCard(2, {{"Name", "Two"}}, nullptr, &jpeg), 0);
  ASSERT_EQ(store_->AddCard(3, {{"Name", "Three"}}), 0);
  EXPECT_EQ(Survey(*store_, {1, 2, 3, 4}), "1:F- 2:-B 3:-- 4:gone ");
  int32_t dib = -1;
  auto image = [&](bool front, int32_t id) {  // "format:size:last byte" of what the handle holds
    EXPECT_EQ(front ? store_->GetCardDIB(id, dib) : store_->GetBackDIB(id, dib), 0);
    auto stored = registry.Get(dib);
    return dib == 0   ? std::string("none")
           : !stored ? std::string("unknown handle")
                     : stored->format + ":" + std::to_string(stored->bytes.size()) + ":" +
                           std::to_string(stored->bytes.back());
  };
  EXPECT_EQ(image(true, 1) + ", " + image(false, 2) + ", " + image(true, 3), "png:12:9, jpeg:5:4, none");

  // Card 1's front goes to card 2, which keeps it after card 1's is removed; a new JPEG replaces the
  // back of card 2 (whose handle was handed out above) and becomes card 3's front.
  ASSERT_EQ(store_->GetCardDIB(1, dib), 0);
  ASSERT_EQ(store_->SetCardDIB(2, dib), 0);
  const int32_t handle = registry.Register(FakeJpeg(5));
  ASSERT_EQ(store_->SetCardDIB(1, 0) + store_->SetBackDIB(2, handle) + store_->SetCardDIB(3, handle), 0);
  ASSERT_EQ(store_->AddCard(4, {{"Name", "Four"}}, &png, &jpeg), 0);
  EXPECT_EQ(image(true, 2) + ", " + image(false, 2) + ", " + image(true, 3), "png:12:9, jpeg:5:5, jpeg:5:5");
  EXPECT_EQ(Survey(*store_, {1, 2, 3, 4}), "1:-- 2:FB 3:F- 4:FB ");
  // An unknown handle or card fails and changes nothing.
  EXPECT_EQ(store_->SetBackDIB(1, 987654321), S::kStatusBadArgument);
  EXPECT_THAT(store_->GetLastError(), HasSubstr("987654321"));
  EXPECT_EQ(store_->SetCardDIB(55, handle), S::kStatusUnknownCard);
  ASSERT_EQ(store_->DeleteCard(3), 0);
  EXPECT_EQ(Survey(*store_, {1, 3}), "1:-- 3:gone ");
  // The ID comes back as a new card without images, at the end of the order.
  ASSERT_EQ(store_->AddCard(3, {{"Name", "Three again"}}), 0);
  EXPECT_EQ(Survey(*store_, {1, 2, 3, 4}) + Order(*store_), "1:-- 2:FB 3:-- 4:FB 1 2 4 3");

  // An aborted bracket leaves no trace in the answers.
  ASSERT_EQ(store_->BeginUpdate(), 0);
  ASSERT_EQ(store_->DeleteCard(2), 0);
  ASSERT_EQ(store_->SetCardDIB(1, handle), 0);
  ASSERT_EQ(store_->AbortUpdate(), 0);
  EXPECT_EQ(Survey(*store_, {1, 2, 3, 4, 9}) + Order(*store_), "1:-- 2:FB 3:-- 4:FB 9:gone 1 2 4 3");
  EXPECT_EQ(Survey(*Open(), {1, 2, 3, 4, 9}), Survey(*store_, {1, 2, 3, 4, 9}));  // as the file has it
}

TEST_F(SqliteStoreTest, ScanCardsSeesExactlyWhatGetValueReads) {
  ASSERT_EQ(store_->DefineCustomFields({{"Nickname"}}), 0);
  std::mt19937 rng(3);
  const std::vector<std::string> names = {"Name",     "Title",     "Phone 1", "Phone 1.Label",    "Email.Rectangle",
                                          "Nickname", "Certainty", "Notes",   "Name.Suspect Info"};
  for (int i = 1; i <= 60; ++i) {
    CardValueList values;
    for (const auto& n : names)
      if (rng() % 3) values.emplace_back(n, n + " of " + std::to_string(i) + (rng() % 2 ? " " : "\r\n"));
    ASSERT_EQ(store_->AddCard(1000 - i * 7, values), 0);
  }
  Put(*store_, 1000 - 7, {{"Title", "changed"}});
  ASSERT_EQ(store_->DeleteCard(1000 - 14), 0);

  std::vector<std::string> asked = names;
  for (const char* extra : {"phone 1.label", "Email.RECTANGLE", "Fax", "Shoe Size", "Nickname.Label"})
    asked.emplace_back(extra);
  std::string visited;
  int visits = 0;
  ASSERT_EQ(store_->ScanCards([&](int32_t id, const ICardValues& values) {
    visited += (visits++ ? " " : "") + std::to_string(id);
    for (const auto& n : asked) {
      std::string expected;
      store_->GetValue(id, n, expected);  // unknown names read empty, as GetValue leaves them
      EXPECT_EQ(values.Get(n), expected) << id << " " << n;
    }
    return true;
  }),
            0);
  EXPECT_EQ(visited, Order(*store_));
  EXPECT_EQ(visits, 59);
}

TEST_F(SqliteStoreTest, DisconnectClosesAndConnectReopens) {
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}}), 0);
  ASSERT_EQ(store_->BeginUpdate(), 0);
  Put(*store_, 1, {{"Name", "Lost"}});
  ASSERT_EQ(store_->Disconnect(), 0);  // an open bracket is abandoned
  std::string v;
  EXPECT_EQ(store_->GetValue(1, "Name", v), S::kStatusNotConnected);
  EXPECT_THAT(store_->GetLastError(), HasSubstr("Connect"));
  ASSERT_EQ(store_->Connect(), 0);
  ASSERT_EQ(store_->Connect(), 0);
  EXPECT_EQ(Get(*store_, 1, "Name"), "One");
}

TEST_F(SqliteStoreTest, ExistenceAndImageAnswersFollowOtherConnectionsCommits) {
  auto png = FakePng(1);
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}}), 0);
  ASSERT_EQ(store_->AddCard(2, {{"Name", "Two"}}, &png), 0);
  auto slow = OpenSlow();
  EXPECT_EQ(Survey(*store_, {1, 2, 3}), "1:-- 2:F- 3:gone ");
  EXPECT_EQ(Survey(*slow, {1, 2, 3}), "1:-- 2:F- 3:gone ");
  auto other = Open();
  ASSERT_EQ(other->SetCardDIB(1, ImageRegistry::Instance().Register(FakePng(5))), 0);
  ASSERT_EQ(other->DeleteCard(2), 0);
  ASSERT_EQ(other->AddCard(3, {{"Name", "Three"}}, nullptr, &png), 0);
  EXPECT_EQ(Survey(*store_, {1, 2, 3}) + Order(*store_), "1:F- 2:gone 3:-B 1 3");

  // Taking the write lock brings even a lagging reader up to date.
  ASSERT_EQ(slow->BeginUpdate(), 0);
  EXPECT_EQ(Survey(*slow, {1, 2, 3}), "1:F- 2:gone 3:-B ");
  EXPECT_EQ(slow->DeleteCard(2), S::kStatusUnknownCard);
  ASSERT_EQ(slow->DeleteCard(3), 0);
  ASSERT_EQ(slow->CommitUpdate(), 0);
  EXPECT_EQ(Survey(*store_, {1, 3}) + Order(*store_), "1:F- 3:gone 1");
}

TEST_F(SqliteStoreTest, CardExistsIsExactForSparseIds) {
  for (int32_t id : {2147483647, 1, 64, 63, 65, 5000000, 2147483000, 128})
    ASSERT_EQ(store_->AddCard(id, {{"Name", std::to_string(id)}}), 0);
  auto reader = Open();  // loads the set from the file rather than building it
  for (S* s : {store_.get(), reader.get()})
    EXPECT_EQ(Survey(*s, {2147483647, 1, 64, 63, 65, 5000000, 2147483000, 128, 0, -1, 2, 62, 66, 127, 2147483646}),
              "2147483647:-- 1:-- 64:-- 63:-- 65:-- 5000000:-- 2147483000:-- 128:-- "
              "0:gone -1:gone 2:gone 62:gone 66:gone 127:gone 2147483646:gone ");
}

TEST_F(SqliteStoreTest, PutValuesInABracketWriteTheRowOnceAndReadBackAtOnce) {
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}, {"Title", "Boss"}, {"Fax", "1"}}), 0);
  ASSERT_EQ(store_->AddCard(2, {{"Name", "Two"}}), 0);
  ProbeRowWrites();
  auto other = Open();

  ASSERT_EQ(store_->BeginUpdate(), 0);
  for (int i = 0; i < 100; ++i) Put(*store_, 1, {{"Notes", "note " + std::to_string(i)}});
  // The title removed, a label under both spellings, a value left as it was.
  Put(*store_, 1,
      {{"Title", ""}, {"Phone 1.label", "Mobile"}, {"Phone 1.Label", "Home"}, {"Name", "Uno"}, {"Fax", "1"}});
  EXPECT_EQ(Get(*store_, 1, "Notes") + "|" + Get(*store_, 1, "Title") + "|" + Get(*store_, 1, "Phone 1.Label"),
            "note 99||Home");
  EXPECT_EQ(RowWrites(), "0");
  EXPECT_EQ(Get(*other, 1, "Name"), "One");  // nothing committed yet
  ASSERT_EQ(store_->CommitUpdate(), 0);
  EXPECT_EQ(RowWrites(), "1");

  // Each card of a bracket is written once; reads that must see the rows
  // get them written first, and see the changes.
  ASSERT_EQ(store_->BeginUpdate(), 0);
  Put(*store_, 1, {{"Title", "Chief"}, {"Phone 1.Label", "Car"}});
  Put(*store_, 2, {{"Title", "Second"}});        // card 1 is written here
  EXPECT_EQ(RowWrites(), "1");                   // the probe reads committed data only
  EXPECT_EQ(Get(*store_, 1, "Title"), "Chief");  // read back from the row
  ASSERT_EQ(store_->CommitUpdate(), 0);
  EXPECT_EQ(RowWrites(), "3");
  EXPECT_EQ(Get(*other, 1, "Title") + "|" + Get(*other, 2, "Title"), "Chief|Second");

  // Outside a bracket every PutValue is its own committed write.
  Put(*store_, 2, {{"Fax", "22"}});
  EXPECT_EQ(RowWrites(), "4");
  EXPECT_EQ(Get(*other, 2, "Fax"), "22");
}

// A failed call in a bracket loses no pending change; a row that cannot be
// written fails the call that writes it and blocks the commit until fixed.
TEST_F(SqliteStoreTest, FailuresInABracketLoseNoPendingChange) {
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}}), 0);
  ASSERT_EQ(store_->AddCard(2, {{"Name", "Two"}}), 0);
  ProbeRowWrites();
  auto other = Open();

  // Outside a bracket the failure is PutValue's own, and nothing changes.
  EXPECT_EQ(store_->PutValue(1, "Notes", "FORBIDDEN"), S::kStatusDatabase);
  EXPECT_THAT(store_->GetLastError(), HasSubstr("PutValue(card 1, \"Notes\")"));
  EXPECT_THAT(store_->GetLastError(), HasSubstr("row refused"));

  ASSERT_EQ(store_->BeginUpdate(), 0);
  Put(*store_, 1, {{"Fax", "555"}});
  EXPECT_EQ(store_->DeleteCard(99), S::kStatusUnknownCard);
  EXPECT_EQ(store_->SetCardDIB(1, 987654321), S::kStatusBadArgument);
  EXPECT_EQ(store_->PutValue(1, "Shoe Size", "44"), S::kStatusUnknownValueName);
  EXPECT_EQ(store_->PutValue(99, "Fax", "1"), S::kStatusUnknownCard);
  Put(*store_, 1, {{"Notes", "FORBIDDEN"}});  // only checked when written
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
  Put(*store_, 1, {{"Notes", "allowed"}});
  Put(*store_, 2, {{"Title", "Second"}});
  ASSERT_EQ(store_->CommitUpdate(), 0);
  EXPECT_EQ(Get(*other, 1, "Fax") + "|" + Get(*other, 1, "Notes") + "|" + Get(*other, 2, "Title"),
            "555|allowed|Second");
}

TEST_F(SqliteStoreTest, DamagedValueBlobIsReportedNotMisread) {
  ASSERT_EQ(store_->AddCard(1, {{"Name", "One"}}), 0);
  ASSERT_EQ(store_->AddCard(2, {{"Name", "Two"}}), 0);
  RunSql(path_, "UPDATE cards SET vals = x'0105414243' WHERE id = 1;");  // length runs past the end
  RunSql(path_, "UPDATE cards SET vals = x'630141' WHERE id = 2;");      // code no name has
  std::string v;
  EXPECT_EQ(store_->GetValue(1, "Name", v), S::kStatusDatabase);
  EXPECT_THAT(store_->GetLastError(), HasSubstr("damaged"));
  EXPECT_EQ(store_->GetValue(2, "Name", v), S::kStatusDatabase);
  EXPECT_THAT(store_->GetLastError(), HasSubstr("unknown value code 99"));
  RunSql(path_, "UPDATE cards SET vals = x'010141' WHERE id = 1;");
  EXPECT_EQ(Get(*store_, 1, "Name"), "A");
}

}  // namespace
}  // namespace ombrel
