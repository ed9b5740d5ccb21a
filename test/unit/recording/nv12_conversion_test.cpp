#include "recording/nv12_conversion.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "camera/camera_pixel_format.h"
#include "recording/nv12_rows.h"
#include "reference/nv12_reference.h"
#include "unit/support/guarded_buffer.h"

namespace ostrel_native {

namespace {

using Frame = VideoRecorder::Frame;
using test::GuardedBuffer;

constexpr std::uint32_t kSeed = 20240502;
constexpr std::uint8_t kPoison = 0xa5;
constexpr int kMax = std::numeric_limits<std::int32_t>::max();
constexpr int kMin = std::numeric_limits<std::int32_t>::min();

constexpr CameraPixelFormat kConvertible[] = {CameraPixelFormat::Bgra, CameraPixelFormat::Nv12,
                                              CameraPixelFormat::Yuy2, CameraPixelFormat::Rgba,
                                              CameraPixelFormat::I420, CameraPixelFormat::Uyvy};

// Both planes of a picture; the last row ends with the buffer, without padding behind it.
struct Picture {
  Picture(std::int32_t width, std::int32_t height, std::int32_t padding, std::uint8_t fill)
      : stride(width + padding),
        y(static_cast<std::size_t>((height - 1) * stride + width), fill),
        uv(static_cast<std::size_t>((height / 2 - 1) * stride + width), fill) {}

