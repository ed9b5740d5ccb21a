// The one place that knows which camera library is in use: the open library, the tables of its
// entry points, and what the addon remembers per device.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include "addon/mutex.h"
#include "camera/camera_pixel_format.h"
#include "camera/camera_types.h"

namespace ostrel_native {

/// Called by a DirectShow backend, on a thread of its own, for each frame.
/// `data`: `size` bytes, the backend's until the call returns. `flipped`: the rows of each plane
/// run bottom up.
using DirectFrameCallbackFn = void (*)(std::int32_t device, const std::uint8_t* data,
                                       std::uint64_t size, std::int32_t flipped, void* context);

/// Called by an AVFoundation backend, on a thread of its own, for each frame.
/// Each plane: a pointer, its size in bytes, its stride in bytes. `timestamp`: nanoseconds.
using AvfDirectFrameCallbackFn = void (*)(std::int32_t device, std::int32_t format,
                                          std::int32_t width, std::int32_t height,
                                          std::int32_t planeCount, const std::uint8_t* plane0,
                                          std::uint64_t plane0Size, std::int32_t plane0Stride,
                                          const std::uint8_t* plane1, std::uint64_t plane1Size,
                                          std::int32_t plane1Stride, std::int64_t timestamp,
                                          void* context);

/// The camera library and its tables. Every camera operation reads `kind` first and calls an
/// entry of that kind's table only; an absent entry is null. Calls go to the library on whatever
/// thread they come from, several at once.
///
/// The library is never closed: it stays loaded until the process ends.
///
/// Members: loading and remembered sizes in camera_binding.cpp, answers about the current frame in
/// frame_geometry.cpp, RGB grabs in frames/dshow_frame_rgb.cpp and frames/frame_grab.cpp.
struct CameraBinding {
  Mutex loadMutex;  ///< one load installs its library; no other is taken under it
  void* handle OSTREL_GUARDED_BY(loadMutex) = nullptr;  ///< open library, or null
  bool loaded OSTREL_GUARDED_BY(loadMutex) = false;
  /// Which table may be used. Written last of all at a load and with release order, so that a
  /// thread that sees a kind by acquire also sees its table and `path`, which never change again.
  std::atomic<BackendKind> kind{BackendKind::None};
  std::string path;  ///< the candidate that loaded; empty before. To be read through `LoadPath`
  mutable Mutex dimensionsMutex;  ///< no other is taken under it
  std::vector<CaptureDimensions> captureDimensions
      OSTREL_GUARDED_BY(dimensionsMutex);  ///< by device

#define REQUIRED(name, result, parameters) result(*name) parameters = nullptr;
#define OPTIONAL(name, result, parameters) result(*name) parameters = nullptr;
#include "camera/backend/cnokhwa_symbols.h"
#define OPTIONAL(name, result, parameters) result(*name) parameters = nullptr;
#include "camera/backend/dshow_symbols.h"
#define OPTIONAL(name, result, parameters) result(*name) parameters = nullptr;
#include "camera/backend/avf_symbols.h"

  template <typename Fn>
  using EntryMember = Fn CameraBinding::*;

  /// The entry of the current kind's table, or null with no backend, for a kind whose member is
  /// given as null, and for an absent entry.
  /// Thread: any.
  template <typename Fn>
  Fn Entry(std::type_identity_t<EntryMember<Fn>> linuxEntry, EntryMember<Fn> dshowEntry,
           std::type_identity_t<EntryMember<Fn>> avfEntry) const {
    EntryMember<Fn> member = nullptr;
    switch (kind.load(std::memory_order_acquire)) {
      case BackendKind::Linux:
        member = linuxEntry;
        break;
      case BackendKind::DirectShow:
        member = dshowEntry;
        break;
      case BackendKind::AvFoundation:
        member = avfEntry;
        break;
      case BackendKind::None:
        break;
    }
    return member == nullptr ? nullptr : this->*member;
  }

  /// Opens the camera library: `explicitPath` alone if it is not empty, otherwise the default
  /// names. True if a library is loaded, also by an earlier call, which is then left as it is.
  /// On failure false, with the last error set; on a fresh success the last error is cleared. Of
  /// several loads at once one installs its library, the others close theirs and answer true.
  /// Thread: any environment.
  bool Load(const std::string& explicitPath);

  /// The candidate that loaded; empty before.
  /// Thread: any.
  std::string LoadPath() const;

  /// The current frame's width or height in pixels, unchecked on Linux; -1 if unknown. The
  /// other kinds fall back to the size that capture was started with.
  /// Thread: any.
  std::int32_t FrameWidth(int device) const;
  std::int32_t FrameHeight(int device) const;

  /// Bytes a row of the frames that the backend delivers; -1 if unknown, 0 for a JPEG frame
  /// without rows.
  /// Thread: any.
  std::int32_t PreviewFrameBytesPerRow(int device) const;

  /// Bytes of a frame that the backend delivers; -1 if unknown or beyond int32.
  /// Thread: any.
  std::int32_t PreviewFrameDataSize(int device) const;

  /// Whether a frame can be grabbed: 0 yes, -256 not yet, any other value is the backend's
  /// error; -6 without a backend or an entry.
  /// Thread: any.
  int FirstFrameResult(int device) const;

  /// The backend's code of the frame layout, or `fallback` without such an entry.
  /// Thread: any.
  CameraPixelFormat FramePixelFormat(int device, CameraPixelFormat fallback) const;

  /// The same with the platform's usual layout as the fallback: BGRA for DirectShow, else RGB.
  /// Thread: any.
  CameraPixelFormat FramePixelFormat(int device) const;

  /// The backend's plane count, unchecked; 1 without such an entry.
  /// Thread: any.
  int PlaneCount(int device) const;

  /// Byte offset of a plane in a frame; -`plane` without such an entry.
  /// Thread: any.
  int PlaneOffset(int device, int plane) const;

  /// Bytes a row of a plane; without such an entry `bytesPerRow` for plane 0 and 0 for others.
  /// Thread: any.
  int PlaneStride(int device, int plane, std::int32_t bytesPerRow) const;

  /// Grabs a DirectShow frame of any layout as packed RGB, 3 bytes a pixel, into `buffer` of
  /// `capacity` bytes, which the caller owns.
  /// 0; -6 no entry; -10 no buffer or size; -11 no room; -13 layout not convertible or no
  /// TurboJPEG; -8 decode failed; or the backend's code. Sets no last error.
  /// Thread: any; scratch memory is per thread.
  int GrabCdshowFrameRgb(int device, void* buffer, int capacity) const;

  /// Grabs an AVFoundation frame as packed RGB, rows tight, into `buffer` of `capacity` bytes,
  /// which the caller owns.
  /// 0; -6 no entry; -10 no buffer or size; -11 no room; -8 the grab failed. Sets no last error.
  /// Thread: any; scratch memory is per thread.
  int GrabAvfFrameRgb(int device, void* buffer, int capacity) const;

  /// Remembers the size that capture was started with, each side raised to at least 0. Indices
  /// that are negative or beyond any real device count are not kept.
  /// Thread: any.
  void RememberDimensions(int device, std::int32_t width, std::int32_t height);

  /// The remembered size; {0, 0} if none.
  /// Thread: any.
  CaptureDimensions RememberedDimensions(int device) const;
};

/// The name of a backend kind for script code; "none" for a kind that is none of them.
/// Thread: any.
const char* BackendName(BackendKind kind);

/// The one camera binding of the process.
extern CameraBinding g_camera;

}  // namespace ostrel_native
