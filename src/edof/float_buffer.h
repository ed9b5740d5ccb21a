// Vectors whose elements begin unset: what is overwritten anyway need not be cleared, and the
// pages of a large buffer are first touched by the threads that work on it.
#pragma once

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace ostrel_native {

/// The standard allocator, but for elements without an initial value, which it leaves unset.
template <typename T>
struct UnsetAllocator {
  using value_type = T;

  UnsetAllocator() = default;
  template <typename U>
  UnsetAllocator(const UnsetAllocator<U>&) {}

  T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
  void deallocate(T* place, std::size_t count) { std::allocator<T>().deallocate(place, count); }
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
