// A direct preview whose backend the test plays: tables filled with plain functions, and three lent
// arrays that nothing may be written outside of.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "camera/backend/camera_binding.h"
#include "camera/preview/camera_preview.h"
#include "camera/preview/direct/direct_plan.h"
#include "unit/support/fake_camera.h"
#include "unit/support/guarded_buffer.h"

namespace ostrel_native {

using Bytes = std::vector<std::uint8_t>;

/// What the backend tells of its frames.
struct BackendFrame {
  CameraPixelFormat format = CameraPixelFormat::Bgra;
  int width = 4;
  int height = 2;
  int bytesPerRow = 16;
  int dataSize = 32;
  int planeCount = 1;
  int offsets[2] = {0, 0};
  int strides[2] = {16, 0};
};

/// Bytes that differ by frame and place, so that a misplaced byte shows.
inline Bytes FrameBytes(std::size_t size, std::uint64_t frame = 1) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<std::uint8_t>(frame * 31 + i * 7 + i / 251);
  }
  return bytes;
}

/// An array that script code lends: it ends at a forbidden page, and what lies before it is
/// watched.
class LentMemory {
 public:
  static constexpr std::size_t kBefore = 64;
  static constexpr std::uint8_t kUntouched = 0xE7;

  explicit LentMemory(std::size_t size) : buffer(size + kBefore, kUntouched) {}
  ~LentMemory() {
    EXPECT_TRUE(std::all_of(buffer.begin(), data(), [](auto byte) { return byte == kUntouched; }));
  }

  std::uint8_t* data() { return buffer.begin() + kBefore; }
  std::size_t size() const { return buffer.size() - kBefore; }
  Bytes Content(std::size_t length) { return Bytes(data(), data() + length); }
  Bytes Content() { return Content(size()); }

 private:
  test::GuardedBuffer buffer;
};

/// The producer of these tests is their own, so that a test may destroy it.
struct DirectPreviewTest : FakeCameraTest {
  static constexpr int kDevice = 3;
  static constexpr int kSlots = CameraPreviewProducer::kBufferCount;

  ~DirectPreviewTest() override {
    if (producer != nullptr) {
      producer->Stop(-1);
    }
  }

  void UseDirectShow(const BackendFrame& frame) {
    FAKE_NUMBER(cdshow_frame_width, frame.width);
    FAKE_NUMBER(cdshow_frame_height, frame.height);
    FAKE_NUMBER(cdshow_frame_bytes_per_row, frame.bytesPerRow);
    FAKE_NUMBER(cdshow_frame_data_size, frame.dataSize);
    FAKE_NUMBER(cdshow_frame_pixel_format, static_cast<int>(frame.format));
    FAKE_NUMBER(cdshow_frame_plane_count, frame.planeCount);
    FAKE_ENTRY(cdshow_frame_plane_offset, [frame](int, int plane) { return frame.offsets[plane]; });
    FAKE_ENTRY(cdshow_frame_plane_stride, [frame](int, int plane) { return frame.strides[plane]; });
    FAKE_ENTRY(cdshow_set_frame_callback,
               [this](int, DirectFrameCallbackFn callback, void* context, int) {
                 if (callback != nullptr) {  // one that is taken back may still be called too late
                   dshowCallback = callback;
                   callbackContext = context;
                 }
                 return onRegister(callback != nullptr);
               });
    Use(BackendKind::DirectShow);
  }

  void UseAvFoundation(const BackendFrame& frame) {
    FAKE_NUMBER(avf_frame_width, frame.width);
    FAKE_NUMBER(avf_frame_height, frame.height);
    FAKE_NUMBER(avf_frame_bytes_per_row, frame.bytesPerRow);
    FAKE_NUMBER(avf_frame_data_size, frame.dataSize);
    FAKE_NUMBER(avf_frame_pixel_format, static_cast<int>(frame.format));
    FAKE_NUMBER(avf_frame_plane_count, frame.planeCount);
    FAKE_ENTRY(avf_frame_plane_offset, [frame](int, int plane) { return frame.offsets[plane]; });
    FAKE_ENTRY(avf_frame_plane_stride, [frame](int, int plane) { return frame.strides[plane]; });
    FAKE_ENTRY(avf_set_frame_callback,
               [this](int, AvfDirectFrameCallbackFn callback, void* context, int) {
                 if (callback != nullptr) {  // one that is taken back may still be called too late
                   avfCallback = callback;
                   callbackContext = context;
                 }
                 return onRegister(callback != nullptr);
               });
    Use(BackendKind::AvFoundation);
  }

  /// Lends three arrays of `bytes` bytes, or of as many as the plan needs, and starts.
  int Start(std::size_t bytes = 0) {
    const int refusal = producer->PrepareDirect(kDevice, 960, 540, 30, plan);
    if (refusal != 0) {
      return refusal;
    }
    memory.clear();
    for (LentSlot& slot : lent) {
      memory.push_back(
          std::make_unique<LentMemory>(bytes != 0 ? bytes : static_cast<std::size_t>(plan.bytes)));
      slot = {.isByteArray = true, .data = memory.back()->data(), .bytes = memory.back()->size()};
    }
    return producer->StartDirect(plan, lent);
  }

  void Fire(const Bytes& bytes, int flipped = 0) {
    dshowCallback(kDevice, bytes.data(), bytes.size(), flipped, callbackContext);
  }

  std::vector<SlotState> States() const {
    return {producer->slotStates[0], producer->slotStates[1], producer->slotStates[2]};
  }

  void ExpectDropped(int count, int result) const {
    EXPECT_EQ(producer->droppedFrames, count);
    EXPECT_EQ(producer->lastResult, result);
  }

  std::unique_ptr<CameraPreviewProducer> producer = std::make_unique<CameraPreviewProducer>();
  DirectPlan plan;
  LentSlot lent[kSlots];
  std::vector<std::unique_ptr<LentMemory>> memory;  // outlives the preview, as script code's would
  std::function<int(bool enable)> onRegister = [](bool) { return 0; };
  DirectFrameCallbackFn dshowCallback = nullptr;
  AvfDirectFrameCallbackFn avfCallback = nullptr;
  void* callbackContext = nullptr;
};

inline constexpr SlotState kFree = SlotState::Free;
inline constexpr SlotState kWriting = SlotState::Writing;
inline constexpr SlotState kReady = SlotState::Ready;
inline constexpr SlotState kHeld = SlotState::Held;

}  // namespace ostrel_native
