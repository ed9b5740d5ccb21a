#include "simulator/specimen.h"

#include <gtest/gtest.h>

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

// A specimen whose pixels tell where they are.
Specimen NumberedSpecimen() {
  Specimen specimen;
  specimen.pixels.resize(std::size_t{kSpecimenWidth} * kSpecimenHeight * 3);
  for (int y = 0; y < kSpecimenHeight; ++y) {
    for (int x = 0; x < kSpecimenWidth; ++x) {
      std::uint8_t* const pixel =
          &specimen.pixels[static_cast<std::size_t>((y * kSpecimenWidth + x) * 3)];
      pixel[0] = static_cast<std::uint8_t>(x);
      pixel[1] = static_cast<std::uint8_t>(y);
      pixel[2] = static_cast<std::uint8_t>((x >> 8) * 16 + (y >> 8));
    }
  }
  return specimen;
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

TEST(CopyView, MovesWithTheFrameNumberAndWrapsAtTheEdges) {
  const Specimen specimen = NumberedSpecimen();
  for (const std::uint32_t number : {0U, 1U, 2040U, 2047U, 2048U, 2303U, 4000000000U}) {
    constexpr int kWidth = 40;
    constexpr int kHeight = 3;
    std::vector<std::uint8_t> view(kWidth * kHeight * 3);
    CopyView(specimen, number, kWidth, kHeight, kWidth * 3, view.data());
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < kWidth; ++x) {
        const int sourceX = static_cast<int>(
            (std::uint64_t{number} * 2 + static_cast<unsigned>(x)) % kSpecimenWidth);
        const int sourceY =
            static_cast<int>((std::uint64_t{number} + static_cast<unsigned>(y)) % kSpecimenHeight);
        const std::uint8_t* const expected = PixelAt(specimen, sourceX, sourceY);
        const std::uint8_t* const seen = &view[static_cast<std::size_t>((y * kWidth + x) * 3)];
        ASSERT_TRUE(seen[0] == expected[0] && seen[1] == expected[1] && seen[2] == expected[2])
            << "frame " << number << " at " << x << "," << y;
      }
    }
  }
}

TEST(CopyView, LeavesTheRestOfARowAlone) {
  const Specimen specimen = NumberedSpecimen();
  std::vector<std::uint8_t> view(2 * 11, 200);
  CopyView(specimen, 0, 3, 2, 11, view.data());
  EXPECT_EQ(view[9], 200);
  EXPECT_EQ(view[10], 200);
  EXPECT_EQ(view[20], 200);
  EXPECT_EQ(view[21], 200);
  EXPECT_EQ(view[12], 1);
}

}  // namespace
}  // namespace ostrel_simulator