  std::int32_t stride;
  GuardedBuffer y;
  GuardedBuffer uv;
};

bool Convert(const Frame& frame, Picture& picture) {
  return ConvertFrameToNv12Planar(frame, picture.y.data(), picture.stride, picture.uv.data(),
                                  picture.stride);
}

bool AllBytesAre(const GuardedBuffer& buffer, std::uint8_t value) {
  return std::all_of(buffer.data(), buffer.data() + buffer.size(),
                     [value](std::uint8_t byte) { return byte == value; });
}

void ExpectRefused(const Frame& frame) {
  Picture picture(64, 64, 0, kPoison);
  EXPECT_FALSE(Convert(frame, picture));
  EXPECT_TRUE(AllBytesAre(picture.y, kPoison)) << "luma was touched";
  EXPECT_TRUE(AllBytesAre(picture.uv, kPoison)) << "chroma was touched";
}

std::int32_t BytesPerRow(CameraPixelFormat format, std::int32_t width) {
  switch (format) {
    case CameraPixelFormat::Bgra:
    case CameraPixelFormat::Rgba:
      return 4 * width;
    case CameraPixelFormat::Yuy2:
    case CameraPixelFormat::Uyvy:
      return 2 * width;
    default:
      return width;
  }
}

// A frame with tight rows and planes right behind each other, every byte `value`.
Frame TightFrame(CameraPixelFormat format, std::int32_t width, std::int32_t height,
                 std::uint8_t value = 0) {
  Frame frame;
  frame.width = width;
  frame.height = height;
  frame.format = static_cast<std::int32_t>(format);
  frame.planeStrides[0] = BytesPerRow(format, width);
  std::int32_t size = frame.planeStrides[0] * height;
  if (format == CameraPixelFormat::Nv12) {
    frame.planeCount = 2;
    frame.planeOffsets[1] = size;
    frame.planeStrides[1] = width;
    size += width * height / 2;
  } else if (format == CameraPixelFormat::I420) {
    frame.planeCount = 3;
    frame.planeOffsets[1] = size;
    frame.planeOffsets[2] = size + width * height / 4;
    frame.planeStrides[1] = frame.planeStrides[2] = width / 2;
    size += width * height / 2;
  }
  frame.data.assign(static_cast<std::size_t>(size), value);
  return frame;
}

// A frame of one colour, its bytes in memory order.
Frame ColourFrame(CameraPixelFormat format, const std::vector<std::uint8_t>& pixel) {
  Frame frame = TightFrame(format, 4, 2);
  for (std::size_t i = 0; i < frame.data.size(); ++i) {
    frame.data[i] = pixel[i % pixel.size()];
  }
  return frame;
}

void ExpectColour(const Frame& frame, int y, int u, int v) {
  Picture picture(frame.width, frame.height, 0, kPoison);
  ASSERT_TRUE(Convert(frame, picture));
  EXPECT_TRUE(AllBytesAre(picture.y, static_cast<std::uint8_t>(y))) << int{picture.y.data()[0]};
  EXPECT_EQ(picture.uv.data()[0], u);
  EXPECT_EQ(picture.uv.data()[1], v);
}

std::vector<std::uint8_t> Bytes(const GuardedBuffer& buffer) {
  return {buffer.data(), buffer.data() + buffer.size()};
}

TEST(Nv12Conversion, TwoByTwoIsTheSmallestFrameInEveryLayout) {
  for (const CameraPixelFormat format : kConvertible) {
    Picture picture(2, 2, 0, kPoison);
    EXPECT_TRUE(Convert(TightFrame(format, 2, 2), picture)) << static_cast<int>(format);
    EXPECT_FALSE(AllBytesAre(picture.uv, kPoison));
  }
}

TEST(Nv12Conversion, SizesThatAreOddOrBelowTwoAreRefused) {
  for (const CameraPixelFormat format : kConvertible) {
    for (const std::int32_t bad : {3, 1, 0, -1, -2, kMin, kMax}) {
      SCOPED_TRACE(testing::Message() << static_cast<int>(format) << ' ' << bad);
      Frame frame = TightFrame(format, 4, 4);
      frame.width = bad;
      ExpectRefused(frame);
      frame.width = 4;
      frame.height = bad;
      ExpectRefused(frame);
    }
  }
}

TEST(Nv12Conversion, LayoutsThatAreNotConvertibleAreRefused) {
  for (const std::int32_t format : {0, 4, 8, -1, kMin, kMax}) {
    Frame frame = TightFrame(CameraPixelFormat::Bgra, 4, 4);
    frame.format = format;
    ExpectRefused(frame);
  }
}

TEST(Nv12Conversion, ATargetThatIsMissingOrTooNarrowIsRefused) {
  const Frame frame = TightFrame(CameraPixelFormat::Nv12, 4, 2);
  Picture picture(4, 2, 0, kPoison);
  std::uint8_t* const y = picture.y.data();
  std::uint8_t* const uv = picture.uv.data();
  EXPECT_FALSE(ConvertFrameToNv12Planar(frame, nullptr, 4, uv, 4));
  EXPECT_FALSE(ConvertFrameToNv12Planar(frame, y, 4, nullptr, 4));
  EXPECT_FALSE(ConvertFrameToNv12Planar(frame, y, 3, uv, 4));
  EXPECT_FALSE(ConvertFrameToNv12Planar(frame, y, 4, uv, 3));
  EXPECT_FALSE(ConvertFrameToNv12Planar(frame, y, -4, uv, 4));
  EXPECT_FALSE(ConvertFrameToNv12Planar(frame, y, 4, uv, kMin));
  EXPECT_TRUE(AllBytesAre(picture.y, kPoison));
  EXPECT_TRUE(AllBytesAre(picture.uv, kPoison));
  EXPECT_TRUE(ConvertFrameToNv12Planar(frame, y, 4, uv, 4));
}

TEST(Nv12Conversion, WhiteAndBlackAreTheEndsOfTheLimitedRange) {
  for (const CameraPixelFormat format : {CameraPixelFormat::Bgra, CameraPixelFormat::Rgba}) {
    ExpectColour(ColourFrame(format, {255, 255, 255, 255}), 235, 127, 128);
    ExpectColour(ColourFrame(format, {0, 0, 0, 0}), 16, 128, 128);
  }
}

TEST(Nv12Conversion, YellowGivesAUOfFifteen) {
  ExpectColour(ColourFrame(CameraPixelFormat::Bgra, {0, 255, 255, 255}), 219, 15, 138);
  ExpectColour(ColourFrame(CameraPixelFormat::Rgba, {255, 255, 0, 255}), 219, 15, 138);
}

TEST(Nv12Conversion, TheFourthByteOfAPixelIsIgnored) {
  ExpectColour(ColourFrame(CameraPixelFormat::Bgra, {10, 20, 30, 0}), 34, 123, 133);
  ExpectColour(ColourFrame(CameraPixelFormat::Bgra, {10, 20, 30, 255}), 34, 123, 133);
}

TEST(Nv12Conversion, PackedPairsKeepLumaAndRoundTheVerticalChromaMeanUp) {
  const std::uint8_t expectedUv[] = {11, 201};
  const std::uint8_t expectedY[] = {1, 2, 3, 4};
  Frame yuy2 = TightFrame(CameraPixelFormat::Yuy2, 2, 2);
  yuy2.data = {1, 10, 2, 200, 3, 11, 4, 201};
  Frame uyvy = TightFrame(CameraPixelFormat::Uyvy, 2, 2);
  uyvy.data = {10, 1, 200, 2, 11, 3, 201, 4};
  for (const Frame& frame : {yuy2, uyvy}) {
    Picture picture(2, 2, 0, kPoison);
    ASSERT_TRUE(Convert(frame, picture));
    EXPECT_TRUE(std::equal(std::begin(expectedY), std::end(expectedY), picture.y.begin()));
    EXPECT_TRUE(std::equal(std::begin(expectedUv), std::end(expectedUv), picture.uv.begin()));
  }
}

TEST(Nv12Conversion, SeparateChromaPlanesAreInterleavedWithUFirst) {
  Frame frame = TightFrame(CameraPixelFormat::I420, 4, 2);
  frame.data = {1, 2, 3, 4, 5, 6, 7, 8, 20, 21, 30, 31};
  frame.planeCount = 1;  // not looked at
  Picture picture(4, 2, 0, kPoison);
  ASSERT_TRUE(Convert(frame, picture));
  EXPECT_EQ(Bytes(picture.y), (std::vector<std::uint8_t>{1, 2, 3, 4, 5, 6, 7, 8}));
  EXPECT_EQ(Bytes(picture.uv), (std::vector<std::uint8_t>{20, 30, 21, 31}));
}

TEST(Nv12Conversion, OnePlaneImpliesChromaRightBehindTheLumaRows) {
  Frame frame = TightFrame(CameraPixelFormat::Nv12, 2, 2);
  frame.data = {99, 1, 2, 99, 3, 4, 99, 20, 30};
  frame.planeOffsets[0] = 1;
  frame.planeStrides[0] = 3;
  frame.planeOffsets[1] = kMin;
  frame.planeStrides[1] = 0;
  for (const std::int32_t planeCount : {1, 0, -3}) {
    frame.planeCount = planeCount;
    Picture picture(2, 2, 0, kPoison);
    ASSERT_TRUE(Convert(frame, picture));
    EXPECT_EQ(Bytes(picture.y), (std::vector<std::uint8_t>{1, 2, 3, 4}));
    EXPECT_EQ(Bytes(picture.uv), (std::vector<std::uint8_t>{20, 30}));
  }
}

TEST(Nv12Conversion, TwoPlanesAreTakenWhereTheyAreSaidToBe) {
  Frame frame = TightFrame(CameraPixelFormat::Nv12, 2, 2);
  frame.data = {20, 30, 99, 1, 2, 3, 4};
  frame.planeOffsets[0] = 3;
  frame.planeOffsets[1] = 0;
  frame.planeStrides[1] = 2;
  Picture picture(2, 2, 0, kPoison);
  ASSERT_TRUE(Convert(frame, picture));
  EXPECT_EQ(Bytes(picture.uv), (std::vector<std::uint8_t>{20, 30}));
}

TEST(Nv12Conversion, AnImpliedChromaOffsetThatWrapsIsRefusedOrProved) {
  Frame frame = TightFrame(CameraPixelFormat::Nv12, 2, 2);
  frame.planeCount = 1;
  frame.planeStrides[0] = kMax;
  frame.planeOffsets[0] = kMax;
  ExpectRefused(frame);
  frame.planeOffsets[0] = 4;  // 2 * kMax + 4 wraps to 2, inside the frame; the luma is not
  ExpectRefused(frame);
}

TEST(Nv12Conversion, DataMustReachExactlyToTheLastRow) {
  for (const CameraPixelFormat format : kConvertible) {
    SCOPED_TRACE(static_cast<int>(format));
    Frame frame = TightFrame(format, 4, 4);
    frame.data.pop_back();
    frame.data.shrink_to_fit();
    ExpectRefused(frame);
  }
}

TEST(Nv12Conversion, PaddingOfTheLastRowMayLieBeyondTheData) {
  for (const CameraPixelFormat format : {CameraPixelFormat::Bgra, CameraPixelFormat::Yuy2}) {
    Frame frame = TightFrame(format, 4, 2);
    const std::int32_t bytes = frame.planeStrides[0];
    frame.planeStrides[0] = bytes + 7;
    frame.data = std::vector<std::uint8_t>(static_cast<std::size_t>(2 * bytes + 7));
    Picture picture(4, 2, 0, kPoison);
    EXPECT_TRUE(Convert(frame, picture));
    frame.data.pop_back();
    ExpectRefused(frame);
  }
}

TEST(Nv12Conversion, AStrideBelowTheBytesOfARowIsRefusedHoweverLongTheData) {
  for (const CameraPixelFormat format : kConvertible) {
    SCOPED_TRACE(static_cast<int>(format));
    Frame frame = TightFrame(format, 4, 4);
    frame.data.resize(100000);
    frame.planeStrides[0] -= 1;
    ExpectRefused(frame);
    frame.planeStrides[0] = 0;  // as in a frame without plane data
    ExpectRefused(frame);
    frame.planeStrides[0] = kMin;
    ExpectRefused(frame);
  }
}

TEST(Nv12Conversion, ABadChromaPlaneLeavesTheLumaUntouched) {
  Frame i420 = TightFrame(CameraPixelFormat::I420, 4, 4);
  i420.planeOffsets[2] += 1;
  ExpectRefused(i420);
  i420.planeOffsets[2] = -1;
  ExpectRefused(i420);
  Frame nv12 = TightFrame(CameraPixelFormat::Nv12, 4, 4);
  nv12.planeOffsets[1] += 1;
  ExpectRefused(nv12);
}

TEST(Nv12Conversion, SizesBeyondAnyMemoryAreRefused) {
  for (const CameraPixelFormat format : kConvertible) {
    Frame frame = TightFrame(format, 2, 2);
    frame.width = kMax - 1;
    frame.height = kMax - 1;
    frame.planeStrides[0] = frame.planeStrides[1] = frame.planeStrides[2] = kMax;
    std::uint8_t byte = kPoison;
    EXPECT_FALSE(ConvertFrameToNv12Planar(frame, &byte, kMax, &byte, kMax));
    EXPECT_EQ(byte, kPoison);
  }
}

// Random frames against the reference, in each form and in the one that is chosen by itself.
using Conversion = bool (*)(const Frame& frame, unsigned char* y, int yStride, unsigned char* uv,
                            int uvStride);

bool ConvertPlain(const Frame& frame, unsigned char* y, int yStride, unsigned char* uv,
                  int uvStride) {
  return ConvertFrameToNv12PlanarWith(kNv12RowsPlain, frame, y, yStride, uv, uvStride);
}

bool ConvertSse41(const Frame& frame, unsigned char* y, int yStride, unsigned char* uv,
                  int uvStride) {
  return ConvertFrameToNv12PlanarWith(kNv12RowsSse41, frame, y, yStride, uv, uvStride);
}

struct Form {
  const char* name;
  Conversion convert;
};

struct Nv12ConversionOf : testing::TestWithParam<Form> {
  void SetUp() override {
    if (GetParam().convert == ConvertSse41 && !__builtin_cpu_supports("sse4.1")) {
      GTEST_SKIP() << "this processor has no SSE4.1";
    }
  }

