// End-to-end tests of `ombrel find` and `ombrel apply` on small databases
// with known answers, and of apply being killed at any moment.
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>
#include <string>
#include <thread>

#include "support/command_fixture.h"

using namespace ombrel::clitest;

namespace {

class CliTest : public CommandTest {
 protected:
  void SetUp() override {
    CommandTest::SetUp();
    db_ = Path("cards.db").string();
  }

  void Import(const std::string& jsonl) {
    fs::path file = dir_ / "in.jsonl";
    std::ofstream(file) << jsonl;
    RunResult r = RunLine("import " + file.string() + " --db " + db_);
    ASSERT_EQ(r.code, 0) << r.err;
  }

  std::string db_;
};

// Two Smiths that are exact copies, a third that adds a phone and a fax, two
// Joneses whose titles differ, and one card with no duplicate.
const char* kSmallDatabase = R"({"id": 1, "values": {"Name": "John Smith", "First Name": "John", "Last Name": "Smith", "Title": "CEO", "Company": "Acme", "Email": "j@acme.com", "Web Page": "www.acme.com"}}
{"id": 2, "values": {"Name": "John Smith", "First Name": "John", "Last Name": "Smith", "Title": "CEO", "Company": "Acme", "Email": "j@acme.com", "Web Page": "www.acme.com"}}
{"id": 3, "values": {"Name": "John Smith", "First Name": "John", "Last Name": "Smith", "Title": "CEO", "Company": "Acme", "Email": "j@acme.com", "Phone": "555 1234", "Fax": "555 9999"}}
{"id": 4, "values": {"Name": "Mary Jones", "First Name": "Mary", "Last Name": "Jones", "Title": "Manager", "Email": "m@y.com"}}
{"id": 5, "values": {"Name": "Mary Jones", "First Name": "Mary", "Last Name": "Jones", "Title": "Engineer", "Email": " M@Y.com"}}
{"id": 6, "values": {"Name": "Bob Stone", "First Name": "Bob", "Last Name": "Stone", "Email": "bob@stone.org"}}
)";

std::string Compact(const std::string& json) { return nlohmann::json::parse(json).dump(); }

TEST_F(CliTest, FindJsonGivesEveryTypeInOrder) {
  Import(kSmallDatabase);
  RunResult r = RunLine("find --db " + db_ + " --type all --json");
  ASSERT_EQ(r.code, 0) << r.err;
  // Card 3 adds two fields, so it is no exact copy and it leads the
  // compatible set (more filled fields); the Joneses' e-mails differ only in
  // case and blanks, and the longer Engineer card stays their primary.
  EXPECT_EQ(Compact(r.out),
            R"([{"dupes":[2],"primary":1,"type":"EXACT_DUPE"},)"
            R"({"dupes":[2,1],"primary":3,"type":"COMPATIBLE_DUPE"},)"
            R"({"dupes":[4],"primary":5,"type":"CONFLICT_DUPE"},)"
            R"({"dupes":[2,1],"primary":3,"type":"CONFLICT_DUPE"}])");

  RunResult exact = RunLine("find --db " + db_ + " --type exact");
  ASSERT_EQ(exact.code, 0) << exact.err;
  EXPECT_NE(exact.out.find("Dupe set type: EXACT_DUPE\r\nNumber of cards in dupe set: 2\r\n"
                           "Primary card: John Smith\r\nDupe 1: John Smith\r\n"),
            std::string::npos)
      << exact.out;
  EXPECT_NE(exact.out.find("Duplicate cards: 1"), std::string::npos);
}

