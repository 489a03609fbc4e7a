// Files on disk for tests: a scratch folder per test (removed afterwards),
// SQL run on a database file behind its store's back, and image bytes that
// pass for a PNG.
#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace ombrel {

class ScratchDir {
 public:
  explicit ScratchDir(const std::string& prefix) {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = prefix + "-" + std::to_string(::getpid()) + "-" + info->test_suite_name() + "-" + info->name();
    for (char& c : name)
      if (c == '/') c = '_';  // parameterised tests
    path_ = std::filesystem::temp_directory_path() / name;
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
  }
  ~ScratchDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  const std::filesystem::path& Path() const { return path_; }
  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

// Runs sql on the file; answers the first column of the last row a query gave, if any.
inline std::string RunSql(const std::filesystem::path& path, const std::string& sql) {
  sqlite3* db = nullptr;
  EXPECT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  std::string result;
  char* err = nullptr;
  auto keep = [](void* out, int, char** values, char**) {
    *static_cast<std::string*>(out) = values[0] ? values[0] : "";
    return 0;
  };
  EXPECT_EQ(sqlite3_exec(db, sql.c_str(), keep, &result, &err), SQLITE_OK) << (err ? err : "");
  sqlite3_free(err);
  sqlite3_close(db);
  return result;
}

// The PNG signature, a few bytes, and a tag byte last.
inline std::vector<uint8_t> PngBytes(uint8_t tag = 0) {
  return {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 1, 2, 3, tag};
}

}  // namespace ombrel
