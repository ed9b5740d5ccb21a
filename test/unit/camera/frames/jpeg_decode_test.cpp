#include "camera/frames/jpeg_decode.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "fakes/fake_library.h"
#include "unit/support/guarded_buffer.h"
#include "unit/support/jpeg_samples.h"

namespace ostrel_native {
namespace {

using test::GuardedBuffer;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t kPoison = 0xA5;
constexpr int kSubsamplings[] = {TJSAMP_444, TJSAMP_422, TJSAMP_420,
                                 TJSAMP_440, TJSAMP_411, TJSAMP_GRAY};

struct JpegDecode : testing::Test {
  ~JpegDecode() override {
    if (decompressor != nullptr) {
      g_turboJpeg.tjDestroy(decompressor);
    }
    UnloadTurboJpeg();
  }

  void Load(const std::string& path) {
    UnloadTurboJpeg();
    ASSERT_TRUE(g_turboJpeg.Load(path));
    decompressor = g_turboJpeg.tjInitDecompress();
    ASSERT_NE(decompressor, nullptr);
  }

  bool ToRgb(const Bytes& jpeg, GuardedBuffer& out, int width, int height) {
    std::fill_n(out.data(), out.size(), kPoison);
    return DecodeJpegToRgb(decompressor, jpeg.data(), jpeg.size(), out.data(), width, height);
  }

  bool ToI420(const Bytes& jpeg, GuardedBuffer& out, int width, int height) {
    std::fill_n(out.data(), out.size(), kPoison);
    return DecodeJpegToI420(decompressor, jpeg.data(), jpeg.size(), out.data(), out.size(), width,
                            height, scratch);
  }

