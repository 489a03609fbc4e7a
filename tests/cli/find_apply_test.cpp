// End-to-end tests of `ombrel find` and `ombrel apply` on small databases
// with known answers, and of apply being killed at any moment.
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>
#include <string>
#include <thread>

#include "support/command_fixture.h"

namespace ombrel::clitest {
namespace {

class CliTest : public CommandTest {
 protected:
  void SetUp() override {
    CommandTest::SetUp();
    db_ = Path("cards.db");
  }
  void Import(const std::string& jsonl) {
    std::ofstream(Path("in.jsonl")) << jsonl;
    RunResult r = Run({"import", Path("in.jsonl"), "--db", db_});
    ASSERT_EQ(r.code, 0) << r.err;
  }
  // The output of find as compact JSON.
  std::string FindJson(const std::string& type) {
    RunResult r = Run({"find", "--db", db_, "--type", type, "--json"});
    EXPECT_EQ(r.code, 0) << r.err;
    return nlohmann::json::parse(r.out).dump();
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

TEST_F(CliTest, FindGivesEveryTypeInOrder) {
  Import(kSmallDatabase);
  // Card 3 adds two fields, so it is no exact copy and it leads the
  // compatible set (more filled fields); the Joneses' e-mails differ only in
  // case and blanks, and the longer Engineer card stays their primary.
  EXPECT_EQ(FindJson("all"),
            R"([{"dupes":[2],"primary":1,"type":"EXACT_DUPE"},)"
            R"({"dupes":[2,1],"primary":3,"type":"COMPATIBLE_DUPE"},)"
            R"({"dupes":[4],"primary":5,"type":"CONFLICT_DUPE"},)"
            R"({"dupes":[2,1],"primary":3,"type":"CONFLICT_DUPE"}])");
  RunResult exact = Run({"find", "--db", db_, "--type", "exact"});
  ASSERT_EQ(exact.code, 0) << exact.err;
  EXPECT_NE(exact.out.find("Dupe set type: EXACT_DUPE\nNumber of cards in dupe set: 2\n"
                           "Primary card: John Smith\nDupe 1: John Smith\n"),
            std::string::npos)
      << exact.out;
  EXPECT_EQ(exact.out.find('\r'), std::string::npos);
  EXPECT_NE(exact.out.find("Duplicate cards: 1"), std::string::npos);
}

TEST_F(CliTest, ApplyRemovesExactAndMergesCompatible) {
  Import(kSmallDatabase);
  // apply changes the database: without --yes and without a terminal it refuses.
  RunResult refused = Run({"apply", "--db", db_, "--action", "remove-exact"});
  EXPECT_EQ(refused.code, 1);
  EXPECT_NE(refused.err.find("--yes"), std::string::npos) << refused.err;
  for (const char* action : {"remove-exact", "merge-compatible"}) {
    RunResult r = Run({"apply", "--db", db_, "--action", action, "--yes"});
    ASSERT_EQ(r.code, 0) << r.err;
  }
  RunResult exported = Run({"export", "--db", db_});
  ASSERT_EQ(exported.code, 0) << exported.err;
  std::string cards;
  for (const Json& card : Lines(exported.out))
    cards += std::to_string(card["id"].get<int>()) + " " + card["values"].value("Title", "") + " " +
             card["values"].value("Web Page", "") + "\n";
  // 1 and 2 merged into 3, which took the web page; the conflicting Joneses are left alone.
  EXPECT_EQ(cards, "3 CEO www.acme.com\n4 Manager \n5 Engineer \n6  \n");
  EXPECT_EQ(FindJson("compatible"), "[]");
}

// A card that got into the database without the import's checks stops find,
// which names the card (the import's refusal is the jsonl tests' business).
TEST_F(CliTest, AnUnreadableCardIsNamedByFind) {
  Import(R"({"id": 7, "values": {"Name": "Ann Lee", "First Name": "Ann", "Last Name": "Lee"}}
{"id": 8, "values": {"Name": "Ann Lee", "First Name": "Ann", "Last Name": "Lee"}}
)");
  RunSql(db_, "UPDATE cards SET vals = CAST(replace(CAST(vals AS TEXT), 'Ann Lee', 'Ann Bee') AS BLOB) WHERE id = 8");
  RunResult broken = Run({"find", "--db", db_});
  EXPECT_EQ(broken.code, 1);
  EXPECT_NE(broken.err.find("Name field does not contain given last name: Lee"), std::string::npos) << broken.err;
  EXPECT_NE(broken.err.find("card 8"), std::string::npos) << broken.err;
  EXPECT_EQ(broken.err.find('\r'), std::string::npos) << broken.err;
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
  ASSERT_EQ(Run({"sample", "--cards", "3000", "--no-images", "--seed", "11", "--db", db_}).code, 0);
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
  RunResult finish = Run({"apply", "--db", db_, "--action", "merge-compatible", "--yes"});
  ASSERT_EQ(finish.code, 0) << finish.err;
  EXPECT_TRUE(IntegrityOk(db_));
  // The job is finished: no compatible duplicates are left. (Which card of a
  // set survives may differ from an uninterrupted run: the second search
  // reads a store the first one already changed.)
  EXPECT_EQ(FindJson("compatible"), "[]");
}

}  // namespace
}  // namespace ombrel::clitest
