#pragma once

#include <sys/types.h>
#include <time.h>

#include <cstdint>

/// When a frame was captured, in microseconds since 1970.
struct CaptureStamp {
  std::int64_t captured = 0;  ///< by its time stamp
  std::int64_t seen = 0;      ///< by this machine's clock: another time, when the frame is replayed from a file

  /// This machine's clock, to a few milliseconds: it is asked for every frame.
  static std::int64_t now() {
    timespec time;
    clock_gettime(CLOCK_REALTIME_COARSE, &time);
    return time.tv_sec * std::int64_t{1'000'000} + time.tv_nsec / 1000;
  }
};
