// Starting a direct preview, and what of its end is its own.
#include <algorithm>
#include <cstddef>
#include <iterator>
#include <system_error>

#include "camera/frames/frame_clock.h"
#include "camera/preview/camera_preview.h"
#include "camera/preview/direct/direct_delivery.h"
#include "camera/preview/direct/direct_plan.h"
#include "camera/preview/preview_turn.h"

namespace ostrel_native {

int CameraPreviewProducer::PrepareDirect(int device, int width, int height, int frameRate,
                                         DirectPlan& plan) {
  const PreviewTurn turn(*this);
  return PlanAnew(device, width, height, frameRate, plan);
}

int CameraPreviewProducer::PlanAnew(int device, int width, int height, int frameRate,
                                    DirectPlan& plan) {
  RequestStop();
  JoinAndReset();
  StorePace(device, std::max(width, 1), std::max(height, 1), frameRate);
  const int refusal = PlanDirect(device, plan);
  plan.device = device;
  plan.width = width;
  plan.height = height;
  plan.frameRate = frameRate;
  plan.generation = generation;
  return refusal;
}

int CameraPreviewProducer::StartDirect(DirectPlan& plan, const LentSlot (&lent)[kBufferCount]) {
  const PreviewTurn turn(*this);
  int refusal = kResultOk;
  if (generation != plan.generation) {
    refusal = PlanAnew(plan.device, plan.width, plan.height, plan.frameRate, plan);
  }
  if (refusal == kResultOk) {
    refusal = CheckLentSlots(lent, plan.bytes);
  }
  if (refusal != kResultOk) {
    return refusal;
  }
  const int result = BeginDirect(plan, lent);
  plan.generation = generation;
  return result;
}

int CameraPreviewProducer::BeginDirect(const DirectPlan& plan,
                                       const LentSlot (&lent)[kBufferCount]) {
  SizeBuffers(0);  // frames go into the lent arrays
  {
    const MutexLock lock(previewMutex);
    for (std::size_t slot = 0; slot < std::size(lent); ++slot) {
      slotData[slot] = lent[slot].data;
      slotBytes[slot] = lent[slot].bytes;
      slotStates[slot] = SlotState::Free;
    }
    bufferBytes = plan.bytes;
  }
  directTemplate = plan.frame;
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
    deviceIndex = -1;
    DropSlots();
    return result;
  }
  directCallbackRegistered = true;
  try {
    worker = std::thread(plan.isMjpeg ? &CameraPreviewProducer::RunSharedMjpegLoop
                                      : &CameraPreviewProducer::RunSharedQualityLoop,
                         this, ownGeneration, device);
  } catch (const std::system_error& error) {
    RequestStop();
    JoinAndReset();
    throw std::system_error(error.code(), kNoThreadText);
  }
  return kResultOk;
}

void CameraPreviewProducer::ClearDirectCallback() {
  if (directCallbackRegistered.exchange(false)) {
    ClearFrameCallback(deviceIndex);
  }
}

// Without callback and worker. In one step, so that no poll finds a slot without its preview.
void CameraPreviewProducer::DropSlots() {
  const MutexLock lock(previewMutex);
  direct = false;
  directMjpeg = false;
  for (int slot = 0; slot < kBufferCount; ++slot) {
    slotStates[slot] = SlotState::Free;
    slotData[slot] = nullptr;
    slotBytes[slot] = 0;
  }
}

void CameraPreviewProducer::ClearEncoded() {
  const MutexLock lock(sharedMutex);
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
