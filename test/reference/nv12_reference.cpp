#include "reference/nv12_reference.h"

#include <cstddef>
#include <cstdint>

namespace ostrel_native::test {

namespace {

using Frame = VideoRecorder::Frame;

enum Format { kBgra = 1, kNv12 = 2, kYuy2 = 3, kRgba = 5, kI420 = 6, kUyvy = 7 };

bool Fits(const Frame& frame, std::int64_t offset, std::int64_t stride, std::int64_t rows,
          std::int64_t bytes) {
  const auto size = static_cast<std::int64_t>(frame.data.size());
  if (offset < 0) {
    return false;
  }
  if (stride < bytes) {
    return false;
  }
  const std::int64_t last = (rows - 1) * stride + offset;
  if (last > size) {
    return false;
  }
  return bytes <= size - last;
}

std::int64_t WrappedToInt32(std::int64_t value) {
  const std::int64_t period = std::int64_t{1} << 32;
  std::int64_t wrapped = value % period;
  if (wrapped < -(period / 2)) {
    wrapped += period;
  }
  if (wrapped >= period / 2) {
    wrapped -= period;
  }
  return wrapped;
}

std::int64_t Nv12ChromaOffset(const Frame& frame) {
  if (frame.planeCount >= 2) {
    return frame.planeOffsets[1];
  }
  return WrappedToInt32(std::int64_t{frame.height} * frame.planeStrides[0] + frame.planeOffsets[0]);
}

std::int64_t Nv12ChromaStride(const Frame& frame) {
  return frame.planeCount >= 2 ? frame.planeStrides[1] : frame.planeStrides[0];
}

bool AllPlanesFit(const Frame& frame) {
  const std::int64_t w = frame.width;
  const std::int64_t h = frame.height;
  const std::int32_t* const offsets = frame.planeOffsets;
  const std::int32_t* const strides = frame.planeStrides;
  switch (frame.format) {
    case kBgra:
    case kRgba:
      return Fits(frame, offsets[0], strides[0], h, 4 * w);
    case kYuy2:
    case kUyvy:
      return Fits(frame, offsets[0], strides[0], h, 2 * w);
    case kNv12:
      return Fits(frame, offsets[0], strides[0], h, w) &&
             Fits(frame, Nv12ChromaOffset(frame), Nv12ChromaStride(frame), h / 2, w);
    case kI420:
      return Fits(frame, offsets[0], strides[0], h, w) &&
             Fits(frame, offsets[1], strides[1], h / 2, w / 2) &&
             Fits(frame, offsets[2], strides[2], h / 2, w / 2);
    default:
      return false;
  }
}

int ByteAt(const Frame& frame, std::int64_t offset, std::int64_t stride, int row, int byte) {
  return frame.data[static_cast<std::size_t>(offset + row * stride + byte)];
}

int PackedByte(const Frame& frame, int row, int byte) {
  return ByteAt(frame, frame.planeOffsets[0], frame.planeStrides[0], row, byte);
}

int Floor256(int value) {
  return value >= 0 ? value / 256 : -((-value + 255) / 256);
}

struct Rgb {
  int r;
  int g;
  int b;
};

Rgb PixelAt(const Frame& frame, int row, int column) {
  const int first = PackedByte(frame, row, 4 * column);
  const int green = PackedByte(frame, row, 4 * column + 1);
  const int third = PackedByte(frame, row, 4 * column + 2);
  return frame.format == kRgba ? Rgb{first, green, third} : Rgb{third, green, first};
}

Rgb BlockMean(const Frame& frame, int blockRow, int blockColumn) {
  Rgb sum = {0, 0, 0};
  for (int row = 0; row < 2; ++row) {
    for (int column = 0; column < 2; ++column) {
      const Rgb pixel = PixelAt(frame, 2 * blockRow + row, 2 * blockColumn + column);
      sum = {sum.r + pixel.r, sum.g + pixel.g, sum.b + pixel.b};
    }
  }
  return {(sum.r + 2) / 4, (sum.g + 2) / 4, (sum.b + 2) / 4};
}

int LumaAt(const Frame& frame, int row, int column) {
  switch (frame.format) {
    case kBgra:
    case kRgba: {
      const Rgb p = PixelAt(frame, row, column);
      return Floor256(47 * p.r + 157 * p.g + 16 * p.b + 128) + 16;
    }
    case kYuy2:
      return PackedByte(frame, row, 2 * column);
    case kUyvy:
      return PackedByte(frame, row, 2 * column + 1);
    default:
      return PackedByte(frame, row, column);
  }
}

// `v`: 0 for U, 1 for V.
int ChromaAt(const Frame& frame, int row, int column, int v) {
  switch (frame.format) {
    case kBgra:
    case kRgba: {
      const Rgb m = BlockMean(frame, row, column);
      return v == 0 ? Floor256(-26 * m.r - 87 * m.g + 112 * m.b + 128) + 128
                    : Floor256(112 * m.r - 102 * m.g - 10 * m.b + 128) + 128;
    }
    case kYuy2:
    case kUyvy: {
      const int byte = 4 * column + 2 * v + (frame.format == kYuy2 ? 1 : 0);
      return (PackedByte(frame, 2 * row, byte) + PackedByte(frame, 2 * row + 1, byte) + 1) / 2;
    }
    case kI420:
      return ByteAt(frame, frame.planeOffsets[1 + v], frame.planeStrides[1 + v], row, column);
    default:
      return ByteAt(frame, Nv12ChromaOffset(frame), Nv12ChromaStride(frame), row, 2 * column + v);
  }
}

}  // namespace

bool ReferenceNv12(const Frame& frame, unsigned char* y, int yStride, unsigned char* uv,
                   int uvStride) {
  if (y == nullptr || uv == nullptr) {
    return false;
  }
  if (frame.width < 1 || frame.height < 1 || frame.width % 2 == 1 || frame.height % 2 == 1) {
    return false;
  }
  if (frame.width > yStride || frame.width > uvStride) {
    return false;
  }
  if (!AllPlanesFit(frame)) {
    return false;
  }
  for (int row = 0; row < frame.height; ++row) {
    for (int column = 0; column < frame.width; ++column) {
      y[std::ptrdiff_t{row} * yStride + column] =
          static_cast<unsigned char>(LumaAt(frame, row, column));
    }
  }
  for (int row = 0; row < frame.height / 2; ++row) {
    for (int column = 0; column < frame.width / 2; ++column) {
      unsigned char* const pair = uv + std::ptrdiff_t{row} * uvStride + std::ptrdiff_t{2} * column;
      pair[0] = static_cast<unsigned char>(ChromaAt(frame, row, column, 0));
      pair[1] = static_cast<unsigned char>(ChromaAt(frame, row, column, 1));
    }
  }
  return true;
}

}  // namespace ostrel_native::test
