// The producer worker: grab, convert, publish, at a fixed pace.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <vector>

#include "camera/backend/camera_binding.h"
#include "camera/frames/frame_clock.h"
#include "camera/frames/frame_rates.h"
#include "camera/frames/frame_scratch.h"
#include "camera/frames/pixel_rows.h"
#include "camera/preview/camera_preview.h"
#include "camera/preview/preview_plan.h"

namespace ostrel_native {

namespace {

// How one cycle ended: go on at the pace, or leave the thread.
enum class CycleEnd { Pace, Stale };

// What one run of the worker keeps between its cycles. Steady state allocates nothing: the
// vectors reach their size with the first frame.
struct PreviewWorker {
  CameraPreviewProducer& producer;
  std::uint64_t generation;
  int device;
  int targetWidth;
  int targetHeight;
  std::int64_t interval;   // nanoseconds
  std::uint64_t capacity;  // bytes of each preview buffer

  std::int64_t tick = SteadyNs();  // time of the previous pace
  SourceLayout layout = {};
  bool isPlanned = false;
  PreviewPlan plan = {};
  std::vector<std::uint8_t> sourceScratch = {};
  std::vector<std::uint8_t> qualityScratch = {};
  QualityClock qualityClock = {};
  std::int64_t ratePeriodStart = tick;
  std::uint32_t rateFrames = 0;

  bool IsStale() const { return producer.IsStale(generation); }

  CycleEnd Drop(int result) {
    producer.CountDrop(result);
    return CycleEnd::Pace;
  }

