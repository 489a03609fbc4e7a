// The commands as a user runs them: exit codes and messages, round trips
// through files, and what the demo generator produces.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "ombrel/cardstore/jsonl.h"
#include "support/command_fixture.h"
#include "support/images.h"

namespace ombrel::clitest {
namespace {

using ::testing::HasSubstr;

// Usage errors exit with 2 and print the usage, failures with 1; neither
// leaves a database behind. An argument "@name" is that file in the test's folder.
TEST_F(CommandTest, UsageErrorsAndFailuresHaveTheirExitCodesAndMessages) {
  std::ofstream(Path("garbage.db")) << std::string(4096, 'x');
  std::ofstream(Path("in.jsonl")) << R"({"values": {"Name": "Ann"}})" << "\n";
  struct Case { std::vector<std::string> args; int code; std::string err; };
  const std::vector<Case> cases = {
      {{}, 2, "error: "},
      {{"frobnicate"}, 2, "error: "},
      {{"import", "x.jsonl"}, 2, "--db"},
      {{"sample", "--cards", "-5", "--db", "@new.db"}, 2, "error: "},
      // Every number has its range, every path must name something.
      {{"sample", "--cards", "99999999999999999999", "--db", "@new.db"}, 2, "from 0 to 10000000"},
      {{"sample", "--cards", "10000001", "--db", "@new.db"}, 2, "from 0 to 10000000"},
      {{"sample", "--cards", "1", "--seed", "-1", "--db", "@new.db"}, 2, "--seed"},
      {{"sample", "--cards", "1e3", "--db", "@new.db"}, 2, "--cards"},
      {{"sample", "--cards", "3", "--db", ""}, 2, "must not be empty"},
      {{"import", "@in.jsonl", "--db", ""}, 2, "must not be empty"},
      {{"import", "", "--db", "@new.db"}, 2, "must not be empty"},
      {{"export", "--db", ""}, 2, "must not be empty"},
      {{"find", "--db", ""}, 2, "must not be empty"},
      {{"apply", "--db", "", "--action", "remove-exact"}, 2, "must not be empty"},
      {{"export", "--db", "@new.db", "--colour", "red"}, 2, "error: "},
      {{"find"}, 2, "--db"},
      {{"apply", "--db", "@new.db", "--action", "shuffle"}, 2, "shuffle"},
      {{"import", "@absent.jsonl", "--db", "@new.db"}, 1, "error: cannot open"},
      {{"export", "--db", "@new.db"}, 1, "does not exist"},
      {{"find", "--db", "@new.db"}, 1, "error: "},
      {{"export", "--db", "@garbage.db"}, 1, "not an Ombrel card database"},
  };
  for (Case c : cases) {
    for (auto& arg : c.args)
      if (arg.starts_with("@")) arg = Path(arg.substr(1));
    RunResult r = Run(c.args);
    SCOPED_TRACE(::testing::PrintToString(c.args));
    EXPECT_EQ(r.code, c.code);
    EXPECT_THAT(r.err, HasSubstr(c.err));
    EXPECT_EQ(r.err.rfind("error: ", 0), 0u);
    EXPECT_FALSE(fs::exists(Path("new.db")));
  }
  auto help = Run({"--help"});
  EXPECT_EQ(help.code, 0);
  for (const char* command : {"import", "export", "sample", "find", "apply"}) EXPECT_THAT(help.out, HasSubstr(command));
}

// Values, their order, images and importing an export again are the import
// and export code's business (jsonl tests); here the commands: counts, the
// next free ID, standard output or a file with its images beside it.
TEST_F(CommandTest, ImportAndExportToStandardOutputOrAFile) {
  const std::vector<uint8_t> png = BluePng();
  fs::create_directories(Path("pics"));
  std::ofstream(Path("pics/a.png"), std::ios::binary).write(reinterpret_cast<const char*>(png.data()), png.size());
  std::ofstream(Path("in.jsonl")) << R"({"id": 10, "values": {"Name": "Ann"}, "front_image": "pics/a.png"})"
                                  << "\n{\"values\": {\"Name\": \"José\"}}\n";
  auto imported = Run({"import", Path("in.jsonl"), "--db", Path("a.db")});
  ASSERT_EQ(imported.code, 0) << imported.err;
  EXPECT_THAT(imported.out, HasSubstr("imported 2 cards (1 images)"));
  auto exported = Run({"export", "--db", Path("a.db")});
  ASSERT_EQ(exported.code, 0) << exported.err;
  auto lines = Lines(exported.out);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0]["front_image"], jsonl::ImageDataUri({"png", png}));
  EXPECT_EQ(lines[1]["id"], 11);

  auto toFile = Run({"export", "--db", Path("a.db"), Path("out.jsonl")});
  ASSERT_EQ(toFile.code, 0) << toFile.err;
  EXPECT_EQ(Slurp(Path("out-images/10-front.png")), Slurp(Path("pics/a.png")));
}

class SampleCommandTest : public CommandTest {
 protected:
  // The exported cards of a sample database made (or extended) with these options.
  std::vector<Json> Sample(const std::string& db, const std::vector<std::string>& options) {
    std::vector<std::string> args = {"sample", "--db", Path(db)};
    args.insert(args.end(), options.begin(), options.end());
    auto made = Run(args);
    EXPECT_EQ(made.code, 0) << made.err;
    auto exported = Run({"export", "--db", Path(db)});
    EXPECT_EQ(exported.code, 0) << exported.err;
    return Lines(exported.out);
  }
};

