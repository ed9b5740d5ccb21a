#include "simulator/auto_focus.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

#include "unit/simulator/synthetic_specimen.h"

namespace ostrel_simulator {
namespace {

const LayeredSpecimen& RealSpecimen() {
  static const LayeredSpecimen specimen = MakeLayeredSpecimen(MakeSpecimen(3));
  return specimen;
}

StagePoint Texel(int x, int y) {
  return {std::int64_t{x} * 65536, std::int64_t{y} * 65536};
}

// By looking at every position there is.
int SharpestFocus(const LayeredSpecimen& specimen, int magnification, StagePoint point) {
  int best = 0;
  std::int64_t most = -1;
  for (int focus = 0; focus < kFocusPositions; ++focus) {
    const std::int64_t contrast = CentreContrast(specimen, {focus, magnification, 100}, point);
    if (contrast > most) {
      most = contrast;
      best = focus;
    }
  }
  return best;
}

// At a magnification that shows little more than a point of the hills.
TEST(AutoFocus, SharpestFocusOfAPointIsItsHeight) {
  for (const StagePoint point : {Texel(0, 0), Texel(300, -200), Texel(-700, 500), Texel(900, 0)}) {
    const auto u = static_cast<std::uint32_t>(point.x + std::int64_t{kSpecimenWidth / 2} * 65536);
    const auto v = static_cast<std::uint32_t>(point.y + std::int64_t{kSpecimenHeight / 2} * 65536);
    const double height = RealSpecimen().heights.At(u, v) / double{kHeightUnit};
    EXPECT_NEAR(SharpestFocus(RealSpecimen(), 220, point), height, 6) << point.x / 65536;
  }
}

TEST(AutoFocus, EndsAtTheSharpestPlaneOfTheCentre) {
  for (const int magnification : {30, 50, 120}) {
    for (const StagePoint point : {Texel(0, 0), Texel(640, 360), Texel(-900, 100)}) {
      const std::vector<int> stops = PlanAutoFocus(RealSpecimen(), {5, magnification, 100}, point);
      EXPECT_EQ(stops.back(), SharpestFocus(RealSpecimen(), magnification, point))
          << magnification << " at " << point.x / 65536;
    }
  }
}

TEST(AutoFocus, FindsAPlaneExactly) {
  const LayeredSpecimen specimen = MakeLayeredSpecimen(
      MakeFlatSpecimen(91, [](int x, int y) { return (x / 3 + y / 5) % 2 * 200; }));
  EXPECT_EQ(PlanAutoFocus(specimen, {200, 50, 100}, {0, 0}).back(), 91);
}

TEST(AutoFocus, ScansTheWholeTravelFirst) {
  const std::vector<int> stops = PlanAutoFocus(RealSpecimen(), {128, 50, 100}, {0, 0});
  ASSERT_GT(stops.size(), 17U);
  for (int i = 0; i < 16; ++i) {
    EXPECT_EQ(stops[static_cast<std::size_t>(i)], i * 16);
  }
  for (const int stop : stops) {
    EXPECT_GE(stop, 0);
    EXPECT_LT(stop, kFocusPositions);
  }
}

TEST(AutoFocus, EndsWhereItBeganInTheDark) {
  EXPECT_EQ(PlanAutoFocus(RealSpecimen(), {61, 50, 0}, {0, 0}).back(), 61);
}

}  // namespace
}  // namespace ostrel_simulator
