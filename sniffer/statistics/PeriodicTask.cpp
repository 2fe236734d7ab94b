#include "statistics/PeriodicTask.h"

#include "base/Logger.h"


#include <exception>
#include <string>
#include <utility>

namespace voip {

namespace {

void tellFailure(const std::exception& failure) {
  logger().warn(std::string("Statistics are not told: ") + failure.what());
}

}  // namespace

PeriodicTask::PeriodicTask(std::chrono::seconds every, std::function<void()> what)
    : interval(every), task(std::move(what)) {
  try {
    thread = std::thread(&PeriodicTask::run, this);
  } catch (const std::exception& failure) {
    tellFailure(failure);
  }
}

PeriodicTask::~PeriodicTask() {
  {
    const std::lock_guard guard(lock);
    ended = true;
  }
  changed.notify_all();
  if (thread.joinable()) thread.join();
}

void PeriodicTask::run() {
  std::unique_lock guard(lock);
  while (!changed.wait_for(guard, interval, [this] { return ended; })) {
    guard.unlock();
    try {
      task();
    } catch (const std::exception& failure) {
      tellFailure(failure);
    }
    guard.lock();
  }
}

}  // namespace voip