  tjhandle decompressor = nullptr;
  Bytes scratch;
};

using JpegToRgb = JpegDecode;
using JpegToI420 = JpegDecode;

bool IsUntouched(GuardedBuffer& buffer) {
  return std::all_of(buffer.data(), buffer.data() + buffer.size(),
                     [](std::uint8_t byte) { return byte == kPoison; });
}

std::size_t RgbBytes(int width, int height) {
  return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3;
}

std::size_t I420Bytes(int width, int height) {
  return RgbBytes(width, height) / 2;
}

// A plane's area average, cell by cell, by the definition.
Bytes ResampleByDefinition(const Bytes& source, long sourceWidth, long sourceHeight, long width,
                           long height) {
  Bytes out;
  for (long y = 0; y < height; ++y) {
    for (long x = 0; x < width; ++x) {
      const long y0 = y * sourceHeight / height;
      const long x0 = x * sourceWidth / width;
      long y1 = (y + 1) * sourceHeight / height;
      long x1 = (x + 1) * sourceWidth / width;
      if (y1 <= y0) {
        y1 = std::min(y0 + 1, sourceHeight);
      }
      if (x1 <= x0) {
        x1 = std::min(x0 + 1, sourceWidth);
      }
      long sum = 0;
      long count = 0;
      for (long row = y0; row < y1; ++row) {
        for (long column = x0; column < x1; ++column) {
          sum += source[static_cast<std::size_t>(row * sourceWidth + column)];
          ++count;
        }
      }
      out.push_back(static_cast<std::uint8_t>((sum + count / 2) / std::max(count, 1L)));
    }
  }
  return out;
}

// What the library itself decodes, in planes with room to spare, brought to I420.
Bytes ExpectedI420(const Bytes& jpeg, int width, int height, int subsampling) {
  constexpr int kPadding = 16;
  const int lumaStride = width + kPadding;
  Bytes luma(static_cast<std::size_t>(lumaStride) * static_cast<std::size_t>(height + kPadding));
  const bool isGrey = subsampling == TJSAMP_GRAY;
  const int chromaWidth = isGrey ? 0 : TURBOJPEG(tjPlaneWidth)(1, width, subsampling);
  const int chromaHeight = isGrey ? 0 : TURBOJPEG(tjPlaneHeight)(1, height, subsampling);
  Bytes u(static_cast<std::size_t>(chromaWidth) * static_cast<std::size_t>(chromaHeight));
  Bytes v(u.size());
  std::uint8_t* planes[3] = {luma.data(), u.data(), v.data()};
  int strides[3] = {lumaStride, chromaWidth, chromaWidth};
  const tjhandle handle = TURBOJPEG(tjInitDecompress)();
  EXPECT_EQ(TURBOJPEG(tjDecompressToYUVPlanes)(handle, jpeg.data(), jpeg.size(), planes, width,
                                               strides, height, TJFLAG_FASTDCT),
            0);
  TURBOJPEG(tjDestroy)(handle);

  Bytes expected;
  for (int y = 0; y < height; ++y) {
    const auto row = luma.begin() + std::ptrdiff_t{y} * lumaStride;
    expected.insert(expected.end(), row, row + width);
  }
  for (const Bytes& plane : {u, v}) {
    const Bytes chroma =
        isGrey ? Bytes(static_cast<std::size_t>(width / 2 * (height / 2)), 128)
               : ResampleByDefinition(plane, chromaWidth, chromaHeight, width / 2, height / 2);
    expected.insert(expected.end(), chroma.begin(), chroma.end());
  }
  return expected;
}

TEST_F(JpegToRgb, DecodesEverySubsampling) {
  Load(kTurboJpegName);
  for (const int subsampling : kSubsamplings) {
    const Bytes jpeg = SampleJpeg(37, 21, subsampling);
    GuardedBuffer out(RgbBytes(37, 21));
    ASSERT_TRUE(ToRgb(jpeg, out, 37, 21)) << subsampling;
    Bytes expected(out.size());
    const tjhandle handle = TURBOJPEG(tjInitDecompress)();
    TURBOJPEG(tjDecompress2)
    (handle, jpeg.data(), jpeg.size(), expected.data(), 37, 111, 21, TJPF_RGB, TJFLAG_FASTDCT);
    TURBOJPEG(tjDestroy)(handle);
    EXPECT_EQ(Bytes(out.data(), out.data() + out.size()), expected) << subsampling;
  }
}

TEST_F(JpegToRgb, APictureOfAnotherSizeIsScaledToFit) {
  Load(kTurboJpegName);
  const Bytes jpeg = SampleJpeg(64, 48, TJSAMP_420);
  GuardedBuffer out(RgbBytes(32, 24));
  EXPECT_TRUE(ToRgb(jpeg, out, 32, 24));
}

TEST_F(JpegToRgb, WhatASmallerPictureLeavesFreeIsZero) {
  Load(kTurboJpegName);
  // The library scales up by no more than 2: 16 by 16 covers 32 by 32 of it.
  const Bytes jpeg = SampleJpeg(16, 16, TJSAMP_444);
  GuardedBuffer out(RgbBytes(40, 40));
  ASSERT_TRUE(ToRgb(jpeg, out, 40, 40));
  int covered = 0;
  for (int y = 0; y < 40; ++y) {
    for (int x = 0; x < 40; ++x) {
      const std::uint8_t* const pixel = out.data() + (y * 40 + x) * 3;
      const bool isBlack = pixel[0] == 0 && pixel[1] == 0 && pixel[2] == 0;
      covered += isBlack ? 0 : 1;
      if (x >= 32 || y >= 32) {
        ASSERT_TRUE(isBlack) << x << " " << y;
      }
    }
  }
  EXPECT_GT(covered, 900);
}

TEST_F(JpegToRgb, RefusesWhatIsNoWholeJpeg) {
  Load(kTurboJpegName);
  Bytes jpeg = SampleJpeg(32, 32, TJSAMP_420);
  GuardedBuffer out(RgbBytes(32, 32));
  EXPECT_FALSE(ToRgb(Bytes(jpeg.begin(), jpeg.begin() + 40), out, 32, 32));
  EXPECT_FALSE(ToRgb(Bytes(jpeg.begin(), jpeg.end() - 40), out, 32, 32));
  EXPECT_FALSE(ToRgb(Bytes(100, 0x42), out, 32, 32));
  EXPECT_FALSE(ToRgb(Bytes(1, 0xFF), out, 32, 32));
}

TEST_F(JpegToRgb, AsksForPackedRgbByTheFastTransform) {
  Load(FakePath("libturbojpeg.so"));
  const FakeLibrary library(FakePath("libturbojpeg.so"));
  library.Send("reset");
  GuardedBuffer out(RgbBytes(10, 4));
  EXPECT_TRUE(ToRgb(Bytes(7), out, 10, 4));
  library.Send("default tjDecompress2 -1");
  EXPECT_FALSE(ToRgb(Bytes(7), out, 10, 4));
  EXPECT_EQ(library.Calls("tjDecompress2")[0].arguments,
            (std::vector<std::string>{"ptr", "ptr", "7", "10", "30", "4", "0", "2048"}));
}

TEST_F(JpegToI420, DecodesEverySubsamplingIntoExactlyItsBytes) {
  Load(kTurboJpegName);
  struct Size {
    int width;
    int height;
  };
  // Among them the sizes whose planes a decoder pads: sampling units are up to 4 wide.
  for (const Size size : {Size{32, 16}, Size{2, 2}, Size{6, 2}, Size{2, 6}, Size{6, 6},
                          Size{50, 38}, Size{64, 4}, Size{130, 66}}) {
    for (const int subsampling : kSubsamplings) {
      const Bytes jpeg = SampleJpeg(size.width, size.height, subsampling);
      GuardedBuffer out(I420Bytes(size.width, size.height));
      ASSERT_TRUE(ToI420(jpeg, out, size.width, size.height))
          << size.width << " " << size.height << " " << subsampling;
      EXPECT_EQ(Bytes(out.data(), out.data() + out.size()),
                ExpectedI420(jpeg, size.width, size.height, subsampling))
          << size.width << " " << size.height << " " << subsampling;
    }
  }
}

TEST_F(JpegToI420, AGreyPictureGetsNeutralChroma) {
  Load(kTurboJpegName);
  GuardedBuffer out(I420Bytes(32, 16));
  ASSERT_TRUE(ToI420(SampleJpeg(32, 16, TJSAMP_GRAY), out, 32, 16));
  EXPECT_EQ(Bytes(out.data() + 512, out.data() + 768), Bytes(256, 128));
}

TEST_F(JpegToI420, OnlyOtherSubsamplingsTakeScratchAndKeepIt) {
  Load(kTurboJpegName);
  GuardedBuffer out(I420Bytes(32, 16));
  ASSERT_TRUE(ToI420(SampleJpeg(32, 16, TJSAMP_420), out, 32, 16));
  ASSERT_TRUE(ToI420(SampleJpeg(32, 16, TJSAMP_GRAY), out, 32, 16));
  EXPECT_TRUE(scratch.empty());
  ASSERT_TRUE(ToI420(SampleJpeg(32, 16, TJSAMP_444), out, 32, 16));
  EXPECT_EQ(scratch.size(), 2U * 32 * 16);
  const std::uint8_t* const kept = scratch.data();
  ASSERT_TRUE(ToI420(SampleJpeg(32, 16, TJSAMP_422), out, 32, 16));
  ASSERT_TRUE(ToI420(SampleJpeg(32, 16, TJSAMP_444), out, 32, 16));
  EXPECT_EQ(scratch.data(), kept);
  EXPECT_EQ(scratch.size(), 2U * 32 * 16);
}

TEST_F(JpegToI420, RefusesAnotherSizeBeforeAByteIsWritten) {
  Load(kTurboJpegName);
  for (const int subsampling : kSubsamplings) {
    const Bytes jpeg = SampleJpeg(32, 16, subsampling);
    GuardedBuffer out(I420Bytes(64, 64));
    EXPECT_FALSE(ToI420(jpeg, out, 30, 16));
    EXPECT_FALSE(ToI420(jpeg, out, 32, 18));
    EXPECT_FALSE(ToI420(jpeg, out, 16, 32));
    EXPECT_FALSE(ToI420(jpeg, out, 0, 0));
    EXPECT_FALSE(ToI420(jpeg, out, -32, -16));
    EXPECT_TRUE(IsUntouched(out));
  }
}

TEST_F(JpegToI420, RefusesOddSizes) {
  Load(kTurboJpegName);
  GuardedBuffer out(I420Bytes(64, 64));
  EXPECT_FALSE(ToI420(SampleJpeg(33, 16, TJSAMP_420), out, 33, 16));
  EXPECT_FALSE(ToI420(SampleJpeg(32, 17, TJSAMP_420), out, 32, 17));
  EXPECT_TRUE(IsUntouched(out));
}

TEST_F(JpegToI420, RefusesABufferThatIsOneByteShort) {
  Load(kTurboJpegName);
  for (const int subsampling : kSubsamplings) {
    GuardedBuffer out(I420Bytes(32, 16) - 1);
    EXPECT_FALSE(ToI420(SampleJpeg(32, 16, subsampling), out, 32, 16));
    EXPECT_TRUE(IsUntouched(out));
  }
}

TEST_F(JpegToI420, RefusesWhatIsNoWholeJpeg) {
  Load(kTurboJpegName);
  for (const int subsampling : kSubsamplings) {
    const Bytes jpeg = SampleJpeg(32, 16, subsampling);
    GuardedBuffer out(I420Bytes(32, 16));
    EXPECT_FALSE(ToI420(Bytes(jpeg.begin(), jpeg.end() - 30), out, 32, 16));
    EXPECT_FALSE(ToI420(Bytes(jpeg.begin(), jpeg.begin() + 20), out, 32, 16));
    EXPECT_FALSE(ToI420(Bytes(jpeg.begin(), jpeg.begin() + 1), out, 32, 16));
  }
}

struct FakeHeader : JpegDecode {
  FakeHeader() : library(FakePath("libturbojpeg.so")) {
    library.Send(
        "reset\n"
        "default tjDecompressHeader3.width 8\n"
        "default tjDecompressHeader3.height 4");
    Load(FakePath("libturbojpeg.so"));
  }

