// The row functions of the packed layouts in their two forms, which give the same bytes.
#pragma once

#include <cstdint>

#include "recording/video_recorder.h"

namespace ostrel_native {

/// Where two rows of a picture go.
struct Nv12RowPairTarget {
  std::uint8_t* yTop;     ///< `width` bytes
  std::uint8_t* yBottom;  ///< `width` bytes
  std::uint8_t* uv;       ///< `width` bytes of U, V pairs
};

/// Converts `width` pixels of two neighbouring rows.
using Nv12RowPair = void (*)(const std::uint8_t* top, const std::uint8_t* bottom,
                             const Nv12RowPairTarget& target, std::int32_t width);

/// A set of row functions. They read and write exactly the bytes of `width` pixels; `width` is
/// even and at least `minWidth`; targets overlap neither a source nor each other.
/// Thread: any.
struct Nv12Rows {
  std::int32_t minWidth;  ///< pixels
  Nv12RowPair yuy2;
  Nv12RowPair uyvy;
  Nv12RowPair bgra;
  Nv12RowPair rgba;
};

/// For every x86-64 processor.
extern const Nv12Rows kNv12RowsPlain;

/// For processors with SSE4.1 only.
extern const Nv12Rows kNv12RowsSse41;

/// `ConvertFrameToNv12Planar` with the row functions given; rows below their `minWidth` take the
/// plain form.
/// Thread: any.
bool ConvertFrameToNv12PlanarWith(const Nv12Rows& rows, const VideoRecorder::Frame& frame,
                                  unsigned char* y, int yStride, unsigned char* uv, int uvStride);

}  // namespace ostrel_native
