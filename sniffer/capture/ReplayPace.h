#pragma once

#include <sys/time.h>

#include <atomic>
#include <chrono>
#include <optional>

#include "base/Mutex.h"

namespace voip {

/// Paces the replay of a capture file by the time stamps of its frames, counted from the first frame.
///
/// The environment variable SNIFFER_REPLAY_PACE=full, for tests and measurements, replays without a pause.
class ReplayPace {
 public:
  ReplayPace();

  /// Waits until the frame with this time stamp is due. A frame older than the first one is due at once. Returns false
  /// after stop().
  bool waitFor(const timeval& timeStamp);

  /// The number of frames for which waitFor() returned true. Any thread.
  unsigned long getPassed() const { return passed_; }

  /// Ends the current wait and all later ones. Any thread.
  void stop();

 private:
  using Clock = Condition::Clock;

  const bool unpaced_;
  Mutex mutex_;
  Condition stopSignal_;
  bool stopped_ GUARDED_BY(mutex_) = false;
  std::optional<std::chrono::microseconds> firstStamp_ GUARDED_BY(mutex_);
  Clock::time_point start_ GUARDED_BY(mutex_);
  std::atomic<unsigned long> passed_ = 0;
};

}  // namespace voip
