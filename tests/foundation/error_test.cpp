#include "ombrel/foundation/error.h"

#include <gtest/gtest.h>

#include <limits>

namespace ombrel {
namespace {

constexpr int32_t kMax = std::numeric_limits<int32_t>::max();
constexpr int32_t kMin = std::numeric_limits<int32_t>::min();

TEST(TrapTest, DoesNothingWhenNotFailed) {
  EXPECT_NO_THROW(Trap(false, "never shown"));
  EXPECT_NO_THROW(Trap(false, ""));
}

TEST(TrapTest, RaisesNumberSourceAndDescription) {
  struct Case {
    std::string message;
    std::string description;
  };
  for (const Case& c : {Case{"HashTable does not contain key: x", "HashTable does not contain key: x"},
                        Case{"", "TRAP error"}, Case{" ", " "}, Case{"line1\r\nline2", "line1\r\nline2"}}) {
    SCOPED_TRACE(c.message);
    try {
      Trap(true, c.message);
      FAIL() << "Trap(true, ...) returned";
    } catch (const Error& e) {
      EXPECT_EQ(e.Number(), -2147220504);
      EXPECT_EQ(static_cast<uint32_t>(e.Number()), 0x800403E8u);
      EXPECT_EQ(e.Source(), "TRAP");
      EXPECT_EQ(e.Description(), c.description);
      EXPECT_STREQ(e.what(), c.description.c_str());
    }
  }
}

TEST(TrapTest, RaiseTrapMatchesTrap) {
  try {
    RaiseTrap("");
    FAIL();
  } catch (const Error& e) {
    EXPECT_EQ(e.Number(), kTrapErrorNumber);
    EXPECT_EQ(e.Source(), "TRAP");
    EXPECT_EQ(e.Description(), "TRAP error");
  }
}

TEST(CheckedArithmeticTest, RaisesOverflowOnlyOutsideThe32BitRange) {
  EXPECT_EQ(CheckedAdd(kMax - 1, 1), kMax);
  EXPECT_EQ(CheckedAdd(kMin, kMax), -1);
  EXPECT_EQ(CheckedSub(kMin + 1, 1), kMin);
  EXPECT_EQ(CheckedSub(-1, kMax), kMin);
  for (auto op : {+[] { CheckedAdd(kMax, 1); }, +[] { CheckedAdd(kMin, -1); }, +[] { CheckedSub(kMin, 1); },
                  +[] { CheckedSub(0, kMin); }}) {
    try {
      op();
      ADD_FAILURE() << "no overflow raised";
    } catch (const Error& e) {
      EXPECT_EQ(e.Number(), kOverflowErrorNumber);
      EXPECT_NE(e.Number(), kTrapErrorNumber);
    }
  }
}

}  // namespace
}  // namespace ombrel
