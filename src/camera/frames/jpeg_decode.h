// Decoding one JPEG frame to the two layouts that the camera code uses.
//
// A decompressor comes from `g_turboJpeg.tjInitDecompress` and goes to `tjDestroy`; both are the
// caller's, as is the test that the runtime is available. It serves one thread at a time.
#pragma once

#include <turbojpeg.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace ostrel_native {

/// Of a picture, in pixels.
struct JpegSize {
  int width;
  int height;

  bool operator==(const JpegSize&) const = default;
};

/// The size that the data's header states; nothing if the decompressor refuses the header.
/// Thread: any.
std::optional<JpegSize> ReadJpegSize(tjhandle decompressor, const std::uint8_t* jpeg,
                                     std::size_t jpegSize);

/// Decodes to packed RGB, 3 * `width` bytes a row, into `destination` of 3 * `width` * `height`
/// bytes. A picture of another size is scaled to fit within it; what it leaves free is zero.
/// False for data that is not a whole JPEG or cannot be scaled to fit; `destination` is then
/// unspecified. Sets no last error.
/// Thread: any.
bool DecodeJpegToRgb(tjhandle decompressor, const std::uint8_t* jpeg, std::size_t jpegSize,
                     std::uint8_t* destination, int width, int height);

/// Decodes to I420 without gaps: `width` * `height` luma bytes, then U and V at half width and
/// half height, in `destination` of `capacity` bytes. A grey picture gets chroma of 128.
/// `scratch` is the caller's, kept between frames so that the steady state allocates nothing.
/// False, before any byte is written, unless the picture is of exactly `width` by `height`, both
/// even, and fits; false for data that is not a whole JPEG. Sets no last error. May throw
/// `std::bad_alloc`.
/// Thread: any.
bool DecodeJpegToI420(tjhandle decompressor, const std::uint8_t* jpeg, std::size_t jpegSize,
                      std::uint8_t* destination, std::size_t capacity, int width, int height,
                      std::vector<std::uint8_t>& scratch);

}  // namespace ostrel_native
