#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <ctime>
#include <span>

#include "queue/CaptureStamp.h"

namespace voip {

/// A frame for the recorder: the 15-byte header and the payload.
struct KeptFrame {
  CaptureStamp stamp;
  std::span<u_char> frame;
};

/// A point of the monotonic clock.
using Instant = std::chrono::milliseconds;

/// The monotonic clock, to a few milliseconds: it is read for each frame that is kept.
inline Instant monotonicNow() {
  timespec time;
  clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
  return Instant(time.tv_sec * std::int64_t{1000} + time.tv_nsec / 1'000'000);
}

}  // namespace voip
