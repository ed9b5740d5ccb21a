// The module's entry: the one place that knows all subsystems.
#pragma once

#include <napi.h>

namespace ostrel_native {

/// Fills `exports` with the functions of the frame and then of each subsystem, and returns it.
/// Throws `Napi::Error` if a Node-API call fails; what was set until then stays set.
/// Thread: any environment.
Napi::Object InitAddon(Napi::Env env, Napi::Object exports);

}  // namespace ostrel_native
