#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace voip {

/// Runs a task on a thread of its own again and again, for the first time when an interval has passed, as long as the
/// object lives. The destructor waits for a task that runs. When there is no thread to be had, a WARN says so.
class PeriodicTask {
 public:
  PeriodicTask(std::chrono::seconds interval, std::function<void()> task);
  ~PeriodicTask();
  PeriodicTask(const PeriodicTask&) = delete;
  PeriodicTask& operator=(const PeriodicTask&) = delete;

 private:
  void run();

  const std::chrono::seconds interval;
  const std::function<void()> task;
  std::mutex lock;
  std::condition_variable changed;
  bool ended = false;
  std::thread thread;
};

}  // namespace voip
