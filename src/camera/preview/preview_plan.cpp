#include "camera/preview/preview_plan.h"

#include <algorithm>
#include <iterator>
#include <limits>

#include "camera/camera_types.h"
#include "camera/frames/pixel_rows.h"

namespace ostrel_native {

namespace {

constexpr std::int64_t kMaxBytes = std::numeric_limits<std::int32_t>::max();
constexpr int kRgbBytes = 3;

// Bytes from the start of a plane to the end of its last row's pixels.
std::int64_t PlaneBytes(std::int64_t rows, std::int64_t stride, std::int64_t rowBytes) {
  return (rows - 1) * stride + rowBytes;
}

int CheckGeometry(const SourceLayout& layout, const FrameGeometry& frame) {
  const std::int64_t width = frame.width;
  const std::int64_t height = frame.height;
  const std::int64_t stride = frame.bytesPerRow;
  const std::int64_t rowBytes =
      layout.format == CameraPixelFormat::Nv12 ? width : width * layout.bytesPerPixel;
  if (width < 1 || height < 1 || rowBytes > stride || rowBytes > frame.planeStrides[0]) {
    return kResultNoGeometry;
  }
  if (frame.dataSize < 1) {
    return kResultNoRoom;
  }
  if (layout.format == CameraPixelFormat::Nv12) {
    const std::int64_t chromaOffset = frame.planeOffsets[1];
    const std::int64_t chromaStride = frame.planeStrides[1];
    const bool fits = frame.planeCount == 2 && stride * height <= chromaOffset &&
                      width <= chromaStride &&
                      (height / 2) * chromaStride + chromaOffset <= frame.dataSize;
    return fits ? kResultOk : kResultNoRoom;
  }
  if (layout.packedYuv) {
    return frame.planeCount == 1 && 2 * width <= stride ? kResultOk : kResultNoRoom;
  }
  return PlaneBytes(height, stride, rowBytes) <= kMaxBytes ? kResultOk : kResultNoRoom;
}

int PlanNative(const SourceLayout& layout, std::uint64_t capacity, PreviewPlan& plan) {
  const FrameGeometry& source = plan.source;
  plan.reduction = {.step = 1, .width = source.width, .height = source.height};
  plan.bytesPerRow = source.bytesPerRow;
  plan.dataSize = source.dataSize;
  plan.pixelFormat = static_cast<std::int32_t>(layout.format);
  plan.planeCount = source.planeCount;
  std::copy(std::begin(source.planeOffsets), std::end(source.planeOffsets), plan.planeOffsets);
  std::copy(std::begin(source.planeStrides), std::end(source.planeStrides), plan.planeStrides);
  plan.grabsInPlace = true;
  return static_cast<std::uint64_t>(source.dataSize) <= capacity ? kResultOk : kResultNoRoom;
}

int PlanReduced(const SourceLayout& layout, int targetWidth, int targetHeight,
                std::uint64_t capacity, PreviewPlan& plan) {
  const FrameGeometry& source = plan.source;
  const Reduction reduction = ReduceToFit(source.width, source.height, targetWidth, targetHeight);
  const std::int64_t bytesPerRow = std::int64_t{reduction.width} * 4;
  const std::int64_t dataSize = bytesPerRow * reduction.height;
  if (dataSize > kMaxBytes || static_cast<std::uint64_t>(dataSize) > capacity) {
    return kResultNoRoom;
  }
  const bool isBgra = layout.format == CameraPixelFormat::Bgra && !layout.grabsTightRgb;
  plan.grabbed = {
      .isBgra = isBgra,
      .bytesPerPixel = layout.grabsTightRgb ? kRgbBytes : layout.bytesPerPixel,
      .bytesPerRow = layout.grabsTightRgb ? kRgbBytes * source.width : source.bytesPerRow};
  plan.reduction = reduction;
  plan.bytesPerRow = static_cast<std::int32_t>(bytesPerRow);
  plan.dataSize = static_cast<std::int32_t>(dataSize);
  plan.pixelFormat =
      static_cast<std::int32_t>(isBgra ? CameraPixelFormat::Bgra : CameraPixelFormat::Rgba);
  plan.planeStrides[0] = plan.bytesPerRow;
  plan.grabsInPlace = isBgra && reduction.step == 1 && plan.bytesPerRow == source.bytesPerRow;
  if (plan.grabsInPlace) {
    return kResultOk;
  }

  const std::int64_t rowBytes = std::int64_t{source.width} * plan.grabbed.bytesPerPixel;
  const auto readBytes =
      static_cast<std::size_t>(PlaneBytes(source.height, plan.grabbed.bytesPerRow, rowBytes));
  plan.scratchBytes =
      std::max(static_cast<std::size_t>(source.dataSize), readBytes) + kPixelReadAhead;
  return kResultOk;
}

}  // namespace

SourceLayout DescribeSource(CameraPixelFormat format) {
  switch (format) {
    case CameraPixelFormat::Bgra:
      return {.format = format, .bytesPerPixel = 4, .native = false, .packedYuv = false};
    case CameraPixelFormat::Nv12:
      return {.format = format, .bytesPerPixel = 3, .native = true, .packedYuv = false};
    case CameraPixelFormat::Yuy2:
    case CameraPixelFormat::Uyvy:
      return {.format = format, .bytesPerPixel = 2, .native = true, .packedYuv = true};
    default:
      return {.format = format, .bytesPerPixel = 3, .native = false, .packedYuv = false};
  }
}

int PlanPreview(const SourceLayout& layout, const FrameGeometry& geometry, int targetWidth,
                int targetHeight, std::uint64_t capacity, PreviewPlan& plan) {
  if (const int refusal = CheckGeometry(layout, geometry); refusal != kResultOk) {
    return refusal;
  }
  plan = PreviewPlan{};
  plan.source = geometry;
  return layout.native ? PlanNative(layout, capacity, plan)
                       : PlanReduced(layout, targetWidth, targetHeight, capacity, plan);
}

}  // namespace ostrel_native
