#include "ombrel/foundation/error.h"

#include <gtest/gtest.h>

#include <limits>

namespace ombrel {
namespace {

TEST(TrapTest, RaisesTheComponentErrorOnlyWhenFailed) {
  EXPECT_NO_THROW(Trap(false, ""));
  for (const std::string message : {"HashTable does not contain key: x", "", "a\r\nb"}) {
    try {
      Trap(true, message);
      ADD_FAILURE() << "no error for " << message;
    } catch (const Error& e) {
      EXPECT_EQ(e.Number(), -2147220504);
      EXPECT_EQ(static_cast<uint32_t>(e.Number()), 0x800403E8u);
      EXPECT_EQ(e.Source(), "TRAP");
      EXPECT_EQ(e.Description(), message.empty() ? "TRAP error" : message);
      EXPECT_EQ(std::string(e.what()), e.Description());
    }
  }
}

TEST(TrapTest, CheckedArithmeticOverflowsOnlyOutside32Bits) {
  constexpr int32_t kMax = std::numeric_limits<int32_t>::max(), kMin = std::numeric_limits<int32_t>::min();
  EXPECT_EQ(CheckedAdd(kMax - 1, 1), kMax);
  EXPECT_EQ(CheckedSub(-1, kMax), kMin);
  for (auto op : {+[] { CheckedAdd(kMax, 1); }, +[] { CheckedAdd(kMin, -1); }, +[] { CheckedSub(0, kMin); }}) {
    try {
      op();
      ADD_FAILURE() << "no overflow";
    } catch (const Error& e) {
      EXPECT_EQ(e.Number(), kOverflowErrorNumber);
    }
  }
}

}  // namespace
}  // namespace ombrel
