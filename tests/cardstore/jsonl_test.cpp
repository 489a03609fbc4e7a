#include "ombrel/cardstore/jsonl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>

#include "support/error_text.h"
#include "support/images.h"
#include "support/scratch_dir.h"

namespace ombrel {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using Json = nlohmann::ordered_json;

const std::vector<uint8_t> kPng = BluePng();
const std::vector<uint8_t> kJpeg = RedJpeg();

std::string DataUri(const char* type, const std::vector<uint8_t>& bytes) {
  return std::string("data:image/") + type + ";base64," + jsonl::EncodeBase64(bytes);
}

class JsonlTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(dir_ / "images");
    std::ofstream(dir_ / "images" / "1-front.png", std::ios::binary)
        .write(reinterpret_cast<const char*>(kPng.data()), kPng.size());
    std::ofstream(dir_ / "images" / "notes.txt") << "not an image";
    mkfifo((dir_ / "images" / "pipe.png").c_str(), 0600);
    // Larger than an image may be, without taking the room.
    std::ofstream(dir_ / "images" / "huge.png").close();
    fs::resize_file(dir_ / "images" / "huge.png", jsonl::kMaxImageBytes + 1);
  }
  fs::path Write(const std::string& name, const std::vector<std::string>& lines) {
    fs::path p = dir_ / name;
    std::ofstream out(p, std::ios::binary);
    for (const auto& l : lines) out << l << "\n";
    return p;
  }
  std::string ExportText(CSqliteCardStore& s) {
    std::ostringstream out;
    jsonl::Export(s, out);
    return out.str();
  }

  ScratchDir dir_{"ombrel-jsonl"};
  std::unique_ptr<CSqliteCardStore> store_ = CSqliteCardStore::Open((dir_ / "cards.db").string());
};

TEST_F(JsonlTest, ImportThenExportReproducesValuesExactly) {
  Json db = {{"database",
              {{"custom_fields",
                {{{"name", "Nickname"}, {"type", "TEXT"}, {"visibility", "VISIBLE"}, {"access", "READWRITE"}},
                 {{"name", "Birthday"}}}},
               {"categories", {"Business", "Friends"}}}}};
  Json first = {{"id", 42},
                {"values",
                 {{"Name", "  Zoë Müller  "}, {"Notes", "line one\r\nline two\ttabbed \"quoted\" \\ back"},
                  {"Company", "Łukasz & Ségolène 株式会社 🃏"}, {"Phone 1", "555 1234"}, {"Phone 1.Label", "Mobile"},
                  {"Name.Rectangle", "10 20 300 40"}, {"Nickname", "Zo"}, {"Title", nullptr}}},
                {"front_image", "images/1-front.png"},
                {"back_image", jsonl::ImageDataUri({"jpeg", kJpeg})}};
  Json second = {{"values", {{"Name", "José"}, {"Certainty", "80"}}}, {"back_image", nullptr}};
  auto file = Write("in.jsonl", {db.dump(), "", first.dump(), second.dump()});

  auto counts = jsonl::ImportFile(*store_, file);
  EXPECT_EQ(std::to_string(counts.cards) + " " + std::to_string(counts.images), "2 2");
  std::string name, fields, categories;
  ASSERT_EQ(store_->GetValue(43, "Name", name) + store_->GetCustomFields(fields) + store_->GetCategories(categories),
            0);
  EXPECT_EQ(name + "|" + fields + "|" + categories,  // the card without an id gets the next free one
            "José|Nickname\tTEXT\tVISIBLE\tREADWRITE\r\nBirthday\tTEXT\tVISIBLE\tREADWRITE|Business, Friends");

  // The export carries the same values, in the same order, with nulls gone, and the images inside.
  std::string text = ExportText(*store_);
  std::istringstream lines(text);
  std::vector<Json> out;
  for (std::string line; std::getline(lines, line);) out.push_back(Json::parse(line));
  ASSERT_EQ(out.size(), 3u);
  Json dbWithDefaults = db;  // attributes left out are written back with their defaults
  dbWithDefaults["database"]["custom_fields"][1] = {
      {"name", "Birthday"}, {"type", "TEXT"}, {"visibility", "VISIBLE"}, {"access", "READWRITE"}};
  EXPECT_EQ(out[0], dbWithDefaults);
  Json expectedValues = first["values"];
  expectedValues.erase("Title");
  EXPECT_EQ(out[1]["id"], 42);
  EXPECT_EQ(out[1]["values"].dump(), expectedValues.dump());
  EXPECT_EQ(out[1]["front_image"], jsonl::ImageDataUri({"png", kPng}));
  EXPECT_EQ(out[1]["back_image"], first["back_image"]);
  EXPECT_EQ(out[2]["id"], 43);

  // Importing the export gives the same database, the images inside it or in files beside it.
  auto copy = CSqliteCardStore::Open((dir_ / "copy.db").string());
  std::istringstream again(text);
  jsonl::Import(*copy, again, dir_.Path(), "export");
  EXPECT_EQ(ExportText(*copy), text);
  fs::create_directories(dir_ / "out");
  counts = jsonl::ExportFile(*store_, dir_ / "out" / "cards.jsonl");
  EXPECT_EQ(std::to_string(counts.cards) + " " + std::to_string(counts.images), "2 2");
  EXPECT_EQ(fs::file_size(dir_ / "out" / "cards-images" / "42-front.png"), kPng.size());
  EXPECT_EQ(fs::file_size(dir_ / "out" / "cards-images" / "42-back.jpg"), kJpeg.size());
  auto fromFile = CSqliteCardStore::Open((dir_ / "copy2.db").string());
  jsonl::ImportFile(*fromFile, dir_ / "out" / "cards.jsonl");
  EXPECT_EQ(ExportText(*fromFile), text);
}

