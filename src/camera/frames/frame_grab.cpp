#include "camera/frames/frame_grab.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

#include "camera/backend/camera_binding.h"
#include "camera/frames/frame_scratch.h"
#include "camera/frames/pixel_rows.h"
#include "camera/frames/reduction.h"

namespace ostrel_native {

namespace {

constexpr std::int32_t kRgbBytes = 3;
constexpr std::int32_t kFourBytes = 4;  // of a BGRA or RGBA pixel

bool GrabsBgra() {
  return g_camera.kind.load(std::memory_order_acquire) == BackendKind::AvFoundation &&
         g_camera.avf_grab_bgra != nullptr;
}

// Packed RGB rows, but on Linux in rows as long as the backend's own.
int GrabRgb(int device, std::uint8_t* buffer, std::int32_t size) {
  switch (g_camera.kind.load(std::memory_order_acquire)) {
    case BackendKind::Linux:
      return g_camera.cnokhwa_grab_frame == nullptr
                 ? kResultNoBackend
                 : g_camera.cnokhwa_grab_frame(device, buffer, size);
    case BackendKind::DirectShow:
      return g_camera.GrabCdshowFrameRgb(device, buffer, size);
    case BackendKind::AvFoundation:
      return g_camera.GrabAvfFrameRgb(device, buffer, size);
    case BackendKind::None:
      break;
  }
  return kResultNoBackend;
}

// Bytes a row of the frames that `GrabRgb` delivers; -1 if unknown or beyond int32.
std::int32_t RgbBytesPerRow(int device, std::int32_t width) {
  switch (g_camera.kind.load(std::memory_order_acquire)) {
    case BackendKind::Linux:
      return g_camera.PreviewFrameBytesPerRow(device);
    case BackendKind::DirectShow:
    case BackendKind::AvFoundation:
      return ByteProduct(width, kRgbBytes).value_or(-1);
    case BackendKind::None:
      break;
  }
  return -1;
}

// Bytes from the frame's start to the end of its last row's pixels, and what a row reader touches
// behind them. The backend's rows may be shorter than its pixels, then the last one reaches
// beyond rows times row size.
std::size_t BytesRead(const RgbaGrab& grab) {
  return static_cast<std::size_t>(grab.sourceHeight - 1) *
             static_cast<std::size_t>(grab.sourceBytesPerRow) +
         static_cast<std::size_t>(grab.sourceWidth) * kRgbBytes + kPixelReadAhead;
}

// Plans the picture: its step and sizes. 0, -10 or -11.
int PlanReduction(RgbaGrab& grab, int maxWidth, int maxHeight) {
  const Reduction reduction = ReduceToFit(grab.sourceWidth, grab.sourceHeight,
                                          std::max(maxWidth, 1), std::max(maxHeight, 1));
  const auto bytesPerRow = ByteProduct(reduction.width, kFourBytes);
  if (!bytesPerRow) {
    return kResultNoGeometry;
  }
  const auto size = ByteProduct(*bytesPerRow, reduction.height);
  if (!size) {
    return kResultNoRoom;
  }
  grab.step = reduction.step;
  grab.width = reduction.width;
  grab.height = reduction.height;
  grab.bytesPerRow = *bytesPerRow;
  grab.size = *size;
  return kResultOk;
}

}  // namespace

FrameGrabPlan PlanFrameGrab(int device) {
  FrameGrabPlan plan;
  plan.isBgra = GrabsBgra();
  plan.width = g_camera.FrameWidth(device);
  plan.height = g_camera.FrameHeight(device);
  plan.bytesPerRow = ByteProduct(plan.width, plan.isBgra ? kFourBytes : kRgbBytes).value_or(-1);
  if (plan.bytesPerRow < 1 || plan.height < 1) {
    return plan;
  }
  const auto size = ByteProduct(plan.bytesPerRow, plan.height);
  plan.result = size ? kResultOk : kResultNoRoom;
  plan.size = size.value_or(0);
  return plan;
}

int GrabFrame(int device, std::uint8_t* buffer, std::int32_t size) {
  if (GrabsBgra()) {
    return g_camera.avf_grab_bgra(device, buffer, size) ? kResultOk : kResultFrameFailed;
  }
  return GrabRgb(device, buffer, size);
}

RgbaGrab GrabForRgba(int device, int maxWidth, int maxHeight) {
  RgbaGrab grab;
  grab.sourceWidth = g_camera.FrameWidth(device);
  grab.sourceHeight = g_camera.FrameHeight(device);
  grab.sourceBytesPerRow = RgbBytesPerRow(device, grab.sourceWidth);
  if (grab.sourceHeight < 1 || grab.sourceBytesPerRow < 1 ||
      !ByteProduct(grab.sourceWidth, kRgbBytes)) {
    return grab;
  }
  const auto sourceSize = ByteProduct(grab.sourceBytesPerRow, grab.sourceHeight);
  grab.result = sourceSize ? PlanReduction(grab, maxWidth, maxHeight) : kResultNoRoom;
  if (grab.result != kResultOk) {
    return grab;
  }
  // Not shared with the conversions behind `GrabRgb`: they fill this one from their own.
  thread_local std::vector<std::uint8_t> rgbScratch;
  std::uint8_t* const source =
      GrowFrameScratch(rgbScratch, static_cast<std::size_t>(*sourceSize), BytesRead(grab));
  grab.result = GrabRgb(device, source, *sourceSize);
  grab.source = source;
  return grab;
}

void WriteRgba(const RgbaGrab& grab, std::uint8_t* out) {
  const std::int64_t rowDistance = std::int64_t{grab.sourceBytesPerRow} * grab.step;
  for (std::int32_t y = 0; y < grab.height; ++y) {
    ReduceRgbRow(grab.source + y * rowDistance, grab.step, grab.width, out);
    out += grab.bytesPerRow;
  }
}

int CameraBinding::GrabAvfFrameRgb(int device, void* buffer, int capacity) const {
  const auto grabRgb =
      Entry<bool (*)(int, void*, int)>(nullptr, nullptr, &CameraBinding::avf_grab_rgb);
  if (grabRgb == nullptr) {
    return kResultNoBackend;
  }
  const std::int32_t height = FrameHeight(device);
  const auto rowBytes = ByteProduct(FrameWidth(device), kRgbBytes);
  if (buffer == nullptr || !rowBytes || height < 1) {
    return kResultNoGeometry;
  }
  const std::int32_t stride = avf_frame_bytes_per_row == nullptr
                                  ? *rowBytes
                                  : std::max(*rowBytes, avf_frame_bytes_per_row(device));
  const auto size = ByteProduct(*rowBytes, height);
  const auto told = ByteProduct(stride, height);
  if (!size || !told || *size > capacity) {
    return kResultNoRoom;
  }
  thread_local std::vector<std::uint8_t> rgbScratch;
  const auto toldBytes = static_cast<std::size_t>(*told);
  const std::uint8_t* source = GrowFrameScratch(rgbScratch, toldBytes, toldBytes);
  if (!grabRgb(device, rgbScratch.data(), *told)) {
    return kResultFrameFailed;
  }
  auto* out = static_cast<std::uint8_t*>(buffer);
  if (stride == *rowBytes) {
    std::memcpy(out, source, static_cast<std::size_t>(*size));
    return kResultOk;
  }
  for (std::int32_t row = 0; row < height; ++row) {
    std::memcpy(out, source, static_cast<std::size_t>(*rowBytes));
    source += stride;
    out += *rowBytes;
  }
  return kResultOk;
}

}  // namespace ostrel_native
