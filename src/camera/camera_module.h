// Registration of everything that script code sees of the cameras.
#pragma once

#include <napi.h>

namespace ostrel_native {

/// Sets the 40 camera functions and then the 16 constants on `exports`, in a fixed order.
/// Throws `Napi::Error` if Node-API fails. Thread: any environment.
void RegisterCamera(Napi::Env env, Napi::Object exports);

}  // namespace ostrel_native
