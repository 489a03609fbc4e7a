// What a careless or hostile user does to the commands: odd targets, full
// disks, read-only and damaged databases, Ctrl-C at a question, names that
// hold terminal controls, two commands at once. Nothing may lose data, hang
// or end in a wrong success.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "support/command_fixture.h"

namespace ombrel::clitest {
namespace {

using ::testing::HasSubstr;

class FaultTest : public CommandTest {
 protected:
  void SetUp() override {
    CommandTest::SetUp();
    db_ = Path("cards.db");
    ASSERT_EQ(Run({"sample", "--cards", "300", "--no-images", "--seed", "4", "--db", db_}).code, 0);
  }
  std::string db_;
};

// However the path names the database or the files SQLite keeps beside it,
// export refuses it and the database stays whole; a device or a pipe is
// written in place and stays what it is; a link is written through.
TEST_F(FaultTest, ExportKeepsTheDatabaseAndSpecialFilesAndFollowsLinks) {
  const std::string before = Slurp(db_);
  fs::create_symlink(db_, Path("link.db"));
  fs::create_hard_link(db_, Path("hard.db"));
  for (const std::string& target : {db_, Path("./cards.db"), Path("link.db"), Path("hard.db"), Path("x/../cards.db"),
                                   db_ + "-wal", db_ + "-shm", db_ + "-journal"}) {
    fs::create_directories(Path("x"));
    RunResult r = Run({"export", "--db", db_, target});
    EXPECT_EQ(r.code, 1) << target;
    EXPECT_THAT(r.err, HasSubstr("database being exported")) << target;
  }
  EXPECT_EQ(Slurp(db_), before);
  EXPECT_FALSE(fs::exists(db_ + "-journal"));

  RunResult full = Run({"export", "--db", db_, "/dev/full"});
  EXPECT_EQ(full.code, 1);
  EXPECT_THAT(full.err, HasSubstr("cannot write '/dev/full'"));
  EXPECT_TRUE(fs::is_character_file("/dev/full"));
  EXPECT_FALSE(fs::exists("/dev/full-images"));

  // The pipe's reader never waits for a writer that might not come.
  ASSERT_EQ(mkfifo(Path("pipe.jsonl").c_str(), 0600), 0);
  const int pipe = open(Path("pipe.jsonl").c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_GE(pipe, 0);
  auto exporting = std::async(std::launch::async, [&] { return Run({"export", "--db", db_, Path("pipe.jsonl")}); });
  std::string received;
  char buffer[65536];
  for (bool done = false;;) {
    const ssize_t n = read(pipe, buffer, sizeof buffer);
    if (n > 0) {
      received.append(buffer, static_cast<size_t>(n));
    } else if (done) {
      break;
    } else {
      done = exporting.wait_for(std::chrono::milliseconds(20)) == std::future_status::ready;
    }
  }
  close(pipe);
  RunResult piped = exporting.get();
  EXPECT_EQ(piped.code, 0) << piped.err;
  EXPECT_EQ(Lines(received).size(), 301u);
  EXPECT_TRUE(fs::is_fifo(Path("pipe.jsonl")));
  EXPECT_FALSE(fs::exists(Path("pipe-images")));

  std::ofstream(Path("real.jsonl")) << "old";
  fs::create_symlink("real.jsonl", Path("alias.jsonl"));
  ASSERT_EQ(Run({"export", "--db", db_, Path("alias.jsonl")}).code, 0);
  EXPECT_TRUE(fs::is_symlink(Path("alias.jsonl")));
  EXPECT_EQ(Lines(Slurp(Path("real.jsonl"))).size(), 301u);
}

// Output that cannot be written fails the command (exit 1), whatever writes it.
TEST_F(FaultTest, OutputThatCannotBeWrittenFailsTheCommand) {
  for (std::vector<std::string> args : std::vector<std::vector<std::string>>{
           {"find", "--db", db_}, {"find", "--db", db_, "--json"}, {"export", "--db", db_}, {"--help"}}) {
    RunResult r = Run(args, "/dev/full");
    EXPECT_EQ(r.code, 1) << args[0];
    EXPECT_THAT(r.err, HasSubstr("error: cannot write")) << args[0];
  }
}

// A command that fails leaves the file it found as it found it: an empty
// file stays empty, a missing one missing, a database its bytes.
TEST_F(FaultTest, AFailedWritingCommandLeavesTheFileAsItFoundIt) {
  std::ofstream(Path("bad.jsonl")) << R"({"id": 1, "values": {"Name": "A"}})" "\n" R"({"id": 1})" "\n";
  std::ofstream(Path("empty.db")).close();
  for (const std::string& db : {Path("empty.db"), Path("missing.db"), db_}) {
    const bool existed = fs::exists(db);
    const std::string before = existed ? Slurp(db) : "";
    EXPECT_EQ(Run({"import", Path("bad.jsonl"), "--db", db}).code, 1) << db;
    EXPECT_EQ(fs::exists(db), existed) << db;
    if (existed) {
      EXPECT_EQ(Slurp(db), before) << db;
    }
    for (const char* side : {"-wal", "-shm", "-journal"}) EXPECT_FALSE(fs::exists(db + side)) << db << side;
  }
}

// A file that cannot be damaged further is not written to: the first write
// checks it.
TEST_F(FaultTest, ADamagedDatabaseIsRefusedBeforeAnythingIsWritten) {
  // A page of the card table overwritten in the middle of the file.
  {
    std::fstream f(db_, std::ios::in | std::ios::out | std::ios::binary);
    f.seekp(static_cast<std::streamoff>(fs::file_size(db_) / 2 / 4096 * 4096));
    f << std::string(4096, '\x5a');
  }
  const std::string before = Slurp(db_);
  std::ofstream(Path("one.jsonl")) << R"({"values": {"Name": "New"}})" << "\n";
  for (std::vector<std::string> args : std::vector<std::vector<std::string>>{
           {"import", Path("one.jsonl"), "--db", db_},
           {"sample", "--cards", "2", "--no-images", "--db", db_},
           {"apply", "--db", db_, "--action", "remove-exact", "--yes"}}) {
    RunResult r = Run(args);
    EXPECT_EQ(r.code, 1) << args[0];
    EXPECT_THAT(r.err, ::testing::AnyOf(HasSubstr("is damaged"), HasSubstr("malformed"))) << args[0] << r.err;
  }
  EXPECT_EQ(Slurp(db_), before);
}

// Reading commands open the database read-only: a read-only file in a
// folder the user cannot write is read, and nothing is left beside it.
TEST_F(FaultTest, AReadOnlyDatabaseIsReadWithoutATrace) {
  if (geteuid() == 0 && std::system("command -v setpriv >/dev/null") != 0) GTEST_SKIP() << "no setpriv to drop root";
  const std::string expected = Run({"find", "--db", db_, "--json"}).out;
  fs::create_directories(Path("ro"));
  fs::copy_file(db_, Path("ro/cards.db"));
  fs::permissions(Path("ro/cards.db"), fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
  fs::permissions(Path("ro"), fs::perms::owner_read | fs::perms::owner_exec | fs::perms::group_read |
                                  fs::perms::group_exec | fs::perms::others_read | fs::perms::others_exec);
  // Root may write anything: the commands run as nobody then, writing their
  // outputs into the test's folder.
  fs::permissions(dir_.Path(), fs::perms::all);
  fs::remove(Path("stdout.txt"));
  fs::remove(Path("stderr.txt"));
  const std::string as = geteuid() == 0 ? "setpriv --reuid=65534 --regid=65534 --clear-groups " : "";
  RunResult found = Run({"find", "--db", Path("ro/cards.db"), "--json"}, "", as);
  EXPECT_EQ(found.code, 0) << found.err;
  EXPECT_EQ(found.out, expected);
  RunResult exported = Run({"export", "--db", Path("ro/cards.db")}, "", as);
  EXPECT_EQ(exported.code, 0) << exported.err;
  RunResult applied = Run({"apply", "--db", Path("ro/cards.db"), "--action", "remove-exact", "--yes"}, "", as);
  EXPECT_EQ(applied.code, 1);
  EXPECT_THAT(applied.err, HasSubstr("cannot be written"));
  fs::permissions(Path("ro"), fs::perms::all);
  EXPECT_EQ(std::vector<fs::path>(fs::directory_iterator(Path("ro")), {}), std::vector<fs::path>{Path("ro/cards.db")});
}

// Ctrl-C at apply's question cancels at once and changes nothing.
TEST_F(FaultTest, CtrlCAtApplysQuestionCancelsAtOnce) {
  const std::string before = Slurp(db_);
  int terminal = -1;
  const pid_t pid = forkpty(&terminal, nullptr, nullptr, nullptr);
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    execl(Binary().c_str(), Binary().c_str(), "apply", "--db", db_.c_str(), "--action", "remove-exact",
          static_cast<char*>(nullptr));
    _exit(127);
  }
  std::string shown;
  char buffer[256];
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (shown.find("[y/N]") == std::string::npos && std::chrono::steady_clock::now() < deadline) {
    const ssize_t n = read(terminal, buffer, sizeof buffer);
    if (n <= 0) break;
    shown.append(buffer, static_cast<size_t>(n));
  }
  ASSERT_NE(shown.find("[y/N]"), std::string::npos) << shown;
  kill(pid, SIGINT);
  int status = 0;
  for (int waited = 0; waited < 50 && waitpid(pid, &status, WNOHANG) == 0; ++waited)
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  if (waitpid(pid, &status, WNOHANG) == 0) {
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
    ADD_FAILURE() << "apply kept waiting for an answer after Ctrl-C";
  }
  close(terminal);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 130) << status;
  EXPECT_EQ(Slurp(db_), before);
}

// Names are shown with their control characters escaped: a name cannot
// colour the terminal or forge lines of the report.
TEST_F(FaultTest, NamesCannotForgeLinesOrColoursInTheReport) {
  const std::string card =
      R"("values": {"Name": "Eve\u001b[31m Red\r\nDupe 2: forged\u009b", "First Name": "Eve", "Last Name": "Red"}})";
  std::ofstream(Path("evil.jsonl")) << "{\"id\": 1, " << card << "\n{\"id\": 2, " << card << "\n";
  ASSERT_EQ(Run({"import", Path("evil.jsonl"), "--db", Path("evil.db")}).code, 0);
  RunResult r = Run({"find", "--db", Path("evil.db"), "--type", "exact"});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_THAT(r.out, HasSubstr("Primary card: Eve\\x1b[31m Red\\r\\nDupe 2: forged\\u009b\n"));
  for (char c : r.out) EXPECT_TRUE(c == '\n' || static_cast<unsigned char>(c) >= 0x20) << static_cast<int>(c);
}

// Two applies at once: the second waits for the first, then finds what is
// left; between them they report each card merged once.
TEST_F(FaultTest, TwoAppliesAtOnceMergeEachCardOnce) {
  ASSERT_EQ(Run({"sample", "--cards", "3000", "--no-images", "--seed", "9", "--db", Path("big.db")}).code, 0);
  const auto sets = nlohmann::json::parse(Run({"find", "--db", Path("big.db"), "--type", "compatible", "--json"}).out);
  size_t found = 0;
  for (const auto& set : sets) found += set["dupes"].size();
  ASSERT_GT(found, 0u);
  const std::string apply = Quote(Binary()) + " apply --db " + Quote(Path("big.db")) + " --action merge-compatible --yes";
  const std::string both = "(" + apply + " > " + Quote(Path("a.out")) + " 2>&1 & " + apply + " > " + Quote(Path("b.out")) +
                           " 2>&1; wait)";
  ASSERT_EQ(std::system(both.c_str()), 0);
  size_t merged = 0;
  for (const char* out : {"a.out", "b.out"}) {
    const std::string text = Slurp(Path(out));
    if (auto at = text.find("Merged "); at != std::string::npos) merged += std::stoul(text.substr(at + 7));
    else EXPECT_THAT(text, HasSubstr("nothing to merge"));
  }
  EXPECT_EQ(merged, found);
}

}  // namespace
}  // namespace ombrel::clitest
