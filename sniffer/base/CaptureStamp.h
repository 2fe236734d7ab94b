#pragma once

#include <cstdint>
#include <ctime>

namespace voip {

/// When a frame was captured, in microseconds since 1970.
struct CaptureStamp {
  std::int64_t captured = 0;  ///< by its time stamp
  std::int64_t seen = 0;      ///< by this machine's clock; for an old capture file the time of the replay

  /// Returns this machine's time in microseconds since 1970, precise to a few milliseconds. The coarse clock is used
  /// because it is read for each frame. Any thread.
  static std::int64_t now() {
    timespec time;
    clock_gettime(CLOCK_REALTIME_COARSE, &time);
    return time.tv_sec * std::int64_t{1'000'000} + time.tv_nsec / 1000;
  }
};

}  // namespace voip
