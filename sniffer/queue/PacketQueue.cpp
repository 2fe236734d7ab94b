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
  return {captured, packet.replayed ? CaptureStamp::now() : captured};
}

}  // namespace

PacketQueue::PacketQueue(Statistics& statistics) : statistics_(statistics), pool_(kBlockSize, kMaxSpare) {}

// ---- capture threads ----

void PacketQueue::push(const SniffedPacket& packet, u_int maxLength, Kind kind) {
  const u_int length = std::min({packet.header->len, packet.header->caplen, maxLength});
  const std::size_t size = recordSize(length);
  Lane& lane = hasLimit() && kind == Kind::kMedia ? media_ : frames_;
  const CaptureStamp stamp = stampOf(packet);
  bool wakeConsumer = false;
  {
    const MutexLock held(packetQueueLock_);
    if (hasLimit() && !makeRoom(lane, size)) return;
    Block& block = blockFor(lane, size);
    auto* record = reinterpret_cast<QueuedPacket*>(block.memory->take(size));
    const auto distance = block.last != nullptr
                              ? reinterpret_cast<std::uint8_t*>(record) - reinterpret_cast<std::uint8_t*>(block.last)
                              : 0;
    *record = {*packet.header, stamp, pushed_++, static_cast<std::uint32_t>(distance), packet.linkType};
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

PacketQueue::Block& PacketQueue::blockFor(Lane& lane, std::size_t size) {
  if (lane.waiting.empty() || !lane.waiting.back().memory->hasRoom(size)) {
    Block block;
    block.memory = pool_.take(size);
    lane.waiting.push_back(std::move(block));
  }
  return lane.waiting.back();
}

std::size_t PacketQueue::waitingBytes() const {
  const std::size_t others = othersWaiting_ != nullptr ? othersWaiting_->load(std::memory_order_relaxed) : 0;
  return waitingSize_ + handSize_.load(std::memory_order_relaxed) + others;
}

/// Frames elsewhere cannot be dropped any more, so media leaves a quarter of the limit to the signalling that follows.
std::size_t PacketQueue::mediaLimit() const {
  return othersWaiting_ != nullptr ? limit_ / 4 * 3 : limit_;
}

bool PacketQueue::fits(const Lane& lane, std::size_t size) const {
  return waitingBytes() + size <= (&lane == &media_ ? mediaLimit() : limit_);
}

bool PacketQueue::makeRoom(Lane& lane, std::size_t size) {
  if (fits(lane, size)) {
    if (overflowing_) logOverflowEnd();
    return true;
  }
  while (&lane == &frames_ && !fits(lane, size) && dropNewestMedia()) countOverflow(media_);
  if (fits(lane, size)) return true;
  countOverflow(lane);
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

void PacketQueue::countOverflow(const Lane& lane) {
  (&lane == &media_ ? statistics_.queueLimitMedia : statistics_.queueLimitSignalling).add();
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
  for (Lane* lane : {&frames_, &media_}) {
    if (lane->taken.memory && lane->front() == nullptr) recycle(lane->taken);
  }
  working_ = false;
  if (waiting_ == 0 && inHand_ + claimed_ == 0 && !woken_) wait(atMost);
  woken_ = false;
  for (Lane* lane : {&frames_, &media_}) {
    if (!lane->taken.memory && !lane->waiting.empty()) takeFirstBlock(*lane);
  }
  // A waiting frame of one lane may be older than the last frames in the taken block of the other lane.
  horizon_ = pushed_;
  for (const Lane* lane : {&frames_, &media_}) {
    if (!lane->waiting.empty()) horizon_ = std::min(horizon_, lane->waiting.front().first()->number);
  }
  return working_ = inHand_ + claimed_ != 0;
}

void PacketQueue::skipDiscarded() {
  for (Lane* lane : {&frames_, &media_}) {
    if (lane->taken.memory) lane->at = lane->taken.memory->end();
  }
  handSize_ = claimedSize_ = 0;
}

void PacketQueue::takeFirstBlock(Lane& lane) {
  lane.taken = std::move(lane.waiting.front());
  lane.waiting.pop_front();
  lane.at = lane.taken.memory->begin();
  const auto bytes = static_cast<std::size_t>(lane.taken.memory->end() - lane.at);
  waiting_ -= lane.taken.frames;
  waitingSize_ -= bytes;
  handSize_ += bytes;
  inHand_ += lane.taken.frames;
}

QueuedPacket* PacketQueue::next() {
  Lane* lane = &frames_;
  QueuedPacket* packet = lane->front();
  if (QueuedPacket* media = media_.front(); media != nullptr && (packet == nullptr || media->number < packet->number)) {
    lane = &media_;
    packet = media;
  }
  if (packet == nullptr || packet->number >= horizon_) return nullptr;
  if (claimed_ == 0 && !claim()) return nullptr;
  --claimed_;
  const std::size_t size = recordSize(packet->header.len);
  lane->at += size;
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

void PacketQueue::clearFromConsumer(std::size_t others) {
  const MutexLock held(packetQueueLock_);
  dropAll(others + std::exchange(claimed_, 0));
}

void PacketQueue::dropAll(std::size_t others) {
  const std::size_t dumped = waiting_ + inHand_.exchange(0) + others;
  for (Lane* lane : {&frames_, &media_}) {
    for (Block& block : lane->waiting) recycle(block);
    lane->waiting.clear();
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