TEST_F(JsonlTest, ImportIntoADatabaseAnotherWriterHoldsFailsCleanly) {
  auto holder = CSqliteCardStore::Open((dir_ / "cards.db").string());
  ASSERT_EQ(holder->BeginUpdate(), 0);
  store_ = CSqliteCardStore::Open((dir_ / "cards.db").string(), OpenMode::kOpenExisting, {100, 0});
  auto file = Write("in.jsonl", {R"({"id": 1, "values": {"Name": "A"}})"});
  EXPECT_THAT(ErrorText([&] { jsonl::ImportFile(*store_, file); }), HasSubstr("locked"));
  ASSERT_EQ(holder->CommitUpdate(), 0);
  EXPECT_EQ(jsonl::ImportFile(*store_, file).cards, 1);
}

TEST_F(JsonlTest, EveryBadLineStopsTheImportAndChangesNothing) {
  ASSERT_EQ(store_->DefineCustomFields({{"Nickname"}}), 0);
  ASSERT_EQ(store_->AddCard(1, {{"Name", "Existing"}}), 0);
  const std::string before = ExportText(*store_);
  const std::vector<std::pair<std::string, std::string>> cases = {
      {R"({"id": 5, "values": {"Name": "x"})", "malformed JSON"},
      {R"(["not", "an", "object"])", "must be a JSON object"},
      {R"({"id": 5, "values": {"Shoe Size": "44"}})", "unknown value name \"Shoe Size\""},
      {R"({"id": 5, "values": {"Name.label": "a", "Name.Label": "b"}})", "given twice"},
      {R"({"id": 5, "values": {"Name": 12}})", "value \"Name\" must be a string"},
      {R"({"id": 5, "id": 6})", "key \"id\" is given twice"},
      {R"({"id": 5, "values": ["Name"]})", "\"values\" must be an object"},
      {R"({"id": 5, "colour": "red"})", "unknown key \"colour\""},
      {R"({"id": 2, "values": {}})", "card id 2 is already used on line 2"},
      {R"({"id": 1, "values": {}})", "card id 1 already exists in the database"},
      {R"({"id": 0})", "out of range"},
      {R"({"id": 2147483648})", "out of range"},
      {R"({"id": "7"})", "\"id\" must be an integer"},
      {R"({"id": 5, "front_image": "images/missing.png"})", "cannot read front_image \"images/missing.png\""},
      {R"({"id": 5, "back_image": "images/notes.txt"})", "is not a PNG, JPEG or BMP image"},
      // Image files that never end or never begin, and images that do not decode.
      {R"({"id": 5, "front_image": "images/pipe.png"})", "front_image \"images/pipe.png\" is not a regular file"},
      {R"({"id": 5, "front_image": "/dev/zero"})", "\"/dev/zero\" is not a regular file"},
      {R"({"id": 5, "front_image": "."})", "\".\" is not a regular file"},
      {R"({"id": 5, "front_image": "images/huge.png"})", "larger than 50 MB"},
      {R"({"id": 5, "front_image": ")" + DataUri("bmp", {'B', 'M'}) + "\"}", "damaged BMP image"},
      {R"({"id": 5, "front_image": ")" + DataUri("png", PngBytes()) + "\"}", "damaged PNG image"},
      {R"({"id": 5, "back_image": ")" + DataUri("jpeg", {kJpeg.begin(), kJpeg.end() - 40}) + "\"}",
       "damaged JPEG image"},
      // Values the search could not read, named as its reading names them.
      {R"({"id": 5, "values": {"Name": "A B", "Name.Rectangle": "1 2 3"}})",
       "card 5, value \"Name.Rectangle\": Incorrect rectangle information: 1 2 3"},
      {R"({"id": 5, "values": {"Name": "A B", "Name.rectangle": "a b c d"}})",
       "card 5, value \"Name.Rectangle\": Cannot convert string: a to number"},
      {R"({"id": 5, "values": {"Name": "A B", "Name.Rectangle": "0 0 2147483647 2147483647"}})",
       "card 5, value \"Name.Rectangle\": Overflow"},
      {R"({"id": 5, "values": {"Title": "CEO", "Title.Confidence Levels": "xx yy zz"}})",
       "card 5, value \"Title.Confidence Levels\": Incorrect confidence levels: xx yy zz"},
      {R"({"id": 5, "values": {"Nickname": "Al", "Nickname.Suspect Info": "1"}})",
       "card 5, value \"Nickname.Suspect Info\": Incorrect suspect info: 1"},
      {R"({"values": {"Name": "Ann Lee", "Last Name": "Leigh"}})",
       "card 3, value \"Last Name\": Name field does not contain given last name: Leigh"},
      {R"({"id": 5, "front_image": "data:image/png;base64,iVBOR!!"})", "invalid base64"},
      {R"({"id": 5, "front_image": "data:image/png,raw"})", "without base64"},
      {R"({"id": 5, "front_image": 3})", "must be a string or null"},
      {R"({"database": {"categories": ["Late"]}})", "must be the first line"},
  };
  for (const auto& [line, expected] : cases) {
    // A good card and a blank line come first: line numbers count every line.
    auto file = Write("bad.jsonl", {R"({"database": {"custom_fields": [{"name": "Birthday"}]}})",
                                    R"({"id": 2, "values": {"Name": "Good", "Nickname": "G"}})", "", line});
    const std::string error = ErrorText([&] { jsonl::ImportFile(*store_, file); });
    EXPECT_THAT(error, HasSubstr("line 4: ")) << line;
    EXPECT_THAT(error, HasSubstr(expected)) << line;
    EXPECT_FALSE(store_->InUpdate());
    EXPECT_EQ(ExportText(*store_), before) << line;
  }
  EXPECT_THROW(jsonl::ImportFile(*store_, dir_ / "no-such.jsonl"), Error);
  // The first card of a file is read as every other (its reading prepares the names).
  auto first = Write("first.jsonl", {R"({"id": 5, "values": {"Name": "A B", "Name.Rectangle": "1 2 3"}})"});
  EXPECT_THAT(ErrorText([&] { jsonl::ImportFile(*store_, first); }), HasSubstr("line 1: card 5, value \"Name.Rectangle\""));
}