TEST_F(SampleCommandTest, TheSameSeedGivesTheSameDatabase) {
  auto a = Sample("a.db", {"--cards", "800", "--no-images", "--seed", "7"});
  EXPECT_EQ(a, Sample("b.db", {"--cards", "800", "--no-images", "--seed", "7"}));
  EXPECT_NE(a, Sample("c.db", {"--cards", "800", "--no-images", "--seed", "8"}));
}

// Every card reads as a card (names agree, values in range, categories
// declared, text boxes on the card), and the search finds duplicates of
// every kind in the proportions a demo needs.
TEST_F(SampleCommandTest, CardsAreRealisticAndHoldDuplicatesOfEveryKind) {
  const int kCards = 4000;
  auto lines = Sample("s.db", {"--cards", std::to_string(kCards), "--no-images", "--seed", "11"});
  ASSERT_EQ(lines.size(), kCards + 1u);
  std::set<std::string> categories, customFields;
  for (const auto& c : lines[0]["database"]["categories"]) categories.insert(c.get<std::string>());
  for (const auto& f : lines[0]["database"]["custom_fields"]) customFields.insert(f["name"].get<std::string>());
  EXPECT_GE(categories.size(), 5u);
  EXPECT_TRUE(customFields.count("Nickname") && customFields.count("Birthday"));

  int noName = 0, accented = 0, labelled = 0, categorised = 0, customised = 0;
  for (size_t i = 1; i < lines.size(); ++i) {
    auto v = [&](const char* name) { return lines[i]["values"].value(name, std::string()); };
    const std::string name = v("Name"), first = v("First Name"), last = v("Last Name");
    SCOPED_TRACE(lines[i].dump());
    if (name.empty()) {
      ++noName;
      EXPECT_EQ(first + last, "");
    } else {
      EXPECT_TRUE(!last.empty() && name.find(last) != std::string::npos && name.find(first) != std::string::npos);
      accented += std::any_of(name.begin(), name.end(), [](char c) { return c & 0x80; });
    }
    int certainty = std::stoi(v("Certainty"));
    EXPECT_TRUE(certainty >= 0 && certainty <= 100 && (v("Verified") == "Yes" || v("Verified") == "No"));
    labelled += !v("Phone 1.Label").empty();
    customised += !v("Nickname").empty() || !v("Birthday").empty();
    std::istringstream cats(v("Categories"));
    for (std::string c; std::getline(cats, c, ',');) {
      EXPECT_TRUE(categories.count(c.substr(c.front() == ' '))) << c;
      ++categorised;
    }
    for (const auto& [key, value] : lines[i]["values"].items()) {
      if (!key.ends_with(".Rectangle")) continue;
      int l = -1, t = -1, r = -1, b = -1;
      std::istringstream(value.get<std::string>()) >> l >> t >> r >> b;
      EXPECT_TRUE(0 <= l && l < r && r <= 700 && 0 <= t && t < b && b <= 400) << key << " " << value;
    }
  }
  EXPECT_GT(accented, kCards / 20);
  EXPECT_GT(labelled, kCards / 3);
  EXPECT_GT(categorised, kCards / 3);
  EXPECT_GT(customised, kCards / 20);
  // About one card in twenty is a company's own card.
  EXPECT_GE(noName, kCards * 3 / 100);
  EXPECT_LE(noName, kCards * 7 / 100);

  auto found = Run({"find", "--db", Path("s.db"), "--type", "all", "--json"});
  ASSERT_EQ(found.code, 0) << found.err;
  std::map<std::string, int> dupes;
  for (const auto& set : Json::parse(found.out)) dupes[set["type"].get<std::string>()] += set["dupes"].size();
  EXPECT_GT(dupes["EXACT_DUPE"], kCards * 4 / 100);
  EXPECT_GT(dupes["COMPATIBLE_DUPE"], dupes["EXACT_DUPE"] + kCards * 3 / 100);
  EXPECT_GT(dupes["CONFLICT_DUPE"], dupes["COMPATIBLE_DUPE"] + kCards * 2 / 100);
  EXPECT_LT(dupes["CONFLICT_DUPE"], kCards * 22 / 100);
}

TEST_F(SampleCommandTest, EveryCardGetsAPictureAndTheDatabaseCanBeExtended) {
  auto lines = Sample("p.db", {"--cards", "6", "--seed", "2"});
  ASSERT_EQ(lines.size(), 7u);
  for (size_t i = 1; i < lines.size(); ++i) {
    const std::string uri = lines[i].value("front_image", std::string());
    ASSERT_EQ(uri.rfind("data:image/png;base64,", 0), 0u) << i;
    std::vector<uint8_t> png;
    ASSERT_TRUE(jsonl::DecodeBase64(uri.substr(22), png));
    auto be32 = [&](size_t at) { return png[at] << 24 | png[at + 1] << 16 | png[at + 2] << 8 | png[at + 3]; };
    EXPECT_EQ(std::to_string(be32(16)) + "x" + std::to_string(be32(20)), "700x400");  // the header's size
    EXPECT_FALSE(lines[i].contains("back_image"));
  }
  // A second run adds cards after the existing ones.
  lines = Sample("p.db", {"--cards", "3", "--seed", "2", "--no-images"});
  ASSERT_EQ(lines.size(), 10u);
  EXPECT_EQ(lines[9]["id"], 9);
  EXPECT_FALSE(lines[9].contains("front_image"));
}

}  // namespace
}  // namespace ombrel::clitest
