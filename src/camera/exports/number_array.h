// Plane offsets and strides as script code sees them.
#pragma once

#include <napi.h>

#include <cstddef>
#include <cstdint>

namespace ostrel_native {

/// An array of the first `count` of `values`.
/// Throws `Napi::Error` if Node-API fails. Thread: any environment.
inline Napi::Array NumberArray(Napi::Env env, const std::int32_t* values, std::int32_t count) {
  Napi::Array array = Napi::Array::New(env, static_cast<std::size_t>(count));
  for (std::int32_t i = 0; i < count; ++i) {
    array.Set(static_cast<std::uint32_t>(i), Napi::Number::New(env, values[i]));
  }
  return array;
}

}  // namespace ostrel_native
