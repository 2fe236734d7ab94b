#include "statistics/PeriodicTask.h"

#include <exception>
#include <string>
#include <utility>

#include "base/Logger.h"

namespace voip {

namespace {

void logFailure(const std::exception& failure) {
  logger().warn(std::string("Statistics are not told: ") + failure.what());
}

}  // namespace

PeriodicTask::PeriodicTask(std::chrono::seconds interval, std::function<void()> task)
    : interval_(interval), task_(std::move(task)) {
  try {
    thread_ = std::thread(&PeriodicTask::run, this);
  } catch (const std::exception& failure) {
    logFailure(failure);
  }
}

PeriodicTask::~PeriodicTask() {
  {
    const MutexLock lock(mutex_);
    ended_ = true;
  }
  changed_.notifyAll();
  if (thread_.joinable()) thread_.join();
}

void PeriodicTask::run() {
  while (!endsWithinInterval()) {
    try {
      task_();
    } catch (const std::exception& failure) {
      logFailure(failure);
    }
  }
}

bool PeriodicTask::endsWithinInterval() {
  const auto end = Condition::Clock::now() + interval_;
  const MutexLock lock(mutex_);
  while (!ended_ && changed_.waitUntil(mutex_, end)) {
  }
  return ended_;
}

}  // namespace voip
