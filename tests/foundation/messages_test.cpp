#include "ombrel/foundation/messages.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "ombrel/foundation/error.h"

namespace ombrel {
namespace {

struct Shown {
  std::string text;
  int style;
  std::string title;
};

class RecordingPrompt final : public IPrompt {
 public:
  int MessageBox(const std::string& text, int style, const std::string& title) override {
    shown.push_back({text, style, title});
    return msgbox::kAnswerOk;
  }
  std::vector<Shown> shown;
};

class ThrowingPrompt final : public IPrompt {
 public:
  int MessageBox(const std::string&, int, const std::string&) override { throw std::runtime_error("no display"); }
};

// Saves and restores the process-wide state these tests change.
class MessagesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    savedReader_ = ResourceReader();
    savedAppName_ = AppName();
    prompt_ = std::make_shared<RecordingPrompt>();
    SetPrompt(prompt_);
  }
  void TearDown() override {
    ResourceReader() = savedReader_;
    AppName() = savedAppName_;
    SetPrompt(nullptr);
    for (const auto& path : files_) std::filesystem::remove(path);
  }

  std::string WriteFile(const std::string& content) {
    auto path = std::filesystem::temp_directory_path() /
                ("ombrel_res_" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) + "_" +
                 std::to_string(files_.size()) + "_" +
                 ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".dat");
    std::ofstream(path, std::ios::binary) << content;
    files_.push_back(path);
    return path.string();
  }

  // Loads content as the resource file every GetResString reads.
  void UseResources(const std::string& content) {
    auto reader = std::make_shared<CResourceReader>();
    ASSERT_TRUE(reader->Load(WriteFile(content)));
    ResourceReader() = reader;
  }

  std::shared_ptr<RecordingPrompt> prompt_;

 private:
  std::shared_ptr<CResourceReader> savedReader_;
  std::string savedAppName_;
  std::vector<std::filesystem::path> files_;
};

TEST_F(MessagesTest, ReaderSkipsBlankAndCommentLines) {
  CResourceReader reader;
  ASSERT_TRUE(reader.Load(WriteFile("\xEF\xBB\xBF# interface texts\r\n"
                                    "206\tDuplicates Wizard\r\n"
                                    "\r\n"
                                    "  \t \n"
                                    "# 300\tcommented out\n"
                                    "300\tName:\tvalue with a tab\n"
                                    "12\tGrüße\n")));
  EXPECT_EQ(reader.Get(206, 4096), "Duplicates Wizard");
  EXPECT_EQ(reader.Get(300, 4096), "Name:\tvalue with a tab");
  EXPECT_EQ(reader.Get(12, 4096), "Grüße");
  EXPECT_EQ(reader.Get(12, 3), "Grü");
  EXPECT_TRUE(reader.Has(300));
  EXPECT_FALSE(reader.Has(301));
  EXPECT_THROW(reader.Get(301, 4096), Error);
  reader.Release();
  EXPECT_FALSE(reader.Has(206));
}

TEST_F(MessagesTest, ReaderRefusesMissingOrMalformedFiles) {
  CResourceReader reader;
  EXPECT_FALSE(reader.Load(WriteFile("") + ".missing"));
  EXPECT_FALSE(reader.Load(WriteFile("206 no tab here\n")));
  EXPECT_FALSE(reader.Load(WriteFile("abc\ttext\n")));
  EXPECT_FALSE(reader.Load(WriteFile("1.5\ttext\n")));
  EXPECT_FALSE(reader.Load(WriteFile("99999999999\ttext\n")));
}

TEST_F(MessagesTest, GetResStringExpandsEscapesAndAppliesPairsInOrder) {
  UseResources(
      "1\tLine one\\nLine two\\tindented\n"
      "2\tFound %1 sets in %2 cards\n"
      "3\t%1 and %2\n"
      "4\tNo placeholders\n"
      "5\t%1%1\n");
  struct Case {
    int32_t id;
    std::vector<std::string> subs;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {1, {}, "Line one\r\nLine two\tindented"},
      {2, {"%1", "3", "%2", "12"}, "Found 3 sets in 12 cards"},
      {2, {"%2", "12"}, "Found %1 sets in 12 cards"},
      {2, {}, "Found %1 sets in %2 cards"},
      {3, {"%1", "x%2", "%2", "y"}, "xy and y"},  // a value holding a later placeholder is replaced again
      {3, {"%2", "%1", "%1", "y"}, "y and y"},
      {3, {"%1", "a", "%2"}, "a and %2"},  // a placeholder without a value ends the substitutions
      {4, {"%1", "x"}, "No placeholders"},
      {5, {"%1", "ab"}, "abab"},
      {99, {"%1", "x"}, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.id);
    EXPECT_EQ(GetResString(c.id, c.subs), c.expected);
  }
}

