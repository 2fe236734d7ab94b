#pragma once

#include <sys/time.h>

#include <atomic>
#include <chrono>
#include <cstdint>
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

  /// Returns the microseconds from the time stamp of the first frame to the start of the replay; 0 when they are few,
  /// because the file is a pipe from a capture that runs now. For the thread of waitFor(), after its first call.
  std::int64_t shift() const { return shift_; }

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
  std::int64_t shift_ = 0;
  std::atomic<unsigned long> passed_ = 0;
};

}  // namespace voip
