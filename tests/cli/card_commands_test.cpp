// The card database commands (import, export, sample) as a user runs them:
// exit codes, messages, round trips through files, and what the demo
// generator produces.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/command_fixture.h"

namespace ombrel::clitest {
namespace {

// Command runs whose output is .jsonl.
class CardCommandTest : public CommandTest {
 protected:
  // The lines of a .jsonl text, parsed.
  static std::vector<nlohmann::ordered_json> Lines(const std::string& text) {
    std::vector<nlohmann::ordered_json> lines;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
      if (!line.empty()) lines.push_back(nlohmann::ordered_json::parse(line));
    }
    return lines;
  }
};

using ::testing::HasSubstr;
using Json = nlohmann::ordered_json;

class ImportExportCommandTest : public CardCommandTest {
 protected:
  fs::path WriteJsonl(const std::string& name, const std::vector<Json>& lines) {
    std::ofstream out(Path(name), std::ios::binary);
    for (const auto& l : lines) out << l.dump() << "\n";
    return Path(name);
  }
};

TEST_F(ImportExportCommandTest, HelpUsageErrorsAndFailuresHaveTheirExitCodes) {
  auto help = Run({"--help"});
  EXPECT_EQ(help.code, 0);
  for (const char* command : {"import", "export", "sample"}) {
    EXPECT_THAT(help.out, HasSubstr(command));
  }

  auto none = Run({});
  EXPECT_EQ(none.code, 2);
  EXPECT_THAT(none.err, HasSubstr("error: "));
  auto missing = Run({"import", "x.jsonl"});
  EXPECT_EQ(missing.code, 2);
  EXPECT_THAT(missing.err, HasSubstr("--db"));
  EXPECT_EQ(Run({"sample", "--cards", "-5", "--db", Path("s.db").string()}).code, 2);
  EXPECT_EQ(Run({"export", "--db", "a.db", "--colour", "red"}).code, 2);
  EXPECT_EQ(Run({"frobnicate"}).code, 2);
  EXPECT_FALSE(fs::exists(Path("s.db")));

  auto noFile = Run({"import", Path("absent.jsonl").string(), "--db", Path("new.db").string()});
  EXPECT_EQ(noFile.code, 1);
  EXPECT_THAT(noFile.err, HasSubstr("error: cannot open"));
  EXPECT_FALSE(fs::exists(Path("new.db"))) << "a failed import leaves no database behind";

  auto noDb = Run({"export", "--db", Path("absent.db").string()});
  EXPECT_EQ(noDb.code, 1);
  EXPECT_THAT(noDb.err, HasSubstr("does not exist"));
  EXPECT_FALSE(fs::exists(Path("absent.db")));

  std::ofstream(Path("garbage.db")) << std::string(4096, 'x');
  auto garbage = Run({"export", "--db", Path("garbage.db").string()});
  EXPECT_EQ(garbage.code, 1);
  EXPECT_THAT(garbage.err, HasSubstr("not an Ombrel card database"));
}

TEST_F(ImportExportCommandTest, ImportExportAndImportAgainGiveTheSameDatabase) {
  const std::vector<uint8_t> png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 0, 0, 0, 13, 'I', 'H', 'D', 'R'};
  fs::create_directories(Path("pics"));
  std::ofstream(Path("pics") / "a.png", std::ios::binary).write(reinterpret_cast<const char*>(png.data()), png.size());
  Json db = {{"database",
              {{"custom_fields",
                {{{"name", "Nickname"}, {"type", "TEXT"}, {"visibility", "VISIBLE"}, {"access", "READWRITE"}}}},
               {"categories", {"Business", "Friends"}}}}};
  Json card1 = {{"id", 10},
                {"values",
                 {{"Name", " Ségolène Łukasz-Müller "},
                  {"First Name", "Ségolène"},
                  {"Last Name", "Łukasz-Müller"},
                  {"Notes", "two\r\nlines"},
                  {"Phone 1", "555 1234"},
                  {"Phone 1.Label", "Mobile"},
                  {"Nickname", "Sé"}}},
                {"front_image", "pics/a.png"}};
  Json card2 = {{"values", {{"Name", "José"}, {"Email", "J@X.com"}}}};
  auto file = WriteJsonl("in.jsonl", {db, card1, card2});

  auto imported = Run({"import", file.string(), "--db", Path("a.db").string()});
  ASSERT_EQ(imported.code, 0) << imported.err;
  EXPECT_THAT(imported.out, HasSubstr("imported 2 cards (1 images)"));

