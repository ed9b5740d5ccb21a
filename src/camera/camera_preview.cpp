#include "camera/camera_preview.h"

#include <algorithm>

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

}  // namespace

CameraPreviewProducer::~CameraPreviewProducer() {
  for (auto& reference : slotReferences) {
    reference.SuppressDestruct();
  }
  RequestStop();
  JoinAndReset();
}

int CameraPreviewProducer::StartPolling(int device, int width, int height, int frameRate) {
  if (device < 0) {
    return kResultNoPreview;
  }
  RequestStop();
  JoinAndReset();

  const int wantedWidth = std::max(width, 1);
  const int wantedHeight = std::max(height, 1);
  const std::uint64_t bytes = std::uint64_t{4} * static_cast<std::uint64_t>(wantedWidth) *
                              static_cast<std::uint64_t>(wantedHeight);
  bufferBytes = 0;  // claims nothing while an allocation may still fail
  for (auto& buffer : buffers) {
    buffer.assign(bytes, 0);  // zeroed: nothing of an earlier camera's picture stays
  }
  bufferBytes = bytes;

  StorePace(device, wantedWidth, wantedHeight, frameRate);
  std::fill(std::begin(metas), std::end(metas), PreviewMeta{});
  droppedFrames = 0;
  lastResult = kResultNotYet;

  running = true;
  const std::uint64_t ownGeneration = ++generation;
  try {
    worker = std::thread(&CameraPreviewProducer::RunLoop, this, ownGeneration, device, targetWidth,
                         targetHeight, frameInterval, bufferBytes);
  } catch (...) {
    RequestStop();
    JoinAndReset();
    throw;
  }
  return kResultOk;
}

void CameraPreviewProducer::StorePace(int device, int width, int height, int frameRate) {
  deviceIndex = device;
  targetWidth = width;
  targetHeight = height;
  frameInterval = kNanosecondsPerSecond / std::clamp(frameRate, 1, kMaxFrameRate);
}

void CameraPreviewProducer::Stop(int device) {
  if (IsPreviewDevice(device)) {
    RequestStop();
    JoinAndReset();
  }
}

void CameraPreviewProducer::RequestStop() {
  {
    // A worker that has just looked and is about to wait misses nothing.
    const std::lock_guard<std::mutex> lock(sharedMutex);
    running = false;
    ++generation;
  }
  sharedCondition.notify_all();
}

void CameraPreviewProducer::JoinAndReset() {
  // In this order: a callback or a worker may still write into the lent arrays.
  ClearDirectCallback();
  if (worker.joinable()) {
    worker.join();
  }
  direct = false;
  directMjpeg = false;
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

void CameraPreviewProducer::ClearQuality() {
  const std::lock_guard<std::mutex> lock(qualityMutex);
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
  const std::lock_guard<std::mutex> lock(qualityMutex);
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
    : owner(producer) {
  if (device < 0 || device != producer.deviceIndex) {
    result = kResultNoPreview;
    return;
  }
  const int index = AnnounceReading(producer);
  if (index < 0) {
    sequence = producer.publishedSequence;
    return;
  }
  meta = producer.metas[index];
  sequence = meta.sequence;
  if (meta.sequence <= lastSequence || meta.dataSize < 1) {
    producer.readingIndex = -1;
    return;
  }
  if (static_cast<std::uint64_t>(meta.dataSize) > producer.bufferBytes) {
    producer.readingIndex = -1;
    result = kResultNoRoom;
    return;
  }
  data = producer.buffers[index].data();
  result = kResultOk;
}

void LatestFrame::Release() {
  if (data != nullptr) {
    data = nullptr;
    owner.readingIndex = -1;
  }
}

}  // namespace ostrel_native
