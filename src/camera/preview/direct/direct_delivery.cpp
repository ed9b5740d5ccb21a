#include "camera/preview/direct/direct_delivery.h"

#include <cstddef>
#include <cstring>
#include <stdexcept>

#include "camera/backend/camera_binding.h"
#include "camera/frames/frame_clock.h"
#include "camera/preview/direct/direct_slots.h"

namespace ostrel_native {

namespace {

bool IsListening(const CameraPreviewProducer& producer, int device) {
  return producer.direct && producer.running && device == producer.deviceIndex;
}

// Whether the data can be a JPEG: it begins with the marker of an image's start.
bool BeginsAsJpeg(const std::uint8_t* data, std::uint64_t size) {
  return size >= 4 && data[0] == 0xFF && data[1] == 0xD8;
}

// Leaves the JPEG to the worker, in the place of one that it has not come to.
void TakeJpeg(CameraPreviewProducer& producer, const std::uint8_t* data, std::uint64_t size) {
  if (!BeginsAsJpeg(data, size)) {
    producer.CountDrop(kResultFrameFailed);
    return;
  }
  {
    const MutexLock lock(producer.sharedMutex);
    if (size > producer.encodedPending.max_size()) {
      throw std::length_error("JPEG");
    }
    producer.encodedPending.assign(data, data + size);
    if (producer.encodedPendingFlag) {
      ++producer.droppedFrames;
    }
    ++producer.encodedPendingSequence;
    producer.encodedPendingTimestampMs = WallClockMs();
    producer.encodedPendingTicks = SteadyTicks();
    producer.encodedPendingFlag = true;
  }
  producer.sharedCondition.notify_one();
}

// Copies `rows` rows of `rowBytes` bytes tight. Returns the byte behind the last.
std::uint8_t* CopyRows(const std::uint8_t* source, std::int32_t stride, std::int64_t rowBytes,
                       std::int32_t rows, std::uint8_t* out) {
  const auto bytes = static_cast<std::size_t>(rowBytes);
  if (stride == rowBytes) {
    std::memcpy(out, source, bytes * static_cast<std::size_t>(rows));
    return out + bytes * static_cast<std::size_t>(rows);
  }
  for (std::int32_t row = 0; row < rows; ++row) {
    std::memcpy(out, source, bytes);
    source += stride;
    out += bytes;
  }
  return out;
}

// Whether a frame of `size` bytes holds the rows of its first plane.
bool HoldsRows(const PreviewMeta& shape, std::uint64_t size) {
  return shape.height >= 1 && shape.bytesPerRow >= 1 &&
         static_cast<std::uint64_t>(std::int64_t{shape.height} * shape.bytesPerRow) <= size;
}

bool HasTwoPlanes(const PreviewMeta& shape) {
  return shape.pixelFormat == static_cast<std::int32_t>(CameraPixelFormat::Nv12);
}

// Whether it is known where all rows of a frame are that holds those of its first plane. A second
// plane can only be turned around as that of NV12, within the frame and behind the first.
bool CanTurnAround(const PreviewMeta& shape, std::uint64_t size) {
  if (!HasTwoPlanes(shape)) {
    return shape.planeCount == 1;
  }
  const std::int64_t rows = shape.height;
  const std::int64_t chromaStride = shape.planeStrides[1];
  const std::int64_t chromaEnd = rows / 2 * chromaStride + shape.planeOffsets[1];
  return shape.planeCount == 2 && rows % 2 == 0 && shape.planeOffsets[0] == 0 &&
         shape.planeStrides[0] == shape.bytesPerRow &&
         rows * shape.bytesPerRow <= shape.planeOffsets[1] && shape.width <= chromaStride &&
         static_cast<std::uint64_t>(chromaEnd) <= size;
}

void TurnRowsAround(const std::uint8_t* source, std::int64_t rows, std::int64_t rowBytes,
                    std::uint8_t* out) {
  for (std::int64_t row = rows - 1; row >= 0; --row) {
    std::memcpy(out, source + row * rowBytes, static_cast<std::size_t>(rowBytes));
    out += rowBytes;
  }
}

// Copies a frame that can be turned around: the rows of each plane last first, all other bytes as
// they came.
void CopyTurnedAround(const PreviewMeta& shape, const std::uint8_t* data, std::uint64_t size,
                      std::uint8_t* out) {
  const std::int64_t rows = shape.height;
  TurnRowsAround(data, rows, shape.bytesPerRow, out);
  auto copied = static_cast<std::uint64_t>(rows * shape.bytesPerRow);
  if (HasTwoPlanes(shape)) {
    const auto chroma = static_cast<std::uint64_t>(shape.planeOffsets[1]);
    const std::int64_t stride = shape.planeStrides[1];
    std::memcpy(out + copied, data + copied, chroma - copied);
    TurnRowsAround(data + chroma, rows / 2, stride, out + chroma);
    copied = chroma + static_cast<std::uint64_t>(rows / 2 * stride);
  }
  std::memcpy(out + copied, data + copied, size - copied);
}

// A frame of an AVFoundation backend as it comes; nothing in it is trusted.
struct PlanarFrame {
  CameraPixelFormat format;
  std::int32_t width;   // pixels, at least 1
  std::int32_t height;  // pixels, at least 1
  std::int32_t planeCount;
  const std::uint8_t* plane0;  // not null
  std::uint64_t plane0Size;
  std::int32_t plane0Stride;
  const std::uint8_t* plane1;
  std::uint64_t plane1Size;
  std::int32_t plane1Stride;
  std::int64_t timestamp;  // nanoseconds, not positive: none

