#include "simulator/specimen_view.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "unit/simulator/edge_profile.h"
#include "unit/simulator/synthetic_specimen.h"

namespace ostrel_simulator {
namespace {

// The part of a view from (left, top) on, rows tight.
std::vector<std::uint8_t> Paint(const SpecimenView& view, std::int64_t left, std::int64_t top,
                                int width, int height) {
  std::vector<std::uint8_t> pixels(static_cast<std::size_t>(width * height) * 3);
  view.Paint(left, top, width, height, std::ptrdiff_t{width} * 3, pixels.data());
  return pixels;
}

// The brightness of one row of a view.
std::vector<double> Row(const SpecimenView& view, std::int64_t left, int width) {
  const std::vector<std::uint8_t> pixels = Paint(view, left, 3, width, 1);
  std::vector<double> row;
  for (std::size_t i = 0; i < pixels.size(); i += 3) {
    row.push_back(pixels[i + 1]);
  }
  return row;
}

// One for many tests, since it takes a while to make.
const LayeredSpecimen& RealSpecimen() {
  static const LayeredSpecimen specimen = MakeLayeredSpecimen(MakeSpecimen(3));
  return specimen;
}

TEST(SpecimenView, SpreadsAnEdgeByItsDistanceFromTheFocalPlane) {
  const LayeredSpecimen specimen = MakeLayeredSpecimen(MakeBar(100, 2048));
  double last = 0;
  for (const int focus : {100, 104, 110, 120, 140, 180, 255}) {
    const SpecimenView view(specimen, {focus, 50, 100});
    const double texelsPerPixel = static_cast<double>(view.step) / 65536;
    const double variance =
        ProfileOf(Row(view, -160, 320)).variance * texelsPerPixel * texelsPerPixel;
    const auto blur =
        static_cast<double>(BlurVariance256(view.optics, (focus - 100) * kHeightUnit)) / 256;
    // Differences of pixels stand in for the slope, and of texels for the edge.
    const double expected = blur + (texelsPerPixel * texelsPerPixel - 1) / 12;
    // In focus the few pixels of the edge decide.
    EXPECT_NEAR(variance / expected, 1, focus == 100 ? 0.15 : 0.06) << "focus " << focus;
    EXPECT_GT(variance, last);
    last = variance;
  }
}

TEST(SpecimenView, SpreadsAnEdgeMoreTheMoreTheLensMagnifies) {
  const LayeredSpecimen specimen = MakeLayeredSpecimen(MakeBar(100, 2048));
  double last = 0;
  for (const int magnification : {25, 50, 100, 200}) {
    const SpecimenView view(specimen, {112, magnification, 100});
    const double variance = ProfileOf(Row(view, -80, 160)).variance;
    EXPECT_GT(variance, 4 * last) << magnification;
    last = variance;
  }
}

TEST(SpecimenView, IsLargerTheFartherTheFocusMoves) {
  for (const int focus : {0, 128, 255}) {
    const LayeredSpecimen specimen = MakeLayeredSpecimen(MakeBar(focus, 2548));
    const SpecimenView view(specimen, {focus, 50, 100});
    // The edge lies between the texels 2547 and 2548, 499.5 to the right of the middle.
    const double expected = 499.5 * 65536 / static_cast<double>(view.step);
    EXPECT_NEAR(500 + ProfileOf(Row(view, 500, 400)).position, expected, 0.1) << focus;
  }
}

TEST(SpecimenView, IsLitByTheLamp) {
  const LayeredSpecimen specimen =
      MakeLayeredSpecimen(MakeFlatSpecimen(100, [](int, int) { return 200; }));
  const auto brightness = [&](int light) {
    return Row(SpecimenView(specimen, {128, 50, light}), 0, 1)[0];
  };
  EXPECT_EQ(brightness(100), 200 * 244 / 256 + 5);
  EXPECT_EQ(brightness(50), 200 * 126 / 256 + 5);
  EXPECT_EQ(brightness(1), 200 * 10 / 256 + 5);
  EXPECT_EQ(brightness(0), 200 * 8 / 256 + 5);
}

TEST(SpecimenView, GivesAPixelTheSameBytesInEveryPart) {
  const SpecimenView view(RealSpecimen(), {140, 50, 100});
  const std::vector<std::uint8_t> whole = Paint(view, -21, -9, 53, 17);
  for (const int left : {0, 1, 5, 30, 52}) {
    for (const int top : {0, 7, 16}) {
      const int width = std::min(53 - left, 11);
      const std::vector<std::uint8_t> part = Paint(view, left - 21, top - 9, width, 1);
      const auto* const same = &whole[static_cast<std::size_t>((top * 53 + left) * 3)];
      EXPECT_TRUE(std::equal(part.begin(), part.end(), same)) << left << "," << top;
    }
  }
}

TEST(SpecimenView, WritesNothingBesideItsPart) {
  const SpecimenView view(RealSpecimen(), {128, 50, 100});
  std::vector<std::uint8_t> target(3 * 40, 77);
  view.Paint(5, 0, 7, 3, 40, target.data() + 2);
  for (std::size_t i = 0; i < target.size(); ++i) {
    const bool isInside = i % 40 >= 2 && i % 40 < 2 + 21;
    EXPECT_TRUE(isInside || target[i] == 77) << i;
  }
  view.Paint(5, 0, 0, 3, 40, target.data());
  view.Paint(5, 0, 7, 0, 40, target.data());
  EXPECT_EQ(target[0], 77);
}

// At 35 times a texel is a pixel, so the specimen comes round after as many pixels.
TEST(SpecimenView, RepeatsAroundTheTorus) {
  const SpecimenView view(RealSpecimen(), {128, 35, 100});
  const std::vector<std::uint8_t> here = Paint(view, -100, -100, 40, 30);
  EXPECT_TRUE(Paint(view, -100 - kSpecimenWidth, -100, 40, 30) == here);
  EXPECT_TRUE(Paint(view, -100, -100 + 3 * kSpecimenHeight, 40, 30) == here);
  EXPECT_TRUE(Paint(view, -100 + std::int64_t{kSpecimenWidth} * 1000000, -100, 40, 30) == here);
  EXPECT_FALSE(Paint(view, -101, -100, 40, 30) == here);
}

TEST(SpecimenView, FindsThePixelClosestToAPointOfTheStage) {
  const SpecimenView view(RealSpecimen(), {128, 50, 100});
  EXPECT_EQ(view.PixelAt(0), 0);
  EXPECT_EQ(view.PixelAt(45875), 1);
  EXPECT_EQ(view.PixelAt(-45875), -1);
  EXPECT_EQ(view.PixelAt(22937), 0);
  EXPECT_EQ(view.PixelAt(22938), 1);
  EXPECT_EQ(view.PixelAt(-22937), 0);
  EXPECT_EQ(view.PixelAt(-22938), -1);
  EXPECT_EQ(view.PixelAt(std::int64_t{45875} * 4000000000), 4000000000);
}

// FNV-1a of a picture: another value on another machine means another picture there.
TEST(SpecimenView, IsTheSameBytesForASeedEverywhere) {
  const std::vector<std::uint8_t> picture =
      Paint(SpecimenView(RealSpecimen(), {117, 60, 80}), -200, -100, 400, 200);
  std::uint64_t hash = 0xCBF29CE484222325;
  for (const std::uint8_t byte : picture) {
    hash = (hash ^ byte) * 0x100000001B3;
  }
  EXPECT_EQ(hash, 9698740912283838861U);
}

}  // namespace
}  // namespace ostrel_simulator
