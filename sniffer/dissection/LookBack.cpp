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

void LookBack::letGo(Statistics::Counter& counter) {
  counter.add();
  --statistics.lookBackWaiting;
}

// ---- media ----

void LookBack::keepMedia(const KeptFrame& kept) {
  const auto header = FrameHeader::of(kept.frame.data());
  const std::uint64_t destination = RtpAddr(header.dstIp, header.dstPort).key();
  newest = monotonicTime();
  auto* record = new (room(PageBlock::aligned(sizeof(Record) + kept.frame.size())))
      Record{nullptr, destination, newest, kept.stamp, static_cast<std::uint32_t>(kept.frame.size()), false};
  std::memcpy(record->frame(), kept.frame.data(), kept.frame.size());
  const auto [chain, isNew] = chains.try_emplace(destination, Chain{record, record});
  if (!isNew) {
    chain->second.last->next = record;
    chain->second.last = record;
  }
  statistics.lookBackWaiting.add();
}

u_char* LookBack::room(std::size_t size) {
  if (!blocks.empty()) {
    if (u_char* start = blocks.back()->take(size)) return start;
  }
  expire();
  while (!pinned && !blocks.empty() && (blocks.size() + 1) * kBlockSize + signallingSize > memory) {
    dropOldestBlock(statistics.lookBackOverflow);
  }
  if (spare.empty() || size > kBlockSize) {
    blocks.push_back(std::make_unique<PageBlock>(std::max(size, kBlockSize)));
  } else {
    blocks.push_back(std::move(spare.back()));
    spare.pop_back();
  }
  return blocks.back()->take(size);
}

void LookBack::dropOldestBlock(Statistics::Counter& counter) {
  PageBlock& block = *blocks.front();
  for (u_char* at = block.begin(); at != block.end();) {
    auto& record = *reinterpret_cast<Record*>(at);
    at += PageBlock::aligned(sizeof(Record) + record.length);
    if (record.recalled) continue;
    unchain(record);
    letGo(counter);
  }
  block.cutBack(block.begin());
  if (spare.size() < kMostSpare && block.getCapacity() == kBlockSize) spare.push_back(std::move(blocks.front()));
  blocks.pop_front();
}

void LookBack::unchain(Record& record) {
  // The oldest of all is the first of its chain.
  const auto chain = chains.find(record.destination);
  chain->second.first = record.next;
  if (record.next == nullptr) chains.erase(chain);
}

std::span<const KeptFrame> LookBack::recallMedia(RtpAddr destination) {
  recalled.clear();
  pinned = true;
  const auto chain = chains.find(destination.key());
  if (chain == chains.end()) return {};
  const auto oldest = monotonicTime() - time;
  for (Record* record = chain->second.first; record != nullptr; record = record->next) {
    record->recalled = true;
    if (record->kept < oldest) {
      letGo(statistics.udpDropped);
    } else {
      --statistics.lookBackWaiting;
      recalled.push_back({record->stamp, {record->frame(), record->length}});
    }
  }
  chains.erase(chain);
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
    const auto until = blocks.size() == 1 ? newest : reinterpret_cast<Record*>(blocks[1]->begin())->kept;
    return until < oldest;
  };
  while (!blocks.empty() && isOver()) dropOldestBlock(statistics.udpDropped);
}

void LookBack::clear() {
  while (!blocks.empty()) dropOldestBlock(statistics.udpDropped);
  while (!signalling.empty()) {
    statistics.queueDiscarded.add();
    popSignalling();
  }
}
