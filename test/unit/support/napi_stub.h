// Stands in for the one function of Node-API that the preview's core reaches without Node.js: the
// references to lent arrays let go of them.
#pragma once

#include <napi.h>

#include <cstdint>
#include <functional>

namespace ostrel_native::test {

/// Told of each reference that is let go. Unset, which is the default, letting go of one ends the
/// test: nothing that has no array may come here.
inline std::function<void(napi_ref)> g_onDeleteReference;

/// A reference that only the stub knows, told apart by `number`, which is not 0.
inline Napi::Reference<Napi::Object> FakeReference(std::uintptr_t number) {
  return {nullptr, reinterpret_cast<napi_ref>(number)};
}

}  // namespace ostrel_native::test