  void Run();
  CycleEnd RunCycle();
  CycleEnd AwaitFirstFrame();
  CycleEnd MakePlan();
  bool ReadGeometry(FrameGeometry& geometry) const;
  int ChooseWriteBuffer() const;
  int Grab(std::uint8_t* buffer) const;
  int GrabTightRgb(std::uint8_t* buffer, int size) const;
  void RefreshQuality(const std::uint8_t* grabbed);
  void CopyQuality(const std::uint8_t* grabbed) OSTREL_REQUIRES(producer.qualityMutex);
  bool GrabQuality();
  void Convert(std::uint8_t* out) const;
  CycleEnd Publish(int index);
  void CountRate();
  void Pace();
};

void PreviewWorker::Run() {
  layout = DescribeSource(g_camera.FramePixelFormat(device));
  layout.grabsTightRgb =
      g_camera.kind.load(std::memory_order_acquire) == BackendKind::AvFoundation &&
      g_camera.avf_grab_native == nullptr;
  while (!IsStale()) {
    CycleEnd end = CycleEnd::Pace;
    try {
      end = RunCycle();
    } catch (...) {
      // Out of memory, mostly: the frame is lost, the preview goes on.
      end = Drop(kResultNoRoom);
    }
    if (end == CycleEnd::Stale) {
      return;
    }
    Pace();
  }
}

CycleEnd PreviewWorker::RunCycle() {
  if (!producer.firstFrameSeen) {
    const CycleEnd end = AwaitFirstFrame();
    if (!producer.firstFrameSeen) {
      return end;
    }
  }
  if (!isPlanned) {
    const CycleEnd end = MakePlan();
    if (!isPlanned) {
      return end;
    }
  }

  const int index = ChooseWriteBuffer();
  if (index < 0) {
    ++producer.droppedFrames;
    return CycleEnd::Pace;
  }
  std::uint8_t* const published = producer.buffers[index].data();
  std::uint8_t* const grabbed = plan.grabsInPlace ? published : sourceScratch.data();
  const int result = Grab(grabbed);
  if (IsStale()) {
    return CycleEnd::Stale;
  }
  if (result != kResultOk) {
    // These three say that the frame's shape is not what it was.
    isPlanned = result != kResultBadSlot && result != kResultNoGeometry && result != kResultNoRoom;
    return Drop(result);
  }
  producer.lastResult = kResultOk;

  RefreshQuality(grabbed);
  if (IsStale()) {
    return CycleEnd::Stale;
  }
  if (!plan.grabsInPlace) {
    Convert(published);
  }
  return Publish(index);
}

CycleEnd PreviewWorker::AwaitFirstFrame() {
  const int result = g_camera.FirstFrameResult(device);
  if (IsStale()) {
    return CycleEnd::Stale;
  }
  if (result == kResultOk) {
    producer.firstFrameSeen = true;
    return CycleEnd::Pace;
  }
  return result == kResultNotYet ? CycleEnd::Pace : Drop(result);
}

CycleEnd PreviewWorker::MakePlan() {
  FrameGeometry geometry;
  if (!ReadGeometry(geometry)) {
    return CycleEnd::Stale;
  }
  const int refusal = PlanPreview(layout, geometry, targetWidth, targetHeight, capacity, plan);
  if (refusal != kResultOk) {
    return Drop(refusal);
  }
  sourceScratch.assign(plan.scratchBytes, 0);
  isPlanned = true;
  return CycleEnd::Pace;
}

// Each answer comes from a call of its own, so together they may be of different frames; the plan
// proves them before use. False as soon as the worker is stale.
bool PreviewWorker::ReadGeometry(FrameGeometry& geometry) const {
  geometry.width = g_camera.FrameWidth(device);
  if (IsStale()) {
    return false;
  }
  geometry.height = g_camera.FrameHeight(device);
  if (IsStale()) {
    return false;
  }
  geometry.bytesPerRow = g_camera.PreviewFrameBytesPerRow(device);
  if (IsStale()) {
    return false;
  }
  geometry.dataSize = g_camera.PreviewFrameDataSize(device);
  if (IsStale()) {
    return false;
  }
  geometry.planeCount = std::clamp(g_camera.PlaneCount(device), 1, 2);
  for (int plane = 0; plane < geometry.planeCount; ++plane) {
    if (IsStale()) {
      return false;
    }
    geometry.planeOffsets[plane] = g_camera.PlaneOffset(device, plane);
    geometry.planeStrides[plane] = g_camera.PlaneStride(device, plane, geometry.bytesPerRow);
  }
  return !IsStale();
}

int PreviewWorker::ChooseWriteBuffer() const {
  const int publishedIndex = producer.publishedIndex;
  const int readingIndex = producer.readingIndex;
  for (int index = 0; index < CameraPreviewProducer::kBufferCount; ++index) {
    if (index != publishedIndex && index != readingIndex) {
      return index;
    }
  }
  return -1;
}

int PreviewWorker::Grab(std::uint8_t* buffer) const {
  const int size = plan.grabsInPlace ? plan.dataSize : plan.source.dataSize;
  switch (g_camera.kind.load(std::memory_order_acquire)) {
    case BackendKind::Linux:
      return g_camera.cnokhwa_grab_frame(device, buffer, size);
    case BackendKind::DirectShow:
      return g_camera.cdshow_grab_frame == nullptr
                 ? kResultNoBackend
                 : g_camera.cdshow_grab_frame(device, buffer, size);
    case BackendKind::AvFoundation:
      return layout.grabsTightRgb                             ? GrabTightRgb(buffer, size)
             : g_camera.avf_grab_native(device, buffer, size) ? kResultOk
                                                              : kResultFrameFailed;
    case BackendKind::None:
      break;
  }
  return kResultNoBackend;
}

// For a library without a grab of its own layout. RGB is no frame of a native one, however many
// bytes that has.
int PreviewWorker::GrabTightRgb(std::uint8_t* buffer, int size) const {
  if (layout.native && g_camera.avf_grab_rgb != nullptr) {
    return kResultNoRoom;
  }
  return g_camera.GrabAvfFrameRgb(device, buffer, size);
}

void PreviewWorker::RefreshQuality(const std::uint8_t* grabbed) {
  const std::int64_t now = SteadyNs();
  if (!qualityClock.IsDue(now)) {
    return;
  }
  // A grab is a call of the library: a poll for the still does not wait for it, nor does the lock
  // of the remembered sizes come under this one.
  if (layout.native && !GrabQuality()) {
    return;
  }
  const MutexLock lock(producer.qualityMutex);
  if (layout.native) {
    producer.qualityBuffer.swap(qualityScratch);
  } else {
    CopyQuality(grabbed);
  }
  const bool isBgra = !layout.native && plan.grabbed.isBgra;
  producer.DescribeQuality(plan.source.width, plan.source.height, isBgra, WallClockMs());
  qualityClock.Taken(now);
}

// Takes the picture from the frame that was grabbed, its rows tight.
void PreviewWorker::CopyQuality(const std::uint8_t* grabbed) {
  const auto rowBytes = static_cast<std::size_t>(plan.source.width) *
                        static_cast<std::size_t>(plan.grabbed.bytesPerPixel);
  const auto stride = static_cast<std::size_t>(plan.grabbed.bytesPerRow);
  const auto rows = static_cast<std::size_t>(plan.source.height);
  GiveBackExcess(producer.qualityBuffer, rowBytes * rows);
  producer.qualityBuffer.resize(rowBytes * rows);
  std::uint8_t* const out = producer.qualityBuffer.data();
  if (stride == rowBytes) {
    std::memcpy(out, grabbed, rowBytes * rows);
  } else {
    for (std::size_t row = 0; row < rows; ++row) {
      std::memcpy(out + row * rowBytes, grabbed + row * stride, rowBytes);
    }
  }
}

// A native frame is no picture to save, so another one is grabbed as RGB into the scratch memory:
// one that fails half-way must not damage the picture that stands.
bool PreviewWorker::GrabQuality() {
  const auto rowBytes = ByteProduct(plan.source.width, 3);
  const auto size = rowBytes ? ByteProduct(*rowBytes, plan.source.height) : std::nullopt;
  if (!size) {
    return false;
  }
  qualityScratch.resize(static_cast<std::size_t>(*size));
  const bool isAvFoundation =
      g_camera.kind.load(std::memory_order_acquire) == BackendKind::AvFoundation;
  const int result = isAvFoundation
                         ? g_camera.GrabAvfFrameRgb(device, qualityScratch.data(), *size)
                         : g_camera.GrabCdshowFrameRgb(device, qualityScratch.data(), *size);
  return result == kResultOk;
}

void PreviewWorker::Convert(std::uint8_t* out) const {
  const auto reduceRow = plan.grabbed.isBgra ? ReduceBgraRow : ReduceRgbRow;
  const auto rowDistance = static_cast<std::size_t>(plan.grabbed.bytesPerRow) *
                           static_cast<std::size_t>(plan.reduction.step);
  const std::uint8_t* row = sourceScratch.data();
  for (int y = 0; y < plan.reduction.height; ++y) {
    reduceRow(row, plan.reduction.step, plan.reduction.width, out);
    row += rowDistance;
    out += plan.bytesPerRow;
  }
}

CycleEnd PreviewWorker::Publish(int index) {
  PreviewMeta meta;
  meta.sequence = ++producer.publishedSequence;
  ++producer.producedFrames;
  CountRate();
  if (IsStale()) {
    return CycleEnd::Stale;
  }
  meta.width = plan.reduction.width;
  meta.height = plan.reduction.height;
  meta.bytesPerRow = plan.bytesPerRow;
  meta.dataSize = plan.dataSize;
  meta.sourceWidth = plan.source.width;
  meta.sourceHeight = plan.source.height;
  meta.sourceBytesPerRow = plan.source.bytesPerRow;
  meta.timestampMs = WallClockMs();
  meta.monotonicTicks = SteadyTicks();
  meta.pixelFormat = plan.pixelFormat;
  meta.planeCount = plan.planeCount;
  std::copy(std::begin(plan.planeOffsets), std::end(plan.planeOffsets), meta.planeOffsets);
  std::copy(std::begin(plan.planeStrides), std::end(plan.planeStrides), meta.planeStrides);
  producer.metas[index] = meta;
  producer.EnqueueRecordingFrame(producer.buffers[index].data(), meta);
  // Last of all, so that a reader finds a finished frame.
  producer.publishedIndex = index;
  producer.lastResult = kResultOk;
  return CycleEnd::Pace;
}

void PreviewWorker::CountRate() {
  ++rateFrames;
  const std::int64_t now = SteadyNs();
  const std::int64_t elapsed = now - ratePeriodStart;
  if (elapsed < kRatePeriodNs) {
    return;
  }
  producer.producerFpsTenths = FpsTenths(rateFrames, elapsed);
  ratePeriodStart = now;
  rateFrames = 0;
}

// A late worker goes on from now: it never hurries to catch up. A stop ends the pace early.
void PreviewWorker::Pace() {
  const std::int64_t deadline = tick + interval;
  const std::int64_t now = SteadyNs();
  if (deadline > now) {
    producer.SleepUntil(deadline, generation);
    tick = deadline;
  } else {
    tick = now;
  }
}

}  // namespace

void CameraPreviewProducer::RunLoop(std::uint64_t ownGeneration, int device, int wantedWidth,
                                    int wantedHeight, std::int64_t interval,
                                    std::uint64_t capacity) {
  PreviewWorker{.producer = *this,
                .generation = ownGeneration,
                .device = device,
                .targetWidth = wantedWidth,
                .targetHeight = wantedHeight,
                .interval = interval,
                .capacity = capacity}
      .Run();
}

}  // namespace ostrel_native
