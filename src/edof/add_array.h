// Adding one array of floats into another, in two forms that give the same bits.
#pragma once

#include <cstddef>

namespace ostrel_native {

/// Adds `source` into `target`, element by element, `count` floats each. Any alignment; the
/// arrays are the caller's and don't overlap.
/// Thread: any.
void AddArraySse2(float* target, const float* source, std::size_t count);

/// The same, for processors with AVX2 only.
/// Thread: any.
void AddArrayAvx2(float* target, const float* source, std::size_t count);

}  // namespace ostrel_native
