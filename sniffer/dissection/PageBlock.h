#pragma once

#include <sys/mman.h>
#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <new>

/// Memory for many records, filled from the front. It is the system's own pages, so that it is the system's again when
/// it is released.
class PageBlock {
 public:
  static constexpr std::size_t kAlignment = 16;

  static constexpr std::size_t aligned(std::size_t size) { return (size + kAlignment - 1) & ~(kAlignment - 1); }

  /// Throws std::bad_alloc.
  explicit PageBlock(std::size_t bytes) : capacity(bytes) {
    void* pages = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) throw std::bad_alloc();
    memory = static_cast<u_char*>(pages);
  }
  ~PageBlock() { munmap(memory, capacity); }
  PageBlock(const PageBlock&) = delete;
  PageBlock& operator=(const PageBlock&) = delete;

  /// `size` bytes behind what has been taken before, or null when they do not fit. `size` is aligned().
  u_char* take(std::size_t size) {
    if (capacity - used < size) return nullptr;
    u_char* start = memory + used;
    used += size;
    return start;
  }

  bool hasRoom(std::size_t size) const { return capacity - used >= size; }
  u_char* begin() const { return memory; }
  u_char* end() const { return memory + used; }
  std::size_t getCapacity() const { return capacity; }

  /// Gives the last bytes back, from `start` on.
  void cutBack(const u_char* start) { used = static_cast<std::size_t>(start - memory); }

 private:
  u_char* memory;
  const std::size_t capacity;
  std::size_t used = 0;
};
