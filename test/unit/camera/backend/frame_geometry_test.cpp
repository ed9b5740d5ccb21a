#include <limits>
#include <optional>

#include "unit/support/fake_camera.h"

namespace ostrel_native {
namespace {

constexpr int kMaxInt = std::numeric_limits<int>::max();

using FrameGeometrySize = FakeCameraTest;
using FrameGeometryRow = FakeCameraTest;
using FrameGeometryDataSize = FakeCameraTest;
using FrameGeometryFirstFrame = FakeCameraTest;
using FrameGeometryPlanes = FakeCameraTest;

int Code(CameraPixelFormat format) {
  return static_cast<int>(format);
}

TEST_F(FrameGeometrySize, WithoutABackendIsUnknown) {
  g_camera.RememberDimensions(0, 640, 480);
  EXPECT_EQ(g_camera.FrameWidth(0), -1);
  EXPECT_EQ(g_camera.FrameHeight(0), -1);
}

TEST_F(FrameGeometrySize, OnLinuxIsTheAnswerWhateverItsSign) {
  Use(BackendKind::Linux);
  g_camera.RememberDimensions(0, 640, 480);
  for (const int answer : {1920, 1, 0, -1, -256, kMaxInt, std::numeric_limits<int>::min()}) {
    FAKE_NUMBER(cnokhwa_frame_width, answer);
    FAKE_NUMBER(cnokhwa_frame_height, answer);
    EXPECT_EQ(g_camera.FrameWidth(0), answer);
    EXPECT_EQ(g_camera.FrameHeight(0), answer);
  }
}

TEST_F(FrameGeometrySize, OnLinuxWithoutTheEntryIsUnknown) {
  Use(BackendKind::Linux);
  g_camera.RememberDimensions(0, 640, 480);
  EXPECT_EQ(g_camera.FrameWidth(0), -1);
  EXPECT_EQ(g_camera.FrameHeight(0), -1);
}

TEST_F(FrameGeometrySize, OnTheOtherKindsFallsBackOnTheSizeOfTheStart) {
  for (const BackendKind kind : {BackendKind::DirectShow, BackendKind::AvFoundation}) {
    ResetCamera();
    Use(kind);
    EXPECT_EQ(g_camera.FrameWidth(2), -1);
    EXPECT_EQ(g_camera.FrameHeight(2), -1);
    g_camera.RememberDimensions(2, 640, 480);
    EXPECT_EQ(g_camera.FrameWidth(2), 640);
    EXPECT_EQ(g_camera.FrameHeight(2), 480);
    EXPECT_EQ(g_camera.FrameWidth(1), -1);
    EXPECT_EQ(g_camera.FrameWidth(3), -1);
    EXPECT_EQ(g_camera.FrameWidth(-1), -1);
    g_camera.RememberDimensions(2, 0, 480);
    EXPECT_EQ(g_camera.FrameWidth(2), -1);
    EXPECT_EQ(g_camera.FrameHeight(2), 480);
  }
}

TEST_F(FrameGeometrySize, OnTheOtherKindsAPositiveAnswerGoesFirst) {
  g_camera.RememberDimensions(0, 640, 480);
  Use(BackendKind::DirectShow);
  FAKE_NUMBER(cdshow_frame_width, 1280);
  FAKE_NUMBER(cdshow_frame_height, 720);
  EXPECT_EQ(g_camera.FrameWidth(0), 1280);
  EXPECT_EQ(g_camera.FrameHeight(0), 720);
  FAKE_NUMBER(cdshow_frame_width, 0);
  FAKE_NUMBER(cdshow_frame_height, -3);
  EXPECT_EQ(g_camera.FrameWidth(0), 640);
  EXPECT_EQ(g_camera.FrameHeight(0), 480);

  Use(BackendKind::AvFoundation);
  FAKE_NUMBER(avf_frame_width, 1280);
  FAKE_NUMBER(avf_frame_height, 720);
  EXPECT_EQ(g_camera.FrameWidth(0), 1280);
  EXPECT_EQ(g_camera.FrameHeight(0), 720);
  FAKE_NUMBER(avf_frame_width, -1);
  FAKE_NUMBER(avf_frame_height, 0);
  EXPECT_EQ(g_camera.FrameWidth(0), 640);
  EXPECT_EQ(g_camera.FrameHeight(0), 480);
}

TEST_F(FrameGeometryRow, WithoutABackendIsUnknown) {
  EXPECT_EQ(g_camera.PreviewFrameBytesPerRow(0), -1);
}

TEST_F(FrameGeometryRow, OnLinuxIsTheAnswerWhateverItsSign) {
  Use(BackendKind::Linux);
  EXPECT_EQ(g_camera.PreviewFrameBytesPerRow(0), -1);
  for (const int answer : {5760, 1, 0, -7, kMaxInt}) {
    FAKE_NUMBER(cnokhwa_frame_bytes_per_row, answer);
    EXPECT_EQ(g_camera.PreviewFrameBytesPerRow(0), answer);
  }
}

// A DirectShow frame of `width` whose backend gives `answer`, or has no such entry.
int DshowRow(std::optional<CameraPixelFormat> format, int width, std::optional<int> answer) {
  ResetCamera();
  g_camera.kind = BackendKind::DirectShow;
  FAKE_NUMBER(cdshow_frame_width, width);
  if (format) {
    FAKE_NUMBER(cdshow_frame_pixel_format, Code(*format));
  }
  if (answer) {
    FAKE_NUMBER(cdshow_frame_bytes_per_row, *answer);
  }
  return g_camera.PreviewFrameBytesPerRow(0);
}

TEST_F(FrameGeometryRow, OnDirectShowIsAtLeastTheFormatsSmallestRow) {
  struct Case {
    std::optional<CameraPixelFormat> format;
    int smallest;
  };
  for (const Case& item :
       {Case{CameraPixelFormat::Nv12, 100}, Case{CameraPixelFormat::Yuy2, 200},
        Case{CameraPixelFormat::Uyvy, 200}, Case{CameraPixelFormat::Bgra, 400},
        Case{CameraPixelFormat::Rgb, 400}, Case{CameraPixelFormat::Rgba, 400},
        Case{CameraPixelFormat::I420, 400}, Case{static_cast<CameraPixelFormat>(99), 400},
        Case{std::nullopt, 400}}) {
    EXPECT_EQ(DshowRow(item.format, 100, item.smallest), item.smallest);
    EXPECT_EQ(DshowRow(item.format, 100, item.smallest + 1), item.smallest + 1);
    EXPECT_EQ(DshowRow(item.format, 100, item.smallest - 1), item.smallest);
    EXPECT_EQ(DshowRow(item.format, 100, std::nullopt), item.smallest);
    EXPECT_EQ(DshowRow(item.format, 100, -50), item.smallest);
  }
}

TEST_F(FrameGeometryRow, OnDirectShowWithoutAWidthIsTheAnswerOrUnknown) {
  EXPECT_EQ(DshowRow(CameraPixelFormat::Bgra, 0, 640), 640);
  EXPECT_EQ(DshowRow(CameraPixelFormat::Bgra, 0, std::nullopt), -1);
  EXPECT_EQ(DshowRow(CameraPixelFormat::Nv12, 0, -2), -1);
}

TEST_F(FrameGeometryRow, OnDirectShowOfAJpegIsNeverNegative) {
  EXPECT_EQ(DshowRow(CameraPixelFormat::Mjpeg, 100, 5), 5);
  EXPECT_EQ(DshowRow(CameraPixelFormat::Mjpeg, 100, -5), 0);
  EXPECT_EQ(DshowRow(CameraPixelFormat::Mjpeg, 100, std::nullopt), 0);
}

TEST_F(FrameGeometryRow, OnDirectShowBeyondInt32IsUnknown) {
  EXPECT_EQ(DshowRow(CameraPixelFormat::Bgra, 536870911, 0), 2147483644);
  EXPECT_EQ(DshowRow(CameraPixelFormat::Bgra, 536870912, 0), -1);
  EXPECT_EQ(DshowRow(CameraPixelFormat::Yuy2, 1073741824, 0), -1);
  EXPECT_EQ(DshowRow(CameraPixelFormat::Nv12, kMaxInt, 0), kMaxInt);
}

TEST_F(FrameGeometryRow, OnAvFoundationWithoutTheEntryIsThreeBytesAPixel) {
  Use(BackendKind::AvFoundation);
  EXPECT_EQ(g_camera.PreviewFrameBytesPerRow(0), -1);
  FAKE_NUMBER(avf_frame_width, 100);
  EXPECT_EQ(g_camera.PreviewFrameBytesPerRow(0), 300);
  FAKE_NUMBER(avf_frame_width, 715827882);
  EXPECT_EQ(g_camera.PreviewFrameBytesPerRow(0), 2147483646);
  FAKE_NUMBER(avf_frame_width, 715827883);
  EXPECT_EQ(g_camera.PreviewFrameBytesPerRow(0), -1);
}

TEST_F(FrameGeometryRow, OnAvFoundationIsTheAnswerIfPositive) {
  Use(BackendKind::AvFoundation);
  FAKE_NUMBER(avf_frame_width, 100);
  FAKE_NUMBER(avf_frame_bytes_per_row, 7);
  EXPECT_EQ(g_camera.PreviewFrameBytesPerRow(0), 7);
  FAKE_NUMBER(avf_frame_bytes_per_row, 0);
  EXPECT_EQ(g_camera.PreviewFrameBytesPerRow(0), -1);
  FAKE_NUMBER(avf_frame_bytes_per_row, -9);
  EXPECT_EQ(g_camera.PreviewFrameBytesPerRow(0), -1);
  FAKE_NUMBER(avf_frame_pixel_format, Code(CameraPixelFormat::Mjpeg));
  EXPECT_EQ(g_camera.PreviewFrameBytesPerRow(0), 0);
}

TEST_F(FrameGeometryDataSize, WithoutABackendIsUnknown) {
  EXPECT_EQ(g_camera.PreviewFrameDataSize(0), -1);
}

TEST_F(FrameGeometryDataSize, OnLinuxIsRowsTimesHeight) {
  Use(BackendKind::Linux);
  EXPECT_EQ(g_camera.PreviewFrameDataSize(0), -1);
  FAKE_NUMBER(cnokhwa_frame_bytes_per_row, 5760);
  FAKE_NUMBER(cnokhwa_frame_height, 1080);
  EXPECT_EQ(g_camera.PreviewFrameDataSize(0), 6220800);
  FAKE_NUMBER(cnokhwa_frame_height, 0);
  EXPECT_EQ(g_camera.PreviewFrameDataSize(0), -1);
  FAKE_NUMBER(cnokhwa_frame_bytes_per_row, -5760);
  FAKE_NUMBER(cnokhwa_frame_height, -1080);
  EXPECT_EQ(g_camera.PreviewFrameDataSize(0), -1);
}

TEST_F(FrameGeometryDataSize, BeyondInt32IsUnknown) {
  Use(BackendKind::Linux);
  FAKE_NUMBER(cnokhwa_frame_bytes_per_row, 46341);
  FAKE_NUMBER(cnokhwa_frame_height, 46340);
  EXPECT_EQ(g_camera.PreviewFrameDataSize(0), 2147441940);
  FAKE_NUMBER(cnokhwa_frame_height, 46341);
  EXPECT_EQ(g_camera.PreviewFrameDataSize(0), -1);
  // The product of these is 2^32: in 32 bits it would be 0, and one more a small frame.
  FAKE_NUMBER(cnokhwa_frame_bytes_per_row, 65536);
  FAKE_NUMBER(cnokhwa_frame_height, 65537);
  EXPECT_EQ(g_camera.PreviewFrameDataSize(0), -1);
}

TEST_F(FrameGeometryDataSize, OnDirectShowIsTheAnswerIfPositiveElseRowsTimesHeight) {
  Use(BackendKind::DirectShow);
  FAKE_NUMBER(cdshow_frame_width, 10);
  FAKE_NUMBER(cdshow_frame_height, 4);
  EXPECT_EQ(g_camera.PreviewFrameDataSize(0), 160);
  FAKE_NUMBER(cdshow_frame_data_size, 7);
  EXPECT_EQ(g_camera.PreviewFrameDataSize(0), 7);
  FAKE_NUMBER(cdshow_frame_data_size, 0);
  EXPECT_EQ(g_camera.PreviewFrameDataSize(0), 160);
  FAKE_NUMBER(cdshow_frame_data_size, -7);
  EXPECT_EQ(g_camera.PreviewFrameDataSize(0), 160);
}

TEST_F(FrameGeometryDataSize, OnDirectShowOfAJpegWithoutAnAnswerIsUnknown) {
  Use(BackendKind::DirectShow);
  FAKE_NUMBER(cdshow_frame_width, 10);
  FAKE_NUMBER(cdshow_frame_height, 4);
  FAKE_NUMBER(cdshow_frame_pixel_format, Code(CameraPixelFormat::Mjpeg));
  EXPECT_EQ(g_camera.PreviewFrameDataSize(0), -1);
}

TEST_F(FrameGeometryDataSize, OnAvFoundationIsTheAnswerIfPositiveElseUnknown) {
  Use(BackendKind::AvFoundation);
  FAKE_NUMBER(avf_frame_width, 10);
  FAKE_NUMBER(avf_frame_height, 4);
  EXPECT_EQ(g_camera.PreviewFrameDataSize(0), 120);
  FAKE_NUMBER(avf_frame_data_size, 7);
  EXPECT_EQ(g_camera.PreviewFrameDataSize(0), 7);
  FAKE_NUMBER(avf_frame_data_size, 0);
  EXPECT_EQ(g_camera.PreviewFrameDataSize(0), -1);
  FAKE_NUMBER(avf_frame_data_size, -120);
  EXPECT_EQ(g_camera.PreviewFrameDataSize(0), -1);
}

TEST_F(FrameGeometryFirstFrame, WithoutABackendOrAnEntryIsMinusSix) {
  for (const BackendKind kind : {BackendKind::None, BackendKind::Linux, BackendKind::DirectShow,
                                 BackendKind::AvFoundation}) {
    Use(kind);
    EXPECT_EQ(g_camera.FirstFrameResult(0), -6);
  }
}

TEST_F(FrameGeometryFirstFrame, OnLinuxIsTheAnswer) {
  Use(BackendKind::Linux);
  for (const int answer : {0, -256, 1, -19}) {
    FAKE_NUMBER(cnokhwa_has_first_frame, answer);
    EXPECT_EQ(g_camera.FirstFrameResult(3), answer);
  }
  EXPECT_EQ(Calls().back(), "cnokhwa_has_first_frame(3)");
}

TEST_F(FrameGeometryFirstFrame, OnDirectShowTurnsYesAndNoIntoCodes) {
  Use(BackendKind::DirectShow);
  FAKE_NUMBER(cdshow_has_first_frame, 1);
  EXPECT_EQ(g_camera.FirstFrameResult(0), 0);
  FAKE_NUMBER(cdshow_has_first_frame, 2);
  EXPECT_EQ(g_camera.FirstFrameResult(0), 0);
  FAKE_NUMBER(cdshow_has_first_frame, 0);
  EXPECT_EQ(g_camera.FirstFrameResult(0), -256);
  FAKE_NUMBER(cdshow_has_first_frame, -4);
  EXPECT_EQ(g_camera.FirstFrameResult(0), -4);
}

TEST_F(FrameGeometryFirstFrame, OnAvFoundationTurnsYesAndNoIntoCodes) {
  Use(BackendKind::AvFoundation);
  FAKE_NUMBER(avf_has_first_frame, true);
  EXPECT_EQ(g_camera.FirstFrameResult(0), 0);
  FAKE_NUMBER(avf_has_first_frame, false);
  EXPECT_EQ(g_camera.FirstFrameResult(0), -256);
}

TEST_F(FrameGeometryPlanes, WithoutEntriesThereIsOneOfTheWholeFrame) {
  for (const BackendKind kind : {BackendKind::None, BackendKind::Linux, BackendKind::DirectShow,
                                 BackendKind::AvFoundation}) {
    Use(kind);
    EXPECT_EQ(g_camera.PlaneCount(0), 1);
    EXPECT_EQ(g_camera.PlaneOffset(0, 0), 0);
    EXPECT_EQ(g_camera.PlaneOffset(0, 1), -1);
    EXPECT_EQ(g_camera.PlaneStride(0, 0, 77), 77);
    EXPECT_EQ(g_camera.PlaneStride(0, 1, 77), 0);
    EXPECT_EQ(g_camera.FramePixelFormat(0, CameraPixelFormat::Bgra), CameraPixelFormat::Bgra);
  }
}

TEST_F(FrameGeometryPlanes, AreThoseOfTheEntries) {
  FAKE_NUMBER(cdshow_frame_plane_count, 5);
  FAKE_ENTRY(cdshow_frame_plane_offset, [](int, int plane) { return 10 + plane; });
  FAKE_ENTRY(cdshow_frame_plane_stride, [](int, int plane) { return 20 + plane; });
  FAKE_NUMBER(cdshow_frame_pixel_format, 2);
  FAKE_NUMBER(avf_frame_plane_count, -5);
  FAKE_ENTRY(avf_frame_plane_offset, [](int, int plane) { return 30 + plane; });
  FAKE_ENTRY(avf_frame_plane_stride, [](int, int plane) { return 40 + plane; });
  FAKE_NUMBER(avf_frame_pixel_format, 99);
  Use(BackendKind::DirectShow);
  EXPECT_EQ(g_camera.PlaneCount(0), 5);
  EXPECT_EQ(g_camera.PlaneOffset(0, 1), 11);
  EXPECT_EQ(g_camera.PlaneStride(0, 1, 77), 21);
  EXPECT_EQ(g_camera.FramePixelFormat(0, CameraPixelFormat::Bgra), CameraPixelFormat::Nv12);
  Use(BackendKind::AvFoundation);
  EXPECT_EQ(g_camera.PlaneCount(0), -5);
  EXPECT_EQ(g_camera.PlaneOffset(0, 1), 31);
  EXPECT_EQ(g_camera.PlaneStride(0, 0, 77), 40);
  EXPECT_EQ(g_camera.FramePixelFormat(0, CameraPixelFormat::Rgb),
            static_cast<CameraPixelFormat>(99));
  Use(BackendKind::Linux);
  EXPECT_EQ(g_camera.PlaneCount(0), 1);
}

}  // namespace
}  // namespace ostrel_native