  void ExpectSameAsReference(const Frame& frame, std::int32_t padding) {
    Picture ours(frame.width, frame.height, padding, kPoison);
    Picture expected(frame.width, frame.height, padding, kPoison);
    const bool converted = test::ReferenceNv12(frame, expected.y.data(), expected.stride,
                                               expected.uv.data(), expected.stride);
    EXPECT_EQ(GetParam().convert(frame, ours.y.data(), ours.stride, ours.uv.data(), ours.stride),
              converted);
    EXPECT_EQ(Bytes(ours.y), Bytes(expected.y));
    EXPECT_EQ(Bytes(ours.uv), Bytes(expected.uv));
    accepted += converted ? 1 : 0;
  }

  int accepted = 0;
  std::mt19937 random{kSeed};

  std::int32_t Below(std::int32_t end) {
    return static_cast<std::int32_t>(random() % static_cast<std::uint32_t>(end));
  }

  // Appends a plane with a random gap before it and random padding, without padding at its end.
  void AppendPlane(Frame& frame, int plane, std::int32_t rows, std::int32_t bytes) {
    frame.planeOffsets[plane] = static_cast<std::int32_t>(frame.data.size()) + Below(40);
    frame.planeStrides[plane] = bytes + Below(34);
    const std::int32_t end =
        frame.planeOffsets[plane] + (rows - 1) * frame.planeStrides[plane] + bytes;
    frame.data.resize(static_cast<std::size_t>(end));
  }

