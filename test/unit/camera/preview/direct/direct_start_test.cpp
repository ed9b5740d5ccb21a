// Starting and stopping a direct preview: what happens in which order, and what stays.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <latch>
#include <system_error>
#include <thread>

#include "camera/capture.h"
#include "camera/preview/direct/direct_delivery.h"
#include "recording/video_recorder.h"
#include "unit/support/direct_preview.h"
#include "unit/support/eventually.h"
#include "unit/support/jpeg_samples.h"
#include "unit/support/thread_spy.h"

namespace ostrel_native {
namespace {

using CallList = std::vector<std::string>;

struct DirectStart : DirectPreviewTest {
  ~DirectStart() override { UnloadTurboJpeg(); }

  // The calls that concern the callback, the backend's capture and the references.
  static CallList CallsOfTheEnd() {
    CallList calls = FakeCameraTest::Calls();
    std::erase_if(calls, [](const std::string& call) {
      return call.find("callback") == std::string::npos &&
             call.find("release") == std::string::npos &&
             call.find("stop_capture") == std::string::npos;
    });
    return calls;
  }
};

TEST_F(DirectStart, RunsWithEverythingSetBeforeTheBackendIsTold) {
  UseDirectShow({});
  producer->droppedFrames = 9;
  bool wasReady = false;
  onRegister = [this, &wasReady](bool) {
    wasReady = producer->running && producer->direct && !producer->worker.joinable() &&
               !producer->directCallbackRegistered && producer->slotData[2] != nullptr;
    return 5;  // any number from 0 on is a success
  };
  ASSERT_EQ(Start(), 0);
  onRegister = [](bool) { return 0; };
  EXPECT_TRUE(wasReady);
  EXPECT_EQ(CallsOfTheEnd(), (CallList{"cdshow_set_frame_callback(3,ptr,ptr,1)"}));
  EXPECT_EQ(callbackContext, producer.get());
  EXPECT_EQ(dshowCallback, &DirectFrameCallback);
  EXPECT_TRUE(producer->running);
  EXPECT_TRUE(producer->direct);
  EXPECT_FALSE(producer->directMjpeg);
  EXPECT_TRUE(producer->directCallbackRegistered);
  EXPECT_TRUE(producer->worker.joinable());
  EXPECT_EQ(producer->deviceIndex, kDevice);
  EXPECT_EQ(producer->targetWidth, 960);
  EXPECT_EQ(producer->targetHeight, 540);
  EXPECT_EQ(producer->frameInterval, 33'333'333);
  EXPECT_EQ(producer->bufferBytes, 32U);
  EXPECT_EQ(producer->droppedFrames, 0);
  EXPECT_EQ(producer->producedFrames, 0U);
  EXPECT_EQ(producer->publishedSequence, 0U);
  EXPECT_EQ(producer->lastResult, -256);
  EXPECT_FALSE(producer->firstFrameSeen);
  EXPECT_EQ(producer->directCursor, 0U);
  EXPECT_EQ(States(), (std::vector{kFree, kFree, kFree}));
}

TEST_F(DirectStart, GivesAvfItsOwnCallback) {
  UseAvFoundation({});
  ASSERT_EQ(Start(), 0);
  EXPECT_EQ(avfCallback, &AvfDirectFrameCallback);
  EXPECT_EQ(CallsOfTheEnd(), (CallList{"avf_set_frame_callback(3,ptr,ptr,1)"}));
  producer->Stop(kDevice);
  EXPECT_EQ(CallsOfTheEnd()[1], "avf_set_frame_callback(3,null,null,0)");
}

TEST_F(DirectStart, RaisesAndLowersItsNumbers) {
  UseDirectShow({});
  ASSERT_EQ(producer->PrepareDirect(0, 0, -4, 0, plan), 0);
  EXPECT_EQ(producer->deviceIndex, 0);
  EXPECT_EQ(producer->targetWidth, 1);
  EXPECT_EQ(producer->targetHeight, 1);
  EXPECT_EQ(producer->frameInterval, 1'000'000'000);
  ASSERT_EQ(producer->PrepareDirect(0, 7, 8, 500, plan), 0);
  EXPECT_EQ(producer->frameInterval, 8'333'333);
}

TEST_F(DirectStart, TakesAFrameWithinTheRegisteringCallOnTheSameThread) {
  UseDirectShow({});
  onRegister = [this](bool enable) {
    if (enable) {
      Fire(FrameBytes(32));
    }
    return 0;
  };
  ASSERT_EQ(Start(), 0);
  EXPECT_EQ(producer->producedFrames, 1U);
  EXPECT_EQ(States(), (std::vector{kReady, kFree, kFree}));
  EXPECT_EQ(memory[0]->Content(), FrameBytes(32));
}

TEST_F(DirectStart, KeepsDeviceAndSizeAfterARefusalOfTheFrames) {
  UseDirectShow({});
  ASSERT_EQ(Start(), 0);
  FAKE_NUMBER(cdshow_frame_pixel_format, 0);
  EXPECT_EQ(producer->PrepareDirect(5, 16, 8, 25, plan), -11);
  EXPECT_FALSE(producer->running);
  EXPECT_FALSE(producer->direct);
  EXPECT_FALSE(producer->worker.joinable());
  EXPECT_EQ(producer->deviceIndex, 5);
  EXPECT_EQ(producer->targetWidth, 16);
  EXPECT_EQ(producer->targetHeight, 8);
  EXPECT_EQ(producer->frameInterval, 40'000'000);
  EXPECT_EQ(producer->lastResult, -5);
  EXPECT_EQ(CallsOfTheEnd(), (CallList{"cdshow_set_frame_callback(3,ptr,ptr,1)",
                                       "cdshow_set_frame_callback(3,null,null,0)"}));
}

TEST_F(DirectStart, PassesOnTheBackendsRefusalAndForgetsTheArrays) {
  UseDirectShow({});
  onRegister = [](bool) { return -42; };
  EXPECT_EQ(Start(), -42);
  EXPECT_FALSE(producer->running);
  EXPECT_FALSE(producer->direct);
  EXPECT_FALSE(producer->directMjpeg);
  EXPECT_FALSE(producer->directCallbackRegistered);
  EXPECT_FALSE(producer->worker.joinable());
  EXPECT_EQ(producer->deviceIndex, -1);
  EXPECT_EQ(producer->targetWidth, 960);
  EXPECT_EQ(producer->lastResult, -256);
  EXPECT_EQ(producer->slotData[0], nullptr);
  EXPECT_EQ(producer->slotBytes[0], 0U);
  producer->Stop(-1);  // there is no callback to take back
  EXPECT_EQ(CallsOfTheEnd(), (CallList{"cdshow_set_frame_callback(3,ptr,ptr,1)"}));
}

TEST_F(DirectStart, RefusesABackendThatLostItsEntryMeanwhile) {
  std::uint8_t bytes[32] = {};
  const LentSlot slot = {.isByteArray = true, .data = bytes, .bytes = sizeof bytes};
  UseDirectShow({});
  ASSERT_EQ(producer->PrepareDirect(kDevice, 4, 2, 30, plan), 0);
  g_camera.cdshow_set_frame_callback = nullptr;
  EXPECT_EQ(producer->StartDirect(plan, {slot, slot, slot}), -6);
  UseAvFoundation({});
  ASSERT_EQ(producer->PrepareDirect(kDevice, 4, 2, 30, plan), 0);
  g_camera.avf_set_frame_callback = nullptr;
  EXPECT_EQ(producer->StartDirect(plan, {slot, slot, slot}), -6);
  UseAvFoundation({});
  ASSERT_EQ(producer->PrepareDirect(kDevice, 4, 2, 30, plan), 0);
  Use(BackendKind::None);
  EXPECT_EQ(producer->StartDirect(plan, {slot, slot, slot}), -6);
  EXPECT_FALSE(producer->running);
}

TEST_F(DirectStart, IgnoresWhatARefusingBackendSendsLater) {
  UseDirectShow({});
  onRegister = [](bool) { return -1; };
  ASSERT_EQ(Start(), -1);
  Fire(FrameBytes(32));
  EXPECT_EQ(producer->producedFrames, 0U);
  EXPECT_EQ(producer->droppedFrames, 0);
}

TEST_F(DirectStart, TakesTheCallbackBackThenJoinsThenForgetsTheArrays) {
  UseDirectShow({});
  FAKE_ENTRY(cdshow_grab_frame, [](int, void*, int) { return 0; });
  ASSERT_EQ(Start(), 0);
  bool workerStood = false;
  onRegister = [this, &workerStood](bool) {
    workerStood = producer->worker.joinable() && producer->slotData[0] != nullptr;
    return 0;
  };
  producer->Stop(kDevice);
  EXPECT_TRUE(workerStood);
  EXPECT_EQ(CallsOfTheEnd(), (CallList{"cdshow_set_frame_callback(3,ptr,ptr,1)",
                                       "cdshow_set_frame_callback(3,null,null,0)"}));
  EXPECT_FALSE(producer->direct);
  EXPECT_FALSE(producer->directCallbackRegistered);
  EXPECT_EQ(producer->deviceIndex, -1);
  EXPECT_EQ(producer->lastResult, -5);
  for (int slot = 0; slot < kSlots; ++slot) {
    EXPECT_EQ(producer->slotData[slot], nullptr);
    EXPECT_EQ(producer->slotBytes[slot], 0U);
  }
  EXPECT_EQ(States(), (std::vector{kFree, kFree, kFree}));
}

TEST_F(DirectStart, StopsForItsOwnDeviceOrAnyNegativeOne) {
  UseDirectShow({});
  ASSERT_EQ(Start(), 0);
  producer->Stop(kDevice + 1);
  EXPECT_TRUE(producer->direct);
  producer->Stop(-9);
  EXPECT_FALSE(producer->direct);
}

TEST_F(DirectStart, AcceptsNoFrameOnceItHasStopped) {
  UseDirectShow({});
  ASSERT_EQ(Start(), 0);
  producer->Stop(-1);
  Fire(FrameBytes(32));
  EXPECT_EQ(producer->producedFrames, 0U);
  EXPECT_EQ(producer->droppedFrames, 0);
  EXPECT_EQ(memory[0]->Content(), Bytes(32, LentMemory::kUntouched));
}

TEST_F(DirectStart, TellsTheWorkerToEndAtOnce) {
  UseDirectShow({});
  ASSERT_EQ(Start(), 0);
  // No first frame comes: the worker sleeps, and is woken. A wait for ever would fail the run.
  producer->Stop(-1);
  EXPECT_FALSE(producer->worker.joinable());
}

TEST_F(DirectStart, StartsAnewAfterAStop) {
  UseDirectShow({});
  for (int round = 1; round <= 3; ++round) {
    ASSERT_EQ(Start(), 0);
    Fire(FrameBytes(32));
    EXPECT_EQ(producer->publishedSequence, 1U) << round;
    producer->Stop(-1);
  }
}

TEST_F(DirectStart, ReplacesAPollingPreviewAndIsReplacedByOne) {
  UseDirectShow({});
  FAKE_NUMBER(cdshow_has_first_frame, 0);
  ASSERT_EQ(producer->StartPolling(1, 4, 2, 120), 0);
  ASSERT_EQ(Start(), 0);
  EXPECT_TRUE(producer->direct);
  EXPECT_EQ(producer->deviceIndex, kDevice);
  ASSERT_EQ(producer->StartPolling(kDevice, 4, 2, 120), 0);
  EXPECT_FALSE(producer->direct);
  EXPECT_TRUE(producer->running);
  EXPECT_EQ(CallsOfTheEnd()[1], "cdshow_set_frame_callback(3,null,null,0)");
  Fire(FrameBytes(32));
  EXPECT_EQ(producer->publishedSequence, 0U);
}

TEST_F(DirectStart, RollsBackIfTheWorkerCannotBeStarted) {
  UseDirectShow({});
  const test::FailingThreadStart failure(1);
  EXPECT_THROW(Start(), std::system_error);
  EXPECT_FALSE(producer->running);
  EXPECT_FALSE(producer->direct);
  EXPECT_EQ(producer->deviceIndex, -1);
  EXPECT_EQ(CallsOfTheEnd(), (CallList{"cdshow_set_frame_callback(3,ptr,ptr,1)",
                                       "cdshow_set_frame_callback(3,null,null,0)"}));
}

TEST_F(DirectStart, TakesTheCallbackBackWhenItIsDestroyed) {
  UseDirectShow({});
  ASSERT_EQ(Start(), 0);
  producer.reset();
  EXPECT_EQ(CallsOfTheEnd(), (CallList{"cdshow_set_frame_callback(3,ptr,ptr,1)",
                                       "cdshow_set_frame_callback(3,null,null,0)"}));
}

// `cameraStopCapture` works on the process's own preview.
struct DirectStopCapture : DirectStart {
  DirectStopCapture() {
    UseDirectShow({});
    FAKE_NUMBER(cdshow_stop_capture, 17);
    EXPECT_EQ(g_cameraPreview.PrepareDirect(kDevice, 4, 2, 30, plan), 0);
    EXPECT_EQ(g_cameraPreview.StartDirect(plan, {slot, slot, slot}), 0);
  }
  ~DirectStopCapture() override { g_cameraPreview.Stop(-1); }

  std::uint8_t bytes[32] = {};
  LentSlot slot = {.isByteArray = true, .data = bytes, .bytes = sizeof bytes};
};

TEST_F(DirectStopCapture, TakesTheCallbackBackBeforeTheBackendStops) {
  for (const int device : {kDevice}) {
    EXPECT_EQ(StopCapture(device), 17);
    EXPECT_EQ(CallsOfTheEnd(),
              (CallList{"cdshow_set_frame_callback(3,ptr,ptr,1)",
                        "cdshow_set_frame_callback(3,null,null,0)", "cdshow_stop_capture(3)"}));
    EXPECT_FALSE(g_cameraPreview.direct);
    EXPECT_EQ(g_cameraPreview.deviceIndex, -1);
  }
}

TEST_F(DirectStopCapture, NamesThePreviewsDeviceToTheCallbackAndItsOwnToTheBackend) {
  EXPECT_EQ(StopCapture(-1), 17);
  EXPECT_EQ(CallsOfTheEnd(),
            (CallList{"cdshow_set_frame_callback(3,ptr,ptr,1)",
                      "cdshow_set_frame_callback(3,null,null,0)", "cdshow_stop_capture(-1)"}));
}

TEST_F(DirectStopCapture, LeavesAnotherDevicesPreviewAlone) {
  EXPECT_EQ(StopCapture(kDevice + 1), 17);
  EXPECT_EQ(CallsOfTheEnd(),
            (CallList{"cdshow_set_frame_callback(3,ptr,ptr,1)", "cdshow_stop_capture(4)"}));
  EXPECT_TRUE(g_cameraPreview.direct);
}

}  // namespace
}  // namespace ostrel_native
