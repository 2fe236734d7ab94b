#include "PacketQueue.h"

#include <log4cxx/logger.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "MediaHeader.h"
#include "MutexLock.h"

namespace {

constexpr std::size_t kMostSpare = 32;      // blocks kept after a burst: 8 MB
constexpr std::size_t kClaimedAtOnce = 32;  // frames

log4cxx::LoggerPtr logger() {
  return log4cxx::Logger::getLogger("SnifferClient");
}

std::size_t recordSize(std::size_t length) {
  return PageBlock::aligned(sizeof(QueuedPacket) + length + SniffedPacket::kSlack);
}

void logInitFailure(const char* what, int error) {
  logger()->debug(what + std::to_string(error) + ":" + std::strerror(error));
}

}  // namespace

PacketQueue::PacketQueue(Statistics& counters) : statistics(counters) {
  pthread_condattr_t attributes;
  pthread_condattr_init(&attributes);
  // A wait that does not stretch or shrink when someone sets the time of day.
  pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
  if (const int error = pthread_cond_init(&packetPresent, &attributes); error != 0) {
    logInitFailure("Condition variable packetPresent init problem:", error);
  }
  pthread_condattr_destroy(&attributes);
  pthread_mutexattr_t adaptive;
  pthread_mutexattr_init(&adaptive);
  // Held for the copy of a frame: it is sooner free again than a thread is asleep.
  pthread_mutexattr_settype(&adaptive, PTHREAD_MUTEX_ADAPTIVE_NP);
  if (const int error = pthread_mutex_init(&packetQueueLock, &adaptive); error != 0) {
    logInitFailure("Mutex packetQueueLock init problem:", error);
  }
  pthread_mutexattr_destroy(&adaptive);
}

PacketQueue::~PacketQueue() {
  pthread_mutex_destroy(&packetQueueLock);
  pthread_cond_destroy(&packetPresent);
}

// ---- capture threads ----

void PacketQueue::push(const SniffedPacket& packet, u_int maxLength) {
  const u_int length = std::min({packet.header->len, packet.header->caplen, maxLength});
  const std::size_t size = recordSize(length);
  Lane& lane = lanes[limit != 0 && carriesMedia(packet.packet, length, packet.linkType) ? kMedia : kAll];
  const pcap_pkthdr& header = *packet.header;
  const std::int64_t captured = header.ts.tv_sec * std::int64_t{1'000'000} + header.ts.tv_usec;
  const CaptureStamp stamp{captured, packet.replayed ? CaptureStamp::now() : captured};
  bool wakeConsumer = false;
  {
    const MutexLock guard(packetQueueLock);
    if (limit != 0 && !makeRoom(lane, size)) return;
    Block& block = blockFor(lane, size);
    auto* record = reinterpret_cast<QueuedPacket*>(block.memory->take(size));
    const auto distance =
        block.last != nullptr ? reinterpret_cast<u_char*>(record) - reinterpret_cast<u_char*>(block.last) : 0;
    *record = {header, stamp, pushed++, static_cast<std::uint32_t>(distance), packet.linkType};
    record->header.len = record->header.caplen = length;
    std::memcpy(record->bytes(), packet.packet, length);
    std::memset(record->bytes() + length, 0, size - sizeof(QueuedPacket) - length);
    block.last = record;
    ++block.frames;
    waitingSize += size;
    const std::size_t all = ++waiting + inHand.load(std::memory_order_relaxed);
    statistics.queueHighest.raiseTo(all);
    wakeConsumer = std::exchange(sleeping, false);
  }
  if (wakeConsumer) pthread_cond_signal(&packetPresent);
}

PacketQueue::Block& PacketQueue::blockFor(Lane& lane, std::size_t size) {
  if (!lane.waiting.empty() && lane.waiting.back().memory->hasRoom(size)) return lane.waiting.back();
  Block block;
  if (spare.empty() || size > kBlockSize) {
    block.memory = std::make_unique<PageBlock>(std::max(kBlockSize, size));
  } else {
    block.memory = std::move(spare.back());
    spare.pop_back();
  }
  lane.waiting.push_back(std::move(block));
  return lane.waiting.back();
}

bool PacketQueue::makeRoom(Lane& lane, std::size_t size) {
  const auto fits = [&] { return waitingSize + handSize.load(std::memory_order_relaxed) + size <= limit; };
  if (fits()) {
    if (overflowing) tellOverflowEnd();
    return true;
  }
  while (&lane == &lanes[kSignalling] && !fits() && dropNewestMedia()) countOverflow(lanes[kMedia]);
  if (fits()) return true;
  countOverflow(lane);
  return false;
}

bool PacketQueue::dropNewestMedia() {
  Lane& media = lanes[kMedia];
  if (media.waiting.empty()) return false;
  Block& block = media.waiting.back();
  auto* newest = reinterpret_cast<u_char*>(block.last);
  waitingSize -= recordSize(block.last->header.len);
  --waiting;
  if (--block.frames != 0) {
    block.last = reinterpret_cast<QueuedPacket*>(newest - block.last->previous);
    block.memory->cutBack(newest);
  } else {
    recycle(block);
    media.waiting.pop_back();
  }
  return true;
}

