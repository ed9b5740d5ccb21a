#include "unit/support/thread_spy.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>

namespace ostrel_native::test {

namespace {

// Written by the threads that start others, read by the test; plain counters.
std::atomic<int> g_started{0};
// Starts until the failing one; 0 for none. Written by the test and counted down by starts.
std::atomic<int> g_startsUntilFailure{0};

}  // namespace

int StartedThreads() {
  return g_started;
}

FailingThreadStart::FailingThreadStart(int n) {
  g_startsUntilFailure = n;
}

FailingThreadStart::~FailingThreadStart() {
  g_startsUntilFailure = 0;
}

}  // namespace ostrel_native::test

// Stands before the C library's, for the C++ library as well: a name in the executable comes
// first in the search of the dynamic loader.
extern "C" __attribute__((visibility("default"))) int pthread_create(
    pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument) {
  using Start = decltype(&pthread_create);
  using namespace ostrel_native::test;
  if (g_startsUntilFailure > 0 && --g_startsUntilFailure == 0) {
    return EAGAIN;
  }
  static const auto next = reinterpret_cast<Start>(dlsym(RTLD_NEXT, "pthread_create"));
  const int result = next(thread, attributes, start, argument);
  if (result == 0) {
    ++g_started;
  }
  return result;
}
