#include "forwarding/RtpDestinations.h"

#include <bit>
#include <random>
#include <thread>
#include <type_traits>
#include <utility>

namespace voip {

namespace {

constexpr std::size_t kInitialSize = 1024;

/// Slots that are swept while the lock is held once, so that commands of another recorder do not wait.
constexpr std::size_t kSweptAtOnce = 1024;

// Spreads neighbouring addresses and ports: the golden ratio's fraction, Knuth 6.4.
constexpr std::uint64_t kSpread = 0x9E3779B97F4A7C15;

std::uint64_t wordOf(std::uint64_t ipv4Key) {
  return ipv4Key;
}

template <class Ipv6Key>
std::uint64_t wordOf(const Ipv6Key& key) {
  return key.word;
}

}  // namespace

// ---- the table ----

RtpDestinations::Table::Table(std::size_t size, std::uint64_t factor, bool hasIpv6)
    : mask_(size - 1),
      shift_(64 - std::countr_zero(size)),
      factor_(factor),
      words_(std::make_unique<std::atomic<std::uint64_t>[]>(size)),
      bits_(std::make_unique<std::atomic<std::uint32_t>[]>(size)),
      addresses_(hasIpv6 ? std::make_unique<Address[]>(size) : nullptr) {
  clear();
}

template <class Key>
std::size_t RtpDestinations::Table::slotOf(const Key& key) const {
  std::size_t slot = homeOf(wordOf(key));
  // At least a quarter of the slots is free, but keys may move during a look-up: it visits each slot once at most.
  for (std::size_t tries = 0; tries <= mask_; ++tries, slot = (slot + 1) & mask_) {
    const std::uint64_t found = wordAt(slot);
    if (found == kFree) break;
    if constexpr (std::is_same_v<Key, Ipv4Key>) {
      if (found == key) break;
    } else {
      if (found == key.word && hasAddress(slot, key)) break;
    }
  }
  return slot;
}

bool RtpDestinations::Table::hasAddress(std::size_t slot, const Ipv6Key& key) const {
  const Address& address = addresses_[slot];
  return address.high.load(std::memory_order_acquire) == key.high &&
         address.low.load(std::memory_order_acquire) == key.low;
}

// The word is stored last: a reader that finds it reads its bits and its address.

void RtpDestinations::Table::put(std::size_t slot, Ipv4Key key, std::uint32_t bits) {
  setBits(slot, bits);
  words_[slot].store(key, std::memory_order_release);
}

void RtpDestinations::Table::put(std::size_t slot, const Ipv6Key& key, std::uint32_t bits) {
  addresses_[slot].high.store(key.high, std::memory_order_release);
  addresses_[slot].low.store(key.low, std::memory_order_release);
  put(slot, key.word, bits);
}

void RtpDestinations::Table::copySlot(std::size_t slot, const Table& from, std::size_t fromSlot) {
  const std::uint64_t word = from.wordAt(fromSlot);
  if ((word & kIpv6) == 0) {
    put(slot, word, from.bitsAt(fromSlot));
  } else {
    const Address& address = from.addresses_[fromSlot];
    put(slot, Ipv6Key{word, address.high.load(), address.low.load()}, from.bitsAt(fromSlot));
  }
}

void RtpDestinations::Table::copy(const Table& other) {
  for (std::size_t from = 0; from < other.size(); ++from) {
    if (other.isFree(from)) continue;
    std::size_t slot = homeOf(other.wordAt(from));
    while (!isFree(slot)) slot = (slot + 1) & mask_;
    copySlot(slot, other, from);
  }
}

void RtpDestinations::Table::erase(std::size_t slot) {
  // A later key moves into the free slot, unless its home slot is after the free one.
  for (std::size_t next = (slot + 1) & mask_; !isFree(next); next = (next + 1) & mask_) {
    const std::size_t home = homeOf(wordAt(next));
    if (((next - home) & mask_) < ((next - slot) & mask_)) continue;
    copySlot(slot, *this, next);
    slot = next;
  }
  words_[slot].store(kFree, std::memory_order_release);
}

void RtpDestinations::Table::clear() {
  for (std::size_t slot = 0; slot <= mask_; ++slot) words_[slot].store(kFree, std::memory_order_relaxed);
}

// ---- looking up ----

RtpDestinations::RtpDestinations() : factor_(kSpread) {
  tables_.push_back(std::make_unique<Table>(kInitialSize, factor_, false));
  table_ = tables_.back().get();
}

void RtpDestinations::setRecorders(unsigned count) {
  const MutexLock held(rtpListLock_);
  hasSeveral_ = count > 1;
  if (!hasSeveral_) return;
  // No recorder can choose destinations that make the look-ups for the others slow.
  std::random_device random;
  factor_ = (std::uint64_t{random()} << 32 | random()) | 1;
  tables_.back() = std::make_unique<Table>(kInitialSize, factor_, false);
  table_ = tables_.back().get();
}

/// The word of an IPv4 key has 16 zero bits, that of an IPv6 key begins with the bits 1 and 0: neither means free.
RtpDestinations::Ipv6Key RtpDestinations::ipv6Key(const IpEndpoint& destination) {
  constexpr std::uint64_t kPort = 0xFFFF;
  const std::uint64_t hash = IpEndpointHash()(destination);
  return {kIpv6 | (hash >> 2 & ~kPort) | destination.port, destination.address.high(), destination.address.low()};
}

std::uint32_t RtpDestinations::bitsOf(Ipv4Key key) const {
  return look(key);
}

std::uint32_t RtpDestinations::bitsOf(const Ipv6Key& key) const {
  return look(key);
}

template <class Key>
std::uint32_t RtpDestinations::look(const Key& key) const {
  const std::uint32_t cleared = cleared_.load(std::memory_order_acquire);
  if (cleared != 0 && !hasSeveral_) return 0;
  while (true) {
    const std::uint64_t before = changes_.load(std::memory_order_acquire);
    const Table& now = *table_.load(std::memory_order_acquire);
    const std::size_t slot = now.slotOf(key);
    const bool isFound = now.has(slot, key);
    if (std::is_same_v<Key, Ipv4Key> && isFound && !hasSeveral_) return 1;
    const std::uint32_t bits = isFound ? now.bitsAt(slot) : 0;
    // A miss, or the bits and the address of a slot, are valid only if no key moved meanwhile. All are read with
    // acquire, so this is read after them.
    if (before % 2 == 0 && changes_.load(std::memory_order_relaxed) == before) return bits & ~cleared;
    std::this_thread::yield();
  }
}

// ---- changing ----

bool RtpDestinations::add(const IpEndpoint& destination, unsigned recorder) {
  while (true) {
    Repeated old;  // destroyed after the lock is released
    const MutexLock held(rtpListLock_);
    if (sweep(recorder, old)) return put(destination, recorder);
  }
}

bool RtpDestinations::put(const IpEndpoint& destination, unsigned recorder) {
  List& list = lists_[recorder];
  const Table& before = *table_.load();
  const bool needsIpv6 = !destination.address.isIpv4() && !before.hasIpv6();
  const bool isFull = used_ * 4 >= (before.size() - 1) * 3;
  if (isFull || needsIpv6) replaceTable(before.size() * (isFull ? 2 : 1), needsIpv6 || before.hasIpv6());
  Table& now = *table_.load();
  const std::size_t slot = withKey(destination, [&](const auto& key) { return now.slotOf(key); });
  const bool isFree = now.isFree(slot);
  const std::uint32_t bits = isFree ? 0 : now.bitsAt(slot);
  if ((bits & bitOf(recorder)) != 0) {
    ++list.repeated[destination];
  } else {
    if (list.used >= limit()) return false;
    if (isFree) {
      withKey(destination, [&](const auto& key) { now.put(slot, key, bitOf(recorder)); });
      ++used_;
    } else {
      now.setBits(slot, bits | bitOf(recorder));
    }
    ++list.used;
  }
  ++list.total;
  return true;
}

void RtpDestinations::remove(const IpEndpoint& destination, unsigned recorder) {
  const MutexLock held(rtpListLock_);
  if (isCleared(recorder)) return;
  Table& now = *table_.load();
  const std::size_t slot = withKey(destination, [&](const auto& key) { return now.slotOf(key); });
  if (now.isFree(slot) || (now.bitsAt(slot) & bitOf(recorder)) == 0) return;
  List& list = lists_[recorder];
  --list.total;
  if (const auto repeated = list.repeated.find(destination); repeated != list.repeated.end()) {
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
    if (!now.isFree(list.sweptTo) && (now.bitsAt(list.sweptTo) & bitOf(recorder)) != 0) {
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

void RtpDestinations::replaceTable(std::size_t size, bool hasIpv6) {
  auto next = std::make_unique<Table>(size, factor_, hasIpv6);
  next->copy(*table_.load());
  tables_.push_back(std::move(next));
  table_.store(tables_.back().get(), std::memory_order_release);
}

}  // namespace voip