void PacketQueue::countOverflow(const Lane& lane) {
  (&lane == &lanes[kMedia] ? statistics.queueLimitMedia : statistics.queueLimitSignalling).add();
  if (std::exchange(overflowing, true)) return;
  logger()->warn("The queue has reached its limit of " + std::to_string(limit >> 20) +
                 " MB: the newest frames are lost, media first, until the recorder is faster again");
}

void PacketQueue::tellOverflowEnd() {
  // Not at the first free place, which the next frame takes: once an eighth is free.
  if (waitingSize + handSize.load(std::memory_order_relaxed) > limit / 8 * 7) return;
  overflowing = false;
  logger()->warn("The queue is below its limit again; lost since the start for want of room: " +
                 std::to_string(statistics.queueLimitMedia) + " media and " +
                 std::to_string(statistics.queueLimitSignalling) + " other frames");
}

// ---- consumer ----

bool PacketQueue::takeBatch(std::chrono::milliseconds atMost) {
  const MutexLock guard(packetQueueLock);
  consumer = std::this_thread::get_id();
  if (inHand + claimed == 0) dropHand();
  for (Lane& lane : lanes) {
    if (lane.taken.memory && lane.front() == nullptr) recycle(lane.taken);
  }
  working = false;
  if (waiting == 0 && inHand + claimed == 0 && !woken) wait(atMost);
  woken = false;
  for (Lane& lane : lanes) {
    if (!lane.taken.memory && !lane.waiting.empty()) takeFirstBlock(lane);
  }
  // What stands behind the block of one lane may be older than what is in the block of the other.
  horizon = pushed;
  for (const Lane& lane : lanes) {
    if (!lane.waiting.empty()) horizon = std::min(horizon, lane.waiting.front().first()->number);
  }
  return working = inHand + claimed != 0;
}

void PacketQueue::dropHand() {
  for (Lane& lane : lanes) {
    if (lane.taken.memory) lane.at = lane.taken.memory->end();
  }
  handSize = claimedSize = 0;
}

void PacketQueue::takeFirstBlock(Lane& lane) {
  lane.taken = std::move(lane.waiting.front());
  lane.waiting.pop_front();
  lane.at = lane.taken.memory->begin();
  const auto bytes = static_cast<std::size_t>(lane.taken.memory->end() - lane.at);
  waiting -= lane.taken.frames;
  waitingSize -= bytes;
  handSize += bytes;
  inHand += lane.taken.frames;
}

QueuedPacket* PacketQueue::next() {
  Lane* lane = &lanes[kAll];
  QueuedPacket* packet = lane->front();
  if (QueuedPacket* media = lanes[kMedia].front();
      media != nullptr && (packet == nullptr || media->number < packet->number)) {
    lane = &lanes[kMedia];
    packet = media;
  }
  if (packet == nullptr || packet->number >= horizon) return nullptr;
  if (claimed == 0 && !claim()) return nullptr;
  --claimed;
  const std::size_t size = recordSize(packet->header.len);
  lane->at += size;
  claimedSize += size;
  return packet;
}

bool PacketQueue::claim() {
  handSize.store(handSize.load(std::memory_order_relaxed) - std::exchange(claimedSize, 0), std::memory_order_relaxed);
  // Either this takes the frames or discard() does.
  std::size_t left = inHand.load(std::memory_order_relaxed);
  do {
    if (left == 0) return false;
    claimed = std::min(left, kClaimedAtOnce);
  } while (!inHand.compare_exchange_weak(left, left - claimed, std::memory_order_relaxed));
  return true;
}

void PacketQueue::wait(std::chrono::milliseconds atMost) {
  timespec until;
  clock_gettime(CLOCK_MONOTONIC, &until);
  until.tv_nsec += atMost.count() % 1000 * 1'000'000;
  until.tv_sec += atMost.count() / 1000 + until.tv_nsec / 1'000'000'000;
  until.tv_nsec %= 1'000'000'000;
  sleeping = true;
  while (waiting == 0 && !woken) {
    if (pthread_cond_timedwait(&packetPresent, &packetQueueLock, &until) == ETIMEDOUT) break;
  }
  sleeping = false;
}

void PacketQueue::wake() {
  {
    const MutexLock guard(packetQueueLock);
    woken = true;
  }
  pthread_cond_signal(&packetPresent);
}

// ---- any thread ----

std::size_t PacketQueue::discard() {
  const MutexLock guard(packetQueueLock);
  std::size_t dumped = waiting + inHand.exchange(0);
  if (std::this_thread::get_id() == consumer) dumped += std::exchange(claimed, 0);
  for (Lane& lane : lanes) {
    for (Block& block : lane.waiting) recycle(block);
    lane.waiting.clear();
  }
  waiting = waitingSize = 0;
  return dumped;
}

std::size_t PacketQueue::size() {
  const MutexLock guard(packetQueueLock);
  return waiting + inHand;
}

bool PacketQueue::isIdle() {
  const MutexLock guard(packetQueueLock);
  return waiting == 0 && !working;
}

void PacketQueue::recycle(Block& block) {
  if (spare.size() < kMostSpare && block.memory->getCapacity() == kBlockSize) {
    block.memory->cutBack(block.memory->begin());
    spare.push_back(std::move(block.memory));
  }
  block = {};
}
