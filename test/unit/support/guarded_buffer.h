// A buffer whose last byte is the last byte before a page that nothing may touch.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

namespace ostrel_native::test {

/// `size` bytes that end at a forbidden page: reading or writing one byte too many ends the test
/// with a fault, in every build.
class GuardedBuffer {
 public:
  explicit GuardedBuffer(std::size_t size, std::uint8_t fill = 0) : bytes(size) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t readable = (size + page - 1) / page * page;
    mapped = readable + page;
    void* const address =
        mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (address == MAP_FAILED) {
      throw std::bad_alloc();
    }
    base = static_cast<std::uint8_t*>(address);
    if (mprotect(base + readable, page, PROT_NONE) != 0) {
      munmap(base, mapped);
      throw std::bad_alloc();
    }
    first = base + readable - size;
    std::memset(first, fill, size);
  }
  ~GuardedBuffer() { munmap(base, mapped); }
  GuardedBuffer(const GuardedBuffer&) = delete;
  GuardedBuffer& operator=(const GuardedBuffer&) = delete;

  std::uint8_t* data() { return first; }
  const std::uint8_t* data() const { return first; }
  std::size_t size() const { return bytes; }
  std::uint8_t* begin() { return first; }
  std::uint8_t* end() { return first + bytes; }

 private:
  std::size_t bytes;
  std::size_t mapped;
  std::uint8_t* base;
  std::uint8_t* first;
};

}  // namespace ostrel_native::test
