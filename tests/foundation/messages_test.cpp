#include "ombrel/foundation/messages.h"

#include <gtest/gtest.h>

#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "ombrel/foundation/error.h"
#include "support/scratch_dir.h"
#include "support/store_fixture.h"

namespace ombrel {
namespace {

class FailingPrompt final : public IPrompt {
 public:
  int MessageBox(const std::string&, int, const std::string&) override { throw std::runtime_error("no display"); }
};

// The prompt and application name of StoreFixture, and the texts read.
class MessagesTest : public StoreFixture {
 protected:
  void SetUp() override {
    StoreFixture::SetUp();
    savedReader_ = ResourceReader();
  }
  void TearDown() override {
    ResourceReader() = savedReader_;
    StoreFixture::TearDown();
  }
  std::string WriteFile(const std::string& content) {
    const auto path = dir_ / ("texts" + std::to_string(++files_));
    std::ofstream(path, std::ios::binary) << content;
    return path.string();
  }
  void UseResources(const std::string& content) {
    ResourceReader() = std::make_shared<CResourceReader>();
    ASSERT_TRUE(ResourceReader()->Load(WriteFile(content)));
  }

 private:
  std::shared_ptr<CResourceReader> savedReader_;
  ScratchDir dir_{"ombrel-messages"};
  int files_ = 0;
};

TEST_F(MessagesTest, ReaderLoadsNumberedLinesAndRefusesMalformedFiles) {
  CResourceReader reader;
  ASSERT_TRUE(reader.Load(WriteFile("\xEF\xBB\xBF# interface texts\r\n206\tDuplicates Wizard\r\n\r\n  \t \n"
                                    "# 300\tcommented out\n300\tName:\tvalue\n12\tGrüße\n")));
  EXPECT_EQ(reader.Get(206, 4096), "Duplicates Wizard");
  EXPECT_EQ(reader.Get(300, 4096), "Name:\tvalue");
  EXPECT_EQ(reader.Get(12, 3), "Grü");
  EXPECT_FALSE(reader.Has(301));
  EXPECT_THROW(reader.Get(301, 4096), Error);
  for (const char* bad : {"206 no tab\n", "abc\ttext\n", "1.5\ttext\n", "99999999999\ttext\n"}) {
    EXPECT_FALSE(reader.Load(WriteFile(bad))) << bad;
  }
  EXPECT_FALSE(reader.Load(WriteFile("") + ".missing"));
}

TEST_F(MessagesTest, GetResStringExpandsEscapesAndAppliesPairsInOrder) {
  UseResources("1\tOne\\nTwo\\tthree\n2\tFound %1 sets in %2 cards\n3\t%1 and %2\n4\t%1%1\n");
  struct Case { int32_t id; std::vector<std::string> subs; std::string expected; };
  for (const Case& c : std::vector<Case>{
           {1, {}, "One\r\nTwo\tthree"},
           {2, {"%1", "3", "%2", "12"}, "Found 3 sets in 12 cards"},
           {2, {"%2", "12"}, "Found %1 sets in 12 cards"},
           {3, {"%1", "x%2", "%2", "y"}, "xy and y"},  // a value holding a later placeholder is replaced again
           {3, {"%2", "%1", "%1", "y"}, "y and y"},
           {3, {"%1", "a", "%2"}, "a and %2"},  // a placeholder without a value ends the walk
           {4, {"%1", "ab"}, "abab"},
           {99, {"%1", "x"}, ""},
       }) {
    EXPECT_EQ(GetResString(c.id, c.subs), c.expected) << c.id;
  }
  ResourceReader() = nullptr;
  EXPECT_EQ(GetResString(1), "");
}

TEST_F(MessagesTest, GetResStringCapsAt4096CharactersBeforeExpanding) {
  std::string accents;
  for (int i = 0; i < 5000; ++i) accents += "é";
  UseResources("7\t" + accents + "\n8\t" + std::string(4095, 'a') + "\\nb\n");
  EXPECT_EQ(GetResString(7), accents.substr(0, 4096 * 2));
  EXPECT_EQ(GetResString(8), std::string(4095, 'a') + "\\");  // the cap splits the escape
}

// Shown only while an error is being handled, and not for an error numbered 0.
TEST_F(MessagesTest, ReportErrorShowsThePendingErrorOnly) {
  AppName() = "Contacts";
  ReportError();
  auto reportWhileHandling = [](auto raise) {
    try {
      raise();
    } catch (...) {
      ReportError();
    }
  };
  reportWhileHandling([] { throw Error(0, "x", "not an error"); });
  reportWhileHandling([] { Trap(true, "HashTable does not contain key: Company"); });
  reportWhileHandling([] { Trap(true, ""); });
  reportWhileHandling([] { throw std::runtime_error("disk full"); });
  EXPECT_EQ(prompt_->shownWithStyle,
            "ERROR: HashTable does not contain key: Company [16, Contacts]\nERROR: TRAP error [16, Contacts]\n"
            "ERROR: disk full [16, Contacts]\n");
  SetPrompt(std::make_shared<FailingPrompt>());
  EXPECT_NO_THROW(reportWhileHandling([] { Trap(true, "x"); }));
}

TEST(ValueUtilitiesTest, SortLongsSortsOnlyTheGivenRange) {
  struct Case { std::vector<int32_t> values; int32_t first, last; std::vector<int32_t> expected; };
  for (Case c : std::vector<Case>{{{5, 3, 9, 1, 7}, 0, 4, {1, 3, 5, 7, 9}},
                                  {{5, 3, 9, 1, 7}, 1, 3, {5, 1, 3, 9, 7}},
                                  {{4, 4, -2, 4, -2}, 0, 4, {-2, -2, 4, 4, 4}},
                                  {{9, 8}, 1, 1, {9, 8}},
                                  {{}, 0, -1, {}}}) {
    SortLongs(c.values, c.first, c.last);
    EXPECT_EQ(c.values, c.expected);
  }
  std::vector<int32_t> values = {3, 2, 1};
  EXPECT_THROW(SortLongs(values, 0, 3), Error);
  EXPECT_THROW(SortLongs(values, -1, 2), Error);
}

}  // namespace
}  // namespace ombrel
