// Memory for frames whose backend may say one size and mean another.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace ostrel_native {

/// Grows `scratch` to hold `told` bytes for a backend to fill and `read` bytes for a conversion
/// to read, and zeroes what is read behind the told part. Padding the memory, and not the answer,
/// lets rows that a short frame only claims to have read as black.
/// Returns the first byte; never shrinks, so that a repeated grab allocates nothing.
/// Thread: any; `scratch` is the calling thread's own.
inline std::uint8_t* GrowFrameScratch(std::vector<std::uint8_t>& scratch, std::size_t told,
                                      std::size_t read) {
  const std::size_t size = std::max(told, read);
  if (scratch.size() < size) {
    scratch.resize(size);
  }
  std::fill(scratch.data() + told, scratch.data() + size, std::uint8_t{0});
  return scratch.data();
}

}  // namespace ostrel_native
