#include "queue/PacketQueue.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "base/FrameLimits.h"
#include "base/Logger.h"

namespace voip {

namespace {

constexpr std::size_t kMaxSpare = 32;       // blocks kept after a burst: 8 MB
constexpr std::size_t kClaimedAtOnce = 32;  // frames

std::size_t recordSize(std::size_t length) {
  return PageBlock::aligned(sizeof(QueuedPacket) + length + kFrameSlack);
}

CaptureStamp stampOf(const SniffedPacket& packet) {
  const timeval& time = packet.header->ts;
  const std::int64_t captured = time.tv_sec * std::int64_t{1'000'000} + time.tv_usec;
  if (!packet.replayShift) return {captured, captured};
  return {captured, std::min(CaptureStamp::now(), captured + *packet.replayShift)};  // a replay may be unpaced
}

}  // namespace

PacketQueue::PacketQueue(Statistics& statistics) : statistics_(statistics), pool_(kBlockSize, kMaxSpare) {}

// ---- capture threads ----

void PacketQueue::push(const SniffedPacket& packet, u_int maxLength, Kind kind) {
  const u_int length = std::min({packet.header->len, packet.header->caplen, maxLength});
  const std::size_t size = recordSize(length);
  Side& side = hasLimit() && kind == Kind::kMedia ? media_ : frames_;
  const CaptureStamp stamp = stampOf(packet);
  bool wakeConsumer = false;
  {
    const MutexLock held(packetQueueLock_);
    if (hasLimit() && !makeRoom(side, size)) return;
    Block& block = blockFor(side, size);
    auto* record = reinterpret_cast<QueuedPacket*>(block.memory->take(size));
    const auto distance = block.last != nullptr
                              ? reinterpret_cast<std::uint8_t*>(record) - reinterpret_cast<std::uint8_t*>(block.last)
                              : 0;
    *record = {*packet.header,
               stamp,
               pushed_++,
               static_cast<std::uint32_t>(distance),
               static_cast<std::uint16_t>(packet.linkType),
               packet.zone};
    record->header.len = record->header.caplen = length;
    std::memcpy(record->bytes(), packet.packet, length);
    std::memset(record->bytes() + length, 0, size - sizeof(QueuedPacket) - length);
    block.last = record;
    ++block.frames;
    waitingSize_ += size;
    statistics_.queueHighest.raiseTo(++waiting_ + inHand_.load(std::memory_order_relaxed));
    wakeConsumer = std::exchange(sleeping_, false);
  }
  if (wakeConsumer) packetPresent_.notifyOne();
}

PacketQueue::Block& PacketQueue::blockFor(Side& side, std::size_t size) {
  if (side.waiting.empty() || !side.waiting.back().memory->hasRoom(size)) {
    Block block;
    block.memory = pool_.take(size);
    side.waiting.push_back(std::move(block));
  }
  return side.waiting.back();
}

std::size_t PacketQueue::waitingBytes() const {
  const std::size_t others = othersWaiting_ != nullptr ? othersWaiting_->load(std::memory_order_relaxed) : 0;
  return waitingSize_ + handSize_.load(std::memory_order_relaxed) + others;
}

/// Frames elsewhere cannot be dropped any more, so media leaves a quarter of the limit to the signalling that follows.
std::size_t PacketQueue::mediaLimit() const {
  return othersWaiting_ != nullptr ? limit_ / 4 * 3 : limit_;
}

bool PacketQueue::fits(const Side& side, std::size_t size) const {
  return waitingBytes() + size <= (&side == &media_ ? mediaLimit() : limit_);
}

bool PacketQueue::makeRoom(Side& side, std::size_t size) {
  if (fits(side, size)) {
    if (overflowing_) logOverflowEnd();
    return true;
  }
  while (&side == &frames_ && !fits(side, size) && dropNewestMedia()) countOverflow(media_);
  if (fits(side, size)) return true;
  countOverflow(side);
  return false;
}

bool PacketQueue::dropNewestMedia() {
  if (media_.waiting.empty()) return false;
  Block& block = media_.waiting.back();
  auto* newest = reinterpret_cast<std::uint8_t*>(block.last);
  waitingSize_ -= recordSize(block.last->header.len);
  --waiting_;
  if (--block.frames != 0) {
    block.last = reinterpret_cast<QueuedPacket*>(newest - block.last->previous);
    block.memory->truncate(newest);
  } else {
    recycle(block);
    media_.waiting.pop_back();
  }
  return true;
}

void PacketQueue::countOverflow(const Side& side) {
  (&side == &media_ ? statistics_.queueLimitMedia : statistics_.queueLimitSignalling).add();
  if (std::exchange(overflowing_, true)) return;
  logger().warn("The queue has reached its limit of " + std::to_string(limit_ >> 20) +
                " MB: the newest frames are lost, media first, until the recorder is faster again");
}

void PacketQueue::logOverflowEnd() {
  // The next frame may take the first free space, so the overflow ends only when an eighth of the limit is free again.
  if (waitingBytes() > mediaLimit() / 8 * 7) return;
  overflowing_ = false;
  logger().warn("The queue is below its limit again; lost since the start for want of room: " +
                std::to_string(statistics_.queueLimitMedia) + " media and " +
                std::to_string(statistics_.queueLimitSignalling) + " other frames");
}

// ---- consumer ----

bool PacketQueue::takeBatch(std::chrono::milliseconds atMost) {
  const MutexLock held(packetQueueLock_);
  if (inHand_ + claimed_ == 0) skipDiscarded();
  for (Side* side : {&frames_, &media_}) {
    if (side->taken.memory && side->front() == nullptr) recycle(side->taken);
  }
  working_ = false;
  if (waiting_ == 0 && inHand_ + claimed_ == 0 && !woken_) wait(atMost);
  woken_ = false;
  for (Side* side : {&frames_, &media_}) {
    if (!side->taken.memory && !side->waiting.empty()) takeFirstBlock(*side);
  }
  // A waiting frame of one side may be older than the last frames in the taken block of the other side.
  horizon_ = pushed_;
  for (const Side* side : {&frames_, &media_}) {
    if (!side->waiting.empty()) horizon_ = std::min(horizon_, side->waiting.front().first()->number);
  }
  return working_ = inHand_ + claimed_ != 0;
}

void PacketQueue::skipDiscarded() {
  for (Side* side : {&frames_, &media_}) {
    if (side->taken.memory) side->at = side->taken.memory->end();
  }
  handSize_ = claimedSize_ = 0;
}

void PacketQueue::takeFirstBlock(Side& side) {
  side.taken = std::move(side.waiting.front());
  side.waiting.pop_front();
  side.at = side.taken.memory->begin();
  const auto bytes = static_cast<std::size_t>(side.taken.memory->end() - side.at);
  waiting_ -= side.taken.frames;
  waitingSize_ -= bytes;
  handSize_ += bytes;
  inHand_ += side.taken.frames;
}

QueuedPacket* PacketQueue::next() {
  Side* side = &frames_;
  QueuedPacket* packet = side->front();
  if (QueuedPacket* media = media_.front(); media != nullptr && (packet == nullptr || media->number < packet->number)) {
    side = &media_;
    packet = media;
  }
  if (packet == nullptr || packet->number >= horizon_) return nullptr;
  if (claimed_ == 0 && !claim()) return nullptr;
  --claimed_;
  const std::size_t size = recordSize(packet->header.len);
  side->at += size;
  claimedSize_ += size;
  return packet;
}

/// Claims the next frames, which clear() then does not discard. Returns false when it has discarded them already.
bool PacketQueue::claim() {
  handSize_.store(handSize_.load(std::memory_order_relaxed) - std::exchange(claimedSize_, 0),
                  std::memory_order_relaxed);
  std::size_t left = inHand_.load(std::memory_order_relaxed);
  do {
    if (left == 0) return false;
    claimed_ = std::min(left, kClaimedAtOnce);
  } while (!inHand_.compare_exchange_weak(left, left - claimed_, std::memory_order_relaxed));
  return true;
}

void PacketQueue::wait(std::chrono::milliseconds atMost) {
  if (atMost.count() == 0) return;  // a wait until now takes as long as the kernel's timers are coarse
  const auto end = Condition::Clock::now() + atMost;
  sleeping_ = true;
  while (waiting_ == 0 && !woken_ && packetPresent_.waitUntil(packetQueueLock_, end)) {
  }
  sleeping_ = false;
}

void PacketQueue::wake() {
  {
    const MutexLock held(packetQueueLock_);
    woken_ = true;
  }
  packetPresent_.notifyOne();
}

// ---- any thread ----

void PacketQueue::clear(std::size_t others) {
  const MutexLock held(packetQueueLock_);
  dropAll(others);
}

void PacketQueue::clearFromSender(std::size_t others) {
  const MutexLock held(packetQueueLock_);
  dropAll(others + std::exchange(claimed_, 0));
}

void PacketQueue::dropAll(std::size_t others) {
  const std::size_t dumped = waiting_ + inHand_.exchange(0) + others;
  for (Side* side : {&frames_, &media_}) {
    for (Block& block : side->waiting) recycle(block);
    side->waiting.clear();
  }
  waiting_ = waitingSize_ = 0;
  statistics_.queueDiscarded.add(dumped);
  logger().debug("Dissector packet queue cleared. ", dumped, " packets dumped.");
}

std::size_t PacketQueue::size() {
  const MutexLock held(packetQueueLock_);
  return waiting_ + inHand_;
}

bool PacketQueue::isIdle() {
  const MutexLock held(packetQueueLock_);
  return waiting_ == 0 && !working_;
}

void PacketQueue::recycle(Block& block) {
  pool_.giveBack(std::move(block.memory));
  block = {};
}

}  // namespace voip
