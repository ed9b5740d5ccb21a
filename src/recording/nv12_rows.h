// The row functions of the packed layouts in their two forms, which give the same bytes.
#pragma once

#include <cstdint>

#include "recording/video_recorder.h"

namespace ostrel_native {

/// One luma row: `width` pixels of `source` to `width` bytes of `y`.
using Nv12LumaRow = void (*)(const std::uint8_t* source, std::uint8_t* y, std::int32_t width);

/// One chroma row: `width` pixels of each of two rows to `width` bytes of U, V pairs.
using Nv12ChromaRow = void (*)(const std::uint8_t* top, const std::uint8_t* bottom,
                               std::uint8_t* uv, std::int32_t width);

/// A set of row functions. They read and write exactly the bytes of `width` pixels; `width` is
/// even and at least `minWidth`; targets overlap no source.
/// Thread: any.
struct Nv12Rows {
  std::int32_t minWidth;  ///< pixels
  Nv12LumaRow yuy2Luma;
  Nv12ChromaRow yuy2Chroma;
  Nv12LumaRow uyvyLuma;
  Nv12ChromaRow uyvyChroma;
  Nv12LumaRow bgraLuma;
  Nv12ChromaRow bgraChroma;
  Nv12LumaRow rgbaLuma;
  Nv12ChromaRow rgbaChroma;
};

/// For every x86-64 processor.
extern const Nv12Rows kNv12RowsPlain;

/// For processors with AVX2 only.
extern const Nv12Rows kNv12RowsAvx2;

/// `ConvertFrameToNv12Planar` with the row functions given; rows below their `minWidth` take the
/// plain form.
/// Thread: any.
bool ConvertFrameToNv12PlanarWith(const Nv12Rows& rows, const VideoRecorder::Frame& frame,
                                  unsigned char* y, int yStride, unsigned char* uv, int uvStride);

}  // namespace ostrel_native
