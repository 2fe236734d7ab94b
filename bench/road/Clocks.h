#pragma once

#include <ctime>

namespace road {

/// Returns the time of a clock in seconds.
inline double secondsOf(clockid_t clock) {
  timespec time;
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

/// Sleeps until times that are a fixed interval apart. A late call does not delay the later ones.
class Ticker {
 public:
  explicit Ticker(long nanoseconds) : interval_(nanoseconds) { clock_gettime(CLOCK_MONOTONIC, &due_); }

  void wait() {
    due_.tv_nsec += interval_;
    due_.tv_sec += due_.tv_nsec / 1'000'000'000;
    due_.tv_nsec %= 1'000'000'000;
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due_, nullptr);
  }

 private:
  const long interval_;
  timespec due_;
};

}  // namespace road
