#include "forwarding/KeptMedia.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "recorder/FrameHeader.h"

namespace voip {

void KeptMedia::keep(const KeptFrame& kept, std::size_t memory) {
  const auto header = FrameHeader::of(kept.frame.data());
  u_char* start = room(PageBlock::aligned(sizeof(Record) + kept.frame.size()), memory);
  newestKept_ = monotonicNow();
  Newest& last = newest_[RtpAddr(header.dstIp, header.dstPort).key()];
  auto* record = new (start)
      Record{last.record, last.number, newestKept_, kept.stamp, static_cast<std::uint32_t>(kept.frame.size())};
  std::memcpy(record->frame(), kept.frame.data(), kept.frame.size());
  last = {record, nextNumber_++};
  ++blocks_.back().waiting;
  statistics_.lookBackWaiting.add();
}

u_char* KeptMedia::room(std::size_t size, std::size_t memory) {
  if (!blocks_.empty()) {
    if (u_char* start = blocks_.back().memory->take(size)) return start;
  }
  expire();
  const std::size_t most = std::max(memory, 2 * kBlockSize);
  while (!isPinned_ && !blocks_.empty() && (blocks_.size() + 1) * kBlockSize > most) {
    dropOldestBlock(statistics_.lookBackOverflow);
  }
  if (newest_.size() > forgetAt_) forgetEmptied();
  blocks_.push_back({pool_.take(size), nextNumber_});
  return blocks_.back().memory->take(size);
}

void KeptMedia::dropOldestBlock(Statistics::Counter& counter) {
  Block& block = blocks_.front();
  counter.add(block.waiting);
  statistics_.lookBackWaiting -= block.waiting;
  pool_.giveBack(std::move(block.memory));
  blocks_.pop_front();
}

void KeptMedia::forgetEmptied() {
  std::erase_if(newest_, [oldest = oldestNumber()](const auto& one) { return one.second.number < oldest; });
  forgetAt_ = std::max<std::size_t>(1024, newest_.size() * 2);
}

KeptMedia::Block& KeptMedia::blockOf(std::uint64_t number) {
  const auto after =
      std::upper_bound(blocks_.begin(), blocks_.end(), number,
                       [](std::uint64_t value, const Block& block) { return value < block.firstNumber; });
  return *std::prev(after);
}

std::span<const KeptFrame> KeptMedia::recall(RtpAddr destination) {
  recalled_.clear();
  isPinned_ = true;
  const auto found = newest_.find(destination.key());
  if (found == newest_.end()) return {};
  const Instant oldest = monotonicNow() - time_;
  auto [record, number] = found->second;
  while (number >= oldestNumber()) {
    --blockOf(number).waiting;
    --statistics_.lookBackWaiting;
    if (record->kept < oldest) {
      statistics_.udpDropped.add();
    } else {
      recalled_.push_back({record->stamp, {record->frame(), record->length}});
    }
    number = record->previousNumber;
    record = record->previous;
  }
  newest_.erase(found);
  std::reverse(recalled_.begin(), recalled_.end());
  return recalled_;
}

void KeptMedia::expire() {
  if (isPinned_) return;
  const Instant oldest = monotonicNow() - time_;
  // A block is as old as its last frame, which is no newer than the first frame of the next block.
  const auto isOver = [&] { return (blocks_.size() == 1 ? newestKept_ : blocks_[1].first()->kept) < oldest; };
  while (!blocks_.empty() && isOver()) dropOldestBlock(statistics_.udpDropped);
  if (blocks_.empty()) newest_.clear();
}

}  // namespace voip
