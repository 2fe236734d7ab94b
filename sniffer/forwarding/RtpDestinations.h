#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "base/Mutex.h"
#include "forwarding/RtpAddr.h"

namespace voip {

/// The RTP destinations that the recorder has asked for. An entry that is added again counts again, and one removal
/// removes all equal entries.
///
/// A look-up takes no lock and costs the same for one entry and for a hundred thousand. Any thread may call anything.
class RtpDestinations {
 public:
  RtpDestinations();
  RtpDestinations(const RtpDestinations&) = delete;
  RtpDestinations& operator=(const RtpDestinations&) = delete;

  void add(RtpAddr destination);
  void remove(RtpAddr destination);
  bool contains(RtpAddr destination) const;

  /// Empties the list without waiting for threads that use it.
  void clear() { cleared_.store(true, std::memory_order_release); }

  /// Entries, each of equal ones counted.
  std::size_t length();

 private:
  // Open addressing with linear probing; no free slot stands between a key and its home. The sizes double, so all
  // tables that were outgrown are together no larger than the present one: they are kept for readers that still use
  // one.
  struct Table {
    explicit Table(std::size_t size);
    std::size_t slotOf(std::uint64_t key) const;  ///< the slot of the key, or the free slot where it belongs

    const std::size_t mask;
    const int shift;
    std::unique_ptr<std::atomic<std::uint64_t>[]> keys;
    std::vector<u_int> counts;  ///< the writers' only
  };

  void applyClear() REQUIRES(rtpListLock_);
  void insert(std::uint64_t key, u_int times) REQUIRES(rtpListLock_);
  void erase(std::size_t slot) REQUIRES(rtpListLock_);
  void grow() REQUIRES(rtpListLock_);

  Mutex rtpListLock_{"rtpListLock"};      ///< held by threads that change the list
  std::atomic<std::uint64_t> changes_{};  ///< odd while the table is being changed
  std::atomic<Table*> table_;
  std::vector<std::unique_ptr<Table>> tables_ GUARDED_BY(rtpListLock_);
  std::atomic<bool> cleared_ = false;  ///< the list counts as empty; the next change empties it
  std::size_t used_ GUARDED_BY(rtpListLock_) = 0;
  std::size_t total_ GUARDED_BY(rtpListLock_) = 0;
};

}  // namespace voip
