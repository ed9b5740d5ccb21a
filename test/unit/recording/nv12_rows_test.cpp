#include "recording/nv12_rows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "camera/camera_pixel_format.h"
#include "reference/nv12_reference.h"
#include "unit/support/guarded_buffer.h"

namespace ostrel_native {

namespace {

using test::GuardedBuffer;

constexpr std::uint32_t kSeed = 20240501;
constexpr std::uint8_t kPoison = 0xa5;

struct PackedLayout {
  const char* name;
  CameraPixelFormat format;
  std::int32_t bytesPerPixel;
  Nv12RowPair Nv12Rows::*convert;
};

constexpr PackedLayout kLayouts[] = {
    {"Yuy2", CameraPixelFormat::Yuy2, 2, &Nv12Rows::yuy2},
    {"Uyvy", CameraPixelFormat::Uyvy, 2, &Nv12Rows::uyvy},
    {"Bgra", CameraPixelFormat::Bgra, 4, &Nv12Rows::bgra},
    {"Rgba", CameraPixelFormat::Rgba, 4, &Nv12Rows::rgba},
};

struct Form {
  const char* name;
  const Nv12Rows* rows;
  bool needsSse41;
};

constexpr Form kForms[] = {{"Plain", &kNv12RowsPlain, false}, {"Sse41", &kNv12RowsSse41, true}};

struct Nv12RowsOf : testing::TestWithParam<Form> {
  void SetUp() override {
    if (GetParam().needsSse41 && !__builtin_cpu_supports("sse4.1")) {
      GTEST_SKIP() << "this processor has no SSE4.1";
    }
  }

  const Nv12Rows& rows = *GetParam().rows;
};

// Two rows of a packed picture as a frame, and what the reference makes of them.
struct ReferenceRows {
  ReferenceRows(const PackedLayout& layout, const std::uint8_t* top, const std::uint8_t* bottom,
                std::int32_t width)
      : y(2 * static_cast<std::size_t>(width)), uv(static_cast<std::size_t>(width)) {
    const std::int32_t bytes = layout.bytesPerPixel * width;
    VideoRecorder::Frame frame;
    frame.data.assign(top, top + bytes);
    frame.data.insert(frame.data.end(), bottom, bottom + bytes);
    frame.width = width;
    frame.height = 2;
    frame.format = static_cast<std::int32_t>(layout.format);
    frame.planeStrides[0] = bytes;
    converted = test::ReferenceNv12(frame, y.data(), width, uv.data(), width);
  }

  std::vector<std::uint8_t> y;
  std::vector<std::uint8_t> uv;
  bool converted;
};

// How far the rows and the targets lie from the end of their buffers, and the bits that the
// random bytes keep: all of them, or only extremes, which the sums have to survive.
struct RowCase {
  std::size_t sourceGap;
  std::size_t targetGap;
  bool extremes;
};

void FillRandom(GuardedBuffer& buffer, std::mt19937& random, bool extremes) {
  std::generate(buffer.begin(), buffer.end(), [&] {
    const auto value = random();
    return static_cast<std::uint8_t>(extremes ? 0 - (value & 1) : value);
  });
}

void ExpectPoison(const std::uint8_t* begin, const std::uint8_t* end) {
  EXPECT_TRUE(std::all_of(begin, end, [](std::uint8_t byte) { return byte == kPoison; }))
      << "a byte beside the row was written";
}

void ExpectRowsOfReference(const Nv12Rows& rows, const PackedLayout& layout, std::int32_t width,
                           const RowCase& rowCase, std::mt19937& random) {
  const auto sourceBytes =
      static_cast<std::size_t>(layout.bytesPerPixel) * static_cast<std::size_t>(width);
  const auto targetBytes = static_cast<std::size_t>(width);
  GuardedBuffer top(sourceBytes + rowCase.sourceGap);
  GuardedBuffer bottom(sourceBytes + rowCase.sourceGap);
  FillRandom(top, random, rowCase.extremes);
  FillRandom(bottom, random, rowCase.extremes);
  const ReferenceRows expected(layout, top.data(), bottom.data(), width);
  ASSERT_TRUE(expected.converted);

  constexpr std::size_t kBefore = 40;
  GuardedBuffer yTop(kBefore + targetBytes + rowCase.targetGap, kPoison);
  GuardedBuffer yBottom(kBefore + targetBytes + rowCase.targetGap, kPoison);
  GuardedBuffer uv(kBefore + targetBytes + rowCase.targetGap, kPoison);
  (rows.*layout.convert)(top.data(), bottom.data(),
                         {yTop.data() + kBefore, yBottom.data() + kBefore, uv.data() + kBefore},
                         width);
  const auto expectBytes = [&](GuardedBuffer& target, const std::uint8_t* bytes, const char* name) {
    EXPECT_EQ(std::memcmp(target.data() + kBefore, bytes, targetBytes), 0) << name;
    ExpectPoison(target.begin(), target.begin() + kBefore);
    ExpectPoison(target.begin() + kBefore + targetBytes, target.end());
  };
  expectBytes(yTop, expected.y.data(), "luma of the top row");
  expectBytes(yBottom, expected.y.data() + targetBytes, "luma of the bottom row");
  expectBytes(uv, expected.uv.data(), "chroma");
}

TEST_P(Nv12RowsOf, EveryWidthAndPositionGivesTheBytesOfTheReference) {
  SCOPED_TRACE(testing::Message() << "seed " << kSeed);
  std::mt19937 random(kSeed);
  for (const PackedLayout& layout : kLayouts) {
    for (std::int32_t width = rows.minWidth; width <= 70; width += 2) {
      // No gap: the last byte read and the last byte written lie before a forbidden page.
      for (std::size_t gap = 0; gap < 34; gap += 1 + gap / 4) {
        SCOPED_TRACE(testing::Message() << layout.name << " width " << width << " gap " << gap);
        ExpectRowsOfReference(rows, layout, width, {gap, 0, false}, random);
        ExpectRowsOfReference(rows, layout, width, {0, gap, true}, random);
      }
    }
  }
}

TEST_P(Nv12RowsOf, LongRowsGiveTheBytesOfTheReference) {
  SCOPED_TRACE(testing::Message() << "seed " << kSeed);
  std::mt19937 random(kSeed);
  for (const PackedLayout& layout : kLayouts) {
    for (const std::int32_t width : {640, 1366, 1920, 4098, 8192}) {
      SCOPED_TRACE(testing::Message() << layout.name << " width " << width);
      ExpectRowsOfReference(rows, layout, width, {0, 0, false}, random);
      ExpectRowsOfReference(rows, layout, width, {0, 0, true}, random);
    }
  }
}

// A row of all blue values for one red and one green, in both byte orders.
struct BlueRamps {
  static constexpr std::size_t kWidth = 512;

