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

/// Frees the memory of `scratch` if it is more than four times what `needed` bytes take: what one
/// large picture took is not kept for ever for small ones. Its content is then lost.
/// Thread: any; precondition: nobody else uses `scratch`.
inline void GiveBackExcess(std::vector<std::uint8_t>& scratch, std::uint64_t needed) {
  constexpr std::uint64_t kMostOfNeeded = 4;
  if (scratch.capacity() / kMostOfNeeded > needed) {
    std::vector<std::uint8_t>().swap(scratch);
  }
}

}  // namespace ostrel_native
