// JPEG pictures for tests, made and read back by the real library, which the tests open for
// themselves: what the addon binds is not part of making its own expectations.
#pragma once

#include <dlfcn.h>
#include <turbojpeg.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <utility>
#include <vector>

#include "camera/frames/turbojpeg_runtime.h"

namespace ostrel_native {

inline constexpr char kTurboJpegName[] = "libturbojpeg.so.0";

/// A function of the real library. Throws if the library is not installed, which fails the test.
template <typename Fn>
Fn* TurboJpegFunction(const char* name, Fn*) {
  static void* const library = dlopen(kTurboJpegName, RTLD_NOW);
  void* const symbol = library == nullptr ? nullptr : dlsym(library, name);
  if (symbol == nullptr) {
    throw std::runtime_error("libturbojpeg.so.0 is not installed (Debian: libturbojpeg0)");
  }
  return reinterpret_cast<Fn*>(symbol);
}
#define TURBOJPEG(name) TurboJpegFunction<std::remove_pointer_t<decltype(&::name)>>(#name, nullptr)

/// A coloured, detailed RGB picture, rows tight.
inline std::vector<std::uint8_t> SamplePicture(int width, int height) {
  std::vector<std::uint8_t> rgb;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      rgb.push_back(static_cast<std::uint8_t>(x * 29 + y * 7));
      rgb.push_back(static_cast<std::uint8_t>(255 - x * 13));
      rgb.push_back(static_cast<std::uint8_t>((x ^ y) * 17));
    }
  }
  return rgb;
}

/// An RGB picture, rows tight, as a JPEG; `subsampling` is a `TJSAMP_` code.
inline std::vector<std::uint8_t> JpegOf(const std::vector<std::uint8_t>& rgb, int width, int height,
                                        int subsampling) {
  const tjhandle compressor = TURBOJPEG(tjInitCompress)();
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  const int result = TURBOJPEG(tjCompress2)(compressor, rgb.data(), width, 0, height, TJPF_RGB,
                                            &bytes, &size, subsampling, 90, 0);
  std::vector<std::uint8_t> jpeg(bytes, bytes + size);
  TURBOJPEG(tjFree)(bytes);
  TURBOJPEG(tjDestroy)(compressor);
  if (result != 0) {
    throw std::runtime_error("tjCompress2 failed");
  }
  return jpeg;
}

/// A coloured, detailed picture as a JPEG.
inline std::vector<std::uint8_t> SampleJpeg(int width, int height, int subsampling) {
  return JpegOf(SamplePicture(width, height), width, height, subsampling);
}

/// One plane of a decoded JPEG, rows tight.
struct JpegPlane {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> data;
};

/// A JPEG's own planes: Y, U and V, or Y alone of a grey one.
struct DecodedJpeg {
  int width = 0;   ///< pixels
  int height = 0;  ///< pixels
  int subsampling = 0;
  std::vector<JpegPlane> planes;
};

/// Decodes as the addon does, fast and to planes, but in their own sizes.
inline DecodedJpeg DecodeJpegPlanes(const std::vector<std::uint8_t>& jpeg) {
  const tjhandle decompressor = TURBOJPEG(tjInitDecompress)();
  DecodedJpeg decoded;
  int colorspace = 0;
  int result =
      TURBOJPEG(tjDecompressHeader3)(decompressor, jpeg.data(), jpeg.size(), &decoded.width,
                                     &decoded.height, &decoded.subsampling, &colorspace);
  const int planeCount = decoded.subsampling == TJSAMP_GRAY ? 1 : 3;
  unsigned char* data[3] = {};
  for (int i = 0; result == 0 && i < planeCount; ++i) {
    JpegPlane plane;
    plane.width = TURBOJPEG(tjPlaneWidth)(i, decoded.width, decoded.subsampling);
    plane.height = TURBOJPEG(tjPlaneHeight)(i, decoded.height, decoded.subsampling);
    plane.data.resize(static_cast<std::size_t>(plane.width) *
                      static_cast<std::size_t>(plane.height));
    decoded.planes.push_back(std::move(plane));
    data[i] = decoded.planes.back().data.data();
  }
  if (result == 0) {
    result =
        TURBOJPEG(tjDecompressToYUVPlanes)(decompressor, jpeg.data(), jpeg.size(), data,
                                           decoded.width, nullptr, decoded.height, TJFLAG_FASTDCT);
  }
  TURBOJPEG(tjDestroy)(decompressor);
  if (result != 0) {
    throw std::runtime_error("the JPEG cannot be decoded");
  }
  return decoded;
}

/// Puts `g_turboJpeg` back into its empty state.
inline void UnloadTurboJpeg() {
  void* const library = g_turboJpeg.handle.exchange(nullptr);
#define SYMBOL(name) g_turboJpeg.name = nullptr;
#include "camera/frames/turbojpeg_symbols.h"
  g_turboJpeg.path.clear();
  if (library != nullptr) {
    dlclose(library);
  }
}

}  // namespace ostrel_native
