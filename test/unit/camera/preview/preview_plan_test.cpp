#include "camera/preview/preview_plan.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <numeric>

#include "camera/frames/pixel_rows.h"

namespace ostrel_native {
namespace {

constexpr std::uint64_t kAmple = std::uint64_t{1} << 40;
constexpr int kIntMax = std::numeric_limits<std::int32_t>::max();

FrameGeometry Packed(int width, int height, int bytesPerRow) {
  FrameGeometry geometry;
  geometry.width = width;
  geometry.height = height;
  geometry.bytesPerRow = bytesPerRow;
  geometry.dataSize = bytesPerRow * height;
  geometry.planeStrides[0] = bytesPerRow;
  return geometry;
}

FrameGeometry Nv12(int width, int height) {
  FrameGeometry geometry = Packed(width, height, width);
  geometry.planeCount = 2;
  geometry.planeOffsets[1] = width * height;
  geometry.planeStrides[1] = width;
  geometry.dataSize = width * height * 3 / 2;
  return geometry;
}

int Plan(CameraPixelFormat format, const FrameGeometry& geometry, PreviewPlan& plan,
         int targetWidth = 960, int targetHeight = 540, std::uint64_t capacity = kAmple) {
  return PlanPreview(DescribeSource(format), geometry, targetWidth, targetHeight, capacity, plan);
}

int Result(CameraPixelFormat format, const FrameGeometry& geometry,
           std::uint64_t capacity = kAmple) {
  PreviewPlan plan;
  return Plan(format, geometry, plan, 960, 540, capacity);
}

TEST(DescribeSource, KnowsTheNativeFormats) {
  EXPECT_TRUE(DescribeSource(CameraPixelFormat::Nv12).native);
  EXPECT_FALSE(DescribeSource(CameraPixelFormat::Nv12).packedYuv);
  for (const auto format : {CameraPixelFormat::Yuy2, CameraPixelFormat::Uyvy}) {
    EXPECT_TRUE(DescribeSource(format).native);
    EXPECT_TRUE(DescribeSource(format).packedYuv);
    EXPECT_EQ(DescribeSource(format).bytesPerPixel, 2);
  }
  EXPECT_FALSE(DescribeSource(CameraPixelFormat::Bgra).native);
  EXPECT_EQ(DescribeSource(CameraPixelFormat::Bgra).bytesPerPixel, 4);
}

TEST(DescribeSource, TakesEverythingElseAsRgb) {
  for (const int code : {0, 4, 5, 6, 8, -1, 1000}) {
    const SourceLayout layout = DescribeSource(static_cast<CameraPixelFormat>(code));
    EXPECT_FALSE(layout.native) << code;
    EXPECT_FALSE(layout.packedYuv) << code;
    EXPECT_EQ(layout.bytesPerPixel, 3) << code;
  }
}

TEST(PlanPreview, HalvesAFullHdFrame) {
  PreviewPlan plan;
  ASSERT_EQ(Plan(CameraPixelFormat::Rgb, Packed(1920, 1080, 5760), plan), 0);
  EXPECT_EQ(plan.reduction.step, 2);
  EXPECT_EQ(plan.reduction.width, 960);
  EXPECT_EQ(plan.reduction.height, 540);
  EXPECT_EQ(plan.bytesPerRow, 3840);
  EXPECT_EQ(plan.dataSize, 3840 * 540);
  EXPECT_EQ(plan.pixelFormat, 5);
  EXPECT_EQ(plan.planeCount, 1);
  EXPECT_EQ(plan.planeOffsets[0], 0);
  EXPECT_EQ(plan.planeStrides[0], 3840);
  EXPECT_FALSE(plan.grabsInPlace);
  EXPECT_EQ(plan.scratchBytes, 5760U * 1080U + kPixelReadAhead);
}

TEST(PlanPreview, RefusesAnUnknownSizeAsNoGeometry) {
  EXPECT_EQ(Result(CameraPixelFormat::Rgb, Packed(0, 480, 1920)), -10);
  EXPECT_EQ(Result(CameraPixelFormat::Rgb, Packed(640, 0, 1920)), -10);
  EXPECT_EQ(Result(CameraPixelFormat::Rgb, Packed(-1, -1, 1920)), -10);
}

TEST(PlanPreview, RefusesARowShorterThanItsPixels) {
  EXPECT_EQ(Result(CameraPixelFormat::Rgb, Packed(640, 480, 1919)), -10);
  EXPECT_EQ(Result(CameraPixelFormat::Rgb, Packed(640, 480, 1920)), 0);
  EXPECT_EQ(Result(CameraPixelFormat::Bgra, Packed(640, 480, 2559)), -10);
  EXPECT_EQ(Result(CameraPixelFormat::Yuy2, Packed(640, 480, 1279)), -10);
  EXPECT_EQ(Result(CameraPixelFormat::Rgb, Packed(640, 480, -1)), -10);
  FrameGeometry geometry = Packed(640, 480, 1920);
  geometry.planeStrides[0] = 1919;
  EXPECT_EQ(Result(CameraPixelFormat::Rgb, geometry), -10);
}

TEST(PlanPreview, ComputesTheRowOfAHugeWidthWithoutWrapping) {
  // 3 * 1431655766 wraps to 2 in 32 bits, which any row would satisfy.
  FrameGeometry geometry = Packed(1431655766, 1, 1920);
  EXPECT_EQ(Result(CameraPixelFormat::Rgb, geometry), -10);
}

TEST(PlanPreview, RefusesMissingDataAfterTheSize) {
  FrameGeometry geometry = Packed(640, 480, 1920);
  geometry.dataSize = 0;
  EXPECT_EQ(Result(CameraPixelFormat::Rgb, geometry), -11);
  geometry.dataSize = -1;
  EXPECT_EQ(Result(CameraPixelFormat::Rgb, geometry), -11);
  geometry.width = 0;
  EXPECT_EQ(Result(CameraPixelFormat::Rgb, geometry), -10);
}

TEST(PlanPreview, RefusesAFrameBeyondInt32) {
  FrameGeometry geometry = Packed(640, 480, 1920);
  geometry.bytesPerRow = kIntMax;
  geometry.planeStrides[0] = kIntMax;
  EXPECT_EQ(Result(CameraPixelFormat::Rgb, geometry), -11);
}

TEST(PlanPreview, PadsTheScratchForFramesSmallerThanTheirRows) {
  FrameGeometry geometry = Packed(640, 480, 2000);
  geometry.dataSize = 100;
  PreviewPlan plan;
  ASSERT_EQ(Plan(CameraPixelFormat::Rgb, geometry, plan), 0);
  EXPECT_EQ(plan.scratchBytes, 479U * 2000U + 1920U + kPixelReadAhead);
  EXPECT_EQ(plan.source.dataSize, 100);
}

TEST(PlanPreview, RefusesAPreviewBeyondTheBuffer) {
  EXPECT_EQ(Result(CameraPixelFormat::Rgb, Packed(640, 480, 1920), 640 * 480 * 4), 0);
  EXPECT_EQ(Result(CameraPixelFormat::Rgb, Packed(640, 480, 1920), 640 * 480 * 4 - 1), -11);
}

TEST(PlanPreview, GrabsABgraFrameOfTheWantedSizeInPlace) {
  PreviewPlan plan;
  ASSERT_EQ(Plan(CameraPixelFormat::Bgra, Packed(640, 480, 2560), plan), 0);
  EXPECT_TRUE(plan.grabsInPlace);
  EXPECT_EQ(plan.pixelFormat, 1);
  EXPECT_EQ(plan.scratchBytes, 0U);
}

TEST(PlanPreview, ConvertsABgraFrameThatIsPaddedOrReduced) {
  PreviewPlan plan;
  ASSERT_EQ(Plan(CameraPixelFormat::Bgra, Packed(640, 480, 2564), plan), 0);
  EXPECT_FALSE(plan.grabsInPlace);
  ASSERT_EQ(Plan(CameraPixelFormat::Bgra, Packed(1920, 1080, 7680), plan), 0);
  EXPECT_FALSE(plan.grabsInPlace);
}

TEST(PlanPreview, PublishesANativeFormatUnscaled) {
  PreviewPlan plan;
  ASSERT_EQ(Plan(CameraPixelFormat::Nv12, Nv12(1920, 1080), plan), 0);
  EXPECT_EQ(plan.reduction.step, 1);
  EXPECT_EQ(plan.reduction.width, 1920);
  EXPECT_EQ(plan.reduction.height, 1080);
  EXPECT_TRUE(plan.grabsInPlace);
  EXPECT_EQ(plan.bytesPerRow, 1920);
  EXPECT_EQ(plan.dataSize, 1920 * 1080 * 3 / 2);
  EXPECT_EQ(plan.pixelFormat, 2);
  EXPECT_EQ(plan.planeCount, 2);
  EXPECT_EQ(plan.planeOffsets[1], 1920 * 1080);
  EXPECT_EQ(plan.planeStrides[1], 1920);
}

TEST(PlanPreview, RefusesANativeFrameBeyondTheBuffer) {
  const auto size = static_cast<std::uint64_t>(Nv12(64, 64).dataSize);
  EXPECT_EQ(Result(CameraPixelFormat::Nv12, Nv12(64, 64), size), 0);
  EXPECT_EQ(Result(CameraPixelFormat::Nv12, Nv12(64, 64), size - 1), -11);
}

TEST(PlanPreview, ProvesBothPlanesOfNv12) {
  FrameGeometry geometry = Nv12(64, 64);
  geometry.planeCount = 1;
  EXPECT_EQ(Result(CameraPixelFormat::Nv12, geometry), -11);
  geometry = Nv12(64, 64);
  geometry.planeOffsets[1] = 64 * 64 - 1;
  EXPECT_EQ(Result(CameraPixelFormat::Nv12, geometry), -11);
  geometry = Nv12(64, 64);
  geometry.planeStrides[1] = 63;
  EXPECT_EQ(Result(CameraPixelFormat::Nv12, geometry), -11);
  geometry = Nv12(64, 64);
  geometry.dataSize -= 1;
  EXPECT_EQ(Result(CameraPixelFormat::Nv12, geometry), -11);
  geometry = Nv12(64, 64);
  geometry.bytesPerRow = 63;
  EXPECT_EQ(Result(CameraPixelFormat::Nv12, geometry), -10);
}

TEST(PlanPreview, ProvesNv12PlanesWithoutWrapping) {
  FrameGeometry geometry = Nv12(64, 64);
  geometry.bytesPerRow = 1 << 26;  // times 64 rows is 0 in 32 bits
  geometry.planeStrides[0] = 1 << 26;
  EXPECT_EQ(Result(CameraPixelFormat::Nv12, geometry), -11);
  geometry = Nv12(64, 64);
  geometry.planeStrides[1] = kIntMax;
  EXPECT_EQ(Result(CameraPixelFormat::Nv12, geometry), -11);
}

TEST(PlanPreview, WantsOnePlaneOfPackedYuv) {
  for (const auto format : {CameraPixelFormat::Yuy2, CameraPixelFormat::Uyvy}) {
    FrameGeometry geometry = Packed(64, 64, 128);
    EXPECT_EQ(Result(format, geometry), 0);
    geometry.planeCount = 2;
    EXPECT_EQ(Result(format, geometry), -11);
  }
}

}  // namespace
}  // namespace ostrel_native
