#include "simulator/frame_layout.h"

#include <turbojpeg.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace ostrel_simulator {

namespace {

constexpr int kRgbBytes = 3;
constexpr int kPairBytes = 2 * kRgbBytes;
constexpr int kJpegQuality = 90;

// What a colour weighs in each of the three values, in 1/256.
struct YuvMatrix {
  int luma[3];
  int blueness[3];
  int redness[3];
};
constexpr YuvMatrix kBt601 = {{66, 129, 25}, {-38, -74, 112}, {112, -94, -18}};
constexpr YuvMatrix kBt709 = {{47, 157, 16}, {-26, -87, 112}, {112, -102, -10}};

// As the readers of such frames tell the two apart.
const YuvMatrix& MatrixFor(const FrameLayout& layout) {
  return layout.width >= 1280 || layout.height >= 577 ? kBt709 : kBt601;
}

std::uint8_t Weigh(const int (&weights)[3], int red, int green, int blue, int black) {
  const int sum = weights[0] * red + weights[1] * green + weights[2] * blue + 128;
  return static_cast<std::uint8_t>((sum >> 8) + black);
}

std::uint8_t Luma(const YuvMatrix& matrix, const std::uint8_t* pixel) {
  return Weigh(matrix.luma, pixel[0], pixel[1], pixel[2], 16);
}

// U and V of the mean of pixels, given the sums of their colours.
void WriteChroma(const YuvMatrix& matrix, const int (&sums)[3], int pixels, std::uint8_t* u,
                 std::uint8_t* v) {
  const int mean[3] = {sums[0] / pixels, sums[1] / pixels, sums[2] / pixels};
  *u = Weigh(matrix.blueness, mean[0], mean[1], mean[2], 128);
  *v = Weigh(matrix.redness, mean[0], mean[1], mean[2], 128);
}

void WriteRgbRow(const FrameLayout& layout, const std::uint8_t* rgb, std::uint8_t* out) {
  std::memcpy(out, rgb, static_cast<std::size_t>(layout.width) * kRgbBytes);
}

void WriteBgraRow(const FrameLayout& layout, const std::uint8_t* rgb, std::uint8_t* out) {
  for (int x = 0; x < layout.width; ++x, rgb += kRgbBytes, out += 4) {
    out[0] = rgb[2];
    out[1] = rgb[1];
    out[2] = rgb[0];
    out[3] = 255;
  }
}

// Two pixels in four bytes, the first luma at `firstLuma` (0 or 1) and the chroma between.
void WritePackedRow(const FrameLayout& layout, int firstLuma, const std::uint8_t* rgb,
                    std::uint8_t* out) {
  const YuvMatrix& matrix = MatrixFor(layout);
  const int chroma = 1 - firstLuma;
  for (int x = 0; x < layout.width; x += 2, rgb += kPairBytes, out += 4) {
    out[firstLuma] = Luma(matrix, rgb);
    out[firstLuma + 2] = Luma(matrix, rgb + kRgbBytes);
    const int sums[3] = {rgb[0] + rgb[3], rgb[1] + rgb[4], rgb[2] + rgb[5]};
    WriteChroma(matrix, sums, 2, out + chroma, out + chroma + 2);
  }
}

void WriteLumaRow(const FrameLayout& layout, const std::uint8_t* rgb, std::uint8_t* out) {
  const YuvMatrix& matrix = MatrixFor(layout);
  for (int x = 0; x < layout.width; ++x) {
    out[x] = Luma(matrix, rgb + std::ptrdiff_t{x} * kRgbBytes);
  }
}

// The colours of two rows of pixels, each of two by two.
void WriteChromaRow(const FrameLayout& layout, const std::uint8_t* rgb, int rgbStride,
                    std::uint8_t* out) {
  const YuvMatrix& matrix = MatrixFor(layout);
  const std::uint8_t* below = rgb + rgbStride;
  for (int x = 0; x < layout.width; x += 2, rgb += kPairBytes, below += kPairBytes) {
    const int sums[3] = {rgb[0] + rgb[3] + below[0] + below[3],
                         rgb[1] + rgb[4] + below[1] + below[4],
                         rgb[2] + rgb[5] + below[2] + below[5]};
    WriteChroma(matrix, sums, 4, out + x, out + x + 1);
  }
}

void WriteFirstPlaneRow(const FrameLayout& layout, const std::uint8_t* rgb, std::uint8_t* out) {
  switch (layout.format) {
    case CameraPixelFormat::Bgra:
      return WriteBgraRow(layout, rgb, out);
    case CameraPixelFormat::Yuy2:
      return WritePackedRow(layout, 0, rgb, out);
    case CameraPixelFormat::Uyvy:
      return WritePackedRow(layout, 1, rgb, out);
    case CameraPixelFormat::Nv12:
      return WriteLumaRow(layout, rgb, out);
    default:
      return WriteRgbRow(layout, rgb, out);
  }
}

struct DestroyCompressor {
  using pointer = tjhandle;
  void operator()(tjhandle compressor) const { tjDestroy(compressor); }
};

std::size_t WriteJpeg(const FrameLayout& layout, const std::uint8_t* rgb, int rgbStride,
                      std::uint8_t* out) {
  thread_local const std::unique_ptr<void, DestroyCompressor> compressor(tjInitCompress());
  if (compressor == nullptr) {
    return 0;
  }
  unsigned char* jpeg = nullptr;
  unsigned long size = 0;
  const int result = tjCompress2(compressor.get(), rgb, layout.width, rgbStride, layout.height,
                                 TJPF_RGB, &jpeg, &size, TJSAMP_420, kJpegQuality, TJFLAG_FASTDCT);
  const bool isWhole = result == 0 && size <= static_cast<unsigned long>(layout.dataSize);
  if (isWhole) {
    std::memcpy(out, jpeg, size);
  }
  tjFree(jpeg);
  return isWhole ? size : 0;
}

int BytesPerPixel(CameraPixelFormat format) {
  switch (format) {
    case CameraPixelFormat::Bgra:
      return 4;
    case CameraPixelFormat::Yuy2:
    case CameraPixelFormat::Uyvy:
      return 2;
    case CameraPixelFormat::Nv12:
      return 1;
    default:
      return kRgbBytes;
  }
}

}  // namespace

