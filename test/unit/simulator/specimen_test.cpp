#include "simulator/specimen.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <vector>

namespace ostrel_simulator {
namespace {

const std::uint8_t* PixelAt(const Specimen& specimen, int x, int y) {
  return &specimen.pixels[static_cast<std::size_t>((y * kSpecimenWidth + x) * 3)];
}

TEST(Specimen, IsTheSameForTheSameSeedAndAnotherForAnother) {
  const Specimen one = MakeSpecimen(5);
  ASSERT_EQ(one.pixels.size(), std::size_t{kSpecimenWidth} * kSpecimenHeight * 3);
  EXPECT_TRUE(MakeSpecimen(5).pixels == one.pixels);
  EXPECT_FALSE(MakeSpecimen(6).pixels == one.pixels);
}

TEST(Specimen, HasManyColoursInEveryPart) {
  const Specimen specimen = MakeSpecimen(1);
  for (int top = 0; top < kSpecimenHeight; top += 256) {
    for (int left = 0; left < kSpecimenWidth; left += 256) {
      std::set<int> colours;
      for (int y = top; y < top + 256; ++y) {
        for (int x = left; x < left + 256; ++x) {
          const std::uint8_t* const pixel = PixelAt(specimen, x, y);
          colours.insert(pixel[0] << 16 | pixel[1] << 8 | pixel[2]);
        }
      }
      EXPECT_GT(colours.size(), 100U) << left << "," << top;
    }
  }
}

// A seam would show as a step in nearly every row; texture alone steps in few.
TEST(Specimen, HasNoSeamWhereItRepeats) {
  const Specimen specimen = MakeSpecimen(1);
  int steps = 0;
  for (int y = 0; y < kSpecimenHeight; ++y) {
    const int difference =
        std::abs(PixelAt(specimen, 0, y)[1] - PixelAt(specimen, kSpecimenWidth - 1, y)[1]);
    steps += difference > 24 ? 1 : 0;
  }
  for (int x = 0; x < kSpecimenWidth; ++x) {
    const int difference =
        std::abs(PixelAt(specimen, x, 0)[1] - PixelAt(specimen, x, kSpecimenHeight - 1)[1]);
    steps += difference > 24 ? 1 : 0;
  }
  EXPECT_LT(steps, (kSpecimenWidth + kSpecimenHeight) / 50);
}

TEST(Specimen, LiesWithinTheTravelOfTheFocusAndUsesItsRange) {
  for (const std::uint64_t seed : {1U, 2U}) {
    const std::vector<std::int16_t> heights = MakeSpecimen(seed).heights.sixteenths;
    ASSERT_EQ(heights.size(), std::size_t{kHeightColumns} * kHeightRows);
    EXPECT_EQ(*std::min_element(heights.begin(), heights.end()), kLowestPoint * kHeightUnit);
    EXPECT_EQ(*std::max_element(heights.begin(), heights.end()), kHighestPoint * kHeightUnit);
  }
}

// So that no blur begins or ends abruptly.
TEST(Specimen, HasSlopesAndNoSteps) {
  const HeightField heights = MakeSpecimen(1).heights;
  for (int y = 0; y < kHeightRows; ++y) {
    for (int x = 0; x < kHeightColumns; ++x) {
      const auto at = [&](int column, int row) {
        return heights.sixteenths[static_cast<std::size_t>(row % kHeightRows * kHeightColumns +
                                                           column % kHeightColumns)];
      };
      ASSERT_LT(std::abs(at(x + 1, y) - at(x, y)), 10 * kHeightUnit) << x << "," << y;
      ASSERT_LT(std::abs(at(x, y + 1) - at(x, y)), 10 * kHeightUnit) << x << "," << y;
    }
  }
}

TEST(HeightField, LiesOnLinesBetweenItsValues) {
  HeightField heights;
  heights.sixteenths.resize(std::size_t{kHeightColumns} * kHeightRows);
  heights.sixteenths[0] = 800;
  heights.sixteenths[1] = 1600;
  heights.sixteenths[kHeightColumns - 1] = 2400;
  heights.sixteenths[std::size_t{kHeightColumns} * (kHeightRows - 1)] = 400;
  const auto at = [&](double x, double y) {
    return heights.At(static_cast<std::uint32_t>(x * 65536), static_cast<std::uint32_t>(y * 65536));
  };
  EXPECT_EQ(at(0, 0), 800);
  EXPECT_EQ(at(8, 0), 1600);
  EXPECT_EQ(at(2, 0), 1000);
  EXPECT_EQ(at(4, 4), 600);
  EXPECT_EQ(at(4092, 0), 1600);
  EXPECT_EQ(at(0, 2300), 600);
}

}  // namespace
}  // namespace ostrel_simulator
