#include "recording/nv12_conversion.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "camera/camera_pixel_format.h"
#include "recording/nv12_rows.h"

namespace ostrel_native {

namespace {

using Frame = VideoRecorder::Frame;

// Rows of a plane that has not been proved to lie within the frame's bytes.
struct PlaneClaim {
  std::int32_t offset;
  std::int32_t stride;
  std::int32_t rows;
  std::int64_t bytes;  // read of each row
};

// A plane of the frame or of the target.
template <typename Byte>
struct Plane {
  Byte* data = nullptr;
  std::ptrdiff_t stride = 0;

  Byte* Row(std::int32_t row) const { return data + row * stride; }
};

using SourcePlane = Plane<const std::uint8_t>;
using TargetPlane = Plane<std::uint8_t>;

struct Target {
  TargetPlane y;
  TargetPlane uv;
};

// The claimed plane in `source`, or false if any of its rows would be read outside the frame.
bool ProvePlane(const Frame& frame, const PlaneClaim& claim, SourcePlane* source) {
  const auto size = static_cast<std::int64_t>(frame.data.size());
  if (claim.offset < 0 || claim.stride < claim.bytes) {
    return false;
  }
  // At most 2^31 rows of 2^31 bytes and an offset: far from the ends of int64.
  const std::int64_t lastRow = std::int64_t{claim.rows - 1} * claim.stride + claim.offset;
  if (lastRow > size || claim.bytes > size - lastRow) {
    return false;
  }
  *source = {frame.data.data() + claim.offset, claim.stride};
  return true;
}

void CopyRows(const SourcePlane& source, const TargetPlane& target, std::int32_t rows,
              std::int32_t bytes) {
  if (source.stride == bytes && target.stride == bytes) {
    std::memcpy(target.data, source.data,
                static_cast<std::size_t>(rows) * static_cast<std::size_t>(bytes));
    return;
  }
  for (std::int32_t row = 0; row < rows; ++row) {
    std::memcpy(target.Row(row), source.Row(row), static_cast<std::size_t>(bytes));
  }
}

// The compiler's own SSE2 code for this loop keeps up with the memory.
void MergeUvRow(const std::uint8_t* __restrict u, const std::uint8_t* __restrict v,
                std::uint8_t* __restrict uv, std::int32_t width) {
  for (std::ptrdiff_t i = 0; i < width / 2; ++i) {
    uv[2 * i] = u[i];
    uv[2 * i + 1] = v[i];
  }
}

// Where the chroma starts in a frame that describes one plane only: right behind the luma rows.
// Unsigned, since nothing has checked these numbers yet; a wrapped result is just another offset
// that has to be proved.
std::int32_t ImpliedChromaOffset(const Frame& frame) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(frame.height) *
                                       static_cast<std::uint32_t>(frame.planeStrides[0]) +
                                   static_cast<std::uint32_t>(frame.planeOffsets[0]));
}

bool ConvertNv12(const Frame& frame, const Target& target) {
  const bool implied = frame.planeCount <= 1;
  const std::int32_t chromaRows = frame.height / 2;
  SourcePlane luma;
  SourcePlane chroma;
  if (!ProvePlane(frame, {frame.planeOffsets[0], frame.planeStrides[0], frame.height, frame.width},
                  &luma) ||
      !ProvePlane(frame,
                  {implied ? ImpliedChromaOffset(frame) : frame.planeOffsets[1],
                   frame.planeStrides[implied ? 0 : 1], chromaRows, frame.width},
                  &chroma)) {
    return false;
  }
  CopyRows(luma, target.y, frame.height, frame.width);
  CopyRows(chroma, target.uv, chromaRows, frame.width);
  return true;
}

bool ConvertI420(const Frame& frame, const Target& target) {
  const std::int32_t chromaRows = frame.height / 2;
  const std::int32_t chromaBytes = frame.width / 2;
  SourcePlane luma;
  SourcePlane u;
  SourcePlane v;
  if (!ProvePlane(frame, {frame.planeOffsets[0], frame.planeStrides[0], frame.height, frame.width},
                  &luma) ||
      !ProvePlane(frame, {frame.planeOffsets[1], frame.planeStrides[1], chromaRows, chromaBytes},
                  &u) ||
      !ProvePlane(frame, {frame.planeOffsets[2], frame.planeStrides[2], chromaRows, chromaBytes},
                  &v)) {
    return false;
  }
  CopyRows(luma, target.y, frame.height, frame.width);
  for (std::int32_t row = 0; row < chromaRows; ++row) {
    MergeUvRow(u.Row(row), v.Row(row), target.uv.Row(row), frame.width);
  }
  return true;
}

bool ConvertPacked(const Frame& frame, const Target& target, std::int32_t bytesPerPixel,
                   Nv12RowPair convertRows) {
  SourcePlane packed;
  if (!ProvePlane(frame,
                  {frame.planeOffsets[0], frame.planeStrides[0], frame.height,
                   std::int64_t{bytesPerPixel} * frame.width},
                  &packed)) {
    return false;
  }
  // Luma and chroma of a pair of rows at once: with a pass of its own for the chroma the frame
  // would come from memory twice.
  for (std::int32_t row = 0; row < frame.height; row += 2) {
    convertRows(packed.Row(row), packed.Row(row + 1),
                {target.y.Row(row), target.y.Row(row + 1), target.uv.Row(row / 2)}, frame.width);
  }
  return true;
}

}  // namespace

bool ConvertFrameToNv12PlanarWith(const Nv12Rows& rows, const Frame& frame, unsigned char* y,
                                  int yStride, unsigned char* uv, int uvStride) {
  if (y == nullptr || uv == nullptr || frame.width < 1 || frame.height < 1 ||
      frame.width % 2 != 0 || frame.height % 2 != 0 || frame.width > std::min(yStride, uvStride)) {
    return false;
  }
  const Nv12Rows& use = frame.width < rows.minWidth ? kNv12RowsPlain : rows;
  const Target target = {{y, yStride}, {uv, uvStride}};
  switch (static_cast<CameraPixelFormat>(frame.format)) {
    case CameraPixelFormat::Bgra:
      return ConvertPacked(frame, target, 4, use.bgra);
    case CameraPixelFormat::Nv12:
      return ConvertNv12(frame, target);
    case CameraPixelFormat::Yuy2:
      return ConvertPacked(frame, target, 2, use.yuy2);
    case CameraPixelFormat::Rgba:
      return ConvertPacked(frame, target, 4, use.rgba);
    case CameraPixelFormat::I420:
      return ConvertI420(frame, target);
    case CameraPixelFormat::Uyvy:
      return ConvertPacked(frame, target, 2, use.uyvy);
    case CameraPixelFormat::Rgb:
    case CameraPixelFormat::Mjpeg:
      break;
  }
  return false;
}

bool ConvertFrameToNv12Planar(const Frame& frame, unsigned char* y, int yStride, unsigned char* uv,
                              int uvStride) {
  const Nv12Rows& rows = __builtin_cpu_supports("sse4.1") ? kNv12RowsSse41 : kNv12RowsPlain;
  return ConvertFrameToNv12PlanarWith(rows, frame, y, yStride, uv, uvStride);
}

}  // namespace ostrel_native
