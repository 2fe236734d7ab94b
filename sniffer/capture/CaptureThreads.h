#pragma once

#include <pcap/pcap.h>
#include <pthread.h>

#include <array>
#include <atomic>

#include "base/Mutex.h"
#include "capture/DeviceList.h"

namespace voip {

/// The capture threads of the engine: one for each device that is captured, or for each of its sockets when several
/// threads share it. The number of a thread is that of its device or socket in the list.
class CaptureThreads {
 public:
  explicit CaptureThreads(DeviceList& devices) : devices_(devices) {}
  CaptureThreads(const CaptureThreads&) = delete;
  CaptureThreads& operator=(const CaptureThreads&) = delete;

  /// Starts the threads. `body` gets a pointer to the number of the thread, an int, and calls capture(). Returns 0, or
  /// the error of pthread_create(); the threads started before the error run.
  int start(void* (*body)(void*));

  /// Captures on device or socket i until it ends (see Device::capture()). Logs an error that no stop has caused.
  /// Returns the result of pcap_loop().
  int capture(int i, int count, pcap_handler callback);

  /// Ends the threads and joins them, in the order of their numbers. SIGUSR1 needs a handler: it interrupts a blocked
  /// read.
  void stop();

  /// True when no thread captures. Any thread.
  bool haveEnded() const { return running_ == 0; }

  /// Returns the device of the calling capture thread, null on other threads.
  static const Device* currentDevice() { return currentDevice_; }

 private:
  int startThread(int i, void* (*body)(void*)) REQUIRES(mutex_);

  DeviceList& devices_;
  std::atomic<bool> stopping_ = false;
  std::atomic<int> running_ = 0;

  Mutex mutex_;
  std::array<int, DeviceList::kMaxSockets> numbers_ GUARDED_BY(mutex_) = {};  ///< the arguments of the threads
  std::array<pthread_t, DeviceList::kMaxSockets> threads_ GUARDED_BY(mutex_) = {};
  std::array<bool, DeviceList::kMaxSockets> joinable_ GUARDED_BY(mutex_) = {};

  static thread_local const Device* currentDevice_;
};

}  // namespace voip
