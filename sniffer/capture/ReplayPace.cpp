#include "capture/ReplayPace.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "base/CaptureStamp.h"

namespace voip {

namespace {

// The clock counts nanoseconds, and the time stamps of a hostile file would overflow it. So time stamps and waits are
// limited.
constexpr std::chrono::microseconds kLongestWait = std::chrono::hours(24 * 365);
constexpr time_t kLastSecond = time_t{1} << 33;
constexpr std::int64_t kRunningNow = 10'000'000;  // microseconds: a capture is still running when it is no older

bool fullSpeedWanted() {
  const char* pace = std::getenv("SNIFFER_REPLAY_PACE");
  return pace != nullptr && std::string_view(pace) == "full";
}

}  // namespace

ReplayPace::ReplayPace() : unpaced_(fullSpeedWanted()) {}

bool ReplayPace::waitFor(const timeval& timeStamp) {
  const auto stamp = std::chrono::seconds(std::clamp(timeStamp.tv_sec, time_t{0}, kLastSecond)) +
                     std::chrono::microseconds(std::clamp<suseconds_t>(timeStamp.tv_usec, 0, 999'999));
  const MutexLock lock(mutex_);
  if (!firstStamp_) {
    firstStamp_ = stamp;
    start_ = Clock::now();
    const std::int64_t age = CaptureStamp::now() - stamp.count();
    shift_ = std::abs(age) < kRunningNow ? 0 : age;
  }
  if (!unpaced_) {
    const auto due = start_ + std::clamp(stamp - *firstStamp_, std::chrono::microseconds(0), kLongestWait);
    while (!stopped_ && stopSignal_.waitUntil(mutex_, due)) {
    }
  }
  if (!stopped_) ++passed_;
  return !stopped_;
}

void ReplayPace::stop() {
  {
    const MutexLock lock(mutex_);
    stopped_ = true;
  }
  stopSignal_.notifyAll();
}

}  // namespace voip
