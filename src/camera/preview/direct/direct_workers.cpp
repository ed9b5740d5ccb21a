// The workers of a direct preview. The callback fills the slots; they do what would hold it up:
// decoding JPEG, and taking stills.
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "camera/backend/camera_binding.h"
#include "camera/frames/frame_clock.h"
#include "camera/frames/frame_grab.h"
#include "camera/frames/frame_rates.h"
#include "camera/frames/jpeg_decode.h"
#include "camera/frames/turbojpeg_runtime.h"
#include "camera/preview/camera_preview.h"
#include "camera/preview/direct/direct_slots.h"

namespace ostrel_native {

namespace {

constexpr std::int64_t kNanosecondsPerMillisecond = 1'000'000;
// How long a worker sleeps before it looks again whether it is to end, and for a first frame.
constexpr std::int64_t kJpegWaitNs = 100 * kNanosecondsPerMillisecond;
constexpr std::int64_t kFirstFrameWaitNs = 10 * kNanosecondsPerMillisecond;

std::chrono::steady_clock::time_point SteadyTime(std::int64_t steadyNs) {
  return std::chrono::steady_clock::time_point(std::chrono::nanoseconds(steadyNs));
}

struct DestroyDecompressor {
  using pointer = tjhandle;
  void operator()(tjhandle decompressor) const { g_turboJpeg.tjDestroy(decompressor); }
};
using Decompressor = std::unique_ptr<void, DestroyDecompressor>;

// Makes `picture` the still; gets the memory of the one before.
void InstallQuality(CameraPreviewProducer& producer, std::vector<std::uint8_t>& picture,
                    std::int32_t width, std::int32_t height, bool isBgra,
                    std::int64_t timestampMs) {
  const MutexLock lock(producer.qualityMutex);
  producer.qualityBuffer.swap(picture);
  producer.DescribeQuality(width, height, isBgra, timestampMs);
}

// What the decoding worker keeps between frames. The steady state allocates nothing: three vectors
// of JPEG data change places among the callback, the worker and whoever asks for the latest.
struct MjpegWorker {
  CameraPreviewProducer& producer;
  std::uint64_t generation;

  Decompressor decompressor = {};
  std::vector<std::uint8_t> jpeg = {};  // the frame in work
  std::uint64_t sequence = 0;           // of the frame in work, as are the next two
  std::int64_t timestampMs = 0;
  std::int64_t ticks = 0;
  std::vector<std::uint8_t> chromaScratch = {};
  std::vector<std::uint8_t> picture = {};
  QualityClock qualityClock = {};

  bool IsStale() const { return producer.IsStale(generation); }

