// The layouts in which the libraries with a frame callback deliver the simulated cameras' frames.
#pragma once

#include <cstddef>
#include <cstdint>

#include "camera/camera_pixel_format.h"

namespace ostrel_simulator {

using ostrel_native::CameraPixelFormat;

/// Where the bytes of a frame are.
struct FrameLayout {
  CameraPixelFormat format = CameraPixelFormat::Rgb;
  int width = 0;   ///< pixels; 0 without a frame. Even, but for RGB and BGRA
  int height = 0;  ///< pixels; 0 without a frame. Even for NV12
  int planeCount = 1;
  int offsets[2] = {};
  int strides[2] = {};  ///< 0 for JPEG
  int dataSize = 0;     ///< bytes; for JPEG the most that one may have
};

/// The layout of a frame whose rows are `rowPadding` bytes longer than their pixels. Knows RGB,
/// BGRA, NV12, YUY2, UYVY and JPEG.
FrameLayout LayOut(CameraPixelFormat format, int width, int height, int rowPadding);

/// Writes the frame that `rgb` shows in rows of `rgbStride` bytes: at most `layout.dataSize` bytes
/// to `out`. Returns how many; 0 where a JPEG could not be made. Padding is left alone.
/// `runsBottomUp`: the rows of each plane last first; not for JPEG.
/// Thread: any.
std::size_t WriteFrame(const FrameLayout& layout, const std::uint8_t* rgb, int rgbStride,
                       bool runsBottomUp, std::uint8_t* out);

}  // namespace ostrel_simulator
