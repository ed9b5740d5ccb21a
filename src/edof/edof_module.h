// Script export of the focus stack fusion.
#pragma once

#include <napi.h>

namespace ostrel_native {

/// Sets `edofMultibandFuse` on `exports`.
/// Throws `Napi::Error` if Node-API fails. Thread: any environment.
void RegisterEdoF(Napi::Env env, Napi::Object exports);

/// Fuses the stack described by the request object in the first argument; blocks until done.
/// Returns `data` (a new Uint8Array, R, G, B, 255), `backend`, `simd`, `threads` (the limit, not
/// the number started) and `durationMs` (of the fusion alone).
/// Every failure becomes a plain script `Error`; returns undefined and sets no last error.
/// Thread: any environment.
Napi::Value EdoFMultibandFuse(const Napi::CallbackInfo& info);

}  // namespace ostrel_native
