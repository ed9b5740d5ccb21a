// Stands in for the one function of Node-API that the preview's core reaches without Node.js: the
// references to lent arrays let go of them.
#pragma once

#include <napi.h>

#include <cstdint>
#include <functional>
#include <memory>

namespace ostrel_native::test {

/// Told of each reference that is let go. Unset, which is the default, letting go of one ends the
/// test: nothing that has no array may come here.
inline std::function<void(napi_ref)> g_onDeleteReference;

/// Gives `reference`, which is empty, an array that only the stub knows, told apart by `number`,
/// which is not 0. An assignment would need more of Node-API.
inline void SetFakeReference(Napi::Reference<Napi::Object>& reference, std::uintptr_t number) {
  std::destroy_at(&reference);
  std::construct_at(&reference, nullptr, reinterpret_cast<napi_ref>(number));
}

}  // namespace ostrel_native::test
