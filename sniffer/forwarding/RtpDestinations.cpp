#include "forwarding/RtpDestinations.h"

#include <thread>
#include <utility>

namespace voip {

namespace {

constexpr std::size_t kFirstSize = 1024;

// No destination: a real key has 16 zero bits.
constexpr std::uint64_t kFree = ~std::uint64_t{0};

// Spreads neighbouring addresses and ports: the golden ratio's fraction, Knuth 6.4.
constexpr std::uint64_t kSpread = 0x9E3779B97F4A7C15;

}  // namespace

RtpDestinations::Table::Table(std::size_t size)
    : mask(size - 1),
      shift(64 - std::countr_zero(size)),
      keys(std::make_unique<std::atomic<std::uint64_t>[]>(size)),
      counts(size) {
  for (std::size_t i = 0; i < size; ++i) keys[i].store(kFree, std::memory_order_relaxed);
}

std::size_t RtpDestinations::Table::slotOf(std::uint64_t key) const {
  std::size_t slot = key * kSpread >> shift;
  // At least a quarter of the slots is free, but a reader may look while keys move: it passes each slot once.
  for (std::size_t tries = 0; tries <= mask; ++tries, slot = (slot + 1) & mask) {
    const std::uint64_t found = keys[slot].load(std::memory_order_acquire);
    if (found == key || found == kFree) break;
  }
  return slot;
}

RtpDestinations::RtpDestinations() {
  tables_.push_back(std::make_unique<Table>(kFirstSize));
  table_ = tables_.back().get();
}

bool RtpDestinations::contains(RtpAddr destination) const {
  if (cleared_.load(std::memory_order_acquire)) return false;
  const std::uint64_t key = destination.key();
  while (true) {
    const std::uint64_t before = changes_.load(std::memory_order_acquire);
    const Table& now = *table_.load(std::memory_order_acquire);
    if (now.keys[now.slotOf(key)].load(std::memory_order_acquire) == key) return true;
    // Not found: true only if nothing moved meanwhile. The keys were read with acquire, so this is read after them.
    if (before % 2 == 0 && changes_.load(std::memory_order_relaxed) == before) return false;
    std::this_thread::yield();
  }
}

void RtpDestinations::add(RtpAddr destination) {
  const MutexLock held(rtpListLock_);
  applyClear();
  if (used_ * 4 >= table_.load()->mask * 3) grow();
  insert(destination.key(), 1);
  ++total_;
}

void RtpDestinations::remove(RtpAddr destination) {
  const MutexLock held(rtpListLock_);
  applyClear();
  Table& now = *table_.load();
  const std::size_t slot = now.slotOf(destination.key());
  if (now.keys[slot] != destination.key()) return;
  total_ -= now.counts[slot];
  erase(slot);
}

std::size_t RtpDestinations::length() {
  const MutexLock held(rtpListLock_);
  applyClear();
  return total_;
}

void RtpDestinations::applyClear() {
  if (!cleared_.load(std::memory_order_acquire)) return;
  ++changes_;
  Table& now = *table_.load();
  for (std::size_t i = 0; i <= now.mask; ++i) now.keys[i].store(kFree, std::memory_order_relaxed);
  used_ = total_ = 0;
  ++changes_;
  // Only now: a reader that sees the flag gone sees the empty table.
  cleared_.store(false, std::memory_order_release);
}

void RtpDestinations::insert(std::uint64_t key, u_int times) {
  Table& now = *table_.load();
  const std::size_t slot = now.slotOf(key);
  if (now.keys[slot] == key) {
    now.counts[slot] += times;
    return;
  }
  now.counts[slot] = times;
  now.keys[slot].store(key, std::memory_order_release);
  ++used_;
}

void RtpDestinations::erase(std::size_t slot) {
  Table& now = *table_.load();
  ++changes_;
  // A key after the gap moves into it, unless its home is after the gap.
  for (std::size_t next = (slot + 1) & now.mask; now.keys[next] != kFree; next = (next + 1) & now.mask) {
    const std::size_t home = now.keys[next] * kSpread >> now.shift;
    if (((next - home) & now.mask) < ((next - slot) & now.mask)) continue;
    now.counts[slot] = now.counts[next];
    now.keys[slot].store(now.keys[next], std::memory_order_release);
    slot = next;
  }
  now.keys[slot].store(kFree, std::memory_order_release);
  --used_;
  ++changes_;
}

void RtpDestinations::grow() {
  const Table& old = *table_.load();
  auto larger = std::make_unique<Table>((old.mask + 1) * 2);
  for (std::size_t i = 0; i <= old.mask; ++i) {
    if (old.keys[i] == kFree) continue;
    const std::size_t slot = larger->slotOf(old.keys[i]);
    larger->keys[slot] = old.keys[i].load();
    larger->counts[slot] = old.counts[i];
  }
  tables_.push_back(std::move(larger));
  table_.store(tables_.back().get(), std::memory_order_release);
}

}  // namespace voip