  BlueRamps(int red, int green) : bgra(4 * kWidth), rgba(4 * kWidth) {
    for (std::size_t x = 0; x < kWidth; ++x) {
      const std::uint8_t blue = static_cast<std::uint8_t>(x / 2);
      const std::uint8_t pixel[] = {blue, static_cast<std::uint8_t>(green),
                                    static_cast<std::uint8_t>(red), 0xff};
      const std::uint8_t swapped[] = {pixel[2], pixel[1], pixel[0], 0};
      std::copy_n(pixel, 4, bgra.data() + 4 * x);
      std::copy_n(swapped, 4, rgba.data() + 4 * x);
    }
  }

  std::vector<std::uint8_t> bgra;
  std::vector<std::uint8_t> rgba;
};

// Pairs of equal pixels in two equal rows: each block's mean is the colour itself, so that luma
// and chroma are seen for all greens and blues, with every fifth red.
TEST_P(Nv12RowsOf, ColoursFromAllOverTheCubeGiveTheValuesOfTheMatrix) {
  constexpr auto kWidth = static_cast<std::int32_t>(BlueRamps::kWidth);
  std::vector<std::uint8_t> y(kWidth);
  std::vector<std::uint8_t> yBottom(kWidth);
  std::vector<std::uint8_t> uv(kWidth);
  for (int red = 0; red < 256; red += 5) {
    for (int green = 0; green < 256; ++green) {
      const BlueRamps ramps(red, green);
      rows.bgra(ramps.bgra.data(), ramps.bgra.data(), {y.data(), yBottom.data(), uv.data()},
                kWidth);
      int wrong = 0;
      for (int blue = 0; blue < 256; ++blue) {
        const std::size_t at = 2 * static_cast<std::size_t>(blue);
        const int u = -26 * red - 87 * green + 112 * blue + 128;
        const int v = 112 * red - 102 * green - 10 * blue + 128;
        wrong += y[at] != (47 * red + 157 * green + 16 * blue + 128) / 256 + 16 ? 1 : 0;
        wrong += y[at + 1] != y[at] ? 1 : 0;
        // Adding and removing 256 times 256 makes the division round down.
        wrong += uv[at] != (u + 65536) / 256 - 256 + 128 ? 1 : 0;
        wrong += uv[at + 1] != (v + 65536) / 256 - 256 + 128 ? 1 : 0;
      }
      ASSERT_EQ(wrong, 0) << "red " << red << " green " << green;

      ASSERT_EQ(yBottom, y) << "red " << red << " green " << green;

      std::vector<std::uint8_t> swappedY(kWidth);
      std::vector<std::uint8_t> swappedUv(kWidth);
      rows.rgba(ramps.rgba.data(), ramps.rgba.data(),
                {swappedY.data(), yBottom.data(), swappedUv.data()}, kWidth);
      ASSERT_EQ(swappedY, y) << "red " << red << " green " << green;
      ASSERT_EQ(swappedUv, uv) << "red " << red << " green " << green;
    }
  }
}

// All sums of four bytes near each rounding step, one channel at a time.
TEST_P(Nv12RowsOf, BlockMeansRoundHalvesUp) {
  constexpr std::size_t kWidth = 32;
  for (int sum = 0; sum <= 4 * 255; ++sum) {
    std::vector<std::uint8_t> top(4 * kWidth);
    std::vector<std::uint8_t> bottom(4 * kWidth);
    for (std::size_t x = 0; x < kWidth; ++x) {
      const int share = sum / 4 + (static_cast<int>(x % 2) < sum % 4 ? 1 : 0);
      const int lower = sum / 4 + (static_cast<int>(x % 2) + 2 < sum % 4 ? 1 : 0);
      top[4 * x + 1] = static_cast<std::uint8_t>(share);
      bottom[4 * x + 1] = static_cast<std::uint8_t>(lower);
    }
    std::vector<std::uint8_t> uv(kWidth);
    std::vector<std::uint8_t> y(2 * kWidth);
    rows.bgra(top.data(), bottom.data(), {y.data(), y.data() + kWidth, uv.data()},
              std::int32_t{kWidth});
    const int mean = (sum + 2) / 4;
    ASSERT_EQ(uv[0], (-87 * mean + 128 + 65536) / 256 - 256 + 128) << "sum " << sum;
    ASSERT_EQ(uv[1], (-102 * mean + 128 + 65536) / 256 - 256 + 128) << "sum " << sum;
  }
}

INSTANTIATE_TEST_SUITE_P(Forms, Nv12RowsOf, testing::ValuesIn(kForms),
                         [](const auto& form) { return std::string(form.param.name); });

}  // namespace

}  // namespace ostrel_native
