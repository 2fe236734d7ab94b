#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "base/PageBlock.h"

namespace voip {

/// Reusable blocks of memory of one size. The pool keeps a few unused blocks, so that steady traffic allocates nothing,
/// and returns the memory of a burst to the system. One thread at a time.
class BlockPool {
 public:
  /// `blockSize` in bytes. The pool keeps at most `maxSpare` unused blocks.
  BlockPool(std::size_t blockSize, std::size_t maxSpare) : blockSize_(blockSize), maxSpare_(maxSpare) {}

  /// Returns an empty block with space for `size` bytes. A `size` beyond the pool's block size gets a block of exactly
  /// that size. Throws std::bad_alloc.
  std::unique_ptr<PageBlock> take(std::size_t size);

  /// Takes back a block and discards its content. Destroys the block when the pool has enough spare ones or the block
  /// is of another size. Throws std::bad_alloc.
  void giveBack(std::unique_ptr<PageBlock> block);

 private:
  const std::size_t blockSize_;
  const std::size_t maxSpare_;
  std::vector<std::unique_ptr<PageBlock>> spare_;
};

}  // namespace voip
