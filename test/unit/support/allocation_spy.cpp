#include "unit/support/allocation_spy.h"

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace ostrel_native::test {

namespace {

std::atomic<std::uint64_t> g_allocations{0};
std::atomic<std::size_t> g_failingSize{std::numeric_limits<std::size_t>::max()};

}  // namespace

std::uint64_t Allocations() {
  return g_allocations;
}

FailingAllocations::FailingAllocations(std::size_t bytes) {
  g_failingSize = bytes;
}

FailingAllocations::~FailingAllocations() {
  g_failingSize = std::numeric_limits<std::size_t>::max();
}

}  // namespace ostrel_native::test

void* operator new(std::size_t size) {
  using namespace ostrel_native::test;
  ++g_allocations;
  void* const memory = size >= g_failingSize ? nullptr : std::malloc(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
