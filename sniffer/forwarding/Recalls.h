#pragma once

#include <atomic>
#include <utility>
#include <vector>

#include "base/Mutex.h"
#include "forwarding/RtpDestinations.h"

namespace voip {

/// Destinations that the recorder asked for since the consumer looked last: their kept media has to be forwarded before
/// any newer media. Any thread.
class Recalls {
 public:
  /// Adds a destination to the list and asks for its kept media.
  void add(RtpAddr destination, RtpDestinations& list) {
    // The flag before the entry, and the lock over both: a consumer that finds the entry also finds the flag.
    const MutexLock held(recallLock_);
    isPending_ = true;
    list.add(destination);
    destinations_.push_back(destination);
  }

  bool arePending() const { return isPending_.load(std::memory_order_acquire); }

  /// Returns the destinations, which are then forgotten.
  std::vector<RtpAddr> take() {
    const MutexLock held(recallLock_);
    isPending_ = false;
    return std::exchange(destinations_, {});
  }

 private:
  Mutex recallLock_;
  std::vector<RtpAddr> destinations_ GUARDED_BY(recallLock_);
  std::atomic<bool> isPending_ = false;
};

}  // namespace voip
