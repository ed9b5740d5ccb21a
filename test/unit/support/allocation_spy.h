// The heap as seen from operator new: how often it is asked, and what happens if it has nothing.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ostrel_native::test {

/// Allocations of all threads so far.
std::uint64_t Allocations();

/// As long as it lives, an allocation of `bytes` or more fails, on any thread. One at a time.
struct FailingAllocations {
  explicit FailingAllocations(std::size_t bytes);
  ~FailingAllocations();
  FailingAllocations(const FailingAllocations&) = delete;
  FailingAllocations& operator=(const FailingAllocations&) = delete;
};

}  // namespace ostrel_native::test
