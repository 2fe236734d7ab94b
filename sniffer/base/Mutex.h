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
    kAdaptive,   ///< spins before it sleeps; for a lock that is held for less time than falling asleep takes
    kRecursive,  ///< the holding thread may lock it again
  };

  /// `name` names the mutex in the log line about a failed initialisation; it is not kept.
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

/// Holds a mutex for the duration of a scope.
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

/// A condition variable on the monotonic clock: a change of the wall clock neither extends nor shortens a wait. A wait
/// may end early, so the caller tests its predicate again.
class Condition {
 public:
  using Clock = std::chrono::steady_clock;

  /// `name` names the condition in the log line about a failed initialisation; it is not kept.
  explicit Condition(const char* name = "");
  ~Condition() { pthread_cond_destroy(&condition_); }
  Condition(const Condition&) = delete;
  Condition& operator=(const Condition&) = delete;

  /// Releases `mutex`, waits for a notification and locks `mutex` again.
  void wait(Mutex& mutex) REQUIRES(mutex) { pthread_cond_wait(&condition_, &mutex.mutex_); }

  /// As wait(), but no longer than until `end`. Returns false when that time has passed.
  bool waitUntil(Mutex& mutex, Clock::time_point end) REQUIRES(mutex);

  /// Wakes one waiting thread. Any thread, with or without the mutex.
  void notifyOne() { pthread_cond_signal(&condition_); }

  /// Wakes all waiting threads. Any thread, with or without the mutex.
  void notifyAll() { pthread_cond_broadcast(&condition_); }

 private:
  pthread_cond_t condition_;
};

}  // namespace voip
