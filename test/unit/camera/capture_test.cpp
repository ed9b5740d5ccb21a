#include "camera/capture.h"

#include <atomic>
#include <limits>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "addon/common.h"
#include "camera/preview/camera_preview.h"
#include "recording/video_recorder.h"
#include "unit/support/eventually.h"
#include "unit/support/fake_camera.h"

namespace ostrel_native {
namespace {

using Strings = std::vector<std::string>;
using CaptureAuth = FakeCameraTest;
using CaptureStart = FakeCameraTest;
using CaptureFrameInfo = FakeCameraTest;
using CaptureButton = FakeCameraTest;

constexpr BackendKind kAllKinds[] = {BackendKind::None, BackendKind::Linux, BackendKind::DirectShow,
                                     BackendKind::AvFoundation};

void ExpectDimensions(int device, int width, int height) {
  EXPECT_EQ(g_camera.RememberedDimensions(device).width, width);
  EXPECT_EQ(g_camera.RememberedDimensions(device).height, height);
}

TEST_F(CaptureAuth, InitializeWithoutABackendOrAnEntryIsMinusSixAndSetsNoError) {
  SetLastError("kept");
  for (const BackendKind kind : kAllKinds) {
    Use(kind);
    EXPECT_EQ(InitializeBackend(), -6);
  }
  EXPECT_EQ(GetLastErrorString(), "kept");
}

TEST_F(CaptureAuth, InitializeIsTheBackendsAnswer) {
  FAKE_NUMBER(cnokhwa_initialize, 11);
  FAKE_NUMBER(cdshow_initialize, -12);
  Use(BackendKind::Linux);
  EXPECT_EQ(InitializeBackend(), 11);
  Use(BackendKind::DirectShow);
  EXPECT_EQ(InitializeBackend(), -12);
}

TEST_F(CaptureAuth, InitializeOnAvFoundationTurnsYesAndNoIntoCodes) {
  Use(BackendKind::AvFoundation);
  FAKE_NUMBER(avf_initialize, true);
  EXPECT_EQ(InitializeBackend(), 0);
  FAKE_NUMBER(avf_initialize, false);
  EXPECT_EQ(InitializeBackend(), -6);
}

TEST_F(CaptureAuth, StatusIsTheBackendsAnswerAndZeroOnDirectShow) {
  for (const BackendKind kind : kAllKinds) {
    Use(kind);
    EXPECT_EQ(CaptureAuthStatus(), kind == BackendKind::DirectShow ? 0 : -6);
  }
  FAKE_NUMBER(cnokhwa_has_videocapture_auth, 3);
  FAKE_NUMBER(avf_has_auth, -3);
  Use(BackendKind::Linux);
  EXPECT_EQ(CaptureAuthStatus(), 3);
  Use(BackendKind::AvFoundation);
  EXPECT_EQ(CaptureAuthStatus(), -3);
}

TEST_F(CaptureAuth, AskReachesTheKindsThatKnowIt) {
  for (const BackendKind kind : kAllKinds) {
    Use(kind);
    AskCaptureAuth();
  }
  FAKE_ENTRY(cnokhwa_ask_videocapture_auth, [] {});
  FAKE_ENTRY(avf_ask_auth, [] {});
  for (const BackendKind kind : kAllKinds) {
    Use(kind);
    AskCaptureAuth();
  }
  EXPECT_EQ(Calls(), (Strings{"cnokhwa_ask_videocapture_auth()", "avf_ask_auth()"}));
}

TEST_F(CaptureStart, WithoutABackendIsMinusSixAndRemembersNothing) {
  EXPECT_EQ(StartCapture(0, 640, 480, -1, false), -6);
  EXPECT_EQ(StartCapture(0, 640, 480, 3, true), -6);
  EXPECT_TRUE(g_camera.captureDimensions.empty());
}

TEST_F(CaptureStart, OnLinuxBySizeOrByFormat) {
  Use(BackendKind::Linux);
  FAKE_NUMBER(cnokhwa_start_capture, 0);
  FAKE_NUMBER(cnokhwa_start_capture_with_format, 2);
  EXPECT_EQ(StartCapture(0, 640, 480, -1, false), 0);
  EXPECT_EQ(StartCapture(1, 640, 480, 0, false), 2);
  // Compressed frames are not for this kind: the wish changes nothing.
  EXPECT_EQ(StartCapture(2, 640, 480, -1, true), 0);
  EXPECT_EQ(StartCapture(3, 640, 480, 7, true), 2);
  EXPECT_EQ(
      Calls(),
      (Strings{"cnokhwa_start_capture(0,640,480)", "cnokhwa_start_capture_with_format(1,0)",
               "cnokhwa_start_capture(2,640,480)", "cnokhwa_start_capture_with_format(3,7)"}));
}

TEST_F(CaptureStart, OnLinuxAFormatWithoutTheOptionalEntryIsUnsupported) {
  Use(BackendKind::Linux);
  FAKE_NUMBER(cnokhwa_start_capture, 0);
  EXPECT_EQ(StartCapture(0, 0, 0, 3, false), -13);
  EXPECT_TRUE(Calls().empty());
  EXPECT_TRUE(g_camera.captureDimensions.empty());
}

TEST_F(CaptureStart, OnLinuxWithoutThePlainEntryIsMinusSix) {
  Use(BackendKind::Linux);
  EXPECT_EQ(StartCapture(0, 640, 480, -1, false), -6);
}

TEST_F(CaptureStart, OnDirectShowAFormatFallsBackOnTheSize) {
  Use(BackendKind::DirectShow);
  EXPECT_EQ(StartCapture(0, 640, 480, -1, false), -6);
  EXPECT_EQ(StartCapture(0, 640, 480, 3, false), -6);
  FAKE_NUMBER(cdshow_start_capture, 0);
  EXPECT_EQ(StartCapture(0, 640, 480, 3, false), 0);
  EXPECT_EQ(StartCapture(0, 640, 480, -1, false), 0);
  FAKE_NUMBER(cdshow_start_capture_with_format, 0);
  EXPECT_EQ(StartCapture(0, 640, 480, 3, false), 0);
  EXPECT_EQ(StartCapture(0, 640, 480, -1, false), 0);
  EXPECT_EQ(Calls(),
            (Strings{"cdshow_start_capture(0,640,480)", "cdshow_start_capture(0,640,480)",
                     "cdshow_start_capture_with_format(0,3)", "cdshow_start_capture(0,640,480)"}));
}

TEST_F(CaptureStart, OnDirectShowEncodedNeedsAFormatAndItsOwnEntry) {
  Use(BackendKind::DirectShow);
  FAKE_NUMBER(cdshow_start_capture, 0);
  FAKE_NUMBER(cdshow_start_capture_with_format, 0);
  EXPECT_EQ(StartCapture(0, 640, 480, 3, true), -13);
  FAKE_NUMBER(cdshow_start_capture_encoded, 5);
  EXPECT_EQ(StartCapture(0, 640, 480, -1, true), -13);
  EXPECT_TRUE(Calls().empty());
  EXPECT_TRUE(g_camera.captureDimensions.empty());
  EXPECT_EQ(StartCapture(0, 640, 480, 3, true), 5);
  EXPECT_EQ(Calls(), (Strings{"cdshow_start_capture_encoded(0,3,1)"}));
  ExpectDimensions(0, 640, 480);
}

TEST_F(CaptureStart, OnAvFoundationAFormatFallsBackOnTheSize) {
  Use(BackendKind::AvFoundation);
  EXPECT_EQ(StartCapture(0, 640, 480, 3, false), -6);
  FAKE_NUMBER(avf_start_capture, 0);
  EXPECT_EQ(StartCapture(0, 640, 480, 3, false), 0);
  EXPECT_EQ(StartCapture(0, 640, 480, 3, true), -13);
  FAKE_NUMBER(avf_start_capture_with_format, 0);
  EXPECT_EQ(StartCapture(0, 640, 480, 3, false), 0);
  EXPECT_EQ(StartCapture(0, 640, 480, 3, true), 0);
  EXPECT_EQ(StartCapture(0, 640, 480, -1, true), -13);
  EXPECT_EQ(StartCapture(0, 640, 480, -1, false), 0);
  EXPECT_EQ(Calls(),
            (Strings{"avf_start_capture(0,640,480)", "avf_start_capture_with_format(0,3,0)",
                     "avf_start_capture_with_format(0,3,1)", "avf_start_capture(0,640,480)"}));
}

TEST_F(CaptureStart, ThatSucceedsRemembersTheSize) {
  Use(BackendKind::Linux);
  FAKE_NUMBER(cnokhwa_start_capture, 4);
  EXPECT_EQ(StartCapture(5, 640, 480, -1, false), 4);
  ASSERT_EQ(g_camera.captureDimensions.size(), 6U);
  for (int device = 0; device < 5; ++device) {
    ExpectDimensions(device, 0, 0);
  }
  ExpectDimensions(5, 640, 480);
  EXPECT_EQ(StartCapture(1, -640, -480, -1, false), 4);
  ExpectDimensions(1, 0, 0);
}

TEST_F(CaptureStart, ThatFailsLeavesTheSizeOfTheLastOne) {
  Use(BackendKind::Linux);
  FAKE_NUMBER(cnokhwa_start_capture, 0);
  StartCapture(0, 640, 480, -1, false);
  FAKE_NUMBER(cnokhwa_start_capture, -1);
  EXPECT_EQ(StartCapture(0, 320, 240, -1, false), -1);
  EXPECT_EQ(StartCapture(9, 320, 240, -1, false), -1);
  ExpectDimensions(0, 640, 480);
  EXPECT_EQ(g_camera.captureDimensions.size(), 1U);
}

TEST_F(CaptureStart, OfANegativeOrHugeDeviceGoesToTheBackendAndIsNotRemembered) {
  Use(BackendKind::Linux);
  FAKE_NUMBER(cnokhwa_start_capture, 0);
  EXPECT_EQ(StartCapture(-1, 640, 480, -1, false), 0);
  EXPECT_EQ(StartCapture(2147483647, 640, 480, -1, false), 0);
  EXPECT_EQ(Calls(), (Strings{"cnokhwa_start_capture(-1,640,480)",
                              "cnokhwa_start_capture(2147483647,640,480)"}));
  EXPECT_TRUE(g_camera.captureDimensions.empty());
}

TEST_F(CaptureFrameInfo, WithoutABackendIsUnknown) {
  const FrameInfo info = ReadFrameInfo(0);
  EXPECT_EQ(info.width, -1);
  EXPECT_EQ(info.height, -1);
  EXPECT_EQ(info.bytesPerRow, -1);
  EXPECT_EQ(info.dataSize, -1);
  EXPECT_STREQ(info.pixelFormat, "rgb");
  EXPECT_EQ(info.planeCount, 1);
  EXPECT_EQ(info.planeOffsets[0], 0);
  EXPECT_EQ(info.planeStrides[0], -1);
}

TEST_F(CaptureFrameInfo, OnLinuxIsOneRgbPlane) {
  Use(BackendKind::Linux);
  FAKE_NUMBER(cnokhwa_frame_width, 640);
  FAKE_NUMBER(cnokhwa_frame_height, 480);
  FAKE_NUMBER(cnokhwa_frame_bytes_per_row, 2000);
  const FrameInfo info = ReadFrameInfo(0);
  EXPECT_EQ(info.width, 640);
  EXPECT_EQ(info.height, 480);
  EXPECT_EQ(info.bytesPerRow, 2000);
  EXPECT_EQ(info.dataSize, 960000);
  EXPECT_STREQ(info.pixelFormat, "rgb");
  EXPECT_EQ(info.planeCount, 1);
  EXPECT_EQ(info.planeOffsets[0], 0);
  EXPECT_EQ(info.planeStrides[0], 2000);
}

TEST_F(CaptureFrameInfo, NamesTheFormatsThatHaveANameHere) {
  struct Case {
    int code;
    const char* name;
  };
  constexpr Case kCases[] = {{0, "rgb"}, {1, "bgra"}, {2, "nv12"}, {3, "yuy2"}, {4, "mjpeg"},
                             {5, "rgb"}, {6, "rgb"},  {7, "uyvy"}, {8, "rgb"},  {-1, "rgb"}};
  for (const Case& item : kCases) {
    FAKE_NUMBER(cdshow_frame_pixel_format, item.code);
    FAKE_NUMBER(avf_frame_pixel_format, item.code);
    Use(BackendKind::DirectShow);
    EXPECT_STREQ(ReadFrameInfo(0).pixelFormat, item.name) << item.code;
    Use(BackendKind::AvFoundation);
    EXPECT_STREQ(ReadFrameInfo(0).pixelFormat, item.name) << item.code;
  }
}

TEST_F(CaptureFrameInfo, WithoutAFormatEntryIsThePlatformsUsualOne) {
  Use(BackendKind::DirectShow);
  EXPECT_STREQ(ReadFrameInfo(0).pixelFormat, "bgra");
  Use(BackendKind::AvFoundation);
  EXPECT_STREQ(ReadFrameInfo(0).pixelFormat, "rgb");
}

TEST_F(CaptureFrameInfo, HasNoToTwoPlanes) {
  FAKE_ENTRY(cdshow_frame_plane_offset, [](int, int plane) { return 10 + plane; });
  FAKE_ENTRY(cdshow_frame_plane_stride, [](int, int plane) { return 20 + plane; });
  Use(BackendKind::DirectShow);
  FAKE_NUMBER(cdshow_frame_plane_count, 3);
  const FrameInfo two = ReadFrameInfo(0);
  EXPECT_EQ(two.planeCount, 2);
  EXPECT_EQ(two.planeOffsets[0], 10);
  EXPECT_EQ(two.planeOffsets[1], 11);
  EXPECT_EQ(two.planeStrides[0], 20);
  EXPECT_EQ(two.planeStrides[1], 21);
  FAKE_NUMBER(cdshow_frame_plane_count, 0);
  EXPECT_EQ(ReadFrameInfo(0).planeCount, 0);
  FAKE_NUMBER(cdshow_frame_plane_count, -1);
  EXPECT_EQ(ReadFrameInfo(0).planeCount, 0);
}

TEST_F(CaptureFrameInfo, PlanesWithoutOffsetAndStrideEntriesHaveDefaults) {
  Use(BackendKind::AvFoundation);
  FAKE_NUMBER(avf_frame_plane_count, 2);
  FAKE_NUMBER(avf_frame_bytes_per_row, 77);
  const FrameInfo info = ReadFrameInfo(0);
  EXPECT_EQ(info.planeCount, 2);
  EXPECT_EQ(info.planeOffsets[0], 0);
  EXPECT_EQ(info.planeOffsets[1], -1);
  EXPECT_EQ(info.planeStrides[0], 77);
  EXPECT_EQ(info.planeStrides[1], 0);
}

TEST_F(CaptureButton, IsKnownToDirectShowAlone) {
  for (const BackendKind kind : kAllKinds) {
    Use(kind);
    EXPECT_EQ(ButtonPressed(0), 0);
    EXPECT_EQ(ButtonTimestamp(0), 0);
  }
  FAKE_NUMBER(cdshow_button_pressed, 1);
  FAKE_NUMBER(cdshow_button_timestamp, -99);
  for (const BackendKind kind : kAllKinds) {
    Use(kind);
    const bool isKnown = kind == BackendKind::DirectShow;
    EXPECT_EQ(ButtonPressed(2), isKnown ? 1 : 0);
    EXPECT_EQ(ButtonTimestamp(2), isKnown ? -99 : 0);
  }
  EXPECT_EQ(Calls(), (Strings{"cdshow_button_pressed(2)", "cdshow_button_timestamp(2)"}));
}

// A recording whose worker does nothing but wait for its end, and log it.
void StartRecordingStandIn() {
  const std::lock_guard<std::mutex> lock(g_videoRecorder.mutex);
  g_videoRecorder.state = VideoRecorder::State::Recording;
  g_videoRecorder.stopRequested = false;
  g_videoRecorder.worker = std::thread([] {
    std::unique_lock<std::mutex> waiting(g_videoRecorder.mutex);
    g_videoRecorder.condition.wait(waiting, [] { return g_videoRecorder.stopRequested; });
    g_videoRecorder.stopRequested = false;
    g_videoRecorder.state = VideoRecorder::State::Idle;
    g_callLog.Add("recording ended");
  });
}

// A Linux camera whose grab holds the preview's worker until the backend is told to stop, and
// until what the stop does behind that is done as well.
struct StopTest : FakeCameraTest {
  StopTest() {
    FAKE_NUMBER(cnokhwa_has_first_frame, 0);
    FAKE_NUMBER(cnokhwa_frame_width, 4);
    FAKE_NUMBER(cnokhwa_frame_height, 2);
    FAKE_NUMBER(cnokhwa_frame_bytes_per_row, 12);
    FAKE_ENTRY(cnokhwa_grab_frame, [this](int, void*, int) {
      isGrabbing = true;
      isReleased.wait(false);
      EXPECT_TRUE(Eventually([] { return g_camera.RememberedDimensions(0).width == 0; }));
      g_callLog.Add("grab returns");
      return 0;
    });
    FAKE_ENTRY(cnokhwa_stop_capture, [this](int) {
      wasRunningAtStop = g_cameraPreview.running;
      deviceAtStop = g_cameraPreview.deviceIndex;
      widthAtStop = g_camera.RememberedDimensions(0).width;
      g_callLog.Clear();  // drops the queries of the preview's worker
      g_callLog.Add("backend stopped");
      ReleaseGrab();
      return 42;
    });
    Use(BackendKind::Linux);
    g_camera.RememberDimensions(0, 4, 2);
  }
  ~StopTest() override {
    g_camera.RememberDimensions(0, 0, 0);
    ReleaseGrab();
    g_cameraPreview.Stop(-1);
    g_videoRecorder.Stop();
  }