  void SetSubsampling(int subsampling) {
    library.Send("default tjDecompressHeader3.subsampling " + std::to_string(subsampling));
  }

  FakeLibrary library;
};

using JpegToI420Calls = FakeHeader;

TEST_F(JpegToI420Calls, AFailedHeaderIsAFailedFrame) {
  library.Send("default tjDecompressHeader3 -1");
  GuardedBuffer out(I420Bytes(8, 4));
  EXPECT_FALSE(ToI420(Bytes(9), out, 8, 4));
  EXPECT_EQ(library.Entered("tjDecompressToYUVPlanes"), 0);
}

TEST_F(JpegToI420Calls, AFailedDecodeIsAFailedFrame) {
  library.Send("default tjDecompressToYUVPlanes -1");
  GuardedBuffer out(I420Bytes(8, 4));
  SetSubsampling(TJSAMP_GRAY);
  EXPECT_FALSE(ToI420(Bytes(9), out, 8, 4));
  EXPECT_TRUE(IsUntouched(out));
  SetSubsampling(TJSAMP_444);
  library.Send("default tjPlaneWidth 8\ndefault tjPlaneHeight 4");
  EXPECT_FALSE(ToI420(Bytes(9), out, 8, 4));
  EXPECT_TRUE(IsUntouched(out));
  EXPECT_EQ(library.Entered("tjDecompressToYUVPlanes"), 2);
}

TEST_F(JpegToI420Calls, AnUnknownSubsamplingIsRefused) {
  SetSubsampling(-1);
  GuardedBuffer out(I420Bytes(8, 4));
  library.Send("default tjPlaneWidth -1\ndefault tjPlaneHeight 4");
  EXPECT_FALSE(ToI420(Bytes(9), out, 8, 4));
  library.Send("default tjPlaneWidth 8\ndefault tjPlaneHeight 0");
  EXPECT_FALSE(ToI420(Bytes(9), out, 8, 4));
  EXPECT_TRUE(scratch.empty());
  EXPECT_EQ(library.Entered("tjDecompressToYUVPlanes"), 0);
}

TEST_F(JpegToI420Calls, PlaneSizesAreAskedOfTheChromaComponent) {
  SetSubsampling(TJSAMP_422);
  library.Send(
      "default tjPlaneWidth 4\ndefault tjPlaneHeight 4\n"
      "default tjDecompressToYUVPlanes.y 1\n"
      "default tjDecompressToYUVPlanes.u 2\n"
      "default tjDecompressToYUVPlanes.v 3\n"
      "default tjDecompressToYUVPlanes.chroma_width 4\n"
      "default tjDecompressToYUVPlanes.chroma_height 4");
  GuardedBuffer out(I420Bytes(8, 4));
  ASSERT_TRUE(ToI420(Bytes(9), out, 8, 4));
  Bytes expected(32, 1);
  expected.insert(expected.end(), 8, 2);
  expected.insert(expected.end(), 8, 3);
  EXPECT_EQ(Bytes(out.data(), out.data() + out.size()), expected);
  EXPECT_EQ(library.Calls("tjPlaneWidth")[0].arguments,
            (std::vector<std::string>{"1", "8", std::to_string(TJSAMP_422)}));
  EXPECT_EQ(library.Calls("tjPlaneHeight")[0].arguments,
            (std::vector<std::string>{"1", "4", std::to_string(TJSAMP_422)}));
  EXPECT_EQ(library.Calls("tjDecompressToYUVPlanes")[0].arguments,
            (std::vector<std::string>{"ptr", "ptr", "9", "8", "4", "2048"}));
}

Bytes Resample(const Bytes& source, int sourceWidth, int sourceHeight, int width, int height) {
  GuardedBuffer in(std::max<std::size_t>(source.size(), 1));
  std::copy(source.begin(), source.end(), in.data() + in.size() - source.size());
  GuardedBuffer out(std::max<std::size_t>(
      static_cast<std::size_t>(std::max(width, 0)) * static_cast<std::size_t>(std::max(height, 0)),
      1));
  std::fill_n(out.data(), out.size(), kPoison);
  TurboJpegRuntime::ResamplePlane(in.data(), sourceWidth, sourceHeight, out.data(), width, height);
  return Bytes(out.data(), out.data() + out.size());
}

TEST(ResamplePlane, AveragesEachCell) {
  EXPECT_EQ(Resample({0, 0, 0, 0, 1, 1, 1, 1, 8, 8, 4, 4, 8, 8, 4, 4}, 4, 4, 2, 2),
            (Bytes{1, 1, 8, 4}));
  EXPECT_EQ(Resample({0, 0, 1, 1}, 2, 2, 1, 1), (Bytes{1}));
}

TEST(ResamplePlane, RoundsToNearestHalvesUp) {
  EXPECT_EQ(Resample({1, 2}, 2, 1, 1, 1), (Bytes{2}));
  EXPECT_EQ(Resample({1, 1, 2}, 3, 1, 1, 1), (Bytes{1}));
  EXPECT_EQ(Resample({1, 2, 2}, 3, 1, 1, 1), (Bytes{2}));
  EXPECT_EQ(Resample({255, 255, 255}, 3, 1, 1, 1), (Bytes{255}));
}

TEST(ResamplePlane, UpscalesByRepeatingSamples) {
  EXPECT_EQ(Resample({1, 2}, 2, 1, 4, 2), (Bytes{1, 1, 2, 2, 1, 1, 2, 2}));
  EXPECT_EQ(Resample({1, 2}, 2, 1, 3, 1), (Bytes{1, 1, 2}));
}

TEST(ResamplePlane, OfTheSameSizeIsACopy) {
  const Bytes plane = SamplePicture(4, 3);
  EXPECT_EQ(Resample(plane, 12, 3, 12, 3), plane);
}

TEST(ResamplePlane, OfAnEmptySourceIsZero) {
  EXPECT_EQ(Resample({}, 0, 4, 2, 2), Bytes(4, 0));
  EXPECT_EQ(Resample({}, 4, 0, 2, 2), Bytes(4, 0));
}

TEST(ResamplePlane, IntoNothingWritesNothing) {
  EXPECT_EQ(Resample({1, 2, 3, 4}, 2, 2, 2, 0), (Bytes{kPoison}));
  EXPECT_EQ(Resample({1, 2, 3, 4}, 2, 2, 2, -5), (Bytes{kPoison}));
  EXPECT_EQ(Resample({1, 2, 3, 4}, 2, 2, 0, 2), (Bytes{kPoison}));
}

TEST(ResamplePlane, AgreesWithItsDefinitionForAllSmallSizes) {
  for (int sourceWidth = 1; sourceWidth <= 7; ++sourceWidth) {
    for (int sourceHeight = 1; sourceHeight <= 5; ++sourceHeight) {
      Bytes source = SamplePicture(sourceWidth, sourceHeight);
      source.resize(static_cast<std::size_t>(sourceWidth * sourceHeight));
      for (int width = 1; width <= 8; ++width) {
        for (int height = 1; height <= 6; ++height) {
          ASSERT_EQ(Resample(source, sourceWidth, sourceHeight, width, height),
                    ResampleByDefinition(source, sourceWidth, sourceHeight, width, height))
              << sourceWidth << " " << sourceHeight << " " << width << " " << height;
        }
      }
    }
  }
}

TEST(ResamplePlane, AgreesWithItsDefinitionForWholeCellsOfAnyWidth) {
  for (int width = 1; width <= 70; ++width) {
    for (const auto [columns, rows] : {std::array{1, 2}, {2, 2}, {2, 1}}) {
      Bytes source = SamplePicture(width * columns, 3 * rows);
      source.resize(static_cast<std::size_t>(width * columns * 3 * rows));
      ASSERT_EQ(Resample(source, width * columns, 3 * rows, width, 3),
                ResampleByDefinition(source, width * columns, 3 * rows, width, 3))
          << width << " " << columns << " " << rows;
    }
  }
}

TEST(ResamplePlane, SizesWhoseProductExceedsInt32AreNoOverflow) {
  Bytes source = SamplePicture(70000, 1);
  source.resize(70000);
  EXPECT_EQ(Resample(source, 70000, 1, 70000, 1), source);
  EXPECT_EQ(Resample(source, 1, 70000, 1, 70000), source);
}

}  // namespace
}  // namespace ostrel_native
