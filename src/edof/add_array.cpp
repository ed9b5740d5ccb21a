#include "edof/add_array.h"

#include <emmintrin.h>

namespace ostrel_native {

void AddArraySse2(float* target, const float* source, std::size_t count) {
  constexpr std::size_t kStep = 4;
  std::size_t i = 0;
  for (; count - i >= kStep; i += kStep) {
    _mm_storeu_ps(target + i, _mm_add_ps(_mm_loadu_ps(target + i), _mm_loadu_ps(source + i)));
  }
  for (; i < count; ++i) {
    target[i] += source[i];
  }
}

}  // namespace ostrel_native