  void ReleaseGrab() {
    isReleased = true;
    isReleased.notify_all();
  }

  void StartPreview() {
    ASSERT_EQ(g_cameraPreview.StartPolling(0, 960, 540, 120), 0);
    ASSERT_TRUE(Eventually([this] { return isGrabbing.load(); }));
  }

  std::atomic<bool> isGrabbing{false};
  std::atomic<bool> isReleased{false};
  bool wasRunningAtStop = true;
  int deviceAtStop = -2;
  int widthAtStop = -2;
};

using CaptureStop = StopTest;

TEST_F(CaptureStop, EndsThePreviewAroundTheBackendsStop) {
  StartPreview();
  EXPECT_EQ(StopCapture(0), 42);
  // Told to end before the backend stops, joined only behind it: the grab waits for that stop
  // and for the size to be forgotten.
  EXPECT_FALSE(wasRunningAtStop);
  EXPECT_EQ(deviceAtStop, 0);
  EXPECT_EQ(widthAtStop, 4);
  EXPECT_EQ(Calls(), (Strings{"backend stopped", "grab returns"}));
  EXPECT_FALSE(g_cameraPreview.worker.joinable());
  EXPECT_EQ(g_cameraPreview.deviceIndex, -1);
  EXPECT_EQ(g_cameraPreview.lastResult, -5);
}

TEST_F(CaptureStop, EndsARecordingFirst) {
  StartRecordingStandIn();
  FAKE_ENTRY(cnokhwa_stop_capture, [](int) { return 0; });
  EXPECT_EQ(StopCapture(0), 0);
  EXPECT_EQ(Calls(), (Strings{"recording ended", "cnokhwa_stop_capture(0)"}));
}

TEST_F(CaptureStop, OfAnotherDeviceEndsTheRecordingAndLeavesThePreview) {
  StartPreview();
  StartRecordingStandIn();
  FAKE_ENTRY(cnokhwa_stop_capture, [](int) { return 1; });
  EXPECT_EQ(StopCapture(3), 1);
  EXPECT_FALSE(g_videoRecorder.worker.joinable());
  EXPECT_TRUE(g_cameraPreview.running);
  EXPECT_EQ(g_cameraPreview.deviceIndex, 0);
  ExpectDimensions(0, 4, 2);
}

TEST_F(CaptureStop, OfANegativeDeviceEndsEveryPreviewAndForgetsNoSize) {
  g_camera.RememberDimensions(0, 0, 0);
  g_camera.RememberDimensions(1, 640, 480);
  StartPreview();
  EXPECT_EQ(StopCapture(-1), 42);
  EXPECT_EQ(g_cameraPreview.deviceIndex, -1);
  EXPECT_FALSE(g_cameraPreview.running);
  ExpectDimensions(1, 640, 480);
  EXPECT_EQ(g_camera.captureDimensions.size(), 2U);
}

TEST_F(CaptureStop, PassesNegativeDevicesToTheBackend) {
  FAKE_NUMBER(cnokhwa_stop_capture, -2);
  EXPECT_EQ(StopCapture(-7), -2);
  EXPECT_EQ(Calls(), (Strings{"cnokhwa_stop_capture(-7)"}));
}

TEST_F(CaptureStop, ForgetsTheSizeAlsoWithoutABackend) {
  Use(BackendKind::None);
  EXPECT_EQ(StopCapture(0), -6);
  ExpectDimensions(0, 0, 0);
}

TEST_F(CaptureStop, OfAHugeDeviceTakesNoMemory) {
  EXPECT_EQ(StopCapture(std::numeric_limits<int>::max()), 42);
  EXPECT_EQ(g_camera.captureDimensions.size(), 1U);
}

TEST_F(CaptureStop, OfTheOtherKindsCallsTheirEntry) {
  Use(BackendKind::DirectShow);
  EXPECT_EQ(StopCapture(0), -6);
  FAKE_NUMBER(cdshow_stop_capture, 3);
  EXPECT_EQ(StopCapture(0), 3);
  Use(BackendKind::AvFoundation);
  EXPECT_EQ(StopCapture(0), -6);
  FAKE_NUMBER(avf_stop_capture, 4);
  EXPECT_EQ(StopCapture(0), 4);
}

}  // namespace
}  // namespace ostrel_native
