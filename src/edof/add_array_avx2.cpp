// Compiled for AVX2 by an attribute, not by a flag for the file: a flag would also reach inline
// functions of headers, and the linker might keep those for processors without it.
#include <immintrin.h>

#include "edof/add_array.h"

namespace ostrel_native {

__attribute__((target("avx2"))) void AddArrayAvx2(float* target, const float* source,
                                                  std::size_t count) {
  constexpr std::size_t kStep = 8;
  std::size_t i = 0;
  for (; count - i >= kStep; i += kStep) {
    _mm256_storeu_ps(target + i,
                     _mm256_add_ps(_mm256_loadu_ps(target + i), _mm256_loadu_ps(source + i)));
  }
  for (; i < count; ++i) {
    target[i] += source[i];
  }
}

}  // namespace ostrel_native
