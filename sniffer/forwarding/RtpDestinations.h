#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "base/IpEndpoint.h"
#include "base/Mutex.h"
#include "forwarding/RtpAddr.h"

namespace voip {

/// The destinations that the recorders have asked for, IPv4 and IPv6: one table for all recorders, with a bit for each.
/// Each recorder has a list of its own in it. A destination may be in a list several times; a removal removes all equal
/// entries.
///
/// A look-up takes no lock, and its cost depends neither on the length of the lists nor on the number of recorders. Any
/// thread may call any operation.
class RtpDestinations {
 public:
  static constexpr unsigned kMaxRecorders = 32;

  /// With several recorders, the most different destinations of each: one that asks for everything must not use up the
  /// memory of the others.
  static constexpr std::size_t kMaxOfEach = 262'144;

  RtpDestinations();
  RtpDestinations(const RtpDestinations&) = delete;
  RtpDestinations& operator=(const RtpDestinations&) = delete;

  /// Sets the number of recorders, 1 to kMaxRecorders; 1 without a call. To be called before the first use.
  void setRecorders(unsigned count);

  /// Returns the most different destinations of one recorder.
  std::size_t limit() const { return hasSeveral_ ? kMaxOfEach : SIZE_MAX; }

  /// Adds an entry to the list of `recorder`, a number from 0, whether or not there is an equal one. Returns false, and
  /// adds nothing, when the list has limit() other destinations. Throws std::bad_alloc.
  bool add(const IpEndpoint& destination, unsigned recorder);

  /// Removes all entries of a destination from a list.
  void remove(const IpEndpoint& destination, unsigned recorder);

  /// Returns a bit for each recorder with an entry of a destination: 1 << recorder. Takes no lock.
  std::uint32_t wantedBy(const IpEndpoint& destination) const {
    return destination.address.isIpv4() ? bitsOf(ipv4Key(destination)) : bitsOf(ipv6Key(destination));
  }

  /// Empties a list without waiting for threads that use it, whatever its length.
  void clear(unsigned recorder) { cleared_.fetch_or(bitOf(recorder), std::memory_order_release); }

  /// Returns the number of entries of a list, equal ones included.
  std::size_t length(unsigned recorder);

 private:
  /// An IPv4 destination in the table, its word: the address and the port.
  using Ipv4Key = std::uint64_t;

  /// An IPv6 destination in the table: its word and the halves of its address. The word is kIpv6, 46 bits of a hash and
  /// the port.
  struct Ipv6Key {
    std::uint64_t word, high, low;
  };

  static constexpr std::uint64_t kIpv6 = std::uint64_t{1} << 63;

  /// A hash table of keys, each with the bits of the recorders that have it. The word of a key decides where it is; the
  /// addresses of IPv6 keys are compared as well. The table uses open addressing with linear probing: no slot between
  /// the home slot of a key and its actual slot is free.
  class Table {
   public:
    /// `size` is a power of two. `factor`, which is odd, decides the order of the keys. `hasIpv6`: there is space for
    /// IPv6 addresses.
    Table(std::size_t size, std::uint64_t factor, bool hasIpv6);

    std::size_t size() const { return mask_ + 1; }
    bool hasIpv6() const { return addresses_ != nullptr; }

    /// Returns the slot of a key, or the free slot where it belongs. Any thread.
    template <class Key>
    std::size_t slotOf(const Key& key) const;

    // Any thread.
    bool isFree(std::size_t slot) const { return wordAt(slot) == kFree; }
    bool has(std::size_t slot, Ipv4Key key) const { return wordAt(slot) == key; }
    bool has(std::size_t slot, const Ipv6Key& key) const { return wordAt(slot) == key.word && hasAddress(slot, key); }

    /// Returns the bits of the key in a slot. Any thread.
    std::uint32_t bitsAt(std::size_t slot) const { return bits_[slot].load(std::memory_order_acquire); }

    // Writers only.
    void setBits(std::size_t slot, std::uint32_t bits) { bits_[slot].store(bits, std::memory_order_release); }
    void put(std::size_t slot, Ipv4Key key, std::uint32_t bits);
    void put(std::size_t slot, const Ipv6Key& key, std::uint32_t bits);
    void erase(std::size_t slot);
    void clear();

    /// Puts all keys of another table into this one, which must be empty.
    void copy(const Table& other);

   private:
    static constexpr std::uint64_t kFree = ~std::uint64_t{0};  ///< the word of no key

    struct Address {
      std::atomic<std::uint64_t> high, low;
    };