TEST_F(MessagesTest, GetResStringCapsAt4096CharactersBeforeExpanding) {
  std::string longText;
  for (int i = 0; i < 5000; ++i) longText += "é";
  UseResources("7\t" + longText + "\n8\t" + std::string(4095, 'a') + "\\nb\n");
  std::string capped = GetResString(7);
  EXPECT_EQ(capped.size(), 4096u * 2);
  EXPECT_EQ(capped, longText.substr(0, 4096 * 2));
  // The cap cuts the backslash-n sequence in half, so nothing is expanded.
  EXPECT_EQ(GetResString(8), std::string(4095, 'a') + "\\");
}

TEST_F(MessagesTest, GetResStringWithoutResourcesIsEmpty) {
  ResourceReader() = nullptr;
  EXPECT_EQ(GetResString(206), "");
  EXPECT_EQ(GetResString(206, {"%1", "x"}), "");
}

TEST_F(MessagesTest, ReportErrorShowsTheDescriptionWithTheCriticalIcon) {
  AppName() = "Contacts";
  try {
    Trap(true, "HashTable does not contain key: Company");
  } catch (...) {
    ReportError();
  }
  try {
    Trap(true, "");
  } catch (...) {
    ReportError();
  }
  try {
    throw std::runtime_error("disk full");
  } catch (...) {
    ReportError();
  }
  ASSERT_EQ(prompt_->shown.size(), 3u);
  EXPECT_EQ(prompt_->shown[0].text, "ERROR: HashTable does not contain key: Company");
  EXPECT_EQ(prompt_->shown[0].style, 16);
  EXPECT_EQ(prompt_->shown[0].title, "Contacts");
  EXPECT_EQ(prompt_->shown[1].text, "ERROR: TRAP error");
  EXPECT_EQ(prompt_->shown[2].text, "ERROR: disk full");
}

TEST_F(MessagesTest, ReportErrorWithoutPendingErrorShowsNothing) {
  ReportError();
  try {
    throw Error(0, "x", "not an error");
  } catch (...) {
    ReportError();
  }
  EXPECT_TRUE(prompt_->shown.empty());
}

TEST_F(MessagesTest, ReportErrorNeverRaises) {
  SetPrompt(std::make_shared<ThrowingPrompt>());
  try {
    Trap(true, "x");
  } catch (...) {
    EXPECT_NO_THROW(ReportError());
  }
}

TEST(SortLongsTest, SortsOnlyTheGivenRange) {
  struct Case {
    std::vector<int32_t> values;
    int32_t first, last;
    std::vector<int32_t> expected;
  };
  const std::vector<Case> cases = {
      {{5, 3, 9, 1, 7}, 0, 4, {1, 3, 5, 7, 9}},
      {{5, 3, 9, 1, 7}, 1, 3, {5, 1, 3, 9, 7}},
      {{4, 4, -2, 4, -2}, 0, 4, {-2, -2, 4, 4, 4}},
      {{9, 8}, 1, 1, {9, 8}},
      {{9, 8}, 1, 0, {9, 8}},
      {{}, 0, -1, {}},
      {{2147483647, -2147483647 - 1, 0}, 0, 2, {-2147483647 - 1, 0, 2147483647}},
  };
  for (Case c : cases) {
    SortLongs(c.values, c.first, c.last);
    EXPECT_EQ(c.values, c.expected);
  }
}

TEST(SortLongsTest, RangeOutsideTheArrayRaises) {
  std::vector<int32_t> values = {3, 2, 1};
  EXPECT_THROW(SortLongs(values, 0, 3), Error);
  EXPECT_THROW(SortLongs(values, -1, 2), Error);
  EXPECT_EQ(values, (std::vector<int32_t>{3, 2, 1}));
}

TEST(ValueUtilitiesTest, CutAtNul) {
  using namespace std::string_literals;
  EXPECT_EQ(CutAtNul("abc\0def"s), "abc");
  EXPECT_EQ(CutAtNul("abc"), "abc");
  EXPECT_EQ(CutAtNul("\0abc"s), "");
  EXPECT_EQ(CutAtNul(""), "");
}

TEST(ValueUtilitiesTest, MaxOfAndMinOf) {
  EXPECT_EQ(MaxOf(3, -4), 3);
  EXPECT_EQ(MinOf(3, -4), -4);
  EXPECT_EQ(MaxOf(2.5, 2.25), 2.5);
  EXPECT_EQ(MaxOf<std::string>("apple", "banana"), "banana");
  EXPECT_EQ(MinOf<std::string>("apple", "banana"), "apple");
  EXPECT_EQ(MaxOf<std::string>("B", "a"), "a");  // character codes, not dictionary order
  EXPECT_EQ(MinOf<std::string>("ab", "a"), "a");
}

TEST(ValueUtilitiesTest, RoundHalfEven) {
  struct Case {
    double value;
    int32_t rounded;
  };
  for (const Case& c : {Case{0.5, 0}, Case{1.5, 2}, Case{2.5, 2}, Case{-0.5, 0}, Case{-1.5, -2}, Case{2.4999, 2},
                        Case{-2.6, -3}}) {
    EXPECT_EQ(RoundHalfEven(c.value), c.rounded) << c.value;
  }
  EXPECT_THROW(RoundHalfEven(2147483647.5), Error);
}

}  // namespace
}  // namespace ombrel
