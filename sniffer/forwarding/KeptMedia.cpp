#include "forwarding/KeptMedia.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "recorder/FrameHeader.h"

namespace voip {

namespace {

// An eighth of the memory is for the table of destinations.
constexpr std::size_t kTableShare = 8;
constexpr std::size_t kDestinationSize = 72;  // bytes in the table
constexpr std::size_t kMinDestinations = 1024;
constexpr int kLookedUpAtOnce = 16'384;  // frames of a recall
constexpr int kMostExpired = 16;         // blocks that one call drops

std::size_t destinationsFor(std::size_t memory) {
  return std::max(kMinDestinations, memory / kTableShare / kDestinationSize);
}

}  // namespace

KeptMedia::KeptMedia(Instant time, std::size_t memory, Statistics& statistics)
    : time_(time),
      memory_(std::max(memory - memory / kTableShare, 2 * kBlockSize)),
      statistics_(statistics),
      newest_(destinationsFor(memory)) {}

// ---- keeping ----

void KeptMedia::keep(const KeptFrame& kept, std::size_t reserved) {
  const Newest added = append(kept, reserved);
  link(newestOf(FrameHeader::destinationOf(kept.frame.data())), added);
}

/// Adds a record without a link.
KeptMedia::Newest KeptMedia::append(const KeptFrame& kept, std::size_t reserved) {
  std::uint8_t* start = allocate(PageBlock::aligned(sizeof(Record) + kept.frame.size()), reserved);
  newestKept_ = monotonicNow();
  const auto length = static_cast<std::uint32_t>(kept.frame.size());
  auto* record = new (start) Record{nullptr, 0, newestKept_, kept.stamp, kept.firstSent, length};
  std::memcpy(record->frame(), kept.frame.data(), kept.frame.size());
  ++blocks_.back().waiting;
  statistics_.lookBackWaiting.add();
  return {record, nextNumber_++};
}

void KeptMedia::putBack(const KeptFrame& kept, std::size_t reserved) {
  const Newest added = append(kept, reserved);
  link(putBack_[FrameHeader::destinationOf(kept.frame.data())], added);
}

void KeptMedia::link(Newest& last, const Newest& added) {
  added.record->previous = last.record;
  added.record->previousNumber = last.number;
  last = added;
}

void KeptMedia::endPutBack() {
  for (const auto& [destination, last] : putBack_) prepend(destination, last);
  putBack_.clear();
}

/// Links the kept frames of a destination to earlier ones, of which `last` is the newest.
void KeptMedia::prepend(const IpEndpoint& destination, const Newest& last) {
  Newest& newest = newestOf(destination);
  if (!isKept(newest.number)) {
    newest = last;
    return;
  }
  Record* first = newest.record;
  while (isKept(first->previousNumber)) first = first->previous;
  first->previous = last.record;
  first->previousNumber = last.number;
}

KeptMedia::Newest& KeptMedia::newestOf(const IpEndpoint& destination) {
  const std::uint64_t hash = IpEndpointHash()(destination);
  if (Newest* found = newest_.find(destination, hash)) {
    newest_.move(*found);
    return *found;
  }
  forgetEmptied(2);
  if (newest_.isFull()) newest_.erase(*newest_.oldest());
  return newest_.insert(destination, hash);
}

/// Forgets destinations whose frames have all been dropped, a few at a time, so that no frame is delayed.
void KeptMedia::forgetEmptied(int atMost) {
  while (atMost-- > 0 && newest_.size() > 0 && !isKept(newest_.oldest()->number)) {
    newest_.erase(*newest_.oldest());
  }
}

/// Returns space for a record. Drops expired blocks, and the oldest ones when the memory is used up.
std::uint8_t* KeptMedia::allocate(std::size_t size, std::size_t reserved) {
  if (!blocks_.empty()) {
    if (std::uint8_t* start = blocks_.back().memory->take(size)) return start;
  }
  expire();
  const std::size_t limit = std::max(memory_ - std::min(reserved, memory_), 2 * kBlockSize);
  while (!blocks_.empty() && (blocks_.size() + 1) * kBlockSize > limit) dropOldestBlock(statistics_.lookBackOverflow);
  Block block{pool_.take(size), nextNumber_};
  blocks_.push_back(std::move(block));
  return blocks_.back().memory->take(size);
}

void KeptMedia::dropOldestBlock(Statistics::Counter& counter) {
  Block& block = blocks_.front();
  counter.add(block.waiting);
  statistics_.lookBackWaiting -= block.waiting;
  pool_.giveBack(std::move(block.memory));
  blocks_.pop_front();
}

KeptMedia::Block& KeptMedia::blockOf(std::uint64_t number) {
  const auto after =
      std::upper_bound(blocks_.begin(), blocks_.end(), number,
                       [](std::uint64_t value, const Block& block) { return value < block.firstNumber; });
  return *std::prev(after);
}

void KeptMedia::expire() {
  if (isRecalling()) return;
  const Instant oldest = oldestAllowed();
  // A block is as old as its last frame, which is no newer than the first frame of the next block.
  const auto isExpired = [&] { return (blocks_.size() == 1 ? newestKept_ : blocks_[1].first()->kept) < oldest; };
  for (int i = 0; i < kMostExpired && !blocks_.empty() && isExpired(); ++i) dropOldestBlock(statistics_.udpDropped);
  forgetEmptied(64);
}

// ---- recalling ----

bool KeptMedia::beginRecall(const IpEndpoint& destination) {
  cancelRecall();
  recalledFor_ = destination;
  Newest* found = newest_.find(destination, IpEndpointHash()(destination));
  if (found == nullptr) return false;
  earlier_ = *found;
  newest_.erase(*found);
  lookUpMore();
  return isRecalling();
}

bool KeptMedia::lookUpMore() {
  const Instant oldest = oldestAllowed();
  for (int i = 0; i < kLookedUpAtOnce && isKept(earlier_.number); ++i) {
    const Newest at = std::exchange(earlier_, {earlier_.record->previous, earlier_.record->previousNumber});
    if (at.record->kept >= oldest) {
      recalled_.push_front(at);
    } else {
      --blockOf(at.number).waiting;
      --statistics_.lookBackWaiting;
      statistics_.udpDropped.add();
    }
  }
  return isKept(earlier_.number);
}

std::span<const KeptFrame> KeptMedia::peekRecalled(std::size_t atMost) {
  peeked_.clear();
  while (!recalled_.empty() && !isKept(recalled_.front().number)) recalled_.pop_front();
  for (const Newest& one : recalled_) {
    // Frames that were put back come first, although others are older by number and may have been dropped.
    if (peeked_.size() == atMost || !isKept(one.number)) break;
    peeked_.push_back({one.record->stamp, {one.record->frame(), one.record->length}, one.record->firstSent});
  }
  return peeked_;
}

void KeptMedia::popRecalled(std::size_t count) {
  while (count-- > 0) {
    --blockOf(recalled_.front().number).waiting;
    --statistics_.lookBackWaiting;
    recalled_.pop_front();
  }
}

void KeptMedia::cancelRecall() {
  const Newest earlier = std::exchange(earlier_, {});
  while (!recalled_.empty() && !isKept(recalled_.front().number)) recalled_.pop_front();
  if (recalled_.empty() && !isKept(earlier.number)) return;
  if (!recalled_.empty()) {
    Record& oldest = *recalled_.front().record;
    oldest.previous = earlier.record;  // the frames before it have been sent, unless they were not looked up yet
    oldest.previousNumber = earlier.number;
  }
  const Newest last = recalled_.empty() ? earlier : recalled_.back();
  recalled_.clear();
  prepend(recalledFor_, last);  // frames that were kept during the recall come after those of the recall
}

}  // namespace voip
