#pragma once

#include <time.h>

#include <cstdint>

namespace voip {

/// When a frame was captured, in microseconds since 1970.
struct CaptureStamp {
  std::int64_t captured = 0;  ///< by its time stamp
  std::int64_t seen = 0;      ///< by the clock of this machine: differs for a frame that is replayed from a file

  /// The clock of this machine, to a few milliseconds: it is read for each frame.
  static std::int64_t now() {
    timespec time;
    clock_gettime(CLOCK_REALTIME_COARSE, &time);
    return time.tv_sec * std::int64_t{1'000'000} + time.tv_nsec / 1000;
  }
};

}  // namespace voip
