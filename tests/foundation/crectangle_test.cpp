#include "ombrel/foundation/crectangle.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "ombrel/foundation/error.h"
#include "support/error_text.h"

namespace ombrel {
namespace {

TEST(CRectangleTest, TextFormAndParseStrAreInverse) {
  constexpr int32_t kMax = std::numeric_limits<int32_t>::max(), kMin = std::numeric_limits<int32_t>::min();
  struct Case { CRectangle r; std::string text; };
  for (const Case& c : {Case{CRectangle(10, 20, 300, 40), "T:10,L:20,W:300,H:40"},
                        Case{CRectangle(-5, -1200, 0, 1), "T:-5,L:-1200,W:0,H:1"},
                        Case{CRectangle(kMin, kMax, kMax, 0), "T:-2147483648,L:2147483647,W:2147483647,H:0"}}) {
    EXPECT_EQ(c.r.ToStr(), c.text);
    CRectangle parsed;
    parsed.ParseStr(c.text);
    EXPECT_TRUE(parsed.Equals(c.r)) << c.text;
  }
  CRectangle r;
  r.SetCorners(20, 10, 320, 50);
  EXPECT_EQ(r.ToStr() + " " + std::to_string(r.GetRight()) + " " + std::to_string(r.GetBottom()) + " " +
                std::to_string(r.GetArea()),
            "T:10,L:20,W:300,H:40 320 50 12000");
}

TEST(CRectangleTest, FailuresNameTheInputAndKeepTheValue) {
  CRectangle r(1, 2, 3, 4);
  for (const std::string text : {"", "T:10,L:20,W:300", "T:x,L:20,W:300,H:40", "T:10;L:20;W:300;H:40",
                                 "T:10,L:20,W:-1,H:40", "T:10,L:20,W:300,H:4x", "T:99999999999,L:0,W:0,H:0"}) {
    EXPECT_EQ(TrapText([&] { r.ParseStr(text); }), "Cannot initialize rectangle by parsing the string: " + text);
  }
  EXPECT_EQ(TrapText([&] { r.Initialize(10, 20, -1, 40); }), "Rectangles cannot have negative dimensions:-1, 40");
  EXPECT_EQ(TrapText([&] { r.SetCorners(20, 10, 25, 5); }), "Rectangles cannot have negative dimensions:5, -5");
  EXPECT_EQ(r.ToStr(), "T:1,L:2,W:3,H:4");
  EXPECT_THROW(CRectangle(0, 0, 70000, 70000).GetArea(), Error);
}

TEST(CRectangleTest, IntersectionAndContainment) {
  const CRectangle base(10, 10, 100, 50);  // x 10..110, y 10..60
  struct Case { CRectangle other; std::string overlap; bool inside; };
  for (const Case& c : {Case{CRectangle(30, 50, 100, 100), "T:30,L:50,W:60,H:30", false},
                        Case{CRectangle(-5, -5, 20, 20), "T:10,L:10,W:5,H:5", false},
                        Case{base, "T:10,L:10,W:100,H:50", true},
                        Case{CRectangle(59, 109, 1, 1), "T:59,L:109,W:1,H:1", true}}) {
    EXPECT_EQ(base.GetIntersection(c.other).ToStr(), c.overlap);
    EXPECT_EQ(c.other.GetIntersection(base).ToStr(), c.overlap);
    EXPECT_EQ(base.Contains(c.other), c.inside) << c.other.ToStr();
  }
  // Disjoint, or sharing only an edge: an empty overlap.
  for (const CRectangle& other : {CRectangle(10, 110, 5, 5), CRectangle(60, 10, 5, 5), CRectangle(500, 500, 1, 1)}) {
    CRectangle overlap = base.GetIntersection(other);
    EXPECT_EQ(overlap.GetWidth() + overlap.GetHeight(), 0) << other.ToStr();
    EXPECT_FALSE(base.Contains(other));
  }
  EXPECT_FALSE(CRectangle(20, 20, 10, 10).Contains(base));
}

}  // namespace
}  // namespace ombrel
