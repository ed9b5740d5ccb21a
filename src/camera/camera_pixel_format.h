// The layouts of a camera frame, by the codes that backends, recorder and script code share.
#pragma once

#include <cstdint>

namespace ostrel_native {

/// Layout of one frame's bytes. Plain numbers cross every border, so the codes never change.
enum class CameraPixelFormat : std::int32_t {
  Rgb = 0,    ///< 3 bytes a pixel: R, G, B
  Bgra = 1,   ///< 4 bytes a pixel: B, G, R, A
  Nv12 = 2,   ///< luma plane, then interleaved U, V at half width and half height
  Yuy2 = 3,   ///< 4 bytes a pixel pair: Y0, U, Y1, V
  Mjpeg = 4,  ///< one JPEG image
  Rgba = 5,   ///< 4 bytes a pixel: R, G, B, A
  I420 = 6,   ///< luma plane, then U and V planes at half width and half height
  Uyvy = 7,   ///< 4 bytes a pixel pair: U, Y0, V, Y1
};

}  // namespace ostrel_native
