#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "base/PageBlock.h"

namespace voip {

/// Blocks of one size. A few that are not in use stay for the next user, so that steady traffic allocates nothing; the
/// memory of a burst goes back to the system. One thread at a time.
class BlockPool {
 public:
  /// Keeps at most `mostSpare` unused blocks.
  BlockPool(std::size_t blockSize, std::size_t mostSpare) : blockSize_(blockSize), mostSpare_(mostSpare) {}

  /// An empty block with room for `size` bytes, larger than the others if it must be. Throws std::bad_alloc.
  std::unique_ptr<PageBlock> take(std::size_t size);

  /// Takes a block back, whatever is in it.
  void giveBack(std::unique_ptr<PageBlock> block);

 private:
  const std::size_t blockSize_;
  const std::size_t mostSpare_;
  std::vector<std::unique_ptr<PageBlock>> spare_;
};

}  // namespace voip
