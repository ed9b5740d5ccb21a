#include "camera/preview/direct/direct_plan.h"

#include <algorithm>
#include <cstdint>
#include <limits>

#include "camera/backend/camera_binding.h"
#include "camera/frames/turbojpeg_runtime.h"

namespace ostrel_native {

namespace {

constexpr int kMaxPlanes = 2;  // that a backend can describe

bool IsDeliverable(CameraPixelFormat format) {
  switch (format) {
    case CameraPixelFormat::Bgra:
    case CameraPixelFormat::Mjpeg:
    case CameraPixelFormat::Nv12:
    case CameraPixelFormat::Yuy2:
    case CameraPixelFormat::Uyvy:
      return true;
    default:
      return false;
  }
}

// JPEG becomes I420 without gaps, which only pictures of even size can.
int PlanDecoded(DirectPlan& plan) {
  PreviewMeta& frame = plan.frame;
  const std::int64_t lumaBytes = std::int64_t{frame.width} * frame.height;
  const std::int64_t bytes = lumaBytes + lumaBytes / 2;
  if (!g_turboJpeg.Available() || frame.width % 2 != 0 || frame.height % 2 != 0 ||
      bytes > std::numeric_limits<std::int32_t>::max()) {
    return kResultNoRoom;
  }
  const std::int32_t chromaWidth = frame.width / 2;
  frame.pixelFormat = static_cast<std::int32_t>(CameraPixelFormat::I420);
  frame.bytesPerRow = frame.width;
  frame.dataSize = static_cast<std::int32_t>(bytes);
  frame.planeCount = 3;
  frame.planeOffsets[1] = static_cast<std::int32_t>(lumaBytes);
  frame.planeOffsets[2] = frame.planeOffsets[1] + chromaWidth * (frame.height / 2);
  frame.planeStrides[0] = frame.width;
  frame.planeStrides[1] = chromaWidth;
  frame.planeStrides[2] = chromaWidth;
  plan.isMjpeg = true;
  return kResultOk;
}

int PlanAsDelivered(int device, CameraPixelFormat format, DirectPlan& plan) {
  PreviewMeta& frame = plan.frame;
  if (frame.bytesPerRow < 1 || frame.dataSize < 1) {
    return kResultNoRoom;
  }
  frame.pixelFormat = static_cast<std::int32_t>(format);
  frame.planeCount = std::clamp(g_camera.PlaneCount(device), 1, kMaxPlanes);
  for (int plane = 0; plane < frame.planeCount; ++plane) {
    frame.planeOffsets[plane] = g_camera.PlaneOffset(device, plane);
    frame.planeStrides[plane] = g_camera.PlaneStride(device, plane, frame.bytesPerRow);
  }
  return kResultOk;
}

}  // namespace

bool HasFrameCallback() {
  switch (g_camera.kind.load(std::memory_order_acquire)) {
    case BackendKind::DirectShow:
      return g_camera.cdshow_set_frame_callback != nullptr;
    case BackendKind::AvFoundation:
      return g_camera.avf_set_frame_callback != nullptr;
    default:
      return false;
  }
}

int PlanDirect(int device, DirectPlan& plan) {
  plan = DirectPlan{};
  PreviewMeta& frame = plan.frame;
  frame.width = g_camera.FrameWidth(device);
  frame.height = g_camera.FrameHeight(device);
  frame.bytesPerRow = g_camera.PreviewFrameBytesPerRow(device);
  frame.dataSize = g_camera.PreviewFrameDataSize(device);
  frame.sourceWidth = frame.width;
  frame.sourceHeight = frame.height;
  frame.sourceBytesPerRow = frame.bytesPerRow;
  const CameraPixelFormat format = g_camera.FramePixelFormat(device);
  if (frame.width < 1 || frame.height < 1 || !IsDeliverable(format)) {
    return kResultNoRoom;
  }
  const int refusal = format == CameraPixelFormat::Mjpeg ? PlanDecoded(plan)
                                                         : PlanAsDelivered(device, format, plan);
  plan.bytes = static_cast<std::uint64_t>(std::max(frame.dataSize, 0));
  return refusal;
}

int CheckLentSlots(const LentSlot (&lent)[CameraPreviewProducer::kBufferCount],
                   std::uint64_t neededBytes) {
  for (const LentSlot& slot : lent) {
    if (!slot.isByteArray) {
      return kResultBadSlot;
    }
    if (slot.bytes < neededBytes) {
      return kResultNoRoom;
    }
  }
  return kResultOk;
}

}  // namespace ostrel_native
