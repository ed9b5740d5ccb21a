// Promises for work that blocks: a callable runs on a pool thread, its outcome settles a promise.
//
// A callable that returns resolves the promise, also where what it returns tells of a failure.
// One that throws rejects it with the exception's text; where that text is empty, the promise
// resolves with false, -1 or no devices. The last error is not touched.
//
// A callable owns all that it uses: no script value, no reference into its caller. It occupies
// one of the runtime's few pool threads for as long as it runs.
#pragma once

#include <napi.h>

#include <functional>
#include <string>
#include <vector>

#include "addon/vendor_device_snapshot.h"

namespace ostrel_native {

/// The promise of a boolean. `name` is what the runtime's async hooks see; it is copied.
/// Throws `Napi::Error`, and `work` never runs, if Node-API fails.
/// Thread: any environment.
Napi::Value RunBooleanAsync(Napi::Env env, const std::string& name, std::function<bool()> work);

/// The promise of a number, in the same way.
/// Thread: any environment.
Napi::Value RunIntegerAsync(Napi::Env env, const std::string& name, std::function<int()> work);

/// The promise of an array of { index, uniqueId, name }, in the order of the list.
/// Thread: any environment.
Napi::Value RunVendorDeviceListAsync(Napi::Env env, const std::string& name,
                                     std::function<std::vector<VendorDeviceSnapshot>()> work);

}  // namespace ostrel_native
