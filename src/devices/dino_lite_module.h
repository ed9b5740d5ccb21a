// Registration of everything that script code sees of the Dino-Lite microscopes.
#pragma once

#include <napi.h>

namespace ostrel_native {

/// Sets the 23 functions on `exports`, in a fixed order.
/// Throws `Napi::Error` if Node-API fails. Thread: any environment.
void RegisterDinoLite(Napi::Env env, Napi::Object exports);

}  // namespace ostrel_native
