// The grabs that script code calls directly: one frame as it is, or one reduced to RGBA.
//
// Each is cut in two at the point where the caller provides the memory of the answer: a plan or
// a source first, then the bytes.
#pragma once

#include <cstdint>

#include "camera/camera_types.h"

namespace ostrel_native {

/// The shape of a full-size frame, rows tight.
struct FrameGrabPlan {
  std::int32_t width = -1;   ///< pixels
  std::int32_t height = -1;  ///< pixels
  std::int32_t bytesPerRow = -1;
  bool isBgra = false;  ///< otherwise RGB
  /// 0 if a grab can be tried; -10 if the size is unknown; -11 if the frame exceeds int32.
  int result = kResultNoGeometry;
  std::int32_t size = 0;  ///< bytes of the frame, with a result of 0
};

/// Asks the backend for the shape of the current frame.
/// Thread: any.
FrameGrabPlan PlanFrameGrab(int device);

/// Grabs the newest frame into `buffer` of `size` bytes, which the caller owns; `size` is that of
/// the device's plan. Rows are tight, also where the backend's own are longer.
/// 0; -6 without a backend or an entry; -8 if a grab or a decode failed; the codes of the
/// conversions; or the backend's code. Sets no last error.
/// Thread: any.
int GrabFrame(int device, std::uint8_t* buffer, std::int32_t size);

/// A grabbed frame that waits to be reduced.
struct RgbaGrab {
  std::int32_t sourceWidth = -1;        ///< pixels
  std::int32_t sourceHeight = -1;       ///< pixels
  std::int32_t sourceBytesPerRow = -1;  ///< 3 bytes a pixel or more
  /// 0 with the fields below set; -10 if a size is unknown; -11 if a frame exceeds int32; or as
  /// for `GrabFrame`.
  int result = kResultNoGeometry;
  int step = 1;
  std::int32_t width = 0;   ///< pixels of the answer
  std::int32_t height = 0;  ///< pixels of the answer
  std::int32_t bytesPerRow = 0;
  std::int32_t size = 0;                 ///< bytes of the answer
  const std::uint8_t* source = nullptr;  ///< the calling thread's, until its next such grab
};

/// Grabs the newest frame for a picture of at most `maxWidth` by `maxHeight` pixels, each raised
/// to at least 1. A small frame is never enlarged.
/// May throw `std::bad_alloc`. Sets no last error.
/// Thread: any environment.
RgbaGrab GrabForRgba(int device, int maxWidth, int maxHeight);

/// Writes the `grab.size` bytes of a successful grab's picture to `out`: the top-left pixel of
/// each step, alpha 255.
/// Thread: that of the grab.
void WriteRgba(const RgbaGrab& grab, std::uint8_t* out);

}  // namespace ostrel_native
