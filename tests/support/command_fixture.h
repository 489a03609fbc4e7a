// A fixture for tests that run the ombrel command as a user would: a scratch
// folder per test (removed afterwards) and Run, which captures the exit code
// and both outputs, with standard input from /dev/null (no terminal).
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "support/scratch_dir.h"

namespace ombrel::clitest {

namespace fs = std::filesystem;

struct RunResult { int code = -1; std::string out; std::string err; };

inline std::string Slurp(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

// The lines of a .jsonl text, parsed.
using Json = nlohmann::ordered_json;
inline std::vector<Json> Lines(const std::string& text) {
  std::vector<Json> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    if (!line.empty()) lines.push_back(Json::parse(line));
  return lines;
}

// The text quoted for the shell.
inline std::string Quote(const std::string& s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

class CommandTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(fs::exists(Binary())) << "build the ombrel target first: " << Binary(); }

  static std::string Binary() { return std::string(OMBREL_BINARY_DIR) + "/src/cli/ombrel"; }

  // stdoutTo: where standard output goes instead of being captured; prefix:
  // what the command line starts with (a program that runs the binary).
  RunResult Run(const std::vector<std::string>& args, const std::string& stdoutTo = "",
                const std::string& prefix = "") {
    fs::path out = dir_ / "stdout.txt", err = dir_ / "stderr.txt";
    std::string cmd = prefix + Quote(Binary());
    for (const auto& a : args) cmd += " " + Quote(a);
    cmd += " >" + Quote(stdoutTo.empty() ? out.string() : stdoutTo) + " 2>" + Quote(err.string()) + " </dev/null";
    int status = std::system(cmd.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, stdoutTo.empty() ? Slurp(out) : "", Slurp(err)};
  }

  std::string Path(const std::string& name) const { return (dir_ / name).string(); }

  ScratchDir dir_{"ombrel-cli"};
};

}  // namespace ombrel::clitest
