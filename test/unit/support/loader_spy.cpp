#include "unit/support/loader_spy.h"

#include <dlfcn.h>

using ostrel_native::LoaderSpy;

namespace ostrel_native {

LoaderSpy& LoaderSpy::Instance() {
  static LoaderSpy spy;
  return spy;
}

}  // namespace ostrel_native

// The names are the linker's.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

void* __real_dlopen(const char* path, int flags);
int __real_dlclose(void* handle);
void* __real_dlvsym(void* handle, const char* symbol, const char* version);
int __real_dlinfo(void* handle, int request, void* result);

void* __wrap_dlopen(const char* path, int flags) {
  LoaderSpy& spy = LoaderSpy::Instance();
  const bool spoiled =
      path != nullptr && spy.silentlyMissing.contains(path) && --spy.opensBeforeMissing < 0;
  void* const handle = spoiled ? nullptr : __real_dlopen(path, flags);
  spy.opened.push_back({path == nullptr ? "" : path, flags, handle});
  return handle;
}

int __wrap_dlclose(void* handle) {
  LoaderSpy::Instance().closed.push_back(handle);
  return __real_dlclose(handle);
}

void* __wrap_dlvsym(void* handle, const char* symbol, const char* version) {
  LoaderSpy::Instance().versionedLookups.emplace_back(symbol, version);
  return __real_dlvsym(handle, symbol, version);
}

int __wrap_dlinfo(void* handle, int request, void* result) {
  return LoaderSpy::Instance().refuseLinkMap ? -1 : __real_dlinfo(handle, request, result);
}
}
// NOLINTEND(bugprone-reserved-identifier)
