#pragma once

#include <cstddef>
#include <cstdint>

namespace voip {

/// Memory for many records, filled from its beginning. It consists of whole pages, which return to the system when the
/// block is destroyed. One thread at a time.
class PageBlock {
 public:
  /// Alignment of records in bytes.
  static constexpr std::size_t kAlignment = 16;

  /// Returns `size` rounded up to the alignment. Records stay aligned when the size of each is.
  static constexpr std::size_t aligned(std::size_t size) { return (size + kAlignment - 1) & ~(kAlignment - 1); }

  /// Allocates `capacity` bytes, which are zeroed. Throws std::bad_alloc.
  explicit PageBlock(std::size_t capacity);
  ~PageBlock();
  PageBlock(const PageBlock&) = delete;
  PageBlock& operator=(const PageBlock&) = delete;

  /// Returns the next `size` bytes, which the block owns, or null when they do not fit.
  std::uint8_t* take(std::size_t size) {
    if (!hasRoom(size)) return nullptr;
    std::uint8_t* start = memory_ + used_;
    used_ += size;
    return start;
  }

  /// True when take() of `size` bytes succeeds.
  bool hasRoom(std::size_t size) const { return capacity_ - used_ >= size; }

  /// The bytes in use: from begin() up to, not including, end().
  std::uint8_t* begin() const { return memory_; }
  std::uint8_t* end() const { return memory_ + used_; }

  /// Size of the block in bytes.
  std::size_t capacity() const { return capacity_; }

  /// Frees the bytes from `start` to end(). `start` is a result of take(), or begin().
  void truncate(const std::uint8_t* start) { used_ = static_cast<std::size_t>(start - memory_); }

 private:
  std::uint8_t* memory_;
  const std::size_t capacity_;
  std::size_t used_ = 0;
};

}  // namespace voip
