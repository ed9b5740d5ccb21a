#include "camera/frames/pixel_rows.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "unit/support/guarded_buffer.h"

namespace ostrel_native {
namespace {

using test::GuardedBuffer;

// Beyond the steps that have a vector form, and widths beyond several of its rounds.
constexpr int kMaxStep = 7;
constexpr int kMaxWidth = 50;

using RowFunction = void (*)(const std::uint8_t*, int, int, std::uint8_t*);

// Source and output end at an unreadable page, so each case also proves that no byte beyond the
// read-ahead is read and no byte beyond the row is written.
void ExpectRow(RowFunction reduce, std::size_t pixelBytes, std::size_t readAhead, int step,
               int width) {
  const std::size_t distance = pixelBytes * static_cast<std::size_t>(step);
  const auto pixels = static_cast<std::size_t>(width);
  GuardedBuffer source((pixels - 1) * distance + pixelBytes + readAhead);
  for (std::size_t i = 0; i < source.size(); ++i) {
    source.data()[i] = static_cast<std::uint8_t>(i * 7 + 3);
  }
  GuardedBuffer out(pixels * 4);
  reduce(source.data(), step, width, out.data());
  for (std::size_t x = 0; x < pixels; ++x) {
    for (std::size_t channel = 0; channel < 4; ++channel) {
      const std::uint8_t expected =
          channel < pixelBytes ? source.data()[x * distance + channel] : std::uint8_t{255};
      ASSERT_EQ(out.data()[4 * x + channel], expected)
          << "step " << step << " width " << width << " pixel " << x << " channel " << channel;
    }
  }
}

void ExpectAllRows(RowFunction reduce, std::size_t pixelBytes, std::size_t readAhead) {
  for (int step = 1; step <= kMaxStep; ++step) {
    for (int width = 1; width <= kMaxWidth; ++width) {
      ExpectRow(reduce, pixelBytes, readAhead, step, width);
    }
  }
}

TEST(ReduceRgbRow, TakesThreeBytesOfEachStepAndSetsTheFourthOpaque) {
  ExpectAllRows(ReduceRgbRow, 3, kPixelReadAhead);
}

TEST(ReduceRgbRowPlain, GivesTheSameWithoutVectorInstructions) {
  ExpectAllRows(ReduceRgbRowPlain, 3, kPixelReadAhead);
}

TEST(ReduceBgraRow, CopiesFourBytesOfEachStepAsTheyAre) {
  ExpectAllRows(ReduceBgraRow, 4, 0);
}

}  // namespace
}  // namespace ostrel_native
