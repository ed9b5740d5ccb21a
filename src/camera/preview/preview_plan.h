// How a camera frame becomes a preview frame: the reduction to the wanted size, and the tests
// that prove a frame's geometry before any of its bytes are touched.
#pragma once

#include <cstddef>
#include <cstdint>

#include "camera/camera_pixel_format.h"
#include "camera/frames/reduction.h"

namespace ostrel_native {

/// What follows from a source's pixel format.
struct SourceLayout {
  CameraPixelFormat format = CameraPixelFormat::Rgb;
  int bytesPerPixel = 3;
  bool native = false;     ///< published as it is, unscaled
  bool packedYuv = false;  ///< two pixels share their colour in four bytes
  /// Grabs write RGB with tight rows, whatever the format; set by the caller.
  bool grabsTightRgb = false;
};

/// Formats that the preview doesn't know count as RGB.
/// Thread: any.
SourceLayout DescribeSource(CameraPixelFormat format);

/// A camera frame as its backend tells it; nothing in it is trusted.
struct FrameGeometry {
  std::int32_t width = 0;        ///< pixels
  std::int32_t height = 0;       ///< pixels
  std::int32_t bytesPerRow = 0;  ///< bytes
  std::int32_t dataSize = 0;     ///< bytes of the whole frame
  std::int32_t planeCount = 1;   ///< 1 or 2
  std::int32_t planeOffsets[2] = {};
  std::int32_t planeStrides[2] = {};
};

/// The pixels that a grab writes, where they are not published as they are.
struct GrabbedPixels {
  bool isBgra = false;  ///< otherwise RGB
  int bytesPerPixel = 3;
  std::int32_t bytesPerRow = 0;
};

/// The shape of the published frames, and how to get from the camera's frame to them.
struct PreviewPlan {
  FrameGeometry source;
  GrabbedPixels grabbed;
  Reduction reduction;
  std::int32_t bytesPerRow = 0;  ///< of a published frame
  std::int32_t dataSize = 0;     ///< of a published frame
  std::int32_t pixelFormat = 0;  ///< of a published frame, a `CameraPixelFormat` code
  std::int32_t planeCount = 1;
  std::int32_t planeOffsets[2] = {};
  std::int32_t planeStrides[2] = {};
  /// The grab lands in the preview buffer itself; otherwise in scratch memory, to be converted.
  bool grabsInPlace = false;
  /// Bytes of scratch memory that all reads of the conversion stay within, 0 if none is needed.
  /// The backend is told `source.dataSize` all the same, which may be less.
  std::size_t scratchBytes = 0;
};

/// Proves `geometry` and fills `plan` for frames of at most `targetWidth` by `targetHeight`
/// pixels and `capacity` bytes.
/// Returns 0; -10 if the size is unknown or a row is shorter than its pixels; -11 if the data is
/// missing, a plane does not fit, or the published frame does not fit `capacity` or int32.
/// On failure `plan` is unspecified.
/// Thread: any.
int PlanPreview(const SourceLayout& layout, const FrameGeometry& geometry, int targetWidth,
                int targetHeight, std::uint64_t capacity, PreviewPlan& plan);

}  // namespace ostrel_native