FrameLayout LayOut(CameraPixelFormat format, int width, int height, int rowPadding) {
  FrameLayout layout{.format = format, .width = width, .height = height};
  if (format == CameraPixelFormat::Mjpeg) {
    layout.dataSize = kRgbBytes * width * height;
    return layout;
  }
  layout.strides[0] = BytesPerPixel(format) * width + rowPadding;
  layout.dataSize = layout.strides[0] * height;
  if (format == CameraPixelFormat::Nv12) {
    layout.planeCount = 2;
    layout.offsets[1] = layout.dataSize;
    layout.strides[1] = layout.strides[0];
    layout.dataSize += layout.strides[1] * (height / 2);
  }
  return layout;
}

std::size_t WriteFrame(const FrameLayout& layout, const std::uint8_t* rgb, int rgbStride,
                       bool runsBottomUp, std::uint8_t* out) {
  if (layout.format == CameraPixelFormat::Mjpeg) {
    return WriteJpeg(layout, rgb, rgbStride, out);
  }
  const auto rowOf = [&](int plane, int row, int rows) {
    const std::ptrdiff_t place = runsBottomUp ? rows - 1 - row : row;
    return out + layout.offsets[plane] + place * layout.strides[plane];
  };
  for (int row = 0; row < layout.height; ++row) {
    const std::uint8_t* const source = rgb + std::ptrdiff_t{row} * rgbStride;
    WriteFirstPlaneRow(layout, source, rowOf(0, row, layout.height));
    if (layout.format == CameraPixelFormat::Nv12 && row % 2 == 0) {
      WriteChromaRow(layout, source, rgbStride, rowOf(1, row / 2, layout.height / 2));
    }
  }
  return static_cast<std::size_t>(layout.dataSize);
}

}  // namespace ostrel_simulator
