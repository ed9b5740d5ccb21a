// The fusion of a focus stack as script code sees it.
#pragma once

#include <napi.h>

namespace ostrel_native {

/// Sets `edofMultibandFuse` on `exports`.
/// Throws `Napi::Error` if Node-API fails. Thread: script.
void RegisterEdoF(Napi::Env env, Napi::Object exports);

/// Fuses the stack of the request object that is the first argument, and blocks until it is done.
/// Gives `data` (a Uint8Array of its own memory, R, G, B, 255), `backend`, `simd`, `threads` (the
/// limit, not the number started) and `durationMs` (of the fusion alone).
/// Every failure becomes a plain script `Error`, with undefined returned and no last error set.
/// Thread: script.
Napi::Value EdoFMultibandFuse(const Napi::CallbackInfo& info);

}  // namespace ostrel_native
