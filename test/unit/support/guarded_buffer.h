// A buffer whose last byte is the last of a readable page: a read or write one byte behind it
// ends the test at once, also without a sanitizer.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <new>

namespace ostrel_native {

/// `size` zeroed bytes in front of an unreadable page, freed with the object.
class GuardedBuffer {
 public:
  explicit GuardedBuffer(std::size_t size) : size_(size) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t pages = (size + page - 1) / page;
    mappedBytes_ = (pages + 1) * page;
    void* const mapped =
        mmap(nullptr, mappedBytes_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) {
      throw std::bad_alloc();
    }
    mapped_ = static_cast<std::uint8_t*>(mapped);
    mprotect(mapped_ + pages * page, page, PROT_NONE);
    data_ = mapped_ + pages * page - size;
  }
  GuardedBuffer(const GuardedBuffer&) = delete;
  GuardedBuffer& operator=(const GuardedBuffer&) = delete;
  ~GuardedBuffer() { munmap(mapped_, mappedBytes_); }

  std::uint8_t* data() { return data_; }
  std::size_t size() const { return size_; }

 private:
  std::size_t size_;
  std::size_t mappedBytes_ = 0;
  std::uint8_t* mapped_ = nullptr;
  std::uint8_t* data_ = nullptr;
};

}  // namespace ostrel_native