    std::uint64_t wordAt(std::size_t slot) const { return words_[slot].load(std::memory_order_acquire); }
    bool hasAddress(std::size_t slot, const Ipv6Key& key) const;
    void copySlot(std::size_t slot, const Table& from, std::size_t fromSlot);
    std::size_t homeOf(std::uint64_t word) const { return word * factor_ >> shift_; }

    const std::size_t mask_;
    const int shift_;
    const std::uint64_t factor_;
    std::unique_ptr<std::atomic<std::uint64_t>[]> words_;
    std::unique_ptr<std::atomic<std::uint32_t>[]> bits_;
    std::unique_ptr<Address[]> addresses_;  ///< of IPv6 keys; null until there is one
  };

  /// Destinations with further, equal entries, and the number of these.
  using Repeated = std::unordered_map<IpEndpoint, std::size_t, IpEndpointHash>;

  /// What is known of the list of one recorder.
  struct List {
    std::size_t used = 0;   ///< different destinations
    std::size_t total = 0;  ///< entries
    Repeated repeated;
    std::size_t sweptTo = 0;  ///< the slot at which the removal of a cleared list goes on
  };

  static constexpr std::uint32_t bitOf(unsigned recorder) { return std::uint32_t{1} << recorder; }
  bool isCleared(unsigned recorder) const { return (cleared_.load(std::memory_order_acquire) & bitOf(recorder)) != 0; }

  /// Returns the result of `action` for the key of a destination, of either type.
  template <class Action>
  static auto withKey(const IpEndpoint& destination, Action action) {
    return destination.address.isIpv4() ? action(ipv4Key(destination)) : action(ipv6Key(destination));
  }
  static Ipv4Key ipv4Key(const IpEndpoint& destination) {
    return std::uint64_t{destination.port} << 32 | destination.address.ipv4();
  }
  static Ipv6Key ipv6Key(const IpEndpoint& destination);

  std::uint32_t bitsOf(Ipv4Key key) const;
  std::uint32_t bitsOf(const Ipv6Key& key) const;
  template <class Key>
  std::uint32_t look(const Key& key) const;
  bool put(const IpEndpoint& destination, unsigned recorder) REQUIRES(rtpListLock_);
  void dropBit(std::size_t slot, unsigned recorder) REQUIRES(rtpListLock_);
  bool sweep(unsigned recorder, Repeated& old) REQUIRES(rtpListLock_);
  void sweepSome(unsigned recorder) REQUIRES(rtpListLock_);
  void sweepTable() REQUIRES(rtpListLock_);
  void replaceTable(std::size_t size, bool hasIpv6) REQUIRES(rtpListLock_);

  Mutex rtpListLock_{"rtpListLock"};      ///< held by threads that change a list
  std::atomic<std::uint64_t> changes_{};  ///< odd while keys move or disappear
  std::atomic<Table*> table_;             ///< the last of `tables_`

  /// The sizes double, except once for IPv6 addresses, so the outgrown tables together are no larger than the present
  /// one. Readers may still use them.
  std::vector<std::unique_ptr<Table>> tables_ GUARDED_BY(rtpListLock_);

  /// Bits of the recorders whose lists count as empty. The next addition to such a list removes its entries first.
  std::atomic<std::uint32_t> cleared_ = 0;
  bool hasSeveral_ = false;
  std::uint64_t factor_;                           ///< of the tables
  std::size_t used_ GUARDED_BY(rtpListLock_) = 0;  ///< keys in the table
  std::array<List, kMaxRecorders> lists_ GUARDED_BY(rtpListLock_);
};

/// The list of one recorder among all destinations. Any thread.
class DestinationList {
 public:
  /// `all` must outlive the object.
  DestinationList(RtpDestinations& all, unsigned recorder) : all_(all), recorder_(recorder) {}

  /// As the operations of RtpDestinations.
  bool add(const IpEndpoint& destination) { return all_.add(destination, recorder_); }
  void remove(const IpEndpoint& destination) { all_.remove(destination, recorder_); }
  void clear() { all_.clear(recorder_); }
  std::size_t length() { return all_.length(recorder_); }
  std::size_t limit() const { return all_.limit(); }

  /// True when the list has an entry of a destination. Takes no lock.
  bool contains(const IpEndpoint& destination) const { return (all_.wantedBy(destination) >> recorder_ & 1) != 0; }

 private:
  RtpDestinations& all_;
  const unsigned recorder_;
};

}  // namespace voip
