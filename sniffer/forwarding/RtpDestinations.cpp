#include "forwarding/RtpDestinations.h"

#include <random>
#include <thread>
#include <utility>

namespace voip {

namespace {

constexpr std::size_t kInitialSize = 1024;

/// Slots that are swept while the lock is held once, so that commands of another recorder do not wait.
constexpr std::size_t kSweptAtOnce = 1024;

// Spreads neighbouring addresses and ports: the golden ratio's fraction, Knuth 6.4.
constexpr std::uint64_t kSpread = 0x9E3779B97F4A7C15;

}  // namespace

// ---- the table ----

RtpDestinations::Table::Table(std::size_t size, std::uint64_t factor)
    : mask_(size - 1),
      shift_(64 - std::countr_zero(size)),
      factor_(factor),
      keys_(std::make_unique<std::atomic<std::uint64_t>[]>(size)),
      bits_(std::make_unique<std::atomic<std::uint32_t>[]>(size)) {
  clear();
}

std::size_t RtpDestinations::Table::homeOf(std::uint64_t key) const {
  return key * factor_ >> shift_;
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

void RtpDestinations::Table::put(std::size_t slot, std::uint64_t key, std::uint32_t bits) {
  setBits(slot, bits);  // first: a reader that finds the key reads its bits
  keys_[slot].store(key, std::memory_order_release);
}

void RtpDestinations::Table::erase(std::size_t slot) {
  // A later key moves into the free slot, unless its home slot is after the free one.
  for (std::size_t next = (slot + 1) & mask_; keyAt(next) != kFree; next = (next + 1) & mask_) {
    const std::size_t home = homeOf(keyAt(next));
    if (((next - home) & mask_) < ((next - slot) & mask_)) continue;
    put(slot, keyAt(next), bitsAt(next));
    slot = next;
  }
  keys_[slot].store(kFree, std::memory_order_release);
}

void RtpDestinations::Table::clear() {
  for (std::size_t slot = 0; slot <= mask_; ++slot) keys_[slot].store(kFree, std::memory_order_relaxed);
}

// ---- looking up ----

RtpDestinations::RtpDestinations() : factor_(kSpread) {
  tables_.push_back(std::make_unique<Table>(kInitialSize, factor_));
  table_ = tables_.back().get();
}

void RtpDestinations::setRecorders(unsigned count) {
  const MutexLock held(rtpListLock_);
  hasSeveral_ = count > 1;
  if (!hasSeveral_) return;
  // No recorder can choose destinations that make the look-ups for the others slow.
  std::random_device random;
  factor_ = (std::uint64_t{random()} << 32 | random()) | 1;
  tables_.back() = std::make_unique<Table>(kInitialSize, factor_);
  table_ = tables_.back().get();
}

/// True when the table of a single recorder has the destination.
bool RtpDestinations::isWanted(RtpAddr destination) const {
  if (cleared_.load(std::memory_order_acquire) != 0) return false;
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

std::uint32_t RtpDestinations::wantedBySeveral(RtpAddr destination) const {
  const std::uint32_t cleared = cleared_.load(std::memory_order_acquire);
  const std::uint64_t key = destination.key();
  while (true) {
    const std::uint64_t before = changes_.load(std::memory_order_acquire);
    const Table& now = *table_.load(std::memory_order_acquire);
    const std::size_t slot = now.slotOf(key);
    const std::uint32_t bits = now.keyAt(slot) == key ? now.bitsAt(slot) : 0;
    // The bits of a slot are valid only if no key moved meanwhile, as a miss is.
    if (before % 2 == 0 && changes_.load(std::memory_order_relaxed) == before) return bits & ~cleared;
    std::this_thread::yield();
  }
}

// ---- changing ----

bool RtpDestinations::add(RtpAddr destination, unsigned recorder) {
  while (true) {
    Repeated old;  // destroyed after the lock is released
    const MutexLock held(rtpListLock_);
    if (sweep(recorder, old)) return put(destination, recorder);
  }
}

bool RtpDestinations::put(RtpAddr destination, unsigned recorder) {
  List& list = lists_[recorder];
  if (used_ * 4 >= (table_.load()->size() - 1) * 3) grow();
  Table& now = *table_.load();
  const std::size_t slot = now.slotOf(destination.key());
  const bool isFree = now.keyAt(slot) == Table::kFree;
  const std::uint32_t bits = isFree ? 0 : now.bitsAt(slot);
  if ((bits & bitOf(recorder)) != 0) {
    ++list.repeated[destination.key()];
  } else {
    if (list.used >= limit()) return false;
    isFree ? now.put(slot, destination.key(), bitOf(recorder)) : now.setBits(slot, bits | bitOf(recorder));
    if (isFree) ++used_;
    ++list.used;
  }
  ++list.total;
  return true;
}

void RtpDestinations::remove(RtpAddr destination, unsigned recorder) {
  const MutexLock held(rtpListLock_);
  if (isCleared(recorder)) return;
  Table& now = *table_.load();
  const std::size_t slot = now.slotOf(destination.key());
  if (now.keyAt(slot) != destination.key() || (now.bitsAt(slot) & bitOf(recorder)) == 0) return;
  List& list = lists_[recorder];
  --list.total;
  if (const auto repeated = list.repeated.find(destination.key()); repeated != list.repeated.end()) {
    list.total -= repeated->second;
    list.repeated.erase(repeated);
  }
  dropBit(slot, recorder);
}

/// Removes a recorder's bit from the key in a slot, and the key with its last bit. Another key may then be in the slot.
void RtpDestinations::dropBit(std::size_t slot, unsigned recorder) {
  Table& now = *table_.load();
  --lists_[recorder].used;
  const std::uint32_t bits = now.bitsAt(slot) & ~bitOf(recorder);
  if (bits != 0) {
    now.setBits(slot, bits);
    return;
  }
  ++changes_;
  now.erase(slot);
  --used_;
  ++changes_;
}

std::size_t RtpDestinations::length(unsigned recorder) {
  const MutexLock held(rtpListLock_);
  return isCleared(recorder) ? 0 : lists_[recorder].total;
}

// ---- emptying a list ----

/// Removes entries of a list that was cleared. Returns true when none is left. Gives the caller what it has to destroy
/// without the lock.
bool RtpDestinations::sweep(unsigned recorder, Repeated& old) {
  if (!isCleared(recorder)) return true;
  List& list = lists_[recorder];
  hasSeveral_ ? sweepSome(recorder) : sweepTable();
  if (list.used > 0) return false;
  list.repeated.swap(old);
  list.total = list.sweptTo = 0;
  // After the last bit is gone, so that a reader that sees no flag sees no bit.
  cleared_.fetch_and(~bitOf(recorder), std::memory_order_release);
  return true;
}

/// Removes the bits of a list from the next slots. Keys may move between two calls: the sweep goes round until it has
/// removed all.
void RtpDestinations::sweepSome(unsigned recorder) {
  List& list = lists_[recorder];
  const Table& now = *table_.load();
  for (std::size_t steps = 0; list.used > 0 && steps < kSweptAtOnce; ++steps) {
    if (now.keyAt(list.sweptTo) != Table::kFree && (now.bitsAt(list.sweptTo) & bitOf(recorder)) != 0) {
      dropBit(list.sweptTo, recorder);
    } else {
      list.sweptTo = (list.sweptTo + 1) % now.size();
    }
  }
}

/// Empties the table of a single recorder.
void RtpDestinations::sweepTable() {
  ++changes_;
  table_.load()->clear();
  used_ = lists_[0].used = 0;
  ++changes_;
}

void RtpDestinations::grow() {
  const Table& old = *table_.load();
  auto larger = std::make_unique<Table>(old.size() * 2, factor_);
  for (std::size_t slot = 0; slot < old.size(); ++slot) {
    const std::uint64_t key = old.keyAt(slot);
    if (key != Table::kFree) larger->put(larger->slotOf(key), key, old.bitsAt(slot));
  }
  tables_.push_back(std::move(larger));
  table_.store(tables_.back().get(), std::memory_order_release);
}

}  // namespace voip
