#include "LookBack.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <new>

#include "FrameHeader.h"

namespace {

constexpr std::size_t kBlockSize = 128 * 1024;
constexpr std::size_t kMostSpare = 8;
constexpr std::size_t kMissedOverhead = 64;

/// Milliseconds, to a few: it is asked for every frame that is kept.
std::int64_t monotonicTime() {
  timespec time;
  clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
  return time.tv_sec * std::int64_t{1000} + time.tv_nsec / 1'000'000;
}

}  // namespace

LookBack::LookBack(std::chrono::milliseconds howLong, std::size_t bytes, Statistics& counters)
    : time(howLong.count()), memory(std::max(bytes, 2 * kBlockSize)), statistics(counters) {}

// ---- media ----

void LookBack::keepMedia(const KeptFrame& kept) {
  const auto header = FrameHeader::of(kept.frame.data());
  u_char* start = room(PageBlock::aligned(sizeof(Record) + kept.frame.size()));
  newestKept = monotonicTime();
  Newest& last = newest[RtpAddr(header.dstIp, header.dstPort).key()];
  auto* record = new (start)
      Record{last.record, last.number, newestKept, kept.stamp, static_cast<std::uint32_t>(kept.frame.size())};
  std::memcpy(record->frame(), kept.frame.data(), kept.frame.size());
  last = {record, nextNumber++};
  ++blocks.back().waiting;
  statistics.lookBackWaiting.add();
}

u_char* LookBack::room(std::size_t size) {
  if (!blocks.empty()) {
    if (u_char* start = blocks.back().memory->take(size)) return start;
  }
  expire();
  while (!pinned && !blocks.empty() && (blocks.size() + 1) * kBlockSize + signallingSize > memory) {
    dropOldestBlock(statistics.lookBackOverflow);
  }
  if (newest.size() > forgetAt) forgetEmptied();
  Block block{nullptr, nextNumber};
  if (spare.empty() || size > kBlockSize) {
    block.memory = std::make_unique<PageBlock>(std::max(size, kBlockSize));
  } else {
    block.memory = std::move(spare.back());
    spare.pop_back();
  }
  blocks.push_back(std::move(block));
  return blocks.back().memory->take(size);
}

void LookBack::dropOldestBlock(Statistics::Counter& counter) {
  Block& block = blocks.front();
  counter.add(block.waiting);
  statistics.lookBackWaiting -= block.waiting;
  block.memory->cutBack(block.memory->begin());
  if (spare.size() < kMostSpare && block.memory->getCapacity() == kBlockSize) spare.push_back(std::move(block.memory));
  blocks.pop_front();
}

void LookBack::forgetEmptied() {
  std::erase_if(newest, [oldest = oldestNumber()](const auto& one) { return one.second.number < oldest; });
  forgetAt = std::max<std::size_t>(1024, newest.size() * 2);
}

LookBack::Block& LookBack::blockOf(std::uint64_t number) {
  const auto behind =
      std::upper_bound(blocks.begin(), blocks.end(), number,
                       [](std::uint64_t value, const Block& block) { return value < block.firstNumber; });
  return *std::prev(behind);
}

std::span<const KeptFrame> LookBack::recallMedia(RtpAddr destination) {
  recalled.clear();
  pinned = true;
  const auto found = newest.find(destination.key());
  if (found == newest.end()) return {};
  const auto oldest = monotonicTime() - time;
  auto [record, number] = found->second;
  while (number >= oldestNumber()) {
    --blockOf(number).waiting;
    --statistics.lookBackWaiting;
    if (record->kept < oldest) {
      statistics.udpDropped.add();
    } else {
      recalled.push_back({record->stamp, {record->frame(), record->length}});
    }
    number = record->numberBefore;
    record = record->before;
  }
  newest.erase(found);
  std::reverse(recalled.begin(), recalled.end());
  return recalled;
}

void LookBack::releaseRecalled() {
  pinned = false;
}

// ---- signalling ----

void LookBack::keepSignalling(const KeptFrame& kept) {
  signalling.push_back({monotonicTime(), kept.stamp, {kept.frame.begin(), kept.frame.end()}});
  signallingSize += kept.frame.size() + kMissedOverhead;
  statistics.lookBackWaiting.add();
  while (signallingSize > memory / 2) {
    statistics.lookBackOverflow.add();
    popSignalling();
  }
}

std::optional<KeptFrame> LookBack::frontSignalling() {
  if (signalling.empty()) return std::nullopt;
  Missed& missed = signalling.front();
  return KeptFrame{missed.stamp, missed.frame};
}

void LookBack::popSignalling() {
  --statistics.lookBackWaiting;
  signallingSize -= signalling.front().frame.size() + kMissedOverhead;
  signalling.pop_front();
}

// ---- both ----

void LookBack::expire() {
  const auto now = monotonicTime();
  const auto oldest = now - time;
  while (!signalling.empty() && signalling.front().kept < oldest) {
    statistics.queueDiscarded.add();
    popSignalling();
  }
  if (pinned) return;
  // A block is as old as its last frame, which is no younger than the first of the block behind it.
  const auto isOver = [&] {
    const auto until = blocks.size() == 1 ? newestKept : reinterpret_cast<Record*>(blocks[1].memory->begin())->kept;
    return until < oldest;
  };
  while (!blocks.empty() && isOver()) dropOldestBlock(statistics.udpDropped);
  if (blocks.empty()) newest.clear();
}
