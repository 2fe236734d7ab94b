#pragma once

#include <chrono>
#include <cstdint>
#include <ctime>
#include <span>

#include "base/CaptureStamp.h"

namespace voip {

/// A time of the monotonic clock, or a duration.
using Instant = std::chrono::milliseconds;

/// A frame for the recorder with its capture time. Does not own the bytes.
struct KeptFrame {
  CaptureStamp stamp;
  std::span<std::uint8_t> frame;  ///< the header and the payload
  Instant firstSent{0};           ///< when its first sending began; 0: not sent yet
};

/// Returns the time of the monotonic clock, precise to a few milliseconds. The coarse clock is used because it is read
/// for each kept frame. Any thread.
inline Instant monotonicNow() {
  timespec time;
  clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
  return Instant(time.tv_sec * std::int64_t{1000} + time.tv_nsec / 1'000'000);
}

}  // namespace voip
