#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "base/Mutex.h"
#include "forwarding/RtpAddr.h"

namespace voip {

/// The list of destinations that the recorder has asked for. A destination may be in the list several times; a removal
/// removes all equal entries.
///
/// A look-up takes no lock, and its cost does not depend on the length of the list. Any thread may call any operation.
class RtpDestinations {
 public:
  RtpDestinations();
  RtpDestinations(const RtpDestinations&) = delete;
  RtpDestinations& operator=(const RtpDestinations&) = delete;

  /// Adds an entry, whether or not there is an equal one. Throws std::bad_alloc.
  void add(RtpAddr destination);

  /// Removes all entries of a destination.
  void remove(RtpAddr destination);

  /// True when the list has an entry of a destination. Takes no lock.
  bool contains(RtpAddr destination) const;

  /// Empties the list without waiting for threads that use it.
  void clear() { cleared_.store(true, std::memory_order_release); }

  /// Returns the number of entries, equal ones included.
  std::size_t length();

 private:
  /// A hash table of keys, each with a count. It uses open addressing with linear probing: no slot between the home
  /// slot of a key and its actual slot is free.
  class Table {
   public:
    static constexpr std::uint64_t kFree = ~std::uint64_t{0};  ///< no key: a key has 16 zero bits

    /// `size` is a power of two.
    explicit Table(std::size_t size);

    std::size_t size() const { return mask_ + 1; }

    /// Returns the slot of a key, or the free slot where it belongs. Any thread.
    std::size_t slotOf(std::uint64_t key) const;

    /// Returns the key in a slot, or kFree. Any thread.
    std::uint64_t keyAt(std::size_t slot) const { return keys_[slot].load(std::memory_order_acquire); }

    // Writers only.
    u_int& countAt(std::size_t slot) { return counts_[slot]; }
    void put(std::size_t slot, std::uint64_t key, u_int count);
    void erase(std::size_t slot);
    void clear();

   private:
    std::size_t homeOf(std::uint64_t key) const;

    const std::size_t mask_;
    const int shift_;
    std::unique_ptr<std::atomic<std::uint64_t>[]> keys_;
    std::vector<u_int> counts_;
  };

  void applyClear() REQUIRES(rtpListLock_);
  void grow() REQUIRES(rtpListLock_);

  Mutex rtpListLock_{"rtpListLock"};      ///< held by threads that change the list
  std::atomic<std::uint64_t> changes_{};  ///< odd while keys move or disappear
  std::atomic<Table*> table_;             ///< the last of `tables_`

  /// The sizes double, so the outgrown tables together are no larger than the present one. Readers may still use them.
  std::vector<std::unique_ptr<Table>> tables_ GUARDED_BY(rtpListLock_);

  std::atomic<bool> cleared_ = false;               ///< the list counts as empty; the next change empties it
  std::size_t used_ GUARDED_BY(rtpListLock_) = 0;   ///< different destinations
  std::size_t total_ GUARDED_BY(rtpListLock_) = 0;  ///< entries
};

}  // namespace voip
