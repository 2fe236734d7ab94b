#pragma once

#include <sys/time.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>

namespace voip {

/// Lets the frames of one capture file pass at the distance of their time stamps, counted from the first.
///
/// The environment variable SNIFFER_REPLAY_PACE=full, for tests and measurements, lets them pass at once.
class ReplayPace {
 public:
  ReplayPace();

  /// Waits until the frame with this time stamp is due. A frame older than the first one is due at once. False when
  /// stop() was called.
  bool waitFor(const timeval& timeStamp);

  /// Frames that waitFor() has let pass. Any thread.
  unsigned long getPassed() const { return passed; }

  /// Ends a wait, and every later one. Any thread.
  void stop();

 private:
  using Clock = std::chrono::steady_clock;

  const bool unpaced;
  std::optional<std::chrono::microseconds> firstStamp;
  Clock::time_point start;
  std::mutex lock;
  std::condition_variable stopSignal;
  bool stopped = false;
  std::atomic<unsigned long> passed = 0;
};

}  // namespace voip
