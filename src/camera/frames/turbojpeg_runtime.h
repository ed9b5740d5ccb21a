// The TurboJPEG library that script code names, bound at run time.
#pragma once

#include <turbojpeg.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "addon/mutex.h"

namespace ostrel_native {

/// The open library and its functions. Empty until a load succeeds, complete from then on.
struct TurboJpegRuntime {
  TurboJpegRuntime() = default;
  TurboJpegRuntime(const TurboJpegRuntime&) = delete;
  TurboJpegRuntime& operator=(const TurboJpegRuntime&) = delete;
  /// Closes the library. No thread may decode any more.
  ~TurboJpegRuntime();

  Mutex loadMutex;  ///< one load installs its library; no other is taken under it
  /// Open library, or null. Written last of all at a load and with release order, so that a thread
  /// that sees it by acquire also sees the functions and `path`, which never change again.
  std::atomic<void*> handle{nullptr};
#define SYMBOL(name) decltype(&::name) name = nullptr;
#include "camera/frames/turbojpeg_symbols.h"
  std::string path;  ///< as given to the load; empty before. To be read through `LoadPath`

  /// Whether frames can be decoded.
  /// Thread: any.
  bool Available() const;

  /// Opens the library at `libraryPath`; true at once if one is loaded already.
  /// On failure false, with the last error set and nothing changed. Success leaves the last error
  /// as it is. Of several loads at once one installs its library, the others close theirs and
  /// answer true.
  /// Thread: any environment.
  bool Load(const std::string& libraryPath);

  /// The path that loaded; empty before.
  /// Thread: any.
  std::string LoadPath() const;

  /// Scales a tight plane by area average, rounded to nearest, halves up. Cells of an empty source
  /// become 0. Sizes are in bytes; the caller owns both planes.
  /// Thread: any.
  static void ResamplePlane(const std::uint8_t* source, int sourceWidth, int sourceHeight,
                            std::uint8_t* destination, int destinationWidth, int destinationHeight);
};

/// The one TurboJPEG binding of the process.
extern TurboJpegRuntime g_turboJpeg;

}  // namespace ostrel_native
