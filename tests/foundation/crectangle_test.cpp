#include "ombrel/foundation/crectangle.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "ombrel/foundation/error.h"

namespace ombrel {
namespace {

template <class F>
std::string TrapText(F&& f) {
  try {
    f();
  } catch (const Error& e) {
    EXPECT_EQ(e.Number(), kTrapErrorNumber);
    EXPECT_EQ(e.Source(), "TRAP");
    return e.Description();
  }
  ADD_FAILURE() << "no trap raised";
  return "<no trap>";
}

constexpr int32_t kMax = std::numeric_limits<int32_t>::max();
constexpr int32_t kMin = std::numeric_limits<int32_t>::min();

TEST(CRectangleTest, TextFormAndParseStrAreInverse) {
  struct Case {
    int32_t top, left, width, height;
    std::string text;
  };
  for (const Case& c : {Case{10, 20, 300, 40, "T:10,L:20,W:300,H:40"}, Case{0, 0, 0, 0, "T:0,L:0,W:0,H:0"},
                        Case{-5, -1200, 7, 1, "T:-5,L:-1200,W:7,H:1"},
                        Case{kMin, kMax, kMax, 0, "T:-2147483648,L:2147483647,W:2147483647,H:0"}}) {
    SCOPED_TRACE(c.text);
    CRectangle r(c.top, c.left, c.width, c.height);
    EXPECT_EQ(r.ToStr(), c.text);
    CRectangle parsed;
    parsed.ParseStr(r.ToStr());
    EXPECT_TRUE(parsed.Equals(r));
    EXPECT_EQ(parsed.GetTop(), c.top);
    EXPECT_EQ(parsed.GetLeft(), c.left);
    EXPECT_EQ(parsed.GetWidth(), c.width);
    EXPECT_EQ(parsed.GetHeight(), c.height);
  }
}

TEST(CRectangleTest, ParseStrFailureNamesTheTextAndKeepsTheValue) {
  for (const std::string text : {"", "T:10,L:20,W:300", "T:x,L:20,W:300,H:40", "T:10;L:20;W:300;H:40",
                                 "T:10,L:20,W:-1,H:40", "T:10,L:20,W:300,H:4x", "T:99999999999,L:0,W:0,H:0",
                                 "L:20,W:300,H:40"}) {
    SCOPED_TRACE(text);
    CRectangle r(1, 2, 3, 4);
    EXPECT_EQ(TrapText([&] { r.ParseStr(text); }), "Cannot initialize rectangle by parsing the string: " + text);
    EXPECT_EQ(r.ToStr(), "T:1,L:2,W:3,H:4");
  }
}

TEST(CRectangleTest, NegativeDimensionsAreRefused) {
  CRectangle r(1, 2, 3, 4);
  EXPECT_EQ(TrapText([&] { r.Initialize(10, 20, -1, 40); }), "Rectangles cannot have negative dimensions:-1, 40");
  EXPECT_EQ(TrapText([&] { r.Initialize(10, 20, 5, -2); }), "Rectangles cannot have negative dimensions:5, -2");
  EXPECT_EQ(TrapText([&] { r.SetCorners(20, 10, 19, 50); }), "Rectangles cannot have negative dimensions:-1, 40");
  EXPECT_EQ(r.ToStr(), "T:1,L:2,W:3,H:4");
}

TEST(CRectangleTest, CornersAndDerivedMeasures) {
  CRectangle r;
  r.SetCorners(20, 10, 320, 50);
  EXPECT_EQ(r.ToStr(), "T:10,L:20,W:300,H:40");
  EXPECT_EQ(r.GetRight(), 320);
  EXPECT_EQ(r.GetBottom(), 50);
  EXPECT_EQ(r.GetArea(), 12000);
  CRectangle big(0, 0, 70000, 70000);
  EXPECT_THROW(big.GetArea(), Error);
  CRectangle far(0, kMax, 1, 0);
  EXPECT_THROW(far.GetRight(), Error);
}

TEST(CRectangleTest, Intersection) {
  struct Case {
    CRectangle a, b;
    std::string expected;
  };
  const CRectangle base(10, 10, 100, 50);  // x 10..110, y 10..60
  for (const Case& c : {Case{base, CRectangle(30, 50, 100, 100), "T:30,L:50,W:60,H:30"},
                        Case{base, CRectangle(20, 20, 10, 10), "T:20,L:20,W:10,H:10"},
                        Case{base, base, "T:10,L:10,W:100,H:50"},
                        Case{base, CRectangle(-5, -5, 20, 20), "T:10,L:10,W:5,H:5"}}) {
    SCOPED_TRACE(c.expected);
    EXPECT_EQ(c.a.GetIntersection(c.b).ToStr(), c.expected);
    EXPECT_EQ(c.b.GetIntersection(c.a).ToStr(), c.expected);
  }
  // No overlap, or only a shared edge: an empty rectangle.
  for (const CRectangle& other : {CRectangle(10, 110, 5, 5), CRectangle(60, 10, 5, 5), CRectangle(500, 500, 1, 1),
                                  CRectangle(0, 0, 10, 10)}) {
    SCOPED_TRACE(other.ToStr());
    CRectangle overlap = base.GetIntersection(other);
    EXPECT_EQ(overlap.GetWidth(), 0);
    EXPECT_EQ(overlap.GetHeight(), 0);
    EXPECT_EQ(overlap.GetArea(), 0);
  }
}

TEST(CRectangleTest, ContainsOnlyWhollyInside) {
  const CRectangle outer(10, 10, 100, 50);
  EXPECT_TRUE(outer.Contains(outer));
  EXPECT_TRUE(outer.Contains(CRectangle(10, 10, 1, 1)));
  EXPECT_TRUE(outer.Contains(CRectangle(59, 109, 1, 1)));
  EXPECT_TRUE(outer.Contains(CRectangle(30, 30, 0, 0)));
  EXPECT_FALSE(outer.Contains(CRectangle(59, 109, 2, 1)));
  EXPECT_FALSE(outer.Contains(CRectangle(9, 10, 1, 1)));
  EXPECT_FALSE(outer.Contains(CRectangle(0, 0, 200, 200)));
  EXPECT_FALSE(CRectangle(20, 20, 10, 10).Contains(outer));
}

TEST(CRectangleTest, CopyCloneAndEquals) {
  CRectangle a(1, 2, 3, 4);
  CRectangle b;
  EXPECT_FALSE(a.Equals(b));
  b.Copy(a);
  EXPECT_TRUE(a.Equals(b));
  auto clone = a.Clone();
  clone->Initialize(5, 6, 7, 8);
  EXPECT_EQ(a.ToStr(), "T:1,L:2,W:3,H:4");
  EXPECT_FALSE(clone->Equals(a));
  for (const CRectangle& other : {CRectangle(0, 2, 3, 4), CRectangle(1, 0, 3, 4), CRectangle(1, 2, 0, 4),
                                  CRectangle(1, 2, 3, 0)})
    EXPECT_FALSE(a.Equals(other));
}

}  // namespace
}  // namespace ombrel
