// A DirectShow frame of any layout as packed RGB.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "camera/backend/camera_binding.h"
#include "camera/frames/frame_scratch.h"
#include "camera/frames/jpeg_decode.h"
#include "camera/frames/turbojpeg_runtime.h"

namespace ostrel_native {

namespace {

// What one grab knows of its frame. Every number is the backend's, asked one by one, and each
// conversion proves those that it uses before it reads a byte.
struct DshowFrame {
  CameraPixelFormat format = CameraPixelFormat::Bgra;
  std::int32_t width = 0;     ///< pixels
  std::int32_t height = 0;    ///< pixels
  std::int32_t stride = 0;    ///< bytes a row of plane 0
  std::int32_t dataSize = 0;  ///< bytes
};

// Weights of the colour differences D = U - 128 and E = V - 128, scaled by 256: the luma range
// of 219 steps and the chroma range of 224 steps stretched to 255, hence 298 = 256 * 255 / 219.
struct YuvMatrix {
  int redE;
  int greenD;
  int greenE;
  int blueD;
};
constexpr YuvMatrix kBt601 = {.redE = 409, .greenD = 100, .greenE = 208, .blueD = 516};
constexpr YuvMatrix kBt709 = {.redE = 459, .greenD = 55, .greenE = 136, .blueD = 541};
constexpr int kLumaWeight = 298;
constexpr int kHalf = 128;  // rounds the shift by 8 to nearest

const YuvMatrix& MatrixFor(const DshowFrame& frame) {
  const bool isHighDefinition = frame.width >= 1280 || frame.height >= 577;
  return isHighDefinition ? kBt709 : kBt601;
}

std::uint8_t ToByte(int scaled) {
  return static_cast<std::uint8_t>(std::clamp(scaled >> 8, 0, 255));
}

void WriteRgb(const YuvMatrix& matrix, int y, int u, int v, std::uint8_t* out) {
  const int luma = std::max(y - 16, 0) * kLumaWeight + kHalf;
  const int d = u - 128;
  const int e = v - 128;
  out[0] = ToByte(luma + matrix.redE * e);
  out[1] = ToByte(luma - matrix.greenD * d - matrix.greenE * e);
  out[2] = ToByte(luma + matrix.blueD * d);
}

// Bytes of plane 0 that the conversion of a packed layout reads. 0 for every other layout, and for
// rows that cannot hold their pixels or that no int32 of data can hold.
std::int64_t PackedBytes(const DshowFrame& frame) {
  std::int64_t rowBytes = 0;
  if (frame.format == CameraPixelFormat::Bgra) {
    rowBytes = std::int64_t{4} * frame.width;
  } else if (frame.format == CameraPixelFormat::Yuy2) {
    rowBytes = std::int64_t{2} * frame.width;
  }
  if (rowBytes == 0 || rowBytes > frame.stride) {
    return 0;
  }
  const std::int64_t bytes = std::int64_t{frame.height - 1} * frame.stride + rowBytes;
  return bytes <= std::numeric_limits<std::int32_t>::max() ? bytes : 0;
}

int ConvertBgra(const DshowFrame& frame, const std::uint8_t* source, std::uint8_t* out) {
  if (PackedBytes(frame) == 0) {
    return kResultNoRoom;
  }
  for (std::int32_t row = 0; row < frame.height; ++row) {
    const std::uint8_t* pixel = source + std::int64_t{row} * frame.stride;
    for (std::int32_t column = 0; column < frame.width; ++column) {
      out[0] = pixel[2];
      out[1] = pixel[1];
      out[2] = pixel[0];
      pixel += 4;
      out += 3;
    }
  }
  return kResultOk;
}

int ConvertYuy2(const DshowFrame& frame, const std::uint8_t* source, std::uint8_t* out) {
  if (frame.width % 2 != 0 || PackedBytes(frame) == 0) {
    return kResultNoRoom;
  }
  const YuvMatrix& matrix = MatrixFor(frame);
  for (std::int32_t row = 0; row < frame.height; ++row) {
    const std::uint8_t* pair = source + std::int64_t{row} * frame.stride;
    for (std::int32_t column = 0; column < frame.width; column += 2) {
      WriteRgb(matrix, pair[0], pair[1], pair[3], out);
      WriteRgb(matrix, pair[2], pair[1], pair[3], out + 3);
      pair += 4;
      out += 6;
    }
  }
  return kResultOk;
}

// Both planes are proved to lie within the data, so that nothing is read behind it.
int ConvertNv12(const DshowFrame& frame, std::int32_t chromaOffset, std::int32_t chromaStride,
                const std::uint8_t* source, std::uint8_t* out) {
  const std::int64_t lumaEnd = std::int64_t{frame.height} * frame.stride;
  const std::int64_t chromaEnd = std::int64_t{frame.height / 2} * chromaStride + chromaOffset;
  if (frame.height % 2 != 0 || frame.width % 2 != 0 || frame.width > frame.stride ||
      lumaEnd > chromaOffset || frame.width > chromaStride || chromaEnd > frame.dataSize) {
    return kResultNoRoom;
  }
  const YuvMatrix& matrix = MatrixFor(frame);
  for (std::int32_t row = 0; row < frame.height; ++row) {
    const std::uint8_t* luma = source + std::int64_t{row} * frame.stride;
    const std::uint8_t* chroma = source + chromaOffset + std::int64_t{row / 2} * chromaStride;
    for (std::int32_t column = 0; column < frame.width; column += 2) {
      WriteRgb(matrix, luma[0], chroma[0], chroma[1], out);
      WriteRgb(matrix, luma[1], chroma[0], chroma[1], out + 3);
      luma += 2;
      chroma += 2;
      out += 6;
    }
  }
  return kResultOk;
}

// Decodes the JPEG of `jpegSize` bytes in `source`, which holds `sourceSize`.
int ConvertMjpeg(const DshowFrame& frame, const std::uint8_t* source, std::int32_t sourceSize,
                 std::int32_t jpegSize, std::uint8_t* out) {
  if (jpegSize < 1 || jpegSize > sourceSize) {
    return kResultNoRoom;
  }
  void* const decompressor = g_turboJpeg.tjInitDecompress();
  if (decompressor == nullptr) {
    return kResultFrameFailed;
  }
  const bool isDecoded = DecodeJpegToRgb(decompressor, source, static_cast<std::size_t>(jpegSize),
                                         out, frame.width, frame.height);
  g_turboJpeg.tjDestroy(decompressor);
  return isDecoded ? kResultOk : kResultFrameFailed;
}

}  // namespace

int CameraBinding::GrabCdshowFrameRgb(int device, void* buffer, int capacity) const {
  const auto grab = Entry(nullptr, &CameraBinding::cdshow_grab_frame, nullptr);
  if (grab == nullptr) {
    return kResultNoBackend;
  }
  DshowFrame frame;
  frame.width = FrameWidth(device);
  frame.height = FrameHeight(device);
  const auto rowBytes = ByteProduct(frame.width, 3);
  if (buffer == nullptr || !rowBytes || frame.height < 1) {
    return kResultNoGeometry;
  }
  frame.format = FramePixelFormat(device, CameraPixelFormat::Bgra);
  frame.stride = PlaneStride(device, 0, PreviewFrameBytesPerRow(device));
  frame.dataSize = PreviewFrameDataSize(device);
  const auto size = ByteProduct(*rowBytes, frame.height);
  if (frame.dataSize < 1 || !size || *size > capacity) {
    return kResultNoRoom;
  }

  const bool isMjpeg = frame.format == CameraPixelFormat::Mjpeg;
  const std::int32_t told = isMjpeg ? std::max(frame.dataSize, *size) : frame.dataSize;
  thread_local std::vector<std::uint8_t> sourceScratch;
  std::uint8_t* const source = GrowFrameScratch(sourceScratch, static_cast<std::size_t>(told),
                                                static_cast<std::size_t>(PackedBytes(frame)));
  if (const int result = grab(device, source, told); result != kResultOk) {
    return result;
  }

  auto* const out = static_cast<std::uint8_t*>(buffer);
  if (isMjpeg) {
    // The size is asked again: the frame grabbed may be another than the one measured.
    return g_turboJpeg.Available()
               ? ConvertMjpeg(frame, source, told, PreviewFrameDataSize(device), out)
               : kResultUnsupported;
  }
  if (frame.stride < 1) {
    return kResultNoRoom;
  }
  switch (frame.format) {
    case CameraPixelFormat::Bgra:
      return ConvertBgra(frame, source, out);
    case CameraPixelFormat::Yuy2:
      return ConvertYuy2(frame, source, out);
    case CameraPixelFormat::Nv12:
      return ConvertNv12(frame, PlaneOffset(device, 1), PlaneStride(device, 1, 0), source, out);
    default:
      return kResultUnsupported;
  }
}

}  // namespace ostrel_native
