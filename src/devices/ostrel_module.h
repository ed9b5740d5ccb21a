// Registration of everything that script code sees of the Ostrel microscopes.
#pragma once

#include <napi.h>

namespace ostrel_native {

/// Sets the 28 functions on `exports`, in a fixed order.
/// Throws `Napi::Error` if Node-API fails. Thread: any environment.
void RegisterOstrel(Napi::Env env, Napi::Object exports);

}  // namespace ostrel_native
