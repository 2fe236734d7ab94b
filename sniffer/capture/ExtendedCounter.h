#pragma once

#include <cstdint>

namespace voip {

/// Extends one of libpcap's 32-bit counters to 64 bits. On a busy line a 32-bit counter overflows within days.
class ExtendedCounter {
 public:
  /// Takes the current value of the counter.
  void update(std::uint32_t value) {
    total_ += static_cast<std::uint32_t>(value - last_);
    last_ = value;
  }

  /// The counter starts at 0 again; the total stays.
  void restart() { last_ = 0; }

  std::uint64_t getTotal() const { return total_; }

 private:
  std::uint64_t total_ = 0;
  std::uint32_t last_ = 0;
};

}  // namespace voip
