#pragma once

#include <cstdint>

namespace voip {

/// A clock in microseconds that never decreases. It follows the capture times of frames, so that time limits are right
/// for a file that is replayed faster than it was captured. While no frame arrives, it follows the machine's monotonic
/// clock.
///
/// Capture times alone are not enough: they decrease when the system clock is set, and those of two files or two
/// devices differ. A capture time that is earlier than the clock, or much later, does not change it.
class ForwardClock {
 public:
  static constexpr std::int64_t kLongestStep = 600'000'000;  ///< a longer step means another clock, not a pause

  /// Returns the time when a frame with this capture time arrives. `monotonic` is the machine's monotonic clock.
  std::int64_t at(std::int64_t captured, std::int64_t monotonic) {
    advance(monotonic);
    const std::int64_t step = captured - captureClock_;
    if (step <= 0) return now_;
    captureClock_ = captured;
    if (step <= kLongestStep) now_ += step;
    return now_;
  }

  /// Returns the time while no frame arrives.
  std::int64_t advance(std::int64_t monotonic) {
    const std::int64_t step = monotonic_ == 0 || monotonic < monotonic_ ? 0 : monotonic - monotonic_;
    monotonic_ = monotonic;
    captureClock_ += step;
    now_ += step;
    return now_;
  }

 private:
  std::int64_t now_ = 0;
  std::int64_t captureClock_ = 0;  ///< the capture time of a frame that arrives now
  std::int64_t monotonic_ = 0;
};

}  // namespace voip
