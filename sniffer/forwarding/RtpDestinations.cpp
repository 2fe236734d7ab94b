#include "forwarding/RtpDestinations.h"

#include <thread>
#include <utility>

namespace voip {

namespace {

constexpr std::size_t kInitialSize = 1024;

// Spreads neighbouring addresses and ports: the golden ratio's fraction, Knuth 6.4.
constexpr std::uint64_t kSpread = 0x9E3779B97F4A7C15;

}  // namespace

// ---- the table ----

RtpDestinations::Table::Table(std::size_t size)
    : mask_(size - 1),
      shift_(64 - std::countr_zero(size)),
      keys_(std::make_unique<std::atomic<std::uint64_t>[]>(size)),
      counts_(size) {
  clear();
}

std::size_t RtpDestinations::Table::homeOf(std::uint64_t key) const {
  return key * kSpread >> shift_;
}

std::size_t RtpDestinations::Table::slotOf(std::uint64_t key) const {
  std::size_t slot = homeOf(key);
  // At least a quarter of the slots is free, but keys may move during a look-up: it visits each slot once at most.
  for (std::size_t tries = 0; tries <= mask_; ++tries, slot = (slot + 1) & mask_) {
    const std::uint64_t found = keyAt(slot);
    if (found == key || found == kFree) break;
  }
  return slot;
}

void RtpDestinations::Table::put(std::size_t slot, std::uint64_t key, u_int count) {
  counts_[slot] = count;
  keys_[slot].store(key, std::memory_order_release);
}

void RtpDestinations::Table::erase(std::size_t slot) {
  // A later key moves into the free slot, unless its home slot is after the free one.
  for (std::size_t next = (slot + 1) & mask_; keyAt(next) != kFree; next = (next + 1) & mask_) {
    const std::size_t home = homeOf(keyAt(next));
    if (((next - home) & mask_) < ((next - slot) & mask_)) continue;
    put(slot, keyAt(next), counts_[next]);
    slot = next;
  }
  keys_[slot].store(kFree, std::memory_order_release);
}

void RtpDestinations::Table::clear() {
  for (std::size_t slot = 0; slot <= mask_; ++slot) keys_[slot].store(kFree, std::memory_order_relaxed);
}

// ---- the list ----

RtpDestinations::RtpDestinations() {
  tables_.push_back(std::make_unique<Table>(kInitialSize));
  table_ = tables_.back().get();
}

bool RtpDestinations::contains(RtpAddr destination) const {
  if (cleared_.load(std::memory_order_acquire)) return false;
  const std::uint64_t key = destination.key();
  while (true) {
    const std::uint64_t before = changes_.load(std::memory_order_acquire);
    const Table& now = *table_.load(std::memory_order_acquire);
    if (now.keyAt(now.slotOf(key)) == key) return true;
    // A miss is valid only if no key moved meanwhile. The keys are read with acquire, so this is read after them.
    if (before % 2 == 0 && changes_.load(std::memory_order_relaxed) == before) return false;
    std::this_thread::yield();
  }
}

void RtpDestinations::add(RtpAddr destination) {
  const MutexLock held(rtpListLock_);
  applyClear();
  if (used_ * 4 >= (table_.load()->size() - 1) * 3) grow();
  Table& now = *table_.load();
  const std::size_t slot = now.slotOf(destination.key());
  if (now.keyAt(slot) == destination.key()) {
    ++now.countAt(slot);
  } else {
    now.put(slot, destination.key(), 1);
    ++used_;
  }
  ++total_;
}

void RtpDestinations::remove(RtpAddr destination) {
  const MutexLock held(rtpListLock_);
  applyClear();
  Table& now = *table_.load();
  const std::size_t slot = now.slotOf(destination.key());
  if (now.keyAt(slot) != destination.key()) return;
  total_ -= now.countAt(slot);
  ++changes_;
  now.erase(slot);
  --used_;
  ++changes_;
}

std::size_t RtpDestinations::length() {
  const MutexLock held(rtpListLock_);
  applyClear();
  return total_;
}

void RtpDestinations::applyClear() {
  if (!cleared_.load(std::memory_order_acquire)) return;
  ++changes_;
  table_.load()->clear();
  used_ = total_ = 0;
  ++changes_;
  // After the table is empty, so that a reader that sees no flag sees the empty table.
  cleared_.store(false, std::memory_order_release);
}

void RtpDestinations::grow() {
  Table& old = *table_.load();
  auto larger = std::make_unique<Table>(old.size() * 2);
  for (std::size_t slot = 0; slot < old.size(); ++slot) {
    const std::uint64_t key = old.keyAt(slot);
    if (key != Table::kFree) larger->put(larger->slotOf(key), key, old.countAt(slot));
  }
  tables_.push_back(std::move(larger));
  table_.store(tables_.back().get(), std::memory_order_release);
}

}  // namespace voip
