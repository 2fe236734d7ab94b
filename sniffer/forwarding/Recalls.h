#pragma once

#include <atomic>
#include <cstddef>
#include <unordered_set>
#include <utility>
#include <vector>

#include "base/Mutex.h"
#include "forwarding/RtpDestinations.h"

namespace voip {

/// Destinations that the recorder asked for since the consumer looked last: their kept media has to be forwarded before
/// any newer media. Any thread.
class Recalls {
 public:
  /// Adds a destination to the list and asks for its kept media. Beyond 65,536 destinations that the consumer has not
  /// looked at, kept media stays where it is.
  void add(RtpAddr destination, RtpDestinations& list) {
    // The flag before the entry, and the lock over both: a consumer that finds the entry also finds the flag.
    const MutexLock held(recallLock_);
    isPending_ = true;
    list.add(destination);
    if (known_.size() < kMost && known_.insert(destination.key()).second) destinations_.push_back(destination);
  }

  bool arePending() const { return isPending_.load(std::memory_order_acquire); }

  /// Returns the destinations in the order of the requests, each once. They are then forgotten.
  std::vector<RtpAddr> take() {
    const MutexLock held(recallLock_);
    isPending_ = false;
    known_.clear();
    return std::exchange(destinations_, {});
  }

 private:
  static constexpr std::size_t kMost = 65'536;

  Mutex recallLock_;
  std::vector<RtpAddr> destinations_ GUARDED_BY(recallLock_);
  std::unordered_set<std::uint64_t> known_ GUARDED_BY(recallLock_);
  std::atomic<bool> isPending_ = false;
};

}  // namespace voip
