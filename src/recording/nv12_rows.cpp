#include "recording/nv12_rows.h"

#include <cstddef>

namespace ostrel_native {

namespace {

// Loops over one row without branches, which the compiler turns into SSE2 code. `__restrict`
// says that no store changes a source byte.

// `kLuma`: the byte of the first luma sample in a pixel pair; the second lies two behind.
template <int kLuma>
void PairLumaRow(const std::uint8_t* __restrict source, std::uint8_t* __restrict y,
                 std::int32_t width) {
  for (std::ptrdiff_t i = 0; i < width; ++i) {
    y[i] = source[2 * i + kLuma];
  }
}

// `kChroma`: the byte of U in a pixel pair; V lies two behind.
template <int kChroma>
void PairChromaRow(const std::uint8_t* __restrict top, const std::uint8_t* __restrict bottom,
                   std::uint8_t* __restrict uv, std::int32_t width) {
  for (std::ptrdiff_t i = 0; i < width; ++i) {
    uv[i] = static_cast<std::uint8_t>((top[2 * i + kChroma] + bottom[2 * i + kChroma] + 1) >> 1);
  }
}

// BT.709 at limited range in 8-bit fixed point. `kRed`, `kBlue`: bytes of the channels in a
// pixel of four bytes; green is byte 1.
template <int kRed, int kBlue>
void RgbLumaRow(const std::uint8_t* __restrict source, std::uint8_t* __restrict y,
                std::int32_t width) {
  for (std::ptrdiff_t i = 0; i < width; ++i) {
    const std::uint8_t* const pixel = source + 4 * i;
    const int luma = ((47 * pixel[kRed] + 157 * pixel[1] + 16 * pixel[kBlue] + 128) >> 8) + 16;
    y[i] = static_cast<std::uint8_t>(luma);
  }
}

template <int kRed, int kBlue>
void RgbChromaRow(const std::uint8_t* __restrict top, const std::uint8_t* __restrict bottom,
                  std::uint8_t* __restrict uv, std::int32_t width) {
  for (std::ptrdiff_t i = 0; i < width / 2; ++i) {
    const std::uint8_t* const t = top + 8 * i;
    const std::uint8_t* const b = bottom + 8 * i;
    const int red = (t[kRed] + t[4 + kRed] + b[kRed] + b[4 + kRed] + 2) >> 2;
    const int green = (t[1] + t[5] + b[1] + b[5] + 2) >> 2;
    const int blue = (t[kBlue] + t[4 + kBlue] + b[kBlue] + b[4 + kBlue] + 2) >> 2;
    const int u = ((-26 * red - 87 * green + 112 * blue + 128) >> 8) + 128;
    const int v = ((112 * red - 102 * green - 10 * blue + 128) >> 8) + 128;
    uv[2 * i] = static_cast<std::uint8_t>(u);
    uv[2 * i + 1] = static_cast<std::uint8_t>(v);
  }
}

template <void (*kLumaRow)(const std::uint8_t*, std::uint8_t*, std::int32_t),
          void (*kChromaRow)(const std::uint8_t*, const std::uint8_t*, std::uint8_t*, std::int32_t)>
void RowPair(const std::uint8_t* top, const std::uint8_t* bottom, const Nv12RowPairTarget& target,
             std::int32_t width) {
  kLumaRow(top, target.yTop, width);
  kLumaRow(bottom, target.yBottom, width);
  kChromaRow(top, bottom, target.uv, width);
}

}  // namespace

const Nv12Rows kNv12RowsPlain = {
    .minWidth = 2,
    .yuy2 = RowPair<PairLumaRow<0>, PairChromaRow<1>>,
    .uyvy = RowPair<PairLumaRow<1>, PairChromaRow<0>>,
    .bgra = RowPair<RgbLumaRow<2, 0>, RgbChromaRow<2, 0>>,
    .rgba = RowPair<RgbLumaRow<0, 2>, RgbChromaRow<0, 2>>,
};

}  // namespace ostrel_native
