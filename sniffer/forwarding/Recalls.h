#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <unordered_set>
#include <utility>
#include <vector>

#include "base/Mutex.h"
#include "forwarding/RtpDestinations.h"

namespace voip {

/// Destinations that the recorder has asked for and the lane has not taken yet. Their kept media has to be forwarded
/// before newer media. Any thread.
class Recalls {
 public:
  /// Adds a destination to `list` and requests its kept media. Does not request it when 65,536 other destinations wait
  /// for the lane. Returns false when the list is full. Throws std::bad_alloc.
  bool add(const IpEndpoint& destination, DestinationList& list) {
    // The flag is set before the entry is added: a lane that finds the entry also finds the flag, and then waits for
    // the lock until the request is complete.
    const MutexLock held(recallLock_);
    isPending_ = true;
    if (!list.add(destination)) return false;
    if (known_.size() < kMaxWaiting && known_.insert(destination).second) destinations_.push_back(destination);
    return true;
  }

  /// True when destinations wait for take(). Takes no lock.
  bool arePending() const { return isPending_.load(std::memory_order_acquire); }

  /// Removes and returns the waiting destinations in the order of the requests, each once.
  std::vector<IpEndpoint> take() {
    const MutexLock held(recallLock_);
    isPending_ = false;
    known_.clear();
    return std::exchange(destinations_, {});
  }

 private:
  static constexpr std::size_t kMaxWaiting = 65'536;  ///< destinations

  Mutex recallLock_;
  std::vector<IpEndpoint> destinations_ GUARDED_BY(recallLock_);
  std::unordered_set<IpEndpoint, IpEndpointHash> known_ GUARDED_BY(recallLock_);  ///< the same
  std::atomic<bool> isPending_ = false;
};

}  // namespace voip
