#pragma once

#include <cstddef>
#include <cstdint>

namespace voip {

/// Memory for many records, filled from the front. It consists of whole pages of the system, which get them back when
/// the block is destroyed. One thread at a time.
class PageBlock {
 public:
  static constexpr std::size_t kAlignment = 16;

  static constexpr std::size_t aligned(std::size_t size) { return (size + kAlignment - 1) & ~(kAlignment - 1); }

  /// Throws std::bad_alloc.
  explicit PageBlock(std::size_t capacity);
  ~PageBlock();
  PageBlock(const PageBlock&) = delete;
  PageBlock& operator=(const PageBlock&) = delete;

  /// The next `size` bytes, or null when they do not fit.
  std::uint8_t* take(std::size_t size) {
    if (!hasRoom(size)) return nullptr;
    std::uint8_t* start = memory_ + used_;
    used_ += size;
    return start;
  }

  bool hasRoom(std::size_t size) const { return capacity_ - used_ >= size; }
  std::uint8_t* begin() const { return memory_; }
  std::uint8_t* end() const { return memory_ + used_; }
  std::size_t capacity() const { return capacity_; }

  /// Gives the bytes from `start` on back.
  void cutBack(const std::uint8_t* start) { used_ = static_cast<std::size_t>(start - memory_); }

 private:
  std::uint8_t* memory_;
  const std::size_t capacity_;
  std::size_t used_ = 0;
};

}  // namespace voip
