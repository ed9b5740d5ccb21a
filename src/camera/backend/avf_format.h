// Reading the one-line format descriptors of AVFoundation cameras, such as
// "1920x1080; yuv2; 30 fps".
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace ostrel_native {

/// One capture format as its descriptor tells it.
struct AvfFormat {
  std::int32_t width = 0;       ///< pixels
  std::int32_t height = 0;      ///< pixels
  std::int32_t frameRate = 30;  ///< frames a second, fractions cut
  std::string type;             ///< the second part, or the whole descriptor without one
};

/// The first run of digits in `text` as a number; a sign before it does not count. 0 if there is
/// none or if it exceeds int32.
/// Thread: any.
std::int32_t ExtractFirstPositiveInt(std::string_view text);

/// Reads a descriptor of parts between semicolons: the size, the type, then whatever else, of
/// which the first part that reads as a rate gives the frame rate. What cannot be read keeps the
/// defaults. Letters and spaces are those of ASCII.
/// Thread: any.
AvfFormat ParseAvfDescriptor(const std::string& descriptor);

}  // namespace ostrel_native
