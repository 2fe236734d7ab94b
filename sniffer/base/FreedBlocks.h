#pragma once

#include <cstddef>

namespace voip {

/// Makes the allocator finish its work in small steps. glibc keeps small freed blocks apart, and joins all of them when
/// a large block is freed or requested. A thread that has freed hundreds of thousands would wait for milliseconds then,
/// in the middle of a frame. One thread: the one that frees the blocks.
class FreedBlocks {
 public:
  /// Notes that about `count` blocks were freed.
  void add(std::size_t count) {
    count_ += count;
    if (count_ >= kMost) join();
  }

 private:
  static constexpr std::size_t kMost = 256;

  void join();

  std::size_t count_ = 0;
};

}  // namespace voip