  Frame RandomFrame() {
    const CameraPixelFormat format = kConvertible[Below(6)];
    Frame frame;
    frame.format = static_cast<std::int32_t>(format);
    frame.width = 2 * (1 + Below(35));
    frame.height = 2 * (1 + Below(4));
    frame.planeCount = Below(4);
    AppendPlane(frame, 0, frame.height, BytesPerRow(format, frame.width));
    if (format == CameraPixelFormat::Nv12 && frame.planeCount <= 1) {
      // The implied plane: rows as far apart as the luma rows, from behind their padding.
      const std::int32_t lastRow = (frame.height * 3 / 2 - 1) * frame.planeStrides[0];
      const std::int32_t size = frame.planeOffsets[0] + lastRow + frame.width;
      frame.data.resize(static_cast<std::size_t>(size));
    } else if (format == CameraPixelFormat::Nv12) {
      AppendPlane(frame, 1, frame.height / 2, frame.width);
    } else if (format == CameraPixelFormat::I420) {
      AppendPlane(frame, 1, frame.height / 2, frame.width / 2);
      AppendPlane(frame, 2, frame.height / 2, frame.width / 2);
    }
    std::generate(frame.data.begin(), frame.data.end(),
                  [this] { return static_cast<std::uint8_t>(random()); });
    frame.data.shrink_to_fit();
    return frame;
  }
};

TEST_P(Nv12ConversionOf, RandomFramesGiveTheBytesOfTheReference) {
  for (int round = 0; round < 1500; ++round) {
    SCOPED_TRACE(testing::Message() << "seed " << kSeed << " round " << round);
    ExpectSameAsReference(RandomFrame(), Below(20));
    if (HasFailure()) {
      return;
    }
  }
  EXPECT_EQ(accepted, 1500);
}

TEST_P(Nv12ConversionOf, FramesWithOneWrongNumberAreJudgedAsByTheReference) {
  const std::int32_t nonsense[] = {kMin, kMin + 1, -70, -2, -1, 0, 1, 2, 35, 70, kMax - 1, kMax};
  for (int round = 0; round < 3000; ++round) {
    SCOPED_TRACE(testing::Message() << "seed " << kSeed << " round " << round);
    Frame frame = RandomFrame();
    std::int32_t* const numbers[] = {&frame.planeCount,      &frame.planeOffsets[0],
                                     &frame.planeOffsets[1], &frame.planeOffsets[2],
                                     &frame.planeStrides[0], &frame.planeStrides[1],
                                     &frame.planeStrides[2], &frame.format};
    *numbers[Below(static_cast<std::int32_t>(std::size(numbers)))] =
        nonsense[Below(static_cast<std::int32_t>(std::size(nonsense)))];
    if (Below(3) == 0) {
      frame.data.resize(frame.data.size() - std::min<std::size_t>(frame.data.size(), 1));
    }
    frame.data.shrink_to_fit();
    ExpectSameAsReference(frame, 0);
    if (HasFailure()) {
      return;
    }
  }
  EXPECT_GT(accepted, 100);
  EXPECT_LT(accepted, 2900);
}

INSTANTIATE_TEST_SUITE_P(Forms, Nv12ConversionOf,
                         testing::Values(Form{"Chosen", ConvertFrameToNv12Planar},
                                         Form{"Plain", ConvertPlain}, Form{"Sse41", ConvertSse41}),
                         [](const auto& form) { return std::string(form.param.name); });

}  // namespace

}  // namespace ostrel_native
