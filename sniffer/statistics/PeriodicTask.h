#pragma once

#include <chrono>
#include <functional>
#include <thread>

#include "base/Mutex.h"

namespace voip {

/// Runs a task on a separate thread, at every interval, for the first time after one interval. The destructor waits for
/// a running task. When the thread cannot be created, logs a WARN and does not run the task.
class PeriodicTask {
 public:
  PeriodicTask(std::chrono::seconds interval, std::function<void()> task);
  ~PeriodicTask();
  PeriodicTask(const PeriodicTask&) = delete;
  PeriodicTask& operator=(const PeriodicTask&) = delete;

 private:
  void run();
  bool endsWithinInterval();

  const std::chrono::seconds interval_;
  const std::function<void()> task_;
  Mutex mutex_;
  Condition changed_;
  bool ended_ GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace voip
