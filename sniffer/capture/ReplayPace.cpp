#include "capture/ReplayPace.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace voip {

namespace {

// The clock counts in nanoseconds and would overflow on the way to what a file can claim: no wait is longer than a
// year, and no time stamp lies outside these seconds.
constexpr std::chrono::microseconds kLongestWait = std::chrono::hours(24 * 365);
constexpr time_t kLastSecond = time_t{1} << 33;

bool fullSpeedWanted() {
  const char* pace = std::getenv("SNIFFER_REPLAY_PACE");
  return pace != nullptr && std::string_view(pace) == "full";
}

}  // namespace

ReplayPace::ReplayPace() : unpaced(fullSpeedWanted()) {}

bool ReplayPace::waitFor(const timeval& timeStamp) {
  const auto stamp = std::chrono::seconds(std::clamp(timeStamp.tv_sec, time_t{0}, kLastSecond)) +
                     std::chrono::microseconds(std::clamp<suseconds_t>(timeStamp.tv_usec, 0, 999'999));
  std::unique_lock guard(lock);
  if (!firstStamp) {
    firstStamp = stamp;
    start = Clock::now();
  }
  if (!unpaced) {
    const auto due = start + std::clamp(stamp - *firstStamp, std::chrono::microseconds(0), kLongestWait);
    stopSignal.wait_until(guard, due, [this] { return stopped; });
  }
  if (!stopped) ++passed;
  return !stopped;
}

void ReplayPace::stop() {
  {
    const std::lock_guard guard(lock);
    stopped = true;
  }
  stopSignal.notify_all();
}

}  // namespace voip
