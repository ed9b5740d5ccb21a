// Memory for script code, from the environment's own allocating functions. Where there is none left
// they throw a RangeError; Node-API's way of making a buffer would end the process.
#pragma once

#include <napi.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace ostrel_native {

/// What the addon keeps of one environment, from its load there to the environment's end; its
/// instance data.
struct EnvironmentData {
  Napi::FunctionReference byteArrayConstructor;  ///< `Uint8Array`
  Napi::FunctionReference bufferAllocator;       ///< `Buffer.allocUnsafeSlow`
  std::shared_ptr<void> directDelivery;          ///< of the camera's direct delivery; may be null
};

/// Keeps the allocating functions as they are now, so that script code that replaces them later
/// changes nothing. Throws `Napi::Error` if Node-API fails.
/// Thread: any environment, at the addon's load.
void KeepEnvironmentData(Napi::Env env);

/// Precondition: `KeepEnvironmentData` has run in `env`. Thread: any environment.
EnvironmentData& EnvironmentDataOf(Napi::Env env);

/// A zeroed `Uint8Array` of `bytes` bytes that has its `ArrayBuffer` for itself. Runs no code but
/// the engine's own unless script code had replaced the function before the addon was loaded.
/// Throws `Napi::Error`, a RangeError, if there is no memory. Thread: any environment.
Napi::Uint8Array NewByteArray(Napi::Env env, std::size_t bytes);

/// As `NewByteArray`, but a `Buffer` whose bytes are not set.
Napi::Uint8Array NewBuffer(Napi::Env env, std::size_t bytes);

/// As `NewBuffer`, with a copy of `bytes` bytes. `data` may be null if `bytes` is 0.
Napi::Uint8Array CopyToBuffer(Napi::Env env, const std::uint8_t* data, std::size_t bytes);

}  // namespace ostrel_native
