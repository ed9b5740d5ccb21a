#include "camera/pixel_rows.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "unit/support/guarded_buffer.h"

namespace ostrel_native {
namespace {

std::vector<std::uint8_t> Bytes(std::size_t count) {
  std::vector<std::uint8_t> bytes(count);
  for (std::size_t i = 0; i < count; ++i) {
    bytes[i] = static_cast<std::uint8_t>(i * 7 + 3);
  }
  return bytes;
}

std::vector<std::uint32_t> Columns(int width, std::uint32_t distance) {
  std::vector<std::uint32_t> offsets;
  for (int x = 0; x < width; ++x) {
    offsets.push_back(static_cast<std::uint32_t>(x) * distance);
  }
  return offsets;
}

TEST(ReduceRgbRow, TakesThreeBytesAndSetsTheFourthOpaque) {
  for (int width = 1; width <= 40; ++width) {
    for (const std::uint32_t distance : {3U, 6U, 9U, 12U}) {
      const auto offsets = Columns(width, distance);
      const auto source = Bytes(offsets.back() + 3 + kPixelReadAhead);
      std::vector<std::uint8_t> out(static_cast<std::size_t>(width) * 4);
      ReduceRgbRow(source.data(), offsets.data(), width, out.data());
      for (std::size_t x = 0; x < offsets.size(); ++x) {
        for (std::size_t channel = 0; channel < 3; ++channel) {
          ASSERT_EQ(out[4 * x + channel], source[offsets[x] + channel]) << width << " " << x;
        }
        ASSERT_EQ(out[4 * x + 3], 255);
      }
    }
  }
}

TEST(ReduceRgbRow, StaysWithinTheReadAheadAndTheOutput) {
  for (int width = 1; width <= 40; ++width) {
    const auto offsets = Columns(width, 3);
    GuardedBuffer source(offsets.back() + 3 + kPixelReadAhead);
    GuardedBuffer out(static_cast<std::size_t>(width) * 4);
    ReduceRgbRow(source.data(), offsets.data(), width, out.data());
    EXPECT_EQ(out.data()[out.size() - 1], 255);
  }
}

TEST(ReduceBgraRow, CopiesFourBytesAsTheyAre) {
  for (int width = 1; width <= 40; ++width) {
    const auto offsets = Columns(width, 8);
    GuardedBuffer source(offsets.back() + 4);
    for (std::size_t i = 0; i < source.size(); ++i) {
      source.data()[i] = static_cast<std::uint8_t>(i * 5);
    }
    std::vector<std::uint8_t> out(static_cast<std::size_t>(width) * 4);
    ReduceBgraRow(source.data(), offsets.data(), width, out.data());
    for (std::size_t x = 0; x < offsets.size(); ++x) {
      for (std::size_t channel = 0; channel < 4; ++channel) {
        ASSERT_EQ(out[4 * x + channel], source.data()[offsets[x] + channel]);
      }
    }
  }
}

}  // namespace
}  // namespace ostrel_native
