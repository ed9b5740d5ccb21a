// Adds one float array to another: an SSE2 and an AVX2 form with bit-identical results.
#pragma once

#include <cstddef>

namespace ostrel_native {

/// Adds `count` floats of `source` to `target`, element by element. Any alignment; the arrays must
/// not overlap. No ownership is transferred.
/// Thread: any.
void AddArraySse2(float* target, const float* source, std::size_t count);

/// The same. Precondition: the processor has AVX2.
/// Thread: any.
void AddArrayAvx2(float* target, const float* source, std::size_t count);

}  // namespace ostrel_native
