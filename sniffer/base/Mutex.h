#pragma once

#include <pthread.h>

#include <chrono>

#include "base/ThreadSafety.h"

namespace voip {

/// A POSIX mutex that Clang's thread-safety analysis knows.
class CAPABILITY("mutex") Mutex {
 public:
  enum Kind {
    kPlain,
    kAdaptive,   ///< spins before it sleeps: for a lock that is held for less time than a thread takes to fall asleep
    kRecursive,  ///< the thread that holds it may take it again
  };

  /// `name` is the mutex in the log line about a failed initialisation.
  explicit Mutex(const char* name = "", Kind kind = kPlain);
  ~Mutex() { pthread_mutex_destroy(&mutex_); }
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() ACQUIRE() { pthread_mutex_lock(&mutex_); }
  void unlock() RELEASE() { pthread_mutex_unlock(&mutex_); }

 private:
  friend class Condition;
  pthread_mutex_t mutex_;
};

/// Holds a mutex for the length of a scope.
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

/// A condition variable on the monotonic clock: a step of the time of day neither stretches nor shortens a wait. A wait
/// may end early; the caller tests its predicate again.
class Condition {
 public:
  using Clock = std::chrono::steady_clock;

  /// `name` is the condition in the log line about a failed initialisation.
  explicit Condition(const char* name = "");
  ~Condition() { pthread_cond_destroy(&condition_); }
  Condition(const Condition&) = delete;
  Condition& operator=(const Condition&) = delete;

  void wait(Mutex& mutex) REQUIRES(mutex) { pthread_cond_wait(&condition_, &mutex.mutex_); }

  /// Returns false when the time has come.
  bool waitUntil(Mutex& mutex, Clock::time_point end) REQUIRES(mutex);

  void notifyOne() { pthread_cond_signal(&condition_); }
  void notifyAll() { pthread_cond_broadcast(&condition_); }

 private:
  pthread_cond_t condition_;
};

}  // namespace voip