  bool OpenDecompressor();
  void ReplaceDecompressor();
  void RunCycle();
  bool AwaitJpeg();
  bool HasExpectedSize();
  bool Deliver();
  bool DecodeTo(const SlotWriter& slot);
  void RefreshQuality();
  bool DecodePicture();
  void KeepAsLatest();
};

// False, with the reason in the last result, if there is none to be had.
bool MjpegWorker::OpenDecompressor() {
  decompressor.reset(g_turboJpeg.Available() ? g_turboJpeg.tjInitDecompress() : nullptr);
  if (decompressor == nullptr) {
    producer.lastResult = kResultUnsupported;
  }
  return decompressor != nullptr;
}

// Where no other is to be had, the one that stands goes on: it may take the next frame, and the
// next header that it refuses is the next occasion to replace it.
void MjpegWorker::ReplaceDecompressor() {
  if (Decompressor fresh(g_turboJpeg.tjInitDecompress()); fresh != nullptr) {
    decompressor = std::move(fresh);
  }
}

void MjpegWorker::RunCycle() {
  if (!AwaitJpeg()) {
    return;
  }
  if (!HasExpectedSize()) {
    producer.CountDrop(kResultFrameFailed);
    return;
  }
  if (Deliver()) {
    RefreshQuality();
    KeepAsLatest();
  }
}

// Takes the newest JPEG in exchange for the vector of an earlier one. False if there is none.
bool MjpegWorker::AwaitJpeg() {
  ConditionLock lock(producer.sharedMutex);
  producer.sharedCondition.wait_until(lock.held, SteadyTime(SteadyNs() + kJpegWaitNs),
                                      [this]() OSTREL_REQUIRES(producer.sharedMutex) {
                                        return producer.encodedPendingFlag || IsStale();
                                      });
  if (!producer.encodedPendingFlag || IsStale()) {
    return false;
  }
  jpeg.swap(producer.encodedPending);
  producer.encodedPendingFlag = false;
  sequence = producer.encodedPendingSequence;
  timestampMs = producer.encodedPendingTimestampMs;
  ticks = producer.encodedPendingTicks;
  return true;
}

// Whether the frame in work is of the size that the preview was started with.
bool MjpegWorker::HasExpectedSize() {
  if (jpeg.empty()) {
    return false;
  }
  const auto size = ReadJpegSize(decompressor.get(), jpeg.data(), jpeg.size());
  if (!size) {
    // One that has refused a header may refuse every one after it.
    ReplaceDecompressor();
    return false;
  }
  const PreviewMeta& shape = producer.directTemplate;
  return *size == JpegSize{shape.width, shape.height};
}

// Decodes the frame into a free slot. False if it is lost.
bool MjpegWorker::Deliver() {
  SlotWriter slot(producer);
  if (!slot.HasSlot()) {
    // The last result stays: the frame before this one is all right, and is being held.
    ++producer.droppedFrames;
    return false;
  }
  if (!DecodeTo(slot)) {
    producer.CountDrop(kResultFrameFailed);
    return false;
  }
  PreviewMeta record = producer.directTemplate;
  record.timestampMs = timestampMs;
  record.monotonicTicks = ticks;
  slot.Complete(record);
  return true;
}

bool MjpegWorker::DecodeTo(const SlotWriter& slot) {
  const PreviewMeta& shape = producer.directTemplate;
  const auto capacity = static_cast<std::size_t>(shape.dataSize);
  return slot.HasRoom(capacity) &&
         DecodeJpegToI420(decompressor.get(), jpeg.data(), jpeg.size(), slot.Data(), capacity,
                          shape.width, shape.height, chromaScratch);
}

void MjpegWorker::RefreshQuality() {
  const std::int64_t now = SteadyNs();
  if (qualityClock.IsDue(now) && DecodePicture()) {
    const PreviewMeta& shape = producer.directTemplate;
    InstallQuality(producer, picture, shape.width, shape.height, false, timestampMs);
    qualityClock.Taken(now);
  }
}

// Decodes the frame in work as a still. False, and nothing is counted, if that can't be done.
bool MjpegWorker::DecodePicture() {
  const PreviewMeta& shape = producer.directTemplate;
  const auto rowBytes = ByteProduct(shape.width, 3);
  const auto size = rowBytes ? ByteProduct(*rowBytes, shape.height) : std::nullopt;
  if (!size) {
    return false;
  }
  try {
    picture.resize(static_cast<std::size_t>(*size));
  } catch (...) {
    return false;
  }
  return DecodeJpegToRgb(decompressor.get(), jpeg.data(), jpeg.size(), picture.data(), shape.width,
                         shape.height);
}

void MjpegWorker::KeepAsLatest() {
  const MutexLock lock(producer.sharedMutex);
  producer.encodedLatest.swap(jpeg);
  producer.encodedLatestSequence = sequence;
  producer.encodedLatestTimestampMs = timestampMs;
}

// What the worker beside an uncompressed preview keeps between its stills.
struct QualityWorker {
  CameraPreviewProducer& producer;
  std::uint64_t generation;
  int device;
  std::int64_t tick = SteadyNs();  // time of the last cycle

  bool IsStale() const { return producer.IsStale(generation); }

  void RunCycle();
  void TakePicture();
};

void QualityWorker::RunCycle() {
  if (!producer.firstFrameSeen) {
    producer.SleepUntil(SteadyNs() + kFirstFrameWaitNs, generation);
    tick = SteadyNs();
    return;
  }
  try {
    TakePicture();
  } catch (...) {
    // Out of memory, mostly: this picture is lost, which nobody counts.
  }
  const std::int64_t deadline = tick + kQualityPeriodNs;
  if (deadline > SteadyNs()) {
    producer.SleepUntil(deadline, generation);
    tick = deadline;
  } else {
    tick = SteadyNs();
  }
}

// Into memory of its own: a grab that fails half-way leaves the picture that stands as it is.
void QualityWorker::TakePicture() {
  const FrameGrabPlan plan = PlanFrameGrab(device);
  if (plan.result != kResultOk) {
    return;
  }
  std::vector<std::uint8_t> picture(static_cast<std::size_t>(plan.size));
  if (GrabFrame(device, picture.data(), plan.size) == kResultOk && !IsStale()) {
    InstallQuality(producer, picture, plan.width, plan.height, plan.isBgra, WallClockMs());
  }
}

}  // namespace

void CameraPreviewProducer::RunSharedMjpegLoop(std::uint64_t ownGeneration, int) {
  MjpegWorker jpegWorker{.producer = *this, .generation = ownGeneration};
  jpegWorker.OpenDecompressor();
  while (jpegWorker.decompressor != nullptr && !IsStale(ownGeneration)) {
    try {
      jpegWorker.RunCycle();
    } catch (...) {
      // Out of memory for the chroma: the frame is lost, the preview goes on.
      CountDrop(kResultFrameFailed);
    }
  }
}

void CameraPreviewProducer::RunSharedQualityLoop(std::uint64_t ownGeneration, int device) {
  QualityWorker qualityWorker{.producer = *this, .generation = ownGeneration, .device = device};
  while (!IsStale(ownGeneration)) {
    qualityWorker.RunCycle();
  }
}

}  // namespace ostrel_native
