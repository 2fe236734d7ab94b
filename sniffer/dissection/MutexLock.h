#pragma once

#include <pthread.h>

/// Holds a POSIX mutex for the length of a scope.
class MutexLock {
 public:
  explicit MutexLock(pthread_mutex_t& toLock) : mutex(toLock) { pthread_mutex_lock(&mutex); }
  ~MutexLock() { pthread_mutex_unlock(&mutex); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  pthread_mutex_t& mutex;
};
