#include "ombrel/foundation/error.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/error_text.h"

namespace ombrel {
namespace {

TEST(TrapTest, CheckedArithmeticOverflowsOnlyOutside32Bits) {
  constexpr int32_t kMax = std::numeric_limits<int32_t>::max(), kMin = std::numeric_limits<int32_t>::min();
  EXPECT_EQ(CheckedAdd(kMax - 1, 1), kMax);
  EXPECT_EQ(CheckedSub(-1, kMax), kMin);
  for (auto op : {+[] { CheckedAdd(kMax, 1); }, +[] { CheckedAdd(kMin, -1); }, +[] { CheckedSub(0, kMin); }})
    EXPECT_EQ(ErrorNumber(op), kOverflowErrorNumber);
}

}  // namespace
}  // namespace ombrel