TEST(Base64Test, EncodesAndDecodesStrictly) {
  const std::vector<std::pair<std::string, std::string>> vectors = {
      {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {"foobar", "Zm9vYmFy"}};
  for (const auto& [plain, encoded] : vectors) {
    std::vector<uint8_t> bytes(plain.begin(), plain.end());
    EXPECT_EQ(jsonl::EncodeBase64(bytes), encoded);
    std::vector<uint8_t> back;
    ASSERT_TRUE(jsonl::DecodeBase64(encoded, back)) << encoded;
    EXPECT_EQ(back, bytes);
  }
  std::vector<uint8_t> out;
  for (const char* bad : {"Zm9", "Zm9v!A==", "Zg=a", "Z===", "Zg==Zg==", "Zm 9v"}) {
    EXPECT_FALSE(jsonl::DecodeBase64(bad, out)) << bad;
  }
  std::mt19937 rng(1);
  for (int n = 0; n < 50; ++n) {
    std::vector<uint8_t> bytes(n * 7);
    for (auto& b : bytes) b = static_cast<uint8_t>(rng());
    ASSERT_TRUE(jsonl::DecodeBase64(jsonl::EncodeBase64(bytes), out));
    EXPECT_EQ(out, bytes);
  }
}

}  // namespace
}  // namespace ombrel