TEST_F(CliTest, ApplyRemovesExactAndMergesCompatible) {
  Import(kSmallDatabase);
  RunResult refused = RunLine("apply --db " + db_ + " --action remove-exact");
  EXPECT_EQ(refused.code, 1);
  EXPECT_NE(refused.err.find("--yes"), std::string::npos) << refused.err;

  RunResult removed = RunLine("apply --db " + db_ + " --action remove-exact --yes");
  ASSERT_EQ(removed.code, 0) << removed.err;
  RunResult merged = RunLine("apply --db " + db_ + " --action merge-compatible --yes");
  ASSERT_EQ(merged.code, 0) << merged.err;

  RunResult exported = RunLine("export --db " + db_);
  ASSERT_EQ(exported.code, 0) << exported.err;
  std::map<int, nlohmann::json> cards;
  std::istringstream lines(exported.out);
  for (std::string line; std::getline(lines, line);) {
    auto j = nlohmann::json::parse(line);
    if (j.contains("id")) cards[j["id"].get<int>()] = j["values"];
  }
  ASSERT_EQ(cards.size(), 4u);  // 1 and 2 merged into 3
  EXPECT_FALSE(cards.count(1));
  EXPECT_FALSE(cards.count(2));
  const auto& smith = cards[3];
  EXPECT_EQ(smith["Web Page"], "www.acme.com");  // taken over from the merged card
  EXPECT_EQ(smith["Phone"], "555 1234");
  EXPECT_EQ(smith["Email"], "j@acme.com");
  EXPECT_EQ(smith["Web Page.Confidence Levels"], "100 100");
  EXPECT_EQ(smith["Title.Rectangle"], "0 0 0 0");
  EXPECT_EQ(cards[4]["Title"], "Manager");  // conflicting cards are left alone

  RunResult again = RunLine("find --db " + db_ + " --type compatible --json");
  EXPECT_EQ(Compact(again.out), "[]");
}

TEST_F(CliTest, FailuresAndUsage) {
  RunResult missing = RunLine("find --db " + (dir_ / "none.db").string());
  EXPECT_EQ(missing.code, 1);
  EXPECT_EQ(missing.err.rfind("error: ", 0), 0u) << missing.err;
  EXPECT_EQ(RunLine("find").code, 2);
  EXPECT_EQ(RunLine("apply --db " + db_ + " --action shuffle").code, 2);

  // A card whose name does not hold its last name cannot be read: the
  // system's message is printed unchanged, with the card that broke it.
  Import(R"({"id": 7, "values": {"Name": "Ann Leigh", "First Name": "Ann", "Last Name": "Leigh"}}
{"id": 8, "values": {"Name": "Ann Lee", "First Name": "Ann", "Last Name": "Leigh"}}
)");
  RunResult broken = RunLine("find --db " + db_);
  EXPECT_EQ(broken.code, 1);
  EXPECT_NE(broken.err.find("Name field does not contain given last name: Leigh"), std::string::npos) << broken.err;
  EXPECT_NE(broken.err.find("card 8"), std::string::npos) << broken.err;
}

bool IntegrityOk(const std::string& path) {
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) return false;
  sqlite3_stmt* st = nullptr;
  bool ok = sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &st, nullptr) == SQLITE_OK &&
            sqlite3_step(st) == SQLITE_ROW &&
            std::string(reinterpret_cast<const char*>(sqlite3_column_text(st, 0))) == "ok";
  sqlite3_finalize(st);
  sqlite3_close(db);
  return ok;
}

TEST_F(CliTest, KilledApplyLeavesASoundDatabaseAndFinishesOnRerun) {
  ASSERT_EQ(RunLine("sample --cards 3000 --no-images --seed 11 --db " + db_).code, 0);

  std::mt19937 rng(5);
  for (int round = 0; round < 6; ++round) {
    pid_t pid = fork();
    if (pid == 0) {
      FILE* ignored = std::freopen("/dev/null", "w", stdout);
      (void)ignored;
      execl(Binary().c_str(), Binary().c_str(), "apply", "--db", db_.c_str(), "--action", "merge-compatible", "--yes",
            static_cast<char*>(nullptr));
      _exit(127);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(std::uniform_int_distribution<int>(30, 400)(rng)));
    kill(pid, SIGKILL);
    int status = 0;
    waitpid(pid, &status, 0);
    ASSERT_TRUE(IntegrityOk(db_)) << "after kill round " << round;
  }
  RunResult finish = RunLine("apply --db " + db_ + " --action merge-compatible --yes");
  ASSERT_EQ(finish.code, 0) << finish.err;
  EXPECT_TRUE(IntegrityOk(db_));
  // The job is finished: no compatible duplicates are left. (Which card of a
  // set survives may differ from an uninterrupted run: the second search
  // reads a store the first one already changed.)
  EXPECT_EQ(Compact(RunLine("find --db " + db_ + " --type compatible --json").out), "[]");
}

}  // namespace
