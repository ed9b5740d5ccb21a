// Arrays that script code lends for frames.
#pragma once

#include <napi.h>

#include <cstddef>
#include <cstdint>

namespace ostrel_native {

/// A `Uint8Array` over a plain `ArrayBuffer`, as it stands now: script code may detach or resize
/// its memory whenever it runs.
struct LentArray {
  bool isByteArray = false;      ///< false: any other value, and nothing below is set
  std::uint8_t* data = nullptr;  ///< script code's; may be null if `bytes` is 0
  std::size_t bytes = 0;         ///< 0 for a detached array
  Napi::Value arrayBuffer;
  std::size_t byteOffset = 0;  ///< in `arrayBuffer`

  /// A new `Uint8Array` of the first `size` bytes of the same memory.
  /// Throws `Napi::Error` if Node-API fails. Thread: any environment.
  Napi::Value View(std::size_t size) const;
};

/// Node-API makes no view of a `SharedArrayBuffer`, so an array over one counts as another value.
/// Throws `Napi::Error` if Node-API fails. Thread: any environment.
LentArray ReadLentArray(const Napi::Value& value);

}  // namespace ostrel_native
