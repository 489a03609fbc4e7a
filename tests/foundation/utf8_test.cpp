// Counting characters: plain ASCII runs are counted a word at a time, so the
// cases mix long runs with multi-byte and invalid bytes at every boundary.
#include <gtest/gtest.h>

#include <string>

#include "foundation/utf8.h"

namespace ombrel {
namespace {

TEST(Utf8Test, CountCodePointsCountsCharactersAcrossAsciiRuns) {
  const std::string run = "abcdefgh";  // one word
  struct Case { std::string text; size_t characters; };
  const Case cases[] = {
      {"", 0},
      {"abc", 3},
      {run + run + "xyz", 19},
      {"Ståhl", 5},
      {run + "\xC3\xA9" + run + "ab", 19},              // é between two runs
      {"\xE2\x82\xAC" + run + run, 17},                  // € before them
      {run + "\xF0\x9F\x98\x80" + "a", 10},              // a character outside the basic plane
      {run + "\xFF" + run, 17},                          // a lone invalid byte is one character
      {run + "a\xC3", 10},                               // a sequence cut short at the end
      {"Zoë Müller-Ståhl, Directrice générale", 37},
  };
  for (const Case& c : cases) EXPECT_EQ(utf8::CountCodePoints(c.text), c.characters) << c.text;
}

}  // namespace
}  // namespace ombrel
