#include "base/BlockPool.h"

#include <algorithm>
#include <utility>

namespace voip {

std::unique_ptr<PageBlock> BlockPool::take(std::size_t size) {
  if (size > blockSize_ || spare_.empty()) return std::make_unique<PageBlock>(std::max(size, blockSize_));
  std::unique_ptr<PageBlock> block = std::move(spare_.back());
  spare_.pop_back();
  return block;
}

void BlockPool::giveBack(std::unique_ptr<PageBlock> block) {
  if (spare_.size() >= maxSpare_ || block->capacity() != blockSize_) return;
  block->truncate(block->begin());
  spare_.push_back(std::move(block));
}

}  // namespace voip