  auto exported = Run({"export", "--db", Path("a.db").string()});
  ASSERT_EQ(exported.code, 0) << exported.err;
  auto lines = Lines(exported.out);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0], db);
  EXPECT_EQ(lines[1]["values"], card1["values"]);
  EXPECT_EQ(lines[1]["front_image"].get<std::string>().rfind("data:image/png;base64,", 0), 0u);
  EXPECT_EQ(lines[2]["id"], 11);
  EXPECT_EQ(lines[2]["values"], card2["values"]);

  // To a file: images beside it; importing that file reproduces the export.
  auto toFile = Run({"export", "--db", Path("a.db").string(), Path("out.jsonl").string()});
  ASSERT_EQ(toFile.code, 0) << toFile.err;
  EXPECT_EQ(Slurp(Path("out-images") / "10-front.png"), Slurp(Path("pics") / "a.png"));
  ASSERT_EQ(Run({"import", Path("out.jsonl").string(), "--db", Path("b.db").string()}).code, 0);
  EXPECT_EQ(Run({"export", "--db", Path("b.db").string()}).out, exported.out);

}

// ---- ombrel sample ------------------------------------------------------------

class SampleCommandTest : public CardCommandTest {
 protected:
  std::vector<Json> Sample(const std::string& db, const std::vector<std::string>& extra) {
    std::vector<std::string> args = {"sample", "--db", Path(db).string()};
    args.insert(args.end(), extra.begin(), extra.end());
    auto made = Run(args);
    EXPECT_EQ(made.code, 0) << made.err;
    auto exported = Run({"export", "--db", Path(db).string()});
    EXPECT_EQ(exported.code, 0) << exported.err;
    return Lines(exported.out);
  }
  static std::string V(const Json& card, const char* name) {
    return card["values"].contains(name) ? card["values"][name].get<std::string>() : std::string();
  }
  static std::vector<int> Numbers(const std::string& text) {
    std::vector<int> numbers;
    std::istringstream in(text);
    std::string token;
    while (std::getline(in, token, ' ')) numbers.push_back(std::stoi(token));
    return numbers;
  }
};

TEST_F(SampleCommandTest, TheSameSeedGivesTheSameDatabase) {
  auto a = Run({"sample", "--cards", "800", "--no-images", "--seed", "7", "--db", Path("a.db").string()});
  ASSERT_EQ(a.code, 0) << a.err;
  ASSERT_EQ(Run({"sample", "--cards", "800", "--no-images", "--seed", "7", "--db", Path("b.db").string()}).code, 0);
  ASSERT_EQ(Run({"sample", "--cards", "800", "--no-images", "--seed", "8", "--db", Path("c.db").string()}).code, 0);
  auto exportA = Run({"export", "--db", Path("a.db").string()}).out;
  EXPECT_EQ(exportA, Run({"export", "--db", Path("b.db").string()}).out);
  EXPECT_NE(exportA, Run({"export", "--db", Path("c.db").string()}).out);
}

