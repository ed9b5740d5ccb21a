#include "unit/support/symbol_spy.h"

namespace ostrel_native {

std::vector<std::string>& LookedUpSymbols() {
  static std::vector<std::string> names;
  return names;
}

}  // namespace ostrel_native

// The names are the linker's.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

void* __real_dlsym(void* handle, const char* symbol);

void* __wrap_dlsym(void* handle, const char* symbol) {
  ostrel_native::LookedUpSymbols().emplace_back(symbol);
  return __real_dlsym(handle, symbol);
}
}
// NOLINTEND(bugprone-reserved-identifier)
