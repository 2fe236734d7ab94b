#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace voip {

/// Limits a log line that the network can cause to one a second. One thread.
class LineLimit {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::seconds kInterval{1};

  /// Returns `line` for the log, with the number of lines suppressed before it, if any, at its end. Returns
  /// std::nullopt and suppresses `line` less than kInterval after the last logged line.
  std::optional<std::string> admit(std::string line, Clock::time_point now) {
    if (now < next_) {
      ++suppressed_;
      return std::nullopt;
    }
    next_ = now + kInterval;
    const std::uint64_t suppressed = std::exchange(suppressed_, 0);
    if (suppressed > 0) line += " (" + std::to_string(suppressed) + " such lines suppressed)";
    return line;
  }

 private:
  Clock::time_point next_ = Clock::time_point::min();
  std::uint64_t suppressed_ = 0;
};

}  // namespace voip
