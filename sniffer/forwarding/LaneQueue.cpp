#include "forwarding/LaneQueue.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "base/Logger.h"
#include "recorder/FrameHeader.h"

namespace voip {

LaneQueue::LaneQueue(std::string owner, std::size_t limit, Statistics& statistics)
    : owner_(std::move(owner)), limit_(limit), statistics_(statistics) {}

// ---- the classifying thread ----

void LaneQueue::push(const KeptFrame& kept) {
  Side& side = FrameHeader::protocolOf(kept.frame.data()) == FrameProtocol::Rtp ? media_ : signalling_;
  const std::size_t size = recordSize(kept.frame.size());
  const std::uint64_t lostBefore = statistics_.queueLimitMedia + statistics_.queueLimitSignalling;
  std::size_t bytes;
  {
    const MutexLock held(lock_);
    if (makeRoom(side, size)) {
      append(side, kept, size);
    } else {
      countLost(side, 1);
    }
    bytes = waitingBytes();
  }
  hasNews_ = true;
  const bool isLosing = statistics_.queueLimitMedia + statistics_.queueLimitSignalling != lostBefore;
  if (isLosing != overflowing_) logOverflow(isLosing, bytes);
}

std::size_t LaneQueue::waitingBytes() const {
  return waitingSize_ + (othersWaiting_ != nullptr ? othersWaiting_->load(std::memory_order_relaxed) : 0);
}

/// Frames elsewhere cannot be dropped any more, so media leaves a quarter of the limit to the signalling that follows.
std::size_t LaneQueue::limitFor(const Side& side) const {
  return &side == &media_ && othersWaiting_ != nullptr ? limit_ / 4 * 3 : limit_;
}

/// Drops the oldest media, then the oldest signalling for signalling, until there is space for a frame.
bool LaneQueue::makeRoom(const Side& side, std::size_t size) {
  while (waitingBytes() + size > limitFor(side)) {
    if (!media_.waiting.empty()) {
      dropOldestBlock(media_);
    } else if (&side == &signalling_ && !signalling_.waiting.empty()) {
      dropOldestBlock(signalling_);
    } else {
      return false;
    }
  }
  return true;
}

void LaneQueue::dropOldestBlock(Side& side) {
  Block& oldest = side.waiting.front();
  countLost(side, oldest.frames);
  waiting_ -= oldest.frames;
  waitingSize_ -= oldest.size();
  pool_.giveBack(std::move(oldest.memory));
  side.waiting.pop_front();
}

void LaneQueue::append(Side& side, const KeptFrame& kept, std::size_t size) {
  if (side.waiting.empty() || !side.waiting.back().memory->hasRoom(size)) {
    Block block;
    block.memory = pool_.take(size);
    side.waiting.push_back(std::move(block));
  }
  Block& block = side.waiting.back();
  auto* record = reinterpret_cast<Record*>(block.memory->take(size));
  *record = {kept.stamp, pushed_++, static_cast<std::uint32_t>(kept.frame.size())};
  std::memcpy(record->bytes(), kept.frame.data(), kept.frame.size());
  ++block.frames;
  waitingSize_ += size;
  statistics_.queueHighest.raiseTo(++waiting_ + inHand_.load(std::memory_order_relaxed));
}

void LaneQueue::countLost(const Side& side, std::size_t frames) {
  (&side == &media_ ? statistics_.queueLimitMedia : statistics_.queueLimitSignalling).add(frames);
}

/// Logs the beginning and the end of an overflow. It ends only when an eighth of the limit is free again, since the
/// next frame may take the first free space.
void LaneQueue::logOverflow(bool isLosing, std::size_t bytes) {
  if (!isLosing && bytes > limit_ / 8 * 7) return;
  overflowing_ = isLosing;
  if (isLosing) {
    logger().warn("The queue to " + owner_ + " has reached its limit of " + std::to_string(limit_ >> 20) +
                  " MB: its oldest frames are lost, media first, until that recorder is faster again");
  } else {
    logger().warn("The queue to " + owner_ + " is below its limit again; lost since the start for want of room: " +
                  std::to_string(statistics_.queueLimitMedia) + " media and " +
                  std::to_string(statistics_.queueLimitSignalling) + " other frames");
  }
}

void LaneQueue::publish() {
  if (!std::exchange(hasNews_, false)) return;
  bool wakeLane = false;
  {
    const MutexLock held(lock_);
    wakeLane = std::exchange(sleeping_, false);
  }
  if (wakeLane) framePresent_.notifyOne();
}

// ---- the lane's thread ----

bool LaneQueue::takeBatch(std::chrono::milliseconds atMost) {
  const auto end = Condition::Clock::now() + atMost;
  const MutexLock held(lock_);
  for (Side* side : {&signalling_, &media_}) {
    if (!side->taken.memory || side->front() != nullptr) continue;
    pool_.giveBack(std::move(side->taken.memory));
    side->taken = {};
  }
  working_ = false;
  sleeping_ = true;
  while (waiting_ == 0 && inHand_ == 0 && !woken_ && atMost.count() > 0 && framePresent_.waitUntil(lock_, end)) {
  }
  sleeping_ = woken_ = false;
  for (Side* side : {&signalling_, &media_}) {
    if (!side->taken.memory && !side->waiting.empty()) takeFirstBlock(*side);
  }
  // A waiting frame of one side may be older than the last frames in the taken block of the other side.
  horizon_ = pushed_;
  for (const Side* side : {&signalling_, &media_}) {
    if (!side->waiting.empty()) horizon_ = std::min(horizon_, side->waiting.front().first()->number);
  }
  return working_ = inHand_ != 0;
}

void LaneQueue::takeFirstBlock(Side& side) {
  side.taken = std::move(side.waiting.front());
  side.waiting.pop_front();
  side.at = side.taken.memory->begin();
  waiting_ -= side.taken.frames;
  waitingSize_ -= side.taken.size();
  inHand_.store(inHand_.load(std::memory_order_relaxed) + side.taken.frames, std::memory_order_relaxed);
}

bool LaneQueue::next(KeptFrame& frame) {
  Side* side = &signalling_;
  Record* record = signalling_.front();
  if (Record* media = media_.front(); media != nullptr && (record == nullptr || media->number < record->number)) {
    side = &media_;
    record = media;
  }
  if (record == nullptr || record->number >= horizon_) return false;
  side->at += recordSize(record->length);
  inHand_.store(inHand_.load(std::memory_order_relaxed) - 1, std::memory_order_relaxed);
  frame = {record->stamp, {record->bytes(), record->length}};
  return true;
}

void LaneQueue::clearFromSender(std::size_t others) {
  countDiscarded(discard() + others);
}

std::size_t LaneQueue::discard() {
  for (Side* side : {&signalling_, &media_}) {
    if (side->taken.memory) side->at = side->taken.memory->end();
  }
  return inHand_.exchange(0) + discardWaiting();
}

// ---- any thread ----

void LaneQueue::clear(std::size_t others) {
  countDiscarded(discardWaiting() + others);
}

std::size_t LaneQueue::discardWaiting() {
  std::deque<Block> dropped[2];  // their memory is freed without the lock, which the classifying thread needs
  const MutexLock held(lock_);
  dropped[0].swap(signalling_.waiting);
  dropped[1].swap(media_.waiting);
  waitingSize_ = 0;
  return std::exchange(waiting_, 0);
}

void LaneQueue::countDiscarded(std::size_t frames) {
  statistics_.queueDiscarded.add(frames);
  logger().debug("Dissector packet queue cleared. ", frames, " packets dumped.");
}

void LaneQueue::wake() {
  {
    const MutexLock held(lock_);
    woken_ = true;
  }
  framePresent_.notifyOne();
}

std::size_t LaneQueue::size() {
  const MutexLock held(lock_);
  return waiting_ + inHand_;
}

bool LaneQueue::isIdle() {
  const MutexLock held(lock_);
  return waiting_ == 0 && !working_;
}

}  // namespace voip
