// The NV12 conversion of one 1920 by 1080 frame on one thread, layout by layout, against libyuv.
#include <libyuv.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>
#include <vector>

#include "camera/camera_pixel_format.h"
#include "harness.h"
#include "recording/nv12_conversion.h"

namespace ostrel_native {

namespace {

constexpr std::int32_t kWidth = 1920;
constexpr std::int32_t kHeight = 1080;
constexpr std::int32_t kPixels = kWidth * kHeight;
constexpr std::size_t kTargetBytes = kPixels * 3 / 2;
constexpr std::int32_t kVOffset = kPixels / 4 * 5;  // of the V plane in an I420 frame

struct Nv12Picture {
  std::vector<std::uint8_t> y = std::vector<std::uint8_t>(kPixels);
  std::vector<std::uint8_t> uv = std::vector<std::uint8_t>(kPixels / 2);
};

struct Layout {
  const char* name;
  CameraPixelFormat format;
  std::int32_t bytesPerRow;  // of plane 0
  std::size_t bytes;         // of a frame
  std::function<int(const std::uint8_t* source, std::uint8_t* y, std::uint8_t* uv)> libyuv;
};

const Layout kLayouts[] = {
    {"NV12", CameraPixelFormat::Nv12, kWidth, kTargetBytes,
     [](const std::uint8_t* source, std::uint8_t* y, std::uint8_t* uv) {
       return libyuv::NV12Copy(source, kWidth, source + kPixels, kWidth, y, kWidth, uv, kWidth,
                               kWidth, kHeight);
     }},
    {"I420", CameraPixelFormat::I420, kWidth, kTargetBytes,
     [](const std::uint8_t* source, std::uint8_t* y, std::uint8_t* uv) {
       return libyuv::I420ToNV12(source, kWidth, source + kPixels, kWidth / 2, source + kVOffset,
                                 kWidth / 2, y, kWidth, uv, kWidth, kWidth, kHeight);
     }},
    {"YUY2", CameraPixelFormat::Yuy2, 2 * kWidth, std::size_t{2} * kPixels,
     [](const std::uint8_t* source, std::uint8_t* y, std::uint8_t* uv) {
       return libyuv::YUY2ToNV12(source, 2 * kWidth, y, kWidth, uv, kWidth, kWidth, kHeight);
     }},
    {"UYVY", CameraPixelFormat::Uyvy, 2 * kWidth, std::size_t{2} * kPixels,
     [](const std::uint8_t* source, std::uint8_t* y, std::uint8_t* uv) {
       return libyuv::UYVYToNV12(source, 2 * kWidth, y, kWidth, uv, kWidth, kWidth, kHeight);
     }},
    // libyuv names the channels of a 32-bit word from its high end, so its ARGB is B, G, R, A in
    // memory.
    {"BGRA", CameraPixelFormat::Bgra, 4 * kWidth, std::size_t{4} * kPixels,
     [](const std::uint8_t* source, std::uint8_t* y, std::uint8_t* uv) {
       return libyuv::ARGBToNV12(source, 4 * kWidth, y, kWidth, uv, kWidth, kWidth, kHeight);
     }},
    {"RGBA", CameraPixelFormat::Rgba, 4 * kWidth, std::size_t{4} * kPixels,
     [](const std::uint8_t* source, std::uint8_t* y, std::uint8_t* uv) {
       return libyuv::ABGRToNV12(source, 4 * kWidth, y, kWidth, uv, kWidth, kWidth, kHeight);
     }},
};

VideoRecorder::Frame MakeFrame(const Layout& layout) {
  VideoRecorder::Frame frame;
  frame.width = kWidth;
  frame.height = kHeight;
  frame.format = static_cast<std::int32_t>(layout.format);
  frame.planeCount = 3;
  frame.planeOffsets[1] = kPixels;
  frame.planeOffsets[2] = kVOffset;
  frame.planeStrides[0] = layout.bytesPerRow;
  frame.planeStrides[1] = layout.format == CameraPixelFormat::I420 ? kWidth / 2 : kWidth;
  frame.planeStrides[2] = kWidth / 2;
  std::mt19937 random(1);
  frame.data.resize(layout.bytes);
  for (std::uint8_t& byte : frame.data) {
    byte = static_cast<std::uint8_t>(random());
  }
  return frame;
}

// A conversion that fails would be timed as a very fast one.
void Require(bool converted, const char* layout) {
  if (!converted) {
    std::fprintf(stderr, "%s was not converted\n", layout);
    std::exit(1);
  }
}

void Report(const Layout& layout) {
  const VideoRecorder::Frame frame = MakeFrame(layout);
  Nv12Picture ours;
  Nv12Picture theirs;
  const bench::Comparison result = bench::Compare(
      [&] {
        Require(ConvertFrameToNv12Planar(frame, ours.y.data(), kWidth, ours.uv.data(), kWidth),
                layout.name);
      },
      [&] {
        Require(layout.libyuv(frame.data.data(), theirs.y.data(), theirs.uv.data()) == 0,
                layout.name);
      });
  const double gigabytes = static_cast<double>(layout.bytes + kTargetBytes) / 1e9;
  std::printf("%-8s %12.2f %14.2f %8.2f\n", layout.name, gigabytes / result.ours,
              gigabytes / result.theirs, result.ratio);
}

}  // namespace

}  // namespace ostrel_native

int main() {
  std::printf(
      "NV12 conversion, 1920 x 1080, one thread; GB/s = bytes read + bytes written a second\n");
  std::printf("%-8s %12s %14s %8s\n", "layout", "ours GB/s", "libyuv GB/s", "ratio");
  for (const ostrel_native::Layout& layout : ostrel_native::kLayouts) {
    ostrel_native::Report(layout);
  }
  return 0;
}
