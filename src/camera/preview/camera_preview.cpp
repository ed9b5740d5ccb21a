#include "camera/preview/camera_preview.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "camera/frames/frame_scratch.h"
#include "camera/preview/preview_turn.h"
#include "recording/video_recorder.h"

namespace ostrel_native {

namespace {

constexpr int kMaxFrameRate = 120;
constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
constexpr std::int64_t kTicksPerMillisecond = 10'000;  // of 100 ns

// The worker can publish between the two reads of an attempt, but not this often in a row unless
// the reader is starved; the next poll finds the frame then.
constexpr int kAcquireAttempts = 4;

// Announces the published buffer as being read. -1 if there is none, or if the worker published
// anew at each attempt.
int AnnounceReading(CameraPreviewProducer& producer) {
  for (int attempt = 0; attempt < kAcquireAttempts; ++attempt) {
    const int published = producer.publishedIndex;
    if (published < 0 || published >= CameraPreviewProducer::kBufferCount) {
      break;
    }
    producer.readingIndex = published;
    if (producer.publishedIndex == published) {
      return published;
    }
    producer.readingIndex = -1;
  }
  producer.readingIndex = -1;
  return -1;
}

std::runtime_error NoMemoryFor(int width, int height) {
  return std::runtime_error("Not enough memory for a preview of " + std::to_string(width) + " by " +
                            std::to_string(height) + " pixels");
}

}  // namespace

CameraPreviewProducer::~CameraPreviewProducer() {
  Stop(-1);
}

int CameraPreviewProducer::StartPolling(int device, int width, int height, int frameRate) {
  if (device < 0) {
    return kResultNoPreview;
  }
  const PreviewTurn turn(*this);
  RequestStop();
  JoinAndReset();
  StorePace(device, std::max(width, 1), std::max(height, 1), frameRate);
  const std::uint64_t bytes = std::uint64_t{4} * static_cast<std::uint64_t>(targetWidth) *
                              static_cast<std::uint64_t>(targetHeight);
  try {
    SizeBuffers(bytes);
  } catch (const std::bad_alloc&) {
    throw NoMemoryFor(targetWidth, targetHeight);
  } catch (const std::length_error&) {
    throw NoMemoryFor(targetWidth, targetHeight);
  }
  droppedFrames = 0;
  lastResult = kResultNotYet;

  running = true;
  const std::uint64_t ownGeneration = ++generation;
  try {
    worker = std::thread(&CameraPreviewProducer::RunLoop, this, ownGeneration, device, targetWidth,
                         targetHeight, frameInterval, bytes);
  } catch (const std::system_error& error) {
    RequestStop();
    JoinAndReset();
    deviceIndex = device;
    throw std::system_error(error.code(), kNoThreadText);
  }
  return kResultOk;
}

// Zeroed, so that nothing of an earlier camera's picture stays. The memory of the buffers before is
// used again, unless it is far too much.
void CameraPreviewProducer::SizeBuffers(std::uint64_t bytes) {
  std::vector<std::uint8_t> sized[kBufferCount];
  {
    const MutexLock lock(previewMutex);
    std::swap(buffers, sized);
    bufferBytes = 0;  // claims nothing while an allocation may still fail
    std::fill(std::begin(metas), std::end(metas), PreviewMeta{});
  }
  for (auto& buffer : sized) {
    GiveBackExcess(buffer, bytes);
    buffer.assign(bytes, 0);
  }
  const MutexLock lock(previewMutex);
  std::swap(buffers, sized);
  bufferBytes = bytes;
}

void CameraPreviewProducer::StorePace(int device, int width, int height, int frameRate) {
  deviceIndex = device;
  targetWidth = width;
  targetHeight = height;
  frameInterval = kNanosecondsPerSecond / std::clamp(frameRate, 1, kMaxFrameRate);
}

void CameraPreviewProducer::Stop(int device) {
  const PreviewTurn turn(*this, device);
  if (turn.taken) {
    RequestStop();
    JoinAndReset();
  }
}

void CameraPreviewProducer::StopGeneration(std::uint64_t startGeneration) {
  const PreviewTurn turn(*this);
  if (generation == startGeneration) {
    RequestStop();
    JoinAndReset();
  }
}

bool CameraPreviewProducer::MayWrite(std::uint64_t startGeneration) {
  // A thread that stops the preview first moves the generation on, then takes the callback back.
  const MutexLock lock(previewMutex);
  return changing || generation == startGeneration;
}

void CameraPreviewProducer::RequestStop() {
  {
    // A worker that has just looked and is about to wait misses nothing.
    const MutexLock lock(sharedMutex);
    running = false;
    ++generation;
  }
  sharedCondition.notify_all();
}

void CameraPreviewProducer::JoinAndReset() {
  // In this order: a callback or a worker may still write into the lent arrays.
  ClearDirectCallback();
  if (worker.joinable()) {
    SetJoining(true);
    worker.join();
    SetJoining(false);
  }
  DropSlots();
  publishedIndex = -1;
  readingIndex = -1;
  publishedSequence = 0;
  producedFrames = 0;
  producerFpsTenths = 0;
  lastResult = kResultPreviewStopped;
  firstFrameSeen = false;
  deviceIndex = -1;
  // `droppedFrames` keeps its count until the next start, for whoever asks why frames were lost.
  ClearQuality();
  ClearEncoded();
}

void CameraPreviewProducer::SetJoining(bool isJoining) {
  {
    const MutexLock lock(previewMutex);
    joining = isJoining;
  }
  turnCondition.notify_all();
}

void CameraPreviewProducer::SleepUntil(std::int64_t steadyNs, std::uint64_t ownGeneration) {
  const std::chrono::steady_clock::time_point deadline{std::chrono::nanoseconds(steadyNs)};
  ConditionLock lock(sharedMutex);
  sharedCondition.wait_until(lock.held, deadline,
                             [this, ownGeneration] { return IsStale(ownGeneration); });
}

void CameraPreviewProducer::ClearQuality() {
  const MutexLock lock(qualityMutex);
  qualityBuffer.clear();
  qualitySequence = 0;
  qualityWidth = 0;
  qualityHeight = 0;
  qualityBytesPerRow = 0;
  qualityDataSize = 0;
  qualityTimestampMs = 0;
  qualityIsBgra = false;
}

void CameraPreviewProducer::DescribeQuality(std::int32_t width, std::int32_t height, bool isBgra,
                                            std::int64_t timestampMs) {
  ++qualitySequence;
  qualityWidth = width;
  qualityHeight = height;
  qualityBytesPerRow = width * (isBgra ? 4 : 3);
  qualityDataSize = static_cast<std::int32_t>(qualityBuffer.size());
  qualityTimestampMs = timestampMs;
  qualityIsBgra = isBgra;
}

QualityFrame CameraPreviewProducer::LatestQualityFrame(int device, std::uint64_t lastSequence) {
  QualityFrame frame;
  const MutexLock lock(qualityMutex);
  frame.sequence = qualitySequence;
  const auto size = static_cast<std::size_t>(std::max(qualityDataSize, 0));
  frame.isNew = device >= 0 && device == deviceIndex && lastSequence < qualitySequence &&
                size > 0 && size <= qualityBuffer.size();
  if (frame.isNew) {
    frame.width = qualityWidth;
    frame.height = qualityHeight;
    frame.bytesPerRow = qualityBytesPerRow;
    frame.timestampMs = qualityTimestampMs;
    frame.isBgra = qualityIsBgra;
    frame.data.assign(qualityBuffer.data(), qualityBuffer.data() + size);
  }
  return frame;
}

void CameraPreviewProducer::EnqueueRecordingFrame(const std::uint8_t* data,
                                                  const PreviewMeta& meta) {
  if (data == nullptr || meta.dataSize < 1) {
    return;
  }
  const std::int64_t time =
      meta.monotonicTicks > 0 ? meta.monotonicTicks : meta.timestampMs * kTicksPerMillisecond;
  g_videoRecorder.TryEnqueue(data, static_cast<std::size_t>(meta.dataSize), meta.width, meta.height,
                             meta.pixelFormat, meta.planeCount, meta.planeOffsets,
                             meta.planeStrides, time);
}

LatestFrame::LatestFrame(CameraPreviewProducer& producer, int device, std::uint64_t lastSequence)
    : owner(producer), lock(producer.previewMutex, std::defer_lock) {
  if (device < 0) {
    result = kResultNoPreview;
  } else if (!lock.try_lock()) {
    sequence = producer.publishedSequence;
  } else {
    owner.previewMutex.AssertHeld();
    Look(device, lastSequence);
  }
  if (data == nullptr && lock.owns_lock()) {
    lock.unlock();
  }
}

void LatestFrame::Look(int device, std::uint64_t lastSequence) {
  if (owner.changing) {
    sequence = owner.publishedSequence;
    return;
  }
  if (device != owner.deviceIndex) {
    result = kResultNoPreview;
    return;
  }
  const int index = AnnounceReading(owner);
  if (index < 0) {
    sequence = owner.publishedSequence;
    return;
  }
  meta = owner.metas[index];
  sequence = meta.sequence;
  const bool isNew = meta.sequence > lastSequence && meta.dataSize >= 1;
  if (!isNew || static_cast<std::uint64_t>(meta.dataSize) > owner.bufferBytes) {
    owner.readingIndex = -1;
    result = isNew ? kResultNoRoom : kResultNotYet;
    return;
  }
  data = owner.buffers[index].data();
  result = kResultOk;
}

void LatestFrame::Release() {
  if (data != nullptr) {
    data = nullptr;
    owner.readingIndex = -1;
    lock.unlock();
  }
}

}  // namespace ostrel_native
