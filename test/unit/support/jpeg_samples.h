// JPEG pictures for tests, made and read back by the real library, which the tests open for
// themselves: what the addon binds is not part of making its own expectations.
#pragma once

#include <dlfcn.h>
#include <turbojpeg.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <vector>

#include "camera/turbojpeg_runtime.h"

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

/// Puts `g_turboJpeg` back into its empty state.
inline void UnloadTurboJpeg() {
  void* const library = g_turboJpeg.handle.exchange(nullptr);
#define SYMBOL(name) g_turboJpeg.name = nullptr;
#include "camera/turbojpeg_symbols.h"
  g_turboJpeg.path.clear();
  if (library != nullptr) {
    dlclose(library);
  }
}

}  // namespace ostrel_native