  bool IsNv12() const { return format == CameraPixelFormat::Nv12; }

  // Bytes a row of plane 0, and of plane 1 if there is one; 0 for what can't be delivered.
  std::int64_t RowBytes() const {
    switch (format) {
      case CameraPixelFormat::Bgra:
        return std::int64_t{4} * width;
      case CameraPixelFormat::Yuy2:
      case CameraPixelFormat::Uyvy:
        return std::int64_t{2} * width;
      case CameraPixelFormat::Nv12:
        return width % 2 == 0 && height % 2 == 0 && planeCount >= 2 && plane1 != nullptr ? width
                                                                                         : 0;
      default:
        return 0;
    }
  }

  bool PlanesHold(std::int64_t rowBytes) const {
    return PlaneHolds(rowBytes, height, plane0Stride, plane0Size) &&
           (!IsNv12() || PlaneHolds(rowBytes, height / 2, plane1Stride, plane1Size));
  }

  // A row of at least one byte that fits its stride makes the stride positive.
  static bool PlaneHolds(std::int64_t rowBytes, std::int32_t rows, std::int32_t stride,
                         std::uint64_t size) {
    return rowBytes <= stride && static_cast<std::uint64_t>(std::int64_t{stride} * rows) <= size;
  }

  // Of the rows when they are tight.
  std::uint64_t TightBytes(std::int64_t rowBytes) const {
    const std::int64_t rows = std::int64_t{height} + (IsNv12() ? height / 2 : 0);
    return static_cast<std::uint64_t>(rows * rowBytes);
  }
};

// The clocks of a frame: the backend's one time stamp, as far as it reaches, or ours.
void StampFrame(std::int64_t timestamp, PreviewMeta& record) {
  constexpr std::int64_t kNanosecondsPerMillisecond = 1'000'000;
  constexpr std::int64_t kNanosecondsPerTick = 100;
  record.timestampMs = timestamp / kNanosecondsPerMillisecond;
  record.monotonicTicks = timestamp / kNanosecondsPerTick;
  if (record.timestampMs < 1) {
    record.timestampMs = WallClockMs();
  }
  if (record.monotonicTicks < 1) {
    record.monotonicTicks = SteadyTicks();
  }
}

// The record of a frame whose rows are tight in its slot. All values have been proved to fit.
PreviewMeta DescribeTightFrame(const PlanarFrame& frame, std::int64_t rowBytes) {
  PreviewMeta record;
  record.width = frame.width;
  record.height = frame.height;
  record.bytesPerRow = static_cast<std::int32_t>(rowBytes);
  record.dataSize = static_cast<std::int32_t>(frame.TightBytes(rowBytes));
  record.sourceWidth = frame.width;
  record.sourceHeight = frame.height;
  record.sourceBytesPerRow = frame.plane0Stride;
  record.pixelFormat = static_cast<std::int32_t>(frame.format);
  record.planeStrides[0] = record.bytesPerRow;
  if (frame.IsNv12()) {
    record.planeCount = 2;
    record.planeOffsets[1] = frame.width * frame.height;
    record.planeStrides[1] = frame.width;
  }
  StampFrame(frame.timestamp, record);
  return record;
}

void TakePlanarFrame(CameraPreviewProducer& producer, const PlanarFrame& frame) {
  const std::int64_t rowBytes = frame.RowBytes();
  if (rowBytes == 0) {
    producer.CountDrop(kResultUnsupported);
    return;
  }
  if (!frame.PlanesHold(rowBytes)) {
    producer.CountDrop(kResultNoRoom);
    return;
  }
  SlotWriter slot(producer);
  if (!slot.HasRoom(frame.TightBytes(rowBytes))) {
    producer.CountDrop(kResultNoRoom);
    return;
  }
  std::uint8_t* const chroma =
      CopyRows(frame.plane0, frame.plane0Stride, rowBytes, frame.height, slot.Data());
  if (frame.IsNv12()) {
    CopyRows(frame.plane1, frame.plane1Stride, rowBytes, frame.height / 2, chroma);
  }
  slot.Complete(DescribeTightFrame(frame, rowBytes));
}

}  // namespace

void CameraPreviewProducer::OnDirectFrame(int device, const std::uint8_t* data, std::uint64_t size,
                                          bool flipped) noexcept {
  if (data == nullptr || size == 0 || !IsListening(*this, device)) {
    return;
  }
  if (directMjpeg) {
    try {
      TakeJpeg(*this, data, size);
    } catch (...) {
      CountDrop(kResultNoRoom);
    }
    return;
  }
  // A frame that is too short for its rows is delivered as it came.
  const bool turnsAround = flipped && HoldsRows(directTemplate, size);
  if (turnsAround && !CanTurnAround(directTemplate, size)) {
    CountDrop(kResultNoRoom);
    return;
  }
  SlotWriter slot(*this);
  if (!slot.HasRoom(size)) {
    CountDrop(kResultNoRoom);
    return;
  }
  if (turnsAround) {
    CopyTurnedAround(directTemplate, data, size, slot.Data());
  } else {
    std::memcpy(slot.Data(), data, size);
  }
  PreviewMeta record = directTemplate;
  record.dataSize = static_cast<std::int32_t>(size);
  record.timestampMs = WallClockMs();
  record.monotonicTicks = SteadyTicks();
  slot.Complete(record);
}

void DirectFrameCallback(std::int32_t device, const std::uint8_t* data, std::uint64_t size,
                         std::int32_t flipped, void* context) noexcept {
  if (context != nullptr) {
    static_cast<CameraPreviewProducer*>(context)->OnDirectFrame(device, data, size, flipped != 0);
  }
}

void AvfDirectFrameCallback(std::int32_t device, std::int32_t format, std::int32_t width,
                            std::int32_t height, std::int32_t planeCount,
                            const std::uint8_t* plane0, std::uint64_t plane0Size,
                            std::int32_t plane0Stride, const std::uint8_t* plane1,
                            std::uint64_t plane1Size, std::int32_t plane1Stride,
                            std::int64_t timestamp, void* context) noexcept {
  auto* const producer = static_cast<CameraPreviewProducer*>(context);
  if (producer == nullptr || width < 1 || height < 1 || plane0 == nullptr ||
      !IsListening(*producer, device)) {
    return;
  }
  const auto pixelFormat = static_cast<CameraPixelFormat>(format);
  if (pixelFormat == CameraPixelFormat::Mjpeg) {
    producer->OnDirectFrame(device, plane0, plane0Size, false);
    return;
  }
  TakePlanarFrame(*producer, {pixelFormat, width, height, planeCount, plane0, plane0Size,
                              plane0Stride, plane1, plane1Size, plane1Stride, timestamp});
}

int SetFrameCallback(int device, CameraPreviewProducer& producer) {
  constexpr int kEnable = 1;
  const BackendKind kind = g_camera.kind.load(std::memory_order_acquire);
  if (kind == BackendKind::DirectShow && g_camera.cdshow_set_frame_callback != nullptr) {
    return g_camera.cdshow_set_frame_callback(device, DirectFrameCallback, &producer, kEnable);
  }
  if (kind == BackendKind::AvFoundation && g_camera.avf_set_frame_callback != nullptr) {
    return g_camera.avf_set_frame_callback(device, AvfDirectFrameCallback, &producer, kEnable);
  }
  return kResultNoBackend;
}

void ClearFrameCallback(int device) {
  const BackendKind kind = g_camera.kind.load(std::memory_order_acquire);
  if (kind == BackendKind::DirectShow && g_camera.cdshow_set_frame_callback != nullptr) {
    g_camera.cdshow_set_frame_callback(device, nullptr, nullptr, 0);
  } else if (kind == BackendKind::AvFoundation && g_camera.avf_set_frame_callback != nullptr) {
    g_camera.avf_set_frame_callback(device, nullptr, nullptr, 0);
  }
}

}  // namespace ostrel_native
