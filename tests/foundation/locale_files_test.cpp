// The interface texts of every language: each file loads, holds exactly the
// numbers the English one holds, and keeps what the program relies on in a
// text (placeholders, line breaks, tabs, column and filter separators, one
// keyboard shortcut per button caption, none shared within a window).
#include <gtest/gtest.h>

#include <cctype>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "ombrel/foundation/locale.h"
#include "ombrel/foundation/messages.h"

namespace ombrel {
namespace {

// Numbers are three digits; the scan goes far beyond to catch a stray one.
constexpr int32_t kHighestNumber = 99999;

std::map<int32_t, std::string> TextsOf(const std::string& language) {
  const std::string path = std::string(OMBREL_SOURCE_DIR) + "/locale/" + language + "/" + kResourceFileName;
  CResourceReader reader;
  EXPECT_TRUE(reader.Load(path)) << path;
  std::map<int32_t, std::string> texts;
  for (int32_t id = 0; id <= kHighestNumber; ++id)
    if (reader.Has(id)) texts[id] = reader.Get(id, 4096);
  return texts;
}

size_t Count(const std::string& text, const std::string& token) {
  size_t n = 0;
  for (size_t at = text.find(token); at != std::string::npos; at = text.find(token, at + token.size())) ++n;
  return n;
}

// The letter after "&" (a whole UTF-8 character), lower-cased when ASCII.
std::string Mnemonic(const std::string& caption) {
  const size_t at = caption.find('&');
  if (at == std::string::npos || at + 1 >= caption.size()) return {};
  size_t length = 1;
  while (at + 1 + length < caption.size() && (static_cast<unsigned char>(caption[at + 1 + length]) & 0xC0) == 0x80)
    ++length;
  std::string letter = caption.substr(at + 1, length);
  if (length == 1) letter[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(letter[0])));
  return letter;
}

// The captions with a shortcut that one window shows together.
const std::vector<std::vector<int32_t>> kWindowsCaptions = {
    {183, 184, 186, 187},            // the wizard
    {301, 302, 303, 304, 903, 414},  // the review screen
};

class LocaleFilesTest : public ::testing::TestWithParam<const char*> {};

TEST_P(LocaleFilesTest, EveryTextIsThereWithWhatTheProgramFillsIn) {
  static const std::map<int32_t, std::string> english = TextsOf("en");
  ASSERT_GT(english.size(), 100u);
  const std::map<int32_t, std::string> texts = TextsOf(GetParam());
  for (const auto& [id, text] : english) {
    auto found = texts.find(id);
    if (found == texts.end()) {
      ADD_FAILURE() << "missing " << id;
      continue;
    }
    for (const char* token : {"%1", "%2", "%3", "\\n", "\\t", "&", "|", ";;"})
      EXPECT_EQ(Count(found->second, token), Count(text, token)) << id << " " << token << ": " << found->second;
    EXPECT_EQ(found->second.empty(), text.empty()) << id;
  }
  for (const auto& [id, text] : texts) EXPECT_TRUE(english.contains(id)) << "extra " << id << ": " << text;

  for (const auto& captions : kWindowsCaptions) {
    std::set<std::string> letters;
    for (int32_t id : captions) {
      const std::string letter = Mnemonic(texts.contains(id) ? texts.at(id) : std::string());
      EXPECT_FALSE(letter.empty()) << id;
      EXPECT_TRUE(letters.insert(letter).second) << id << " shares &" << letter;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Languages, LocaleFilesTest, ::testing::Values("en", "de", "fr", "es"),
                         [](const auto& info) { return std::string(info.param); });

}  // namespace
}  // namespace ombrel
