#include "forwarding/SentFrames.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace voip {

SentFrames::SentFrames(Instant time, Instant age, std::size_t memory, Statistics& statistics)
    : time_(time), age_(age), memory_(std::max(memory, kLeastMemory)), statistics_(statistics) {}

void SentFrames::keep(const KeptFrame& kept, Instant now) {
  const std::size_t size = sizeOf(kept.frame.size());
  Block& block = blockFor(size, now);
  auto* record = reinterpret_cast<Record*>(block.memory->take(size));
  const Instant firstSent = kept.firstSent == Instant(0) ? now : kept.firstSent;
  *record = {now, firstSent, kept.stamp, static_cast<std::uint32_t>(kept.frame.size())};
  std::memcpy(record->frame(), kept.frame.data(), kept.frame.size());
  block.newest = now;
  ++block.frames;
}

/// Returns a block with space for a record. Drops expired blocks, and the oldest ones when the memory is used up.
SentFrames::Block& SentFrames::blockFor(std::size_t size, Instant now) {
  if (!blocks_.empty() && blocks_.back().memory->hasRoom(size)) return blocks_.back();
  expire(now);
  while (!blocks_.empty() && (blocks_.size() + 1) * kBlockSize > memory_) {
    statistics_.resendForgotten.add(blocks_.front().frames);
    dropOldestBlock();
  }
  Block block{pool_.take(size)};
  blocks_.push_back(std::move(block));
  return blocks_.back();
}

void SentFrames::expire(Instant now) {
  while (!blocks_.empty() && blocks_.front().newest < now - time_) dropOldestBlock();
}

void SentFrames::dropOldestBlock() {
  std::unique_ptr<PageBlock> memory = std::move(blocks_.front().memory);
  blocks_.pop_front();
  pool_.giveBack(std::move(memory));
}

}  // namespace voip
