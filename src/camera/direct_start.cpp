// Starting a direct preview, and what of its end is its own.
#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

#include "camera/camera_preview.h"
#include "camera/direct_delivery.h"
#include "camera/direct_plan.h"
#include "camera/frame_clock.h"
#include "camera/lent_references.h"

namespace ostrel_native {

int CameraPreviewProducer::PrepareDirect(int device, int width, int height, int frameRate,
                                         DirectPlan& plan) {
  RequestStop();
  JoinAndReset();
  StorePace(device, std::max(width, 1), std::max(height, 1), frameRate);
  return PlanDirect(device, plan);
}

int CameraPreviewProducer::StartDirect(const DirectPlan& plan,
                                       const LentSlot (&lent)[kBufferCount]) {
  for (std::size_t slot = 0; slot < std::size(lent); ++slot) {
    slotData[slot] = lent[slot].data;
    slotBytes[slot] = lent[slot].bytes;
    slotStates[slot] = SlotState::Free;
    metas[slot] = PreviewMeta{};
  }
  directTemplate = plan.frame;
  bufferBytes = plan.bytes;
  directMjpeg = plan.isMjpeg;
  directCursor = 0;
  droppedFrames = 0;
  lastResult = kResultNotYet;
  fpsPeriodStart = SteadyNs();
  fpsPeriodFrames = 0;

  running = true;
  direct = true;
  const std::uint64_t ownGeneration = ++generation;
  const int device = deviceIndex;
  // All is set before the backend learns of the callback: it may call at once, on this thread too.
  const int result = SetFrameCallback(device, *this);
  if (result < 0) {
    running = false;
    direct = false;
    directMjpeg = false;
    deviceIndex = -1;
    DropSlots();
    return result;
  }
  directCallbackRegistered = true;
  try {
    worker = std::thread(plan.isMjpeg ? &CameraPreviewProducer::RunSharedMjpegLoop
                                      : &CameraPreviewProducer::RunSharedQualityLoop,
                         this, ownGeneration, device);
  } catch (...) {
    RequestStop();
    JoinAndReset();
    throw;
  }
  return kResultOk;
}

void CameraPreviewProducer::ClearDirectCallback() {
  if (directCallbackRegistered.exchange(false)) {
    ClearFrameCallback(deviceIndex);
  }
}

void CameraPreviewProducer::DropSlots() {
  for (int slot = 0; slot < kBufferCount; ++slot) {
    slotStates[slot] = SlotState::Free;
    slotData[slot] = nullptr;
    slotBytes[slot] = 0;
    ReleaseOnLender(std::move(slotReferences[slot]), lender);
  }
}

void CameraPreviewProducer::ClearEncoded() {
  const std::lock_guard<std::mutex> lock(sharedMutex);
  encodedPending.clear();
  encodedLatest.clear();
  encodedPendingFlag = false;
  encodedPendingSequence = 0;
  encodedPendingTimestampMs = 0;
  encodedPendingTicks = 0;
  encodedLatestSequence = 0;
  encodedLatestTimestampMs = 0;
}

}  // namespace ostrel_native
