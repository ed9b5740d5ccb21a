// What a backend must offer for a direct preview, and what its frames become.
#include "camera/preview/direct/direct_plan.h"

#include <gtest/gtest.h>

#include <iterator>
#include <vector>

#include "unit/support/direct_preview.h"
#include "unit/support/jpeg_samples.h"

namespace ostrel_native {
namespace {

struct DirectPlanTest : DirectPreviewTest {
  ~DirectPlanTest() override { UnloadTurboJpeg(); }

  int Plan() { return PlanDirect(kDevice, plan); }

  static BackendFrame Jpeg(int width, int height) {
    return {.format = CameraPixelFormat::Mjpeg, .width = width, .height = height, .bytesPerRow = 0};
  }

  std::vector<int> Offsets() const {
    return {std::begin(plan.frame.planeOffsets), std::end(plan.frame.planeOffsets)};
  }
  std::vector<int> Strides() const {
    return {std::begin(plan.frame.planeStrides), std::end(plan.frame.planeStrides)};
  }
};

TEST_F(DirectPlanTest, NeedsAKindWithAFrameCallback) {
  EXPECT_FALSE(HasFrameCallback());
  UseDirectShow({});
  EXPECT_TRUE(HasFrameCallback());
  g_camera.cdshow_set_frame_callback = nullptr;
  EXPECT_FALSE(HasFrameCallback());
  UseAvFoundation({});
  EXPECT_TRUE(HasFrameCallback());
  g_camera.avf_set_frame_callback = nullptr;
  EXPECT_FALSE(HasFrameCallback());
  UseDirectShow({});
  Use(BackendKind::Linux);
  EXPECT_FALSE(HasFrameCallback());
}

TEST_F(DirectPlanTest, TakesPackedFramesAsTheyAre) {
  using enum CameraPixelFormat;
  for (const auto format : {Bgra, Yuy2, Uyvy}) {
    for (const auto use :
         {&DirectPreviewTest::UseDirectShow, &DirectPreviewTest::UseAvFoundation}) {
      (this->*use)({.format = format,
                    .bytesPerRow = 20,
                    .dataSize = 44,
                    .offsets = {4, 9},
                    .strides = {20, 9}});
      ASSERT_EQ(Plan(), 0);
      EXPECT_FALSE(plan.isMjpeg);
      EXPECT_EQ(plan.bytes, 44U);
      EXPECT_EQ(plan.frame.sequence, 0U);
      EXPECT_EQ(plan.frame.width, 4);
      EXPECT_EQ(plan.frame.height, 2);
      EXPECT_EQ(plan.frame.bytesPerRow, 20);
      EXPECT_EQ(plan.frame.dataSize, 44);
      EXPECT_EQ(plan.frame.sourceWidth, 4);
      EXPECT_EQ(plan.frame.sourceHeight, 2);
      EXPECT_EQ(plan.frame.sourceBytesPerRow, 20);
      EXPECT_EQ(plan.frame.pixelFormat, static_cast<int>(format));
      EXPECT_EQ(plan.frame.planeCount, 1);
      EXPECT_EQ(Offsets(), (std::vector<int>{4, 0, 0}));
      EXPECT_EQ(Strides(), (std::vector<int>{20, 0, 0}));
    }
  }
}

TEST_F(DirectPlanTest, DescribesTwoPlanesAtMostAndOneAtLeast) {
  BackendFrame frame = {.format = CameraPixelFormat::Nv12,
                        .bytesPerRow = 8,
                        .dataSize = 24,
                        .offsets = {0, 16},
                        .strides = {8, 6}};
  for (const int count : {2, 3, 1000}) {
    frame.planeCount = count;
    UseDirectShow(frame);
    ASSERT_EQ(Plan(), 0);
    EXPECT_EQ(plan.frame.planeCount, 2);
    EXPECT_EQ(Offsets(), (std::vector<int>{0, 16, 0}));
    EXPECT_EQ(Strides(), (std::vector<int>{8, 6, 0}));
  }
  for (const int count : {1, 0, -5}) {
    frame.planeCount = count;
    UseDirectShow(frame);
    ASSERT_EQ(Plan(), 0);
    EXPECT_EQ(plan.frame.planeCount, 1);
    EXPECT_EQ(Offsets(), (std::vector<int>{0, 0, 0}));
    EXPECT_EQ(Strides(), (std::vector<int>{8, 0, 0}));
  }
}

TEST_F(DirectPlanTest, DoesWithoutTheEntriesForPlanes) {
  UseAvFoundation(
      {.bytesPerRow = 20, .dataSize = 40, .planeCount = 2, .offsets = {7, 8}, .strides = {9, 10}});
  g_camera.avf_frame_plane_offset = nullptr;
  g_camera.avf_frame_plane_stride = nullptr;
  ASSERT_EQ(Plan(), 0);
  EXPECT_EQ(Offsets(), (std::vector<int>{0, -1, 0}));
  EXPECT_EQ(Strides(), (std::vector<int>{20, 0, 0}));
  g_camera.avf_frame_plane_count = nullptr;
  ASSERT_EQ(Plan(), 0);
  EXPECT_EQ(plan.frame.planeCount, 1);
}

TEST_F(DirectPlanTest, TakesADshowBackendWithoutAFormatAsBgra) {
  UseDirectShow({.format = CameraPixelFormat::Yuy2});
  g_camera.cdshow_frame_pixel_format = nullptr;
  ASSERT_EQ(Plan(), 0);
  EXPECT_EQ(plan.frame.pixelFormat, static_cast<int>(CameraPixelFormat::Bgra));
}

TEST_F(DirectPlanTest, RefusesAnAvfBackendWithoutAFormatSinceThatDeliversRgb) {
  UseAvFoundation({});
  g_camera.avf_frame_pixel_format = nullptr;
  EXPECT_EQ(Plan(), -11);
}

TEST_F(DirectPlanTest, RefusesLayoutsThatNoOneCanDeliver) {
  using enum CameraPixelFormat;
  for (const int format :
       {static_cast<int>(Rgb), static_cast<int>(Rgba), static_cast<int>(I420), 8, -1, 1000}) {
    UseDirectShow({.format = static_cast<CameraPixelFormat>(format)});
    EXPECT_EQ(Plan(), -11) << format;
  }
}

TEST_F(DirectPlanTest, RefusesFramesOfUnknownShape) {
  ASSERT_TRUE(g_turboJpeg.Load(kTurboJpegName));
  UseDirectShow({.width = 0});
  EXPECT_EQ(Plan(), -11);
  UseDirectShow({.height = -2});
  EXPECT_EQ(Plan(), -11);
  UseDirectShow(Jpeg(0, 4));
  EXPECT_EQ(Plan(), -11);
  UseDirectShow(Jpeg(4, -4));
  EXPECT_EQ(Plan(), -11);
  UseAvFoundation({.bytesPerRow = 0});
  EXPECT_EQ(Plan(), -11);
  UseAvFoundation({.dataSize = 0});
  EXPECT_EQ(Plan(), -11);
  UseAvFoundation({.bytesPerRow = -16, .dataSize = -32});
  EXPECT_EQ(Plan(), -11);
}

TEST_F(DirectPlanTest, FallsBackOnTheSizeThatCaptureWasStartedWith) {
  UseDirectShow({.width = 0, .height = 0});
  g_camera.RememberDimensions(kDevice, 6, 4);
  ASSERT_EQ(Plan(), 0);
  EXPECT_EQ(plan.frame.width, 6);
  EXPECT_EQ(plan.frame.height, 4);
}

TEST_F(DirectPlanTest, DecodesJpegToI420WithoutGaps) {
  ASSERT_TRUE(g_turboJpeg.Load(kTurboJpegName));
  UseDirectShow(Jpeg(6, 4));
  ASSERT_EQ(Plan(), 0);
  EXPECT_TRUE(plan.isMjpeg);
  EXPECT_EQ(plan.bytes, 36U);
  EXPECT_EQ(plan.frame.dataSize, 36);
  EXPECT_EQ(plan.frame.bytesPerRow, 6);
  EXPECT_EQ(plan.frame.pixelFormat, static_cast<int>(CameraPixelFormat::I420));
  EXPECT_EQ(plan.frame.planeCount, 3);
  EXPECT_EQ(Offsets(), (std::vector<int>{0, 24, 30}));
  EXPECT_EQ(Strides(), (std::vector<int>{6, 3, 3}));
  EXPECT_EQ(plan.frame.sourceWidth, 6);
  EXPECT_EQ(plan.frame.sourceHeight, 4);
  EXPECT_EQ(plan.frame.sourceBytesPerRow, 0);
}

TEST_F(DirectPlanTest, RefusesJpegThatCannotBeDecoded) {
  UseDirectShow(Jpeg(6, 4));
  EXPECT_EQ(Plan(), -11);  // no runtime
  ASSERT_TRUE(g_turboJpeg.Load(kTurboJpegName));
  EXPECT_EQ(Plan(), 0);
  UseDirectShow(Jpeg(7, 4));
  EXPECT_EQ(Plan(), -11);
  UseDirectShow(Jpeg(6, 5));
  EXPECT_EQ(Plan(), -11);
}

TEST_F(DirectPlanTest, RefusesJpegWhoseFrameExceedsInt32) {
  ASSERT_TRUE(g_turboJpeg.Load(kTurboJpegName));
  UseDirectShow(Jpeg(37838, 37838));  // 2,147,571,366 bytes
  EXPECT_EQ(Plan(), -11);
  UseDirectShow(Jpeg(37836, 37836));  // 2,147,344,344 bytes
  ASSERT_EQ(Plan(), 0);
  EXPECT_EQ(plan.bytes, 2'147'344'344U);
  UseDirectShow(Jpeg(2'147'483'646, 2'147'483'646));
  EXPECT_EQ(Plan(), -11);
}

TEST_F(DirectPlanTest, LooksAtTheLentArraysInOrder) {
  std::uint8_t byte = 0;
  const LentSlot good = {.isByteArray = true, .data = &byte, .bytes = 10};
  const LentSlot other = {.isByteArray = false, .data = nullptr, .bytes = 0};
  const LentSlot shorter = {.isByteArray = true, .data = &byte, .bytes = 9};
  const LentSlot empty = {.isByteArray = true, .data = nullptr, .bytes = 0};
  EXPECT_EQ(CheckLentSlots({good, good, good}, 10), 0);
  EXPECT_EQ(CheckLentSlots({good, good, other}, 10), -7);
  EXPECT_EQ(CheckLentSlots({good, good, shorter}, 10), -11);
  EXPECT_EQ(CheckLentSlots({good, shorter, other}, 10), -11);
  EXPECT_EQ(CheckLentSlots({other, shorter, good}, 10), -7);
  EXPECT_EQ(CheckLentSlots({empty, good, good}, 1), -11);
}

}  // namespace
}  // namespace ostrel_native