TEST_F(SampleCommandTest, CardsAreRealisticAndHoldDuplicatesOfEveryKind) {
  const int kCards = 5000;
  auto lines = Sample("s.db", {"--cards", std::to_string(kCards), "--no-images", "--seed", "11"});
  ASSERT_EQ(lines.size(), kCards + 1u);
  const Json& db = lines[0]["database"];
  std::set<std::string> categories, customFields;
  for (const auto& c : db["categories"]) categories.insert(c.get<std::string>());
  for (const auto& f : db["custom_fields"]) customFields.insert(f["name"].get<std::string>());
  EXPECT_GE(categories.size(), 5u);
  EXPECT_TRUE(customFields.count("Nickname") && customFields.count("Birthday"));

  std::map<std::string, std::vector<const Json*>> byName;
  int noName = 0, accented = 0, labelled = 0, categorised = 0, customised = 0;
  for (size_t i = 1; i < lines.size(); ++i) {
    const Json& card = lines[i];
    std::string name = V(card, "Name"), first = V(card, "First Name"), last = V(card, "Last Name");
    if (name.empty()) {
      ++noName;
      EXPECT_EQ(first + last, "") << card.dump();
    } else {
      EXPECT_FALSE(last.empty()) << name;
      EXPECT_NE(name.find(last), std::string::npos) << name << " / " << last;
      EXPECT_NE(name.find(first), std::string::npos) << name << " / " << first;
      byName[name].push_back(&card);
      accented += std::any_of(name.begin(), name.end(), [](char c) { return c & 0x80; });
    }
    int certainty = std::stoi(V(card, "Certainty"));
    EXPECT_TRUE(certainty >= 0 && certainty <= 100);
    EXPECT_TRUE(V(card, "Verified") == "Yes" || V(card, "Verified") == "No");
    labelled += !V(card, "Phone 1.Label").empty();
    customised += !V(card, "Nickname").empty() || !V(card, "Birthday").empty();
    std::istringstream cats(V(card, "Categories"));
    for (std::string c; std::getline(cats, c, ',');) {
      if (c.front() == ' ') c.erase(0, 1);
      EXPECT_TRUE(categories.count(c)) << c;
      ++categorised;
    }
    for (const auto& [key, value] : card["values"].items()) {
      std::string v = value.get<std::string>();
      if (key.ends_with(".Rectangle")) {
        auto r = Numbers(v);
        ASSERT_EQ(r.size(), 4u) << v;
        EXPECT_TRUE(0 <= r[0] && r[0] < r[2] && r[2] <= 700 && 0 <= r[1] && r[1] < r[3] && r[3] <= 400) << v;
      }
    }
  }
  EXPECT_GT(accented, kCards / 20);
  EXPECT_GT(labelled, kCards / 3);
  EXPECT_GT(categorised, kCards / 3);
  EXPECT_GT(customised, kCards / 20);
  EXPECT_GE(noName, 2);
  EXPECT_LE(noName, kCards / 100);

  // Cards after the first of their name: the duplicates, plus chance collisions.
  int later = 0, exact = 0, compatible = 0, conflicting = 0, strangers = 0;
  auto plain = [](const Json& c) {
    Json v = c["values"];
    for (auto it = v.begin(); it != v.end();) {
      std::string k = it.key();
      bool geometry = k.ends_with(".Rectangle") || k.ends_with(".Confidence Levels") || k.ends_with(".Suspect Info");
      it = geometry || k == "Certainty" || k == "Creation Date" || k == "Modified Date" ? v.erase(it) : ++it;
    }
    return v;
  };
  for (const auto& [name, cards] : byName) {
    const Json& first = *cards[0];
    for (size_t i = 1; i < cards.size(); ++i) {
      const Json& other = *cards[i];
      ++later;
      Json a = plain(first), b = plain(other);
      auto lower = [](std::string t) {
        std::transform(t.begin(), t.end(), t.begin(), [](unsigned char c) { return std::tolower(c); });
        return t;
      };
      bool sameMail = !V(first, "Email").empty() && lower(V(first, "Email")) == lower(V(other, "Email"));
      if (first["values"] == other["values"]) {
        ++exact;
      } else if (a != b && std::all_of(a.items().begin(), a.items().end(), [&](const auto& kv) {
                   return b.contains(kv.key()) && b[kv.key()] == kv.value();
                 })) {
        ++compatible;  // everything the first has, the second has too, and more
      } else if (V(first, "Title") != V(other, "Title") && sameMail && V(first, "Email") != V(other, "Email")) {
        ++conflicting;  // another title and the e-mail in other letter case
      } else if (V(first, "Company") != V(other, "Company") && V(first, "Phone") != V(other, "Phone")) {
        ++strangers;
      }
    }
  }
  EXPECT_GT(later, kCards * 12 / 100);
  EXPECT_LT(later, kCards * 22 / 100);
  EXPECT_GT(exact, kCards * 4 / 100);
  EXPECT_GT(compatible, kCards * 3 / 100);
  EXPECT_GT(conflicting, kCards * 2 / 100);
  EXPECT_LT(strangers, kCards * 3 / 100);

}

TEST_F(SampleCommandTest, EveryCardGetsAPictureAndTheDatabaseCanBeExtended) {
  auto lines = Sample("p.db", {"--cards", "6", "--seed", "2"});
  ASSERT_EQ(lines.size(), 7u);
  for (size_t i = 1; i < lines.size(); ++i) {
    ASSERT_TRUE(lines[i].contains("front_image")) << i;
    std::string uri = lines[i]["front_image"];
    ASSERT_EQ(uri.rfind("data:image/png;base64,", 0), 0u);
    // Width and height from the PNG header (bytes 16..23), decoded from base64.
    std::string header = uri.substr(22, 32);
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::vector<uint8_t> bytes;
    for (size_t k = 0; k + 4 <= header.size(); k += 4) {
      uint32_t n = 0;
      for (int j = 0; j < 4; ++j) n = (n << 6) | static_cast<uint32_t>(alphabet.find(header[k + j]));
      bytes.insert(bytes.end(), {uint8_t(n >> 16), uint8_t(n >> 8), uint8_t(n)});
    }
    auto be32 = [&](size_t at) { return bytes[at] << 24 | bytes[at + 1] << 16 | bytes[at + 2] << 8 | bytes[at + 3]; };
    EXPECT_EQ(be32(16), 700);
    EXPECT_EQ(be32(20), 400);
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
