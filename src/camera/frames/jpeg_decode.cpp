#include "camera/frames/jpeg_decode.h"

#include <algorithm>
#include <cstring>

#include "camera/frames/turbojpeg_runtime.h"

namespace ostrel_native {

namespace {

constexpr std::uint8_t kNeutralChroma = 128;

// The U component, for the plane sizes of a subsampling: V has the same.
constexpr int kChromaComponent = 1;

// A decoder writes whole sampling units, and a component is sampled at most 4 times as often as
// another: its luma plane is up to 3 samples longer than the picture, each way.
constexpr int kLargestSamplingUnit = 4;

struct JpegHeader {
  int width = 0;
  int height = 0;
  int subsampling = 0;
  int colourspace = 0;
};

// Sizes of the planes of an I420 frame; U and V have the same.
struct I420Planes {
  int chromaWidth;
  int chromaHeight;
  std::size_t lumaBytes;
  std::size_t chromaBytes;

  I420Planes(int width, int height)
      : chromaWidth(width / 2),
        chromaHeight(height / 2),
        lumaBytes(static_cast<std::size_t>(width) * static_cast<std::size_t>(height)),
        chromaBytes(static_cast<std::size_t>(chromaWidth) *
                    static_cast<std::size_t>(chromaHeight)) {}
};

bool ReadHeader(tjhandle decompressor, const std::uint8_t* jpeg, std::size_t jpegSize,
                JpegHeader& header) {
  return g_turboJpeg.tjDecompressHeader3(decompressor, jpeg, jpegSize, &header.width,
                                         &header.height, &header.subsampling,
                                         &header.colourspace) == 0;
}

int RoundUpToSamplingUnit(int size) {
  return (size + kLargestSamplingUnit - 1) / kLargestSamplingUnit * kLargestSamplingUnit;
}

bool DecodePlanes(tjhandle decompressor, const std::uint8_t* jpeg, std::size_t jpegSize,
                  std::uint8_t* (&planes)[3], int width, int (&strides)[3], int height) {
  return g_turboJpeg.tjDecompressToYUVPlanes(decompressor, jpeg, jpegSize, planes, width, strides,
                                             height, TJFLAG_FASTDCT) == 0;
}

bool DecodeDirectly(tjhandle decompressor, const std::uint8_t* jpeg, std::size_t jpegSize,
                    std::uint8_t* destination, const JpegHeader& header) {
  const I420Planes layout(header.width, header.height);
  std::uint8_t* const chroma = destination + layout.lumaBytes;
  std::uint8_t* planes[3] = {destination, chroma, chroma + layout.chromaBytes};
  int strides[3] = {header.width, layout.chromaWidth, layout.chromaWidth};
  if (!DecodePlanes(decompressor, jpeg, jpegSize, planes, header.width, strides, header.height)) {
    return false;
  }
  if (header.subsampling == TJSAMP_GRAY) {
    std::fill_n(chroma, 2 * layout.chromaBytes, kNeutralChroma);
  }
  return true;
}

bool DecodeResampled(tjhandle decompressor, const std::uint8_t* jpeg, std::size_t jpegSize,
                     std::uint8_t* destination, const JpegHeader& header,
                     std::vector<std::uint8_t>& scratch) {
  const int planeWidth =
      g_turboJpeg.tjPlaneWidth(kChromaComponent, header.width, header.subsampling);
  const int planeHeight =
      g_turboJpeg.tjPlaneHeight(kChromaComponent, header.height, header.subsampling);
  if (planeWidth < 1 || planeHeight < 1) {
    return false;
  }
  const std::size_t planeBytes =
      static_cast<std::size_t>(planeWidth) * static_cast<std::size_t>(planeHeight);

  // Luma goes straight to its place, unless the decoder would write beyond it.
  const int lumaStride = RoundUpToSamplingUnit(header.width);
  const int lumaRows = RoundUpToSamplingUnit(header.height);
  const bool padsLuma = lumaStride != header.width || lumaRows != header.height;
  const std::size_t lumaBytes =
      padsLuma ? static_cast<std::size_t>(lumaStride) * static_cast<std::size_t>(lumaRows) : 0;
  if (scratch.size() < 2 * planeBytes + lumaBytes) {
    scratch.resize(2 * planeBytes + lumaBytes);
  }
  std::uint8_t* const u = scratch.data();
  std::uint8_t* const v = u + planeBytes;
  std::uint8_t* const luma = padsLuma ? v + planeBytes : destination;
  std::uint8_t* planes[3] = {luma, u, v};
  int strides[3] = {lumaStride, planeWidth, planeWidth};
  if (!DecodePlanes(decompressor, jpeg, jpegSize, planes, header.width, strides, header.height)) {
    return false;
  }

  const auto width = static_cast<std::size_t>(header.width);
  for (int y = 0; padsLuma && y < header.height; ++y) {
    const auto row = static_cast<std::size_t>(y);
    std::memcpy(destination + row * width, luma + row * static_cast<std::size_t>(lumaStride),
                width);
  }
  const I420Planes layout(header.width, header.height);
  std::uint8_t* const chroma = destination + layout.lumaBytes;
  TurboJpegRuntime::ResamplePlane(u, planeWidth, planeHeight, chroma, layout.chromaWidth,
                                  layout.chromaHeight);
  TurboJpegRuntime::ResamplePlane(v, planeWidth, planeHeight, chroma + layout.chromaBytes,
                                  layout.chromaWidth, layout.chromaHeight);
  return true;
}

// Where the cell `index` of `cells` begins in a source of `size` samples.
std::int64_t CellStart(std::int64_t index, std::int64_t size, std::int64_t cells) {
  return index * size / cells;
}

// Where a cell ends: it covers at least one sample, unless the source has none.
std::int64_t CellEnd(std::int64_t start, std::int64_t nextStart, std::int64_t size) {
  return nextStart > start ? nextStart : std::min(start + 1, size);
}

// One row of cells, each of `kColumns` by `kRows` samples: numbers that the compiler knows make a
// loop that it can vectorize.
template <int kColumns, int kRows>
void AverageRow(const std::uint8_t* source, std::ptrdiff_t sourceWidth, std::uint8_t* destination,
                std::ptrdiff_t cells) {
  constexpr std::uint32_t kCount = kColumns * kRows;
  for (std::ptrdiff_t x = 0; x < cells; ++x) {
    std::uint32_t sum = kCount / 2;
    for (std::ptrdiff_t row = 0; row < kRows; ++row) {
      for (std::ptrdiff_t column = 0; column < kColumns; ++column) {
        sum += source[row * sourceWidth + x * kColumns + column];
      }
    }
    destination[x] = static_cast<std::uint8_t>(sum / kCount);
  }
}

struct PlaneSize {
  std::int64_t width;
  std::int64_t height;
};

// Averages the plane if each of its cells is of `kColumns` by `kRows` samples; false if not.
template <int kColumns, int kRows>
bool AverageWholeCells(const std::uint8_t* source, const PlaneSize& sourceSize,
                       std::uint8_t* destination, const PlaneSize& size) {
  if (sourceSize.width != size.width * kColumns || sourceSize.height != size.height * kRows) {
    return false;
  }
  for (std::int64_t y = 0; y < size.height; ++y) {
    AverageRow<kColumns, kRows>(source, sourceSize.width, destination, size.width);
    source += sourceSize.width * kRows;
    destination += size.width;
  }
  return true;
}

}  // namespace

std::optional<JpegSize> ReadJpegSize(tjhandle decompressor, const std::uint8_t* jpeg,
                                     std::size_t jpegSize) {
  JpegHeader header;
  if (!ReadHeader(decompressor, jpeg, jpegSize, header)) {
    return std::nullopt;
  }
  return JpegSize{header.width, header.height};
}

bool DecodeJpegToRgb(tjhandle decompressor, const std::uint8_t* jpeg, std::size_t jpegSize,
                     std::uint8_t* destination, int width, int height) {
  const std::size_t rowBytes = static_cast<std::size_t>(width) * 3;
  // A smaller picture leaves bytes unwritten, which may hold an older one.
  std::memset(destination, 0, rowBytes * static_cast<std::size_t>(height));
  return g_turboJpeg.tjDecompress2(decompressor, jpeg, jpegSize, destination, width,
                                   static_cast<int>(rowBytes), height, TJPF_RGB,
                                   TJFLAG_FASTDCT) == 0;
}

bool DecodeJpegToI420(tjhandle decompressor, const std::uint8_t* jpeg, std::size_t jpegSize,
                      std::uint8_t* destination, std::size_t capacity, int width, int height,
                      std::vector<std::uint8_t>& scratch) {
  JpegHeader header;
  if (!ReadHeader(decompressor, jpeg, jpegSize, header)) {
    return false;
  }
  if (header.width != width || header.height != height || width < 1 || height < 1 ||
      width % 2 != 0 || height % 2 != 0) {
    return false;
  }
  const I420Planes layout(width, height);
  if (layout.lumaBytes + 2 * layout.chromaBytes > capacity) {
    return false;
  }
  const bool hasPlanesOfI420 =
      header.subsampling == TJSAMP_420 || header.subsampling == TJSAMP_GRAY;
  return hasPlanesOfI420
             ? DecodeDirectly(decompressor, jpeg, jpegSize, destination, header)
             : DecodeResampled(decompressor, jpeg, jpegSize, destination, header, scratch);
}

void TurboJpegRuntime::ResamplePlane(const std::uint8_t* source, int sourceWidth, int sourceHeight,
                                     std::uint8_t* destination, int destinationWidth,
                                     int destinationHeight) {
  // The chroma of 4:2:2, 4:4:4 and 4:4:0, on its way to that of 4:2:0.
  const PlaneSize from = {sourceWidth, sourceHeight};
  const PlaneSize to = {destinationWidth, destinationHeight};
  if (AverageWholeCells<1, 2>(source, from, destination, to) ||
      AverageWholeCells<2, 2>(source, from, destination, to) ||
      AverageWholeCells<2, 1>(source, from, destination, to)) {
    return;
  }
  for (std::int64_t y = 0; y < destinationHeight; ++y) {
    const std::int64_t y0 = CellStart(y, sourceHeight, destinationHeight);
    const std::int64_t y1 =
        CellEnd(y0, CellStart(y + 1, sourceHeight, destinationHeight), sourceHeight);
    std::int64_t x0 = 0;
    for (std::int64_t x = 0; x < destinationWidth; ++x) {
      const std::int64_t nextX0 = CellStart(x + 1, sourceWidth, destinationWidth);
      const std::int64_t x1 = CellEnd(x0, nextX0, sourceWidth);
      std::uint32_t sum = 0;
      std::uint32_t count = 0;
      for (std::int64_t row = y0; row < y1; ++row) {
        for (std::int64_t column = x0; column < x1; ++column) {
          sum += source[row * sourceWidth + column];
          ++count;
        }
      }
      *destination++ = static_cast<std::uint8_t>((sum + count / 2) / std::max(count, 1U));
      x0 = nextX0;
    }
  }
}

}  // namespace ostrel_native
