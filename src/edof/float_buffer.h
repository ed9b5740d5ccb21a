// Vectors with uninitialised elements: memory that is overwritten anyway is not cleared first, and
// the worker threads are the first to touch the pages of a large buffer.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <new>
#include <utility>
#include <vector>

namespace ostrel_native {

// Buffers of at least this size ask the system for huge pages.
inline constexpr std::size_t kLargeBytes = std::size_t{4} << 20;
inline constexpr std::align_val_t kHugePage{std::size_t{2} << 20};

/// The standard allocator, except that default-initialised elements stay uninitialised.
template <typename T>
struct UnsetAllocator {
  using value_type = T;

  UnsetAllocator() = default;
  template <typename U>
  UnsetAllocator(const UnsetAllocator<U>&) {}

  T* allocate(std::size_t count) {
    const std::size_t bytes = count * sizeof(T);
    if (bytes < kLargeBytes) {
      return static_cast<T*>(::operator new(bytes));
    }
    void* const place = ::operator new(bytes, kHugePage);
    madvise(place, bytes, MADV_HUGEPAGE);
    return static_cast<T*>(place);
  }
  void deallocate(T* place, std::size_t count) {
    if (count * sizeof(T) < kLargeBytes) {
      ::operator delete(place);
    } else {
      ::operator delete(place, kHugePage);
    }
  }
  template <typename U>
  void construct(U* place) {
    ::new (static_cast<void*>(place)) U;
  }
  template <typename U, typename... Arguments>
  void construct(U* place, Arguments&&... arguments) {
    ::new (static_cast<void*>(place)) U(std::forward<Arguments>(arguments)...);
  }
  bool operator==(const UnsetAllocator&) const { return true; }
};

template <typename T>
using UnsetVector = std::vector<T, UnsetAllocator<T>>;

using FloatBuffer = UnsetVector<float>;

}  // namespace ostrel_native
