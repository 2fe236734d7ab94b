#include "base/Mutex.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>

#include "base/Logger.h"

namespace voip {

namespace {

void logInitFailure(const std::string& what, int error) {
  if (error == 0) return;
  logger().debug(what + " init problem:" + std::to_string(error) + ":" + std::strerror(error));
}

int pthreadType(Mutex::Kind kind) {
  switch (kind) {
    case Mutex::kAdaptive:
      return PTHREAD_MUTEX_ADAPTIVE_NP;
    case Mutex::kRecursive:
      return PTHREAD_MUTEX_RECURSIVE;
    case Mutex::kPlain:
      break;
  }
  return PTHREAD_MUTEX_DEFAULT;
}

}  // namespace

Mutex::Mutex(const char* name, Kind kind) {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, pthreadType(kind));
  logInitFailure(std::string("Mutex ") + name, pthread_mutex_init(&mutex_, &attributes));
  pthread_mutexattr_destroy(&attributes);
}

Condition::Condition(const char* name) {
  pthread_condattr_t attributes;
  pthread_condattr_init(&attributes);
  pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
  logInitFailure(std::string("Condition variable ") + name, pthread_cond_init(&condition_, &attributes));
  pthread_condattr_destroy(&attributes);
}

bool Condition::waitUntil(Mutex& mutex, Clock::time_point end) {
  const auto time = std::chrono::duration_cast<std::chrono::nanoseconds>(end.time_since_epoch()).count();
  const timespec until{static_cast<time_t>(time / 1'000'000'000), static_cast<long>(time % 1'000'000'000)};
  return pthread_cond_timedwait(&condition_, &mutex.mutex_, &until) != ETIMEDOUT;
}

}  // namespace voip
