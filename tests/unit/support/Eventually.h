#pragma once

#include <chrono>
#include <thread>

/// Waits until `condition` holds. Returns false when it does not hold within 30 seconds.
template <typename Condition>
bool eventually(Condition condition) {
  using namespace std::chrono_literals;
  for (int i = 0; i < 30000; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(1ms);
  }
  return false;
}
