// Reading the arguments of an exported function: a missing argument, or one of another type,
// gives the fallback; nothing is coerced.
#pragma once

#include <napi.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace ostrel_native {

/// The number at `index` by Node-API's int32 conversion: fractions are cut, NaN and the
/// infinities give 0, values beyond 32 bits wrap.
/// Throws `Napi::Error` if Node-API fails. Thread: any environment.
std::int32_t ReadIntArg(const Napi::CallbackInfo& info, std::size_t index, std::int32_t fallback);

/// The number at `index` as it stands.
/// Throws `Napi::Error` if Node-API fails. Thread: any environment.
double ReadDoubleArg(const Napi::CallbackInfo& info, std::size_t index, double fallback);

/// The number at `index` cut to a whole one: what is not positive, NaN and what is no number give
/// 0, what is too large the largest.
/// Throws `Napi::Error` if Node-API fails. Thread: any environment.
std::uint64_t ReadUint64Arg(const Napi::CallbackInfo& info, std::size_t index);

/// The boolean at `index`.
/// Throws `Napi::Error` if Node-API fails. Thread: any environment.
bool ReadBoolArg(const Napi::CallbackInfo& info, std::size_t index, bool fallback);

/// The string at `index` as UTF-8, zero characters included; empty if there is none.
/// Throws `Napi::Error` if Node-API fails. Thread: any environment.
std::string ReadStringArg(const Napi::CallbackInfo& info, std::size_t index);

}  // namespace ostrel_native
